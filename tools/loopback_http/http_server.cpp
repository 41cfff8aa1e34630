#include "loopback_http/http_server.h"

#include <QDateTime>
#include <QHostAddress>
#include <QLocale>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <utility>

namespace {

constexpr qsizetype kMaxHeadBytes = 64 * 1024;
constexpr qsizetype kMaxBodyBytes = 1024 * 1024;

bool sameName(const QByteArray &a, const QByteArray &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

QByteArray firstHeader(const HeaderList &headers, const QByteArray &name)
{
    for (const auto &[headerName, value] : headers) {
        if (sameName(headerName, name))
            return value;
    }
    return {};
}

// Whether a Connection header among these carries the "close" option.
bool asksToClose(const HeaderList &headers)
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

QByteArray usualReason(int status)
{
    static constexpr std::pair<int, const char *> kReasons[] = {
            {200, "OK"},
            {400, "Bad Request"},
            {401, "Unauthorized"},
            {402, "Payment Required"},
            {403, "Forbidden"},
            {404, "Not Found"},
            {418, "I'm a teapot"},
            {422, "Unprocessable Entity"},
            {429, "Too Many Requests"},
            {451, "Unavailable For Legal Reasons"},
            {500, "Internal Server Error"},
            {501, "Not Implemented"},
            {503, "Service Unavailable"},
    };
    for (const auto &[code, reason] : kReasons) {
        if (code == status)
            return reason;
    }
    return "Status";
}

QByteArray httpDate()
{
    return QLocale::c()
                   .toString(QDateTime::currentDateTimeUtc(),
                             QStringLiteral("ddd, dd MMM yyyy hh:mm:ss"))
                   .toLatin1() +
           " GMT";
}

QString decodeQueryPart(QByteArray part)
{
    part.replace('+', ' ');
    return QString::fromUtf8(QByteArray::fromPercentEncoding(part));
}

// Whether a status line goes out for this response.
bool answers(HttpResponse::Mode mode)
{
    return mode == HttpResponse::Mode::Answer || mode == HttpResponse::Mode::CloseMidBody;
}

// One request taken from the front of what a connection received.
struct ParsedRequest
{
    HttpRequest request;
    qsizetype size = 0;      // bytes it took up
    bool closeAfter = false; // the client does not want the connection kept
    bool chunked = false;    // its body is chunked, so where it ends is unknown
};

enum class Parse {
    Incomplete,
    Complete,
    Invalid
};

Parse parseRequest(const QByteArray &received, ParsedRequest &parsed)
{
    const qsizetype headEnd = received.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return received.size() > kMaxHeadBytes ? Parse::Invalid : Parse::Incomplete;
    if (headEnd > kMaxHeadBytes)
        return Parse::Invalid;

    QList<QByteArray> lines = received.left(headEnd).split('\n');
    for (QByteArray &line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    const QList<QByteArray> requestLine = lines.takeFirst().split(' ');
    if (requestLine.size() != 3 || requestLine[0].isEmpty() || !requestLine[1].startsWith('/') ||
        !requestLine[2].startsWith("HTTP/1."))
        return Parse::Invalid;
    HttpRequest &request = parsed.request;
    request.method = requestLine[0];
    const QByteArray &target = requestLine[1];
    const qsizetype question = target.indexOf('?');
    request.path = question < 0 ? target : target.left(question);
    request.rawQuery = question < 0 ? QByteArray() : target.mid(question + 1);
    for (const QByteArray &line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return Parse::Invalid;
        request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
    }

    qsizetype bodySize = 0;
    const QByteArray contentLength = request.header("Content-Length");
    if (!contentLength.isEmpty()) {
        bool ok = false;
        bodySize = contentLength.toLongLong(&ok);
        if (!ok || bodySize < 0 || bodySize > kMaxBodyBytes)
            return Parse::Invalid;
    }
    parsed.chunked = !request.header("Transfer-Encoding").isEmpty();
    if (parsed.chunked)
        bodySize = 0;

    const qsizetype bodyStart = headEnd + 4;
    if (received.size() < bodyStart + bodySize)
        return Parse::Incomplete;
    request.body = received.mid(bodyStart, bodySize);
    parsed.size = bodyStart + bodySize;
    const bool keepAliveByDefault = requestLine[2] != "HTTP/1.0";
    parsed.closeAfter =
            asksToClose(request.headers) ||
            (!keepAliveByDefault && !sameName(request.header("Connection"), "keep-alive"));
    return Parse::Complete;
}

} // namespace

QByteArray HttpRequest::header(const QByteArray &name) const
{
    return firstHeader(headers, name);
}

QString HttpRequest::queryItem(const QString &name) const
{
    for (const QByteArray &item : rawQuery.split('&')) {
        const qsizetype equals = item.indexOf('=');
        const QByteArray itemName = equals < 0 ? item : item.left(equals);
        if (itemName.isEmpty() || decodeQueryPart(itemName) != name)
            continue;
        const QString value = decodeQueryPart(equals < 0 ? QByteArray() : item.mid(equals + 1));
        return value.isNull() ? QString(QLatin1String("")) : value;
    }
    return {};
}

QString HttpRequest::pathAfter(const QByteArray &prefix) const
{
    if (!path.startsWith(prefix))
        return {};
    return QString::fromUtf8(QByteArray::fromPercentEncoding(path.mid(prefix.size())));
}

HttpResponse HttpResponse::json(const QByteArray &body, int status)
{
    HttpResponse response;
    response.status = status;
    response.body = body;
    return response;
}

HttpResponse HttpResponse::text(const QByteArray &body, int status)
{
    HttpResponse response = json(body, status);
    response.contentType = "text/plain;charset=utf-8";
    return response;
}

HttpResponse HttpResponse::html(const QByteArray &body, int status)
{
    HttpResponse response = json(body, status);
    response.contentType = "text/html;charset=utf-8";
    return response;
}

QByteArray HttpResponse::reasonPhrase() const
{
    return reason.isEmpty() ? usualReason(status) : reason;
}

HttpServer::HttpServer(Handler handler, QObject *parent)
    : QObject(parent)
    , m_handler(std::move(handler))
{
    connect(&m_server, &QTcpServer::newConnection, this, &HttpServer::acceptConnections);
}

HttpServer::~HttpServer()
{
    m_server.close();
    const QList<QTcpSocket *> sockets = m_connections.keys();
    m_connections.clear();
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
}

bool HttpServer::listen(quint16 port)
{
    return m_server.listen(QHostAddress::LocalHost, port);
}

void HttpServer::acceptConnections()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        Connection connection;
        connection.number = ++m_connectionsOpened;
        m_connections.insert(socket, connection);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
            const auto found = m_connections.find(socket);
            if (found == m_connections.end())
                return;
            found->received += socket->readAll();
            serveWaiting(socket);
        });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { forget(socket); });
    }
}

