#include "app/identity.h"
#include "app/language.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScopeGuard>
#include <QSplitter>
#include <QStatusBar>
#include <QTest>
#include <QTimer>

namespace {

QString settingsPath(const IsolatedFolders &folders)
{
    return folders.expectedConfigFolder() + QStringLiteral("/local.json");
}

QString snapshotPath(const IsolatedFolders &folders)
{
    return folders.expectedConfigFolder() + QStringLiteral("/workspace.default.json");
}

QJsonObject readObject(const QString &path)
{
    return QJsonDocument::fromJson(IsolatedFolders::readFile(path)).object();
}

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson();
}

QList<int> sizesOf(const QJsonValue &value)
{
    QList<int> sizes;
    for (const QJsonValue &size : value.toArray())
        sizes << size.toInt();
    return sizes;
}

QSplitter *splitter(const MainWindow &window, const char *name)
{
    return window.findChild<QSplitter *>(QLatin1String(name));
}

// Personal state in the form the window writes it, so it reads back unchanged.
QJsonObject storedAlert()
{
    return {{"symbol", "AAPL"},   {"target", 250},      {"above", true},
            {"triggered", false}, {"repeating", false}, {"last_trigger_ms", 0}};
}

QJsonObject storedPortfolios()
{
    const QJsonObject position{{"symbol", "PETR4.SA"}, {"quantity", 100}, {"average_price", 36.5}};
    return {{"items", QJsonArray{QJsonObject{{"name", "Main"},
                                             {"base_currency", "BRL"},
                                             {"positions", QJsonArray{position}},
                                             {"transactions", QJsonArray{}}}}},
            {"active", "Main"}};
}

QString lastEvent(const MainWindow &window)
{
    const QString text = window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
    return text.section(QLatin1Char('\n'), -1).mid(11); // without "[HH:mm:ss] "
}

QString consoleText(const MainWindow &window)
{
    return window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
}

// What a modal message box showed, and which button the test pressed on it.
struct BoxSeen
{
    int count = 0;
    QString title;
    QString text;
    QStringList buttons;
};

// Answers every message box that opens while it lives: presses the button whose text is `answer`,
// or Escape when `answer` is empty. A box that is never expected is still answered, so a test can
// never hang on one; the count tells.
class BoxAnswerer : public QObject
{
public:
    explicit BoxAnswerer(QString answer)
        : m_answer(std::move(answer))
    {
        m_timer.setInterval(10);
        connect(&m_timer, &QTimer::timeout, this, &BoxAnswerer::poll);
        m_timer.start();
    }
    BoxSeen seen;

private:
    void poll()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || box == m_answered)
            return;
        m_answered = box;
        ++seen.count;
        seen.title = box->windowTitle();
        seen.text = box->text();
        seen.buttons.clear();
        QAbstractButton *chosen = nullptr;
        for (QAbstractButton *button : box->buttons()) {
            seen.buttons << button->text();
            if (button->text() == m_answer)
                chosen = button;
        }
        if (chosen)
            chosen->click();
        else
            QTest::keyClick(box, Qt::Key_Escape);
    }

    QString m_answer;
    QTimer m_timer;
    QPointer<QMessageBox> m_answered;
};

QAction *layoutAction(const MainWindow &window, const QString &text)
{
    for (QAction *entry : window.menuBar()->actions().first()->menu()->actions()) {
        if (entry->menu() && entry->text() == QLatin1String("Layout")) {
            for (QAction *action : entry->menu()->actions()) {
                if (action->text() == text)
                    return action;
            }
        }
    }
    return nullptr;
}

QJsonObject storedSession()
{
    return {{"token", "session-token"},
            {"email", "ana@example.com"},
            {"first_name", "Ana"},
            {"token_expiration", "2026-12-01T00:00:00Z"}};
}

} // namespace

class WorkspaceTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void everyKeyRoundTrips();
    void rejectedValuesLeaveTheDefaults();
    void startupReportsSavedAlerts();
    void burstOfChangesIsWrittenOnce();
    void draggingASplitterIsSaved();
    void snapshotCarriesTheLayoutOnly();
    void snapshotNeverTouchesPersonalState();
    void snapshotProblemsAreExplained();
    void layoutPresetsSetBothSplitters_data();
    void layoutPresetsSetBothSplitters();
    void closingAsksOnlyWithASession_data();
    void closingAsksOnlyWithASession();
    void singleMonitorChangesOnlyTheStatusBar();
    void restartRestoresTheWorkspace();

