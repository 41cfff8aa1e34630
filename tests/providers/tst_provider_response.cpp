#include "app/language.h"
#include "providers/provider_response.h"
#include "support/fake_provider.h"

#include <QTest>

namespace {

const QString kInvalid = QStringLiteral("Invalid or limited payload");

} // namespace

class ProviderResponseTest : public QObject
{
    Q_OBJECT

private slots:
    void classifiesReplies_data();
    void classifiesReplies();
    void readsRetryAfter_data();
    void readsRetryAfter();
    void providerMessageFollowsKeyOrder_data();
    void providerMessageFollowsKeyOrder();
    void pausesFollowRetryAfter();
    void failureEntries();
    void textsFollowTheInterfaceLanguage();
};

void ProviderResponseTest::classifiesReplies_data()
{
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<int>("status");
    QTest::addColumn<RawHeaderList>("headers");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<bool>("rateLimited");
    QTest::addColumn<int>("retryAfter");
    QTest::addColumn<QString>("message");

    const RawHeaderList none;
    const RawHeaderList retry17{{"Content-Type", "application/json"}, {"Retry-After", "17"}};
    const QByteArray longInfo = providerData("alphavantage_information_daily_limit.json");
    const QString longInfoText =
            QJsonDocument::fromJson(longInfo).object().value("Information").toString();

    // Status rules come first, whatever the body.
    QTest::newRow("429 with retry-after")
            << "twelvedata" << 429 << retry17 << providerData("twelvedata_error_credits.json")
            << false << true << 17 << "HTTP 429 rate limit";
    QTest::newRow("429 plain text")
            << "yahoo_us" << 429 << none << providerData("yahoo_429_body.txt") << false << true << 0
            << "HTTP 429 rate limit";
    QTest::newRow("no status") << "yahoo_us" << 0 << none << QByteArray() << false << false << 0
                               << "HTTP 0";
    QTest::newRow("404 with json")
            << "yahoo_us" << 404 << none << providerData("yahoo_chart_error_not_found.json")
            << false << false << 0 << "HTTP 404";
    QTest::newRow("402 plan limit")
            << "brapi_public" << 402 << none << providerData("brapi_error_plan_limit.json") << false
            << false << 0 << "HTTP 402";
    QTest::newRow("redirect") << "finnhub" << 302 << none << QByteArray("{}") << false << false << 0
                              << "HTTP 302";
    QTest::newRow("informational")
            << "finnhub" << 101 << none << QByteArray() << false << false << 0 << "HTTP 101";
    QTest::newRow("503 keeps retry-after") << "fmp" << 503 << retry17 << QByteArray("<html>")
                                           << false << false << 17 << "HTTP 503";
    // Body rules under 2xx.
    QTest::newRow("empty body") << "yahoo_us" << 200 << none << QByteArray() << false << false << 0
                                << "Malformed or empty JSON";
    QTest::newRow("html page") << "yahoo_us" << 200 << none
                               << QByteArray("<!DOCTYPE html><title>Yahoo</title>") << false
                               << false << 0 << "Malformed or empty JSON";
    QTest::newRow("truncated json")
            << "finnhub" << 200 << none << providerData("finnhub_quote_msft.json").left(30) << false
            << false << 0 << "Malformed or empty JSON";
    QTest::newRow("information about the rate limit")
            << "alpha_vantage" << 200 << none << longInfo << false << true << 0
            << longInfoText.left(180);
    QTest::newRow("note about call frequency")
            << "alpha_vantage" << 200 << none
            << QByteArray(R"({"Note":"Our standard API call frequency is 5 calls per minute."})")
            << false << true << 0 << "Our standard API call frequency is 5 calls per minute.";
    QTest::newRow("error string") << "fmp" << 200 << none
                                  << QByteArray(R"({"error":"Invalid API key"})") << false << false
                                  << 0 << "Invalid API key";
    QTest::newRow("too many requests")
            << "twelvedata" << 200 << none << QByteArray(R"({"message":"Too Many Requests"})")
            << false << false << 0 << "Too Many Requests";
    QTest::newRow("rate limit in capitals")
            << "twelvedata" << 200 << none << QByteArray(R"({"message":"RATE LIMIT exceeded"})")
            << false << true << 0 << "RATE LIMIT exceeded";
    QTest::newRow("fmp error message")
            << "fmp" << 200 << none << providerData("fmp_error_limit.json") << false << true << 0
            << "Limit Reach . Please upgrade your plan or visit our documentation for "
               "more details at https://site.financialmodelingprep.com/";
    QTest::newRow("brapi flag beside text")
            << "brapi_keyed" << 200 << none << providerData("brapi_error_plan_limit.json") << false
            << true << 0
            << QJsonDocument::fromJson(providerData("brapi_error_plan_limit.json"))
                       .object()
                       .value("message")
                       .toString();
    QTest::newRow("numeric error")
            << "querlin_news" << 200 << none << QByteArray(R"({"error":403})") << false << false
            << 0 << "403";
    QTest::newRow("blank message is no message")
            << "finnhub" << 200 << none
            << QByteArray(R"({"message":"  ","error":false,"c":415.49})") << true << false << 0
            << "";
    // Payload checks, one row per provider family.
    QTest::newRow("binance ticker")
            << "binance_public" << 200 << none << providerData("binance_ticker_24hr_ethusdt.json")
            << true << false << 0 << "";
    QTest::newRow("binance price") << "binance_public" << 200 << none
                                   << QByteArray(R"({"price":"0.1"})") << true << false << 0 << "";
    QTest::newRow("binance list") << "binance_public" << 200 << none << QByteArray("[]") << true
                                  << false << 0 << "";
    QTest::newRow("binance dead pair")
            << "binance_public" << 200 << none << providerData("binance_ticker_24hr_dead_pair.json")
            << false << false << 0 << kInvalid;
    QTest::newRow("yahoo chart") << "yahoo_b3" << 200 << none
                                 << providerData("yahoo_chart_petr4_1d.json") << true << false << 0
                                 << "";
    QTest::newRow("yahoo chart result null")
            << "yahoo_us" << 200 << none << QByteArray(R"({"chart":{"result":null,"error":null}})")
            << false << false << 0 << kInvalid;
    QTest::newRow("yahoo batch quote")
            << "yahoo_fx" << 200 << none
            << QByteArray(R"({"quoteResponse":{"result":[{"symbol":"EURUSD=X"}]}})") << true
            << false << 0 << "";
    QTest::newRow("yahoo batch quote empty")
            << "yahoo_us" << 200 << none
            << QByteArray(R"({"quoteResponse":{"result":[],"error":null}})") << false << false << 0
            << kInvalid;
    QTest::newRow("yahoo symbol search")
            << "yahoo_us" << 200 << none << providerData("yahoo_v1_search_aapl.json") << true
            << false << 0 << "";
    QTest::newRow("yahoo symbol search without hits")
            << "yahoo_us" << 200 << none << QByteArray(R"({"count":0,"quotes":[],"news":[]})")
            << true << false << 0 << "";
    QTest::newRow("yahoo symbol search quotes not a list")
            << "yahoo_us" << 200 << none << QByteArray(R"({"count":1,"quotes":{"symbol":"X"}})")
            << false << false << 0 << kInvalid;
    QTest::newRow("yahoo search error page")
            << "yahoo_us" << 500 << none << providerData("yahoo_search_500_html_error_page.html")
            << false << false << 0 << "HTTP 500";
    QTest::newRow("brapi results")
            << "brapi_public" << 200 << none << providerData("brapi_quote_vale3.json") << true
            << false << 0 << "";
    QTest::newRow("brapi results empty")
            << "brapi_public" << 200 << none << QByteArray(R"({"results":[]})") << false << false
            << 0 << kInvalid;
    QTest::newRow("alpha quote") << "alpha_vantage" << 200 << none
                                 << providerData("alphavantage_global_quote_ibm.json") << true
                                 << false << 0 << "";
    QTest::newRow("alpha unknown symbol")
            << "alpha_vantage" << 200 << none << providerData("alphavantage_unknown_symbol.json")
            << false << false << 0 << kInvalid;
    QTest::newRow("alpha gainers")
            << "alpha_vantage_movers" << 200 << none
            << QByteArray(R"({"top_gainers":[{"ticker":"OPFI+"}],"top_losers":[]})") << true
            << false << 0 << "";
    QTest::newRow("alpha losers") << "alpha_vantage" << 200 << none
                                  << QByteArray(
                                             R"({"top_gainers":[],"top_losers":[{"ticker":"X"}]})")
                                  << true << false << 0 << "";
    QTest::newRow("finnhub quote")
            << "finnhub" << 200 << none << providerData("finnhub_quote_msft.json") << true << false
            << 0 << "";
    QTest::newRow("finnhub unknown symbol")
            << "finnhub" << 200 << none << providerData("finnhub_quote_unknown_symbol.json")
            << false << false << 0 << kInvalid;
    QTest::newRow("twelve data text close")
            << "twelvedata" << 200 << none << providerData("twelvedata_quote_eurusd.json") << true
            << false << 0 << "";
    QTest::newRow("twelve data no close")
            << "twelvedata" << 200 << none << QByteArray(R"({"symbol":"X"})") << false << false << 0
            << kInvalid;
    QTest::newRow("fmp quote") << "fmp" << 200 << none << providerData("fmp_quote_msft.json")
                               << true << false << 0 << "";
    QTest::newRow("financial modeling prep id")
            << "Financial_Modeling_Prep" << 200 << none << QByteArray(R"([{"price":"12.5"}])")
            << true << false << 0 << "";
    QTest::newRow("fmp unknown symbol")
            << "fmp" << 200 << none << providerData("fmp_quote_unknown_symbol.json") << false
            << false << 0 << kInvalid;
    QTest::newRow("querlin list") << "querlin_news" << 200 << none << QByteArray("[]") << true
                                  << false << 0 << "";
    QTest::newRow("querlin empty object")
            << "querlin_news" << 200 << none << QByteArray("{}") << false << false << 0 << kInvalid;
    QTest::newRow("other provider")
            << "newsapi" << 200 << none << QByteArray("{}") << true << false << 0 << "";
    QTest::newRow("rows tried top to bottom") << "binance_yahoo_mirror" << 200 << none
                                              << QByteArray("[]") << true << false << 0 << "";
    QTest::newRow("id compared lower-cased")
            << "YAHOO_US" << 200 << none << QByteArray(R"({"results":[1]})") << false << false << 0
            << kInvalid;
}

