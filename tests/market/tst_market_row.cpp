#include "app/language.h"
#include "market/market_row.h"
#include "market/watchlist.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <cmath>
#include <limits>

class MarketRowTest : public QObject
{
    Q_OBJECT

private slots:
    void numbersKeepTheirDecimals_data();
    void numbersKeepTheirDecimals();
    void changeCellsAreColouredByDirection_data();
    void changeCellsAreColouredByDirection();
    void statusWordsTravelBothWays_data();
    void statusWordsTravelBothWays();
    void presetsHideTheirColumns_data();
    void presetsHideTheirColumns();
    void hiddenColumnsNeverIncludeTheSymbol_data();
    void hiddenColumnsNeverIncludeTheSymbol();
    void storedProvidersBecomeSourceLabels_data();
    void storedProvidersBecomeSourceLabels();
    void watchlistDocumentRoundTrips();
    void unusableWatchlistsGiveNoEntries_data();
    void unusableWatchlistsGiveNoEntries();
    void headersFollowTheLanguage();
};

void MarketRowTest::numbersKeepTheirDecimals_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("number");
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("amount");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    QTest::newRow("just below 1000") << 999.99 << "999.9900"
                                     << "999.99%"
                                     << "999.99";
    QTest::newRow("999.5") << 999.5 << "999.5000"
                           << "999.50%"
                           << "999.50";
    QTest::newRow("1000") << 1000.0 << "1000.00"
                          << "1000.00%"
                          << "1.00K";
    QTest::newRow("large") << 82574.255 << "82574.26"
                           << "82574.26%"
                           << "82.57K";
    QTest::newRow("negative large") << -1000.0 << "-1000.00"
                                    << "-1000.00%"
                                    << "-1.00K";
    QTest::newRow("small") << 0.00012 << "0.0001"
                           << "0.00%"
                           << "0.00";
    QTest::newRow("negative change") << -0.4 << "-0.4000"
                                     << "-0.40%"
                                     << "-0.40";
    QTest::newRow("NaN") << nan << "--"
                         << "--"
                         << "--";
    QTest::newRow("infinite") << inf << "--"
                              << "--"
                              << "--";
    QTest::newRow("volume") << 45976053.0 << "45976053.00"
                            << "45976053.00%"
                            << "45.98M";
    QTest::newRow("turnover") << 1635793874.5 << "1635793874.50"
                              << "1635793874.50%"
                              << "1.64B";
}

void MarketRowTest::numbersKeepTheirDecimals()
{
    QFETCH(double, value);
    QFETCH(QString, number);
    QFETCH(QString, change);
    QFETCH(QString, amount);
    QCOMPARE(formatMarketNumber(value), number);
    QCOMPARE(formatChangePercent(value), change);
    QCOMPARE(formatLargeAmount(value), amount);
}

void MarketRowTest::changeCellsAreColouredByDirection_data()
{
    QTest::addColumn<double>("change");
    QTest::addColumn<QString>("color");
    QTest::newRow("gain") << 1.25 << "#20c878";
    QTest::newRow("zero counts as a gain") << 0.0 << "#20c878";
    QTest::newRow("negative zero") << -0.0 << "#20c878";
    QTest::newRow("small loss") << -0.01 << "#f45d5d";
    QTest::newRow("unknown") << std::numeric_limits<double>::quiet_NaN() << "#d8e6e3";
}

void MarketRowTest::changeCellsAreColouredByDirection()
{
    QFETCH(double, change);
    QFETCH(QString, color);
    QCOMPARE(changeColor(change).name(), color);
}

void MarketRowTest::statusWordsTravelBothWays_data()
{
    QTest::addColumn<QString>("written");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("portuguese");
    const char *pairs[][2] = {
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
    for (const auto &pair : pairs) {
        const QString english = QString::fromUtf8(pair[0]);
        const QString portuguese = QString::fromUtf8(pair[1]);
        QTest::addRow("%s from English", pair[0]) << english << english << portuguese;
        QTest::addRow("%s from Portuguese", pair[0]) << portuguese << english << portuguese;
    }
    QTest::newRow("unknown word kept") << "all providers failed"
                                       << "all providers failed"
                                       << "all providers failed";
    QTest::newRow("case matters") << "Loading"
                                  << "Loading"
                                  << "Loading";
}

void MarketRowTest::statusWordsTravelBothWays()
{
    QFETCH(QString, written);
    QFETCH(QString, english);
    QFETCH(QString, portuguese);
    QCOMPARE(canonicalStatusWord(written), english);
    QCOMPARE(localizedStatusWord(written, false), english);
    QCOMPARE(localizedStatusWord(written, true), portuguese);
}

void MarketRowTest::presetsHideTheirColumns_data()
{
    QTest::addColumn<QString>("preset");
    QTest::addColumn<QList<int>>("visible");
    QTest::newRow("all") << "all"
                         << QList<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    QTest::newRow("trading") << "trading" << QList<int>{0, 1, 2, 3, 4, 5, 6, 7, 12, 13, 14, 15};
    QTest::newRow("analytics") << "analytics" << QList<int>{0, 1, 6, 7, 8, 9, 10, 11, 12, 15};
    QTest::newRow("compact") << "compact" << QList<int>{0, 6, 7, 12, 14};
    QTest::newRow("anything else is compact") << "All" << QList<int>{0, 6, 7, 12, 14};
}

void MarketRowTest::presetsHideTheirColumns()
{
    QFETCH(QString, preset);
    QFETCH(QList<int>, visible);
    const QSet<int> hidden = hiddenColumnsForPreset(preset);
    QCOMPARE(hidden.size(), MarketColumnCount - visible.size());
    for (int column = 0; column < MarketColumnCount; ++column)
        QCOMPARE(hidden.contains(column), !visible.contains(column));
}

void MarketRowTest::hiddenColumnsNeverIncludeTheSymbol_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("kept");
    QTest::newRow("symbol, out of range and garbage") << "0,3,16,x"
                                                      << "3";
    QTest::newRow("blanks and both ends") << "3, 0, 16, x, 15"
                                          << "3,15";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("duplicates and order") << "15,2,2,-1"
                                          << "2,15";
    QTest::newRow("fractions") << "2.5,4"
                               << "4";
}

