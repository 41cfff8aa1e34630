#include "streams/order_book.h"

#include "app/language.h"

#include <algorithm>
#include <cmath>

namespace {

const QString kBidColor = QStringLiteral("#20c878");
const QString kAskColor = QStringLiteral("#f45d5d");
const QString kSpreadColor = QStringLiteral("#d8e6e3");
const QString kUnknown = QStringLiteral("--");
const QString kLightTheme = QStringLiteral("qrl_light");

// A price divided by a step carries the rounding of both (0.3 / 0.1 is 2.9999999999999996); a
// quotient this close to a whole number is that number, so an exact multiple keeps its bucket.
constexpr double kQuotientTolerance = 1e-12;
// The nice factor of a step is picked from a mantissa that carries the same kind of noise.
constexpr double kMantissaTolerance = 1e-9;

bool isPositiveFinite(double value)
{
    return std::isfinite(value) && value > 0;
}

// k x step written so that decimal steps give decimal results: with step 0.5, 201 gives 100.5
// rather than a neighbour of it, because dividing by the whole inverse 2 rounds once.
double multipleOfStep(double count, double step)
{
    if (step < 1) {
        const double inverse = 1 / step;
        const double wholeInverse = std::round(inverse);
        if (wholeInverse >= 1 && std::abs(inverse - wholeInverse) <= inverse * kMantissaTolerance)
            return count / wholeInverse;
    }
    return count * step;
}

double bucketPrice(double price, double step, BookSide bookSide)
{
    if (!isPositiveFinite(step) || !isPositiveFinite(price))
        return price;
    const double quotient = price / step;
    if (!std::isfinite(quotient))
        return price;
    const double nearest = std::round(quotient);
    if (std::abs(quotient - nearest) <= std::max(1.0, quotient) * kQuotientTolerance)
        return price;
    const double count = bookSide == BookSide::Bid ? std::floor(quotient) : std::ceil(quotient);
    return multipleOfStep(count, step);
}

QString priceText(double price)
{
    return QString::number(price, 'f', price >= 1000 ? 2 : 4);
}

double presetFactor(const QString &presetId)
{
    if (presetId == QLatin1String("raw"))
        return 0;
    if (presetId == QLatin1String("tight"))
        return 0.0001;
    if (presetId == QLatin1String("wide"))
        return 0.0025;
    return 0.0005;
}

} // namespace

int validLevelCount(const QList<DepthLevel> &side)
{
    return int(std::count_if(side.cbegin(), side.cend(), [](const DepthLevel &level) {
        return level.complete && isPositiveFinite(level.price);
    }));
}

bool isDepthUsable(const DepthSides &sides)
{
    return validLevelCount(sides.bids) >= kMinimumDepthLevels &&
           validLevelCount(sides.asks) >= kMinimumDepthLevels;
}

QList<BookLevel> aggregateSide(const QList<DepthLevel> &side, double step, BookSide bookSide)
{
    QList<BookLevel> buckets;
    const qsizetype count = std::min<qsizetype>(side.size(), kShownDepthLevels);
    const double mergeTolerance = isPositiveFinite(step) ? std::max(step * 1e-9, 1e-9) : 1e-9;
    for (qsizetype i = 0; i < count; ++i) {
        const DepthLevel &level = side.at(i);
        if (!level.complete)
            continue;
        const double price = bucketPrice(level.price, step, bookSide);
        if (!isPositiveFinite(price) || !isPositiveFinite(level.quantity))
            continue;
        // Only the direct predecessor: a side that is out of order shows as it came.
        if (!buckets.isEmpty() && std::abs(buckets.last().price - price) <= mergeTolerance)
            buckets.last().size += level.quantity;
        else
            buckets.append({price, level.quantity});
    }
    return buckets;
}

bool BookMetrics::quoteOk() const
{
    return bestBid > 0 && bestAsk > 0;
}

double BookMetrics::spread() const
{
    return quoteOk() ? std::max(bestAsk - bestBid, 0.0) : qQNaN();
}

double BookMetrics::imbalance() const
{
    const double total = bidSum + askSum;
    return total > 0 ? (bidSum - askSum) / total * 100 : qQNaN();
}

BookMetrics depthMetrics(const DepthSides &sides)
{
    const auto best = [](const QList<DepthLevel> &side) {
        const double price = side.isEmpty() ? 0 : side.first().price;
        return std::isnan(price) ? 0 : price;
    };
    const auto sum = [](const QList<DepthLevel> &side) {
        double total = 0;
        const qsizetype count = std::min<qsizetype>(side.size(), kShownDepthLevels);
        for (qsizetype i = 0; i < count; ++i) {
            if (std::isfinite(side.at(i).quantity))
                total += side.at(i).quantity;
        }
        return total;
    };
    BookMetrics metrics;
    metrics.bestBid = best(sides.bids);
    metrics.bestAsk = best(sides.asks);
    metrics.bidSum = sum(sides.bids);
    metrics.askSum = sum(sides.asks);
    return metrics;
}

QList<MetricTile> metricTiles(const BookMetrics &metrics)
{
    const double imbalance = metrics.imbalance();
    return {
            {translated(QStringLiteral("BID"), QStringLiteral("COMPRA")),
             formatBookPrice(metrics.bestBid), kBidColor},
            {translated(QStringLiteral("ASK"), QStringLiteral("VENDA")),
             formatBookPrice(metrics.bestAsk), kAskColor},
            // A crossed or locked book still has a quote: its spread reads 0, not "--".
            {QStringLiteral("SPR"), metrics.quoteOk() ? priceText(metrics.spread()) : kUnknown,
             kSpreadColor},
            {translated(QStringLiteral("IMB"), QStringLiteral("DESB")),
             std::isnan(imbalance) ? kUnknown
                                   : QStringLiteral("%1%").arg(QString::number(imbalance, 'f', 1)),
             imbalance >= 0 ? kBidColor : kAskColor},
    };
}

