// How the price chart paints. Only the visible candles are touched, and the indicator series come
// from the cache, so the cost of a frame follows the visible span, not the length of the history.

#include "chart/price_chart.h"

#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace {

// The chart's own shades of the two themes: the plot needs a stronger grid than the tables.
struct ChartColors
{
    QColor background;
    QColor grid;
    QColor text;
    QColor panel;
    QColor crosshair;
    QColor tooltipText;
};

const ChartColors &chartColors(bool light)
{
    static const ChartColors lightColors{QColor(0xff, 0xff, 0xff), QColor(0xd8, 0xe5, 0xf2),
                                         QColor(0x24, 0x43, 0x5f), QColor(0xf5, 0xf9, 0xff),
                                         QColor(0x00, 0x6c, 0xb4), QColor(0x1a, 0x1a, 0x1a)};
    static const ChartColors darkColors{QColor(0x0d, 0x09, 0x06), QColor(0x2b, 0x21, 0x19),
                                        QColor(0xd8, 0xc6, 0xb5), QColor(0x1a, 0x14, 0x0d),
                                        QColor(0xf3, 0xb2, 0x4a), QColor(0xd8, 0xe6, 0xe3)};
    return light ? lightColors : darkColors;
}

const QColor kUpColor(0x20, 0xc8, 0x78);
const QColor kDownColor(0xf4, 0x5d, 0x5d);
const QColor kSmaColor(0x5e, 0xa1, 0xff);
const QColor kEmaColor(0xf3, 0xb2, 0x4a);
const QColor kVwapColor(0xd5, 0x6b, 0xff);

constexpr double kVolumeStripHeight = 34.0;

// Points that share a pixel column are reduced to their first, lowest, highest and last: the
// stroke covers the same pixels, and thousands of candles in a few hundred columns stay cheap.
QPolygonF byPixelColumn(const QPolygonF &points)
{
    QPolygonF reduced;
    reduced.reserve(std::min<qsizetype>(points.size(), 4 * 2048));
    qsizetype i = 0;
    while (i < points.size()) {
        const double column = std::floor(points.at(i).x());
        qsizetype next = i;
        qsizetype lowest = i;
        qsizetype highest = i;
        while (next < points.size() && std::floor(points.at(next).x()) == column) {
            if (points.at(next).y() < points.at(lowest).y())
                lowest = next;
            if (points.at(next).y() > points.at(highest).y())
                highest = next;
            ++next;
        }
        const qsizetype picks[] = {i, std::min(lowest, highest), std::max(lowest, highest),
                                   next - 1};
        qsizetype previous = -1;
        for (const qsizetype pick : picks) {
            if (pick != previous)
                reduced.append(points.at(pick));
            previous = pick;
        }
        i = next;
    }
    return reduced;
}

// One path over the visible part of a series, broken where the series has no value.
QPainterPath seriesPath(const IndicatorSeries &series, qint64 first, qint64 last,
                        const std::function<double(qint64)> &x,
                        const std::function<double(double)> &y)
{
    QPainterPath path;
    QPolygonF run;
    const auto flush = [&] {
        if (!run.isEmpty())
            path.addPolygon(byPixelColumn(run));
        run.clear();
    };
    const qint64 end = std::min<qint64>(last, series.size() - 1);
    for (qint64 i = std::max<qint64>(first, 0); i <= end; ++i) {
        const double value = series.at(i);
        if (std::isfinite(value))
            run.append(QPointF(x(i), y(value)));
        else
            flush();
    }
    flush();
    return path;
}

double lastVisibleFinite(const IndicatorSeries &series, qint64 first, qint64 last)
{
    for (qint64 i = std::min<qint64>(last, series.size() - 1); i >= first && i >= 0; --i) {
        if (std::isfinite(series.at(i)))
            return series.at(i);
    }
    return qQNaN();
}

} // namespace

