#include "streams/binance_frames.h"

#include <QElapsedTimer>
#include <QTest>

#include <cmath>

namespace {

// Shaped on a live combined-stream ticker: every key of the 24-hour ticker, prices as strings,
// and lower/upper-case pairs that hold different things (`p` change vs `P` percent, `c` vs `C`).
constexpr char kTicker[] = R"({"stream":"ethusdt@ticker","data":{"e":"24hrTicker","E":1789500012345,
"s":"ETHUSDT","p":"-61.20000000","P":"-2.145","w":"2820.11","x":"2852.74000000",
"c":"2791.55000000","Q":"0.04100000","b":"2791.54","B":"12.5","a":"2791.55","A":"3.1",
"o":"2852.75000000","h":"2870.00000000","l":"2760.10000000","v":"401234.12000000",
"q":"1131576220.55","O":1789413612344,"C":1789500012344,"F":-1,"L":-1,"n":0}})";

// Spot partial depth: no `e`, `E` or `s`; the pair is only in the stream name.
constexpr char kSpotDepth[] = R"({"stream":"solusdt@depth20@100ms","data":{"lastUpdateId":9120,
"bids":[["142.31","10.5"],["142.30","3"],["142.29","1"],["142.28","2"],["142.27","7"]],
"asks":[["142.32","4"],["142.33","1.25"],["142.34","9"],["142.35","2"],["142.36","8"]]}})";

// Futures-style partial depth: `s` inside and the short `b`/`a` keys.
constexpr char kShortKeyDepth[] = R"({"stream":"btcusdt@depth20@100ms","data":{"e":"depthUpdate",
"E":1789500012345,"T":1789500012340,"s":"BTCUSDT","U":1,"u":2,"pu":0,
"b":[["75998.80","0.5"]],"a":[["75998.81","1.2"]]}})";

std::optional<DepthFrame> depthWithBids(const QByteArray &bids)
{
    return readDepthFrame(R"({"stream":"xrpusdt@depth20@100ms","data":{"bids":)" + bids +
                          R"(,"asks":[]}})");
}

bool sameNumber(double actual, double expected)
{
    return (std::isnan(actual) && std::isnan(expected)) || actual == expected;
}

} // namespace

class BinanceFramesTest : public QObject
{
    Q_OBJECT

private slots:
    void tickerReadsCaseSensitiveKeys_data();
    void tickerReadsCaseSensitiveKeys();
    void depthSymbolComesFromDataOrStreamName();
    void depthLevelConvertsEachElement_data();
    void depthLevelConvertsEachElement();
    void hugeDepthIsReadBounded();
    void tradeNeedsNoOrderIds_data();
    void tradeNeedsNoOrderIds();
    void unusableFramesGiveNothing_data();
    void unusableFramesGiveNothing();
    void scanAgreesWithFullParse_data();
    void scanAgreesWithFullParse();
    void snapshotReadsOnlyFullKeys();
    void streamUrlsKeepTheirSeparators();
    void universeKeepsTradingUsdtPairs();
};

void BinanceFramesTest::tickerReadsCaseSensitiveKeys_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("changePercent");

    QTest::newRow("live shape") << QByteArray(kTicker) << 2791.55 << -2.145;
    QTest::newRow("numbers instead of strings")
            << QByteArray(R"({"stream":"btcusdt@ticker","data":{"c":64000.5,"P":1.5}})") << 64000.5
            << 1.5;
    QTest::newRow("only the absolute change")
            << QByteArray(R"({"stream":"btcusdt@ticker","data":{"c":"10","p":"1.5"}})") << 10.0
            << qQNaN();
}

void BinanceFramesTest::tickerReadsCaseSensitiveKeys()
{
    QFETCH(QByteArray, frame);
    QFETCH(double, price);
    QFETCH(double, changePercent);

    const auto ticker = readTickerFrame(frame);
    QVERIFY(ticker);
    QCOMPARE(ticker->symbol, binanceFrameSymbol(frame));
    QCOMPARE(ticker->price, price);
    QVERIFY2(sameNumber(ticker->changePercent, changePercent),
             qPrintable(QString::number(ticker->changePercent)));
}

