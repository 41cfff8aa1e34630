#include "ui/shortcuts_dialog.h"

#include "app/language.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace {

// The editor records up to four chords, but every shortcut here is a single key combination: only
// the first chord counts.
QKeySequence firstChord(const QKeySequence &sequence)
{
    return sequence.count() > 1 ? QKeySequence(sequence[0]) : sequence;
}

} // namespace

ShortcutsDialog::ShortcutsDialog(const ShortcutOverrides &overrides, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(shortcutsTitleText());
    setModal(true);
    resize(620, 420);

    auto *hint = new QLabel(shortcutsHintText(), this);
    hint->setWordWrap(true);

    auto *form = new QWidget;
    auto *formLayout = new QFormLayout(form);
    formLayout->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    formLayout->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    formLayout->setVerticalSpacing(8);
    formLayout->setContentsMargins(8, 8, 12, 8); // keeps the editors off the scroll bar
    for (const ShortcutEntry &entry : shortcutTable()) {
        const QString id = QString::fromLatin1(entry.id);
        auto *editor = new QKeySequenceEdit(configuredShortcut(overrides, id), form);
        editor->setObjectName(QStringLiteral("shortcut_") + id);
        editor->setClearButtonEnabled(true);
        editor->setMinimumWidth(200);
        connect(editor, &QKeySequenceEdit::editingFinished, this, [editor] {
            const QKeySequence sequence = editor->keySequence();
            if (sequence.count() > 1)
                editor->setKeySequence(firstChord(sequence));
        });
        auto *label = new QLabel(entry.label(), form);
        label->setBuddy(editor);
        formLayout->addRow(label, editor);
        m_rows.push_back({id, editor});
    }

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::StyledPanel);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(form);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel |
                                                 QDialogButtonBox::RestoreDefaults,
                                         this);
    buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("OK"));
    buttons->button(QDialogButtonBox::Cancel)
            ->setText(translated(QStringLiteral("Cancel"), QStringLiteral("Cancelar")));
    QPushButton *restore = buttons->button(QDialogButtonBox::RestoreDefaults);
    restore->setText(restoreDefaultsText());
    connect(restore, &QPushButton::clicked, this, &ShortcutsDialog::restoreDefaults);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(hint);
    layout->addWidget(scroll, 1);
    layout->addWidget(buttons);
}

ShortcutOverrides ShortcutsDialog::editedOverrides() const
{
    QMap<QString, QKeySequence> edited;
    // An editor may still be recording when OK is pressed, so the chord limit applies here too.
    for (const Row &row : m_rows)
        edited.insert(row.id, firstChord(row.editor->keySequence()));
    return shortcutOverridesFromSequences(edited);
}

void ShortcutsDialog::restoreDefaults()
{
    for (const Row &row : m_rows)
        row.editor->setKeySequence(defaultShortcut(row.id));
}

bool runShortcutsDialog(ShortcutOverrides &overrides, QWidget *parent)
{
    ShortcutsDialog dialog(overrides, parent);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    overrides = dialog.editedOverrides();
    return true;
}
