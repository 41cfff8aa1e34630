#include "overview/news.h"

#include "app/endpoints.h"
#include "app/language.h"
#include "market/symbols.h"
#include "providers/provider_requests.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QXmlStreamReader>

namespace {

// Longer texts are cut: a reply is not allowed to make one cell or tooltip unbounded.
constexpr qsizetype kMaxNewsTextLength = 2000;
constexpr qsizetype kMaxNewsLinkLength = 4096;

QString decodedEntity(const QString &entity)
{
    static const QHash<QString, QString> named = {
            {"amp", "&"},
            {"lt", "<"},
            {"gt", ">"},
            {"quot", "\""},
            {"apos", "'"},
            {"nbsp", " "},
            {"ndash", QString(QChar(0x2013))},
            {"mdash", QString(QChar(0x2014))},
            {"hellip", QString(QChar(0x2026))},
            {"lsquo", QString(QChar(0x2018))},
            {"rsquo", QString(QChar(0x2019))},
            {"ldquo", QString(QChar(0x201c))},
            {"rdquo", QString(QChar(0x201d))},
    };
    if (!entity.startsWith(QLatin1Char('#')))
        return named.value(entity.toLower());
    bool ok = false;
    const bool hex =
            entity.size() > 1 && (entity[1] == QLatin1Char('x') || entity[1] == QLatin1Char('X'));
    const uint code = hex ? entity.mid(2).toUInt(&ok, 16) : entity.mid(1).toUInt(&ok, 10);
    if (!ok || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return {};
    const char32_t character = code;
    return QString::fromUcs4(&character, 1);
}

QString decodedEntities(const QString &text)
{
    if (!text.contains(QLatin1Char('&')))
        return text;
    static const QRegularExpression entity(
            QStringLiteral("&(#[0-9]{1,7}|#[xX][0-9a-fA-F]{1,6}|[A-Za-z]{2,8});"));
    QString result;
    qsizetype last = 0;
    for (auto it = entity.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        const QString decoded = decodedEntity(match.captured(1));
        if (decoded.isEmpty())
            continue;
        result += QStringView(text).mid(last, match.capturedStart() - last);
        result += decoded;
        last = match.capturedEnd();
    }
    result += QStringView(text).mid(last);
    return result;
}

// Control characters and line breaks become single spaces; lone surrogates (from broken escapes)
// are dropped.
QString foldedWhitespace(const QString &text)
{
    QString result;
    result.reserve(text.size());
    bool pendingSpace = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            if (pendingSpace && !result.isEmpty())
                result += QLatin1Char(' ');
            pendingSpace = false;
            result += c;
            result += text[++i];
            continue;
        }
        if (c.isSurrogate())
            continue;
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            pendingSpace = true;
            continue;
        }
        if (pendingSpace && !result.isEmpty())
            result += QLatin1Char(' ');
        pendingSpace = false;
        result += c;
    }
    return result;
}

QString capped(QString text, qsizetype length)
{
    if (text.size() <= length)
        return text;
    text.truncate(length);
    if (text.back().isHighSurrogate())
        text.chop(1);
    return text;
}

QString jsonText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 15);
    return {};
}

// The first of `keys` whose value is non-empty once made plain.
QString firstText(const QJsonObject &object, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        const QString text = plainNewsText(jsonText(object.value(QLatin1String(key))));
        if (!text.isEmpty())
            return text;
    }
    return {};
}

bool isFull(const QList<NewsItem> &items)
{
    return items.size() >= kMaxNewsItems;
}

// `arrayCategory` is the category of a category array, empty for a plain item array.
void readSiteItems(const QJsonValue &array, const QString &arrayCategory, QList<NewsItem> &items)
{
    const QJsonArray entries = array.toArray();
    for (const QJsonValue &entry : entries) {
        if (isFull(items))
            return;
        const QJsonObject object = entry.toObject();
        NewsItem item;
        item.title = firstText(object, {"Titulo", "title", "headline"});
        if (item.title.isEmpty())
            continue;
        item.text = firstText(object, {"Texto", "text", "description"});
        item.source = firstText(object, {"Fonte", "source"});
        item.time = firstText(object, {"Data", "date", "published_at", "publishedAt"});
        item.link = safeNewsLink(firstText(object, {"Link", "link", "url"}));
        item.category = arrayCategory;
        if (item.category.isEmpty())
            item.category = normalizedNewsCategory(firstText(object, {"category", "Categoria"}));
        if (item.category.isEmpty())
            item.category = publisherNewsCategory(item.source);
        items.append(item);
    }
}