void PriceChart::paintEvent(QPaintEvent *)
{
    // The chart is drawn once into a pixmap and kept until what it shows changes; the crosshair and
    // the zoom box go over it, so moving the mouse costs a copy and a few lines.
    const qreal ratio = devicePixelRatioF();
    const QSize pixels = size() * ratio;
    if (!m_baseValid || m_base.size() != pixels) {
        m_base = QPixmap(pixels);
        m_base.setDevicePixelRatio(ratio);
        QPainter base(&m_base);
        base.setFont(font()); // a pixmap's painter starts with the application's font
        paintChart(base);
        m_baseValid = true;
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, m_base);
    if (m_candles.isEmpty())
        return;
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font = painter.font();
    font.setPointSize(9);
    painter.setFont(font);
    const ChartGeometry &g = geometry();
    paintCrosshair(painter, g);
    if (m_boxSelecting) {
        const ChartColors &colors = chartColors(m_light);
        const QRectF box(QPointF(std::min(m_boxFrom, m_boxTo), g.plot.top()),
                         QPointF(std::max(m_boxFrom, m_boxTo), g.plot.bottom()));
        QColor fill = colors.crosshair;
        fill.setAlpha(40);
        painter.fillRect(box.intersected(g.plot), fill);
        painter.setPen(QPen(colors.crosshair, 1));
        painter.drawRect(box.intersected(g.plot));
    }
}

void PriceChart::paintChart(QPainter &painter) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    const ChartColors &colors = chartColors(m_light);
    painter.fillRect(rect(), colors.background);
    const ChartGeometry &g = geometry();
    painter.setPen(colors.grid);
    painter.drawRect(g.plot);

    painter.setPen(colors.text);
    QFont font = painter.font();
    font.setPointSize(9);
    painter.setFont(font);
    const QString title = m_symbol.isEmpty() ? QStringLiteral("Select a symbol")
                                             : QStringLiteral("%1  %2").arg(m_symbol, m_timeframe);
    painter.drawText(QRectF(rect()).adjusted(18, 4, -18, -4), Qt::AlignLeft | Qt::AlignTop, title);
    if (m_candles.isEmpty()) {
        painter.drawText(g.plot, Qt::AlignCenter, QStringLiteral("Waiting for market data"));
        return;
    }

    painter.setPen(colors.grid);
    for (int i = 1; i <= 3; ++i) {
        const double y = g.plot.top() + g.plot.height() * i / 4.0;
        painter.drawLine(QPointF(g.plot.left(), y), QPointF(g.plot.right(), y));
    }

    updateSeries();
    painter.save();
    painter.setClipRect(g.plot);
    paintPrice(painter, g);
    paintOverlays(painter, g);
    paintMacd(painter, g);
    paintDrawings(painter, g);
    painter.restore();

    paintVolume(painter, g);
    paintTimeAxis(painter, g);

    painter.setPen(colors.text);
    const QRectF range(g.plot.left(), height() - 18, g.plot.width(), 16);
    painter.drawText(range, Qt::AlignLeft | Qt::AlignBottom,
                     QStringLiteral("min %1").arg(g.minPrice, 0, 'f', 2));
    painter.drawText(range, Qt::AlignRight | Qt::AlignBottom,
                     QStringLiteral("max %1").arg(g.maxPrice, 0, 'f', 2));
}

