#include "scenarios.h"

#include "app/identity.h"
#include "chart/price_chart.h"
#include "market/market_row.h"
#include "measure.h"
#include "stream_frames.h"
#include "support/fake_provider.h"
#include "support/fake_websocket_server.h"
#include "support/isolated_folders.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/tape_panel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLabel>
#include <QMainWindow>
#include <QMouseEvent>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <QWebSocket>
#include <QWheelEvent>

#include <cstdio>
#include <memory>

namespace {

volatile int g_sink = 0; // keeps the bare parses from being optimised away

// The terminal over a watchlist, its REST services and streams on loopback fakes that answer
// nothing useful: every figure feeds its frames through the window's own handlers.
struct Terminal
{
    FakeProvider provider;
    FakeWebSocketServer streams;
    std::unique_ptr<IsolatedFolders> folders;
    std::unique_ptr<MainWindow> window;
};

bool settle(const Terminal &terminal, int quietMs)
{
    // Until the start-up requests stop coming: no late reply lands inside a measured region.
    qsizetype seen = -1;
    QElapsedTimer total;
    total.start();
    while (total.elapsed() < 120000) {
        QTest::qWait(quietMs);
        const qsizetype now = terminal.provider.requests().size();
        if (now == seen)
            return true;
        seen = now;
    }
    return false;
}

std::unique_ptr<Terminal> startTerminal(const QStringList &symbols, const QString &selected)
{
    auto terminal = std::make_unique<Terminal>();
    if (!terminal->provider.listen() || !terminal->streams.listen())
        return nullptr;
    terminal->folders = std::make_unique<IsolatedFolders>();
    terminal->provider.serveEveryEndpoint();
    terminal->streams.serveEveryStreamEndpoint();
    terminal->folders->writeFile(terminal->folders->expectedConfigFolder() +
                                         QStringLiteral("/watchlists/default.json"),
                                 watchlistJson(symbols));
    terminal->window = std::make_unique<MainWindow>();
    MainWindow &window = *terminal->window;
    window.resize(1400, 900);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return nullptr;
    window.startMarketData();
    if (!selected.isEmpty())
        window.marketTable()->selectRow(window.findMarketRow(selected));
    if (!settle(*terminal, 400))
        return nullptr;
    return terminal;
}

// Brings the side-pane tab holding `panel` to the front, as a user watching it would.
void showPanel(QWidget *panel)
{
    for (QWidget *widget = panel; widget; widget = widget->parentWidget()) {
        if (auto *tabs = qobject_cast<QTabWidget *>(
                    widget->parentWidget() ? widget->parentWidget()->parentWidget() : nullptr)) {
            tabs->setCurrentWidget(widget);
            return;
        }
    }
}

// Everything but painting that one screen frame does with the frames that arrived since the last
// one. Callgrind slows the wall clock fifty times, so the window's timers are not left to fire on
// it: the screen-frame work is flushed here, and the once-a-second work is measured apart and
// shared among the frames of a second. Painting is left out of the per-frame figures (the window's
// updates are off while they are measured): paints happen at screen rate whatever the frame rate,
// and the tape's repaints are counted apart.
void screenFrame(MainWindow &window)
{
    window.flushScreenFrame();
    QCoreApplication::sendPostedEvents();
}

void screenFrame()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

struct UpdatesOff
{
    explicit UpdatesOff(QWidget *widget)
        : widget(widget)
    {
        widget->setUpdatesEnabled(false);
    }
    ~UpdatesOff() { widget->setUpdatesEnabled(true); }
    QWidget *widget;
};

QList<QByteArray> utf8(const QStringList &texts)
{
    QList<QByteArray> bytes;
    for (const QString &text : texts)
        bytes << text.toUtf8();
    return bytes;
}

void bareParse(const QList<QByteArray> &frames)
{
    for (const QByteArray &frame : frames)
        g_sink = g_sink + int(QJsonDocument::fromJson(frame).isObject());
}

int tickerScenario()
{
    const QStringList symbols = benchPairs(300);
    auto terminal = startTerminal(symbols, symbols.value(7));
    if (!terminal)
        return 1;
    MainWindow &window = *terminal->window;
    auto feed = [&](const QStringList &frames) {
        for (int i = 0; i < frames.size(); ++i) {
            window.onTickerFrame(frames[i]);
            if (i % 5 == 4) // 300 pairs a second at 60 screen frames a second
                screenFrame(window);
        }
        screenFrame(window);
    };
    feed(tickerFrames(symbols, 1)); // warm-up: first-time allocations and caches
    window.repaint();
    screenFrame();

    const QStringList frames = tickerFrames(symbols, 2);
    bench::measure("parse", [&] { bareParse(utf8(frames)); });
    {
        UpdatesOff off(&window);
        bench::measure("apply", [&] { feed(frames); });
        // The screener follows quotes once a second: one rebuild (when it is in view) per 300
        // frames.
        bench::measure("screener_second", [&] { window.refreshScreenerIfShown(); });
    }
    window.marketTable()->sortByColumn(LastColumn, Qt::DescendingOrder);
    feed(tickerFrames(symbols, 3));
    window.repaint();
    const QStringList sorted = tickerFrames(symbols, 4);
    {
        UpdatesOff off(&window);
        bench::measure("apply_sorted", [&] { feed(sorted); });
    }
    return 0;
}

// BTCUSDT selected with its stream connected and the panel that shows it in front.
template<typename Panel>
std::unique_ptr<Terminal> startStreaming(QWebSocket *(MainWindow::*socket)(),
                                         Panel *(MainWindow::*panel)() const)
{
    auto terminal = startTerminal({QStringLiteral("BTCUSDT"), QStringLiteral("ETHUSDT")},
                                  QStringLiteral("BTCUSDT"));
    if (!terminal)
        return nullptr;
    MainWindow &window = *terminal->window;
    if (!QTest::qWaitFor(
                [&] { return (window.*socket)()->state() == QAbstractSocket::ConnectedState; }))
        return nullptr;
    showPanel((window.*panel)());
    QTest::qWait(300);
    return terminal;
}

int tradesScenario()
{
    auto terminal = startStreaming(&MainWindow::tradeSocket, &MainWindow::tapePanel);
    if (!terminal)
        return 1;
    MainWindow &window = *terminal->window;
    auto feed = [&](const QStringList &frames) {
        for (int i = 0; i < frames.size(); ++i) {
            window.onTradeFrame(frames[i]);
            if (i % 83 == 82) // 5,000 in a second at 60 screen frames a second
                screenFrame(window);
        }
        screenFrame(window);
    };
    feed(tradeFrames(QStringLiteral("BTCUSDT"), 5000, 1));
    const QStringList frames = tradeFrames(QStringLiteral("BTCUSDT"), 5000, 2);
    bench::measure("parse", [&] { bareParse(utf8(frames)); });
    UpdatesOff off(&window);
    bench::measure("apply", [&] { feed(frames); });
    return 0;
}

int tapeRepaintsScenario()
{
    auto terminal = startStreaming(&MainWindow::tradeSocket, &MainWindow::tapePanel);
    if (!terminal)
        return 1;
    MainWindow &window = *terminal->window;

    // 5,000 frames within one second of wall time, in 100 batches of 50, counting the paints the
    // tape's table receives meanwhile.
    struct PaintCounter : QObject
    {
        int paints = 0;
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::Paint)
                ++paints;
            return false;
        }
    } counter;
    auto *view = window.tapePanel()->findChild<QAbstractItemView *>();
    if (!view)
        return 1;
    view->viewport()->installEventFilter(&counter);
    const QStringList frames = tradeFrames(QStringLiteral("BTCUSDT"), 5000, 3);
    QElapsedTimer clock;
    clock.start();
    int sent = 0;
    while (sent < frames.size()) {
        const int due = int(std::min<qint64>(frames.size(), (clock.elapsed() + 10) * 5));
        for (; sent < due; ++sent)
            window.onTradeFrame(frames[sent]);
        QCoreApplication::processEvents();
    }
    while (clock.elapsed() < 1000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    bench::report(QStringLiteral("repaints"), counter.paints);
    bench::report(QStringLiteral("feed_ms"), double(clock.elapsed()));
    return 0;
}

