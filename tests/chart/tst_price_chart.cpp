#include "chart/chart_geometry.h"
#include "chart/price_chart.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QMenu>
#include <QMouseEvent>
#include <QTest>
#include <QWheelEvent>

#include <cmath>

namespace {

constexpr QSize kChartSize(600, 400);

Candle candle(qint64 index, double open, double high, double low, double close, double volume = 100)
{
    return Candle{1700000000 + index * 3600, open, high, low, close, volume};
}

// A gentle wave, so every indicator has values and the candles alternate in colour.
QList<Candle> waveCandles(int count)
{
    QList<Candle> candles;
    candles.reserve(count);
    for (int i = 0; i < count; ++i) {
        const double mid = 100 + 10 * std::sin(i / 15.0);
        const double open = mid + (i % 2 ? 1.0 : -1.0);
        const double close = mid - (i % 2 ? 1.0 : -1.0);
        candles.append(candle(i, open, std::max(open, close) + 1.5, std::min(open, close) - 1.5,
                              close, 50 + i % 7));
    }
    return candles;
}

// Counts the chart's messages, change and tool callbacks and every question it asks; a question
// a test did not script is cancelled.
struct Recorder
{
    QStringList messages;
    int changes = 0;
    int questions = 0;
    PriceChart::Dialogs dialogs;

    void attach(PriceChart &chart)
    {
        chart.setMessageCallback([this](const QString &message) { messages << message; });
        chart.setChangeCallback([this] { ++changes; });
        dialogs.askDouble = [this](QWidget *, const QString &, const QString &, double, double,
                                   double, int) -> std::optional<double> {
            ++questions;
            return std::nullopt;
        };
        dialogs.askInt = [this](QWidget *, const QString &, const QString &, int, int,
                                int) -> std::optional<int> {
            ++questions;
            return std::nullopt;
        };
        dialogs.askText = [this](QWidget *, const QString &, const QString &,
                                 const QString &) -> std::optional<QString> {
            ++questions;
            return std::nullopt;
        };
        dialogs.askColor = [this](QWidget *, const QColor &, const QString &) {
            ++questions;
            return QColor();
        };
        dialogs.askTrend = [this](QWidget *, ChartDrawing &) {
            ++questions;
            return false;
        };
        dialogs.confirm = [this](QWidget *, const QString &, const QString &) {
            ++questions;
            return false;
        };
        dialogs.keyboardModifiers = [] { return Qt::KeyboardModifiers(); };
        chart.setDialogs(dialogs);
    }
};

void mouse(PriceChart &chart, QEvent::Type type, const QPointF &pos, Qt::MouseButton button,
           Qt::KeyboardModifiers modifiers = {})
{
    const Qt::MouseButtons buttons =
            type == QEvent::MouseButtonRelease ? Qt::MouseButtons() : Qt::MouseButtons(button);
    QMouseEvent event(type, pos, chart.mapToGlobal(pos),
                      type == QEvent::MouseMove ? Qt::NoButton : button, buttons, modifiers);
    QApplication::sendEvent(&chart, &event);
}

void drag(PriceChart &chart, const QPointF &from, const QPointF &to,
          Qt::MouseButton button = Qt::LeftButton, Qt::KeyboardModifiers modifiers = {})
{
    mouse(chart, QEvent::MouseButtonPress, from, button, modifiers);
    mouse(chart, QEvent::MouseMove, (from + to) / 2, button, modifiers);
    mouse(chart, QEvent::MouseMove, to, button, modifiers);
    mouse(chart, QEvent::MouseButtonRelease, to, button, modifiers);
}

bool wheel(PriceChart &chart, const QPointF &pos, int delta)
{
    QWheelEvent event(pos, chart.mapToGlobal(pos), QPoint(), QPoint(0, delta), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&chart, &event);
    return event.isAccepted();
}

ChartGeometry chartGeometry(const PriceChart &chart)
{
    return ChartGeometry::compute(QRectF(chart.rect()), chart.candles(), chart.view());
}

ChartDrawing horizontalAt(double price, bool locked = false)
{
    ChartDrawing drawing;
    drawing.type = ChartDrawing::Horizontal;
    drawing.price1 = price;
    drawing.price2 = price;
    drawing.locked = locked;
    drawing.color = QColor(Qt::blue);
    return drawing;
}

} // namespace

