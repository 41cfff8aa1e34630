#include "chart/candle.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

bool allFinite(const Candle &candle)
{
    return std::isfinite(candle.open) && std::isfinite(candle.high) && std::isfinite(candle.low) &&
           std::isfinite(candle.close);
}

} // namespace

qint64 jsonInteger(const QJsonValue &value, qint64 fallback)
{
    if (!value.isDouble())
        return fallback;
    const double number = value.toDouble();
    // 2^63 itself does not fit; anything strictly inside does.
    constexpr double limit = 9223372036854775808.0;
    if (!std::isfinite(number) || number >= limit || number < -limit)
        return fallback;
    return static_cast<qint64>(number);
}

QList<Candle> yahooChartCandles(const QJsonObject &result)
{
    const QJsonArray quotes = result.value(QLatin1String("indicators"))
                                      .toObject()
                                      .value(QLatin1String("quote"))
                                      .toArray();
    if (quotes.isEmpty())
        return {};
    const QJsonObject quote = quotes.first().toObject();
    const QJsonArray timestamps = result.value(QLatin1String("timestamp")).toArray();
    const QJsonArray opens = quote.value(QLatin1String("open")).toArray();
    const QJsonArray highs = quote.value(QLatin1String("high")).toArray();
    const QJsonArray lows = quote.value(QLatin1String("low")).toArray();
    const QJsonArray closes = quote.value(QLatin1String("close")).toArray();
    const QJsonArray volumes = quote.value(QLatin1String("volume")).toArray();

    const qsizetype count =
            std::min({timestamps.size(), opens.size(), highs.size(), lows.size(), closes.size()});
    QList<Candle> candles;
    candles.reserve(count);
    for (qsizetype i = 0; i < count; ++i) {
        if (!opens.at(i).isDouble() || !highs.at(i).isDouble() || !lows.at(i).isDouble() ||
            !closes.at(i).isDouble())
            continue;
        Candle candle;
        candle.time = jsonInteger(timestamps.at(i));
        candle.open = opens.at(i).toDouble();
        candle.high = highs.at(i).toDouble();
        candle.low = lows.at(i).toDouble();
        candle.close = closes.at(i).toDouble();
        if (i < volumes.size() && volumes.at(i).isDouble())
            candle.volume = volumes.at(i).toDouble();
        if (allFinite(candle))
            candles.append(candle);
    }
    return candles;
}

QList<Candle> brapiHistoryCandles(const QJsonArray &rows)
{
    QList<Candle> candles;
    candles.reserve(rows.size());
    for (const QJsonValue &value : rows) {
        const QJsonObject row = value.toObject();
        Candle candle;
        candle.open = row.value(QLatin1String("open")).toDouble(kNaN);
        candle.high = row.value(QLatin1String("high")).toDouble(kNaN);
        candle.low = row.value(QLatin1String("low")).toDouble(kNaN);
        candle.close = row.value(QLatin1String("close")).toDouble(kNaN);
        if (!allFinite(candle))
            continue;
        candle.time = jsonInteger(row.value(QLatin1String("date")));
        candle.volume = row.value(QLatin1String("volume")).toDouble(0.0);
        candles.append(candle);
    }
    return candles;
}
