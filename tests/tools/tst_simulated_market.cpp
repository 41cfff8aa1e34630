#include "app/endpoints.h"
#include "chart/candle_history.h"
#include "market/symbols.h"
#include "providers/data_fetcher.h"
#include "providers/provider_requests.h"
#include "providers/provider_response.h"
#include "providers/yahoo_session.h"
#include "providers/yahoo_symbol_search.h"
#include "simulated_market/simulated_market.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

#include <cmath>
#include <functional>
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

// A real client on the market's streams, keeping every frame it received.
bool hasEightDecimals(const QJsonValue &value)
{
    static const QRegularExpression form("^[0-9]+\\.[0-9]{8}$");
    return form.match(value.toString()).hasMatch();
}

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
    void batchQuoteNeedsTheSession();
    void symbolSearchFindsInstruments_data();
    void symbolSearchFindsInstruments();
    void pricesFollowSeedAndStep();
    void everySymbolStaysPlausible();
    void faultsTakeEachProvidersShape_data();
    void faultsTakeEachProvidersShape();
    void slowFaultAnswersLater();
    void controlPaths();
    void exchangeInfoListsPairsToFilter();
    void depthSnapshot_data();
    void depthSnapshot();
    void klines_data();
    void klines();
    void chartSeries_data();
    void chartSeries();
    void historyWithoutBarsAndFromBrapi();

private:
    Reply get(const QNetworkRequest &request);
    // Without the manager's cookie jar, so only the cookies the request names are sent.
    Reply bare(QNetworkRequest request)
    {
        request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
        request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
        return get(request);
    }
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
    const QByteArray ws = m_market->streamBaseUrl().toUtf8();
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
    YahooSession session(m_manager);
    Reply reply;
    bool answered = false;
    session.get(requests.first(), this, [&](const ProviderReply &sent) {
        reply = {sent.httpStatus, sent.rawHeaders, sent.body};
        answered = true;
    });
    QTRY_VERIFY(answered);
    QVERIFY(session.credentials().isValid());
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

void SimulatedMarketTest::batchQuoteNeedsTheSession()
{
    const Reply page = bare(yahooCookieRequest());
    QCOMPARE(page.status, 404);
    const QByteArray cookie = cookieHeaderOf(page.headers);
    QVERIFY(cookie.startsWith("A3=d="));
    QCOMPARE(bare(QNetworkRequest(QUrl(m_market->baseUrl() + "/v1/test/getcrumb"))).status, 401);
    const Reply crumb = bare(yahooCrumbRequest(cookie));
    QCOMPARE(crumb.status, 200);
    QVERIFY(isPlausibleYahooCrumb(crumb.body));
    const QString crumbText = QString::fromLatin1(crumb.body);

    const QNetworkRequest batch = yahooBatchQuoteRequests({"AAPL"}).first();
    const Reply refused = bare(batch);
    QCOMPARE(refused.status, 401);
    QVERIFY(isYahooUnauthorized(200, refused.body));
    QCOMPARE(bare(withYahooSession(batch, {cookie, "Phb0wzVdPs6", 1})).status, 401);
    QCOMPARE(bare(withYahooSession(batch, {"A3=d=AQABBKother", crumbText, 1})).status, 401);
    QCOMPARE(bare(withYahooSession(batch, {cookie, crumbText, 1})).status, 200);
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
    // The streams' faults and the HTTP ones do not mix; "all" sets each where it fits.
    QCOMPARE(get("/__sim/fault?provider=binance_ws&kind=429").status, 400);
    QCOMPARE(get("/__sim/fault?provider=finnhub&kind=garbage").status, 400);
    QCOMPARE(get("/__sim/fault?provider=all&kind=close").body,
             R"({"ok":true,"faults":{"binance_ws":"close","itick_ws":"close"}})");
}

