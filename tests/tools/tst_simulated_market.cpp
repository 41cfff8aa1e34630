#include "app/endpoints.h"
#include "market/symbols.h"
#include "providers/data_fetcher.h"
#include "providers/provider_requests.h"
#include "providers/provider_response.h"
#include "providers/yahoo_symbol_search.h"
#include "simulated_market/simulated_market.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <memory>

using FetcherPtr = std::shared_ptr<const DataFetcher>;
Q_DECLARE_METATYPE(FetcherPtr)

namespace {

struct Reply
{
    int status = 0;
    RawHeaderList headers;
    QByteArray body;
};

FetcherPtr yahoo(const char *interval = "1d", const char *range = "5d")
{
    return std::make_shared<YahooFetcher>(interval, range);
}

const FetcherPtr kBrapi = std::make_shared<BrAPIFetcher>("", "1d", "5d");
const FetcherPtr kBinance = std::make_shared<BinanceFetcher>();
const FetcherPtr kFinnhub = std::make_shared<FinnhubFetcher>("KEY");
const FetcherPtr kTwelveData = std::make_shared<TwelveDataFetcher>("KEY");
const FetcherPtr kFmp = std::make_shared<FinancialModelingPrepFetcher>("KEY");
const FetcherPtr kAlphaVantage = std::make_shared<AlphaVantageFetcher>("KEY");

} // namespace

class SimulatedMarketTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void fetchersReadEveryProvider_data();
    void fetchersReadEveryProvider();
    void unknownSymbolsAnswerInTheProvidersWay_data();
    void unknownSymbolsAnswerInTheProvidersWay();
    void batchQuoteLeavesUnknownSymbolsOut();
    void symbolSearchFindsInstruments_data();
    void symbolSearchFindsInstruments();
    void pricesFollowSeedAndStep();
    void everySymbolStaysPlausible();
    void faultsTakeEachProvidersShape_data();
    void faultsTakeEachProvidersShape();
    void slowFaultAnswersLater();
    void controlPaths();

private:
    Reply get(const QNetworkRequest &request);
    Reply get(const QString &path)
    {
        return get(QNetworkRequest(QUrl(m_market->baseUrl() + path)));
    }

    qint64 m_nowMs = 1731600000000; // the market's clock, moved by hand
    std::unique_ptr<SimulatedMarket> m_market;
    QNetworkAccessManager m_manager;
};

Reply SimulatedMarketTest::get(const QNetworkRequest &request)
{
    QNetworkReply *reply = m_manager.get(request);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished())
        finished.wait(3000);
    Reply result{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                 reply->rawHeaderPairs(), reply->readAll()};
    reply->deleteLater();
    return result;
}

void SimulatedMarketTest::initTestCase()
{
    m_market = std::make_unique<SimulatedMarket>(42, [this] { return m_nowMs; });
    QVERIFY(m_market->listen(0));
    const QByteArray http = m_market->baseUrl().toUtf8();
    const QByteArray ws = "ws://127.0.0.1:" + QByteArray::number(m_market->port());
    for (const EndpointDefinition &definition : endpointDefinitions())
        qputenv(definition.environmentVariable, definition.isStream ? ws : http);
    m_manager.setTransferTimeout(3000);
}

void SimulatedMarketTest::cleanup()
{
    QVERIFY(m_market->applyFault("all=none").isEmpty());
}

void SimulatedMarketTest::fetchersReadEveryProvider_data()
{
    QTest::addColumn<FetcherPtr>("fetcher");
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("walkSymbol"); // the market's own name for it
    QTest::addColumn<bool>("withCandles");

    // clang-format off
    QTest::newRow("yahoo b3") << yahoo("5m", "1d") << "yahoo_us" << "PETR4.SA" << "PETR4.SA" << true;
    QTest::newRow("yahoo crypto") << yahoo("1h") << "yahoo_us" << yahooCryptoSymbol("BTCUSDT") << "BTCUSDT" << true;
    QTest::newRow("yahoo index") << yahoo("1d", "1y") << "yahoo_us" << "^GSPC" << "^GSPC" << true;
    QTest::newRow("brapi") << kBrapi << "brapi_public" << "PETR4.SA" << "PETR4.SA" << true;
    QTest::newRow("brapi index") << kBrapi << "brapi_public" << "^BVSP" << "^BVSP" << true;
    QTest::newRow("binance") << kBinance << "binance_public" << "BTCUSDT" << "BTCUSDT" << false;
    QTest::newRow("finnhub") << kFinnhub << "finnhub" << "AAPL" << "AAPL" << false;
    QTest::newRow("twelve data") << kTwelveData << "twelvedata" << "AAPL" << "AAPL" << false;
    QTest::newRow("twelve data forex") << kTwelveData << "twelvedata" << providerForexPair("BRL=X") << "BRL=X" << false;
    QTest::newRow("fmp") << kFmp << "fmp" << "AAPL" << "AAPL" << false;
    QTest::newRow("alpha vantage") << kAlphaVantage << "alpha_vantage" << "AAPL" << "AAPL" << false;
    // clang-format on
}

