#include "simulated_market/chart_ranges.h"
#include "simulated_market/exchange_info.h"
#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QSet>

#include <algorithm>

namespace {

// About one bar in 150 carries no trades, and one more somewhere inside every series: Yahoo writes
// null at its index in every array.
constexpr quint64 kEmptyBarOdds = 150;

// An index Yahoo knows that answers every chart request with an empty series: no `timestamp` and
// `indicators.quote` = [{}], as Yahoo does for symbols it holds no bars of.
constexpr char kSymbolWithoutBars[] = "^RUT";

HttpResponse chartError(int status, const char *code, const QString &description)
{
    const QByteArray error = OrderedJson()
                                     .text("code", QLatin1String(code))
                                     .text("description", description)
                                     .toJson();
    return HttpResponse::json(
            OrderedJson()
                    .raw("chart", OrderedJson().null("result").raw("error", error).toJson())
                    .toJson(),
            status);
}

QString bracketed(const QStringList &items)
{
    return QLatin1Char('[') + items.join(QStringLiteral(", ")) + QLatin1Char(']');
}

// Yahoo's bars carry the noise of single-precision floats: 74.05999755859375.
QByteArray barPrice(double value, int decimals)
{
    return json::number(double(float(roundTo(value, decimals))));
}

QByteArray tradingPeriod(const ZoneTime &zone, qint64 start, qint64 end)
{
    return OrderedJson()
            .text("timezone", zone.abbreviation)
            .integer("start", start)
            .integer("end", end)
            .integer("gmtoffset", zone.offsetSeconds)
            .toJson();
}

QByteArray currentTradingPeriod(const ExchangeInfo &exchange, const ZoneTime &zone, qint64 now)
{
    const qint64 open = localMinuteOfDay(exchange.timezoneName, now, exchange.sessionOpenMinute);
    const qint64 close = localMinuteOfDay(exchange.timezoneName, now, exchange.sessionCloseMinute);
    const bool wholeDay = exchange.sessionCloseMinute - exchange.sessionOpenMinute >= 24 * 60;
    const qint64 preStart = wholeDay ? open : open - 5 * 3600 - 1800;
    const qint64 postEnd = wholeDay ? close : close + 4 * 3600;
    return OrderedJson()
            .raw("pre", tradingPeriod(zone, preStart, open))
            .raw("regular", tradingPeriod(zone, open, close))
            .raw("post", tradingPeriod(zone, close, postEnd))
            .toJson();
}

struct ChartBars
{
    QList<QByteArray> timestamps, open, high, low, close, volume;
};

ChartBars chartBars(const MarketContext &market, const Instrument &instrument,
                    const QList<qint64> &openings, bool intraday)
{
    const int decimals = priceDecimals(instrument);
    const quint64 key = mix64(market.walk.seed(), textHash(instrument.symbol));
    const qsizetype count = openings.size();
    const qsizetype quietBar =
            count > 3 ? 1 + qsizetype(mix64(key, quint64(count)) % (count - 2)) : -1;
    ChartBars bars;
    for (qsizetype i = 0; i < count; ++i) {
        bars.timestamps.append(json::integer(openings.at(i)));
        const bool last = i + 1 == count;
        if (i == quietBar ||
            (!last && count > 2 && mix64(key, quint64(openings.at(i))) % kEmptyBarOdds == 0)) {
            for (QList<QByteArray> *values :
                 {&bars.open, &bars.high, &bars.low, &bars.close, &bars.volume})
                values->append(json::kNull);
            continue;
        }
        if (last && intraday) {
            // Yahoo's live bar: the price of the moment on all four, and no volume yet.
            const QByteArray price =
                    barPrice(market.walk.price(instrument.symbol, market.step), decimals);
            for (QList<QByteArray> *values : {&bars.open, &bars.high, &bars.low, &bars.close})
                values->append(price);
            bars.volume.append(json::integer(0));
            continue;
        }
        const qint64 from = market.walk.stepOf(openings.at(i));
        const qint64 to = last ? market.step : market.walk.stepOf(openings.at(i + 1));
        const PriceBar bar = market.walk.bar(instrument.symbol, from, std::max(from, to));
        bars.open.append(barPrice(bar.open, decimals));
        bars.high.append(barPrice(bar.high, decimals));
        bars.low.append(barPrice(bar.low, decimals));
        bars.close.append(barPrice(bar.close, decimals));
        bars.volume.append(
                json::integer(instrument.kind == InstrumentKind::Forex ? 0 : qint64(bar.volume)));
    }
    return bars;
}

QByteArray chartResult(const MarketContext &market, const Instrument &instrument,
                       const QString &symbol, const QString &range, const QString &interval)
{
    const qint64 now = market.now();
    const QList<qint64> openings = barOpenings(range, interval, now);
    const ExchangeInfo exchange = exchangeInfo(instrument);
    const ZoneTime zone = zoneTime(exchange.timezoneName, now);
    const DaySummary day = roundedDay(market, instrument);
    const YearStats year = market.walk.year(instrument.symbol, market.step);
    const int decimals = priceDecimals(instrument);
    const double chartPreviousClose =
            market.walk.price(instrument.symbol, market.walk.stepOf(openings.first()) - 1);
    const bool traded = instrument.kind != InstrumentKind::Forex;

    const QByteArray meta =
            OrderedJson()
                    .text("currency", instrument.currency)
                    .text("symbol", symbol)
                    .text("exchangeName", exchange.exchangeName)
                    .text("fullExchangeName", exchange.fullExchangeName)
                    .text("instrumentType", exchange.quoteType)
                    .integer("firstTradeDate", firstTradeDate(instrument))
                    .integer("regularMarketTime", now)
                    .boolean("hasPrePostMarketData", exchange.quoteType == QLatin1String("EQUITY"))
                    .integer("gmtoffset", zone.offsetSeconds)
                    .text("timezone", zone.abbreviation)
                    .text("exchangeTimezoneName", exchange.timezoneName)
                    .number("regularMarketPrice", day.price, decimals)
                    .number("fiftyTwoWeekHigh", year.high, decimals)
                    .number("fiftyTwoWeekLow", year.low, decimals)
                    .number("regularMarketDayHigh", day.high, decimals)
                    .number("regularMarketDayLow", day.low, decimals)
                    .integer("regularMarketVolume", traded ? qint64(day.volume) : 0)
                    .text("longName", instrument.longName)
                    .text("shortName", instrument.shortName)
                    .number("chartPreviousClose", chartPreviousClose, decimals)
                    .number("previousClose", day.previousClose, decimals)
                    .integer("scale", 3)
                    .integer("priceHint", decimals)
                    .raw("currentTradingPeriod", currentTradingPeriod(exchange, zone, now))
                    .text("dataGranularity", interval)
                    .text("range", range)
                    .raw("validRanges", json::stringArray(chartRanges()))
                    .toJson();

    if (instrument.symbol == QLatin1String(kSymbolWithoutBars)) {
        return OrderedJson()
                .raw("meta", meta)
                .raw("indicators", OrderedJson().raw("quote", "[{}]").toJson())
                .toJson();
    }
    const ChartBars bars = chartBars(market, instrument, openings, isIntradayInterval(interval));
    const QByteArray quote = OrderedJson()
                                     .raw("open", json::array(bars.open))
                                     .raw("high", json::array(bars.high))
                                     .raw("low", json::array(bars.low))
                                     .raw("close", json::array(bars.close))
                                     .raw("volume", json::array(bars.volume))
                                     .toJson();
    return OrderedJson()
            .raw("meta", meta)
            .raw("timestamp", json::array(bars.timestamps))
            .raw("indicators", OrderedJson().raw("quote", json::array({quote})).toJson())
            .toJson();
}

QByteArray quoteResult(const MarketContext &market, const Instrument &instrument,
                       const QString &symbol)
{
    const qint64 now = market.now();
    const ExchangeInfo exchange = exchangeInfo(instrument);
    const ZoneTime zone = zoneTime(exchange.timezoneName, now);
    const DaySummary day = roundedDay(market, instrument);
    const YearStats year = market.walk.year(instrument.symbol, market.step);
    const int decimals = priceDecimals(instrument);
    const double tick = std::pow(10.0, -decimals);
    const bool traded = instrument.kind != InstrumentKind::Forex;
    const qint64 volume = traded ? qint64(day.volume) : 0;

    OrderedJson result;
    result.text("language", QStringLiteral("en-US"))
            .text("region", QStringLiteral("US"))
            .text("quoteType", exchange.quoteType)
            .text("quoteSourceName", exchange.market == QLatin1String("us_market")
                                             ? QStringLiteral("Nasdaq Real Time Price")
                                             : QStringLiteral("Delayed Quote"))
            .boolean("triggerable", true)
            .text("currency", instrument.currency)
            .text("marketState", QStringLiteral("REGULAR"))
            .integer("firstTradeDateMilliseconds", firstTradeDate(instrument) * 1000)
            .integer("priceHint", decimals)
            .number("regularMarketChange", day.change(), decimals + 4)
            .number("regularMarketChangePercent", day.changePercent(), 7)
            .integer("regularMarketTime", now)
            .number("regularMarketPrice", day.price, decimals)
            .number("regularMarketDayHigh", day.high, decimals)
            .text("regularMarketDayRange", priceRange(day.low, day.high, decimals))
            .number("regularMarketDayLow", day.low, decimals)
            .integer("regularMarketVolume", volume)
            .number("regularMarketPreviousClose", day.previousClose, decimals)
            .number("bid", day.price - tick, decimals)
            .number("ask", day.price + tick, decimals)
            .integer("bidSize", traded ? 10 + qint64(volume % 30) : 0)
            .integer("askSize", traded ? 10 + qint64((volume / 7) % 30) : 0)
            .text("fullExchangeName", exchange.fullExchangeName)
            .number("regularMarketOpen", day.open, decimals)
            .integer("averageDailyVolume3Month", traded ? qint64(day.volume * 0.97) : 0)
            .integer("averageDailyVolume10Day", traded ? qint64(day.volume * 1.02) : 0)
            .number("fiftyTwoWeekLow", year.low, decimals)
            .number("fiftyTwoWeekHigh", year.high, decimals)
            .text("fiftyTwoWeekRange", priceRange(year.low, year.high, decimals))
            .number("fiftyDayAverage", year.average50, decimals + 1)
            .number("twoHundredDayAverage", year.average200, decimals + 1)
            .text("shortName", instrument.shortName)
            .text("longName", instrument.longName);
    if (!instrument.sector.isEmpty())
        result.text("sector", instrument.sector);
    result.text("exchange", exchange.exchangeName)
            .text("market", exchange.market)
            .text("exchangeTimezoneName", exchange.timezoneName)
            .text("exchangeTimezoneShortName", zone.abbreviation)
            .integer("gmtOffSetMilliseconds", qint64(zone.offsetSeconds) * 1000)
            .boolean("esgPopulated", false)
            .boolean("tradeable", false)
            .integer("sourceInterval", 15)
            .integer("exchangeDataDelayedBy", 0)
            .text("symbol", symbol);
    return result.toJson();
}

// The securities Yahoo's search lists when the request names no quotesCount.
constexpr int kDefaultSearchQuotes = 6;
constexpr int kMaxSearchQuotes = 100;

QString typeDisplay(const QString &quoteType)
{
    if (quoteType == QLatin1String("ETF"))
        return quoteType;
    if (quoteType == QLatin1String("CRYPTOCURRENCY"))
        return QStringLiteral("Cryptocurrency");
    return quoteType.left(1) + quoteType.mid(1).toLower(); // "Equity", "Index", "Currency"
}

// "PETR4.SA" -> "PETR4", "BRL=X" -> "BRL", "BTC-USD" -> "BTC": what people type for it.
QString bareSymbol(const QString &symbol)
{
    for (const char *suffix : {".SA", "=X", "-USD"}) {
        if (symbol.endsWith(QLatin1String(suffix)))
            return symbol.chopped(qsizetype(qstrlen(suffix)));
    }
    return symbol;
}

// Yahoo ranks a symbol typed in full far ahead, then symbols starting with the query, then the
// rest by how much they trade.
qint64 searchScore(const Instrument &instrument, const QString &symbol, const QString &query)
{
    const InstrumentProfile profile = instrumentProfile(instrument.symbol);
    qint64 score = 20000 + qint64(std::log10(1.0 + profile.dailyVolume * profile.basePrice) * 1000);
    if (symbol.compare(query, Qt::CaseInsensitive) == 0 ||
        bareSymbol(symbol).compare(query, Qt::CaseInsensitive) == 0)
        score += 50000000;
    else if (symbol.startsWith(query, Qt::CaseInsensitive))
        score += 1000000;
    return score;
}

QByteArray searchQuote(const Instrument &instrument, const QString &symbol, qint64 score)
{
    const ExchangeInfo exchange = exchangeInfo(instrument);
    return OrderedJson()
            .text("exchange", exchange.exchangeName)
            .text("shortname", instrument.shortName)
            .text("quoteType", exchange.quoteType)
            .text("symbol", symbol)
            .text("index", QStringLiteral("quotes"))
            .integer("score", score)
            .text("typeDisp", typeDisplay(exchange.quoteType))
            .text("longname", instrument.longName)
            .boolean("isYahooFinance", true)
            .toJson();
}

// Yahoo mixes a Crunchbase company into the quotes: no symbol, no quote type, not Yahoo's.
QByteArray crunchbaseHit(const QString &query)
{
    const quint64 hash = textHash(query.toLower());
    const QByteArray index = QByteArray::number(mix64(hash, 1), 16).rightJustified(16, '0') +
                             QByteArray::number(mix64(hash, 2), 16).rightJustified(16, '0');
    const QString name = query.left(1).toUpper() + query.mid(1).toLower() + QStringLiteral(" Labs");
    return OrderedJson()
            .text("index", QString::fromLatin1(index))
            .text("name", name)
            .text("permalink", name.toLower().replace(QLatin1Char(' '), QLatin1Char('-')))
            .boolean("isYahooFinance", false)
            .toJson();
}

// Yahoo's 400 for a request without a parameter it needs, in its `finance.error` shape.
HttpResponse missingParameterReply(const QString &parameter)
{
    const QByteArray error =
            OrderedJson()
                    .text("code", QStringLiteral("Bad Request"))
                    .text("description",
                          QStringLiteral("Missing required query parameter=%1").arg(parameter))
                    .toJson();
    return HttpResponse::json(
            OrderedJson()
                    .raw("finance", OrderedJson().null("result").raw("error", error).toJson())
                    .toJson(),
            400);
}

} // namespace

