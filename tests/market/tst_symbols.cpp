#include "market/symbols.h"
#include "market/universe.h"

#include <QTest>

class SymbolsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void userInputBecomesCanonicalSymbol_data();
    void userInputBecomesCanonicalSymbol();
    void forexTextsNormalise_data();
    void forexTextsNormalise();
    void classAndLabelsFollowTheSuffix_data();
    void classAndLabelsFollowTheSuffix();
    void forexShownAsBaseSlashQuote_data();
    void forexShownAsBaseSlashQuote();
    void yahooCryptoSymbols_data();
    void yahooCryptoSymbols();
    void spotUsdtPairsExcludeLeveragedTokens_data();
    void spotUsdtPairsExcludeLeveragedTokens();
    void scopesMatchClassIds_data();
    void scopesMatchClassIds();
    void unknownClassLabelRoutesAsForex();

private:
    SymbolUniverse m_universe;
};

void SymbolsTest::initTestCase()
{
    m_universe.rebuild({});
}

void SymbolsTest::userInputBecomesCanonicalSymbol_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("binanceLoaded"); // the Binance USDT universe has arrived
    QTest::addColumn<QString>("symbol");

    QTest::newRow("slash pair to real") << "usd/brl" << false << "BRL=X";
    QTest::newRow("slash pair") << "eur/usd" << false << "EURUSD=X";
    QTest::newRow("six letters, usd base") << "usdjpy" << false << "JPY=X";
    QTest::newRow("same currency twice") << "usd/usd" << false << "USD/USD";
    QTest::newRow("six letters read as forex first") << "eurusd" << false << "EURUSD=X";
    QTest::newRow("three slash parts") << "eur/usd/jpy" << false << "EUR/USD/JPY";
    QTest::newRow("crypto base, built in") << "btc" << false << "BTCUSDT";
    QTest::newRow("crypto base, loaded") << "btc" << true << "BTCUSDT";
    QTest::newRow("not a built-in base") << "pepe" << false << "PEPE";
    QTest::newRow("base of the loaded list") << "pepe" << true << "PEPEUSDT";
    QTest::newRow("loaded list replaces the built-in one") << "ada" << true << "ADA";
    QTest::newRow("known b3 ticker") << "petr4" << false << "PETR4.SA";
    QTest::newRow("b3 with suffix") << "petr4.sa" << false << "PETR4.SA";
    QTest::newRow("unknown b3-like ticker") << "ABCD3" << false << "ABCD3";
    QTest::newRow("completer entry") << " PETR4.SA  (B3) " << false << "PETR4.SA";
    QTest::newRow("completer entry of a pair") << "USD/BRL  (Forex)" << false << "BRL=X";
    QTest::newRow("inner blank removed") << "BRK B" << false << "BRKB";
    QTest::newRow("tab removed") << "btc\tusdt" << false << "BTCUSDT";
    QTest::newRow("index") << "^gspc" << false << "^GSPC";
    QTest::newRow("empty") << "" << false << "";
    QTest::newRow("blanks only") << " \t  " << false << "";
}

void SymbolsTest::userInputBecomesCanonicalSymbol()
{
    QFETCH(QString, text);
    QFETCH(bool, binanceLoaded);
    QFETCH(QString, symbol);
    const QStringList loaded{QStringLiteral("BTC"), QStringLiteral("ETH"), QStringLiteral("PEPE")};
    QCOMPARE(normalizeSymbolInput(text, binanceLoaded ? loaded : QStringList(),
                                  m_universe.b3ShortTickers()),
             symbol);
}

void SymbolsTest::forexTextsNormalise_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("forex");
    QTest::newRow("usd base =X") << "USDBRL=X"
                                 << "BRL=X";
    QTest::newRow("non-usd =X stays") << "EURUSD=X"
                                      << "EURUSD=X";
    QTest::newRow("unknown code =X stays") << "XAUUSD=X"
                                           << "XAUUSD=X";
    QTest::newRow("short =X stays") << "JPY=X"
                                    << "JPY=X";
    QTest::newRow("real against dollar") << "BRL/USD"
                                         << "BRLUSD=X";
    QTest::newRow("empty slash parts dropped") << "/EUR//USD/"
                                               << "EURUSD=X";
    QTest::newRow("unknown code") << "XAU/USD"
                                  << "";
    QTest::newRow("same codes") << "EUREUR"
                                << "";
    QTest::newRow("wrong length") << "EURUSDX"
                                  << "";
    QTest::newRow("lower case is no code") << "eurusd"
                                           << "";
}

void SymbolsTest::forexTextsNormalise()
{
    QFETCH(QString, text);
    QFETCH(QString, forex);
    QCOMPARE(normalizeForexSymbol(text), forex);
}