void SimulatedMarketTest::exchangeInfoListsPairsToFilter()
{
    const Reply reply = get("/api/v3/exchangeInfo");
    QCOMPARE(reply.status, 200);
    QVERIFY(reply.body.startsWith(R"({"timezone":"UTC","serverTime":)"));
    const QJsonObject info = QJsonDocument::fromJson(reply.body).object();
    QCOMPARE(info["serverTime"].toInteger(), m_nowMs / 1000 * 1000);
    QVERIFY(info["rateLimits"][0]["rateLimitType"].isString());
    QCOMPARE(info["exchangeFilters"], QJsonArray());

    QSet<QString> tradingUsdt;
    QSet<QString> quotes;
    QStringList haltedUsdt;
    for (const QJsonValue &entry : info["symbols"].toArray()) {
        const QJsonObject symbol = entry.toObject();
        const QString name = symbol["symbol"].toString();
        const QString quote = symbol["quoteAsset"].toString();
        QCOMPARE(symbol["baseAsset"].toString() + quote, name);
        QVERIFY(hasEightDecimals(symbol["filters"][0]["tickSize"]));
        quotes.insert(quote);
        const QString status = symbol["status"].toString();
        QVERIFY2(status == "TRADING" || status == "BREAK", qPrintable(status));
        if (quote == "USDT" && status == "TRADING")
            tradingUsdt.insert(name);
        else if (quote == "USDT")
            haltedUsdt.append(name);
    }
    QVERIFY(tradingUsdt.size() >= 200 && tradingUsdt.size() <= 400);
    QVERIFY(!haltedUsdt.isEmpty());
    QVERIFY(quotes.contains("BTC") && quotes.contains("FDUSD"));
    for (const Instrument &instrument : m_market->catalogue().instruments()) {
        if (instrument.kind == InstrumentKind::Crypto)
            QVERIFY2(tradingUsdt.contains(instrument.symbol), qPrintable(instrument.symbol));
    }

    // The all-pairs ticker lists the halted pairs with nothing traded and only a last close.
    const QJsonArray tickers = QJsonDocument::fromJson(get("/api/v3/ticker/24hr").body).array();
    QCOMPARE(tickers.size(), info["symbols"].toArray().size());
    for (const QJsonValue &ticker : tickers) {
        if (ticker["symbol"].toString() != haltedUsdt.first())
            continue;
        QCOMPARE(ticker["lastPrice"], "0.00000000");
        QCOMPARE(ticker["count"], 0);
        QVERIFY(ticker["prevClosePrice"].toString().toDouble() > 0.0);
    }

    // The price-only ticker the health check asks for agrees with the 24-hour one.
    const QJsonObject price =
            QJsonDocument::fromJson(get("/api/v3/ticker/price?symbol=BTCUSDT").body).object();
    QCOMPARE(price["symbol"], "BTCUSDT");
    QVERIFY(price["price"].toString().toDouble() > 0.0);
    QCOMPARE(get("/api/v3/ticker/price?symbol=NOPEUSDT").status, 400);

    // The listing follows the seed.
    const auto listing = [this](quint64 seed) {
        QStringList symbols;
        const BinanceExchange exchange(seed, m_market->catalogue());
        for (const BinancePair &pair : exchange.pairs())
            symbols.append(pair.symbol + pair.status());
        return symbols;
    };
    QCOMPARE(listing(42), listing(42));
    QVERIFY(listing(42) != listing(7));
}

void SimulatedMarketTest::depthSnapshot_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("fault"); // on Binance
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("levels"); // a side
    QTest::addColumn<int>("code");   // of an error

    // clang-format off
    QTest::newRow("twenty") << "symbol=BTCUSDT&limit=20" << "none" << 200 << 20 << 0;
    QTest::newRow("a hundred unless asked") << "symbol=PEPEUSDT" << "none" << 200 << 100 << 0;
    QTest::newRow("at most 5000") << "symbol=ETHUSDT&limit=9000" << "none" << 200 << 5000 << 0;
    QTest::newRow("quoted in bitcoin") << "symbol=ETHBTC&limit=5" << "none" << 200 << 5 << 0;
    QTest::newRow("halted pair") << "symbol=BTCUPUSDT&limit=5" << "none" << 200 << 0 << 0;
    QTest::newRow("unknown") << "symbol=NOPEUSDT&limit=20" << "none" << 400 << 0 << -1121;
    QTest::newRow("no symbol") << "limit=20" << "none" << 400 << 0 << -1102;
    QTest::newRow("bad limit") << "symbol=BTCUSDT&limit=x" << "none" << 400 << 0 << -1100;
    QTest::newRow("rate limited") << "symbol=BTCUSDT&limit=20" << "429" << 429 << 0 << -1003;
    // clang-format on
}

