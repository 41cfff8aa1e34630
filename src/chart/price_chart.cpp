#include "chart/price_chart.h"

#include "app/language.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLineF>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QWheelEvent>

#include <algorithm>

namespace {

constexpr int kMinimumChartHeight = 260;
constexpr int kInteractiveCandles = 3; // fewer candles cannot be zoomed, panned or drawn on

bool sameCandles(const QList<Candle> &a, const QList<Candle> &b)
{
    if (a.size() != b.size())
        return false;
    if (a.constData() == b.constData())
        return true;
    return std::equal(a.cbegin(), a.cend(), b.cbegin(), [](const Candle &x, const Candle &y) {
        return x.time == y.time && x.open == y.open && x.high == y.high && x.low == y.low &&
               x.close == y.close && x.volume == y.volume;
    });
}

} // namespace

PriceChart::PriceChart(QWidget *parent)
    : QWidget(parent)
    , m_dialogs(defaultDialogs())
{
    setMinimumHeight(kMinimumChartHeight);
    setMouseTracking(true);
    setFocusPolicy(Qt::WheelFocus);
    setCursor(Qt::ArrowCursor);
}

void PriceChart::setData(const QString &symbol, const QList<Candle> &candles, int style,
                         const QString &timeframe)
{
    if (symbol != m_symbol || timeframe != m_timeframe) {
        m_view = ChartView();
        m_boxSelecting = false;
    }
    if (!sameCandles(candles, m_candles))
        m_series = SeriesCache();
    m_symbol = symbol;
    m_candles = candles;
    m_style = style;
    m_timeframe = timeframe;
    m_geometryValid = false;
    if (m_hoverIndex >= m_candles.size())
        m_hoverIndex = -1;
    refresh();
}

void PriceChart::setDrawings(const QList<ChartDrawing> &drawings)
{
    m_drawings = drawings;
    m_selectedDrawing = -1;
    refresh();
}

void PriceChart::setDrawMode(DrawMode mode)
{
    m_drawMode = mode;
    m_trendPending = false;
    restoreCursor();
    refresh();
    send(QStringLiteral("Chart tool: %1").arg(drawModeName(mode)));
    if (m_toolCallback)
        m_toolCallback(mode);
}

QString PriceChart::drawModeName(DrawMode mode)
{
    switch (mode) {
    case HorizontalLine:
        return QStringLiteral("Horizontal line");
    case VerticalLine:
        return QStringLiteral("Vertical line");
    case TrendLine:
        return QStringLiteral("Trend line");
    case Select:
        break;
    }
    return QStringLiteral("Select/zoom");
}

void PriceChart::resetZoom()
{
    m_view = ChartView();
    m_boxSelecting = false;
    m_panning = false;
    m_selectedDrawing = -1;
    m_trendPending = false;
    m_hoverIndex = m_candles.isEmpty() ? -1 : m_candles.size() - 1;
    restoreCursor();
    refresh();
    send(QStringLiteral("Chart zoom reset"));
}

void PriceChart::setLightTheme(bool light)
{
    m_light = light;
    refresh();
}

void PriceChart::setIndicatorSettings(const IndicatorSettings &settings)
{
    m_settings = settings;
    refresh();
}

void PriceChart::setMessageCallback(std::function<void(const QString &)> callback)
{
    m_messageCallback = std::move(callback);
}

void PriceChart::setChangeCallback(std::function<void()> callback)
{
    m_changeCallback = std::move(callback);
}

void PriceChart::setToolCallback(std::function<void(DrawMode)> callback)
{
    m_toolCallback = std::move(callback);
}

const ChartGeometry &PriceChart::geometry() const
{
    const QRectF area = rect();
    if (!m_geometryValid || area != m_geometryRect || m_view.start != m_geometryView.start ||
        m_view.end != m_geometryView.end) {
        m_geometry = ChartGeometry::compute(area, m_candles, m_view);
        m_geometryRect = area;
        m_geometryView = m_view;
        m_geometryValid = true;
    }
    return m_geometry;
}

void PriceChart::updateSeries() const
{
    const IndicatorSettings &s = m_settings;
    if (s.sma && m_series.smaPeriod != s.smaPeriod) {
        ++m_seriesComputations;
        m_series.sma = smaSeries(m_candles, s.smaPeriod);
        m_series.smaPeriod = s.smaPeriod;
    }
    if (s.ema && m_series.emaPeriod != s.emaPeriod) {
        ++m_seriesComputations;
        m_series.ema = emaSeries(m_candles, s.emaPeriod);
        m_series.emaPeriod = s.emaPeriod;
    }
    if (s.vwap && m_series.vwapSession != int(s.vwapSession)) {
        ++m_seriesComputations;
        m_series.vwap = vwapSeries(m_candles, s.vwapSession);
        m_series.vwapSession = int(s.vwapSession);
    }
    if (s.macd && (m_series.macdFast != s.macdFast || m_series.macdSlow != s.macdSlow)) {
        ++m_seriesComputations;
        m_series.macd = macdLineSeries(m_candles, s.macdFast, s.macdSlow);
        m_series.macdFast = s.macdFast;
        m_series.macdSlow = s.macdSlow;
        m_series.macdSignal = -1;
    }
    if (s.macd && m_series.macdSignal != s.macdSignal) {
        ++m_seriesComputations;
        m_series.signal = macdSignalSeries(m_series.macd, s.macdSignal);
        m_series.macdSignal = s.macdSignal;
    }
}

