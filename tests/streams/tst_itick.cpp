#include "streams/itick_frames.h"
#include "streams/itick_session.h"
#include "support/fake_websocket_server.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {

// One side of a depth frame: `count` levels priced from `price` down, positions 1, 2, ...
QByteArray levels(int count, double price = 190.0)
{
    QByteArray side = "[";
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            side += ',';
        side += QStringLiteral(R"({"po":%1,"p":%2,"v":%3,"o":1})")
                        .arg(i + 1)
                        .arg(price - i * 0.01)
                        .arg(100 + i)
                        .toUtf8();
    }
    return side + "]";
}

// The service's own shape: `type` inside `data`, `s` with the region.
QByteArray depthFrame(const QString &code, int bids, int asks)
{
    return R"({"code":1,"data":{"s":")" + code.toUtf8() + R"(","b":)" + levels(bids) + R"(,"a":)" +
           levels(asks, 190.05) + R"(,"type":"depth"}})";
}

QByteArray fullDepth(const QString &code = QStringLiteral("AAPL.US"))
{
    return depthFrame(code, 5, 5);
}

} // namespace

class TestItick : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void messagesAreCompactObjects();
    void framesAreClassified_data();
    void framesAreClassified();
    void depthLevels_data();
    void depthLevels();
    void quoteFieldsAreRead();

    void connectSendsTokenHeaderThenAuthThenSubscribe();
    void fullLadderIsReportedAndOtherSymbolsIgnored();
    void triggersRetryWithDoublingDelaysThenFallBack();
    void fullLadderResetsRetriesAndStopsRetrying();
    void garbageFramesAreIgnored();
    void missingKeyFallsBackAtOnce();

private:
    FakeWebSocketServer *m_server = nullptr;
};

void TestItick::init()
{
    delete m_server;
    m_server = new FakeWebSocketServer(this);
    QVERIFY(m_server->listen());
    m_server->serveEveryStreamEndpoint();
}

void TestItick::messagesAreCompactObjects()
{
    QCOMPARE(itickAuthMessage(QStringLiteral("k1")), R"({"ac":"auth","token":"k1"})");
    const QJsonObject subscribe =
            QJsonDocument::fromJson(itickSubscribeMessage(QStringLiteral(" aapl"))).object();
    QCOMPARE(subscribe.value("params").toString(), QStringLiteral("AAPL$US"));
    QCOMPARE(subscribe.value("types").toString(), QStringLiteral("depth,quote"));
    QCOMPARE(itickPingMessage(1731688569840), R"({"ac":"ping","params":"1731688569840"})");
    QCOMPARE(itickStreamUrl().toString(), m_server->baseUrl() + QStringLiteral("/stock"));
}

void TestItick::framesAreClassified_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("symbol");

    const auto row = [](const char *name, const QByteArray &frame, ItickFrameKind kind, bool ok,
                        const QString &symbol = {}) {
        QTest::newRow(name) << frame << int(kind) << ok << symbol;
    };
    row("greeting", R"({"code":1,"msg":"Connected Successfully"})", ItickFrameKind::Connected,
        true);
    row("auth ok, token echoed",
        R"({"code":1,"resAc":"auth","msg":"authenticated","data":{"params":"secret"}})",
        ItickFrameKind::AuthReply, true);
    row("auth refused", R"({"code":0,"resAc":"auth","msg":"auth failed"})",
        ItickFrameKind::AuthReply, false);
    row("subscribe ok", R"({"code":1,"resAc":"subscribe","msg":"subscribe Successfully"})",
        ItickFrameKind::SubscribeReply, true);
    row("subscribe limit",
        R"({"code":0,"resAc":"subscribe","msg":"exceeding the maximum subscription limit"})",
        ItickFrameKind::SubscribeReply, false);
    row("pong", R"({"resAc":"pong","data":{"params":"1731688569840"}})", ItickFrameKind::Pong,
        true);
    row("type inside data", fullDepth(), ItickFrameKind::Depth, true, "AAPL");
    row("type at the top", R"({"type":"depth","data":{"s":"MSFT","b":[],"a":[]}})",
        ItickFrameKind::Depth, false, "MSFT");
    row("quote with $ region", R"({"type":"quote","data":{"s":"tsla$US","ld":1}})",
        ItickFrameKind::Quote, false, "TSLA");
    row("depth without symbol", R"({"code":1,"data":{"type":"depth","b":[]}})",
        ItickFrameKind::Other, true);
    row("kline: code 0 without type",
        R"({"code":0,"msg":null,"data":{"s":"AAPL.US","t":1,"k":{"c":1}}})", ItickFrameKind::Other,
        false);
    row("error", R"({"code":0,"msg":"not found this produce"})", ItickFrameKind::Error, false);
    row("code as text", R"({"code":"1","resAc":"auth"})", ItickFrameKind::AuthReply, true);
    row("array", "[1,2]", ItickFrameKind::Unreadable, false);
    row("cut short", R"({"code":1,"data":{"s":"AAPL.US","b":[{"po":1)", ItickFrameKind::Unreadable,
        false);
    row("binary noise", QByteArray("\x00\xff{\"", 4), ItickFrameKind::Unreadable, false);
}

