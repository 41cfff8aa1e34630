#include "app/language.h"
#include "overview/screener.h"

#include <QJsonObject>
#include <QTest>

#include <cmath>

namespace {

MarketQuote quote(const QString &symbol, double price, double change, const QString &source)
{
    MarketQuote result;
    result.symbol = symbol;
    result.price = price;
    result.changePercent = change;
    result.source = source;
    return result;
}

MoverRecord mover(const QString &symbol, double price, double change, double volume = qQNaN())
{
    MoverRecord result;
    result.symbol = symbol;
    result.price = price;
    result.change = change;
    result.volume = volume;
    return result;
}

QStringList symbolsOf(const QList<ScreenerRow> &rows)
{
    QStringList symbols;
    for (const ScreenerRow &row : rows)
        symbols << row.symbol;
    return symbols;
}

// A universe of one symbol per class, with changes of both signs around the thresholds.
ScreenerInputs sampleInputs()
{
    ScreenerInputs inputs;
    inputs.universe = {QStringLiteral("PETR4.SA"), QStringLiteral("AAPL"),
                       QStringLiteral("BTCUSDT"),  QStringLiteral("EURUSD=X"),
                       QStringLiteral("VALE3.SA"), QStringLiteral("MSFT"),
                       QStringLiteral("AAPL")};
    inputs.watchlist = {quote(QStringLiteral("BTCUSDT"), 65000, 1.9, QStringLiteral("Binance WS")),
                        quote(QStringLiteral("PETR4.SA"), 38.5, -2.5, QStringLiteral("brapi")),
                        quote(QStringLiteral("AAPL"), qQNaN(), qQNaN(), QString())};
    inputs.movers.insert(QStringLiteral("AAPL"), mover(QStringLiteral("AAPL"), 190, -2.0, 5e7));
    inputs.movers.insert(QStringLiteral("VALE3.SA"), mover(QStringLiteral("VALE3.SA"), 0, 3.1));
    inputs.movers.insert(QStringLiteral("BTCUSDT"), mover(QStringLiteral("BTCUSDT"), 1, -9, 123));
    inputs.moverSources.insert(QStringLiteral("AAPL"), QStringLiteral("US delayed"));
    inputs.localSeries.insert(QStringLiteral("BTCUSDT"),
                              {Candle{1, 1, 1, 1, 1, 10}, Candle{2, 1, 1, 1, 1, 42.5}});
    return inputs;
}

} // namespace

class ScreenerTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }
    void changeThresholdOfEitherSign_data();
    void changeThresholdOfEitherSign();
    void scopeAssetAndSearchFilters_data();
    void scopeAssetAndSearchFilters();
    void watchlistCellsComeBeforeMovers();
    void unknownChangeIsNotLoadedAndDroppedByAnyMinimum();
    void settingsAcceptOnlyListedValues();
};

void ScreenerTest::changeThresholdOfEitherSign_data()
{
    QTest::addColumn<double>("change");
    QTest::addColumn<double>("minimum");
    QTest::addColumn<bool>("passes");
    QTest::newRow("fall counts toward a positive minimum") << -2.5 << 2.0 << true;
    QTest::newRow("short of a positive minimum") << 1.9 << 2.0 << false;
    QTest::newRow("exactly the positive minimum") << 2.0 << 2.0 << true;
    QTest::newRow("rise under a negative minimum") << 3.0 << -2.0 << false;
    QTest::newRow("exactly the negative minimum") << -2.0 << -2.0 << true;
    QTest::newRow("shallow fall under a negative minimum") << -1.99 << -2.0 << false;
    QTest::newRow("zero is no filter") << qQNaN() << 0.0 << true;
    QTest::newRow("unknown with a minimum") << qQNaN() << 0.5 << false;
}

void ScreenerTest::changeThresholdOfEitherSign()
{
    QFETCH(double, change);
    QFETCH(double, minimum);
    QFETCH(bool, passes);
    QCOMPARE(screenerChangePasses(change, minimum), passes);
}

void ScreenerTest::scopeAssetAndSearchFilters_data()
{
    QTest::addColumn<QString>("scope");
    QTest::addColumn<QString>("asset");
    QTest::addColumn<QString>("search");
    QTest::addColumn<double>("minimum");
    QTest::addColumn<QStringList>("symbols");
    QTest::newRow("watchlist, sorted") << "watchlist"
                                       << "all"
                                       << "" << 0.0 << QStringList{"AAPL", "BTCUSDT", "PETR4.SA"};
    QTest::newRow("universe without duplicates")
            << "universe"
            << "all"
            << "" << 0.0
            << QStringList{"AAPL", "BTCUSDT", "EURUSD=X", "MSFT", "PETR4.SA", "VALE3.SA"};
    QTest::newRow("brazil") << "universe"
                            << "br"
                            << "" << 0.0 << QStringList{"PETR4.SA", "VALE3.SA"};
    QTest::newRow("us") << "universe"
                        << "us"
                        << "" << 0.0 << QStringList{"AAPL", "MSFT"};
    QTest::newRow("forex") << "universe"
                           << "forex"
                           << "" << 0.0 << QStringList{"EURUSD=X"};
    QTest::newRow("search ignores case and blanks") << "universe"
                                                    << "all"
                                                    << "  bt " << 0.0 << QStringList{"BTCUSDT"};
    QTest::newRow("minimum 2 keeps moves of either sign")
            << "universe"
            << "all"
            << "" << 2.0 << QStringList{"AAPL", "PETR4.SA", "VALE3.SA"};
    QTest::newRow("minimum -2 keeps fallers only") << "universe"
                                                   << "all"
                                                   << "" << -2.0 << QStringList{"AAPL", "PETR4.SA"};
}

