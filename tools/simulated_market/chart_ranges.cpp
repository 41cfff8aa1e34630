#include "simulated_market/chart_ranges.h"

#include <QDateTime>
#include <QHash>

namespace {

constexpr qint64 kMinute = 60;
constexpr qint64 kDay = 86400;
// 1970-01-05 was the first Monday after the epoch: weekly bars open on Mondays.
constexpr qint64 kFirstMonday = 4 * kDay;

qint64 fixedIntervalSeconds(const QString &interval)
{
    static const QHash<QString, qint64> seconds{
            {QStringLiteral("1m"), kMinute},       {QStringLiteral("2m"), 2 * kMinute},
            {QStringLiteral("5m"), 5 * kMinute},   {QStringLiteral("15m"), 15 * kMinute},
            {QStringLiteral("30m"), 30 * kMinute}, {QStringLiteral("60m"), 60 * kMinute},
            {QStringLiteral("90m"), 90 * kMinute}, {QStringLiteral("1h"), 60 * kMinute},
            {QStringLiteral("1d"), kDay},          {QStringLiteral("5d"), 5 * kDay},
            {QStringLiteral("1wk"), 7 * kDay},
    };
    return seconds.value(interval, 0);
}

int intervalMonths(const QString &interval)
{
    if (interval == QLatin1String("1mo"))
        return 1;
    if (interval == QLatin1String("3mo"))
        return 3;
    return 0;
}

qint64 rangeStart(const QString &range, qint64 now)
{
    const QDateTime at = QDateTime::fromSecsSinceEpoch(now, Qt::UTC);
    if (range == QLatin1String("1d"))
        return now - kDay;
    if (range == QLatin1String("5d"))
        return now - 5 * kDay;
    if (range == QLatin1String("ytd"))
        return QDateTime(QDate(at.date().year(), 1, 1), QTime(0, 0), Qt::UTC).toSecsSinceEpoch();
    static const QHash<QString, int> months{
            {QStringLiteral("1mo"), 1},   {QStringLiteral("3mo"), 3},   {QStringLiteral("6mo"), 6},
            {QStringLiteral("1y"), 12},   {QStringLiteral("2y"), 24},   {QStringLiteral("5y"), 60},
            {QStringLiteral("10y"), 120}, {QStringLiteral("max"), 240},
    };
    return at.addMonths(-months.value(range, 1)).toSecsSinceEpoch();
}

} // namespace

const QStringList &chartIntervals()
{
    static const QStringList intervals{"1m", "2m", "5m", "15m", "30m", "60m", "90m",
                                       "1h", "1d", "5d", "1wk", "1mo", "3mo"};
    return intervals;
}

const QStringList &chartRanges()
{
    static const QStringList ranges{"1d", "5d", "1mo", "3mo", "6mo", "1y",
                                    "2y", "5y", "10y", "ytd", "max"};
    return ranges;
}

bool isIntradayInterval(const QString &interval)
{
    const qint64 seconds = fixedIntervalSeconds(interval);
    return seconds > 0 && seconds < kDay;
}

QList<qint64> barOpenings(const QString &range, const QString &interval, qint64 now)
{
    const qint64 start = rangeStart(range, now);
    QList<qint64> openings;
    if (const int months = intervalMonths(interval)) {
        const QDate today = QDateTime::fromSecsSinceEpoch(now, Qt::UTC).date();
        QDate month(today.year(), today.month() - (today.month() - 1) % months, 1);
        do {
            openings.prepend(QDateTime(month, QTime(0, 0), Qt::UTC).toSecsSinceEpoch());
            month = month.addMonths(-months);
        } while (openings.size() < kMaxChartBars &&
                 QDateTime(month, QTime(0, 0), Qt::UTC).toSecsSinceEpoch() >= start);
        return openings;
    }
    const qint64 seconds = fixedIntervalSeconds(interval);
    const qint64 anchor = interval == QLatin1String("1wk") ? kFirstMonday : 0;
    qint64 opening = now - (now - anchor) % seconds;
    do {
        openings.prepend(opening);
        opening -= seconds;
    } while (openings.size() < kMaxChartBars && opening >= start);
    return openings;
}
