#include "app/endpoints.h"
#include "overview/movers.h"
#include "overview/news.h"
#include "providers/provider_requests.h"
#include "providers/yahoo_session.h"
#include "simulated_market/simulated_market.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <memory>

// The market's movers and news routes, read by the terminal's own requests and readers.

namespace {

struct Reply
{
    int status = 0;
    QByteArray body;
};

QSet<QString> categoriesOf(const QList<NewsItem> &items)
{
    QSet<QString> categories;
    for (const NewsItem &item : items)
        categories.insert(item.category);
    return categories;
}

} // namespace

class SimulatedNewsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void binanceMoversLeaveOutTokensAndHaltedPairs_data();
    void binanceMoversLeaveOutTokensAndHaltedPairs();
    void alphaVantageMoversAndTheirFaults_data();
    void alphaVantageMoversAndTheirFaults();
    void batchQuoteCarriesSectors_data();
    void batchQuoteCarriesSectors();
    void siteNewsHonoursItsQuery_data();
    void siteNewsHonoursItsQuery();
    void siteNewsLanguageChangesOnlyTheWords();
    void newsApiArticlesLeaveOutRemovedOnes();
    void newsApiRefusesAsTheRealService_data();
    void newsApiRefusesAsTheRealService();
    void publicFeedReadsHeadlines_data();
    void publicFeedReadsHeadlines();
    void newsFaultsTakeOnlyTheirRoute_data();
    void newsFaultsTakeOnlyTheirRoute();

private:
    Reply get(const QNetworkRequest &request);
    // Straight onto the socket, so that no header is added behind the test's back.
    Reply raw(const QByteArray &target, const QByteArray &headers);
    QNetworkRequest siteRequest(const QString &category, const QString &query,
                                const QString &language, const QString &endpointQuery = {}) const
    {
        return siteNewsRequest(QUrl(m_market->baseUrl() + "/TERMINAL/NEWS.json" + endpointQuery),
                               "token", category, query, language);
    }
    QByteArray yahooQuote(const QStringList &symbols);

    qint64 m_nowMs = 1731600000000;
    std::unique_ptr<SimulatedMarket> m_market;
    QNetworkAccessManager m_manager;
};

Reply SimulatedNewsTest::get(const QNetworkRequest &request)
{
    QNetworkReply *reply = m_manager.get(request);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished())
        finished.wait(3000);
    Reply result{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                 reply->readAll()};
    reply->deleteLater();
    return result;
}

Reply SimulatedNewsTest::raw(const QByteArray &target, const QByteArray &headers)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_market->port());
    if (!socket.waitForConnected(3000))
        return {};
    socket.write("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers +
                 "Connection: close\r\n\r\n");
    QByteArray received;
    QSignalSpy closed(&socket, &QTcpSocket::disconnected);
    while (socket.state() == QAbstractSocket::ConnectedState && closed.wait(3000))
        ;
    received = socket.readAll();
    const qsizetype bodyStart = received.indexOf("\r\n\r\n");
    if (bodyStart < 0)
        return {};
    return {received.mid(9, 3).toInt(), received.mid(bodyStart + 4)};
}

QByteArray SimulatedNewsTest::yahooQuote(const QStringList &symbols)
{
    YahooSession session(m_manager);
    QByteArray body;
    bool answered = false;
    session.get(yahooBatchQuoteRequests(symbols).first(), this, [&](const ProviderReply &reply) {
        body = reply.body;
        answered = true;
    });
    if (!QTest::qWaitFor([&] { return answered; }, 3000))
        return {};
    return body;
}

void SimulatedNewsTest::initTestCase()
{
    m_market = std::make_unique<SimulatedMarket>(42, [this] { return m_nowMs; });
    QVERIFY(m_market->listen(0));
    const QByteArray http = m_market->baseUrl().toUtf8();
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        if (!definition.isStream)
            qputenv(definition.environmentVariable, http);
    }
    m_manager.setTransferTimeout(3000);
}

void SimulatedNewsTest::cleanup()
{
    QVERIFY(m_market->applyFault("all=none").isEmpty());
}

