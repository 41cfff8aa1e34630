#include "account/news_feed.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace {

struct CategoryArray
{
    const char *key;
};
constexpr CategoryArray kCategoryArrays[] = {{"domestic"}, {"international"}, {"crypto"}};

QString firstText(const QJsonObject &item, std::initializer_list<const char *> keys)
{
    for (const char *key : keys) {
        const QString text = item.value(QLatin1String(key)).toString().trimmed();
        if (!text.isEmpty())
            return text;
    }
    return {};
}

// The selector's ids plus the file's own names.
QString selectorCategory(const QString &category)
{
    if (category == QLatin1String("domestic") || category == QLatin1String("brazil"))
        return QStringLiteral("br");
    if (category == QLatin1String("international") || category == QLatin1String("american"))
        return QStringLiteral("us");
    return category;
}

} // namespace

void NewsFeed::setFile(const QString &path)
{
    m_path = path;
    m_modified = {};
    m_size = -1;
    m_items = {};
}

QJsonArray NewsFeed::readItems(const QByteArray &text, bool *ok)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    *ok = document.isObject();
    const QJsonObject root = document.object();
    struct Dated
    {
        QDateTime when;
        QJsonObject item;
    };
    QList<Dated> items;
    for (const CategoryArray &array : kCategoryArrays) {
        for (const QJsonValue &value : root.value(QLatin1String(array.key)).toArray()) {
            const QJsonObject source = value.toObject();
            QJsonObject item;
            item.insert(QStringLiteral("title"), firstText(source, {"Titulo", "title"}));
            if (item.value(QLatin1String("title")).toString().isEmpty())
                continue;
            item.insert(QStringLiteral("text"), firstText(source, {"Texto", "text"}));
            item.insert(QStringLiteral("source"), firstText(source, {"Fonte", "source"}));
            const QString date = firstText(source, {"Data", "date"});
            item.insert(QStringLiteral("date"), date);
            item.insert(QStringLiteral("link"), firstText(source, {"Link", "link"}));
            item.insert(QStringLiteral("category"), QLatin1String(array.key));
            items.append({QDateTime::fromString(date, Qt::ISODate), item});
        }
    }
    // Newest first; undated items keep their file order after the dated ones.
    std::stable_sort(items.begin(), items.end(), [](const Dated &a, const Dated &b) {
        if (a.when.isValid() != b.when.isValid())
            return a.when.isValid();
        return a.when.isValid() && a.when > b.when;
    });
    QJsonArray result;
    for (const Dated &dated : items)
        result.append(dated.item);
    return result;
}

void NewsFeed::reloadIfChanged()
{
    if (m_path.isEmpty())
        return;
    const QFileInfo info(m_path);
    if (info.lastModified() == m_modified && info.size() == m_size)
        return;
    m_modified = info.lastModified();
    m_size = info.size();
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "news: cannot read %s; keeping %lld headlines\n", qPrintable(m_path),
                     qlonglong(m_items.size()));
        return;
    }
    bool ok = false;
    const QJsonArray items = readItems(file.readAll(), &ok);
    if (!ok) {
        std::fprintf(stderr,
                     "news: %s is not a JSON object of category arrays; keeping %lld "
                     "headlines\n",
                     qPrintable(m_path), qlonglong(m_items.size()));
        return;
    }
    m_items = items;
}

QJsonObject NewsFeed::reply(const account::NewsQuery &query)
{
    reloadIfChanged();
    const QString wanted = selectorCategory(query.category);
    QJsonArray news;
    for (const QJsonValue &value : std::as_const(m_items)) {
        if (news.size() >= query.limit)
            break;
        const QJsonObject item = value.toObject();
        if (wanted != QLatin1String("all") &&
            selectorCategory(item.value(QLatin1String("category")).toString()) != wanted)
            continue;
        if (!query.text.isEmpty() &&
            !item.value(QLatin1String("title"))
                     .toString()
                     .contains(query.text, Qt::CaseInsensitive) &&
            !item.value(QLatin1String("text")).toString().contains(query.text, Qt::CaseInsensitive))
            continue;
        news.append(item);
    }
    return {{QStringLiteral("ok"), true}, {QStringLiteral("news"), news}};
}
