#include "chart/drawings.h"

#include <QJsonValue>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const QLatin1String kTypeKey("type");
const QLatin1String kPrice1Key("price1");
const QLatin1String kPrice2Key("price2");
const QLatin1String kIndex1Key("index1");
const QLatin1String kIndex2Key("index2");
const QLatin1String kLabelKey("label");
const QLatin1String kLockedKey("locked");
const QLatin1String kColorKey("color");

const QLatin1String kHorizontalText("horizontal");
const QLatin1String kVerticalText("vertical");
const QLatin1String kTrendText("trend");

QLatin1String typeText(ChartDrawing::Type type)
{
    switch (type) {
    case ChartDrawing::Vertical:
        return kVerticalText;
    case ChartDrawing::Trend:
        return kTrendText;
    case ChartDrawing::Horizontal:
        break;
    }
    return kHorizontalText;
}

double numberOr(const QJsonValue &value, double fallback)
{
    return value.isDouble() ? value.toDouble() : fallback;
}

// Indices read from settings may be anywhere in qint64; a drag must not overflow them.
qint64 saturatedAdd(qint64 value, qint64 delta)
{
    qint64 sum = 0;
    if (!__builtin_add_overflow(value, delta, &sum))
        return sum;
    return delta > 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
}

double distanceToSegment(const QPointF &point, const QPointF &a, const QPointF &b)
{
    const QPointF along = b - a;
    const double lengthSquared = QPointF::dotProduct(along, along);
    if (lengthSquared <= 1.0)
        return std::hypot(point.x() - a.x(), point.y() - a.y());
    const double t = std::clamp(QPointF::dotProduct(point - a, along) / lengthSquared, 0.0, 1.0);
    const QPointF nearest = a + along * t;
    return std::hypot(point.x() - nearest.x(), point.y() - nearest.y());
}

bool validCandle(const QList<Candle> *candles, qint64 index)
{
    return candles != nullptr && index >= 0 && index < candles->size();
}

} // namespace

QJsonObject ChartDrawing::toJson() const
{
    QJsonObject object;
    object.insert(kTypeKey, typeText(type));
    object.insert(kPrice1Key, price1);
    object.insert(kPrice2Key, price2);
    object.insert(kIndex1Key, index1);
    object.insert(kIndex2Key, index2);
    object.insert(kLabelKey, label);
    object.insert(kLockedKey, locked);
    object.insert(kColorKey, color.name(QColor::HexRgb));
    return object;
}

ChartDrawing ChartDrawing::fromJson(const QJsonObject &object)
{
    ChartDrawing drawing;
    const QString type = object.value(kTypeKey).toString();
    if (type == kVerticalText)
        drawing.type = Vertical;
    else if (type == kTrendText)
        drawing.type = Trend;
    else
        drawing.type = Horizontal;
    drawing.price1 = numberOr(object.value(kPrice1Key), 0.0);
    drawing.price2 = numberOr(object.value(kPrice2Key), drawing.price1);
    drawing.index1 = jsonInteger(object.value(kIndex1Key), 0);
    drawing.index2 = jsonInteger(object.value(kIndex2Key), drawing.index1);
    drawing.label = object.value(kLabelKey).toString();
    drawing.locked = object.value(kLockedKey).toBool(false);
    const QColor color(object.value(kColorKey).toString());
    drawing.color = color.isValid() ? color : QColor(QLatin1String(kDefaultDrawingColor));
    return drawing;
}

QList<ChartDrawing> drawingsFromJson(const QJsonArray &array)
{
    QList<ChartDrawing> drawings;
    for (const QJsonValue &value : array) {
        if (value.isObject())
            drawings.append(ChartDrawing::fromJson(value.toObject()));
    }
    return drawings;
}

QJsonArray drawingsToJson(const QList<ChartDrawing> &drawings)
{
    QJsonArray array;
    for (const ChartDrawing &drawing : drawings)
        array.append(drawing.toJson());
    return array;
}

