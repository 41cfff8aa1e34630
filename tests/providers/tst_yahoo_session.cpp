#include "providers/provider_requests.h"
#include "providers/yahoo_session.h"
#include "support/fake_provider.h"

#include <QNetworkAccessManager>
#include <QTest>

Q_DECLARE_METATYPE(FakeReply)

namespace {

const QByteArray kCookie = "A3=d=AQABBKx1&S=AQAAAy2; B=b7";
const QByteArray kInvalidCrumb =
        R"({"finance":{"result":null,"error":{"code":"Unauthorized","description":"Invalid Crumb"}}})";
const QByteArray kQuotes =
        R"({"quoteResponse":{"result":[{"symbol":"AAPL","regularMarketPrice":190.5}],"error":null}})";

// The cookie host answers "not found" and sets the cookies all the same.
FakeReply cookieReply()
{
    return FakeReply{.status = 404,
                     .headers = {{"Content-Type", "text/html; charset=utf-8"},
                                 {"Set-Cookie", "A3=d=AQABBKx1&S=AQAAAy2; Expires=Tue, 23 Nov "
                                                "2027 02:00:00 GMT; Path=/; HttpOnly"},
                                 {"Set-Cookie", "B=b7; Path=/"}},
                     .body = "<html><body>Sorry, the page was not found.</body></html>"};
}

QList<QByteArray> paths(const QList<RecordedRequest> &requests)
{
    QList<QByteArray> result;
    for (const RecordedRequest &request : requests)
        result << request.path;
    return result;
}

} // namespace

class YahooSessionTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void firstBatchFetchesCookieThenCrumbThenSendsBoth();
    void refusedSessionRenewsOnce_data();
    void refusedSessionRenewsOnce();
    void badCrumbBodiesAreNeverUsed_data();
    void badCrumbBodiesAreNeverUsed();
    void concurrentRequestsShareOneFetch();
    void cookieHeaderKeepsPlainCookies_data();
    void cookieHeaderKeepsPlainCookies();

private:
    // Sends one batch quote through the session and records the status it ends with.
    void sendBatch();

    FakeProvider m_provider;
    QNetworkAccessManager m_network;
    std::unique_ptr<YahooSession> m_session;
    QList<int> m_statuses;
    qint64 m_now = 1'731'700'000'000;
};

void YahooSessionTest::initTestCase()
{
    QVERIFY(m_provider.listen());
    m_provider.serveEveryEndpoint();
}

void YahooSessionTest::init()
{
    m_provider.clearRequests();
    m_statuses.clear();
    m_provider.setReply("/", cookieReply());
    m_provider.setReply("/v1/test/getcrumb", FakeReply::text("zLoP.Fp75Uh/"));
    m_provider.setReply("/v7/finance/quote", FakeReply::json(kQuotes));
    m_session = std::make_unique<YahooSession>(m_network);
    m_session->setClock([this] { return m_now; });
}

void YahooSessionTest::sendBatch()
{
    m_session->get(yahooBatchQuoteRequests({"EURUSD=X", "AAPL"}).first(), this,
                   [this](const ProviderReply &reply) { m_statuses << reply.httpStatus; });
}

void YahooSessionTest::firstBatchFetchesCookieThenCrumbThenSendsBoth()
{
    sendBatch();
    QTRY_COMPARE(m_statuses, QList<int>{200});
    const QList<RecordedRequest> requests = m_provider.requests();
    QCOMPARE(paths(requests), (QList<QByteArray>{"/", "/v1/test/getcrumb", "/v7/finance/quote"}));
    QCOMPARE(requests[0].headerCount("Cookie"), 0);
    QCOMPARE(requests[1].header("Cookie"), kCookie);
    QCOMPARE(requests[1].header("User-Agent"), QByteArray(kTerminalUserAgent));
    const RecordedRequest &quote = requests[2];
    QCOMPARE(quote.headerCount("Cookie"), 1);
    QCOMPARE(quote.header("Cookie"), kCookie);
    // The crumb goes last, percent-encoded like every other value.
    QCOMPARE(quote.rawQuery, QByteArray("symbols=EURUSD%3DX%2CAAPL&crumb=zLoP.Fp75Uh%2F"));

    // Later batches reuse the session.
    sendBatch();
    QTRY_COMPARE(m_statuses.size(), 2);
    QCOMPARE(m_provider.requests().size(), 4);
    QCOMPARE(m_provider.lastRequest().queryItem("crumb"), QString("zLoP.Fp75Uh/"));
}

