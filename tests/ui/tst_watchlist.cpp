#include "app/identity.h"
#include "app/language.h"
#include "market/market_row.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/quote_details.h"

#include <QAction>
#include <QApplication>
#include <QCompleter>
#include <QHeaderView>
#include <QHelpEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTest>
#include <QTimer>
#include <QToolTip>

namespace {

QString watchlistPath(const IsolatedFolders &folders)
{
    return folders.expectedConfigFolder() + QStringLiteral("/watchlists/default.json");
}

QStringList storedSymbols(const IsolatedFolders &folders)
{
    QStringList symbols;
    const QJsonArray rows =
            QJsonDocument::fromJson(IsolatedFolders::readFile(watchlistPath(folders)))
                    .object()
                    .value("symbols")
                    .toArray();
    for (const QJsonValue &row : rows)
        symbols << row.toObject().value("symbol").toString();
    return symbols;
}

int eventLines(const MainWindow &window)
{
    const QString text = window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
    return text.isEmpty() ? 0 : int(text.count(QLatin1Char('\n'))) + 1;
}

QAction *menuAction(QMenu *menu, const char *name)
{
    return menu->findChild<QAction *>(QLatin1String(name));
}

} // namespace

class WatchlistTest : public QObject
{
    Q_OBJECT

private slots:
    void quoteLogKeepsTheNewestQuotes_data();
    void quoteLogKeepsTheNewestQuotes();
    void initTestCase();
    void init();

    void watchlistFileDecidesTheRows_data();
    void watchlistFileDecidesTheRows();
    void typingASymbolAddsItOnce();
    void quotesFillTheirRow();
    void lastSortsByValueAndPlaceholdersByText();
    void sortedRowsKeepTheirOwnColourAndTooltip_data();
    void sortedRowsKeepTheirOwnColourAndTooltip();
    void rowMenuActsOnTheSymbolItWasOpenedOn_data();
    void rowMenuActsOnTheSymbolItWasOpenedOn();
    void movesAtTheEdgesDoNothing();
    void removingASymbolForgetsIt();
    void presetsAndTheHeaderMenuHideColumns();
    void languageRelabelsHeadersAndStatusButNotWrittenLines();

private:
    FakeProvider m_provider;
};

void WatchlistTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void WatchlistTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
    m_provider.clearRequests();
}

void WatchlistTest::watchlistFileDecidesTheRows_data()
{
    QTest::addColumn<QByteArray>("file"); // empty: no file at all
    QTest::addColumn<QStringList>("rows");
    QTest::addColumn<QStringList>("sources");
    QTest::addColumn<bool>("rewritten");
    const QStringList defaults{"PETR4.SA", "VALE3.SA", "AAPL", "NVDA",
                               "BTCUSDT",  "ETHUSDT",  "BRL=X"};
    const QStringList defaultSources{"BrAPI",      "BrAPI",      "Yahoo", "Yahoo",
                                     "Binance WS", "Binance WS", "Yahoo"};
    QTest::newRow("missing file") << QByteArray() << defaults << defaultSources << true;
    QTest::newRow("empty symbol list") << QByteArray(R"({"name":"Default","symbols":[]})")
                                       << defaults << defaultSources << true;
    QTest::newRow("not json") << QByteArray("{\"symbols\": [") << defaults << defaultSources
                              << true;
    QTest::newRow("duplicates and user spellings")
            << QByteArray(R"({"symbols":[{"symbol":"petr4","provider":"brapi"},
                                          {"symbol":"PETR4.SA","provider":"brapi"},
                                          {"symbol":"usd/brl","provider":"yahoo"},
                                          {"symbol":"btcusdt","provider":"binance"}]})")
            << QStringList{"PETR4.SA", "BRL=X", "BTCUSDT"}
            << QStringList{"BrAPI", "Yahoo", "Binance WS"} << false;
    QTest::newRow("unknown providers and unusable symbols")
            << QByteArray(R"({"symbols":[{"symbol":"AAPL","provider":"bloomberg"},
                                          {"symbol":"","provider":"yahoo"},
                                          {"symbol":"   "},
                                          {"symbol":"VALE3.SA"}]})")
            << QStringList{"AAPL", "VALE3.SA"} << QStringList{"Yahoo", "BrAPI"} << false;
}

