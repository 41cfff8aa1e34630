#include "chart/indicators.h"

#include <QDate>
#include <QDateTime>
#include <QJsonValue>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

const QLatin1String kSmaKey("sma20");
const QLatin1String kEmaKey("ema20");
const QLatin1String kVwapKey("vwap");
const QLatin1String kMacdKey("macd");
const QLatin1String kSmaPeriodKey("sma_period");
const QLatin1String kEmaPeriodKey("ema_period");
const QLatin1String kMacdFastKey("macd_fast");
const QLatin1String kMacdSlowKey("macd_slow");
const QLatin1String kMacdSignalKey("macd_signal");
const QLatin1String kVwapSessionKey("vwap_session");
const QLatin1String kHLinesKey("draw_hline");
const QLatin1String kVLinesKey("draw_vline");
const QLatin1String kTrendsKey("draw_trend");

int boundedPeriod(double period)
{
    // Compared as doubles first: a huge number must not overflow the int conversion.
    if (!(period >= kMinIndicatorPeriod))
        return kMinIndicatorPeriod;
    if (period >= kMaxIndicatorPeriod)
        return kMaxIndicatorPeriod;
    return static_cast<int>(period);
}

void readFlag(const QJsonObject &object, QLatin1String key, bool &flag)
{
    const QJsonValue value = object.value(key);
    if (value.isBool())
        flag = value.toBool();
}

void readPeriod(const QJsonObject &object, QLatin1String key, int &period)
{
    const QJsonValue value = object.value(key);
    period = boundedPeriod(value.isDouble() ? value.toDouble() : period);
}

QDate localDate(qint64 time)
{
    const QDateTime moment = isMillisecondTime(time) ? QDateTime::fromMSecsSinceEpoch(time)
                                                     : QDateTime::fromSecsSinceEpoch(time);
    return moment.toLocalTime().date();
}

QString fixed(double value)
{
    return QString::number(value, 'f', 4);
}

} // namespace

QJsonObject IndicatorSettings::toJson() const
{
    QJsonObject object;
    object.insert(kSmaKey, sma);
    object.insert(kEmaKey, ema);
    object.insert(kVwapKey, vwap);
    object.insert(kMacdKey, macd);
    object.insert(kSmaPeriodKey, smaPeriod);
    object.insert(kEmaPeriodKey, emaPeriod);
    object.insert(kMacdFastKey, macdFast);
    object.insert(kMacdSlowKey, macdSlow);
    object.insert(kMacdSignalKey, macdSignal);
    object.insert(kVwapSessionKey, vwapSession);
    object.insert(kHLinesKey, showHLines);
    object.insert(kVLinesKey, showVLines);
    object.insert(kTrendsKey, showTrends);
    return object;
}

void IndicatorSettings::readJson(const QJsonObject &object)
{
    readFlag(object, kSmaKey, sma);
    readFlag(object, kEmaKey, ema);
    readFlag(object, kVwapKey, vwap);
    readFlag(object, kMacdKey, macd);
    readPeriod(object, kSmaPeriodKey, smaPeriod);
    readPeriod(object, kEmaPeriodKey, emaPeriod);
    readPeriod(object, kMacdFastKey, macdFast);
    readPeriod(object, kMacdSlowKey, macdSlow);
    readPeriod(object, kMacdSignalKey, macdSignal);
    readFlag(object, kVwapSessionKey, vwapSession);
    readFlag(object, kHLinesKey, showHLines);
    readFlag(object, kVLinesKey, showVLines);
    readFlag(object, kTrendsKey, showTrends);
    if (macdFast >= macdSlow)
        macdSlow = std::min(macdFast + 1, kMaxIndicatorPeriod);
}

IndicatorSeries smaSeries(const QList<Candle> &candles, int period)
{
    const qsizetype n = std::max(period, kMinIndicatorPeriod);
    IndicatorSeries series(candles.size(), qQNaN());
    double sum = 0.0;
    for (qsizetype i = 0; i < candles.size(); ++i) {
        sum += candles.at(i).close;
        if (i >= n)
            sum -= candles.at(i - n).close;
        if (i >= n - 1)
            series[i] = sum / static_cast<double>(n);
    }
    return series;
}

IndicatorSeries emaSeries(const QList<Candle> &candles, int period)
{
    IndicatorSeries series;
    if (candles.isEmpty())
        return series;
    series.reserve(candles.size());
    const double alpha = 2.0 / (std::max(period, kMinIndicatorPeriod) + 1.0);
    double ema = candles.first().close;
    for (const Candle &candle : candles) {
        ema = candle.close * alpha + ema * (1.0 - alpha);
        series.append(ema);
    }
    return series;
}