void SimulatedMarketTest::fetchersReadEveryProvider()
{
    QFETCH(FetcherPtr, fetcher);
    QFETCH(QString, providerId);
    QFETCH(QString, symbol);
    QFETCH(QString, walkSymbol);
    QFETCH(bool, withCandles);

    const Reply reply = get(fetcher->buildRequest(symbol));
    QCOMPARE(reply.status, 200);
    const ProviderResponseCheck check =
            classifyProviderResponse(providerId, reply.status, reply.headers, reply.body);
    QVERIFY2(check.ok, qPrintable(check.message));
    const auto quote = fetcher->parseQuote(symbol, reply.body);
    QVERIFY(quote);
    // The price of the market's walk at this moment, whichever spelling the provider uses.
    const PriceWalk &walk = m_market->prices();
    const double expected = walk.price(walkSymbol, walk.currentStep());
    QVERIFY2(std::abs(quote->price / expected - 1.0) < 1e-3,
             qPrintable(QStringLiteral("%1 against %2").arg(quote->price).arg(expected)));
    QVERIFY(std::abs(quote->changePercent) < 15.0);
    QCOMPARE(!quote->candles.isEmpty(), withCandles);
}

void SimulatedMarketTest::unknownSymbolsAnswerInTheProvidersWay_data()
{
    QTest::addColumn<FetcherPtr>("fetcher");
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<int>("status");

    // clang-format off
    QTest::newRow("yahoo") << yahoo() << "yahoo_us" << "NOPE" << 404;
    QTest::newRow("yahoo binance pair") << yahoo() << "yahoo_us" << "BTCUSDT" << 404;
    QTest::newRow("brapi us share") << kBrapi << "brapi_public" << "AAPL" << 404;
    QTest::newRow("binance share") << kBinance << "binance_public" << "AAPL" << 400;
    QTest::newRow("finnhub b3 share") << kFinnhub << "finnhub" << "PETR4.SA" << 200;
    QTest::newRow("twelve data") << kTwelveData << "twelvedata" << "NOPE" << 200;
    QTest::newRow("fmp") << kFmp << "fmp" << "NOPE" << 200;
    QTest::newRow("alpha vantage crypto") << kAlphaVantage << "alpha_vantage" << "BTCUSDT" << 200;
    // clang-format on
}

void SimulatedMarketTest::unknownSymbolsAnswerInTheProvidersWay()
{
    QFETCH(FetcherPtr, fetcher);
    QFETCH(QString, providerId);
    QFETCH(QString, symbol);
    QFETCH(int, status);

    const Reply reply = get(fetcher->buildRequest(symbol));
    QCOMPARE(reply.status, status);
    QVERIFY(!classifyProviderResponse(providerId, reply.status, reply.headers, reply.body).ok);
    QVERIFY(!fetcher->parseQuote(symbol, reply.body));
}

void SimulatedMarketTest::batchQuoteLeavesUnknownSymbolsOut()
{
    const QList<QNetworkRequest> requests = yahooBatchQuoteRequests({"AAPL", "PETR4.SA", "NOPE"});
    QCOMPARE(requests.size(), 1);
    const Reply reply = get(requests.first());
    QVERIFY(classifyProviderResponse("yahoo_us", reply.status, reply.headers, reply.body).ok);
    const QJsonArray results =
            QJsonDocument::fromJson(reply.body)["quoteResponse"]["result"].toArray();
    QCOMPARE(results.size(), 2);
    for (const char *symbol : {"AAPL", "PETR4.SA"}) {
        const auto match = std::find_if(results.begin(), results.end(), [symbol](const auto &item) {
            return item.toObject()["symbol"].toString() == QLatin1String(symbol);
        });
        QVERIFY2(match != results.end(), symbol);
        QVERIFY((*match).toObject()["regularMarketPrice"].toDouble() > 0.0);
    }
}

