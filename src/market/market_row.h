#pragma once

#include <QColor>
#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

// The rules behind the market table that need no widget: its columns, how numbers, changes and
// status words are written, which columns a preset shows, and which provider a row is filed under.

enum MarketColumn {
    SymbolColumn = 0,
    AssetColumn = 1,
    OpenColumn = 2,
    HighColumn = 3,
    LowColumn = 4,
    CloseColumn = 5,
    LastColumn = 6,
    ChangeColumn = 7,
    SmaColumn = 8,
    EmaColumn = 9,
    VwapColumn = 10,
    MacdColumn = 11,
    SourceColumn = 12,
    LatencyColumn = 13,
    StatusColumn = 14,
    UpdatedColumn = 15,
    MarketColumnCount = 16,
};

// The header of one column in the current language; the SMA and EMA headers carry their periods.
QString marketColumnHeader(int column, int smaPeriod, int emaPeriod);

// Fixed notation: two decimals from 1000 up, four below; "--" for a value that is not finite.
QString formatMarketNumber(double value);
// Amounts such as volumes: "12.35K", "4.60M", "1.20B" from a thousand up and the value below,
// always with 2 decimals; "--" when not finite.
QString formatLargeAmount(double value);
// "1.25%", "-0.40%"; "--" when not finite.
QString formatChangePercent(double changePercent);
// Gains (zero included) green, losses red, unknown in the table's plain text colour.
QColor changeColor(double changePercent);
inline constexpr const char *kMarketTextColor = "#d8e6e3";

// Status words travel in English; a cell shows them in the current language. Either form of a known
// word turns into the canonical English one; any other text is kept as it is.
QString canonicalStatusWord(const QString &status);
QString localizedStatusWord(const QString &status, bool portuguese);
QString localizedStatusWord(const QString &status); // in the current interface language
// Every known status word, canonical.
QStringList statusWords();

// The columns a preset hides: "all", "trading", "analytics", anything else is the compact set.
// Column 0 is never hidden.
QSet<int> hiddenColumnsForPreset(const QString &preset);
// "3,0,16,x" -> {3}: integers from 1 to 15 only, so no file can hide the symbol column.
QSet<int> parseHiddenColumns(const QString &text);
QString hiddenColumnsText(const QSet<int> &columns); // ascending, "," separated

// The provider a watchlist row is filed under and the Source label a row starts with.
QString watchlistProviderId(const QString &symbol); // binance, brapi, yahoo
QString sourceLabelForProvider(const QString &providerId, const QString &symbol);
QString defaultSourceLabel(const QString &symbol);
// The label a row added from the search field starts with: "Binance WS" or "Yahoo".
QString searchSourceLabel(const QString &symbol);

// The rows of a first start, in order.
const QStringList &defaultWatchlistSymbols();

// One quote as the market table received it, with the fields the details of the selection show.
struct MarketQuote
{
    QString symbol;
    double price = qQNaN();
    double changePercent = qQNaN();
    double open = qQNaN();
    double high = qQNaN();
    double low = qQNaN();
    double previousClose = qQNaN();
    double volume = qQNaN();
    QString source;  // "Binance WS", "Yahoo", a provider id
    QString latency; // "120 ms", "cache"
    QString status;  // canonical status word
    QDateTime time;  // local time of arrival
};

// A quote that did not come live: a delayed public or keyed quote, or the Alpha Vantage cache.
bool isDelayedFallback(const QString &status);

// The per-row summary shown as the tooltip of every cell of a row, in the current language.
QString marketRowToolTip(const QString &symbol, const QString &sector, const MarketQuote *quote);

// Local time as written in the Updated column.
QString marketTimestamp();
QString marketTimestamp(const QDateTime &time);
