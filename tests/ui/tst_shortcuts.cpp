#include "app/language.h"
#include "ui/shortcuts.h"
#include "ui/shortcuts_dialog.h"

#include <QAction>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QJsonDocument>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>

namespace {

QKeySequenceEdit *editor(const QWidget *dialog, const QString &id)
{
    return dialog->findChild<QKeySequenceEdit *>(QStringLiteral("shortcut_") + id);
}

// An empty sequence is typed the way the user does it: with the editor's clear button.
void edit(QKeySequenceEdit *field, const QKeySequence &sequence)
{
    if (!sequence.isEmpty()) {
        field->setKeySequence(sequence);
        return;
    }
    const auto *line = field->findChild<QLineEdit *>();
    const auto *clear = line->findChild<QAction *>(QStringLiteral("_q_qlineeditclearaction"));
    for (QToolButton *button : line->findChildren<QToolButton *>()) {
        if (clear && button->defaultAction() == clear)
            QTest::mouseClick(button, Qt::LeftButton);
    }
}

QKeySequence keys(const char *text)
{
    return QKeySequence::fromString(QString::fromLatin1(text), QKeySequence::PortableText);
}

} // namespace

class ShortcutsTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }

    void tableKeepsOrderAndPortableDefaults();
    void configuredShortcutPrefersOverride_data();
    void configuredShortcutPrefersOverride();
    void storedOverridesKeepOnlyKnownNonBlankKeys_data();
    void storedOverridesKeepOnlyKnownNonBlankKeys();
    void okStoresOnlyDifferencesAndCancelNothing_data();
    void okStoresOnlyDifferencesAndCancelNothing();
    void restoreDefaultsResetsEditedFields();
    void recordingKeepsTheFirstChord();
    void textsFollowLanguage_data();
    void textsFollowLanguage();
};

void ShortcutsTest::tableKeepsOrderAndPortableDefaults()
{
    const QStringList ids = {"chart_select",        "chart_reset",  "chart_hline",
                             "chart_vline",         "chart_trend",  "layout_balanced",
                             "layout_dense",        "layout_chart", "layout_order_flow",
                             "layout_next_monitor", "book_raw",     "book_tight",
                             "book_normal",         "book_wide"};
    QCOMPARE(shortcutTable().size(), ids.size());
    for (int row = 0; row < ids.size(); ++row) {
        const ShortcutEntry &entry = shortcutTable().at(row);
        QCOMPARE(QString::fromLatin1(entry.id), ids.at(row));
        QCOMPARE(keys(entry.defaultKey).toString(QKeySequence::PortableText),
                 QString::fromLatin1(entry.defaultKey));
    }
    QCOMPARE(defaultShortcut(QStringLiteral("layout_next_monitor")), keys("Ctrl+Alt+M"));
}

void ShortcutsTest::configuredShortcutPrefersOverride_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QKeySequence>("expected");
    QTest::newRow("unknown id") << "chart_zoom" << QKeySequence();
    QTest::newRow("unknown id with override") << "custom" << QKeySequence();
    QTest::newRow("default") << "chart_select" << keys("Alt+1");
    QTest::newRow("override") << "layout_dense" << keys("Ctrl+Shift+D");
    QTest::newRow("empty override") << "book_wide" << keys("Ctrl+4");
}

void ShortcutsTest::configuredShortcutPrefersOverride()
{
    QFETCH(QString, id);
    QFETCH(QKeySequence, expected);
    const ShortcutOverrides overrides = {
            {"layout_dense", "Ctrl+Shift+D"}, {"custom", "Alt+9"}, {"book_wide", ""}};
    QCOMPARE(configuredShortcut(overrides, id), expected);
}

void ShortcutsTest::storedOverridesKeepOnlyKnownNonBlankKeys_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<ShortcutOverrides>("expected");
    QTest::newRow("blank and unknown")
            << QByteArray(R"({"shortcuts": {"chart_trend": "  ", "chart_zoom": "Alt+9"}})")
            << ShortcutOverrides();
    QTest::newRow("not strings") << QByteArray(R"({"shortcuts": {"chart_select": 5,
            "chart_reset": true, "chart_hline": null, "chart_vline": {"key": "Alt+7"},
            "chart_trend": ["Alt+8"]}})")
                                 << ShortcutOverrides();
    QTest::newRow("array") << QByteArray(R"({"shortcuts": [{"chart_select": "Alt+5"}]})")
                           << ShortcutOverrides();
    QTest::newRow("string") << QByteArray(R"({"shortcuts": "Alt+5"})") << ShortcutOverrides();
    QTest::newRow("missing") << QByteArray("{}") << ShortcutOverrides();
    QTest::newRow("trimmed") << QByteArray(R"({"shortcuts": {"book_wide": " Ctrl+9\t"}})")
                             << ShortcutOverrides{{"book_wide", "Ctrl+9"}};
    QTest::newRow("stored default dropped")
            << QByteArray(
                       R"({"shortcuts": {"book_raw": "Ctrl+1", "layout_dense": "Ctrl+Shift+D"}})")
            << ShortcutOverrides{{"layout_dense", "Ctrl+Shift+D"}};
}

