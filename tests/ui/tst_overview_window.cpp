#include "app/language.h"
#include "market/market_row.h"
#include "overview/movers_mosaic.h"
#include "overview/screener.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/news_panel.h"
#include "ui/screener_panel.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

QString lastEvent(const MainWindow &window)
{
    const QString text = window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
    return text.section(QLatin1Char('\n'), -1).mid(11); // without "[HH:mm:ss] "
}

MoverRecord mover(const QString &symbol, double change, double volume = 1e6)
{
    MoverRecord record;
    record.symbol = symbol;
    record.price = 10;
    record.change = change;
    record.volume = volume;
    return record;
}

// 60 gainers (the last four trading 100 each) and 10 losers.
QList<MoverRecord> crowd()
{
    QList<MoverRecord> records;
    for (int i = 0; i < 60; ++i)
        records << mover(QStringLiteral("G%1USDT").arg(i), 0.5 + i, i >= 56 ? 100 : 1e6);
    for (int i = 0; i < 10; ++i)
        records << mover(QStringLiteral("L%1USDT").arg(i), -0.5 - i);
    return records;
}

QStringList column(const QTableWidget *table, int column)
{
    QStringList texts;
    for (int row = 0; row < table->rowCount(); ++row)
        texts << table->item(row, column)->text();
    return texts;
}

void triggerMenuEntry(MoversPanel *panel, QTableWidget *table, int row, MoversPanel::Action chosen)
{
    std::unique_ptr<QMenu> menu(panel->createRowMenu(table, row));
    QVERIFY(menu);
    for (QAction *action : menu->actions()) {
        if (action->data().toInt() == int(chosen)) {
            action->trigger();
            return;
        }
    }
    QFAIL("the menu has no such entry");
}

// Binance's all-pairs 24-hour tickers: `pairs` USDT pairs with every field the reply carries.
QByteArray binanceTickersBody(int pairs)
{
    QByteArray body("[");
    for (int i = 0; i < pairs; ++i) {
        const double change = (i % 41 - 20) * 0.73;
        body += QStringLiteral(
                        R"({"symbol":"C%1USDT","priceChange":"0.1","priceChangePercent":"%2",)"
                        R"("weightedAvgPrice":"1.0","prevClosePrice":"1.0","lastPrice":"%3",)"
                        R"("lastQty":"2.0","bidPrice":"1.0","bidQty":"3.0","askPrice":"1.1",)"
                        R"("askQty":"4.0","openPrice":"1.0","highPrice":"1.2","lowPrice":"0.9",)"
                        R"("volume":"5000.0","quoteVolume":"%4","openTime":1700000000000,)"
                        R"("closeTime":1700086400000,"firstId":1,"lastId":9,"count":9})")
                        .arg(i)
                        .arg(change, 0, 'f', 3)
                        .arg(1.0 + i * 0.37, 0, 'f', 8)
                        .arg(1e5 * (i + 1), 0, 'f', 8)
                        .toLatin1();
        body += i + 1 < pairs ? "," : "]";
    }
    return body;
}

} // namespace

class OverviewWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void moversPipelineFillsTablesTilesAndMosaic();
    void filtersNarrowTheListAndAreKept();
    void rowMenuAddsOrSelectsTheMover_data();
    void rowMenuAddsOrSelectsTheMover();
    void mosaicDoubleClickOpensTheSymbol();
    void screenerFollowsMoversAndWatchlist();
    void headlinesStayPlainText();
    void selectorsFollowTheLanguage();
    void largeCryptoUpdateDoesBoundedWork();

private:
    std::unique_ptr<IsolatedFolders> m_folders;
    std::unique_ptr<MainWindow> m_window;
};

void OverviewWindowTest::init()
{
    m_folders = std::make_unique<IsolatedFolders>();
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/watchlists/default.json",
                         R"({"symbols":[{"symbol":"AAPL"},{"symbol":"G59USDT"}]})");
    setInterfaceLanguage(QStringLiteral("en"));
    m_window = std::make_unique<MainWindow>();
    m_window->resize(1400, 900);
}

void OverviewWindowTest::cleanup()
{
    m_window.reset();
    m_folders.reset();
}

