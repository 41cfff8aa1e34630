#pragma once

#include "chart/candle.h"
#include "chart/chart_geometry.h"
#include "chart/drawings.h"
#include "chart/indicators.h"

#include <QColor>
#include <QKeySequence>
#include <QList>
#include <QPixmap>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QWidget>

#include <functional>
#include <optional>

class QMenu;
class QPainter;

// The interactive price chart: candles or a close line with the indicator overlays, the MACD pane,
// the user's drawings, a volume strip and a time axis. It draws what it is handed (setData,
// setDrawings, setIndicatorSettings) and reports what the user changed through callbacks; the
// window stores drawings and settings.
class PriceChart : public QWidget
{
    Q_OBJECT

public:
    enum DrawMode {
        Select = 0,
        HorizontalLine = 1,
        VerticalLine = 2,
        TrendLine = 3
    };

    // Every modal question the chart asks goes through these, so a test can answer them without a
    // real dialog. Each returns nothing (or an invalid colour, or false) when the user cancels.
    struct Dialogs
    {
        std::function<std::optional<double>(QWidget *parent, const QString &title,
                                            const QString &label, double value, double minimum,
                                            double maximum, int decimals)>
                askDouble;
        std::function<std::optional<int>(QWidget *parent, const QString &title,
                                         const QString &label, int value, int minimum, int maximum)>
                askInt;
        std::function<std::optional<QString>(QWidget *parent, const QString &title,
                                             const QString &label, const QString &text)>
                askText;
        std::function<QColor(QWidget *parent, const QColor &initial, const QString &title)>
                askColor;
        // Label, both prices and the colour of a trend line; true when accepted.
        std::function<bool(QWidget *parent, ChartDrawing &trend)> askTrend;
        // A Yes/No question with No as the default; true for Yes.
        std::function<bool(QWidget *parent, const QString &title, const QString &question)> confirm;
        // Whether Ctrl is held for snapping, read when the mouse acts.
        std::function<Qt::KeyboardModifiers()> keyboardModifiers;
    };
    // The real QInputDialog, QColorDialog and QMessageBox questions.
    static Dialogs defaultDialogs();

    explicit PriceChart(QWidget *parent = nullptr);

    // `style` 1 draws candles, anything else a close line.
    void setData(const QString &symbol, const QList<Candle> &candles, int style,
                 const QString &timeframe);
    void setDrawings(const QList<ChartDrawing> &drawings);
    const QList<ChartDrawing> &drawings() const { return m_drawings; }

    void setDrawMode(DrawMode mode);
    DrawMode drawMode() const { return m_drawMode; }
    static QString drawModeName(DrawMode mode);

    void resetZoom();
    void setResetZoomShortcut(const QKeySequence &sequence) { m_resetZoomShortcut = sequence; }
    void setLightTheme(bool light);

    IndicatorSettings indicatorSettings() const { return m_settings; }
    // Repaints without calling the change callback.
    void setIndicatorSettings(const IndicatorSettings &settings);

    void setMessageCallback(std::function<void(const QString &)> callback);
    // A drawing or an indicator setting changed.
    void setChangeCallback(std::function<void()> callback);
    void setToolCallback(std::function<void(DrawMode)> callback);

    ChartView view() const { return m_view; }
    // How many times an indicator series was computed: paints and mouse moves reuse them.
    int seriesComputations() const { return m_seriesComputations; }
    QString symbol() const { return m_symbol; }
    QList<Candle> candles() const { return m_candles; }
    // The candle under the mouse, -1 when none.
    qint64 hoverIndex() const { return m_hoverIndex; }

    void setDialogs(const Dialogs &dialogs) { m_dialogs = dialogs; }

    // The right-button menu at `pos`: the drawing's entries on a drawing, the chart's elsewhere.
    // The caller shows it; it deletes itself when it closes.
    QMenu *createContextMenu(const QPoint &pos);

protected:
    void paintEvent(QPaintEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    // The series of the enabled indicators, recomputed only when the candles or their own
    // settings changed since the last time.
    struct SeriesCache
    {
        IndicatorSeries sma;
        IndicatorSeries ema;
        IndicatorSeries vwap;
        IndicatorSeries macd;
        IndicatorSeries signal;
        int smaPeriod = -1;
        int emaPeriod = -1;
        int vwapSession = -1;
        int macdFast = -1;
        int macdSlow = -1;
        int macdSignal = -1;
    };

    const ChartGeometry &geometry() const;
    void updateSeries() const;
    bool ctrlHeld() const;
    DrawingVisibility drawingVisibility() const;
    int drawingAt(const QPointF &pos) const;
    void placeLine(const QPointF &pos, DrawMode mode);
    void finishTrend(const QPointF &end);
    void addDrawing(const ChartDrawing &drawing, const QString &message);
    void editDrawing(int index);
    void configureMacd();
    void configurePeriod(int IndicatorSettings::*period, const QString &title,
                         const QString &portugueseTitle);
    void afterMenuChange();
    void clearSchemes();
    void send(const QString &message) const;
    void notifyChanged() const;
    void restoreCursor();

    // Painting, in price_chart_paint.cpp.
    void paintPrice(QPainter &painter, const ChartGeometry &geometry) const;
    void paintOverlays(QPainter &painter, const ChartGeometry &geometry) const;
    void paintMacd(QPainter &painter, const ChartGeometry &geometry) const;
    void paintDrawings(QPainter &painter, const ChartGeometry &geometry) const;
    void paintVolume(QPainter &painter, const ChartGeometry &geometry) const;
    void paintTimeAxis(QPainter &painter, const ChartGeometry &geometry) const;
    void paintCrosshair(QPainter &painter, const ChartGeometry &geometry) const;
    // Everything but the crosshair and the zoom box, into the cached pixmap.
    void paintChart(QPainter &painter) const;
    // What the chart shows changed: draw it again at the next paint.
    void refresh();

    QString m_symbol;
    QList<Candle> m_candles;
    int m_style = 1;
    QString m_timeframe;
    QList<ChartDrawing> m_drawings;
    IndicatorSettings m_settings;
    mutable int m_seriesComputations = 0;
    QPixmap m_base; // the chart without the crosshair, valid while m_baseValid
    bool m_baseValid = false;
    ChartView m_view;
    DrawMode m_drawMode = Select;
    QKeySequence m_resetZoomShortcut = QKeySequence(Qt::ALT | Qt::Key_0);
    bool m_light = false;
    Dialogs m_dialogs;

    std::function<void(const QString &)> m_messageCallback;
    std::function<void()> m_changeCallback;
    std::function<void(DrawMode)> m_toolCallback;

    qint64 m_hoverIndex = -1;
    bool m_panning = false;
    double m_panStartX = 0;
    ChartView m_panStartView;
    int m_selectedDrawing = -1;
    QPointF m_dragLast;
    bool m_boxSelecting = false;
    double m_boxFrom = 0;
    double m_boxTo = 0;
    bool m_trendPending = false;
    QPointF m_trendStart;
    QPointF m_trendCurrent;

    mutable ChartGeometry m_geometry;
    mutable bool m_geometryValid = false;
    mutable QRectF m_geometryRect;
    mutable ChartView m_geometryView;
    mutable SeriesCache m_series;
};
