#include "providers/provider_requests.h"

#include <QUrlQuery>

namespace {

QNetworkRequest terminalRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setRawHeader("User-Agent", kTerminalUserAgent);
    return request;
}

// Qt carries every header over to wherever a redirect leads, so a request with a token follows a
// redirect only to the same scheme, host and port: the token never reaches another host.
void setBearer(QNetworkRequest &request, const QString &token)
{
    request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
}

bool g_fmpStableQuote = false;

QString upperSymbol(const QString &symbol)
{
    return symbol.trimmed().toUpper();
}

} // namespace

QString encodedQuery(const QueryItems &items)
{
    QStringList parts;
    parts.reserve(items.size());
    for (const auto &[key, value] : items)
        parts << QString::fromLatin1(QUrl::toPercentEncoding(key) + '=' +
                                     QUrl::toPercentEncoding(value));
    return parts.join(QLatin1Char('&'));
}

QUrl providerUrl(Endpoint endpoint, const QString &encodedPath, const QueryItems &query)
{
    QUrl url = endpointUrl(endpoint, encodedPath);
    if (!query.isEmpty())
        url.setQuery(encodedQuery(query), QUrl::StrictMode);
    return url;
}

QString encodedPathSegment(const QString &symbol)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(symbol));
}

QString brapiTicker(const QString &symbol)
{
    QString ticker = symbol;
    return ticker.remove(QStringLiteral(".SA"));
}

QNetworkRequest alphaVantageQuoteRequest(const QString &symbol, const QString &apiKey)
{
    return terminalRequest(
            providerUrl(Endpoint::AlphaVantage, QStringLiteral("/query"),
                        {{"function", "GLOBAL_QUOTE"}, {"symbol", symbol}, {"apikey", apiKey}}));
}

QNetworkRequest alphaVantageMoversRequest(const QString &apiKey)
{
    return terminalRequest(providerUrl(Endpoint::AlphaVantage, QStringLiteral("/query"),
                                       {{"function", "TOP_GAINERS_LOSERS"}, {"apikey", apiKey}}));
}

QNetworkRequest brapiQuoteRequest(const QString &symbol, const QString &token, const QString &range,
                                  const QString &interval)
{
    QueryItems query;
    if (!range.isEmpty() && !interval.isEmpty())
        query = {{"range", range}, {"interval", interval}};
    QNetworkRequest request = terminalRequest(providerUrl(
            Endpoint::Brapi, "/api/quote/" + encodedPathSegment(brapiTicker(symbol)), query));
    if (!token.isEmpty())
        setBearer(request, token);
    return request;
}

QNetworkRequest finnhubQuoteRequest(const QString &symbol, const QString &apiKey)
{
    return terminalRequest(providerUrl(Endpoint::Finnhub, QStringLiteral("/api/v1/quote"),
                                       {{"symbol", symbol}, {"token", apiKey}}));
}

QNetworkRequest fmpQuoteRequest(const QString &symbol, const QString &apiKey)
{
    if (g_fmpStableQuote)
        return terminalRequest(providerUrl(Endpoint::FinancialModelingPrep,
                                           QStringLiteral("/stable/quote"),
                                           {{"symbol", symbol}, {"apikey", apiKey}}));
    return terminalRequest(providerUrl(Endpoint::FinancialModelingPrep,
                                       "/api/v3/quote/" + encodedPathSegment(symbol),
                                       {{"apikey", apiKey}}));
}

bool fmpStableQuoteInUse()
{
    return g_fmpStableQuote;
}

void setFmpStableQuoteInUse(bool stable)
{
    g_fmpStableQuote = stable;
}

bool isFmpLegacyEndpointReply(int httpStatus, const QByteArray &body)
{
    return httpStatus == 403 && body.contains("Legacy Endpoint");
}

// Binance takes its requests bare: no user agent of ours.
QNetworkRequest binanceKlinesRequest(const QString &symbol, const QString &interval)
{
    return QNetworkRequest(providerUrl(
            Endpoint::BinanceRest, QStringLiteral("/api/v3/klines"),
            {{"symbol", upperSymbol(symbol)}, {"interval", interval}, {"limit", "180"}}));
}