void OverviewWindowTest::moversPipelineFillsTablesTilesAndMosaic()
{
    MoversPanel *panel = m_window->moversPanel();
    m_window->applyMovers(QStringLiteral("Crypto 24h"), crowd());

    QCOMPARE(panel->gainersTable()->rowCount(), 50);
    QCOMPARE(panel->losersTable()->rowCount(), 10);
    QCOMPARE(panel->gainersTable()->item(0, 0)->text(), QStringLiteral("G59USDT"));
    QCOMPARE(panel->losersTable()->item(0, 0)->text(), QStringLiteral("L9USDT"));
    QCOMPARE(panel->gainersTable()->item(0, 4)->text(), QStringLiteral("Strong up"));
    // 15 gainers and the 10 losers, largest moves first.
    const QList<MoverRecord> tiles = panel->mosaic()->items();
    QCOMPARE(tiles.size(), 25);
    QCOMPARE(tiles.first().symbol, QStringLiteral("G59USDT"));
    QCOMPARE(panel->breadthLabels().first()->text(), QStringLiteral("ADV / DEC\n60 / 10"));
    QCOMPARE(m_window->statusBar()->currentMessage(),
             QStringLiteral("Market movers updated: Crypto 24h (50 gainers, 10 losers) | 0 local "
                            "series adjusted, others provider daily"));
    QCOMPARE(m_window->moversCache().size(), 70);
    QCOMPARE(m_window->moverSource(QStringLiteral("L3USDT")), QStringLiteral("Crypto 24h"));
}

void OverviewWindowTest::filtersNarrowTheListAndAreKept()
{
    MoversPanel *panel = m_window->moversPanel();
    panel->scopeSelector()->setCurrentIndex(panel->scopeSelector()->findData("watchlist"));
    emit panel->scopeSelector()->activated(panel->scopeSelector()->currentIndex());
    panel->intervalSelector()->setCurrentIndex(panel->intervalSelector()->findData("day"));
    panel->minimumVolumeBox()->setValue(1000);
    m_window->applyMovers(QStringLiteral("Crypto 24h"), crowd());
    QCOMPARE(panel->gainersTable()->rowCount(), 50);
    QCOMPARE(column(panel->gainersTable(), 0).first(), QStringLiteral("G55USDT"));
    QVERIFY(m_window->statusBar()->currentMessage().endsWith("(50 gainers, 10 losers)"));
    m_window->saveLocalSettings();

    const QJsonObject stored =
            QJsonDocument::fromJson(
                    IsolatedFolders::readFile(m_folders->expectedConfigFolder() + "/local.json"))
                    .object();
    QCOMPARE(stored.value("movers_scope").toString(), QStringLiteral("watchlist"));
    QCOMPARE(stored.value("movers_interval").toString(), QStringLiteral("day"));
    QCOMPARE(stored.value("movers_min_volume").toDouble(), 1000.0);
    m_window.reset();
    MainWindow again;
    const MoversFilters filters = again.moversPanel()->filters();
    QCOMPARE(filters.scope, QStringLiteral("watchlist"));
    QCOMPARE(filters.interval, QStringLiteral("day"));
    QCOMPARE(filters.minimumVolume, 1000.0);
    QCOMPARE(filters.sector, QStringLiteral("all"));
}

void OverviewWindowTest::rowMenuAddsOrSelectsTheMover_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("event");
    QTest::addColumn<QString>("status");

    QTest::newRow("new mover, add") << 1 << int(MoversPanel::Action::AddToWatchlist) << "G58USDT"
                                    << "Market mover added to watchlist: G58USDT"
                                    << "Mover ready: G58USDT";
    QTest::newRow("new mover, chart") << 2 << int(MoversPanel::Action::OpenChart) << "G57USDT"
                                      << "Market mover added to watchlist: G57USDT"
                                      << "";
    QTest::newRow("new mover, alert at its price")
            << 3 << int(MoversPanel::Action::CreateAlert) << "G56USDT"
            << "Alert armed: G56USDT >= 10.0000"
            << "";
    QTest::newRow("listed mover, chart") << 0 << int(MoversPanel::Action::OpenChart) << "G59USDT"
                                         << "Market mover selected: G59USDT"
                                         << "";
}

