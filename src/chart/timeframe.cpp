#include "chart/timeframe.h"

namespace {

struct TimeframeRow
{
    const char *timeframe;
    TimeframeParameters parameters;
};

const TimeframeRow kTimeframes[] = {
        {"1m", {"1m", "1m", "1d", 1}},    {"5m", {"5m", "5m", "5d", 1}},
        {"15m", {"15m", "15m", "5d", 1}}, {"30m", {"30m", "30m", "1mo", 1}},
        {"1h", {"1h", "1h", "3mo", 1}},   {"4h", {"4h", "1h", "3mo", 4}},
        {"1d", {"1d", "1d", "1y", 1}},    {"1mo", {"1M", "1mo", "5y", 1}},
};

} // namespace

QStringList chartTimeframes()
{
    QStringList timeframes;
    for (const TimeframeRow &row : kTimeframes)
        timeframes << QString::fromLatin1(row.timeframe);
    return timeframes;
}

TimeframeParameters timeframeParameters(const QString &timeframe)
{
    for (const TimeframeRow &row : kTimeframes) {
        if (timeframe == QLatin1String(row.timeframe))
            return row.parameters;
    }
    // Binance takes an unknown text as it stands; Yahoo and BrAPI get the longest view.
    TimeframeParameters fallback = std::end(kTimeframes)[-1].parameters;
    fallback.binanceInterval = timeframe;
    return fallback;
}