void YahooSessionTest::refusedSessionRenewsOnce_data()
{
    QTest::addColumn<FakeReply>("refusal");
    QTest::addColumn<bool>("refusedAgain");
    QTest::addColumn<int>("finalStatus");

    const FakeReply invalidCrumb = FakeReply::json(kInvalidCrumb, 401);
    const FakeReply unableToAccess = FakeReply::json(
            R"({"finance":{"result":null,"error":{"code":"Unauthorized","description":"User is unable to access this feature"}}})",
            401);
    // A proxy in between has been seen to turn the status into 200; the body still says it.
    const FakeReply unauthorizedBody = FakeReply::json(kInvalidCrumb, 200);

    QTest::newRow("invalid crumb, then served") << invalidCrumb << false << 200;
    QTest::newRow("unable to access, then served") << unableToAccess << false << 200;
    QTest::newRow("unauthorized body, then served") << unauthorizedBody << false << 200;
    QTest::newRow("refused twice") << invalidCrumb << true << 401;
}

void YahooSessionTest::refusedSessionRenewsOnce()
{
    QFETCH(FakeReply, refusal);
    QFETCH(bool, refusedAgain);
    QFETCH(int, finalStatus);

    m_provider.queueReply("/v1/test/getcrumb", FakeReply::text("firstCrumb1"));
    m_provider.queueReply("/v1/test/getcrumb", FakeReply::text("secondCrumb"));
    m_provider.queueReply("/v7/finance/quote", refusal);
    if (refusedAgain)
        m_provider.queueReply("/v7/finance/quote", refusal);

    sendBatch();
    QTRY_COMPARE(m_statuses.size(), 1);
    QCOMPARE(m_statuses.first(), finalStatus);
    QTest::qWait(50); // a loop would show up as more requests
    const QList<RecordedRequest> requests = m_provider.requests();
    QCOMPARE(paths(requests), (QList<QByteArray>{"/", "/v1/test/getcrumb", "/v7/finance/quote", "/",
                                                 "/v1/test/getcrumb", "/v7/finance/quote"}));
    QCOMPARE(requests[2].queryItem("crumb"), QString("firstCrumb1"));
    QCOMPARE(requests[5].queryItem("crumb"), QString("secondCrumb"));
    QCOMPARE(m_session->credentials().crumb, QString("secondCrumb"));
}

void YahooSessionTest::badCrumbBodiesAreNeverUsed_data()
{
    QTest::addColumn<FakeReply>("crumbReply");

    const FakeReply tooMany = FakeReply::text("Too Many Requests\r\n", 429);
    QTest::newRow("too many requests") << tooMany;
    QTest::newRow("edge too many requests") << FakeReply::text("Edge: Too Many Requests", 429);
    QTest::newRow("too many requests with 200") << FakeReply::text("Too Many Requests");
    QTest::newRow("html page") << FakeReply{.headers = {{"Content-Type", "text/html"}},
                                            .body = "<html><body>Will be right back</body></html>"};
    QTest::newRow("empty") << FakeReply::text("");
    QTest::newRow("empty 401") << FakeReply::text("", 401);
    QTest::newRow("json") << FakeReply::json(kInvalidCrumb);
    QTest::newRow("a good crumb refused") << FakeReply::text("Phb0wzVdPs6", 401);
    QTest::newRow("too long") << FakeReply::text(QByteArray(65, 'a'));
}

