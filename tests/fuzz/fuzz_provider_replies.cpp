// Feeds arbitrary replies to the provider readers the quote fetchers do not cover: the Yahoo batch
// quote and symbol search, the Yahoo session's cookie and crumb, the health check's reply rules
// and a quote step's verdict. The first byte picks the reader; the health check and the quote step
// read a row or provider byte, a status byte, a Retry-After line and the body. A broken invariant
// traps, so libFuzzer keeps the input.
#include "providers/provider_catalogue.h"
#include "providers/provider_requests.h"
#include "providers/quote_step.h"
#include "providers/yahoo_batch_quote.h"
#include "providers/yahoo_session.h"
#include "providers/yahoo_symbol_search.h"

#include <QByteArray>
#include <QSet>
#include <QUrlQuery>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

constexpr std::array<int, 10> kStatuses{200, 201, 204, 429, 0, 301, 400, 403, 404, 503};
constexpr qint64 kNowMs = 1'750'000'000'000;

void batchAndSearch(const QByteArray &body)
{
    for (const QuoteSnapshot &quote : parseYahooBatchQuotes(body)) {
        check(quote.isValid() && std::isfinite(quote.price) && quote.price > 0);
        check(!quote.symbol.isEmpty() && quote.symbol == quote.symbol.trimmed().toUpper());
        check(quote.source == QLatin1String("Yahoo"));
    }
    const QStringList symbols = parseYahooSymbolSearch(body);
    check(symbols.size() <= kYahooSymbolSearchLimit);
    check(QSet<QString>(symbols.cbegin(), symbols.cend()).size() == symbols.size());
    for (const QString &symbol : symbols)
        check(!symbol.isEmpty() && symbol == symbol.trimmed().toUpper());
}

// The first line is a Set-Cookie value, the rest the getcrumb body. The session a request carries
// is the cookie as one header line and the crumb as the last query item, exactly.
void session(const QByteArray &input)
{
    const qsizetype newline = input.indexOf('\n');
    const QByteArray setCookie = newline < 0 ? input : input.left(newline);
    const QByteArray body = newline < 0 ? QByteArray() : input.mid(newline + 1);
    const QByteArray cookie = cookieHeaderOf({{"Set-Cookie", setCookie}, {"X-Other", body}});
    check(!cookie.contains('\n') && !cookie.contains('\r'));
    check(cookie.isEmpty() || !cookie.startsWith(';'));
    isYahooUnauthorized(401, body);
    isYahooUnauthorized(200, body);
    if (!isPlausibleYahooCrumb(body))
        return;
    const YahooCredentials credentials{cookie, QString::fromLatin1(body), 1};
    const QNetworkRequest request = withYahooSession(
            QNetworkRequest(QUrl(QStringLiteral("https://query1.example/v7/finance/quote"
                                                "?symbols=AAPL,PETR4.SA"))),
            credentials);
    if (!credentials.isValid())
        return;
    check(request.rawHeader("Cookie") == cookie);
    const QUrlQuery query(request.url());
    const auto items = query.queryItems(QUrl::FullyDecoded);
    check(items.size() == 2 && items.last().first == QLatin1String("crumb"));
    check(items.last().second == credentials.crumb);
    check(query.queryItemValue(QStringLiteral("symbols")) == QLatin1String("AAPL,PETR4.SA"));
}

// The keys every keyed row is tested with; none may appear in what the row's record shows.
QString secretOf(const QString &keyName)
{
    if (keyName == QLatin1String("querlin_news_endpoint"))
        return {};
    return QStringLiteral("S3cr3t%1").arg(qHash(keyName) % 100000);
}

struct Reply
{
    int status;
    RawHeaderList headers;
    QByteArray body;
};

// One byte picks the status, the bytes up to the first newline are the Retry-After value.
Reply readReply(uint8_t statusByte, const QByteArray &rest)
{
    const qsizetype newline = rest.indexOf('\n');
    const QByteArray retryAfter = newline < 0 ? QByteArray() : rest.left(newline);
    return {kStatuses[statusByte % kStatuses.size()],
            {{"Content-Type", "application/json"}, {"Retry-After", retryAfter}},
            newline < 0 ? rest : rest.mid(newline + 1)};
}

