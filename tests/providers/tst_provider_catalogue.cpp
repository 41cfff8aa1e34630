#include "providers/health_check.h"
#include "providers/provider_catalogue.h"
#include "providers/provider_requests.h"
#include "providers/quota_meter.h"
#include "support/fake_provider.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

using KeyMap = QMap<QString, QString>;
Q_DECLARE_METATYPE(KeyMap)

namespace {

constexpr qint64 kNow = 1'731'700'000'000;

// What FMP sends to keys made after August 2025 on /api/v3.
constexpr char kFmpLegacyBody[] =
        R"({"Error Message": "Legacy Endpoint : Due to Legacy endpoints being no longer supported - )"
        R"(This endpoint is only available for legacy users who have valid subscriptions prior )"
        R"(August 31, 2025."})";

KeyLookup lookup(const KeyMap &keys)
{
    return [keys](const QString &name) { return keys.value(name); };
}

const CatalogueRow &row(const char *group, const char *provider)
{
    for (const CatalogueRow &entry : providerCatalogue()) {
        if (qstrcmp(entry.group, group) == 0 && qstrcmp(entry.provider, provider) == 0)
            return entry;
    }
    qFatal("no catalogue row %s|%s", group, provider);
}

// One letter per catalogue row in order, groups separated by spaces.
QString stateLetter(const QString &state)
{
    if (state == "enabled")
        return "E";
    if (state == "public fallback")
        return "P";
    if (state == "not implemented")
        return "N";
    if (state == "skipped: no key")
        return "S";
    return "?";
}

} // namespace

class ProviderCatalogueTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cascadeStatesFollowTheKeys_data();
    void cascadeStatesFollowTheKeys();
    void statesHaveTheirColours_data();
    void statesHaveTheirColours();
    void rowsWithoutAProbeStayNeutral();
    void probesAskWhatEachProviderServes();
    void healthRecordsReadWrongTypesAsMissing();
    void failedTestKeepsTheLastSuccess();
    void cascadeLogNamesTheTrialOrder();
    void healthRunReportsEveryAnswer();
    void newRunMakesTheOldAnswersStale();
    void newerFmpKeyIsTestedOnStable();

private:
    FakeProvider m_provider;
    QNetworkAccessManager m_manager;
};