void readCategoryArrays(const QJsonObject &object, QList<NewsItem> &items)
{
    static const std::pair<const char *, const char *> arrays[] = {
            {"domestic", "br"}, {"brazil", "br"},     {"international", "us"},
            {"american", "us"}, {"crypto", "crypto"},
    };
    for (const auto &[key, category] : arrays)
        readSiteItems(object.value(QLatin1String(key)), QLatin1String(category), items);
}

bool isRemovedArticle(const NewsItem &item)
{
    const QString removed = QStringLiteral("[Removed]");
    return item.title == removed || item.source == removed ||
           QUrl(item.link).host().compare(QLatin1String("removed.com"), Qt::CaseInsensitive) == 0;
}

NewsItem readFeedItem(QXmlStreamReader &xml)
{
    NewsItem item;
    item.source = QStringLiteral("Yahoo Finance");
    while (xml.readNextStartElement()) {
        const QStringView name = xml.name();
        if (name == u"title" || name == u"link" || name == u"pubDate" || name == u"description") {
            const QString text =
                    plainNewsText(xml.readElementText(QXmlStreamReader::IncludeChildElements));
            if (name == u"title")
                item.title = text;
            else if (name == u"link")
                item.link = safeNewsLink(text);
            else if (name == u"pubDate")
                item.time = text;
            else
                item.text = text;
        } else {
            xml.skipCurrentElement();
        }
    }
    return item;
}

// A feed that names an encoding other than UTF-8 (or starts with a UTF-16 mark) is left to the XML
// reader to decode.
bool declaresOtherEncoding(const QByteArray &body)
{
    if (body.startsWith("\xFE\xFF") || body.startsWith("\xFF\xFE"))
        return true;
    static const QRegularExpression declaration(
            QStringLiteral("^\\s*<\\?xml[^>]*encoding\\s*=\\s*[\"']([^\"']*)[\"']"));
    const QRegularExpressionMatch match = declaration.match(QString::fromLatin1(body.left(256)));
    return match.hasMatch() &&
           match.captured(1).compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) != 0;
}

} // namespace

QStringList newsSourceIds()
{
    return {QStringLiteral("auto"), QStringLiteral("querlin"), QStringLiteral("public"),
            QStringLiteral("newsapi")};
}

QString newsSourceLabel(const QString &sourceId)
{
    if (sourceId == QLatin1String("auto"))
        return translated(QStringLiteral("Auto"), QStringLiteral("Auto"));
    if (sourceId == QLatin1String("querlin"))
        return translated(QStringLiteral("Querlin JSON"), QStringLiteral("Querlin JSON"));
    if (sourceId == QLatin1String("public"))
        return translated(QStringLiteral("Public RSS"), QStringLiteral("RSS público"));
    if (sourceId == QLatin1String("newsapi"))
        return translated(QStringLiteral("NewsAPI"), QStringLiteral("NewsAPI"));
    return sourceId;
}

QStringList newsCategoryIds(bool portuguese)
{
    // Brazilian headlines are offered as a category only to a Portuguese interface.
    if (portuguese)
        return {QStringLiteral("all"), QStringLiteral("br"), QStringLiteral("us"),
                QStringLiteral("crypto")};
    return {QStringLiteral("all"), QStringLiteral("us"), QStringLiteral("crypto")};
}

QString newsCategoryLabel(const QString &categoryId)
{
    if (categoryId == QLatin1String("all"))
        return translated(QStringLiteral("All"), QStringLiteral("Todas"));
    if (categoryId == QLatin1String("br"))
        return translated(QStringLiteral("Brazil"), QStringLiteral("Brasil"));
    if (categoryId == QLatin1String("us"))
        return translated(QStringLiteral("US"), QStringLiteral("EUA"));
    if (categoryId == QLatin1String("crypto"))
        return translated(QStringLiteral("Crypto"), QStringLiteral("Cripto"));
    return categoryId;
}

QString newsSelectionAfterRefill(const QStringList &ids, const QString &previous)
{
    if (ids.contains(previous))
        return previous;
    return ids.value(0);
}

QString normalizedNewsCategory(const QString &category)
{
    const QString lower = category.trimmed().toLower();
    static const QHash<QString, QString> categories = {
            {"domestic", "br"},   {"brazil", "br"},        {"brasil", "br"},
            {"br", "br"},         {"international", "us"}, {"american", "us"},
            {"america", "us"},    {"usa", "us"},           {"us", "us"},
            {"crypto", "crypto"}, {"cripto", "crypto"},
    };
    return categories.value(lower);
}

