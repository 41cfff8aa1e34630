#include "providers/alpha_vantage_cache.h"
#include "providers/quote_router.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

Q_DECLARE_METATYPE(AssetClass)
Q_DECLARE_METATYPE(DataKind)

namespace {

// Stands in for the market table until the window has one.
class RecordingHost : public QuoteRouterHost
{
public:
    struct Update
    {
        QuoteSnapshot quote;
        QString provider, latency, status;
    };

    void updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                         const QString &latency, const QString &status) override
    {
        updates.append({quote, provider, latency, status});
    }
    void setMarketRowStatus(const QString &symbol, const QString &status) override
    {
        statuses.append(symbol + '=' + status);
    }
    void showStatusMessage(const QString &text) override { messages.append(text); }
    bool isBinanceStreamConnected() const override { return streamConnected; }
    QString chartTimeframe() const override { return QStringLiteral("1d"); }

    QList<Update> updates;
    QStringList statuses;
    QStringList messages;
    bool streamConnected = false;
};

const QByteArray kNotFound = R"({"chart":{"result":null,"error":{"code":"Not Found"}}})";

FakeReply throttled()
{
    return FakeReply{.status = 429, .headers = {{"Retry-After", "17"}}, .body = "{}"};
}

} // namespace

class QuoteRouterTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void providerOrderFollowsClassAndKeys_data();
    void providerOrderFollowsClassAndKeys();
    void cascadeRecordsFailuresInOrder();
    void keyedProviderAnswersFirst();
    void allFailedMessageJoinsEveryProvider();
    void throttledProvidersPauseAndStayLocal();
    void twelveDataAskedTwiceWithinFifteenSeconds();
    void alphaVantageAskedTwiceWithinTwelveSeconds();
    void silentStepTimesOut();
    void replacedCascadeChangesNothing();
    void forexAsksTwelveDataForThePair();
    void cryptoFailureRespectsTheStream();
    void watchlistBatchFillsKnownRows();
    void directAlphaVantageFallsBackOnLimit();

private:
    void setKeys(const QStringList &names);
    bool settle(int expectedRequests);

    std::unique_ptr<IsolatedFolders> m_folders;
    FakeProvider m_provider;
    QNetworkAccessManager m_network;
    RecordingHost m_host;
    QHash<QString, QString> m_keys;
    qint64 m_now = 1'731'700'000'000;
    std::unique_ptr<QuoteRouter> m_router;
};

