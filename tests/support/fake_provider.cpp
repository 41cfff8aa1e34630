#include "fake_provider.h"

#include "app/endpoints.h"

#include <QFile>
#include <QHostAddress>
#include <QPointer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr qsizetype kMaxHeaderBytes = 1024 * 1024;
constexpr qsizetype kMaxBodyBytes = 1024 * 1024;

bool sameName(const QByteArray &a, const QByteArray &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

QByteArray firstHeader(const QList<QPair<QByteArray, QByteArray>> &headers, const QByteArray &name)
{
    for (const auto &[headerName, value] : headers) {
        if (sameName(headerName, name))
            return value;
    }
    return {};
}

// Whether a Connection header among these carries the "close" option.
bool asksToClose(const QList<QPair<QByteArray, QByteArray>> &headers)
{
    for (const auto &[name, value] : headers) {
        if (!sameName(name, "Connection"))
            continue;
        for (const QByteArray &option : value.split(',')) {
            if (sameName(option.trimmed(), "close"))
                return true;
        }
    }
    return false;
}

// One request taken from the front of what a connection received.
struct ParsedRequest
{
    RecordedRequest request;
    qsizetype size = 0;      // bytes it took up
    bool closeAfter = false; // the client does not want the connection kept
    bool chunked = false;    // its body is chunked, so where it ends is unknown
};

enum class ParseResult {
    Incomplete,
    Complete,
    Invalid
};

ParseResult parseRequest(const QByteArray &received, ParsedRequest &parsed)
{
    const qsizetype headerEnd = received.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return received.size() > kMaxHeaderBytes ? ParseResult::Invalid : ParseResult::Incomplete;
    if (headerEnd > kMaxHeaderBytes)
        return ParseResult::Invalid;

    QList<QByteArray> lines = received.left(headerEnd).split('\n');
    for (QByteArray &line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }

    const QList<QByteArray> requestLine = lines.takeFirst().split(' ');
    if (requestLine.size() != 3 || requestLine[0].isEmpty() || !requestLine[1].startsWith('/') ||
        !requestLine[2].startsWith("HTTP/1."))
        return ParseResult::Invalid;
    RecordedRequest &request = parsed.request;
    request.method = requestLine[0];
    const QByteArray &target = requestLine[1];
    const qsizetype question = target.indexOf('?');
    request.path = question < 0 ? target : target.left(question);
    request.rawQuery = question < 0 ? QByteArray() : target.mid(question + 1);

    for (const QByteArray &line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return ParseResult::Invalid;
        request.headers.append({line.left(colon), line.mid(colon + 1).trimmed()});
    }

    qsizetype bodySize = 0;
    const QByteArray contentLength = request.header("Content-Length");
    if (!contentLength.isEmpty()) {
        bool ok = false;
        bodySize = contentLength.toLongLong(&ok);
        if (!ok || bodySize < 0 || bodySize > kMaxBodyBytes)
            return ParseResult::Invalid;
    }
    parsed.chunked = request.headerCount("Transfer-Encoding") > 0;
    if (parsed.chunked)
        bodySize = 0;

    const qsizetype bodyStart = headerEnd + 4;
    if (received.size() < bodyStart + bodySize)
        return ParseResult::Incomplete;
    request.body = received.mid(bodyStart, bodySize);
    parsed.size = bodyStart + bodySize;
    const bool keepAliveByDefault = requestLine[2] != "HTTP/1.0";
    parsed.closeAfter =
            asksToClose(request.headers) ||
            (!keepAliveByDefault && !sameName(request.header("Connection"), "keep-alive"));
    return ParseResult::Complete;
}

} // namespace

FakeReply FakeReply::json(const QByteArray &body, int status)
{
    FakeReply reply;
    reply.status = status;
    reply.body = body;
    return reply;
}

FakeReply FakeReply::text(const QByteArray &body, int status)
{
    FakeReply reply = json(body, status);
    reply.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    return reply;
}

