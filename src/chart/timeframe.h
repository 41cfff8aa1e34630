#pragma once

#include <QString>
#include <QStringList>

// The provider parameters of one chart timeframe ("1m" ... "1mo").
struct TimeframeParameters
{
    QString binanceInterval;
    QString yahooInterval; // also BrAPI's
    QString yahooRange;    // also BrAPI's
    int mergeHours = 1;    // Yahoo has no four-hour bars: hourly ones are merged locally
};

// The eight timeframes of the chart selector, in order.
QStringList chartTimeframes();
// Any text outside the table falls to the last row ("1mo" over "5y").
TimeframeParameters timeframeParameters(const QString &timeframe);
