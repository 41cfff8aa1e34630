#include "chart/chart_geometry.h"

#include "market/market_row.h"

#include <QDateTime>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

namespace {

constexpr double kZoomInFactor = 0.78;
constexpr double kZoomOutFactor = 1.28;
constexpr double kMaximumViewStart = 1.0 - kMinimumViewSpan;
constexpr double kMinimumBoxFraction = 0.03;
constexpr double kPlotMargin = 18.0;
constexpr double kPlotBottomMargin = 92.0;
constexpr double kVolumeGap = 8.0;
constexpr double kVolumeHeight = 34.0;
constexpr int kAxisTickSteps = 5;

double clampFraction(double value)
{
    // A NaN fraction (an empty plot) reads as the left edge rather than spreading NaN.
    if (!(value > 0.0))
        return 0.0;
    return std::min(value, 1.0);
}

} // namespace

void ChartView::normalise()
{
    if (!std::isfinite(start) || !std::isfinite(end)) {
        start = 0.0;
        end = 1.0;
    }
    if (start < 0.0) {
        end -= start;
        start = 0.0;
    }
    if (end > 1.0) {
        start -= end - 1.0;
        end = 1.0;
    }
    start = std::clamp(start, 0.0, kMaximumViewStart);
    // Written out rather than std::clamp: start + 0.04 may round a hair above 1.
    end = std::max(std::min(end, 1.0), start + kMinimumViewSpan);
}

void ChartView::zoom(double anchorFraction, bool zoomIn)
{
    const double oldSpan = span();
    const double anchor = start + oldSpan * anchorFraction;
    const double factor = zoomIn ? kZoomInFactor : kZoomOutFactor;
    const double newSpan = std::clamp(oldSpan * factor, kMinimumViewSpan, 1.0);
    start = anchor - newSpan * anchorFraction;
    end = start + newSpan;
    normalise();
}

void ChartView::panFrom(const ChartView &startView, double widthFraction)
{
    const double shift = widthFraction * startView.span();
    start = startView.start - shift;
    end = startView.end - shift;
    normalise();
}

bool ChartView::zoomToBox(double fromFraction, double toFraction)
{
    const double from = clampFraction(fromFraction);
    const double to = clampFraction(toFraction);
    const double a = std::min(from, to);
    const double b = std::max(from, to);
    if (b - a <= kMinimumBoxFraction)
        return false;
    const double oldStart = start;
    const double oldSpan = span();
    start = oldStart + oldSpan * a;
    end = oldStart + oldSpan * b;
    normalise();
    return true;
}

ChartGeometry ChartGeometry::compute(const QRectF &widgetRect, const QList<Candle> &candles,
                                     const ChartView &view)
{
    ChartGeometry geometry;
    geometry.plot = widgetRect.adjusted(kPlotMargin, kPlotMargin, -kPlotMargin, -kPlotBottomMargin);
    geometry.volume = QRectF(geometry.plot.left(), geometry.plot.bottom() + kVolumeGap,
                             geometry.plot.width(), kVolumeHeight);
    geometry.count = candles.size();
    if (geometry.count == 0) {
        geometry.first = 0;
        geometry.last = -1;
        return geometry;
    }

    const qint64 lastIndex = geometry.count - 1;
    const auto toIndex = [lastIndex](double value) -> qint64 {
        if (!std::isfinite(value))
            return 0;
        return static_cast<qint64>(std::clamp(value, 0.0, static_cast<double>(lastIndex)));
    };
    geometry.first = toIndex(std::floor(view.start * static_cast<double>(lastIndex)));
    geometry.last = toIndex(std::ceil(view.end * static_cast<double>(lastIndex)));
    // A view that was never normalised must still leave one visible candle.
    geometry.last = std::max(geometry.last, geometry.first);

    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    for (qint64 i = geometry.first; i <= geometry.last; ++i) {
        const Candle &candle = candles.at(i);
        if (std::isfinite(candle.low))
            low = std::min(low, candle.low);
        if (std::isfinite(candle.high))
            high = std::max(high, candle.high);
    }
    if (!std::isfinite(low) || !std::isfinite(high)) {
        low = 0.0;
        high = 0.0;
    } else if (low > high) {
        std::swap(low, high);
    }
    if (high - low <= DBL_EPSILON) {
        low -= 1.0;
        high += 1.0;
    }
    geometry.minPrice = low;
    geometry.maxPrice = high;
    return geometry;
}

double ChartGeometry::indexX(qint64 index) const
{
    const double steps = static_cast<double>(std::max<qint64>(last - first, 1));
    return plot.left() + plot.width() * static_cast<double>(index - first) / steps;
}

double ChartGeometry::slotWidth() const
{
    return plot.width() / static_cast<double>(std::max<qint64>(visibleCount(), 1));
}

double ChartGeometry::slotCentre(qint64 index) const
{
    return plot.left() + slotWidth() * (static_cast<double>(index - first) + 0.5);
}

double ChartGeometry::priceY(double price) const
{
    return plot.bottom() - (price - minPrice) / (maxPrice - minPrice) * plot.height();
}

double ChartGeometry::priceAt(double y) const
{
    const double fraction = plot.height() > 0.0 ? (plot.bottom() - y) / plot.height() : 0.0;
    return minPrice + clampFraction(fraction) * (maxPrice - minPrice);
}

qint64 ChartGeometry::indexAt(double x) const
{
    if (count <= 0)
        return -1;
    const double offset =
            std::round(plotFraction(x) * static_cast<double>(std::max<qint64>(last - first, 0)));
    return std::clamp(first + static_cast<qint64>(offset), first, last);
}

double ChartGeometry::plotFraction(double x) const
{
    if (!(plot.width() > 0.0))
        return 0.0;
    return clampFraction((x - plot.left()) / plot.width());
}

QList<qint64> ChartGeometry::axisTicks() const
{
    QList<qint64> ticks;
    if (count <= 0)
        return ticks;
    const double range = static_cast<double>(last - first);
    for (int k = 0; k <= kAxisTickSteps; ++k) {
        const double step = static_cast<double>(k) / kAxisTickSteps;
        ticks.append(first + static_cast<qint64>(std::round(step * range)));
    }
    return ticks;
}

QString chartTimeLabel(qint64 time, const QString &timeframe)
{
    const QDateTime moment = isMillisecondTime(time) ? QDateTime::fromMSecsSinceEpoch(time)
                                                     : QDateTime::fromSecsSinceEpoch(time);
    const bool daily = timeframe == QLatin1String("1d") || timeframe == QLatin1String("1mo");
    return moment.toLocalTime().toString(daily ? QStringLiteral("dd/MM") : QStringLiteral("HH:mm"));
}

QString compactVolume(double volume)
{
    return formatLargeAmount(volume);
}