void OverviewWindowTest::rowMenuAddsOrSelectsTheMover()
{
    QFETCH(int, row);
    QFETCH(int, action);
    QFETCH(QString, symbol);
    QFETCH(QString, event);
    QFETCH(QString, status);
    MoversPanel *panel = m_window->moversPanel();
    m_window->applyMovers(QStringLiteral("Crypto 24h"), crowd());
    const int rowsBefore = m_window->marketTable()->rowCount();

    // The alert form is confirmed as it opens.
    QTimer confirm;
    connect(&confirm, &QTimer::timeout, [] {
        if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget()))
            dialog->accept();
    });
    confirm.start(5);
    triggerMenuEntry(panel, panel->gainersTable(), row, MoversPanel::Action(action));
    QCOMPARE(m_window->marketTable()->selectedSymbol(), symbol);
    QCOMPARE(m_window->marketTable()->rowCount(), rowsBefore + (symbol == "G59USDT" ? 0 : 1));
    QCOMPARE(lastEvent(*m_window), event);
    if (!status.isEmpty())
        QCOMPARE(m_window->statusBar()->currentMessage(), status);
    std::unique_ptr<QMenu> menu(panel->createRowMenu(panel->losersTable(), 0));
    QCOMPARE(menu->actions().size(), 3); // chart, watchlist, alert
    QVERIFY(!panel->createRowMenu(panel->losersTable(), 40));
}

void OverviewWindowTest::mosaicDoubleClickOpensTheSymbol()
{
    MoversPanel *panel = m_window->moversPanel();
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_window->applyMovers(QStringLiteral("Crypto 24h"), crowd());
    MoversMosaic *mosaic = panel->mosaic();
    mosaic->resize(470, 255);
    const QImage image = mosaic->grab().toImage(); // paints, and so lays out the tiles
    QVERIFY(!image.isNull());
    QCOMPARE(mosaic->tileRects().size(), 12); // 3 columns, 4 rows
    QTest::mouseDClick(mosaic, Qt::LeftButton, {}, mosaic->tileRects().at(1).center().toPoint());
    QCOMPARE(m_window->marketTable()->selectedSymbol(), QStringLiteral("G58USDT"));
}

void OverviewWindowTest::screenerFollowsMoversAndWatchlist()
{
    ScreenerPanel *screener = m_window->screenerPanel();
    QTableWidget *table = screener->table();
    // The watchlist scope: AAPL has no quote yet, G59USDT takes its values from the movers.
    QCOMPARE(screener->filters().scope, QStringLiteral("watchlist"));
    m_window->findChild<QTabWidget *>("rightTabs")->setCurrentWidget(screener);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_window->applyMovers(QStringLiteral("Crypto 24h"), crowd());
    QCOMPARE(column(table, ScreenerPanel::SymbolColumn), (QStringList{"AAPL", "G59USDT"}));
    const int aapl = column(table, ScreenerPanel::SymbolColumn).indexOf("AAPL");
    QCOMPARE(table->item(aapl, ScreenerPanel::SignalColumn)->text(), QStringLiteral("Not loaded"));

    // A filter change rebuilds at once; a row added from elsewhere joins.
    ScreenerFilters filters = screener->filters();
    filters.minimumChange = 10;
    screener->setFilters(filters);
    emit screener->filtersChanged();
    QCOMPARE(column(table, ScreenerPanel::SymbolColumn), QStringList{"G59USDT"});
    m_window->addOrSelectInWatchlist(QStringLiteral("G58USDT"));
    QCOMPARE(column(table, ScreenerPanel::SymbolColumn), (QStringList{"G58USDT", "G59USDT"}));

    // Activating a row opens its symbol.
    emit screener->symbolActivated(QStringLiteral("G59USDT"));
    QCOMPARE(m_window->marketTable()->selectedSymbol(), QStringLiteral("G59USDT"));
}

void OverviewWindowTest::headlinesStayPlainText()
{
    NewsPanel *panel = m_window->newsPanel();
    NewsItem item;
    item.title = QStringLiteral("<b>Rally</b> & more");
    item.text = QStringLiteral("<img src=x onerror=alert(1)>");
    item.source = QString();
    item.time = QStringLiteral("2024-05-14T13:52:11Z");
    item.link = QStringLiteral("https://news.example.com/a");
    NewsItem unlinked = item;
    unlinked.link.clear();
    m_window->showNews({item, unlinked}, QStringLiteral("Public RSS"));

    QTableWidget *table = panel->table();
    QCOMPARE(table->rowCount(), 2);
    QCOMPARE(table->item(0, 3)->text(), QStringLiteral("<b>Rally</b> & more"));
    QVERIFY(table->item(0, 3)->toolTip().contains("&lt;img src=x"));
    QVERIFY(!table->item(0, 3)->toolTip().contains("<img"));
    QCOMPARE(table->item(0, 2)->text(), QStringLiteral("Public RSS"));
    QCOMPARE(table->item(0, 1)->text(), QStringLiteral("all"));
    QCOMPARE(m_window->statusBar()->currentMessage(),
             QStringLiteral("News updated: Public RSS (2 headlines)"));

    QSignalSpy opened(panel, &NewsPanel::linkActivated);
    const int linked = table->item(0, 4)->text() == "--" ? 1 : 0;
    emit table->cellDoubleClicked(1 - linked, 3);
    emit table->cellDoubleClicked(linked, 3);
    QCOMPARE(opened.size(), 1);
    QCOMPARE(opened.at(0).at(0).toUrl(), QUrl("https://news.example.com/a"));
}

