#include "app/endpoints.h"

#include <QSet>

#include <array>
#include <cstdio>

namespace {

constexpr std::array<EndpointDefinition, 13> kDefinitions = {{
        {Endpoint::BinanceRest, "QRL_ENDPOINT_BINANCE_REST", "https://api.binance.com", false},
        {Endpoint::BinanceStream, "QRL_ENDPOINT_BINANCE_STREAM", "wss://stream.binance.com:9443",
         true},
        {Endpoint::YahooQuery, "QRL_ENDPOINT_YAHOO_QUERY", "https://query1.finance.yahoo.com",
         false},
        {Endpoint::YahooCookie, "QRL_ENDPOINT_YAHOO_COOKIE", "https://fc.yahoo.com", false},
        {Endpoint::YahooFeeds, "QRL_ENDPOINT_YAHOO_FEEDS", "https://feeds.finance.yahoo.com",
         false},
        {Endpoint::Brapi, "QRL_ENDPOINT_BRAPI", "https://brapi.dev", false},
        {Endpoint::AlphaVantage, "QRL_ENDPOINT_ALPHA_VANTAGE", "https://www.alphavantage.co",
         false},
        {Endpoint::Finnhub, "QRL_ENDPOINT_FINNHUB", "https://finnhub.io", false},
        {Endpoint::TwelveData, "QRL_ENDPOINT_TWELVE_DATA", "https://api.twelvedata.com", false},
        {Endpoint::FinancialModelingPrep, "QRL_ENDPOINT_FMP", "https://financialmodelingprep.com",
         false},
        {Endpoint::ItickStream, "QRL_ENDPOINT_ITICK_STREAM", "wss://api.itick.org", true},
        {Endpoint::NewsApi, "QRL_ENDPOINT_NEWSAPI", "https://newsapi.org", false},
        {Endpoint::Account, "QRL_ENDPOINT_ACCOUNT", "https://account.querlin.app", false},
}};

QString stripTrailingSlashes(QString base)
{
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base;
}

// A bad override is reported once per variable, not on every request.
void warnOnce(const char *variable, const QString &value, const QString &problem)
{
    static QSet<QByteArray> warned;
    if (warned.contains(variable))
        return;
    warned.insert(variable);
    std::fprintf(stderr, "Ignoring %s=\"%s\": %s; using the default address.\n", variable,
                 value.toLocal8Bit().constData(), problem.toLocal8Bit().constData());
}

QString accountAddress(const char *path)
{
    return endpointBase(Endpoint::Account) + QLatin1String(path);
}

} // namespace

std::span<const EndpointDefinition> endpointDefinitions()
{
    return kDefinitions;
}

const EndpointDefinition &endpointDefinition(Endpoint endpoint)
{
    for (const EndpointDefinition &definition : kDefinitions) {
        if (definition.endpoint == endpoint)
            return definition;
    }
    return kDefinitions.front(); // unreachable: the table names every endpoint
}

QString endpointBaseProblem(const QString &base, bool isStream)
{
    const QUrl url(base, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return QStringLiteral("not a scheme://host[:port] address");
    const QString scheme = url.scheme();
    const bool schemeFits =
            isStream ? (scheme == QLatin1String("ws") || scheme == QLatin1String("wss"))
                     : (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
    if (!schemeFits) {
        return isStream ? QStringLiteral("the scheme must be ws or wss")
                        : QStringLiteral("the scheme must be http or https");
    }
    if (!url.path().isEmpty() || url.hasQuery() || url.hasFragment() || !url.userInfo().isEmpty())
        return QStringLiteral("only scheme, host and port are allowed");
    return {};
}

QString endpointBase(Endpoint endpoint)
{
    const EndpointDefinition &definition = endpointDefinition(endpoint);
    const QString value = qEnvironmentVariable(definition.environmentVariable).trimmed();
    if (value.isEmpty())
        return QString::fromLatin1(definition.defaultBase);
    const QString base = stripTrailingSlashes(value);
    const QString problem = endpointBaseProblem(base, definition.isStream);
    if (!problem.isEmpty()) {
        warnOnce(definition.environmentVariable, value, problem);
        return QString::fromLatin1(definition.defaultBase);
    }
    return base;
}

QUrl endpointUrl(Endpoint endpoint, const QString &path)
{
    return QUrl(endpointBase(endpoint) + path, QUrl::TolerantMode);
}

QString accountAuthEndpoint()
{
    return accountAddress("/TERMINAL/auth");
}

QString accountLoginPage()
{
    return accountAddress("/login_page.php");
}

QString accountSyncEndpoint()
{
    return accountAddress("/TERMINAL/sync");
}

QString houseNewsFeed()
{
    return accountAddress("/TERMINAL/NEWS.json");
}