class PriceChartTest : public QObject
{
    Q_OBJECT

private slots:
    void candlesTakeTheirDirectionColour_data();
    void candlesTakeTheirDirectionColour();
    void nothingIsDrawnOutsideThePlot();
    void twoCandlesOnlyHover();
    void indicatorsWithoutValuesDrawNothing_data();
    void indicatorsWithoutValuesDrawNothing();
    void wheelZoomStopsAtTheMinimumSpan_data();
    void wheelZoomStopsAtTheMinimumSpan();
    void narrowZoomBoxLeavesTheView_data();
    void narrowZoomBoxLeavesTheView();
    void shortTrendDragCreatesNothing_data();
    void shortTrendDragCreatesNothing();
    void horizontalLineSnapsWithCtrl_data();
    void horizontalLineSnapsWithCtrl();
    void lockedDrawingPansInsteadOfDragging_data();
    void lockedDrawingPansInsteadOfDragging();
    void contextMenuTogglesAndReports_data();
    void contextMenuTogglesAndReports();
    void cancelledMacdQuestionKeepsAllPeriods();
    void clearSchemesNeedsYes();
    void longHistoryPaintsLikeItsVisibleSpan_data();
    void longHistoryPaintsLikeItsVisibleSpan();
};

void PriceChartTest::candlesTakeTheirDirectionColour_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QColor>("colour");
    QTest::newRow("close above open") << 0 << QColor(0x20, 0xc8, 0x78);
    QTest::newRow("close below open") << 1 << QColor(0xf4, 0x5d, 0x5d);
    QTest::newRow("flat counts as up") << 2 << QColor(0x20, 0xc8, 0x78);
}

void PriceChartTest::candlesTakeTheirDirectionColour()
{
    QFETCH(int, index);
    QFETCH(QColor, colour);
    PriceChart chart;
    chart.resize(kChartSize);
    chart.setData("TEST",
                  {candle(0, 10, 13, 9, 12), candle(1, 12, 13, 9, 10), candle(2, 11, 12, 9, 11)}, 1,
                  "1h");
    const QImage image = chart.grab().toImage();
    const ChartGeometry g = chartGeometry(chart);
    const Candle &c = chart.candles().at(index);
    // Beside the wick, whose antialiased edges blend with the background.
    const QPoint body(int(g.slotCentre(index)) + 3, int(g.priceY((c.open + c.close) / 2)));
    QCOMPARE(image.pixelColor(body), colour);
}

void PriceChartTest::nothingIsDrawnOutsideThePlot()
{
    PriceChart chart;
    chart.resize(kChartSize);
    chart.setData("TEST", waveCandles(100), 0, "1h");
    IndicatorSettings settings;
    settings.sma = settings.ema = settings.vwap = settings.macd = true;
    chart.setIndicatorSettings(settings);
    const ChartGeometry g = chartGeometry(chart);
    const double abovePlot = g.maxPrice + (g.maxPrice - g.minPrice) * 8 / g.plot.height();
    ChartDrawing vertical;
    vertical.type = ChartDrawing::Vertical;
    vertical.index1 = vertical.index2 = 101; // just past the right edge
    vertical.label = "late";
    ChartDrawing trend;
    trend.type = ChartDrawing::Trend;
    trend.index1 = -3;
    trend.index2 = 103;
    trend.price1 = g.minPrice - 50;
    trend.price2 = g.maxPrice + 50;
    trend.label = "steep";
    chart.setDrawings({horizontalAt(abovePlot), vertical, trend});
    chart.setLightTheme(true);

    const QImage image = chart.grab().toImage();
    const QColor background(Qt::white);
    const QRect plot = g.plot.toAlignedRect();
    auto checkBand = [&](const QRect &band) {
        for (int y = band.top(); y <= band.bottom(); ++y) {
            for (int x = band.left(); x <= band.right(); ++x) {
                if (image.pixelColor(x, y) != background)
                    return QStringLiteral("painted at %1,%2").arg(x).arg(y);
            }
        }
        return QString();
    };
    QCOMPARE(checkBand(QRect(QPoint(1, plot.top()), QPoint(plot.left() - 2, plot.bottom()))),
             QString());
    QCOMPARE(
            checkBand(QRect(QPoint(plot.right() + 2, 1), QPoint(chart.width() - 2, plot.bottom()))),
            QString());
    QCOMPARE(checkBand(QRect(QPoint(chart.width() / 2, 1),
                             QPoint(chart.width() - 2, plot.top() - 2))),
             QString());
}

