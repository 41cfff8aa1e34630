#include "overview/screener.h"

#include "app/language.h"
#include "market/symbols.h"

#include <algorithm>
#include <cmath>

namespace {

std::optional<QString> acceptedId(const QJsonValue &value, const QStringList &ids)
{
    const QString text = value.toString();
    if (!ids.contains(text))
        return std::nullopt;
    return text;
}

bool isKnownPrice(double price)
{
    return std::isfinite(price) && price > 0;
}

} // namespace

QStringList screenerScopeIds()
{
    return {QStringLiteral("watchlist"), QStringLiteral("universe")};
}

QString screenerScopeLabel(const QString &scope)
{
    if (scope == QLatin1String("universe"))
        return translated(QStringLiteral("Full universe"), QStringLiteral("Universo completo"));
    return translated(QStringLiteral("Watchlist"), QStringLiteral("Lista de observação"));
}

QStringList screenerAssetIds()
{
    return {QStringLiteral("all"), QStringLiteral("br"), QStringLiteral("us"),
            QStringLiteral("crypto"), QStringLiteral("forex")};
}

QString screenerAssetLabel(const QString &asset)
{
    if (asset == QLatin1String("br"))
        return translated(QStringLiteral("Brazil"), QStringLiteral("Brasil"));
    if (asset == QLatin1String("us"))
        return translated(QStringLiteral("United States"), QStringLiteral("Estados Unidos"));
    if (asset == QLatin1String("crypto"))
        return translated(QStringLiteral("Crypto"), QStringLiteral("Cripto"));
    if (asset == QLatin1String("forex"))
        return translated(QStringLiteral("Forex"), QStringLiteral("Câmbio"));
    return translated(QStringLiteral("All assets"), QStringLiteral("Todos os ativos"));
}

std::optional<QString> acceptedScreenerScope(const QJsonValue &value)
{
    return acceptedId(value, screenerScopeIds());
}

std::optional<QString> acceptedScreenerAsset(const QJsonValue &value)
{
    return acceptedId(value, screenerAssetIds());
}

std::optional<double> acceptedScreenerMinimumChange(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double minimum = value.toDouble();
    if (!std::isfinite(minimum) || std::abs(minimum) > kScreenerMinimumChangeLimit)
        return std::nullopt;
    return std::round(minimum * 100.0) / 100.0;
}

ScreenerFilters readScreenerFilters(const QJsonObject &document, const ScreenerFilters &current)
{
    ScreenerFilters filters = current;
    filters.scope = acceptedScreenerScope(document.value(QStringLiteral("screener_scope")))
                            .value_or(current.scope);
    filters.asset = acceptedScreenerAsset(document.value(QStringLiteral("screener_asset")))
                            .value_or(current.asset);
    filters.minimumChange =
            acceptedScreenerMinimumChange(document.value(QStringLiteral("screener_min_change")))
                    .value_or(current.minimumChange);
    return filters;
}

QJsonObject screenerFiltersToJson(const ScreenerFilters &filters)
{
    return {
            {QStringLiteral("screener_asset"), filters.asset},
            {QStringLiteral("screener_scope"), filters.scope},
            {QStringLiteral("screener_min_change"), filters.minimumChange},
    };
}

bool screenerAssetPasses(const QString &symbol, const QString &asset)
{
    return symbolMatchesScope(symbol, asset);
}

bool screenerChangePasses(double change, double minimum)
{
    if (minimum == 0)
        return true;
    if (!std::isfinite(change))
        return false;
    // A negative threshold lists fallers only; a positive one lists moves of either sign.
    if (minimum > 0)
        return std::abs(change) >= minimum;
    return change <= minimum;
}

QList<ScreenerRow> screenerRows(const ScreenerInputs &inputs, const ScreenerFilters &filters)
{
    QHash<QString, const MarketQuote *> rows;
    QStringList symbols;
    for (const MarketQuote &quote : inputs.watchlist) {
        if (!rows.contains(quote.symbol))
            rows.insert(quote.symbol, &quote);
    }
    if (filters.scope == QLatin1String("universe")) {
        symbols = inputs.universe;
    } else {
        for (const MarketQuote &quote : inputs.watchlist)
            symbols.append(quote.symbol);
    }
    symbols.removeDuplicates();
    symbols.removeAll(QString());
    std::sort(symbols.begin(), symbols.end());

    const QString search = filters.search.trimmed();
    QList<ScreenerRow> result;
    for (const QString &symbol : std::as_const(symbols)) {
        if (!search.isEmpty() && !symbol.contains(search, Qt::CaseInsensitive))
            continue;
        if (!screenerAssetPasses(symbol, filters.asset))
            continue;

        ScreenerRow row;
        row.symbol = symbol;
        const MarketQuote *quote = rows.value(symbol);
        row.inWatchlist = quote != nullptr;
        if (quote) {
            if (isKnownPrice(quote->price))
                row.last = quote->price;
            if (std::isfinite(quote->changePercent))
                row.change = quote->changePercent;
        }
        const auto mover = inputs.movers.constFind(symbol);
        if (mover != inputs.movers.cend()) {
            if (!std::isfinite(row.last) && isKnownPrice(mover->price))
                row.last = mover->price;
            if (!std::isfinite(row.change) && std::isfinite(mover->change))
                row.change = mover->change;
        }
        if (!screenerChangePasses(row.change, filters.minimumChange))
            continue;

        // The stream's own last bar is fresher than any snapshot.
        const QList<Candle> series = inputs.localSeries.value(symbol);
        if (!series.isEmpty() && std::isfinite(series.constLast().volume))
            row.volume = series.constLast().volume;
        else if (mover != inputs.movers.cend() && std::isfinite(mover->volume))
            row.volume = mover->volume;

        row.asset = assetClassForSymbol(symbol);
        row.market = venueForSymbol(symbol);
        if (quote)
            row.source = quote->source.isEmpty() ? defaultSourceLabel(symbol) : quote->source;
        else
            row.source = inputs.moverSources.value(symbol);
        if (row.source.isEmpty())
            row.source = defaultScreenerSource();
        result.append(row);
    }
    return result;
}

QString screenerSignal(double change)
{
    if (!std::isfinite(change))
        return translated(QStringLiteral("Not loaded"), QStringLiteral("Não carregado"));
    return directionClass(change);
}

QString defaultScreenerSource()
{
    return QStringLiteral("Movers snapshot");
}
