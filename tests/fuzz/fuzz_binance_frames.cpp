// Feeds arbitrary bytes to every Binance stream and REST reader, as a frame and as a body, and runs
// the order-book rules over whatever depth comes out. A broken invariant traps, so libFuzzer keeps
// the input.
#include "streams/binance_frames.h"
#include "streams/order_book.h"

#include <QByteArray>
#include <QSet>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

bool sameNumber(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

// A reader never hands out an infinity: a value is a finite number or NaN.
bool finiteOrNaN(double value)
{
    return std::isfinite(value) || std::isnan(value);
}

void checkSide(const QList<DepthLevel> &side)
{
    check(side.size() <= kMaxDepthLevelsRead);
    for (const DepthLevel &level : side) {
        check(finiteOrNaN(level.price) && finiteOrNaN(level.quantity));
        check(level.complete || std::isnan(level.quantity));
    }
}

void checkBuckets(const QList<DepthLevel> &side, double step, BookSide bookSide)
{
    const QList<BookLevel> buckets = aggregateSide(side, step, bookSide);
    check(buckets.size() <= kShownDepthLevels);
    for (const BookLevel &bucket : buckets)
        check(std::isfinite(bucket.price) && bucket.price > 0 && bucket.size > 0);
    const QList<BookTableRow> rows = bookTableRows(buckets, 5);
    check(rows.size() == buckets.size());
    for (const BookTableRow &row : rows)
        check(!row.price.isEmpty() && row.price != QLatin1String("--"));
}

void checkDepth(const DepthSides &sides)
{
    checkSide(sides.bids);
    checkSide(sides.asks);
    const bool usable = isDepthUsable(sides);
    check(!usable || (validLevelCount(sides.bids) >= kMinimumDepthLevels &&
                      validLevelCount(sides.asks) >= kMinimumDepthLevels));

    const BookMetrics metrics = depthMetrics(sides);
    check(std::isfinite(metrics.bestBid) && std::isfinite(metrics.bestAsk));
    check(!metrics.quoteOk() || metrics.spread() >= 0);
    check(metrics.quoteOk() || std::isnan(metrics.spread()));
    const QList<MetricTile> tiles = metricTiles(metrics);
    check(tiles.size() == 4);
    for (const MetricTile &tile : tiles)
        check(!tile.name.isEmpty() && !tile.value.isEmpty() && !tile.color.isEmpty());

    for (const QString &preset : bookPresetIds()) {
        const double step = stepOfPreset(preset, metrics.bestAsk);
        check(std::isfinite(step) && step >= 0);
        checkBuckets(sides.bids, step, BookSide::Bid);
        checkBuckets(sides.asks, step, BookSide::Ask);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));

    const QString symbol = binanceFrameSymbol(input);
    // The scanning readers read every frame exactly as the full parse does.
    const auto ticker = readTickerFrame(input);
    const auto tickerParsed = readTickerFrameParsed(input);
    check(ticker.has_value() == tickerParsed.has_value());
    if (ticker) {
        check(ticker->symbol == tickerParsed->symbol);
        check(sameNumber(ticker->price, tickerParsed->price));
        check(sameNumber(ticker->changePercent, tickerParsed->changePercent));
    }
    const auto trade = readTradeFrame(input);
    const auto tradeParsed = readTradeFrameParsed(input);
    check(trade.has_value() == tradeParsed.has_value());
    if (trade) {
        check(trade->symbol == tradeParsed->symbol && trade->timeMs == tradeParsed->timeMs);
        check(sameNumber(trade->price, tradeParsed->price));
        check(sameNumber(trade->quantity, tradeParsed->quantity));
        check(trade->buyerIsMaker == tradeParsed->buyerIsMaker);
    }
    const auto depthScanned = readDepthFrame(input);
    const auto depthParsed = readDepthFrameParsed(input);
    check(depthScanned.has_value() == depthParsed.has_value());
    if (depthScanned) {
        check(depthScanned->symbol == depthParsed->symbol);
        for (const auto &[side, parsed] :
             {std::pair{depthScanned->sides.bids, depthParsed->sides.bids},
              std::pair{depthScanned->sides.asks, depthParsed->sides.asks}}) {
            check(side.size() == parsed.size());
            for (qsizetype i = 0; i < side.size(); ++i) {
                check(sameNumber(side[i].price, parsed[i].price));
                check(sameNumber(side[i].quantity, parsed[i].quantity));
                check(side[i].complete == parsed[i].complete);
            }
        }
    }
    if (ticker) {
        check(ticker->symbol == symbol && !symbol.isEmpty());
        check(std::isfinite(ticker->price) && ticker->price > 0);
        check(finiteOrNaN(ticker->changePercent));
    }
    if (trade) {
        check(trade->symbol == symbol && !symbol.isEmpty());
        check(std::isfinite(trade->price) && trade->price > 0);
        check(finiteOrNaN(trade->quantity));
    }
    if (const auto depth = readDepthFrame(input)) {
        check(depth->symbol == symbol && !symbol.isEmpty());
        checkDepth(depth->sides);
    } else {
        check(symbol.isEmpty());
    }

    checkDepth(readDepthSnapshot(input));

    const CryptoUniverse universe = readCryptoUniverse(input);
    check(universe.baseAssets.size() <= universe.pairs.size());
    const QSet<QString> bases(universe.baseAssets.cbegin(), universe.baseAssets.cend());
    check(bases.size() == universe.baseAssets.size());
    for (const QString &pair : universe.pairs)
        check(!pair.isEmpty());
    return 0;
}