void PriceChartTest::indicatorsWithoutValuesDrawNothing_data()
{
    // An indicator without a value draws nothing and leaves its legend slot to the next one.
    QTest::addColumn<QString>("indicator");
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("zeroVolume");
    QTest::addColumn<QColor>("absent");
    QTest::newRow("19 candles, SMA 20") << "sma" << 19 << false << QColor(0x5e, 0xa1, 0xff);
    QTest::newRow("no volume, no VWAP") << "vwap" << 40 << true << QColor(0xd5, 0x6b, 0xff);
    QTest::newRow("one candle, MACD box only") << "macd" << 1 << false << QColor(0x20, 0xc8, 0x78);
}

void PriceChartTest::indicatorsWithoutValuesDrawNothing()
{
    QFETCH(QString, indicator);
    QFETCH(int, count);
    QFETCH(bool, zeroVolume);
    QFETCH(QColor, absent);
    QList<Candle> candles = waveCandles(count);
    for (Candle &bar : candles)
        bar.volume = zeroVolume ? 0 : bar.volume;
    PriceChart chart;
    chart.resize(kChartSize);
    chart.setData("TEST", candles, 1, "1h");
    IndicatorSettings settings;
    settings.sma = indicator == "sma";
    settings.vwap = indicator == "vwap";
    settings.macd = indicator == "macd";
    settings.ema = indicator != "macd";
    chart.setIndicatorSettings(settings);
    const QImage image = chart.grab().toImage();
    const ChartGeometry g = chartGeometry(chart);
    // One candle: the MACD line and signal are flat at 0, so the pane is its box alone.
    const QRect area = indicator == "macd"
                               ? QRectF(g.plot.left() + 7, g.plot.bottom() - 75, 238, 66).toRect()
                               : g.plot.toAlignedRect().adjusted(1, 1, -1, -1);
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            QVERIFY2(image.pixelColor(x, y) != absent,
                     qPrintable(QStringLiteral("%1,%2").arg(x).arg(y)));
    }
    if (indicator == "sma") {
        // The EMA label takes the first slot.
        bool emaInFirstSlot = false;
        const QRect slot(int(g.plot.right()) - 160, int(g.plot.top()) + 4, 156, 16);
        for (int y = slot.top(); y <= slot.bottom() && !emaInFirstSlot; ++y) {
            for (int x = slot.left(); x <= slot.right() && !emaInFirstSlot; ++x)
                emaInFirstSlot = image.pixelColor(x, y) == QColor(0xf3, 0xb2, 0x4a);
        }
        QVERIFY(emaInFirstSlot);
    }
}