void ProviderCatalogueTest::initTestCase()
{
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void ProviderCatalogueTest::init()
{
    setFmpStableQuoteInUse(false);
    m_provider.clearRequests();
}

void ProviderCatalogueTest::cascadeStatesFollowTheKeys_data()
{
    QTest::addColumn<KeyMap>("keys");
    QTest::addColumn<QString>("states"); // Crypto, US/America, B3, Forex, News

    QTest::newRow("no keys") << KeyMap{} << "PSSN SSSSSSSSSSP PNSP SSSP PSP";
    QTest::newRow("blank keys are no keys")
            << KeyMap{{"brapi_token", "  "}, {"finnhub_api_key", " "}}
            << "PSSN SSSSSSSSSSP PNSP SSSP PSP";
    QTest::newRow("twelve data only where it is implemented")
            << KeyMap{{"twelvedata_api_key", "td"}} << "PSSN SSSESSSSSSP PNSP ESSP PSP";
    QTest::newRow("brapi token") << KeyMap{{"brapi_token", "tok"}}
                                 << "PSSN SSSSSSSSSSP ENSP SSSP PSP";
    QTest::newRow("news endpoint stays a public row")
            << KeyMap{{"querlin_news_endpoint", "https://example.test/n.json"},
                      {"newsapi_api_key", "n"}}
            << "PSSN SSSSSSSSSSP PNSP SSSP PEP";
    KeyMap all;
    for (const CatalogueRow &entry : providerCatalogue()) {
        if (*entry.keyName)
            all.insert(entry.keyName, "key");
    }
    QTest::newRow("every key") << all << "PEEN EEEEEEEEEEP ENEP EEEP PEP";
}

void ProviderCatalogueTest::cascadeStatesFollowTheKeys()
{
    QFETCH(KeyMap, keys);
    QString states;
    QString group = providerCatalogue().front().group;
    for (const CatalogueRow &entry : providerCatalogue()) {
        if (group != entry.group)
            states += ' ';
        group = entry.group;
        states += stateLetter(cascadeState(entry, lookup(keys)));
    }
    QTEST(states, "states");
}

void ProviderCatalogueTest::statesHaveTheirColours_data()
{
    QTest::addColumn<bool>("health");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("theme");
    QTest::addColumn<QString>("color");

    QTest::newRow("enabled") << false << "enabled"
                             << "qrl_dark"
                             << "#20c878";
    QTest::newRow("public, light") << false << "public fallback"
                                   << "qrl_light"
                                   << "#006cb4";
    QTest::newRow("public, dark") << false << "public fallback"
                                  << "qrl_dark"
                                  << "#8fb8ad";
    QTest::newRow("not implemented, light") << false << "not implemented"
                                            << "qrl_light"
                                            << "#52606d";
    QTest::newRow("no key is red") << false << "skipped: no key"
                                   << "qrl_light"
                                   << "#f45d5d";
    QTest::newRow("health ok") << true << "ok"
                               << "qrl_light"
                               << "#20c878";
    QTest::newRow("health testing") << true << "testing"
                                    << "qrl_dark"
                                    << "#f3b24a";
    QTest::newRow("health rate limited") << true << "rate limited"
                                         << "qrl_dark"
                                         << "#f3b24a";
    QTest::newRow("health skipped, dark") << true << "skipped: no key"
                                          << "qrl_dark"
                                          << "#9aa0a6";
    QTest::newRow("health no probe, light") << true << kNoProbeState << "qrl_light"
                                            << "#52606d";
    QTest::newRow("health not implemented") << true << "not implemented"
                                            << "qrl_dark"
                                            << "#9aa0a6";
    QTest::newRow("health error") << true << "error"
                                  << "qrl_light"
                                  << "#f45d5d";
    QTest::newRow("health never tested") << true << "not tested"
                                         << "qrl_dark"
                                         << "#f45d5d";
}

void ProviderCatalogueTest::statesHaveTheirColours()
{
    QFETCH(bool, health);
    QFETCH(QString, state);
    QFETCH(QString, theme);
    QTEST(health ? healthStateColor(state, theme) : cascadeStateColor(state, theme), "color");
}

void ProviderCatalogueTest::rowsWithoutAProbeStayNeutral()
{
    const KeyMap keys{{"polygon_api_key", "p"}, {"itick_api_key", "i"}, {"newsapi_api_key", "n"}};
    for (const auto &[group, provider] :
         {std::pair{"US/America", "Polygon"}, std::pair{"US/America", "iTick"},
          std::pair{"News", "NewsAPI"}, std::pair{"News", "Yahoo Finance RSS"}}) {
        const HealthPlan plan = healthPlan(row(group, provider), lookup(keys));
        QCOMPARE(plan.state, QString(kNoProbeState));
        QVERIFY(!plan.request);
    }
    ApiHealthRecord record;
    beginHealthTest(record, healthPlan(row("B3", "Twelve Data"), lookup(keys)));
    QCOMPARE(record.state, "not implemented");
    QCOMPARE(record.latencyMs, -1);
    QCOMPARE(record.attempts, 0);
    beginHealthTest(record, healthPlan(row("Forex", "Finnhub"), lookup(keys)));
    QCOMPARE(record.state, "skipped: no key");
}

void ProviderCatalogueTest::probesAskWhatEachProviderServes()
{
    const KeyLookup keys = lookup({{"twelvedata_api_key", "TDKEY"}, {"brapi_token", "BRTOK"}});
    const auto url = [&](const char *group, const char *provider) {
        const auto request = healthTestRequest(row(group, provider), keys);
        return request ? request->url() : QUrl();
    };
    QCOMPARE(QUrlQuery(url("Forex", "Twelve Data")).queryItemValue("symbol", QUrl::FullyDecoded),
             "USD/BRL");
    QCOMPARE(QUrlQuery(url("US/America", "Twelve Data")).queryItemValue("symbol"), "AAPL");
    QCOMPARE(url("B3", "BrAPI").path(), "/api/quote/PETR4");
    QCOMPARE(QUrlQuery(url("B3", "BrAPI")).queryItemValue("token"), "BRTOK");
    QCOMPARE(url("Forex", "Yahoo FX Public").path(QUrl::FullyEncoded), "/v8/finance/chart/BRL%3DX");
    QCOMPARE(QUrlQuery(url("Crypto", "Binance Public")).queryItemValue("symbol"), "BTCUSDT");
    const auto alpha = healthTestRequest(row("US/America", "Alpha Vantage"), keys);
    QCOMPARE(alpha->rawHeader("User-Agent"), "QuerlinTerminal/1.0");
}

void ProviderCatalogueTest::healthRecordsReadWrongTypesAsMissing()
{
    const QJsonValue stored = QJsonDocument::fromJson(R"({
        "Crypto|Binance Public": {"state": 5, "latency_ms": "12", "attempts": 3,
                                  "last_error": ["x"], "failures": 2},
        "News|NewsAPI": {"state": "", "successes": 1.0},
        "broken": 7
    })")
                                      .object();
    const ApiHealthRecords records = healthRecordsFromJson(stored);
    QCOMPARE(records.keys(), QStringList({"Crypto|Binance Public", "News|NewsAPI"}));
    const ApiHealthRecord binance = records.value("Crypto|Binance Public");
    QCOMPARE(binance.state, "not tested");
    QCOMPARE(binance.latencyMs, 0);
    QCOMPARE(binance.attempts, 3);
    QCOMPARE(binance.failures, 2);
    QVERIFY(binance.lastError.isEmpty());
    QCOMPARE(records.value("News|NewsAPI").state, "not tested");
    QCOMPARE(records.value("News|NewsAPI").successes, 1);

    QVERIFY(healthRecordsFromJson(QJsonValue("api_health")).isEmpty());
    QCOMPARE(healthRecordsFromJson(healthRecordsToJson(records)), records);
}

