#include "chart/candle_history.h"
#include "chart/timeframe.h"

#include <QTest>

#include <cmath>

Q_DECLARE_METATYPE(Candle)

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// 2024-05-03 12:00 UTC and the hours after it.
constexpr qint64 kNoon = 1714737600;
constexpr qint64 kHour = 3600;

bool sameNumber(double actual, double expected)
{
    if (std::isnan(expected))
        return std::isnan(actual);
    return std::abs(actual - expected) <= 1e-9 * std::max(1.0, std::abs(expected));
}

QByteArray describe(const Candle &c)
{
    return QByteArray::number(c.time) + " " + QByteArray::number(c.open) + "/" +
           QByteArray::number(c.high) + "/" + QByteArray::number(c.low) + "/" +
           QByteArray::number(c.close) + " v" + QByteArray::number(c.volume);
}

bool sameCandle(const Candle &a, const Candle &b)
{
    return a.time == b.time && sameNumber(a.open, b.open) && sameNumber(a.high, b.high) &&
           sameNumber(a.low, b.low) && sameNumber(a.close, b.close) &&
           sameNumber(a.volume, b.volume);
}

QList<qint64> timesOf(const QList<Candle> &candles)
{
    QList<qint64> times;
    for (const Candle &candle : candles)
        times.append(candle.time);
    return times;
}

QList<double> closesOf(const QList<Candle> &candles)
{
    QList<double> closes;
    for (const Candle &candle : candles)
        closes.append(candle.close);
    return closes;
}

QList<double> volumesOf(const QList<Candle> &candles)
{
    QList<double> volumes;
    for (const Candle &candle : candles)
        volumes.append(candle.volume);
    return volumes;
}

// A Yahoo chart body around one quote object, with the meta given.
QByteArray yahooChart(const QByteArray &meta, const QByteArray &timestamps, const QByteArray &quote)
{
    QByteArray result = R"({"meta":)" + meta;
    if (!timestamps.isEmpty())
        result += R"(,"timestamp":)" + timestamps;
    result += R"(,"indicators":{"quote":[)" + quote + "]}}";
    return R"({"chart":{"result":[)" + result + R"(],"error":null}})";
}

} // namespace

class CandleHistoryTest : public QObject
{
    Q_OBJECT

private slots:
    void klinesKeepOnlyDrawableBars_data();
    void klinesKeepOnlyDrawableBars();
    void klineFieldsFollowTheirPositions();
    void yahooChartReadsPriceAndBars_data();
    void yahooChartReadsPriceAndBars();
    void brapiHistoryNeedsAPrice_data();
    void brapiHistoryNeedsAPrice();
    void hourBarsMergeIntoEpochAlignedBuckets_data();
    void hourBarsMergeIntoEpochAlignedBuckets();
    void oversizedReplyIsNotRead();
    void timeframeAsksEachProviderItsOwnWay_data();
    void timeframeAsksEachProviderItsOwnWay();
};