private:
    FakeProvider m_provider;
};

void WorkspaceTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void WorkspaceTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
}

void WorkspaceTest::everyKeyRoundTrips()
{
    IsolatedFolders folders;
    QByteArray geometry;
    {
        MainWindow source;
        source.setGeometry(120, 140, 1100, 720);
        geometry = source.saveGeometry();
    }
    const QJsonObject stored{
            {"language", "pt_BR"},
            {"theme", "qrl_light"},
            {"chart_mode", "candle"},
            {"chart_timeframe", "4h"},
            {"window_geometry", QString::fromLatin1(geometry.toBase64())},
            {"hidden_columns", "3,4"},
            {"indicators", QJsonObject{{"sma20", true},
                                       {"ema20", false},
                                       {"vwap", false},
                                       {"macd", true},
                                       {"sma_period", 50},
                                       {"ema_period", 20},
                                       {"macd_fast", 12},
                                       {"macd_slow", 26},
                                       {"macd_signal", 9},
                                       {"vwap_session", true},
                                       {"draw_hline", true},
                                       {"draw_vline", true},
                                       {"draw_trend", false}}},
            {"shortcuts", QJsonObject{{"layout_chart", "Ctrl+Shift+C"}}},
            {"alerts", QJsonArray{storedAlert()}},
            {"alert_history", QJsonArray{QJsonObject{{"timestamp", "2026-11-20 10:00:00"},
                                                     {"event", "Triggered"},
                                                     {"symbol", "AAPL"},
                                                     {"condition", ">= 250.0000"},
                                                     {"target", 250},
                                                     {"price", 251},
                                                     {"status", "Hit"}}}},
            {"portfolios", storedPortfolios()},
            {"api_health", QJsonObject{{"yahoo_us", QJsonObject{{"ok", true}}}}},
            {"api_quota", QJsonObject{}},
            {"auth", storedSession()},
            {"sync_versions", QJsonObject{{"settings", 7}}},
            {"sync_last_unix", 1763700000},
            {"sync_last_status", "Synced"},
            {"book_step", 0.5},
            {"book_preset", "tight"},
            {"movers_min_volume", 100000},
            {"movers_min_turnover", 2500000},
            {"movers_scope", "b3"},
            {"movers_interval", "day"},
            {"movers_sector", "Energy"},
            {"screener_asset", "crypto"},
            {"screener_scope", "universe"},
            {"screener_min_change", 1.5},
            {"left_splitter_sizes", QJsonArray{300, 500, 130}},
            {"workspace_splitter_sizes", QJsonArray{1000, 400}},
            {"drawings", QJsonObject{{"BTCUSDT|1h", QJsonArray{QJsonObject{{"kind", "hline"}}}}}},
    };
    folders.writeFile(settingsPath(folders), json(stored));

    MainWindow window;
    QCOMPARE(interfaceLanguage(), QStringLiteral("pt_BR"));
    QCOMPARE(window.theme(), QStringLiteral("qrl_light"));
    QCOMPARE(window.chartMode(), QStringLiteral("candle"));
    QCOMPARE(window.findChild<QComboBox *>("chartMode")->currentData().toString(),
             QStringLiteral("candle"));
    QCOMPARE(window.findChild<QComboBox *>("chartTimeframe")->currentText(), QStringLiteral("4h"));
    QCOMPARE(window.marketTable()->hiddenColumns(), (QSet<int>{3, 4}));
    QCOMPARE(window.configuredShortcut("layout_chart"), QKeySequence("Ctrl+Shift+C"));
    QCOMPARE(window.geometry(), QRect(120, 140, 1100, 720));
    QVERIFY(window.hasStoredSession());
    QVERIFY(!QFile::exists(settingsPath(folders) + ".corrupt"));

    window.saveLocalSettings();
    const QByteArray text = IsolatedFolders::readFile(settingsPath(folders));
    const QJsonObject written = QJsonDocument::fromJson(text).object();
    QCOMPARE(written.keys().size(), stored.keys().size());
    for (const QString &key : localSettingsKeyOrder()) {
        if (key != QLatin1String("window_geometry"))
            QVERIFY2(written.value(key) == stored.value(key), qPrintable(key));
    }
    // The geometry is the toolkit's own bytes: it must put a window back in the same place.
    MainWindow again;
    QCOMPARE(again.geometry(), QRect(120, 140, 1100, 720));
    // Keys are written in their fixed order.
    qsizetype previous = -1;
    for (const QString &key : localSettingsKeyOrder()) {
        const qsizetype at = text.indexOf("\"" + key.toLatin1() + "\":");
        QVERIFY2(at > previous, qPrintable(key));
        previous = at;
    }
}

