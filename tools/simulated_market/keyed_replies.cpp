#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QDateTime>

namespace {

QString utcDate(qint64 epochSeconds)
{
    return QDateTime::fromSecsSinceEpoch(epochSeconds, Qt::UTC).date().toString(Qt::ISODate);
}

// The key may come as a query item or, on Finnhub, as a header; any non-blank key is accepted.
bool hasKey(const HttpRequest &request, const char *queryName, const QByteArray &header = {})
{
    if (!request.queryItem(QLatin1String(queryName)).trimmed().isEmpty())
        return true;
    return !header.isEmpty() && !request.header(header).trimmed().isEmpty();
}

// Shares outstanding and earnings, fixed per symbol.
struct Fundamentals
{
    double shares;
    double earningsPerShare;
};

Fundamentals fundamentals(const Instrument &instrument, double price)
{
    const quint64 hash = textHash(instrument.symbol);
    return {5e8 + 1.6e10 * unitInterval(mix64(hash, 4)) * unitInterval(mix64(hash, 5)),
            price * (0.01 + 0.07 * unitInterval(mix64(hash, 3)))};
}

// Twelve Data's errors: a code, a text in Markdown and status "error", under HTTP 200.
HttpResponse twelveDataError(int code, const QString &message)
{
    return HttpResponse::json(OrderedJson()
                                      .integer("code", code)
                                      .text("message", message)
                                      .text("status", QStringLiteral("error"))
                                      .toJson());
}

QByteArray twelveDataYear(YearStats year, double price, int decimals)
{
    year.low = roundTo(year.low, decimals);
    year.high = roundTo(year.high, decimals);
    return OrderedJson()
            .fixed("low", year.low, 5)
            .fixed("high", year.high, 5)
            .fixed("low_change", price - year.low, 5)
            .fixed("high_change", price - year.high, 5)
            .fixed("low_change_percent", (price - year.low) / year.low * 100.0, 5)
            .fixed("high_change_percent", (price - year.high) / year.high * 100.0, 5)
            .text("range", QString::number(roundTo(year.low, decimals), 'f', 6) +
                                   QStringLiteral(" - ") +
                                   QString::number(roundTo(year.high, decimals), 'f', 6))
            .toJson();
}

QByteArray fmpQuote(const MarketContext &market, const Instrument &instrument)
{
    const DaySummary day = roundedDay(market, instrument);
    const YearStats year = market.walk.year(instrument.symbol, market.step);
    const bool index = instrument.kind == InstrumentKind::UsIndex;
    const Fundamentals basics = fundamentals(instrument, day.price);
    const auto eightPlaces = [](double value) {
        return QByteArray::number(roundTo(value, 2), 'f', 8);
    };
    // The next earnings call, 10 to 80 days ahead at 21:30 UTC.
    const qint64 days = 10 + qint64(mix64(textHash(instrument.symbol), 6) % 70);
    const QDateTime earnings =
            QDateTime(QDateTime::fromSecsSinceEpoch(market.now(), Qt::UTC).date().addDays(days),
                      QTime(21, 30), Qt::UTC);

    OrderedJson quote;
    quote.text("symbol", instrument.symbol)
            .text("name", instrument.longName)
            .raw("price", eightPlaces(day.price))
            .raw("changesPercentage", QByteArray::number(roundTo(day.changePercent(), 5), 'f', 8))
            .raw("change", eightPlaces(day.change()))
            .raw("dayLow", eightPlaces(day.low))
            .raw("dayHigh", eightPlaces(day.high))
            .raw("yearHigh", eightPlaces(year.high))
            .raw("yearLow", eightPlaces(year.low));
    if (index)
        quote.null("marketCap");
    else
        quote.raw("marketCap", QByteArray::number(std::round(day.price * basics.shares), 'f', 8));
    quote.raw("priceAvg50", QByteArray::number(roundTo(year.average50, 5), 'f', 8))
            .raw("priceAvg200", QByteArray::number(roundTo(year.average200, 5), 'f', 8))
            .integer("volume", qint64(day.volume))
            .integer("avgVolume", qint64(day.volume * 0.96))
            .text("exchange", index ? QStringLiteral("INDEX")
                              : instrument.kind == InstrumentKind::UsFund
                                      ? QStringLiteral("AMEX")
                                      : QStringLiteral("NASDAQ"))
            .raw("open", eightPlaces(day.open))
            .raw("previousClose", eightPlaces(day.previousClose));
    if (index) {
        quote.null("eps").null("pe").null("earningsAnnouncement").null("sharesOutstanding");
    } else {
        quote.raw("eps", QByteArray::number(roundTo(basics.earningsPerShare, 3), 'f', 8))
                .raw("pe",
                     QByteArray::number(roundTo(day.price / basics.earningsPerShare, 6), 'f', 8))
                .text("earningsAnnouncement",
                      earnings.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz+0000")))
                .integer("sharesOutstanding", qint64(basics.shares));
    }
    quote.integer("timestamp", market.now());
    return quote.toJson(JsonLayout::Spaced);
}

QByteArray alphaVantageDocument(const QByteArray &globalQuote)
{
    return "{\n    \"Global Quote\": " + globalQuote + "\n}";
}

} // namespace

// GET /api/v1/quote?symbol=AAPL&token=..
HttpResponse finnhubQuoteReply(const MarketContext &market, const HttpRequest &request)
{
    if (!hasKey(request, "token", "X-Finnhub-Token"))
        return HttpResponse::json(R"({"error":"Please use an API key."})", 401);
    const Instrument *instrument =
            market.catalogue.fromUsMarket(request.queryItem(QStringLiteral("symbol")));
    if (!instrument) // Finnhub's "unknown": zeros, with null changes
        return HttpResponse::json(R"({"c":0,"d":null,"dp":null,"h":0,"l":0,"o":0,"pc":0,"t":0})");
    const DaySummary day = roundedDay(market, *instrument);
    return HttpResponse::json(OrderedJson()
                                      .number("c", day.price, 2)
                                      .number("d", day.change(), 4)
                                      .number("dp", day.changePercent(), 4)
                                      .number("h", day.high, 2)
                                      .number("l", day.low, 2)
                                      .number("o", day.open, 2)
                                      .number("pc", day.previousClose, 2)
                                      .integer("t", market.now())
                                      .toJson());
}

// GET /quote?symbol=AAPL&apikey=.. (currency pairs as "USD/BRL"): every number a string.
HttpResponse twelveDataQuoteReply(const MarketContext &market, const HttpRequest &request)
{
    if (!hasKey(request, "apikey")) {
        return twelveDataError(
                401, QStringLiteral("**apikey** parameter is incorrect or not specified. You can "
                                    "get your free API key instantly following this link: "
                                    "https://twelvedata.com/pricing. If you believe that "
                                    "everything is correct, you can contact us at "
                                    "https://twelvedata.com/contact/customer"));
    }
    const QString symbol = request.queryItem(QStringLiteral("symbol")).trimmed().toUpper();
    const Instrument *instrument = market.catalogue.fromTwelveData(symbol);
    if (!instrument) {
        return twelveDataError(404, QStringLiteral("**symbol** not found: %1. Please specify it "
                                                   "correctly according to API Documentation.")
                                            .arg(symbol));
    }
    const DaySummary day = roundedDay(market, *instrument);
    const YearStats year = market.walk.year(instrument->symbol, market.step);
    const int decimals = priceDecimals(*instrument);
    const bool forex = instrument->kind == InstrumentKind::Forex;

    OrderedJson quote;
    quote.text("symbol", symbol);
    if (forex) {
        const auto [base, quoted] = forexCurrencies(instrument->symbol);
        quote.text("name", currencyName(base) + QStringLiteral(" / ") + currencyName(quoted))
                .text("exchange", QStringLiteral("Forex"));
    } else {
        const bool fund = instrument->kind == InstrumentKind::UsFund;
        quote.text("name", instrument->longName)
                .text("exchange", fund ? QStringLiteral("NYSE") : QStringLiteral("NASDAQ"))
                .text("mic_code", fund ? QStringLiteral("ARCX") : QStringLiteral("XNGS"))
                .text("currency", instrument->currency);
    }
    quote.text("datetime", utcDate(market.now()))
            .integer("timestamp", market.now())
            .fixed("open", day.open, 5)
            .fixed("high", day.high, 5)
            .fixed("low", day.low, 5)
            .fixed("close", day.price, 5);
    if (!forex) // currencies come without a volume
        quote.text("volume", QString::number(qint64(day.volume)));
    quote.fixed("previous_close", day.previousClose, 5)
            .fixed("change", day.change(), 5)
            .fixed("percent_change", day.changePercent(), 5)
            .text("average_volume", QString::number(forex ? 0 : qint64(day.volume * 0.95)))
            .boolean("is_market_open", true)
            .raw("fifty_two_week", twelveDataYear(year, day.price, decimals));
    return HttpResponse::json(quote.toJson());
}

// GET /api/v3/quote/<symbols>?apikey=..: always an array, [] when nothing is known.
HttpResponse fmpQuoteReply(const MarketContext &market, const HttpRequest &request)
{
    if (!hasKey(request, "apikey")) {
        return HttpResponse::json(
                R"({
  "Error Message" : "Invalid API KEY. Please retry or visit our documentation to create one FREE https://financialmodelingprep.com/developer/docs"
})",
                401);
    }
    QList<QByteArray> quotes;
    for (const QString &part : request.pathAfter("/api/v3/quote/").split(QLatin1Char(','))) {
        if (const Instrument *instrument = market.catalogue.fromUsMarket(part))
            quotes.append(fmpQuote(market, *instrument));
    }
    if (quotes.isEmpty())
        return HttpResponse::json("[]");
    QByteArray body = "[ ";
    for (qsizetype i = 0; i < quotes.size(); ++i)
        body += (i > 0 ? ", " : "") + quotes.at(i);
    return HttpResponse::json(body + " ]");
}

