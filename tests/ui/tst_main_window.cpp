#include "app/identity.h"
#include "app/language.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCompleter>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QStatusBar>
#include <QTest>
#include <QWebSocket>

class MainWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void constructorWritesMilestonesInOrder();
    void sessionWaitsForTheFirstPaint_data();
    void sessionWaitsForTheFirstPaint();
    void searchFieldCompletesAnywhereInTheEntry_data();
    void searchFieldCompletesAnywhereInTheEntry();
    void universeFilesAndSectorsReachTheWindow();
    void mergedSymbolsRefillTheCompleter();
    void confirmingAnEntryUsesTheNormalisedSymbol();
    void typingSearchesOnlineOnceTypingStops();
    void placeholderFollowsTheLanguage();
    void quoteFailuresReachTheEventConsole();

private:
    // Whatever the window asks the market for lands here, never on the internet.
    FakeProvider m_provider;
};

void MainWindowTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void MainWindowTest::constructorWritesMilestonesInOrder()
{
    IsolatedFolders folders;
    {
        MainWindow window;
    }
    const QStringList expected{
            "enter",
            "before menu setup",
            "after menu setup",
            "root layout created",
            "top layout created",
            "brand created",
            "before setupCompleter",
            "after setupCompleter",
            "before loadSymbolClassifications",
            "after loadSymbolClassifications",
            "top bar created",
            "table created",
            "chart toolbar partially created",
            "chart panel created",
            "book panel created",
            "movers panel created",
            "screener panel created",
            "news panel created",
            "portfolio panel created",
            "tape panel created",
            "right tabs created",
            "central widget set",
            "before signal connects",
            "before loadConfig",
            "before loadLocalSettings",
            "before applyConfiguredShortcuts",
            "before retranslateUi",
            "before applyColumnVisibilityConfig",
            "before loadWatchlist",
            "before refreshPortfolio",
            "before applyTheme",
            "before updateThemedWidgets",
            "before refreshAlertHistoryTable",
            "after refreshAlertHistoryTable",
    };
    QCOMPARE(expected.size(), 34);

    const QString log = QString::fromUtf8(IsolatedFolders::readFile(
            folders.expectedConfigFolder() + QStringLiteral("/startup.log")));
    const QStringList lines = log.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), expected.size());
    for (int i = 0; i < lines.size(); ++i)
        QCOMPARE(lines.at(i).section(QLatin1Char(' '), 1),
                 QStringLiteral("MainWindow ctor: ") + expected.at(i));
}

void MainWindowTest::sessionWaitsForTheFirstPaint_data()
{
    QTest::addColumn<bool>("shown");
    QTest::newRow("shown") << true;
    QTest::newRow("never shown") << false;
}

// The streams' sockets are made when the session opens them: none may exist when the window
// paints for the first time, and the session starts either way.
void MainWindowTest::sessionWaitsForTheFirstPaint()
{
    QFETCH(bool, shown);
    IsolatedFolders folders;
    folders.writeFile(folders.expectedConfigFolder() + "/watchlists/default.json",
                      R"({"symbols":[{"symbol":"BTCUSDT"}]})");
    MainWindow window;
    struct FirstPaint : QObject
    {
        int paints = 0;
        bool sessionBefore = false;
        bool eventFilter(QObject *watched, QEvent *event) override
        {
            if (event->type() == QEvent::Paint && paints++ == 0)
                sessionBefore = watched->findChild<QWebSocket *>(QStringLiteral("tickerSocket"));
            return false;
        }
    } firstPaint;
    window.installEventFilter(&firstPaint);
    if (shown) {
        // A first picture that takes its time (a slow machine) still comes before the session.
        window.setUpdatesEnabled(false);
        window.show();
        QTest::qWait(400);
        QCOMPARE(firstPaint.paints, 0);
        window.setUpdatesEnabled(true);
        QTRY_VERIFY(firstPaint.paints > 0);
        QVERIFY(!firstPaint.sessionBefore);
    }
    QTRY_VERIFY(window.findChild<QWebSocket *>(QStringLiteral("tickerSocket")));
    QCOMPARE(firstPaint.paints > 0, shown);
}

