#include "providers/provider_catalogue.h"

#include "app/endpoints.h"
#include "app/language.h"
#include "market/symbols.h"
#include "providers/provider_requests.h"
#include "providers/secret_mask.h"

#include <QJsonObject>

namespace {

// clang-format off
const CatalogueRow kCatalogue[] = {
    {"Crypto", 1, "Binance Public", "", "Realtime ticker, candles, trades and depth", "Book when >5 bid and >5 ask levels", "Quote snapshot", true},
    {"Crypto", 2, "Binance Keyed", "binance_api_key", "Future account/private endpoints", "Not required for public book today", "Binance Public", false},
    {"Crypto", 3, "Polygon", "polygon_api_key", "Crypto quote/history when enabled by plan", "Provider dependent", "Binance Public", false},
    {"Crypto", 4, "Twelve Data", "twelvedata_api_key", "Crypto quote/history when covered", "Quote/history only", "Binance Public", false},
    {"US/America", 1, "iTick", "itick_api_key", "US Level 2 depth, quote and tick stream", "Book when >5 bid and >5 ask levels", "Finnhub/Alpha/Yahoo", false},
    {"US/America", 2, "Polygon", "polygon_api_key", "US stocks, options, forex and crypto", "Provider dependent", "Next configured source", false},
    {"US/America", 3, "Finnhub", "finnhub_api_key", "US/global quotes and news", "Level 1 quote fallback", "Alpha/Yahoo", false},
    {"US/America", 4, "Twelve Data", "twelvedata_api_key", "Global stocks, forex and crypto", "Provider dependent", "Alpha/Yahoo", false},
    {"US/America", 5, "IEX Cloud", "iex_cloud_api_key", "US market data", "Provider dependent", "Alpha/Yahoo", false},
    {"US/America", 6, "Financial Modeling Prep", "financial_modeling_prep_api_key", "Quotes, screeners and fundamentals", "Quote/fundamental fallback", "Alpha/Yahoo", false},
    {"US/America", 7, "Tiingo", "tiingo_api_key", "US prices and news", "Quote/history fallback", "Alpha/Yahoo", false},
    {"US/America", 8, "EODHD", "eodhd_api_key", "End-of-day and fundamentals", "No live free book expected", "Alpha/Yahoo", false},
    {"US/America", 9, "Marketstack", "marketstack_api_key", "End-of-day/global equities", "No live free book expected", "Alpha/Yahoo", false},
    {"US/America", 10, "Alpha Vantage", "alpha_vantage_api_key", "Quotes and movers", "No book", "Yahoo Public", false},
    {"US/America", 99, "Yahoo Public", "", "Delayed public quote/chart fallback", "No book", "Local snapshot", true},
    {"B3", 1, "BrAPI", "brapi_token", "B3 quotes, fundamentals and quote list", "Level 1/quote only", "Yahoo .SA Public", false},
    {"B3", 2, "Twelve Data", "twelvedata_api_key", "Global/B3 coverage when available", "Provider dependent", "Yahoo .SA Public", false},
    {"B3", 3, "EODHD", "eodhd_api_key", "Global EOD if symbol is covered", "No live free book expected", "Yahoo .SA Public", false},
    {"B3", 99, "Yahoo .SA Public", "", "Delayed public quote/chart fallback", "No book", "Local snapshot", true},
    {"Forex", 1, "Twelve Data", "twelvedata_api_key", "Forex quote/history", "No free equity-style book expected", "Yahoo FX Public", false},
    {"Forex", 2, "Polygon", "polygon_api_key", "Forex quote/history", "Provider dependent", "Yahoo FX Public", false},
    {"Forex", 3, "Finnhub", "finnhub_api_key", "Forex quotes", "Quote only", "Yahoo FX Public", false},
    {"Forex", 99, "Yahoo FX Public", "", "Pairs such as BRL=X, EURUSD=X, USD/BRL input", "No book", "Local snapshot", true},
    {"News", 1, "Querlin JSON", "querlin_news_endpoint", "Site-generated public JSON news feed", "Not an order-flow source", "NewsAPI/Public RSS", true},
    {"News", 3, "NewsAPI", "newsapi_api_key", "Headlines in News tab", "Not an order-flow source", "Public RSS", false},
    {"News", 99, "Yahoo Finance RSS", "", "Public ticker headline RSS fallback", "Not an order-flow source", "No further news fallback", true},
};

// Free plans as the providers document them. iTick, IEX Cloud (closed in 2024) and Binance's keyed
// endpoints (weight-based) state no plain request count.
const ProviderFreeLimit kFreeLimits[] = {
    {"alpha_vantage", "alpha_vantage_api_key",           0,  25,   0},
    {"twelvedata",    "twelvedata_api_key",              8,  800,  0},
    {"finnhub",       "finnhub_api_key",                 60, 0,    0},
    {"fmp",           "financial_modeling_prep_api_key", 0,  250,  0},
    {"polygon",       "polygon_api_key",                 5,  0,    0},
    {"tiingo",        "tiingo_api_key",                  0,  1000, 0},
    {"eodhd",         "eodhd_api_key",                   0,  20,   0},
    {"marketstack",   "marketstack_api_key",             0,  0,    100},
    {"newsapi",       "newsapi_api_key",                 0,  100,  0},
    {"brapi_keyed",   "brapi_token",                     0,  0,    15000},
    {"itick",         "itick_api_key",                   0,  0,    0},
    {"iex",           "iex_cloud_api_key",               0,  0,    0},
    {"binance_keyed", "binance_api_key",                 0,  0,    0},
};
// clang-format on

const QString kEnabled = QStringLiteral("enabled");
const QString kPublicFallback = QStringLiteral("public fallback");
const QString kNotImplemented = QStringLiteral("not implemented");
const QString kNoKey = QStringLiteral("skipped: no key");

constexpr char kGain[] = "#20c878";
constexpr char kLoss[] = "#f45d5d";
constexpr char kHighlight[] = "#f3b24a";

bool is(const char *text, const char *expected)
{
    return qstrcmp(text, expected) == 0;
}

QString keyValue(const CatalogueRow &row, const KeyLookup &keys)
{
    if (!keys || !*row.keyName)
        return {};
    return keys(QString::fromLatin1(row.keyName)).trimmed();
}

QString neutralColor(const QString &theme)
{
    return theme == QLatin1String(kLightTheme) ? QStringLiteral("#52606d")
                                               : QStringLiteral("#9aa0a6");
}

QNetworkRequest probe(QNetworkRequest request)
{
    request.setRawHeader("User-Agent", kFetcherUserAgent);
    return request;
}

QNetworkRequest yahooProbe(const QString &symbol)
{
    return probe(QNetworkRequest(providerUrl(Endpoint::YahooQuery,
                                             "/v8/finance/chart/" + encodedPathSegment(symbol),
                                             {{"range", "1d"}, {"interval", "1d"}})));
}

} // namespace