void PriceChart::paintPrice(QPainter &painter, const ChartGeometry &g) const
{
    if (m_style == 1) {
        // Batched by colour: thousands of visible candles cost two calls per colour, not two each.
        const double bodyWidth = std::clamp(g.slotWidth() * 0.62, 2.0, 12.0);
        QList<QLineF> wicks[2];
        QList<QRectF> bodies[2];
        for (qint64 i = g.first; i <= g.last; ++i) {
            const Candle &candle = m_candles.at(i);
            const int side = candle.close >= candle.open ? 0 : 1;
            const double x = g.slotCentre(i);
            wicks[side].append(QLineF(x, g.priceY(candle.high), x, g.priceY(candle.low)));
            const double openY = g.priceY(candle.open);
            const double closeY = g.priceY(candle.close);
            const double bodyHeight = std::max(std::abs(closeY - openY), 1.0);
            bodies[side].append(
                    QRectF(x - bodyWidth / 2, std::min(openY, closeY), bodyWidth, bodyHeight));
        }
        for (int side = 0; side < 2; ++side) {
            const QColor color = side == 0 ? kUpColor : kDownColor;
            painter.setPen(QPen(color, 1.2));
            painter.drawLines(wicks[side]);
            painter.setPen(Qt::NoPen);
            painter.setBrush(color);
            painter.drawRects(bodies[side]);
        }
        painter.setBrush(Qt::NoBrush);
        return;
    }
    if (g.visibleCount() == 1) {
        const Candle &candle = m_candles.at(g.first);
        painter.setPen(QPen(kUpColor, 2));
        painter.setBrush(kUpColor);
        painter.drawEllipse(QPointF(g.indexX(g.first), g.priceY(candle.close)), 3, 3);
        painter.setBrush(Qt::NoBrush);
        return;
    }
    QPolygonF closes;
    closes.reserve(g.visibleCount());
    for (qint64 i = g.first; i <= g.last; ++i)
        closes.append(QPointF(g.indexX(i), g.priceY(m_candles.at(i).close)));
    const bool up = m_candles.at(g.last).close >= m_candles.at(g.first).close;
    painter.setPen(QPen(up ? kUpColor : kDownColor, 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawPolyline(byPixelColumn(closes));
}

void PriceChart::paintOverlays(QPainter &painter, const ChartGeometry &g) const
{
    const struct
    {
        bool enabled;
        const IndicatorSeries *series;
        QString name;
        QColor color;
    } overlays[] = {
            {m_settings.sma, &m_series.sma, QStringLiteral("SMA%1").arg(m_settings.smaPeriod),
             kSmaColor},
            {m_settings.ema, &m_series.ema, QStringLiteral("EMA%1").arg(m_settings.emaPeriod),
             kEmaColor},
            {m_settings.vwap, &m_series.vwap, QStringLiteral("VWAP"), kVwapColor},
    };
    const auto x = [&g](qint64 index) { return g.indexX(index); };
    const auto y = [&g](double price) { return g.priceY(price); };
    double legendOffset = 0;
    QList<QPair<QString, QColor>> labels;
    for (const auto &overlay : overlays) {
        if (!overlay.enabled)
            continue;
        const double last = lastVisibleFinite(*overlay.series, g.first, g.last);
        if (!std::isfinite(last))
            continue;
        painter.setPen(QPen(overlay.color, 1.6));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(seriesPath(*overlay.series, g.first, g.last, x, y));
        labels.append(
                {QStringLiteral("%1 %2").arg(overlay.name).arg(last, 0, 'f', 2), overlay.color});
    }
    // The labels go over every line, each on a veil of the panel colour so the candles under the
    // top-right corner do not swallow them.
    QColor veil = chartColors(m_light).panel;
    veil.setAlpha(200);
    for (const auto &[text, color] : std::as_const(labels)) {
        const QRectF label(g.plot.right() - 160, g.plot.top() + 4 + legendOffset, 156, 16);
        QRectF used = painter.boundingRect(label, Qt::AlignRight | Qt::AlignVCenter, text);
        painter.fillRect(used.adjusted(-3, 0, 2, 0), veil);
        painter.setPen(color);
        painter.drawText(label, Qt::AlignRight | Qt::AlignVCenter, text);
        legendOffset += 16;
    }
}

void PriceChart::paintMacd(QPainter &painter, const ChartGeometry &g) const
{
    if (!m_settings.macd)
        return;
    const ChartColors &colors = chartColors(m_light);
    const QRectF box(g.plot.left() + 6, g.plot.bottom() - 76, 240, 68);
    painter.fillRect(box, colors.panel);
    painter.setPen(colors.grid);
    painter.drawRect(box);

    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    for (const IndicatorSeries *series : {&m_series.macd, &m_series.signal}) {
        const qint64 end = std::min<qint64>(g.last, series->size() - 1);
        for (qint64 i = g.first; i <= end; ++i) {
            const double value = series->at(i);
            if (std::isfinite(value)) {
                low = std::min(low, value);
                high = std::max(high, value);
            }
        }
    }
    if (!std::isfinite(low) || !std::isfinite(high) || high - low < 1e-12)
        return;

    const double steps = static_cast<double>(std::max<qint64>(g.last - g.first, 1));
    const auto x = [&](qint64 index) {
        return box.left() + box.width() * static_cast<double>(index - g.first) / steps;
    };
    const auto y = [&](double value) {
        return box.bottom() - (value - low) / (high - low) * box.height();
    };
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(kUpColor, 1.2));
    painter.drawPath(seriesPath(m_series.macd, g.first, g.last, x, y));
    painter.setPen(QPen(kEmaColor, 1.2));
    painter.drawPath(seriesPath(m_series.signal, g.first, g.last, x, y));

    painter.setPen(colors.text);
    painter.drawText(QRectF(box.left() + 6, box.top() + 3, box.width() - 12, 14),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("MACD %1/%2/%3")
                             .arg(m_settings.macdFast)
                             .arg(m_settings.macdSlow)
                             .arg(m_settings.macdSignal));
    painter.setPen(kUpColor);
    painter.drawText(QRectF(box.left() + 6, box.bottom() - 18, 108, 14),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("M %1").arg(lastVisibleFinite(m_series.macd, g.first, g.last),
                                                0, 'f', 3));
    painter.setPen(kEmaColor);
    painter.drawText(QRectF(box.left() + 120, box.bottom() - 18, 108, 14),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("S %1").arg(lastVisibleFinite(m_series.signal, g.first, g.last),
                                                0, 'f', 3));
}

void PriceChart::paintDrawings(QPainter &painter, const ChartGeometry &g) const
{
    const DrawingVisibility visibility = drawingVisibility();
    painter.setBrush(Qt::NoBrush);
    for (const ChartDrawing &drawing : m_drawings) {
        if (!visibility.shows(drawing.type))
            continue;
        const QColor color = drawing.locked ? drawing.color.darker(135) : drawing.color;
        painter.setPen(QPen(color, 1.5, Qt::DashLine));
        switch (drawing.type) {
        case ChartDrawing::Horizontal: {
            const double y = g.priceY(drawing.price1);
            painter.drawLine(QPointF(g.plot.left(), y), QPointF(g.plot.right(), y));
            painter.drawText(QRectF(g.plot.right() - 206, y - 18, 200, 16),
                             Qt::AlignRight | Qt::AlignBottom, drawing.label);
            break;
        }
        case ChartDrawing::Vertical: {
            const double x = g.indexX(drawing.index1);
            painter.drawLine(QPointF(x, g.plot.top()), QPointF(x, g.plot.bottom()));
            painter.drawText(QRectF(x + 4, g.plot.top() + 4, 160, 16),
                             Qt::AlignLeft | Qt::AlignVCenter, drawing.label);
            break;
        }
        case ChartDrawing::Trend: {
            const QPointF from(g.indexX(drawing.index1), g.priceY(drawing.price1));
            const QPointF to(g.indexX(drawing.index2), g.priceY(drawing.price2));
            painter.drawLine(from, to);
            painter.drawText(to + QPointF(6, -6), QStringLiteral("%1  %2 -> %3")
                                                          .arg(drawing.label)
                                                          .arg(drawing.price1, 0, 'f', 2)
                                                          .arg(drawing.price2, 0, 'f', 2));
            break;
        }
        }
    }
    if (m_trendPending) {
        painter.setPen(QPen(kEmaColor, 1.5, Qt::DashLine));
        painter.drawLine(m_trendStart, m_trendCurrent);
    }
}

void PriceChart::paintVolume(QPainter &painter, const ChartGeometry &g) const
{
    const ChartColors &colors = chartColors(m_light);
    painter.setPen(colors.grid);
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(g.volume);
    double maxVolume = 0;
    for (qint64 i = g.first; i <= g.last; ++i)
        maxVolume = std::max(maxVolume, m_candles.at(i).volume);
    if (!(maxVolume > 0))
        return;
    const double barWidth = std::clamp(g.slotWidth() * 0.62, 1.0, 10.0);
    QList<QRectF> bars[2]; // up, down
    for (qint64 i = g.first; i <= g.last; ++i) {
        const Candle &candle = m_candles.at(i);
        const double barHeight = std::max(candle.volume / maxVolume * kVolumeStripHeight, 1.0);
        bars[candle.close >= candle.open ? 0 : 1].append(QRectF(g.slotCentre(i) - barWidth / 2,
                                                                g.volume.bottom() - barHeight,
                                                                barWidth, barHeight));
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(32, 200, 120, 120));
    painter.drawRects(bars[0]);
    painter.setBrush(QColor(244, 93, 93, 120));
    painter.drawRects(bars[1]);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(colors.text);
    painter.drawText(QRectF(g.volume.left() + 4, g.volume.top() + 2, 180, 14),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("Volume max %1").arg(compactVolume(maxVolume)));
}

void PriceChart::paintTimeAxis(QPainter &painter, const ChartGeometry &g) const
{
    const ChartColors &colors = chartColors(m_light);
    const double bottom = g.volume.bottom();
    painter.setPen(colors.grid);
    painter.drawLine(QPointF(g.plot.left(), bottom), QPointF(g.plot.right(), bottom));
    for (const qint64 index : g.axisTicks()) {
        const double x = g.indexX(index);
        painter.setPen(colors.grid);
        painter.drawLine(QPointF(x, bottom), QPointF(x, bottom + 4));
        painter.setPen(colors.text);
        painter.drawText(QRectF(x - 42, bottom + 6, 84, 16), Qt::AlignCenter,
                         chartTimeLabel(m_candles.at(index).time, m_timeframe));
    }
}

void PriceChart::paintCrosshair(QPainter &painter, const ChartGeometry &g) const
{
    if (m_hoverIndex < g.first || m_hoverIndex > g.last)
        return;
    const ChartColors &colors = chartColors(m_light);
    const Candle &candle = m_candles.at(m_hoverIndex);
    const double x = g.indexX(m_hoverIndex);
    const double y = g.priceY(candle.close);
    painter.setPen(QPen(colors.crosshair, 1, Qt::DashLine));
    painter.drawLine(QPointF(x, g.plot.top()), QPointF(x, g.plot.bottom()));
    painter.drawLine(QPointF(g.plot.left(), y), QPointF(g.plot.right(), y));

    QRectF box(x + 10, g.plot.top() + 10, 160, 74);
    if (box.right() > g.plot.right())
        box.moveRight(x - 10);
    painter.fillRect(box, colors.panel);
    painter.setPen(colors.grid);
    painter.drawRect(box);
    painter.setPen(colors.tooltipText);
    painter.drawText(box.adjusted(8, 6, -8, -6), Qt::AlignLeft | Qt::AlignTop,
                     QStringLiteral("%1\nO %2  H %3\nL %4  C %5\nV %6")
                             .arg(chartTimeLabel(candle.time, m_timeframe))
                             .arg(candle.open, 0, 'f', 2)
                             .arg(candle.high, 0, 'f', 2)
                             .arg(candle.low, 0, 'f', 2)
                             .arg(candle.close, 0, 'f', 2)
                             .arg(compactVolume(candle.volume)));
}
