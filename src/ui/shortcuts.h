#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QKeySequence>
#include <QList>
#include <QMap>
#include <QString>

// The keyboard shortcuts the user can change: chart tools, layout presets and order-book
// aggregation. Key sequences are kept as text in QKeySequence::PortableText, so a stored
// "Ctrl+Alt+M" means the same on every platform.

struct ShortcutEntry
{
    const char *id;
    QString english;
    QString portuguese;
    const char *defaultKey; // portable text

    QString label() const; // in the interface language
};

// Every configurable shortcut, in the order the Shortcuts dialog lists them.
const QList<ShortcutEntry> &shortcutTable();

// id -> portable key-sequence text, holding only the shortcuts that differ from their defaults.
// This is what the settings file keeps under "shortcuts".
using ShortcutOverrides = QMap<QString, QString>;

// The default key of a table entry; empty for an unknown id.
QKeySequence defaultShortcut(const QString &id);
// The override for the id when there is one, else its default; empty for an unknown id.
QKeySequence configuredShortcut(const ShortcutOverrides &overrides, const QString &id);

// Reads the stored "shortcuts" object: for each known id a string that is not blank becomes an
// override (trimmed). Blank values, other types and unknown ids are ignored; anything but an
// object reads as no overrides.
ShortcutOverrides shortcutOverridesFromJson(const QJsonValue &value);
QJsonObject shortcutOverridesToJson(const ShortcutOverrides &overrides);

// What OK in the Shortcuts dialog stores: for each table entry the edited sequence, only when it is
// not empty and differs from the default. An emptied field therefore stores nothing and the
// default key applies again, even though the dialog's hint speaks of disabling it.
ShortcutOverrides shortcutOverridesFromSequences(const QMap<QString, QKeySequence> &edited);

// The dialog title, also the text of the menu entry that opens it.
QString shortcutsTitleText();
QString shortcutsHintText();
QString restoreDefaultsText();
// The event written after OK in the dialog.
QString shortcutsUpdatedText();
// The tooltip of a chart toolbar button (ids "chart_select" ... "chart_trend") naming its key, e.g.
// "Select (Alt+1)"; without the key when the sequence is empty, and empty for any other id.
QString chartToolTip(const QString &id, const QKeySequence &sequence);