// Answers the complete requests at the front of what the connection received, one after the
// other, until one of them is held back. Closing a socket can drop its connection at once, and so
// can whoever listens to the signals, so the connection is looked up again after each of those.
void HttpServer::serveWaiting(QTcpSocket *socket)
{
    for (;;) {
        auto found = m_connections.find(socket);
        if (found == m_connections.end() || found->busy)
            return;
        ParsedRequest parsed;
        const Parse parse = parseRequest(found->received, parsed);
        if (parse == Parse::Incomplete)
            return;
        if (parse == Parse::Invalid) {
            qWarning("HttpServer: closing a connection after a request it cannot take");
            found->received.clear();
            close(socket);
            return;
        }
        found->received.remove(0, parsed.size);
        found->busy = true; // until answered, whatever the listeners do meanwhile
        HttpRequest &request = parsed.request;
        request.connection = found->number;
        const bool withBody = request.method != "HEAD";

        const QPointer<QTcpSocket> guard(socket);
        emit received(request);
        if (!guard || !m_connections.contains(socket))
            return;
        if (parsed.chunked) {
            qWarning("HttpServer: chunked request bodies are not supported");
            send(socket, HttpResponse::text("chunked request bodies are not supported\n", 501),
                 withBody, true);
            return;
        }

        const HttpResponse response = m_handler(request);
        emit answered(request, answers(response.mode) ? response.status : 0);
        if (!guard || !m_connections.contains(socket))
            return;
        const bool closeAfter = parsed.closeAfter || asksToClose(response.headers);
        if (response.delayMs > 0) {
            QTimer::singleShot(response.delayMs, socket,
                               [this, socket, response, withBody, closeAfter] {
                                   send(socket, response, withBody, closeAfter);
                                   serveWaiting(socket);
                               });
            return;
        }
        send(socket, response, withBody, closeAfter);
    }
}

// Leaves the connection busy unless the reply went out in full on a connection that stays open.
void HttpServer::send(QTcpSocket *socket, const HttpResponse &response, bool withBody,
                      bool closeAfter)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    switch (response.mode) {
    case HttpResponse::Mode::Silent:
        return;
    case HttpResponse::Mode::CloseWithoutReply:
        close(socket);
        return;
    case HttpResponse::Mode::Answer:
    case HttpResponse::Mode::CloseMidBody:
        break;
    }

    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                      response.reasonPhrase() + "\r\n";
    head += "Date: " + httpDate() + "\r\n";
    if (!response.contentType.isEmpty() && firstHeader(response.headers, "Content-Type").isEmpty())
        head += "Content-Type: " + response.contentType + "\r\n";
    for (const auto &[name, value] : response.headers) {
        if (!sameName(name, "Content-Length"))
            head += name + ": " + value + "\r\n";
    }
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    if (closeAfter && !asksToClose(response.headers))
        head += "Connection: close\r\n";
    head += "\r\n";

    if (response.mode == HttpResponse::Mode::CloseMidBody) {
        socket->write(head + response.body.left(response.body.size() / 2));
        close(socket);
        return;
    }
    socket->write(head + (withBody ? response.body : QByteArray()));
    if (closeAfter) {
        close(socket);
        return;
    }
    const auto still = m_connections.find(socket);
    if (still != m_connections.end())
        still->busy = false;
}

// Takes nothing more from the connection and closes it once what was written has gone out. That
// can drop the connection at once.
void HttpServer::close(QTcpSocket *socket)
{
    const auto found = m_connections.find(socket);
    if (found != m_connections.end())
        found->busy = true;
    socket->disconnectFromHost();
}

void HttpServer::forget(QTcpSocket *socket)
{
    if (m_connections.remove(socket) > 0)
        socket->deleteLater();
}
