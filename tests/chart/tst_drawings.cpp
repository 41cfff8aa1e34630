#include "chart/drawings.h"

#include <QJsonDocument>
#include <QTest>

namespace {

QJsonObject objectFrom(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).object();
}

ChartDrawing drawingFrom(const QByteArray &text)
{
    return ChartDrawing::fromJson(objectFrom(text));
}

// One pixel per price unit from y = 500 upwards, ten pixels per candle.
DrawingScreen screenOf(qint64 firstVisible, qint64 lastVisible)
{
    DrawingScreen screen;
    screen.priceY = [](double price) { return 500.0 - price; };
    screen.indexX = [](qint64 index) { return 10.0 * static_cast<double>(index); };
    screen.firstVisible = firstVisible;
    screen.lastVisible = lastVisible;
    return screen;
}

const QList<Candle> kSnapCandles{
        {0, 10, 12, 9, 11, 1},
        {60, 20, 25, 18, 21, 1},
        {120, 30, 33, 28, 31, 1},
};

} // namespace

class DrawingsTest : public QObject
{
    Q_OBJECT

private slots:
    void snapPicksTheNearestPriceOfTheCandle_data();
    void snapPicksTheNearestPriceOfTheCandle();
    void hitTestFindsTheNewestDrawingInReach_data();
    void hitTestFindsTheNewestDrawingInReach();
    void drawingsReadWithDefaults_data();
    void drawingsReadWithDefaults();
    void drawingListsRoundTrip();
    void dragsStayWithinTheCandles_data();
    void dragsStayWithinTheCandles();
};

void DrawingsTest::snapPicksTheNearestPriceOfTheCandle_data()
{
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("snapped");
    // Open 10, high 12, low 9, close 11.
    QTest::newRow("nearest is the high") << 11.6 << 12.0;
    QTest::newRow("open and close tie: open") << 10.5 << 10.0;
    QTest::newRow("high and close tie: high") << 11.5 << 12.0;
    QTest::newRow("open and low tie: open") << 9.5 << 10.0;
    QTest::newRow("far below") << -50.0 << 9.0;
}

void DrawingsTest::snapPicksTheNearestPriceOfTheCandle()
{
    QFETCH(double, price);
    QFETCH(double, snapped);
    QCOMPARE(snapToCandle(kSnapCandles.first(), price), snapped);
}

void DrawingsTest::hitTestFindsTheNewestDrawingInReach_data()
{
    QTest::addColumn<QByteArray>("drawings");
    QTest::addColumn<bool>("showVertical");
    QTest::addColumn<QPointF>("point");
    QTest::addColumn<int>("hit");
    // The visible candles are 0..20, x 0..200.
    const QByteArray twoLines = R"([{"price1": 100}, {"price1": 101}])";
    QTest::newRow("overlapping lines: the later wins") << twoLines << true << QPointF(50, 400) << 1;
    QTest::newRow("just under the tolerance") << twoLines << true << QPointF(50, 406.9) << 0;
    QTest::newRow("at the tolerance") << twoLines << true << QPointF(50, 407) << -1;
    const QByteArray lineAndMarker = R"([{"price1": 100}, {"type": "vertical", "index1": 5}])";
    QTest::newRow("shown vertical") << lineAndMarker << true << QPointF(52, 400) << 1;
    QTest::newRow("hidden vertical is passed over")
            << lineAndMarker << false << QPointF(52, 400) << 0;
    QTest::newRow("vertical outside the visible range")
            << QByteArray(R"([{"type": "vertical", "index1": 25}])") << true << QPointF(250, 300)
            << -1;
    const QByteArray slope =
            R"([{"type": "trend", "index1": 2, "price1": 100, "index2": 8, "price2": 160}])";
    QTest::newRow("near the slope") << slope << true << QPointF(54, 374) << 0;
    QTest::newRow("on the slope's line past its end") << slope << true << QPointF(100, 320) << -1;
    const QByteArray pastView =
            R"([{"type": "trend", "index1": 2, "price1": 100, "index2": 30, "price2": 100}])";
    QTest::newRow("just past the clamped end") << pastView << true << QPointF(205, 400) << 0;
    QTest::newRow("beyond the clamped end") << pastView << true << QPointF(215, 400) << -1;
    QTest::newRow("a trend of one point")
            << QByteArray(R"([{"type": "trend", "index1": 3, "price1": 100}])") << true
            << QPointF(33, 404) << 0;
    QTest::newRow("no drawings") << QByteArray("[]") << true << QPointF(0, 0) << -1;
}