void MainWindowTest::searchFieldCompletesAnywhereInTheEntry_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("mustOffer");
    QTest::newRow("prefix, lower case") << "petr4" << QStringList{"PETR4.SA  (B3)"};
    QTest::newRow("inside the entry") << "etr4" << QStringList{"PETR4.SA  (B3)"};
    QTest::newRow("market label") << "(forex" << QStringList{"USD/BRL  (Forex)", "JPY=X  (Forex)"};
    QTest::newRow("slash pair both ways")
            << "usd/brl" << QStringList{"USD/BRL  (Forex)", "USD/BRL  (US)"};
}

void MainWindowTest::searchFieldCompletesAnywhereInTheEntry()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, mustOffer);
    IsolatedFolders folders;
    MainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));

    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    QVERIFY(search);
    QCompleter *completer = search->completer();
    QVERIFY(completer);
    QCOMPARE(completer->caseSensitivity(), Qt::CaseInsensitive);
    QCOMPARE(completer->filterMode(), Qt::MatchContains);
    QCOMPARE(completer->completionMode(), QCompleter::PopupCompletion);

    search->setFocus();
    QTest::keyClicks(search, typed);
    QTRY_VERIFY(completer->popup()->isVisible());
    QStringList offered;
    for (int row = 0; completer->setCurrentRow(row); ++row)
        offered << completer->currentCompletion();
    for (const QString &entry : mustOffer)
        QVERIFY2(offered.contains(entry), qPrintable(entry + " not in " + offered.join(" | ")));
}

void MainWindowTest::universeFilesAndSectorsReachTheWindow()
{
    IsolatedFolders folders;
    folders.writeFile(QStringLiteral("data/universe/indexes.txt"), "symbol\n^bvsp\n");
    folders.writeFile(QStringLiteral("data/universe/classification.csv"),
                      "symbol,sector\nPETR4.SA,Oil & Gas\nMYCO3.SA,Retail\n");
    MainWindow window;
    const SymbolUniverse &universe = window.symbolUniverse();
    QVERIFY(universe.contains(QStringLiteral("^BVSP")));
    QVERIFY(universe.contains(QStringLiteral("MYCO3.SA")));
    QCOMPARE(window.sectorForSymbol(QStringLiteral("PETR4.SA")), QStringLiteral("Oil & Gas"));
    QCOMPARE(window.normalizeSymbolInput(QStringLiteral("myco3")), QStringLiteral("MYCO3.SA"));

    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    const QStringList entries = [&] {
        QStringList all;
        auto *model = search->completer()->model();
        for (int row = 0; row < model->rowCount(); ++row)
            all << model->index(row, 0).data().toString();
        return all;
    }();
    QCOMPARE(entries.size(), 295 + 2);
    QVERIFY(entries.contains(QStringLiteral("^BVSP  (US Index)")));
}

void MainWindowTest::mergedSymbolsRefillTheCompleter()
{
    IsolatedFolders folders;
    MainWindow window;
    auto *model =
            window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"))->completer()->model();
    QCOMPARE(model->rowCount(), 295);
    window.mergeUniverseSymbols({QStringLiteral("wifusdt"), QStringLiteral("BTCUSDT")});
    QCOMPARE(model->rowCount(), 296);
    QVERIFY(!model->match(model->index(0, 0), Qt::DisplayRole, QStringLiteral("WIFUSDT  (Crypto)"),
                          1, Qt::MatchExactly)
                     .isEmpty());
}

void MainWindowTest::typingSearchesOnlineOnceTypingStops()
{
    IsolatedFolders folders;
    MainWindow window;
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    auto *model = search->completer()->model();
    const auto listed = [model](const QString &entry) {
        return !model->match(model->index(0, 0), Qt::DisplayRole, entry, 1, Qt::MatchExactly)
                        .isEmpty();
    };
    const auto searches = [this] {
        int count = 0;
        for (const RecordedRequest &request : m_provider.requests())
            count += request.path == "/v1/finance/search";
        return count;
    };
    const int before = searches();

    // A failing search changes nothing.
    m_provider.setReply("/v1/finance/search",
                        FakeReply{.status = 500,
                                  .headers = {{"Content-Type", "text/html"}},
                                  .body = providerData("yahoo_search_500_html_error_page.html")});
    QTest::keyClicks(search, QStringLiteral("aapl"));
    QTRY_COMPARE(searches(), before + 1); // one request for the whole word
    QTest::qWait(100);
    QVERIFY(!listed(QStringLiteral("AAPL.MX  (US)")));

    m_provider.setReply("/v1/finance/search",
                        FakeReply::json(providerData("yahoo_v1_search_aapl.json")));
    QTest::keyClick(search, Qt::Key_Backspace);
    QTest::keyClicks(search, QStringLiteral("L"));
    QTRY_COMPARE(searches(), before + 2);
    QCOMPARE(m_provider.requests().last().queryItem("q"), QStringLiteral("aapL"));
    QTRY_VERIFY(listed(QStringLiteral("AAPL.MX  (US)")));
    QVERIFY(!listed(QStringLiteral("AAPL210813C00147000  (US)"))); // options stay out
}

