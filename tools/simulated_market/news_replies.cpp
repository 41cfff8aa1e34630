#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>

// The headlines are made up, but about the market's own instruments: a headline that says a share
// rose says so because the walk has it up over the last 24 hours.

namespace {

// --- What every feed shares -------------------------------------------------------------------

struct Subject
{
    const char *symbol; // the market's own name for it
    const char *name;   // as a headline writes it
};

constexpr Subject kBrazilianSubjects[] = {
        {"PETR4.SA", "Petrobras"},
        {"VALE3.SA", "Vale"},
        {"ITUB4.SA", "Itaú Unibanco"},
        {"BBDC4.SA", "Bradesco"},
        {"BBAS3.SA", "Banco do Brasil"},
        {"ABEV3.SA", "Ambev"},
        {"WEGE3.SA", "WEG"},
        {"MGLU3.SA", "Magazine Luiza"},
        {"B3SA3.SA", "B3"},
        {"PRIO3.SA", "PRIO"},
        {"SUZB3.SA", "Suzano"},
        {"ELET3.SA", "Eletrobras"},
};
constexpr Subject kAmericanSubjects[] = {
        {"AAPL", "Apple"},     {"MSFT", "Microsoft"}, {"NVDA", "Nvidia"},   {"AMZN", "Amazon"},
        {"GOOGL", "Alphabet"}, {"META", "Meta"},      {"TSLA", "Tesla"},    {"JPM", "JPMorgan"},
        {"NFLX", "Netflix"},   {"AMD", "AMD"},        {"^GSPC", "S&P 500"}, {"^IXIC", "Nasdaq"},
};
constexpr Subject kCryptoSubjects[] = {
        {"BTCUSDT", "Bitcoin"}, {"ETHUSDT", "Ether"}, {"SOLUSDT", "Solana"},
        {"XRPUSDT", "XRP"},     {"BNBUSDT", "BNB"},   {"DOGEUSDT", "Dogecoin"},
        {"ADAUSDT", "Cardano"}, {"PEPEUSDT", "Pepe"},
};

// A headline in both languages. %1 is the subject, %2 the move's size ("1.4"), %v a verb of the
// move's direction; a headline without %v reads the same whichever way the price went.
struct Headline
{
    const char *english;
    const char *portuguese;
};

constexpr Headline kBrazilianHeadlines[] = {
        {"%1 %v %2% as foreign money flows into B3", "%1 %v %2% com fluxo estrangeiro na B3"},
        {"%1 %v %2% after quarterly results", "%1 %v %2% após resultado do trimestre"},
        {"Ibovespa today: %1 %v %2% and moves the index",
         "Ibovespa hoje: %1 %v %2% e mexe com o índice"},
        {"%1 %v %2% on a rating revision", "%1 %v %2% com revisão de recomendação"},
        {"%1 approves dividends and interest on equity", "%1 aprova pagamento de dividendos e JCP"},
        {"%1 announces a share buyback programme", "%1 anuncia programa de recompra de ações"},
        {"Copom: what the rate decision means for %1",
         "Copom: o que a decisão de juros significa para %1"},
};
constexpr Headline kAmericanHeadlines[] = {
        {"%1 %v %2% as investors weigh the Fed's next move",
         "%1 %v %2% com investidores de olho no Fed"},
        {"%1 %v %2% after earnings beat estimates", "%1 %v %2% após balanço acima do esperado"},
        {"Wall Street: %1 %v %2% in afternoon trading",
         "Wall Street: %1 %v %2% no pregão da tarde"},
        {"%1 unveils a new AI push at its developer event",
         "%1 apresenta nova aposta em IA em evento para desenvolvedores"},
        {"Analysts raise price targets on %1 ahead of results",
         "Analistas elevam preço-alvo de %1 antes do balanço"},
        {"%1 faces antitrust scrutiny in Europe", "%1 enfrenta escrutínio antitruste na Europa"},
};
constexpr Headline kCryptoHeadlines[] = {
        {"%1 %v %2% as ETF flows pick up", "%1 %v %2% com aumento de fluxo em ETFs"},
        {"%1 %v %2% in 24 hours; traders eye key resistance",
         "%1 %v %2% em 24 horas; traders miram resistência"},
        {"Crypto market: %1 %v %2% while liquidations climb",
         "Mercado cripto: %1 %v %2% enquanto liquidações crescem"},
        {"%1 network upgrade goes live on mainnet",
         "Atualização da rede %1 entra no ar na mainnet"},
        {"Whales move large %1 holdings to exchanges",
         "Baleias movem grandes quantias de %1 para corretoras"},
};

QString directionVerb(double change, bool portuguese, quint64 key)
{
    static const char *const englishUp[] = {"rises", "climbs", "gains"};
    static const char *const englishDown[] = {"falls", "slips", "drops"};
    static const char *const portugueseUp[] = {"sobe", "avança", "ganha"};
    static const char *const portugueseDown[] = {"cai", "recua", "perde"};
    const char *const *verbs = change >= 0.0 ? (portuguese ? portugueseUp : englishUp)
                                             : (portuguese ? portugueseDown : englishDown);
    return QString::fromUtf8(verbs[key % 3]);
}

QLocale newsLocale(bool portuguese)
{
    return portuguese ? QLocale(QLocale::Portuguese, QLocale::Brazil)
                      : QLocale(QLocale::English, QLocale::UnitedStates);
}

QString headlineText(const char *pattern, const QString &name, double change, bool portuguese,
                     quint64 key)
{
    QString text = QString::fromUtf8(pattern);
    text.replace(QStringLiteral("%v"), directionVerb(change, portuguese, key));
    text.replace(QStringLiteral("%2"), newsLocale(portuguese).toString(std::abs(change), 'f', 1));
    return text.replace(QStringLiteral("%1"), name);
}

// "apple-rises-1-4-after-earnings": the words of a title, for a link.
QString slugOf(const QString &title)
{
    static const QRegularExpression separators(QStringLiteral("[^a-z0-9]+"));
    QString slug = title.normalized(QString::NormalizationForm_KD).toLower();
    slug.replace(separators, QStringLiteral("-"));
    while (slug.endsWith(QLatin1Char('-')))
        slug.chop(1);
    while (slug.startsWith(QLatin1Char('-')))
        slug.remove(0, 1);
    return slug.left(72);
}

// How long before `now` each of `count` stories came out, newest first: minutes apart, by the key.
QList<qint64> storyTimes(qint64 now, quint64 key, int count, int minGap, int maxGap)
{
    QList<qint64> times;
    qint64 time = now - now % 60;
    for (int i = 0; i < count; ++i) {
        time -= 60 * (minGap + qint64(mix64(key, quint64(i)) % quint64(maxGap - minGap + 1)));
        times.append(time);
    }
    return times;
}

// The 24-hour change of a subject, in percent.
double dayChange(const MarketContext &market, const QString &symbol)
{
    return market.walk.day(symbol, market.step).changePercent();
}

QString companyName(const Instrument &instrument)
{
    if (instrument.kind == InstrumentKind::Crypto)
        return instrument.shortName.chopped(4); // "Bitcoin USD"
    QString name = instrument.longName;
    for (const char *suffix :
         {", Inc.", " Inc.", " Corporation", " & Co.", " Platforms", ".com", " S.A.", " Holding"}) {
        if (name.endsWith(QLatin1String(suffix)))
            name.chop(qsizetype(qstrlen(suffix)));
    }
    return name.trimmed();
}

// The instrument a query names, in the market's spelling or Yahoo's.
const Instrument *namedInstrument(const InstrumentCatalogue &catalogue, const QString &text)
{
    const QString symbol = text.trimmed().toUpper();
    if (const Instrument *instrument = catalogue.find(symbol))
        return instrument;
    return catalogue.fromYahoo(symbol);
}

QString hexId(quint64 key, int digits)
{
    return QString::number(key, 16).rightJustified(16, QLatin1Char('0')).left(digits);
}

// --- The house feed ---------------------------------------------------------------------------

constexpr int kDefaultHouseLimit = 80;
constexpr int kMaxHouseLimit = 200;
constexpr int kStoriesPerCategory = 15;

struct HouseCategory
{
    const char *key; // the reply's array
    const char *id;  // the `category` asked for
    const Subject *subjects;
    qsizetype subjectCount;
    const Headline *headlines;
    qsizetype headlineCount;
    const char *publishers[3];
    int utcOffsetSeconds; // of the times written
};

const HouseCategory kHouseCategories[] = {
        {"domestic",
         "br",
         kBrazilianSubjects,
         qsizetype(std::size(kBrazilianSubjects)),
         kBrazilianHeadlines,
         qsizetype(std::size(kBrazilianHeadlines)),
         {"Valor", "InfoMoney", "Money Times"},
         -3 * 3600},
        {"international",
         "us",
         kAmericanSubjects,
         qsizetype(std::size(kAmericanSubjects)),
         kAmericanHeadlines,
         qsizetype(std::size(kAmericanHeadlines)),
         {"Reuters", "CNBC", "WSJ"},
         0},
        {"crypto",
         "crypto",
         kCryptoSubjects,
         qsizetype(std::size(kCryptoSubjects)),
         kCryptoHeadlines,
         qsizetype(std::size(kCryptoHeadlines)),
         {"Coindesk", "Cointelegraph", "THE BLOCK"},
         0},
};

struct HouseStory
{
    int category = 0; // index into kHouseCategories
    qint64 time = 0;
    QString title;
    QString text;
    QByteArray json;
};

QString priceText(double price, const QString &currency, bool portuguese)
{
    const QString symbol =
            currency == QLatin1String("BRL") ? QStringLiteral("R$ ") : QStringLiteral("US$ ");
    const int decimals = price < 1.0 ? 6 : 2;
    return symbol + newsLocale(portuguese).toString(price, 'f', decimals);
}

QList<HouseStory> houseStories(const MarketContext &market, int categoryIndex, bool portuguese)
{
    const HouseCategory &category = kHouseCategories[categoryIndex];
    const quint64 key = mix64(market.walk.seed(), textHash(QLatin1String(category.key)));
    const QList<qint64> times = storyTimes(market.now(), key, kStoriesPerCategory, 6, 70);
    QList<HouseStory> stories;
    for (int i = 0; i < kStoriesPerCategory; ++i) {
        const quint64 storyKey = mix64(key, quint64(100 + i));
        const Subject &subject = category.subjects[(i + key % 5) % category.subjectCount];
        const Headline &headline = category.headlines[(3 * i + key % 7) % category.headlineCount];
        const QString symbol = QLatin1String(subject.symbol);
        const QString name = QString::fromUtf8(subject.name);
        const double change = dayChange(market, symbol);
        const QString title = headlineText(portuguese ? headline.portuguese : headline.english,
                                           name, change, portuguese, storyKey);
        const QString englishTitle = headlineText(headline.english, name, change, false, storyKey);
        const Instrument *instrument = market.catalogue.find(symbol);
        const QString move = newsLocale(portuguese).toString(change, 'f', 2);
        const QString signedMove = (change >= 0.0 ? QStringLiteral("+") : QString()) + move;
        const QString price =
                priceText(market.walk.price(symbol, market.step),
                          instrument ? instrument->currency : QStringLiteral("USD"), portuguese);
        const QString text =
                portuguese ? QStringLiteral("%1 é negociado a %2, com variação de %3% em 24 "
                                            "horas.")
                                     .arg(name, price, signedMove)
                           : QStringLiteral("%1 trades at %2, %3% over 24 hours.")
                                     .arg(name, price, signedMove);
        const QString publisher = QLatin1String(category.publishers[storyKey % 3]);
        const QString host = publisher.toLower().remove(QLatin1Char(' '));
        // One site in three still links over plain http.
        const QString scheme = storyKey % 3 == 1 ? QStringLiteral("http") : QStringLiteral("https");
        // Brazilian sites write their own clock's offset, the others UTC with a "Z".
        const QDateTime time =
                category.utcOffsetSeconds == 0
                        ? QDateTime::fromSecsSinceEpoch(times.at(i), Qt::UTC)
                        : QDateTime::fromSecsSinceEpoch(times.at(i), Qt::OffsetFromUTC,
                                                        category.utcOffsetSeconds);
        const QString link = QStringLiteral("%1://%2.example.com/%3/%4/%5-%6")
                                     .arg(scheme, host, QLatin1String(category.key),
                                          time.toString(QStringLiteral("yyyy/MM/dd")),
                                          slugOf(englishTitle), hexId(storyKey, 8));
        const QByteArray json = OrderedJson()
                                        .text("Titulo", title)
                                        .text("Texto", text)
                                        .text("Fonte", publisher)
                                        .text("Data", time.toString(Qt::ISODate))
                                        .text("Link", link)
                                        .toJson();
        stories.append({categoryIndex, times.at(i), title, text, json});
    }
    return stories;
}

// --- NewsAPI ------------------------------------------------------------------------------------

constexpr int kMaxNewsApiResults = 100;

struct ArticleSource
{
    const char *id; // nullptr: null
    const char *name;
};

constexpr ArticleSource kArticleSources[] = {
        {"reuters", "Reuters"},
        {nullptr, "Yahoo Entertainment"},
        {"business-insider", "Business Insider"},
        {nullptr, "Biztoc.com"},
        {"cnbc", "CNBC"},
        {nullptr, "Forbes"},
        {nullptr, "The Motley Fool"},
        {"bloomberg", "Bloomberg"},
};

constexpr const char *kArticleAuthors[] = {"Sarah Min",      nullptr, "Reuters",      "Jesse Pound",
                                           "Bloomberg News", nullptr, "Emily Graffeo"};

// %1 the company, %3 the ticker, %v the verb, %2 the size of the move; NewsAPI's titles keep HTML
// entities and curly quotes as the publishers wrote them.
constexpr const char *kArticleTitles[] = {
        "%1 stock %v %2% as Wall Street weighs the rate outlook",
        "%1 (%3) %v %2%: Here&#x27;s what&#x27;s driving the move",
        "Is %1 a buy right now? Here’s what analysts say",
        "%1 earnings preview: what to expect from the “big” quarter",
        "%1 CEO says demand remains strong at investor conference",
        "Stocks making the biggest moves midday: %1 and more",
        "%1 %v %2% after analyst upgrade - Reuters",
};

// %1 the company, %2 the ticker, %3 the 24-hour change.
constexpr const char *kArticleDescriptions[] = {
        "Shares of %1 (%2) moved %3% over the last 24 hours as traders reassessed the outlook for "
        "the rest of the year.",
        "%1 (%2) is in focus after a %3% move; options traders are positioning for a bigger swing.",
        "%1 (%2) said demand held up after a %3% day, and analysts were quick to revise their "
        "models.",
        "Investors weighed the latest update from %1 (%2) against a %3% change in the stock.",
};

QByteArray errorJson(const char *code, const QString &message)
{
    return OrderedJson()
            .text("status", QStringLiteral("error"))
            .text("code", QLatin1String(code))
            .text("message", message)
            .toJson();
}

// NewsAPI's four forms of one moment: Z, +00:00, milliseconds, and seven fractional digits.
QString articleTime(qint64 epochSeconds, int form, quint64 key)
{
    const QString base = QDateTime::fromSecsSinceEpoch(epochSeconds, Qt::UTC)
                                 .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
    switch (form % 4) {
    case 1:
        return base + QStringLiteral("+00:00");
    case 2:
        return base + QLatin1Char('.') +
               QString::number(key % 1000).rightJustified(3, QLatin1Char('0')) + QLatin1Char('Z');
    case 3:
        return base + QLatin1Char('.') +
               QString::number(key % 10000000).rightJustified(7, QLatin1Char('0')) +
               QLatin1Char('Z');
    default:
        return base + QLatin1Char('Z');
    }
}

QByteArray removedArticle()
{
    return OrderedJson()
            .raw("source",
                 OrderedJson().null("id").text("name", QStringLiteral("[Removed]")).toJson())
            .null("author")
            .text("title", QStringLiteral("[Removed]"))
            .text("description", QStringLiteral("[Removed]"))
            .text("url", QStringLiteral("https://removed.com"))
            .null("urlToImage")
            .text("publishedAt", QStringLiteral("1970-01-01T00:00:00Z"))
            .text("content", QStringLiteral("[Removed]"))
            .toJson();
}

QList<QByteArray> newsApiArticles(const MarketContext &market, const Instrument &instrument,
                                  const QString &ticker)
{
    const quint64 key = mix64(market.walk.seed(), textHash(instrument.symbol));
    const int count = 18 + int(key % 10);
    const QString name = companyName(instrument);
    const double change = dayChange(market, instrument.symbol);
    const QList<qint64> times = storyTimes(market.now(), key, count, 9, 190);
    QList<QByteArray> articles;
    for (int i = 0; i < count; ++i) {
        if (i == 2) { // the placeholder of an article taken down, among the others
            articles.append(removedArticle());
            continue;
        }
        const quint64 articleKey = mix64(key, quint64(i) + 1);
        QString title = headlineText(kArticleTitles[(i + key) % std::size(kArticleTitles)], name,
                                     change, false, articleKey);
        title.replace(QStringLiteral("%3"), ticker);
        const ArticleSource &source = kArticleSources[(3 * i + key) % std::size(kArticleSources)];
        const char *author = kArticleAuthors[(5 * i + key) % std::size(kArticleAuthors)];
        const QString host = QString::fromLatin1(source.name)
                                     .toLower()
                                     .remove(QRegularExpression(QStringLiteral("[^a-z0-9]")));
        OrderedJson sourceJson;
        if (source.id)
            sourceJson.text("id", QLatin1String(source.id));
        else
            sourceJson.null("id");
        sourceJson.text("name", QLatin1String(source.name));

        OrderedJson article;
        article.raw("source", sourceJson.toJson());
        if (author)
            article.text("author", QString::fromUtf8(author));
        else
            article.null("author");
        article.text("title", title);
        const QString description =
                QString::fromLatin1(
                        kArticleDescriptions[(i + key / 7) % std::size(kArticleDescriptions)])
                        .arg(name, ticker, QString::number(change, 'f', 2));
        if ((articleKey >> 16) % 5 == 0)
            article.null("description");
        else
            article.text("description", description);
        article.text("url", QStringLiteral("https://www.%1.example.com/markets/%2-%3")
                                    .arg(host, slugOf(title), hexId(articleKey, 8)));
        if ((articleKey >> 20) % 4 == 0)
            article.null("urlToImage");
        else
            article.text(
                    "urlToImage",
                    QStringLiteral("https://images.example.com/%1.jpg").arg(hexId(articleKey, 16)));
        article.text("publishedAt", articleTime(times.at(i), i, articleKey >> 24));
        if ((articleKey >> 16) % 5 == 0) {
            article.null("content");
        } else {
            article.text("content", description.left(120) + QStringLiteral("\r\n") +
                                            QStringLiteral("Analysts said… [+%1 chars]")
                                                    .arg(900 + (articleKey >> 28) % 5000));
        }
        articles.append(article.toJson());
    }
    return articles;
}

// --- Yahoo's headline feed
// ------------------------------------------------------------------------

constexpr int kFeedItems = 10;

struct FeedStory
{
    const char *title; // %1 the company, %3 the ticker, %v and %2 the move
    const char *description;
};

constexpr FeedStory kFeedStories[] = {
        {"Prediction: %1 Will Be Worth More Than Its Rivals 1 Year From Now",
         "%1 might have a brighter future than the market gives it credit for."},
        {"Stock Market Today: Dow, S&P Mixed; %1 %v %2% (Live Coverage)",
         "US equity indexes were mixed, with the S&P 500 and the Nasdaq Composite near records "
         "aft"},
        {"%1 (%3) Stock %v %2% as Traders Weigh the Outlook",
         "%1 %v %2% over the last day. Here’s what is behind the move."},
        {"Why %1’s Latest Move Matters for Investors",
         "The stock’s swing says as much about the market as about %1 itself."},
        {"%1 Earnings: What to Watch This Week",
         "Analysts expect revenue growth to slow, while margins stay in focus for %1."},
        {"Is %1 Stock a Buy Now?",
         "Investors weigh valuation against growth after a volatile stretch for %1."},
        {"What Does It Cost To Own %1 Stock Compared To the S&P 500?",
         "A look at how %1 has fared against the index over the past year."},
};

QString escapedXml(QString text)
{
    return text.replace(QLatin1Char('&'), QLatin1String("&amp;"))
            .replace(QLatin1Char('<'), QLatin1String("&lt;"))
            .replace(QLatin1Char('>'), QLatin1String("&gt;"));
}

QString rfc822(qint64 epochSeconds)
{
    return QLocale::c().toString(QDateTime::fromSecsSinceEpoch(epochSeconds, Qt::UTC),
                                 QStringLiteral("ddd, dd MMM yyyy HH:mm:ss")) +
           QStringLiteral(" +0000");
}

// A name-based UUID's form: 8-4-4-4-12 hex digits, version 3.
QString feedGuid(quint64 key)
{
    const QString a = hexId(mix64(key, 1), 16);
    const QString b = hexId(mix64(key, 2), 16);
    return a.left(8) + QLatin1Char('-') + a.mid(8, 4) + QStringLiteral("-3") + a.mid(13, 3) +
           QLatin1Char('-') + b.left(4) + QLatin1Char('-') + b.mid(4, 12);
}

QString feedItems(const MarketContext &market, const QList<const Instrument *> &instruments,
                  const QStringList &tickers)
{
    QString items;
    const quint64 key = mix64(market.walk.seed(), textHash(tickers.join(QLatin1Char(','))));
    const QList<qint64> times = storyTimes(market.now(), key, kFeedItems, 12, 240);
    for (int i = 0; i < kFeedItems; ++i) {
        const qsizetype which = i % instruments.size();
        const Instrument &instrument = *instruments.at(which);
        const quint64 itemKey = mix64(key, quint64(i) + 1);
        const FeedStory &story = kFeedStories[(i + key % 3) % std::size(kFeedStories)];
        const QString name = companyName(instrument);
        const double change = dayChange(market, instrument.symbol);
        const QString title = headlineText(story.title, name, change, false, itemKey)
                                      .replace(QStringLiteral("%3"), tickers.at(which));
        const QString description = headlineText(story.description, name, change, false, itemKey);
        const QString guid = feedGuid(itemKey);
        const QString day = QDateTime::fromSecsSinceEpoch(times.at(i), Qt::UTC)
                                    .toString(QStringLiteral("yyyy/MM/dd"));
        QString link;
        if (i % 4 == 1) {
            link = QStringLiteral("https://www.fool.example.com/investing/%1/%2/")
                           .arg(day, slugOf(title));
        } else if (i % 4 == 3) {
            // Yahoo's own articles keep the title's punctuation percent-encoded in the link.
            link = QStringLiteral("https://finance.example.com/m/") + guid + QLatin1Char('/') +
                   slugOf(name) + QStringLiteral("%3A-") +
                   slugOf(title).section(QLatin1Char('-'), 0, 2) + QStringLiteral("%2C.html");
        } else {
            link = QStringLiteral("https://finance.example.com/news/%1-%2.html")
                           .arg(slugOf(title), QString::number(100000000 + itemKey % 900000000));
        }
        link += QStringLiteral("?.tsrc=rss");
        items += QStringLiteral("        <item>\n"
                                "            <description>%1</description>\n"
                                "            <guid isPermaLink=\"false\">%2</guid>\n"
                                "            <link>%3</link>\n"
                                "            <pubDate>%4</pubDate>\n"
                                "            <title>%5</title>\n"
                                "        </item>\n")
                         .arg(escapedXml(description), guid, escapedXml(link), rfc822(times.at(i)),
                              escapedXml(title));
    }
    return items;
}

} // namespace