void ScreenerTest::scopeAssetAndSearchFilters()
{
    QFETCH(QString, scope);
    QFETCH(QString, asset);
    QFETCH(QString, search);
    QFETCH(double, minimum);
    QFETCH(QStringList, symbols);
    const ScreenerFilters filters{scope, asset, minimum, search};
    QCOMPARE(symbolsOf(screenerRows(sampleInputs(), filters)), symbols);
}

void ScreenerTest::watchlistCellsComeBeforeMovers()
{
    ScreenerFilters filters;
    filters.scope = QStringLiteral("universe");
    const QList<ScreenerRow> rows = screenerRows(sampleInputs(), filters);
    QHash<QString, ScreenerRow> bySymbol;
    for (const ScreenerRow &row : rows)
        bySymbol.insert(row.symbol, row);

    // The row's own cells win over the movers cache; the local series' last bar gives the volume.
    const ScreenerRow btc = bySymbol.value(QStringLiteral("BTCUSDT"));
    QCOMPARE(btc.last, 65000.0);
    QCOMPARE(btc.change, 1.9);
    QCOMPARE(btc.volume, 42.5);
    QCOMPARE(btc.source, QStringLiteral("Binance WS"));
    QCOMPARE(btc.market, QStringLiteral("Binance"));

    // Empty cells of a watchlist row fall back to the movers cache; the Source stays the row's.
    const ScreenerRow apple = bySymbol.value(QStringLiteral("AAPL"));
    QCOMPARE(apple.last, 190.0);
    QCOMPARE(apple.change, -2.0);
    QCOMPARE(apple.volume, 5e7);
    QVERIFY(apple.inWatchlist);
    QVERIFY(apple.source != QStringLiteral("US delayed"));
    QVERIFY(!apple.source.isEmpty());

    // Outside the watchlist: a price of 0 is no price, and no recorded source is the snapshot.
    const ScreenerRow vale = bySymbol.value(QStringLiteral("VALE3.SA"));
    QVERIFY(std::isnan(vale.last));
    QCOMPARE(vale.change, 3.1);
    QCOMPARE(vale.volume, 0.0);
    QCOMPARE(vale.source, QStringLiteral("Movers snapshot"));
    QCOMPARE(vale.market, QStringLiteral("B3"));
    QCOMPARE(screenerSignal(vale.change), QStringLiteral("Strong up"));
}

void ScreenerTest::unknownChangeIsNotLoadedAndDroppedByAnyMinimum()
{
    ScreenerFilters filters;
    filters.scope = QStringLiteral("universe");
    filters.search = QStringLiteral("msft");
    const QList<ScreenerRow> rows = screenerRows(sampleInputs(), filters);
    QCOMPARE(rows.size(), 1);
    QVERIFY(std::isnan(rows.first().change));
    QCOMPARE(screenerSignal(rows.first().change), QStringLiteral("Not loaded"));
    setInterfaceLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(screenerSignal(rows.first().change), QStringLiteral("Não carregado"));

    filters.minimumChange = 0.01;
    QVERIFY(screenerRows(sampleInputs(), filters).isEmpty());
}

void ScreenerTest::settingsAcceptOnlyListedValues()
{
    const ScreenerFilters current{QStringLiteral("universe"), QStringLiteral("crypto"), 1.5,
                                  QStringLiteral("bt")};
    // Rejected values and wrong types keep what is there.
    const QJsonObject damaged{{QStringLiteral("screener_scope"), QStringLiteral("Universe")},
                              {QStringLiteral("screener_asset"), 3},
                              {QStringLiteral("screener_min_change"), 250.0}};
    QCOMPARE(readScreenerFilters(damaged, current), current);
    QCOMPARE(readScreenerFilters(QJsonObject(), current), current);

    const QJsonObject good{{QStringLiteral("screener_scope"), QStringLiteral("watchlist")},
                           {QStringLiteral("screener_asset"), QStringLiteral("br")},
                           {QStringLiteral("screener_min_change"), -2.004}};
    const ScreenerFilters read = readScreenerFilters(good, current);
    QCOMPARE(read.scope, QStringLiteral("watchlist"));
    QCOMPARE(read.asset, QStringLiteral("br"));
    QCOMPARE(read.minimumChange, -2.0);
    QCOMPARE(read.search, current.search);
    // What is written reads back the same.
    QCOMPARE(readScreenerFilters(screenerFiltersToJson(read), ScreenerFilters()).asset,
             QStringLiteral("br"));
    QCOMPARE(readScreenerFilters(screenerFiltersToJson(current), ScreenerFilters()).minimumChange,
             1.5);
}

QTEST_GUILESS_MAIN(ScreenerTest)
#include "tst_screener.moc"
