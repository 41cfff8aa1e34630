#include "app/language.h"
#include "streams/order_book.h"

#include <QLocale>
#include <QTest>

#include <cmath>

using Levels = QList<DepthLevel>;
Q_DECLARE_METATYPE(BookSide)

namespace {

// Complete levels from (price, quantity) pairs.
Levels levels(std::initializer_list<std::pair<double, double>> pairs)
{
    Levels side;
    for (const auto &[price, quantity] : pairs)
        side.append({price, quantity, true});
    return side;
}

// `count` complete levels walking away from `best` by `gap`, each of `quantity`.
Levels ladder(double best, double gap, int count, double quantity = 1)
{
    Levels side;
    for (int i = 0; i < count; ++i)
        side.append({best + i * gap, quantity, true});
    return side;
}

QString describe(const QList<BookLevel> &buckets)
{
    QStringList parts;
    for (const BookLevel &bucket : buckets)
        parts << QString::number(bucket.price, 'g', QLocale::FloatingPointShortest) + 'x' +
                         QString::number(bucket.size);
    return parts.join(' ');
}

QStringList tileTexts(const QList<MetricTile> &tiles)
{
    QStringList texts;
    for (const MetricTile &tile : tiles)
        texts << tile.name + '=' + tile.value + ' ' + tile.color;
    return texts;
}

} // namespace

class OrderBookTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage("en"); }
    void usableNeedsFiveValidLevelsEachSide_data();
    void usableNeedsFiveValidLevelsEachSide();
    void aggregationBucketsTheFirstTenLevels_data();
    void aggregationBucketsTheFirstTenLevels();
    void tilesShowTheBook_data();
    void tilesShowTheBook();
    void presetStepIsANiceNumber_data();
    void presetStepIsANiceNumber();
    void stepSuffixAndTitles();
    void tableRowsRunTheTotal();
    void level2BookNumbers();
};

void OrderBookTest::usableNeedsFiveValidLevelsEachSide_data()
{
    QTest::addColumn<Levels>("bids");
    QTest::addColumn<Levels>("asks");
    QTest::addColumn<bool>("usable");

    const Levels five = ladder(100, -1, 5);
    QTest::newRow("5 and 5") << five << ladder(101, 1, 5) << true;
    QTest::newRow("20 bids, 4 asks") << ladder(100, -1, 20) << ladder(101, 1, 4) << false;
    QTest::newRow("quantity 0 still counts") << ladder(100, -1, 5, 0) << five << true;
    Levels zeroPrice = five;
    zeroPrice[2].price = 0;
    QTest::newRow("price 0") << zeroPrice << five << false;
    Levels shortLevel = five;
    shortLevel[4].complete = false;
    QTest::newRow("one-element level") << five << shortLevel << false;
    Levels nanPrice = five;
    nanPrice[0].price = qQNaN();
    QTest::newRow("price not a number") << nanPrice << five << false;
}

void OrderBookTest::usableNeedsFiveValidLevelsEachSide()
{
    QFETCH(Levels, bids);
    QFETCH(Levels, asks);
    QFETCH(bool, usable);
    QCOMPARE(isDepthUsable({bids, asks}), usable);
}

void OrderBookTest::aggregationBucketsTheFirstTenLevels_data()
{
    QTest::addColumn<Levels>("side");
    QTest::addColumn<double>("step");
    QTest::addColumn<BookSide>("bookSide");
    QTest::addColumn<QString>("buckets");

    QTest::newRow("bids floor") << levels({{100.9, 1}, {100.3, 2}}) << 0.5 << BookSide::Bid
                                << "100.5x1 100x2";
    QTest::newRow("asks ceil and merge")
            << levels({{100.1, 1}, {100.4, 2}}) << 0.5 << BookSide::Ask << "100.5x3";
    QTest::newRow("exact multiples stay")
            << levels({{100.5, 1}, {100, 1}}) << 0.5 << BookSide::Bid << "100.5x1 100x1";
    QTest::newRow("0.3 bid, step 0.1") << levels({{0.3, 1}}) << 0.1 << BookSide::Bid << "0.3x1";
    QTest::newRow("0.7 bid, step 0.1") << levels({{0.7, 1}}) << 0.1 << BookSide::Bid << "0.7x1";
    QTest::newRow("decimal buckets")
            << levels({{0.25, 1}, {0.3, 1}}) << 0.1 << BookSide::Ask << "0.3x2";
    QTest::newRow("1.12 ask, step 0.01")
            << levels({{1.12, 1}}) << 0.01 << BookSide::Ask << "1.12x1";
    QTest::newRow("step 0 keeps prices") << levels({{100.31, 1}, {100.31, 2}, {100.3, 4}}) << 0.0
                                         << BookSide::Bid << "100.31x3 100.3x4";
    QTest::newRow("merges only with the previous bucket")
            << levels({{100.2, 1}, {101.5, 1}, {100.7, 1}}) << 1.0 << BookSide::Ask
            << "101x1 102x1 101x1";
    Levels unusable = levels({{100, 0}, {99, qQNaN()}, {0, 1}, {-5, 1}, {98, -1}, {97, 1}});
    unusable.insert(0, DepthLevel{100, 1, false});
    QTest::newRow("skips levels without price and size")
            << unusable << 1.0 << BookSide::Bid << "97x1";
    QTest::newRow("first ten of twenty")
            << ladder(109.99, -0.01, 20) << 10.0 << BookSide::Bid << "100x10";
    QTest::newRow("first ten of twenty, raw")
            << ladder(100, 1, 20) << 0.0 << BookSide::Ask
            << "100x1 101x1 102x1 103x1 104x1 105x1 106x1 107x1 108x1 109x1";
}

