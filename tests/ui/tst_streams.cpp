#include "app/identity.h"
#include "app/language.h"
#include "market/market_row.h"
#include "streams/binance_frames.h"
#include "streams/tape_table_model.h"
#include "support/fake_provider.h"
#include "support/fake_websocket_server.h"
#include "support/isolated_folders.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/started_window.h"
#include "ui/tape_panel.h"

#include <QApplication>
#include <QComboBox>
#include <QCompleter>
#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStringListModel>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

const QString kTicker = QStringLiteral("/stream?streams=btcusdt@ticker");
const QString kDepth = QStringLiteral("/stream?streams=btcusdt@depth20@100ms");
const QString kTrade = QStringLiteral("/stream?streams=btcusdt@trade");

// A real combined-stream ticker frame; `s` can be left out to lean on the stream name.
QString tickerFrame(const QString &pair, const QString &price, const QString &change,
                    bool withSymbol = true)
{
    return QStringLiteral(R"({"stream":"%1@ticker","data":{"e":"24hrTicker","E":1789499759014,%2)"
                          R"("p":"-3109.19","P":"%3","c":"%4","o":"79108.0","h":"79600.0",)"
                          R"("l":"74967.97","v":"21280.39","q":"1635793874.5","n":3397723}})")
            .arg(pair.toLower(),
                 withSymbol ? QStringLiteral(R"("s":"%1",)").arg(pair.toUpper()) : QString(),
                 change, price);
}

QString levels(int count, double first, double step, int precision = 2)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list << QStringLiteral(R"(["%1","%2"])")
                        .arg(QString::number(first + i * step, 'f', precision),
                             QString::number(0.5 + i, 'f', 5));
    return QLatin1Char('[') + list.join(QLatin1Char(',')) + QLatin1Char(']');
}

// The real spot depth20 shape: no `s`, long keys; `extra` goes inside `data`.
QString depthFrame(const QString &pair, const QString &bids, const QString &asks,
                   const QString &keys = QStringLiteral("bids,asks"), const QString &extra = {})
{
    const QStringList names = keys.split(QLatin1Char(','));
    return QStringLiteral(R"({"stream":"%1@depth20@100ms","data":{%5"lastUpdateId":160,)"
                          R"("%2":%3,"%4":%6}})")
            .arg(pair.toLower(), names.at(0), bids, names.at(1), extra, asks);
}

QString tradeFrame(const QString &pair, int id, double price, double quantity, bool maker)
{
    return QStringLiteral(R"({"stream":"%1@trade","data":{"e":"trade","E":1733498426037,)"
                          R"("s":"%2","t":%3,"p":"%4","q":"%5","T":1733498426037,"m":%6,)"
                          R"("M":true}})")
            .arg(pair.toLower(), pair.toUpper())
            .arg(id)
            .arg(QString::number(price, 'f', 2), QString::number(quantity, 'f', 5),
                 maker ? QStringLiteral("true") : QStringLiteral("false"));
}

QString cell(const QTableWidget *table, int row, int column)
{
    const QTableWidgetItem *item = table->item(row, column);
    return item ? item->text() : QString();
}

QStringList events(const MainWindow &window)
{
    return window.findChild<QPlainTextEdit *>(QStringLiteral("eventConsole"))
            ->toPlainText()
            .split(QLatin1Char('\n'));
}

bool logged(const MainWindow &window, const QString &text)
{
    for (const QString &line : events(window)) {
        if (line.endsWith(QStringLiteral("] ") + text))
            return true;
    }
    return false;
}

} // namespace

class StreamsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void tickerStreamFollowsTheCryptoRows();
    void tickerFramesFeedRowsAndTheLocalSeries();
    void tickerFramesFireAlertsOncePerCrossing();
    void droppedTickerFallsBackToRestUntilTheNextCycle();
    void selectingAPairOpensItsDepthAndTradesOnce();
    void depthFramesDecideLadderOrFallback_data();
    void depthFramesDecideLadderOrFallback();
    void presetStepFollowsThePriceOfTheSymbol();
    void snapshotOfASymbolSwitchedAwayIsDiscarded();
    void depthStreamEndsInFallbackWithoutAValidFrame();
    void otherClassesGetTheirFallbacks_data();
    void otherClassesGetTheirFallbacks();
    void keyedLevelOneQuoteFillsTheSnapshot();
    void levelTwoDepthShowsFiveLevelsOrFallsBack();
    void tradeBurstGivesTheRowsOneByOneWould();
    void quoteTapeFollowsTheSelectedQuote();
    void cryptoUniverseJoinsTheCompleter();

private:
    std::unique_ptr<MainWindow> startWindow(const QByteArray &symbols);

    FakeProvider m_provider;
    FakeWebSocketServer m_server;
    std::unique_ptr<IsolatedFolders> m_folders;
};

