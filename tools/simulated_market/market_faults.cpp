#include "simulated_market/market_faults.h"

namespace {

const QString kAll = QStringLiteral("all");

QByteArray unavailablePage(const QString &provider)
{
    if (provider == QLatin1String("yahoo") || provider == QLatin1String("yahoo_rss")) {
        return "<!doctype html public \"-//W3C//DTD HTML 4.01//EN\" "
               "\"http://www.w3.org/TR/html4/strict.dtd\">\n<html>\n<head>\n"
               "    <title>Yahoo! - Error report</title>\n</head>\n<body>\n<div id=\"doc\">\n"
               "    <div id=\"bd\">\n        <h1>HTTP Status 503 - Service Unavailable</h1>\n"
               "    </div>\n</div>\n</body>\n</html>\n";
    }
    return "<html>\r\n<head><title>503 Service Temporarily Unavailable</title></head>\r\n"
           "<body>\r\n<center><h1>503 Service Temporarily Unavailable</h1></center>\r\n"
           "<hr><center>nginx</center>\r\n</body>\r\n</html>\r\n";
}

// What a provider's host sends under HTTP 200 when something in front of the API answers instead:
// Yahoo's "will be right back" notice, or a proxy's maintenance page.
QByteArray maintenancePage(const QString &provider)
{
    if (provider == QLatin1String("yahoo") || provider == QLatin1String("yahoo_rss")) {
        return "<!DOCTYPE html>\n<html lang=\"en-us\"><head>\n<meta charset=\"utf-8\">\n"
               "<title>Yahoo</title>\n</head>\n<body>\n<div id=\"message-1\">Will be right "
               "back...</div>\n<div id=\"message-2\">Thank you for your patience.</div>\n"
               "<div id=\"message-3\">Our engineers are working quickly to resolve the issue."
               "</div>\n</body>\n</html>\n";
    }
    return "<!DOCTYPE html>\n<html>\n<head><title>Scheduled maintenance</title></head>\n<body>\n"
           "<h1>We&rsquo;ll be back soon</h1>\n<p>The service is down for scheduled maintenance."
           "</p>\n</body>\n</html>\n";
}

const char kAlphaVantageDaily[] =
        R"({
    "Information": "Thank you for using Alpha Vantage! Our standard API rate limit is 25 requests per day. Please subscribe to any of the premium plans at https://www.alphavantage.co/premium/ to instantly remove all daily rate limits."
})";
const char kAlphaVantageNote[] =
        R"({
    "Note": "Thank you for using Alpha Vantage! Our standard API call frequency is 5 calls per minute and 500 calls per day. Please visit https://www.alphavantage.co/premium/ if you would like to target a higher API call frequency."
})";
const char kTwelveDataCredits[] =
        R"({"code":429,"message":"You have run out of API credits for the current minute. 9 API credits were used, with the current limit being 8. Wait for the next minute or consider switching to a higher tier plan at https://twelvedata.com/pricing","status":"error"})";
const char kFmpLimit[] =
        R"({
  "Error Message" : "Limit Reach . Please upgrade your plan or visit our documentation for more details at https://site.financialmodelingprep.com/"
})";