void WorkspaceTest::rejectedValuesLeaveTheDefaults()
{
    IsolatedFolders folders;
    folders.writeFile(settingsPath(folders), R"({"language":"de","theme":"light",
        "chart_mode":"Candle","chart_timeframe":"2h","hidden_columns":"0,3,16,x"})");
    MainWindow window;
    QCOMPARE(interfaceLanguage(), QStringLiteral("en"));
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("View"));
    QCOMPARE(window.theme(), QStringLiteral("coffee_dark"));
    QCOMPARE(window.chartMode(), QStringLiteral("line"));
    QCOMPARE(window.findChild<QComboBox *>("chartTimeframe")->currentText(), QStringLiteral("1m"));
    QCOMPARE(window.marketTable()->hiddenColumns(), QSet<int>{3});
}

void WorkspaceTest::startupReportsSavedAlerts()
{
    IsolatedFolders folders;
    folders.writeFile(settingsPath(folders), R"({"alerts":[{"symbol":"AAPL"},{"symbol":"PETR4.SA"},
        "not an alert"]})");
    MainWindow window;
    QVERIFY(consoleText(window).contains("] Terminal initialized\n"));
    QCOMPARE(lastEvent(window), QStringLiteral("Loaded 2 saved alert(s)"));
    QCOMPARE(window.statusBar()->currentMessage(), QStringLiteral("Loaded 2 saved alert(s)"));
    QCOMPARE(window.marketTable()->currentRow(), 0);

    // Market data starts once, 250 ms after construction, and only then do the repeaters run.
    auto *quotes = window.findChild<QTimer *>("quoteRefreshTimer");
    QVERIFY(!quotes->isActive());
    QTRY_VERIFY(quotes->isActive());
    QCOMPARE(quotes->interval(), 15000);
    QVERIFY(window.findChild<QTimer *>("newsRefreshTimer")->isActive());

    IsolatedFolders noAlerts;
    MainWindow plain;
    QVERIFY(!consoleText(plain).contains("saved alert"));
}

void WorkspaceTest::burstOfChangesIsWrittenOnce()
{
    IsolatedFolders folders;
    MainWindow window;
    const int writes = window.settingsFile().writeCount();
    QElapsedTimer sinceLast;
    for (int i = 0; i < 10; ++i) {
        window.scheduleSettingsSave();
        sinceLast.start();
        QTest::qWait(30); // ten calls over 300 ms
    }
    QTest::qWait(400 - int(sinceLast.elapsed()));
    QCOMPARE(window.settingsFile().writeCount(), writes); // still inside the quiet period
    QVERIFY(!QFile::exists(settingsPath(folders)));
    QTRY_COMPARE_WITH_TIMEOUT(window.settingsFile().writeCount(), writes + 1, 2000);
    QVERIFY(sinceLast.elapsed() >= 450);
    QVERIFY(QFile::exists(settingsPath(folders)));
    QTest::qWait(500);
    QCOMPARE(window.settingsFile().writeCount(), writes + 1);

    // A chart selector change goes the same way.
    auto *timeframes = window.findChild<QComboBox *>("chartTimeframe");
    timeframes->setCurrentText("1h");
    emit timeframes->textActivated("1h");
    QTRY_COMPARE(readObject(settingsPath(folders)).value("chart_timeframe").toString(),
                 QStringLiteral("1h"));
}

void WorkspaceTest::draggingASplitterIsSaved()
{
    IsolatedFolders folders;
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QSplitter *left = splitter(window, "leftSplitter");
    const QList<int> before = left->sizes();
    QWidget *handle = left->handle(1);
    const QPoint grab = handle->rect().center();
    QTest::mousePress(handle, Qt::LeftButton, {}, grab);
    QTest::mouseMove(handle, grab + QPoint(0, 60));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, grab + QPoint(0, 60));
    QVERIFY(left->sizes() != before);
    QTRY_COMPARE_WITH_TIMEOUT(
            sizesOf(readObject(settingsPath(folders)).value("left_splitter_sizes")), left->sizes(),
            2000);
}