void BinanceFramesTest::depthSymbolComesFromDataOrStreamName()
{
    const auto spot = readDepthFrame(kSpotDepth);
    QVERIFY(spot);
    QCOMPARE(spot->symbol, "SOLUSDT");
    QVERIFY(isDepthUsable(spot->sides));
    QCOMPARE(spot->sides.bids.first().price, 142.31);
    QCOMPARE(spot->sides.asks.last().quantity, 8.0);

    const auto futures = readDepthFrame(kShortKeyDepth);
    QVERIFY(futures);
    QCOMPARE(futures->symbol, "BTCUSDT");
    QCOMPARE(futures->sides.bids.size(), 1);
    QCOMPARE(futures->sides.asks.first().price, 75998.81);

    // An empty full-key side falls back to the short key, per side.
    const auto mixed = readDepthFrame(
            R"({"stream":"bnbbtc@depth","data":{"asks":[],"a":[["0.0026","100"]],"bids":[["0.0024","10"]],"b":[["1","1"]]}})");
    QVERIFY(mixed);
    QCOMPARE(mixed->symbol, "BNBBTC");
    QCOMPARE(mixed->sides.asks.first().price, 0.0026);
    QCOMPARE(mixed->sides.bids.first().price, 0.0024);
}

void BinanceFramesTest::depthLevelConvertsEachElement_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("quantity");
    QTest::addColumn<bool>("complete");

    QTest::newRow("strings") << QByteArray(R"(["142.31","10.5"])") << 142.31 << 10.5 << true;
    QTest::newRow("numbers") << QByteArray("[142.31,10.5]") << 142.31 << 10.5 << true;
    QTest::newRow("extra elements") << QByteArray(R"(["1","2","x"])") << 1.0 << 2.0 << true;
    QTest::newRow("one element") << QByteArray(R"(["142.31"])") << 142.31 << qQNaN() << false;
    QTest::newRow("empty") << QByteArray("[]") << qQNaN() << qQNaN() << false;
    QTest::newRow("not an array") << QByteArray(R"("142.31")") << qQNaN() << qQNaN() << false;
    QTest::newRow("text") << QByteArray(R"(["abc","1"])") << qQNaN() << 1.0 << true;
    QTest::newRow("NaN and inf") << QByteArray(R"(["NaN","inf"])") << qQNaN() << qQNaN() << true;
    QTest::newRow("overflow") << QByteArray(R"(["1e999","-1e999"])") << qQNaN() << qQNaN() << true;
    QTest::newRow("null and bool") << QByteArray("[null,true]") << qQNaN() << qQNaN() << true;
    QTest::newRow("object and array") << QByteArray("[{},[1]]") << qQNaN() << qQNaN() << true;
}

void BinanceFramesTest::depthLevelConvertsEachElement()
{
    QFETCH(QByteArray, level);
    QFETCH(double, price);
    QFETCH(double, quantity);
    QFETCH(bool, complete);

    const auto depth = depthWithBids('[' + level + ']');
    QVERIFY(depth);
    QCOMPARE(depth->sides.bids.size(), 1);
    const DepthLevel read = depth->sides.bids.first();
    QVERIFY2(sameNumber(read.price, price), qPrintable(QString::number(read.price)));
    QVERIFY2(sameNumber(read.quantity, quantity), qPrintable(QString::number(read.quantity)));
    QCOMPARE(read.complete, complete);
}

void BinanceFramesTest::hugeDepthIsReadBounded()
{
    QByteArray levels = "[";
    for (int i = 0; i < 100000; ++i)
        levels += (i ? ",[\"" : "[\"") + QByteArray::number(100000 - i) + "\",\"1\"]";
    levels += ']';
    QElapsedTimer timer;
    timer.start();
    const auto depth = depthWithBids(levels);
    QVERIFY(depth);
    QCOMPARE(depth->sides.bids.size(), kMaxDepthLevelsRead);
    QCOMPARE(depth->sides.bids.last().price, 100000.0 - (kMaxDepthLevelsRead - 1));
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
}

void BinanceFramesTest::tradeNeedsNoOrderIds_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<double>("quantity");
    QTest::addColumn<qint64>("timeMs");
    QTest::addColumn<bool>("buyerIsMaker");

    QTest::newRow("without b and a")
            << QByteArray(
                       R"({"stream":"btcusdt@trade","data":{"e":"trade","E":1733498426040,"s":"BTCUSDT","t":4219164350,"p":"98910.32000000","q":"0.05539000","T":1733498426037,"m":true,"M":true}})")
            << 0.05539 << qint64(1733498426037) << true;
    QTest::newRow("with the old b and a")
            << QByteArray(
                       R"({"stream":"btcusdt@trade","data":{"e":"trade","E":1672515782136,"s":"BTCUSDT","t":12345,"p":"98910.32","q":"100","b":88,"a":50,"T":1672515782136,"m":false,"M":true}})")
            << 100.0 << qint64(1672515782136) << false;
    QTest::newRow("m missing, T a double, q unusable")
            << QByteArray(
                       R"({"stream":"btcusdt@trade","data":{"p":98910.32,"q":"x","T":1733498426037.9}})")
            << qQNaN() << qint64(1733498426037) << false;
}