// GET /v8/finance/chart/<symbol>?range=..&interval=..
HttpResponse yahooChartReply(const MarketContext &market, const HttpRequest &request)
{
    const QString symbol = request.pathAfter("/v8/finance/chart/").trimmed().toUpper();
    const Instrument *instrument = market.catalogue.fromYahoo(symbol);
    if (!instrument)
        return chartError(404, "Not Found",
                          QStringLiteral("No data found, symbol may be delisted"));
    const QString interval = request.hasQueryItem(QStringLiteral("interval"))
                                     ? request.queryItem(QStringLiteral("interval"))
                                     : QStringLiteral("1d");
    const QString range = request.hasQueryItem(QStringLiteral("range"))
                                  ? request.queryItem(QStringLiteral("range"))
                                  : QStringLiteral("1mo");
    if (!chartIntervals().contains(interval)) {
        return chartError(400, "Bad Request",
                          QStringLiteral("Invalid input - interval=%1 is not supported. Valid "
                                         "intervals: %2")
                                  .arg(interval, bracketed(chartIntervals())));
    }
    if (!chartRanges().contains(range)) {
        return chartError(400, "Bad Request",
                          QStringLiteral("Invalid input - range=%1 is not supported. Valid "
                                         "ranges: %2")
                                  .arg(range, bracketed(chartRanges())));
    }
    const QByteArray result = chartResult(market, *instrument, symbol, range, interval);
    return HttpResponse::json(
            OrderedJson()
                    .raw("chart",
                         OrderedJson().raw("result", json::array({result})).null("error").toJson())
                    .toJson());
}