int depthScenario()
{
    auto terminal = startStreaming(&MainWindow::depthSocket, &MainWindow::bookPanel);
    if (!terminal)
        return 1;
    MainWindow &window = *terminal->window;
    auto feed = [&](const QStringList &frames) {
        for (const QString &frame : frames) {
            window.onDepthFrame(frame); // ten a second: each has a screen frame of its own
            screenFrame(window);
        }
    };
    feed(depthFrames(QStringLiteral("BTCUSDT"), 50, 1));
    const QStringList frames = depthFrames(QStringLiteral("BTCUSDT"), 200, 2);
    bench::measure("parse", [&] { bareParse(utf8(frames)); });
    UpdatesOff off(&window);
    bench::measure("apply", [&] { feed(frames); });
    return 0;
}

int chartScenario()
{
    PriceChart chart;
    chart.resize(1000, 520);
    IndicatorSettings settings;
    settings.sma = settings.ema = settings.vwap = settings.macd = true;
    chart.setIndicatorSettings(settings);
    chart.show();
    if (!QTest::qWaitForWindowExposed(&chart))
        return 1;
    // A full paint, as after a resize: the chart keeps its drawing until what it shows changes.
    int width = chart.width();
    auto paint = [&] {
        width = width == 1000 ? 1001 : 1000;
        chart.resize(width, chart.height());
        screenFrame();
    };
    // The narrowest view of a history is 4% of it: 100,000 candles zoomed all the way in show the
    // last 4,000, compared with a 4,000-candle history shown whole. 180 candles are measured too.
    auto zoomToNarrowest = [&] {
        const QPointF right(chart.width() - 80, chart.height() / 2);
        for (int i = 0; i < 20; ++i) {
            QWheelEvent wheel(right, chart.mapToGlobal(right), QPoint(), QPoint(0, 120),
                              Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
            QCoreApplication::sendEvent(&chart, &wheel);
        }
    };
    chart.setData(QStringLiteral("BTCUSDT"), benchCandles(180), 1, QStringLiteral("1m"));
    paint();
    bench::measure("paint_180", paint);

    chart.setData(QStringLiteral("BTCUSDT"), benchCandles(4000), 1, QStringLiteral("1m"));
    paint();
    bench::measure("paint_4000", paint);

    chart.setData(QStringLiteral("BTCUSDT"), benchCandles(100000), 1, QStringLiteral("1m"));
    zoomToNarrowest();
    paint();
    bench::measure("paint_100k", paint);

    // Crosshair moves over the zoomed 100,000-candle chart, against its full paint.
    const int computed = chart.seriesComputations();
    QPointF at(200, 200);
    auto move = [&] {
        at += QPointF(3, 1);
        QMouseEvent event(QEvent::MouseMove, at, chart.mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(&chart, &event);
        screenFrame();
    };
    move();
    bench::measure("crosshair", move);
    bench::report(QStringLiteral("recomputed"), chart.seriesComputations() - computed);
    return 0;
}

// Start-up: from before the application object to the first paint of the window.
template<typename MakeWindow>
int startupScenario(int argc, char *argv[], const QStringList &symbols, MakeWindow makeWindow,
                    bool measureInstructions)
{
    auto folders = std::make_unique<IsolatedFolders>();
    folders->writeFile(folders->expectedConfigFolder() + QStringLiteral("/watchlists/default.json"),
                       watchlistJson(symbols));
    if (measureInstructions)
        bench::startRegion();
    QApplication app(argc, argv);
    applyApplicationIdentity(app);
    struct FirstPaint : QObject
    {
        bool painted = false;
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::Paint)
                painted = true;
            return false;
        }
    } firstPaint;
    std::unique_ptr<QWidget> window = makeWindow();
    window->installEventFilter(&firstPaint);
    window->resize(1400, 900);
    window->show();
    while (!firstPaint.painted)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    if (measureInstructions)
        bench::endRegion("startup");
    else
        bench::report(QStringLiteral("peak_kib"), double(bench::peakResidentKiB()));
    window.reset();
    return 0;
}

