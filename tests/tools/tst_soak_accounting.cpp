#include "providers/provider_response.h"
#include "simulated_market/simulated_market.h"
#include "simulated_market/soak_inventory.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

struct Reply
{
    int status = 0;
    QByteArray contentType;
    QByteArray body;
};

const QHash<QString, QString> kRequests{
        {"twelvedata", "/quote?symbol=AAPL&apikey=k"},
        {"fmp", "/api/v3/quote/AAPL?apikey=k"},
        {"alpha_vantage", "/query?function=GLOBAL_QUOTE&symbol=AAPL&apikey=k"},
        {"alpha_vantage_movers", "/query?function=TOP_GAINERS_LOSERS&apikey=k"},
        {"finnhub", "/api/v1/quote?symbol=AAPL&token=k"},
};

} // namespace

// What the market counts for the fault soak, and the "html" fault it adds to the others.
class SoakAccountingTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_manager.setTransferTimeout(3000); }
    void requestsInsidePausesAreCounted_data();
    void requestsInsidePausesAreCounted();
    void htmlPageUnderOkIsNoJson_data();
    void htmlPageUnderOkIsNoJson();
    void morePortsAnswerAsTheFirst();
    void inventoryListsWhatTheUserMade();

private:
    Reply get(const SimulatedMarket &market, const QString &path)
    {
        QNetworkReply *reply = m_manager.get(QNetworkRequest(QUrl(market.baseUrl() + path)));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished())
            finished.wait(3000);
        Reply result{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                     reply->header(QNetworkRequest::ContentTypeHeader).toByteArray(),
                     reply->readAll()};
        reply->deleteLater();
        return result;
    }

    QNetworkAccessManager m_manager;
};

void SoakAccountingTest::requestsInsidePausesAreCounted_data()
{
    QTest::addColumn<QString>("provider"); // whose fault answers the first request
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("first");  // request channel
    QTest::addColumn<QString>("second"); // asked this much later, with the fault cleared
    QTest::addColumn<int>("laterMs");
    QTest::addColumn<int>("inside");    // requests inside a documented cool-down
    QTest::addColumn<int>("tooClose");  // closer than the pacing
    QTest::addColumn<int>("elsewhere"); // inside a Retry-After without a documented pause

    // clang-format off
    QTest::newRow("twelvedata 429 pauses 17 s") << "twelvedata" << "429" << "twelvedata" << "twelvedata" << 16999 << 1 << 0 << 0;
    QTest::newRow("twelvedata 429 is over at 17 s") << "twelvedata" << "429" << "twelvedata" << "twelvedata" << 17000 << 0 << 0 << 0;
    QTest::newRow("twelvedata credits pause 60 s") << "twelvedata" << "limit" << "twelvedata" << "twelvedata" << 59000 << 1 << 0 << 0;
    QTest::newRow("fmp 429 pauses 17 s") << "fmp" << "429" << "fmp" << "fmp" << 16000 << 1 << 0 << 0;
    QTest::newRow("fmp limit is over at 60 s") << "fmp" << "limit" << "fmp" << "fmp" << 60000 << 0 << 0 << 0;
    QTest::newRow("alpha vantage 429 blocks 60 s") << "alpha_vantage" << "429" << "alpha_vantage" << "alpha_vantage" << 59999 << 1 << 0 << 0;
    QTest::newRow("alpha vantage note blocks") << "alpha_vantage" << "note" << "alpha_vantage" << "alpha_vantage" << 30000 << 1 << 0 << 0;
    QTest::newRow("movers silence is their own") << "alpha_vantage" << "limit" << "alpha_vantage_movers" << "alpha_vantage" << 20000 << 0 << 0 << 0;
    QTest::newRow("movers silence holds") << "alpha_vantage" << "limit" << "alpha_vantage_movers" << "alpha_vantage_movers" << 20000 << 1 << 0 << 0;
    QTest::newRow("finnhub has no pause") << "finnhub" << "429" << "finnhub" << "finnhub" << 5000 << 0 << 0 << 1;
    QTest::newRow("a 503 starts none") << "twelvedata" << "5xx" << "twelvedata" << "twelvedata" << 16000 << 0 << 0 << 0;
    QTest::newRow("twelvedata is paced 15 s") << "twelvedata" << "none" << "twelvedata" << "twelvedata" << 10000 << 0 << 1 << 0;
    QTest::newRow("pacing allows arrival jitter") << "fmp" << "none" << "fmp" << "fmp" << 14800 << 0 << 0 << 0;
    QTest::newRow("alpha vantage quotes paced 12 s") << "alpha_vantage" << "none" << "alpha_vantage" << "alpha_vantage" << 11000 << 0 << 1 << 0;
    // clang-format on
}

