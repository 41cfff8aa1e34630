#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTcpServer>

#include <functional>

class QTcpSocket;

using HeaderList = QList<QPair<QByteArray, QByteArray>>;

// One request as it arrived: the path still percent-encoded, the query as sent.
struct HttpRequest
{
    QByteArray method;
    QByteArray path;
    QByteArray rawQuery; // without the '?'
    HeaderList headers;  // in the order sent, names as sent
    QByteArray body;     // empty when the request had none (or a chunked one)
    int connection = 0;  // which connection it came on, counting from 1 in the order they opened

    // The first header of that name, in any case; empty when there is none.
    QByteArray header(const QByteArray &name) const;
    // The first query item of that name, percent-decoded ('+' reads as a blank, as in a form);
    // a null string when there is none.
    QString queryItem(const QString &name) const;
    bool hasQueryItem(const QString &name) const { return !queryItem(name).isNull(); }
    // The percent-decoded rest of the path after `prefix` ("/api/quote/%5EBVSP" -> "^BVSP").
    QString pathAfter(const QByteArray &prefix) const;
};

// What the server answers. A delayed reply holds back the connection's later requests too, and
// so does a silent one, which is never sent and leaves the connection open until the client gives
// up.
struct HttpResponse
{
    enum class Mode {
        Answer,            // the status line, headers and body
        Silent,            // say nothing and leave the connection open
        CloseMidBody,      // announce the full body but send only its first half, then close
        CloseWithoutReply, // close the connection without sending a byte
    };

    int status = 200;
    QByteArray reason = {}; // empty: the usual phrase for the status
    // Sent unless the headers carry a Content-Type of their own; empty: none at all.
    QByteArray contentType = "application/json;charset=utf-8";
    // Sent in this order, after Date and Content-Type. Content-Length is always the size of the
    // whole body, whatever is given here; a "Connection: close" here closes the connection after
    // the reply.
    HeaderList headers = {};
    QByteArray body = {};
    int delayMs = 0; // how long to wait before answering (or closing)
    Mode mode = Mode::Answer;

    static HttpResponse json(const QByteArray &body, int status = 200);
    static HttpResponse text(const QByteArray &body, int status);
    static HttpResponse html(const QByteArray &body, int status);

    QByteArray reasonPhrase() const;
};

// Just enough HTTP/1.1 on 127.0.0.1 for QNetworkAccessManager and curl: keep-alive and pipelined
// requests answered in order, requests split across reads, request bodies with a Content-Length,
// "Connection: close" from either side, HEAD answered without the body. A chunked request body
// gets a 501 and the connection closed; a request line or headers beyond 64 KiB, a body beyond
// 1 MiB or anything that is not HTTP/1.x get the connection closed.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<HttpResponse(const HttpRequest &)>;

    explicit HttpServer(Handler handler, QObject *parent = nullptr);
    ~HttpServer() override; // drops every open connection

    // Listens on 127.0.0.1; port 0 lets the system pick one.
    bool listen(quint16 port);
    quint16 port() const { return m_server.serverPort(); }
    QString errorString() const { return m_server.errorString(); }

signals:
    // Every request taken off a connection, before the handler sees it (a chunked one included).
    void received(const HttpRequest &request);
    // The handler's answer; 0 when no status line goes out (silent or closed without a reply).
    void answered(const HttpRequest &request, int status);

private:
    struct Connection
    {
        int number = 0;
        QByteArray received; // bytes not yet taken as a request
        bool busy = false;   // a reply is still to go out (or held back), or the connection closes
    };

    void acceptConnections();
    void serveWaiting(QTcpSocket *socket);
    void send(QTcpSocket *socket, const HttpResponse &response, bool withBody, bool closeAfter);
    void close(QTcpSocket *socket);
    void forget(QTcpSocket *socket);

    Handler m_handler;
    QTcpServer m_server;
    QHash<QTcpSocket *, Connection> m_connections;
    int m_connectionsOpened = 0;
};
