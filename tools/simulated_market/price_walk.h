#pragma once

#include "app/clock.h"

#include <QString>
#include <QtGlobal>

// A trading day seen from one step: the last 24 hours, the way the quote replies report them (the
// simulated market never closes).
struct DaySummary
{
    double price = 0.0;
    double open = 0.0;
    double high = 0.0;
    double low = 0.0;
    double previousClose = 0.0;
    double volume = 0.0;

    double change() const { return price - previousClose; }
    double changePercent() const
    {
        return previousClose > 0.0 ? change() / previousClose * 100.0 : 0.0;
    }
};

// The year up to a step, from its daily prices.
struct YearStats
{
    double low = 0.0;
    double high = 0.0;
    double average50 = 0.0;  // the last 50 days
    double average200 = 0.0; // the last 200 days
};

struct PriceBar
{
    double open = 0.0;
    double high = 0.0;
    double low = 0.0;
    double close = 0.0;
    double volume = 0.0;
};

// The prices of the simulated market. A step is one second; step 0 is the moment the walk was
// created, earlier steps are the history before it. Each symbol's price is a pure function of
// (seed, symbol, step): smoothed seeded noise at ten time scales, from seconds to two years, summed
// into a log-price around the symbol's base price, each scale weighted by the symbol's daily
// volatility. So a price can be computed at any step without walking there, history and the live
// price agree, and the same seed always gives the same series.
class PriceWalk
{
public:
    explicit PriceWalk(quint64 seed, Clock clock = systemClock());

    quint64 seed() const { return m_seed; }
    // Whole seconds since the walk was created, never negative.
    qint64 currentStep() const;
    // The wall-clock second (since the epoch) a step stands for, and back.
    qint64 epochSecondsOf(qint64 step) const { return m_startMs / 1000 + step; }
    qint64 stepOf(qint64 epochSeconds) const { return epochSeconds - m_startMs / 1000; }

    double price(const QString &symbol, qint64 step) const;
    DaySummary day(const QString &symbol, qint64 step) const;
    YearStats year(const QString &symbol, qint64 step) const;
    // The bar from step `from` to step `to`; a bar that has just opened (to == from) has one price
    // and no volume.
    PriceBar bar(const QString &symbol, qint64 from, qint64 to) const;

private:
    quint64 m_seed;
    Clock m_clock;
    qint64 m_startMs;
};
