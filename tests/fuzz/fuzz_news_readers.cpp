// Feeds arbitrary bytes to the three news readers as a reply body. Whatever comes out must be safe
// to show: plain text, bounded, and no link but an http or https one. A broken invariant traps, so
// libFuzzer keeps the input.
#include "overview/news.h"

#include <QByteArray>
#include <QRegularExpression>
#include <QUrl>

#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// Bounded, on one line, trimmed, and without anything a label could take for a tag.
bool plain(const QString &text)
{
    static const QRegularExpression tag(QStringLiteral("<[/!?]?[A-Za-z][^<>]*>"));
    if (text.size() > 2000 || text != text.trimmed() || text.contains(tag))
        return false;
    for (const QChar c : text) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            return false;
    }
    return true;
}

void checkItems(const QList<NewsItem> &items)
{
    check(items.size() <= kMaxNewsItems);
    for (const NewsItem &item : items) {
        check(!item.title.isEmpty());
        check(plain(item.title) && plain(item.text) && plain(item.source) && plain(item.time));
        if (!item.link.isEmpty()) {
            const QString scheme = QUrl(item.link).scheme();
            check(scheme == QLatin1String("http") || scheme == QLatin1String("https"));
        }
        check(item.category.isEmpty() || item.category == QLatin1String("br") ||
              item.category == QLatin1String("us") || item.category == QLatin1String("crypto"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                    static_cast<qsizetype>(size));
    checkItems(readSiteNews(body));
    checkItems(readNewsApiArticles(body));
    checkItems(readPublicNewsFeed(body));
    return 0;
}
