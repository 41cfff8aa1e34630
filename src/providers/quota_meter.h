#pragma once

#include "app/clock.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>

// Requests sent to each keyed provider in the current minute, calendar day and calendar month
// (local time), so the user sees how close a free plan is to its limit. The meter only counts;
// nothing in the cascade reads it.
class QuotaMeter
{
public:
    explicit QuotaMeter(Clock clock = systemClock());

    // Counts one request for a provider that has a free-limit entry; other ids are ignored.
    void count(const QString &providerId);

    // Counts in the window that holds "now"; a window that has passed reads 0.
    int minuteCount(const QString &providerId) const;
    int dayCount(const QString &providerId) const;
    int monthCount(const QString &providerId) const;

    // The value kept in the settings. A value of the wrong shape, or a field of the wrong type,
    // reads as no count for that provider or window.
    QJsonObject toJson() const;
    void fromJson(const QJsonValue &value);

private:
    struct Counts
    {
        qint64 minute = -1; // minutes since the epoch
        int minuteCount = 0;
        QString day; // "yyyy-MM-dd", local
        int dayCount = 0;
        QString month; // "yyyy-MM", local
        int monthCount = 0;
    };
    struct Now
    {
        qint64 minute;
        QString day;
        QString month;
    };
    Now now() const;

    Clock m_clock;
    QMap<QString, Counts> m_counts;
};

// The call the request layer makes for every provider request it sends; a null meter is fine.
void countProviderRequest(QuotaMeter *meter, const QString &providerId);

// How far one provider is into one of its documented free windows.
struct QuotaUsage
{
    QString providerId;
    QString window; // "minute", "day" or "month"
    int used = 0;
    int limit = 0;
    double fraction = 0.0;
    QString color; // quotaColor(fraction)
};

// Green below 70 %, amber from 70 %, red from 90 %.
QString quotaColor(double fraction);
// One entry per provider and window with a documented limit, in the free-limit table's order.
QList<QuotaUsage> quotaUsage(const QuotaMeter &meter);
