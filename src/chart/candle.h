#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QtGlobal>

// One price bar. Binance bars are stamped in milliseconds, Yahoo and BrAPI bars in seconds; every
// reader tells the two apart with isMillisecondTime().
struct Candle
{
    qint64 time = 0;
    double open = 0.0;
    double high = 0.0;
    double low = 0.0;
    double close = 0.0;
    double volume = 0.0;
};

inline constexpr qint64 kFirstMillisecondTime = 100000000001;

inline constexpr bool isMillisecondTime(qint64 time)
{
    return time >= kFirstMillisecondTime;
}

// A JSON number as a whole number of seconds or milliseconds; `fallback` when it is not a finite
// number or does not fit.
qint64 jsonInteger(const QJsonValue &value, qint64 fallback = 0);

// The bars of one Yahoo chart result (`chart.result[i]`). Yahoo marks a bar without trades by
// nulls, at any index, so a bar is kept only when its four prices are numbers and finite; a missing
// or null volume reads as 0. Bars run to the shortest of the timestamp and price arrays.
QList<Candle> yahooChartCandles(const QJsonObject &result);

// The `historicalDataPrice` rows of a BrAPI quote result, in the order received. A row is kept only
// when its four prices are present and finite.
QList<Candle> brapiHistoryCandles(const QJsonArray &rows);
