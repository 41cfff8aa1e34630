#include "simulated_market/chart_ranges.h"
#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QDateTime>

#include <algorithm>

namespace {

QString isoTime(qint64 epochMs)
{
    return QDateTime::fromMSecsSinceEpoch(epochMs, Qt::UTC).toString(Qt::ISODateWithMs);
}

HttpResponse brapiError(int status, const QString &message)
{
    return HttpResponse::json(
            OrderedJson().boolean("error", true).text("message", message).toJson(), status);
}

QByteArray brapiHistory(const MarketContext &market, const Instrument &instrument,
                        const QString &range, const QString &interval)
{
    const QList<qint64> openings = barOpenings(range, interval, market.now());
    const bool intraday = isIntradayInterval(interval);
    QList<QByteArray> rows;
    for (qsizetype i = 0; i < openings.size(); ++i) {
        const bool last = i + 1 == openings.size();
        const qint64 from = market.walk.stepOf(openings.at(i));
        const qint64 to = last ? market.step : market.walk.stepOf(openings.at(i + 1));
        const PriceBar bar = market.walk.bar(instrument.symbol, from, std::max(from, to));
        // The day (or month) in progress is stamped with the moment of the reply, not its start.
        rows.append(OrderedJson()
                            .integer("date", last && !intraday ? market.now() : openings.at(i))
                            .number("open", bar.open, 2)
                            .number("high", bar.high, 2)
                            .number("low", bar.low, 2)
                            .number("close", bar.close, 2)
                            .integer("volume", qint64(bar.volume))
                            .number("adjustedClose", bar.close, 2)
                            .toJson());
    }
    return json::array(rows);
}

QByteArray brapiResult(const MarketContext &market, const Instrument &instrument,
                       const QString &ticker, const QString &range, const QString &interval)
{
    const DaySummary day = roundedDay(market, instrument);
    const YearStats year = market.walk.year(instrument.symbol, market.step);
    const bool index = instrument.kind == InstrumentKind::BrIndex;
    const quint64 hash = textHash(instrument.symbol);
    // Earnings of 5 % to 25 % of the price a year.
    const double earningsPerShare = day.price * (0.05 + 0.2 * unitInterval(mix64(hash, 3)));
    const double shares = 1e9 * (0.3 + 12.0 * unitInterval(mix64(hash, 4)));

    OrderedJson result;
    result.text("symbol", ticker).text("currency", QStringLiteral("BRL"));
    if (index)
        result.null("marketCap");
    else
        result.integer("marketCap", qint64(day.price * shares));
    result.text("shortName", instrument.shortName)
            .text("longName", instrument.longName)
            .number("regularMarketChange", day.change(), 7)
            .number("regularMarketChangePercent", day.changePercent(), 7)
            .text("regularMarketTime", isoTime(market.now() * 1000))
            .number("regularMarketPrice", day.price, 2)
            .number("regularMarketDayHigh", day.high, 2)
            .text("regularMarketDayRange", priceRange(day.low, day.high, 2))
            .number("regularMarketDayLow", day.low, 2)
            .integer("regularMarketVolume", index ? 0 : qint64(day.volume))
            .number("regularMarketPreviousClose", day.previousClose, 2)
            .number("regularMarketOpen", day.open, 2)
            .text("fiftyTwoWeekRange", priceRange(year.low, year.high, 2))
            .number("fiftyTwoWeekLow", year.low, 2)
            .number("fiftyTwoWeekHigh", year.high, 2);
    if (index)
        result.null("priceEarnings").null("earningsPerShare");
    else
        result.number("priceEarnings", day.price / earningsPerShare, 8)
                .number("earningsPerShare", earningsPerShare, 7);
    result.text("logourl",
                index ? QStringLiteral("https://brapi.dev/favicon.svg")
                      : QStringLiteral("https://icons.brapi.dev/icons/%1.svg").arg(ticker));
    if (!range.isEmpty() && !interval.isEmpty()) {
        result.text("usedInterval", interval)
                .text("usedRange", range)
                .raw("historicalDataPrice", brapiHistory(market, instrument, range, interval));
    }
    result.raw("validRanges", json::stringArray(chartRanges()))
            .raw("validIntervals", json::stringArray(chartIntervals()));
    return result.toJson();
}

} // namespace

// GET /api/quote/<tickers>[?range=..&interval=..][&token=..]: several tickers may come joined
// by commas; one unknown ticker fails the whole request, as on BrAPI.
HttpResponse brapiQuoteReply(const MarketContext &market, const HttpRequest &request)
{
    const QString range = request.queryItem(QStringLiteral("range")).trimmed();
    const QString interval = request.queryItem(QStringLiteral("interval")).trimmed();
    if (!range.isEmpty() && !chartRanges().contains(range)) {
        return brapiError(400, QStringLiteral("Campo 'range' inválido. Ranges válidos: %1")
                                       .arg(chartRanges().join(QStringLiteral(", "))));
    }
    if (!interval.isEmpty() && !chartIntervals().contains(interval)) {
        return brapiError(400, QStringLiteral("Campo 'interval' inválido. Intervalos válidos: %1")
                                       .arg(chartIntervals().join(QStringLiteral(", "))));
    }
    QList<QByteArray> results;
    for (const QString &part : request.pathAfter("/api/quote/").split(QLatin1Char(','))) {
        const QString ticker = part.trimmed().toUpper();
        const Instrument *instrument = market.catalogue.fromBrapi(ticker);
        if (!instrument)
            return brapiError(404, QStringLiteral("Não encontramos a ação %1").arg(ticker));
        results.append(brapiResult(market, *instrument, ticker, range, interval));
    }
    const qint64 took = 5 + qint64(mix64(quint64(market.step)) % 40);
    return HttpResponse::json(
            OrderedJson()
                    .raw("results", json::array(results))
                    .text("requestedAt", isoTime(market.walk.epochSecondsOf(market.step) * 1000 +
                                                 qint64(mix64(quint64(market.step), 1) % 1000)))
                    .text("took", QStringLiteral("%1ms").arg(took))
                    .toJson());
}
