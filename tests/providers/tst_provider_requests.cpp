#include "providers/data_fetcher.h"
#include "providers/provider_requests.h"
#include "support/fake_provider.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <functional>

using RequestMaker = std::function<QNetworkRequest()>;
Q_DECLARE_METATYPE(RequestMaker)

namespace {

const QByteArray kFetcherAgent = "QuerlinTerminal/1.0";
const QByteArray kTerminalAgent = "QUERLIN_TERMINAL/0.1 Qt";
const QByteArray kNoAgentOfOurs = "-"; // the request carries no header of its own

} // namespace

// Every request is sent through a real socket to the fake provider and checked as it arrived.
class ProviderRequestsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void requestsArriveAsShaped_data();
    void requestsArriveAsShaped();
    void batchQuotesSplitAtEighty();

private:
    RecordedRequest send(const QNetworkRequest &request);

    FakeProvider m_provider;
    QNetworkAccessManager m_manager;
};

void ProviderRequestsTest::initTestCase()
{
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

RecordedRequest ProviderRequestsTest::send(const QNetworkRequest &request)
{
    m_provider.clearRequests();
    QNetworkReply *reply = m_manager.get(request);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!finished.wait(5000) || m_provider.requests().size() != 1) {
        reply->deleteLater();
        return {};
    }
    reply->deleteLater();
    return m_provider.lastRequest();
}

