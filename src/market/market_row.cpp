#include "market/market_row.h"

#include "app/language.h"
#include "market/symbols.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

namespace {

struct StatusWord
{
    const char *canonical;
    const char *portuguese;
};

const StatusWord kStatusWords[] = {
        {"free/delayed", "gratuito/com delay"},
        {"realtime", "tempo real"},
        {"loading", "carregando"},
        {"pending", "pendente"},
        {"stream", "stream"},
        {"ws connecting", "ws conectando"},
        {"ws disconnected", "ws desconectado"},
        {"brapi error", "erro BrAPI"},
        {"http error", "erro HTTP"},
        {"kline error", "erro kline"},
        {"no free data", "sem dado gratuito"},
        {"invalid free data", "dado gratuito inválido"},
};

struct ProviderLabel
{
    const char *id;
    const char *label;
    bool crypto;   // serves crypto rows
    bool usEquity; // serves US equities
    bool brEquity; // serves B3 shares
    bool forex;    // serves currency pairs
};

// The short ids the watchlist file is written with, and the cascade's own ids, which older or
// synced files may carry.
const ProviderLabel kProviderLabels[] = {
        {"binance", "Binance WS", true, false, false, false},
        {"binance_public", "Binance WS", true, false, false, false},
        {"brapi", "BrAPI", false, false, true, false},
        {"brapi_keyed", "BrAPI", false, false, true, false},
        {"brapi_public", "BrAPI", false, false, true, false},
        {"yahoo", "Yahoo", false, true, true, true},
        {"yahoo_us", "Yahoo", false, true, false, false},
        {"yahoo_b3", "Yahoo", false, false, true, false},
        {"yahoo_fx", "Yahoo", false, false, false, true},
        {"finnhub", "Finnhub", false, true, false, false},
        {"twelvedata", "Twelve Data", false, true, false, true},
        {"fmp", "Financial Modeling Prep", false, true, false, false},
        {"alpha_vantage", "Alpha Vantage", false, true, false, false},
};

bool servesClass(const ProviderLabel &entry, AssetClass assetClass)
{
    switch (assetClass) {
    case AssetClass::Crypto:
        return entry.crypto;
    case AssetClass::UsEquity:
        return entry.usEquity;
    case AssetClass::BrEquity:
        return entry.brEquity;
    case AssetClass::Forex:
        return entry.forex;
    }
    return false;
}

} // namespace

QString marketColumnHeader(int column, int smaPeriod, int emaPeriod)
{
    switch (column) {
    case SymbolColumn:
        return translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo"));
    case AssetColumn:
        return translated(QStringLiteral("Asset"), QStringLiteral("Ativo"));
    case OpenColumn:
        return translated(QStringLiteral("Open"), QStringLiteral("Abertura"));
    case HighColumn:
        return translated(QStringLiteral("High"), QStringLiteral("Máxima"));
    case LowColumn:
        return translated(QStringLiteral("Low"), QStringLiteral("Mínima"));
    case CloseColumn:
        return translated(QStringLiteral("Close"), QStringLiteral("Fechamento"));
    case LastColumn:
        return translated(QStringLiteral("Last"), QStringLiteral("Último"));
    case ChangeColumn:
        return translated(QStringLiteral("Change"), QStringLiteral("Variação"));
    case SmaColumn:
        return QStringLiteral("SMA%1").arg(smaPeriod);
    case EmaColumn:
        return QStringLiteral("EMA%1").arg(emaPeriod);
    case VwapColumn:
        return QStringLiteral("VWAP");
    case MacdColumn:
        return QStringLiteral("MACD");
    case SourceColumn:
        return translated(QStringLiteral("Source"), QStringLiteral("Fonte"));
    case LatencyColumn:
        return translated(QStringLiteral("Latency"), QStringLiteral("Latência"));
    case StatusColumn:
        return QStringLiteral("Status");
    case UpdatedColumn:
        return translated(QStringLiteral("Updated"), QStringLiteral("Atualizado"));
    default:
        return QString();
    }
}

QString formatMarketNumber(double value)
{
    if (!std::isfinite(value))
        return QStringLiteral("--");
    return QString::number(value, 'f', std::abs(value) >= 1000 ? 2 : 4);
}

QString formatLargeAmount(double value)
{
    if (!std::isfinite(value))
        return QStringLiteral("--");
    const double magnitude = std::abs(value);
    if (magnitude >= 1e9)
        return QStringLiteral("%1B").arg(value / 1e9, 0, 'f', 2);
    if (magnitude >= 1e6)
        return QStringLiteral("%1M").arg(value / 1e6, 0, 'f', 2);
    if (magnitude >= 1e3)
        return QStringLiteral("%1K").arg(value / 1e3, 0, 'f', 2);
    return QString::number(value, 'f', 2);
}

QString formatChangePercent(double changePercent)
{
    if (!std::isfinite(changePercent))
        return QStringLiteral("--");
    return QStringLiteral("%1%").arg(QString::number(changePercent, 'f', 2));
}

QColor changeColor(double changePercent)
{
    if (!std::isfinite(changePercent))
        return QColor(QString::fromLatin1(kMarketTextColor));
    return QColor(changePercent >= 0 ? QStringLiteral("#20c878") : QStringLiteral("#f45d5d"));
}

QString canonicalStatusWord(const QString &status)
{
    for (const StatusWord &word : kStatusWords) {
        if (status == QLatin1String(word.canonical) || status == QString::fromUtf8(word.portuguese))
            return QString::fromLatin1(word.canonical);
    }
    return status;
}

