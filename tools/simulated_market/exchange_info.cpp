#include "simulated_market/exchange_info.h"

#include "simulated_market/hashing.h"

#include <QDateTime>
#include <QTimeZone>

ExchangeInfo exchangeInfo(const Instrument &instrument)
{
    const QString newYork = QStringLiteral("America/New_York");
    const QString saoPaulo = QStringLiteral("America/Sao_Paulo");
    switch (instrument.kind) {
    case InstrumentKind::BrEquity:
        return {"SAO", QStringLiteral("São Paulo"), saoPaulo, "br_market", "EQUITY", 600, 1020};
    case InstrumentKind::BrIndex:
        return {"SAO", QStringLiteral("São Paulo"), saoPaulo, "br_market", "INDEX", 600, 1020};
    case InstrumentKind::UsEquity:
        return {"NMS", "NasdaqGS", newYork, "us_market", "EQUITY", 570, 960};
    case InstrumentKind::UsFund:
        return {"PCX", "NYSEArca", newYork, "us_market", "ETF", 570, 960};
    case InstrumentKind::UsIndex:
        if (instrument.symbol == QLatin1String("^DJI"))
            return {"DJI", "DJI", newYork, "us_market", "INDEX", 570, 960};
        if (instrument.symbol == QLatin1String("^IXIC"))
            return {"NIM", "Nasdaq GIDS", newYork, "us_market", "INDEX", 570, 960};
        return {"SNP", "SNP", newYork, "us_market", "INDEX", 570, 960};
    case InstrumentKind::Forex:
        return {"CCY", "CCY", "Europe/London", "ccy_market", "CURRENCY", 0, 24 * 60};
    case InstrumentKind::Crypto:
        break;
    }
    return {"CCC", "CCC", "UTC", "ccc_market", "CRYPTOCURRENCY", 0, 24 * 60};
}

ZoneTime zoneTime(const QString &timezoneName, qint64 epochSeconds)
{
    const QTimeZone zone(timezoneName.toLatin1());
    const QDateTime at = QDateTime::fromSecsSinceEpoch(epochSeconds, Qt::UTC);
    const bool summer = zone.isValid() && zone.isDaylightTime(at);
    // Yahoo's abbreviations, not the system's ("-03" for São Paulo).
    if (timezoneName == QLatin1String("America/New_York"))
        return {summer ? "EDT" : "EST", zone.isValid() ? zone.offsetFromUtc(at) : -18000};
    if (timezoneName == QLatin1String("America/Sao_Paulo"))
        return {"BRT", zone.isValid() ? zone.offsetFromUtc(at) : -10800};
    if (timezoneName == QLatin1String("Europe/London"))
        return {summer ? "BST" : "GMT", zone.isValid() ? zone.offsetFromUtc(at) : 0};
    return {"UTC", 0};
}

qint64 localMinuteOfDay(const QString &timezoneName, qint64 epochSeconds, int minute)
{
    const int offset = zoneTime(timezoneName, epochSeconds).offsetSeconds;
    const qint64 local = epochSeconds + offset;
    const qint64 localMidnight = local - ((local % 86400) + 86400) % 86400;
    return localMidnight + qint64(minute) * 60 - offset;
}

qint64 firstTradeDate(const Instrument &instrument)
{
    // Between 1980 and 2015, on a whole day.
    constexpr qint64 kFrom = 315532800;
    constexpr qint64 kDays = 35 * 365;
    const quint64 hash = mix64(textHash(instrument.symbol), 7);
    return kFrom + qint64(hash % kDays) * 86400 + 48600;
}
