#include "app/language.h"
#include "overview/news.h"

#include <QTest>
#include <QUrlQuery>

Q_DECLARE_METATYPE(NewsStep)

namespace {

// One item as "title|text|source|time|link|category", so a whole reply compares as a list.
// (The JSON fixtures write "https:\/\/": moc takes a "//" inside a raw string for a comment.)
QStringList described(const QList<NewsItem> &items)
{
    QStringList lines;
    for (const NewsItem &i : items)
        lines << QStringList{i.title, i.text, i.source, i.time, i.link, i.category}.join('|');
    return lines;
}

QByteArray rss(const QByteArray &items)
{
    // The channel's own image, link and title around the items, as the real feed sends them.
    const QByteArray home = "<link>http://finance.yahoo.com/q/h?s=TSLA</link>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><rss version=\"2.0\">"
           "<channel><image>" +
           home + "<title>Yahoo! Finance: TSLA News</title></image>" + items + home +
           "<title>Feed</title></channel></rss>";
}

QByteArray rssItem(const QByteArray &title, const QByteArray &link, const QByteArray &extra = {})
{
    return "<item><description>d</description><guid isPermaLink=\"false\">4b25</guid><link>" +
           link + "</link><pubDate>Sat, 26 Jul 2025 11:30:00 +0000</pubDate><title>" + title +
           "</title>" + extra + "</item>";
}

} // namespace

class TestNews : public QObject
{
    Q_OBJECT

private slots:
    void init() { setInterfaceLanguage(QStringLiteral("en")); }