QString publisherNewsCategory(const QString &publisher)
{
    static const QStringList crypto = {"BeInCrypto", "Criptofacil", "Ethereum Foundation",
                                       "Cointelegraph", "Coindesk"};
    static const QStringList american = {"Reuters",  "CNBC", "Yahoo Finance",
                                         "FIN TIME", "WSJ",  "THE BLOCK"};
    if (crypto.contains(publisher))
        return QStringLiteral("crypto");
    if (american.contains(publisher))
        return QStringLiteral("us");
    return QStringLiteral("br");
}

QString newsSymbol(const QString &fieldSymbol, const QString &selectedSymbol)
{
    if (!fieldSymbol.isEmpty())
        return fieldSymbol;
    if (!selectedSymbol.isEmpty())
        return selectedSymbol;
    return QStringLiteral("AAPL");
}

QUrl siteNewsEndpoint(const QString &configuredEndpoint)
{
    const QString configured = configuredEndpoint.trimmed();
    const QUrl url(configured.isEmpty() ? houseNewsFeed() : configured, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return {};
    return url;
}

QNetworkRequest siteNewsRequest(const QUrl &endpoint, const QString &token,
                                const QString &categoryId, const QString &query,
                                const QString &language)
{
    return terminalNewsRequest(endpoint, token, categoryId, query.trimmed(), language);
}

QNetworkRequest newsApiRequest(const QString &newsSymbol, const QString &apiKey)
{
    return newsApiArticlesRequest(newsSymbol, apiKey);
}

QNetworkRequest publicNewsRequest(const QString &newsSymbol)
{
    return yahooHeadlineFeedRequest({yahooCryptoSymbol(newsSymbol)});
}

QList<NewsItem> readSiteNews(const QByteArray &body)
{
    QList<NewsItem> items;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isArray()) {
        readSiteItems(document.array(), {}, items);
        return items;
    }
    const QJsonObject object = document.object();
    for (const char *key : {"news", "data", "items", "rows"})
        readSiteItems(object.value(QLatin1String(key)), {}, items);
    readCategoryArrays(object, items);
    if (items.isEmpty())
        readCategoryArrays(object.value(QLatin1String("groups")).toObject(), items);
    return items;
}

QList<NewsItem> readNewsApiArticles(const QByteArray &body)
{
    QList<NewsItem> items;
    const QJsonArray articles =
            QJsonDocument::fromJson(body).object().value(QLatin1String("articles")).toArray();
    for (const QJsonValue &entry : articles) {
        if (isFull(items))
            break;
        const QJsonObject article = entry.toObject();
        NewsItem item;
        item.title = firstText(article, {"title"});
        item.link = safeNewsLink(firstText(article, {"url"}));
        item.time = firstText(article, {"publishedAt"});
        item.source = firstText(article.value(QLatin1String("source")).toObject(), {"name"});
        if (item.title.isEmpty() || item.link.isEmpty() || isRemovedArticle(item))
            continue;
        items.append(item);
    }
    return items;
}

QList<NewsItem> readPublicNewsFeed(const QByteArray &body)
{
    QList<NewsItem> items;
    // The XML reader gives up on the whole document at the first byte that is not UTF-8; such
    // bytes are shown as replacement characters instead, so one bad headline does not hide the
    // others.
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString decoded = utf8(body);
    QXmlStreamReader xml;
    if (utf8.hasError() && !declaresOtherEncoding(body))
        xml.addData(decoded);
    else
        xml.addData(body);
    // Items may come anywhere inside the channel, before or after its own title and link.
    while (!xml.atEnd() && !isFull(items)) {
        if (xml.readNext() != QXmlStreamReader::StartElement || xml.name() != u"item")
            continue;
        NewsItem item = readFeedItem(xml);
        if (xml.hasError())
            break;
        if (!item.title.isEmpty())
            items.append(item);
    }
    return items;
}

QString plainNewsText(const QString &text)
{
    if (text.isEmpty())
        return {};
    static const QRegularExpression tag(QStringLiteral("<[/!?]?[A-Za-z][^<>]*>|<!--.*?-->"),
                                        QRegularExpression::DotMatchesEverythingOption);
    // Entities first, so that an escaped tag cannot reach the table as markup either.
    QString plain = decodedEntities(capped(text, 4 * kMaxNewsTextLength));
    // Removing one tag can join the text around it into another ("<a<b>>"), so strip until none
    // is left.
    while (plain.contains(tag))
        plain.replace(tag, QStringLiteral(" "));
    // Cutting can end the text on the blank between two words.
    return capped(foldedWhitespace(plain), kMaxNewsTextLength).trimmed();
}