void WorkspaceTest::snapshotCarriesTheLayoutOnly()
{
    IsolatedFolders folders;
    folders.writeFile(settingsPath(folders),
                      json({{"alerts", QJsonArray{QJsonObject{}}},
                            {"portfolios", QJsonObject{{"Main", 1}}},
                            {"auth", storedSession()},
                            {"indicators", QJsonObject{{"sma_period", 50}}}}));
    MainWindow window;
    window.setTheme(QStringLiteral("qrl_light"));
    window.applyLayoutPreset(QStringLiteral("chart"));
    window.applyColumnPreset(QStringLiteral("trading"));
    const QSet<int> tradingHidden = window.marketTable()->hiddenColumns();
    {
        BoxAnswerer answerer{QString()};
        window.saveWorkspaceSnapshot();
        QCOMPARE(answerer.seen.count, 0);
    }
    QCOMPARE(lastEvent(window), QStringLiteral("Workspace saved"));
    const QJsonObject snapshot = readObject(snapshotPath(folders));
    // Every one of the snapshot's keys: the window owns them all now.
    QCOMPARE(snapshot.keys().size(), int(workspaceSnapshotKeys().size()));
    QCOMPARE(snapshot.value("indicators").toObject().value("sma_period").toInt(), 50);
    QCOMPARE(sizesOf(snapshot.value("left_splitter_sizes")), (QList<int>{230, 560, 150}));
    for (const char *personal : {"alerts", "portfolios", "auth"})
        QVERIFY(!snapshot.contains(QLatin1String(personal)));

    window.setTheme(QStringLiteral("coffee_dark"));
    window.applyLayoutPreset(QStringLiteral("order_flow"));
    window.applyColumnPreset(QStringLiteral("all"));
    window.setLanguage(QStringLiteral("pt_BR"));
    window.loadWorkspaceSnapshot();
    QCOMPARE(window.theme(), QStringLiteral("qrl_light"));
    QCOMPARE(interfaceLanguage(), QStringLiteral("en"));
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("View"));
    QCOMPARE(window.marketTable()->hiddenColumns(), tradingHidden);
    QCOMPARE(lastEvent(window), QStringLiteral("Workspace loaded"));
    // The loaded state reaches the settings file too.
    QTRY_COMPARE(readObject(settingsPath(folders)).value("theme").toString(),
                 QStringLiteral("qrl_light"));
    const QJsonObject stored = readObject(settingsPath(folders));
    QCOMPARE(sizesOf(stored.value("left_splitter_sizes")), (QList<int>{230, 560, 150}));
    QCOMPARE(sizesOf(stored.value("workspace_splitter_sizes")), (QList<int>{1180, 240}));
}

void WorkspaceTest::snapshotNeverTouchesPersonalState()
{
    IsolatedFolders folders;
    const QJsonArray alerts{storedAlert()};
    const QJsonObject portfolios = storedPortfolios();
    folders.writeFile(settingsPath(folders), json({{"alerts", alerts},
                                                   {"portfolios", portfolios},
                                                   {"auth", storedSession()},
                                                   {"sync_last_status", "Synced"}}));
    // A snapshot edited by hand, or written by something else, carrying personal state.
    folders.writeFile(snapshotPath(folders), json({{"alerts", QJsonArray{}},
                                                   {"portfolios", QJsonObject{}},
                                                   {"auth", QJsonObject{{"token", "someone-else"}}},
                                                   {"sync_last_status", "Never"},
                                                   {"theme", "qrl_light"},
                                                   {"indicators", QJsonObject{{"ema_period", 9}}},
                                                   {"book_preset", "wide"}}));
    MainWindow window;
    window.loadWorkspaceSnapshot();
    QCOMPARE(window.theme(), QStringLiteral("qrl_light"));
    window.saveLocalSettings();
    const QJsonObject stored = readObject(settingsPath(folders));
    QCOMPARE(stored.value("alerts").toArray(), alerts);
    QCOMPARE(stored.value("portfolios").toObject(), portfolios);
    QCOMPARE(stored.value("auth").toObject(), storedSession());
    QCOMPARE(stored.value("sync_last_status").toString(), QStringLiteral("Synced"));
    // Panel settings the snapshot brought are kept for their panels.
    QCOMPARE(stored.value("indicators").toObject().value("ema_period").toInt(), 9);
    QCOMPARE(stored.value("book_preset").toString(), QStringLiteral("wide"));
}