void ProviderResponseTest::classifiesReplies()
{
    QFETCH(QString, providerId);
    QFETCH(int, status);
    QFETCH(RawHeaderList, headers);
    QFETCH(QByteArray, body);

    const ProviderResponseCheck check = classifyProviderResponse(providerId, status, headers, body);
    QTEST(check.ok, "ok");
    QTEST(check.rateLimited, "rateLimited");
    QTEST(check.retryAfterSeconds, "retryAfter");
    QTEST(check.message, "message");
}

void ProviderResponseTest::readsRetryAfter_data()
{
    QTest::addColumn<RawHeaderList>("headers");
    QTest::addColumn<int>("seconds");

    QTest::newRow("absent") << RawHeaderList{{"Content-Type", "text/plain"}} << 0;
    QTest::newRow("seconds") << RawHeaderList{{"Retry-After", "17"}} << 17;
    QTest::newRow("lower case, padded") << RawHeaderList{{"retry-after", "  30 "}} << 30;
    QTest::newRow("negative") << RawHeaderList{{"Retry-After", "-5"}} << 0;
    QTest::newRow("not a number") << RawHeaderList{{"Retry-After", "soon"}} << 0;
    QTest::newRow("http date") << RawHeaderList{{"Retry-After", "Wed, 21 Oct 2026 07:28:00 GMT"}}
                               << 0;
    QTest::newRow("fraction") << RawHeaderList{{"Retry-After", "1.5"}} << 0;
    QTest::newRow("too large") << RawHeaderList{{"Retry-After", "99999999999"}} << 0;
    QTest::newRow("first one wins")
            << RawHeaderList{{"RETRY-AFTER", "x"}, {"Retry-After", "9"}} << 0;
}

