#include "overview/movers_feed.h"
#include "overview/news_feed.h"
#include "providers/yahoo_session.h"
#include "support/fake_provider.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

Q_DECLARE_METATYPE(FakeReply)

namespace {

const QByteArray kTickers = R"([
 {"symbol":"BTCUSDT","lastPrice":"82000.10","priceChangePercent":"2.50","quoteVolume":"1500000000.0","count":900},
 {"symbol":"ETHUPUSDT","lastPrice":"3.10","priceChangePercent":"9.00","quoteVolume":"100000.0","count":10},
 {"symbol":"BTCDOWNUSDT","lastPrice":"0.01","priceChangePercent":"-9.00","quoteVolume":"100000.0","count":10},
 {"symbol":"LUNAUSDT","lastPrice":"0.00000000","priceChangePercent":"0.000","quoteVolume":"0.00000000","count":0},
 {"symbol":"ETHBTC","lastPrice":"0.04","priceChangePercent":"1.00","quoteVolume":"10.0","count":10},
 {"symbol":"SOLUSDT","lastPrice":"140.5","priceChangePercent":"-3.25","quoteVolume":"90000000.0","count":400}
])";
const QByteArray kTopMovers =
        R"({"metadata":"Top gainers, losers, and most actively traded US tickers",
 "last_updated":"2024-03-08 16:15:59 US/Eastern",
 "top_gainers":[{"ticker":"SMFL","price":"0.2998","change_amount":"0.1998","change_percentage":"199.8%","volume":"24532917"}],
 "top_losers":[{"ticker":"NVAX","price":"4.6","change_amount":"-1.2","change_percentage":"-20.6897%","volume":"1000"}],
 "most_actively_traded":[]})";
const QByteArray kNoTopMovers = R"({"metadata":"x","top_gainers":[],"top_losers":[]})";
const QByteArray kRateLimitNote =
        R"({"Note":"Thank you for using Alpha Vantage! Our standard API call frequency is 5 calls per minute and 500 calls per day."})";
const QByteArray kYahooQuotes =
        R"({"quoteResponse":{"result":[{"symbol":"AAPL","regularMarketPrice":190.5,"regularMarketChangePercent":1.25,"regularMarketVolume":51000000,"sector":"Technology"}],"error":null}})";
const QByteArray kSiteNews =
        R"({"domestic":[{"Titulo":"Ibovespa sobe","Fonte":"Valor","Link":"https://news.example.com/1"}]})";
const QByteArray kEmptySiteNews = R"({"news":[]})";
const QByteArray kArticles =
        R"({"status":"ok","totalResults":1,"articles":[{"source":{"id":null,"name":"Reuters"},"title":"Apple rises","url":"https://news.example.com/a","publishedAt":"2024-05-14T13:52:11Z"}]})";
const QByteArray kNoArticles = R"({"status":"ok","totalResults":0,"articles":[]})";
const QByteArray kFeed = R"(<?xml version="1.0"?><rss version="2.0"><channel><title>Yahoo</title>
<item><title>Apple &amp; the market</title><link>https://finance.example.com/x</link><pubDate>Fri, 08 Mar 2024 21:05:00 +0000</pubDate></item>
</channel></rss>)";
const QByteArray kEmptyFeed =
        R"(<?xml version="1.0"?><rss version="2.0"><channel><title>Yahoo</title></channel></rss>)";

FakeReply cookieReply()
{
    return FakeReply{.status = 404, .headers = {{"Set-Cookie", "A3=d=AQABBKx1; Path=/"}}};
}

QStringList symbolsOf(const QList<MoverRecord> &records)
{
    QStringList symbols;
    for (const MoverRecord &record : records)
        symbols << record.symbol;
    return symbols;
}

QList<QByteArray> paths(const QList<RecordedRequest> &requests)
{
    QList<QByteArray> result;
    for (const RecordedRequest &request : requests) {
        if (request.path != "/" && request.path != "/v1/test/getcrumb")
            result << request.path;
    }
    return result;
}

} // namespace

class OverviewFeedsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void cryptoMoversDropLeveragedAndDeadPairsAndAreReused();
    void binanceFailureIsReported();
    void usMoversFallBackToYahooWhenAlphaVantageGivesNothing_data();
    void usMoversFallBackToYahooWhenAlphaVantageGivesNothing();
    void rateLimitSilencesAlphaVantageForAMinute();
    void newerRefreshMakesOlderAnswersStale();
    void failedBatchQuotesKeepTheListsShown();

    void newsChainWalksToTheNextSourceWhenOneFails_data();
    void newsChainWalksToTheNextSourceWhenOneFails();
    void unusableSiteAddressSendsNoRequest();
    void newsApiIsAskedWithinItsDailyQuota();

private:
    MoversFeed &moversFeed(const QString &alphaVantageKey = {});
    QList<QList<QVariant>> waitForMovers(QSignalSpy &spy);

    FakeProvider m_provider;
    QNetworkAccessManager m_network;
    std::unique_ptr<YahooSession> m_session;
    std::unique_ptr<MoversFeed> m_movers;
    qint64 m_now = 1'731'700'000'000;
};

void OverviewFeedsTest::initTestCase()
{
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void OverviewFeedsTest::init()
{
    m_provider.clearRequests();
    m_provider.setReply("/", cookieReply());
    m_provider.setReply("/v1/test/getcrumb", FakeReply::text("zLoP.Fp75Uh/"));
    m_provider.setReply("/v7/finance/quote", FakeReply::json(kYahooQuotes));
    m_provider.setReply("/api/v3/ticker/24hr", FakeReply::json(kTickers));
    m_provider.setReply("/query", FakeReply::json(kTopMovers));
    m_movers.reset();
    m_session = std::make_unique<YahooSession>(m_network);
    m_session->setClock([this] { return m_now; });
}

MoversFeed &OverviewFeedsTest::moversFeed(const QString &alphaVantageKey)
{
    m_movers = std::make_unique<MoversFeed>(m_network, *m_session);
    m_movers->setClock([this] { return m_now; });
    m_movers->setAlphaVantageKey([alphaVantageKey] { return alphaVantageKey; });
    return *m_movers;
}

void OverviewFeedsTest::cryptoMoversDropLeveragedAndDeadPairsAndAreReused()
{
    MoversFeed &feed = moversFeed();
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    feed.refresh(QStringLiteral("crypto"), {});
    QVERIFY(ready.wait());
    QCOMPARE(ready.at(0).at(0).toString(), QStringLiteral("crypto"));
    const auto records = ready.at(0).at(1).value<QList<MoverRecord>>();
    QCOMPARE(symbolsOf(records), (QStringList{"BTCUSDT", "SOLUSDT"}));

    // A filter change a moment later re-ranks the same list without asking again.
    m_now += MoversFeed::kBinanceReuseMs - 1;
    feed.refresh(QStringLiteral("crypto"), {});
    QCOMPARE(ready.size(), 2);
    QCOMPARE(m_provider.requests().size(), 1);
    m_now += 2;
    feed.refresh(QStringLiteral("crypto"), {});
    QVERIFY(ready.wait());
    QCOMPARE(m_provider.requests().size(), 2);
}

void OverviewFeedsTest::binanceFailureIsReported()
{
    m_provider.setReply("/api/v3/ticker/24hr", FakeReply{.status = 503});
    MoversFeed &feed = moversFeed();
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    QSignalSpy failed(&feed, &MoversFeed::binanceFailed);
    feed.refresh(QStringLiteral("crypto"), {});
    QVERIFY(failed.wait());
    QCOMPARE(ready.size(), 0);
}

void OverviewFeedsTest::usMoversFallBackToYahooWhenAlphaVantageGivesNothing_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<FakeReply>("alphaVantage");
    QTest::addColumn<QStringList>("symbols");
    QTest::addColumn<QList<QByteArray>>("asked");

    const QList<QByteArray> both{"/query", "/v7/finance/quote"};
    QTest::newRow("top movers") << "demo" << FakeReply::json(kTopMovers)
                                << QStringList{"SMFL", "NVAX"} << QList<QByteArray>{"/query"};
    QTest::newRow("empty lists") << "demo" << FakeReply::json(kNoTopMovers) << QStringList{"AAPL"}
                                 << both;
    QTest::newRow("rate limited") << "demo" << FakeReply::json(kRateLimitNote)
                                  << QStringList{"AAPL"} << both;
    QTest::newRow("server error") << "demo" << FakeReply{.status = 500} << QStringList{"AAPL"}
                                  << both;
    QTest::newRow("no key") << "" << FakeReply::json(kTopMovers) << QStringList{"AAPL"}
                            << QList<QByteArray>{"/v7/finance/quote"};
}

