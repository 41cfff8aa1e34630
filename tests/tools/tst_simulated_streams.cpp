#include "simulated_market/simulated_market.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QSignalSpy>
#include <QTest>
#include <QWebSocket>

#include <cmath>
#include <functional>
#include <memory>

// The simulated market's Binance streams, over a real WebSocket on loopback.
namespace {

struct StreamClient
{
    QWebSocket socket;
    QList<QByteArray> frames;

    StreamClient()
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived,
                         [this](const QString &frame) { frames.append(frame.toUtf8()); });
    }

    bool open(const QString &url)
    {
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(QUrl(url));
        return connected.wait(3000);
    }

    static bool waitUntil(const std::function<bool()> &done) { return QTest::qWaitFor(done, 3000); }

    bool closed() const { return socket.state() == QAbstractSocket::UnconnectedState; }

    // The data of every frame of that stream, in order.
    QList<QJsonObject> data(const QString &stream) const
    {
        QList<QJsonObject> found;
        for (const QByteArray &frame : frames) {
            const QJsonObject envelope = QJsonDocument::fromJson(frame).object();
            if (envelope["stream"].toString() == stream)
                found.append(envelope["data"].toObject());
        }
        return found;
    }
};

// A finite number written as a string, as the exchange writes prices and quantities.
bool isNumberText(const QJsonValue &value)
{
    bool ok = false;
    const double number = value.toString().toDouble(&ok);
    return value.isString() && ok && std::isfinite(number);
}

// Whether a frame reads as the exchange writes it: an envelope around a data object whose prices
// and quantities are finite numbers in strings, and book levels of two of them.
bool readable(const QByteArray &frame)
{
    const QJsonDocument document = QJsonDocument::fromJson(frame);
    if (!document.isObject() || !document["stream"].isString() || !document["data"].isObject())
        return false;
    const QString stream = document["stream"].toString();
    const QJsonObject data = document["data"].toObject();
    if (stream.contains("@depth")) {
        for (const char *side : {"bids", "asks"}) {
            for (const QJsonValue &level : data[side].toArray()) {
                const QJsonArray pair = level.toArray();
                if (pair.size() != 2 || !isNumberText(pair[0]) || !isNumberText(pair[1]))
                    return false;
            }
        }
        return data["bids"].isArray() && data["asks"].isArray();
    }
    const QStringList keys = stream.endsWith("@trade")
                                     ? QStringList{"p", "q"}
                                     : QStringList{"p", "w", "x", "c", "Q", "b", "B",
                                                   "a", "A", "o", "h", "l", "v", "q"};
    return std::all_of(keys.cbegin(), keys.cend(),
                       [&data](const QString &key) { return isNumberText(data[key]); });
}

// How a broken depth frame is broken.
QString brokenWay(const QByteArray &frame)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(frame, &error);
    if (error.error != QJsonParseError::NoError)
        return "cut";
    if (!document["data"].isObject())
        return "no data";
    const QJsonArray bestBid = document["data"]["bids"][0].toArray();
    if (bestBid.size() == 1)
        return "one element";
    if (bestBid[0].isDouble())
        return "numbers";
    if (!isNumberText(bestBid[0]))
        return "not finite";
    return "readable";
}

// Prices written with eight decimals.
} // namespace

class SimulatedStreamsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void streamsCarryEachKindInTheRealShape();
    void subscribeMessagesChangeTheStreams();
    void tradeRateSwingsBetweenQuietAndBursts();
    void closeFaultDropsEveryStream();
    void silentFaultSendsNothing();
    void garbageFaultSendsUnreadableFrames();
    void shortDepthFaultCutsTheAsks();

private:
    qint64 m_nowMs = 1731600000000; // the market's clock, moved by hand
    std::unique_ptr<SimulatedMarket> m_market;
};

void SimulatedStreamsTest::initTestCase()
{
    m_market = std::make_unique<SimulatedMarket>(42, [this] { return m_nowMs; });
    QVERIFY(m_market->listen(0));
    QVERIFY(m_market->listenStreams(0));
    // Ticks of 5 ms play the streams twenty times faster than the exchange.
    m_market->streams().setTickInterval(5);
}

void SimulatedStreamsTest::cleanup()
{
    QVERIFY(m_market->applyFault("all=none").isEmpty());
}

