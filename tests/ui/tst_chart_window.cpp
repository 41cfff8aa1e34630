#include "app/identity.h"
#include "app/language.h"
#include "chart/price_chart.h"
#include "market/market_row.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/started_window.h"

#include <QApplication>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTest>

#include <memory>

namespace {

// Real kline rows: [open time ms, "o", "h", "l", "c", "v", close time, ...].
QByteArray klines(int count, double firstClose, double volume = 2,
                  qint64 firstTimeMs = 1700000000000)
{
    QStringList rows;
    for (int i = 0; i < count; ++i) {
        const double close = firstClose + i;
        rows << QStringLiteral(R"([%1,"%2","%3","%4","%5","%6",%7,"0",10,"0","0","0"])")
                        .arg(firstTimeMs + i * 60000)
                        .arg(close - 0.5, 0, 'f', 8)
                        .arg(close + 1, 0, 'f', 8)
                        .arg(close - 1, 0, 'f', 8)
                        .arg(close, 0, 'f', 8)
                        .arg(volume, 0, 'f', 8)
                        .arg(firstTimeMs + i * 60000 + 59999);
    }
    return (QLatin1Char('[') + rows.join(QLatin1Char(',')) + QLatin1Char(']')).toUtf8();
}

// A Yahoo chart reply with a null bar in the middle and no volume for the last bar.
QByteArray yahooChart(const QString &symbol, double price, double previousClose)
{
    return QStringLiteral(
                   R"({"chart":{"result":[{"meta":{"symbol":"%1","regularMarketPrice":%2,)"
                   R"("chartPreviousClose":%3,"previousClose":%3},)"
                   R"("timestamp":[1714741200,1714744800,1714748400,1714752000],)"
                   R"("indicators":{"quote":[{"open":[10,null,12,13],"high":[11,null,13,14],)"
                   R"("low":[9,null,11,12],"close":[10.5,null,12.5,13.5],)"
                   R"("volume":[100,null,300,null]}]}}],"error":null}})")
            .arg(symbol)
            .arg(price)
            .arg(previousClose)
            .toUtf8();
}

QString cell(const MarketTable *table, const QString &symbol, int column)
{
    const QTableWidgetItem *item = table->item(table->findMarketRow(symbol), column);
    return item ? item->text() : QString();
}

bool logged(const MainWindow &window, const QString &text)
{
    return window.findChild<QPlainTextEdit *>(QStringLiteral("eventConsole"))
            ->toPlainText()
            .contains(QStringLiteral("] ") + text);
}

} // namespace

class ChartWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void klinesFillTheChartAndTheTable();
    void failedOrEmptyKlinesKeepTheStoredBars();
    void indicatorColumnsNeedEnoughData_data();
    void indicatorColumnsNeedEnoughData();
    void yahooChartReportsAndFillsTheRow_data();
    void yahooChartReportsAndFillsTheRow();
    void brapiWithoutHistoryAsksYahooQuietly();
    void timeframeChangeReloadsAtOnce();
    void drawingsAndIndicatorsSurviveARestart();

private:
    std::unique_ptr<MainWindow> startWindow(const QByteArray &symbols);

    FakeProvider m_provider;
    std::unique_ptr<IsolatedFolders> m_folders;
};

void ChartWindowTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void ChartWindowTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
    m_folders.reset();
    m_folders = std::make_unique<IsolatedFolders>();
    m_provider.clearRequests();
    for (const char *path : {"/api/v3/klines", "/v8/finance/chart/AAPL", "/api/quote/PETR4",
                             "/v8/finance/chart/PETR4.SA", "/v8/finance/chart/BRL%3DX"})
        m_provider.setReply(QLatin1String(path), FakeReply{.mode = FakeReply::Mode::NoAnswer});
}

std::unique_ptr<MainWindow> ChartWindowTest::startWindow(const QByteArray &symbols)
{
    return startedWindow(*m_folders, symbols);
}

void ChartWindowTest::klinesFillTheChartAndTheTable()
{
    m_provider.setReply("/api/v3/klines", FakeReply::json(klines(30, 100)));
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->storedCandles("BTCUSDT").size(), 30);
    const RecordedRequest request = [this] {
        for (const RecordedRequest &r : m_provider.requests()) {
            if (r.path == "/api/v3/klines")
                return r;
        }
        return RecordedRequest();
    }();
    QCOMPARE(request.queryItem("interval"), QStringLiteral("1m"));
    QCOMPARE(request.queryItem("limit"), QStringLiteral("180"));
    MarketTable *table = window->marketTable();
    QCOMPARE(cell(table, "BTCUSDT", CloseColumn), QStringLiteral("129.0000"));
    QCOMPARE(cell(table, "BTCUSDT", HighColumn), QStringLiteral("130.0000"));
    // SMA20 of closes 110..129, EMA seeded with the first close, volume 2 on every bar.
    QCOMPARE(cell(table, "BTCUSDT", SmaColumn), QStringLiteral("119.5000"));
    QVERIFY(cell(table, "BTCUSDT", VwapColumn) != QStringLiteral("--"));
    QVERIFY(cell(table, "BTCUSDT", LatencyColumn).endsWith(QStringLiteral(" ms")));
    QCOMPARE(window->priceChart()->symbol(), QStringLiteral("BTCUSDT"));
    QCOMPARE(window->priceChart()->candles().size(), 30);
}