void ShortcutsTest::storedOverridesKeepOnlyKnownNonBlankKeys()
{
    QFETCH(QByteArray, settings);
    QFETCH(ShortcutOverrides, expected);
    const QJsonObject stored = QJsonDocument::fromJson(settings).object();
    QVERIFY(!stored.isEmpty() || settings == "{}");
    QCOMPARE(shortcutOverridesFromJson(stored.value(QStringLiteral("shortcuts"))), expected);
    QCOMPARE(shortcutOverridesFromJson(shortcutOverridesToJson(expected)), expected);
}

void ShortcutsTest::okStoresOnlyDifferencesAndCancelNothing_data()
{
    QTest::addColumn<ShortcutOverrides>("before");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QKeySequence>("typed");
    QTest::addColumn<QDialogButtonBox::StandardButton>("button");
    QTest::addColumn<ShortcutOverrides>("after");
    QTest::addColumn<QKeySequence>("configured");
    const auto ok = QDialogButtonBox::Ok;
    const ShortcutOverrides dense = {{"layout_dense", "Ctrl+Shift+D"}};
    QTest::newRow("changed") << ShortcutOverrides() << "layout_dense" << keys("Ctrl+Shift+D") << ok
                             << dense << keys("Ctrl+Shift+D");
    QTest::newRow("set back to default") << dense << "layout_dense" << keys("Ctrl+Alt+2") << ok
                                         << ShortcutOverrides() << keys("Ctrl+Alt+2");
    QTest::newRow("default cleared") << ShortcutOverrides() << "chart_reset" << QKeySequence() << ok
                                     << ShortcutOverrides() << keys("Alt+0");
    QTest::newRow("override cleared")
            << ShortcutOverrides{{"chart_reset", "Alt+9"}} << "chart_reset" << QKeySequence() << ok
            << ShortcutOverrides() << keys("Alt+0");
    QTest::newRow("others kept") << dense << "chart_trend" << keys("Alt+T") << ok
                                 << ShortcutOverrides{{"layout_dense", "Ctrl+Shift+D"},
                                                      {"chart_trend", "Alt+T"}}
                                 << keys("Alt+T");
    QTest::newRow("cancel") << dense << "layout_dense" << keys("Ctrl+8") << QDialogButtonBox::Cancel
                            << dense << keys("Ctrl+Shift+D");
}

void ShortcutsTest::okStoresOnlyDifferencesAndCancelNothing()
{
    QFETCH(ShortcutOverrides, before);
    QFETCH(QString, id);
    QFETCH(QKeySequence, typed);
    QFETCH(QDialogButtonBox::StandardButton, button);
    QFETCH(ShortcutOverrides, after);
    QFETCH(QKeySequence, configured);
    ShortcutOverrides overrides = before;
    QKeySequence shown;
    QKeySequence edited;
    QTimer::singleShot(0, this, [&] {
        QWidget *dialog = QApplication::activeModalWidget();
        QKeySequenceEdit *field = dialog ? editor(dialog, id) : nullptr;
        if (field) {
            shown = field->keySequence();
            edit(field, typed);
            edited = field->keySequence();
        }
        // Closed whatever happened above, so a failure cannot leave the test waiting.
        if (dialog)
            QTest::mouseClick(dialog->findChild<QDialogButtonBox *>()->button(button),
                              Qt::LeftButton);
    });
    QCOMPARE(runShortcutsDialog(overrides), button == QDialogButtonBox::Ok);
    QCOMPARE(shown, configuredShortcut(before, id));
    QCOMPARE(edited, typed);
    QCOMPARE(overrides, after);
    QCOMPARE(configuredShortcut(overrides, id), configured);
}

void ShortcutsTest::restoreDefaultsResetsEditedFields()
{
    ShortcutsDialog dialog(ShortcutOverrides{{"chart_trend", "Alt+T"}, {"book_raw", "Ctrl+9"}});
    QCOMPARE(editor(&dialog, QStringLiteral("chart_trend"))->keySequence(), keys("Alt+T"));
    editor(&dialog, QStringLiteral("layout_dense"))->setKeySequence(keys("Ctrl+Shift+D"));
    edit(editor(&dialog, QStringLiteral("chart_reset")), QKeySequence());
    QCOMPARE(dialog.editedOverrides().size(), 3);

    QTest::mouseClick(
            dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::RestoreDefaults),
            Qt::LeftButton);
    for (const ShortcutEntry &entry : shortcutTable()) {
        QCOMPARE(editor(&dialog, QString::fromLatin1(entry.id))->keySequence(),
                 keys(entry.defaultKey));
    }
    QCOMPARE(dialog.editedOverrides(), ShortcutOverrides());
}

