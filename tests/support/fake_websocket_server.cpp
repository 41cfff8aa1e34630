#include "fake_websocket_server.h"

#include "app/endpoints.h"

#include <QHostAddress>
#include <QTest>
#include <QUrl>
#include <QWebSocket>

namespace {

// "/stream?streams=btcusdt@ticker/ethusdt@ticker": the path and query as the client wrote them.
QString pathAndQuery(const QUrl &url)
{
    QString path = url.path(QUrl::FullyEncoded);
    if (path.isEmpty())
        path = QStringLiteral("/");
    if (url.hasQuery())
        path += QLatin1Char('?') + url.query(QUrl::FullyEncoded);
    return path;
}

} // namespace

FakeWebSocketServer::FakeWebSocketServer(QObject *parent)
    : QObject(parent)
    , m_server(QStringLiteral("fake stream"), QWebSocketServer::NonSecureMode)
{
    connect(&m_server, &QWebSocketServer::newConnection, this,
            &FakeWebSocketServer::acceptConnections);
}

FakeWebSocketServer::~FakeWebSocketServer()
{
    // Signals of clients going away must not reach a half-destroyed server.
    for (QWebSocket *client : std::as_const(m_order)) {
        client->disconnect(this);
        client->abort();
        delete client;
    }
    m_server.close();
}

bool FakeWebSocketServer::listen()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

quint16 FakeWebSocketServer::port() const
{
    return m_server.serverPort();
}

QString FakeWebSocketServer::baseUrl() const
{
    return QStringLiteral("ws://127.0.0.1:%1").arg(port());
}

void FakeWebSocketServer::serveEveryStreamEndpoint() const
{
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        if (definition.isStream)
            qputenv(definition.environmentVariable, baseUrl().toUtf8());
    }
}

QByteArray FakeWebSocketServer::lastRequestHeader(const QByteArray &name) const
{
    return m_lastRequest.rawHeader(name);
}

void FakeWebSocketServer::clearRecords()
{
    m_paths.clear();
    m_messages.clear();
    m_lastRequest = QNetworkRequest();
}

bool FakeWebSocketServer::waitForConnections(int count, int timeoutMs)
{
    return QTest::qWaitFor([this, count] { return connectionCount() >= count; }, timeoutMs);
}

bool FakeWebSocketServer::waitForOpenConnections(int count, int timeoutMs)
{
    return QTest::qWaitFor([this, count] { return openConnections() == count; }, timeoutMs);
}

bool FakeWebSocketServer::waitForMessages(int count, int timeoutMs)
{
    return QTest::qWaitFor([this, count] { return m_messages.size() >= count; }, timeoutMs);
}

void FakeWebSocketServer::sendText(const QString &frame)
{
    for (QWebSocket *client : std::as_const(m_order))
        send(client, frame);
}

void FakeWebSocketServer::sendTexts(const QStringList &frames)
{
    for (const QString &frame : frames)
        sendText(frame);
}

int FakeWebSocketServer::sendTextTo(const QString &pathPrefix, const QString &frame)
{
    int matched = 0;
    for (QWebSocket *client : std::as_const(m_order)) {
        if (m_clients.value(client).startsWith(pathPrefix)) {
            send(client, frame);
            ++matched;
        }
    }
    return matched;
}

void FakeWebSocketServer::closeAll(QWebSocketProtocol::CloseCode code, const QString &reason)
{
    // Closing can report the disconnection at once, which changes the list being walked.
    const QList<QWebSocket *> clients = m_order;
    for (QWebSocket *client : clients)
        client->close(code, reason);
}

void FakeWebSocketServer::abortAll()
{
    const QList<QWebSocket *> clients = m_order;
    for (QWebSocket *client : clients)
        client->abort();
}

void FakeWebSocketServer::acceptConnections()
{
    while (QWebSocket *client = m_server.nextPendingConnection()) {
        client->setParent(this);
        const QString path = pathAndQuery(client->requestUrl());
        m_clients.insert(client, path);
        m_order.append(client);
        m_paths.append(path);
        m_lastRequest = client->request();
        connect(client, &QWebSocket::textMessageReceived, this, [this](const QString &message) {
            m_messages.append(message);
            emit messageReceived(message);
        });
        connect(client, &QWebSocket::disconnected, this, [this, client] { forget(client); });
        emit clientConnected(path);
        for (const QString &frame : std::as_const(m_greeting))
            send(client, frame);
    }
}

void FakeWebSocketServer::forget(QWebSocket *client)
{
    if (!m_clients.remove(client))
        return;
    m_order.removeOne(client);
    client->deleteLater();
    emit clientDisconnected();
}

void FakeWebSocketServer::send(QWebSocket *client, const QString &frame)
{
    if (!m_silent && client->state() == QAbstractSocket::ConnectedState)
        client->sendTextMessage(frame);
}
