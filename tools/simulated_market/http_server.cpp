#include "simulated_market/http_server.h"

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

QByteArray reasonPhrase(int status)
{
    static constexpr std::pair<int, const char *> kReasons[] = {
            {200, "OK"},
            {400, "Bad Request"},
            {401, "Unauthorized"},
            {402, "Payment Required"},
            {404, "Not Found"},
            {422, "Unprocessable Entity"},
            {429, "Too Many Requests"},
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

enum class Parse {
    Incomplete,
    Complete,
    Invalid,
    Chunked
};

// Takes one request off the front of `received`; `size` is how many bytes it took up.
Parse parseRequest(const QByteArray &received, HttpRequest &request, qsizetype &size,
                   bool &closeAfter)
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
    if (requestLine.size() != 3 || !requestLine[1].startsWith('/') ||
        !requestLine[2].startsWith("HTTP/1."))
        return Parse::Invalid;
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

    const QByteArray connection = request.header("Connection");
    closeAfter = requestLine[2] == "HTTP/1.0" ? !sameName(connection, "keep-alive")
                                              : sameName(connection, "close");
    if (!request.header("Transfer-Encoding").isEmpty()) {
        size = headEnd + 4;
        return Parse::Chunked;
    }
    qsizetype bodySize = 0;
    const QByteArray contentLength = request.header("Content-Length");
    if (!contentLength.isEmpty()) {
        bool ok = false;
        bodySize = contentLength.toLongLong(&ok);
        if (!ok || bodySize < 0 || bodySize > kMaxBodyBytes)
            return Parse::Invalid;
    }
    if (received.size() < headEnd + 4 + bodySize)
        return Parse::Incomplete;
    size = headEnd + 4 + bodySize;
    return Parse::Complete;
}

} // namespace

QByteArray HttpRequest::header(const QByteArray &name) const
{
    for (const auto &[headerName, value] : headers) {
        if (sameName(headerName, name))
            return value;
    }
    return {};
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
        m_connections.insert(socket, Connection());
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
// other, until one of them is held back.
void HttpServer::serveWaiting(QTcpSocket *socket)
{
    for (;;) {
        const auto found = m_connections.find(socket);
        if (found == m_connections.end() || found->busy)
            return;
        HttpRequest request;
        qsizetype size = 0;
        bool closeAfter = false;
        const Parse parse = parseRequest(found->received, request, size, closeAfter);
        if (parse == Parse::Incomplete)
            return;
        if (parse == Parse::Invalid) {
            found->received.clear();
            found->busy = true;
            socket->disconnectFromHost();
            return;
        }
        found->received.remove(0, size);
        const bool withBody = request.method != "HEAD";
        if (parse == Parse::Chunked) {
            found->busy = true;
            send(socket, HttpResponse::text("chunked request bodies are not supported\n", 501),
                 withBody, true);
            return;
        }

        const HttpResponse response = m_handler(request);
        const QPointer<QTcpSocket> guard(socket);
        emit answered(request, response.silent ? 0 : response.status);
        // Whoever listens may have let the connection go.
        const auto still = m_connections.find(socket);
        if (!guard || still == m_connections.end())
            return;
        if (response.silent) {
            still->busy = true;
            return;
        }
        if (response.delayMs > 0) {
            still->busy = true;
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

void HttpServer::send(QTcpSocket *socket, const HttpResponse &response, bool withBody,
                      bool closeAfter)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                      reasonPhrase(response.status) + "\r\n";
    head += "Date: " + httpDate() + "\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    for (const auto &[name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    if (closeAfter)
        head += "Connection: close\r\n";
    socket->write(head + "\r\n" + (withBody ? response.body : QByteArray()));
    if (closeAfter) {
        found->busy = true;
        socket->disconnectFromHost(); // once what was written has gone out
        return;
    }
    found->busy = false;
}

void HttpServer::forget(QTcpSocket *socket)
{
    if (m_connections.remove(socket) > 0)
        socket->deleteLater();
}
