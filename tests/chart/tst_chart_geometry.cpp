#include "chart/chart_geometry.h"

#include <QTest>

#include <ctime>

namespace {

// An 818 x 510 widget leaves a plot of (18, 18, 782, 400).
const QRectF kWidget(0, 0, 818, 510);

QList<Candle> risingCandles(int count)
{
    QList<Candle> candles;
    for (int i = 0; i < count; ++i) {
        const double base = 100.0 + i;
        candles.append({1700000000 + i * 60, base, base + 2.0, base - 2.0, base + 1.0, 10.0});
    }
    return candles;
}

ChartView viewOf(double start, double end)
{
    ChartView view;
    view.start = start;
    view.end = end;
    return view;
}

} // namespace

class ChartGeometryTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void axisTicksSpreadOverTheVisibleCandles_data();
    void axisTicksSpreadOverTheVisibleCandles();
    void repeatedWheelZoomStopsAtItsLimits_data();
    void repeatedWheelZoomStopsAtItsLimits();
    void panningStaysInsideTheHistory_data();
    void panningStaysInsideTheHistory();
    void boxZoomNeedsMoreThanThreePercent_data();
    void boxZoomNeedsMoreThanThreePercent();
    void priceRangeCoversOnlyVisibleCandles_data();
    void priceRangeCoversOnlyVisibleCandles();
    void screenPositionsRoundTrip_data();
    void screenPositionsRoundTrip();
    void tinyHistoriesStayUsable_data();
    void tinyHistoriesStayUsable();
    void timeLabelsFollowTheTimeframe_data();
    void timeLabelsFollowTheTimeframe();
};

void ChartGeometryTest::initTestCase()
{
    qputenv("TZ", "UTC");
    tzset();
}

void ChartGeometryTest::axisTicksSpreadOverTheVisibleCandles_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("end");
    QTest::addColumn<QList<qint64>>("ticks");
    QTest::newRow("100 candles, halves round away from zero")
            << 100 << 0.0 << 1.0 << QList<qint64>{0, 20, 40, 59, 79, 99};
    QTest::newRow("second half of 101")
            << 101 << 0.5 << 1.0 << QList<qint64>{50, 60, 70, 80, 90, 100};
    QTest::newRow("one candle") << 1 << 0.0 << 1.0 << QList<qint64>{0, 0, 0, 0, 0, 0};
    QTest::newRow("no candles") << 0 << 0.0 << 1.0 << QList<qint64>{};
}

void ChartGeometryTest::axisTicksSpreadOverTheVisibleCandles()
{
    QFETCH(int, count);
    QFETCH(double, start);
    QFETCH(double, end);
    QFETCH(QList<qint64>, ticks);
    const auto geometry = ChartGeometry::compute(kWidget, risingCandles(count), viewOf(start, end));
    QCOMPARE(geometry.axisTicks(), ticks);
}

void ChartGeometryTest::repeatedWheelZoomStopsAtItsLimits_data()
{
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("end");
    QTest::addColumn<double>("anchor");
    QTest::addColumn<bool>("zoomIn");
    QTest::addColumn<double>("expectedStart");
    QTest::addColumn<double>("expectedEnd");
    QTest::newRow("in at the left edge") << 0.0 << 1.0 << 0.0 << true << 0.0 << 0.04;
    QTest::newRow("in at the right edge") << 0.0 << 1.0 << 1.0 << true << 0.96 << 1.0;
    QTest::newRow("in at the centre") << 0.0 << 1.0 << 0.5 << true << 0.48 << 0.52;
    QTest::newRow("out from a corner") << 0.9 << 0.95 << 0.2 << false << 0.0 << 1.0;
    QTest::newRow("out from the middle") << 0.4 << 0.5 << 0.5 << false << 0.0 << 1.0;
}

void ChartGeometryTest::repeatedWheelZoomStopsAtItsLimits()
{
    QFETCH(double, start);
    QFETCH(double, end);
    QFETCH(double, anchor);
    QFETCH(bool, zoomIn);
    QFETCH(double, expectedStart);
    QFETCH(double, expectedEnd);
    ChartView view = viewOf(start, end);
    for (int i = 0; i < 40; ++i)
        view.zoom(anchor, zoomIn);
    QVERIFY(qAbs(view.start - expectedStart) < 1e-9);
    QVERIFY(qAbs(view.end - expectedEnd) < 1e-9);
    QVERIFY(view.span() >= kMinimumViewSpan - 1e-12);
}

