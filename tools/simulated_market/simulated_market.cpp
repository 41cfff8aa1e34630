#include "simulated_market/simulated_market.h"

#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <utility>

namespace {

using Answer = HttpResponse (*)(const MarketContext &, const HttpRequest &);

struct Route
{
    const char *path;
    bool prefix; // the path continues with a symbol
    const char *provider;
    Answer answer;
};

constexpr Route kRoutes[] = {
        {"/v8/finance/chart/", true, "yahoo", yahooChartReply},
        {"/v7/finance/quote", false, "yahoo", yahooQuoteReply},
        {"/v1/finance/search", false, "yahoo", yahooSearchReply},
        {"/v1/test/getcrumb", false, "yahoo", yahooCrumbReply},
        {"/", false, "yahoo", yahooCookieReply}, // the cookie host shares the port
        {"/api/quote/", true, "brapi", brapiQuoteReply},
        {"/api/v3/ticker/24hr", false, "binance", binanceTickerReply},
        {"/api/v3/ticker/price", false, "binance", binancePriceReply},
        {"/api/v3/exchangeInfo", false, "binance", binanceExchangeInfoReply},
        {"/api/v3/depth", false, "binance", binanceDepthReply},
        {"/api/v3/klines", false, "binance", binanceKlinesReply},
        {"/api/v1/quote", false, "finnhub", finnhubQuoteReply},
        {"/quote", false, "twelvedata", twelveDataQuoteReply},
        {"/api/v3/quote/", true, "fmp", fmpQuoteReply},
        {"/query", false, "alpha_vantage", alphaVantageReply},
        {"/rss/2.0/headline", false, "yahoo_rss", yahooHeadlineFeedReply},
        {"/v2/everything", false, "newsapi", newsApiEverythingReply},
        {"/TERMINAL/NEWS.json", false, "querlin_news", houseNewsReply},
};

// Whose API a path belongs to, simulated or not, so a provider's faults cover all of it. The
// first matching prefix wins.
constexpr std::pair<const char *, const char *> kProviderPaths[] = {
        {"/v1/finance/", "yahoo"},  {"/v6/finance/", "yahoo"},
        {"/v7/finance/", "yahoo"},  {"/v8/finance/", "yahoo"},
        {"/v10/finance/", "yahoo"}, {"/rss/", "yahoo_rss"},
        {"/api/v3/quote/", "fmp"},  {"/stable/", "fmp"},
        {"/api/v3/", "binance"},    {"/api/v1/", "finnhub"},
        {"/api/", "brapi"},         {"/time_series", "twelvedata"},
        {"/price", "twelvedata"},   {"/query", "alpha_vantage"},
        {"/v2/", "newsapi"},        {"/TERMINAL/NEWS", "querlin_news"},
};

const Route *routeOf(const QByteArray &path)
{
    for (const Route &route : kRoutes) {
        if (route.prefix ? path.startsWith(route.path) : path == route.path)
            return &route;
    }
    return nullptr;
}

QString providerOfPath(const QByteArray &path)
{
    if (const Route *route = routeOf(path))
        return QLatin1String(route->provider);
    for (const auto &[prefix, provider] : kProviderPaths) {
        if (path.startsWith(prefix))
            return QLatin1String(provider);
    }
    return {};
}

HttpResponse notSimulated()
{
    return HttpResponse::json(R"({"error":"not simulated"})", 404);
}

} // namespace

SimulatedMarket::SimulatedMarket(quint64 seed, Clock clock, QObject *parent)
    : QObject(parent)
    , m_walk(seed, clock)
    , m_binance(seed, m_catalogue)
    , m_ledger(clock)
    , m_server([this](const HttpRequest &request) { return respond(request); })
    , m_streams(m_walk, m_binance, clock, [this] { return m_faults.faultOf(kBinanceStreams); })
    , m_itick(m_walk, std::move(clock), [this] { return m_faults.faultOf(kItickStreams); })
{
    m_streams.setOtherStreams([this](QWebSocket *socket) { return m_itick.accept(socket); });
    connect(&m_itick, &ItickStreams::served, this, &SimulatedMarket::served);
    connect(&m_streams, &BinanceStreams::served, this, &SimulatedMarket::served);
    reportAnswers(m_server);
}

void SimulatedMarket::reportAnswers(HttpServer &server)
{
    connect(&server, &HttpServer::answered, this, [this](const HttpRequest &request, int status) {
        QString target = QString::fromLatin1(request.path);
        if (!request.rawQuery.isEmpty())
            target += QLatin1Char('?') + QString::fromLatin1(request.rawQuery);
        emit served(QStringLiteral("%1 %2 -> %3")
                            .arg(QString::fromLatin1(request.method), target,
                                 status ? QString::number(status) : QStringLiteral("(held back)")));
    });
}

QString SimulatedMarket::listenAlso(quint16 port)
{
    auto server = std::make_unique<HttpServer>(
            [this](const HttpRequest &request) { return respond(request); });
    if (!server->listen(port))
        return {};
    reportAnswers(*server);
    const QString url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    m_moreServers.push_back(std::move(server));
    return url;
}

bool SimulatedMarket::listen(quint16 port)
{
    return m_server.listen(port);
}

QString SimulatedMarket::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

QString SimulatedMarket::applyFault(const QString &setting)
{
    const QString problem = m_faults.apply(setting);
    if (problem.isEmpty())
        m_ledger.countFaultSwitch();
    m_streams.applyFault();
    m_itick.applyFault();
    return problem;
}

HttpResponse SimulatedMarket::respond(const HttpRequest &request)
{
    if (request.path.startsWith("/__sim/"))
        return control(request);
    if (request.method != "GET" && request.method != "HEAD")
        return notSimulated();
    const Route *route = routeOf(request.path);
    const QString provider = providerOfPath(request.path);
    const auto usual = [this, route, &request] {
        if (!route)
            return notSimulated();
        const MarketContext market{m_walk, m_catalogue, m_binance, m_walk.currentStep()};
        return route->answer(market, request);
    };
    if (provider.isEmpty())
        return usual();
    const Fault fault = m_faults.faultOf(provider);
    const HttpResponse response =
            fault.kind == FaultKind::None ? usual() : faultyReply(provider, fault, usual);
    m_ledger.record(provider, request, fault.kind, response);
    return response;
}

HttpResponse SimulatedMarket::control(const HttpRequest &request)
{
    if (request.path == "/__sim/health") {
        return HttpResponse::json(OrderedJson()
                                          .boolean("ok", true)
                                          .raw("seed", QByteArray::number(m_walk.seed()))
                                          .toJson());
    }
    if (request.path == "/__sim/stats")
        return HttpResponse::json(m_ledger.toJson());
    if (request.path != "/__sim/fault")
        return notSimulated();
    const QString provider = request.queryItem(QStringLiteral("provider"));
    const QString kind = request.queryItem(QStringLiteral("kind"));
    if (!provider.isNull() || !kind.isNull()) {
        const QString problem = applyFault(provider + QLatin1Char('=') + kind);
        if (!problem.isEmpty()) {
            return HttpResponse::json(
                    OrderedJson().boolean("ok", false).text("error", problem).toJson(), 400);
        }
    }
    OrderedJson faults;
    for (const auto &[id, fault] : m_faults.active())
        faults.text(id.toLatin1().constData(), fault.name());
    return HttpResponse::json(
            OrderedJson().boolean("ok", true).raw("faults", faults.toJson()).toJson());
}