void PriceChartTest::twoCandlesOnlyHover()
{
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    chart.setData("TEST", {candle(0, 10, 12, 9, 11), candle(1, 11, 13, 10, 12)}, 1, "1h");
    chart.setDrawings({horizontalAt(11)});
    const ChartGeometry g = chartGeometry(chart);
    const QPointF centre = g.plot.center();

    QVERIFY(!wheel(chart, centre, 120));
    QCOMPARE(chart.view().span(), 1.0);

    drag(chart, QPointF(centre.x(), g.priceY(11)), centre + QPointF(80, 40));
    drag(chart, centre, centre + QPointF(-80, 0), Qt::LeftButton, Qt::ShiftModifier);
    chart.setDrawMode(PriceChart::HorizontalLine);
    drag(chart, centre, centre);
    QCOMPARE(chart.view().span(), 1.0);
    QCOMPARE(chart.drawings().size(), 1);
    QCOMPARE(chart.drawings().at(0).price1, 11.0);
    QCOMPARE(recorder.questions, 0);
    QCOMPARE(recorder.changes, 0);

    mouse(chart, QEvent::MouseMove, QPointF(g.plot.right() - 2, centre.y()), Qt::NoButton);
    QCOMPARE(chart.hoverIndex(), 1);
    mouse(chart, QEvent::MouseMove, QPointF(g.plot.left() + 2, centre.y()), Qt::NoButton);
    QCOMPARE(chart.hoverIndex(), 0);
}

void PriceChartTest::wheelZoomStopsAtTheMinimumSpan_data()
{
    QTest::addColumn<double>("anchor");
    QTest::newRow("left edge") << 0.0;
    QTest::newRow("middle") << 0.5;
    QTest::newRow("right edge") << 1.0;
}

void PriceChartTest::wheelZoomStopsAtTheMinimumSpan()
{
    QFETCH(double, anchor);
    PriceChart chart;
    chart.resize(kChartSize);
    chart.setData("TEST", waveCandles(500), 1, "1h");
    const ChartGeometry g = chartGeometry(chart);
    const QPointF at(g.plot.left() + anchor * g.plot.width(), g.plot.center().y());
    for (int i = 0; i < 40; ++i)
        QVERIFY(wheel(chart, at, 120));
    QVERIFY(std::abs(chart.view().span() - kMinimumViewSpan) < 1e-9);
    QVERIFY(chart.view().start >= 0.0 && chart.view().end <= 1.0);
    // The anchored edge stays where it was.
    if (anchor == 0.0)
        QCOMPARE(chart.view().start, 0.0);
    if (anchor == 1.0)
        QCOMPARE(chart.view().end, 1.0);
    QVERIFY(wheel(chart, at, -120));
    QVERIFY(chart.view().span() > kMinimumViewSpan + 0.01);
}

void PriceChartTest::narrowZoomBoxLeavesTheView_data()
{
    QTest::addColumn<double>("width");
    QTest::addColumn<bool>("zooms");
    QTest::newRow("2 % of the plot") << 0.02 << false;
    QTest::newRow("2.5 % of the plot") << 0.025 << false;
    QTest::newRow("half the plot") << 0.5 << true;
}

void PriceChartTest::narrowZoomBoxLeavesTheView()
{
    QFETCH(double, width);
    QFETCH(bool, zooms);
    PriceChart chart;
    chart.resize(kChartSize);
    chart.setData("TEST", waveCandles(200), 1, "1h");
    const ChartGeometry g = chartGeometry(chart);
    const QPointF from(g.plot.left() + 0.25 * g.plot.width(), g.plot.center().y());
    drag(chart, from, from + QPointF(width * g.plot.width(), 0), Qt::LeftButton, Qt::ShiftModifier);
    if (zooms) {
        QVERIFY(std::abs(chart.view().start - 0.25) < 0.01);
        QVERIFY(std::abs(chart.view().span() - width) < 0.01);
    } else {
        QCOMPARE(chart.view().start, 0.0);
        QCOMPARE(chart.view().end, 1.0);
    }
}