void SimulatedNewsTest::binanceMoversLeaveOutTokensAndHaltedPairs_data()
{
    QTest::addColumn<QString>("symbol"); // empty: the halted pair the exchange lists
    QTest::addColumn<bool>("trading");
    QTest::addColumn<bool>("kept");

    // clang-format off
    QTest::newRow("bitcoin") << "BTCUSDT" << true << true;
    QTest::newRow("a coin of the exchange's own") << "PEPEUSDT" << true << true;
    QTest::newRow("leveraged up, trading") << "ETHUPUSDT" << true << false;
    QTest::newRow("leveraged bull, trading") << "BNBBULLUSDT" << true << false;
    QTest::newRow("leveraged bear, trading") << "XRPBEARUSDT" << true << false;
    QTest::newRow("leveraged down, halted") << "BTCDOWNUSDT" << false << false;
    QTest::newRow("quoted in bitcoin") << "ETHBTC" << true << false;
    QTest::newRow("halted pair") << "" << false << false;
    // clang-format on
}

void SimulatedNewsTest::binanceMoversLeaveOutTokensAndHaltedPairs()
{
    QFETCH(QString, symbol);
    QFETCH(bool, trading);
    QFETCH(bool, kept);

    const Reply reply = get(binanceAllTickersRequest());
    QCOMPARE(reply.status, 200);
    const QJsonArray tickers = QJsonDocument::fromJson(reply.body).array();
    QJsonObject ticker;
    for (const QJsonValue &entry : tickers) {
        const QJsonObject object = entry.toObject();
        const bool dead = object["lastPrice"] == "0.00000000" && object["count"] == 0;
        const QString name = object["symbol"].toString();
        const bool leveraged = name.contains("DOWN") || name.endsWith("UPUSDT");
        if (symbol.isEmpty() ? dead && !leveraged && name.endsWith("USDT") : name == symbol) {
            ticker = object;
            break;
        }
    }
    QVERIFY2(!ticker.isEmpty(), qPrintable(symbol));
    // Every price a string with eight decimals, as in the real reply; a halted pair keeps only
    // its last close.
    QCOMPARE(ticker.keys().size(), 21);
    QVERIFY(ticker["openPrice"].toString().contains(QRegularExpression("^\\d+\\.\\d{8}$")));
    QCOMPARE(ticker["lastPrice"].toString().toDouble() > 0.0, trading);
    QCOMPARE(ticker["count"].toInteger() > 0, trading);
    QVERIFY(ticker["prevClosePrice"].toString().toDouble() > 0.0);

    const QList<MoverRecord> movers = readBinanceMovers(reply.body);
    QVERIFY(movers.size() >= 200);
    const QString name = ticker["symbol"].toString();
    QCOMPARE(std::any_of(movers.cbegin(), movers.cend(),
                         [&name](const MoverRecord &record) { return record.symbol == name; }),
             kept);
}

void SimulatedNewsTest::alphaVantageMoversAndTheirFaults_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("firstKey"); // of the reply's object

    // clang-format off
    QTest::newRow("usual") << "none" << 200 << "metadata";
    QTest::newRow("daily limit") << "limit" << 200 << "Information";
    QTest::newRow("older note") << "note" << 200 << "Note";
    QTest::newRow("rate limited") << "429" << 429 << "Information";
    QTest::newRow("error page") << "5xx" << 503 << "";
    // clang-format on
}

