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
    QByteArray rawQuery;
    HeaderList headers;

    // The first header of that name, in any case; empty when there is none.
    QByteArray header(const QByteArray &name) const;
    // The first query item of that name, percent-decoded ('+' reads as a blank, as in a form);
    // a null string when there is none.
    QString queryItem(const QString &name) const;
    bool hasQueryItem(const QString &name) const { return !queryItem(name).isNull(); }
    // The percent-decoded rest of the path after `prefix` ("/api/quote/%5EBVSP" -> "^BVSP").
    QString pathAfter(const QByteArray &prefix) const;
};

// What the server answers. A delayed reply holds back the connection's later requests too; a
// silent one is never sent and leaves the connection open until the client gives up.
struct HttpResponse
{
    int status = 200;
    QByteArray contentType = "application/json;charset=utf-8";
    HeaderList headers = {};
    QByteArray body = {};
    int delayMs = 0;
    bool silent = false;

    static HttpResponse json(const QByteArray &body, int status = 200);
    static HttpResponse text(const QByteArray &body, int status);
    static HttpResponse html(const QByteArray &body, int status);
};

// Just enough HTTP/1.1 on 127.0.0.1 for QNetworkAccessManager and curl: keep-alive and pipelined
// requests answered in order, requests split across reads, request bodies with a Content-Length
// (read and ignored). A chunked request body gets a 501; a request line or headers beyond 64 KiB
// get the connection closed.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<HttpResponse(const HttpRequest &)>;

    explicit HttpServer(Handler handler, QObject *parent = nullptr);
    ~HttpServer() override; // drops every open connection

    bool listen(quint16 port);
    quint16 port() const { return m_server.serverPort(); }
    QString errorString() const { return m_server.errorString(); }

signals:
    void answered(const HttpRequest &request, int status);

private:
    struct Connection
    {
        QByteArray received;
        bool busy = false; // a reply is being held back (delayed or silent)
    };

    void acceptConnections();
    void serveWaiting(QTcpSocket *socket);
    void send(QTcpSocket *socket, const HttpResponse &response, bool withBody, bool closeAfter);
    void forget(QTcpSocket *socket);

    Handler m_handler;
    QTcpServer m_server;
    QHash<QTcpSocket *, Connection> m_connections;
};
