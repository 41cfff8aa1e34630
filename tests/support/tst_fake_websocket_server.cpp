#include "support/fake_websocket_server.h"

#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

// A real client, as the terminal's sockets are, keeping what it received.
struct Client
{
    QWebSocket socket;
    QStringList received;

    Client()
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived,
                         [this](const QString &message) { received.append(message); });
    }

    bool open(const QString &base, const QByteArray &pathAndQuery,
              const QList<QPair<QByteArray, QByteArray>> &headers = {})
    {
        QNetworkRequest request(QUrl::fromEncoded(base.toLatin1() + pathAndQuery));
        for (const auto &[name, value] : headers)
            request.setRawHeader(name, value);
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(request);
        return connected.wait(3000);
    }

    bool waitForMessages(int count)
    {
        return QTest::qWaitFor([this, count] { return received.size() >= count; }, 3000);
    }

    bool waitForDisconnection()
    {
        return QTest::qWaitFor(
                [this] { return socket.state() == QAbstractSocket::UnconnectedState; }, 3000);
    }
};

} // namespace

class FakeWebSocketServerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void recordsEachConnectionAsRequested();
    void deliversFramesInOrder();
    void sendsToTheMatchingPathsOnly();
    void recordsWhatClientsSend();
    void closeReachesTheClient_data();
    void closeReachesTheClient();
    void silentServerSendsNothingButStaysOpen();

private:
    std::unique_ptr<FakeWebSocketServer> m_server;
};

void FakeWebSocketServerTest::init()
{
    m_server = std::make_unique<FakeWebSocketServer>();
    QVERIFY(m_server->listen());
    QVERIFY(m_server->port() > 0);
}

void FakeWebSocketServerTest::cleanup()
{
    m_server.reset();
}

void FakeWebSocketServerTest::recordsEachConnectionAsRequested()
{
    QSignalSpy connected(m_server.get(), &FakeWebSocketServer::clientConnected);
    Client first;
    Client second;
    QVERIFY(first.open(m_server->baseUrl(), "/stream?streams=btcusdt@ticker/ethusdt@ticker"));
    QVERIFY(m_server->waitForConnections(1));
    QVERIFY(second.open(m_server->baseUrl(), "/websocket/stock", {{"token", "s3cret"}}));
    QVERIFY(m_server->waitForConnections(2));

    const QStringList paths{"/stream?streams=btcusdt@ticker/ethusdt@ticker", "/websocket/stock"};
    QCOMPARE(m_server->requestedPaths(), paths);
    QCOMPARE(connected.size(), 2);
    QCOMPARE(connected.at(0).at(0).toString(), paths.at(0));
    QCOMPARE(m_server->openConnections(), 2);
    QCOMPARE(m_server->lastRequestHeader("Token"), "s3cret");
    QVERIFY(m_server->lastRequestHeader("X-Missing").isEmpty());

    // The records outlive the connections.
    QSignalSpy disconnected(m_server.get(), &FakeWebSocketServer::clientDisconnected);
    first.socket.close();
    QVERIFY(m_server->waitForOpenConnections(1));
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(m_server->connectionCount(), 2);
    QCOMPARE(m_server->requestedPaths(), paths);
}

void FakeWebSocketServerTest::deliversFramesInOrder()
{
    m_server->setGreeting({"hello", "welcome"});
    Client client;
    QVERIFY(client.open(m_server->baseUrl(), "/stream"));
    QVERIFY(m_server->waitForConnections(1));
    QStringList frames;
    for (int i = 0; i < 50; ++i)
        frames.append(QStringLiteral(R"({"stream":"btcusdt@trade","data":{"t":%1}})").arg(i));
    m_server->sendTexts(frames);
    m_server->sendText("last");
    QVERIFY(client.waitForMessages(53));
    QCOMPARE(client.received, QStringList({"hello", "welcome"}) + frames + QStringList{"last"});
}