void OverviewFeedsTest::usMoversFallBackToYahooWhenAlphaVantageGivesNothing()
{
    QFETCH(QString, key);
    QFETCH(FakeReply, alphaVantage);
    QFETCH(QStringList, symbols);
    QFETCH(QList<QByteArray>, asked);
    m_provider.setReply("/query", alphaVantage);
    MoversFeed &feed = moversFeed(key);
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    feed.refresh(QStringLiteral("us"), {QStringLiteral("AAPL"), QStringLiteral("MSFT")});
    QVERIFY(ready.wait());
    QCOMPARE(symbolsOf(ready.at(0).at(1).value<QList<MoverRecord>>()), symbols);
    QCOMPARE(paths(m_provider.requests()), asked);
    if (asked.contains("/v7/finance/quote")) {
        const RecordedRequest quote = m_provider.requests().constLast();
        QCOMPARE(quote.queryItem("symbols"), QStringLiteral("AAPL,MSFT"));
        QCOMPARE(quote.queryItems().constLast().first, QStringLiteral("crumb"));
        QCOMPARE(feed.sectors().value("AAPL"), QStringLiteral("Technology"));
    }
}

void OverviewFeedsTest::rateLimitSilencesAlphaVantageForAMinute()
{
    m_provider.setReply("/query", FakeReply{.status = 429, .headers = {{"Retry-After", "5"}}});
    MoversFeed &feed = moversFeed(QStringLiteral("demo"));
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    feed.refresh(QStringLiteral("us"), {QStringLiteral("AAPL")});
    QVERIFY(ready.wait());
    QCOMPARE(feed.alphaVantageSilencedUntilMs(), m_now + 60'000);

    // Inside the silence only Yahoo is asked; after it Alpha Vantage is tried again.
    m_provider.setReply("/query", FakeReply::json(kTopMovers));
    m_now += 45'000; // past Yahoo's re-use, inside the silence
    m_provider.clearRequests();
    feed.refresh(QStringLiteral("us"), {QStringLiteral("AAPL")});
    QVERIFY(ready.wait());
    QCOMPARE(paths(m_provider.requests()), (QList<QByteArray>{"/v7/finance/quote"}));
    m_now += 15'001;
    feed.refresh(QStringLiteral("us"), {QStringLiteral("AAPL")});
    QVERIFY(ready.wait());
    QCOMPARE(paths(m_provider.requests()).constLast(), QByteArray("/query"));
    QCOMPARE(symbolsOf(ready.constLast().at(1).value<QList<MoverRecord>>()),
             (QStringList{"SMFL", "NVAX"}));
}

void OverviewFeedsTest::newerRefreshMakesOlderAnswersStale()
{
    m_provider.setReply("/api/v3/ticker/24hr", FakeReply{.body = kTickers, .delayMs = 150});
    MoversFeed &feed = moversFeed();
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    feed.refresh(QStringLiteral("crypto"), {});
    MoverRecord row;
    row.symbol = QStringLiteral("ETHUSDT");
    row.change = -1.5;
    feed.refresh(QStringLiteral("watchlist"), {QStringLiteral("AAPL")}, {row});
    QVERIFY(ready.wait());
    QTest::qWait(250); // the slow crypto answer arrives and is dropped
    QCOMPARE(ready.size(), 1);
    QCOMPARE(ready.at(0).at(0).toString(), QStringLiteral("watchlist"));
    QCOMPARE(symbolsOf(ready.at(0).at(1).value<QList<MoverRecord>>()),
             (QStringList{"AAPL", "ETHUSDT"}));
}

void OverviewFeedsTest::failedBatchQuotesKeepTheListsShown()
{
    m_provider.setReply("/v7/finance/quote", FakeReply{.status = 502});
    MoversFeed &feed = moversFeed();
    QSignalSpy ready(&feed, &MoversFeed::moversReady);
    QSignalSpy failed(&feed, &MoversFeed::quotesFailed);
    feed.refresh(QStringLiteral("b3"), {QStringLiteral("PETR4.SA")});
    QVERIFY(failed.wait());
    QCOMPARE(failed.at(0).at(0).toString(), QStringLiteral("b3"));
    QCOMPARE(ready.size(), 0);
}

void OverviewFeedsTest::newsChainWalksToTheNextSourceWhenOneFails_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("key");
    QTest::addColumn<FakeReply>("newsApi");
    QTest::addColumn<FakeReply>("site");
    QTest::addColumn<FakeReply>("feed");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QStringList>("titles");
    QTest::addColumn<QList<QByteArray>>("asked");

    const FakeReply articles = FakeReply::json(kArticles);
    const FakeReply site = FakeReply::json(kSiteNews);
    const FakeReply feed{.headers = {{"Content-Type", "application/rss+xml"}}, .body = kFeed};
    const FakeReply down{.status = 503};
    const QByteArray newsApiPath = "/v2/everything", sitePath = "/site/news.json",
                     feedPath = "/rss/2.0/headline";

    QTest::newRow("auto with key: NewsAPI")
            << "auto"
            << "k" << articles << site << feed << "NewsAPI" << QStringList{"Apple rises"}
            << QList<QByteArray>{newsApiPath};
    QTest::newRow("auto: NewsAPI down, site")
            << "auto"
            << "k" << down << site << feed << "Querlin JSON" << QStringList{"Ibovespa sobe"}
            << QList<QByteArray>{newsApiPath, sitePath};
    QTest::newRow("auto: NewsAPI empty, site down, RSS")
            << "auto"
            << "k" << FakeReply::json(kNoArticles) << down << feed << "Public RSS"
            << QStringList{"Apple & the market"}
            << QList<QByteArray>{newsApiPath, sitePath, feedPath};
    QTest::newRow("auto without key: site empty, RSS")
            << "auto"
            << "" << articles << FakeReply::json(kEmptySiteNews) << feed << "Public RSS"
            << QStringList{"Apple & the market"} << QList<QByteArray>{sitePath, feedPath};
    QTest::newRow("querlin empty: no fallback")
            << "querlin"
            << "k" << articles << FakeReply::json(kEmptySiteNews) << feed << "Querlin JSON"
            << QStringList{} << QList<QByteArray>{sitePath};
    QTest::newRow("newsapi empty: no fallback")
            << "newsapi"
            << "k" << FakeReply::json(kNoArticles) << site << feed << "NewsAPI" << QStringList{}
            << QList<QByteArray>{newsApiPath};
    QTest::newRow("newsapi without key: RSS")
            << "newsapi"
            << "" << articles << site << feed << "Public RSS" << QStringList{"Apple & the market"}
            << QList<QByteArray>{feedPath};
    QTest::newRow("public, empty feed")
            << "public"
            << "k" << articles << site
            << FakeReply{.headers = {{"Content-Type", "application/rss+xml"}}, .body = kEmptyFeed}
            << "Public RSS" << QStringList{} << QList<QByteArray>{feedPath};
}

