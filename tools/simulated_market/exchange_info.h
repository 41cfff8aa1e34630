#pragma once

#include "simulated_market/instruments.h"

#include <QString>
#include <QtGlobal>

// Where an instrument trades, in Yahoo's words.
struct ExchangeInfo
{
    QString exchangeName;      // "NMS", "SAO", "CCY", "CCC"
    QString fullExchangeName;  // "NasdaqGS", "São Paulo"
    QString timezoneName;      // "America/New_York"
    QString market;            // "us_market"
    QString quoteType;         // "EQUITY", "ETF", "INDEX", "CURRENCY", "CRYPTOCURRENCY"
    int sessionOpenMinute = 0; // local time; currencies and crypto trade the whole day
    int sessionCloseMinute = 24 * 60;
};

ExchangeInfo exchangeInfo(const Instrument &instrument);

// The exchange's clock at one moment: "EDT" and -14400, "BRT" and -10800.
struct ZoneTime
{
    QString abbreviation;
    int offsetSeconds = 0;
};
ZoneTime zoneTime(const QString &timezoneName, qint64 epochSeconds);

// The epoch second of a local minute of the exchange's day that holds `epochSeconds`.
qint64 localMinuteOfDay(const QString &timezoneName, qint64 epochSeconds, int minute);

// A made-up but fixed listing date, epoch seconds.
qint64 firstTradeDate(const Instrument &instrument);
