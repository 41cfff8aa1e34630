#include "simulated_market/price_walk.h"

#include "simulated_market/hashing.h"
#include "simulated_market/instruments.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr qint64 kDay = 86400;

struct Scale
{
    qint64 seconds;
    double weight; // in daily volatilities
};

// Roughly the square-root growth of a random walk up to a day, flattening beyond it so that prices
// stay within a band of about ±15 % around the base price over years.
constexpr Scale kScales[] = {
        {15, 0.05},  {120, 0.12},     {900, 0.25},      {3600, 0.35},      {4 * 3600, 0.45},
        {kDay, 0.6}, {5 * kDay, 0.9}, {30 * kDay, 1.2}, {180 * kDay, 1.8}, {730 * kDay, 2.0},
};

// One symbol's path under one seed.
class SymbolPath
{
public:
    SymbolPath(quint64 seed, const QString &symbol)
        : m_key(mix64(seed, textHash(symbol)))
        , m_profile(instrumentProfile(symbol))
    {}

    double price(qint64 step) const
    {
        double logMove = 0.0;
        quint64 scaleKey = m_key;
        for (const Scale &scale : kScales) {
            scaleKey = mix64(scaleKey);
            logMove += scale.weight * smoothNoise(scaleKey, step, scale.seconds);
        }
        return m_profile.basePrice * std::exp(m_profile.dailyVolatility * logMove);
    }

    // The volume of the 24 hours up to the step: the profile's, give or take a quarter.
    double dailyVolume(qint64 step) const
    {
        return m_profile.dailyVolume * (1.0 + 0.25 * smoothNoise(~m_key, step, kDay));
    }

    quint64 key() const { return m_key; }

private:
    quint64 m_key;
    InstrumentProfile m_profile;
};

} // namespace

PriceWalk::PriceWalk(quint64 seed, Clock clock)
    : m_seed(seed)
    , m_clock(std::move(clock))
    , m_startMs(m_clock())
{}

qint64 PriceWalk::currentStep() const
{
    return std::max<qint64>(0, (m_clock() - m_startMs) / 1000);
}

double PriceWalk::price(const QString &symbol, qint64 step) const
{
    return SymbolPath(m_seed, symbol).price(step);
}

DaySummary PriceWalk::day(const QString &symbol, qint64 step) const
{
    const SymbolPath path(m_seed, symbol);
    DaySummary day;
    day.price = path.price(step);
    day.previousClose = path.price(step - kDay);
    // The session opened half an hour after the previous close; the day's range is sampled every
    // quarter of an hour from there.
    const qint64 openStep = step - kDay + 1800;
    day.open = path.price(openStep);
    day.high = std::max(day.open, day.price);
    day.low = std::min(day.open, day.price);
    for (qint64 sample = openStep + 900; sample < step; sample += 900) {
        const double price = path.price(sample);
        day.high = std::max(day.high, price);
        day.low = std::min(day.low, price);
    }
    day.volume = path.dailyVolume(step);
    return day;
}

YearStats PriceWalk::year(const QString &symbol, qint64 step) const
{
    const SymbolPath path(m_seed, symbol);
    YearStats year;
    year.low = year.high = path.price(step);
    double sum = 0.0;
    for (int days = 0; days < 365; ++days) {
        const double price = path.price(step - days * kDay);
        year.low = std::min(year.low, price);
        year.high = std::max(year.high, price);
        sum += price;
        if (days == 49)
            year.average50 = sum / 50.0;
        if (days == 199)
            year.average200 = sum / 200.0;
    }
    return year;
}

PriceBar PriceWalk::bar(const QString &symbol, qint64 from, qint64 to) const
{
    const SymbolPath path(m_seed, symbol);
    PriceBar bar;
    bar.open = path.price(from);
    bar.close = to > from ? path.price(to) : bar.open;
    bar.high = std::max(bar.open, bar.close);
    bar.low = std::min(bar.open, bar.close);
    if (to <= from)
        return bar;
    for (int quarter = 1; quarter < 4; ++quarter) {
        const double price = path.price(from + (to - from) * quarter / 4);
        bar.high = std::max(bar.high, price);
        bar.low = std::min(bar.low, price);
    }
    // Busier and quieter bars around the day's average pace.
    const double pace = 0.5 + unitInterval(mix64(path.key(), quint64(from)));
    bar.volume = std::round(path.dailyVolume(to) * double(to - from) / double(kDay) * pace);
    return bar;
}