void ChartWindowTest::failedOrEmptyKlinesKeepTheStoredBars()
{
    m_provider.setReply("/api/v3/klines", FakeReply::json(klines(5, 100)));
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->storedCandles("BTCUSDT").size(), 5);

    m_provider.setReply("/api/v3/klines", FakeReply::json("[]"));
    m_provider.clearRequests();
    window->refreshCryptoKlines();
    QVERIFY(m_provider.waitForRequests(1));
    QTest::qWait(50);
    QCOMPARE(window->storedCandles("BTCUSDT").size(), 5);

    m_provider.setReply("/api/v3/klines",
                        FakeReply::json(R"({"code":-1121,"msg":"Invalid symbol."})", 400));
    window->refreshCryptoKlines();
    QTRY_VERIFY(logged(*window, QStringLiteral("Binance kline error: BTCUSDT")));
    QCOMPARE(cell(window->marketTable(), "BTCUSDT", StatusColumn), QStringLiteral("kline error"));
    QCOMPARE(window->storedCandles("BTCUSDT").size(), 5);
    QCOMPARE(window->priceChart()->candles().size(), 5);
}

void ChartWindowTest::indicatorColumnsNeedEnoughData_data()
{
    QTest::addColumn<int>("bars");
    QTest::addColumn<double>("volume");
    QTest::addColumn<QString>("sma");
    QTest::addColumn<QString>("vwap");
    QTest::newRow("19 bars: no SMA 20") << 19 << 2.0 << "--"
                                        << "109.0000";
    QTest::newRow("no volume: no VWAP") << 25 << 0.0 << "114.5000"
                                        << "--";
}

void ChartWindowTest::indicatorColumnsNeedEnoughData()
{
    QFETCH(int, bars);
    QFETCH(double, volume);
    QFETCH(QString, sma);
    QFETCH(QString, vwap);
    m_provider.setReply("/api/v3/klines", FakeReply::json(klines(bars, 100, volume)));
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->storedCandles("BTCUSDT").size(), bars);
    QCOMPARE(cell(window->marketTable(), "BTCUSDT", SmaColumn), sma);
    QCOMPARE(cell(window->marketTable(), "BTCUSDT", VwapColumn), vwap);
}

void ChartWindowTest::yahooChartReportsAndFillsTheRow_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("candles");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("event"); // empty: none
    QTest::newRow("bars with a null one")
            << yahooChart("AAPL", 13.5, 12.0) << 3 << "free/delayed" << QString();
    QTest::newRow("empty result") << QByteArray(R"({"chart":{"result":[],"error":null}})") << 0
                                  << "no free data"
                                  << "No free data response for: AAPL";
    QTest::newRow("no price and no bars")
            << QByteArray(R"({"chart":{"result":[{"meta":{"symbol":"AAPL"},)"
                          R"("indicators":{"quote":[{}]}}],"error":null}})")
            << 0 << "invalid free data"
            << "Invalid free data response for: AAPL";
}

void ChartWindowTest::yahooChartReportsAndFillsTheRow()
{
    QFETCH(QByteArray, reply);
    QFETCH(int, candles);
    QFETCH(QString, status);
    QFETCH(QString, event);
    m_provider.setReply("/v8/finance/chart/AAPL", FakeReply::json(reply));
    auto window = startWindow("AAPL");
    window->requestYahooChart(QStringLiteral("AAPL"), true);
    QTRY_COMPARE(cell(window->marketTable(), "AAPL", StatusColumn), status);
    QCOMPARE(window->storedCandles("AAPL").size(), candles);
    if (event.isEmpty()) {
        QCOMPARE(cell(window->marketTable(), "AAPL", SourceColumn), QStringLiteral("Yahoo"));
        QCOMPARE(cell(window->marketTable(), "AAPL", ChangeColumn), QStringLiteral("12.50%"));
        // The bar without volume is kept with volume 0.
        QCOMPARE(window->storedCandles("AAPL").last().volume, 0.0);
    } else {
        QVERIFY(logged(*window, event));
    }
}

