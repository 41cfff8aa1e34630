#include "app/language.h"
#include "streams/time_and_sales.h"

#include <QTest>

namespace {

constexpr qint64 kTradeTime = 1733498426037; // 2024-12-06 15:20:26.037 UTC

TapeRow rowOfKind(const QString &kind)
{
    if (kind == "buy")
        return tradeTapeRow(98910.32, 0.5, kTradeTime, false);
    if (kind == "sell")
        return tradeTapeRow(98910.32, 2, kTradeTime, true);
    return quoteTapeRow(38.12, 1.2, "B3", {"", "vol 2M", "--"}, "10:00:00");
}

} // namespace

class TimeAndSalesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup() { setInterfaceLanguage("en"); }
    void rowsAreCappedNewestFirst();
    void filterDecidesOnArrival_data();
    void filterDecidesOnArrival();
    void filterChangeKeepsTheRowsShown();
    void rowsReadAsTheTableShowsThem();
};

void TimeAndSalesTest::initTestCase()
{
    // Trade times are local: pin the zone so the expected text holds on any machine.
    qputenv("TZ", "UTC");
}

void TimeAndSalesTest::rowsAreCappedNewestFirst()
{
    TimeAndSales tape;
    for (int i = 1; i <= kTapeRowLimit + 1; ++i)
        QVERIFY(tape.add(tradeTapeRow(i, 1, kTradeTime + i, false)));
    QCOMPARE(tape.size(), kTapeRowLimit);
    QCOMPARE(tape.at(0).price, double(kTapeRowLimit + 1));
    QCOMPARE(tape.at(kTapeRowLimit - 1).price, 2.0);
    QCOMPARE(tape.admitted(), quint64(kTapeRowLimit + 1));

    tape.clear();
    QCOMPARE(tape.size(), 0);
    QCOMPARE(tape.generation(), quint64(1));
    QVERIFY(tape.add(rowOfKind("quote")));
    QCOMPARE(tape.admitted(), quint64(kTapeRowLimit + 2));
}

void TimeAndSalesTest::filterDecidesOnArrival_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("side");
    QTest::addColumn<double>("minimumSize");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("admitted");

    QTest::newRow("all takes quotes") << "en"
                                      << "all" << 0.0 << "quote" << true;
    QTest::newRow("quote takes a quote with notes") << "en"
                                                    << "quote" << 0.0 << "quote" << true;
    QTest::newRow("quote refuses trades") << "en"
                                          << "quote" << 0.0 << "buy" << false;
    QTest::newRow("minimum drops quotes") << "en"
                                          << "all" << 1.0 << "quote" << false;
    QTest::newRow("minimum drops quotes, quote side") << "en"
                                                      << "quote" << 1.0 << "quote" << false;
    QTest::newRow("below the minimum") << "en"
                                       << "all" << 1.0 << "buy" << false;
    QTest::newRow("at the minimum") << "en"
                                    << "sell" << 2.0 << "sell" << true;
    QTest::newRow("buy refuses sells") << "en"
                                       << "buy" << 0.0 << "sell" << false;
    QTest::newRow("Portuguese sell") << "pt_BR"
                                     << "sell" << 0.0 << "sell" << true;
    QTest::newRow("Portuguese buy refuses sells") << "pt_BR"
                                                  << "buy" << 0.0 << "sell" << false;
    QTest::newRow("Portuguese quote") << "pt_BR"
                                      << "quote" << 0.0 << "quote" << true;
}

void TimeAndSalesTest::filterDecidesOnArrival()
{
    QFETCH(QString, language);
    QFETCH(QString, side);
    QFETCH(double, minimumSize);
    QFETCH(QString, kind);
    QFETCH(bool, admitted);

    setInterfaceLanguage(language);
    TimeAndSales tape;
    tape.setFilter({side, minimumSize});
    QCOMPARE(tape.add(rowOfKind(kind)), admitted);
    QCOMPARE(tape.size(), admitted ? 1 : 0);
}

void TimeAndSalesTest::filterChangeKeepsTheRowsShown()
{
    TimeAndSales tape;
    QVERIFY(tape.add(rowOfKind("buy")));
    QVERIFY(tape.add(rowOfKind("quote")));
    tape.setFilter({"sell", 0});
    QCOMPARE(tape.size(), 2);
    QVERIFY(!tape.add(rowOfKind("buy")));
    QVERIFY(tape.add(rowOfKind("sell")));
    QCOMPARE(tape.size(), 3);
    QCOMPARE(tape.at(0).side, "Sell");
    QCOMPARE(tape.at(2).side, "Buy");
    QCOMPARE(tape.admitted(), quint64(3));
}

void TimeAndSalesTest::rowsReadAsTheTableShowsThem()
{
    const TapeRow sell = rowOfKind("sell");
    QCOMPARE(sell.time, "15:20:26");
    QCOMPARE(sell.color, "#f45d5d");
    QCOMPARE(rowOfKind("buy").color, "#20c878");

    const TapeRow quote = rowOfKind("quote");
    QCOMPARE(quote.side, "Quote  B3 vol 2M");
    QCOMPARE(quote.time, "10:00:00");
    QCOMPARE(tapeSizeText(quote.size), "--");
    QCOMPARE(quoteTapeRow(1, -0.1, "", {}, "").color, "#f45d5d");
    QCOMPARE(quoteTapeRow(1, qQNaN(), "", {}, "").color, "#f2c078");
    QCOMPARE(quoteTapeRow(1, 0, " B3 ", {"--"}, "").side, "Quote  B3");

    setInterfaceLanguage("pt_BR");
    QCOMPARE(rowOfKind("sell").side, "Venda");
    QCOMPARE(rowOfKind("quote").side, "Cotação  B3 vol 2M");
    QCOMPARE(tapeSideLabel("all"), "Todos");

    QCOMPARE(tapePriceText(999.5), "999.5000");
    QCOMPARE(tapePriceText(1000), "1000.00");
    QCOMPARE(tapeSizeText(0.0123), "0.01230");
}

QTEST_GUILESS_MAIN(TimeAndSalesTest)
#include "tst_time_and_sales.moc"
