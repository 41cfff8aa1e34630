#pragma once

#include "chart/candle.h"
#include "market/market_row.h"
#include "overview/movers.h"

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <optional>

// The screener's rules that need no widget: its filters and their settings, and the rows it lists
// from what the terminal already holds (the watchlist rows, the movers cache, the local series).
// It sends no request of its own.

// The minimum change is a percent; beyond a full loss or a doubling it filters nothing useful.
inline constexpr double kScreenerMinimumChangeLimit = 100.0;

struct ScreenerFilters
{
    QString scope = QStringLiteral("watchlist"); // "watchlist" or "universe"
    QString asset = QStringLiteral("all");       // "all", "br", "us", "crypto", "forex"
    double minimumChange = 0;                    // percent; 0 is no filter
    QString search;                              // as typed; matched trimmed, ignoring case

    bool operator==(const ScreenerFilters &) const = default;
};

// "watchlist", "universe", in the order the selector lists them.
QStringList screenerScopeIds();
// "Watchlist", "Full universe" in the current language.
QString screenerScopeLabel(const QString &scope);
// "all", "br", "us", "crypto", "forex".
QStringList screenerAssetIds();
// "All assets", "Brazil", "United States", "Crypto", "Forex" in the current language.
QString screenerAssetLabel(const QString &asset);

// Acceptance rules of the settings "screener_scope", "screener_asset" and "screener_min_change":
// a listed id (exact text), or a finite number within +-kScreenerMinimumChangeLimit rounded to
// two decimals as the spin box shows it. Anything else, a wrong JSON type included, is rejected:
// the current value stays.
std::optional<QString> acceptedScreenerScope(const QJsonValue &value);
std::optional<QString> acceptedScreenerAsset(const QJsonValue &value);
std::optional<double> acceptedScreenerMinimumChange(const QJsonValue &value);
// `current` with every accepted screener key of `document` laid over it; the search text is no
// setting and stays.
ScreenerFilters readScreenerFilters(const QJsonObject &document, const ScreenerFilters &current);
// The three settings keys of `filters`.
QJsonObject screenerFiltersToJson(const ScreenerFilters &filters);

// "all" passes everything; "br", "us", "crypto" and "forex" pass their own asset class.
bool screenerAssetPasses(const QString &symbol, const QString &asset);
// A minimum of 0 passes everything. Otherwise an unknown change fails; a positive minimum asks for
// a move of at least that size either way, a negative one for a fall at least that deep.
bool screenerChangePasses(double change, double minimum);

// What the screener reads. The watchlist gives one quote per row, in row order (NaN where a cell
// is still empty; `source` is the row's Source cell).
struct ScreenerInputs
{
    QStringList universe;
    QList<MarketQuote> watchlist;
    QHash<QString, MoverRecord> movers;
    QHash<QString, QString> moverSources; // symbol -> label of the source that gave its record
    QHash<QString, QList<Candle>> localSeries;
};

struct ScreenerRow
{
    QString symbol;
    QString asset; // the asset class label
    double last = qQNaN();
    double change = qQNaN();
    double volume = 0;
    QString market; // "B3", "US", "Binance", "FX"
    QString source;
    bool inWatchlist = false;
};

// The rows of the table, sorted by symbol: the scope's symbols without duplicates that pass the
// search, asset and minimum-change filters, with values from the watchlist row first and the
// movers cache for what the row lacks.
QList<ScreenerRow> screenerRows(const ScreenerInputs &inputs, const ScreenerFilters &filters);

// The direction class of the change, or "Not loaded" when it is unknown, in the current language.
QString screenerSignal(double change);
// The Source of a symbol the movers gave no label for.
QString defaultScreenerSource();
