// A one-hour session replayed as fast as the terminal takes it: every simulated second brings a
// ticker frame for each of 300 pairs, ten depth20 frames and twenty trades, with a burst of 2,000
// trades a second for five seconds every ten minutes. What waits for a screen frame is drawn sixty
// times a simulated second; the window processes its events (and paints) once per simulated
// second. Memory is read every five simulated minutes.
#include "measure.h"
#include "stream_frames.h"
#include "support/fake_provider.h"
#include "support/fake_websocket_server.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QWebSocket>

#include <malloc.h>

int sessionScenario()
{
    FakeProvider provider;
    FakeWebSocketServer streams;
    if (!provider.listen() || !streams.listen())
        return 1;
    IsolatedFolders folders;
    provider.serveEveryEndpoint();
    streams.serveEveryStreamEndpoint();
    const QStringList symbols = benchPairs(300);
    folders.writeFile(folders.expectedConfigFolder() + QStringLiteral("/watchlists/default.json"),
                      watchlistJson(symbols));
    MainWindow window;
    window.resize(1400, 900);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return 1;
    window.startMarketData();
    window.marketTable()->selectRow(window.findMarketRow(QStringLiteral("BTCUSDT")));
    if (!QTest::qWaitFor([&] {
            return window.tradeSocket()->state() == QAbstractSocket::ConnectedState &&
                   window.depthSocket()->state() == QAbstractSocket::ConnectedState;
        }))
        return 1;
    QTest::qWait(1000);

    const QString btc = QStringLiteral("BTCUSDT");
    QElapsedTimer clock;
    clock.start();
    for (int second = 1; second <= 3600; ++second) {
        // Each frame is made just before it is handled and gone after, as from a socket.
        // A real second has sixty screen frames: what waits for one is drawn every five ticker
        // frames, as it would be, not once per replayed second.
        for (int i = 0; i < symbols.size(); ++i) {
            window.onTickerFrame(tickerFrame(symbols, i, second));
            if (i % 5 == 4)
                window.flushScreenFrame();
        }
        const bool burst = second % 600 < 5;
        const int trades = burst ? 2000 : 20;
        const int depth = 10;
        for (int i = 0; i < trades; ++i) {
            window.onTradeFrame(tradeFrame(btc, i, trades, second));
            if (i % (trades / depth) == 0 && i / (trades / depth) < depth)
                window.onDepthFrame(depthFrame(btc, i / (trades / depth), second));
        }
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        if (second % 300 == 0) {
            malloc_trim(0); // freed memory the allocator still holds is not the terminal's
            bench::report(QStringLiteral("rss_%1min").arg(second / 60),
                          double(bench::residentKiB()));
        }
    }
    bench::report(QStringLiteral("replay_seconds"), clock.elapsed() / 1000.0);
    return 0;
}