void StreamsTest::initTestCase()
{
    applyApplicationIdentity(*qApp);
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
    QVERIFY(m_server.listen());
    m_server.serveEveryStreamEndpoint();
}

void StreamsTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
    m_server.closeAll();
    QVERIFY(m_server.waitForOpenConnections(0));
    m_server.clearRecords();
    m_server.setSilent(false);
    m_provider.clearRequests();
    m_provider.setReply("/api/v3/depth", FakeReply{.mode = FakeReply::Mode::NoAnswer});
    m_folders.reset(); // the previous isolation restores the environment before the next takes it
    m_folders = std::make_unique<IsolatedFolders>();
}

std::unique_ptr<MainWindow> StreamsTest::startWindow(const QByteArray &symbols)
{
    return startedWindow(*m_folders, symbols);
}

void StreamsTest::tickerStreamFollowsTheCryptoRows()
{
    auto window = startWindow("AAPL");
    auto tickerPaths = [this] {
        QStringList paths;
        for (const QString &path : m_server.requestedPaths()) {
            if (path.endsWith(QStringLiteral("@ticker")))
                paths << path;
        }
        return paths;
    };
    QCOMPARE(window->tickerSocket()->state(), QAbstractSocket::UnconnectedState);

    auto *search = window->findChild<QLineEdit *>(QStringLiteral("tickerSearch"));
    search->setText(QStringLiteral("btc"));
    QTest::keyClick(search, Qt::Key_Return);
    QCOMPARE(cell(window->marketTable(), 1, StatusColumn), QStringLiteral("ws connecting"));
    QTRY_COMPARE(tickerPaths(), QStringList{kTicker});
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);

    search->setText(QStringLiteral("ETHUSDT"));
    QTest::keyClick(search, Qt::Key_Return);
    const QString both = QStringLiteral("/stream?streams=btcusdt@ticker/ethusdt@ticker");
    QTRY_COMPARE(tickerPaths().value(1), both);
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);

    // An unchanged list with a connected socket: the refresh cycle leaves it alone.
    window->refreshMarketQuotes();
    window->refreshMarketQuotes();
    QTest::qWait(50);
    QCOMPARE(tickerPaths().size(), 2);

    // Sorting moves rows, not the watchlist's order: the stream stays.
    window->updateMarketRow("BTCUSDT", 80000, 5, "Binance WS", "stream", "realtime");
    window->updateMarketRow("ETHUSDT", 3000, 1, "Binance WS", "stream", "realtime");
    window->marketTable()->sortItems(ChangeColumn, Qt::AscendingOrder);
    window->marketTable()->setSortingEnabled(true);
    QCOMPARE(window->marketTable()->symbols(), (QStringList{"AAPL", "ETHUSDT", "BTCUSDT"}));
    window->refreshMarketQuotes();
    QTest::qWait(50);
    QCOMPARE(tickerPaths().size(), 2);

    // A new order is a new stream list, taken up by the next cycle.
    window->moveMarketRow(1, 0);
    window->refreshMarketQuotes();
    QTRY_COMPARE(tickerPaths().value(2),
                 QStringLiteral("/stream?streams=ethusdt@ticker/btcusdt@ticker"));

    // Removing the crypto rows narrows the list, then closes the stream.
    window->marketTable()->selectRow(window->findMarketRow(QStringLiteral("BTCUSDT")));
    window->removeSelectedSymbol();
    QTRY_COMPARE(tickerPaths().value(3), QStringLiteral("/stream?streams=ethusdt@ticker"));
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
    window->marketTable()->selectRow(window->findMarketRow(QStringLiteral("ETHUSDT")));
    window->removeSelectedSymbol();
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(tickerPaths().size(), 4);
}