void OverviewFeedsTest::newsChainWalksToTheNextSourceWhenOneFails()
{
    QFETCH(QString, source);
    QFETCH(QString, key);
    QFETCH(FakeReply, newsApi);
    QFETCH(FakeReply, site);
    QFETCH(FakeReply, feed);
    QFETCH(QString, label);
    QFETCH(QStringList, titles);
    QFETCH(QList<QByteArray>, asked);
    m_provider.setReply("/v2/everything", newsApi);
    m_provider.setReply("/site/news.json", site);
    m_provider.setReply("/rss/2.0/headline", feed);

    NewsFeed news(m_network);
    QSignalSpy ready(&news, &NewsFeed::newsReady);
    NewsQuery query;
    query.sourceId = source;
    query.newsSymbol = QStringLiteral("AAPL");
    query.language = QStringLiteral("en");
    query.siteEndpoint = m_provider.baseUrl() + QStringLiteral("/site/news.json");
    query.newsApiKey = key;
    news.refresh(query);
    QVERIFY(ready.wait());
    QCOMPARE(ready.at(0).at(1).toString(), label);
    QStringList shown;
    for (const NewsItem &item : ready.at(0).at(0).value<QList<NewsItem>>())
        shown << item.title;
    QCOMPARE(shown, titles);
    QCOMPARE(paths(m_provider.requests()), asked);
    for (const RecordedRequest &request : m_provider.requests())
        QCOMPARE(request.header("User-Agent"), QByteArray("QUERLIN_TERMINAL/0.1 Qt"));
}

