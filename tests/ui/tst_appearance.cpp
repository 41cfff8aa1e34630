#include "app/identity.h"
#include "app/language.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/theme.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

namespace {

QString settingsPath(const IsolatedFolders &folders)
{
    return folders.expectedConfigFolder() + QStringLiteral("/local.json");
}

QJsonObject storedSettings(const IsolatedFolders &folders)
{
    return QJsonDocument::fromJson(IsolatedFolders::readFile(settingsPath(folders))).object();
}

QPushButton *chartTool(const MainWindow &window, const QString &tool)
{
    for (QPushButton *button : window.findChildren<QPushButton *>("chartToolButton")) {
        if (button->property("tool").toString() == tool)
            return button;
    }
    return nullptr;
}

// A View menu entry by its path of English texts.
QAction *viewAction(const MainWindow &window, const QStringList &path)
{
    QList<QAction *> actions = window.menuBar()->actions().first()->menu()->actions();
    QAction *found = nullptr;
    for (const QString &text : path) {
        found = nullptr;
        for (QAction *action : actions) {
            if (action->text() == text)
                found = action;
        }
        if (!found)
            return nullptr;
        if (found->menu())
            actions = found->menu()->actions();
    }
    return found;
}

int consoleLines(const MainWindow &window)
{
    return int(window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText().count('\n')) + 1;
}

} // namespace

class AppearanceTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void firstStartIsDarkEnglishWithDefaultKeys();
    void choosingAThemeStoresIt();
    void choosingTheCurrentLanguageWritesNoEvent();
    void overridesReachTheirActions();
    void corruptSettingsAreKeptAside();

private:
    FakeProvider m_provider;
};

void AppearanceTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void AppearanceTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
}

void AppearanceTest::firstStartIsDarkEnglishWithDefaultKeys()
{
    IsolatedFolders folders;
    MainWindow window;
    QCOMPARE(window.theme(), QStringLiteral("coffee_dark"));
    QCOMPARE(window.styleSheet(), themeStyleSheet(QStringLiteral("coffee_dark")));
    QVERIFY(viewAction(window, {"Appearance", "Dark"})->isChecked());
    QVERIFY(viewAction(window, {"Language", "English"})->isChecked());
    QVERIFY(!QFile::exists(settingsPath(folders))); // nothing changed, nothing written

    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    chartTool(window, "trend")->click();
    QVERIFY(!chartTool(window, "select")->isChecked());
    QTest::keyClick(&window, Qt::Key_1, Qt::AltModifier);
    QTRY_VERIFY(chartTool(window, "select")->isChecked()); // a button's shortcut clicks animated
    QCOMPARE(chartTool(window, "select")->toolTip(), QStringLiteral("Select (Alt+1)"));
    QCOMPARE(viewAction(window, {"Layout", "Dense Terminal"})->shortcut(),
             QKeySequence(QStringLiteral("Ctrl+Alt+2")));
}

void AppearanceTest::choosingAThemeStoresIt()
{
    IsolatedFolders folders;
    MainWindow window;
    viewAction(window, {"Appearance", "Light"})->trigger();
    QCOMPARE(window.theme(), QStringLiteral("qrl_light"));
    QCOMPARE(window.styleSheet(), themeStyleSheet(QStringLiteral("qrl_light")));
    QCOMPARE(storedSettings(folders).value("theme").toString(), QStringLiteral("qrl_light"));
    window.setTheme(QStringLiteral("sepia")); // anything else is the dark theme
    QCOMPARE(storedSettings(folders).value("theme").toString(), QStringLiteral("coffee_dark"));
    QVERIFY(viewAction(window, {"Appearance", "Dark"})->isChecked());

    MainWindow again;
    QCOMPARE(again.theme(), QStringLiteral("coffee_dark"));
}

void AppearanceTest::choosingTheCurrentLanguageWritesNoEvent()
{
    IsolatedFolders folders;
    MainWindow window;
    const int lines = consoleLines(window);
    viewAction(window, {"Language", "English"})->trigger();
    QCOMPARE(consoleLines(window), lines);
    QVERIFY(!QFile::exists(settingsPath(folders)));

    viewAction(window, {"Language", "Português"})->trigger();
    QCOMPARE(consoleLines(window), lines + 1);
    QCOMPARE(storedSettings(folders).value("language").toString(), QStringLiteral("pt_BR"));
    // Every bound text follows: menus, placeholders, tab titles, tooltips with their keys.
    QCOMPARE(window.menuBar()->actions().first()->menu()->actions().first()->text(),
             QStringLiteral("Conta"));
    QVERIFY(chartTool(window, "select")->toolTip().contains(QStringLiteral("Alt+1")));
    QVERIFY(chartTool(window, "select")->toolTip() != QStringLiteral("Select (Alt+1)"));
}

void AppearanceTest::overridesReachTheirActions()
{
    IsolatedFolders folders;
    folders.writeFile(settingsPath(folders), R"({"shortcuts":{"chart_trend":"  ",
        "not_a_shortcut":"Ctrl+X","layout_dense":"Ctrl+Shift+D","book_wide":"Ctrl+9"}})");
    MainWindow window;
    QCOMPARE(window.shortcutOverrides().size(), 2);
    QCOMPARE(chartTool(window, "trend")->shortcut(), QKeySequence(QStringLiteral("Alt+4")));
    QCOMPARE(viewAction(window, {"Layout", "Dense Terminal"})->shortcut(),
             QKeySequence(QStringLiteral("Ctrl+Shift+D")));
    QCOMPARE(window.configuredShortcut("book_wide"), QKeySequence(QStringLiteral("Ctrl+9")));

    // Back to the default: the override disappears from the file.
    ShortcutOverrides overrides = window.shortcutOverrides();
    overrides.remove(QStringLiteral("layout_dense"));
    window.setShortcutOverrides(overrides);
    QCOMPARE(storedSettings(folders).value("shortcuts").toObject(),
             (QJsonObject{{"book_wide", "Ctrl+9"}}));
    QCOMPARE(viewAction(window, {"Layout", "Dense Terminal"})->shortcut(),
             QKeySequence(QStringLiteral("Ctrl+Alt+2")));
}

void AppearanceTest::corruptSettingsAreKeptAside()
{
    IsolatedFolders folders;
    const QByteArray corrupt = "{\"language\": \"pt_BR\", \"alerts\": [";
    folders.writeFile(settingsPath(folders), corrupt);
    {
        MainWindow window;
        QCOMPARE(interfaceLanguage(), QStringLiteral("en"));                 // defaults
        QCOMPARE(IsolatedFolders::readFile(settingsPath(folders)), corrupt); // untouched so far
        window.setTheme(QStringLiteral("qrl_light"));
    }
    QCOMPARE(IsolatedFolders::readFile(settingsPath(folders) + ".corrupt"), corrupt);
    QCOMPARE(storedSettings(folders).value("theme").toString(), QStringLiteral("qrl_light"));
}

QTEST_MAIN(AppearanceTest)
#include "tst_appearance.moc"