void ProviderCatalogueTest::failedTestKeepsTheLastSuccess()
{
    ApiHealthRecord record;
    record.lastSuccess = "2025-01-02 03:04:05";
    applyHealthTestReply(
            record, classifyProviderResponse("alpha_vantage", 429, {{"retry-after", "30"}}, {}),
            412, QDateTime::currentDateTime());
    QCOMPARE(record.state, "rate limited");
    QCOMPARE(record.lastError, "HTTP 429 rate limit; retry in 30s");
    QCOMPARE(record.latencyMs, 412);
    QCOMPARE(record.lastSuccess, "2025-01-02 03:04:05");
    QCOMPARE(record.failures, 1);

    applyHealthTestReply(record, classifyProviderResponse("finnhub", 500, {}, "{}"), 3,
                         QDateTime(QDate(2025, 6, 7), QTime(8, 9, 10)));
    QCOMPARE(record.state, "error");
    QCOMPARE(record.lastError, "HTTP 500");

    applyHealthTestReply(record, classifyProviderResponse("finnhub", 200, {}, R"({"c": 2.5})"), 3,
                         QDateTime(QDate(2025, 6, 7), QTime(8, 9, 10)));
    QCOMPARE(record.state, "ok");
    QCOMPARE(record.lastSuccess, "2025-06-07 08:09:10");
    QCOMPARE(record.lastError, "HTTP 500"); // the last failure stays readable
    QCOMPARE(record.successes, 1);
}

void ProviderCatalogueTest::cascadeLogNamesTheTrialOrder()
{
    const QStringList lines = cascadeLogLines(lookup({{"finnhub_api_key", "f"}}));
    QVERIFY(lines.contains("API cascade US Equity quotes: finnhub -> yahoo_us"));
    QVERIFY(lines.contains("API cascade Crypto quotes: binance_public"));
    QVERIFY(cascadeLogLine({}, {"finnhub"}).isEmpty());
    QVERIFY(cascadeLogLine("US Equity quotes", {}).isEmpty());
}

