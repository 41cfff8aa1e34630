#pragma once

#include "chart/candle.h"

#include <QByteArray>
#include <QList>

#include <limits>

// The chart's history replies, read into plain values: Binance klines, Yahoo's v8 chart and BrAPI's
// quote with `historicalDataPrice`. A body that is not the expected JSON reads as "no result",
// never as an error the caller must catch; a bar that could draw a zero or broken candle is left
// out.

// Providers answer a chart request in well under this; anything larger is not read at all.
inline constexpr qsizetype kMaxHistoryReplyBytes = 8 * 1024 * 1024;

// `[[openTime ms, "o", "h", "l", "c", "v", closeTime, ...], ...]`. Prices may also come as numbers.
// An element shorter than six entries, without a numeric time, or whose four prices are not all
// finite and positive is skipped.
QList<Candle> readBinanceKlines(const QByteArray &body);

struct YahooChartReply
{
    bool hasResult = false; // `chart.result[0]` is an object
    QList<Candle> candles;
    double price = std::numeric_limits<double>::quiet_NaN();
    double previousClose = std::numeric_limits<double>::quiet_NaN();
    double changePercent = std::numeric_limits<double>::quiet_NaN();
};

// The first result of a v8 chart reply. The price is `meta.regularMarketPrice`, else the last
// bar's close; the previous close is `meta.previousClose`, else `meta.chartPreviousClose` (most
// replies carry only the latter) when it is missing or not a number. A symbol without data has a
// result and no bars.
YahooChartReply readYahooChart(const QByteArray &body);

struct BrapiHistoryReply
{
    bool hasResult = false; // `results[0].regularMarketPrice` is a finite number
    double price = std::numeric_limits<double>::quiet_NaN();
    double changePercent = std::numeric_limits<double>::quiet_NaN();
    QList<Candle> candles;
};

BrapiHistoryReply readBrapiHistory(const QByteArray &body);

// Merges bars into buckets of `hours` hours aligned on the epoch (UTC): the bucket's first open,
// highest high, lowest low, last close and summed volume, stamped in seconds at the bucket's start.
// Bars are taken in the order given; a bar from another bucket closes the current one. Unchanged
// when `hours` <= 1.
QList<Candle> mergeHourBars(const QList<Candle> &candles, int hours);