// Each provider's throttling reply, as it sends it.
HttpResponse rateLimitReply(const QString &provider)
{
    HttpResponse response;
    response.status = 429;
    if (provider == QLatin1String("yahoo") || provider == QLatin1String("yahoo_rss")) {
        response = HttpResponse::text("Too Many Requests\r\n", 429);
    } else if (provider == QLatin1String("binance")) {
        response.body =
                R"({"code":-1003,"msg":"Too much request weight used; current limit is 6000 request weight per 1 MINUTE. Please use WebSocket Streams for live updates to avoid polling the API."})";
    } else if (provider == QLatin1String("finnhub")) {
        response.body =
                R"({"error":"API limit reached. Please try again later. Remaining Limit: 0"})";
    } else if (provider == QLatin1String("twelvedata")) {
        response.body = kTwelveDataCredits;
    } else if (provider == QLatin1String("fmp")) {
        response.body = kFmpLimit;
    } else if (provider == QLatin1String("brapi")) {
        // BrAPI's plan limit is a 402, never a 429.
        response.status = 402;
        response.body =
                R"({"error":true,"message":"Você atingiu o limite de requisições para o seu plano. Por favor, considere fazer um upgrade para um plano melhor em brapi.dev/dashboard"})";
    } else if (provider == QLatin1String("newsapi")) {
        response.body =
                R"({"status":"error","code":"rateLimited","message":"You have made too many requests recently. Developer accounts are limited to 100 requests over a 24 hour period (50 requests available every 12 hours). Please upgrade to a paid plan if you need more requests."})";
    } else if (provider == QLatin1String("querlin_news")) {
        response.body = R"({"error":"Too many requests. Try again in a few seconds."})";
    } else {
        response.body = kAlphaVantageDaily;
    }
    response.headers.append({"Retry-After", QByteArray::number(kRetryAfterSeconds)});
    return response;
}

// The limit messages that come under HTTP 200; a provider without one answers as for "429".
HttpResponse limitReply(const QString &provider, FaultKind kind)
{
    if (provider == QLatin1String("alpha_vantage"))
        return HttpResponse::json(kind == FaultKind::Note ? kAlphaVantageNote : kAlphaVantageDaily);
    if (provider == QLatin1String("twelvedata"))
        return HttpResponse::json(kTwelveDataCredits);
    if (provider == QLatin1String("fmp"))
        return HttpResponse::json(kFmpLimit);
    return rateLimitReply(provider);
}

} // namespace

QString Fault::name() const
{
    switch (kind) {
    case FaultKind::None:
        return QStringLiteral("none");
    case FaultKind::RateLimited:
        return QStringLiteral("429");
    case FaultKind::Unavailable:
        return QStringLiteral("5xx");
    case FaultKind::Html:
        return QStringLiteral("html");
    case FaultKind::Limit:
        return QStringLiteral("limit");
    case FaultKind::Note:
        return QStringLiteral("note");
    case FaultKind::Malformed:
        return QStringLiteral("malformed");
    case FaultKind::Slow:
        return QStringLiteral("slow:%1").arg(delayMs);
    case FaultKind::Silent:
        return QStringLiteral("silent");
    case FaultKind::Close:
        return QStringLiteral("close");
    case FaultKind::Garbage:
        return QStringLiteral("garbage");
    case FaultKind::ShortDepth:
        return QStringLiteral("short_depth");
    }
    return {};
}

std::optional<Fault> Fault::parse(const QString &text)
{
    const QString kind = text.trimmed().toLower();
    static const QHash<QString, FaultKind> kinds{
            {QStringLiteral("none"), FaultKind::None},
            {QStringLiteral("429"), FaultKind::RateLimited},
            {QStringLiteral("5xx"), FaultKind::Unavailable},
            {QStringLiteral("503"), FaultKind::Unavailable},
            {QStringLiteral("html"), FaultKind::Html},
            {QStringLiteral("limit"), FaultKind::Limit},
            {QStringLiteral("note"), FaultKind::Note},
            {QStringLiteral("malformed"), FaultKind::Malformed},
            {QStringLiteral("silent"), FaultKind::Silent},
            {QStringLiteral("close"), FaultKind::Close},
            {QStringLiteral("garbage"), FaultKind::Garbage},
            {QStringLiteral("short_depth"), FaultKind::ShortDepth},
    };
    if (const auto found = kinds.constFind(kind); found != kinds.cend())
        return Fault{*found, 0};
    if (kind.startsWith(QLatin1String("slow:"))) {
        bool ok = false;
        const int delay = kind.mid(5).toInt(&ok);
        if (ok && delay >= 0 && delay <= kMaxSlowMs)
            return Fault{FaultKind::Slow, delay};
    }
    return std::nullopt;
}