void SimulatedMarketTest::symbolSearchFindsInstruments_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("fault"); // on Yahoo while searching
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("securities"); // in the reply, before the parser's choice
    QTest::addColumn<QStringList>("symbols");

    const QStringList petrobras{"PETR4.SA", "PETR3.SA"};
    // clang-format off
    QTest::newRow("b3 ticker prefix") << "petr" << "none" << 200 << 2 << petrobras;
    QTest::newRow("name with accent") << "Petróleo" << "none" << 200 << 2 << petrobras;
    QTest::newRow("symbol typed in full") << "amd" << "none" << 200 << 1 << QStringList{"AMD"};
    QTest::newRow("exact, then prefix, then the rest") << "brl" << "none" << 200 << 4 << QStringList{"BRL=X", "BRLUSD=X", "EURBRL=X", "GBPBRL=X"};
    QTest::newRow("index by name") << "ibovespa" << "none" << 200 << 1 << QStringList{"^BVSP"};
    QTest::newRow("fund") << "spdr" << "none" << 200 << 1 << QStringList{"SPY"};
    QTest::newRow("yahoo crypto left out") << "bitcoin" << "none" << 200 << 1 << QStringList();
    QTest::newRow("nothing found") << "zzqx" << "none" << 200 << 0 << QStringList();
    QTest::newRow("rate limited") << "petr" << "429" << 429 << 0 << QStringList();
    QTest::newRow("error page") << "petr" << "5xx" << 503 << 0 << QStringList();
    QTest::newRow("cut in half") << "petr" << "malformed" << 200 << 0 << QStringList();
    // clang-format on
}

void SimulatedMarketTest::symbolSearchFindsInstruments()
{
    QFETCH(QString, query);
    QFETCH(QString, fault);
    QFETCH(int, status);

    QCOMPARE(m_market->applyFault("yahoo=" + fault), QString());
    const Reply reply = get(yahooSymbolSearchRequest(query));
    QCOMPARE(reply.status, status);
    const bool usual = fault == QLatin1String("none");
    QCOMPARE(classifyProviderResponse("yahoo_us", reply.status, reply.headers, reply.body).ok,
             usual);
    QTEST(parseYahooSymbolSearch(reply.body), "symbols");
    if (!usual)
        return;

    // Yahoo's shape: every hit is counted, no news, and one Crunchbase company without a symbol.
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    const QJsonArray quotes = object["quotes"].toArray();
    QCOMPARE(object["count"].toInt(), quotes.size());
    QTEST(int(quotes.size()) - 1, "securities");
    QCOMPARE(object["news"], QJsonArray());
    QCOMPARE(quotes.last()["isYahooFinance"], false);
    QVERIFY(!quotes.last().toObject().contains("symbol"));
    for (qsizetype i = 0; i + 1 < quotes.size(); ++i) {
        const QJsonObject quote = quotes.at(i).toObject();
        QCOMPARE(quote["isYahooFinance"], true);
        QCOMPARE(quote["index"], "quotes");
        QVERIFY(quote["score"].toInteger() > 0);
        const QString names = quote["symbol"].toString() + quote["shortname"].toString() +
                              quote["longname"].toString();
        QVERIFY2(names.contains(query, Qt::CaseInsensitive), qPrintable(names));
        for (const char *key : {"exchange", "quoteType", "typeDisp"})
            QVERIFY2(!quote[key].toString().isEmpty(), key);
    }
}

void SimulatedMarketTest::pricesFollowSeedAndStep()
{
    // Two walks with the same seed started at different moments agree step by step.
    qint64 firstClock = 1000000;
    const PriceWalk first(42, [&firstClock] { return firstClock; });
    const PriceWalk later(42, [] { return qint64(1900000000000); });
    const PriceWalk other(43, [] { return qint64(1000000); });
    for (const qint64 step : {qint64(0), qint64(1), qint64(3600), qint64(-400 * 86400)}) {
        QCOMPARE(first.price("PETR4.SA", step), later.price("PETR4.SA", step));
        QVERIFY(first.price("PETR4.SA", step) != other.price("PETR4.SA", step));
    }
    QCOMPARE(first.currentStep(), 0);
    firstClock += 2999;
    QCOMPARE(first.currentStep(), 2);

    // The served price moves with the market's clock.
    const auto before = kFinnhub->parseQuote("AAPL", get(kFinnhub->buildRequest("AAPL")).body);
    m_nowMs += 600000;
    const auto after = kFinnhub->parseQuote("AAPL", get(kFinnhub->buildRequest("AAPL")).body);
    QVERIFY(before && after);
    QVERIFY(before->price != after->price);
}