void SoakAccountingTest::requestsInsidePausesAreCounted()
{
    QFETCH(QString, provider);
    QFETCH(QString, kind);
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(int, laterMs);
    QFETCH(int, inside);
    QFETCH(int, tooClose);
    QFETCH(int, elsewhere);

    qint64 now = 1731600000000;
    SimulatedMarket market(42, [&now] { return now; });
    QVERIFY(market.listen(0));
    QCOMPARE(get(market, QStringLiteral("/__sim/fault?provider=%1&kind=%2").arg(provider, kind))
                     .status,
             200);
    const Reply throttled = get(market, kRequests.value(first));
    QVERIFY(throttled.status != 0);
    QCOMPARE(get(market, "/__sim/fault?provider=all&kind=none").status, 200);
    now += laterMs;
    QCOMPARE(get(market, kRequests.value(second)).status, 200);

    const QJsonObject stats = QJsonDocument::fromJson(get(market, "/__sim/stats").body).object();
    QCOMPARE(stats.value("requests_inside_cooldowns").toInt(), inside);
    QCOMPARE(stats.value("requests_inside_spacing").toInt(), tooClose);
    QCOMPARE(stats.value("inside_retry_after_elsewhere").toInt(), elsewhere);
    QCOMPARE(stats.value("fault_switches").toInt(), 2);
    QCOMPARE(stats.value("not_waited").toArray().size(), inside + tooClose);
    QCOMPARE(market.ledger().requestsInsideCooldowns(), inside);
}

void SoakAccountingTest::htmlPageUnderOkIsNoJson_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<QString>("path");
    QTest::newRow("yahoo") << "yahoo"
                           << "yahoo_us"
                           << "/v8/finance/chart/AAPL?interval=1d&range=5d";
    QTest::newRow("fmp") << "fmp"
                         << "fmp" << kRequests.value("fmp");
    QTest::newRow("every provider") << "all"
                                    << "twelvedata" << kRequests.value("twelvedata");
}

void SoakAccountingTest::htmlPageUnderOkIsNoJson()
{
    QFETCH(QString, provider);
    QFETCH(QString, providerId);
    QFETCH(QString, path);

    SimulatedMarket market;
    QVERIFY(market.listen(0));
    QCOMPARE(get(market, QStringLiteral("/__sim/fault?provider=%1&kind=html").arg(provider)).status,
             200);
    const Reply reply = get(market, path);
    QCOMPARE(reply.status, 200);
    QVERIFY(reply.contentType.startsWith("text/html"));
    QVERIFY(reply.body.contains("<html"));
    const ProviderResponseCheck check = classifyProviderResponse(providerId, 200, {}, reply.body);
    QVERIFY(!check.ok);
    QVERIFY(!check.rateLimited);
    QCOMPARE(check.message, QStringLiteral("Malformed or empty JSON"));
    // Streams take no HTML.
    QVERIFY(!market.applyFault("binance_ws=html").isEmpty());
}

void SoakAccountingTest::morePortsAnswerAsTheFirst()
{
    qint64 now = 1731600000000;
    SimulatedMarket market(42, [&now] { return now; });
    QVERIFY(market.listen(0));
    const QString other = market.listenAlso();
    QVERIFY(other.startsWith(QStringLiteral("http://127.0.0.1:")));
    QVERIFY(other != market.baseUrl());
    QCOMPARE(get(market, "/__sim/fault?provider=twelvedata&kind=429").status, 200);

    // The fault and the pause are the market's, whichever port the provider is asked on.
    const auto getOther = [&](const QString &path) {
        QNetworkReply *reply = m_manager.get(QNetworkRequest(QUrl(other + path)));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished())
            finished.wait(3000);
        reply->deleteLater();
        return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    };
    QCOMPARE(getOther(kRequests.value("twelvedata")), 429);
    now += 1000;
    QCOMPARE(get(market, kRequests.value("twelvedata")).status, 429);
    QCOMPARE(market.ledger().requestsInsideCooldowns(), 1);
}

void SoakAccountingTest::inventoryListsWhatTheUserMade()
{
    const QByteArray watchlist =
            R"({"name":"Default","symbols":[{"symbol":"PETR4.SA"},{"symbol":"AAPL"}]})";
    const QByteArray settings = R"({
        "alerts": [{"symbol": "AAPL", "target": 250.5, "above": true, "triggered": true,
                    "repeating": false, "last_trigger_ms": 1731600000000},
                   {"symbol": "BRL=X", "target": 4.9, "above": false, "repeating": true}],
        "portfolio": {"active": "Main", "items": [{"name": "Main", "base_currency": "BRL",
            "positions": [{"symbol": "AAPL", "quantity": 0.5, "average_price": 180}],
            "transactions": [{"timestamp": "2024-06-03 10:00:00", "type": "dividend",
                              "symbol": "AAPL", "amount": 1.25, "currency": "USD"}]}]},
        "drawings": {"AAPL|1m": [{"type": "trend", "price1": 180, "price2": 200, "index1": 5,
                                   "index2": 40, "label": "up"}]}
    })";
    const QStringList expected{
            "alert AAPL >= 250.5",
            "alert BRL=X <= 4.9 repeating",
            "drawing AAPL|1m trend 180 200 5 40 up",
            "portfolio Main BRL",
            "position Main AAPL 0.5 180",
            "row AAPL",
            "row PETR4.SA",
            "transaction Main 2024-06-03 10:00:00 dividend AAPL 1.25 USD",
    };
    QCOMPARE(soakInventory(watchlist, settings), expected);
    QVERIFY(soakInventory("not json", "[]").isEmpty());
    QString problem;
    QVERIFY(soakInventoryOfFolder(QStringLiteral("/nonexistent"), &problem).isEmpty());
    QVERIFY(problem.contains(QStringLiteral("local.json")));
}

QTEST_GUILESS_MAIN(SoakAccountingTest)
#include "tst_soak_accounting.moc"