void SimulatedMarketTest::depthSnapshot()
{
    QFETCH(QString, query);
    QFETCH(QString, fault);
    QFETCH(int, levels);

    QCOMPARE(m_market->applyFault("binance=" + fault), QString());
    const Reply reply = get("/api/v3/depth?" + query);
    QTEST(reply.status, "status");
    const QJsonObject book = QJsonDocument::fromJson(reply.body).object();
    if (reply.status != 200) {
        QTEST(book["code"].toInt(), "code");
        return;
    }
    QVERIFY(reply.body.startsWith(R"({"lastUpdateId":)"));
    QVERIFY(book["lastUpdateId"].toInteger() > 0);
    const QJsonArray bids = book["bids"].toArray();
    const QJsonArray asks = book["asks"].toArray();
    QCOMPARE(bids.size(), levels);
    QCOMPARE(asks.size(), levels);
    if (levels == 0)
        return;
    // Best first on both sides, the spread a tick wide at the walk's price.
    const auto price = [](const QJsonArray &side, qsizetype i) {
        return side[i][0].toString().toDouble();
    };
    for (qsizetype i = 0; i < levels; ++i) {
        QVERIFY(hasEightDecimals(bids[i][0]) && hasEightDecimals(bids[i][1]));
        QVERIFY(hasEightDecimals(asks[i][0]) && hasEightDecimals(asks[i][1]));
        QVERIFY(bids[i][1].toString().toDouble() > 0.0);
        if (i > 0)
            QVERIFY(price(bids, i) < price(bids, i - 1) && price(asks, i) > price(asks, i - 1));
    }
    QVERIFY(price(bids, 0) < price(asks, 0));
    const BinancePair *pair = m_market->binance().find(QUrlQuery(query).queryItemValue("symbol"));
    QVERIFY(pair);
    const PriceWalk &walk = m_market->prices();
    QVERIFY(std::abs(price(asks, 0) - binancePrice(walk, *pair, walk.currentStep())) <=
            pair->tickSize());
}

void SimulatedMarketTest::klines_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("bars");       // or the error's code
    QTest::addColumn<qint64>("seconds"); // of a bar; 0: a calendar month
    QTest::addColumn<QString>("fault");  // on Binance

    // clang-format off
    QTest::newRow("minutes") << "symbol=BTCUSDT&interval=1m&limit=180" << 200 << 180 << qint64(60) << "none";
    QTest::newRow("four hours") << "symbol=ethusdt&interval=4h&limit=180" << 200 << 180 << qint64(14400) << "none";
    QTest::newRow("500 unless asked") << "symbol=SOLUSDT&interval=1d" << 200 << 500 << qint64(86400) << "none";
    QTest::newRow("months, at most 1000") << "symbol=ETHBTC&interval=1M&limit=4000" << 200 << 1000 << qint64(0) << "none";
    QTest::newRow("halted pair") << "symbol=BTCUPUSDT&interval=1h" << 200 << 0 << qint64(0) << "none";
    QTest::newRow("unknown symbol") << "symbol=NOPEUSDT&interval=1h" << 400 << -1121 << qint64(0) << "none";
    QTest::newRow("an hour is not 1H") << "symbol=BTCUSDT&interval=1H" << 400 << -1120 << qint64(0) << "none";
    QTest::newRow("rate limited") << "symbol=BTCUSDT&interval=1h" << 429 << -1003 << qint64(0) << "429";
    // clang-format on
}

void SimulatedMarketTest::klines()
{
    QFETCH(QString, query);
    QFETCH(int, bars);
    QFETCH(qint64, seconds);
    QFETCH(QString, fault);

    QCOMPARE(m_market->applyFault("binance=" + fault), QString());
    const Reply reply = get("/api/v3/klines?" + query);
    QTEST(reply.status, "status");
    const QJsonArray klines = QJsonDocument::fromJson(reply.body).array();
    const QList<Candle> candles = readBinanceKlines(reply.body);
    if (reply.status != 200) {
        QCOMPARE(QJsonDocument::fromJson(reply.body)["code"].toInt(), bars);
        return;
    }
    QCOMPARE(klines.size(), bars);
    QCOMPARE(candles.size(), bars); // every bar drawable
    for (qsizetype i = 0; i < klines.size(); ++i) {
        const QJsonArray kline = klines[i].toArray();
        QCOMPARE(kline.size(), 12);
        QVERIFY(kline[0].isDouble() && kline[6].isDouble() && kline[8].isDouble());
        for (const int index : {1, 2, 3, 4, 5, 7, 9, 10})
            QVERIFY(hasEightDecimals(kline[index]));
        const qint64 endMs = kline[6].toInteger() + 1;
        QVERIFY(seconds == 0 || endMs - candles.at(i).time == seconds * 1000);
        // Each bar opens where the one before closed; the last one is still open.
        if (i + 1 < klines.size())
            QCOMPARE(klines[i + 1][0].toInteger(), endMs);
        else
            QVERIFY(candles.at(i).time <= m_nowMs && m_nowMs < endMs);
    }
    if (bars == 0)
        return;
    const BinancePair *pair = m_market->binance().find(QUrlQuery(query).queryItemValue("symbol"));
    const PriceWalk &walk = m_market->prices();
    QVERIFY(std::abs(candles.last().close - binancePrice(walk, *pair, walk.currentStep())) <=
            pair->tickSize());
}