void WatchlistTest::watchlistFileDecidesTheRows()
{
    QFETCH(QByteArray, file);
    QFETCH(QStringList, rows);
    QFETCH(QStringList, sources);
    QFETCH(bool, rewritten);
    IsolatedFolders folders;
    if (!file.isNull())
        folders.writeFile(watchlistPath(folders), file);
    MainWindow window;
    MarketTable *table = window.marketTable();
    QCOMPARE(table->symbols(), rows);
    for (int row = 0; row < rows.size(); ++row) {
        QCOMPARE(table->item(row, SourceColumn)->text(), sources.at(row));
        QCOMPARE(table->item(row, StatusColumn)->text(), QStringLiteral("pending"));
        QCOMPARE(table->item(row, AssetColumn)->text(), assetClassForSymbol(rows.at(row)));
    }
    QCOMPARE(table->currentRow(), 0); // the first row starts selected
    if (rewritten)
        QCOMPARE(storedSymbols(folders), rows);
    else
        QCOMPARE(IsolatedFolders::readFile(watchlistPath(folders)), file); // left as it was
}

void WatchlistTest::typingASymbolAddsItOnce()
{
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders), R"({"symbols":[{"symbol":"AAPL"}]})");
    MainWindow window;
    auto *search = window.findChild<QLineEdit *>("tickerSearch");
    search->setText(QStringLiteral("petr4"));
    QTest::keyClick(search, Qt::Key_Return);

    MarketTable *table = window.marketTable();
    QCOMPARE(table->symbols(), (QStringList{"AAPL", "PETR4.SA"}));
    QCOMPARE(table->currentRow(), 1);
    QCOMPARE(table->item(1, SourceColumn)->text(), QStringLiteral("Yahoo"));
    QVERIFY(search->text().isEmpty());
    QCOMPARE(storedSymbols(folders), (QStringList{"AAPL", "PETR4.SA"}));
    // With no keys, BrAPI's public quote is the first B3 step.
    QTRY_VERIFY(std::any_of(m_provider.requests().cbegin(), m_provider.requests().cend(),
                            [](const RecordedRequest &r) { return r.path == "/api/quote/PETR4"; }));

    search->setText(QStringLiteral("PETR4"));
    QTest::keyClick(search, Qt::Key_Return);
    QCOMPARE(table->rowCount(), 2);
    QCOMPARE(search->text(), QStringLiteral("PETR4")); // nothing happened

    // A picked completer entry confirms at once.
    emit search->completer()->activated(QStringLiteral("USD/BRL  (Forex)"));
    QCOMPARE(table->symbols().last(), QStringLiteral("BRL=X"));
}