const QStringList &simulatedProviders()
{
    static const QStringList providers{"yahoo",   "yahoo_rss",    "brapi",         "binance",
                                       "finnhub", "twelvedata",   "fmp",           "alpha_vantage",
                                       "newsapi", "querlin_news", kBinanceStreams, kItickStreams};
    return providers;
}

bool isStreamProvider(const QString &provider)
{
    return provider == kBinanceStreams || provider == kItickStreams;
}

bool faultFits(const QString &provider, FaultKind kind)
{
    if (kind == FaultKind::None || kind == FaultKind::Silent)
        return true;
    const bool streamKind =
            kind == FaultKind::Close || kind == FaultKind::Garbage || kind == FaultKind::ShortDepth;
    return streamKind == isStreamProvider(provider);
}

bool FaultBoard::set(const QString &provider, const Fault &fault)
{
    if (provider != kAll &&
        (!simulatedProviders().contains(provider) || !faultFits(provider, fault.kind)))
        return false;
    for (const QString &id : simulatedProviders()) {
        if ((provider != kAll && id != provider) || !faultFits(id, fault.kind))
            continue;
        if (fault.kind == FaultKind::None)
            m_faults.remove(id);
        else
            m_faults.insert(id, fault);
    }
    return true;
}

QString FaultBoard::apply(const QString &setting)
{
    const qsizetype equals = setting.indexOf(QLatin1Char('='));
    if (equals < 0)
        return QStringLiteral("expected provider=kind, got \"%1\"").arg(setting);
    const QString provider = setting.left(equals).trimmed().toLower();
    const std::optional<Fault> fault = Fault::parse(setting.mid(equals + 1));
    if (!fault)
        return QStringLiteral("unknown fault \"%1\" (none, 429, 5xx, html, limit, note, malformed, "
                              "slow:<ms>, silent; for binance_ws and itick_ws: close, garbage, "
                              "short_depth)")
                .arg(setting.mid(equals + 1));
    if (provider != kAll && !simulatedProviders().contains(provider))
        return QStringLiteral("unknown provider \"%1\" (%2 or all)")
                .arg(provider, simulatedProviders().join(QStringLiteral(", ")));
    if (provider != kAll && !faultFits(provider, fault->kind)) {
        return isStreamProvider(provider)
                       ? QStringLiteral("%1 takes none, silent, close, garbage or short_depth")
                                 .arg(provider)
                       : QStringLiteral("%1 takes none, 429, 5xx, html, limit, note, malformed, "
                                        "slow:<ms> or silent")
                                 .arg(provider);
    }
    set(provider, *fault);
    return {};
}

QList<QPair<QString, Fault>> FaultBoard::active() const
{
    QList<QPair<QString, Fault>> faults;
    for (const QString &id : simulatedProviders()) {
        if (m_faults.contains(id))
            faults.append({id, m_faults.value(id)});
    }
    return faults;
}

HttpResponse faultyReply(const QString &provider, const Fault &fault,
                         const std::function<HttpResponse()> &usual)
{
    switch (fault.kind) {
    case FaultKind::None:
        break;
    case FaultKind::RateLimited:
        return rateLimitReply(provider);
    case FaultKind::Unavailable:
        return HttpResponse::html(unavailablePage(provider), 503);
    case FaultKind::Html:
        return HttpResponse::html(maintenancePage(provider), 200);
    case FaultKind::Limit:
    case FaultKind::Note:
        return limitReply(provider, fault.kind);
    case FaultKind::Malformed: {
        // Any proper beginning of a JSON object or array fails to parse.
        HttpResponse response = usual();
        response.status = 200;
        response.body = response.body.trimmed();
        response.body.truncate(response.body.size() / 2);
        return response;
    }
    case FaultKind::Slow: {
        HttpResponse response = usual();
        response.delayMs = fault.delayMs;
        return response;
    }
    case FaultKind::Silent: {
        HttpResponse response;
        response.mode = HttpResponse::Mode::Silent;
        return response;
    }
    case FaultKind::Close:
    case FaultKind::Garbage:
    case FaultKind::ShortDepth:
        break; // the streams' own
    }
    return usual();
}