QByteArray FakeReply::reasonPhrase() const
{
    static constexpr std::pair<int, const char *> kUsualReasons[] = {
            {200, "OK"},
            {400, "Bad Request"},
            {401, "Unauthorized"},
            {402, "Payment Required"},
            {403, "Forbidden"},
            {404, "Not Found"},
            {418, "I'm a teapot"},
            {429, "Too Many Requests"},
            {451, "Unavailable For Legal Reasons"},
            {500, "Internal Server Error"},
            {501, "Not Implemented"},
            {503, "Service Unavailable"},
    };
    if (!reason.isEmpty())
        return reason;
    for (const auto &[usualStatus, usualReason] : kUsualReasons) {
        if (usualStatus == status)
            return usualReason;
    }
    return "Status";
}

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    return firstHeader(headers, name);
}

int RecordedRequest::headerCount(const QByteArray &name) const
{
    return int(std::count_if(headers.cbegin(), headers.cend(),
                             [&name](const auto &header) { return sameName(header.first, name); }));
}

QList<QPair<QString, QString>> RecordedRequest::queryItems() const
{
    QList<QPair<QString, QString>> items;
    for (const QByteArray &item : rawQuery.split('&')) {
        if (item.isEmpty())
            continue;
        const qsizetype equals = item.indexOf('=');
        const QByteArray name = equals < 0 ? item : item.left(equals);
        const QByteArray value = equals < 0 ? QByteArray() : item.mid(equals + 1);
        items.append({QString::fromUtf8(QByteArray::fromPercentEncoding(name)),
                      QString::fromUtf8(QByteArray::fromPercentEncoding(value))});
    }
    return items;
}

QString RecordedRequest::queryItem(const QString &name) const
{
    for (const auto &[itemName, value] : queryItems()) {
        if (itemName == name)
            return value;
    }
    return {};
}

// What the server keeps about one open connection.
struct FakeProvider::Connection
{
    int number = 0;
    QByteArray received;       // bytes not yet taken as a request
    bool replyPending = false; // a request is waiting for its (delayed or withheld) reply
};

FakeProvider::FakeProvider(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &FakeProvider::acceptConnections);
}

FakeProvider::~FakeProvider()
{
    m_server.close();
    for (const auto &[socket, connection] : m_connections) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
    m_connections.clear();
}

bool FakeProvider::listen()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

quint16 FakeProvider::port() const
{
    return m_server.serverPort();
}

QString FakeProvider::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

void FakeProvider::serveEveryEndpoint() const
{
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        if (!definition.isStream)
            qputenv(definition.environmentVariable, baseUrl().toUtf8());
    }
}

void FakeProvider::setReply(const QString &path, const FakeReply &reply)
{
    m_replies.insert(path.toUtf8(), reply);
}

void FakeProvider::queueReply(const QString &path, const FakeReply &reply)
{
    m_queuedReplies[path.toUtf8()].append(reply);
}

RecordedRequest FakeProvider::lastRequest() const
{
    return m_requests.isEmpty() ? RecordedRequest() : m_requests.last();
}

bool FakeProvider::waitForRequests(int count, int timeoutMs)
{
    return QTest::qWaitFor([this, count] { return m_requests.size() >= count; }, timeoutMs);
}

void FakeProvider::acceptConnections()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        auto connection = std::make_unique<Connection>();
        connection->number = ++m_connectionsOpened;
        m_connections.emplace(socket, std::move(connection));
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { forget(socket); });
    }
}

void FakeProvider::readFrom(QTcpSocket *socket)
{
    Connection *connection = connectionOf(socket);
    if (!connection)
        return;
    connection->received += socket->readAll();
    serveWaitingRequests(socket);
}