void BinanceFramesTest::tradeNeedsNoOrderIds()
{
    QFETCH(QByteArray, frame);
    QFETCH(double, quantity);
    QFETCH(qint64, timeMs);
    QFETCH(bool, buyerIsMaker);

    const auto trade = readTradeFrame(frame);
    QVERIFY(trade);
    QCOMPARE(trade->symbol, "BTCUSDT");
    QCOMPARE(trade->price, 98910.32);
    QVERIFY(sameNumber(trade->quantity, quantity));
    QCOMPARE(trade->timeMs, timeMs);
    QCOMPARE(trade->buyerIsMaker, buyerIsMaker);
}

void BinanceFramesTest::unusableFramesGiveNothing_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("symbol");

    QTest::newRow("not JSON") << QByteArray(R"({"stream":"btcusdt@ticker","data":{)") << "";
    QTest::newRow("data missing") << QByteArray(R"({"stream":"btcusdt@ticker"})") << "";
    QTest::newRow("data not an object")
            << QByteArray(R"({"stream":"btcusdt@ticker","data":[]})") << "";
    QTest::newRow("subscribe reply") << QByteArray(R"({"result":null,"id":1})") << "";
    QTest::newRow("bare payload")
            << QByteArray(R"({"e":"trade","s":"BNBBTC","p":"0.001","q":"100","c":"1"})") << "";
    QTest::newRow("empty s, no stream") << QByteArray(R"({"data":{"s":"","p":"1","c":"1"}})") << "";
    QTest::newRow("prices as bool and null")
            << QByteArray(R"({"stream":"btcusdt@x","data":{"s":7,"c":true,"p":null}})")
            << "BTCUSDT";
    QTest::newRow("prices NaN and 1e999")
            << QByteArray(R"({"stream":"x@y","data":{"s":"BTCUSDT","c":"NaN","p":"1e999"}})")
            << "BTCUSDT";
    QTest::newRow("prices zero and negative")
            << QByteArray(R"({"stream":"ethusdt@x","data":{"c":"0.00000000","p":"-1"}})")
            << "ETHUSDT";
    QTest::newRow("prices as objects")
            << QByteArray(R"({"stream":"ethusdt@x","data":{"c":{},"p":["1"]}})") << "ETHUSDT";
}

// Every frame here has no usable price; depth frames need only the symbol.
void BinanceFramesTest::unusableFramesGiveNothing()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, symbol);

    QCOMPARE(binanceFrameSymbol(frame), symbol);
    QVERIFY(!readTickerFrame(frame));
    QVERIFY(!readTradeFrame(frame));
    QCOMPARE(readDepthFrame(frame).has_value(), !symbol.isEmpty());
}