QList<MetricTile> emptyMetricTiles()
{
    return metricTiles(BookMetrics{});
}

QString metricTileStyle(const QString &themeId, const QString &color)
{
    const bool light = themeId == kLightTheme;
    return QStringLiteral("QLabel#bookMetric {background:%1;border:1px solid %2;color:%3;"
                          "padding:3px;}")
            .arg(light ? QStringLiteral("#ffffff") : QStringLiteral("#1a140d"),
                 light ? QStringLiteral("#d8e5f2") : QStringLiteral("#3d3530"), color);
}

QString spreadTileThemeColor(const QString &themeId)
{
    return themeId == kLightTheme ? QStringLiteral("#1a1a1a") : kSpreadColor;
}

QString formatBookPrice(double price)
{
    return isPositiveFinite(price) ? priceText(price) : kUnknown;
}

QList<BookTableRow> bookTableRows(const QList<BookLevel> &levels, int sizeDecimals)
{
    const int decimals = std::max(sizeDecimals, 0);
    QList<BookTableRow> rows;
    rows.reserve(levels.size());
    double total = 0;
    for (const BookLevel &level : levels) {
        total += level.size;
        rows.append({formatBookPrice(level.price), QString::number(level.size, 'f', decimals),
                     QString::number(total, 'f', decimals), level.price});
    }
    return rows;
}

const QStringList &bookPresetIds()
{
    static const QStringList ids{QStringLiteral("raw"), QStringLiteral("tight"),
                                 QStringLiteral("normal"), QStringLiteral("wide")};
    return ids;
}

QString bookPresetLabel(const QString &presetId)
{
    if (presetId == QLatin1String("raw"))
        return translated(QStringLiteral("Raw"), QStringLiteral("Bruto"));
    if (presetId == QLatin1String("tight"))
        return translated(QStringLiteral("Tight"), QStringLiteral("Estreito"));
    if (presetId == QLatin1String("wide"))
        return translated(QStringLiteral("Wide"), QStringLiteral("Amplo"));
    return translated(QStringLiteral("Normal"), QStringLiteral("Normal"));
}

double stepOfPreset(const QString &presetId, double referencePrice)
{
    const double factor = presetFactor(presetId);
    if (factor <= 0)
        return 0;
    constexpr double kFloor = 1e-6;
    const double reference =
            std::isfinite(referencePrice) && referencePrice > kFloor ? referencePrice : kFloor;
    const double raw = reference * factor;
    const int exponent = int(std::floor(std::log10(raw)));
    // A negative power is applied by division so 5e-5 comes out as the double nearest to it.
    const double magnitude = std::pow(10.0, std::abs(exponent));
    const double mantissa = exponent < 0 ? raw * magnitude : raw / magnitude;
    // 2000 x 0.0005 lands a hair above 1; that is still a step of 1, not 2.
    double nice = 10;
    for (const double candidate : {1.0, 2.0, 5.0}) {
        if (mantissa <= candidate * (1 + kMantissaTolerance)) {
            nice = candidate;
            break;
        }
    }
    return exponent < 0 ? nice / magnitude : nice * magnitude;
}

bool stepMatchesPreset(double boxValue, double presetStep)
{
    return std::abs(boxValue - presetStep) <= std::max(std::abs(presetStep) * 1e-6, 1e-9);
}

QString stepSuffix(double step)
{
    if (!isPositiveFinite(step))
        return {};
    return QStringLiteral("  %1 %2").arg(
            translated(QStringLiteral("Step"), QStringLiteral("Passo")),
            QString::number(step, 'f', step >= 1 ? 2 : 6));
}

QString panelTitleText(const QString &word, const QString &symbol, const QString &state)
{
    QString title = word;
    if (!symbol.isEmpty())
        title += QStringLiteral("  ") + symbol;
    if (!state.isEmpty())
        title += QStringLiteral("  ") + state;
    return title;
}

bool Level2Book::isUsable() const
{
    return bids.size() >= kMinimumDepthLevels && asks.size() >= kMinimumDepthLevels;
}

double Level2Book::bestBid() const
{
    return bids.isEmpty() ? 0 : bids.first().price;
}

double Level2Book::bestAsk() const
{
    return asks.isEmpty() ? 0 : asks.first().price;
}

double Level2Book::spread() const
{
    const double bid = bestBid();
    const double ask = bestAsk();
    return bid > 0 && ask > 0 ? ask - bid : 0;
}

double Level2Book::mid() const
{
    const double bid = bestBid();
    const double ask = bestAsk();
    return bid > 0 && ask > 0 ? (bid + ask) / 2 : 0;
}

double Level2Book::bidSum() const
{
    double total = 0;
    for (const Level2Level &level : bids)
        total += level.size;
    return total;
}

double Level2Book::askSum() const
{
    double total = 0;
    for (const Level2Level &level : asks)
        total += level.size;
    return total;
}

double Level2Book::imbalance() const
{
    const double bid = bidSum();
    const double ask = askSum();
    const double total = bid + ask;
    return total != 0 ? (bid - ask) / total * 100 : 0;
}