void StreamsTest::tickerFramesFeedRowsAndTheLocalSeries()
{
    auto window = startWindow("AAPL,BTCUSDT,ETHUSDT");
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
    QTRY_VERIFY(logged(*window, QStringLiteral("Binance ticker stream connected")));
    MarketTable *table = window->marketTable();
    const int btc = window->findMarketRow(QStringLiteral("BTCUSDT"));
    const int eth = window->findMarketRow(QStringLiteral("ETHUSDT"));

    m_server.sendTexts({
            tickerFrame("BTCUSDT", "75998.81000000", "-3.930"),
            // No `s`: the stream name says whose it is.
            tickerFrame("ETHUSDT", "2500.50000000", "1.250", false),
            tickerFrame("BTCUSDT", "76100.00000000", "-3.800"),
            tickerFrame("BTCUSDT", "75900.00000000", "-3.950"),
            // Garbage of every kind changes nothing.
            QStringLiteral("not json"),
            QStringLiteral(R"({"stream":"btcusdt@ticker"})"),
            QStringLiteral(R"({"result":null,"id":1})"),
            tickerFrame("BTCUSDT", "NaN", "1"),
            tickerFrame("BTCUSDT", "1e999", "1"),
            tickerFrame("BTCUSDT", "0", "1"),
            QStringLiteral(
                    R"({"stream":"btcusdt@ticker","data":{"s":"BTCUSDT","c":76000,"P":[1]}})"),
    });
    QTRY_COMPARE(cell(table, eth, LastColumn), QStringLiteral("2500.50"));
    QTRY_COMPARE(cell(table, btc, SourceColumn), QStringLiteral("Binance WS"));
    QCOMPARE(cell(table, eth, ChangeColumn), QStringLiteral("1.25%"));
    QCOMPARE(cell(table, eth, StatusColumn), QStringLiteral("realtime"));
    QTRY_COMPARE(cell(table, btc, LastColumn), QStringLiteral("76000.00"));
    // A number where a string belongs still reads as the price; an unusable change is unknown.
    QCOMPARE(cell(table, btc, ChangeColumn), QStringLiteral("--"));

    const QList<Candle> bars = window->localPriceSeries().value(QStringLiteral("BTCUSDT"));
    QCOMPARE(bars.size(), 1);
    QCOMPARE(bars.first().open, 75998.81);
    QCOMPARE(bars.first().high, 76100.0);
    QCOMPARE(bars.first().low, 75900.0);
    QCOMPARE(bars.first().close, 76000.0);
    QCOMPARE(bars.first().volume, 0.0);
}

void StreamsTest::tickerFramesFireAlertsOncePerCrossing()
{
    // A one-shot alert and a repeating one on the same target.
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/local.json",
                         R"({"alerts":[
        {"symbol":"BTCUSDT","target":76000,"above":true,"triggered":false,"repeating":false,
         "last_trigger_ms":0},
        {"symbol":"BTCUSDT","target":76000,"above":true,"triggered":false,"repeating":true,
         "last_trigger_ms":0}]})");
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
    QStringList frames;
    for (int i = 0; i < 40; ++i)
        frames << tickerFrame("BTCUSDT", i % 2 ? "76010.5" : "75990.5", "-3.9");
    m_server.sendTexts(frames);
    QTRY_COMPARE(window->marketTable()->item(0, LastColumn)->text(), QStringLiteral("76010.50"));
    // Forty crossings a moment: each alert fires once and opens one box, and the frames kept
    // coming.
    const QList<QMessageBox *> boxes = window->findChildren<QMessageBox *>("priceAlertBox");
    QCOMPARE(boxes.size(), 2);
    QVERIFY(boxes.last()->text().endsWith("\nMode: Repeat"));
    QVERIFY(window->priceAlerts().first().triggered);
    QVERIFY(window->priceAlerts().last().lastTriggerMs > 0);
    int hits = 0;
    for (const AlertHistoryEntry &entry : window->alertHistory())
        hits += entry.event == QLatin1String("Triggered");
    QCOMPARE(hits, 2);
    qDeleteAll(boxes);
}

void StreamsTest::droppedTickerFallsBackToRestUntilTheNextCycle()
{
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
    m_provider.clearRequests();
    m_server.sendTextTo(kTicker, QStringLiteral("x")); // nothing
    m_server.closeAll(QWebSocketProtocol::CloseCodeGoingAway);
    QTRY_VERIFY(logged(*window, QStringLiteral("Binance ticker stream disconnected")));
    QCOMPARE(cell(window->marketTable(), 0, StatusColumn).isEmpty(), false);
    // Every crypto row once over REST.
    QVERIFY(m_provider.waitForRequests(1));
    QCOMPARE(m_provider.lastRequest().path, QByteArray("/api/v3/ticker/24hr"));
    QCOMPARE(m_provider.lastRequest().queryItem("symbol"), QStringLiteral("BTCUSDT"));
    const int before = m_server.connectionCount();
    window->refreshMarketQuotes();
    QTRY_COMPARE(m_server.connectionCount(), before + 1);
    QCOMPARE(m_server.requestedPaths().last(), kTicker);
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
}