// GET /TERMINAL/NEWS.json?category=all&q=..&limit=80&lang=pt: the latest `limit` stories, newest
// first, in the category arrays asked for ("br" -> domestic, "us" -> international, "crypto";
// "all" or anything else -> the three), those whose title or text holds `q` when it is given.
HttpResponse houseNewsReply(const MarketContext &market, const HttpRequest &request)
{
    const QByteArray authorization = request.header("Authorization").trimmed();
    if (!authorization.isEmpty() &&
        (!authorization.startsWith("Bearer ") || authorization.mid(7).trimmed().isEmpty()))
        return HttpResponse::json(R"({"error":"Invalid or expired token."})", 401);
    const QString category = request.queryItem(QStringLiteral("category")).trimmed().toLower();
    const QString query = request.queryItem(QStringLiteral("q")).trimmed();
    const bool portuguese =
            request.queryItem(QStringLiteral("lang")).trimmed().startsWith(QLatin1String("pt"));
    bool counted = false;
    int limit = request.queryItem(QStringLiteral("limit")).toInt(&counted);
    limit = counted && limit > 0 ? std::min(limit, kMaxHouseLimit) : kDefaultHouseLimit;

    const bool oneCategory = std::any_of(std::begin(kHouseCategories), std::end(kHouseCategories),
                                         [&category](const HouseCategory &entry) {
                                             return category == QLatin1String(entry.id);
                                         });
    QList<HouseStory> stories;
    for (int i = 0; i < int(std::size(kHouseCategories)); ++i) {
        if (oneCategory && category != QLatin1String(kHouseCategories[i].id))
            continue;
        for (const HouseStory &story : houseStories(market, i, portuguese)) {
            if (query.isEmpty() || story.title.contains(query, Qt::CaseInsensitive) ||
                story.text.contains(query, Qt::CaseInsensitive))
                stories.append(story);
        }
    }
    std::stable_sort(stories.begin(), stories.end(),
                     [](const HouseStory &a, const HouseStory &b) { return a.time > b.time; });
    if (stories.size() > limit)
        stories.resize(limit);

    OrderedJson reply;
    for (int i = 0; i < int(std::size(kHouseCategories)); ++i) {
        if (oneCategory && category != QLatin1String(kHouseCategories[i].id))
            continue;
        QList<QByteArray> items;
        for (const HouseStory &story : std::as_const(stories)) {
            if (story.category == i)
                items.append(story.json);
        }
        reply.raw(kHouseCategories[i].key, json::array(items));
    }
    return HttpResponse::json(reply.toJson());
}