// GET /query?function=GLOBAL_QUOTE&symbol=..&apikey=..: everything under HTTP 200, in strings.
// TOP_GAINERS_LOSERS goes to alphaVantageMoversReply.
HttpResponse alphaVantageReply(const MarketContext &market, const HttpRequest &request)
{
    const QString function = request.queryItem(QStringLiteral("function")).trimmed().toUpper();
    const bool movers = function == QLatin1String("TOP_GAINERS_LOSERS");
    if (!movers && function != QLatin1String("GLOBAL_QUOTE"))
        return HttpResponse::json(R"({"Error Message":"Invalid API call."})", 404);
    if (!hasKey(request, "apikey")) {
        return HttpResponse::json(
                R"({
    "Error Message": "the parameter apikey is invalid or missing. Please claim your free API key on (https://www.alphavantage.co/support/#api-key). It should take less than 20 seconds."
})");
    }
    if (movers)
        return alphaVantageMoversReply(market, request);
    const Instrument *instrument =
            market.catalogue.fromUsMarket(request.queryItem(QStringLiteral("symbol")));
    if (!instrument)
        return HttpResponse::json(alphaVantageDocument("{}"));
    const DaySummary day = roundedDay(market, *instrument);
    const double percent = roundTo(day.changePercent(), 4);
    const QByteArray quote = OrderedJson()
                                     .text("01. symbol", instrument->symbol)
                                     .fixed("02. open", day.open, 4)
                                     .fixed("03. high", day.high, 4)
                                     .fixed("04. low", day.low, 4)
                                     .fixed("05. price", day.price, 4)
                                     .text("06. volume", QString::number(qint64(day.volume)))
                                     .text("07. latest trading day", utcDate(market.now()))
                                     .fixed("08. previous close", day.previousClose, 4)
                                     .fixed("09. change", day.change(), 4)
                                     .text("10. change percent",
                                           QString::number(percent == 0.0 ? 0.0 : percent, 'f', 4) +
                                                   QLatin1Char('%'))
                                     .toJson(JsonLayout::Indented, 1);
    return HttpResponse::json(alphaVantageDocument(quote));
}