void CandleHistoryTest::klinesKeepOnlyDrawableBars_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QList<qint64>>("times");
    QTest::addColumn<QList<double>>("closes");

    // The documented row: ints for times and the trade count, strings for everything else.
    const QByteArray docs = R"([[1499040000000,"0.01634790","0.80000000","0.01575800","0.01577100",
        "148976.11427815",1499644799999,"2434.19055334",308,"1756.87402397","28.46694368","0"]])";
    // clang-format off
    QTest::newRow("documented row") << docs << QList<qint64>{1499040000000} << QList<double>{0.015771};
    QTest::newRow("numbers where strings belong")
            << QByteArray(R"([[1000000000000,1.5,2,1,1.75,10],[1000000060000,"1.75","2","1.5","1.8","3"]])")
            << QList<qint64>{1000000000000, 1000000060000} << QList<double>{1.75, 1.8};
    QTest::newRow("short elements skipped")
            << QByteArray(R"([[1000000000000,"1","1","1","1"],[1000000060000,"2","2","2","2","0"],[],7])")
            << QList<qint64>{1000000060000} << QList<double>{2.0};
    QTest::newRow("zero, negative and unreadable prices skipped, neighbours kept")
            << QByteArray(R"([[1,"1","1","1","1","0"],[2,"0","1","1","1","0"],[3,"1","1","-1","1","0"],
                [4,"1","nan","1","1","0"],[5,"1","1","1","1e999","0"],[6,"1","1","1","x","0"],
                [7,null,"1","1","1","0"],[8,"3","3","3","3","0"]])")
            << QList<qint64>{1, 8} << QList<double>{1.0, 3.0};
    QTest::newRow("time that is not a number skipped")
            << QByteArray(R"([["1000000000000","1","1","1","1","0"],[null,"1","1","1","1","0"]])")
            << QList<qint64>{} << QList<double>{};
    QTest::newRow("empty array") << QByteArray("[]") << QList<qint64>{} << QList<double>{};
    QTest::newRow("error object") << QByteArray(R"({"code":-1121,"msg":"Invalid symbol."})") << QList<qint64>{} << QList<double>{};
    QTest::newRow("cut in half") << docs.left(60) << QList<qint64>{} << QList<double>{};
    QTest::newRow("html page") << QByteArray("<html><body>502 Bad Gateway</body></html>") << QList<qint64>{} << QList<double>{};
    QTest::newRow("empty body") << QByteArray() << QList<qint64>{} << QList<double>{};
    // clang-format on
}

void CandleHistoryTest::klinesKeepOnlyDrawableBars()
{
    QFETCH(QByteArray, body);

    const QList<Candle> candles = readBinanceKlines(body);
    QTEST(timesOf(candles), "times");
    QTEST(closesOf(candles), "closes");
}

void CandleHistoryTest::klineFieldsFollowTheirPositions()
{
    const QList<Candle> candles = readBinanceKlines(
            R"([[1499040000000,"0.01634790","0.80000000","0.01575800","0.01577100",
                "148976.11427815",1499644799999,"2434.19055334",308,"1756.87402397",
                "28.46694368","17928899.62484339"],[1499040060000,"1","1","1","1","NaN"]])");
    QCOMPARE(candles.size(), 2);
    Candle expected{1499040000000, 0.0163479, 0.8, 0.015758, 0.015771, 148976.11427815};
    QVERIFY2(sameCandle(candles.at(0), expected), describe(candles.at(0)));
    // An unreadable volume does not cost the bar its prices.
    QCOMPARE(candles.at(1).volume, 0.0);
}

