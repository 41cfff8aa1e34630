#include "app/language.h"
#include "overview/movers.h"

#include <QTest>

namespace {

MoverRecord record(const QString &symbol, double change, double volume = 1000, double price = 10)
{
    MoverRecord result;
    result.symbol = symbol;
    result.change = change;
    result.volume = volume;
    result.price = price;
    return result;
}

} // namespace

class MoversTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }
    void directionClassBoundaries_data();
    void directionClassBoundaries();
    void binanceDropsLeveragedAndDeadPairs();
    void binanceNumbersReadAsQStringDoes_data();
    void binanceNumbersReadAsQStringDoes();
    void alphaVantageAndYahooReplies();
    void localChangeLooksBackOneInterval_data();
    void localChangeLooksBackOneInterval();
    void filtersNeedVolumeTurnoverAndSector();
    void onlyOtherIntervalsUseLocalSeries();
    void breadthTilesAndCuts();
    void mosaicGridAndFill_data();
    void mosaicGridAndFill();
};

void MoversTest::directionClassBoundaries_data()
{
    QTest::addColumn<double>("change");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("portuguese");
    QTest::newRow("2.0") << 2.0 << "Strong up"
                         << "Alta forte";
    QTest::newRow("0.25") << 0.25 << "Up"
                          << "Alta";
    QTest::newRow("0.24") << 0.24 << "Flat"
                          << "Estável";
    QTest::newRow("-0.25") << -0.25 << "Down"
                           << "Baixa";
    QTest::newRow("-2.0") << -2.0 << "Strong down"
                          << "Baixa forte";
    QTest::newRow("not a number") << qQNaN() << "Flat"
                                  << "Estável";
}

void MoversTest::directionClassBoundaries()
{
    QFETCH(double, change);
    QFETCH(QString, english);
    QFETCH(QString, portuguese);
    QCOMPARE(directionClass(change), english);
    setInterfaceLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(directionClass(change), portuguese);
}

void MoversTest::binanceDropsLeveragedAndDeadPairs()
{
    const QList<MoverRecord> records = readBinanceMovers(R"([
        {"symbol":"BTCUSDT","lastPrice":"65000.10","priceChangePercent":"-1.250","quoteVolume":"1.5e9"},
        {"symbol":"ETHUPUSDT","lastPrice":"5.1","priceChangePercent":"12.0","quoteVolume":"100"},
        {"symbol":"BTCDOWNUSDT","lastPrice":"0.01","priceChangePercent":"-9.0","quoteVolume":"100"},
        {"symbol":"AAVEDOWNUSDT","lastPrice":"0.00000000","priceChangePercent":"0.000","quoteVolume":"0"},
        {"symbol":"LUNAUSDT","lastPrice":"0.00000000","priceChangePercent":"-100.000","quoteVolume":"0","count":0},
        {"symbol":"ETHBTC","lastPrice":"0.05","priceChangePercent":"1.0","quoteVolume":"10"},
        {"symbol":"SOLUSDT","lastPrice":"abc","priceChangePercent":"3.0","quoteVolume":"10"},
        {"symbol":"DOGEUSDT","lastPrice":"0.12","priceChangePercent":"4.5","quoteVolume":"2000000"}])");
    QCOMPARE(records.size(), 2);
    QCOMPARE(records.at(0).symbol, QStringLiteral("BTCUSDT"));
    QCOMPARE(records.at(0).change, -1.25);
    QCOMPARE(records.at(1).symbol, QStringLiteral("DOGEUSDT"));
    // A crypto pair's quote volume is its turnover.
    QCOMPARE(moverTurnover(records.at(1)), 2000000.0);
    QVERIFY(readBinanceMovers("<html>").isEmpty());
}

void MoversTest::binanceNumbersReadAsQStringDoes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("expected"); // NaN: the pair is dropped
    QTest::newRow("plain") << "65000.10000000" << 65000.1;
    QTest::newRow("negative") << "-3.930" << -3.93;
    QTest::newRow("integer") << "42" << 42.0;
    QTest::newRow("exponent") << "1.5e3" << 1500.0;
    QTest::newRow("spaces around") << " 2.5 " << 2.5;
    QTest::newRow("leading plus") << "+1.5" << 1.5;
    QTest::newRow("trailing point") << "5." << 5.0;
    QTest::newRow("long") << "0.000000000000000000000000000000000000000000000000000000000000000001"
                          << 1e-66;
    QTest::newRow("not a number") << "NaN" << qQNaN();
    QTest::newRow("infinite") << "1e999" << qQNaN();
    QTest::newRow("comma") << "1,5" << qQNaN();
    QTest::newRow("empty") << "" << qQNaN();
}