std::span<const CatalogueRow> providerCatalogue()
{
    return kCatalogue;
}

QString healthKey(const CatalogueRow &row)
{
    return QString::fromLatin1(row.group) + QLatin1Char('|') + QString::fromLatin1(row.provider);
}

QString cascadeState(const CatalogueRow &row, const KeyLookup &keys)
{
    const bool usOrForex = is(row.group, "US/America") || is(row.group, "Forex");
    if (is(row.provider, "Twelve Data") && !usOrForex)
        return kNotImplemented;
    if (is(row.provider, "Financial Modeling Prep") && !is(row.group, "US/America"))
        return kNotImplemented;
    if (is(row.provider, "BrAPI"))
        return keyValue(row, keys).isEmpty() ? kPublicFallback : kEnabled;
    if (row.isPublic)
        return kPublicFallback;
    return keyValue(row, keys).isEmpty() ? kNoKey : kEnabled;
}

QString cascadeStateColor(const QString &state, const QString &theme)
{
    if (state == kEnabled)
        return QString::fromLatin1(kGain);
    if (state == kPublicFallback)
        return theme == QLatin1String(kLightTheme) ? QStringLiteral("#006cb4")
                                                   : QStringLiteral("#8fb8ad");
    if (state == kNotImplemented)
        return neutralColor(theme);
    return QString::fromLatin1(kLoss);
}