void OrderBookTest::aggregationBucketsTheFirstTenLevels()
{
    QFETCH(Levels, side);
    QFETCH(double, step);
    QFETCH(BookSide, bookSide);
    QFETCH(QString, buckets);
    QCOMPARE(describe(aggregateSide(side, step, bookSide)), buckets);
}

void OrderBookTest::tilesShowTheBook_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<Levels>("bids");
    QTest::addColumn<Levels>("asks");
    QTest::addColumn<QStringList>("tiles");

    const QString green = "#20c878";
    const QString red = "#f45d5d";
    QTest::newRow("bid heavy") << "en" << levels({{64999.5, 2}, {64999, 1}}) << levels({{65000, 1}})
                               << QStringList{"BID=64999.50 " + green, "ASK=65000.00 " + red,
                                              "SPR=0.5000 #d8e6e3", "IMB=50.0% " + green};
    QTest::newRow("ask heavy, Portuguese")
            << "pt_BR" << levels({{999.5, 1}}) << levels({{1000, 3}})
            << QStringList{"COMPRA=999.5000 " + green, "VENDA=1000.00 " + red, "SPR=0.5000 #d8e6e3",
                           "DESB=-50.0% " + red};
    QTest::newRow("locked book") << "en" << levels({{5, 1}}) << levels({{5, 1}})
                                 << QStringList{"BID=5.0000 " + green, "ASK=5.0000 " + red,
                                                "SPR=0.0000 #d8e6e3", "IMB=0.0% " + green};
    QTest::newRow("wide spread") << "en" << levels({{1, 1}}) << levels({{1500, 1}})
                                 << QStringList{"BID=1.0000 " + green, "ASK=1500.00 " + red,
                                                "SPR=1499.00 #d8e6e3", "IMB=0.0% " + green};
    QTest::newRow("sums stop at ten levels")
            << "en" << ladder(100, -1, 12) << ladder(101, 1, 10)
            << QStringList{"BID=100.0000 " + green, "ASK=101.0000 " + red, "SPR=1.0000 #d8e6e3",
                           "IMB=0.0% " + green};
    Levels unpriced = levels({{100, 1}});
    unpriced[0].price = qQNaN();
    QTest::newRow("one side unpriced") << "en" << unpriced << levels({{101, 1}})
                                       << QStringList{"BID=-- " + green, "ASK=101.0000 " + red,
                                                      "SPR=-- #d8e6e3", "IMB=0.0% " + green};
    QTest::newRow("empty sides") << "pt_BR" << Levels() << Levels()
                                 << QStringList{"COMPRA=-- " + green, "VENDA=-- " + red,
                                                "SPR=-- #d8e6e3", "DESB=-- " + red};
}

void OrderBookTest::tilesShowTheBook()
{
    QFETCH(QString, language);
    QFETCH(Levels, bids);
    QFETCH(Levels, asks);
    QFETCH(QStringList, tiles);

    setInterfaceLanguage(language);
    QCOMPARE(tileTexts(metricTiles(depthMetrics({bids, asks}))), tiles);
    if (bids.isEmpty() && asks.isEmpty())
        QCOMPARE(tileTexts(emptyMetricTiles()), tiles);
}