void WatchlistTest::quotesFillTheirRow()
{
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders), R"({"symbols":[{"symbol":"PETR4.SA"}]})");
    m_provider.setReply("/api/quote/PETR4", FakeReply::json(R"({"error":true})", 402));
    m_provider.setReply("/v8/finance/chart/PETR4.SA",
                        FakeReply::json(providerData("yahoo_chart_petr4_1d.json")));
    MainWindow window;
    MarketTable *table = window.marketTable();
    QTRY_COMPARE(table->item(0, SourceColumn)->text(), QStringLiteral("yahoo_b3"));
    QVERIFY(table->item(0, LastColumn)->data(Qt::UserRole).toDouble() > 0);
    QVERIFY(table->item(0, LatencyColumn)->text().endsWith(QStringLiteral(" ms")));
    QCOMPARE(table->item(0, StatusColumn)->text(), QStringLiteral("free/delayed"));
    QVERIFY(table->item(0, ChangeColumn)->text().endsWith(QLatin1Char('%')));
    QVERIFY(table->rowToolTip(0).contains(QStringLiteral("yahoo_b3")));
    // Hovering a cell shows its row's tooltip, built then.
    const QRect cellRect = table->visualRect(table->model()->index(0, 5));
    QHelpEvent hover(QEvent::ToolTip, cellRect.center(),
                     table->viewport()->mapToGlobal(cellRect.center()));
    QCoreApplication::sendEvent(table->viewport(), &hover);
    QVERIFY(QToolTip::text().contains(QStringLiteral("yahoo_b3")));
    // The selected row's quote reaches the header and the log.
    QTRY_COMPARE(window.findChild<QTableWidget *>("quoteLogTable")->rowCount(), 1);

    // A quote for a symbol without a row changes nothing.
    window.updateMarketRow(QStringLiteral("MSFT"), 10, 1, "x", "1 ms", "realtime");
    QCOMPARE(table->rowCount(), 1);
    // The change colour follows the sign, zero included.
    window.updateMarketRow(QStringLiteral("PETR4.SA"), 38, 0.0, "Yahoo", "5 ms", "free/delayed");
    QCOMPARE(table->item(0, ChangeColumn)->foreground().color().name(), QStringLiteral("#20c878"));
    window.updateMarketRow(QStringLiteral("PETR4.SA"), 38, qQNaN(), "Yahoo", "5 ms",
                           "free/delayed");
    QCOMPARE(table->item(0, ChangeColumn)->text(), QStringLiteral("--"));
    QCOMPARE(table->item(0, ChangeColumn)->foreground().color().name(), QStringLiteral("#d8e6e3"));
    m_provider.setReply("/api/quote/PETR4",
                        FakeReply::json(R"({"error":"no scripted reply"})", 404));
    m_provider.setReply("/v8/finance/chart/PETR4.SA",
                        FakeReply::json(R"({"error":"no scripted reply"})", 404));
}

void WatchlistTest::lastSortsByValueAndPlaceholdersByText()
{
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders),
                      R"({"symbols":[{"symbol":"AAPL"},{"symbol":"NVDA"},{"symbol":"MSFT"},
                                     {"symbol":"PETR4.SA"},{"symbol":"VALE3.SA"}]})");
    MainWindow window;
    MarketTable *table = window.marketTable();
    window.updateMarketRow("AAPL", 10.25, 1, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("NVDA", 9.5, 1, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("MSFT", 1000, 1, "Yahoo", "1 ms", "free/delayed");
    QVERIFY(!table->isSortingEnabled());
    // The first click on a header switches sorting on.
    QHeaderView *header = table->horizontalHeader();
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                      QPoint(header->sectionViewportPosition(LastColumn) + 10, 5));
    QVERIFY(table->isSortingEnabled());
    QCOMPARE(header->sortIndicatorSection(), int(LastColumn));
    QStringList order;
    for (int row = 0; row < table->rowCount(); ++row)
        order << table->item(row, SymbolColumn)->text();
    // Numbers by value ("1000.00" would sort first as text); a "--" cell meets a number as text,
    // and "-" orders before every digit.
    QCOMPARE(table->item(0, LastColumn)->text(), QStringLiteral("--"));
    QCOMPARE(table->item(1, LastColumn)->text(), QStringLiteral("--"));
    QCOMPARE(order.mid(2), (QStringList{"NVDA", "AAPL", "MSFT"}));

    // A write while sorted lands in the right row, and the row moves only once it is complete.
    window.updateMarketRow("PETR4.SA", 5, -1, "BrAPI", "2 ms", "free/delayed");
    QCOMPARE(table->item(1, SymbolColumn)->text(), QStringLiteral("PETR4.SA"));
    QCOMPARE(table->item(1, SourceColumn)->text(), QStringLiteral("BrAPI"));
    QCOMPARE(table->item(1, ChangeColumn)->text(), QStringLiteral("-1.00%"));
}

