#include "overview/movers.h"

#include "app/language.h"
#include "market/market_row.h"
#include "market/symbols.h"
#include "streams/frame_scan.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

// Prices, changes and volumes come as strings (Binance, Alpha Vantage) or numbers (Yahoo). A
// 24-hour reply holds a thousand of these strings and QString's locale-aware reading costs several
// times the parse of the text around them: a plain decimal is read directly, anything else
// (spaces, "+1", "NaN") by QString's rules.
double numberOf(const QJsonValue &value)
{
    if (value.isDouble())
        return value.toDouble();
    if (!value.isString())
        return qQNaN();
    const QString text = value.toString();
    if (const std::optional<double> quick = scannedDecimal(text))
        return *quick;
    bool ok = false;
    const double number = text.trimmed().toDouble(&ok);
    return ok ? number : qQNaN();
}

QJsonDocument documentOf(const QByteArray &body)
{
    return QJsonDocument::fromJson(body);
}

bool isLeveragedToken(const QString &symbol)
{
    for (const char *marker : {"UPUSDT", "DOWNUSDT", "BULLUSDT", "BEARUSDT"}) {
        if (symbol.contains(QLatin1String(marker)))
            return true;
    }
    return false;
}

} // namespace

double moverTurnover(const MoverRecord &record)
{
    if (std::isfinite(record.turnover) && record.turnover > 0)
        return record.turnover;
    if (assetClassOf(record.symbol) == AssetClass::Crypto)
        return std::isfinite(record.volume) ? record.volume : 0.0;
    if (std::isfinite(record.price) && std::isfinite(record.volume))
        return record.price * record.volume;
    return 0.0;
}

QList<MoverRecord> readBinanceMovers(const QByteArray &body)
{
    QList<MoverRecord> records;
    for (const QJsonValue &entry : documentOf(body).array()) {
        const QJsonObject ticker = entry.toObject();
        const QString symbol = ticker.value(QLatin1String("symbol")).toString();
        if (!symbol.endsWith(QLatin1String("USDT")) || isLeveragedToken(symbol))
            continue;
        MoverRecord record;
        record.symbol = symbol;
        record.price = numberOf(ticker.value(QLatin1String("lastPrice")));
        record.change = numberOf(ticker.value(QLatin1String("priceChangePercent")));
        record.volume = numberOf(ticker.value(QLatin1String("quoteVolume")));
        if (std::isfinite(record.price) && record.price > 0 && std::isfinite(record.change) &&
            std::isfinite(record.volume))
            records.append(record);
    }
    return records;
}

QList<MoverRecord> readAlphaVantageMovers(const QByteArray &body)
{
    QList<MoverRecord> records;
    const QJsonObject object = documentOf(body).object();
    for (const char *list : {"top_gainers", "top_losers"}) {
        for (const QJsonValue &entry : object.value(QLatin1String(list)).toArray()) {
            const QJsonObject item = entry.toObject();
            MoverRecord record;
            record.symbol = item.value(QLatin1String("ticker")).toString().trimmed();
            record.price = numberOf(item.value(QLatin1String("price")));
            record.change = numberOf(item.value(QLatin1String("change_percentage"))
                                             .toString()
                                             .remove(QLatin1Char('%')));
            record.volume = numberOf(item.value(QLatin1String("volume")));
            if (!record.symbol.isEmpty() && std::isfinite(record.price) &&
                std::isfinite(record.change))
                records.append(record);
        }
    }
    return records;
}

QList<MoverRecord> readYahooMovers(const QByteArray &body, QHash<QString, QString> *sectors)
{
    const QJsonObject object = documentOf(body).object();
    QJsonArray results = object.value(QLatin1String("quoteResponse"))
                                 .toObject()
                                 .value(QLatin1String("result"))
                                 .toArray();
    if (results.isEmpty())
        results = object.value(QLatin1String("results")).toArray();
    QList<MoverRecord> records;
    for (const QJsonValue &entry : std::as_const(results)) {
        const QJsonObject quote = entry.toObject();
        MoverRecord record;
        record.symbol = quote.value(QLatin1String("symbol")).toString();
        record.price = numberOf(quote.value(QLatin1String("regularMarketPrice")));
        record.change = numberOf(quote.value(QLatin1String("regularMarketChangePercent")));
        record.volume = numberOf(quote.value(QLatin1String("regularMarketVolume")));
        if (record.symbol.isEmpty() || !std::isfinite(record.price) || record.price <= 0 ||
            !std::isfinite(record.change))
            continue;
        if (sectors) {
            QString sector = quote.value(QLatin1String("sector")).toString();
            if (sector.isEmpty())
                sector = quote.value(QLatin1String("summaryProfile"))
                                 .toObject()
                                 .value(QLatin1String("sector"))
                                 .toString();
            if (!sector.isEmpty())
                sectors->insert(record.symbol, sector);
        }
        records.append(record);
    }
    return records;
}