void healthReply(uint8_t rowByte, const Reply &reply)
{
    const auto rows = providerCatalogue();
    const CatalogueRow &row = rows[rowByte % rows.size()];
    const HealthPlan plan = healthPlan(row, secretOf);
    if (!plan.request)
        return;
    ApiHealthRecord record;
    beginHealthTest(record, plan);
    const QString providerId = healthProviderId(row);
    ProviderResponseCheck verdict =
            classifyProviderResponse(providerId, reply.status, reply.headers, reply.body);
    verdict.message = maskRequestSecrets(verdict.message, plan.request->url());
    applyHealthTestReply(record, verdict, 120, QDateTime::fromMSecsSinceEpoch(kNowMs, Qt::UTC));
    check(record.attempts == 1 && record.successes + record.failures == 1);
    check(record.state == QLatin1String("ok") || record.state == QLatin1String("error") ||
          record.state == QLatin1String("rate limited"));
    check((record.state == QLatin1String("ok")) == verdict.ok);
    check(record.state != QLatin1String("ok") || record.lastError.isEmpty());
    const QString secret = secretOf(QString::fromLatin1(row.keyName));
    if (!secret.isEmpty())
        check(!record.lastError.contains(secret));
    check(ApiHealthRecord::fromJson(record.toJson()) == record);
    isFmpLegacyEndpointReply(reply.status, reply.body);
}

struct StepProvider
{
    QuoteStepKind kind;
    const char *id;
    std::shared_ptr<const DataFetcher> fetcher;
};

const std::array<StepProvider, 11> &stepProviders()
{
    static const std::array<StepProvider, 11> providers{{
            {QuoteStepKind::Crypto, "binance_public", std::make_shared<BinanceFetcher>()},
            {QuoteStepKind::Plain, "yahoo_us", std::make_shared<YahooFetcher>("1d", "5d")},
            {QuoteStepKind::Plain, "yahoo_b3", std::make_shared<YahooFetcher>("1d", "5d")},
            {QuoteStepKind::Plain, "brapi_keyed",
             std::make_shared<BrAPIFetcher>("S3cr3t", "1d", "5d")},
            {QuoteStepKind::Plain, "brapi_public", std::make_shared<BrAPIFetcher>("", "1d", "5d")},
            {QuoteStepKind::Plain, "finnhub", std::make_shared<FinnhubFetcher>("S3cr3t")},
            {QuoteStepKind::KeyedUs, "alpha_vantage",
             std::make_shared<AlphaVantageFetcher>("S3cr3t")},
            {QuoteStepKind::KeyedUs, "twelvedata", std::make_shared<TwelveDataFetcher>("S3cr3t")},
            {QuoteStepKind::Forex, "twelvedata", std::make_shared<TwelveDataFetcher>("S3cr3t")},
            {QuoteStepKind::KeyedUs, "fmp",
             std::make_shared<FinancialModelingPrepFetcher>("S3cr3t")},
            {QuoteStepKind::Forex, "yahoo_fx", std::make_shared<YahooFetcher>("1d", "5d")},
    }};
    return providers;
}

// A step's verdict: a quote exactly when it succeeds, a message exactly when it fails, and any
// pause it starts lies ahead of now.
void quoteStep(uint8_t providerByte, const Reply &reply)
{
    const StepProvider &provider = stepProviders()[providerByte % stepProviders().size()];
    const QString id = QString::fromLatin1(provider.id);
    const QString symbol = QStringLiteral("MSFT");
    const QUrl url = provider.fetcher->buildRequest(symbol).url();
    ProviderResponseCheck verdict =
            classifyProviderResponse(id, reply.status, reply.headers, reply.body);
    verdict.message = maskRequestSecrets(verdict.message, url);
    check(!verdict.message.contains(QLatin1String("S3cr3t")));
    ProviderThrottles throttles;
    const QuoteStepOutcome outcome = resolveQuoteStep(provider.kind, id, *provider.fetcher, symbol,
                                                      verdict, reply.body, throttles, kNowMs);
    check(outcome.result.ok == outcome.quote.has_value());
    check(outcome.result.ok == outcome.result.message.isEmpty());
    check(!outcome.result.rateLimited || !outcome.result.ok);
    if (outcome.quote)
        check(outcome.quote->isValid());
    check(!outcome.writeAlphaVantageCache || (outcome.result.ok && id == "alpha_vantage"));
    const qint64 until = throttles.cooldownUntil(id);
    check(until == 0 || until >= kNowMs);
    check(throttles.alphaVantageBlockedUntil() == 0 ||
          throttles.alphaVantageBlockedUntil() >= kNowMs);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3)
        return 0;
    const QByteArray rest(reinterpret_cast<const char *>(data) + 1, qsizetype(size - 1));
    switch (data[0] % 4) {
    case 0:
        batchAndSearch(rest);
        break;
    case 1:
        session(rest);
        break;
    case 2:
        healthReply(data[1], readReply(data[2], rest.mid(2)));
        break;
    default:
        quoteStep(data[1], readReply(data[2], rest.mid(2)));
        break;
    }
    return 0;
}