void WatchlistTest::sortedRowsKeepTheirOwnColourAndTooltip_data()
{
    QTest::addColumn<int>("column");
    QTest::newRow("sorted by change") << int(ChangeColumn);
    QTest::newRow("sorted by last") << int(LastColumn);
}

void WatchlistTest::sortedRowsKeepTheirOwnColourAndTooltip()
{
    QFETCH(int, column);
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders),
                      R"({"symbols":[{"symbol":"AAPL"},{"symbol":"NVDA"},{"symbol":"MSFT"},
                                     {"symbol":"TSLA"}]})");
    MainWindow window;
    MarketTable *table = window.marketTable();
    window.updateMarketRow("AAPL", 300, 3, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("NVDA", 200, 2, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("MSFT", 100, -1, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("TSLA", 50, -2, "Yahoo", "1 ms", "free/delayed");
    table->sortItems(column, Qt::DescendingOrder);
    table->setSortingEnabled(true);

    // Each quote moves its row across the others, price and change alike.
    const struct
    {
        const char *symbol;
        double price;
        double change;
    } burst[] = {{"AAPL", 10, -9}, {"TSLA", 400, 5}, {"MSFT", 5, -4},
                 {"NVDA", 500, 7}, {"AAPL", 600, 8}, {"TSLA", 1, -3}};
    auto checkRows = [&] {
        for (int row = 0; row < table->rowCount(); ++row) {
            const QString symbol = table->item(row, SymbolColumn)->text();
            const QTableWidgetItem *change = table->item(row, ChangeColumn);
            const double value = change->data(Qt::UserRole).toDouble();
            QCOMPARE(change->foreground().color().name(), changeColor(value).name());
            const QString tip = table->rowToolTip(row);
            QVERIFY2(tip.startsWith(symbol) && tip.contains(formatChangePercent(value)),
                     qPrintable(symbol + QStringLiteral(": ") + tip));
            if (row > 0) // still in descending order
                QVERIFY(!(*table->item(row - 1, column) < *table->item(row, column)));
        }
    };
    for (const auto &quote : burst) {
        window.updateMarketRow(quote.symbol, quote.price, quote.change, "Yahoo", "1 ms",
                               "free/delayed");
        checkRows();
    }
    // Stream frames of several rows reach the table together, in one screen frame.
    for (const auto &quote : burst) {
        window.onTickerFrame(QStringLiteral(R"({"stream":"x@ticker","data":{"s":"%1","c":"%2",)"
                                            R"("P":"%3"}})")
                                     .arg(QLatin1String(quote.symbol))
                                     .arg(quote.price * 2)
                                     .arg(-quote.change));
    }
    window.flushScreenFrame();
    checkRows();
    QCOMPARE(table->item(0, SymbolColumn)->text(),
             column == LastColumn ? QStringLiteral("AAPL") : QStringLiteral("MSFT"));
}

void WatchlistTest::rowMenuActsOnTheSymbolItWasOpenedOn_data()
{
    // NVDA's row when the menu opens is 1; the quotes then sort it to row 2 of four.
    QTest::addColumn<QString>("action");
    QTest::addColumn<QStringList>("after");
    QTest::newRow("remove") << "removeSymbol" << QStringList{"TSLA", "AAPL", "MSFT"};
    QTest::newRow("up") << "moveUp" << QStringList{"TSLA", "NVDA", "AAPL", "MSFT"};
    QTest::newRow("down") << "moveDown" << QStringList{"TSLA", "AAPL", "MSFT", "NVDA"};
    QTest::newRow("top") << "moveToTop" << QStringList{"NVDA", "TSLA", "AAPL", "MSFT"};
    QTest::newRow("bottom") << "moveToBottom" << QStringList{"TSLA", "AAPL", "MSFT", "NVDA"};
    QTest::newRow("alert") << "createAlert" << QStringList{"TSLA", "AAPL", "NVDA", "MSFT"};
}

void WatchlistTest::rowMenuActsOnTheSymbolItWasOpenedOn()
{
    QFETCH(QString, action);
    QFETCH(QStringList, after);
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders),
                      R"({"symbols":[{"symbol":"AAPL"},{"symbol":"NVDA"},{"symbol":"MSFT"},
                                     {"symbol":"TSLA"}]})");
    MainWindow window;
    MarketTable *table = window.marketTable();
    QStringList alerts;
    connect(table, &MarketTable::createAlertRequested, this,
            [&alerts](const QString &symbol) { alerts << symbol; });
    window.updateMarketRow("AAPL", 40, 4, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("NVDA", 30, 3, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("MSFT", 20, 2, "Yahoo", "1 ms", "free/delayed");
    window.updateMarketRow("TSLA", 10, 1, "Yahoo", "1 ms", "free/delayed");
    table->sortItems(ChangeColumn, Qt::DescendingOrder);
    table->setSortingEnabled(true);
    QCOMPARE(table->symbols(), (QStringList{"AAPL", "NVDA", "MSFT", "TSLA"}));

    // The window's own "Create alert" form is cancelled as soon as it opens.
    QTimer closer;
    connect(&closer, &QTimer::timeout, [] {
        if (QWidget *dialog = QApplication::activeModalWidget())
            dialog->close();
    });
    closer.start(10);
    QMenu *menu = table->createRowMenu(table->findMarketRow("NVDA"));
    for (int i = 0; i < 5; ++i) {
        window.updateMarketRow("NVDA", 30, 5.5 - i, "Yahoo", "1 ms", "free/delayed");
        window.updateMarketRow("TSLA", 10, 2.5 + i, "Yahoo", "1 ms", "free/delayed");
        window.updateMarketRow("MSFT", 20, 3 - i, "Yahoo", "1 ms", "free/delayed");
    }
    QCOMPARE(table->symbols(), (QStringList{"TSLA", "AAPL", "NVDA", "MSFT"}));
    menuAction(menu, action.toLatin1())->trigger();
    QCOMPARE(table->symbols(), after);
    QCOMPARE(alerts, action == "createAlert" ? QStringList{"NVDA"} : QStringList{});
    if (action != "createAlert" && action != "removeSymbol")
        QCOMPARE(table->selectedSymbol(), QStringLiteral("NVDA"));

    // Once its symbol is gone, the menu does nothing.
    QMenu *stale = table->createRowMenu(table->findMarketRow("MSFT"));
    table->selectRow(table->findMarketRow("MSFT"));
    window.removeSelectedSymbol();
    const QStringList left = table->symbols();
    for (const char *name : {"removeSymbol", "moveUp", "moveToTop", "createAlert"})
        menuAction(stale, name)->trigger();
    QCOMPARE(table->symbols(), left);
    QCOMPARE(alerts.size(), action == "createAlert" ? 1 : 0);
}

void WatchlistTest::movesAtTheEdgesDoNothing()
{
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders),
                      R"({"symbols":[{"symbol":"AAPL"},{"symbol":"NVDA"},{"symbol":"MSFT"}]})");
    MainWindow window;
    MarketTable *table = window.marketTable();
    const QByteArray before = IsolatedFolders::readFile(watchlistPath(folders));
    const int lines = eventLines(window);

    menuAction(table->createRowMenu(0), "moveUp")->trigger();
    menuAction(table->createRowMenu(2), "moveToBottom")->trigger();
    menuAction(table->createRowMenu(0), "moveToTop")->trigger();
    QCOMPARE(table->symbols(), (QStringList{"AAPL", "NVDA", "MSFT"}));
    QCOMPARE(eventLines(window), lines);
    QCOMPARE(IsolatedFolders::readFile(watchlistPath(folders)), before);

    menuAction(table->createRowMenu(0), "moveToBottom")->trigger();
    QCOMPARE(table->symbols(), (QStringList{"NVDA", "MSFT", "AAPL"}));
    QCOMPARE(table->currentRow(), 2);
    QCOMPARE(eventLines(window), lines + 1);
    QVERIFY(window.findChild<QPlainTextEdit *>("eventConsole")
                    ->toPlainText()
                    .endsWith(QStringLiteral("Watchlist row moved")));
    QCOMPARE(storedSymbols(folders), (QStringList{"NVDA", "MSFT", "AAPL"}));
    menuAction(table->createRowMenu(2), "moveUp")->trigger();
    QCOMPARE(table->symbols(), (QStringList{"NVDA", "AAPL", "MSFT"}));
    // The moved row keeps all its cells.
    QCOMPARE(table->item(1, AssetColumn)->text(), QStringLiteral("US Equity"));
}