void WorkspaceTest::snapshotProblemsAreExplained()
{
    IsolatedFolders folders;
    MainWindow window;
    const QString before = consoleText(window);
    {
        BoxAnswerer answerer(QStringLiteral("OK"));
        window.loadWorkspaceSnapshot();
        QCOMPARE(answerer.seen.count, 1);
        QCOMPARE(answerer.seen.text, QStringLiteral("No saved workspace snapshot was found."));
        QCOMPARE(answerer.seen.buttons, QStringList{"OK"});
    }
    {
        folders.writeFile(snapshotPath(folders), "{\"theme\": \"qrl_light\", ");
        BoxAnswerer answerer(QStringLiteral("OK"));
        window.loadWorkspaceSnapshot();
        QCOMPARE(answerer.seen.count, 1);
        QCOMPARE(window.theme(), QStringLiteral("coffee_dark"));
    }
    {
        // A folder where the file should be: the snapshot cannot be written.
        QFile::remove(snapshotPath(folders));
        QVERIFY(QDir().mkpath(snapshotPath(folders)));
        BoxAnswerer answerer(QStringLiteral("OK"));
        window.saveWorkspaceSnapshot();
        QCOMPARE(answerer.seen.count, 1);
        QCOMPARE(answerer.seen.text, QStringLiteral("Could not save the workspace snapshot."));
        QCOMPARE(answerer.seen.buttons, QStringList{"OK"});
    }
    QCOMPARE(consoleText(window), before); // no event claims success

    setInterfaceLanguage(QStringLiteral("pt_BR"));
    QVERIFY(QDir(snapshotPath(folders)).removeRecursively());
    BoxAnswerer answerer(QStringLiteral("OK"));
    window.loadWorkspaceSnapshot();
    QCOMPARE(answerer.seen.text,
             QStringLiteral("Nenhum snapshot salvo do espaço de trabalho foi encontrado."));
}

void WorkspaceTest::layoutPresetsSetBothSplitters_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QList<int>>("workspace");
    QTest::addColumn<QList<int>>("left");
    QTest::addColumn<QString>("event");
    QTest::newRow("dense from the menu")
            << "Dense Terminal"
            << "dense" << QList<int>{1080, 320} << QList<int>{330, 390, 150}
            << "Layout preset applied: Dense Terminal";
    QTest::newRow("chart from the menu")
            << "Chart Focus"
            << "chart" << QList<int>{1180, 240} << QList<int>{230, 560, 150}
            << "Layout preset applied: Chart Focus";
    QTest::newRow("order flow from the menu")
            << "Order Flow Focus"
            << "order_flow" << QList<int>{930, 430} << QList<int>{360, 360, 160}
            << "Layout preset applied: Order Flow Focus";
    QTest::newRow("unknown id") << ""
                                << "wide" << QList<int>{1080, 320} << QList<int>{360, 420, 150}
                                << "Layout preset applied: Balanced";
}

void WorkspaceTest::layoutPresetsSetBothSplitters()
{
    QFETCH(QString, entry);
    QFETCH(QString, id);
    QFETCH(QList<int>, workspace);
    QFETCH(QList<int>, left);
    IsolatedFolders folders;
    MainWindow window;
    // Start from a layout that is none of the presets.
    window.applySettingsObject({{"left_splitter_sizes", QJsonArray{500, 300, 130}},
                                {"workspace_splitter_sizes", QJsonArray{800, 600}}});
    if (entry.isEmpty())
        window.applyLayoutPreset(id);
    else
        layoutAction(window, entry)->trigger();
    QTEST(lastEvent(window), "event");
    const QJsonObject stored = readObject(settingsPath(folders));
    QCOMPARE(sizesOf(stored.value("workspace_splitter_sizes")), workspace);
    QCOMPARE(sizesOf(stored.value("left_splitter_sizes")), left);

    // On screen the panes keep the preset's proportions within the space the window has.
    window.resize(1400, 900);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.applyLayoutPreset(id);
    const QList<int> shown = splitter(window, "workspaceSplitter")->sizes();
    QVERIFY2(qAbs(double(shown[0]) / shown[1] - double(workspace[0]) / workspace[1]) < 0.05,
             qPrintable(QStringLiteral("%1:%2").arg(shown[0]).arg(shown[1])));

    window.setLanguage(QStringLiteral("pt_BR"));
    window.applyLayoutPreset(QStringLiteral("chart"));
    QCOMPARE(lastEvent(window), QStringLiteral("Layout aplicado: Foco no gráfico"));
}

void WorkspaceTest::closingAsksOnlyWithASession_data()
{
    QTest::addColumn<bool>("session");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<bool>("sessionKept");
    QTest::newRow("no session") << false << "" << true << false;
    QTest::newRow("close app") << true << "Close app" << true << true;
    QTest::newRow("cancel") << true << "Cancel" << false << true;
    QTest::newRow("dismissed") << true << "" << false << true;
    QTest::newRow("logout") << true << "Logout" << false << false;
}