qint64 moversIntervalSeconds(const QString &interval)
{
    if (interval == QLatin1String("hour"))
        return 3600;
    if (interval == QLatin1String("week"))
        return 604800;
    if (interval == QLatin1String("month"))
        return 2592000;
    return 86400;
}

double localMoverChange(const QList<Candle> &series, qint64 intervalSeconds, double providerChange)
{
    if (series.size() < 2)
        return providerChange;
    const auto seconds = [](qint64 time) { return isMillisecondTime(time) ? time / 1000 : time; };
    const Candle &last = series.constLast();
    if (!std::isfinite(last.close) || last.close <= 0)
        return providerChange;
    const qint64 cutOff = seconds(last.time) - intervalSeconds;
    const Candle *base = &series.constFirst();
    for (const Candle &bar : series) {
        if (seconds(bar.time) > cutOff)
            break;
        base = &bar;
    }
    if (!std::isfinite(base->close) || base->close <= 0)
        return providerChange;
    return (last.close - base->close) / base->close * 100.0;
}

bool MoverFilter::isActive() const
{
    return minimumVolume > 0 || minimumTurnover > 0 || sector != QLatin1String("all");
}

QList<MoverRecord> filterMovers(const QList<MoverRecord> &records, const MoverFilter &filter,
                                const std::function<QString(const QString &)> &sectorOf)
{
    if (!filter.isActive())
        return records;
    QList<MoverRecord> kept;
    for (const MoverRecord &record : records) {
        if (filter.sector != QLatin1String("all") && sectorOf(record.symbol) != filter.sector)
            continue;
        if (!std::isfinite(record.volume) || record.volume < filter.minimumVolume)
            continue;
        if (moverTurnover(record) < filter.minimumTurnover)
            continue;
        kept.append(record);
    }
    return kept;
}

MoversBreadth moversBreadth(const QList<MoverRecord> &records)
{
    MoversBreadth breadth;
    QList<double> changes;
    for (int i = 0; i < records.size(); ++i) {
        const MoverRecord &record = records.at(i);
        if (!std::isfinite(record.change))
            continue;
        changes.append(record.change);
        if (record.change > 0)
            ++breadth.advancers;
        else if (record.change < 0)
            ++breadth.decliners;
        breadth.turnover += moverTurnover(record);
        if (breadth.best < 0 || record.change > records.at(breadth.best).change)
            breadth.best = i;
        if (breadth.worst < 0 || record.change < records.at(breadth.worst).change)
            breadth.worst = i;
    }
    if (!changes.isEmpty()) {
        std::sort(changes.begin(), changes.end());
        breadth.median = changes.at(changes.size() / 2);
    }
    return breadth;
}

QList<BreadthTile> breadthTiles(const QList<MoverRecord> &records)
{
    const MoversBreadth breadth = moversBreadth(records);
    const auto extreme = [&records](int index) {
        if (index < 0)
            return QStringLiteral("--");
        const MoverRecord &record = records.at(index);
        return QStringLiteral("%1 %2%").arg(record.symbol).arg(record.change, 0, 'f', 2);
    };
    return {
            {translated(QStringLiteral("ADV / DEC"), QStringLiteral("ALTAS / BAIXAS")),
             QStringLiteral("%1 / %2").arg(breadth.advancers).arg(breadth.decliners),
             breadth.advancers < breadth.decliners ? QStringLiteral("#f45d5d")
                                                   : QStringLiteral("#20c878")},
            {translated(QStringLiteral("MEDIAN"), QStringLiteral("MEDIANA")),
             QStringLiteral("%1%").arg(breadth.median, 0, 'f', 2),
             breadth.median >= 0 ? QStringLiteral("#20c878") : QStringLiteral("#f45d5d")},
            {translated(QStringLiteral("BEST"), QStringLiteral("MAIOR ALTA")),
             extreme(breadth.best), QStringLiteral("#20c878")},
            {translated(QStringLiteral("WORST"), QStringLiteral("MAIOR BAIXA")),
             extreme(breadth.worst), QStringLiteral("#f45d5d")},
            {translated(QStringLiteral("TURNOVER"), QStringLiteral("GIRO")),
             formatLargeAmount(breadth.turnover), QStringLiteral("#f3b24a")},
    };
}

