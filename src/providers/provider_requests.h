#pragma once

#include "app/endpoints.h"

#include <QList>
#include <QNetworkRequest>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QUrl>

// Every HTTP request the terminal sends to a market-data provider is shaped here, so paths, query
// order and headers live in one place and every host follows the endpoint overrides.

// Quote fetchers identify themselves with one user agent, every other provider request with
// another. Providers have been seen to treat them differently, so both are kept as they are.
inline constexpr char kFetcherUserAgent[] = "QuerlinTerminal/1.0";
inline constexpr char kTerminalUserAgent[] = "QUERLIN_TERMINAL/0.1 Qt";

// Yahoo answers at most this many symbols per batch quote.
inline constexpr int kYahooBatchSize = 80;

using QueryItems = QList<QPair<QString, QString>>;

// Query values are fully percent-encoded ("EURUSD=X" becomes EURUSD%3DX, "+" becomes %2B), since
// the providers read a bare "=", "^" or "+" in a value as something else.
QString encodedQuery(const QueryItems &items);
// `encodedPath` must already be percent-encoded (see encodedPathSegment).
QUrl providerUrl(Endpoint endpoint, const QString &encodedPath, const QueryItems &query = {});
// A symbol as one percent-encoded path segment ("^GSPC" becomes %5EGSPC).
QString encodedPathSegment(const QString &symbol);
// The symbol BrAPI knows: every ".SA" removed.
QString brapiTicker(const QString &symbol);

QNetworkRequest alphaVantageQuoteRequest(const QString &symbol, const QString &apiKey);
QNetworkRequest alphaVantageMoversRequest(const QString &apiKey);
// With the token as a bearer header when it is not empty; `range` and `interval` only when history
// is wanted (both non-empty).
QNetworkRequest brapiQuoteRequest(const QString &symbol, const QString &token,
                                  const QString &range = {}, const QString &interval = {});
QNetworkRequest finnhubQuoteRequest(const QString &symbol, const QString &apiKey);
// Financial Modeling Prep answers keys made after August 2025 with HTTP 403 "Legacy Endpoint" on
// /api/v3; those keys are served the same array under /stable. Once one reply says so, every FMP
// quote of the run asks /stable.
QNetworkRequest fmpQuoteRequest(const QString &symbol, const QString &apiKey);
bool fmpStableQuoteInUse();
void setFmpStableQuoteInUse(bool stable);
// The refusal that moves the run to /stable: a 403 whose body names the legacy endpoint.
bool isFmpLegacyEndpointReply(int httpStatus, const QByteArray &body);
QNetworkRequest binanceKlinesRequest(const QString &symbol, const QString &interval);
QNetworkRequest binanceExchangeInfoRequest();
// Every pair's 24-hour ticker in one reply (weight 80: once a minute is far inside the limit).
QNetworkRequest binanceAllTickersRequest();
QNetworkRequest binanceDepthRequest(const QString &symbol);
QNetworkRequest yahooChartRequest(const QString &symbol, const QString &interval,
                                  const QString &range);
// One request per batch of at most kYahooBatchSize symbols, in the order given.
QList<QNetworkRequest> yahooBatchQuoteRequests(const QStringList &symbols);
// The two steps of Yahoo's session: the cookie host's root, then the crumb for that cookie.
QNetworkRequest yahooCookieRequest();
QNetworkRequest yahooCrumbRequest(const QByteArray &cookie);
QNetworkRequest yahooSymbolSearchRequest(const QString &text);
QNetworkRequest yahooHeadlineFeedRequest(const QStringList &symbols);
QNetworkRequest newsApiArticlesRequest(const QString &query, const QString &apiKey);
// The house news service lives wherever the user's key file says; its items are appended to any
// query the address already has. `language` is the interface language ("pt_BR" asks for "pt").
QNetworkRequest terminalNewsRequest(const QUrl &endpoint, const QString &token,
                                    const QString &category, const QString &query,
                                    const QString &language);
