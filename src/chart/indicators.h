#pragma once

#include "chart/candle.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QtGlobal>

// The four indicators over a candle list: SMA, EMA, VWAP (anchored or restarted each local day) and
// MACD with its signal. One set of settings serves the whole application; the chart draws the
// series and the market table shows the last values.

inline constexpr int kMinIndicatorPeriod = 1;
inline constexpr int kMaxIndicatorPeriod = 400;

struct IndicatorSettings
{
    bool sma = false;  // JSON "sma20", whatever the period
    bool ema = false;  // JSON "ema20", whatever the period
    bool vwap = false; // JSON "vwap"
    bool macd = false; // JSON "macd"
    int smaPeriod = 20;
    int emaPeriod = 20;
    int macdFast = 12;
    int macdSlow = 26;
    int macdSignal = 9;
    bool vwapSession = false; // restart at each new local calendar day
    bool showHLines = true;   // JSON "draw_hline"
    bool showVLines = true;   // JSON "draw_vline"
    bool showTrends = true;   // JSON "draw_trend"

    // All thirteen keys: booleans as booleans, periods as integers.
    QJsonObject toJson() const;
    // Each key read with the current value as its default, periods clamped into 1..400, then a fast
    // MACD period not below the slow one pushes slow to min(fast + 1, 400).
    void readJson(const QJsonObject &object);
    // Everything back to the defaults above (indicators off, drawing kinds shown).
    void reset() { *this = IndicatorSettings(); }
};

// A series holds one entry per candle; NaN where there is no value.
using IndicatorSeries = QList<double>;

IndicatorSeries smaSeries(const QList<Candle> &candles, int period);
// Seeded with the first close, no warm-up: every entry is finite.
IndicatorSeries emaSeries(const QList<Candle> &candles, int period);
// Typical price (h + l + c) / 3 weighted by volume; NaN while the volume sum is 0. With `session`
// the sums restart when a candle's local calendar date differs from the previous candle's.
IndicatorSeries vwapSeries(const QList<Candle> &candles, bool session);
IndicatorSeries macdLineSeries(const QList<Candle> &candles, int fast, int slow);
// Seeded by the first finite MACD entry; entries whose MACD is not finite stay NaN.
IndicatorSeries macdSignalSeries(const IndicatorSeries &macdLine, int period);

// The value at the highest index that is finite; NaN when none is.
double lastFinite(const IndicatorSeries &series);

// The market table's four values of a candle list (NaN when not computable).
struct IndicatorValues
{
    double sma = qQNaN();
    double ema = qQNaN();
    double vwap = qQNaN();
    double macd = qQNaN();
};
IndicatorValues lastIndicatorValues(const QList<Candle> &candles,
                                    const IndicatorSettings &settings);

// "Indicators BTCUSDT SMA20=65000.1234 | EMA20=... | VWAP(session)=... | MACD12/26/9=... signal=..."
// for the enabled indicators; empty when none is enabled or there are no candles.
QString indicatorLegendMessage(const QString &symbol, const QList<Candle> &candles,
                               const IndicatorSettings &settings);