void QuoteRouterTest::initTestCase()
{
    useTerminalIdentity();
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void QuoteRouterTest::init()
{
    m_folders = std::make_unique<IsolatedFolders>();
    m_host = {};
    m_keys.clear();
    m_provider.clearRequests();
    m_router = std::make_unique<QuoteRouter>(
            m_network, m_host, [this](const QString &name) { return m_keys.value(name); });
    m_router->setClock([this] { return m_now; });
    m_router->setStepTimeoutMs(2000);
    // Every test scripts what it needs; the rest of the world answers "not found".
    for (const char *path : {"/api/v1/quote", "/quote", "/query", "/v8/finance/chart/AAPL",
                             "/v8/finance/chart/BRL%3DX", "/v7/finance/quote"})
        m_provider.setReply(path, FakeReply::json(kNotFound, 404));
}

void QuoteRouterTest::cleanup()
{
    m_router.reset();
    m_folders.reset();
}

void QuoteRouterTest::setKeys(const QStringList &names)
{
    for (const QString &name : names)
        m_keys.insert(name, "key-" + name);
}

// Waits for the requests and then lets the replies run through the cascade.
bool QuoteRouterTest::settle(int expectedRequests)
{
    if (!m_provider.waitForRequests(expectedRequests))
        return false;
    return QTest::qWaitFor([this] { return !m_router->runningCascade("AAPL"); }, 5000);
}

void QuoteRouterTest::providerOrderFollowsClassAndKeys_data()
{
    QTest::addColumn<AssetClass>("assetClass");
    QTest::addColumn<DataKind>("kind");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("order");

    const QStringList everyKey{
            "finnhub_api_key",       "twelvedata_api_key", "financial_modeling_prep_api_key",
            "alpha_vantage_api_key", "brapi_token",        "polygon_api_key",
            "itick_api_key"};
    QTest::newRow("us, no keys") << AssetClass::UsEquity << DataKind::Quote << QStringList()
                                 << QStringList{"yahoo_us"};
    QTest::newRow("br, no keys") << AssetClass::BrEquity << DataKind::Quote << QStringList()
                                 << QStringList{"brapi_public", "yahoo_b3"};
    QTest::newRow("fx, no keys") << AssetClass::Forex << DataKind::Quote << QStringList()
                                 << QStringList{"yahoo_fx"};
    QTest::newRow("crypto") << AssetClass::Crypto << DataKind::Quote << everyKey
                            << QStringList{"binance_public"};
    QTest::newRow("us, every key")
            << AssetClass::UsEquity << DataKind::Quote << everyKey
            << QStringList{"finnhub", "twelvedata", "fmp", "alpha_vantage", "yahoo_us"};
    QTest::newRow("br, token") << AssetClass::BrEquity << DataKind::Quote << everyKey
                               << QStringList{"brapi_keyed", "brapi_public", "yahoo_b3"};
    QTest::newRow("fx, twelve data") << AssetClass::Forex << DataKind::Quote << everyKey
                                     << QStringList{"twelvedata", "yahoo_fx"};
    QTest::newRow("blank key is no key") << AssetClass::UsEquity << DataKind::Quote
                                         << QStringList{"blank"} << QStringList{"yahoo_us"};
    QTest::newRow("us order book")
            << AssetClass::UsEquity << DataKind::OrderBook << everyKey << QStringList{"itick"};
    QTest::newRow("us history") << AssetClass::UsEquity << DataKind::History << everyKey
                                << QStringList{"yahoo_us"};
}

void QuoteRouterTest::providerOrderFollowsClassAndKeys()
{
    QFETCH(AssetClass, assetClass);
    QFETCH(DataKind, kind);
    QFETCH(QStringList, keys);
    const auto lookup = [&keys](const QString &name) {
        return keys.contains("blank") ? QStringLiteral("   ")
               : keys.contains(name)  ? "k"
                                      : QString();
    };
    QTEST(providerOrder(assetClass, kind, lookup), "order");
}

void QuoteRouterTest::cascadeRecordsFailuresInOrder()
{
    AsyncProviderCascade cascade;
    QStringList failures;
    QString winner;
    // "a" fails at once, "b" never answers, "c" is rate limited, "d" succeeds late and twice.
    AsyncProviderCascade::Completion lateAnswer;
    cascade.start(
            {"a", "b", "c", "d"},
            [&](const QString &id, AsyncProviderCascade::Completion done) {
                if (id == "a")
                    done(AsyncProviderResult::failure(""));
                else if (id == "b")
                    lateAnswer = done;
                else if (id == "c")
                    done(AsyncProviderResult::failure("HTTP 429 rate limit", true));
                else
                    QTimer::singleShot(0, [done] {
                        done(AsyncProviderResult::success());
                        done(AsyncProviderResult::success());
                    });
            },
            [&](const QString &id) { winner += id; }, [&](const QStringList &f) { failures = f; },
            30);
    QTRY_COMPARE(winner, QString("d"));
    lateAnswer(AsyncProviderResult::success()); // "b" answers after its time-out: ignored
    QCOMPARE(winner, QString("d"));
    QVERIFY(failures.isEmpty());
    QCOMPARE(cascade.failures(), (QStringList{"a: invalid response", "b: timeout",
                                              "c: HTTP 429 rate limit [rate limited]"}));

    AsyncProviderCascade unstarted;
    unstarted.start({"x"}, nullptr, nullptr, [&](const QStringList &f) { failures = f; });
    QCOMPARE(failures, QStringList{"x: missing starter"});
}

void QuoteRouterTest::keyedProviderAnswersFirst()
{
    setKeys({"finnhub_api_key"});
    m_provider.setReply("/api/v1/quote", FakeReply::json(providerData("finnhub_quote_msft.json")));
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(1));
    QCOMPARE(m_host.updates.size(), 1);
    QCOMPARE(m_host.updates.first().quote.symbol, QString("AAPL"));
    QCOMPARE(m_host.updates.first().provider, QString("finnhub"));
    QCOMPARE(m_host.updates.first().status, QString("key/delayed"));
    QVERIFY(m_host.updates.first().latency.endsWith(" ms"));
    QCOMPARE(m_host.statuses, QStringList{"AAPL=loading"});
    QCOMPARE(m_provider.requests().size(), 1);
}

void QuoteRouterTest::allFailedMessageJoinsEveryProvider()
{
    setKeys({"finnhub_api_key"});
    m_provider.setReply("/api/v1/quote", throttled());
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QCOMPARE(m_host.messages,
             QStringList{"All quote providers failed for AAPL: finnhub: HTTP 429 rate "
                         "limit [rate limited] | yahoo_us: HTTP 404"});
    QCOMPARE(m_host.statuses.last(), QString("AAPL=all providers failed"));
    QVERIFY(m_host.updates.isEmpty());
}