QString healthStateColor(const QString &state, const QString &theme)
{
    if (state == QLatin1String("ok"))
        return QString::fromLatin1(kGain);
    if (state == QLatin1String("testing") || state == QLatin1String("rate limited"))
        return QString::fromLatin1(kHighlight);
    if (state.startsWith(QLatin1String("skipped")) || state == kNotImplemented)
        return neutralColor(theme);
    return QString::fromLatin1(kLoss);
}

// Health records ------------------------------------------------------------------------------

ApiHealthRecord ApiHealthRecord::fromJson(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    ApiHealthRecord record;
    const auto text = [&](const char *name, QString &field) {
        const QJsonValue v = object.value(QLatin1String(name));
        if (v.isString())
            field = v.toString();
    };
    const auto number = [&](const char *name, auto &field) {
        const QJsonValue v = object.value(QLatin1String(name));
        if (v.isDouble())
            field = static_cast<std::remove_reference_t<decltype(field)>>(v.toInteger());
    };
    text("state", record.state);
    if (record.state.isEmpty())
        record.state = QStringLiteral("not tested");
    number("latency_ms", record.latencyMs);
    text("last_success", record.lastSuccess);
    text("last_error", record.lastError);
    // Records saved by an earlier run may quote a key a provider sent back.
    record.lastError = maskSecrets(record.lastError);
    number("attempts", record.attempts);
    number("successes", record.successes);
    number("failures", record.failures);
    return record;
}

QJsonObject ApiHealthRecord::toJson() const
{
    return {
            {"state", state},          {"latency_ms", latencyMs}, {"last_success", lastSuccess},
            {"last_error", lastError}, {"attempts", attempts},    {"successes", successes},
            {"failures", failures},
    };
}

ApiHealthRecords healthRecordsFromJson(const QJsonValue &value)
{
    ApiHealthRecords records;
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (it.value().isObject())
            records.insert(it.key(), ApiHealthRecord::fromJson(it.value()));
    }
    return records;
}

QJsonObject healthRecordsToJson(const ApiHealthRecords &records)
{
    QJsonObject object;
    for (auto it = records.begin(); it != records.end(); ++it)
        object.insert(it.key(), it->toJson());
    return object;
}

// Health tests --------------------------------------------------------------------------------

QString healthProviderId(const CatalogueRow &row)
{
    const QString provider = QString::fromLatin1(row.provider);
    if (provider == QLatin1String("Binance Public"))
        return QStringLiteral("binance_public");
    if (provider == QLatin1String("Yahoo Public"))
        return QStringLiteral("yahoo_us");
    if (provider == QLatin1String("Yahoo .SA Public"))
        return QStringLiteral("yahoo_b3");
    if (provider == QLatin1String("Yahoo FX Public"))
        return QStringLiteral("yahoo_fx");
    if (provider == QLatin1String("Querlin JSON"))
        return QStringLiteral("querlin");
    if (provider == QLatin1String("BrAPI"))
        return QStringLiteral("brapi_keyed");
    if (provider == QLatin1String("Alpha Vantage"))
        return QStringLiteral("alpha_vantage");
    if (provider == QLatin1String("Finnhub"))
        return QStringLiteral("finnhub");
    if (provider == QLatin1String("Twelve Data"))
        return QStringLiteral("twelvedata");
    if (provider == QLatin1String("Financial Modeling Prep"))
        return QStringLiteral("fmp");
    return {};
}

