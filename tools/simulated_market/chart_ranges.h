#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// The ranges and intervals of the chart histories (Yahoo's chart, BrAPI's historicalDataPrice).

// Enough for every range the terminal asks at its interval in a market that never closes: 1h over
// 3mo is the longest, about 2,200 bars.
inline constexpr int kMaxChartBars = 2500;

const QStringList &chartIntervals(); // 1m … 3mo, in Yahoo's order
const QStringList &chartRanges();    // 1d … max
// Whether the interval is shorter than a day.
bool isIntradayInterval(const QString &interval);

// The opening times (epoch seconds) of the bars that cover `range` at `interval` up to `now`,
// oldest first; the last one is the bar in progress. Never empty, never more than kMaxChartBars
// (the newest are kept). Both texts must be among the known ones.
QList<qint64> barOpenings(const QString &range, const QString &interval, qint64 now);
