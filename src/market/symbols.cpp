#include "market/symbols.h"

#include <QSet>

#include <iterator>

namespace {

const QSet<QString> &currencyCodes()
{
    static const QSet<QString> codes{
            QStringLiteral("USD"), QStringLiteral("BRL"), QStringLiteral("EUR"),
            QStringLiteral("GBP"), QStringLiteral("JPY"), QStringLiteral("CHF"),
            QStringLiteral("CAD"), QStringLiteral("AUD"), QStringLiteral("NZD"),
            QStringLiteral("MXN"), QStringLiteral("CNY"), QStringLiteral("CNH"),
            QStringLiteral("HKD"), QStringLiteral("SGD"), QStringLiteral("SEK"),
            QStringLiteral("NOK"), QStringLiteral("DKK"), QStringLiteral("ZAR"),
            QStringLiteral("TRY"), QStringLiteral("ARS"), QStringLiteral("CLP"),
            QStringLiteral("COP"), QStringLiteral("PEN"), QStringLiteral("UYU"),
            QStringLiteral("KRW"), QStringLiteral("INR"),
    };
    return codes;
}

struct AssetClassTraits
{
    const char *label;
    const char *id;
    const char *market;
    const char *venue;
    const char *currency;
};

// Indexed by the market index.
constexpr AssetClassTraits kTraits[] = {
        {"Crypto", "crypto", "Crypto", "Binance", "USD"},
        {"US Equity", "equity_us", "US", "US", "USD"},
        {"BR Equity", "equity_br", "B3", "B3", "BRL"},
        {"Forex", "forex", "Forex", "FX", "USD"},
};

const AssetClassTraits &traitsOf(AssetClass assetClass)
{
    return kTraits[static_cast<int>(assetClass)];
}

const QString kUsd = QStringLiteral("USD");
const QString kForexSuffix = QStringLiteral("=X");

// The marker the completer puts between a symbol and its market label: "PETR4.SA  (B3)".
const QString kCompleterLabelMarker = QStringLiteral("  (");

QString withoutBlanks(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        if (!c.isSpace())
            result.append(c);
    }
    return result;
}

} // namespace

AssetClass assetClassOf(const QString &symbol)
{
    if (symbol.endsWith(QLatin1String(".SA")))
        return AssetClass::BrEquity;
    if (symbol.endsWith(QLatin1String("USDT")) || symbol.endsWith(QLatin1String("BUSD")) ||
        symbol.endsWith(QLatin1String("USDC")))
        return AssetClass::Crypto;
    if (symbol.endsWith(kForexSuffix))
        return AssetClass::Forex;
    return AssetClass::UsEquity;
}

QString assetClassLabel(AssetClass assetClass)
{
    return QLatin1String(traitsOf(assetClass).label);
}

QString assetClassForSymbol(const QString &symbol)
{
    return assetClassLabel(assetClassOf(symbol));
}

QString assetClassId(const QString &symbol)
{
    return QLatin1String(traitsOf(assetClassOf(symbol)).id);
}

QString marketLabelForSymbol(const QString &symbol)
{
    const AssetClass assetClass = assetClassOf(symbol);
    if (assetClass == AssetClass::UsEquity && symbol.startsWith(QLatin1Char('^')))
        return QStringLiteral("US Index"); // a label only: indexes stay in the US Equity class
    return QLatin1String(traitsOf(assetClass).market);
}

QString venueForSymbol(const QString &symbol)
{
    return QLatin1String(traitsOf(assetClassOf(symbol)).venue);
}

QString currencyForSymbol(const QString &symbol)
{
    return QLatin1String(traitsOf(assetClassOf(symbol)).currency);
}

int assetMarketIndex(const QString &symbol)
{
    return static_cast<int>(assetClassOf(symbol));
}

int marketIndexForClassLabel(const QString &label)
{
    for (int index = 0; index < int(std::size(kTraits)); ++index) {
        if (label == QLatin1String(kTraits[index].label))
            return index;
    }
    return static_cast<int>(AssetClass::Forex); // any other label routes as forex
}

QString displaySymbol(const QString &symbol)
{
    if (symbol == QLatin1String("BRL=X"))
        return QStringLiteral("USD/BRL");
    // Only the real gets the USD/ form; "JPY=X" stays as it is.
    if (symbol.endsWith(kForexSuffix) && symbol.size() - kForexSuffix.size() == 6)
        return symbol.left(3) + QLatin1Char('/') + symbol.mid(3, 3);
    return symbol;
}