void QuoteRouterTest::throttledProvidersPauseAndStayLocal()
{
    setKeys({"twelvedata_api_key", "alpha_vantage_api_key"});
    m_provider.setReply("/quote", throttled());
    m_provider.setReply("/query", throttled());
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(3));
    QCOMPARE(m_router->throttles().cooldownUntil("twelvedata"), m_now + 17000);
    QCOMPARE(m_router->throttles().alphaVantageBlockedUntil(), m_now + 60000);

    // Twenty seconds later Twelve Data may be asked again; Alpha Vantage is still blocked.
    m_now += 20000;
    m_provider.clearRequests();
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QCOMPARE(m_host.messages.last(),
             QString("All quote providers failed for AAPL: twelvedata: HTTP 429 rate limit [rate "
                     "limited] | alpha_vantage: cooldown [rate limited] | yahoo_us: HTTP 404"));
    QCOMPARE(m_provider.requests().first().path, QByteArray("/quote"));
}

void QuoteRouterTest::twelveDataAskedTwiceWithinFifteenSeconds()
{
    setKeys({"twelvedata_api_key"});
    m_provider.setReply("/quote", FakeReply::json(providerData("twelvedata_quote_eurusd.json")));
    m_provider.setReply("/v8/finance/chart/AAPL",
                        FakeReply::json(providerData("yahoo_chart_no_data.json")));
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(1));
    m_now += 14999;
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QCOMPARE(m_provider.requests().last().path, QByteArray("/v8/finance/chart/AAPL"));
    QCOMPARE(m_host.updates.size(), 2);
    QCOMPARE(m_host.updates.last().provider, QString("yahoo_us"));
    QCOMPARE(m_host.updates.last().status, QString("free/delayed"));
}

void QuoteRouterTest::alphaVantageAskedTwiceWithinTwelveSeconds()
{
    // Cache freshness is judged from the file's own time, so this test runs on the real date.
    m_now = QDateTime::currentMSecsSinceEpoch();
    setKeys({"alpha_vantage_api_key"});
    m_provider.setReply("/query",
                        FakeReply::json(providerData("alphavantage_global_quote_ibm.json")));
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(1));
    // The second ask, five seconds later, is served from the cache written a moment ago.
    m_now += 5000;
    m_router->refreshQuote("AAPL");
    QTRY_COMPARE(m_host.updates.size(), 2);
    QCOMPARE(m_host.updates.last().provider, QString("Alpha Cache"));
    QCOMPARE(m_host.updates.last().latency, QString("cache"));
    QCOMPARE(m_host.updates.last().status, QString("cached/delayed"));
    QCOMPARE(m_host.updates.last().quote.price, 207.83);
    QCOMPARE(m_provider.requests().size(), 1);

    // Without a fresh cache the step is a local throttle and Yahoo is asked instead.
    m_now += 900 * 1000;
    m_router->throttles().recordAlphaVantageRequest(m_now - 1000);
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QVERIFY(m_host.messages.last().contains(
            "alpha_vantage: local throttle [rate limited] | yahoo_us"));
}

void QuoteRouterTest::silentStepTimesOut()
{
    setKeys({"finnhub_api_key"});
    m_router->setStepTimeoutMs(150);
    m_provider.setReply("/api/v1/quote", FakeReply{.mode = FakeReply::Mode::NoAnswer});
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QCOMPARE(m_host.messages,
             QStringList{
                     "All quote providers failed for AAPL: finnhub: timeout | yahoo_us: HTTP 404"});
}

void QuoteRouterTest::replacedCascadeChangesNothing()
{
    setKeys({"finnhub_api_key"});
    FakeReply slow = FakeReply::json(providerData("finnhub_quote_msft.json"));
    slow.delayMs = 100;
    m_provider.setReply("/api/v1/quote", slow);
    m_router->refreshQuote("AAPL");
    QPointer<AsyncProviderCascade> first = m_router->runningCascade("AAPL");
    m_router->refreshQuote("AAPL");
    QVERIFY(settle(2));
    QTRY_VERIFY(!first);
    QTest::qWait(50);
    QCOMPARE(m_host.updates.size(), 1); // the first reply arrived too, and was dropped
    QCOMPARE(m_router->quoteGeneration("AAPL"), quint64(2));
}

void QuoteRouterTest::forexAsksTwelveDataForThePair()
{
    setKeys({"twelvedata_api_key"});
    m_provider.setReply("/quote", FakeReply::json(providerData("twelvedata_quote_eurusd.json")));
    m_router->refreshQuote("BRL=X");
    QVERIFY(m_provider.waitForRequests(1));
    QTRY_COMPARE(m_host.updates.size(), 1);
    QCOMPARE(m_provider.lastRequest().queryItem("symbol"), QString("USD/BRL"));
    QCOMPARE(m_host.updates.first().quote.symbol, QString("BRL=X"));
}