// Ticker and trade frames are read by a scan that hands anything unusual to the full parse: each
// frame here must read exactly as the full parse reads it.
void BinanceFramesTest::scanAgreesWithFullParse_data()
{
    QTest::addColumn<QByteArray>("frame");
    const char *frames[][2] = {
            {"live ticker", kTicker},
            {"spaces everywhere",
             " {\n \"stream\" : \"btcusdt@trade\" ,\r\n\t\"data\": { \"s\" : "
             "\"BTCUSDT\" , \"c\":\"1.5\", \"p\": 2 , \"q\": \"3\" , \"T\" : 17 , "
             "\"m\" : true , \"P\": \"-0.5\" } } \n"},
            {"escaped key spelling c",
             R"({"stream":"btcusdt@ticker","data":{"\u0063":"7","P":"1"}})"},
            {"escaped symbol",
             R"({"stream":"btcusdt@ticker","data":{"s":"BTC\u0055SDT","c":"7"}})"},
            {"escape elsewhere",
             R"({"stream":"btcusdt@ticker","data":{"e":"a\"b","c":"7","n":[1,{"x":"\n"}]}})"},
            {"non-ASCII elsewhere",
             "{\"stream\":\"btcusdt@ticker\",\"data\":{\"e\":\"\xc3\xa9\",\"c\":\"7\"}}"},
            {"wanted key twice", R"({"stream":"btcusdt@ticker","data":{"c":"7","c":"8"}})"},
            {"data twice", R"({"stream":"btcusdt@ticker","data":{"c":"7"},"data":{"c":"8"}})"},
            {"deep nesting",
             R"({"stream":"btcusdt@ticker","data":{"x":[[[[[[[[[[1]]]]]]]]]],"c":"7"}})"},
            {"exponents and signs",
             R"({"stream":"btcusdt@trade","data":{"p":"1.5E+3","q":-2e-2,"T":1.7e12,"c":"1e2","P":"-0"}})"},
            {"strings a full parse still reads",
             R"({"stream":"btcusdt@trade","data":{"p":"+12","q":" 3","c":".5","P":"5."}})"},
            {"number out of range elsewhere",
             R"({"stream":"btcusdt@ticker","data":{"t":23e456,"c":5}})"},
            {"leading zero", R"({"stream":"btcusdt@trade","data":{"p":01,"c":"1"}})"},
            {"huge time", R"({"stream":"btcusdt@trade","data":{"p":"1","T":9000000000000000001}})"},
            {"time out of range",
             R"({"stream":"btcusdt@trade","data":{"p":"1","T":99999999999999999999}})"},
            {"time as text", R"({"stream":"btcusdt@trade","data":{"p":"1","T":"1733498426037"}})"},
            {"tiny and huge prices",
             R"({"stream":"btcusdt@trade","data":{"p":"4e-320","c":"1e400"}})"},
            {"stream without @", R"({"stream":"btcusdt","data":{"c":"1","p":"1"}})"},
            {"garbage after", R"({"stream":"btcusdt@ticker","data":{"c":"1"}} x)"},
            {"truncated", R"({"stream":"btcusdt@ticker","data":{"c":"1")"},
            {"control character in a string",
             "{\"stream\":\"btc\tusdt@x\",\"data\":{\"c\":\"1\"}}"},
            {"top-level array", R"([{"stream":"btcusdt@ticker","data":{"c":"1"}}])"},
            {"spot depth", kSpotDepth},
            {"short-key depth", kShortKeyDepth},
            {"depth of numbers, spaced",
             R"({"stream":"x@depth","data":{"bids":[ [ 1.5 , 2 ] ,[3,"4"]],"asks":[]}})"},
            {"depth pairs of three and one",
             R"({"stream":"x@depth","data":{"bids":[["1","2","3"],["4"]],"asks":[["5","6"]]}})"},
            {"depth entries not pairs",
             R"({"stream":"x@depth","data":{"bids":["1",{"p":"2"},null,[true,"1"]],"asks":[["5","6"]]}})"},
            {"depth with an escaped price",
             R"({"stream":"x@depth","data":{"bids":[["1\u0030","2"]],"asks":[["5\"","6"]]}})"},
            {"depth sides not arrays",
             R"({"stream":"x@depth","data":{"bids":{"0":["1","2"]},"asks":"5","b":[["7","8"]]}})"},
            {"empty", ""},
    };
    for (const auto &frame : frames)
        QTest::newRow(frame[0]) << QByteArray(frame[1]);
}

void BinanceFramesTest::scanAgreesWithFullParse()
{
    QFETCH(QByteArray, frame);
    const auto ticker = readTickerFrame(frame);
    const auto tickerParsed = readTickerFrameParsed(frame);
    QCOMPARE(ticker.has_value(), tickerParsed.has_value());
    if (ticker) {
        QCOMPARE(ticker->symbol, tickerParsed->symbol);
        QVERIFY(sameNumber(ticker->price, tickerParsed->price));
        QVERIFY(sameNumber(ticker->changePercent, tickerParsed->changePercent));
    }
    const auto depth = readDepthFrame(frame);
    const auto depthParsed = readDepthFrameParsed(frame);
    QCOMPARE(depth.has_value(), depthParsed.has_value());
    if (depth) {
        QCOMPARE(depth->symbol, depthParsed->symbol);
        for (const auto &[side, parsed] : {std::pair{depth->sides.bids, depthParsed->sides.bids},
                                           std::pair{depth->sides.asks, depthParsed->sides.asks}}) {
            QCOMPARE(side.size(), parsed.size());
            for (qsizetype i = 0; i < side.size(); ++i) {
                QVERIFY(sameNumber(side[i].price, parsed[i].price));
                QVERIFY(sameNumber(side[i].quantity, parsed[i].quantity));
                QCOMPARE(side[i].complete, parsed[i].complete);
            }
        }
    }
    const auto trade = readTradeFrame(frame);
    const auto tradeParsed = readTradeFrameParsed(frame);
    QCOMPARE(trade.has_value(), tradeParsed.has_value());
    if (trade) {
        QCOMPARE(trade->symbol, tradeParsed->symbol);
        QVERIFY(sameNumber(trade->price, tradeParsed->price));
        QVERIFY(sameNumber(trade->quantity, tradeParsed->quantity));
        QCOMPARE(trade->timeMs, tradeParsed->timeMs);
        QCOMPARE(trade->buyerIsMaker, tradeParsed->buyerIsMaker);
    }
}