void ProviderRequestsTest::requestsArriveAsShaped_data()
{
    QTest::addColumn<RequestMaker>("make");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("userAgent");
    QTest::addColumn<QByteArray>("authorization"); // empty: none

    const auto fetcher = [](std::shared_ptr<DataFetcher> f, QString symbol) -> RequestMaker {
        return [f, symbol] { return f->buildRequest(symbol); };
    };

    // Quote fetchers: one user agent, keys in the query, never an Authorization header.
    QTest::newRow("yahoo b3 equity")
            << fetcher(std::make_shared<YahooFetcher>("1d", "5d"), "PETR4.SA")
            << QByteArray("/v8/finance/chart/PETR4.SA")
            << QByteArray("range=5d&interval=1d&includePrePost=false") << kFetcherAgent
            << QByteArray();
    QTest::newRow("yahoo index") << fetcher(std::make_shared<YahooFetcher>("1m", "1d"), "^GSPC")
                                 << QByteArray("/v8/finance/chart/%5EGSPC")
                                 << QByteArray("range=1d&interval=1m&includePrePost=false")
                                 << kFetcherAgent << QByteArray();
    QTest::newRow("yahoo forex") << fetcher(std::make_shared<YahooFetcher>("1h", "3mo"), "EURUSD=X")
                                 << QByteArray("/v8/finance/chart/EURUSD%3DX")
                                 << QByteArray("range=3mo&interval=1h&includePrePost=false")
                                 << kFetcherAgent << QByteArray();
    QTest::newRow("binance upper-cases")
            << fetcher(std::make_shared<BinanceFetcher>(), "btcusdt")
            << QByteArray("/api/v3/ticker/24hr") << QByteArray("symbol=BTCUSDT") << kFetcherAgent
            << QByteArray();
    QTest::newRow("brapi drops .SA")
            << fetcher(std::make_shared<BrAPIFetcher>("", "1d", "5d"), "PETR4.SA")
            << QByteArray("/api/quote/PETR4") << QByteArray("interval=1d&range=5d") << kFetcherAgent
            << QByteArray();
    QTest::newRow("brapi token in query")
            << fetcher(std::make_shared<BrAPIFetcher>("tok3n", "1h", "3mo"), "^BVSP")
            << QByteArray("/api/quote/%5EBVSP") << QByteArray("interval=1h&range=3mo&token=tok3n")
            << kFetcherAgent << QByteArray();
    QTest::newRow("alpha vantage")
            << fetcher(std::make_shared<AlphaVantageFetcher>("AVKEY"), "IBM")
            << QByteArray("/query") << QByteArray("function=GLOBAL_QUOTE&symbol=IBM&apikey=AVKEY")
            << kFetcherAgent << QByteArray();
    QTest::newRow("finnhub") << fetcher(std::make_shared<FinnhubFetcher>("FHKEY"), "AAPL")
                             << QByteArray("/api/v1/quote") << QByteArray("symbol=AAPL&token=FHKEY")
                             << kFetcherAgent << QByteArray();
    QTest::newRow("twelve data pair")
            << fetcher(std::make_shared<TwelveDataFetcher>("TDKEY"), "EUR/USD")
            << QByteArray("/quote") << QByteArray("symbol=EUR%2FUSD&apikey=TDKEY") << kFetcherAgent
            << QByteArray();
    QTest::newRow("fmp encodes the path")
            << fetcher(std::make_shared<FinancialModelingPrepFetcher>("FMPKEY"), "^GSPC")
            << QByteArray("/api/v3/quote/%5EGSPC") << QByteArray("apikey=FMPKEY") << kFetcherAgent
            << QByteArray();

    // The other provider requests.
    QTest::newRow("alpha vantage row quote")
            << RequestMaker([] { return alphaVantageQuoteRequest("MSFT", "K1"); })
            << QByteArray("/query") << QByteArray("function=GLOBAL_QUOTE&symbol=MSFT&apikey=K1")
            << kTerminalAgent << QByteArray();
    QTest::newRow("alpha vantage movers")
            << RequestMaker([] { return alphaVantageMoversRequest("K1"); }) << QByteArray("/query")
            << QByteArray("function=TOP_GAINERS_LOSERS&apikey=K1") << kTerminalAgent
            << QByteArray();
    QTest::newRow("brapi keyed with history")
            << RequestMaker([] { return brapiQuoteRequest("PETR4.SA", "tok", "1y", "1d"); })
            << QByteArray("/api/quote/PETR4") << QByteArray("range=1y&interval=1d")
            << kTerminalAgent << QByteArray("Bearer tok");
    QTest::newRow("brapi keyed quote only")
            << RequestMaker([] { return brapiQuoteRequest("VALE3.SA", "tok"); })
            << QByteArray("/api/quote/VALE3") << QByteArray() << kTerminalAgent
            << QByteArray("Bearer tok");
    QTest::newRow("brapi without token")
            << RequestMaker([] { return brapiQuoteRequest("VALE3.SA", "", "5d", "15m"); })
            << QByteArray("/api/quote/VALE3") << QByteArray("range=5d&interval=15m")
            << kTerminalAgent << QByteArray();
    QTest::newRow("finnhub row quote")
            << RequestMaker([] { return finnhubQuoteRequest("NVDA", "FH"); })
            << QByteArray("/api/v1/quote") << QByteArray("symbol=NVDA&token=FH") << kTerminalAgent
            << QByteArray();
    QTest::newRow("binance klines")
            << RequestMaker([] { return binanceKlinesRequest("btcusdt", "1M"); })
            << QByteArray("/api/v3/klines") << QByteArray("symbol=BTCUSDT&interval=1M&limit=180")
            << kNoAgentOfOurs << QByteArray();
    QTest::newRow("binance exchange info")
            << RequestMaker([] { return binanceExchangeInfoRequest(); })
            << QByteArray("/api/v3/exchangeInfo") << QByteArray() << kNoAgentOfOurs << QByteArray();
    QTest::newRow("binance depth")
            << RequestMaker([] { return binanceDepthRequest("ETHUSDT"); })
            << QByteArray("/api/v3/depth") << QByteArray("symbol=ETHUSDT&limit=20")
            << kNoAgentOfOurs << QByteArray();
    QTest::newRow("yahoo chart") << RequestMaker([] {
        return yahooChartRequest("PETR4.SA", "1h", "3mo");
    }) << QByteArray("/v8/finance/chart/PETR4.SA")
                                 << QByteArray("interval=1h&range=3mo&includePrePost=false")
                                 << kTerminalAgent << QByteArray();
    QTest::newRow("yahoo search") << RequestMaker([] {
        return yahooSymbolSearchRequest("petro bras");
    }) << QByteArray("/v1/finance/search")
                                  << QByteArray("q=petro%20bras&quotesCount=20&newsCount=0")
                                  << kTerminalAgent << QByteArray();
    QTest::newRow("yahoo headlines") << RequestMaker([] {
        return yahooHeadlineFeedRequest({"TSLA", "^GSPC"});
    }) << QByteArray("/rss/2.0/headline")
                                     << QByteArray("s=TSLA%2C%5EGSPC&region=US&lang=en-US")
                                     << kTerminalAgent << QByteArray();
    QTest::newRow("newsapi")
            << RequestMaker([] { return newsApiArticlesRequest("bitcoin OR b3", "NK"); })
            << QByteArray("/v2/everything")
            << QByteArray(
                       "q=bitcoin%20OR%20b3&language=en&sortBy=publishedAt&pageSize=50&apiKey=NK")
            << kTerminalAgent << QByteArray();
    QTest::newRow("house news keeps its own query")
            << RequestMaker([this] {
                   return terminalNewsRequest(
                           QUrl(m_provider.baseUrl() + "/TERMINAL/NEWS.json?v=2"), "nt", "crypto",
                           "btc", "pt_BR");
               })
            << QByteArray("/TERMINAL/NEWS.json")
            << QByteArray("v=2&category=crypto&q=btc&limit=80&lang=pt") << kTerminalAgent
            << QByteArray("Bearer nt");
    QTest::newRow("house news in english without token") << RequestMaker([this] {
        return terminalNewsRequest(QUrl(m_provider.baseUrl() + "/news"), "", "all", "", "en");
    }) << QByteArray("/news") << QByteArray("category=all&q=&limit=80&lang=en")
                                                         << kTerminalAgent << QByteArray();
}