void StreamsTest::selectingAPairOpensItsDepthAndTradesOnce()
{
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    QTRY_COMPARE(window->tradeSocket()->state(), QAbstractSocket::ConnectedState);
    QVERIFY(m_server.requestedPaths().contains(kDepth));
    QVERIFY(m_server.requestedPaths().contains(kTrade));
    QTRY_VERIFY(logged(*window, QStringLiteral("Order book stream connected: BTCUSDT")));
    QTRY_VERIFY(logged(*window, QStringLiteral("Trade tape stream connected: BTCUSDT")));
    QCOMPARE(window->bookPanel()->title(), QStringLiteral("ORDER BOOK  BTCUSDT  live"));
    QCOMPARE(window->tapePanel()->title(), QStringLiteral("TIME & SALES  BTCUSDT  live"));
    QTRY_VERIFY(m_provider.requests().size() > 0);
    bool snapshotAsked = false;
    for (const RecordedRequest &request : m_provider.requests())
        snapshotAsked = snapshotAsked || (request.path == "/api/v3/depth" &&
                                          request.rawQuery == "symbol=BTCUSDT&limit=20");
    QVERIFY(snapshotAsked);

    const int connections = m_server.connectionCount();
    window->marketTable()->selectRow(0);
    window->moveMarketRow(0, 0); // selection refresh without a change
    QMetaObject::invokeMethod(window.get(), [&window] { window->switchBookSymbol(); });
    QTest::qWait(50);
    QCOMPARE(m_server.connectionCount(), connections);
}

void StreamsTest::depthFramesDecideLadderOrFallback_data()
{
    QTest::addColumn<QString>("frame");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("askRows");
    QTest::addColumn<QString>("firstAsk");
    QTest::addColumn<QString>("tiles"); // BID|ASK|SPR|IMB values

    const QString bids20 = levels(20, 65000, -1);
    const QString asks20 = levels(20, 65001, 1);
    QTest::newRow("real shape, first 10 of 20 shown")
            << depthFrame("BTCUSDT", bids20, asks20) << true << 10 << "65001.00"
            << "65000.00|65001.00|1.0000|0.0%";
    QTest::newRow("short keys") << depthFrame("BTCUSDT", levels(5, 100, -1), levels(5, 101, 1),
                                              "b,a")
                                << true << 5 << "101.0000"
                                << "100.0000|101.0000|1.0000|0.0%";
    QTest::newRow("five and five") << depthFrame("BTCUSDT", levels(5, 999, -1), levels(5, 1000, 1))
                                   << true << 5 << "1000.00"
                                   << "999.0000|1000.00|1.0000|0.0%";
    QTest::newRow("four asks") << depthFrame("BTCUSDT", bids20, levels(4, 65001, 1)) << false << 6
                               << "Last"
                               << "--|--|--|--";
    QTest::newRow("zero prices and short levels do not count")
            << depthFrame("BTCUSDT", bids20,
                          R"([["65001","1"],["0","1"],["65002"],["65003","1"],["65004","1"],)"
                          R"(["abc","1"]])")
            << false << 6 << "Last"
            << "--|--|--|--";
}

void StreamsTest::depthFramesDecideLadderOrFallback()
{
    QFETCH(QString, frame);
    QFETCH(bool, valid);
    QFETCH(int, askRows);
    QFETCH(QString, firstAsk);
    QFETCH(QString, tiles);
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    BookPanel *book = window->bookPanel();
    QVERIFY(window->isDepthPending());

    // Another pair's frame, and frames that are no frames, change nothing.
    m_server.sendTextTo(kDepth, depthFrame("ETHUSDT", levels(10, 10, -1), levels(10, 11, 1)));
    m_server.sendTextTo(kDepth, QStringLiteral(R"({"stream":"btcusdt@depth20@100ms"})"));
    m_server.sendTextTo(kDepth, QStringLiteral("{{{"));
    m_server.sendTextTo(kDepth, frame);
    QTRY_VERIFY(!window->isDepthPending());
    QCOMPARE(window->isDepthValid(), valid);
    book->flushPendingDraw();
    QCOMPARE(book->askTable()->rowCount(), askRows);
    QCOMPARE(cell(book->askTable(), 0, 0), firstAsk);
    QStringList values;
    for (const QLabel *tile : book->metricLabels())
        values << tile->text().section(QLatin1Char('\n'), 1);
    QCOMPARE(values.join(QLatin1Char('|')), tiles);
    if (valid) {
        QVERIFY(book->title().startsWith(QStringLiteral("ORDER BOOK  BTCUSDT  ")));
        QCOMPARE(cell(book->bidTable(), 0, 2), cell(book->bidTable(), 0, 1)); // running total
    } else {
        QCOMPARE(book->title(),
                 QStringLiteral("QUOTE SNAPSHOT  BTCUSDT  Binance depth insufficient"));
        QCOMPARE(cell(book->bidTable(), 4, 1), QStringLiteral("Not in free feed"));
    }
    // The next valid frame brings the ladder back.
    m_server.sendTextTo(kDepth, depthFrame("BTCUSDT", levels(6, 50, -1), levels(6, 51, 1)));
    const auto shownFirstAsk = [book] {
        book->flushPendingDraw();
        return cell(book->askTable(), 0, 0);
    };
    QTRY_COMPARE(shownFirstAsk(), QStringLiteral("51.0000"));
    QVERIFY(window->isDepthValid());
    QCOMPARE(book->view(), BookPanel::View::Depth);
}

