#include "providers/yahoo_symbol_search.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

bool quotedThroughYahoo(const QString &quoteType)
{
    for (const char *type : {"EQUITY", "ETF", "INDEX", "CURRENCY", "MUTUALFUND"}) {
        if (quoteType == QLatin1String(type))
            return true;
    }
    return false;
}

} // namespace

QStringList parseYahooSymbolSearch(const QByteArray &body)
{
    const QJsonValue quotes = QJsonDocument::fromJson(body).object().value(QLatin1String("quotes"));
    if (!quotes.isArray())
        return {};
    const QJsonArray entries = quotes.toArray();
    // A foreign element means the reply is not what we think it is; trust none of it.
    for (const QJsonValue &entry : entries) {
        if (!entry.isObject())
            return {};
    }

    QStringList symbols;
    QSet<QString> seen;
    for (const QJsonValue &value : entries) {
        const QJsonObject entry = value.toObject();
        if (entry.value(QLatin1String("isYahooFinance")) != QJsonValue(true))
            continue;
        if (!quotedThroughYahoo(entry.value(QLatin1String("quoteType")).toString()))
            continue;
        const QString symbol = entry.value(QLatin1String("symbol")).toString().trimmed().toUpper();
        if (symbol.isEmpty() || seen.contains(symbol))
            continue;
        seen.insert(symbol);
        symbols.append(symbol);
        if (symbols.size() == kYahooSymbolSearchLimit)
            break;
    }
    return symbols;
}