void PriceChartTest::shortTrendDragCreatesNothing_data()
{
    QTest::addColumn<QPointF>("offset");
    QTest::addColumn<bool>("asks");
    QTest::addColumn<bool>("accept");
    QTest::newRow("7 px across") << QPointF(7, 0) << false << false;
    QTest::newRow("7.07 px diagonal") << QPointF(5, 5) << false << false;
    QTest::newRow("8 px down") << QPointF(0, 8) << true << true;
    QTest::newRow("8.49 px diagonal") << QPointF(-6, 6) << true << true;
    QTest::newRow("long drag, cancelled") << QPointF(120, -40) << true << false;
}

void PriceChartTest::shortTrendDragCreatesNothing()
{
    QFETCH(QPointF, offset);
    QFETCH(bool, asks);
    QFETCH(bool, accept);
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    int trendQuestions = 0;
    recorder.dialogs.askTrend = [&](QWidget *, ChartDrawing &trend) {
        ++trendQuestions;
        trend.label.clear();
        return accept;
    };
    chart.setDialogs(recorder.dialogs);
    chart.setData("TEST", waveCandles(60), 1, "1h");
    chart.setDrawMode(PriceChart::TrendLine);
    const QPointF start = chartGeometry(chart).plot.center();
    drag(chart, start, start + offset);

    QCOMPARE(trendQuestions, asks ? 1 : 0);
    QCOMPARE(chart.drawings().size(), accept ? 1 : 0);
    QCOMPARE(chart.drawMode(), asks ? PriceChart::Select : PriceChart::TrendLine);
    QCOMPARE(recorder.changes, accept ? 1 : 0);
    QCOMPARE(recorder.messages.contains("Drawing added: trend"), accept);
    if (accept)
        QCOMPARE(chart.drawings().at(0).label, QString("Trend"));
}

void PriceChartTest::horizontalLineSnapsWithCtrl_data()
{
    QTest::addColumn<bool>("ctrl");
    QTest::addColumn<double>("pointedPrice");
    QTest::addColumn<double>("offeredPrice");
    QTest::newRow("without Ctrl the pointed price") << false << 13.6 << 13.6;
    QTest::newRow("with Ctrl the nearest high") << true << 13.6 << 14.0;
    QTest::newRow("with Ctrl the nearest close") << true << 12.3 << 12.0;
    QTest::newRow("with Ctrl the nearest low") << true << 8.4 << 8.0;
}

void PriceChartTest::horizontalLineSnapsWithCtrl()
{
    QFETCH(bool, ctrl);
    QFETCH(double, pointedPrice);
    QFETCH(double, offeredPrice);
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    double offered = qQNaN();
    recorder.dialogs.askDouble = [&](QWidget *, const QString &, const QString &, double value,
                                     double, double, int) -> std::optional<double> {
        offered = value;
        return value;
    };
    recorder.dialogs.askColor = [](QWidget *, const QColor &, const QString &) {
        return QColor(Qt::red);
    };
    recorder.dialogs.keyboardModifiers = [ctrl] {
        return ctrl ? Qt::ControlModifier : Qt::NoModifier;
    };
    chart.setDialogs(recorder.dialogs);
    chart.setData("TEST",
                  {candle(0, 10, 14, 8, 12), candle(1, 10, 14, 8, 12), candle(2, 10, 14, 8, 12)}, 1,
                  "1h");
    chart.setDrawMode(PriceChart::HorizontalLine);
    const ChartGeometry g = chartGeometry(chart);
    const QPointF at(g.plot.center().x(), g.priceY(pointedPrice));
    mouse(chart, QEvent::MouseButtonPress, at, Qt::LeftButton);
    mouse(chart, QEvent::MouseButtonRelease, at, Qt::LeftButton);

    QVERIFY(std::abs(offered - offeredPrice) < 0.03);
    QCOMPARE(chart.drawings().size(), 1);
    const ChartDrawing &line = chart.drawings().at(0);
    QCOMPARE(line.type, ChartDrawing::Horizontal);
    QCOMPARE(line.price1, offered);
    QCOMPARE(line.color, QColor(Qt::red));
    QCOMPARE(line.label, QString::number(offered, 'f', 4));
    QVERIFY(recorder.messages.contains(
            QStringLiteral("Drawing added: horizontal %1").arg(offered, 0, 'f', 4)));
    QCOMPARE(chart.drawMode(), PriceChart::Select);
    QCOMPARE(recorder.changes, 1);
}