void SimulatedNewsTest::alphaVantageMoversAndTheirFaults()
{
    QFETCH(QString, fault);
    QFETCH(QString, firstKey);

    QCOMPARE(m_market->applyFault("alpha_vantage=" + fault), QString());
    const Reply reply = get(alphaVantageMoversRequest("KEY"));
    QTEST(reply.status, "status");
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    if (firstKey.isEmpty())
        QVERIFY(object.isEmpty());
    else
        QVERIFY(object.contains(firstKey));
    const QList<MoverRecord> records = readAlphaVantageMovers(reply.body);
    if (fault != "none") {
        QVERIFY(records.isEmpty());
        return;
    }

    QCOMPARE(records.size(), 40);
    for (int i = 0; i < 40; ++i) {
        const bool gainer = i < 20;
        QVERIFY2(gainer ? records.at(i).change > 0.0 : records.at(i).change < 0.0,
                 qPrintable(records.at(i).symbol));
        if (i % 20 > 0) // best first, worst first
            QVERIFY(gainer ? records.at(i).change <= records.at(i - 1).change
                           : records.at(i).change >= records.at(i - 1).change);
        QVERIFY(records.at(i).price > 0.0 && records.at(i).volume >= 0.0);
    }
    const QJsonArray active = object["most_actively_traded"].toArray();
    QCOMPARE(active.size(), 20);
    for (const QJsonValue &item : active) {
        QVERIFY(item["change_percentage"].toString().endsWith('%'));
        QVERIFY(item["volume"].isString() && item["price"].isString());
    }
    QVERIFY(object["last_updated"].toString().endsWith(" US/Eastern"));
    // The same moment gives the same lists.
    QCOMPARE(get(alphaVantageMoversRequest("KEY")).body, reply.body);
}

void SimulatedNewsTest::batchQuoteCarriesSectors_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("sector"); // empty: none

    // clang-format off
    QTest::newRow("us technology") << "AAPL" << "Technology";
    QTest::newRow("us energy") << "XOM" << "Energy";
    QTest::newRow("b3 energy") << "PETR4.SA" << "Energy";
    QTest::newRow("b3 materials") << "VALE3.SA" << "Basic Materials";
    QTest::newRow("b3 bank") << "ITUB4.SA" << "Financial Services";
    QTest::newRow("b3 retail") << "MGLU3.SA" << "Consumer Cyclical";
    QTest::newRow("fund") << "SPY" << "";
    QTest::newRow("index") << "^GSPC" << "";
    QTest::newRow("currency") << "BRL=X" << "";
    QTest::newRow("coin") << "BTC-USD" << "";
    // clang-format on
}

void SimulatedNewsTest::batchQuoteCarriesSectors()
{
    QFETCH(QString, symbol);
    QFETCH(QString, sector);

    QHash<QString, QString> sectors;
    const QList<MoverRecord> records = readYahooMovers(yahooQuote({symbol, "MSFT"}), &sectors);
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.first().symbol, symbol);
    QVERIFY(std::isfinite(records.first().volume));
    QCOMPARE(sectors.value(symbol), sector);
}

void SimulatedNewsTest::siteNewsHonoursItsQuery_data()
{
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("query");
    QTest::addColumn<QString>("endpointQuery");
    QTest::addColumn<QStringList>("categories");
    QTest::addColumn<int>("minimum");
    QTest::addColumn<int>("maximum");

    const QStringList all{"br", "us", "crypto"};
    // clang-format off
    QTest::newRow("all") << "all" << "" << "" << all << 30 << 60;
    QTest::newRow("brazil") << "br" << "" << "" << QStringList{"br"} << 10 << 20;
    QTest::newRow("us") << "us" << "" << "" << QStringList{"us"} << 10 << 20;
    QTest::newRow("crypto") << "crypto" << "" << "" << QStringList{"crypto"} << 10 << 20;
    QTest::newRow("searched") << "all" << "BITCOIN" << "" << QStringList{"crypto"} << 1 << 4;
    QTest::newRow("nothing found") << "all" << "zzqx" << "" << QStringList() << 0 << 0;
    QTest::newRow("limited") << "all" << "" << "?limit=4" << QStringList() << 4 << 4;
    // clang-format on
}

void SimulatedNewsTest::siteNewsHonoursItsQuery()
{
    QFETCH(QString, category);
    QFETCH(QString, query);
    QFETCH(QString, endpointQuery);
    QFETCH(QStringList, categories);
    QFETCH(int, minimum);
    QFETCH(int, maximum);

    const Reply reply = get(siteRequest(category, query, "en_US", endpointQuery));
    QCOMPARE(reply.status, 200);
    const QList<NewsItem> items = readSiteNews(reply.body);
    QVERIFY2(items.size() >= minimum && items.size() <= maximum,
             qPrintable(QString::number(items.size())));
    if (!categories.isEmpty())
        QCOMPARE(categoriesOf(items), QSet<QString>(categories.cbegin(), categories.cend()));
    for (const NewsItem &item : items) {
        QVERIFY(item.title.contains(query, Qt::CaseInsensitive) ||
                item.text.contains(query, Qt::CaseInsensitive));
        QVERIFY(!item.link.isEmpty() && !item.source.isEmpty());
        QVERIFY2(QDateTime::fromString(item.time, Qt::ISODate).isValid(), qPrintable(item.time));
    }
}