// GET /v2/everything?q=AAPL&language=en&sortBy=publishedAt&pageSize=50&apiKey=..: NewsAPI's
// refusals first (no User-Agent, no key, no query, past the developer plan's 100 results), then
// the articles about the instrument `q` names, newest first, a removed one among them.
HttpResponse newsApiEverythingReply(const MarketContext &market, const HttpRequest &request)
{
    if (request.header("User-Agent").trimmed().isEmpty()) {
        return HttpResponse::json(
                errorJson("userAgentMissing",
                          QStringLiteral("Please set your User-Agent header to identify your "
                                         "application. Anonymous requests are not allowed.")),
                400);
    }
    const QString keyHeader = QString::fromUtf8(request.header("X-Api-Key"));
    if (!request.hasQueryItem(QStringLiteral("apiKey")) && keyHeader.isEmpty()) {
        return HttpResponse::json(
                errorJson("apiKeyMissing",
                          QStringLiteral("Your API key is missing. Append this to the URL with the "
                                         "apiKey param, or use the x-api-key HTTP header.")),
                401);
    }
    const QString key = request.hasQueryItem(QStringLiteral("apiKey"))
                                ? request.queryItem(QStringLiteral("apiKey"))
                                : keyHeader;
    if (key.trimmed().isEmpty()) {
        return HttpResponse::json(
                errorJson("apiKeyInvalid",
                          QStringLiteral("Your API key is invalid or incorrect. Check your key, or "
                                         "go to https://newsapi.org to create a free API key.")),
                401);
    }
    const QString query = request.queryItem(QStringLiteral("q")).trimmed();
    if (query.isEmpty()) {
        return HttpResponse::json(
                errorJson("parametersMissing",
                          QStringLiteral("Required parameters are missing. Please set any of the "
                                         "following parameters and try again: q, qInTitle, "
                                         "sources, domains.")),
                400);
    }
    bool counted = false;
    int pageSize = request.queryItem(QStringLiteral("pageSize")).toInt(&counted);
    pageSize =
            counted && pageSize > 0 ? std::min(pageSize, kMaxNewsApiResults) : kMaxNewsApiResults;
    int page = request.queryItem(QStringLiteral("page")).toInt(&counted);
    page = counted && page > 0 ? page : 1;
    if (qint64(page) * pageSize > kMaxNewsApiResults) {
        return HttpResponse::json(
                errorJson("maximumResultsReached",
                          QStringLiteral("You have requested too many results. Developer accounts "
                                         "are limited to a max of 100 results. You are trying to "
                                         "request results %1 to %2. Please upgrade to a paid plan "
                                         "if you need more results.")
                                  .arg(qint64(page - 1) * pageSize)
                                  .arg(qint64(page) * pageSize)),
                426);
    }
    QList<QByteArray> articles;
    if (const Instrument *instrument = namedInstrument(market.catalogue, query))
        // Coins go by their own ticker in the press, not by the pair.
        articles = newsApiArticles(market, *instrument,
                                   instrument->kind == InstrumentKind::Crypto
                                           ? instrument->symbol.chopped(4)
                                           : query.toUpper());
    const qsizetype total = articles.size();
    articles = articles.mid(qsizetype(page - 1) * pageSize, pageSize);
    return HttpResponse::json(OrderedJson()
                                      .text("status", QStringLiteral("ok"))
                                      .integer("totalResults", total)
                                      .raw("articles", json::array(articles))
                                      .toJson());
}