void ProviderResponseTest::readsRetryAfter()
{
    QFETCH(RawHeaderList, headers);
    QTEST(parseRetryAfter(headers), "seconds");
}

void ProviderResponseTest::providerMessageFollowsKeyOrder_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("message");

    QTest::newRow("none") << QByteArray(R"({"c":1})") << "";
    QTest::newRow("note before information")
            << QByteArray(R"({"Information":"b","Note":"a"})") << "a";
    QTest::newRow("error message before message")
            << QByteArray(R"({"message":"m","Error Message":"e"})") << "e";
    QTest::newRow("message before error") << QByteArray(R"({"error":"x","message":"y"})") << "y";
    QTest::newRow("object skipped") << QByteArray(R"({"Note":{"a":1},"error":" late "})") << "late";
    QTest::newRow("array skipped") << QByteArray(R"({"message":["a"]})") << "";
    QTest::newRow("number") << QByteArray(R"({"error":1.5})") << "1.5";
    QTest::newRow("null") << QByteArray(R"({"Note":null})") << "";
    QTest::newRow("cut to 180") << QByteArray("{\"message\":\"" + QByteArray(300, 'x') + "\"}")
                                << QString(180, 'x');
    // A cut through an emoji keeps no lone surrogate.
    QTest::newRow("cut between surrogates")
            << QByteArray("{\"message\":\"" + QByteArray(179, 'x') + "\xF0\x9F\x98\x80" + "tail\"}")
            << QString(179, 'x');
}