void OverviewFeedsTest::unusableSiteAddressSendsNoRequest()
{
    m_provider.setReply("/rss/2.0/headline", FakeReply{.body = kFeed});
    NewsFeed news(m_network);
    QSignalSpy ready(&news, &NewsFeed::newsReady);
    QSignalSpy failed(&news, &NewsFeed::newsFailed);
    NewsQuery query;
    query.sourceId = QStringLiteral("auto");
    query.newsSymbol = QStringLiteral("BTCUSDT");
    query.siteEndpoint = QStringLiteral("news.example.com/feed"); // no scheme
    news.refresh(query);
    QVERIFY(ready.wait());
    QCOMPARE(paths(m_provider.requests()), (QList<QByteArray>{"/rss/2.0/headline"}));
    QCOMPARE(m_provider.lastRequest().queryItem("s"), QStringLiteral("BTC-USD"));

    // Without a fallback the refresh ends there, and the headlines shown stay.
    m_provider.clearRequests();
    query.sourceId = QStringLiteral("querlin");
    news.refresh(query);
    QCOMPARE(failed.size(), 1);
    QCOMPARE(m_provider.requests().size(), 0);
}

void OverviewFeedsTest::newsApiIsAskedWithinItsDailyQuota()
{
    m_provider.setReply("/v2/everything", FakeReply::json(kArticles));
    m_provider.setReply("/site/news.json", FakeReply::json(kSiteNews));
    NewsFeed news(m_network);
    news.setClock([this] { return m_now; });
    QuotaMeter quota([this] { return m_now; });
    news.setQuotaMeter(&quota);
    QSignalSpy ready(&news, &NewsFeed::newsReady);
    NewsQuery query;
    query.newsSymbol = QStringLiteral("AAPL");
    query.siteEndpoint = m_provider.baseUrl() + QStringLiteral("/site/news.json");
    query.newsApiKey = QStringLiteral("k");
    const auto refreshAndWait = [&] {
        const qsizetype before = ready.size();
        news.refresh(query);
        return ready.size() > before || ready.wait();
    };

    QVERIFY(refreshAndWait());
    m_now += NewsFeed::kNewsApiReuseMs - 1; // the minute refreshes re-use the answer
    QVERIFY(refreshAndWait());
    QCOMPARE(ready.constLast().at(1).toString(), QStringLiteral("NewsAPI"));
    QCOMPARE(paths(m_provider.requests()), (QList<QByteArray>{"/v2/everything"}));

    // Throttled: the site serves, and NewsAPI rests for the hour.
    m_provider.setReply("/v2/everything", FakeReply{.status = 429});
    m_now += 2;
    QVERIFY(refreshAndWait());
    QCOMPARE(ready.constLast().at(1).toString(), QStringLiteral("Querlin JSON"));
    m_provider.clearRequests();
    m_now += NewsFeed::kNewsApiSilenceMs - 1;
    QVERIFY(refreshAndWait());
    QCOMPARE(paths(m_provider.requests()), (QList<QByteArray>{"/site/news.json"}));
    // The meter saw the two requests NewsAPI really got, not the answers re-used.
    QCOMPARE(quota.dayCount(QStringLiteral("newsapi")), 2);
}

QTEST_GUILESS_MAIN(OverviewFeedsTest)
#include "tst_overview_feeds.moc"