QString providerForexPair(const QString &input)
{
    return displaySymbol(input.trimmed().toUpper());
}

QString yahooCryptoSymbol(const QString &symbol)
{
    if (symbol.endsWith(QLatin1String("USDT")) && symbol.size() > 4)
        return symbol.chopped(4) + QStringLiteral("-USD");
    return symbol;
}

bool isCurrencyCode(const QString &code)
{
    return currencyCodes().contains(code);
}

QString normalizeForexSymbol(const QString &text)
{
    QString base;
    QString quote;
    if (text.endsWith(kForexSuffix)) {
        const QString pair = text.chopped(kForexSuffix.size());
        if (pair.size() == 6 && pair.left(3) == kUsd && isCurrencyCode(pair.mid(3)))
            return pair.mid(3) + kForexSuffix; // USDBRL=X -> BRL=X
        return text;
    }
    if (text.contains(QLatin1Char('/'))) {
        const QStringList parts = text.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (parts.size() != 2)
            return {};
        base = parts.at(0);
        quote = parts.at(1);
    } else {
        if (text.size() != 6)
            return {};
        base = text.left(3);
        quote = text.mid(3);
    }
    if (!isCurrencyCode(base) || !isCurrencyCode(quote) || base == quote)
        return {};
    return base == kUsd ? quote + kForexSuffix : base + quote + kForexSuffix;
}

QString normalizeSymbolInput(const QString &text, const QStringList &cryptoBaseAssets,
                             const QStringList &b3ShortTickers)
{
    QString symbol = text.trimmed().toUpper();
    const qsizetype marker = symbol.indexOf(kCompleterLabelMarker);
    if (marker >= 0)
        symbol = symbol.left(marker).trimmed();
    symbol = withoutBlanks(symbol);
    if (symbol.isEmpty())
        return {};

    // Forex first: a six-letter text of two currency codes is always a pair.
    const QString forex = normalizeForexSymbol(symbol);
    if (!forex.isEmpty())
        return forex;

    const QStringList &bases =
            cryptoBaseAssets.isEmpty() ? builtinCryptoBaseAssets() : cryptoBaseAssets;
    if (bases.contains(symbol))
        return symbol + QStringLiteral("USDT");
    // A bare ticker is completed only when it is known: an unknown XYZW3 stays as typed.
    if (!symbol.contains(QLatin1Char('.')) && b3ShortTickers.contains(symbol))
        return symbol + QStringLiteral(".SA");
    return symbol;
}

bool isSpotUsdtPair(const QString &symbol)
{
    if (!symbol.endsWith(QLatin1String("USDT")))
        return false;
    for (const char *marker : {"UPUSDT", "DOWNUSDT", "BULLUSDT", "BEARUSDT"}) {
        if (symbol.contains(QLatin1String(marker)))
            return false;
    }
    return true;
}

bool symbolMatchesScope(const QString &symbol, const QString &scope)
{
    if (scope == QLatin1String("all"))
        return true;
    const QString id = assetClassId(symbol);
    if (scope == QLatin1String("br"))
        return id == QLatin1String("equity_br");
    if (scope == QLatin1String("us"))
        return id == QLatin1String("equity_us");
    return id == scope;
}

const QStringList &builtinCryptoBaseAssets()
{
    static const QStringList bases{
            QStringLiteral("BTC"),   QStringLiteral("ETH"),  QStringLiteral("BNB"),
            QStringLiteral("SOL"),   QStringLiteral("XRP"),  QStringLiteral("ADA"),
            QStringLiteral("DOGE"),  QStringLiteral("AVAX"), QStringLiteral("LINK"),
            QStringLiteral("MATIC"), QStringLiteral("DOT"),  QStringLiteral("LTC"),
            QStringLiteral("TRX"),   QStringLiteral("BCH"),  QStringLiteral("NEAR"),
            QStringLiteral("ATOM"),  QStringLiteral("APT"),  QStringLiteral("ARB"),
            QStringLiteral("OP"),    QStringLiteral("SUI"),  QStringLiteral("INJ"),
            QStringLiteral("FIL"),   QStringLiteral("UNI"),  QStringLiteral("AAVE"),
    };
    return bases;
}