void SimulatedStreamsTest::streamsCarryEachKindInTheRealShape()
{
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() +
                        "/stream?streams=btcusdt@ticker/ethusdt@ticker/btcusdt@depth20@100ms/"
                        "ethusdt@trade/nopeusdt@ticker/btcusdt@candles/btcupusdt@trade"));
    QVERIFY(client.waitUntil([&client] {
        return client.data("btcusdt@ticker").size() >= 2 &&
               client.data("ethusdt@ticker").size() >= 2 &&
               client.data("ethusdt@trade").size() >= 30;
    }));

    // Nothing for an unlisted pair, an unknown kind or a halted pair.
    QSet<QString> streams;
    for (const QByteArray &frame : std::as_const(client.frames)) {
        QVERIFY2(readable(frame), frame.constData());
        streams.insert(QJsonDocument::fromJson(frame)["stream"].toString());
    }
    QCOMPARE(streams, QSet<QString>({"btcusdt@ticker", "ethusdt@ticker", "btcusdt@depth20@100ms",
                                     "ethusdt@trade"}));

    QStringList tickerKeys{"e", "E", "s", "p", "P", "w", "x", "c", "Q", "b", "B", "a",
                           "A", "o", "h", "l", "v", "q", "O", "C", "F", "L", "n"};
    tickerKeys.sort(); // as QJsonObject lists them
    const PriceWalk &walk = m_market->prices();
    for (const char *symbol : {"BTCUSDT", "ETHUSDT"}) {
        const QJsonObject ticker = client.data(QString(symbol).toLower() + "@ticker").last();
        QCOMPARE(ticker.keys(), tickerKeys);
        QCOMPARE(ticker["e"], "24hrTicker");
        QCOMPARE(ticker["s"], symbol);
        QCOMPARE(ticker["E"].toInteger(), m_nowMs);
        for (const char *key : {"O", "C", "F", "L", "n"})
            QVERIFY2(ticker[key].isDouble(), key);
        const double last = ticker["c"].toString().toDouble();
        QVERIFY(std::abs(last / walk.price(symbol, walk.currentStep()) - 1.0) < 1e-3);
    }

    // The real spot shape: no event type, time or symbol, twenty levels a side, ids rising.
    qint64 lastUpdateId = 0;
    for (const QJsonObject &depth : client.data("btcusdt@depth20@100ms")) {
        QCOMPARE(depth.keys(), QStringList({"asks", "bids", "lastUpdateId"}));
        QCOMPARE(depth["bids"].toArray().size(), 20);
        QCOMPARE(depth["asks"].toArray().size(), 20);
        QVERIFY(depth["lastUpdateId"].toInteger() > lastUpdateId);
        lastUpdateId = depth["lastUpdateId"].toInteger();
    }

    // Trades without the order ids, one after another, from both sides.
    const QList<QJsonObject> trades = client.data("ethusdt@trade");
    QSet<bool> makers;
    for (qsizetype i = 0; i < trades.size(); ++i) {
        QCOMPARE(trades[i].keys(), QStringList({"E", "M", "T", "e", "m", "p", "q", "s", "t"}));
        QCOMPARE(trades[i]["s"], "ETHUSDT");
        QVERIFY(trades[i]["E"].toInteger() >= trades[i]["T"].toInteger());
        if (i > 0)
            QCOMPARE(trades[i]["t"].toInteger(), trades[i - 1]["t"].toInteger() + 1);
        makers.insert(trades[i]["m"].toBool());
    }
    QCOMPARE(makers.size(), 2);
}

void SimulatedStreamsTest::subscribeMessagesChangeTheStreams()
{
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() + "/stream"));
    client.socket.sendTextMessage(
            R"({"method":"SUBSCRIBE","params":["solusdt@depth5@100ms","solusdt@depth5@100ms"],"id":1})");
    client.socket.sendTextMessage(R"({"method":"LIST_SUBSCRIPTIONS","id":"two"})");
    client.socket.sendTextMessage("{oops");
    // The replies carry no stream name; frames may come between them.
    const auto replies = [&client] {
        QList<QByteArray> found;
        for (const QByteArray &frame : std::as_const(client.frames)) {
            if (!frame.startsWith(R"({"stream")"))
                found.append(frame);
        }
        return found;
    };
    QVERIFY(client.waitUntil([&] {
        return client.data("solusdt@depth5@100ms").size() >= 2 && replies().size() >= 3;
    }));
    QCOMPARE(replies().size(), 3);
    QCOMPARE(replies()[0], R"({"result":null,"id":1})");
    QCOMPARE(replies()[1], R"({"result":["solusdt@depth5@100ms"],"id":"two"})");
    QCOMPARE(QJsonDocument::fromJson(replies()[2])["code"], 3);
    QCOMPARE(client.data("solusdt@depth5@100ms").last()["asks"].toArray().size(), 5);

    client.socket.sendTextMessage(
            R"({"method":"UNSUBSCRIBE","params":["solusdt@depth5@100ms"],"id":3})");
    QVERIFY(client.waitUntil(
            [&client] { return client.frames.contains(R"({"result":null,"id":3})"); }));
    const qsizetype after = client.frames.size();
    QTest::qWait(50); // ten ticks
    QCOMPARE(client.frames.size(), after);
}

