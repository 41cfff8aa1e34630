#include "providers/provider_requests.h"
#include "providers/quote_step.h"
#include "support/fake_provider.h"

#include <QNetworkAccessManager>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

Q_DECLARE_METATYPE(QuoteStepKind)
Q_DECLARE_METATYPE(FakeReply)

namespace {

constexpr qint64 kNow = 1'731'700'000'000;

// Throttled replies ask for 17 s; the others carry no Retry-After.
RawHeaderList retryAfter(int status)
{
    return status == 429 ? RawHeaderList{{"Retry-After", "17"}} : RawHeaderList{};
}

std::shared_ptr<const DataFetcher> fetcherFor(const QString &providerId)
{
    if (providerId == "binance_public")
        return std::make_shared<BinanceFetcher>();
    if (providerId == "alpha_vantage")
        return std::make_shared<AlphaVantageFetcher>("QRLTESTKEY123456");
    if (providerId == "twelvedata")
        return std::make_shared<TwelveDataFetcher>("TD");
    if (providerId == "fmp")
        return std::make_shared<FinancialModelingPrepFetcher>("FMP");
    if (providerId == "finnhub")
        return std::make_shared<FinnhubFetcher>("FH");
    if (providerId.startsWith("brapi"))
        return std::make_shared<BrAPIFetcher>("", "1d", "5d");
    return std::make_shared<YahooFetcher>("1d", "5d");
}

} // namespace

class QuoteStepTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void stepKindsReportAndPause_data();
    void stepKindsReportAndPause();
    void goodReplyIsAppliedWithItsLatency();
    void staleReplyChangesNothing();
    void limitTextNeverShowsTheKey();
    void brokenRepliesFailCleanly_data();
    void brokenRepliesFailCleanly();
    void newerFmpKeyMovesTheRunToStable();

private:
    struct Run
    {
        QList<AsyncProviderResult> reports;
        QList<QuoteSnapshot> applied;
        QList<qint64> latencies;
        int cacheWrites = 0;
    };
    Run runStep(const QString &providerId, QuoteStepKind kind, const QString &symbol,
                quint64 currentGeneration = 1);

    FakeProvider m_provider;
    QNetworkAccessManager m_manager;
    ProviderThrottles m_throttles;
};