void MarketRowTest::hiddenColumnsNeverIncludeTheSymbol()
{
    QFETCH(QString, text);
    QFETCH(QString, kept);
    QCOMPARE(hiddenColumnsText(parseHiddenColumns(text)), kept);
}

void MarketRowTest::storedProvidersBecomeSourceLabels_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("symbol");
    QTest::addColumn<QString>("label");
    QTest::newRow("crypto") << "binance"
                            << "BTCUSDT"
                            << "Binance WS";
    QTest::newRow("b3") << "brapi"
                        << "PETR4.SA"
                        << "BrAPI";
    QTest::newRow("us") << "yahoo"
                        << "AAPL"
                        << "Yahoo";
    QTest::newRow("cascade id") << "finnhub"
                                << "AAPL"
                                << "Finnhub";
    QTest::newRow("upper case") << "BRAPI"
                                << "VALE3.SA"
                                << "BrAPI";
    QTest::newRow("unknown id") << "bloomberg"
                                << "PETR4.SA"
                                << "BrAPI";
    QTest::newRow("empty id") << ""
                              << "ETHUSDT"
                              << "Binance WS";
    QTest::newRow("wrong class") << "binance"
                                 << "AAPL"
                                 << "Yahoo";
    QTest::newRow("forex") << "twelvedata"
                           << "BRL=X"
                           << "Twelve Data";
}

void MarketRowTest::storedProvidersBecomeSourceLabels()
{
    QFETCH(QString, provider);
    QFETCH(QString, symbol);
    QFETCH(QString, label);
    QCOMPARE(sourceLabelForProvider(provider, symbol), label);
}

void MarketRowTest::watchlistDocumentRoundTrips()
{
    const QJsonObject document =
            watchlistDocument({QStringLiteral("PETR4.SA"), QStringLiteral("BTCUSDT"),
                               QStringLiteral("BRL=X"), QStringLiteral("AAPL")});
    QCOMPARE(document.value("name").toString(), QStringLiteral("Default"));
    const QJsonArray rows = document.value("symbols").toArray();
    QCOMPARE(rows.size(), 4);
    QCOMPARE(rows.at(0).toObject(),
             (QJsonObject{
                     {"symbol", "PETR4.SA"}, {"asset_class", "equity_br"}, {"provider", "brapi"}}));
    QCOMPARE(rows.at(1).toObject().value("provider").toString(), QStringLiteral("binance"));
    QCOMPARE(rows.at(2).toObject().value("asset_class").toString(), QStringLiteral("forex"));
    QCOMPARE(rows.at(3).toObject().value("provider").toString(), QStringLiteral("yahoo"));

    const QList<WatchlistEntry> entries = readWatchlistEntries(QJsonDocument(document).toJson());
    QCOMPARE(entries.size(), 4);
    QCOMPARE(entries.at(2).symbol, QStringLiteral("BRL=X"));
    QCOMPARE(entries.at(0).provider, QStringLiteral("brapi"));
}

void MarketRowTest::unusableWatchlistsGiveNoEntries_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("entries");
    QTest::newRow("empty list") << QByteArray(R"({"name":"Default","symbols":[]})") << 0;
    QTest::newRow("truncated") << QByteArray(R"({"name":"Default","symbols":[{"symbol":"AA)") << 0;
    QTest::newRow("not json") << QByteArray("\x00\xff garbage", 10) << 0;
    QTest::newRow("array document") << QByteArray(R"([{"symbol":"AAPL"}])") << 0;
    QTest::newRow("symbols is an object") << QByteArray(R"({"symbols":{"symbol":"AAPL"}})") << 0;
    QTest::newRow("wrong element types")
            << QByteArray(R"({"symbols":[1,"AAPL",null,{"symbol":7},{"symbol":"NVDA"}]})") << 2;
}

void MarketRowTest::unusableWatchlistsGiveNoEntries()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, entries);
    QCOMPARE(readWatchlistEntries(bytes).size(), entries);
}

void MarketRowTest::headersFollowTheLanguage()
{
    QCOMPARE(marketColumnHeader(SmaColumn, 20, 9), QStringLiteral("SMA20"));
    QCOMPARE(marketColumnHeader(EmaColumn, 20, 9), QStringLiteral("EMA9"));
    QCOMPARE(marketColumnHeader(LastColumn, 20, 20), QStringLiteral("Last"));
    setInterfaceLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(marketColumnHeader(LastColumn, 20, 20), QStringLiteral("Último"));
    QCOMPARE(marketColumnHeader(UpdatedColumn, 20, 20), QStringLiteral("Atualizado"));
    QCOMPARE(marketColumnHeader(StatusColumn, 20, 20), QStringLiteral("Status"));
    QCOMPARE(localizedStatusWord(QStringLiteral("loading")), QStringLiteral("carregando"));
    setInterfaceLanguage(QStringLiteral("en"));
}

QTEST_GUILESS_MAIN(MarketRowTest)
#include "tst_market_row.moc"