QList<MoverRecord> topGainers(const QList<MoverRecord> &records)
{
    QList<MoverRecord> gainers;
    for (const MoverRecord &record : records) {
        if (record.change > 0)
            gainers.append(record);
    }
    std::stable_sort(
            gainers.begin(), gainers.end(),
            [](const MoverRecord &a, const MoverRecord &b) { return a.change > b.change; });
    if (gainers.size() > kMoversTableLimit)
        gainers.resize(kMoversTableLimit);
    return gainers;
}

QList<MoverRecord> topLosers(const QList<MoverRecord> &records)
{
    QList<MoverRecord> losers;
    for (const MoverRecord &record : records) {
        if (record.change < 0)
            losers.append(record);
    }
    std::stable_sort(losers.begin(), losers.end(), [](const MoverRecord &a, const MoverRecord &b) {
        return a.change < b.change;
    });
    if (losers.size() > kMoversTableLimit)
        losers.resize(kMoversTableLimit);
    return losers;
}

QList<MoverRecord> mosaicItems(const QList<MoverRecord> &gainers, const QList<MoverRecord> &losers)
{
    QList<MoverRecord> items = gainers.mid(0, kMosaicSideLimit) + losers.mid(0, kMosaicSideLimit);
    std::stable_sort(items.begin(), items.end(), [](const MoverRecord &a, const MoverRecord &b) {
        return std::abs(a.change) > std::abs(b.change);
    });
    return items;
}

QString directionClass(double change)
{
    if (change >= 2.0)
        return translated(QStringLiteral("Strong up"), QStringLiteral("Alta forte"));
    if (change >= 0.25)
        return translated(QStringLiteral("Up"), QStringLiteral("Alta"));
    if (change <= -2.0)
        return translated(QStringLiteral("Strong down"), QStringLiteral("Baixa forte"));
    if (change <= -0.25)
        return translated(QStringLiteral("Down"), QStringLiteral("Baixa"));
    return translated(QStringLiteral("Flat"), QStringLiteral("Estável"));
}

QString moversStatusText(const QString &sourceLabel, int gainers, int losers, const QString &suffix)
{
    return translated(QStringLiteral("Market movers updated: %1 (%2 gainers, %3 losers)%4"),
                      QStringLiteral("Destaques do mercado atualizados: %1 (%2 altas, %3 "
                                     "baixas)%4"))
            .arg(sourceLabel)
            .arg(gainers)
            .arg(losers)
            .arg(suffix);
}

QString moversSuffix(const QString &interval, int adjusted)
{
    if (interval == QLatin1String("day"))
        return QString();
    return translated(QStringLiteral(" | %1 local series adjusted, others provider daily"),
                      QStringLiteral(" | %1 ajustados pela série local, demais com a variação "
                                     "diária do provedor"))
            .arg(adjusted);
}

QList<QRectF> mosaicTiles(const QSizeF &size, int count)
{
    constexpr double kInset = 5;
    constexpr double kGap = 5;
    const QRectF area(kInset, kInset, size.width() - 2 * kInset, size.height() - 2 * kInset);
    const int columns = size.width() < 471 ? 3 : 4;
    const int rows = size.height() < 256 ? 4 : 5;
    const int tiles = std::min(count, columns * rows);
    if (tiles <= 0)
        return {};
    const int usedRows = (tiles + columns - 1) / columns;
    const double width = (area.width() - kGap * (columns - 1)) / columns;
    const double height = (area.height() - kGap * (usedRows - 1)) / std::max(1, usedRows);
    QList<QRectF> rects;
    rects.reserve(tiles);
    for (int i = 0; i < tiles; ++i) {
        const int row = i / columns;
        const int column = i % columns;
        rects.append(QRectF(area.left() + column * (width + kGap),
                            area.top() + row * (height + kGap), width, height));
    }
    return rects;
}

