#include "market/watchlist.h"

#include "market/market_row.h"
#include "market/symbols.h"

#include <QJsonArray>
#include <QJsonDocument>

QJsonObject watchlistDocument(const QStringList &symbols)
{
    QJsonArray rows;
    for (const QString &symbol : symbols) {
        rows.append(QJsonObject{
                {QStringLiteral("symbol"), symbol},
                {QStringLiteral("asset_class"), assetClassId(symbol)},
                {QStringLiteral("provider"), watchlistProviderId(symbol)},
        });
    }
    return QJsonObject{{QStringLiteral("name"), QStringLiteral("Default")},
                       {QStringLiteral("symbols"), rows}};
}

QList<WatchlistEntry> readWatchlistEntries(const QByteArray &bytes)
{
    const QJsonArray rows =
            QJsonDocument::fromJson(bytes).object().value(QStringLiteral("symbols")).toArray();
    QList<WatchlistEntry> entries;
    entries.reserve(rows.size());
    for (const QJsonValue &row : rows) {
        if (!row.isObject())
            continue;
        const QJsonObject object = row.toObject();
        entries.append({object.value(QStringLiteral("symbol")).toString(),
                        object.value(QStringLiteral("provider")).toString()});
    }
    return entries;
}
