#include "providers/data_fetcher.h"

#include "providers/provider_requests.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QNetworkRequest fetcherRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setRawHeader("User-Agent", kFetcherUserAgent);
    return request;
}

std::optional<QJsonObject> parseObject(const QByteArray &body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

std::optional<QuoteSnapshot> validOrNothing(QuoteSnapshot quote)
{
    if (!quote.isValid())
        return std::nullopt;
    return quote;
}

QuoteSnapshot newQuote(const QString &symbol, const QString &source)
{
    QuoteSnapshot quote;
    quote.symbol = symbol.toUpper();
    quote.source = source;
    return quote;
}

// Twelve Data and Financial Modeling Prep report the symbol back; the request's one stands in
// when the reply has none (or a blank one).
QString reportedSymbol(const QJsonObject &object, const QString &requested)
{
    const QString reported = object.value(QLatin1String("symbol")).toString().trimmed();
    return reported.isEmpty() ? requested : reported;
}

// The JSON keys of the seven quote numbers in one provider's reply, in record order; a null key is
// a number the provider does not send.
struct QuoteFields
{
    const char *price;
    const char *changePercent;
    const char *open;
    const char *high;
    const char *low;
    const char *previousClose;
    const char *volume;
};

using NumberReader = double (*)(const QJsonValue &);

double jsonNumber(const QJsonValue &value)
{
    return value.toDouble(0.0);
}

void readQuoteFields(QuoteSnapshot &quote, const QJsonObject &object, const QuoteFields &keys,
                     NumberReader read)
{
    const auto field = [&](const char *key) {
        return key ? read(object.value(QLatin1String(key))) : 0.0;
    };
    quote.price = field(keys.price);
    quote.changePercent = field(keys.changePercent);
    quote.open = field(keys.open);
    quote.high = field(keys.high);
    quote.low = field(keys.low);
    quote.previousClose = field(keys.previousClose);
    quote.volume = field(keys.volume);
}

} // namespace

double lenientNumber(const QJsonValue &value)
{
    if (value.isString()) {
        bool ok = false;
        const double number = value.toString().remove(QLatin1Char('%')).toDouble(&ok);
        return ok ? number : 0.0;
    }
    return value.toDouble(0.0);
}

double stringNumber(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    bool ok = false;
    const double number = value.toString().toDouble(&ok);
    return ok ? number : 0.0;
}

double lastNumericEntry(const QJsonArray &values)
{
    for (qsizetype i = values.size() - 1; i >= 0; --i) {
        if (values.at(i).isDouble())
            return values.at(i).toDouble();
    }
    return 0.0;
}

// Binance ---------------------------------------------------------------------------------------

QString BinanceFetcher::displayName() const
{
    return QStringLiteral("Binance Public");
}

QNetworkRequest BinanceFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(providerUrl(Endpoint::BinanceRest, QStringLiteral("/api/v3/ticker/24hr"),
                                      {{"symbol", symbol.toUpper()}}));
}

std::optional<QuoteSnapshot> BinanceFetcher::parseQuote(const QString &symbol,
                                                        const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    QuoteSnapshot quote = newQuote(symbol, displayName());
    readQuoteFields(quote, *object,
                    {"lastPrice", "priceChangePercent", "openPrice", "highPrice", "lowPrice",
                     "prevClosePrice", "volume"},
                    stringNumber);
    return validOrNothing(quote);
}

// BrAPI -----------------------------------------------------------------------------------------

BrAPIFetcher::BrAPIFetcher(QString token, QString interval, QString range)
    : m_token(std::move(token))
    , m_interval(std::move(interval))
    , m_range(std::move(range))
{}

QString BrAPIFetcher::displayName() const
{
    return QStringLiteral("BrAPI");
}

QNetworkRequest BrAPIFetcher::buildRequest(const QString &symbol) const
{
    QueryItems query{{"interval", m_interval}, {"range", m_range}};
    if (!m_token.isEmpty())
        query.append({"token", m_token});
    return fetcherRequest(providerUrl(
            Endpoint::Brapi, "/api/quote/" + encodedPathSegment(brapiTicker(symbol)), query));
}

