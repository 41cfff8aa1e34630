#include "app/language.h"
#include "market/symbols.h"
#include "market/universe.h"
#include "support/isolated_folders.h"

#include <QFile>
#include <QTest>

class UniverseTest : public QObject
{
    Q_OBJECT

private slots:
    void builtInListHasItsFiveGroups();
    void universeFileLines_data();
    void universeFileLines();
    void garbageFilesAreReadWithoutHarm();
    void filesAreReadInOrderAndOnce();
    void onlyTheFirstSectorFileCounts();
    void sectorLines_data();
    void sectorLines();
    void rebuildSortsDeduplicatesAndFindsB3Tickers();
    void mergeAddsOnlyNewSymbols();
    void completerEntriesCarryTheMarketLabel_data();
    void completerEntriesCarryTheMarketLabel();
    void usEquityUniverseIsTheSimpleFilter();
    void sectorFallsBackToTranslatedUnclassified();
};

void UniverseTest::builtInListHasItsFiveGroups()
{
    const QStringList &list = defaultUniverseSymbols();
    QCOMPARE(list.size(), 295);
    QCOMPARE(QSet<QString>(list.begin(), list.end()).size(), 295);
    // Group boundaries: B3 122, US 125, slash pairs 12, "=X" symbols 4, USDT pairs 32.
    const QList<std::pair<int, const char *>> marks = {
            {0, "PETR3.SA"}, {121, "XPBR31.SA"}, {122, "AAPL"},    {152, "BRK-B"},
            {246, "HYG"},    {247, "USD/BRL"},   {258, "GBP/BRL"}, {259, "BRL=X"},
            {262, "JPY=X"},  {263, "BTCUSDT"},   {294, "FETUSDT"},
    };
    for (const auto &[index, symbol] : marks)
        QCOMPARE(list.at(index), QString::fromLatin1(symbol));
    for (const QString &symbol : list) {
        QVERIFY2(!symbol.startsWith(QLatin1Char('^')), qPrintable(symbol));
        QCOMPARE(symbol, symbol.trimmed().toUpper());
    }
}

void UniverseTest::universeFileLines_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QStringList>("symbols");
    QTest::newRow("header, entry and comment")
            << QByteArray("symbol;name\naapl;Apple\n# comment\n") << QStringList{"AAPL"};
    QTest::newRow("separators") << QByteArray("msft,Microsoft\nnvda\tNvidia\n  tsla  \n")
                                << QStringList{"MSFT", "NVDA", "TSLA"};
    QTest::newRow("crlf, bom and blank lines")
            << QByteArray("\xEF\xBB\xBFSymbol,Name\r\n\r\n^bvsp,Ibovespa\r\n   \r\n")
            << QStringList{"^BVSP"};
    QTest::newRow("empty first field") << QByteArray(",orphan\n;x\n") << QStringList{};
}

void UniverseTest::universeFileLines()
{
    QFETCH(QByteArray, contents);
    QFETCH(QStringList, symbols);
    IsolatedFolders folders;
    folders.writeFile(QStringLiteral("data/universe/list.txt"), contents);
    QCOMPARE(loadUniverseFiles({QStringLiteral("data/universe")}), symbols);
}

void UniverseTest::garbageFilesAreReadWithoutHarm()
{
    IsolatedFolders folders;
    QByteArray garbage(2 * 1024 * 1024, Qt::Uninitialized);
    quint32 state = 12345;
    for (char &byte : garbage) {
        state = state * 1664525u + 1013904223u;
        byte = char(state >> 24);
    }
    folders.writeFile(QStringLiteral("u/garbage.csv"), garbage);
    folders.writeFile(QStringLiteral("u/empty.txt"), QByteArray());
    folders.writeFile(QStringLiteral("u/classification.csv"), garbage);
    const QStringList symbols = loadUniverseFiles({QStringLiteral("u")});
    QVERIFY(!symbols.isEmpty());
    for (const QString &symbol : symbols)
        QVERIFY(!symbol.isEmpty());
    readSymbolClassifications({QStringLiteral("u")});
}

void UniverseTest::filesAreReadInOrderAndOnce()
{
    IsolatedFolders folders;
    folders.writeFile(QStringLiteral("one/b.csv"), "BBB\n");
    folders.writeFile(QStringLiteral("one/a.txt"), "AAA\n");
    folders.writeFile(QStringLiteral("one/c.json"), "IGNORED\n");
    folders.writeFile(QStringLiteral("two/d.txt"), "DDD\n");
    QVERIFY(QFile::link(folders.workingFolder() + QStringLiteral("/one/a.txt"),
                        folders.workingFolder() + QStringLiteral("/two/z.txt")));

    const QStringList read = loadUniverseFiles({QStringLiteral("missing"), QStringLiteral("one"),
                                                QStringLiteral("two"), QStringLiteral("one")});
    QCOMPARE(read, (QStringList{"AAA", "BBB", "DDD"}));
}

void UniverseTest::onlyTheFirstSectorFileCounts()
{
    IsolatedFolders folders;
    folders.writeFile(QStringLiteral("first/classification.csv"), "petr4.sa,Energy\n");
    folders.writeFile(QStringLiteral("second/classification.csv"), "AAPL,Technology\n");
    const auto sectors = readSymbolClassifications(
            {QStringLiteral("none"), QStringLiteral("first"), QStringLiteral("second")});
    QCOMPARE(sectors.size(), 1);
    QCOMPARE(sectors.value(QStringLiteral("PETR4.SA")), QStringLiteral("Energy"));

    // The sector file is a universe file too.
    QCOMPARE(loadUniverseFiles({QStringLiteral("first")}), QStringList{"PETR4.SA"});
}