void StreamsTest::presetStepFollowsThePriceOfTheSymbol()
{
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/local.json",
                         R"({"book_step":0.25,"book_preset":"normal"})");
    auto window = startWindow("BTCUSDT,ETHUSDT");
    BookPanel *book = window->bookPanel();
    auto *stepBox = book->findChild<QDoubleSpinBox *>(QStringLiteral("bookStep"));
    auto checked = [book] {
        QStringList ids;
        for (const QPushButton *button : book->findChildren<QPushButton *>("bookPresetButton")) {
            if (button->isChecked())
                ids << button->property("bookPreset").toString();
        }
        return ids;
    };
    // No price yet: the stored step stays, and nothing is bucketed by a step made of no price.
    QCOMPARE(book->step(), 0.25);
    QTRY_COMPARE(window->tickerSocket()->state(), QAbstractSocket::ConnectedState);
    m_server.sendTextTo(kTicker.left(16), tickerFrame("BTCUSDT", "65000.00", "1.0"));
    QTRY_COMPARE(book->step(), 50.0);
    QCOMPARE(checked(), QStringList{"normal"});
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    m_server.sendTextTo(kDepth, depthFrame("BTCUSDT", levels(6, 65000, -1), levels(6, 65001, 1)));
    QTRY_VERIFY(book->title().endsWith(QStringLiteral("  Step 50.00")));

    const auto buttons = book->findChildren<QPushButton *>("bookPresetButton");
    QCOMPARE(buttons.last()->toolTip(), QStringLiteral("Wide (Ctrl+4)"));
    QTest::mouseClick(buttons.last(), Qt::LeftButton);
    QCOMPARE(book->step(), 200.0); // 65000 x 0.0025 = 162.5, up to 200
    QCOMPARE(checked(), QStringList{"wide"});

    // ETH gets the saved preset at its own price once it has one (here, the book's middle).
    window->marketTable()->selectRow(1);
    QCOMPARE(book->step(), 200.0);
    QTRY_VERIFY(m_server.requestedPaths().contains("/stream?streams=ethusdt@depth20@100ms"));
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    m_server.sendTextTo("/stream?streams=ethusdt@depth",
                        depthFrame("ETHUSDT", levels(6, 2500, -1), levels(6, 2501, 1)));
    QTRY_COMPARE(book->step(), 10.0); // 2500.5 x 0.0025 = 6.25, up to 10
    QCOMPARE(checked(), QStringList{"wide"});

    // A step typed by hand belongs to no preset, and a restart keeps it.
    stepBox->setValue(3);
    QCOMPARE(checked(), QStringList{});
    window->saveLocalSettings();
    window.reset();
    MainWindow again;
    QCOMPARE(again.bookPanel()->step(), 3.0);
    QCOMPARE(again.savedBookPreset(), QString());
}

void StreamsTest::snapshotOfASymbolSwitchedAwayIsDiscarded()
{
    // Replies are set per stage rather than queued: Qt sends a request again when its connection
    // closes first, and a queued reply would then go to the wrong request.
    m_provider.setReply("/api/v3/depth",
                        FakeReply::json(QStringLiteral(R"({"lastUpdateId":1,"bids":%1,"asks":%2})")
                                                .arg(levels(8, 100, -1), levels(8, 101, 1))
                                                .toUtf8()));
    auto window = startWindow("BTCUSDT,ETHUSDT");
    BookPanel *book = window->bookPanel();
    const auto firstAsk = [book] {
        book->flushPendingDraw();
        return cell(book->askTable(), 0, 0);
    };
    // The title says "snapshot" until the stream connects and says "live", whichever comes first.
    QTRY_COMPARE(firstAsk(), QStringLiteral("101.0000"));
    QVERIFY(window->isDepthValid());
    QVERIFY(book->title() == QStringLiteral("ORDER BOOK  BTCUSDT  snapshot") ||
            book->title() == QStringLiteral("ORDER BOOK  BTCUSDT  live"));

    // ETH's snapshot is slow; the user goes back to BTC before it lands.
    m_provider.setReply("/api/v3/depth",
                        FakeReply{.body = R"({"bids":[],"asks":[]})", .delayMs = 300});
    const auto asked = [this](const char *symbol) {
        for (const RecordedRequest &request : m_provider.requests()) {
            if (request.path == "/api/v3/depth" &&
                request.queryItem("symbol") == QLatin1String(symbol))
                return true;
        }
        return false;
    };
    m_provider.clearRequests();
    window->marketTable()->selectRow(1);
    QCOMPARE(window->bookSymbol(), QStringLiteral("ETHUSDT"));
    QTRY_VERIFY(asked("ETHUSDT"));
    m_provider.setReply("/api/v3/depth", FakeReply{.mode = FakeReply::Mode::NoAnswer});
    window->marketTable()->selectRow(0);
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    QTRY_VERIFY(asked("BTCUSDT"));
    QTest::qWait(400);
    QCOMPARE(window->bookSymbol(), QStringLiteral("BTCUSDT"));
    QVERIFY(!book->title().contains(QStringLiteral("insufficient")));
    QVERIFY(!book->title().contains(QStringLiteral("ETHUSDT")));
    // A frame of the pair switched away from is dropped too.
    m_server.sendText(depthFrame("ETHUSDT", levels(10, 10, -1), levels(10, 11, 1)));
    QTest::qWait(30);
    QVERIFY(!firstAsk().startsWith(QStringLiteral("11.")));
}