double mosaicIntensity(double change)
{
    if (!std::isfinite(change))
        return 0.18;
    return std::clamp(std::abs(change) / 18.0, 0.18, 1.0);
}

MosaicFill mosaicFill(double change)
{
    const double intensity = mosaicIntensity(change);
    if (change >= 0)
        return {0.05, 0.28 + 0.42 * intensity, 0.19};
    return {0.34 + 0.34 * intensity, 0.08, 0.10};
}

QStringList moversScopeIds()
{
    return {QStringLiteral("all"), QStringLiteral("b3"), QStringLiteral("us"),
            QStringLiteral("watchlist"), QStringLiteral("crypto")};
}

QString normalizedMoversScope(const QString &scope)
{
    return moversScopeIds().contains(scope) ? scope : QStringLiteral("crypto");
}

QString moversScopeLabel(const QString &scope)
{
    const QString id = normalizedMoversScope(scope);
    if (id == QLatin1String("all"))
        return translated(QStringLiteral("All delayed"), QStringLiteral("Todos com atraso"));
    if (id == QLatin1String("b3"))
        return translated(QStringLiteral("B3 delayed"), QStringLiteral("B3 com atraso"));
    if (id == QLatin1String("us"))
        return translated(QStringLiteral("US delayed"), QStringLiteral("EUA com atraso"));
    if (id == QLatin1String("watchlist"))
        return translated(QStringLiteral("Watchlist"), QStringLiteral("Lista de ativos"));
    return translated(QStringLiteral("Crypto 24h"), QStringLiteral("Cripto 24h"));
}

QStringList moversIntervalIds()
{
    return {QStringLiteral("hour"), QStringLiteral("day"), QStringLiteral("week"),
            QStringLiteral("month")};
}

QString moversIntervalLabel(const QString &interval)
{
    if (interval == QLatin1String("hour"))
        return translated(QStringLiteral("1 hour"), QStringLiteral("1 hora"));
    if (interval == QLatin1String("week"))
        return translated(QStringLiteral("1 week"), QStringLiteral("1 semana"));
    if (interval == QLatin1String("month"))
        return translated(QStringLiteral("1 month"), QStringLiteral("1 mês"));
    return translated(QStringLiteral("1 day"), QStringLiteral("1 dia"));
}

QStringList moversQuoteSymbols(const QString &scope, const QStringList &universe,
                               const QStringList &watchlist)
{
    const QString id = normalizedMoversScope(scope);
    if (id == QLatin1String("crypto"))
        return {};
    const bool fromWatchlist = id == QLatin1String("watchlist");
    QStringList symbols;
    for (const QString &symbol : fromWatchlist ? watchlist : universe) {
        const AssetClass assetClass = assetClassOf(symbol);
        bool wanted = false;
        if (fromWatchlist)
            wanted = assetClass != AssetClass::Crypto;
        else if (id == QLatin1String("b3"))
            wanted = assetClass == AssetClass::BrEquity;
        else if (id == QLatin1String("us"))
            wanted = assetClass == AssetClass::UsEquity;
        else
            wanted = assetClass == AssetClass::BrEquity || assetClass == AssetClass::UsEquity;
        if (wanted && !symbols.contains(symbol))
            symbols.append(symbol);
    }
    return symbols;
}

MoversView buildMoversView(const QList<MoverRecord> &records, const QString &interval,
                           const MoverFilter &filter,
                           const std::function<QString(const QString &)> &sectorOf,
                           const QHash<QString, QList<Candle>> &localSeries)
{
    MoversView view;
    view.records = records;
    if (interval != QLatin1String("day")) {
        const qint64 seconds = moversIntervalSeconds(interval);
        for (MoverRecord &record : view.records) {
            const auto series = localSeries.constFind(record.symbol);
            if (series == localSeries.constEnd() || series->size() < 2)
                continue;
            record.change = localMoverChange(*series, seconds, record.change);
            ++view.adjusted;
        }
    }
    view.kept = filterMovers(view.records, filter, sectorOf);
    view.tiles = breadthTiles(view.kept);
    view.gainers = topGainers(view.kept);
    view.losers = topLosers(view.kept);
    view.mosaic = mosaicItems(view.gainers, view.losers);
    view.suffix = moversSuffix(interval, view.adjusted);
    return view;
}