void CandleHistoryTest::yahooChartReadsPriceAndBars_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("hasResult");
    QTest::addColumn<QList<qint64>>("times");
    QTest::addColumn<QList<double>>("volumes");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("previousClose");
    QTest::addColumn<double>("changePercent");

    const QByteArray meta = R"({"regularMarketPrice":110,"chartPreviousClose":90,
        "previousClose":100,"priceHint":2})";
    const QByteArray threeTimes = "[1714741200,1714744800,1714748400]";
    const QList<qint64> none;
    // clang-format off
    QTest::newRow("live last bar")
            << yahooChart(meta, threeTimes, R"({"volume":[500,200,0],"close":[101,102,110],
                "high":[103,104,110],"open":[100,101,110],"low":[99,100,110]})")
            << true << QList<qint64>{1714741200, 1714744800, 1714748400}
            << QList<double>{500, 200, 0} << 110.0 << 100.0 << 10.0;
    QTest::newRow("close one shorter than the times")
            << yahooChart(meta, threeTimes, R"({"open":[1,2,3],"high":[1,2,3],"low":[1,2,3],
                "close":[1,2],"volume":[5,6,7]})")
            << true << QList<qint64>{1714741200, 1714744800} << QList<double>{5, 6}
            << 110.0 << 100.0 << 10.0;
    QTest::newRow("null open drops only its bar")
            << yahooChart(meta, threeTimes, R"({"open":[1,null,3],"high":[1,2,3],"low":[1,2,3],
                "close":[1,2,3],"volume":[5,6,7]})")
            << true << QList<qint64>{1714741200, 1714748400} << QList<double>{5, 7}
            << 110.0 << 100.0 << 10.0;
    QTest::newRow("null volume reads as none")
            << yahooChart(meta, "[1714741200]", R"({"open":[1],"high":[1],"low":[1],
                "close":[1.5],"volume":[null]})")
            << true << QList<qint64>{1714741200} << QList<double>{0} << 110.0 << 100.0 << 10.0;
    QTest::newRow("no data: no timestamp and an empty quote")
            << yahooChart(R"({"regularMarketPrice":1156.87,"chartPreviousClose":1137.06,
                "previousClose":1137.06})", {}, "{}")
            << true << none << QList<double>{} << 1156.87 << 1137.06
            << (1156.87 - 1137.06) / 1137.06 * 100.0;
    QTest::newRow("only the chart's previous close")
            << yahooChart(R"({"regularMarketPrice":160.55,"chartPreviousClose":73.412})",
                          "[1577975400]", R"({"open":[74.06],"close":[75.0875],"volume":[135480400],
                "high":[75.15],"low":[73.7975]})")
            << true << QList<qint64>{1577975400} << QList<double>{135480400} << 160.55 << 73.412
            << (160.55 - 73.412) / 73.412 * 100.0;
    QTest::newRow("price from the last close, no previous close")
            << yahooChart(R"({"currency":"USD"})", "[1,2]", R"({"open":[1,2],"high":[1,2],
                "low":[1,2],"close":[1,2.5],"volume":[0,0]})")
            << true << QList<qint64>{1, 2} << QList<double>{0, 0} << 2.5 << kNaN << kNaN;
    QTest::newRow("previous close of zero")
            << yahooChart(R"({"regularMarketPrice":3,"previousClose":0})", {}, "{}")
            << true << none << QList<double>{} << 3.0 << 0.0 << kNaN;
    QTest::newRow("null previous close falls back to the chart's")
            << yahooChart(R"({"regularMarketPrice":3,"previousClose":null,"chartPreviousClose":2})", {}, "{}")
            << true << none << QList<double>{} << 3.0 << 2.0 << 50.0;
    QTest::newRow("no price at all")
            << yahooChart(R"({"regularMarketPrice":"n/a","previousClose":2})", {}, "{}")
            << true << none << QList<double>{} << kNaN << 2.0 << kNaN;
    QTest::newRow("not found") << QByteArray(R"({"chart":{"result":null,"error":{"code":"Not Found",
            "description":"No data found, symbol may be delisted"}}})")
            << false << none << QList<double>{} << kNaN << kNaN << kNaN;
    QTest::newRow("empty result") << QByteArray(R"({"chart":{"result":[],"error":null}})")
            << false << none << QList<double>{} << kNaN << kNaN << kNaN;
    QTest::newRow("result that is not an object") << QByteArray(R"({"chart":{"result":[7]}})")
            << false << none << QList<double>{} << kNaN << kNaN << kNaN;
    QTest::newRow("html error page") << QByteArray("<!doctype html><html><title>Yahoo! - Error report</title></html>")
            << false << none << QList<double>{} << kNaN << kNaN << kNaN;
    QTest::newRow("plain-text 429") << QByteArray("Too Many Requests\r\n")
            << false << none << QList<double>{} << kNaN << kNaN << kNaN;
    // clang-format on
}

void CandleHistoryTest::yahooChartReadsPriceAndBars()
{
    QFETCH(QByteArray, body);
    QFETCH(double, price);
    QFETCH(double, previousClose);
    QFETCH(double, changePercent);

    const YahooChartReply reply = readYahooChart(body);
    QTEST(reply.hasResult, "hasResult");
    QTEST(timesOf(reply.candles), "times");
    QTEST(volumesOf(reply.candles), "volumes");
    QVERIFY2(sameNumber(reply.price, price), QByteArray::number(reply.price));
    QVERIFY2(sameNumber(reply.previousClose, previousClose),
             QByteArray::number(reply.previousClose));
    QVERIFY2(sameNumber(reply.changePercent, changePercent),
             QByteArray::number(reply.changePercent));
}