void PriceChartTest::lockedDrawingPansInsteadOfDragging_data()
{
    QTest::addColumn<bool>("locked");
    QTest::newRow("locked line") << true;
    QTest::newRow("unlocked line") << false;
}

void PriceChartTest::lockedDrawingPansInsteadOfDragging()
{
    QFETCH(bool, locked);
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    chart.setData("TEST", waveCandles(300), 1, "1h");
    const QPointF centre = chartGeometry(chart).plot.center();
    for (int i = 0; i < 4; ++i)
        wheel(chart, centre, 120);
    const ChartView zoomed = chart.view();
    const ChartGeometry g = chartGeometry(chart);
    const double price = (g.minPrice + g.maxPrice) / 2;
    chart.setDrawings({horizontalAt(price, locked)});

    drag(chart, QPointF(centre.x(), g.priceY(price)),
         QPointF(centre.x() + 90, g.priceY(price) + 40));

    QCOMPARE(chart.view().start != zoomed.start, locked);
    QCOMPARE(chart.drawings().at(0).price1 != price, !locked);
    QCOMPARE(recorder.changes, locked ? 0 : 1);
    if (!locked)
        QVERIFY(chart.drawings().at(0).price1 < price);
}

void PriceChartTest::contextMenuTogglesAndReports_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("sendsLegend");
    QTest::newRow("SMA") << "indicatorSma" << true;
    QTest::newRow("EMA") << "indicatorEma" << true;
    QTest::newRow("VWAP") << "indicatorVwap" << true;
    QTest::newRow("MACD") << "indicatorMacd" << true;
    QTest::newRow("hide horizontal lines") << "showHLines" << false;
}

void PriceChartTest::contextMenuTogglesAndReports()
{
    QFETCH(QString, action);
    QFETCH(bool, sendsLegend);
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    chart.setData("BTCUSDT", waveCandles(120), 1, "1h");
    const IndicatorSettings before = chart.indicatorSettings();

    QMenu *menu = chart.createContextMenu(chartGeometry(chart).plot.center().toPoint());
    QAction *entry = menu->findChild<QAction *>(action);
    QVERIFY(entry);
    entry->trigger();
    delete menu;

    QVERIFY(before.toJson() != chart.indicatorSettings().toJson());
    QCOMPARE(recorder.changes, 1);
    const QString legend =
            indicatorLegendMessage(chart.symbol(), chart.candles(), chart.indicatorSettings());
    QCOMPARE(recorder.messages, sendsLegend ? QStringList{legend} : QStringList{});
    if (sendsLegend)
        QVERIFY(legend.startsWith("Indicators BTCUSDT"));
}

void PriceChartTest::cancelledMacdQuestionKeepsAllPeriods()
{
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    QList<int> answers{5, 3};
    recorder.dialogs.askInt = [&](QWidget *, const QString &, const QString &, int, int minimum,
                                  int) -> std::optional<int> {
        if (answers.isEmpty())
            return std::nullopt;
        return std::max(answers.takeFirst(), minimum);
    };
    chart.setDialogs(recorder.dialogs);
    chart.setData("TEST", waveCandles(60), 1, "1h");
    QMenu *menu = chart.createContextMenu(QPoint(100, 100));
    menu->findChild<QAction *>("configureMacd")->trigger();
    delete menu;
    QCOMPARE(chart.indicatorSettings().toJson(), IndicatorSettings().toJson());
    QCOMPARE(recorder.changes, 0);

    // Answered in full, a slow period at or below the fast one is pushed above it.
    answers = {30, 31, 4};
    menu = chart.createContextMenu(QPoint(100, 100));
    menu->findChild<QAction *>("configureMacd")->trigger();
    delete menu;
    QCOMPARE(chart.indicatorSettings().macdFast, 30);
    QCOMPARE(chart.indicatorSettings().macdSlow, 31);
    QCOMPARE(chart.indicatorSettings().macdSignal, 4);
    QCOMPARE(recorder.changes, 1);
}

