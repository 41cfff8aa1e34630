#pragma once

#include "chart/candle.h"

#include <QList>
#include <QRectF>
#include <QString>
#include <QtGlobal>

// Where things are on the price chart, as plain numbers: the plot and volume rectangles, the
// visible candle range, x of a candle, y of a price, the candle under an x, the time axis ticks,
// and the view window (a fraction 0..1 of the history) with its zoom and pan rules. The widget
// paints and reacts to the mouse with these, and tests check them without a window.

inline constexpr double kMinimumViewSpan = 0.04;

struct ChartView
{
    double start = 0.0; // left edge, fraction of the candle list
    double end = 1.0;   // right edge

    double span() const { return end - start; }
    // Shift back inside 0..1 keeping the span, then start into 0..0.96 and end into
    // start + 0.04..1.
    void normalise();
    // Wheel zoom around the fraction `anchorFraction` of the plot width: factor 1.28 out, 0.78 in;
    // the span stays within 0.04..1.
    void zoom(double anchorFraction, bool zoomIn);
    // Pan from a view remembered at the start of the drag by `widthFraction` of the plot width.
    void panFrom(const ChartView &startView, double widthFraction);
    // Zoom into the box between two fractions of the plot width; false (nothing changes) when the
    // box is 3 % of the width or narrower.
    bool zoomToBox(double fromFraction, double toFraction);
};

struct ChartGeometry
{
    QRectF plot;    // widget rectangle less 18 left, top, right and 92 at the bottom
    QRectF volume;  // (plot left, plot bottom + 8, plot width, 34)
    qint64 count = 0;
    qint64 first = 0; // first visible candle
    qint64 last = -1; // last visible candle
    double minPrice = 0;
    double maxPrice = 1;

    // The range of the visible candles: lows and highs, widened to +-1 when flat.
    static ChartGeometry compute(const QRectF &widgetRect, const QList<Candle> &candles,
                                 const ChartView &view);

    qint64 visibleCount() const { return count > 0 ? last - first + 1 : 0; }
    double indexX(qint64 index) const;     // axis and drawings: spread over the visible range
    double slotWidth() const;              // plot width / visible count
    double slotCentre(qint64 index) const; // candles and volume bars
    double priceY(double price) const;
    double priceAt(double y) const;        // the fraction clamped to the plot
    qint64 indexAt(double x) const;        // -1 when there are no candles
    double plotFraction(double x) const;   // clamped to 0..1
    // Candle indices of the six time-axis ticks (round half away from zero).
    QList<qint64> axisTicks() const;
};

// "dd/MM" for "1d" and "1mo", else "HH:mm", local time; seconds or milliseconds by the usual rule.
QString chartTimeLabel(qint64 time, const QString &timeframe);
// "12.35K", "4.60M", "1.20B" and below a thousand the value, always with 2 decimals.
QString compactVolume(double volume);