void WatchlistTest::removingASymbolForgetsIt()
{
    IsolatedFolders folders;
    folders.writeFile(watchlistPath(folders),
                      R"({"symbols":[{"symbol":"AAPL"},{"symbol":"NVDA"}]})");
    MainWindow window;
    MarketTable *table = window.marketTable();
    menuAction(table->createRowMenu(0), "removeSymbol")->trigger();
    QCOMPARE(table->symbols(), QStringList{"NVDA"});
    QCOMPARE(storedSymbols(folders), QStringList{"NVDA"});
    QCOMPARE(table->currentRow(), 0);
    window.removeSelectedSymbol();
    QCOMPARE(table->rowCount(), 0);
    QCOMPARE(storedSymbols(folders), QStringList{}); // an empty list is a choice, kept as such
}

void WatchlistTest::presetsAndTheHeaderMenuHideColumns()
{
    IsolatedFolders folders;
    MainWindow window;
    MarketTable *table = window.marketTable();
    auto hiddenCount = [table] {
        int count = 0;
        for (int column = 0; column < MarketColumnCount; ++column)
            count += table->isColumnHidden(column) ? 1 : 0;
        return count;
    };
    window.applyColumnPreset(QStringLiteral("compact"));
    QCOMPARE(hiddenCount(), 11);
    QVERIFY(window.findChild<QPlainTextEdit *>("eventConsole")
                    ->toPlainText()
                    .endsWith(QStringLiteral("Column preset applied: compact")));
    const QString settingsPath = folders.expectedConfigFolder() + QStringLiteral("/local.json");
    QCOMPARE(QJsonDocument::fromJson(IsolatedFolders::readFile(settingsPath))
                     .object()
                     .value("hidden_columns")
                     .toString(),
             QStringLiteral("1,2,3,4,5,8,9,10,11,13,15"));
    window.applyColumnPreset(QStringLiteral("all"));
    QCOMPARE(hiddenCount(), 0);

    // The header menu: one checkable entry per column; the symbol column refuses.
    QMenu *menu = table->createHeaderMenu();
    QCOMPARE(menu->actions().size(), int(MarketColumnCount));
    QCOMPARE(menu->actions().at(LastColumn)->text(), QStringLiteral("Last"));
    menu->actions().at(LatencyColumn)->trigger();
    QVERIFY(table->isColumnHidden(LatencyColumn));
    QCOMPARE(QJsonDocument::fromJson(IsolatedFolders::readFile(settingsPath))
                     .object()
                     .value("hidden_columns")
                     .toString(),
             QStringLiteral("13"));
    QVERIFY(!table->createHeaderMenu()->actions().at(LatencyColumn)->isChecked());
    table->createHeaderMenu()->actions().at(SymbolColumn)->trigger();
    QVERIFY(!table->isColumnHidden(SymbolColumn));
    QVERIFY(window.findChild<QPlainTextEdit *>("eventConsole")
                    ->toPlainText()
                    .endsWith(QStringLiteral("Symbol column cannot be hidden")));

    // A restart keeps the choice.
    MainWindow again;
    QVERIFY(again.marketTable()->isColumnHidden(LatencyColumn));
    QCOMPARE(again.marketTable()->hiddenColumns(), QSet<int>{LatencyColumn});
}