IndicatorSeries vwapSeries(const QList<Candle> &candles, bool session)
{
    IndicatorSeries series;
    series.reserve(candles.size());
    double priceVolume = 0.0;
    double volume = 0.0;
    QDate previousDate;
    for (const Candle &candle : candles) {
        if (session) {
            const QDate date = localDate(candle.time);
            if (previousDate.isValid() && date != previousDate) {
                priceVolume = 0.0;
                volume = 0.0;
            }
            previousDate = date;
        }
        const double typical = (candle.high + candle.low + candle.close) / 3.0;
        priceVolume += typical * candle.volume;
        volume += candle.volume;
        series.append(volume > 0.0 ? priceVolume / volume : qQNaN());
    }
    return series;
}

IndicatorSeries macdLineSeries(const QList<Candle> &candles, int fast, int slow)
{
    const IndicatorSeries fastSeries = emaSeries(candles, fast);
    const IndicatorSeries slowSeries = emaSeries(candles, slow);
    IndicatorSeries series;
    series.reserve(fastSeries.size());
    for (qsizetype i = 0; i < fastSeries.size(); ++i)
        series.append(fastSeries.at(i) - slowSeries.at(i));
    return series;
}

IndicatorSeries macdSignalSeries(const IndicatorSeries &macdLine, int period)
{
    IndicatorSeries series(macdLine.size(), qQNaN());
    const double alpha = 2.0 / (std::max(period, kMinIndicatorPeriod) + 1.0);
    bool seeded = false;
    double signal = 0.0;
    for (qsizetype i = 0; i < macdLine.size(); ++i) {
        const double value = macdLine.at(i);
        if (!std::isfinite(value))
            continue;
        signal = seeded ? value * alpha + signal * (1.0 - alpha) : value;
        seeded = true;
        series[i] = signal;
    }
    return series;
}

double lastFinite(const IndicatorSeries &series)
{
    for (qsizetype i = series.size() - 1; i >= 0; --i) {
        if (std::isfinite(series.at(i)))
            return series.at(i);
    }
    return qQNaN();
}

IndicatorValues lastIndicatorValues(const QList<Candle> &candles, const IndicatorSettings &settings)
{
    IndicatorValues values;
    if (candles.isEmpty())
        return values;
    const qsizetype smaPeriod = std::max(settings.smaPeriod, kMinIndicatorPeriod);
    if (candles.size() >= smaPeriod) {
        double sum = 0.0;
        for (qsizetype i = candles.size() - smaPeriod; i < candles.size(); ++i)
            sum += candles.at(i).close;
        values.sma = sum / static_cast<double>(smaPeriod);
    }
    values.ema = emaSeries(candles, settings.emaPeriod).constLast();
    values.vwap = vwapSeries(candles, settings.vwapSession).constLast();
    values.macd = emaSeries(candles, settings.macdFast).constLast() -
                  emaSeries(candles, settings.macdSlow).constLast();
    return values;
}

QString indicatorLegendMessage(const QString &symbol, const QList<Candle> &candles,
                               const IndicatorSettings &settings)
{
    if (candles.isEmpty())
        return {};
    QStringList parts;
    if (settings.sma) {
        parts.append(QStringLiteral("SMA%1=%2")
                             .arg(settings.smaPeriod)
                             .arg(fixed(lastFinite(smaSeries(candles, settings.smaPeriod)))));
    }
    if (settings.ema) {
        parts.append(QStringLiteral("EMA%1=%2")
                             .arg(settings.emaPeriod)
                             .arg(fixed(lastFinite(emaSeries(candles, settings.emaPeriod)))));
    }
    if (settings.vwap) {
        const QString anchor =
                settings.vwapSession ? QStringLiteral("(session)") : QStringLiteral("(anchored)");
        parts.append(
                QStringLiteral("VWAP%1=%2")
                        .arg(anchor, fixed(lastFinite(vwapSeries(candles, settings.vwapSession)))));
    }
    if (settings.macd) {
        const IndicatorSeries line = macdLineSeries(candles, settings.macdFast, settings.macdSlow);
        const IndicatorSeries signal = macdSignalSeries(line, settings.macdSignal);
        parts.append(QStringLiteral("MACD%1/%2/%3=%4 signal=%5")
                             .arg(settings.macdFast)
                             .arg(settings.macdSlow)
                             .arg(settings.macdSignal)
                             .arg(fixed(lastFinite(line)), fixed(lastFinite(signal))));
    }
    if (parts.isEmpty())
        return {};
    return QStringLiteral("Indicators %1 %2").arg(symbol, parts.join(QStringLiteral(" | ")));
}
