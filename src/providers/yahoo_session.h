#pragma once

#include "app/clock.h"
#include "providers/provider_http.h"

#include <QByteArray>
#include <QList>
#include <QNetworkRequest>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class QNetworkAccessManager;

// What Yahoo's batch quote wants besides the symbols: the cookie its cookie host sets and the
// crumb the query host hands out for that cookie.
struct YahooCredentials
{
    QByteArray cookie; // "A3=d=…; B=…", ready for a Cookie header
    QString crumb;
    // Which fetch gave them: Yahoo may hand out the same crumb again, so a refusal names the
    // fetch, not the text.
    quint64 serial = 0;

    bool isValid() const { return !cookie.isEmpty() && !crumb.isEmpty(); }
};

// The name=value pairs of every Set-Cookie header, joined for a Cookie header; empty when the
// reply set none. A cookie holding a control character is left out.
QByteArray cookieHeaderOf(const RawHeaderList &headers);
// Whether a getcrumb body can be a crumb: a short token of letters, digits, '.', '/', '_' and
// '-'. Yahoo answers "Too Many Requests", error pages and JSON on the same path.
bool isPlausibleYahooCrumb(const QByteArray &body);
// A refused session: HTTP 401, or the `finance.error.code` "Unauthorized" body that comes with it.
bool isYahooUnauthorized(int httpStatus, const QByteArray &body);
// The request carrying the session: the Cookie header, and the crumb as the last query item. A
// request without valid credentials is returned as it was.
QNetworkRequest withYahooSession(QNetworkRequest request, const YahooCredentials &credentials);

// Yahoo's session, fetched once the way a browser gets it and shared by every request that needs
// it: a GET of the cookie host's root (a 404 page that still sets the cookie), then the crumb from
// the query host's /v1/test/getcrumb with that cookie. Requests asking while it is being fetched
// wait for that one fetch. A session the service refuses is renewed once per refused request.
// When no session can be had, callers get empty credentials, and a new fetch is tried only after
// kRetryPauseMs so a host that is down is not asked again on every refresh.
class YahooSession : public QObject
{
    Q_OBJECT

public:
    using Ready = std::function<void(const YahooCredentials &)>;

    // The cookie host is known to hang at times; it gets less time than the data requests.
    static constexpr int kCookieTimeoutMs = 5000;
    static constexpr qint64 kRetryPauseMs = 60'000;

    explicit YahooSession(QNetworkAccessManager &network, QObject *parent = nullptr);

    void setClock(Clock clock) { m_clock = std::move(clock); }
    void setTransferTimeoutMs(int milliseconds) { m_transferTimeoutMs = milliseconds; }
    void setCookieTimeoutMs(int milliseconds) { m_cookieTimeoutMs = milliseconds; }

    const YahooCredentials &credentials() const { return m_credentials; }
    bool isFetching() const { return m_fetching; }

    // Calls `ready` with the session, at once when there is one, else after fetching it.
    void withSession(Ready ready);
    // Forgets the session if it is the refused one (a request that was refused after a newer
    // session arrived uses that one), then behaves as withSession().
    void renew(const YahooCredentials &refused, Ready ready);
    // A GET carrying the session. A refused reply renews the session and the request is sent once
    // more with it; the handler gets the last reply, unless `context` is gone by then.
    void get(const QNetworkRequest &request, QObject *context, ProviderReplyHandler handler);

private:
    void fetch();
    void readCookie(const ProviderReply &reply);
    void readCrumb(const QByteArray &cookie, const ProviderReply &reply);
    void finish(const YahooCredentials &credentials);
    void send(const QNetworkRequest &request, const YahooCredentials &credentials, QObject *context,
              ProviderReplyHandler handler, bool mayRenew);

    QNetworkAccessManager &m_network;
    Clock m_clock = systemClock();
    int m_transferTimeoutMs = kProviderTransferTimeoutMs;
    int m_cookieTimeoutMs = kCookieTimeoutMs;
    YahooCredentials m_credentials;
    quint64 m_fetches = 0;
    bool m_fetching = false;
    std::optional<qint64> m_failedAtMs;
    QList<Ready> m_waiting;
};