void WatchlistTest::languageRelabelsHeadersAndStatusButNotWrittenLines()
{
    IsolatedFolders folders;
    MainWindow window;
    MarketTable *table = window.marketTable();
    auto *console = window.findChild<QPlainTextEdit *>("eventConsole");
    window.updateMarketRow("AAPL", 10, 1, "Yahoo", "1 ms", "free/delayed");
    const QString english = console->toPlainText();

    window.setLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(table->horizontalHeaderItem(LastColumn)->text(), QStringLiteral("Último"));
    QCOMPARE(table->horizontalHeaderItem(SmaColumn)->text(), QStringLiteral("SMA20"));
    const int aapl = table->findMarketRow("AAPL");
    QCOMPARE(table->item(aapl, StatusColumn)->text(), QStringLiteral("gratuito/com delay"));
    QCOMPARE(table->item(0, StatusColumn)->text(), QStringLiteral("pendente"));
    QVERIFY(console->toPlainText().startsWith(english)); // written lines stay as they were
    QVERIFY(console->toPlainText().endsWith(QStringLiteral("Idioma alterado")));
    // A status written in either language lands in the current one.
    window.updateMarketRow("AAPL", 10, 1, "Yahoo", "1 ms", "loading");
    QCOMPARE(table->item(aapl, StatusColumn)->text(), QStringLiteral("carregando"));

    const int lines = eventLines(window);
    window.setLanguage(QStringLiteral("pt_BR")); // already Portuguese: nothing at all
    QCOMPARE(eventLines(window), lines);
    window.setLanguage(QStringLiteral("en"));
    QCOMPARE(table->item(aapl, StatusColumn)->text(), QStringLiteral("loading"));
    QCOMPARE(table->horizontalHeaderItem(LastColumn)->text(), QStringLiteral("Last"));
}

