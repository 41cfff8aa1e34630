#pragma once

#include "chart/candle.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>

// The market movers' rules that need no widget: the records each source gives, the local-series
// change over the chosen interval, the filters, the breadth tiles, the gainers and losers cuts,
// the direction classes and the mosaic's grid and colours.

struct MoverRecord
{
    QString symbol;
    double price = qQNaN();
    double change = qQNaN(); // percent over the interval
    double volume = qQNaN(); // Binance: the quote volume
    double turnover = qQNaN();
};

inline constexpr int kMoversTableLimit = 50;
inline constexpr int kMosaicSideLimit = 15;

// The stored turnover when positive; a crypto pair's volume (already in the quote asset); else
// price x volume; else 0.
double moverTurnover(const MoverRecord &record);

// Binance's all-pairs 24-hour tickers: USDT pairs that are no leveraged token ("UPUSDT",
// "DOWNUSDT", "BULLUSDT", "BEARUSDT" anywhere), with a finite price, change and quote volume.
// Halted pairs (a last price of 0, count 0) are no -100 % losers: a price not above 0 is dropped.
QList<MoverRecord> readBinanceMovers(const QByteArray &body);
// Alpha Vantage's TOP_GAINERS_LOSERS: `top_gainers` then `top_losers`; "%" removed from the change;
// the volume may be missing.
QList<MoverRecord> readAlphaVantageMovers(const QByteArray &body);
// Yahoo's batch quote (`quoteResponse.result`) or screener (`results`); each record's sector
// (`sector`, or `summaryProfile.sector`) goes to *sectors when given.
QList<MoverRecord> readYahooMovers(const QByteArray &body,
                                   QHash<QString, QString> *sectors = nullptr);

// "hour" 3600 s, "week" 604800 s, "month" 2592000 s; "day" and anything else 86400 s.
qint64 moversIntervalSeconds(const QString &interval);
// The change over the interval from a local price series (bars oldest first), or the provider's
// change when the series cannot tell.
double localMoverChange(const QList<Candle> &series, qint64 intervalSeconds, double providerChange);

struct MoverFilter
{
    double minimumVolume = 0;
    double minimumTurnover = 0;
    QString sector = QStringLiteral("all");

    bool isActive() const;
};
// Everything when the filter is not active; else the records in the sector (when one is chosen)
// with a finite volume of at least the minimum and a turnover of at least the minimum.
QList<MoverRecord> filterMovers(const QList<MoverRecord> &records, const MoverFilter &filter,
                                const std::function<QString(const QString &)> &sectorOf);

struct MoversBreadth
{
    int advancers = 0;
    int decliners = 0;
    double median = 0; // the upper middle of the sorted changes, 0 with none
    double turnover = 0;
    int best = -1; // index into the records, -1 with none
    int worst = -1;
};
MoversBreadth moversBreadth(const QList<MoverRecord> &records);

// The five tiles (ADV / DEC, MEDIAN, BEST, WORST, TURNOVER) in the current language.
struct BreadthTile
{
    QString name;
    QString value;
    QString color;
};
QList<BreadthTile> breadthTiles(const QList<MoverRecord> &records);

// Highest change first, change above 0, at most 50; lowest first, below 0, at most 50.
QList<MoverRecord> topGainers(const QList<MoverRecord> &records);
QList<MoverRecord> topLosers(const QList<MoverRecord> &records);
// The first 15 of each, largest absolute change first.
QList<MoverRecord> mosaicItems(const QList<MoverRecord> &gainers, const QList<MoverRecord> &losers);

// --- Scopes and intervals of the panel ------------------------------------------------------

// "all", "b3", "us", "watchlist", "crypto", in the order the scope selector lists them.
QStringList moversScopeIds();
// Any id the selector does not know is the crypto scope.
QString normalizedMoversScope(const QString &scope);
// "All delayed", "B3 delayed", "US delayed", "Watchlist", "Crypto 24h", in the current language.
QString moversScopeLabel(const QString &scope);
// "hour", "day", "week", "month".
QStringList moversIntervalIds();
QString moversIntervalLabel(const QString &interval);
// The symbols a scope asks Yahoo's batch quote for: the B3 shares and indices, the US shares and
// indices, both for "all", the watchlist's non-crypto rows for "watchlist"; none for crypto.
QStringList moversQuoteSymbols(const QString &scope, const QStringList &universe,
                               const QStringList &watchlist);

// What one pass of the movers pipeline shows, from the records a source gave.
struct MoversView
{
    QList<MoverRecord> records; // after the local-series adjustment
    QList<MoverRecord> kept;    // after the filter
    QList<MoverRecord> gainers;
    QList<MoverRecord> losers;
    QList<MoverRecord> mosaic;
    QList<BreadthTile> tiles;
    int adjusted = 0; // records whose change came from the local series
    QString suffix;
};
// Local-series adjustment (for any interval but "day", symbols with at least 2 local bars), then
// the filter, the breadth tiles, the gainers and losers and the mosaic.
MoversView buildMoversView(const QList<MoverRecord> &records, const QString &interval,
                           const MoverFilter &filter,
                           const std::function<QString(const QString &)> &sectorOf,
                           const QHash<QString, QList<Candle>> &localSeries);

// "Strong up" (>= 2), "Up" (>= 0.25), "Strong down" (<= -2), "Down" (<= -0.25), else "Flat", in
// the current language.
QString directionClass(double change);

// "Market movers updated: Crypto 24h (12 gainers, 30 losers)" with the suffix.
QString moversStatusText(const QString &sourceLabel, int gainers, int losers,
                         const QString &suffix);
// Empty for "day"; else " | %1 local series adjusted, others provider daily".
QString moversSuffix(const QString &interval, int adjusted);

// The mosaic's tiles for `count` items in a widget of `size`: 3 columns below 471 px wide, else
// 4; 4 rows below 256 px high, else 5; 5 px inset and gaps.
QList<QRectF> mosaicTiles(const QSizeF &size, int count);
// clamp(|change| / 18, 0.18, 1).
double mosaicIntensity(double change);
// The tile's fill as 0..1 components: green for a gain, red for a loss, deeper with intensity.
struct MosaicFill
{
    double red = 0;
    double green = 0;
    double blue = 0;
};
MosaicFill mosaicFill(double change);