void DrawingsTest::hitTestFindsTheNewestDrawingInReach()
{
    QFETCH(QByteArray, drawings);
    QFETCH(bool, showVertical);
    QFETCH(QPointF, point);
    QFETCH(int, hit);
    DrawingVisibility visibility;
    visibility.vertical = showVertical;
    const auto list = drawingsFromJson(QJsonDocument::fromJson(drawings).array());
    QCOMPARE(hitTestDrawings(list, visibility, screenOf(0, 20), point), hit);
}

void DrawingsTest::drawingsReadWithDefaults_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<QByteArray>("read");
    QTest::newRow("empty object")
            << QByteArray("{}")
            << QByteArray(R"({"type": "horizontal", "price1": 0, "price2": 0, "index1": 0,
                "index2": 0, "label": "", "locked": false, "color": "#f3b24a"})");
    QTest::newRow("second end follows the first")
            << QByteArray(R"({"type": "trend", "price1": 5.5, "index1": 3, "color": "nocolour"})")
            << QByteArray(R"({"type": "trend", "price1": 5.5, "price2": 5.5, "index1": 3,
                "index2": 3, "label": "", "locked": false, "color": "#f3b24a"})");
    QTest::newRow("everything given")
            << QByteArray(R"({"type": "vertical", "price1": 1, "price2": 7, "index1": 2,
                "index2": 4, "label": "Earnings", "locked": true, "color": "#102030"})")
            << QByteArray(R"({"type": "vertical", "price1": 1, "price2": 7, "index1": 2,
                "index2": 4, "label": "Earnings", "locked": true, "color": "#102030"})");
    QTest::newRow("unknown type text")
            << QByteArray(R"({"type": "Trend", "price1": 3})")
            << QByteArray(R"({"type": "horizontal", "price1": 3, "price2": 3, "index1": 0,
                "index2": 0, "label": "", "locked": false, "color": "#f3b24a"})");
    QTest::newRow("wrong types read as missing")
            << QByteArray(R"({"type": 2, "price1": "5", "price2": true, "index1": "3",
                "index2": 1.5e300, "label": 7, "locked": "true", "color": 5})")
            << QByteArray(R"({"type": "horizontal", "price1": 0, "price2": 0, "index1": 0,
                "index2": 0, "label": "", "locked": false, "color": "#f3b24a"})");
}

void DrawingsTest::drawingsReadWithDefaults()
{
    QFETCH(QByteArray, stored);
    QFETCH(QByteArray, read);
    QCOMPARE(drawingFrom(stored).toJson(), objectFrom(read));
}

void DrawingsTest::drawingListsRoundTrip()
{
    const QJsonArray stored = QJsonDocument::fromJson(R"([1, {"type": "trend", "index2": 9},
        "text", null, [], {"type": "vertical", "label": "Open", "color": "#ABCDEF"}])")
                                      .array();
    const QList<ChartDrawing> drawings = drawingsFromJson(stored);
    QCOMPARE(drawings.size(), 2);
    QCOMPARE(drawings[0].type, ChartDrawing::Trend);
    QCOMPARE(drawings[1].type, ChartDrawing::Vertical);
    const QJsonArray written = drawingsToJson(drawings);
    QCOMPARE(written.size(), 2);
    QCOMPARE(written[1].toObject().value(QLatin1String("color")).toString(), "#abcdef");
    QCOMPARE(drawingsToJson(drawingsFromJson(written)), written);

    QCOMPARE(drawingsKey(QStringLiteral("BTCUSDT"), QStringLiteral("1h")), "BTCUSDT|1h");
    QCOMPARE(drawingsKey(QString(), QStringLiteral("1h")), QString());
}