void PriceChartTest::clearSchemesNeedsYes()
{
    PriceChart chart;
    chart.resize(kChartSize);
    Recorder recorder;
    recorder.attach(chart);
    bool yes = false;
    recorder.dialogs.confirm = [&](QWidget *, const QString &, const QString &) { return yes; };
    chart.setDialogs(recorder.dialogs);
    chart.setData("TEST", waveCandles(60), 1, "1h");
    IndicatorSettings settings;
    settings.sma = true;
    chart.setIndicatorSettings(settings);
    chart.setDrawings({horizontalAt(1)});

    for (bool answer : {false, true}) {
        yes = answer;
        QMenu *menu = chart.createContextMenu(QPoint(100, 100));
        menu->findChild<QAction *>("clearSchemes")->trigger();
        delete menu;
        QCOMPARE(chart.drawings().isEmpty(), answer);
        QCOMPARE(chart.indicatorSettings().sma, !answer);
        QCOMPARE(recorder.changes, answer ? 1 : 0);
    }
    QVERIFY(recorder.messages.isEmpty());
}

void PriceChartTest::longHistoryPaintsLikeItsVisibleSpan_data()
{
    QTest::addColumn<int>("style");
    QTest::newRow("candles") << 1;
    QTest::newRow("close line") << 0;
}

void PriceChartTest::longHistoryPaintsLikeItsVisibleSpan()
{
    QFETCH(int, style);
    // 4,001 candles on the whole width against 100,000 zoomed to the same 4,001, every overlay on.
    IndicatorSettings settings;
    settings.sma = settings.ema = settings.vwap = settings.macd = true;
    settings.vwapSession = true;
    PriceChart shortChart;
    PriceChart longChart;
    for (PriceChart *chart : {&shortChart, &longChart}) {
        chart->resize(kChartSize);
        chart->setIndicatorSettings(settings);
    }
    shortChart.setData("SHORT", waveCandles(4001), style, "1h");
    longChart.setData("LONG", waveCandles(100000), style, "1h");
    const QPointF right(chartGeometry(longChart).plot.right(), 100);
    for (int i = 0; i < 40; ++i)
        wheel(longChart, right, 120);
    QVERIFY(std::abs(chartGeometry(longChart).visibleCount() -
                     chartGeometry(shortChart).visibleCount()) <= 2);

    QImage image(kChartSize, QImage::Format_ARGB32_Premultiplied);
    auto paintCost = [&image](PriceChart &chart) {
        QElapsedTimer timer;
        timer.start();
        mouse(chart, QEvent::MouseMove, QPointF(300, 150), Qt::NoButton);
        chart.render(&image);
        return timer.nsecsElapsed();
    };
    paintCost(shortChart); // the first paint fills the series caches
    paintCost(longChart);
    qint64 shortBest = std::numeric_limits<qint64>::max();
    qint64 longBest = std::numeric_limits<qint64>::max();
    for (int round = 0; round < 5; ++round) {
        shortBest = std::min(shortBest, paintCost(shortChart));
        longBest = std::min(longBest, paintCost(longChart));
    }
    qInfo("paint: 4,001 candles %.2f ms, 100,000 candles %.2f ms", shortBest / 1e6, longBest / 1e6);
    QVERIFY2(longBest <= 5 * shortBest + 5'000'000,
             qPrintable(QStringLiteral("%1 ns against %2 ns").arg(longBest).arg(shortBest)));
}

QTEST_MAIN(PriceChartTest)
#include "tst_price_chart.moc"
