#include "providers/quota_meter.h"

#include "providers/provider_catalogue.h"

#include <QDateTime>

namespace {

constexpr qint64 kMinuteMs = 60 * 1000;

int countField(const QJsonObject &object, const char *name)
{
    const QJsonValue value = object.value(QLatin1String(name));
    return value.isDouble() ? std::max(0, value.toInt()) : 0;
}

} // namespace

QuotaMeter::QuotaMeter(Clock clock)
    : m_clock(std::move(clock))
{}

QuotaMeter::Now QuotaMeter::now() const
{
    const qint64 ms = m_clock();
    const QDate date = QDateTime::fromMSecsSinceEpoch(ms, Qt::LocalTime).date();
    return {ms / kMinuteMs, date.toString(QStringLiteral("yyyy-MM-dd")),
            date.toString(QStringLiteral("yyyy-MM"))};
}

void QuotaMeter::count(const QString &providerId)
{
    if (!providerFreeLimit(providerId))
        return;
    const Now current = now();
    Counts &counts = m_counts[providerId];
    if (counts.minute != current.minute) {
        counts.minute = current.minute;
        counts.minuteCount = 0;
    }
    if (counts.day != current.day) {
        counts.day = current.day;
        counts.dayCount = 0;
    }
    if (counts.month != current.month) {
        counts.month = current.month;
        counts.monthCount = 0;
    }
    ++counts.minuteCount;
    ++counts.dayCount;
    ++counts.monthCount;
}

int QuotaMeter::minuteCount(const QString &providerId) const
{
    const auto it = m_counts.find(providerId);
    return it != m_counts.end() && it->minute == now().minute ? it->minuteCount : 0;
}

int QuotaMeter::dayCount(const QString &providerId) const
{
    const auto it = m_counts.find(providerId);
    return it != m_counts.end() && it->day == now().day ? it->dayCount : 0;
}

int QuotaMeter::monthCount(const QString &providerId) const
{
    const auto it = m_counts.find(providerId);
    return it != m_counts.end() && it->month == now().month ? it->monthCount : 0;
}

QJsonObject QuotaMeter::toJson() const
{
    QJsonObject object;
    for (auto it = m_counts.begin(); it != m_counts.end(); ++it) {
        object.insert(it.key(), QJsonObject{
                                        {"minute", it->minute},
                                        {"minute_count", it->minuteCount},
                                        {"day", it->day},
                                        {"day_count", it->dayCount},
                                        {"month", it->month},
                                        {"month_count", it->monthCount},
                                });
    }
    return object;
}

void QuotaMeter::fromJson(const QJsonValue &value)
{
    m_counts.clear();
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!providerFreeLimit(it.key()) || !it.value().isObject())
            continue;
        const QJsonObject fields = it.value().toObject();
        Counts counts;
        // A window without a readable name cannot be matched to "now", so its count is dropped.
        const QJsonValue minute = fields.value(QLatin1String("minute"));
        if (minute.isDouble()) {
            counts.minute = minute.toInteger(-1);
            counts.minuteCount = countField(fields, "minute_count");
        }
        const QJsonValue day = fields.value(QLatin1String("day"));
        if (day.isString()) {
            counts.day = day.toString();
            counts.dayCount = countField(fields, "day_count");
        }
        const QJsonValue month = fields.value(QLatin1String("month"));
        if (month.isString()) {
            counts.month = month.toString();
            counts.monthCount = countField(fields, "month_count");
        }
        m_counts.insert(it.key(), counts);
    }
}

void countProviderRequest(QuotaMeter *meter, const QString &providerId)
{
    if (meter)
        meter->count(providerId);
}

QString quotaColor(double fraction)
{
    if (fraction >= 0.9)
        return QStringLiteral("#f45d5d");
    if (fraction >= 0.7)
        return QStringLiteral("#f3b24a");
    return QStringLiteral("#20c878");
}

QList<QuotaUsage> quotaUsage(const QuotaMeter &meter)
{
    QList<QuotaUsage> usage;
    for (const ProviderFreeLimit &limit : providerFreeLimits()) {
        const QString id = QString::fromLatin1(limit.providerId);
        const auto add = [&](const char *window, int used, int max) {
            if (max <= 0)
                return;
            const double fraction = double(used) / max;
            usage.append(
                    {id, QString::fromLatin1(window), used, max, fraction, quotaColor(fraction)});
        };
        add("minute", meter.minuteCount(id), limit.perMinute);
        add("day", meter.dayCount(id), limit.perDay);
        add("month", meter.monthCount(id), limit.perMonth);
    }
    return usage;
}