std::optional<QuoteSnapshot> BrAPIFetcher::parseQuote(const QString &symbol,
                                                      const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    const QJsonArray results = object->value(QLatin1String("results")).toArray();
    if (results.isEmpty())
        return std::nullopt;
    const QJsonObject result = results.first().toObject();
    QuoteSnapshot quote = newQuote(symbol, displayName());
    readQuoteFields(quote, result,
                    {"regularMarketPrice", "regularMarketChangePercent", "regularMarketOpen",
                     "regularMarketDayHigh", "regularMarketDayLow", "regularMarketPreviousClose",
                     "regularMarketVolume"},
                    jsonNumber);
    quote.candles =
            brapiHistoryCandles(result.value(QLatin1String("historicalDataPrice")).toArray());
    return validOrNothing(quote);
}

// Alpha Vantage ---------------------------------------------------------------------------------

AlphaVantageFetcher::AlphaVantageFetcher(QString apiKey)
    : m_apiKey(std::move(apiKey))
{}

QString AlphaVantageFetcher::displayName() const
{
    return QStringLiteral("Alpha Vantage");
}

QNetworkRequest AlphaVantageFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(
            providerUrl(Endpoint::AlphaVantage, QStringLiteral("/query"),
                        {{"function", "GLOBAL_QUOTE"}, {"symbol", symbol}, {"apikey", m_apiKey}}));
}

QJsonObject alphaVantageGlobalQuote(const QJsonObject &reply)
{
    // Delayed data arrives under a longer key with the same fields.
    const QJsonObject quote = reply.value(QLatin1String("Global Quote")).toObject();
    if (!quote.isEmpty())
        return quote;
    return reply.value(QLatin1String("Global Quote - DATA DELAYED")).toObject();
}

std::optional<QuoteSnapshot> AlphaVantageFetcher::parseQuote(const QString &symbol,
                                                             const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    QuoteSnapshot quote = newQuote(symbol, displayName());
    readQuoteFields(quote, alphaVantageGlobalQuote(*object),
                    {"05. price", "10. change percent", "02. open", "03. high", "04. low",
                     "08. previous close", "06. volume"},
                    lenientNumber);
    return validOrNothing(quote);
}

// Finnhub ---------------------------------------------------------------------------------------

FinnhubFetcher::FinnhubFetcher(QString apiKey)
    : m_apiKey(std::move(apiKey))
{}

QString FinnhubFetcher::displayName() const
{
    return QStringLiteral("Finnhub");
}

QNetworkRequest FinnhubFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(providerUrl(Endpoint::Finnhub, QStringLiteral("/api/v1/quote"),
                                      {{"symbol", symbol}, {"token", m_apiKey}}));
}

std::optional<QuoteSnapshot> FinnhubFetcher::parseQuote(const QString &symbol,
                                                        const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    // An unknown symbol is all zeros with null change fields; c == 0 rejects it below.
    QuoteSnapshot quote = newQuote(symbol, displayName());
    readQuoteFields(quote, *object, {"c", "dp", "o", "h", "l", "pc", nullptr}, jsonNumber);
    return validOrNothing(quote);
}

// Twelve Data -----------------------------------------------------------------------------------

TwelveDataFetcher::TwelveDataFetcher(QString apiKey)
    : m_apiKey(std::move(apiKey))
{}

QString TwelveDataFetcher::displayName() const
{
    return QStringLiteral("Twelve Data");
}

QNetworkRequest TwelveDataFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(providerUrl(Endpoint::TwelveData, QStringLiteral("/quote"),
                                      {{"symbol", symbol}, {"apikey", m_apiKey}}));
}