void SimulatedMarketTest::everySymbolStaysPlausible()
{
    const PriceWalk walk(7, [] { return qint64(0); });
    for (const Instrument &instrument : m_market->catalogue().instruments()) {
        const InstrumentProfile profile = instrumentProfile(instrument.symbol);
        for (const qint64 step : {qint64(0), qint64(90 * 86400), qint64(-700 * 86400)}) {
            const DaySummary day = walk.day(instrument.symbol, step);
            const double ratio = day.price / profile.basePrice;
            QVERIFY2(ratio > 0.6 && ratio < 1.6, qPrintable(instrument.symbol));
            // A day's move stays within four typical ones.
            QVERIFY2(std::abs(day.changePercent()) < 400.0 * profile.dailyVolatility,
                     qPrintable(instrument.symbol));
            QVERIFY(day.low <= day.price && day.price <= day.high && day.volume >= 0.0);
        }
    }
}

void SimulatedMarketTest::faultsTakeEachProvidersShape_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<FetcherPtr>("fetcher");
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("rateLimited");
    QTest::addColumn<QString>("message"); // empty: any

    // clang-format off
    QTest::newRow("finnhub 429") << "finnhub" << "429" << kFinnhub << "finnhub" << 429 << true << "";
    QTest::newRow("yahoo 429 as text") << "yahoo" << "429" << yahoo() << "yahoo_us" << 429 << true << "";
    QTest::newRow("binance 429") << "binance" << "429" << kBinance << "binance_public" << 429 << true << "";
    QTest::newRow("brapi plan limit") << "brapi" << "429" << kBrapi << "brapi_public" << 402 << false << "HTTP 402";
    QTest::newRow("alpha vantage daily") << "alpha_vantage" << "limit" << kAlphaVantage << "alpha_vantage" << 200 << true << "";
    QTest::newRow("alpha vantage note") << "alpha_vantage" << "note" << kAlphaVantage << "alpha_vantage" << 200 << true << "";
    QTest::newRow("twelve data credits") << "twelvedata" << "limit" << kTwelveData << "twelvedata" << 200 << true << "";
    QTest::newRow("fmp limit") << "fmp" << "limit" << kFmp << "fmp" << 200 << true << "";
    QTest::newRow("binance malformed") << "binance" << "malformed" << kBinance << "binance_public" << 200 << false << "Malformed or empty JSON";
    QTest::newRow("fmp malformed") << "fmp" << "malformed" << kFmp << "fmp" << 200 << false << "Malformed or empty JSON";
    QTest::newRow("yahoo 5xx") << "yahoo" << "5xx" << yahoo() << "yahoo_us" << 503 << false << "HTTP 503";
    QTest::newRow("all 5xx") << "all" << "5xx" << kTwelveData << "twelvedata" << 503 << false << "HTTP 503";
    // clang-format on
}

void SimulatedMarketTest::faultsTakeEachProvidersShape()
{
    QFETCH(QString, provider);
    QFETCH(QString, kind);
    QFETCH(FetcherPtr, fetcher);
    QFETCH(QString, providerId);
    QFETCH(int, status);
    QFETCH(bool, rateLimited);
    QFETCH(QString, message);

    QCOMPARE(get(QStringLiteral("/__sim/fault?provider=%1&kind=%2").arg(provider, kind)).status,
             200);
    const QString symbol = providerId.startsWith("binance") ? "BTCUSDT" : "AAPL";
    const Reply reply = get(fetcher->buildRequest(symbol));
    QCOMPARE(reply.status, status);
    const ProviderResponseCheck check =
            classifyProviderResponse(providerId, reply.status, reply.headers, reply.body);
    QVERIFY(!check.ok);
    QCOMPARE(check.rateLimited, rateLimited);
    QCOMPARE(check.retryAfterSeconds, status == 200 || status == 503 ? 0 : kRetryAfterSeconds);
    if (!message.isEmpty())
        QCOMPARE(check.message, message);
    QVERIFY(!fetcher->parseQuote(symbol, reply.body));
}

void SimulatedMarketTest::slowFaultAnswersLater()
{
    QCOMPARE(get("/__sim/fault?provider=finnhub&kind=slow:50").status, 200);
    QElapsedTimer timer;
    timer.start();
    const Reply reply = get(kFinnhub->buildRequest("AAPL"));
    QVERIFY(timer.elapsed() >= 50);
    QVERIFY(kFinnhub->parseQuote("AAPL", reply.body));
}

void SimulatedMarketTest::controlPaths()
{
    const Reply health = get("/__sim/health");
    QCOMPARE(health.status, 200);
    QCOMPARE(health.body, R"({"ok":true,"seed":42})");
    QCOMPARE(get("/__sim/fault?provider=nobody&kind=429").status, 400);
    QCOMPARE(get("/__sim/fault?provider=fmp&kind=sometimes").status, 400);
    QCOMPARE(get("/v2/not/a/service").status, 404);
}

QTEST_GUILESS_MAIN(SimulatedMarketTest)
#include "tst_simulated_market.moc"
