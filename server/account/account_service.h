#pragma once

#include "account/account_store.h"
#include "account/news_feed.h"

#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QHttpServerRequest;
class QHttpServerResponse;
class QTcpSocket;

// The account service the terminal signs in to and syncs with, over HTTP:
//   /TERMINAL/auth/{login,me,refresh,logout,google_start,google_poll}.php   sessions
//   /TERMINAL/sync/{pull,push,status}.php                                    account sync
//   /TERMINAL/NEWS.json                                                      house news feed
//   /login_page.php                                                          registration form
// JSON replies carry "ok" and, when it is false, an "error" code. Single-threaded: requests are
// answered on the thread that owns the service.
class AccountService : public QObject
{
    Q_OBJECT

public:
    explicit AccountService(QObject *parent = nullptr);
    ~AccountService() override;

    struct Options
    {
        QString databasePath;
        QString newsFile;
        qint64 tokenLifetimeSeconds = 30 * 24 * 3600;
        int maxPayloadBytes = 2 * 1024 * 1024;
        qint64 deviceCodeLifetimeSeconds = 10 * 60;
        bool logRequests = true; // one line per request on stderr
    };
    // A database that cannot be opened is not fatal: the endpoints that need it answer
    // "database_unavailable" and the news feed keeps working.
    bool open(const Options &options, QString *error = nullptr);
    bool databaseAvailable() const { return m_store.isOpen(); }

    // Serves HTTPS from then on; call before listen(). False with `error` when the files cannot be
    // read or Qt was built without TLS.
    bool setTls(const QString &certificateFile, const QString &keyFile, QString *error = nullptr);

    bool listen(const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0);
    quint16 port() const;
    QString baseUrl() const; // "http://127.0.0.1:<port>"

    bool addUser(const QString &email, const QString &password, const QString &firstName = {},
                 QString *error = nullptr);
    // Unix milliseconds; tests move time to expire tokens and device codes.
    void setClock(std::function<qint64()> unixMsClock);

    // Answers one request; the HTTP front calls it, and so can a test without a socket.
    QHttpServerResponse respond(const QHttpServerRequest &request);

private:
    class HttpFront;

    QHttpServerResponse login(const QHttpServerRequest &request);
    QHttpServerResponse me(const QHttpServerRequest &request);
    QHttpServerResponse refresh(const QHttpServerRequest &request);
    QHttpServerResponse logout(const QHttpServerRequest &request);
    QHttpServerResponse deviceStart(const QHttpServerRequest &request);
    QHttpServerResponse devicePoll(const QHttpServerRequest &request);
    QHttpServerResponse pull(const QHttpServerRequest &request, bool withPayloads);
    QHttpServerResponse push(const QHttpServerRequest &request);
    QHttpServerResponse registration(const QHttpServerRequest &request);
    QHttpServerResponse news(const QHttpServerRequest &request);

    // The session reply for a new token of `user`; an "ok": false object when it cannot be stored.
    QJsonObject issueSession(const AccountStore::User &user);
    QJsonObject sessionReply(const QString &token, qint64 expiresMs,
                             const AccountStore::User &user);
    struct Bearer
    {
        QString token;
        qint64 expiresMs = 0;
        AccountStore::User user;
    };
    // The live session of the request's bearer token; `failure` holds the reply when there is
    // none (`missingCode` when the request carries no token at all).
    std::optional<Bearer> bearer(const QHttpServerRequest &request, const QString &missingCode,
                                 std::optional<QHttpServerResponse> *failure);
    // "rate_limited" when the e-mail or the address failed too often, "invalid_credentials" when
    // the password does not match; empty with `user` set otherwise.
    QString checkPassword(const QString &email, const QString &password,
                          const QHostAddress &address, AccountStore::User *user);
    qint64 now() const { return m_clock(); }

    Options m_options;
    AccountStore m_store;
    NewsFeed m_news;
    std::unique_ptr<HttpFront> m_http;
    std::function<qint64()> m_clock;
    QHostAddress m_address;
    quint16 m_port = 0;
    bool m_tls = false;
};