void DrawingsTest::dragsStayWithinTheCandles_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<double>("priceDelta");
    QTest::addColumn<qint64>("indexDelta");
    QTest::addColumn<bool>("snap");
    QTest::addColumn<qint64>("mouseIndex");
    QTest::addColumn<QByteArray>("after");
    // Three candles, candles 1..2 visible; see kSnapCandles for the snapping prices.
    QTest::newRow("line moves by the price")
            << QByteArray(R"({"price1": 10})") << 2.5 << qint64(0) << false << qint64(-1)
            << QByteArray(R"({"price1": 12.5})");
    QTest::newRow("line snaps to the candle under the mouse")
            << QByteArray(R"({"price1": 10})") << 12.0 << qint64(0) << true << qint64(1)
            << QByteArray(R"({"price1": 21})");
    QTest::newRow("no candle under the mouse, no snap")
            << QByteArray(R"({"price1": 10})") << 12.0 << qint64(0) << true << qint64(-1)
            << QByteArray(R"({"price1": 22})");
    QTest::newRow("marker held at the last visible")
            << QByteArray(R"({"type": "vertical", "index1": 1, "index2": 0})") << 5.0 << qint64(9)
            << false << qint64(-1) << QByteArray(R"({"type": "vertical", "index1": 2})");
    QTest::newRow("marker held at the first visible")
            << QByteArray(R"({"type": "vertical", "index1": 2})") << 0.0 << qint64(-9) << false
            << qint64(-1) << QByteArray(R"({"type": "vertical", "index1": 1})");
    QTest::newRow("trend ends held inside the candles")
            << QByteArray(R"({"type": "trend", "index1": 0, "index2": 1, "price2": 3})") << 1.0
            << qint64(5) << false << qint64(-1)
            << QByteArray(
                       R"({"type": "trend", "index1": 2, "index2": 2, "price1": 1, "price2": 4})");
    QTest::newRow("trend far past the end does not wrap")
            << QByteArray(R"({"type": "trend", "index1": 9.2e18, "index2": 0})") << 0.0
            << qint64(9.2e18) << false << qint64(-1)
            << QByteArray(R"({"type": "trend", "index1": 2, "index2": 2})");
    QTest::newRow("each trend end snaps to its own candle, ties to the open")
            << QByteArray(R"({"type": "trend", "index1": 0, "price1": 24.6, "index2": 1,
                "price2": 29})")
            << 0.0 << qint64(1) << true << qint64(0)
            << QByteArray(R"({"type": "trend", "index1": 1, "price1": 25, "index2": 2,
                "price2": 30})");
}

void DrawingsTest::dragsStayWithinTheCandles()
{
    QFETCH(QByteArray, before);
    QFETCH(double, priceDelta);
    QFETCH(qint64, indexDelta);
    QFETCH(bool, snap);
    QFETCH(qint64, mouseIndex);
    QFETCH(QByteArray, after);
    DragContext context;
    context.candleCount = kSnapCandles.size();
    context.firstVisible = 1;
    context.lastVisible = 2;
    context.snapCandles = snap ? &kSnapCandles : nullptr;
    context.mouseIndex = mouseIndex;
    ChartDrawing drawing = drawingFrom(before);
    dragDrawing(drawing, priceDelta, indexDelta, context);
    QCOMPARE(drawing.toJson(), drawingFrom(after).toJson());
}

QTEST_GUILESS_MAIN(DrawingsTest)
#include "tst_drawings.moc"