void ChartGeometryTest::panningStaysInsideTheHistory_data()
{
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("end");
    QTest::addColumn<double>("widthFraction");
    QTest::addColumn<double>("expectedStart");
    QTest::addColumn<double>("expectedEnd");
    QTest::newRow("inside") << 0.2 << 0.5 << 0.5 << 0.05 << 0.35;
    QTest::newRow("past the start pins 0") << 0.2 << 0.5 << 0.9 << 0.0 << 0.3;
    QTest::newRow("past the end pins 1") << 0.6 << 0.9 << -0.5 << 0.7 << 1.0;
    QTest::newRow("whole history does not move") << 0.0 << 1.0 << 0.4 << 0.0 << 1.0;
}

void ChartGeometryTest::panningStaysInsideTheHistory()
{
    QFETCH(double, start);
    QFETCH(double, end);
    QFETCH(double, widthFraction);
    QFETCH(double, expectedStart);
    QFETCH(double, expectedEnd);
    const ChartView remembered = viewOf(start, end);
    ChartView view = viewOf(0.3, 0.4); // the current view must not matter
    view.panFrom(remembered, widthFraction);
    QVERIFY(qAbs(view.start - expectedStart) < 1e-9);
    QVERIFY(qAbs(view.end - expectedEnd) < 1e-9);
}

void ChartGeometryTest::boxZoomNeedsMoreThanThreePercent_data()
{
    QTest::addColumn<double>("from");
    QTest::addColumn<double>("to");
    QTest::addColumn<bool>("zoomed");
    QTest::addColumn<double>("expectedStart");
    QTest::addColumn<double>("expectedEnd");
    // Applied to the view 0.2..0.6.
    QTest::newRow("2 % box") << 0.1 << 0.12 << false << 0.2 << 0.6;
    QTest::newRow("just under 3 %") << 0.5 << 0.529 << false << 0.2 << 0.6;
    QTest::newRow("dragged right to left") << 0.75 << 0.25 << true << 0.3 << 0.5;
    QTest::newRow("beyond the plot is clamped") << -0.5 << 1.5 << true << 0.2 << 0.6;
    QTest::newRow("narrow box widened to minimum span") << 0.5 << 0.54 << true << 0.4 << 0.44;
}

void ChartGeometryTest::boxZoomNeedsMoreThanThreePercent()
{
    QFETCH(double, from);
    QFETCH(double, to);
    QFETCH(bool, zoomed);
    QFETCH(double, expectedStart);
    QFETCH(double, expectedEnd);
    ChartView view = viewOf(0.2, 0.6);
    QCOMPARE(view.zoomToBox(from, to), zoomed);
    QVERIFY(qAbs(view.start - expectedStart) < 1e-9);
    QVERIFY(qAbs(view.end - expectedEnd) < 1e-9);
}

void ChartGeometryTest::priceRangeCoversOnlyVisibleCandles_data()
{
    QTest::addColumn<QList<Candle>>("candles");
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("minPrice");
    QTest::addColumn<double>("maxPrice");
    const Candle flat{0, 5, 5, 5, 5, 1};
    QTest::newRow("flat history widened") << QList<Candle>{flat, flat, flat} << 0.0 << 4.0 << 6.0;
    QList<Candle> spike = risingCandles(11); // lows 98..108, highs 102..112
    spike[0].high = 500.0;
    QTest::newRow("spike outside the view") << spike << 0.5 << 103.0 << 112.0;
    QTest::newRow("spike inside the view") << spike << 0.0 << 98.0 << 500.0;
}

void ChartGeometryTest::priceRangeCoversOnlyVisibleCandles()
{
    QFETCH(QList<Candle>, candles);
    QFETCH(double, start);
    QFETCH(double, minPrice);
    QFETCH(double, maxPrice);
    const auto geometry = ChartGeometry::compute(kWidget, candles, viewOf(start, 1.0));
    QCOMPARE(geometry.minPrice, minPrice);
    QCOMPARE(geometry.maxPrice, maxPrice);
}