std::optional<QNetworkRequest> healthTestRequest(const CatalogueRow &row, const KeyLookup &keys)
{
    const QString id = healthProviderId(row);
    const QString key = keyValue(row, keys);
    if (id == QLatin1String("binance_public"))
        return probe(QNetworkRequest(providerUrl(Endpoint::BinanceRest,
                                                 QStringLiteral("/api/v3/ticker/price"),
                                                 {{"symbol", "BTCUSDT"}})));
    if (id == QLatin1String("yahoo_us"))
        return yahooProbe(QStringLiteral("AAPL"));
    if (id == QLatin1String("yahoo_b3"))
        return yahooProbe(QStringLiteral("PETR4.SA"));
    if (id == QLatin1String("yahoo_fx"))
        return yahooProbe(QStringLiteral("BRL=X"));
    if (id == QLatin1String("querlin")) {
        const QUrl url(key.isEmpty() ? houseNewsFeed() : key, QUrl::StrictMode);
        if (!url.isValid() || url.scheme().isEmpty())
            return std::nullopt;
        return probe(QNetworkRequest(url));
    }
    if (id == QLatin1String("brapi_keyed")) {
        QNetworkRequest request = brapiQuoteRequest(QStringLiteral("PETR4"), {});
        if (!key.isEmpty()) {
            QUrl url = request.url();
            url.setQuery(encodedQuery({{"token", key}}), QUrl::StrictMode);
            request.setUrl(url);
        }
        return probe(request);
    }
    if (id == QLatin1String("alpha_vantage"))
        return probe(alphaVantageQuoteRequest(QStringLiteral("AAPL"), key));
    if (id == QLatin1String("finnhub"))
        return probe(finnhubQuoteRequest(QStringLiteral("AAPL"), key));
    if (id == QLatin1String("twelvedata")) {
        const QString symbol =
                is(row.group, "Forex") ? QStringLiteral("USD/BRL") : QStringLiteral("AAPL");
        return probe(QNetworkRequest(providerUrl(Endpoint::TwelveData, QStringLiteral("/quote"),
                                                 {{"symbol", symbol}, {"apikey", key}})));
    }
    if (id == QLatin1String("fmp"))
        return probe(fmpQuoteRequest(QStringLiteral("AAPL"), key));
    return std::nullopt;
}

HealthPlan healthPlan(const CatalogueRow &row, const KeyLookup &keys)
{
    const QString state = cascadeState(row, keys);
    if (state == kNotImplemented || state.startsWith(QLatin1String("skipped")))
        return {state, std::nullopt};
    auto request = healthTestRequest(row, keys);
    if (!request)
        return {QString::fromLatin1(kNoProbeState), std::nullopt};
    return {QStringLiteral("testing"), std::move(request)};
}

void beginHealthTest(ApiHealthRecord &record, const HealthPlan &plan)
{
    record.state = plan.state;
    if (plan.state == kNotImplemented)
        record.latencyMs = -1;
    if (plan.request)
        ++record.attempts;
}

void applyHealthTestReply(ApiHealthRecord &record, const ProviderResponseCheck &check,
                          qint64 latencyMs, const QDateTime &now)
{
    record.latencyMs = latencyMs;
    if (check.ok) {
        record.state = QStringLiteral("ok");
        record.lastSuccess = now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        ++record.successes;
        return;
    }
    record.state = check.rateLimited ? QStringLiteral("rate limited") : QStringLiteral("error");
    record.lastError = maskSecrets(check.message);
    if (check.retryAfterSeconds > 0)
        record.lastError += QStringLiteral("; retry in %1s").arg(check.retryAfterSeconds);
    ++record.failures;
}

// Cascade log ---------------------------------------------------------------------------------

QString cascadeLogLine(const QString &subject, const QStringList &providerIds)
{
    if (subject.isEmpty() || providerIds.isEmpty())
        return {};
    return translated(QStringLiteral("API cascade %1: %2"),
                      QStringLiteral("Cascata de APIs %1: %2"))
            .arg(subject, providerIds.join(QStringLiteral(" -> ")));
}

QStringList cascadeLogLines(const KeyLookup &keys)
{
    QStringList lines;
    for (AssetClass assetClass :
         {AssetClass::Crypto, AssetClass::UsEquity, AssetClass::BrEquity, AssetClass::Forex}) {
        const QString subject =
                translated(QStringLiteral("%1 quotes"), QStringLiteral("cotações %1"))
                        .arg(assetClassLabel(assetClass));
        const QString line =
                cascadeLogLine(subject, providerOrder(assetClass, DataKind::Quote, keys));
        if (!line.isEmpty())
            lines << line;
    }
    return lines;
}

// Free limits ---------------------------------------------------------------------------------

std::span<const ProviderFreeLimit> providerFreeLimits()
{
    return kFreeLimits;
}

const ProviderFreeLimit *providerFreeLimit(const QString &providerId)
{
    for (const ProviderFreeLimit &limit : kFreeLimits) {
        if (providerId == QLatin1String(limit.providerId))
            return &limit;
    }
    return nullptr;
}