void MainWindowTest::confirmingAnEntryUsesTheNormalisedSymbol()
{
    IsolatedFolders folders;
    folders.writeFile(folders.expectedConfigFolder() + "/watchlists/default.json",
                      R"({"symbols":[{"symbol":"AAPL"}]})");
    MainWindow window;
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    search->setText(QStringLiteral("USD/BRL  (Forex)"));
    QTest::keyClick(search, Qt::Key_Return);
    QVERIFY(search->text().isEmpty());
    QCOMPARE(window.marketTable()->selectedSymbol(), QStringLiteral("BRL=X"));

    search->setText(QStringLiteral("   "));
    QTest::keyClick(search, Qt::Key_Return);
    QCOMPARE(search->text(), QStringLiteral("   ")); // nothing usable: nothing happens
    QCOMPARE(window.marketTable()->rowCount(), 2);
}

void MainWindowTest::placeholderFollowsTheLanguage()
{
    IsolatedFolders folders;
    MainWindow window;
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    QCOMPARE(search->placeholderText(),
             QStringLiteral("Search ticker: PETR4.SA, AAPL, BTCUSDT, USD/BRL"));
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("View"));
    auto *fx = window.findChild<QLabel *>(QStringLiteral("fxTicker"));
    QVERIFY(fx);
    QCOMPARE(fx->text(), QStringLiteral("USD/BRL --"));

    window.setLanguage(QStringLiteral("pt_BR"));
    QVERIFY(search->placeholderText().startsWith(QStringLiteral("Buscar ativo:")));
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("Exibir"));
    window.setLanguage(QStringLiteral("de")); // anything else is English
    QCOMPARE(window.menuBar()->actions().first()->text(), QStringLiteral("View"));
    QCOMPARE(interfaceLanguage(), QStringLiteral("en"));
}

void MainWindowTest::quoteFailuresReachTheEventConsole()
{
    IsolatedFolders folders;
    folders.writeFile(folders.expectedConfigFolder() + "/config.txt",
                      "finnhub_api_key=FHSECRET42\n");
    m_provider.clearRequests();
    m_provider.setReply("/api/v1/quote",
                        FakeReply{.status = 429, .headers = {{"Retry-After", "17"}}, .body = "{}"});
    m_provider.setReply("/v8/finance/chart/AAPL", FakeReply::json("{}", 404));
    // A crypto-only watchlist keeps the start-up traffic away from the message under test; the
    // top-bar ticker's own failure is waited for first.
    folders.writeFile(folders.expectedConfigFolder() + "/watchlists/default.json",
                      R"({"symbols":[{"symbol":"BTCUSDT"}]})");
    MainWindow window;
    auto *console = window.findChild<QPlainTextEdit *>(QStringLiteral("eventConsole"));
    QTRY_VERIFY(console->toPlainText().contains(QStringLiteral("] Forex quote failed for BRL=X")));
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    search->setText(QStringLiteral("aapl"));
    QTest::keyClick(search, Qt::Key_Return);
    const QString failure("All quote providers failed for AAPL: finnhub: HTTP 429 rate limit [rate "
                          "limited] | yahoo_us: HTTP 404");
    // The event console keeps it, and the forex failure, after the status bar has moved on.
    QTRY_VERIFY(console->toPlainText().contains(QStringLiteral("] ") + failure));
    QVERIFY(console->toPlainText().contains(QStringLiteral("] Forex quote failed for BRL=X")));
    const QList<RecordedRequest> requests = m_provider.requests();
    const auto finnhub = std::find_if(requests.cbegin(), requests.cend(), [](const auto &request) {
        return request.path == "/api/v1/quote";
    });
    QVERIFY(finnhub != requests.cend());
    QCOMPARE(finnhub->queryItem("token"), QString("FHSECRET42"));
    QVERIFY(!IsolatedFolders::readFile(folders.expectedConfigFolder() + "/startup.log")
                     .contains("FHSECRET42"));
}

QTEST_MAIN(MainWindowTest)
#include "tst_main_window.moc"