void TestItick::framesAreClassified()
{
    QFETCH(QByteArray, frame);
    const ItickFrame read = readItickFrame(frame);
    QTEST(int(read.kind), "kind");
    QTEST(read.ok, "ok");
    QTEST(read.symbol, "symbol");
    QVERIFY(!read.message.contains(QStringLiteral("secret")));
}

void TestItick::depthLevels_data()
{
    QTest::addColumn<QByteArray>("bids");
    QTest::addColumn<QList<double>>("prices");
    QTest::addColumn<QList<int>>("positions");

    QTest::newRow("beyond five ignored")
            << levels(8) << QList<double>{190, 189.99, 189.98, 189.97, 189.96}
            << QList<int>{1, 2, 3, 4, 5};
    QTest::newRow("numbers as text") << QByteArray(R"([{"po":"2","p":"10.5","v":"3"}])")
                                     << QList<double>{10.5} << QList<int>{2};
    QTest::newRow("unreadable, zero and missing prices dropped")
            << QByteArray(R"([{"p":"x","v":1},{"p":0,"v":1},{"v":1},{"p":9,"v":null},7,)"
                          R"({"p":8,"v":1},{"p":7,"v":2}])")
            << QList<double>{8, 7} << QList<int>{1, 2};
    QTest::newRow("hundreds of unusable levels bounded") << [] {
        QByteArray side = "[";
        for (int i = 0; i < 500; ++i)
            side += R"({"p":0,"v":1},)";
        return side + levels(5) + "]";
    }() << QList<double>{} << QList<int>{};
}

void TestItick::depthLevels()
{
    QFETCH(QByteArray, bids);
    QFETCH(QList<double>, prices);
    QFETCH(QList<int>, positions);
    const ItickFrame frame =
            readItickFrame(R"({"type":"depth","data":{"s":"AAPL","b":)" + bids + R"(,"a":[]}})");
    QCOMPARE(frame.kind, ItickFrameKind::Depth);
    QList<double> readPrices;
    QList<int> readPositions;
    for (const Level2Level &level : frame.book.bids) {
        readPrices.append(level.price);
        readPositions.append(level.position);
    }
    QCOMPARE(readPrices, prices);
    QCOMPARE(readPositions, positions);
}

void TestItick::quoteFieldsAreRead()
{
    const ItickFrame frame = readItickFrame(
            R"({"code":1,"data":{"s":"AAPL.US","ld":225.215,"o":226.27,"h":226.92,"l":224.44,)"
            R"("t":1731689407000,"v":16742235,"tu":"3774688301.452","ts":0,"type":"quote"}})");
    QCOMPARE(frame.kind, ItickFrameKind::Quote);
    QCOMPARE(frame.quote.last, 225.215);
    QCOMPARE(frame.quote.low, 224.44);
    QCOMPARE(frame.quote.turnover, 3774688301.452);
    QCOMPARE(frame.quote.timeMs, 1731689407000);
}

void TestItick::connectSendsTokenHeaderThenAuthThenSubscribe()
{
    ItickSession session;
    session.setKey(QStringLiteral("key-é"));
    QSignalSpy connecting(&session, &ItickSession::connecting);
    session.start(QStringLiteral("aapl"));
    QVERIFY(m_server->waitForMessages(2));
    QCOMPARE(m_server->requestedPaths(), QStringList{QStringLiteral("/stock")});
    QCOMPARE(m_server->lastRequestHeader("token"), QStringLiteral("key-é").toUtf8());
    const QStringList messages = m_server->receivedMessages();
    QCOMPARE(messages.at(0).toUtf8(), itickAuthMessage(QStringLiteral("key-é")));
    QCOMPARE(messages.at(1).toUtf8(), itickSubscribeMessage(QStringLiteral("AAPL")));
    QCOMPARE(connecting.size(), 1);
    QVERIFY(session.isDepthPending());

    session.pingDue();
    QVERIFY(m_server->waitForMessages(3));
    QCOMPARE(readItickFrame(m_server->receivedMessages().at(2).toUtf8()).kind,
             ItickFrameKind::Other);
    QVERIFY(m_server->receivedMessages().at(2).contains(QStringLiteral("\"ping\"")));
}

void TestItick::fullLadderIsReportedAndOtherSymbolsIgnored()
{
    QTimer depth;
    ItickSession session({nullptr, &depth, nullptr});
    session.setKey(QStringLiteral("k"));
    QSignalSpy books(&session, &ItickSession::level2Book);
    QSignalSpy quotes(&session, &ItickSession::quote);
    session.start(QStringLiteral("AAPL"));
    QVERIFY(m_server->waitForMessages(2));
    QVERIFY(depth.isActive());

    m_server->sendText(QString::fromUtf8(fullDepth(QStringLiteral("MSFT.US"))));
    m_server->sendText(R"({"type":"quote","data":{"s":"AAPL","ld":190.02}})");
    m_server->sendText(QString::fromUtf8(depthFrame(QStringLiteral("AAPL.US"), 9, 6)));
    QVERIFY(books.wait());
    QCOMPARE(books.size(), 1);
    QCOMPARE(quotes.size(), 1);
    const auto book = books.first().at(1).value<Level2Book>();
    QCOMPARE(book.bids.size(), kItickLevels);
    QCOMPARE(book.asks.size(), kItickLevels);
    QVERIFY(session.isDepthValid());
    QVERIFY(!depth.isActive());
}