void SimulatedNewsTest::siteNewsLanguageChangesOnlyTheWords()
{
    const QList<NewsItem> english = readSiteNews(get(siteRequest("br", {}, "en_US")).body);
    const QList<NewsItem> portuguese = readSiteNews(get(siteRequest("br", {}, "pt_BR")).body);
    QCOMPARE(portuguese.size(), english.size());
    for (qsizetype i = 0; i < english.size(); ++i) {
        QCOMPARE(portuguese.at(i).link, english.at(i).link);
        QVERIFY(portuguese.at(i).title != english.at(i).title);
    }
    // A token that is no bearer token is refused.
    QCOMPARE(raw("/TERMINAL/NEWS.json?category=all", "Authorization: Basic eDp5\r\n").status, 401);
}

void SimulatedNewsTest::newsApiArticlesLeaveOutRemovedOnes()
{
    const Reply reply = get(newsApiRequest("AAPL", "KEY"));
    QCOMPARE(reply.status, 200);
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    const QJsonArray articles = object["articles"].toArray();
    QCOMPARE(object["totalResults"].toInt(), articles.size());
    const QList<NewsItem> items = readNewsApiArticles(reply.body);
    QCOMPARE(items.size(), articles.size() - 1);
    // The dates come in NewsAPI's several forms, the placeholder among the articles.
    QSet<QString> forms;
    bool removed = false;
    for (const QJsonValue &article : articles) {
        const QString time = article["publishedAt"].toString();
        forms.insert(time.endsWith("+00:00") ? "offset" : time.contains('.') ? "fraction" : "Z");
        removed = removed || article["url"] == "https://removed.com";
    }
    QVERIFY(removed);
    QCOMPARE(forms.size(), 3);
    for (const NewsItem &item : items)
        QVERIFY(item.title.contains("Apple") && item.title != "[Removed]");
}

void SimulatedNewsTest::newsApiRefusesAsTheRealService_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("code");

    const QByteArray agent = "User-Agent: QUERLIN_TERMINAL/0.1 Qt\r\n";
    // clang-format off
    QTest::newRow("no user agent") << QByteArray("/v2/everything?q=AAPL&apiKey=KEY") << QByteArray() << 400 << "userAgentMissing";
    QTest::newRow("no key") << QByteArray("/v2/everything?q=AAPL") << agent << 401 << "apiKeyMissing";
    QTest::newRow("empty key") << QByteArray("/v2/everything?q=AAPL&apiKey=") << agent << 401 << "apiKeyInvalid";
    QTest::newRow("key in the header") << QByteArray("/v2/everything?q=AAPL") << agent + "X-Api-Key: KEY\r\n" << 200 << "";
    QTest::newRow("past 100 results") << QByteArray("/v2/everything?q=AAPL&apiKey=KEY&pageSize=50&page=3") << agent << 426 << "maximumResultsReached";
    QTest::newRow("unknown subject") << QByteArray("/v2/everything?q=zzqx&apiKey=KEY") << agent << 200 << "";
    // clang-format on
}

void SimulatedNewsTest::newsApiRefusesAsTheRealService()
{
    QFETCH(QByteArray, target);
    QFETCH(QByteArray, headers);
    QFETCH(QString, code);

    const Reply reply = raw(target, headers);
    QTEST(reply.status, "status");
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    QCOMPARE(object["status"].toString(), code.isEmpty() ? "ok" : "error");
    QCOMPARE(object["code"].toString(), code);
    if (!code.isEmpty())
        QVERIFY(readNewsApiArticles(reply.body).isEmpty());
}