void OverviewWindowTest::selectorsFollowTheLanguage()
{
    NewsPanel *news = m_window->newsPanel();
    QComboBox *categories = news->categorySelector();
    QCOMPARE(categories->findData("br"), -1);
    categories->setCurrentIndex(categories->findData("crypto"));
    MoversPanel *movers = m_window->moversPanel();
    movers->scopeSelector()->setCurrentIndex(movers->scopeSelector()->findData("b3"));

    m_window->setLanguage(QStringLiteral("pt_BR"));
    QVERIFY(categories->findData("br") > 0);
    QCOMPARE(news->categoryId(), QStringLiteral("crypto"));
    QCOMPARE(categories->currentText(), QStringLiteral("Cripto"));
    QCOMPARE(movers->filters().scope, QStringLiteral("b3"));
    QCOMPARE(movers->scopeSelector()->currentText(), QStringLiteral("B3 com atraso"));
    QCOMPARE(movers->breadthLabels().first()->text(), QStringLiteral("ALTAS / BAIXAS\n0 / 0"));

    categories->setCurrentIndex(categories->findData("br"));
    m_window->setLanguage(QStringLiteral("en"));
    QCOMPARE(categories->findData("br"), -1);
    QCOMPARE(news->categoryId(), QStringLiteral("all"));
}

QTEST_MAIN(OverviewWindowTest)
#include "tst_overview_window.moc"

void OverviewWindowTest::largeCryptoUpdateDoesBoundedWork()
{
    // A 24-hour reply of 332 pairs, read, then applied three times with moved prices and changes
    // while the Movers tab is in front.
    auto *tabs = m_window->findChild<QTabWidget *>("rightTabs");
    ScreenerPanel *screener = m_window->screenerPanel();
    MoversPanel *panel = m_window->moversPanel();
    tabs->setCurrentWidget(panel);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    const QList<MoverRecord> records = readBinanceMovers(binanceTickersBody(332));
    QCOMPARE(records.size(), 332);
    QSignalSpy gainerWrites(panel->gainersTable()->model(), &QAbstractItemModel::dataChanged);
    QSignalSpy loserWrites(panel->losersTable()->model(), &QAbstractItemModel::dataChanged);
    QSignalSpy screenerRebuilds(screener->table()->model(), &QAbstractItemModel::modelReset);
    for (int round = 1; round <= 3; ++round) {
        QList<MoverRecord> moved = records;
        for (MoverRecord &record : moved) {
            record.price += round;
            record.change += round * 0.01;
        }
        m_window->applyMovers(QStringLiteral("Crypto 24h"), moved);
    }
    QCOMPARE(panel->gainersTable()->rowCount(), 50);
    QCOMPARE(panel->losersTable()->rowCount(), 50);
    QCOMPARE(panel->gainersTable()->item(0, 2)->text(), formatChangePercent(14.63));
    QCOMPARE(m_window->moversCache().size(), 332);
    // Each table is announced once per update, not once per cell: a header fitting its columns
    // to their contents measures all rows on each announcement.
    QCOMPARE(gainerWrites.size(), 3);
    QCOMPARE(loserWrites.size(), 3);
    QCOMPARE(gainerWrites.last().at(1).toModelIndex().row(), 49);
    // The screener out of view waits; brought to the front, it is rebuilt once.
    QCOMPARE(screenerRebuilds.size(), 0);
    tabs->setCurrentWidget(screener);
    QCOMPARE(screenerRebuilds.size(), 1);
    QCOMPARE(column(screener->table(), ScreenerPanel::SymbolColumn),
             (QStringList{"AAPL", "G59USDT"}));
}
