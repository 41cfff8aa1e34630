#pragma once

#include <QString>
#include <QStringList>

// Every instrument is one upper-case symbol in the Yahoo Finance style: "PETR4.SA", "AAPL",
// "BTCUSDT", "EURUSD=X". Its asset class is recomputed from the text each time and never stored.
// Callers pass upper-case symbols; all suffix tests are case-sensitive.

// The market index is the routing key of the provider chains.
enum class AssetClass {
    Crypto = 0,
    UsEquity = 1,
    BrEquity = 2,
    Forex = 3,
};

AssetClass assetClassOf(const QString &symbol);
QString assetClassLabel(AssetClass assetClass); // "BR Equity", "US Equity", "Crypto", "Forex"

QString assetClassForSymbol(const QString &symbol);  // the class label
QString assetClassId(const QString &symbol);         // equity_br, equity_us, crypto, forex
QString marketLabelForSymbol(const QString &symbol); // "B3", "US", "US Index", "Crypto", "Forex"
QString venueForSymbol(const QString &symbol);       // "B3", "US", "Binance", "FX"
QString currencyForSymbol(const QString &symbol);    // "BRL" for B3 shares, else "USD"
int assetMarketIndex(const QString &symbol);
// A class label's market index; any label that is none of the first three maps to 3.
int marketIndexForClassLabel(const QString &label);

QString displaySymbol(const QString &symbol);     // "EURUSD=X" -> "EUR/USD", "BRL=X" -> "USD/BRL"
QString providerForexPair(const QString &input);  // displaySymbol of the trimmed, upper-cased input
QString yahooCryptoSymbol(const QString &symbol); // "BTCUSDT" -> "BTC-USD"

bool isCurrencyCode(const QString &code);
// The canonical "=X" symbol of a currency pair, or empty when the text is no pair. The text is
// already trimmed, upper case and without blanks.
QString normalizeForexSymbol(const QString &text);

// The one entry for everything a user types or a file supplies; empty when the text is unusable.
// `cryptoBaseAssets` are the base assets of the loaded Binance pairs (the built-in bases apply
// while that list is empty); `b3ShortTickers` are the known B3 tickers without ".SA".
QString normalizeSymbolInput(const QString &text, const QStringList &cryptoBaseAssets,
                             const QStringList &b3ShortTickers);

bool isSpotUsdtPair(const QString &symbol); // USDT pairs that are not leveraged tokens
// Scopes of the movers and the screener: "all", "br", "us", or a class id ("crypto", "forex").
bool symbolMatchesScope(const QString &symbol, const QString &scope);

const QStringList &builtinCryptoBaseAssets();
