#include "providers/yahoo_batch_quote.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

QList<QuoteSnapshot> parseYahooBatchQuotes(const QByteArray &body)
{
    const QJsonArray results = QJsonDocument::fromJson(body)
                                       .object()
                                       .value(QLatin1String("quoteResponse"))
                                       .toObject()
                                       .value(QLatin1String("result"))
                                       .toArray();
    QList<QuoteSnapshot> quotes;
    for (const QJsonValue &value : results) {
        const QJsonObject item = value.toObject();
        QuoteSnapshot quote;
        quote.symbol = item.value(QLatin1String("symbol")).toString().trimmed().toUpper();
        quote.source = QStringLiteral("Yahoo");
        quote.price = item.value(QLatin1String("regularMarketPrice")).toDouble();
        quote.changePercent = item.value(QLatin1String("regularMarketChangePercent")).toDouble();
        quote.open = item.value(QLatin1String("regularMarketOpen")).toDouble();
        quote.high = item.value(QLatin1String("regularMarketDayHigh")).toDouble();
        quote.low = item.value(QLatin1String("regularMarketDayLow")).toDouble();
        quote.previousClose = item.value(QLatin1String("regularMarketPreviousClose")).toDouble();
        quote.volume = item.value(QLatin1String("regularMarketVolume")).toDouble();
        if (!quote.symbol.isEmpty() && quote.isValid())
            quotes << quote;
    }
    return quotes;
}