void SymbolsTest::classAndLabelsFollowTheSuffix_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("market");
    QTest::addColumn<QString>("venue");
    QTest::addColumn<QString>("currency");
    QTest::addColumn<int>("index");

    QTest::newRow("b3") << "PETR4.SA"
                        << "BR Equity"
                        << "equity_br"
                        << "B3"
                        << "B3"
                        << "BRL" << 2;
    QTest::newRow("us") << "AAPL"
                        << "US Equity"
                        << "equity_us"
                        << "US"
                        << "US"
                        << "USD" << 1;
    QTest::newRow("index") << "^BVSP"
                           << "US Equity"
                           << "equity_us"
                           << "US Index"
                           << "US"
                           << "USD" << 1;
    QTest::newRow("usdt") << "BTCUSDT"
                          << "Crypto"
                          << "crypto"
                          << "Crypto"
                          << "Binance"
                          << "USD" << 0;
    QTest::newRow("usdc") << "ETHUSDC"
                          << "Crypto"
                          << "crypto"
                          << "Crypto"
                          << "Binance"
                          << "USD" << 0;
    QTest::newRow("busd") << "BNBBUSD"
                          << "Crypto"
                          << "crypto"
                          << "Crypto"
                          << "Binance"
                          << "USD" << 0;
    QTest::newRow("forex") << "EURUSD=X"
                           << "Forex"
                           << "forex"
                           << "Forex"
                           << "FX"
                           << "USD" << 3;
    QTest::newRow("slash pair is not forex") << "USD/BRL"
                                             << "US Equity"
                                             << "equity_us"
                                             << "US"
                                             << "US"
                                             << "USD" << 1;
    QTest::newRow("lower-case suffix") << "petr4.sa"
                                       << "US Equity"
                                       << "equity_us"
                                       << "US"
                                       << "US"
                                       << "USD" << 1;
}

void SymbolsTest::classAndLabelsFollowTheSuffix()
{
    QFETCH(QString, symbol);
    QFETCH(QString, label);
    QFETCH(QString, id);
    QFETCH(QString, market);
    QFETCH(QString, venue);
    QFETCH(QString, currency);
    QFETCH(int, index);
    QCOMPARE(assetClassForSymbol(symbol), label);
    QCOMPARE(assetClassId(symbol), id);
    QCOMPARE(marketLabelForSymbol(symbol), market);
    QCOMPARE(venueForSymbol(symbol), venue);
    QCOMPARE(currencyForSymbol(symbol), currency);
    QCOMPARE(assetMarketIndex(symbol), index);
    QCOMPARE(marketIndexForClassLabel(label), index);
}

void SymbolsTest::forexShownAsBaseSlashQuote_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("shown");
    QTest::newRow("real") << "BRL=X"
                          << "USD/BRL";
    QTest::newRow("pair") << "EURUSD=X"
                          << "EUR/USD";
    QTest::newRow("real against dollar") << "BRLUSD=X"
                                         << "BRL/USD";
    QTest::newRow("only the real gets USD/") << "JPY=X"
                                             << "JPY=X";
    QTest::newRow("equity") << "PETR4.SA"
                            << "PETR4.SA";
}

void SymbolsTest::forexShownAsBaseSlashQuote()
{
    QFETCH(QString, symbol);
    QFETCH(QString, shown);
    QCOMPARE(displaySymbol(symbol), shown);
    QCOMPARE(providerForexPair(QLatin1Char(' ') + symbol.toLower() + QLatin1Char(' ')), shown);
}

void SymbolsTest::yahooCryptoSymbols_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("yahoo");
    QTest::newRow("pair") << "BTCUSDT"
                          << "BTC-USD";
    QTest::newRow("bare quote asset") << "USDT"
                                      << "USDT";
    QTest::newRow("not usdt") << "ETHUSDC"
                              << "ETHUSDC";
}

void SymbolsTest::yahooCryptoSymbols()
{
    QFETCH(QString, symbol);
    QFETCH(QString, yahoo);
    QCOMPARE(yahooCryptoSymbol(symbol), yahoo);
}

void SymbolsTest::spotUsdtPairsExcludeLeveragedTokens_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<bool>("spot");
    QTest::newRow("spot") << "BTCUSDT" << true;
    QTest::newRow("up token") << "ETHUPUSDT" << false;
    QTest::newRow("down token") << "BTCDOWNUSDT" << false;
    QTest::newRow("bull token") << "BNBBULLUSDT" << false;
    QTest::newRow("bear token") << "XRPBEARUSDT" << false;
    QTest::newRow("usdc pair") << "ETHUSDC" << false;
}

void SymbolsTest::spotUsdtPairsExcludeLeveragedTokens()
{
    QFETCH(QString, symbol);
    QFETCH(bool, spot);
    QCOMPARE(isSpotUsdtPair(symbol), spot);
}

void SymbolsTest::scopesMatchClassIds_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("scope");
    QTest::addColumn<bool>("matches");
    QTest::newRow("all") << "EURUSD=X"
                         << "all" << true;
    QTest::newRow("br") << "PETR4.SA"
                        << "br" << true;
    QTest::newRow("br rejects us") << "AAPL"
                                   << "br" << false;
    QTest::newRow("us takes indexes") << "^GSPC"
                                      << "us" << true;
    QTest::newRow("crypto") << "BTCUSDT"
                            << "crypto" << true;
    QTest::newRow("forex") << "BRL=X"
                           << "forex" << true;
    QTest::newRow("class id as scope") << "PETR4.SA"
                                       << "equity_br" << true;
    QTest::newRow("unknown scope") << "AAPL"
                                   << "bonds" << false;
}

void SymbolsTest::scopesMatchClassIds()
{
    QFETCH(QString, symbol);
    QFETCH(QString, scope);
    QFETCH(bool, matches);
    QCOMPARE(symbolMatchesScope(symbol, scope), matches);
}

void SymbolsTest::unknownClassLabelRoutesAsForex()
{
    QCOMPARE(marketIndexForClassLabel(QStringLiteral("Bonds")), 3);
    QCOMPARE(marketIndexForClassLabel(QString()), 3);
}

QTEST_GUILESS_MAIN(SymbolsTest)
#include "tst_symbols.moc"