void ProviderRequestsTest::requestsArriveAsShaped()
{
    QFETCH(RequestMaker, make);
    QFETCH(QByteArray, userAgent);
    QFETCH(QByteArray, authorization);

    const QNetworkRequest request = make();
    // The request object carries only the headers we mean; Qt adds its transport ones on the wire.
    QList<QByteArray> expectedHeaders;
    if (userAgent != kNoAgentOfOurs)
        expectedHeaders << "User-Agent";
    if (!authorization.isEmpty())
        expectedHeaders << "Authorization";
    QCOMPARE(request.rawHeaderList(), expectedHeaders);

    const RecordedRequest arrived = send(request);
    QCOMPARE(arrived.method, QByteArray("GET"));
    QTEST(arrived.path, "path");
    QTEST(arrived.rawQuery, "query");
    QCOMPARE(arrived.headerCount("User-Agent"), 1);
    if (userAgent == kNoAgentOfOurs)
        QVERIFY(!arrived.header("User-Agent").contains("QUERLIN"));
    else
        QCOMPARE(arrived.header("User-Agent"), userAgent);
    QCOMPARE(arrived.header("Authorization"), authorization);
    QCOMPARE(arrived.headerCount("Authorization"), authorization.isEmpty() ? 0 : 1);
}

void ProviderRequestsTest::batchQuotesSplitAtEighty()
{
    QStringList symbols{"EURUSD=X", "^BVSP"};
    for (int i = 0; symbols.size() < 161; ++i)
        symbols << QStringLiteral("S%1").arg(i);
    const QList<QNetworkRequest> requests = yahooBatchQuoteRequests(symbols);
    QCOMPARE(requests.size(), 3);

    QStringList received;
    for (const QNetworkRequest &request : requests) {
        const RecordedRequest arrived = send(request);
        QCOMPARE(arrived.path, QByteArray("/v7/finance/quote"));
        QCOMPARE(arrived.header("User-Agent"), kTerminalAgent);
        QVERIFY(arrived.rawQuery.startsWith("symbols="));
        const QStringList batch = arrived.queryItems().value(0).second.split(',');
        QVERIFY(batch.size() <= 80);
        received << batch;
    }
    QCOMPARE(received, symbols);
    QVERIFY(yahooBatchQuoteRequests({}).isEmpty());
    QVERIFY(send(requests.first()).rawQuery.startsWith("symbols=EURUSD%3DX%2C%5EBVSP%2CS0"));
}

QTEST_GUILESS_MAIN(ProviderRequestsTest)
#include "tst_provider_requests.moc"
