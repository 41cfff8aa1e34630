#pragma once

#include "chart/candle.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QPointF>
#include <QString>
#include <QtGlobal>

#include <functional>

// The user's annotations on a chart: horizontal price lines, vertical time markers and trend lines,
// kept per "SYMBOL|timeframe" in the settings. Positions are candle indices into the list loaded
// when the drawing was made, on purpose: a later load of another window of history leaves them
// at the same index.

struct ChartDrawing
{
    enum Type { Horizontal = 0, Vertical = 1, Trend = 2 };

    Type type = Horizontal;
    double price1 = 0;
    double price2 = 0;
    qint64 index1 = 0;
    qint64 index2 = 0;
    QString label;
    bool locked = false;
    QColor color = QColor(QStringLiteral("#f3b24a"));

    // All eight keys; `type` as "horizontal", "vertical" or "trend", `color` as "#rrggbb".
    QJsonObject toJson() const;
    // Defaults: type "vertical" -> 1, "trend" -> 2, anything else 0; price1 0, price2 = price1,
    // index1 0, index2 = index1, label empty, locked false, color "#f3b24a" (also for a text that
    // is not a colour). Values of the wrong type read as missing.
    static ChartDrawing fromJson(const QJsonObject &object);
};

inline constexpr const char *kDefaultDrawingColor = "#f3b24a";
inline constexpr double kDrawingHitTolerance = 7.0; // pixels, strictly under
inline constexpr double kTrendMinimumDrag = 8.0;    // pixels

QList<ChartDrawing> drawingsFromJson(const QJsonArray &array); // non-objects are skipped
QJsonArray drawingsToJson(const QList<ChartDrawing> &drawings);
// The store key of a chart: "BTCUSDT|1h"; empty for no symbol.
QString drawingsKey(const QString &symbol, const QString &timeframe);

// Ctrl snapping: the one of the candle's open, high, low, close nearest to `price`; on equal
// distance the earlier of open, high, low, close wins.
double snapToCandle(const Candle &candle, double price);

// What hit-testing needs to know about the chart: where a price and a candle index are on screen
// and which candles are visible.
struct DrawingScreen
{
    std::function<double(double price)> priceY;
    std::function<double(qint64 index)> indexX;
    qint64 firstVisible = 0;
    qint64 lastVisible = -1;
};

// Which kinds are shown; hidden kinds are neither drawn nor hit.
struct DrawingVisibility
{
    bool horizontal = true;
    bool vertical = true;
    bool trend = true;

    bool shows(ChartDrawing::Type type) const;
};

// The newest drawing (the last in the list) within kDrawingHitTolerance of `point`, or -1.
// Horizontal: vertical distance; vertical: skipped outside the visible range, else horizontal
// distance; trend: both ends clamped into the visible range, distance to the segment (to the first
// point when the segment's squared length is 1 or less).
int hitTestDrawings(const QList<ChartDrawing> &drawings, const DrawingVisibility &visibility,
                    const DrawingScreen &screen, const QPointF &point);

// What a drag may do: the candle count and visible range bound the indices, and with Ctrl held
// (`snapCandles` given) a horizontal line snaps to the candle under the mouse (`mouseIndex`) and
// each end of a trend line to its own candle.
struct DragContext
{
    qint64 candleCount = 0;
    qint64 firstVisible = 0;
    qint64 lastVisible = -1;
    const QList<Candle> *snapCandles = nullptr;
    qint64 mouseIndex = -1;
};

// Moves a dragged drawing by a price and an index difference. Horizontal: price by dp; vertical:
// index by di, clamped to the visible range; trend: both prices by dp and both indices by di, each
// clamped to 0..count-1.
void dragDrawing(ChartDrawing &drawing, double priceDelta, qint64 indexDelta,
                 const DragContext &context);