void ChartGeometryTest::screenPositionsRoundTrip_data()
{
    QTest::addColumn<qint64>("index");
    QTest::addColumn<double>("price");
    QTest::newRow("first candle, lowest price") << qint64(25) << 123.0;
    QTest::newRow("middle") << qint64(40) << 140.5;
    QTest::newRow("last candle, highest price") << qint64(75) << 177.0;
}

void ChartGeometryTest::screenPositionsRoundTrip()
{
    QFETCH(qint64, index);
    QFETCH(double, price);
    // 101 candles with the view 0.25..0.75 show candles 25..75.
    const auto geometry = ChartGeometry::compute(kWidget, risingCandles(101), viewOf(0.25, 0.75));
    QCOMPARE(geometry.plot, QRectF(18, 18, 782, 400));
    QCOMPARE(geometry.volume, QRectF(18, 426, 782, 34));
    QCOMPARE(geometry.first, qint64(25));
    QCOMPARE(geometry.last, qint64(75));
    QCOMPARE(geometry.indexAt(geometry.indexX(index)), index);
    QCOMPARE(geometry.indexAt(geometry.indexX(index) + 7.0), index); // a slot is 15.6 px wide
    QVERIFY(qAbs(geometry.priceAt(geometry.priceY(price)) - price) < 1e-9);
    // Outside the plot the readings hold at its edges.
    QCOMPARE(geometry.indexAt(-100.0), qint64(25));
    QCOMPARE(geometry.indexAt(5000.0), qint64(75));
    QCOMPARE(geometry.priceAt(-100.0), geometry.maxPrice);
    QCOMPARE(geometry.priceAt(5000.0), geometry.minPrice);
}

void ChartGeometryTest::tinyHistoriesStayUsable_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<qint64>("first");
    QTest::addColumn<qint64>("last");
    QTest::addColumn<qint64>("visible");
    QTest::addColumn<qint64>("indexAtCentre");
    QTest::addColumn<double>("slotWidth");
    QTest::newRow("one candle") << 1 << qint64(0) << qint64(0) << qint64(1) << qint64(0) << 782.0;
    QTest::newRow("no candles") << 0 << qint64(0) << qint64(-1) << qint64(0) << qint64(-1) << 782.0;
}

void ChartGeometryTest::tinyHistoriesStayUsable()
{
    QFETCH(int, count);
    QFETCH(qint64, first);
    QFETCH(qint64, last);
    QFETCH(qint64, visible);
    QFETCH(qint64, indexAtCentre);
    QFETCH(double, slotWidth);
    const auto geometry = ChartGeometry::compute(kWidget, risingCandles(count), viewOf(0.0, 1.0));
    QCOMPARE(geometry.first, first);
    QCOMPARE(geometry.last, last);
    QCOMPARE(geometry.visibleCount(), visible);
    QCOMPARE(geometry.indexAt(400.0), indexAtCentre);
    QCOMPARE(geometry.slotWidth(), slotWidth);
    QCOMPARE(geometry.indexX(0), 18.0);
    QCOMPARE(geometry.slotCentre(0), 18.0 + 391.0);
    QVERIFY(geometry.maxPrice > geometry.minPrice);
}

void ChartGeometryTest::timeLabelsFollowTheTimeframe_data()
{
    QTest::addColumn<qint64>("time");
    QTest::addColumn<QString>("timeframe");
    QTest::addColumn<QString>("label");
    QTest::newRow("seconds, intraday") << qint64(1700000000) << "1h"
                                       << "22:13";
    QTest::newRow("milliseconds, intraday") << qint64(1700000000000) << "15m"
                                            << "22:13";
    QTest::newRow("seconds, daily") << qint64(1700000000) << "1d"
                                    << "14/11";
    QTest::newRow("milliseconds, monthly") << qint64(1700000000000) << "1mo"
                                           << "14/11";
    QTest::newRow("largest second stamp") << qint64(100000000000) << "1d"
                                          << "16/11";
    QTest::newRow("smallest millisecond stamp") << qint64(100000000001) << "1d"
                                                << "03/03";
}

void ChartGeometryTest::timeLabelsFollowTheTimeframe()
{
    QFETCH(qint64, time);
    QFETCH(QString, timeframe);
    QFETCH(QString, label);
    QCOMPARE(chartTimeLabel(time, timeframe), label);
}

QTEST_GUILESS_MAIN(ChartGeometryTest)
#include "tst_chart_geometry.moc"