void FakeWebSocketServerTest::sendsToTheMatchingPathsOnly()
{
    Client tickers;
    Client depth;
    QVERIFY(tickers.open(m_server->baseUrl(), "/stream?streams=btcusdt@ticker"));
    QVERIFY(depth.open(m_server->baseUrl(), "/stream?streams=btcusdt@depth20@100ms"));
    QVERIFY(m_server->waitForOpenConnections(2));

    QCOMPARE(m_server->sendTextTo("/stream?streams=btcusdt@depth", "book"), 1);
    QCOMPARE(m_server->sendTextTo("/nowhere", "lost"), 0);
    m_server->sendText("both");
    QVERIFY(depth.waitForMessages(2));
    QVERIFY(tickers.waitForMessages(1));
    QCOMPARE(depth.received, QStringList({"book", "both"}));
    QCOMPARE(tickers.received, QStringList{"both"});
}

void FakeWebSocketServerTest::recordsWhatClientsSend()
{
    QSignalSpy received(m_server.get(), &FakeWebSocketServer::messageReceived);
    Client client;
    QVERIFY(client.open(m_server->baseUrl(), "/websocket/stock"));
    const QStringList sent{R"({"ac":"auth","params":"k"})",
                           R"({"ac":"subscribe","params":"AAPL.US","types":"quote"})"};
    for (const QString &message : sent)
        client.socket.sendTextMessage(message);
    QVERIFY(m_server->waitForMessages(2));
    QCOMPARE(m_server->receivedMessages(), sent);
    QCOMPARE(received.size(), 2);

    m_server->clearRecords();
    QVERIFY(m_server->receivedMessages().isEmpty());
    QVERIFY(m_server->requestedPaths().isEmpty());
    QCOMPARE(m_server->openConnections(), 1);
}

void FakeWebSocketServerTest::closeReachesTheClient_data()
{
    QTest::addColumn<bool>("abort");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("reason");

    QTest::newRow("normal") << false << int(QWebSocketProtocol::CloseCodeNormal) << QString();
    QTest::newRow("going away with reason")
            << false << int(QWebSocketProtocol::CloseCodeGoingAway) << "maintenance";
    QTest::newRow("policy") << false << int(QWebSocketProtocol::CloseCodePolicyViolated)
                            << "too many messages";
    QTest::newRow("abort") << true << 0 << QString();
}

void FakeWebSocketServerTest::closeReachesTheClient()
{
    QFETCH(bool, abort);
    QFETCH(int, code);
    QFETCH(QString, reason);

    Client client;
    QVERIFY(client.open(m_server->baseUrl(), "/stream?streams=btcusdt@ticker"));
    QVERIFY(m_server->waitForOpenConnections(1));
    QSignalSpy disconnected(m_server.get(), &FakeWebSocketServer::clientDisconnected);
    QSignalSpy failed(&client.socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error));
    if (abort)
        m_server->abortAll();
    else
        m_server->closeAll(QWebSocketProtocol::CloseCode(code), reason);
    QVERIFY(client.waitForDisconnection());
    if (abort) {
        // Without a close frame the client knows only that the link went down.
        QCOMPARE(failed.size(), 1);
        QCOMPARE(client.socket.error(), QAbstractSocket::RemoteHostClosedError);
    } else {
        QCOMPARE(int(client.socket.closeCode()), code);
        QCOMPARE(client.socket.closeReason(), reason);
    }
    QVERIFY(m_server->waitForOpenConnections(0));
    QCOMPARE(disconnected.size(), 1);
}

void FakeWebSocketServerTest::silentServerSendsNothingButStaysOpen()
{
    m_server->setGreeting({"greeting"});
    m_server->setSilent(true);
    Client client;
    QVERIFY(client.open(m_server->baseUrl(), "/stream?streams=btcusdt@depth20@100ms"));
    QVERIFY(m_server->waitForOpenConnections(1));
    m_server->sendText("frame");
    QCOMPARE(m_server->sendTextTo("/stream", "frame"), 1);
    // A frame would arrive within a few event-loop turns on loopback.
    QTest::qWait(100);
    QVERIFY(client.received.isEmpty());
    QCOMPARE(client.socket.state(), QAbstractSocket::ConnectedState);

    m_server->setSilent(false);
    m_server->sendText("after");
    QVERIFY(client.waitForMessages(1));
    QCOMPARE(client.received, QStringList{"after"});
}

QTEST_GUILESS_MAIN(FakeWebSocketServerTest)
#include "tst_fake_websocket_server.moc"