void MoversTest::binanceNumbersReadAsQStringDoes()
{
    QFETCH(QString, text);
    QFETCH(double, expected);
    const QByteArray body = QStringLiteral(R"([{"symbol":"BTCUSDT","lastPrice":"10",)"
                                           R"("priceChangePercent":"%1","quoteVolume":"7"}])")
                                    .arg(text)
                                    .toUtf8();
    const QList<MoverRecord> records = readBinanceMovers(body);
    if (qIsNaN(expected)) {
        QVERIFY(records.isEmpty());
        return;
    }
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.at(0).change, expected);
}

void MoversTest::alphaVantageAndYahooReplies()
{
    const QList<MoverRecord> alpha = readAlphaVantageMovers(R"({"metadata":"Top gainers",
        "top_gainers":[{"ticker":"JWSM+","price":"0.0007","change_amount":"0.0005","change_percentage":"250.0%","volume":"1000"},
                       {"ticker":"","price":"1","change_percentage":"1%","volume":"1"}],
        "top_losers":[{"ticker":"OPFI","price":"3.1","change_percentage":"-69.0492%"},
                      {"ticker":"BAD","price":"x","change_percentage":"-1%"}]})");
    QCOMPARE(alpha.size(), 2);
    QCOMPARE(alpha.at(0).change, 250.0);
    QCOMPARE(alpha.at(1).symbol, QStringLiteral("OPFI"));
    QVERIFY(std::isnan(alpha.at(1).volume)); // volume may be missing
    // A stock without a stored turnover trades price x volume.
    QCOMPARE(moverTurnover(alpha.at(0)), 0.7);

    QHash<QString, QString> sectors;
    const QList<MoverRecord> yahoo = readYahooMovers(R"({"quoteResponse":{"result":[
        {"symbol":"AAPL","regularMarketPrice":190.5,"regularMarketChangePercent":1.43,"regularMarketVolume":5e7,"sector":"Technology"},
        {"symbol":"PETR4.SA","regularMarketPrice":36.7,"regularMarketChangePercent":-0.5,"summaryProfile":{"sector":"Energy"}},
        {"symbol":"NOPE","regularMarketPrice":null}],"error":null}})",
                                                     &sectors);
    QCOMPARE(yahoo.size(), 2);
    QCOMPARE(sectors.value("AAPL"), QStringLiteral("Technology"));
    QCOMPARE(sectors.value("PETR4.SA"), QStringLiteral("Energy"));
    QCOMPARE(
            readYahooMovers(
                    R"({"results":[{"symbol":"MSFT","regularMarketPrice":400,"regularMarketChangePercent":2}]})")
                    .size(),
            1);
}

void MoversTest::localChangeLooksBackOneInterval_data()
{
    QTest::addColumn<QList<Candle>>("series");
    QTest::addColumn<double>("expected");
    const qint64 now = 1700100000;
    QTest::newRow("base at the cut-off") << QList<Candle>{{now - 7200, 0, 0, 0, 90, 0},
                                                          {now - 3600, 0, 0, 0, 100, 0},
                                                          {now - 1800, 0, 0, 0, 105, 0},
                                                          {now, 0, 0, 0, 110, 0}}
                                         << 10.0;
    QTest::newRow("all bars inside: the oldest is the base")
            << QList<Candle>{{now - 600, 0, 0, 0, 100, 0}, {now, 0, 0, 0, 102, 0}} << 2.0;
    QTest::newRow("milliseconds read as seconds")
            << QList<Candle>{{(now - 3600) * 1000, 0, 0, 0, 50, 0}, {now * 1000, 0, 0, 0, 55, 0}}
            << 10.0;
    QTest::newRow("one bar: the provider's change")
            << QList<Candle>{{now, 0, 0, 0, 110, 0}} << -3.0;
    QTest::newRow("no last price: the provider's change")
            << QList<Candle>{{now - 3600, 0, 0, 0, 100, 0}, {now, 0, 0, 0, 0, 0}} << -3.0;
}

void MoversTest::localChangeLooksBackOneInterval()
{
    QFETCH(QList<Candle>, series);
    QFETCH(double, expected);
    QCOMPARE(localMoverChange(series, moversIntervalSeconds("hour"), -3.0), expected);
}

void MoversTest::filtersNeedVolumeTurnoverAndSector()
{
    const QList<MoverRecord> records{record("AAPL", 1, 1000, 100), record("PETR4.SA", 2, 50, 36),
                                     record("VALE3.SA", 3, qQNaN(), 60)};
    const auto sectorOf = [](const QString &symbol) {
        return symbol.endsWith(".SA") ? QStringLiteral("Energy") : QStringLiteral("Technology");
    };
    QCOMPARE(filterMovers(records, {}, sectorOf).size(), 3); // no filter keeps everything
    QCOMPARE(filterMovers(records, {100, 0, "all"}, sectorOf).size(), 1);
    QCOMPARE(filterMovers(records, {0, 0, "Energy"}, sectorOf).size(), 1); // VALE3: no volume
    QCOMPARE(filterMovers(records, {0, 100001, "all"}, sectorOf).size(), 0);
    QCOMPARE(filterMovers(records, {0, 100000, "all"}, sectorOf).first().symbol,
             QStringLiteral("AAPL"));
}