void SimulatedStreamsTest::tradeRateSwingsBetweenQuietAndBursts()
{
    const BinancePair &pair = *m_market->binance().find("BTCUSDT");
    const PriceWalk &walk = m_market->prices();
    double quietest = 1e9;
    double busiest = 0.0;
    qsizetype mostInATick = 0;
    for (quint64 tick = 0; tick < 20000; tick += 7) {
        quietest = std::min(quietest, binanceTradeRate(pair, tick));
        busiest = std::max(busiest, binanceTradeRate(pair, tick));
        mostInATick = std::max(mostInATick, binanceTrades(walk, pair, 0, tick, 1, 0, 100).size());
    }
    QVERIFY2(quietest < 10.0 && busiest > 200.0,
             qPrintable(QString("%1 to %2 a second").arg(quietest).arg(busiest)));
    QVERIFY(mostInATick >= 20);
}

void SimulatedStreamsTest::closeFaultDropsEveryStream()
{
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() + "/stream?streams=btcusdt@depth20@100ms"));
    QVERIFY(client.waitUntil([&client] { return !client.frames.isEmpty(); }));
    QVERIFY(m_market->applyFault("binance_ws=close").isEmpty());
    QVERIFY(client.waitUntil([&client] { return client.closed(); }));
    QCOMPARE(client.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);

    // A new connection is closed as soon as it opens, until the fault is cleared.
    StreamClient again;
    QVERIFY(again.open(m_market->streamBaseUrl() + "/stream?streams=btcusdt@depth20@100ms"));
    QVERIFY(again.waitUntil([&again] { return again.closed(); }));
    QVERIFY(again.frames.isEmpty());
    QCOMPARE(m_market->applyFault("binance_ws=none"), QString());
    StreamClient after;
    QVERIFY(after.open(m_market->streamBaseUrl() + "/stream?streams=btcusdt@depth20@100ms"));
    QVERIFY(after.waitUntil([&after] { return !after.frames.isEmpty(); }));
}

void SimulatedStreamsTest::silentFaultSendsNothing()
{
    QCOMPARE(m_market->applyFault("binance_ws=silent"), QString());
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() +
                        "/stream?streams=btcusdt@depth20@100ms/btcusdt@trade"));
    client.socket.sendTextMessage(R"({"method":"LIST_SUBSCRIPTIONS","id":1})");
    QTest::qWait(100); // twenty ticks
    QVERIFY(client.frames.isEmpty());
    QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(m_market->applyFault("binance_ws=none"), QString());
    QVERIFY(client.waitUntil([&client] { return !client.frames.isEmpty(); }));
}

void SimulatedStreamsTest::garbageFaultSendsUnreadableFrames()
{
    QCOMPARE(m_market->applyFault("binance_ws=garbage"), QString());
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() +
                        "/stream?streams=btcusdt@depth20@100ms/btcusdt@ticker/btcusdt@trade"));
    // Each stream breaks in the next way every time: five depth frames show them all.
    const auto depthFrames = [&client] {
        return std::count_if(client.frames.cbegin(), client.frames.cend(),
                             [](const QByteArray &frame) { return frame.contains("@depth20"); });
    };
    QVERIFY(client.waitUntil([&] { return depthFrames() >= 5 && client.frames.size() >= 30; }));
    QSet<QString> ways;
    for (const QByteArray &frame : std::as_const(client.frames)) {
        QVERIFY2(!readable(frame), frame.constData());
        if (frame.contains("@depth20@100ms"))
            ways.insert(brokenWay(frame));
    }
    QCOMPARE(ways, QSet<QString>({"cut", "no data", "one element", "numbers", "not finite"}));
}

void SimulatedStreamsTest::shortDepthFaultCutsTheAsks()
{
    QCOMPARE(m_market->applyFault("binance_ws=short_depth"), QString());
    StreamClient client;
    QVERIFY(client.open(m_market->streamBaseUrl() + "/stream?streams=ethusdt@depth20@100ms"));
    QVERIFY(client.waitUntil([&client] { return client.frames.size() >= 3; }));
    for (const QJsonObject &depth : client.data("ethusdt@depth20@100ms")) {
        QCOMPARE(depth["bids"].toArray().size(), 20);
        QCOMPARE(depth["asks"].toArray().size(), 3);
    }
}

QTEST_GUILESS_MAIN(SimulatedStreamsTest)
#include "tst_simulated_streams.moc"