// GET /rss/2.0/headline?s=TSLA&region=US&lang=en-US: RSS 2.0 with the channel's own elements in
// alphabetical order, items among them; a channel without items when no symbol is known. Like the
// real feed, it answers a request without a User-Agent with 429.
HttpResponse yahooHeadlineFeedReply(const MarketContext &market, const HttpRequest &request)
{
    if (request.header("User-Agent").trimmed().isEmpty())
        return HttpResponse::text("Edge: Too Many Requests", 429);
    QStringList tickers;
    QList<const Instrument *> instruments;
    const QString asked = request.queryItem(QStringLiteral("s")).trimmed().toUpper();
    for (const QString &part : asked.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (const Instrument *instrument = market.catalogue.fromYahoo(part.trimmed())) {
            tickers.append(part.trimmed());
            instruments.append(instrument);
        }
    }
    const QString name = escapedXml(asked);
    const QString items =
            instruments.isEmpty() ? QString() : feedItems(market, instruments, tickers);
    const QString page = QStringLiteral("http://finance.yahoo.com/q/h?s=%1").arg(name);
    const QString body =
            QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
                           "<rss version=\"2.0\">\n"
                           "    <channel>\n"
                           "        <copyright>Copyright (c) %1 Yahoo Inc. All rights "
                           "reserved.</copyright>\n"
                           "        <description>Latest Financial News for %2</description>\n"
                           "        <image>\n"
                           "            <height>45</height>\n"
                           "            <link>%3</link>\n"
                           "            <title>Yahoo! Finance: %2 News</title>\n"
                           "            <url>https://s.yimg.com/rz/stage/p/"
                           "yahoo_finance_en-US_h_p_finance_2.png</url>\n"
                           "            <width>144</width>\n"
                           "        </image>\n"
                           "%4"
                           "        <language>en-US</language>\n"
                           "        <lastBuildDate>%5</lastBuildDate>\n"
                           "        <link>%3</link>\n"
                           "        <title>Yahoo! Finance: %2 News</title>\n"
                           "    </channel>\n"
                           "</rss>\n")
                    .arg(QDateTime::fromSecsSinceEpoch(market.now(), Qt::UTC).date().year())
                    .arg(name, escapedXml(page), items, rfc822(market.now()));
    HttpResponse response;
    response.contentType = "application/rss+xml;charset=utf-8";
    response.body = body.toUtf8();
    return response;
}
