#pragma once

#include "loopback_http/http_server.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>

// A small HTTP server on the loopback interface that stands in for the market-data services, so
// the terminal's requests can be tested without the internet. A test uses it like this:
//
//     FakeProvider provider;
//     QVERIFY(provider.listen());
//     qputenv("QRL_ENDPOINT_YAHOO_QUERY", provider.baseUrl().toUtf8());
//     provider.setReply("/v8/finance/chart/%5EGSPC", FakeReply::json(chartJson));
//     provider.setReply("/v7/finance/quote", FakeReply{.status = 429,
//                                                      .headers = {{"Retry-After", "17"}}});
//     ... make the terminal ask for the data and wait for its answer ...
//     QCOMPARE(provider.lastRequest().queryItem("interval"), "5m");
//
// The terminal reads QRL_ENDPOINT_BINANCE_REST, QRL_ENDPOINT_YAHOO_QUERY, QRL_ENDPOINT_YAHOO_FEEDS,
// QRL_ENDPOINT_BRAPI, QRL_ENDPOINT_ALPHA_VANTAGE, QRL_ENDPOINT_FINNHUB, QRL_ENDPOINT_TWELVE_DATA,
// QRL_ENDPOINT_FMP, QRL_ENDPOINT_NEWSAPI and QRL_ENDPOINT_ACCOUNT on every request, so setting them
// at any time works; one provider can stand in for several services at once.
//
// Replies are scripted per path, compared with the path exactly as it arrived on the wire (without
// the query and still percent-encoded: "^GSPC" is scripted as "%5EGSPC"). A path nobody scripted
// gets a 404 with {"error":"no scripted reply"}. Every request is recorded in arrival order, as
// sent, for the test to inspect afterwards.
//
// The HTTP itself is the loopback server's (loopback_http/http_server.h): keep-alive connections,
// request bodies with a Content-Length, requests split across reads. Chunked request bodies are not
// supported (they are recorded, get a 501 and the connection is closed) and a request with more
// than 64 KiB of headers or 1 MiB of body simply gets its connection closed.
//
// Note that Qt sends a request once more when its connection closes before any reply, so a
// CloseWithoutReply set with setReply() is recorded twice for one request; queue it instead, ahead
// of an ordinary reply, to see the second attempt succeed.
//
// Fakes for the other kinds of service (streams and the like) belong beside this one.

// What the server answers to one request.
struct FakeReply
{
    enum class Mode {
        Answer,            // the status line, headers and body
        NoAnswer,          // read the request and then say nothing, leaving the connection open
        CloseMidBody,      // announce the full body but send only its first half, then close
        CloseWithoutReply, // close the connection without sending a byte
    };

    // Every member has an initializer, so a reply can be written as FakeReply{.status = 503} naming
    // only what matters without compilers warning about the rest.
    int status = 200;
    QByteArray reason = {}; // empty: the usual phrase for the status
    // Sent in this order. Content-Type is application/json unless given here; Content-Length is
    // always the size of the whole body, whatever is given here.
    QList<QPair<QByteArray, QByteArray>> headers = {};
    QByteArray body = {};
    int delayMs = 0; // how long to wait before answering (or closing)
    Mode mode = Mode::Answer;

    static FakeReply json(const QByteArray &body, int status = 200);
    static FakeReply text(const QByteArray &body, int status = 200); // text/plain; charset=utf-8

    QByteArray reasonPhrase() const;
};

// One request as the server received it.
struct RecordedRequest
{
    QByteArray method;
    QByteArray path;                              // without the query, still percent-encoded
    QByteArray rawQuery;                          // exactly as sent, without the '?'
    QList<QPair<QByteArray, QByteArray>> headers; // in the order sent, names as sent
    QByteArray body;
    int connection = 0; // which connection it came on, counting from 1 in the order they opened

    // The first header with this name, in any case; empty if there is none.
    QByteArray header(const QByteArray &name) const;
    int headerCount(const QByteArray &name) const;
    // The query split into percent-decoded names and values, in order ('+' stays a '+').
    QList<QPair<QString, QString>> queryItems() const;
    // The value of the first query item with this name; a null string if there is none.
    QString queryItem(const QString &name) const;
};

class FakeProvider : public QObject
{
    Q_OBJECT

public:
    explicit FakeProvider(QObject *parent = nullptr);
    ~FakeProvider() override; // closes every connection

    // Listens on 127.0.0.1, on a port the system picks.
    bool listen();
    quint16 port() const;
    QString baseUrl() const; // "http://127.0.0.1:<port>"
    // Points every HTTP endpoint variable of the terminal at this provider.
    void serveEveryEndpoint() const;

    // The reply served every time the path is asked for, replacing any earlier one.
    void setReply(const QString &path, const FakeReply &reply);
    // A reply served once, after those queued before it and ahead of the one set with setReply().
    void queueReply(const QString &path, const FakeReply &reply);

    QList<RecordedRequest> requests() const { return m_requests; }
    RecordedRequest lastRequest() const;
    void clearRequests() { m_requests.clear(); }
    // Runs the event loop until at least this many requests were recorded; false on timeout.
    bool waitForRequests(int count, int timeoutMs = 5000);

signals:
    void requestReceived(int index);

private:
    void record(const HttpRequest &request);
    HttpResponse respond(const HttpRequest &request);
    FakeReply takeReply(const QByteArray &path);

    HttpServer m_server;
    QHash<QByteArray, FakeReply> m_replies;
    QHash<QByteArray, QList<FakeReply>> m_queuedReplies;
    QList<RecordedRequest> m_requests;
};

// A provider reply body kept in tests/data/providers (the same files seed the fuzz targets).
QByteArray providerData(const QString &fileName);