void StreamsTest::depthStreamEndsInFallbackWithoutAValidFrame()
{
    auto window = startWindow("BTCUSDT,PETR4.SA");
    QTRY_COMPARE(window->depthSocket()->state(), QAbstractSocket::ConnectedState);
    m_server.closeAll(QWebSocketProtocol::CloseCodeGoingAway);
    QTRY_VERIFY(logged(*window, QStringLiteral("Order book stream disconnected")));
    QCOMPARE(window->bookPanel()->view(), BookPanel::View::Fallback);
    QCOMPARE(window->bookPanel()->title(), QStringLiteral("QUOTE SNAPSHOT  BTCUSDT  delayed"));
    QTRY_COMPARE(window->tapePanel()->title(),
                 QStringLiteral("TIME & SALES  BTCUSDT  disconnected"));

    // Going to a B3 row closes nothing more and keeps nothing of the crypto book.
    window->marketTable()->selectRow(1);
    QCOMPARE(window->depthSocket()->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(window->bookPanel()->metricLabels().at(0)->text(), QStringLiteral("BID\n--"));
}

void StreamsTest::otherClassesGetTheirFallbacks_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("spread");
    QTest::newRow("B3 with a price") << "PETR4.SA"
                                     << "en"
                                     << "QUOTE SNAPSHOT  PETR4.SA  B3 no free Order Book  snapshot "
                                        "fallback"
                                     << "0.0000";
    QTest::newRow("B3 in Portuguese")
            << "PETR4.SA"
            << "pt_BR"
            << "RESUMO DA COTAÇÃO  PETR4.SA  B3 sem livro de ofertas gratuito  resumo alternativo"
            << "0.0000";
    QTest::newRow("US without keys")
            << "AAPL"
            << "en"
            << "QUOTE SNAPSHOT  AAPL  US Level 1 fallback snapshot (iTick key missing)"
            << "--";
    QTest::newRow("forex") << "BRL=X"
                           << "en"
                           << "QUOTE SNAPSHOT  BRL=X  delayed"
                           << "--";
}

void StreamsTest::otherClassesGetTheirFallbacks()
{
    QFETCH(QString, symbol);
    QFETCH(QString, language);
    QFETCH(QString, title);
    QFETCH(QString, spread);
    setInterfaceLanguage(language);
    auto window = startWindow(symbol.toLatin1() + ",BTCUSDT");
    window->updateMarketRow(symbol, 36.5, 1.2, QStringLiteral("Yahoo"), QStringLiteral("80 ms"),
                            QStringLiteral("free/delayed"));
    window->marketTable()->selectRow(1);
    window->marketTable()->selectRow(0);
    BookPanel *book = window->bookPanel();
    QCOMPARE(book->title(), title);
    QCOMPARE(book->view(), BookPanel::View::Fallback);
    QCOMPARE(window->depthSocket()->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(cell(book->askTable(), 0, 1), QStringLiteral("36.5000"));
    QCOMPARE(cell(book->askTable(), 0, 2), QStringLiteral("Yahoo"));
    QCOMPARE(book->metricLabels().at(2)->text().section(QLatin1Char('\n'), 1), spread);
    QCOMPARE(book->bidTable()->rowCount(), 5);
}

void StreamsTest::keyedLevelOneQuoteFillsTheSnapshot()
{
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/config.txt",
                         "finnhub_api_key=FHKEY\n");
    m_provider.setReply("/api/v1/quote",
                        FakeReply::json(R"({"c":175.42,"d":-0.65,"dp":-0.37,"h":176.1,)"
                                        R"("l":174.2,"o":175.9,"pc":176.07,"t":1714766400})"));
    auto window = startWindow("AAPL");
    QTRY_COMPARE(window->bookPanel()->title(),
                 QStringLiteral("QUOTE SNAPSHOT  AAPL  Finnhub  snapshot fallback"));
    // Bid is the lower of close and last, ask the last; a later quote of the row (the refresh
    // cycle's) keeps the snapshot's rule.
    window->updateMarketRow(QStringLiteral("AAPL"), 175.42, -0.37, QStringLiteral("finnhub"),
                            QStringLiteral("5 ms"), QStringLiteral("key/delayed"));
    QCOMPARE(window->bookPanel()->metricLabels().at(0)->text(), QStringLiteral("BID\n175.4200"));
    QCOMPARE(window->bookPanel()->metricLabels().at(1)->text(), QStringLiteral("ASK\n175.4200"));
    m_provider.setReply("/api/v1/quote", FakeReply::json(R"({"error":"no scripted reply"})", 404));
}