QString localizedStatusWord(const QString &status, bool portuguese)
{
    const QString canonical = canonicalStatusWord(status);
    if (!portuguese)
        return canonical;
    for (const StatusWord &word : kStatusWords) {
        if (canonical == QLatin1String(word.canonical))
            return QString::fromUtf8(word.portuguese);
    }
    return canonical;
}

QStringList statusWords()
{
    QStringList words;
    for (const StatusWord &word : kStatusWords)
        words << QString::fromLatin1(word.canonical);
    return words;
}

QString localizedStatusWord(const QString &status)
{
    return localizedStatusWord(status, isPortuguese());
}

QSet<int> hiddenColumnsForPreset(const QString &preset)
{
    QList<int> visible;
    if (preset == QLatin1String("all")) {
        for (int column = 0; column < MarketColumnCount; ++column)
            visible << column;
    } else if (preset == QLatin1String("trading")) {
        visible = {0, 1, 2, 3, 4, 5, 6, 7, 12, 13, 14, 15};
    } else if (preset == QLatin1String("analytics")) {
        visible = {0, 1, 6, 7, 8, 9, 10, 11, 12, 15};
    } else {
        visible = {0, 6, 7, 12, 14};
    }
    QSet<int> hidden;
    for (int column = 1; column < MarketColumnCount; ++column) {
        if (!visible.contains(column))
            hidden.insert(column);
    }
    return hidden;
}

QSet<int> parseHiddenColumns(const QString &text)
{
    QSet<int> columns;
    for (const QString &piece : text.split(QLatin1Char(','))) {
        bool ok = false;
        const int column = piece.trimmed().toInt(&ok);
        if (ok && column >= 1 && column < MarketColumnCount)
            columns.insert(column);
    }
    return columns;
}

QString hiddenColumnsText(const QSet<int> &columns)
{
    QList<int> sorted(columns.begin(), columns.end());
    std::sort(sorted.begin(), sorted.end());
    QStringList pieces;
    for (int column : sorted)
        pieces << QString::number(column);
    return pieces.join(QLatin1Char(','));
}

QString watchlistProviderId(const QString &symbol)
{
    switch (assetClassOf(symbol)) {
    case AssetClass::Crypto:
        return QStringLiteral("binance");
    case AssetClass::BrEquity:
        return QStringLiteral("brapi");
    case AssetClass::UsEquity:
    case AssetClass::Forex:
        break;
    }
    return QStringLiteral("yahoo");
}

QString sourceLabelForProvider(const QString &providerId, const QString &symbol)
{
    const QString id = providerId.trimmed().toLower();
    const AssetClass assetClass = assetClassOf(symbol);
    for (const ProviderLabel &entry : kProviderLabels) {
        // A provider that cannot serve the row (a file edited by hand, a renamed id) gives way to
        // the one the symbol would get today.
        if (id == QLatin1String(entry.id) && servesClass(entry, assetClass))
            return QString::fromLatin1(entry.label);
    }
    return defaultSourceLabel(symbol);
}

QString defaultSourceLabel(const QString &symbol)
{
    return sourceLabelForProvider(watchlistProviderId(symbol), symbol);
}

QString searchSourceLabel(const QString &symbol)
{
    return assetClassOf(symbol) == AssetClass::Crypto ? QStringLiteral("Binance WS")
                                                      : QStringLiteral("Yahoo");
}

const QStringList &defaultWatchlistSymbols()
{
    static const QStringList symbols{
            QStringLiteral("PETR4.SA"), QStringLiteral("VALE3.SA"), QStringLiteral("AAPL"),
            QStringLiteral("NVDA"),     QStringLiteral("BTCUSDT"),  QStringLiteral("ETHUSDT"),
            QStringLiteral("BRL=X"),
    };
    return symbols;
}

QString marketTimestamp()
{
    return marketTimestamp(QDateTime::currentDateTime());
}

QString marketTimestamp(const QDateTime &time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

bool isDelayedFallback(const QString &status)
{
    return canonicalStatusWord(status).endsWith(QLatin1String("/delayed"));
}

QString marketRowToolTip(const QString &symbol, const QString &sector, const MarketQuote *quote)
{
    QStringList lines;
    QString heading = QStringLiteral("%1 · %2 · %3")
                              .arg(displaySymbol(symbol), assetClassForSymbol(symbol),
                                   marketLabelForSymbol(symbol));
    if (!sector.isEmpty())
        heading += QStringLiteral(" · ") + sector;
    lines << heading;
    if (!quote) {
        lines << translated(QStringLiteral("Waiting for the first quote"),
                            QStringLiteral("Aguardando a primeira cotação"));
        return lines.join(QLatin1Char('\n'));
    }
    lines << translated(QStringLiteral("Last %1 (%2) · Open %3 · High %4 · Low %5"),
                        QStringLiteral("Último %1 (%2) · Abertura %3 · Máxima %4 · Mínima %5"))
                     .arg(formatMarketNumber(quote->price),
                          formatChangePercent(quote->changePercent),
                          formatMarketNumber(quote->open), formatMarketNumber(quote->high),
                          formatMarketNumber(quote->low));
    lines << translated(QStringLiteral("Source %1 · %2 · %3"), QStringLiteral("Fonte %1 · %2 · %3"))
                     .arg(quote->source, quote->latency, localizedStatusWord(quote->status));
    lines << translated(QStringLiteral("Updated %1"), QStringLiteral("Atualizado %1"))
                     .arg(quote->time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    return lines.join(QLatin1Char('\n'));
}
