#pragma once

#include "ui/shortcuts.h"

#include <QDialog>

#include <vector>

class QKeySequenceEdit;

// One key editor per configurable shortcut, pre-filled with the configured keys. The dialog works
// on its own editors: the overrides change only when the caller takes editedOverrides() after OK.
// Each editor is named "shortcut_<id>".
class ShortcutsDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ShortcutsDialog(const ShortcutOverrides &overrides, QWidget *parent = nullptr);

    // The overrides OK stores (see shortcutOverridesFromSequences).
    ShortcutOverrides editedOverrides() const;
    // Puts every editor back to its default key.
    void restoreDefaults();

private:
    struct Row
    {
        QString id;
        QKeySequenceEdit *editor;
    };
    std::vector<Row> m_rows; // table order
};

// Runs the dialog; on OK replaces the overrides and returns true. Applying the keys, saving the
// settings and writing the event are left to the caller.
bool runShortcutsDialog(ShortcutOverrides &overrides, QWidget *parent = nullptr);