QString safeNewsLink(const QString &link)
{
    const QString trimmed = link.trimmed();
    if (trimmed.isEmpty() || trimmed.size() > kMaxNewsLinkLength)
        return {};
    const QUrl url(trimmed, QUrl::StrictMode);
    const QString scheme = url.scheme();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return {};
    return trimmed;
}

QStringList newsProviderOrder(bool hasNewsApiKey)
{
    if (hasNewsApiKey)
        return {QStringLiteral("newsapi"), QStringLiteral("querlin_news"),
                QStringLiteral("yahoo_rss")};
    return {QStringLiteral("querlin_news"), QStringLiteral("yahoo_rss")};
}

NewsStep firstNewsStep(const QString &sourceId, bool hasNewsApiKey)
{
    if (sourceId == QLatin1String("querlin"))
        return {NewsSource::Site, false};
    if (sourceId == QLatin1String("newsapi") && hasNewsApiKey)
        return {NewsSource::NewsApi, false};
    if (sourceId == QLatin1String("auto")) {
        if (newsProviderOrder(hasNewsApiKey).constFirst() == QLatin1String("newsapi"))
            return {NewsSource::NewsApi, true};
        return {NewsSource::Site, true};
    }
    return {NewsSource::PublicRss, false};
}

std::optional<NewsStep> nextNewsStep(const NewsStep &step)
{
    if (!step.fallbackAllowed)
        return std::nullopt;
    switch (step.source) {
    case NewsSource::NewsApi:
        return NewsStep{NewsSource::Site, true};
    case NewsSource::Site:
        return NewsStep{NewsSource::PublicRss, false};
    case NewsSource::PublicRss:
        break;
    }
    return std::nullopt;
}

std::optional<NewsStep> newsStepToAsk(const QString &sourceId, bool hasNewsApiKey,
                                      const QSet<NewsSource> &yieldedNothing)
{
    std::optional<NewsStep> step = firstNewsStep(sourceId, hasNewsApiKey);
    while (step && yieldedNothing.contains(step->source))
        step = nextNewsStep(*step);
    return step;
}

QString newsSourceLabel(NewsSource source)
{
    switch (source) {
    case NewsSource::Site:
        return newsSourceLabel(QStringLiteral("querlin"));
    case NewsSource::NewsApi:
        return newsSourceLabel(QStringLiteral("newsapi"));
    case NewsSource::PublicRss:
        break;
    }
    return newsSourceLabel(QStringLiteral("public"));
}

NewsRowTexts newsRowTexts(const NewsItem &item, const QString &sourceLabel)
{
    return {item.time,
            item.category.isEmpty() ? QStringLiteral("all") : item.category,
            item.source.isEmpty() ? sourceLabel : item.source,
            item.title,
            item.text,
            item.link.isEmpty() ? QStringLiteral("--") : item.link};
}

QDateTime newsTime(const QString &time)
{
    const QString text = time.trimmed();
    for (Qt::DateFormat format : {Qt::ISODateWithMs, Qt::ISODate, Qt::RFC2822Date}) {
        const QDateTime parsed = QDateTime::fromString(text, format);
        if (parsed.isValid())
            return parsed;
    }
    return {};
}

QString compactNewsTime(const QString &time, const QDateTime &now)
{
    const QDateTime parsed = newsTime(time);
    if (!parsed.isValid())
        return time;
    const QDateTime local = parsed.toLocalTime();
    if (local.date() == now.toLocalTime().date())
        return local.toString(QStringLiteral("HH:mm"));
    return local.toString(QStringLiteral("dd/MM HH:mm"));
}

QString newsUpdatedMessage(const QString &sourceLabel, qsizetype count)
{
    return translated(QStringLiteral("News updated: %1 (%2 headlines)"),
                      QStringLiteral("Notícias atualizadas: %1 (%2 manchetes)"))
            .arg(sourceLabel)
            .arg(count);
}

QString publicNewsErrorMessage()
{
    return translated(QStringLiteral("Public RSS error"), QStringLiteral("Erro no RSS público"));
}

QString noPublicHeadlinesMessage(const QString &symbol)
{
    return translated(QStringLiteral("No public headlines returned for %1"),
                      QStringLiteral("Nenhuma manchete pública retornada para %1"))
            .arg(symbol);
}
