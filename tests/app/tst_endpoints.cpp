#include "app/endpoints.h"

#include <QTest>

Q_DECLARE_METATYPE(Endpoint)

class EndpointsTest : public QObject
{
    Q_OBJECT

private slots:
    void everyEndpointHasItsVariableAndDefault();
    void overrideReplacesTheBase_data();
    void overrideReplacesTheBase();
    void urlKeepsAnEncodedPath();
    void accountAddressesFollowTheBase();
};

// Scripts and the fake providers rely on these exact names.
void EndpointsTest::everyEndpointHasItsVariableAndDefault()
{
    const QStringList names{
            "QRL_ENDPOINT_BINANCE_REST",  "QRL_ENDPOINT_BINANCE_STREAM", "QRL_ENDPOINT_YAHOO_QUERY",
            "QRL_ENDPOINT_YAHOO_COOKIE",  "QRL_ENDPOINT_YAHOO_FEEDS",    "QRL_ENDPOINT_BRAPI",
            "QRL_ENDPOINT_ALPHA_VANTAGE", "QRL_ENDPOINT_FINNHUB",        "QRL_ENDPOINT_TWELVE_DATA",
            "QRL_ENDPOINT_FMP",           "QRL_ENDPOINT_ITICK_STREAM",   "QRL_ENDPOINT_NEWSAPI",
            "QRL_ENDPOINT_ACCOUNT",
    };
    QStringList declared;
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        declared << QString::fromLatin1(definition.environmentVariable);
        qunsetenv(definition.environmentVariable);
        const QString base = endpointBase(definition.endpoint);
        QVERIFY2(endpointBaseProblem(base, definition.isStream).isEmpty(), qPrintable(base));
        QCOMPARE(QUrl(base).scheme(), definition.isStream ? "wss" : "https");
    }
    QCOMPARE(declared, names);
    QCOMPARE(QUrl(endpointBase(Endpoint::BinanceStream)).port(), 9443);
}

void EndpointsTest::overrideReplacesTheBase_data()
{
    QTest::addColumn<Endpoint>("endpoint");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected"); // empty: the default stays

    QTest::newRow("plain http loopback") << Endpoint::YahooQuery << "http://127.0.0.1:8080"
                                         << "http://127.0.0.1:8080";
    QTest::newRow("trailing slash dropped") << Endpoint::Brapi << " http://127.0.0.1:9/ "
                                            << "http://127.0.0.1:9";
    QTest::newRow("plain ws stream") << Endpoint::BinanceStream << "ws://127.0.0.1:9555"
                                     << "ws://127.0.0.1:9555";
    QTest::newRow("named host") << Endpoint::Account << "https://accounts.example.net"
                                << "https://accounts.example.net";
    QTest::newRow("blank") << Endpoint::Finnhub << "   "
                           << "";
    QTest::newRow("no scheme") << Endpoint::Finnhub << "127.0.0.1:8080"
                               << "";
    QTest::newRow("http for a stream") << Endpoint::ItickStream << "http://127.0.0.1:1"
                                       << "";
    QTest::newRow("ws for rest") << Endpoint::NewsApi << "ws://127.0.0.1:1"
                                 << "";
    QTest::newRow("with a path") << Endpoint::TwelveData << "http://127.0.0.1:1/api"
                                 << "";
    QTest::newRow("with a query") << Endpoint::FinancialModelingPrep << "http://h?x=1"
                                  << "";
    QTest::newRow("garbage") << Endpoint::AlphaVantage << "http://[::1"
                             << "";
}

void EndpointsTest::overrideReplacesTheBase()
{
    QFETCH(Endpoint, endpoint);
    QFETCH(QString, value);
    QFETCH(QString, expected);
    const EndpointDefinition &definition = endpointDefinition(endpoint);
    qunsetenv(definition.environmentVariable);
    const QString defaultBase = endpointBase(endpoint);

    qputenv(definition.environmentVariable, value.toUtf8());
    const QString base = endpointBase(endpoint);
    qunsetenv(definition.environmentVariable);
    QCOMPARE(base, expected.isEmpty() ? defaultBase : expected);
}

void EndpointsTest::urlKeepsAnEncodedPath()
{
    qputenv("QRL_ENDPOINT_YAHOO_QUERY", "http://127.0.0.1:4567");
    const QUrl url = endpointUrl(Endpoint::YahooQuery, QStringLiteral("/v8/finance/chart/%5EBVSP"));
    qunsetenv("QRL_ENDPOINT_YAHOO_QUERY");
    QCOMPARE(url.toString(QUrl::FullyEncoded),
             QStringLiteral("http://127.0.0.1:4567/v8/finance/chart/%5EBVSP"));
    QCOMPARE(url.port(), 4567);
}

// Run twice by ctest: with the default service and with QRL_ENDPOINT_ACCOUNT set.
void EndpointsTest::accountAddressesFollowTheBase()
{
    const QString override = qEnvironmentVariable("QRL_ENDPOINT_ACCOUNT");
    const QString base =
            override.isEmpty()
                    ? QString::fromLatin1(endpointDefinition(Endpoint::Account).defaultBase)
                    : override.chopped(override.endsWith('/') ? 1 : 0);
    QCOMPARE(accountAuthEndpoint(), base + QStringLiteral("/TERMINAL/auth"));
    QCOMPARE(accountLoginPage(), base + QStringLiteral("/login_page.php"));
    QCOMPARE(accountSyncEndpoint(), base + QStringLiteral("/TERMINAL/sync"));
    QCOMPARE(houseNewsFeed(), base + QStringLiteral("/TERMINAL/NEWS.json"));
}

QTEST_GUILESS_MAIN(EndpointsTest)
#include "tst_endpoints.moc"