bool PriceChart::ctrlHeld() const
{
    const Qt::KeyboardModifiers modifiers = m_dialogs.keyboardModifiers
                                                    ? m_dialogs.keyboardModifiers()
                                                    : QGuiApplication::queryKeyboardModifiers();
    return modifiers.testFlag(Qt::ControlModifier);
}

DrawingVisibility PriceChart::drawingVisibility() const
{
    DrawingVisibility visibility;
    visibility.horizontal = m_settings.showHLines;
    visibility.vertical = m_settings.showVLines;
    visibility.trend = m_settings.showTrends;
    return visibility;
}

int PriceChart::drawingAt(const QPointF &pos) const
{
    const ChartGeometry g = geometry();
    DrawingScreen screen;
    screen.priceY = [g](double price) { return g.priceY(price); };
    screen.indexX = [g](qint64 index) { return g.indexX(index); };
    screen.firstVisible = g.first;
    screen.lastVisible = g.last;
    return hitTestDrawings(m_drawings, drawingVisibility(), screen, pos);
}

void PriceChart::send(const QString &message) const
{
    if (m_messageCallback)
        m_messageCallback(message);
}

void PriceChart::notifyChanged() const
{
    if (m_changeCallback)
        m_changeCallback();
}

void PriceChart::restoreCursor()
{
    setCursor(m_drawMode == Select ? Qt::ArrowCursor : Qt::CrossCursor);
}

void PriceChart::wheelEvent(QWheelEvent *event)
{
    if (m_candles.size() < kInteractiveCandles) {
        event->ignore();
        return;
    }
    m_view.zoom(geometry().plotFraction(event->position().x()), event->angleDelta().y() >= 1);
    event->accept();
    refresh();
}

void PriceChart::mousePressEvent(QMouseEvent *event)
{
    setFocus(Qt::MouseFocusReason);
    if (m_candles.size() < kInteractiveCandles)
        return;
    const QPointF pos = event->position();
    const Qt::MouseButton button = event->button();
    if (button == Qt::LeftButton && m_drawMode == TrendLine) {
        m_trendPending = true;
        m_trendStart = pos;
        m_trendCurrent = pos;
        refresh();
        return;
    }
    if (button == Qt::LeftButton && (m_drawMode == HorizontalLine || m_drawMode == VerticalLine)) {
        placeLine(pos, m_drawMode);
        return;
    }
    if (button != Qt::LeftButton && button != Qt::MiddleButton)
        return;
    const bool shift = event->modifiers().testFlag(Qt::ShiftModifier);
    if (button == Qt::LeftButton && !shift) {
        const int hit = drawingAt(pos);
        if (hit >= 0 && !m_drawings.at(hit).locked) {
            m_selectedDrawing = hit;
            m_dragLast = pos;
            return;
        }
    }
    if (button == Qt::LeftButton && shift) {
        m_boxSelecting = true;
        m_boxFrom = pos.x();
        m_boxTo = pos.x();
        refresh();
        return;
    }
    // Empty chart, a locked drawing or the middle button: the chart moves instead.
    m_panning = true;
    m_panStartX = pos.x();
    m_panStartView = m_view;
    setCursor(Qt::ClosedHandCursor);
}

void PriceChart::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF pos = event->position();
    const ChartGeometry &g = geometry();
    if (m_trendPending) {
        m_trendCurrent = pos;
    } else if (m_panning) {
        if (g.plot.width() > 0)
            m_view.panFrom(m_panStartView, (pos.x() - m_panStartX) / g.plot.width());
    } else if (m_selectedDrawing >= 0 && m_selectedDrawing < m_drawings.size()) {
        DragContext context;
        context.candleCount = g.count;
        context.firstVisible = g.first;
        context.lastVisible = g.last;
        context.snapCandles = ctrlHeld() ? &m_candles : nullptr;
        context.mouseIndex = g.indexAt(pos.x());
        const double priceDelta = g.priceAt(pos.y()) - g.priceAt(m_dragLast.y());
        const qint64 indexDelta = g.indexAt(pos.x()) - g.indexAt(m_dragLast.x());
        dragDrawing(m_drawings[m_selectedDrawing], priceDelta, indexDelta, context);
        m_dragLast = pos;
    } else if (m_boxSelecting) {
        m_boxTo = pos.x();
        update(); // the box is drawn over the cached chart
        return;
    } else {
        // The crosshair sits on a candle and is drawn over the cached chart: a move onto another
        // candle repaints, and nothing is recomputed.
        const qint64 index = g.indexAt(pos.x());
        if (index != m_hoverIndex) {
            m_hoverIndex = index;
            update();
        }
        return;
    }
    refresh();
}