    void siteReplyIsRead_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("top-level array, own and publisher categories")
                << QByteArray(R"([{"title":"A","category":"Cripto","source":"Reuters"},
                                  {"headline":"B","source":"Reuters"},{"headline":"C"}, 7, null])")
                << QStringList{"A||Reuters|||crypto", "B||Reuters|||us", "C|||||br"};
        QTest::newRow("Portuguese keys win over English ones")
                << QByteArray(R"({"news":[{"Titulo":"T","title":"t","Texto":"X","text":"x",
                    "Fonte":"F","source":"s","Data":"D","date":"d","Link":"https:\/\/a.b/1",
                    "url":"https:\/\/a.b/2","category":"usa","Categoria":"brasil"}]})")
                << QStringList{"T|X|F|D|https://a.b/1|us"};
        QTest::newRow("empty and numeric fields fall through to the next key")
                << QByteArray(R"({"data":[{"Titulo":"  ","title":"t","Data":"","published_at":
                    1714737600,"Link":"javascript:void 0","link":"","url":"http:\/\/x.y/z"}]})")
                << QStringList{"t|||1714737600||br"};
        QTest::newRow("item arrays, then category arrays in their order")
                << QByteArray(R"({"crypto":[{"title":"c"}],"american":[{"title":"a",
                    "category":"crypto","source":"Coindesk"}],"brazil":[{"title":"b"}],
                    "rows":[{"title":"r","source":"Coindesk"}],"items":[{"title":"i"}]})")
                << QStringList{"i|||||br", "r||Coindesk|||crypto", "b|||||br", "a||Coindesk|||us",
                               "c|||||crypto"};
        QTest::newRow("news and groups: only news and the top-level arrays")
                << QByteArray(R"({"news":[{"title":"n"}],"international":[{"title":"i"}],
                                  "groups":{"domestic":[{"title":"g"}]}})")
                << QStringList{"n|||||br", "i|||||us"};
        QTest::newRow("groups when nothing else gave an item")
                << QByteArray(R"({"news":[{"title":""}],"groups":{"domestic":[{"title":"g"}],
                    "crypto":[{"title":"k"}],"news":[{"title":"no"}]}})")
                << QStringList{"g|||||br", "k|||||crypto"};
        QTest::newRow("not JSON") << QByteArray("<html>502</html>") << QStringList{};
    }
    void siteReplyIsRead()
    {
        QFETCH(QByteArray, body);
        QTEST(described(readSiteNews(body)), "expected");
    }

    void categoriesAreNormalised_data()
    {
        QTest::addColumn<QString>("category");
        QTest::addColumn<QString>("expected");
        for (const char *br : {"domestic", "Brazil", "BRASIL"})
            QTest::newRow(br) << br << "br";
        for (const char *us : {"international", "American", "america", "USA"})
            QTest::newRow(us) << us << "us";
        QTest::newRow("Cripto") << "Cripto"
                                << "crypto";
        QTest::newRow("unknown") << "tech"
                                 << "";
    }
    void categoriesAreNormalised()
    {
        QFETCH(QString, category);
        QTEST(normalizedNewsCategory(category), "expected");
    }

    void publishersHaveCategories_data()
    {
        QTest::addColumn<QString>("publisher");
        QTest::addColumn<QString>("expected");
        for (const char *crypto :
             {"BeInCrypto", "Criptofacil", "Ethereum Foundation", "Cointelegraph", "Coindesk"})
            QTest::newRow(crypto) << crypto << "crypto";
        for (const char *us : {"Reuters", "CNBC", "Yahoo Finance", "FIN TIME", "WSJ", "THE BLOCK"})
            QTest::newRow(us) << us << "us";
        QTest::newRow("match is exact") << "reuters"
                                        << "br";
        QTest::newRow("other") << "InfoMoney"
                               << "br";
    }
    void publishersHaveCategories()
    {
        QFETCH(QString, publisher);
        QTEST(publisherNewsCategory(publisher), "expected");
    }

    void newsApiArticlesAreRead()
    {
        const QByteArray body = R"({"status":"ok","totalResults":70,"articles":[
 {"source":{"id":"cnn","name":"CNN"},"title":"Stormy Daniels’ attorney","description":null,
  "url":"https:\/\/www.cnn.com/a","publishedAt":"2024-05-14T01:38:37.653Z","content":null},
 {"source":{"id":null,"name":"Reuters"},"title":"It&#x27;s <b>up</b>","url":"https:\/\/r.com/b",
  "publishedAt":"2024-05-13T23:22:15.7738613Z"},
 {"source":{"id":"g"},"title":"No name","url":"https:\/\/g.com/c","publishedAt":"2024-05-14T03:33:48+00:00"},
 {"source":{"id":null,"name":"[Removed]"},"title":"[Removed]","url":"https:\/\/removed.com",
  "publishedAt":"1970-01-01T00:00:00Z"},
 {"source":{"name":"X"},"title":"Script","url":"javascript:void 0","publishedAt":"2024-05-14T04:03:46Z"},
 {"source":{"name":"X"},"title":"No link","url":null},
 {"source":{"name":"AP"},"title":"Plain","url":"https:\/\/ap.com\/e","publishedAt":"2024-05-14T04:03:46Z"},
 {"source":{"name":"X"},"title":"","url":"https:\/\/x.com/d"}]})";
        QCOMPARE(described(readNewsApiArticles(body)),
                 (QStringList{"Stormy Daniels’ "
                              "attorney||CNN|2024-05-14T01:38:37.653Z|https://www.cnn.com/a|",
                              "It's up||Reuters|2024-05-13T23:22:15.7738613Z|https://r.com/b|",
                              "No name|||2024-05-14T03:33:48+00:00|https://g.com/c|",
                              "Plain||AP|2024-05-14T04:03:46Z|https://ap.com/e|"}));
        QVERIFY(readNewsApiArticles(R"({"status":"error","code":"userAgentMissing"})").isEmpty());
    }

    void feedItemsAreRead_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("expected");
        const QString time = QStringLiteral("Sat, 26 Jul 2025 11:30:00 +0000");
        const auto line = [&](const QString &title, const QString &link) {
            return QStringList{title, "d", "Yahoo Finance", time, link, ""}.join('|');
        };
        const QByteArray fool = "https://www.fool.com/investing/2025/07/26/x/?.tsrc=rss";
        const QByteArray yahoo =
                "https://finance.yahoo.com/m/9a95/dow%3A-meta%2C-s%26p.html?.tsrc=rss";
        QTest::newRow("items before the channel title, in order, links as sent")
                << rss(rssItem("First", fool) + rssItem("Second", yahoo))
                << QStringList{line("First", fool), line("Second", yahoo)};
        QTest::newRow("entities, curly quotes and markup in titles")
                << rss(rssItem("Dow, S&amp;P &#8220;Climb&#8221; — it’s &lt;b&gt;big&lt;/b&gt;",
                               fool))
                << QStringList{line("Dow, S&P “Climb” — it’s big", fool)};
        QTest::newRow("unsafe and missing links are emptied")
                << rss(rssItem("Js", "javascript:alert(1)") +
                       rssItem("File", "file:///etc/passwd") + "<item><title>None</title></item>")
                << QStringList{line("Js", ""), line("File", ""), "None||Yahoo Finance|||"};
        QTest::newRow("a description cut mid-word stays as sent")
                << rss("<item><title>T</title><description>new records aft</description></item>")
                << QStringList{"T|new records aft|Yahoo Finance|||"};
        QTest::newRow("items before a broken part are kept")
                << rss(rssItem("Kept", fool) + "<item><title>Lost &nbsp; x</title></item>")
                << QStringList{line("Kept", fool)};
        QTest::newRow("bytes that are not UTF-8 become replacement characters")
                << rss(rssItem("Kept", fool) + rssItem("Caf\xe9 \xff", fool))
                << QStringList{line("Kept", fool),
                               line(QString("Caf%1 %1").arg(QString(QChar::ReplacementCharacter)),
                                    fool)};
        QTest::newRow("a Latin-1 feed is decoded as it says")
                << QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?><rss><channel>" +
                              rssItem("Caf\xe9", fool) + "</channel></rss>")
                << QStringList{line("Café", fool)};
        QTest::newRow("not XML") << QByteArray("{\"error\":\"Too Many Requests\"}")
                                 << QStringList{};
        QTest::newRow("HTML error page")
                << QByteArray("<html><body><p>Error</p></body></html>") << QStringList{};
    }
    void feedItemsAreRead()
    {
        QFETCH(QByteArray, body);
        QTEST(described(readPublicNewsFeed(body)), "expected");
    }

    void hugeRepliesAreCut()
    {
        QByteArray items, array = "[";
        for (int i = 0; i < kMaxNewsItems + 50; ++i) {
            items += rssItem("T" + QByteArray::number(i), "https://x.com/");
            array += "{\"title\":\"" + QByteArray(2500, 'w') + "\"},";
        }
        array += "{}]";
        const QList<NewsItem> feed = readPublicNewsFeed(rss(items));
        QCOMPARE(feed.size(), kMaxNewsItems);
        QCOMPARE(feed.last().title, "T" + QString::number(kMaxNewsItems - 1));
        const QList<NewsItem> site = readSiteNews(array);
        QCOMPARE(site.size(), kMaxNewsItems);
        QVERIFY(site.first().title.size() <= 2000);
    }

    void textsArePlain_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("tags joined by removing a tag") << "<a<b>>x</a>"
                                                       << "x";
        QTest::newRow("escaped markup") << "&lt;img src=x onerror=alert(1)&gt;Hi"
                                        << "Hi";
        QTest::newRow("comparisons stay") << "5 < 6 > 3"
                                          << "5 < 6 > 3";
        QTest::newRow("line breaks and controls fold") << " a\r\n\tb\x01"
                                                          "c  <!-- x\n -->d "
                                                       << "a b c d";
        QTest::newRow("unknown and invalid entities stay") << "&bogus; &#0; &#xD800;"
                                                           << "&bogus; &#0; &#xD800;";
        QTest::newRow("entities") << "It&#x27;s &quot;AT&amp;T&quot; &#8212; ok"
                                  << "It's \"AT&T\" — ok";
        QTest::newRow("cut on a blank")
                << QString(1999, QLatin1Char('a')) + "  b" << QString(1999, QLatin1Char('a'));
    }
    void textsArePlain()
    {
        QFETCH(QString, text);
        QTEST(plainNewsText(text), "expected");
    }

    void linksOtherThanHttpAreRefused_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("expected");
        QTest::newRow("https") << " https://a.com/x?y=1 "
                               << "https://a.com/x?y=1";
        QTest::newRow("upper-case scheme") << "HTTP://a.com/"
                                           << "HTTP://a.com/";
        QTest::newRow("javascript") << "javascript:alert(1)"
                                    << "";
        QTest::newRow("data") << "data:text/html,<script>"
                              << "";
        QTest::newRow("relative") << "/news/1.html"
                                  << "";
        QTest::newRow("no host") << "https:///path"
                                 << "";
        QTest::newRow("mailto") << "mailto:a@b.c"
                                << "";
    }
    void linksOtherThanHttpAreRefused()
    {
        QFETCH(QString, link);
        QTEST(safeNewsLink(link), "expected");
    }

    void sourcesAreAskedInChain_data()
    {
        using S = NewsSource;
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("hasKey");
        QTest::addColumn<QSet<NewsSource>>("yieldedNothing");
        QTest::addColumn<std::optional<NewsStep>>("expected");
        const std::optional<NewsStep> none;
        QTest::newRow("site alone")
                << "querlin" << true << QSet<S>{} << std::optional(NewsStep{S::Site, false});
        QTest::newRow("site without fallback ends") << "querlin" << true << QSet{S::Site} << none;
        QTest::newRow("newsapi with key")
                << "newsapi" << true << QSet<S>{} << std::optional(NewsStep{S::NewsApi, false});
        QTest::newRow("newsapi without fallback ends")
                << "newsapi" << true << QSet{S::NewsApi} << none;
        QTest::newRow("newsapi without key is RSS")
                << "newsapi" << false << QSet<S>{} << std::optional(NewsStep{S::PublicRss, false});
        QTest::newRow("public") << "public" << true << QSet<S>{}
                                << std::optional(NewsStep{S::PublicRss, false});
        QTest::newRow("public empty ends") << "public" << false << QSet{S::PublicRss} << none;
        QTest::newRow("auto with key: NewsAPI")
                << "auto" << true << QSet<S>{} << std::optional(NewsStep{S::NewsApi, true});
        QTest::newRow("auto: NewsAPI empty, site")
                << "auto" << true << QSet{S::NewsApi} << std::optional(NewsStep{S::Site, true});
        QTest::newRow("auto: both empty, RSS") << "auto" << true << QSet{S::NewsApi, S::Site}
                                               << std::optional(NewsStep{S::PublicRss, false});
        QTest::newRow("auto without key: site")
                << "auto" << false << QSet<S>{} << std::optional(NewsStep{S::Site, true});
        QTest::newRow("auto: bad site address, RSS")
                << "auto" << false << QSet{S::Site} << std::optional(NewsStep{S::PublicRss, false});
        QTest::newRow("auto: all empty ends")
                << "auto" << true << QSet{S::NewsApi, S::Site, S::PublicRss} << none;
    }
    void sourcesAreAskedInChain()
    {
        QFETCH(QString, source);
        QFETCH(bool, hasKey);
        QFETCH(QSet<NewsSource>, yieldedNothing);
        QTEST(newsStepToAsk(source, hasKey, yieldedNothing), "expected");
    }

    void requestsHaveTheirShape_data()
    {
        QTest::addColumn<QNetworkRequest>("request");
        QTest::addColumn<QString>("pathAndQuery");
        QTest::addColumn<QByteArray>("authorization");
        QTest::newRow("site news, Portuguese, with token")
                << siteNewsRequest(QUrl("https://n.example/feed.json?v=2"), "tok", "crypto",
                                   " a&b ", "pt_BR")
                << "/feed.json?v=2&category=crypto&q=a%26b&limit=80&lang=pt"
                << QByteArray("Bearer tok");
        QTest::newRow("site news, English, no token")
                << siteNewsRequest(QUrl("http://n.example/n"), "", "all", "", "en")
                << "/n?category=all&q=&limit=80&lang=en" << QByteArray();
        QTest::newRow("NewsAPI")
                << newsApiRequest("PETR4.SA", "k+1")
                << "/v2/"
                   "everything?q=PETR4.SA&language=en&sortBy=publishedAt&pageSize=50&apiKey=k%2B1"
                << QByteArray();
        QTest::newRow("RSS of a USDT pair")
                << publicNewsRequest("BTCUSDT")
                << "/rss/2.0/headline?s=BTC-USD&region=US&lang=en-US" << QByteArray();
        QTest::newRow("RSS of USDT itself")
                << publicNewsRequest("USDT") << "/rss/2.0/headline?s=USDT&region=US&lang=en-US"
                << QByteArray();
    }
    void requestsHaveTheirShape()
    {
        QFETCH(QNetworkRequest, request);
        QFETCH(QByteArray, authorization);
        const QUrl url = request.url();
        QTEST(url.path(QUrl::FullyEncoded) + '?' + url.query(QUrl::FullyEncoded), "pathAndQuery");
        QCOMPARE(request.rawHeader("User-Agent"), QByteArray("QUERLIN_TERMINAL/0.1 Qt"));
        QCOMPARE(request.rawHeader("Authorization"), authorization);
    }

    void siteEndpointNeedsAScheme()
    {
        QCOMPARE(siteNewsEndpoint(" https://n.example/x.json "), QUrl("https://n.example/x.json"));
        QVERIFY(siteNewsEndpoint("").toString().endsWith("/TERMINAL/NEWS.json"));
        QVERIFY(siteNewsEndpoint("n.example/x.json").isEmpty());
        QVERIFY(siteNewsEndpoint("http://[bad").isEmpty());
    }

    void selectorsKeepTheirSelection()
    {
        QCOMPARE(newsSourceIds(), (QStringList{"auto", "querlin", "public", "newsapi"}));
        QCOMPARE(newsCategoryIds(true), (QStringList{"all", "br", "us", "crypto"}));
        QCOMPARE(newsCategoryIds(false), (QStringList{"all", "us", "crypto"}));
        QCOMPARE(newsSelectionAfterRefill(newsCategoryIds(true), "crypto"), "crypto");
        QCOMPARE(newsSelectionAfterRefill(newsCategoryIds(false), "br"), "all");
        setInterfaceLanguage(QStringLiteral("pt_BR"));
        QCOMPARE(newsSourceLabel("public"), "RSS público");
        QCOMPARE(newsUpdatedMessage("NewsAPI", 3), "Notícias atualizadas: NewsAPI (3 manchetes)");
    }

    void rowsShowPlaceholders()
    {
        const NewsRowTexts row = newsRowTexts(NewsItem{"T", "x", "", "now", "", ""}, "NewsAPI");
        QCOMPARE(QStringList({row.category, row.source, row.headline, row.tooltip, row.link}),
                 (QStringList{"all", "NewsAPI", "T", "x", "--"}));
        QCOMPARE(newsSymbol("", ""), "AAPL");
        QCOMPARE(newsSymbol("", "VALE3.SA"), "VALE3.SA");
    }
};

QTEST_GUILESS_MAIN(TestNews)
#include "tst_news.moc"