void CandleHistoryTest::brapiHistoryNeedsAPrice_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("hasResult");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("changePercent");
    QTest::addColumn<QList<qint64>>("times");

    // clang-format off
    QTest::newRow("history with a broken row")
            << QByteArray(R"({"results":[{"symbol":"MGLU3","regularMarketPrice":3.43,
                "regularMarketChangePercent":7.5235114,"regularMarketTime":"2023-01-13T21:07:34.000Z",
                "historicalDataPrice":[{"date":1673557200,"open":3.1,"high":3.2,"low":3.0,"close":3.19,"volume":1000},
                {"date":1673600000,"open":3.2,"high":null,"low":3.1,"close":3.3,"volume":10},
                {"date":1673644054,"open":3.16,"high":3.62,"low":3.09,"close":3.43,"volume":315639000}]}],
                "requestedAt":"2023-01-14T00:00:00.000Z","took":"746ms"})")
            << true << 3.43 << 7.5235114 << QList<qint64>{1673557200, 1673644054};
    QTest::newRow("price without history")
            << QByteArray(R"({"results":[{"symbol":"PETR4","regularMarketPrice":36.71,"regularMarketChangePercent":3.26}]})")
            << true << 36.71 << 3.26 << QList<qint64>{};
    QTest::newRow("no change percent")
            << QByteArray(R"({"results":[{"regularMarketPrice":1.5,"historicalDataPrice":[]}]})")
            << true << 1.5 << kNaN << QList<qint64>{};
    QTest::newRow("price as text")
            << QByteArray(R"({"results":[{"regularMarketPrice":"36.71","historicalDataPrice":[{"date":1,"open":1,"high":1,"low":1,"close":1}]}]})")
            << false << kNaN << kNaN << QList<qint64>{};
    QTest::newRow("null price") << QByteArray(R"({"results":[{"regularMarketPrice":null}]})")
            << false << kNaN << kNaN << QList<qint64>{};
    QTest::newRow("no results") << QByteArray(R"({"results":[]})") << false << kNaN << kNaN << QList<qint64>{};
    QTest::newRow("plan limit") << QByteArray(R"({"error":true,"message":"Você atingiu o limite de requisições"})")
            << false << kNaN << kNaN << QList<qint64>{};
    // clang-format on
}

void CandleHistoryTest::brapiHistoryNeedsAPrice()
{
    QFETCH(QByteArray, body);
    QFETCH(double, price);
    QFETCH(double, changePercent);

    const BrapiHistoryReply reply = readBrapiHistory(body);
    QTEST(reply.hasResult, "hasResult");
    QVERIFY(sameNumber(reply.price, price));
    QVERIFY(sameNumber(reply.changePercent, changePercent));
    QTEST(timesOf(reply.candles), "times");
}