void ChartWindowTest::brapiWithoutHistoryAsksYahooQuietly()
{
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/config.txt", "brapi_token=BRT\n");
    m_provider.setReply("/api/quote/PETR4",
                        FakeReply::json(R"({"results":[{"symbol":"PETR4",)"
                                        R"("regularMarketPrice":36.71,)"
                                        R"("regularMarketChangePercent":3.26}]})"));
    m_provider.setReply("/v8/finance/chart/PETR4.SA",
                        FakeReply::json(yahooChart("PETR4.SA", 36.7, 35.5)));
    m_provider.setReply("/v8/finance/chart/BRL%3DX",
                        FakeReply::json(yahooChart("BRL=X", 5.1234, 5.0)));
    auto window = startWindow("PETR4.SA");
    QTRY_COMPARE(window->storedCandles("PETR4.SA").size(), 3);
    MarketTable *table = window->marketTable();
    QCOMPARE(cell(table, "PETR4.SA", LastColumn), QStringLiteral("36.7100"));
    // The quote cascade and the history both answer from BrAPI, in either order; the quiet Yahoo
    // request fills the history but leaves the row's source alone.
    QVERIFY((QStringList{"BrAPI", "brapi_keyed"}).contains(cell(table, "PETR4.SA", SourceColumn)));
    QCOMPARE(cell(table, "PETR4.SA", CloseColumn), QStringLiteral("13.5000"));

    // The USD/BRL chart feeds the top-bar rate.
    window->requestYahooChart(QStringLiteral("BRL=X"), false);
    QTRY_COMPARE(window->findChild<QLabel *>("fxTicker")->text().left(14),
                 QStringLiteral("USD/BRL 5.1234"));
}

void ChartWindowTest::timeframeChangeReloadsAtOnce()
{
    m_provider.setReply("/api/v3/klines", FakeReply::json(klines(6, 100)));
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->storedCandles("BTCUSDT").size(), 6);
    m_provider.clearRequests();
    auto *timeframes = window->findChild<QComboBox *>(QStringLiteral("chartTimeframe"));
    timeframes->setCurrentText(QStringLiteral("1mo"));
    emit timeframes->textActivated(QStringLiteral("1mo"));
    // Only the klines count: the session may start meanwhile and ask for other things.
    const auto intervals = [this] {
        QStringList found;
        for (const RecordedRequest &request : m_provider.requests()) {
            if (request.path == "/api/v3/klines")
                found << request.queryItem("interval");
        }
        return found;
    };
    QTRY_COMPARE(intervals(), QStringList{QStringLiteral("1M")});
    QTRY_COMPARE(window->priceChart()->candles().size(), 6);
}

void ChartWindowTest::drawingsAndIndicatorsSurviveARestart()
{
    m_provider.setReply("/api/v3/klines", FakeReply::json(klines(10, 100)));
    {
        auto window = startWindow("BTCUSDT");
        QTRY_COMPARE(window->priceChart()->candles().size(), 10);
        PriceChart *chart = window->priceChart();
        ChartDrawing line;
        line.type = ChartDrawing::Trend;
        line.price1 = 101;
        line.price2 = 108;
        line.index1 = 1;
        line.index2 = 8;
        line.label = QStringLiteral("Channel");
        line.locked = true;
        chart->setDrawings({line});
        IndicatorSettings settings = chart->indicatorSettings();
        settings.smaPeriod = 5;
        chart->setIndicatorSettings(settings);
        // Switching SMA on from the chart's menu reaches the window through the change callback.
        QMenu *menu = chart->createContextMenu(chart->rect().center());
        QAction *sma = nullptr;
        for (QAction *action : menu->findChildren<QAction *>()) {
            if (action->isCheckable() && action->text().startsWith(QStringLiteral("SMA")))
                sma = action;
        }
        QVERIFY(sma);
        sma->trigger();
        QVERIFY(logged(*window, QStringLiteral("Indicators BTCUSDT SMA5=")));
        window->saveLocalSettings();
        QCOMPARE(window->marketTable()->horizontalHeaderItem(SmaColumn)->text(),
                 QStringLiteral("SMA5"));
    }
    auto again = startWindow("BTCUSDT");
    QTRY_COMPARE(again->priceChart()->candles().size(), 10);
    QCOMPARE(again->priceChart()->drawings().size(), 1);
    QCOMPARE(again->priceChart()->drawings().first().label, QStringLiteral("Channel"));
    QVERIFY(again->priceChart()->drawings().first().locked);
    QCOMPARE(again->priceChart()->indicatorSettings().smaPeriod, 5);
    QCOMPARE(cell(again->marketTable(), "BTCUSDT", SmaColumn), QStringLiteral("107.0000"));
}

QTEST_MAIN(ChartWindowTest)
#include "tst_chart_window.moc"