void ShortcutsTest::recordingKeepsTheFirstChord()
{
    ShortcutsDialog dialog(ShortcutOverrides{});
    QKeySequenceEdit *field = editor(&dialog, QStringLiteral("book_tight"));
    QSignalSpy finished(field, &QKeySequenceEdit::editingFinished);
    QTest::keyClick(field, Qt::Key_5, Qt::AltModifier);
    QTest::keyClick(field, Qt::Key_6, Qt::AltModifier);
    // OK pressed while the editor still records takes the first chord too.
    QCOMPARE(dialog.editedOverrides(), (ShortcutOverrides{{"book_tight", "Alt+5"}}));
    QVERIFY(finished.wait(3000));
    QCOMPARE(field->keySequence(), keys("Alt+5"));
}

void ShortcutsTest::textsFollowLanguage_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("en") << "en";
    QTest::newRow("pt_BR") << "pt_BR";
}

// Every expectation below is written out in both languages; translated() only picks one.
void ShortcutsTest::textsFollowLanguage()
{
    QFETCH(QString, language);
    setInterfaceLanguage(language);

    ShortcutsDialog dialog(ShortcutOverrides{{"book_wide", "Ctrl+9"}});
    QVERIFY(dialog.isModal());
    QCOMPARE(dialog.size(), QSize(620, 420));
    QCOMPARE(dialog.windowTitle(), translated("Shortcuts", "Atalhos"));
    const auto *hint = dialog.findChild<QLabel *>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(hint->text(), translated("Review and customize keyboard shortcuts. Leave a field "
                                      "empty to disable that shortcut.",
                                      "Revise e personalize os atalhos de teclado. Deixe um campo "
                                      "vazio para desativar o atalho."));
    QVERIFY(hint->wordWrap());
    const auto *form = dialog.findChild<QFormLayout *>();
    QCOMPARE(form->rowCount(), 14);
    const auto label = [form](int row) {
        return qobject_cast<QLabel *>(form->itemAt(row, QFormLayout::LabelRole)->widget())->text();
    };
    QCOMPARE(label(0), translated("Chart: Select tool", "Gráfico: ferramenta selecionar"));
    QCOMPARE(label(9),
             translated("Layout: Move to next monitor", "Layout: mover para próximo monitor"));
    QCOMPARE(label(13), translated("Book: Wide aggregation", "Livro: agregação ampla"));
    for (int row = 0; row < form->rowCount(); ++row) {
        const auto *field = qobject_cast<QKeySequenceEdit *>(
                form->itemAt(row, QFormLayout::FieldRole)->widget());
        QCOMPARE(field->objectName(),
                 QStringLiteral("shortcut_") + QLatin1String(shortcutTable().at(row).id));
        QVERIFY(field->isClearButtonEnabled());
    }
    QCOMPARE(editor(&dialog, QStringLiteral("book_wide"))->keySequence(), keys("Ctrl+9"));
    const auto *buttons = dialog.findChild<QDialogButtonBox *>();
    QCOMPARE(buttons->button(QDialogButtonBox::RestoreDefaults)->text(),
             translated("Restore defaults", "Restaurar padrões"));
    QCOMPARE(buttons->button(QDialogButtonBox::Cancel)->text(), translated("Cancel", "Cancelar"));

    QCOMPARE(shortcutsUpdatedText(), translated("Shortcuts updated", "Atalhos atualizados"));
    QCOMPARE(chartToolTip(QStringLiteral("chart_select"), keys("Alt+1")),
             translated("Select (Alt+1)", "Selecionar (Alt+1)"));
    QCOMPARE(chartToolTip(QStringLiteral("chart_reset"), keys("Alt+0")),
             translated("Reset zoom to the latest candle (Alt+0)",
                        "Resetar zoom para o último candle (Alt+0)"));
    QCOMPARE(chartToolTip(QStringLiteral("chart_trend"), QKeySequence()),
             translated("Trend line", "Linha de tendência"));
    QCOMPARE(chartToolTip(QStringLiteral("layout_dense"), keys("Ctrl+Alt+2")), QString());
}

QTEST_MAIN(ShortcutsTest)
#include "tst_shortcuts.moc"