void StreamsTest::levelTwoDepthShowsFiveLevelsOrFallsBack()
{
    auto window = startWindow("AAPL");
    BookPanel *book = window->bookPanel();
    Level2Book levels;
    for (int i = 0; i < 5; ++i) {
        levels.bids.append({100.0 - i * 0.01, 300.0, i + 1});
        levels.asks.append({100.01 + i * 0.01, 200.0, i + 1});
    }
    window->showLevel2Depth(levels, QStringLiteral("US: Level 2 (5 levels)  AAPL"));
    QVERIFY(window->isDepthValid());
    // Imbalance over all five levels: (1500 - 1000) / 2500.
    QVERIFY(book->title().startsWith(QStringLiteral(
            "US: Level 2 (5 levels)  AAPL  Spread 0.0100  Mid 100.0050  Imb 20.0%")));
    book->flushPendingDraw();
    QCOMPARE(book->askTable()->rowCount(), 5);
    QCOMPARE(cell(book->askTable(), 4, 2), QStringLiteral("1000.0000")); // sizes with 4 decimals

    levels.asks.removeLast();
    window->showLevel2Depth(levels, QStringLiteral("US: Level 2 (5 levels)  AAPL"));
    QVERIFY(!window->isDepthValid());
    QCOMPARE(book->title(), QStringLiteral("QUOTE SNAPSHOT  AAPL  depth below 5 levels"));
    QCOMPARE(book->view(), BookPanel::View::Fallback);
}

void StreamsTest::tradeBurstGivesTheRowsOneByOneWould()
{
    auto window = startWindow("BTCUSDT");
    QTRY_COMPARE(window->tradeSocket()->state(), QAbstractSocket::ConnectedState);
    TapePanel *tape = window->tapePanel();
    QStringList burst;
    TimeAndSales expected;
    for (int i = 0; i < 5000; ++i) {
        const double price = 65000 + (i % 97) * 0.5;
        const double quantity = 0.001 * (1 + i % 13);
        const bool maker = (i % 3) == 0;
        burst << tradeFrame("BTCUSDT", i, price, quantity, maker);
        expected.add(tradeTapeRow(price, quantity, 1733498426037, maker));
    }
    burst.insert(100, tradeFrame("ETHUSDT", 1, 1, 1, true)); // another pair's trade
    burst.insert(200, QStringLiteral("{"));
    // The table catches up once per screen frame, however many trades arrive in between.
    QAbstractItemModel *model = tape->table()->model();
    QSignalSpy resets(model, &QAbstractItemModel::modelReset);
    QSignalSpy inserts(model, &QAbstractItemModel::rowsInserted);
    QElapsedTimer timer;
    timer.start();
    m_server.sendTextTo(kTrade, burst.join(QString())); // one frame of garbage: ignored
    m_server.sendTexts(burst);
    QTRY_COMPARE(tape->rows().admitted(), quint64(5000));
    const qint64 handled = timer.elapsed();
    tape->flushPendingDraw();
    const qsizetype redraws = resets.size() + inserts.size();
    QVERIFY2(redraws <= handled / 4 + 2, qPrintable(QString::number(redraws)));
    QCOMPARE(model->rowCount(), kTapeRowLimit);
    for (int row = 0; row < kTapeRowLimit; ++row) {
        QCOMPARE(tape->rows().at(row).price, expected.at(row).price);
        QCOMPARE(model->index(row, 3).data().toString(), expected.at(row).side);
        QCOMPARE(model->index(row, 2).data().toString(), tapeSizeText(expected.at(row).size));
    }
    QCOMPARE(model->index(0, 3).data().toString(), QStringLiteral("Buy")); // trade 4999: 4999 % 3
    QCOMPARE(model->index(0, 0).data(Qt::ForegroundRole).value<QBrush>().color().name(),
             QStringLiteral("#20c878"));
    QCOMPARE(model->index(1, 3).data().toString(), QStringLiteral("Sell"));
    QCOMPARE(model->index(1, 0).data(Qt::ForegroundRole).value<QBrush>().color().name(),
             QStringLiteral("#f45d5d"));
    qInfo("5000 trades handled in %lld ms with %lld table updates", handled, qint64(redraws));
}

