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
    void classAndLabelsFollowTheSuffix_data();
    void classAndLabelsFollowTheSuffix();
    void textRules_data();
    void textRules();

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

// One-argument text rules, one row per case: the rule, its input and what it must give.
void SymbolsTest::textRules_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *rule, const char *input, const char *expected) {
        QTest::addRow("%s %s", rule, input) << rule << input << expected;
    };
    // forex: canonical "=X" symbol of a trimmed, upper-case pair text; empty for no pair
    row("forex", "USDBRL=X", "BRL=X");
    row("forex", "EURUSD=X", "EURUSD=X");
    row("forex", "XAUUSD=X", "XAUUSD=X"); // unknown code, but it ends with =X
    row("forex", "JPY=X", "JPY=X");
    row("forex", "BRL/USD", "BRLUSD=X");
    row("forex", "/EUR//USD/", "EURUSD=X");
    row("forex", "XAU/USD", "");
    row("forex", "EUREUR", "");
    row("forex", "EURUSDX", "");
    row("forex", "eurusd", "");
    // display: only the real gets the USD/ form
    row("display", "BRL=X", "USD/BRL");
    row("display", "EURUSD=X", "EUR/USD");
    row("display", "BRLUSD=X", "BRL/USD");
    row("display", "JPY=X", "JPY=X");
    row("display", "PETR4.SA", "PETR4.SA");
    row("providerPair", " eurusd=x ", "EUR/USD");
    row("providerPair", "brl=x", "USD/BRL");
    row("yahooCrypto", "BTCUSDT", "BTC-USD");
    row("yahooCrypto", "USDT", "USDT");
    row("yahooCrypto", "ETHUSDC", "ETHUSDC");
    // spot: USDT pairs that are no leveraged tokens
    row("spot", "BTCUSDT", "true");
    row("spot", "ETHUPUSDT", "false");
    row("spot", "BTCDOWNUSDT", "false");
    row("spot", "BNBBULLUSDT", "false");
    row("spot", "XRPBEARUSDT", "false");
    row("spot", "ETHUSDC", "false");
    // scope: "symbol|scope"
    row("scope", "EURUSD=X|all", "true");
    row("scope", "PETR4.SA|br", "true");
    row("scope", "AAPL|br", "false");
    row("scope", "^GSPC|us", "true");
    row("scope", "BTCUSDT|crypto", "true");
    row("scope", "BRL=X|forex", "true");
    row("scope", "PETR4.SA|equity_br", "true");
    row("scope", "AAPL|bonds", "false");
    // class label to market index: anything unknown routes as forex
    row("labelIndex", "Bonds", "3");
    row("labelIndex", "", "3");
}

void SymbolsTest::textRules()
{
    QFETCH(QString, rule);
    QFETCH(QString, input);
    QFETCH(QString, expected);
    const auto flag = [](bool value) {
        return value ? QStringLiteral("true") : QStringLiteral("false");
    };
    QString actual;
    if (rule == "forex")
        actual = normalizeForexSymbol(input);
    else if (rule == "display")
        actual = displaySymbol(input);
    else if (rule == "providerPair")
        actual = providerForexPair(input);
    else if (rule == "yahooCrypto")
        actual = yahooCryptoSymbol(input);
    else if (rule == "spot")
        actual = flag(isSpotUsdtPair(input));
    else if (rule == "scope")
        actual = flag(symbolMatchesScope(input.section('|', 0, 0), input.section('|', 1)));
    else if (rule == "labelIndex")
        actual = QString::number(marketIndexForClassLabel(input));
    else
        QFAIL("unknown rule");
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(SymbolsTest)
#include "tst_symbols.moc"