void SimulatedMarketTest::chartSeries_data()
{
    QTest::addColumn<QString>("interval");
    QTest::addColumn<QString>("range");
    QTest::addColumn<int>("days"); // the series covers at least these

    // clang-format off
    QTest::newRow("1m over 1d") << "1m" << "1d" << 0;
    QTest::newRow("5m over 5d") << "5m" << "5d" << 4;
    QTest::newRow("15m over 5d") << "15m" << "5d" << 4;
    QTest::newRow("30m over 1mo") << "30m" << "1mo" << 27;
    QTest::newRow("1h over 3mo") << "1h" << "3mo" << 88;
    QTest::newRow("1d over 1y") << "1d" << "1y" << 364;
    QTest::newRow("1mo over 5y") << "1mo" << "5y" << 58 * 30;
    // clang-format on
}

void SimulatedMarketTest::chartSeries()
{
    QFETCH(QString, interval);
    QFETCH(QString, range);
    QFETCH(int, days);

    const Reply reply = get(yahooChartRequest("AAPL", interval, range));
    const QJsonObject result = QJsonDocument::fromJson(reply.body)["chart"]["result"][0].toObject();
    const QJsonArray times = result["timestamp"].toArray();
    const QJsonObject quote = result["indicators"]["quote"][0].toObject();
    QVERIFY(times.last().toInteger() - times.first().toInteger() > qint64(days) * 86400 + 3600);
    // A bar without trades is null in every array, and never the last one.
    int empty = 0;
    for (qsizetype i = 0; i < times.size(); ++i) {
        int nulls = 0;
        for (const char *key : {"open", "high", "low", "close", "volume"}) {
            QCOMPARE(quote[key].toArray().size(), times.size());
            nulls += quote[key][i].isNull();
        }
        QVERIFY(nulls == 0 || (nulls == 5 && i + 1 < times.size()));
        empty += nulls / 5;
    }
    QVERIFY(empty >= 1);
    const YahooChartReply chart = readYahooChart(reply.body);
    QCOMPARE(chart.candles.size(), times.size() - empty);
    const PriceWalk &walk = m_market->prices();
    QVERIFY(std::abs(chart.price / walk.price("AAPL", walk.currentStep()) - 1.0) < 1e-3);
    // Within the day, the last bar is the price of the moment without volume, as Yahoo sends it.
    const Candle live = chart.candles.last();
    const bool intraday = interval != "1d" && interval != "1mo";
    QCOMPARE(live.open == live.close && live.high == live.low && live.volume == 0.0, intraday);
}

void SimulatedMarketTest::historyWithoutBarsAndFromBrapi()
{
    // One index has a price but no bars, whatever is asked.
    const Reply reply = get(yahooChartRequest("^RUT", "1h", "3mo"));
    const QJsonObject result = QJsonDocument::fromJson(reply.body)["chart"]["result"][0].toObject();
    QVERIFY(!result.contains("timestamp"));
    QCOMPARE(result["indicators"]["quote"], QJsonArray({QJsonObject()}));
    const YahooChartReply chart = readYahooChart(reply.body);
    QVERIFY(chart.hasResult && chart.candles.isEmpty() && chart.price > 0.0);

    const BrapiHistoryReply history =
            readBrapiHistory(get(brapiQuoteRequest("PETR4.SA", {}, "1mo", "1d")).body);
    QVERIFY(history.hasResult && history.candles.size() >= 28);
    for (qsizetype i = 1; i < history.candles.size(); ++i)
        QVERIFY(history.candles.at(i).time > history.candles.at(i - 1).time);
    // In seconds, the day in progress stamped with the moment of the reply.
    QCOMPARE(history.candles.last().time, m_nowMs / 1000);
}

QTEST_GUILESS_MAIN(SimulatedMarketTest)
#include "tst_simulated_market.moc"