void TestItick::triggersRetryWithDoublingDelaysThenFallBack()
{
    QTimer retryTimer;
    ItickSession session({nullptr, nullptr, &retryTimer});
    session.setKey(QStringLiteral("k"));
    QSignalSpy fallbacks(&session, &ItickSession::fallbackToLevel1);
    QSignalSpy events(&session, &ItickSession::event);
    session.start(QStringLiteral("AAPL"));
    QVERIFY(m_server->waitForConnections(1));

    QList<int> delays;
    for (int attempt = 1; attempt <= ItickSession::kMaxRetries; ++attempt) {
        if (attempt == 1) {
            session.depthTimedOut();
        } else {
            // A short ladder counts as a trigger as well.
            QVERIFY(m_server->waitForOpenConnections(1));
            m_server->sendText(QString::fromUtf8(depthFrame(QStringLiteral("AAPL.US"), 6, 4)));
            QTRY_VERIFY(retryTimer.isActive());
        }
        QVERIFY(retryTimer.isActive());
        delays.append(retryTimer.interval());
        QCOMPARE(session.retryCount(), attempt);
        session.retryDue();
        QVERIFY(m_server->waitForConnections(attempt + 1));
    }
    QCOMPARE(delays, (QList<int>{1000, 2000, 4000}));
    QCOMPARE(events.size(), 3);
    QVERIFY(fallbacks.isEmpty());

    session.depthTimedOut();
    QCOMPARE(fallbacks.size(), 1);
    QVERIFY(fallbacks.first().at(1).toString().endsWith(QStringLiteral("; retries exhausted")));
    QVERIFY(!retryTimer.isActive());
}

void TestItick::fullLadderResetsRetriesAndStopsRetrying()
{
    QTimer retryTimer;
    ItickSession session({nullptr, nullptr, &retryTimer});
    session.setKey(QStringLiteral("k"));
    QSignalSpy books(&session, &ItickSession::level2Book);
    QSignalSpy fallbacks(&session, &ItickSession::fallbackToLevel1);
    session.start(QStringLiteral("AAPL"));
    QVERIFY(m_server->waitForConnections(1));
    session.depthTimedOut();
    session.retryDue();
    QVERIFY(m_server->waitForConnections(2));
    session.depthTimedOut();
    QCOMPARE(session.retryCount(), 2);
    session.retryDue();
    QVERIFY(m_server->waitForConnections(3));
    QVERIFY(m_server->waitForOpenConnections(1));

    m_server->sendText(QString::fromUtf8(fullDepth()));
    QVERIFY(books.wait());
    QCOMPARE(session.retryCount(), 0);

    m_server->closeAll(QWebSocketProtocol::CloseCodeGoingAway);
    QVERIFY(m_server->waitForOpenConnections(0));
    session.depthTimedOut();
    QVERIFY(!retryTimer.isActive());
    QVERIFY(fallbacks.isEmpty());

    // A new start begins the ladder of delays again.
    session.start(QStringLiteral("AAPL"));
    session.depthTimedOut();
    QCOMPARE(retryTimer.interval(), 1000);
}

void TestItick::garbageFramesAreIgnored()
{
    ItickSession session;
    session.setKey(QStringLiteral("k"));
    QSignalSpy books(&session, &ItickSession::level2Book);
    QSignalSpy fallbacks(&session, &ItickSession::fallbackToLevel1);
    session.start(QStringLiteral("AAPL"));
    QVERIFY(m_server->waitForMessages(2));
    m_server->sendTexts({QStringLiteral("not json"), QStringLiteral("{\"data\":7}"),
                         QStringLiteral("{\"type\":\"depth\",\"data\":{\"b\":5}}"),
                         QStringLiteral("{\"code\":0,\"msg\":\"cannot be resolved action\"}"),
                         QString::fromUtf8(fullDepth())});
    QVERIFY(books.wait());
    QCOMPARE(books.size(), 1);
    QCOMPARE(session.retryCount(), 0);
    QVERIFY(fallbacks.isEmpty());
}

void TestItick::missingKeyFallsBackAtOnce()
{
    ItickSession session;
    QSignalSpy fallbacks(&session, &ItickSession::fallbackToLevel1);
    session.start(QStringLiteral("AAPL"));
    QCOMPARE(fallbacks.size(), 1);
    QCOMPARE(fallbacks.first().at(0).toString(), QStringLiteral("AAPL"));
    QCOMPARE(m_server->connectionCount(), 0);
}

QTEST_GUILESS_MAIN(TestItick)
#include "tst_itick.moc"