// Takes the complete requests off the front of what the connection received and answers them one
// after the other. Closing a socket can drop its connection at once, and so can whoever listens to
// requestReceived, so the connection is looked up again after each of those.
void FakeProvider::serveWaitingRequests(QTcpSocket *socket)
{
    for (;;) {
        Connection *connection = connectionOf(socket);
        if (!connection || connection->replyPending)
            return;
        ParsedRequest parsed;
        const ParseResult result = parseRequest(connection->received, parsed);
        if (result == ParseResult::Incomplete)
            return;
        if (result == ParseResult::Invalid) {
            qWarning("FakeProvider: closing a connection after a request it cannot take");
            connection->received.clear();
            connection->replyPending = true;
            socket->disconnectFromHost();
            return;
        }

        connection->received.remove(0, parsed.size);
        connection->replyPending = true;
        parsed.request.connection = connection->number;
        const QByteArray path = parsed.request.path;
        const bool withBody = parsed.request.method != "HEAD";
        m_requests.append(parsed.request);
        const QPointer<QTcpSocket> guard(socket);
        emit requestReceived(int(m_requests.size() - 1));
        if (!guard || !connectionOf(socket))
            return;

        if (parsed.chunked) {
            qWarning("FakeProvider: chunked request bodies are not supported");
            answer(socket, FakeReply::text("chunked request bodies are not supported", 501), true,
                   withBody);
            return;
        }
        const FakeReply reply = takeReply(path);
        const bool closeAfter = parsed.closeAfter || asksToClose(reply.headers);
        if (reply.delayMs > 0) {
            QTimer::singleShot(reply.delayMs, socket, [this, socket, reply, closeAfter, withBody] {
                answer(socket, reply, closeAfter, withBody);
                serveWaitingRequests(socket);
            });
            return;
        }
        answer(socket, reply, closeAfter, withBody);
    }
}

void FakeProvider::answer(QTcpSocket *socket, const FakeReply &reply, bool closeAfter,
                          bool withBody)
{
    Connection *connection = connectionOf(socket);
    if (!connection)
        return;
    switch (reply.mode) {
    case FakeReply::Mode::NoAnswer:
        return;
    case FakeReply::Mode::CloseWithoutReply:
        socket->disconnectFromHost();
        return;
    case FakeReply::Mode::Answer:
    case FakeReply::Mode::CloseMidBody:
        break;
    }

    QByteArray head =
            "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reply.reasonPhrase() + "\r\n";
    for (const auto &[name, value] : reply.headers) {
        if (!sameName(name, "Content-Length"))
            head += name + ": " + value + "\r\n";
    }
    if (firstHeader(reply.headers, "Content-Type").isEmpty())
        head += "Content-Type: application/json\r\n";
    head += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    if (closeAfter && !asksToClose(reply.headers))
        head += "Connection: close\r\n";
    head += "\r\n";
    socket->write(head);

    if (reply.mode == FakeReply::Mode::CloseMidBody) {
        socket->write(reply.body.left(reply.body.size() / 2));
        socket->disconnectFromHost();
        return;
    }
    if (withBody)
        socket->write(reply.body);
    if (closeAfter) {
        socket->disconnectFromHost(); // after what was written has gone out
        return;
    }
    connection->replyPending = false;
}

void FakeProvider::forget(QTcpSocket *socket)
{
    if (m_connections.erase(socket) > 0)
        socket->deleteLater();
}

FakeProvider::Connection *FakeProvider::connectionOf(QTcpSocket *socket) const
{
    const auto found = m_connections.find(socket);
    return found == m_connections.end() ? nullptr : found->second.get();
}

FakeReply FakeProvider::takeReply(const QByteArray &path)
{
    const auto queued = m_queuedReplies.find(path);
    if (queued != m_queuedReplies.end() && !queued->isEmpty())
        return queued->takeFirst();
    const auto scripted = m_replies.constFind(path);
    if (scripted != m_replies.cend())
        return *scripted;
    return FakeReply::json(R"({"error":"no scripted reply"})", 404);
}

QByteArray providerData(const QString &fileName)
{
    QFile file(QStringLiteral(QRL_PROVIDER_DATA "/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing provider data %s", qPrintable(fileName));
    return file.readAll();
}
