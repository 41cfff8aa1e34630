#include "providers/data_fetcher.h"
#include "support/fake_provider.h"

#include <QJsonDocument>
#include <QTest>

#include <memory>

using FetcherPtr = std::shared_ptr<const DataFetcher>;
Q_DECLARE_METATYPE(FetcherPtr)

namespace {

FetcherPtr yahoo()
{
    return std::make_shared<YahooFetcher>("1d", "5d");
}
FetcherPtr binance()
{
    return std::make_shared<BinanceFetcher>();
}
FetcherPtr brapi()
{
    return std::make_shared<BrAPIFetcher>("", "1d", "5d");
}
FetcherPtr alphaVantage()
{
    return std::make_shared<AlphaVantageFetcher>("KEY");
}
FetcherPtr finnhub()
{
    return std::make_shared<FinnhubFetcher>("KEY");
}
FetcherPtr twelveData()
{
    return std::make_shared<TwelveDataFetcher>("KEY");
}
FetcherPtr fmp()
{
    return std::make_shared<FinancialModelingPrepFetcher>("KEY");
}

struct Expected
{
    QString symbol;
    double price, changePercent, open, high, low, previousClose, volume;
    int candles;
};

} // namespace

Q_DECLARE_METATYPE(Expected)

class DataFetcherTest : public QObject
{
    Q_OBJECT

private slots:
    void providerRepliesReadIntoQuotes_data();
    void providerRepliesReadIntoQuotes();
    void unusableRepliesGiveNoQuote_data();
    void unusableRepliesGiveNoQuote();
    void numberReaders();
    void yahooBarsSkipEmptyAndShortEntries();
};

void DataFetcherTest::providerRepliesReadIntoQuotes_data()
{
    QTest::addColumn<FetcherPtr>("fetcher");
    QTest::addColumn<QString>("requested");
    QTest::addColumn<QString>("file");
    QTest::addColumn<Expected>("expected");

    // Nulls at the first and a middle bar, a null volume, a partial last bar.
    QTest::newRow("yahoo b3 daily")
            << yahoo() << "petr4.sa"
            << "yahoo_chart_petr4_1d.json"
            << Expected{"PETR4.SA",
                        36.84000015258789,
                        (36.84000015258789 - 36.20000076293945) / 36.20000076293945 * 100.0,
                        36.2599983215332,
                        37.0,
                        36.11000061035156,
                        36.20000076293945,
                        41236500,
                        3};
    // No regularMarketPrice: the last non-null close stands in; open/high/low are the last bar's.
    QTest::newRow("yahoo price from close")
            << yahoo() << "EURUSD=X"
            << "yahoo_chart_no_market_price.json"
            << Expected{"EURUSD=X", 1.0823, (1.0823 - 1.0801) / 1.0801 * 100.0,
                        1.0824,     1.0831, 1.0819,
                        1.0801,     0,      2};
    // No timestamp, quote == [{}], chartPreviousClose 0: a price, no bars, no change.
    QTest::newRow("yahoo no bars")
            << yahoo() << "AMD"
            << "yahoo_chart_no_data.json" << Expected{"AMD", 138.27, 0, 0, 0, 0, 0, 0, 0};
    QTest::newRow("binance strings") << binance() << "ethusdt"
                                     << "binance_ticker_24hr_ethusdt.json"
                                     << Expected{"ETHUSDT", 3127.77, -1.302,      3169.04, 3195.0,
                                                 3102.31,   3169.04, 412733.8221, 0};
    // A row with a null close is dropped; one without volume reads 0.
    QTest::newRow("brapi with history")
            << brapi() << "VALE3.SA"
            << "brapi_quote_vale3.json"
            << Expected{"VALE3.SA", 59.88, 1.2, 59.2, 60.12, 58.95, 59.17, 21877300, 3};
    QTest::newRow("alpha vantage strings")
            << alphaVantage() << "ibm"
            << "alphavantage_global_quote_ibm.json"
            << Expected{"IBM", 207.83, -0.4512, 208.9, 210.64, 207.23, 208.772, 3871293, 0};
    QTest::newRow("finnhub without volume")
            << finnhub() << "MSFT"
            << "finnhub_quote_msft.json"
            << Expected{"MSFT", 415.49, -0.6005, 417.74, 418.4042, 412.1, 418.0, 0, 0};
    QTest::newRow("twelve data reports its symbol")
            << twelveData() << "EURUSD=X"
            << "twelvedata_quote_eurusd.json"
            << Expected{"EUR/USD", 1.0542, 0.12347, 1.0529, 1.0568, 1.0496, 1.0529, 0, 0};
    QTest::newRow("fmp first element")
            << fmp() << "msft"
            << "fmp_quote_msft.json"
            << Expected{"MSFT", 415.49, -0.6005, 417.74, 418.4042, 412.1, 418.0, 19803412, 0};
}

