#pragma once

#include <QString>
#include <QUrl>

#include <span>

// Every remote base the terminal calls. Each has a public default and an environment override
// holding a scheme://host[:port] base without a trailing slash, so tests and private deployments
// can point it elsewhere (plain http:// and ws:// work as well as the secure defaults).
enum class Endpoint {
    BinanceRest,
    BinanceStream,
    YahooQuery,
    YahooCookie, // answers 404 but sets the cookie the batch quote's session needs
    YahooFeeds,
    Brapi,
    AlphaVantage,
    Finnhub,
    TwelveData,
    FinancialModelingPrep,
    ItickStream,
    NewsApi,
    Account,
};

struct EndpointDefinition
{
    Endpoint endpoint;
    const char *environmentVariable;
    const char *defaultBase;
    bool isStream; // ws/wss rather than http/https
};

std::span<const EndpointDefinition> endpointDefinitions();
const EndpointDefinition &endpointDefinition(Endpoint endpoint);

// The base in effect: a valid override from the environment, else the default. An override that is
// not a scheme://host[:port] base of the right kind is ignored with a warning on stderr.
QString endpointBase(Endpoint endpoint);

// The base followed by an absolute path ("/api/v3/ticker/24hr"); the path is kept as given, so a
// percent-encoded symbol in it stays encoded.
QUrl endpointUrl(Endpoint endpoint, const QString &path);

// Why a base text cannot be used, or empty when it can.
QString endpointBaseProblem(const QString &base, bool isStream);

// The account service addresses on the configured account base. They are built when asked, so a
// base set by the environment before the window exists is the one used.
QString accountAuthEndpoint(); // "/TERMINAL/auth"
QString accountLoginPage();    // "/login_page.php"
QString accountSyncEndpoint(); // "/TERMINAL/sync"
QString houseNewsFeed();       // "/TERMINAL/NEWS.json"