void WatchlistTest::quoteLogKeepsTheNewestQuotes_data()
{
    QTest::addColumn<int>("quotes");
    QTest::newRow("a few") << 3;
    QTest::newRow("exactly full") << QuoteLog::kMaxEntries;
    QTest::newRow("wrapped a little") << QuoteLog::kMaxEntries + 5;
    QTest::newRow("wrapped twice and more") << 2 * QuoteLog::kMaxEntries + 50;
}

// Each symbol keeps its newest quotes, newest first, however many arrived, whether or not it was
// shown meanwhile.
void WatchlistTest::quoteLogKeepsTheNewestQuotes()
{
    QFETCH(int, quotes);
    QuoteLog log;
    log.showSymbol(QStringLiteral("AAPL"));
    for (int i = 1; i <= quotes; ++i) {
        MarketQuote quote;
        quote.symbol = QStringLiteral("AAPL");
        quote.price = i;
        log.record(quote);
        MarketQuote other = quote;
        other.symbol = QStringLiteral("MSFT");
        log.record(other);
    }
    for (const QString &symbol : {QStringLiteral("AAPL"), QStringLiteral("MSFT")}) {
        log.showSymbol(symbol);
        const int rows = std::min(quotes, int(QuoteLog::kMaxEntries));
        QCOMPARE(log.table()->rowCount(), rows);
        QCOMPARE(log.table()->item(0, 1)->text().toDouble(), double(quotes));
        QCOMPARE(log.table()->item(rows - 1, 1)->text().toDouble(), double(quotes - rows + 1));
    }
}

QTEST_MAIN(WatchlistTest)
#include "tst_watchlist.moc"