void CandleHistoryTest::hourBarsMergeIntoEpochAlignedBuckets_data()
{
    QTest::addColumn<QList<Candle>>("bars");
    QTest::addColumn<int>("hours");
    QTest::addColumn<QList<Candle>>("merged");

    const auto at = [](qint64 time, double open, double high, double low, double close,
                       double volume) { return Candle{time, open, high, low, close, volume}; };
    const QList<Candle> afternoon{
            at(kNoon + kHour, 10, 12, 9, 11, 100), at(kNoon + 2 * kHour, 11, 15, 10, 14, 50),
            at(kNoon + 3 * kHour, 14, 14, 8, 9, 25), at(kNoon + 4 * kHour, 9, 10, 9, 10, 5)};
    const QList<Candle> fourHours{at(kNoon, 10, 15, 8, 9, 175),
                                  at(kNoon + 4 * kHour, 9, 10, 9, 10, 5)};
    QList<Candle> inMilliseconds = afternoon;
    for (Candle &bar : inMilliseconds)
        bar.time *= 1000;

    // clang-format off
    QTest::newRow("13:00 to 16:00 fall into 12:00 and 16:00") << afternoon << 4 << fourHours;
    QTest::newRow("milliseconds come out in seconds") << inMilliseconds << 4 << fourHours;
    QTest::newRow("gap skips the empty buckets")
            << QList<Candle>{at(kNoon - 11 * kHour, 1, 2, 1, 2, 1), at(kNoon + kHour, 3, 4, 3, 4, 1)} << 4
            << QList<Candle>{at(kNoon - 12 * kHour, 1, 2, 1, 2, 1), at(kNoon, 3, 4, 3, 4, 1)};
    QTest::newRow("a bar on the boundary opens the next bucket")
            << QList<Candle>{at(kNoon - 1, 1, 1, 1, 1, 1), at(kNoon, 2, 2, 2, 2, 1)} << 4
            << QList<Candle>{at(kNoon - 4 * kHour, 1, 1, 1, 1, 1), at(kNoon, 2, 2, 2, 2, 1)};
    QTest::newRow("one hour leaves the bars") << afternoon << 1 << afternoon;
    QTest::newRow("no hours leaves the bars") << afternoon << 0 << afternoon;
    QTest::newRow("nothing to merge") << QList<Candle>{} << 4 << QList<Candle>{};
    // clang-format on
}

void CandleHistoryTest::hourBarsMergeIntoEpochAlignedBuckets()
{
    QFETCH(QList<Candle>, bars);
    QFETCH(int, hours);
    QFETCH(QList<Candle>, merged);

    const QList<Candle> actual = mergeHourBars(bars, hours);
    QCOMPARE(actual.size(), merged.size());
    for (qsizetype i = 0; i < actual.size(); ++i) {
        QVERIFY2(sameCandle(actual.at(i), merged.at(i)),
                 describe(actual.at(i)) + " instead of " + describe(merged.at(i)));
    }
}

void CandleHistoryTest::oversizedReplyIsNotRead()
{
    const QByteArray bar = R"([1000000000000,"1","2","0.5","1.5","10"])";
    QByteArray body = "[" + bar;
    while (body.size() + bar.size() + 2 <= kMaxHistoryReplyBytes)
        body += "," + bar;
    body += "]";
    QCOMPARE(readBinanceKlines(body).size(), (body.size() - 1) / (bar.size() + 1));
    body.insert(1, bar + ",");
    QVERIFY(body.size() > kMaxHistoryReplyBytes);
    QVERIFY(readBinanceKlines(body).isEmpty());
}

void CandleHistoryTest::timeframeAsksEachProviderItsOwnWay_data()
{
    QTest::addColumn<QString>("timeframe");
    QTest::addColumn<QString>("binanceInterval");
    QTest::addColumn<QString>("yahooInterval");
    QTest::addColumn<QString>("yahooRange");
    QTest::addColumn<int>("mergeHours");

    // clang-format off
    QTest::newRow("a month is 1M on Binance") << "1mo" << "1M" << "1mo" << "5y" << 1;
    QTest::newRow("four hours merged from Yahoo's hours") << "4h" << "4h" << "1h" << "3mo" << 4;
    // clang-format on
}

void CandleHistoryTest::timeframeAsksEachProviderItsOwnWay()
{
    QFETCH(QString, timeframe);

    const TimeframeParameters parameters = timeframeParameters(timeframe);
    QTEST(parameters.binanceInterval, "binanceInterval");
    QTEST(parameters.yahooInterval, "yahooInterval");
    QTEST(parameters.yahooRange, "yahooRange");
    QTEST(parameters.mergeHours, "mergeHours");
}

QTEST_GUILESS_MAIN(CandleHistoryTest)
#include "tst_candle_history.moc"