void ProviderCatalogueTest::healthRunReportsEveryAnswer()
{
    m_provider.setReply("/api/v3/ticker/price",
                        FakeReply::json(R"({"symbol":"BTCUSDT","price":"65000.10"})"));
    m_provider.setReply("/v8/finance/chart/AAPL",
                        FakeReply::json(providerData("yahoo_chart_petr4_1d.json")));
    m_provider.setReply("/v8/finance/chart/PETR4.SA",
                        FakeReply{.headers = {{"Content-Type", "text/html"}},
                                  .body = "<html><body>Will be right back</body></html>"});
    m_provider.setReply("/v8/finance/chart/BRL%3DX", FakeReply::json({}));
    m_provider.setReply("/TERMINAL/NEWS.json", FakeReply::json("[]"));
    m_provider.setReply("/query", FakeReply{.status = 429, .headers = {{"Retry-After", "30"}}});
    // /api/quote/PETR4 is left unscripted: a 404.

    qint64 now = kNow;
    HealthCheck check(m_manager);
    check.setClock([&now] { return now; });
    QuotaMeter meter([&now] { return now; });
    check.setQuotaMeter(&meter);
    QSignalSpy progress(&check, &HealthCheck::progress);
    QSignalSpy finished(&check, &HealthCheck::finished);

    ApiHealthRecords previous;
    previous["B3|Yahoo .SA Public"].lastSuccess = "2025-01-02 03:04:05";
    previous["B3|Yahoo .SA Public"].attempts = 4;
    check.start(lookup({{"alpha_vantage_api_key", "AVKEY"}}), previous);
    QCOMPARE(check.records().value("US/America|Alpha Vantage").state, "testing");
    QCOMPARE(check.records().value("US/America|Finnhub").state, "skipped: no key");
    now += 250;
    QVERIFY(finished.wait(5000));

    QCOMPARE(progress.first(), QVariantList({0, 7}));
    QCOMPARE(progress.size(), 8);
    QCOMPARE(progress.last(), QVariantList({7, 7}));
    QCOMPARE(finished.size(), 1);
    QVERIFY(!check.isRunning());

    const ApiHealthRecords records = check.records();
    const ApiHealthRecord alpha = records.value("US/America|Alpha Vantage");
    QCOMPARE(alpha.state, "rate limited");
    QCOMPARE(alpha.lastError, "HTTP 429 rate limit; retry in 30s");
    QCOMPARE(alpha.latencyMs, 250);
    QCOMPARE(records.value("Crypto|Binance Public").state, "ok");
    QCOMPARE(records.value("US/America|Yahoo Public").state, "ok");
    QCOMPARE(records.value("News|Querlin JSON").state, "ok");
    QCOMPARE(records.value("B3|BrAPI").lastError, "HTTP 404");
    const ApiHealthRecord html = records.value("B3|Yahoo .SA Public");
    QCOMPARE(html.state, "error");
    QCOMPARE(html.lastError, "Malformed or empty JSON");
    QCOMPARE(html.lastSuccess, "2025-01-02 03:04:05");
    QCOMPARE(html.attempts, 5);
    QCOMPARE(records.value("Forex|Yahoo FX Public").lastError, "Malformed or empty JSON");
    QCOMPARE(records.value("News|Yahoo Finance RSS").state, QString(kNoProbeState));
    QCOMPARE(meter.dayCount("alpha_vantage"), 1);
    QCOMPARE(meter.dayCount("brapi_keyed"), 1);
}

void ProviderCatalogueTest::newRunMakesTheOldAnswersStale()
{
    m_provider.setReply("/api/v3/ticker/price",
                        FakeReply{.body = R"({"price":"1.5"})", .delayMs = 30});
    QSignalSpy replies(&m_manager, &QNetworkAccessManager::finished);
    HealthCheck check(m_manager);
    QSignalSpy finished(&check, &HealthCheck::finished);
    check.start({}, {});
    const quint64 first = check.generation();
    check.start({}, {});
    QCOMPARE(check.generation(), first + 1);
    QVERIFY(finished.wait(5000));
    // Both runs' replies arrive; only the second run's are counted.
    QTRY_COMPARE(replies.size(), 2 * check.total());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(check.answered(), check.total());
    const ApiHealthRecord binance = check.records().value("Crypto|Binance Public");
    QCOMPARE(binance.attempts, 1);
    QCOMPARE(binance.successes, 1);
}

void ProviderCatalogueTest::newerFmpKeyIsTestedOnStable()
{
    m_provider.setReply("/api/v3/quote/AAPL", FakeReply::json(kFmpLegacyBody, 403));
    m_provider.setReply("/stable/quote", FakeReply::json(providerData("fmp_quote_msft.json")));
    HealthCheck check(m_manager);
    QSignalSpy finished(&check, &HealthCheck::finished);
    check.start(lookup({{"financial_modeling_prep_api_key", "FMPKEY"}}), {});
    QVERIFY(finished.wait(5000));

    const ApiHealthRecord fmp = check.records().value("US/America|Financial Modeling Prep");
    QCOMPARE(fmp.state, "ok");
    QCOMPARE(fmp.attempts, 1);
    QVERIFY(fmpStableQuoteInUse());
    bool askedStable = false;
    for (const RecordedRequest &request : m_provider.requests()) {
        if (request.path == "/stable/quote") {
            askedStable = true;
            QCOMPARE(request.queryItem("symbol"), "AAPL");
            QCOMPARE(request.queryItem("apikey"), "FMPKEY");
        }
    }
    QVERIFY(askedStable);
}

QTEST_GUILESS_MAIN(ProviderCatalogueTest)
#include "tst_provider_catalogue.moc"
