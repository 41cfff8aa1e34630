#include "providers/yahoo_symbol_search.h"
#include "support/fake_provider.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {

// One `quotes` entry as Yahoo writes a security.
QJsonObject security(const QString &symbol, const QString &quoteType = QStringLiteral("EQUITY"))
{
    return {{"exchange", "NMS"},    {"shortname", symbol}, {"quoteType", quoteType},
            {"symbol", symbol},     {"index", "quotes"},   {"score", 20000},
            {"typeDisp", "Equity"}, {"longname", symbol},  {"isYahooFinance", true}};
}

QByteArray searchReply(const QJsonArray &quotes)
{
    return QJsonDocument(QJsonObject{{"explains", QJsonArray()},
                                     {"count", quotes.size()},
                                     {"quotes", quotes},
                                     {"news", QJsonArray()}})
            .toJson(QJsonDocument::Compact);
}

// "S00", "S01", ...: as many equities as asked for.
QJsonArray equities(int count)
{
    QJsonArray quotes;
    for (int i = 0; i < count; ++i)
        quotes.append(security(QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0'))));
    return quotes;
}

QStringList numberedSymbols(int first, int count)
{
    QStringList symbols;
    for (int i = first; i < first + count; ++i)
        symbols << QStringLiteral("S%1").arg(i, 2, 10, QLatin1Char('0'));
    return symbols;
}

} // namespace

class YahooSymbolSearchTest : public QObject
{
    Q_OBJECT

private slots:
    void keepsYahooSecuritiesInReplyOrder_data();
    void keepsYahooSecuritiesInReplyOrder();
    void malformedRepliesGiveNothing_data();
    void malformedRepliesGiveNothing();
};

void YahooSymbolSearchTest::keepsYahooSecuritiesInReplyOrder_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("symbols");

    // Yahoo's reply for "AAPL": two shares, four options and a Crunchbase hit without a symbol.
    QTest::newRow("real reply") << providerData("yahoo_v1_search_aapl.json")
                                << QStringList{"AAPL", "AAPL.MX"};

    QJsonArray kinds;
    for (const char *type : {"EQUITY", "OPTION", "ETF", "FUTURE", "INDEX", "CRYPTOCURRENCY",
                             "CURRENCY", "MUTUALFUND", "NONE"})
        kinds.append(security(QStringLiteral("K-") + QLatin1String(type), QLatin1String(type)));
    QTest::newRow("quote types the terminal quotes through yahoo")
            << searchReply(kinds)
            << QStringList{"K-EQUITY", "K-ETF", "K-INDEX", "K-CURRENCY", "K-MUTUALFUND"};

    QTest::newRow("upper-cased and trimmed")
            << searchReply({security(" petr4.sa "), security("brl=x\t", "CURRENCY")})
            << QStringList{"PETR4.SA", "BRL=X"};
    QTest::newRow("repeats keep the first place")
            << searchReply({security("msft"), security("AAPL"), security(" MSFT"),
                            security("aapl", "ETF")})
            << QStringList{"MSFT", "AAPL"};

    QJsonObject notYahoo = security("NOTY");
    notYahoo["isYahooFinance"] = false;
    QJsonObject flagMissing = security("NOFLAG");
    flagMissing.remove("isYahooFinance");
    QJsonObject flagAsText = security("FLAGTEXT");
    flagAsText["isYahooFinance"] = "true";
    QJsonObject symbolNumber = security("X");
    symbolNumber["symbol"] = 42;
    QJsonObject symbolMissing = security("X");
    symbolMissing.remove("symbol");
    QJsonObject typeMissing = security("NOTYPE");
    typeMissing.remove("quoteType");
    QJsonObject typeLowerCase = security("LOWTYPE", "equity");
    QTest::newRow("entries that are not plain yahoo securities")
            << searchReply({notYahoo, flagMissing, flagAsText, security("KEEP"), symbolNumber,
                            symbolMissing, security(""), security("   "), typeMissing,
                            typeLowerCase, QJsonObject()})
            << QStringList{"KEEP"};

    QTest::newRow("no hits") << QByteArray(R"({"explains":[],"count":0,"quotes":[],"news":[]})")
                             << QStringList();
    QTest::newRow("only crunchbase hits")
            << QByteArray(R"({"quotes":[{"index":"78ddc07626ff4bbcae663e88514c23a0",)"
                          R"("name":"AAPlasma","permalink":"aaplasma","isYahooFinance":false}]})")
            << QStringList();

    QTest::newRow("capped at twenty") << searchReply(equities(25)) << numberedSymbols(0, 20);
    QJsonArray leftOutFirst = equities(22);
    for (int i = 0; i < 5; ++i)
        leftOutFirst.prepend(security(QStringLiteral("OPT%1").arg(i), "OPTION"));
    leftOutFirst.insert(8, security("s01"));
    QTest::newRow("cap counts only what is kept")
            << searchReply(leftOutFirst) << numberedSymbols(0, 20);
    QTest::newRow("exactly twenty") << searchReply(equities(20)) << numberedSymbols(0, 20);
}

void YahooSymbolSearchTest::keepsYahooSecuritiesInReplyOrder()
{
    QFETCH(QByteArray, body);
    QTEST(parseYahooSymbolSearch(body), "symbols");
}

void YahooSymbolSearchTest::malformedRepliesGiveNothing_data()
{
    QTest::addColumn<QByteArray>("body");

    const QByteArray real = providerData("yahoo_v1_search_aapl.json");
    QTest::newRow("html error page") << providerData("yahoo_search_500_html_error_page.html");
    QTest::newRow("rate limit text") << providerData("yahoo_429_body.txt");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("truncated") << real.left(real.size() / 2);
    QTest::newRow("json null") << QByteArray("null");
    QTest::newRow("json text") << QByteArray(R"("AAPL")");
    QTest::newRow("top-level array") << QByteArray(R"([{"quotes":[]}])");
    QTest::newRow("quotes missing") << QByteArray(R"({"count":1,"news":[]})");
    QTest::newRow("quotes null") << QByteArray(R"({"count":0,"quotes":null})");
    QTest::newRow("quotes an object")
            << QByteArray(R"({"quotes":{"symbol":"AAPL","quoteType":"EQUITY",)"
                          R"("isYahooFinance":true}})");
    QTest::newRow("quotes a text") << QByteArray(R"({"quotes":"AAPL"})");
    QTest::newRow("entry a text") << searchReply({security("AAPL"), "MSFT"});
    QTest::newRow("entry a number") << searchReply({security("AAPL"), 7});
    QJsonArray nested;
    nested.append(QJsonArray{security("AAPL")});
    QTest::newRow("entry a list") << searchReply(nested);
    QTest::newRow("entry null") << searchReply({security("AAPL"), QJsonValue()});
    QTest::newRow("error object") << QByteArray(
            R"({"finance":{"result":null,"error":{"code":"Bad Request",)"
            R"("description":"Missing required query parameter=q"}}})");
}

void YahooSymbolSearchTest::malformedRepliesGiveNothing()
{
    QFETCH(QByteArray, body);
    QCOMPARE(parseYahooSymbolSearch(body), QStringList());
}

QTEST_GUILESS_MAIN(YahooSymbolSearchTest)
#include "tst_yahoo_symbol_search.moc"