// GET /v7/finance/quote?symbols=A,B,C&crumb=..: unknown symbols are left out without a word.
HttpResponse yahooQuoteReply(const MarketContext &market, const HttpRequest &request)
{
    if (auto refusal = yahooSessionRefusal(request))
        return *refusal;
    const QString symbols = request.queryItem(QStringLiteral("symbols"));
    if (symbols.trimmed().isEmpty())
        return missingParameterReply(QStringLiteral("symbols"));
    QList<QByteArray> results;
    QSet<QString> seen;
    for (const QString &part : symbols.split(QLatin1Char(','))) {
        const QString symbol = part.trimmed().toUpper();
        if (symbol.isEmpty() || seen.contains(symbol))
            continue;
        seen.insert(symbol);
        if (const Instrument *instrument = market.catalogue.fromYahoo(symbol))
            results.append(quoteResult(market, *instrument, symbol));
    }
    return HttpResponse::json(
            OrderedJson()
                    .raw("quoteResponse",
                         OrderedJson().raw("result", json::array(results)).null("error").toJson())
                    .toJson());
}

// GET /v1/finance/search?q=..&quotesCount=..&newsCount=..: the instruments whose symbol or name
// holds the query, best first, then one Crunchbase company. News is never simulated.
HttpResponse yahooSearchReply(const MarketContext &market, const HttpRequest &request)
{
    const QString query = request.queryItem(QStringLiteral("q")).trimmed();
    if (query.isEmpty())
        return missingParameterReply(QStringLiteral("q"));
    bool counted = false;
    int quotesCount = request.queryItem(QStringLiteral("quotesCount")).toInt(&counted);
    quotesCount = counted ? std::clamp(quotesCount, 0, kMaxSearchQuotes) : kDefaultSearchQuotes;

    struct Hit
    {
        qint64 score;
        QByteArray json;
    };
    QList<Hit> hits;
    for (const Instrument &instrument : market.catalogue.instruments()) {
        const QString symbol = yahooSymbolOf(instrument);
        if (!symbol.contains(query, Qt::CaseInsensitive) &&
            !instrument.shortName.contains(query, Qt::CaseInsensitive) &&
            !instrument.longName.contains(query, Qt::CaseInsensitive))
            continue;
        const qint64 score = searchScore(instrument, symbol, query);
        hits.append({score, searchQuote(instrument, symbol, score)});
    }
    std::stable_sort(hits.begin(), hits.end(),
                     [](const Hit &a, const Hit &b) { return a.score > b.score; });

    QList<QByteArray> quotes;
    for (qsizetype i = 0; i < std::min<qsizetype>(hits.size(), quotesCount); ++i)
        quotes.append(hits.at(i).json);
    if (quotesCount > 0)
        quotes.append(crunchbaseHit(query));
    const QByteArray none = json::array({});
    return HttpResponse::json(OrderedJson()
                                      .raw("explains", none)
                                      .integer("count", quotes.size())
                                      .raw("quotes", json::array(quotes))
                                      .raw("news", none)
                                      .raw("nav", none)
                                      .raw("lists", none)
                                      .raw("researchReports", none)
                                      .raw("screenerFieldResults", none)
                                      .integer("totalTime", 21)
                                      .integer("timeTakenForQuotes", 412)
                                      .integer("timeTakenForNews", 0)
                                      .integer("timeTakenForAlgowatchlist", 400)
                                      .integer("timeTakenForPredefinedScreener", 400)
                                      .integer("timeTakenForCrunchbase", 400)
                                      .integer("timeTakenForNav", 400)
                                      .integer("timeTakenForResearchReports", 0)
                                      .integer("timeTakenForScreenerField", 0)
                                      .toJson());
}
