#include "chart/candle_history.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// A previous close this close to zero would turn any move into an absurd percentage.
constexpr double kSmallestPreviousClose = 2.220446049250313e-16;

QJsonDocument parsedReply(const QByteArray &body)
{
    if (body.isEmpty() || body.size() > kMaxHistoryReplyBytes)
        return {};
    return QJsonDocument::fromJson(body);
}

// A kline entry: Binance writes prices as strings, some mirrors as numbers.
double klineNumber(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    if (!value.isString())
        return kNaN;
    bool ok = false;
    const double number = value.toString().toDouble(&ok);
    return ok ? number : kNaN;
}

bool positivePrice(double price)
{
    return std::isfinite(price) && price > 0.0;
}

double metaNumber(const QJsonObject &meta, const char *key)
{
    const QJsonValue value = meta.value(QLatin1String(key));
    return value.isDouble() ? value.toDouble() : kNaN;
}

} // namespace

QList<Candle> readBinanceKlines(const QByteArray &body)
{
    const QJsonDocument document = parsedReply(body);
    if (!document.isArray())
        return {};
    const QJsonArray rows = document.array();
    QList<Candle> candles;
    candles.reserve(rows.size());
    for (const QJsonValue &value : rows) {
        const QJsonArray row = value.toArray();
        if (row.size() < 6 || !row.at(0).isDouble())
            continue;
        Candle candle;
        candle.time = jsonInteger(row.at(0));
        candle.open = klineNumber(row.at(1));
        candle.high = klineNumber(row.at(2));
        candle.low = klineNumber(row.at(3));
        candle.close = klineNumber(row.at(4));
        if (!positivePrice(candle.open) || !positivePrice(candle.high) ||
            !positivePrice(candle.low) || !positivePrice(candle.close))
            continue;
        const double volume = klineNumber(row.at(5));
        candle.volume = std::isfinite(volume) ? volume : 0.0;
        candles.append(candle);
    }
    return candles;
}

YahooChartReply readYahooChart(const QByteArray &body)
{
    YahooChartReply reply;
    const QJsonArray results = parsedReply(body)
                                       .object()
                                       .value(QLatin1String("chart"))
                                       .toObject()
                                       .value(QLatin1String("result"))
                                       .toArray();
    if (results.isEmpty() || !results.first().isObject())
        return reply;
    const QJsonObject result = results.first().toObject();
    reply.hasResult = true;

    const QJsonObject meta = result.value(QLatin1String("meta")).toObject();
    reply.price = metaNumber(meta, "regularMarketPrice");
    reply.previousClose = metaNumber(meta, "previousClose");
    if (std::isnan(reply.previousClose))
        reply.previousClose = metaNumber(meta, "chartPreviousClose");
    reply.candles = yahooChartCandles(result);
    if (!std::isfinite(reply.price) && !reply.candles.isEmpty())
        reply.price = reply.candles.last().close;
    if (std::isfinite(reply.previousClose) &&
        std::abs(reply.previousClose) > kSmallestPreviousClose) {
        const double change = (reply.price - reply.previousClose) / reply.previousClose * 100.0;
        // A price near the largest double over a tiny previous close overflows: no change then.
        reply.changePercent = std::isfinite(change) ? change : kNaN;
    }
    return reply;
}

BrapiHistoryReply readBrapiHistory(const QByteArray &body)
{
    BrapiHistoryReply reply;
    const QJsonArray results = parsedReply(body).object().value(QLatin1String("results")).toArray();
    if (results.isEmpty())
        return reply;
    const QJsonObject result = results.first().toObject();
    const QJsonValue price = result.value(QLatin1String("regularMarketPrice"));
    if (!price.isDouble() || !std::isfinite(price.toDouble()))
        return reply;
    reply.hasResult = true;
    reply.price = price.toDouble();
    const QJsonValue change = result.value(QLatin1String("regularMarketChangePercent"));
    reply.changePercent = change.isDouble() ? change.toDouble() : kNaN;
    reply.candles =
            brapiHistoryCandles(result.value(QLatin1String("historicalDataPrice")).toArray());
    return reply;
}

QList<Candle> mergeHourBars(const QList<Candle> &candles, int hours)
{
    if (candles.isEmpty() || hours <= 1)
        return candles;
    const qint64 length = qint64(hours) * 3600;
    QList<Candle> merged;
    merged.reserve(candles.size() / hours + 2);
    Candle open;
    qint64 openBucket = 0;
    bool hasOpen = false;
    for (const Candle &candle : candles) {
        const qint64 seconds = isMillisecondTime(candle.time) ? candle.time / 1000 : candle.time;
        // Truncating division keeps bucket * length within the range of the time itself.
        const qint64 bucket = seconds / length;
        if (hasOpen && bucket == openBucket) {
            open.high = std::max(open.high, candle.high);
            open.low = std::min(open.low, candle.low);
            open.close = candle.close;
            open.volume += candle.volume;
            continue;
        }
        if (hasOpen)
            merged.append(open);
        open = candle;
        open.time = bucket * length;
        openBucket = bucket;
        hasOpen = true;
    }
    merged.append(open);
    return merged;
}
