#include "providers/yahoo_session.h"

#include "providers/provider_requests.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkCookie>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

constexpr qsizetype kMaxCrumbLength = 64;

// The session's cookie is ours to send: the manager's jar neither adds to it nor keeps the ones
// the hosts set.
void keepCookiesManual(QNetworkRequest &request)
{
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
}

} // namespace

QByteArray cookieHeaderOf(const RawHeaderList &headers)
{
    QList<QByteArray> names;
    QList<QByteArray> pairs;
    for (const auto &[name, value] : headers) {
        if (name.compare("Set-Cookie", Qt::CaseInsensitive) != 0)
            continue;
        // Qt hands several Set-Cookie headers over as one value with a line per cookie.
        for (const QNetworkCookie &cookie : QNetworkCookie::parseCookies(value)) {
            if (cookie.name().isEmpty())
                continue;
            const QByteArray pair = cookie.toRawForm(QNetworkCookie::NameAndValueOnly);
            // A control character (a bare CR, a NUL) is no cookie text and would end up inside
            // our own Cookie header line.
            if (std::any_of(pair.cbegin(), pair.cend(),
                            [](char c) { return uchar(c) < 0x20 || uchar(c) == 0x7f; }))
                continue;
            if (const qsizetype at = names.indexOf(cookie.name()); at >= 0) {
                pairs[at] = pair;
            } else {
                names << cookie.name();
                pairs << pair;
            }
        }
    }
    return pairs.join("; ");
}

bool isPlausibleYahooCrumb(const QByteArray &body)
{
    if (body.isEmpty() || body.size() > kMaxCrumbLength)
        return false;
    for (const char c : body) {
        const bool fits = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '.' || c == '/' || c == '_' || c == '-';
        if (!fits)
            return false;
    }
    return true;
}

bool isYahooUnauthorized(int httpStatus, const QByteArray &body)
{
    if (httpStatus == 401)
        return true;
    if (!body.trimmed().startsWith('{'))
        return false;
    const QJsonObject error = QJsonDocument::fromJson(body)
                                      .object()
                                      .value(QLatin1String("finance"))
                                      .toObject()
                                      .value(QLatin1String("error"))
                                      .toObject();
    return error.value(QLatin1String("code")).toString() == QLatin1String("Unauthorized");
}

QNetworkRequest withYahooSession(QNetworkRequest request, const YahooCredentials &credentials)
{
    if (!credentials.isValid())
        return request;
    keepCookiesManual(request);
    request.setRawHeader("Cookie", credentials.cookie);
    QUrl url = request.url();
    const QString existing = url.query(QUrl::FullyEncoded);
    const QString crumb = encodedQuery({{QStringLiteral("crumb"), credentials.crumb}});
    url.setQuery(existing.isEmpty() ? crumb : existing + QLatin1Char('&') + crumb,
                 QUrl::StrictMode);
    request.setUrl(url);
    return request;
}

YahooSession::YahooSession(QNetworkAccessManager &network, QObject *parent)
    : QObject(parent)
    , m_network(network)
{}

void YahooSession::withSession(Ready ready)
{
    if (m_credentials.isValid()) {
        ready(m_credentials);
        return;
    }
    if (!m_fetching && m_failedAtMs && m_clock() - *m_failedAtMs < kRetryPauseMs) {
        ready({});
        return;
    }
    m_waiting.append(std::move(ready));
    if (!m_fetching)
        fetch();
}

void YahooSession::renew(const YahooCredentials &refused, Ready ready)
{
    if (m_credentials.serial == refused.serial)
        m_credentials = {};
    withSession(std::move(ready));
}

void YahooSession::get(const QNetworkRequest &request, QObject *context,
                       ProviderReplyHandler handler)
{
    QPointer<QObject> guard(context);
    withSession([this, request, guard,
                 handler = std::move(handler)](const YahooCredentials &credentials) {
        if (guard)
            send(request, credentials, guard, handler, true);
    });
}

void YahooSession::send(const QNetworkRequest &request, const YahooCredentials &credentials,
                        QObject *context, ProviderReplyHandler handler, bool mayRenew)
{
    QNetworkRequest sent = withYahooSession(request, credentials);
    if (sent.transferTimeout() == 0)
        sent.setTransferTimeout(m_transferTimeoutMs);
    QPointer<QObject> guard(context);
    sendProviderGet(
            m_network, sent, context,
            [this, request, credentials, guard, handler, mayRenew](const ProviderReply &reply) {
                if (!mayRenew || !isYahooUnauthorized(reply.httpStatus, reply.body)) {
                    handler(reply);
                    return;
                }
                renew(credentials,
                      [this, request, guard, handler, reply](const YahooCredentials &renewed) {
                          if (!guard)
                              return;
                          if (!renewed.isValid()) {
                              handler(reply);
                              return;
                          }
                          send(request, renewed, guard, handler, false);
                      });
            },
            m_clock);
}

void YahooSession::fetch()
{
    m_fetching = true;
    ++m_fetches;
    QNetworkRequest request = yahooCookieRequest();
    keepCookiesManual(request);
    request.setTransferTimeout(m_cookieTimeoutMs);
    // The host answers 404 with an error page; the cookie is in the headers all the same.
    sendProviderGet(
            m_network, request, this, [this](const ProviderReply &reply) { readCookie(reply); },
            m_clock);
}

void YahooSession::readCookie(const ProviderReply &reply)
{
    const QByteArray cookie = cookieHeaderOf(reply.rawHeaders);
    if (cookie.isEmpty()) {
        finish({});
        return;
    }
    QNetworkRequest request = yahooCrumbRequest(cookie);
    keepCookiesManual(request);
    request.setTransferTimeout(m_transferTimeoutMs);
    sendProviderGet(
            m_network, request, this,
            [this, cookie](const ProviderReply &crumbReply) { readCrumb(cookie, crumbReply); },
            m_clock);
}

void YahooSession::readCrumb(const QByteArray &cookie, const ProviderReply &reply)
{
    const QByteArray crumb = reply.body.trimmed();
    if (reply.httpStatus != 200 || reply.tooLarge || !isPlausibleYahooCrumb(crumb)) {
        finish({});
        return;
    }
    finish({cookie, QString::fromLatin1(crumb), m_fetches});
}

void YahooSession::finish(const YahooCredentials &credentials)
{
    m_fetching = false;
    m_credentials = credentials;
    if (credentials.isValid())
        m_failedAtMs.reset();
    else
        m_failedAtMs = m_clock();
    // A waiting request may ask again (a refused one renewing); it then starts a fetch of its own.
    const QList<Ready> waiting = std::exchange(m_waiting, {});
    for (const Ready &ready : waiting)
        ready(credentials);
}