std::optional<QuoteSnapshot> TwelveDataFetcher::parseQuote(const QString &symbol,
                                                           const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    // Errors come as {"code":429,"message":…,"status":"error"}, often under HTTP 200.
    if (object->value(QLatin1String("status")).toString() == QLatin1String("error") ||
        object->value(QLatin1String("code")).isDouble())
        return std::nullopt;
    QuoteSnapshot quote = newQuote(reportedSymbol(*object, symbol), displayName());
    readQuoteFields(quote, *object,
                    {"close", "percent_change", "open", "high", "low", "previous_close", "volume"},
                    lenientNumber);
    return validOrNothing(quote);
}

// Financial Modeling Prep -----------------------------------------------------------------------

FinancialModelingPrepFetcher::FinancialModelingPrepFetcher(QString apiKey)
    : m_apiKey(std::move(apiKey))
{}

QString FinancialModelingPrepFetcher::displayName() const
{
    return QStringLiteral("Financial Modeling Prep");
}

QNetworkRequest FinancialModelingPrepFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(fmpQuoteRequest(symbol, m_apiKey).url());
}

std::optional<QuoteSnapshot> FinancialModelingPrepFetcher::parseQuote(const QString &symbol,
                                                                      const QByteArray &body) const
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    // Always an array, [] for an unknown symbol; errors are an object.
    if (error.error != QJsonParseError::NoError || !document.isArray() ||
        document.array().isEmpty())
        return std::nullopt;
    const QJsonObject object = document.array().first().toObject();
    QuoteSnapshot quote = newQuote(reportedSymbol(object, symbol), displayName());
    readQuoteFields(
            quote, object,
            {"price", "changesPercentage", "open", "dayHigh", "dayLow", "previousClose", "volume"},
            lenientNumber);
    return validOrNothing(quote);
}

// Yahoo -----------------------------------------------------------------------------------------

YahooFetcher::YahooFetcher(QString interval, QString range)
    : m_interval(std::move(interval))
    , m_range(std::move(range))
{}

QString YahooFetcher::displayName() const
{
    return QStringLiteral("Yahoo Public");
}

QNetworkRequest YahooFetcher::buildRequest(const QString &symbol) const
{
    return fetcherRequest(providerUrl(
            Endpoint::YahooQuery, "/v8/finance/chart/" + encodedPathSegment(symbol),
            {{"range", m_range}, {"interval", m_interval}, {"includePrePost", "false"}}));
}

std::optional<QuoteSnapshot> YahooFetcher::parseQuote(const QString &symbol,
                                                      const QByteArray &body) const
{
    const auto object = parseObject(body);
    if (!object)
        return std::nullopt;
    const QJsonArray results = object->value(QLatin1String("chart"))
                                       .toObject()
                                       .value(QLatin1String("result"))
                                       .toArray();
    if (results.isEmpty())
        return std::nullopt;
    const QJsonObject result = results.first().toObject();
    const QJsonObject meta = result.value(QLatin1String("meta")).toObject();
    const QJsonArray quotes = result.value(QLatin1String("indicators"))
                                      .toObject()
                                      .value(QLatin1String("quote"))
                                      .toArray();
    if (quotes.isEmpty())
        return std::nullopt;
    const QJsonObject bars = quotes.first().toObject();

    QuoteSnapshot quote = newQuote(symbol, displayName());
    quote.candles = yahooChartCandles(result);
    const QJsonValue marketPrice = meta.value(QLatin1String("regularMarketPrice"));
    quote.price = marketPrice.isDouble()
                          ? marketPrice.toDouble()
                          : lastNumericEntry(bars.value(QLatin1String("close")).toArray());
    quote.previousClose = meta.value(QLatin1String("chartPreviousClose")).toDouble();
    // The latest bar's values, not the session's.
    quote.open = lastNumericEntry(bars.value(QLatin1String("open")).toArray());
    quote.high = lastNumericEntry(bars.value(QLatin1String("high")).toArray());
    quote.low = lastNumericEntry(bars.value(QLatin1String("low")).toArray());
    quote.volume = lastNumericEntry(bars.value(QLatin1String("volume")).toArray());
    if (quote.previousClose > 0.0)
        quote.changePercent = (quote.price - quote.previousClose) / quote.previousClose * 100.0;
    return validOrNothing(quote);
}
