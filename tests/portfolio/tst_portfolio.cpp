#include "app/language.h"
#include "portfolio/portfolio.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <cmath>

namespace {

QJsonObject settingsFrom(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

// Last prices from a fixed table; every other symbol has none.
std::function<double(const QString &)> prices(const QHash<QString, double> &table)
{
    return [table](const QString &symbol) { return table.value(symbol, NAN); };
}

Portfolio portfolioOf(const QString &base, const QList<PortfolioPosition> &positions,
                      const QList<PortfolioTransaction> &transactions = {})
{
    Portfolio portfolio;
    portfolio.name = QStringLiteral("Main");
    portfolio.baseCurrency = base;
    portfolio.positions = positions;
    portfolio.transactions = transactions;
    return portfolio;
}

QStringList names(const PortfolioStore &store)
{
    QStringList list;
    for (const Portfolio &portfolio : store.items)
        list << portfolio.name;
    return list;
}

} // namespace

class TestPortfolio : public QObject
{
    Q_OBJECT

private slots:
    void init() { setInterfaceLanguage(QStringLiteral("en")); }

    void conversionNeedsTheSameCurrencyOrARate_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<double>("rate");
        QTest::addColumn<double>("value");
        QTest::addColumn<bool>("ok");
        QTest::newRow("same currency without a rate") << "USD"
                                                      << "USD" << double(NAN) << 10.0 << true;
        QTest::newRow("USD to BRL multiplies") << "USD"
                                               << "BRL" << 5.0 << 50.0 << true;
        QTest::newRow("BRL to USD divides") << "BRL"
                                            << "USD" << 5.0 << 2.0 << true;
        QTest::newRow("no rate yet") << "USD"
                                     << "BRL" << double(NAN) << 0.0 << false;
        QTest::newRow("zero rate") << "BRL"
                                   << "USD" << 0.0 << 0.0 << false;
        QTest::newRow("another currency") << "EUR"
                                          << "BRL" << 5.0 << 0.0 << false;
    }
    void conversionNeedsTheSameCurrencyOrARate()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(double, rate);
        const Conversion result = convert(10, from, to, rate);
        QFETCH(double, value);
        QFETCH(bool, ok);
        QCOMPARE(result.value, value);
        QCOMPARE(result.ok, ok);
    }

    void positionsAreValuedAndFormatted()
    {
        // A B3 share with a price, a US share converted at 5, and one that has no price yet.
        const Portfolio portfolio =
                portfolioOf("BRL", {{"PETR4.SA", 100, 30}, {"AAPL", 2, 150}, {"VALE3.SA", 10, 20}});
        const PortfolioValuation v =
                valuePortfolio(portfolio, prices({{"PETR4.SA", 33.5}, {"AAPL", 1200}}), 5);

        QCOMPARE(v.positions.size(), 3);
        const PositionRow &petr = v.positions[0];
        QCOMPARE(
                QStringList({petr.quantity, petr.averagePrice, petr.last, petr.marketValue,
                             petr.pnl, petr.pnlPercent}),
                QStringList({"100.00000000", "30.0000", "33.5000", "3350.00", "350.00", "11.67%"}));
        QCOMPARE(petr.pnlColor, QStringLiteral("#20c878"));
        QCOMPARE(v.positions[1].last, QStringLiteral("1200.00"));

        const PositionRow &vale = v.positions[2];
        QCOMPARE(QStringList({vale.last, vale.marketValue, vale.pnl, vale.pnlPercent}),
                 QStringList({"--", "--", "--", "--"}));
        QCOMPARE(vale.pnlValue, 0.0);

        // AAPL: cost 300 USD = 1500 BRL, market 2400 USD = 12000 BRL; VALE3 adds its cost only.
        QCOMPARE(v.totalCost, 3000.0 + 1500 + 200);
        QCOMPARE(v.totalMarket, 3350.0 + 12000);
        QCOMPARE(v.totalPnl, v.totalMarket - v.totalCost);
        QVERIFY(!v.partialFx);
    }

    void unpricedPositionLowersTheTotalByItsCost()
    {
        const PortfolioValuation v =
                valuePortfolio(portfolioOf("BRL", {{"ITUB4.SA", 10, 20}}), prices({}), 5);
        QCOMPARE(v.totalPnl, -200.0);
        QCOMPARE(v.positions[0].pnlColor, QStringLiteral("#20c878"));
        QCOMPARE(v.summary, QStringLiteral("BRL Market 0.00 | P&L -200.00 | Cash 0.00 | Div 0.00"));
        QCOMPARE(v.summaryColor, QStringLiteral("#f45d5d"));
    }

    void foreignPositionBeforeTheFirstRateIsPartial()
    {
        const PortfolioValuation v =
                valuePortfolio(portfolioOf("BRL", {{"AAPL", 1, 100}, {"PETR4.SA", 1, 10}}),
                               prices({{"AAPL", 110}, {"PETR4.SA", 12}}), NAN);
        QCOMPARE(v.totalCost, 10.0);
        QCOMPARE(v.totalMarket, 12.0);
        QVERIFY(v.partialFx);
        QCOMPARE(v.summary, QStringLiteral("BRL Market 12.00 | P&L 2.00 | Cash 0.00 | Div 0.00"
                                           " | partial FX"));
    }

    void ledgerGivesCashAndDividends()
    {
        const PortfolioTransaction withdrawal{"2025-01-02 10:00:00", "cash", {}, -500, "BRL", {}};
        const PortfolioTransaction dividend{
                "2025-01-03 10:00:00", "dividend", "PETR4.SA", 30, "BRL", "JCP"};
        PortfolioValuation v =
                valuePortfolio(portfolioOf("BRL", {}, {withdrawal, dividend}), prices({}), NAN);
        QCOMPARE(v.summary,
                 QStringLiteral("BRL Market 0.00 | P&L 0.00 | Cash -470.00 | Div 30.00"));
        QCOMPARE(v.transactions[0].type, QStringLiteral("Cash flow"));
        QCOMPARE(v.transactions[1].type, QStringLiteral("Dividend"));
        QCOMPARE(v.transactions[0].amount, QStringLiteral("-500.00"));

        // A USD dividend with no rate counts as nothing and marks the summary.
        const PortfolioTransaction usd{"", "dividend", "AAPL", 4, "USD", {}};
        setInterfaceLanguage(QStringLiteral("pt_BR"));
        v = valuePortfolio(portfolioOf("BRL", {}, {dividend, usd}), prices({}), NAN);
        QCOMPARE(v.dividends, 30.0);
        QVERIFY(v.partialFx);
        QCOMPARE(v.transactions[1].type, QStringLiteral("Dividendo"));
    }

    void namesMustStayUniqueAndOnePortfolioRemains()
    {
        PortfolioStore store = readPortfolioStore({}, QStringLiteral("Main"));
        QCOMPARE(names(store), QStringList{"Main"});
        QVERIFY(!portfolioDeleteProblem(store).isEmpty());
        QCOMPARE(portfolioNameProblem(store, "Main"),
                 QStringLiteral("A portfolio with this name already exists."));
        QVERIFY(portfolioNameProblem(store, "Main", "Main").isEmpty());

        store.items << Portfolio{QStringLiteral("Long term"), "USD", {}, {}};
        QVERIFY(portfolioDeleteProblem(store).isEmpty());
        QVERIFY(!portfolioNameProblem(store, "Long term", "Main").isEmpty());
        QVERIFY(portfolioNameProblem(store, "Trading").isEmpty());
        setInterfaceLanguage(QStringLiteral("pt_BR"));
        QCOMPARE(portfolioNameProblem(store, "Main"),
                 QStringLiteral("Já existe uma carteira com este nome."));
    }

    void storeIsReadForgivingly_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("active");
        QTest::addColumn<int>("positions"); // of the active portfolio
        QTest::addColumn<int>("unreadable");
        QTest::newRow("nothing stored")
                << QByteArray("{}") << QStringList{"Principal"} << "Principal" << 0 << 0;
        QTest::newRow("duplicate names are kept apart")
                << QByteArray(R"json({"portfolios":{"active":"B","items":[
                     {"name":"B","positions":[{"symbol":"aapl","quantity":1,"average_price":2}]},
                     {"name":"B"},{"name":"B (2)"}]}})json")
                << QStringList{"B", "B (3)", "B (2)"} << "B" << 1 << 0;
        QTest::newRow("unreadable items and bad entries")
                << QByteArray(R"({"portfolios":{"active":"gone","items":[7,{"positions":[]},
                     {"name":"A","base_currency":"usd","positions":[{"symbol":"X","quantity":"1"},
                      {"symbol":"","quantity":1},{"symbol":"PETR4.SA","quantity":5},null],
                      "transactions":[{"amount":"1"},{"amount":3,"type":"weird"}]},
                     {"name":"C","positions":{}}]}})")
                << QStringList{"A"} << "A" << 1 << 3;
        QTest::newRow("older single portfolio")
                << QByteArray(R"({"portfolio":{"positions":[{"symbol":"BTCUSDT","quantity":0.5,
                     "average_price":60000}]}})")
                << QStringList{"Principal"} << "Principal" << 1 << 0;
        QTest::newRow("older array of positions")
                << QByteArray(R"({"portfolio":[{"symbol":"VALE3.SA","quantity":3},{"x":1}]})")
                << QStringList{"Principal"} << "Principal" << 1 << 0;
    }
    void storeIsReadForgivingly()
    {
        QFETCH(QByteArray, settings);
        QFETCH(QStringList, names);
        QFETCH(QString, active);
        QFETCH(int, positions);
        QFETCH(int, unreadable);
        const PortfolioStore store = readPortfolioStore(settingsFrom(settings), "Principal");
        QCOMPARE(::names(store), names);
        QCOMPARE(store.active, active);
        QCOMPARE(store.activePortfolio()->positions.size(), positions);
        QCOMPARE(store.unreadable.size(), unreadable);

        // Writing and reading again changes nothing, unreadable items included.
        const QJsonObject written = portfolioStoreToJson(store);
        const PortfolioStore again =
                readPortfolioStore({{QStringLiteral("portfolios"), written}}, "Principal");
        QCOMPARE(portfolioStoreToJson(again), written);
        QCOMPARE(again.unreadable, store.unreadable);
    }

    void writtenStoreKeepsEveryField()
    {
        PortfolioStore store;
        store.items << portfolioOf("USD", {{"AAPL", -2.5, 187.25}},
                                   {{"2025-03-01 09:30:00", "dividend", "AAPL", 1.5, "USD", "q1"}});
        store.active = QStringLiteral("Main");
        store.unreadable << QJsonValue(QStringLiteral("kept"));
        const QJsonObject json = portfolioStoreToJson(store);
        const QJsonArray items = json.value("items").toArray();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[1], QJsonValue(QStringLiteral("kept")));
        const QJsonObject item = items[0].toObject();
        QCOMPARE(item.value("base_currency").toString(), QStringLiteral("USD"));
        QCOMPARE(item.value("positions")[0].toObject(),
                 QJsonObject({{"symbol", "AAPL"}, {"quantity", -2.5}, {"average_price", 187.25}}));
        QCOMPARE(item.value("transactions")[0].toObject(),
                 QJsonObject({{"timestamp", "2025-03-01 09:30:00"},
                              {"type", "dividend"},
                              {"symbol", "AAPL"},
                              {"amount", 1.5},
                              {"currency", "USD"},
                              {"note", "q1"}}));
    }
};

QTEST_GUILESS_MAIN(TestPortfolio)
#include "tst_portfolio.moc"