void DataFetcherTest::providerRepliesReadIntoQuotes()
{
    QFETCH(FetcherPtr, fetcher);
    QFETCH(QString, requested);
    QFETCH(QString, file);
    QFETCH(Expected, expected);

    const auto quote = fetcher->parseQuote(requested, providerData(file));
    QVERIFY(quote.has_value());
    QCOMPARE(quote->symbol, expected.symbol);
    QCOMPARE(quote->source, fetcher->displayName());
    QCOMPARE(quote->price, expected.price);
    QCOMPARE(quote->changePercent, expected.changePercent);
    QCOMPARE(quote->open, expected.open);
    QCOMPARE(quote->high, expected.high);
    QCOMPARE(quote->low, expected.low);
    QCOMPARE(quote->previousClose, expected.previousClose);
    QCOMPARE(quote->volume, expected.volume);
    QCOMPARE(quote->candles.size(), expected.candles);
    for (const Candle &candle : quote->candles)
        QVERIFY(candle.time > 1700000000 && candle.close > 0);
}

void DataFetcherTest::unusableRepliesGiveNoQuote_data()
{
    QTest::addColumn<FetcherPtr>("fetcher");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("yahoo every close null")
            << yahoo() << QByteArray(R"({"chart":{"result":[{"meta":{},
        "timestamp":[1,2],"indicators":{"quote":[{"close":[null,null],"open":[1,null]}]}}]}})");
    QTest::newRow("yahoo result null")
            << yahoo() << providerData("yahoo_chart_error_not_found.json");
    QTest::newRow("yahoo quote empty") << yahoo() << QByteArray(R"({"chart":{"result":[{"meta":
        {"regularMarketPrice":5},"indicators":{"quote":[]}}]}})");
    QTest::newRow("yahoo result is an object")
            << yahoo() << QByteArray(R"({"chart":{"result":{}}})");
    QTest::newRow("yahoo chart is an array") << yahoo() << QByteArray(R"({"chart":[1,2]})");
    QTest::newRow("binance all zeros")
            << binance() << providerData("binance_ticker_24hr_dead_pair.json");
    QTest::newRow("binance infinite text") << binance() << QByteArray(R"({"lastPrice":"1e999"})");
    QTest::newRow("binance nan text") << binance() << QByteArray(R"({"lastPrice":"NaN"})");
    QTest::newRow("binance array") << binance() << QByteArray("[]");
    QTest::newRow("brapi error") << brapi() << providerData("brapi_error_plan_limit.json");
    QTest::newRow("brapi results empty") << brapi() << QByteArray(R"({"results":[]})");
    QTest::newRow("alpha vantage unknown symbol")
            << alphaVantage() << providerData("alphavantage_unknown_symbol.json");
    QTest::newRow("alpha vantage limit")
            << alphaVantage() << providerData("alphavantage_information_daily_limit.json");
    QTest::newRow("finnhub unknown symbol")
            << finnhub() << providerData("finnhub_quote_unknown_symbol.json");
    QTest::newRow("finnhub price as text") << finnhub() << QByteArray(R"({"c":"415.49"})");
    QTest::newRow("twelve data code 429 beside a close")
            << twelveData() << QByteArray(R"({"code":429,"close":"101.5","symbol":"AAPL"})");
    QTest::newRow("twelve data error status")
            << twelveData() << QByteArray(R"({"status":"error","close":"9"})");
    QTest::newRow("twelve data credits")
            << twelveData() << providerData("twelvedata_error_credits.json");
    QTest::newRow("fmp unknown symbol") << fmp() << providerData("fmp_quote_unknown_symbol.json");
    QTest::newRow("fmp error object") << fmp() << providerData("fmp_error_limit.json");
    QTest::newRow("fmp empty first element") << fmp() << QByteArray("[{}, {\"price\": 3}]");
    QTest::newRow("not json") << yahoo() << QByteArray("<html>Will be right back</html>");
    QTest::newRow("truncated") << fmp() << providerData("fmp_quote_msft.json").left(200);
    QTest::newRow("empty") << finnhub() << QByteArray();
}

