#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QNetworkRequest>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QWebSocketProtocol>
#include <QWebSocketServer>

class QWebSocket;

// A WebSocket server on the loopback interface that stands in for the streaming services (Binance's
// combined streams, iTick), so the terminal's sockets can be tested without the internet:
//
//     FakeWebSocketServer server;
//     QVERIFY(server.listen());
//     qputenv("QRL_ENDPOINT_BINANCE_STREAM", server.baseUrl().toUtf8());
//     server.setGreeting({R"({"code":1,"msg":"Connected Successfully"})"});
//     ... make the terminal open its stream ...
//     QVERIFY(server.waitForConnections(1));
//     QCOMPARE(server.requestedPaths().first(), "/stream?streams=btcusdt@ticker");
//     server.sendText(R"({"stream":"btcusdt@ticker","data":{...}})");
//     server.closeAll(QWebSocketProtocol::CloseCodeGoingAway);
//
// Every connection's request path and query, its headers and every text message a client sends
// are recorded in arrival order, and kept after the connection closes, for the test to inspect.
// Frames go out in the order they are given; a silent server keeps its connections open and sends
// nothing at all, the greeting included, as a stalled feed does.
class FakeWebSocketServer : public QObject
{
    Q_OBJECT

public:
    explicit FakeWebSocketServer(QObject *parent = nullptr);
    ~FakeWebSocketServer() override; // drops every open connection

    // Listens on 127.0.0.1, on a port the system picks.
    bool listen();
    quint16 port() const;
    QString baseUrl() const; // "ws://127.0.0.1:<port>"
    // Points every stream endpoint variable of the terminal at this server.
    void serveEveryStreamEndpoint() const;

    // Each connection's path and query as requested ("/stream?streams=btcusdt@ticker"), in the
    // order the connections opened.
    QStringList requestedPaths() const { return m_paths; }
    // Every connection since the start, or since clearRecords().
    int connectionCount() const { return int(m_paths.size()); }
    int openConnections() const { return int(m_clients.size()); }
    // The text messages of every client, in the order they arrived.
    QStringList receivedMessages() const { return m_messages; }
    // A request header of the latest connection, in any case; empty when it had none.
    QByteArray lastRequestHeader(const QByteArray &name) const;
    // Forgets the paths, headers and messages recorded so far, and so the connection count; the
    // connections stay open.
    void clearRecords();

    // Run the event loop until the condition holds; false on timeout.
    bool waitForConnections(int count, int timeoutMs = 5000);     // connectionCount() >= count
    bool waitForOpenConnections(int count, int timeoutMs = 5000); // openConnections() == count
    bool waitForMessages(int count, int timeoutMs = 5000); // receivedMessages().size() >= count

    // Frames sent to each client as soon as it connects, before anything else.
    void setGreeting(const QStringList &frames) { m_greeting = frames; }
    // To every open client.
    void sendText(const QString &frame);
    void sendTexts(const QStringList &frames);
    // To the open clients whose path starts with `pathPrefix`; how many there were.
    int sendTextTo(const QString &pathPrefix, const QString &frame);

    // Closes every open connection with a close frame carrying this code and reason.
    void closeAll(QWebSocketProtocol::CloseCode code = QWebSocketProtocol::CloseCodeNormal,
                  const QString &reason = {});
    // Drops every open connection's TCP link without a close frame.
    void abortAll();
    // While silent, nothing is sent (close frames excepted: closing is the test's explicit choice).
    void setSilent(bool silent) { m_silent = silent; }
    bool isSilent() const { return m_silent; }

signals:
    void clientConnected(const QString &path);
    void clientDisconnected();
    void messageReceived(const QString &message);

private:
    void acceptConnections();
    void forget(QWebSocket *client);
    void send(QWebSocket *client, const QString &frame);

    QWebSocketServer m_server;
    QHash<QWebSocket *, QString> m_clients; // open ones, with their path
    QList<QWebSocket *> m_order;            // the open ones in the order they connected
    QStringList m_paths;
    QStringList m_messages;
    QNetworkRequest m_lastRequest;
    QStringList m_greeting;
    bool m_silent = false;
};