void WorkspaceTest::closingAsksOnlyWithASession()
{
    QFETCH(bool, session);
    QFETCH(QString, answer);
    QFETCH(bool, closes);
    QFETCH(bool, sessionKept);
    IsolatedFolders folders;
    // The session check a quarter second after start must find the service unreachable (the
    // session is kept), not this test's fake provider, which would refuse the token: on a busy
    // machine the check runs before the window is closed.
    const QByteArray account = qgetenv("QRL_ENDPOINT_ACCOUNT");
    qputenv("QRL_ENDPOINT_ACCOUNT", "http://127.0.0.1:9");
    const auto restore = qScopeGuard([&account] { qputenv("QRL_ENDPOINT_ACCOUNT", account); });
    if (session)
        folders.writeFile(settingsPath(folders), json({{"auth", storedSession()}}));
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QTest::qWait(400); // the session check at start has run, as it has when a user closes
    window.setTheme(QStringLiteral("qrl_light"));
    const int writes = window.settingsFile().writeCount();
    window.resize(1000, 700); // only a save on the way out keeps this

    BoxAnswerer answerer(answer);
    QCOMPARE(window.close(), closes);
    QCOMPARE(window.isVisible(), !closes);
    QCOMPARE(answerer.seen.count, session ? 1 : 0);
    if (session) {
        QCOMPARE(answerer.seen.title, QStringLiteral("Terminal Querlin"));
        QCOMPARE(answerer.seen.text, QStringLiteral("What do you want to do?"));
        QCOMPARE(answerer.seen.buttons.size(), 3);
        for (const char *button : {"Logout", "Close app", "Cancel"})
            QVERIFY(answerer.seen.buttons.contains(QLatin1String(button)));
    }
    QCOMPARE(window.hasStoredSession(), sessionKept);
    const QJsonObject stored = readObject(settingsPath(folders));
    QCOMPARE(stored.contains("auth"), sessionKept);
    if (closes) {
        QCOMPARE(window.settingsFile().writeCount(), writes + 1);
        window.show();
        MainWindow again;
        QCOMPARE(again.size(), QSize(1000, 700));
    } else if (answer != QLatin1String("Logout")) {
        QCOMPARE(window.settingsFile().writeCount(), writes); // nothing happened
    } else {
        QCOMPARE(lastEvent(window), QStringLiteral("Logged out"));
        // Signed out now: the next close needs no question.
        QVERIFY(window.close());
        QCOMPARE(answerer.seen.count, 1);
    }
}

void WorkspaceTest::singleMonitorChangesOnlyTheStatusBar()
{
    IsolatedFolders folders;
    QCOMPARE(QGuiApplication::screens().size(), 1);
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const QRect geometry = window.geometry();
    const QString console = consoleText(window);
    window.moveToNextMonitor();
    QCOMPARE(window.statusBar()->currentMessage(), QStringLiteral("Only one monitor detected"));
    QCOMPARE(window.geometry(), geometry);
    QCOMPARE(consoleText(window), console);
    QVERIFY(!QFile::exists(settingsPath(folders)));
}

void WorkspaceTest::restartRestoresTheWorkspace()
{
    IsolatedFolders folders;
    QList<int> left;
    QList<int> workspace;
    QRect geometry;
    {
        MainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.setGeometry(60, 80, 1200, 760);
        window.setLanguage(QStringLiteral("pt_BR"));
        window.setTheme(QStringLiteral("qrl_light"));
        window.applyColumnPreset(QStringLiteral("compact"));
        window.applyLayoutPreset(QStringLiteral("order_flow"));
        left = splitter(window, "leftSplitter")->sizes();
        workspace = splitter(window, "workspaceSplitter")->sizes();
        geometry = window.geometry();
        QVERIFY(window.close());
    }
    setInterfaceLanguage(QStringLiteral("en"));

    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCOMPARE(window.geometry(), geometry);
    QCOMPARE(interfaceLanguage(), QStringLiteral("pt_BR"));
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("Exibir"));
    QCOMPARE(window.theme(), QStringLiteral("qrl_light"));
    QCOMPARE(window.marketTable()->hiddenColumns().size(), 11);
    QCOMPARE(splitter(window, "leftSplitter")->sizes(), left);
    QCOMPARE(splitter(window, "workspaceSplitter")->sizes(), workspace);
}

QTEST_MAIN(WorkspaceTest)
#include "tst_workspace.moc"