std::unique_ptr<QWidget> emptyWindow()
{
    return std::make_unique<QMainWindow>();
}

// For scale: the least a window with text costs, the font database and one font.
std::unique_ptr<QWidget> labelWindow()
{
    auto window = std::make_unique<QMainWindow>();
    window->setCentralWidget(new QLabel(QStringLiteral("Terminal Querlin")));
    return window;
}

std::unique_ptr<QWidget> terminalWindow()
{
    return std::make_unique<MainWindow>();
}

} // namespace

int sessionScenario(); // session.cpp

QStringList callgrindScenarioNames()
{
    return {QStringLiteral("ticker"),          QStringLiteral("trades"),
            QStringLiteral("depth"),           QStringLiteral("chart"),
            QStringLiteral("startup_empty"),   QStringLiteral("startup_label"),
            QStringLiteral("startup_terminal")};
}

QStringList nativeScenarioNames()
{
    return {QStringLiteral("tape_repaints"), QStringLiteral("rss_empty"),
            QStringLiteral("rss_terminal"), QStringLiteral("session")};
}

QStringList scenarioNames()
{
    return callgrindScenarioNames() + nativeScenarioNames();
}

int runScenario(const QString &name, int argc, char *argv[])
{
    const QStringList pairs = benchPairs(300);
    if (name == QLatin1String("startup_empty"))
        return startupScenario(argc, argv, pairs, emptyWindow, true);
    if (name == QLatin1String("startup_label"))
        return startupScenario(argc, argv, pairs, labelWindow, true);
    if (name == QLatin1String("startup_terminal"))
        return startupScenario(argc, argv, pairs, terminalWindow, true);
    if (name == QLatin1String("rss_empty"))
        return startupScenario(argc, argv, pairs, emptyWindow, false);
    if (name == QLatin1String("rss_terminal"))
        return startupScenario(argc, argv, pairs, terminalWindow, false);

    QApplication app(argc, argv);
    applyApplicationIdentity(app);
    if (name == QLatin1String("ticker"))
        return tickerScenario();
    if (name == QLatin1String("trades"))
        return tradesScenario();
    if (name == QLatin1String("tape_repaints"))
        return tapeRepaintsScenario();
    if (name == QLatin1String("depth"))
        return depthScenario();
    if (name == QLatin1String("chart"))
        return chartScenario();
    if (name == QLatin1String("session"))
        return sessionScenario();
    std::fprintf(stderr, "unknown scenario %s\n", qPrintable(name));
    return 2;
}