void OrderBookTest::presetStepIsANiceNumber_data()
{
    QTest::addColumn<QString>("preset");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("step");

    QTest::newRow("normal 65000") << "normal" << 65000.0 << 50.0;
    QTest::newRow("tight 65000") << "tight" << 65000.0 << 10.0;
    QTest::newRow("wide 65000") << "wide" << 65000.0 << 200.0;
    QTest::newRow("unknown reads as normal") << "huge" << 65000.0 << 50.0;
    QTest::newRow("raw") << "raw" << 65000.0 << 0.0;
    QTest::newRow("exactly 1") << "normal" << 2000.0 << 1.0;
    QTest::newRow("just above 1") << "normal" << 2000.2 << 2.0;
    QTest::newRow("exactly 5") << "normal" << 10000.0 << 5.0;
    QTest::newRow("just above 5") << "normal" << 10001.0 << 10.0;
    QTest::newRow("1e-6 carries float noise") << "tight" << 0.01 << 1e-6;
    QTest::newRow("2e-6 carries float noise") << "tight" << 0.02 << 2e-6;
    QTest::newRow("5e-7 carries float noise") << "wide" << 0.0002 << 5e-7;
    QTest::newRow("below the floor") << "normal" << 1e-9 << 5e-10;
    QTest::newRow("negative") << "normal" << -3.0 << 5e-10;
    QTest::newRow("not a number") << "normal" << qQNaN() << 5e-10;
    QTest::newRow("infinite") << "wide" << qInf() << 5e-9;
}

void OrderBookTest::presetStepIsANiceNumber()
{
    QFETCH(QString, preset);
    QFETCH(double, price);
    QFETCH(double, step);
    const double actual = stepOfPreset(preset, price);
    QVERIFY2(actual == step || std::abs(actual - step) <= step * 1e-12,
             qPrintable(QString::number(actual, 'g', 17)));
    QVERIFY(stepMatchesPreset(step * (1 + 5e-7), actual));
    QVERIFY(!stepMatchesPreset(step * 1.01 + 2e-9, actual));
}

void OrderBookTest::stepSuffixAndTitles()
{
    QCOMPARE(stepSuffix(0), "");
    QCOMPARE(stepSuffix(qQNaN()), "");
    QCOMPARE(stepSuffix(50), "  Step 50.00");
    QCOMPARE(stepSuffix(0.0005), "  Step 0.000500");
    QCOMPARE(bookPresetLabel("wide"), "Wide");
    setInterfaceLanguage("pt_BR");
    QCOMPARE(stepSuffix(1), "  Passo 1.00");
    QCOMPARE(bookPresetLabel("raw"), "Bruto");
    QCOMPARE(bookPresetLabel("tight"), "Estreito");

    QCOMPARE(panelTitleText("Book", "BTCUSDT", "live"), "Book  BTCUSDT  live");
    QCOMPARE(panelTitleText("Book", "", "waiting"), "Book  waiting");
    QCOMPARE(panelTitleText("Book", "BTCUSDT", ""), "Book  BTCUSDT");
}

void OrderBookTest::tableRowsRunTheTotal()
{
    const QList<BookTableRow> rows = bookTableRows({{65000.5, 0.25}, {999.5, 1.125}, {0.5, 2}}, 5);
    QCOMPARE(rows.size(), 3);
    QCOMPARE(rows[0].price, "65000.50");
    QCOMPARE(rows[1].price, "999.5000");
    QCOMPARE(rows[1].size, "1.12500");
    QCOMPARE(rows[1].total, "1.37500");
    QCOMPARE(rows[2].total, "3.37500");
    QCOMPARE(rows[2].priceValue, 0.5);
    QCOMPARE(bookTableRows({{10, 1.5}, {9, 2}}, 4).last().total, "3.5000");
}

void OrderBookTest::level2BookNumbers()
{
    Level2Book book;
    QVERIFY(!book.isUsable());
    QCOMPARE(book.spread(), 0.0);
    QCOMPARE(book.mid(), 0.0);
    QCOMPARE(book.imbalance(), 0.0);
    for (int i = 0; i < 5; ++i) {
        book.bids.append({100.0 - i, 3, i + 1});
        book.asks.append({100.5 + i, 1, i + 1});
    }
    QVERIFY(book.isUsable());
    QCOMPARE(book.bestBid(), 100.0);
    QCOMPARE(book.spread(), 0.5);
    QCOMPARE(book.mid(), 100.25);
    QCOMPARE(book.bidSum(), 15.0);
    QCOMPARE(book.askSum(), 5.0);
    QCOMPARE(book.imbalance(), 50.0);
    book.bids.first().price = 0;
    QCOMPARE(book.spread(), 0.0);
    QCOMPARE(book.mid(), 0.0);
}

QTEST_GUILESS_MAIN(OrderBookTest)
#include "tst_order_book.moc"