void DataFetcherTest::unusableRepliesGiveNoQuote()
{
    QFETCH(FetcherPtr, fetcher);
    QFETCH(QByteArray, body);
    QVERIFY(!fetcher->parseQuote("AAPL", body).has_value());
}

void DataFetcherTest::numberReaders()
{
    const QJsonArray values =
            QJsonDocument::fromJson(
                    R"(["1.2345%", "-0.4512%", " 12.5 ", "abc", "", 7, null, true])")
                    .array();
    const QList<double> lenient{1.2345, -0.4512, 12.5, 0, 0, 7, 0, 0};
    for (qsizetype i = 0; i < values.size(); ++i)
        QCOMPARE(lenientNumber(values.at(i)), lenient.at(i));
    QCOMPARE(stringNumber(QJsonValue("4.00000200")), 4.000002);
    QCOMPARE(stringNumber(QJsonValue(4.5)), 4.5);
    QCOMPARE(stringNumber(QJsonValue("x")), 0.0);

    const auto last = [](const char *json) {
        return lastNumericEntry(QJsonDocument::fromJson(json).array());
    };
    QCOMPARE(last("[1, null, 2, null, null]"), 2.0);
    QCOMPARE(last("[3, \"4\"]"), 3.0);
    QCOMPARE(last("[null, null]"), 0.0);
    QCOMPARE(last("[]"), 0.0);
}

void DataFetcherTest::yahooBarsSkipEmptyAndShortEntries()
{
    // close is one shorter than timestamp; bar 1 has a null open; bar 2 a null volume.
    const QJsonObject result = QJsonDocument::fromJson(R"({"timestamp":[10,20,30,40],
        "indicators":{"quote":[{"open":[1,null,3,4],"high":[2,2,4,5],"low":[0.5,1,2,3],
        "close":[1.5,1.5,3.5],"volume":[100,200,null,400]}]}})")
                                       .object();
    const QList<Candle> candles = yahooChartCandles(result);
    QCOMPARE(candles.size(), 2);
    QCOMPARE(candles.at(0).time, 10);
    QCOMPARE(candles.at(0).volume, 100.0);
    QCOMPARE(candles.at(1).time, 30);
    QCOMPARE(candles.at(1).volume, 0.0);

    const QJsonArray rows = QJsonDocument::fromJson(R"([{"date":5,"open":1,"high":2,"low":1,
        "close":null},{"open":1,"high":2,"low":1,"close":2}])")
                                    .array();
    const QList<Candle> brapiBars = brapiHistoryCandles(rows);
    QCOMPARE(brapiBars.size(), 1);
    QCOMPARE(brapiBars.first().time, 0);
    QCOMPARE(brapiBars.first().volume, 0.0);
}

QTEST_GUILESS_MAIN(DataFetcherTest)
#include "tst_data_fetcher.moc"