void PriceChart::mouseReleaseEvent(QMouseEvent *event)
{
    const QPointF pos = event->position();
    if (event->button() == Qt::LeftButton && m_trendPending) {
        m_trendPending = false;
        refresh();
        if (QLineF(m_trendStart, pos).length() < kTrendMinimumDrag)
            return;
        finishTrend(pos);
        return;
    }
    if (m_panning) {
        m_panning = false;
        restoreCursor();
    }
    if (m_selectedDrawing >= 0) {
        m_selectedDrawing = -1;
        notifyChanged();
    }
    if (m_boxSelecting) {
        m_boxSelecting = false;
        const ChartGeometry &g = geometry();
        m_view.zoomToBox(g.plotFraction(m_boxFrom), g.plotFraction(m_boxTo));
    }
    refresh();
}

void PriceChart::refresh()
{
    m_baseValid = false;
    update();
}

void PriceChart::leaveEvent(QEvent *event)
{
    m_hoverIndex = -1;
    update();
    QWidget::leaveEvent(event);
}

void PriceChart::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        setDrawMode(Select);
        return;
    }
    if (!m_resetZoomShortcut.isEmpty() &&
        QKeySequence(event->keyCombination()) == m_resetZoomShortcut) {
        resetZoom();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PriceChart::placeLine(const QPointF &pos, DrawMode mode)
{
    const ChartGeometry &g = geometry();
    const qint64 index = g.indexAt(pos.x());
    if (index < 0)
        return;
    double price = g.priceAt(pos.y());
    if (ctrlHeld())
        price = snapToCandle(m_candles.at(index), price);
    const QString timeLabel = chartTimeLabel(m_candles.at(index).time, m_timeframe);
    const QPointer<PriceChart> alive(this);

    ChartDrawing drawing;
    drawing.index1 = index;
    drawing.index2 = index;
    drawing.price1 = price;
    drawing.price2 = price;
    QString message;
    if (mode == HorizontalLine) {
        const std::optional<double> chosen = m_dialogs.askDouble(
                this,
                translated(QStringLiteral("Horizontal line"), QStringLiteral("Linha horizontal")),
                translated(QStringLiteral("Price"), QStringLiteral("Preço")), price, 0.0, 1e9, 6);
        if (!alive || !chosen)
            return;
        drawing.type = ChartDrawing::Horizontal;
        drawing.price1 = *chosen;
        drawing.price2 = *chosen;
        drawing.label = QString::number(*chosen, 'f', 4);
        message = QStringLiteral("Drawing added: horizontal %1").arg(drawing.label);
    } else {
        const std::optional<QString> chosen = m_dialogs.askText(
                this, translated(QStringLiteral("Vertical line"), QStringLiteral("Linha vertical")),
                translated(QStringLiteral("Label"), QStringLiteral("Rótulo")), timeLabel);
        if (!alive || !chosen)
            return;
        drawing.type = ChartDrawing::Vertical;
        drawing.label = *chosen;
        message = QStringLiteral("Drawing added: vertical %1").arg(drawing.label);
    }
    const QColor color = m_dialogs.askColor(
            this, drawing.color,
            translated(QStringLiteral("Line color"), QStringLiteral("Cor da linha")));
    if (!alive || !color.isValid())
        return;
    drawing.color = color;
    m_drawings.append(drawing);
    send(message);
    setDrawMode(Select);
    notifyChanged();
    refresh();
}

void PriceChart::finishTrend(const QPointF &end)
{
    const ChartGeometry &g = geometry();
    ChartDrawing trend;
    trend.type = ChartDrawing::Trend;
    trend.index1 = g.indexAt(m_trendStart.x());
    trend.index2 = g.indexAt(end.x());
    trend.price1 = g.priceAt(m_trendStart.y());
    trend.price2 = g.priceAt(end.y());
    if (ctrlHeld()) {
        trend.price1 = snapToCandle(m_candles.at(trend.index1), trend.price1);
        trend.price2 = snapToCandle(m_candles.at(trend.index2), trend.price2);
    }
    const QPointer<PriceChart> alive(this);
    const bool accepted = m_dialogs.askTrend(this, trend);
    if (!alive)
        return;
    if (accepted) {
        if (trend.label.isEmpty())
            trend.label = QStringLiteral("Trend");
        m_drawings.append(trend);
        send(QStringLiteral("Drawing added: trend"));
        notifyChanged();
    }
    setDrawMode(Select);
}

void PriceChart::contextMenuEvent(QContextMenuEvent *event)
{
    createContextMenu(event->pos())->popup(event->globalPos());
    event->accept();
}