void UniverseTest::sectorLines_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("sector"); // empty: no entry
    QTest::newRow("header skipped") << QByteArray("symbol,sector\n") << "SYMBOL"
                                    << "";
    QTest::newRow("extra fields ignored") << QByteArray("vale3.sa, Mining ,x,y\n") << "VALE3.SA"
                                          << "Mining";
    QTest::newRow("later line wins") << QByteArray("AAPL,Tech\nAAPL,Hardware\n") << "AAPL"
                                     << "Hardware";
    QTest::newRow("one field") << QByteArray("AAPL\n") << "AAPL"
                               << "";
    QTest::newRow("empty sector") << QByteArray("AAPL, \n") << "AAPL"
                                  << "";
    QTest::newRow("comment") << QByteArray("#AAPL,Tech\n") << "#AAPL"
                             << "";
}

void UniverseTest::sectorLines()
{
    QFETCH(QByteArray, contents);
    QFETCH(QString, symbol);
    QFETCH(QString, sector);
    IsolatedFolders folders;
    folders.writeFile(QStringLiteral("u/classification.csv"), contents);
    const auto sectors = readSymbolClassifications({QStringLiteral("u")});
    QCOMPARE(sectors.value(symbol), sector);
}

void UniverseTest::rebuildSortsDeduplicatesAndFindsB3Tickers()
{
    SymbolUniverse universe;
    universe.rebuild({QStringLiteral("ABCD3.SA"), QStringLiteral("AAPL"), QStringLiteral("^BVSP")});
    const QStringList &symbols = universe.symbols();
    QCOMPARE(symbols.size(), 297);
    QCOMPARE(symbols.count(QStringLiteral("AAPL")), 1);
    for (int i = 1; i < symbols.size(); ++i)
        QVERIFY(QString::compare(symbols.at(i - 1), symbols.at(i), Qt::CaseInsensitive) <= 0);
    QCOMPARE(universe.b3ShortTickers().size(), 123);
    QVERIFY(universe.b3ShortTickers().contains(QStringLiteral("ABCD3")));
    QCOMPARE(universe.normalizeSymbolInput(QStringLiteral("abcd3")), QStringLiteral("ABCD3.SA"));
}

void UniverseTest::mergeAddsOnlyNewSymbols()
{
    SymbolUniverse universe;
    universe.rebuild({});
    QVERIFY(!universe.mergeUniverseSymbols(
            {QStringLiteral(" btcusdt "), QString(), QStringLiteral("  ")}));
    QVERIFY(universe.mergeUniverseSymbols({QStringLiteral("wifusdt"), QStringLiteral("AAAUSDT"),
                                           QStringLiteral("AAAUSDT"), QStringLiteral("ZZZZ3.SA")}));
    QCOMPARE(universe.symbols().size(), 298);
    QCOMPARE(universe.symbols().first(), QStringLiteral("AAAUSDT"));
    QVERIFY(universe.contains(QStringLiteral("WIFUSDT")));
    // Merging does not teach the B3 short tickers.
    QCOMPARE(universe.normalizeSymbolInput(QStringLiteral("zzzz3")), QStringLiteral("ZZZZ3"));
}

void UniverseTest::completerEntriesCarryTheMarketLabel_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("entry");
    QTest::newRow("b3") << "PETR4.SA"
                        << "PETR4.SA  (B3)";
    QTest::newRow("real") << "BRL=X"
                          << "USD/BRL  (Forex)";
    QTest::newRow("us") << "AAPL"
                        << "AAPL  (US)";
    QTest::newRow("slash pair keeps its class label") << "EUR/USD"
                                                      << "EUR/USD  (US)";
    QTest::newRow("index") << "^GSPC"
                           << "^GSPC  (US Index)";
    QTest::newRow("crypto") << "BTCUSDT"
                            << "BTCUSDT  (Crypto)";
}

void UniverseTest::completerEntriesCarryTheMarketLabel()
{
    QFETCH(QString, symbol);
    QFETCH(QString, entry);
    QCOMPARE(completerEntry(symbol), entry);
    SymbolUniverse universe;
    universe.rebuild({symbol});
    QVERIFY(universe.completerEntries().contains(entry));
    QCOMPARE(universe.normalizeSymbolInput(entry),
             normalizeSymbolInput(symbol, {}, universe.b3ShortTickers()));
}

void UniverseTest::usEquityUniverseIsTheSimpleFilter()
{
    SymbolUniverse universe;
    universe.rebuild({QStringLiteral("^GSPC"), QStringLiteral("ETHBUSD")});
    const QStringList us = universe.usEquityUniverse();
    for (const char *inside : {"AAPL", "BRK-B", "^GSPC", "USD/BRL", "BRL=X"})
        QVERIFY2(us.contains(QLatin1String(inside)), inside);
    for (const char *outside : {"PETR4.SA", "BTCUSDT", "ETHBUSD"})
        QVERIFY2(!us.contains(QLatin1String(outside)), outside);
    QCOMPARE(us.size(), 125 + 12 + 4 + 1);
}

void UniverseTest::sectorFallsBackToTranslatedUnclassified()
{
    SymbolUniverse universe;
    universe.setSectors({{QStringLiteral("PETR4.SA"), QStringLiteral("Energy")}});
    QCOMPARE(universe.sectorForSymbol(QStringLiteral("PETR4.SA")), QStringLiteral("Energy"));
    QCOMPARE(universe.sectorForSymbol(QStringLiteral("AAPL")), QStringLiteral("Unclassified"));
    setInterfaceLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(universe.sectorForSymbol(QStringLiteral("AAPL")), QStringLiteral("Não classificado"));
    setInterfaceLanguage(QStringLiteral("en"));
}

QTEST_GUILESS_MAIN(UniverseTest)
#include "tst_universe.moc"
