#pragma once

#include <QDialog>
#include <QIcon>

#include <vector>

class ApiKeyStore;
class QAction;
class QLineEdit;

// Edits every catalogue key on one form, each field masked until its eye is clicked. The dialog
// works on a copy of the values: nothing reaches the store until the caller applies the fields.
class ApiKeysDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ApiKeysDialog(const ApiKeyStore &keys, QWidget *parent = nullptr);

    // Every field, trimmed, in catalogue order; an emptied field removes its key.
    void applyTo(ApiKeyStore &keys) const;

private:
    QLineEdit *createField(const char *name, const QString &description, const QString &value);
    void setMasked(QLineEdit *field, QAction *toggle, bool masked);

    std::vector<QLineEdit *> m_fields; // catalogue order
    QIcon m_showIcon;
    QIcon m_hideIcon;
};

// Runs the dialog; on Save applies the fields to the keys and returns true. Saving the file and
// telling the user are left to the caller.
bool runApiKeysDialog(ApiKeyStore &keys, QWidget *parent = nullptr);