QNetworkRequest binanceAllTickersRequest()
{
    return QNetworkRequest(
            providerUrl(Endpoint::BinanceRest, QStringLiteral("/api/v3/ticker/24hr")));
}

QNetworkRequest binanceExchangeInfoRequest()
{
    return QNetworkRequest(
            providerUrl(Endpoint::BinanceRest, QStringLiteral("/api/v3/exchangeInfo")));
}

QNetworkRequest binanceDepthRequest(const QString &symbol)
{
    return QNetworkRequest(providerUrl(Endpoint::BinanceRest, QStringLiteral("/api/v3/depth"),
                                       {{"symbol", upperSymbol(symbol)}, {"limit", "20"}}));
}

QNetworkRequest yahooChartRequest(const QString &symbol, const QString &interval,
                                  const QString &range)
{
    return terminalRequest(
            providerUrl(Endpoint::YahooQuery, "/v8/finance/chart/" + encodedPathSegment(symbol),
                        {{"interval", interval}, {"range", range}, {"includePrePost", "false"}}));
}

QList<QNetworkRequest> yahooBatchQuoteRequests(const QStringList &symbols)
{
    QList<QNetworkRequest> requests;
    for (qsizetype first = 0; first < symbols.size(); first += kYahooBatchSize) {
        const QStringList batch = symbols.mid(first, kYahooBatchSize);
        requests << terminalRequest(providerUrl(Endpoint::YahooQuery,
                                                QStringLiteral("/v7/finance/quote"),
                                                {{"symbols", batch.join(QLatin1Char(','))}}));
    }
    return requests;
}

QNetworkRequest yahooCookieRequest()
{
    return terminalRequest(providerUrl(Endpoint::YahooCookie, QStringLiteral("/")));
}

QNetworkRequest yahooCrumbRequest(const QByteArray &cookie)
{
    QNetworkRequest request =
            terminalRequest(providerUrl(Endpoint::YahooQuery, QStringLiteral("/v1/test/getcrumb")));
    request.setRawHeader("Cookie", cookie);
    return request;
}

QNetworkRequest yahooSymbolSearchRequest(const QString &text)
{
    return terminalRequest(providerUrl(Endpoint::YahooQuery, QStringLiteral("/v1/finance/search"),
                                       {{"q", text}, {"quotesCount", "20"}, {"newsCount", "0"}}));
}

QNetworkRequest yahooHeadlineFeedRequest(const QStringList &symbols)
{
    return terminalRequest(providerUrl(
            Endpoint::YahooFeeds, QStringLiteral("/rss/2.0/headline"),
            {{"s", symbols.join(QLatin1Char(','))}, {"region", "US"}, {"lang", "en-US"}}));
}

QNetworkRequest newsApiArticlesRequest(const QString &query, const QString &apiKey)
{
    return terminalRequest(providerUrl(Endpoint::NewsApi, QStringLiteral("/v2/everything"),
                                       {{"q", query},
                                        {"language", "en"},
                                        {"sortBy", "publishedAt"},
                                        {"pageSize", "50"},
                                        {"apiKey", apiKey}}));
}

QNetworkRequest terminalNewsRequest(const QUrl &endpoint, const QString &token,
                                    const QString &category, const QString &query,
                                    const QString &language)
{
    const QString lang = language.startsWith(QLatin1String("pt"), Qt::CaseInsensitive)
                                 ? QStringLiteral("pt")
                                 : QStringLiteral("en");
    const QString added =
            encodedQuery({{"category", category}, {"q", query}, {"limit", "80"}, {"lang", lang}});
    QUrl url = endpoint;
    const QString existing = url.query(QUrl::FullyEncoded);
    url.setQuery(existing.isEmpty() ? added : existing + QLatin1Char('&') + added,
                 QUrl::StrictMode);
    QNetworkRequest request = terminalRequest(url);
    if (!token.isEmpty())
        setBearer(request, token);
    return request;
}