void ProviderResponseTest::providerMessageFollowsKeyOrder()
{
    QFETCH(QByteArray, json);
    QTEST(extractProviderMessage(QJsonDocument::fromJson(json).object()), "message");
}

void ProviderResponseTest::pausesFollowRetryAfter()
{
    const qint64 now = 1'700'000'000'000;
    QCOMPARE(providerCooldownUntil(now, 17), now + 17'000);
    QCOMPARE(providerCooldownUntil(now, 0), now + 60'000);
    QCOMPARE(providerCooldownUntil(now, 300), now + 300'000);
    QCOMPARE(alphaVantageBlockUntil(now, 17), now + 60'000);
    QCOMPARE(alphaVantageBlockUntil(now, 0), now + 60'000);
    QCOMPARE(alphaVantageBlockUntil(now, 90), now + 90'000);
}

void ProviderResponseTest::failureEntries()
{
    QCOMPARE(providerFailureEntry("alpha_vantage", "Thank you", true),
             "alpha_vantage: Thank you [rate limited]");
    QCOMPARE(providerFailureEntry("yahoo_us", "HTTP 404", false), "yahoo_us: HTTP 404");
    QCOMPARE(providerFailureEntry("fmp", "", false), "fmp: invalid response");
}

void ProviderResponseTest::textsFollowTheInterfaceLanguage()
{
    setInterfaceLanguage("pt_BR");
    const ProviderResponseCheck check = classifyProviderResponse("yahoo_us", 200, {}, QByteArray());
    const QString entry = providerFailureEntry("fmp", "", true);
    setInterfaceLanguage("en");
    QVERIFY(!check.message.isEmpty() && check.message != "Malformed or empty JSON");
    QVERIFY(entry.startsWith("fmp: ") && !entry.contains("invalid response") &&
            !entry.contains("rate limited"));
}

QTEST_GUILESS_MAIN(ProviderResponseTest)
#include "tst_provider_response.moc"
