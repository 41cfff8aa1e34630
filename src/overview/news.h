#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QNetworkRequest>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

// The news list: its sources and categories, the requests it sends, the readers of the three
// replies and the order in which sources are asked. Everything here is plain values, so the panel
// only fills combo boxes and a table.

// One headline. Every text is plain (tags removed, entities decoded, whitespace folded); the link
// is empty unless it is an http or https address.
struct NewsItem
{
    QString title;
    QString text; // summary, shown as the headline's tooltip
    QString source;
    QString time; // publication time as received
    QString link;
    QString category; // "br", "us", "crypto" or empty
};

// A reply never yields more items than this; a feed that sends more is cut.
inline constexpr int kMaxNewsItems = 200;

// --- Selectors -------------------------------------------------------------------------------

// "auto", "querlin", "public", "newsapi", in the order the source selector lists them.
QStringList newsSourceIds();
QString newsSourceLabel(const QString &sourceId);
// "all", "br", "us", "crypto"; "br" only in a Portuguese interface.
QStringList newsCategoryIds(bool portuguese);
QString newsCategoryLabel(const QString &categoryId);
// The id to select after a selector is refilled with `ids`: the previous one while it is listed,
// else the first.
QString newsSelectionAfterRefill(const QStringList &ids, const QString &previous);

// --- Categories ------------------------------------------------------------------------------

// A category text of a reply as "br", "us", "crypto", or empty when it names none of them.
QString normalizedNewsCategory(const QString &category);
// The category a publisher writes for, by its exact name; unknown publishers are Brazilian.
QString publisherNewsCategory(const QString &publisher);

// --- Requests --------------------------------------------------------------------------------

enum class NewsSource {
    Site,
    NewsApi,
    PublicRss
};

// The symbol the headlines are about: the field's normalised symbol, else the selected symbol, else
// "AAPL".
QString newsSymbol(const QString &fieldSymbol, const QString &selectedSymbol);
// The site news address: the configured one (trimmed) when set, else the built-in one. Empty when
// the result is not a valid URL with a scheme, in which case no site request is sent.
QUrl siteNewsEndpoint(const QString &configuredEndpoint);
// `language` is the interface language ("pt_BR" asks for Portuguese items).
QNetworkRequest siteNewsRequest(const QUrl &endpoint, const QString &token,
                                const QString &categoryId, const QString &query,
                                const QString &language);
QNetworkRequest newsApiRequest(const QString &newsSymbol, const QString &apiKey);
// A USDT pair is asked for in its Yahoo form (BTCUSDT as BTC-USD).
QNetworkRequest publicNewsRequest(const QString &newsSymbol);

// --- Readers ---------------------------------------------------------------------------------

// The site news service: a top-level array of items, or an object holding item arrays and
// category arrays (at the top, or inside `groups` when the top has none).
QList<NewsItem> readSiteNews(const QByteArray &body);
// NewsAPI `everything`: articles with a title and a usable link; "[Removed]" placeholders are
// left out. Its items carry no category.
QList<NewsItem> readNewsApiArticles(const QByteArray &body);
// The Yahoo Finance RSS headline feed, its items without a category. Items read before a malformed
// part of the document are kept; bytes that are not UTF-8 become replacement characters.
QList<NewsItem> readPublicNewsFeed(const QByteArray &body);

// Plain text of a reply's field: tags removed, HTML entities decoded, whitespace folded, length
// capped. Never rich text.
QString plainNewsText(const QString &text);
// The link itself when it is an absolute http or https address with a host, else empty.
QString safeNewsLink(const QString &link);

// --- Which source is asked -------------------------------------------------------------------

struct NewsStep
{
    NewsSource source;
    bool fallbackAllowed;
    bool operator==(const NewsStep &) const = default;
};

// The news providers in the order the cascade tries them: keyed before public.
QStringList newsProviderOrder(bool hasNewsApiKey);
// The first request of a refresh for the selected source id.
NewsStep firstNewsStep(const QString &sourceId, bool hasNewsApiKey);
// The request after `step` yielded nothing (an error, an unusable address or no item); none when
// the chain ends there and the (empty) result is shown.
std::optional<NewsStep> nextNewsStep(const NewsStep &step);
// The source to ask next when the sources in `yieldedNothing` have been tried without a headline;
// none when nothing more is asked.
std::optional<NewsStep> newsStepToAsk(const QString &sourceId, bool hasNewsApiKey,
                                      const QSet<NewsSource> &yieldedNothing);
QString newsSourceLabel(NewsSource source);

// --- Texts of the panel ----------------------------------------------------------------------

// The cells of one table row: Time, Category, Source, Headline (with its tooltip) and Link.
struct NewsRowTexts
{
    QString time, category, source, headline, tooltip, link;
};
NewsRowTexts newsRowTexts(const NewsItem &item, const QString &sourceLabel);
// A publication time as the feeds write it (ISO 8601 with or without milliseconds or an offset,
// or RFC 2822 as RSS has it); invalid when it is neither.
QDateTime newsTime(const QString &time);
// The time for a narrow column, in local time: "HH:mm" on the day of `now`, else "dd/MM HH:mm";
// a time that cannot be read is shown as received.
QString compactNewsTime(const QString &time, const QDateTime &now);
QString newsUpdatedMessage(const QString &sourceLabel, qsizetype count);
QString publicNewsErrorMessage();
QString noPublicHeadlinesMessage(const QString &symbol);