void QuoteStepTest::initTestCase()
{
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void QuoteStepTest::stepKindsReportAndPause_data()
{
    QTest::addColumn<QuoteStepKind>("kind");
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<bool>("rateLimited");
    QTest::addColumn<QString>("message");
    QTest::addColumn<qint64>(
            "cooldownUntil"); // of providerId, after a pause of 5 s was already set
    QTest::addColumn<qint64>("blockedUntil");
    QTest::addColumn<bool>("writesCache");

    const qint64 earlier = kNow + 5000;
    const QByteArray credits = providerData("twelvedata_error_credits.json");
    const QString creditsText =
            QJsonDocument::fromJson(credits).object().value("message").toString();

    QTest::newRow("keyed twelve data throttled")
            << QuoteStepKind::KeyedUs << "twelvedata" << 429 << credits << false << true
            << "HTTP 429 rate limit" << kNow + 17000 << qint64(0) << false;
    QTest::newRow("keyed twelve data succeeds")
            << QuoteStepKind::KeyedUs << "twelvedata" << 200
            << providerData("twelvedata_quote_eurusd.json") << true << false << "" << qint64(0)
            << qint64(0) << false;
    QTest::newRow("keyed fmp limit text")
            << QuoteStepKind::KeyedUs << "fmp" << 200 << providerData("fmp_error_limit.json")
            << false << true
            << QJsonDocument::fromJson(providerData("fmp_error_limit.json"))
                       .object()
                       .value("Error Message")
                       .toString()
            << kNow + 60000 << qint64(0) << false;
    QTest::newRow("keyed fmp succeeds")
            << QuoteStepKind::KeyedUs << "fmp" << 200 << providerData("fmp_quote_msft.json") << true
            << false << "" << qint64(0) << qint64(0) << false;
    QTest::newRow("alpha vantage blocked a minute")
            << QuoteStepKind::KeyedUs << "alpha_vantage" << 429 << QByteArray() << false << true
            << "HTTP 429 rate limit" << earlier << kNow + 60000 << false;
    QTest::newRow("alpha vantage writes its cache")
            << QuoteStepKind::KeyedUs << "alpha_vantage" << 200
            << providerData("alphavantage_global_quote_ibm.json") << true << false << "" << earlier
            << qint64(0) << true;
    QTest::newRow("forex twelve data throttled under 200")
            << QuoteStepKind::Forex << "twelvedata" << 200
            << QByteArray(R"({"message":"rate limit"})") << false << true << "rate limit"
            << kNow + 60000 << qint64(0) << false;
    QTest::newRow("forex twelve data out of credits")
            << QuoteStepKind::Forex << "twelvedata" << 200 << credits << false << true
            << creditsText.left(180) << kNow + 60000 << qint64(0) << false;
    QTest::newRow("forex twelve data succeeds")
            << QuoteStepKind::Forex << "twelvedata" << 200
            << providerData("twelvedata_quote_eurusd.json") << true << false << "" << qint64(0)
            << qint64(0) << false;
    QTest::newRow("forex yahoo unreadable")
            << QuoteStepKind::Forex << "yahoo_fx" << 200
            << QByteArray(R"({"chart":{"result":[{"meta":{},"indicators":{"quote":[{}]}}]}})")
            << false << false << "invalid forex payload" << earlier << qint64(0) << false;
    QTest::newRow("crypto unreadable")
            << QuoteStepKind::Crypto << "binance_public" << 200 << QByteArray("[]") << false
            << false << "invalid crypto payload" << earlier << qint64(0) << false;
    QTest::newRow("plain unreadable")
            << QuoteStepKind::Plain << "yahoo_us" << 200
            << QByteArray(R"({"chart":{"result":[{"meta":{}}]}})") << false << false
            << "invalid quote payload" << earlier << qint64(0) << false;
    QTest::newRow("plain throttled starts no pause")
            << QuoteStepKind::Plain << "finnhub" << 429 << QByteArray() << false << true
            << "HTTP 429 rate limit" << earlier << qint64(0) << false;
    QTest::newRow("brapi plan limit is not 429")
            << QuoteStepKind::Plain << "brapi_public" << 402
            << providerData("brapi_error_plan_limit.json") << false << false << "HTTP 402"
            << earlier << qint64(0) << false;
}

void QuoteStepTest::stepKindsReportAndPause()
{
    QFETCH(QuoteStepKind, kind);
    QFETCH(QString, providerId);
    QFETCH(int, status);
    QFETCH(QByteArray, body);

    ProviderThrottles throttles;
    throttles.startCooldown(providerId, kNow, 5);
    const ProviderResponseCheck check =
            classifyProviderResponse(providerId, status, retryAfter(status), body);
    const QuoteStepOutcome outcome = resolveQuoteStep(kind, providerId, *fetcherFor(providerId),
                                                      "AAPL", check, body, throttles, kNow);
    QTEST(outcome.result.ok, "ok");
    QTEST(outcome.result.rateLimited, "rateLimited");
    QTEST(outcome.result.message, "message");
    QCOMPARE(outcome.quote.has_value(), outcome.result.ok);
    QTEST(throttles.cooldownUntil(providerId), "cooldownUntil");
    QTEST(throttles.alphaVantageBlockedUntil(), "blockedUntil");
    QTEST(outcome.writeAlphaVantageCache, "writesCache");
}

QuoteStepTest::Run QuoteStepTest::runStep(const QString &providerId, QuoteStepKind kind,
                                          const QString &symbol, quint64 currentGeneration)
{
    Run run;
    qint64 now = kNow;
    QuoteStepHooks hooks;
    hooks.currentGeneration = [currentGeneration](const QString &) { return currentGeneration; };
    hooks.applyQuote = [&run](const QuoteSnapshot &quote, const QString &id, qint64 latency) {
        QCOMPARE(id, QStringLiteral("finnhub"));
        run.applied << quote;
        run.latencies << latency;
    };
    hooks.writeAlphaVantageCache = [&run](const QString &, const QByteArray &) {
        ++run.cacheWrites;
    };
    hooks.throttles = &m_throttles;
    hooks.clock = [&now] { return now += 125; };
    hooks.transferTimeoutMs = 300;

    QSignalSpy finished(&m_manager, &QNetworkAccessManager::finished);
    const QuoteStep step{kind, providerId, symbol, fetcherFor(providerId), 1, {}};
    startQuoteStep(m_manager, this, step, hooks,
                   [&run](const AsyncProviderResult &result) { run.reports << result; });
    if (!finished.wait(5000))
        qWarning("no reply finished");
    QCoreApplication::processEvents();
    return run;
}

void QuoteStepTest::goodReplyIsAppliedWithItsLatency()
{
    m_provider.setReply("/api/v1/quote", FakeReply::json(providerData("finnhub_quote_msft.json")));
    const Run run = runStep("finnhub", QuoteStepKind::Plain, "MSFT");
    QCOMPARE(run.reports.size(), 1);
    QVERIFY(run.reports.first().ok);
    QCOMPARE(run.applied.size(), 1);
    QCOMPARE(run.applied.first().price, 415.49);
    QCOMPARE(run.latencies.first(), 125); // one tick of the test clock between send and reply
}

void QuoteStepTest::staleReplyChangesNothing()
{
    m_provider.setReply("/quote",
                        FakeReply{.status = 429, .headers = {{"Retry-After", "17"}}, .body = "{}"});
    m_throttles = {};
    // The user asked again for the symbol while the reply was under way: generation 2 is current.
    const Run run = runStep("twelvedata", QuoteStepKind::KeyedUs, "AAPL", 2);
    QVERIFY(run.reports.isEmpty());
    QCOMPARE(m_throttles.cooldownUntil("twelvedata"), 0);
}

void QuoteStepTest::limitTextNeverShowsTheKey()
{
    m_provider.setReply("/query",
                        FakeReply::json(providerData("alphavantage_information_daily_limit.json")));
    m_throttles = {};
    const Run run = runStep("alpha_vantage", QuoteStepKind::KeyedUs, "IBM");
    QCOMPARE(run.reports.size(), 1);
    const AsyncProviderResult result = run.reports.first();
    QVERIFY(!result.ok && result.rateLimited);
    QVERIFY(result.message.startsWith("We have detected your API key as *** and"));
    QVERIFY(!result.message.contains("QRLTESTKEY"));
    QVERIFY(m_throttles.isAlphaVantageBlocked(kNow + 59000));
    QCOMPARE(run.cacheWrites, 0);
}

void QuoteStepTest::brokenRepliesFailCleanly_data()
{
    QTest::addColumn<FakeReply>("reply");
    QTest::addColumn<QString>("message");

    const QByteArray quote = providerData("finnhub_quote_msft.json");
    QTest::newRow("closed mid-body")
            << FakeReply{.body = quote, .mode = FakeReply::Mode::CloseMidBody}
            << "Malformed or empty JSON";
    QTest::newRow("closed before a reply")
            << FakeReply{.body = quote, .mode = FakeReply::Mode::CloseWithoutReply} << "HTTP 0";
    QTest::newRow("silent provider")
            << FakeReply{.body = quote, .mode = FakeReply::Mode::NoAnswer} << "HTTP 0";
    QTest::newRow("megabytes of garbage")
            << FakeReply::json(QByteArray(9 * 1024 * 1024, '{')) << "reply too large";
    QTest::newRow("wrong types") << FakeReply::json(R"({"c":"415","dp":[],"o":{}})")
                                 << "Invalid or limited payload";
}

void QuoteStepTest::brokenRepliesFailCleanly()
{
    // A reply cut off by its time-out is closed; reading it only says so on the console.
    QTest::failOnWarning(QRegularExpression(QStringLiteral("^QIODevice::read")));
    QFETCH(FakeReply, reply);
    m_provider.setReply("/api/v1/quote", reply);
    const Run run = runStep("finnhub", QuoteStepKind::Plain, "MSFT");
    QCOMPARE(run.reports.size(), 1);
    QVERIFY(!run.reports.first().ok);
    QTEST(run.reports.first().message, "message");
    QVERIFY(run.applied.isEmpty());
}

void QuoteStepTest::newerFmpKeyMovesTheRunToStable()
{
    setFmpStableQuoteInUse(false);
    m_provider.clearRequests();
    m_provider.setReply("/api/v3/quote/AAPL",
                        FakeReply::json(R"({"Error Message": "Legacy Endpoint : only available )"
                                        R"(for legacy users who have valid subscriptions prior )"
                                        R"(August 31, 2025"})",
                                        403));
    m_provider.setReply("/stable/quote", FakeReply::json(providerData("fmp_quote_msft.json")));
    m_throttles = {};

    QList<AsyncProviderResult> reports;
    QuoteStepHooks hooks;
    hooks.throttles = &m_throttles;
    const QuoteStep step{QuoteStepKind::KeyedUs, "fmp", "AAPL", fetcherFor("fmp"), 1, {}};
    const auto report = [&reports](const AsyncProviderResult &result) { reports << result; };
    startQuoteStep(m_manager, this, step, hooks, report);
    QTRY_COMPARE(reports.size(), 1);
    QVERIFY(reports.first().ok);
    QCOMPARE(m_provider.requests().size(), 2);
    QCOMPARE(m_provider.requests().at(1).path, "/stable/quote");
    QCOMPARE(m_provider.requests().at(1).queryItem("symbol"), "AAPL");
    QCOMPARE(m_provider.requests().at(1).queryItem("apikey"), "FMP");

    // The next quote goes straight to /stable.
    startQuoteStep(m_manager, this, step, hooks, report);
    QTRY_COMPARE(reports.size(), 2);
    QVERIFY(reports.last().ok);
    QCOMPARE(m_provider.requests().size(), 3);
    QCOMPARE(m_provider.requests().at(2).path, "/stable/quote");
    setFmpStableQuoteInUse(false);
}

QTEST_GUILESS_MAIN(QuoteStepTest)
#include "tst_quote_step.moc"
