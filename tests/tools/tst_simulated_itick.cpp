#include "simulated_itick_market.h"
#include "streams/itick_frames.h"
#include "streams/itick_session.h"

#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTest>
#include <QWebSocket>

#include <memory>

// The simulated market's iTick stream, read with the terminal's own reader over loopback.
namespace {

struct ItickClient
{
    QWebSocket socket;
    QList<ItickFrame> frames;

    ItickClient()
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived, [this](const QString &text) {
            frames.append(readItickFrame(text.toUtf8()));
        });
    }

    bool open(const QString &base, const QByteArray &token)
    {
        QNetworkRequest request(QUrl(base + QStringLiteral("/stock")));
        request.setRawHeader("token", token);
        QSignalSpy connected(&socket, &QWebSocket::connected);
        socket.open(request);
        return connected.wait(3000);
    }

    int count(ItickFrameKind kind) const
    {
        return int(std::count_if(frames.cbegin(), frames.cend(),
                                 [kind](const ItickFrame &frame) { return frame.kind == kind; }));
    }
    bool waitFor(ItickFrameKind kind, int atLeast = 1)
    {
        return QTest::qWaitFor([&] { return count(kind) >= atLeast; }, 3000);
    }
    ItickFrame last(ItickFrameKind kind) const
    {
        for (auto it = frames.crbegin(); it != frames.crend(); ++it)
            if (it->kind == kind)
                return *it;
        return {};
    }
};

} // namespace

class TestSimulatedItick : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void answersAuthSubscribeAndPingThenStreams();
    void depthFaults_data();
    void depthFaults();
    void closeFaultDropsTheConnection();
    void sessionGetsFullLadder();

private:
    std::unique_ptr<SimulatedItickMarket> m_market;
    std::unique_ptr<ItickClient> m_client;

    void subscribe(const QString &symbol)
    {
        m_client->socket.sendTextMessage(QString::fromUtf8(itickSubscribeMessage(symbol)));
    }
};

void TestSimulatedItick::init()
{
    m_client.reset();
    m_market = std::make_unique<SimulatedItickMarket>();
    QVERIFY(m_market->listen());
    m_market->setFrameInterval(10);
    m_client = std::make_unique<ItickClient>();
}

void TestSimulatedItick::answersAuthSubscribeAndPingThenStreams()
{
    QVERIFY(m_client->open(m_market->streamBaseUrl(), "sim-key"));
    QVERIFY(m_client->waitFor(ItickFrameKind::AuthReply));
    QCOMPARE(m_client->frames.first().kind, ItickFrameKind::Connected);
    QVERIFY(m_client->last(ItickFrameKind::AuthReply).ok);

    subscribe(QStringLiteral("AAPL"));
    subscribe(QStringLiteral("BTCUSDT")); // not a US share: accepted, never sent
    m_client->socket.sendTextMessage(QString::fromUtf8(itickPingMessage(42)));
    QVERIFY(m_client->waitFor(ItickFrameKind::Pong));
    QVERIFY(m_client->last(ItickFrameKind::SubscribeReply).ok);
    QVERIFY(m_client->waitFor(ItickFrameKind::Depth, 2));
    QVERIFY(m_client->waitFor(ItickFrameKind::Quote, 2));

    const ItickFrame depth = m_client->last(ItickFrameKind::Depth);
    QCOMPARE(depth.symbol, QStringLiteral("AAPL"));
    QVERIFY(depth.book.isUsable());
    QVERIFY(depth.book.bestBid() < depth.book.bestAsk());
    QVERIFY(m_client->last(ItickFrameKind::Quote).quote.last > 0);
    for (const ItickFrame &frame : std::as_const(m_client->frames))
        QVERIFY(frame.symbol.isEmpty() || frame.symbol == QStringLiteral("AAPL"));
}

void TestSimulatedItick::depthFaults_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("depthExpected");
    QTest::newRow("short_depth") << "itick_ws=short_depth" << true;
    QTest::newRow("garbage") << "itick_ws=garbage" << false;
    QTest::newRow("silent") << "itick_ws=silent" << false;
}

void TestSimulatedItick::depthFaults()
{
    QFETCH(QString, fault);
    QFETCH(bool, depthExpected);
    QCOMPARE(m_market->applyFault(fault), QString());
    QVERIFY(m_client->open(m_market->streamBaseUrl(), "sim-key"));
    subscribe(QStringLiteral("MSFT"));
    if (depthExpected) {
        QVERIFY(m_client->waitFor(ItickFrameKind::Depth));
        const ItickFrame depth = m_client->last(ItickFrameKind::Depth);
        QVERIFY(!depth.book.isUsable());
        QVERIFY(!depth.book.bids.isEmpty());
    } else {
        QTest::qWait(100);
        for (const ItickFrame &frame : std::as_const(m_client->frames))
            QVERIFY(frame.kind != ItickFrameKind::Depth || !frame.book.isUsable());
    }
}

void TestSimulatedItick::closeFaultDropsTheConnection()
{
    QVERIFY(m_client->open(m_market->streamBaseUrl(), "sim-key"));
    QSignalSpy disconnected(&m_client->socket, &QWebSocket::disconnected);
    QCOMPARE(m_market->applyFault(QStringLiteral("itick_ws=close")), QString());
    QVERIFY(disconnected.wait(3000));
}

void TestSimulatedItick::sessionGetsFullLadder()
{
    qputenv("QRL_ENDPOINT_ITICK_STREAM", m_market->streamBaseUrl().toUtf8());
    ItickSession session;
    session.setKey(QStringLiteral("sim-key"));
    QSignalSpy books(&session, &ItickSession::level2Book);
    session.start(QStringLiteral("NVDA"));
    QVERIFY(books.wait(3000));
    QVERIFY(session.isDepthValid());
    qunsetenv("QRL_ENDPOINT_ITICK_STREAM");
}

QTEST_GUILESS_MAIN(TestSimulatedItick)
#include "tst_simulated_itick.moc"
