#pragma once

#include "chart/candle.h"

#include <QList>
#include <QString>

#include <cmath>

// The quote record every fetcher produces. A field the provider does not deliver stays 0.0.
struct QuoteSnapshot
{
    QString symbol; // upper-cased
    QString source; // display name of the fetcher, e.g. "Yahoo Public"
    double price = 0.0;
    double changePercent = 0.0; // 2.5 means +2.5 %
    double open = 0.0;
    double high = 0.0;
    double low = 0.0;
    double previousClose = 0.0;
    double volume = 0.0;
    QList<Candle> candles; // short history, from BrAPI and Yahoo only

    // Fetchers never hand out a record that fails this.
    bool isValid() const { return price > 0.0 && std::isfinite(price); }
};
