#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// The order book's rules that need no widget: which levels count, how a side is bucketed by the
// price step, the four metric tiles, the aggregation presets and the panel titles.

inline constexpr int kMinimumDepthLevels = 5;   // per side, for a ladder to be shown
inline constexpr int kShownDepthLevels = 10;    // first levels of a side shown and summed
inline constexpr int kMaxDepthLevelsRead = 100; // levels read from one frame side

// One level as received (Binance form: [price, quantity] as decimal strings). `complete` is false
// for a level with fewer than two elements; a price or quantity that does not convert is NaN.
struct DepthLevel
{
    double price = qQNaN();
    double quantity = qQNaN();
    bool complete = false;
};

struct DepthSides
{
    QList<DepthLevel> bids; // best first
    QList<DepthLevel> asks; // best first
};

// Levels that are complete and priced above 0; the quantity plays no part.
int validLevelCount(const QList<DepthLevel> &side);
// At least kMinimumDepthLevels valid levels on each side.
bool isDepthUsable(const DepthSides &sides);

// One bucket of an aggregated side, as the tables show it.
struct BookLevel
{
    double price = 0;
    double size = 0;
};

enum class BookSide { Bid, Ask };

// The first kShownDepthLevels levels, bucketed to multiples of `step` (bids down, asks up; step 0 or
// a price that is not positive and finite keeps the price); levels without a positive, finite
// bucket price and quantity are skipped; a bucket merges only with its direct predecessor.
QList<BookLevel> aggregateSide(const QList<DepthLevel> &side, double step, BookSide bookSide);

// Best prices (first raw level, 0 when the side is empty) and the quantity sums of the first
// kShownDepthLevels raw levels, before aggregation.
struct BookMetrics
{
    double bestBid = 0;
    double bestAsk = 0;
    double bidSum = 0;
    double askSum = 0;

    bool quoteOk() const; // both best prices above 0
    double spread() const; // max(ask - bid, 0) when the quote is ok, else NaN
    double imbalance() const; // (bid - ask) / (bid + ask) x 100, NaN when the total is not above 0
};
BookMetrics depthMetrics(const DepthSides &sides);

// The four tiles, BID, ASK, SPR, IMB, in that order, with their texts in the current language and
// their colours.
struct MetricTile
{
    QString name;  // "BID" / "COMPRA", "ASK" / "VENDA", "SPR", "IMB" / "DESB"
    QString value; // "--" when unknown
    QString color; // "#20c878", "#f45d5d", "#d8e6e3"
};
QList<MetricTile> metricTiles(const BookMetrics &metrics);
// Tiles as they read before any book: every value "--".
QList<MetricTile> emptyMetricTiles();
// The tile style sheet for a theme ("qrl_light" or any other id for the dark one) and a colour.
QString metricTileStyle(const QString &themeId, const QString &color);
// The SPR tile's colour after a theme change: "#1a1a1a" on the light theme, else "#d8e6e3".
QString spreadTileThemeColor(const QString &themeId);

// Prices: 2 decimals from 1000 up, 4 below; "--" for a price that is not positive and finite.
QString formatBookPrice(double price);
// Table rows of a side: price as above, size and running total with `sizeDecimals` decimals (5 for
// the Binance form, 4 for the Level 2 form).
struct BookTableRow
{
    QString price;
    QString size;
    QString total;
    double priceValue = 0;
};
QList<BookTableRow> bookTableRows(const QList<BookLevel> &levels, int sizeDecimals);

// Aggregation presets: raw, tight, normal, wide (any other id reads as normal).
const QStringList &bookPresetIds();
QString bookPresetLabel(const QString &presetId); // "Raw"/"Bruto"... in the current language
// The step of a preset at a reference price (max(price, 1e-6)): price x factor rounded up to 1, 2 or
// 5 times a power of ten; 0 for raw. Price 65,000 with normal gives 50.
double stepOfPreset(const QString &presetId, double referencePrice);
// Whether a step box value selects a preset's step (within max(step x 1e-6, 1e-9)).
bool stepMatchesPreset(double boxValue, double presetStep);
// "" for a step of 0 or less; else "  Step 50.00" (2 decimals from 1, 6 below), in the current
// language.
QString stepSuffix(double step);

// Panel titles: the word, then "  symbol" when not empty, then "  state" when not empty.
QString panelTitleText(const QString &word, const QString &symbol, const QString &state);

// The Level 2 form (five levels per side with positions), for feeds that deliver levels as objects.
struct Level2Level
{
    double price = 0;
    double size = 0;
    int position = 0;
};
struct Level2Book
{
    QList<Level2Level> bids;
    QList<Level2Level> asks;

    bool isUsable() const; // at least kMinimumDepthLevels levels on each side
    double bestBid() const;
    double bestAsk() const;
    double spread() const; // ask - bid when both are above 0, else 0
    double mid() const;    // (bid + ask) / 2 when both are above 0, else 0
    double bidSum() const; // all sizes
    double askSum() const;
    double imbalance() const; // 0 when both sums are 0
};