void StreamsTest::quoteTapeFollowsTheSelectedQuote()
{
    auto window = startWindow("PETR4.SA,VALE3.SA");
    TapePanel *tape = window->tapePanel();
    QCOMPARE(tape->title(), QStringLiteral("QUOTE TAPE  PETR4.SA  delayed fallback"));
    QCOMPARE(tape->rows().size(), 0); // no price yet: no "Selected" row
    window->updateMarketRow(QStringLiteral("PETR4.SA"), 36.5, -0.5, QStringLiteral("BrAPI"),
                            QStringLiteral("120 ms"), QStringLiteral("free/delayed"));
    window->updateMarketRow(QStringLiteral("VALE3.SA"), 60, 1, QStringLiteral("BrAPI"),
                            QStringLiteral("120 ms"), QStringLiteral("free/delayed"));
    QCOMPARE(tape->rows().size(), 1);
    QCOMPARE(tape->rows().at(0).side, QStringLiteral("Quote  BrAPI free/delayed"));
    QCOMPARE(tape->rows().at(0).color, QStringLiteral("#f45d5d"));

    // The quote filter reads the start of the text; a minimum size drops sizeless quote rows.
    auto *side = tape->findChild<QComboBox *>(QStringLiteral("tapeSideFilter"));
    side->setCurrentIndex(side->findData(QStringLiteral("quote")));
    window->updateMarketRow(QStringLiteral("PETR4.SA"), 36.6, 0, QStringLiteral("BrAPI"),
                            QStringLiteral("90 ms"), QStringLiteral("free/delayed"));
    QCOMPARE(tape->rows().size(), 2);
    QCOMPARE(tape->rows().at(0).color, QStringLiteral("#20c878"));
    side->setCurrentIndex(side->findData(QStringLiteral("buy")));
    window->updateMarketRow(QStringLiteral("PETR4.SA"), 36.7, 0, QStringLiteral("BrAPI"),
                            QStringLiteral("90 ms"), QStringLiteral("free/delayed"));
    QCOMPARE(tape->rows().size(), 2); // filters act on new rows only
    side->setCurrentIndex(side->findData(QStringLiteral("all")));
    tape->findChild<QDoubleSpinBox *>(QStringLiteral("tapeMinimumSize"))->setValue(1);
    window->updateMarketRow(QStringLiteral("PETR4.SA"), 36.8, 0, QStringLiteral("BrAPI"),
                            QStringLiteral("90 ms"), QStringLiteral("free/delayed"));
    QCOMPARE(tape->rows().size(), 2);

    // A switch starts the new symbol's tape with its "Selected" row; the side filter keeps its
    // choice through a language change.
    tape->findChild<QDoubleSpinBox *>(QStringLiteral("tapeMinimumSize"))->setValue(0);
    side->setCurrentIndex(side->findData(QStringLiteral("quote")));
    window->setLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(side->currentData().toString(), QStringLiteral("quote"));
    QCOMPARE(side->currentText(), QStringLiteral("Cotação"));
    window->marketTable()->selectRow(1);
    QCOMPARE(tape->rows().size(), 1);
    QCOMPARE(tape->rows().at(0).side, QStringLiteral("Cotação  Selecionado"));
    QCOMPARE(tape->title(), QStringLiteral("FITA DE COTAÇÕES  VALE3.SA  alternativa com atraso"));
}

void StreamsTest::cryptoUniverseJoinsTheCompleter()
{
    m_provider.setReply("/api/v3/exchangeInfo", FakeReply::json(R"({"timezone":"UTC","symbols":[
        {"symbol":"SOLUSDT","status":"TRADING","baseAsset":"SOL","quoteAsset":"USDT"},
        {"symbol":"SOLBTC","status":"TRADING","baseAsset":"SOL","quoteAsset":"BTC"},
        {"symbol":"LUNAUSDT","status":"BREAK","baseAsset":"LUNA","quoteAsset":"USDT"},
        {"symbol":"PEPEUSDT","status":"TRADING","baseAsset":"PEPE","quoteAsset":"USDT","opoAllowed":true}]})"));
    auto window = startWindow("AAPL");
    QTRY_VERIFY(logged(*window, QStringLiteral("Crypto universe loaded: 2 Binance USDT pairs")));
    QCOMPARE(window->cryptoBaseAssets(), (QStringList{"SOL", "PEPE"}));
    const QStringList entries =
            qobject_cast<QStringListModel *>(
                    window->findChild<QLineEdit *>("tickerSearch")->completer()->model())
                    ->stringList();
    QVERIFY(entries.join('|').contains(QStringLiteral("PEPEUSDT")));
    QVERIFY(!entries.join('|').contains(QStringLiteral("LUNAUSDT")));
    m_provider.setReply("/api/v3/exchangeInfo", FakeReply::json("{}", 451));
}

QTEST_MAIN(StreamsTest)
#include "tst_streams.moc"