void SimulatedNewsTest::publicFeedReadsHeadlines_data()
{
    QTest::addColumn<QString>("symbol"); // as the terminal holds it
    QTest::addColumn<QString>("name");   // every headline is about it
    QTest::addColumn<int>("items");

    // clang-format off
    QTest::newRow("us share") << "TSLA" << "Tesla" << 10;
    QTest::newRow("coin") << "BTCUSDT" << "Bitcoin" << 10;
    QTest::newRow("b3 share") << "PETR4.SA" << "Petrobras" << 10;
    QTest::newRow("unknown") << "NOPE" << "" << 0;
    // clang-format on
}

void SimulatedNewsTest::publicFeedReadsHeadlines()
{
    QFETCH(QString, symbol);
    QFETCH(QString, name);

    const Reply reply = get(publicNewsRequest(symbol));
    QCOMPARE(reply.status, 200);
    QVERIFY(reply.body.contains("<channel>") && reply.body.contains("</rss>"));
    const QList<NewsItem> items = readPublicNewsFeed(reply.body);
    QTEST(int(items.size()), "items");
    for (const NewsItem &item : items) {
        QVERIFY2(item.title.contains(name) || item.text.contains(name), qPrintable(item.title));
        QVERIFY(item.link.startsWith("https://") && item.link.endsWith("?.tsrc=rss"));
        QVERIFY2(QDateTime::fromString(item.time, Qt::RFC2822Date).isValid(),
                 qPrintable(item.time));
    }
}

void SimulatedNewsTest::newsFaultsTakeOnlyTheirRoute_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QList<int>>("statuses"); // site feed, NewsAPI, RSS

    // clang-format off
    QTest::newRow("site feed throttled") << "querlin_news" << "429" << QList<int>{429, 200, 200};
    QTest::newRow("site feed down") << "querlin_news" << "5xx" << QList<int>{503, 200, 200};
    QTest::newRow("newsapi throttled") << "newsapi" << "429" << QList<int>{200, 429, 200};
    QTest::newRow("newsapi cut") << "newsapi" << "malformed" << QList<int>{200, 200, 200};
    QTest::newRow("rss throttled") << "yahoo_rss" << "429" << QList<int>{200, 200, 429};
    QTest::newRow("rss down") << "yahoo_rss" << "5xx" << QList<int>{200, 200, 503};
    QTest::newRow("yahoo's quotes down, not its feed") << "yahoo" << "5xx" << QList<int>{200, 200, 200};
    QTest::newRow("everything down") << "all" << "5xx" << QList<int>{503, 503, 503};
    // clang-format on
}

void SimulatedNewsTest::newsFaultsTakeOnlyTheirRoute()
{
    QFETCH(QString, provider);
    QFETCH(QString, kind);
    QFETCH(QList<int>, statuses);

    QCOMPARE(get(QNetworkRequest(QUrl(QStringLiteral("%1/__sim/fault?provider=%2&kind=%3")
                                              .arg(m_market->baseUrl(), provider, kind))))
                     .status,
             200);
    const Reply site = get(siteRequest("all", {}, "en_US"));
    const Reply newsApi = get(newsApiRequest("AAPL", "KEY"));
    const Reply feed = get(publicNewsRequest("AAPL"));
    QCOMPARE((QList<int>{site.status, newsApi.status, feed.status}), statuses);
    const bool faulted[] = {provider == "querlin_news" || provider == "all",
                            provider == "newsapi" || provider == "all",
                            provider == "yahoo_rss" || provider == "all"};
    QCOMPARE(readSiteNews(site.body).isEmpty(), faulted[0]);
    QCOMPARE(readNewsApiArticles(newsApi.body).isEmpty(), faulted[1]);
    QCOMPARE(readPublicNewsFeed(feed.body).isEmpty(), faulted[2]);
    if (provider == "newsapi" && kind == "429")
        QCOMPARE(QJsonDocument::fromJson(newsApi.body)["code"].toString(), "rateLimited");
}

QTEST_GUILESS_MAIN(SimulatedNewsTest)
#include "tst_simulated_news.moc"