void MoversTest::onlyOtherIntervalsUseLocalSeries()
{
    const qint64 now = 1700100000;
    const QHash<QString, QList<Candle>> series{
            {"BTCUSDT", {{now - 3600, 0, 0, 0, 100, 0}, {now, 0, 0, 0, 95, 0}}},
            {"ETHUSDT", {{now, 0, 0, 0, 3000, 0}}}, // one bar tells nothing
    };
    const QList<MoverRecord> records{record("BTCUSDT", 2, 10, 100), record("ETHUSDT", 1, 10, 10)};
    const auto noSector = [](const QString &) { return QString(); };

    const MoversView hour = buildMoversView(records, "hour", {}, noSector, series);
    QCOMPARE(hour.adjusted, 1);
    QCOMPARE(hour.losers.size(), 1);
    QCOMPARE(hour.losers.first().change, -5.0);
    QCOMPARE(hour.suffix, QStringLiteral(" | 1 local series adjusted, others provider daily"));

    const MoversView day = buildMoversView(records, "day", {}, noSector, series);
    QCOMPARE(day.adjusted, 0);
    QCOMPARE(day.gainers.size(), 2);
    QCOMPARE(day.suffix, QString());
}

void MoversTest::breadthTilesAndCuts()
{
    // With four records the median is the third smallest change.
    const QList<MoverRecord> four{record("A", -1), record("B", 3), record("C", 0.5),
                                  record("D", -2)};
    QCOMPARE(moversBreadth(four).median, 0.5);
    const QList<BreadthTile> tiles = breadthTiles(four);
    QCOMPARE(tiles.at(0).value, QStringLiteral("2 / 2"));
    QCOMPARE(tiles.at(0).color, QStringLiteral("#20c878"));
    QCOMPARE(tiles.at(2).value, QStringLiteral("B 3.00%"));
    QCOMPARE(tiles.at(3).value, QStringLiteral("D -2.00%"));
    QCOMPARE(tiles.at(4).value, QStringLiteral("40.00K")); // four times price 10 x volume 1000

    // 60 gainers: a table of 50, and at most 15 of them in the mosaic.
    QList<MoverRecord> many;
    for (int i = 0; i < 60; ++i)
        many << record(QStringLiteral("G%1").arg(i), 0.1 + i);
    many << record("L1", -5) << record("L2", -30) << record("Z", 0);
    const QList<MoverRecord> gainers = topGainers(many);
    const QList<MoverRecord> losers = topLosers(many);
    QCOMPARE(gainers.size(), kMoversTableLimit);
    QCOMPARE(gainers.first().symbol, QStringLiteral("G59"));
    QCOMPARE(losers.size(), 2);
    QCOMPARE(losers.first().symbol, QStringLiteral("L2"));
    const QList<MoverRecord> items = mosaicItems(gainers, losers);
    QCOMPARE(items.size(), kMosaicSideLimit + 2);
    QCOMPARE(items.first().symbol, QStringLiteral("G59"));
    QCOMPARE(items.at(15).symbol, QStringLiteral("L2")); // after the 15 larger gainers
}

void MoversTest::mosaicGridAndFill_data()
{
    QTest::addColumn<QSizeF>("size");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("tiles");
    QTest::addColumn<int>("columns");
    QTest::newRow("470 px wide: 3 columns, 255 high: 4 rows") << QSizeF(470, 255) << 30 << 12 << 3;
    QTest::newRow("471 px wide: 4 columns, 256 high: 5 rows") << QSizeF(471, 256) << 30 << 20 << 4;
    QTest::newRow("fewer items than tiles") << QSizeF(600, 300) << 6 << 6 << 4;
    QTest::newRow("no items") << QSizeF(600, 300) << 0 << 0 << 4;
}

void MoversTest::mosaicGridAndFill()
{
    QFETCH(QSizeF, size);
    QFETCH(int, count);
    QFETCH(int, tiles);
    QFETCH(int, columns);
    const QList<QRectF> rects = mosaicTiles(size, count);
    QCOMPARE(rects.size(), tiles);
    if (tiles > columns) {
        QCOMPARE(rects.at(columns).left(), rects.at(0).left()); // the next row starts again
        QCOMPARE(rects.at(columns - 1).right(), size.width() - 5);
    }
    for (const QRectF &rect : rects)
        QVERIFY(QRectF(5, 5, size.width() - 10, size.height() - 10).contains(rect));
    QCOMPARE(mosaicIntensity(0.5), 0.18);
    QCOMPARE(mosaicIntensity(36), 1.0);
    QCOMPARE(mosaicFill(-36).red, 0.68);
}

QTEST_GUILESS_MAIN(MoversTest)
#include "tst_movers.moc"