QString drawingsKey(const QString &symbol, const QString &timeframe)
{
    if (symbol.isEmpty())
        return {};
    return symbol + QLatin1Char('|') + timeframe;
}

double snapToCandle(const Candle &candle, double price)
{
    double best = candle.open;
    for (double level : {candle.high, candle.low, candle.close}) {
        // Strictly nearer only, so a tie keeps the earlier of open, high, low, close.
        if (std::abs(level - price) < std::abs(best - price))
            best = level;
    }
    return best;
}

bool DrawingVisibility::shows(ChartDrawing::Type type) const
{
    switch (type) {
    case ChartDrawing::Horizontal:
        return horizontal;
    case ChartDrawing::Vertical:
        return vertical;
    case ChartDrawing::Trend:
        return trend;
    }
    return false;
}

int hitTestDrawings(const QList<ChartDrawing> &drawings, const DrawingVisibility &visibility,
                    const DrawingScreen &screen, const QPointF &point)
{
    if (!screen.priceY || !screen.indexX)
        return -1;
    const bool anyVisible = screen.firstVisible <= screen.lastVisible;
    for (qsizetype i = drawings.size() - 1; i >= 0; --i) {
        const ChartDrawing &drawing = drawings.at(i);
        if (!visibility.shows(drawing.type))
            continue;
        double distance = std::numeric_limits<double>::infinity();
        switch (drawing.type) {
        case ChartDrawing::Horizontal:
            distance = std::abs(screen.priceY(drawing.price1) - point.y());
            break;
        case ChartDrawing::Vertical:
            if (drawing.index1 < screen.firstVisible || drawing.index1 > screen.lastVisible)
                continue;
            distance = std::abs(screen.indexX(drawing.index1) - point.x());
            break;
        case ChartDrawing::Trend: {
            if (!anyVisible)
                continue;
            const qint64 first =
                    std::clamp(drawing.index1, screen.firstVisible, screen.lastVisible);
            const qint64 second =
                    std::clamp(drawing.index2, screen.firstVisible, screen.lastVisible);
            const QPointF a(screen.indexX(first), screen.priceY(drawing.price1));
            const QPointF b(screen.indexX(second), screen.priceY(drawing.price2));
            distance = distanceToSegment(point, a, b);
            break;
        }
        }
        if (distance < kDrawingHitTolerance)
            return static_cast<int>(i);
    }
    return -1;
}

void dragDrawing(ChartDrawing &drawing, double priceDelta, qint64 indexDelta,
                 const DragContext &context)
{
    switch (drawing.type) {
    case ChartDrawing::Horizontal:
        drawing.price1 += priceDelta;
        if (validCandle(context.snapCandles, context.mouseIndex))
            drawing.price1 =
                    snapToCandle(context.snapCandles->at(context.mouseIndex), drawing.price1);
        drawing.price2 = drawing.price1;
        break;
    case ChartDrawing::Vertical:
        // With nothing visible there is nowhere to put the marker, so it stays.
        if (context.firstVisible <= context.lastVisible)
            drawing.index1 = std::clamp(saturatedAdd(drawing.index1, indexDelta),
                                        context.firstVisible, context.lastVisible);
        drawing.index2 = drawing.index1;
        break;
    case ChartDrawing::Trend:
        drawing.price1 += priceDelta;
        drawing.price2 += priceDelta;
        if (context.candleCount > 0) {
            const qint64 lastIndex = context.candleCount - 1;
            drawing.index1 =
                    std::clamp(saturatedAdd(drawing.index1, indexDelta), qint64(0), lastIndex);
            drawing.index2 =
                    std::clamp(saturatedAdd(drawing.index2, indexDelta), qint64(0), lastIndex);
        }
        if (validCandle(context.snapCandles, drawing.index1))
            drawing.price1 = snapToCandle(context.snapCandles->at(drawing.index1), drawing.price1);
        if (validCandle(context.snapCandles, drawing.index2))
            drawing.price2 = snapToCandle(context.snapCandles->at(drawing.index2), drawing.price2);
        break;
    }
}