void YahooSessionTest::badCrumbBodiesAreNeverUsed()
{
    QFETCH(FakeReply, crumbReply);
    m_provider.setReply("/v1/test/getcrumb", crumbReply);

    // Without a session the batch still goes out, bare.
    sendBatch();
    QTRY_COMPARE(m_statuses.size(), 1);
    QCOMPARE(paths(m_provider.requests()),
             (QList<QByteArray>{"/", "/v1/test/getcrumb", "/v7/finance/quote"}));
    const RecordedRequest bare = m_provider.lastRequest();
    QCOMPARE(bare.rawQuery, QByteArray("symbols=EURUSD%3DX%2CAAPL"));
    QCOMPARE(bare.headerCount("Cookie"), 0);
    QVERIFY(!m_session->credentials().isValid());

    // A refresh soon after does not ask the hosts again; one after the pause does.
    sendBatch();
    QTRY_COMPARE(m_statuses.size(), 2);
    QCOMPARE(m_provider.requests().size(), 4);
    m_now += YahooSession::kRetryPauseMs;
    m_provider.setReply("/v1/test/getcrumb", FakeReply::text("Phb0wzVdPs6"));
    sendBatch();
    QTRY_COMPARE(m_statuses.size(), 3);
    QCOMPARE(m_provider.requests().size(), 7);
    QCOMPARE(m_provider.lastRequest().queryItem("crumb"), QString("Phb0wzVdPs6"));
}

void YahooSessionTest::concurrentRequestsShareOneFetch()
{
    FakeReply slowCookie = cookieReply();
    slowCookie.delayMs = 50;
    m_provider.setReply("/", slowCookie);
    for (int i = 0; i < 3; ++i)
        sendBatch();
    QVERIFY(m_session->isFetching());
    QTRY_COMPARE(m_statuses, (QList<int>{200, 200, 200}));
    QCOMPARE(paths(m_provider.requests()).count("/"), 1);
    QCOMPARE(paths(m_provider.requests()).count("/v1/test/getcrumb"), 1);
    for (const RecordedRequest &request : m_provider.requests().mid(2))
        QCOMPARE(request.queryItem("crumb"), QString("zLoP.Fp75Uh/"));

    // Three refusals of the same session renew it once, though the crumb comes back the same.
    m_provider.clearRequests();
    m_statuses.clear();
    for (int i = 0; i < 3; ++i)
        m_provider.queueReply("/v7/finance/quote", FakeReply::json(kInvalidCrumb, 401));
    for (int i = 0; i < 3; ++i)
        sendBatch();
    QTRY_COMPARE(m_statuses, (QList<int>{200, 200, 200}));
    QCOMPARE(paths(m_provider.requests()).count("/"), 1);
    QCOMPARE(paths(m_provider.requests()).count("/v7/finance/quote"), 6);
}

void YahooSessionTest::cookieHeaderKeepsPlainCookies_data()
{
    QTest::addColumn<QByteArray>("setCookie");
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("two lines") << QByteArray("A3=d=AQ&S=x; Path=/\nB=b7; Secure")
                               << QByteArray("A3=d=AQ&S=x; B=b7");
    QTest::newRow("a name set twice keeps the last")
            << QByteArray("B=1\nC=2\nB=3") << QByteArray("B=3; C=2");
    QTest::newRow("carriage return in the name")
            << QByteArray("A\rX-Injected: 1=v\nB=b7") << QByteArray("B=b7");
    QTest::newRow("bare carriage return and NUL") << QByteArrayLiteral("A\xff\r\0\0\0\xff"
                                                                       "3=d=AQ; Secure\nB=b7")
                                                  << QByteArray("B=b7");
    QTest::newRow("control character in the value")
            << QByteArray("A3=d\x01x; Path=/") << QByteArray();
}

void YahooSessionTest::cookieHeaderKeepsPlainCookies()
{
    QFETCH(QByteArray, setCookie);
    QFETCH(QByteArray, header);
    QCOMPARE(cookieHeaderOf({{"Set-Cookie", setCookie}, {"X-Other", "C=no"}}), header);
}

QTEST_GUILESS_MAIN(YahooSessionTest)
#include "tst_yahoo_session.moc"