void BinanceFramesTest::snapshotReadsOnlyFullKeys()
{
    const DepthSides rest = readDepthSnapshot(R"({"lastUpdateId":1027024,
        "bids":[["4.00000000","431.00000000"]],"asks":[["4.00000200","12.00000000"]]})");
    QCOMPARE(rest.bids.size(), 1);
    QCOMPARE(rest.asks.first().price, 4.000002);
    QCOMPARE(rest.bids.first().quantity, 431.0);

    const DepthSides shortKeys = readDepthSnapshot(R"({"b":[["4","1"]],"a":[["5","1"]]})");
    QVERIFY(shortKeys.bids.isEmpty() && shortKeys.asks.isEmpty());
    QVERIFY(readDepthSnapshot(R"({"code":-1121,"msg":"Invalid symbol."})").bids.isEmpty());
    QVERIFY(readDepthSnapshot("[[\"4\",\"1\"]]").asks.isEmpty());
}

void BinanceFramesTest::streamUrlsKeepTheirSeparators()
{
    qunsetenv("QRL_ENDPOINT_BINANCE_STREAM");
    const QUrl ticker = binanceTickerStreamUrl({"BTCUSDT", "ethusdt"});
    QCOMPARE(ticker.toEncoded(),
             "wss://stream.binance.com:9443/stream?streams=btcusdt@ticker/ethusdt@ticker");
    QCOMPARE(ticker.path(), "/stream");
    QCOMPARE(ticker.query(QUrl::FullyEncoded), "streams=btcusdt@ticker/ethusdt@ticker");
    QVERIFY(binanceTickerStreamUrl({}).isEmpty());

    qputenv("QRL_ENDPOINT_BINANCE_STREAM", "ws://127.0.0.1:8765");
    QCOMPARE(binanceDepthStreamUrl("SOLUSDT").toEncoded(),
             "ws://127.0.0.1:8765/stream?streams=solusdt@depth20@100ms");
    QCOMPARE(binanceTradeStreamUrl("BTCUSDT").toString(),
             "ws://127.0.0.1:8765/stream?streams=btcusdt@trade");
    qunsetenv("QRL_ENDPOINT_BINANCE_STREAM");
}

void BinanceFramesTest::universeKeepsTradingUsdtPairs()
{
    const CryptoUniverse universe = readCryptoUniverse(R"({"timezone":"UTC","symbols":[
        {"symbol":"ETHBTC","status":"TRADING","baseAsset":"ETH","quoteAsset":"BTC"},
        {"symbol":"BTCUSDT","status":"TRADING","baseAsset":"BTC","quoteAsset":"USDT","opoAllowed":true},
        {"symbol":"LUNAUSDT","status":"BREAK","baseAsset":"LUNA","quoteAsset":"USDT"},
        {"symbol":"ETHUSDT","status":"TRADING","baseAsset":"ETH","quoteAsset":"USDT"},
        {"symbol":"ADAUSDT","status":"trading","baseAsset":"ADA","quoteAsset":"USDT"},
        {"symbol":"BTCUSDT","status":"TRADING","baseAsset":"BTC","quoteAsset":"USDT"},
        {"symbol":"这是测试币USDT","status":"TRADING","baseAsset":"这是测试币","quoteAsset":"USDT"},
        {"symbol":"XUSDT","status":"TRADING","quoteAsset":"USDT"}, 7]})");
    QCOMPARE(universe.pairs,
             QStringList({"BTCUSDT", "ETHUSDT", "BTCUSDT", "这是测试币USDT", "XUSDT"}));
    QCOMPARE(universe.baseAssets, QStringList({"BTC", "ETH", "这是测试币"}));

    QVERIFY(readCryptoUniverse(R"({"symbols":)").pairs.isEmpty());
    QVERIFY(readCryptoUniverse(R"({"symbols":{"symbol":"BTCUSDT"}})").pairs.isEmpty());
}

QTEST_GUILESS_MAIN(BinanceFramesTest)
#include "tst_binance_frames.moc"