void QuoteRouterTest::cryptoFailureRespectsTheStream()
{
    m_provider.setReply("/api/v3/ticker/24hr",
                        FakeReply::json(R"({"code":-1121,"msg":"Invalid symbol."})", 400));
    m_host.streamConnected = true;
    m_router->fetchCryptoHttpQuote("BTCUSDT");
    QTRY_VERIFY(!m_router->runningCascade("BTCUSDT"));
    QCOMPARE(m_host.statuses, QStringList{"BTCUSDT=loading"});
    m_host.streamConnected = false;
    m_router->refreshQuote("BTCUSDT");
    QTRY_COMPARE(m_host.statuses.last(), QString("BTCUSDT=all providers failed"));
    QVERIFY(m_host.messages.isEmpty());

    // The public REST quote that covers a dropped stream is a free one.
    m_provider.setReply("/api/v3/ticker/24hr",
                        FakeReply::json(providerData("binance_ticker_24hr_ethusdt.json")));
    m_router->fetchCryptoHttpQuote("ETHUSDT");
    QTRY_COMPARE(m_host.updates.size(), 1);
    QCOMPARE(m_host.updates.first().status, QString("free/delayed"));
}

void QuoteRouterTest::watchlistBatchFillsKnownRows()
{
    m_provider.setReply("/",
                        FakeReply{.status = 404, .headers = {{"Set-Cookie", "A3=d=x1; Path=/"}}});
    m_provider.setReply("/v1/test/getcrumb", FakeReply::text("Phb0wzVdPs6"));
    m_provider.setReply("/v7/finance/quote", FakeReply::json(R"({"quoteResponse":{"result":[
        {"symbol":"PETR4.SA","regularMarketPrice":36.84,"regularMarketChangePercent":1.77},
        {"symbol":"TSLA","regularMarketPrice":310.1},
        {"symbol":"AAPL","regularMarketPrice":0}],"error":null}})"));
    m_router->refreshWatchlistBatch({"AAPL", "BTCUSDT", "PETR4.SA", "NOPE3.SA"});
    QVERIFY(m_provider.waitForRequests(3));
    QCOMPARE(m_provider.lastRequest().queryItem("symbols"), QString("AAPL,PETR4.SA,NOPE3.SA"));
    QCOMPARE(m_provider.lastRequest().queryItem("crumb"), QString("Phb0wzVdPs6"));
    QCOMPARE(m_provider.lastRequest().header("Cookie"), QByteArray("A3=d=x1"));
    QTRY_COMPARE(m_host.updates.size(), 1);
    QCOMPARE(m_host.updates.first().quote.symbol, QString("PETR4.SA"));
    QCOMPARE(m_host.updates.first().quote.changePercent, 1.77);
    QCOMPARE(m_host.updates.first().provider, QString("Yahoo"));
    QCOMPARE(m_host.updates.first().status, QString("free/delayed"));
    QVERIFY(m_router->yahooSession().credentials().isValid());

    // A refused batch renews the session, is sent once more and then changes nothing.
    m_provider.setReply("/v7/finance/quote",
                        FakeReply::json(providerData("yahoo_chart_error_not_found.json"), 401));
    m_router->refreshWatchlistBatch({"PETR4.SA"});
    QVERIFY(m_provider.waitForRequests(7));
    QTest::qWait(50);
    QCOMPARE(m_provider.requests().size(), 7);
    QCOMPARE(m_host.updates.size(), 1);
}

void QuoteRouterTest::directAlphaVantageFallsBackOnLimit()
{
    m_keys.insert("alpha_vantage_api_key", "QRLTESTKEY123456");
    m_provider.setReply("/query",
                        FakeReply::json(providerData("alphavantage_information_daily_limit.json")));
    m_provider.setReply("/v8/finance/chart/AAPL",
                        FakeReply::json(providerData("yahoo_chart_no_data.json")));
    m_router->fetchAlphaVantageQuote("AAPL");
    QVERIFY(m_provider.waitForRequests(2));
    QTRY_COMPARE(m_host.updates.size(), 1);
    QCOMPARE(m_host.updates.first().provider, QString("Yahoo"));
    QVERIFY(m_host.messages.first().startsWith("Alpha Vantage limit reached; using public "
                                               "fallback: We have detected your API key as ***"));
    QVERIFY(m_router->throttles().isAlphaVantageBlocked(m_now));
}

QTEST_GUILESS_MAIN(QuoteRouterTest)
#include "tst_quote_router.moc"
