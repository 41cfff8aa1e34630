#include "support/fake_provider.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

#include <memory>

using Headers = QList<QPair<QByteArray, QByteArray>>;

Q_DECLARE_METATYPE(FakeReply)
Q_DECLARE_METATYPE(FakeReply::Mode)

namespace {

// Waits for the reply to finish; false if it has not within the time.
bool finishes(QNetworkReply *reply, int timeoutMs = 5000)
{
    QSignalSpy finished(reply, &QNetworkReply::finished);
    return reply->isFinished() || finished.wait(timeoutMs);
}

} // namespace

// Drives a real QNetworkAccessManager (and, where Qt would not send what is needed, a bare socket)
// against the fake, since that is what the terminal's requests go through.
class FakeProviderTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void answersAsScripted_data();
    void answersAsScripted();
    void recordsTheRequestAsSent();
    void keepsTheConnectionAcrossRequests();
    void queuedRepliesComeFirst();
    void delaysTheAnswer();
    void withheldAnswerLeavesTheClientWaiting();
    void closingFailsTheReply_data();
    void closingFailsTheReply();
    void takesARequestArrivingInPieces();
    void closesTheConnection_data();
    void closesTheConnection();
    void destructionClosesOpenConnections();

private:
    QUrl url(const QByteArray &pathAndQuery) const;
    std::unique_ptr<QNetworkReply> get(const QByteArray &pathAndQuery);

    std::unique_ptr<FakeProvider> m_provider;
    std::unique_ptr<QNetworkAccessManager> m_manager;
};

void FakeProviderTest::init()
{
    m_provider = std::make_unique<FakeProvider>();
    QVERIFY(m_provider->listen());
    m_manager = std::make_unique<QNetworkAccessManager>();
    m_manager->setProxy(QNetworkProxy::NoProxy);
}

void FakeProviderTest::cleanup()
{
    m_manager.reset();
    m_provider.reset();
}

QUrl FakeProviderTest::url(const QByteArray &pathAndQuery) const
{
    return QUrl::fromEncoded(m_provider->baseUrl().toLatin1() + pathAndQuery);
}

std::unique_ptr<QNetworkReply> FakeProviderTest::get(const QByteArray &pathAndQuery)
{
    return std::unique_ptr<QNetworkReply>(m_manager->get(QNetworkRequest(url(pathAndQuery))));
}

void FakeProviderTest::answersAsScripted_data()
{
    QTest::addColumn<FakeReply>("reply"); // scripted for /scripted
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reason");
    QTest::addColumn<Headers>("headers"); // expected among the reply's headers
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("json") << FakeReply::json(R"({"ok":true})") << QByteArray("/scripted") << 200
                          << QByteArray("OK")
                          << Headers{{"Content-Type", "application/json"}, {"Content-Length", "11"}}
                          << QByteArray(R"({"ok":true})");
    QTest::newRow("rate limited")
            << FakeReply{.status = 429, .headers = {{"Retry-After", "17"}}, .body = "slow down"}
            << QByteArray("/scripted") << 429 << QByteArray("Too Many Requests")
            << Headers{{"Retry-After", "17"}, {"Content-Type", "application/json"}}
            << QByteArray("slow down");
    QTest::newRow("text, own reason")
            << FakeReply{.status = 503,
                         .reason = "Down For Lunch",
                         .headers = {{"Content-Type", "text/csv"}},
                         .body = "a,b\n1,2\n"}
            << QByteArray("/scripted") << 503 << QByteArray("Down For Lunch")
            << Headers{{"Content-Type", "text/csv"}} << QByteArray("a,b\n1,2\n");
    QTest::newRow("wrong length overridden")
            << FakeReply{.headers = {{"Content-Length", "999"}}, .body = "short"}
            << QByteArray("/scripted") << 200 << QByteArray("OK")
            << Headers{{"Content-Length", "5"}} << QByteArray("short");
    QTest::newRow("not scripted") << FakeReply::json("unused") << QByteArray("/elsewhere") << 404
                                  << QByteArray("Not Found") << Headers{}
                                  << QByteArray(R"({"error":"no scripted reply"})");
}

void FakeProviderTest::answersAsScripted()
{
    QFETCH(FakeReply, reply);
    QFETCH(QByteArray, path);
    QFETCH(int, status);
    QFETCH(QByteArray, reason);
    QFETCH(Headers, headers);
    QFETCH(QByteArray, body);

    m_provider->setReply(QStringLiteral("/scripted"), reply);
    const auto networkReply = get(path);
    QVERIFY(finishes(networkReply.get()));
    QCOMPARE(networkReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
    QCOMPARE(networkReply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toByteArray(),
             reason);
    for (const auto &[name, value] : headers)
        QCOMPARE(networkReply->rawHeader(name), value);
    QCOMPARE(networkReply->readAll(), body);
}

void FakeProviderTest::recordsTheRequestAsSent()
{
    m_provider->setReply(QStringLiteral("/v8/finance/chart/%5EGSPC"), FakeReply::json("{}"));
    QNetworkRequest request(
            url("/v8/finance/chart/%5EGSPC?range=1d&interval=5m&symbols=A%2CB%20C"));
    request.setHeader(QNetworkRequest::UserAgentHeader, "Querlin/0.1 (test; +loopback)");
    request.setRawHeader("X-Api-Key", "k3y");
    const std::unique_ptr<QNetworkReply> reply(m_manager->get(request));
    QVERIFY(finishes(reply.get()));
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);

    QCOMPARE(m_provider->requests().size(), 1);
    const RecordedRequest recorded = m_provider->lastRequest();
    QCOMPARE(recorded.method, "GET");
    QCOMPARE(recorded.path, "/v8/finance/chart/%5EGSPC");
    QCOMPARE(recorded.rawQuery, "range=1d&interval=5m&symbols=A%2CB%20C");
    const QList<QPair<QString, QString>> items{
            {"range", "1d"}, {"interval", "5m"}, {"symbols", "A,B C"}};
    QCOMPARE(recorded.queryItems(), items);
    QCOMPARE(recorded.queryItem("interval"), "5m");
    QVERIFY(recorded.queryItem("missing").isNull());
    QCOMPARE(recorded.header("user-agent"), "Querlin/0.1 (test; +loopback)");
    QCOMPARE(recorded.headerCount("USER-AGENT"), 1);
    QVERIFY(recorded.headers.contains(QPair<QByteArray, QByteArray>("X-Api-Key", "k3y")));
    QCOMPARE(recorded.header("Host"), "127.0.0.1:" + QByteArray::number(m_provider->port()));
    QVERIFY(recorded.header("X-Missing").isEmpty());
}

// Requests after a body must still be read right, and on the connection already open.
void FakeProviderTest::keepsTheConnectionAcrossRequests()
{
    QSignalSpy received(m_provider.get(), &FakeProvider::requestReceived);
    QNetworkRequest request(url("/account/orders"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");

    const auto first = get("/quotes");
    QVERIFY(finishes(first.get()));
    const std::unique_ptr<QNetworkReply> posted(m_manager->post(request, R"({"side":"buy"})"));
    QVERIFY(finishes(posted.get()));
    const std::unique_ptr<QNetworkReply> put(m_manager->put(request, "qty=5"));
    QVERIFY(finishes(put.get()));
    const auto last = get("/quotes?page=2");
    QVERIFY(finishes(last.get()));

    const QList<RecordedRequest> requests = m_provider->requests();
    QCOMPARE(requests.size(), 4);
    QCOMPARE(received.size(), 4);
    QCOMPARE(received.at(3).at(0).toInt(), 3);
    QCOMPARE(requests[0].method, "GET");
    QCOMPARE(requests[1].method, "POST");
    QCOMPARE(requests[1].body, R"({"side":"buy"})");
    QCOMPARE(requests[1].header("Content-Type"), "application/json");
    QCOMPARE(requests[2].method, "PUT");
    QCOMPARE(requests[2].body, "qty=5");
    QCOMPARE(requests[3].path, "/quotes");
    QCOMPARE(requests[3].rawQuery, "page=2");
    QVERIFY(requests[3].body.isEmpty());
    for (const RecordedRequest &request : requests)
        QCOMPARE(request.connection, 1);

    m_provider->clearRequests();
    QVERIFY(m_provider->requests().isEmpty());
}

void FakeProviderTest::queuedRepliesComeFirst()
{
    m_provider->setReply(QStringLiteral("/news"), FakeReply::json("set"));
    m_provider->queueReply(QStringLiteral("/news"), FakeReply::json("first", 503));
    m_provider->queueReply(QStringLiteral("/news"), FakeReply::json("second"));

    QList<QByteArray> bodies;
    for (int i = 0; i < 4; ++i) {
        const auto reply = get("/news");
        QVERIFY(finishes(reply.get()));
        bodies << reply->readAll();
    }
    QCOMPARE(bodies, (QList<QByteArray>{"first", "second", "set", "set"}));
}

void FakeProviderTest::delaysTheAnswer()
{
    m_provider->setReply(QStringLiteral("/slow"), FakeReply{.body = "late", .delayMs = 150});
    QElapsedTimer timer;
    timer.start();
    const auto reply = get("/slow");
    QVERIFY(m_provider->waitForRequests(1));
    QVERIFY(!reply->isFinished()); // recorded on arrival, not when answered
    QVERIFY(finishes(reply.get()));
    QCOMPARE_GE(timer.elapsed(), 140);
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(reply->readAll(), "late");
}

void FakeProviderTest::withheldAnswerLeavesTheClientWaiting()
{
    m_provider->setReply(QStringLiteral("/silent"),
                         FakeReply{.body = "never", .mode = FakeReply::Mode::NoAnswer});
    QNetworkRequest request(url("/silent"));
    request.setTransferTimeout(300);
    QElapsedTimer timer;
    timer.start();
    const std::unique_ptr<QNetworkReply> reply(m_manager->get(request));
    QVERIFY(finishes(reply.get()));
    QCOMPARE_GE(timer.elapsed(), 280);
    QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
    QCOMPARE(m_provider->requests().size(), 1);
}

void FakeProviderTest::closingFailsTheReply_data()
{
    QTest::addColumn<FakeReply::Mode>("mode");
    QTest::addColumn<QNetworkReply::NetworkError>("error");

    QTest::newRow("mid body") << FakeReply::Mode::CloseMidBody
                              << QNetworkReply::RemoteHostClosedError;
    QTest::newRow("without reply")
            << FakeReply::Mode::CloseWithoutReply << QNetworkReply::RemoteHostClosedError;
}

void FakeProviderTest::closingFailsTheReply()
{
    QFETCH(FakeReply::Mode, mode);
    QFETCH(QNetworkReply::NetworkError, error);

    const QByteArray body(4000, 'x');
    m_provider->setReply(QStringLiteral("/drop"), FakeReply{.body = body, .mode = mode});
    const auto reply = get("/drop");
    QVERIFY(finishes(reply.get()));
    QCOMPARE(reply->error(), error);
    QCOMPARE_LT(reply->readAll().size(), body.size());
    QCOMPARE_GE(m_provider->requests().size(), 1);
}

// Header names in any case, and a request whose head and body come in separate reads.
void FakeProviderTest::takesARequestArrivingInPieces()
{
    m_provider->setReply(QStringLiteral("/pieces"), FakeReply::text("got it"));
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_provider->port());
    QVERIFY(socket.waitForConnected(5000));

    const QList<QByteArray> pieces{"POST /pie", "ces?a=1 HTTP/1.1\r\nhost: x\r\ncontent-LENGTH: 5",
                                   "\r\n\r\nhel", "lo"};
    for (const QByteArray &piece : pieces) {
        QVERIFY(m_provider->requests().isEmpty()); // nothing taken before the last byte
        socket.write(piece);
        QVERIFY(socket.waitForBytesWritten(5000));
        QTest::qWait(20);
    }
    QVERIFY(m_provider->waitForRequests(1));
    const RecordedRequest recorded = m_provider->lastRequest();
    QCOMPARE(recorded.path, "/pieces");
    QCOMPARE(recorded.rawQuery, "a=1");
    QCOMPARE(recorded.body, "hello");
    QCOMPARE(recorded.headers.at(1).first, "content-LENGTH");

    QByteArray answer;
    QVERIFY(QTest::qWaitFor([&] {
        answer += socket.readAll();
        return answer.endsWith("got it");
    }));
    QVERIFY(answer.startsWith("HTTP/1.1 200 OK\r\n"));
    QCOMPARE(socket.state(), QAbstractSocket::ConnectedState); // kept for the next request
}

void FakeProviderTest::closesTheConnection_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("recorded");
    QTest::addColumn<QByteArray>("answer"); // how what comes back starts
    QTest::addColumn<QString>("warning");   // expected in the log, if anything

    QTest::newRow("asked to") << QByteArray("GET / HTTP/1.1\r\nConnection: close\r\n\r\n") << 1
                              << QByteArray("HTTP/1.1 404 Not Found\r\n") << QString();
    QTest::newRow("chunked body")
            << QByteArray("POST /up HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n"
                          "0\r\n\r\n")
            << 1 << QByteArray("HTTP/1.1 501 Not Implemented\r\n") << QString("chunked");
    QTest::newRow("headers too long")
            << "GET / HTTP/1.1\r\nX-Filler: " + QByteArray(1024 * 1024 + 10, 'f') << 0
            << QByteArray() << QString("closing a connection");
    QTest::newRow("not http") << QByteArray("hello there\r\n\r\n") << 0 << QByteArray()
                              << QString("closing a connection");
}

void FakeProviderTest::closesTheConnection()
{
    QFETCH(QByteArray, request);
    QFETCH(int, recorded);
    QFETCH(QByteArray, answer);
    QFETCH(QString, warning);

    if (!warning.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_provider->port());
    QVERIFY(socket.waitForConnected(5000));
    socket.write(request);
    QByteArray received;
    QVERIFY(QTest::qWaitFor([&] {
        received += socket.readAll();
        return socket.state() == QAbstractSocket::UnconnectedState;
    }));
    received += socket.readAll();
    QVERIFY2(received.startsWith(answer), received.constData());
    QCOMPARE(m_provider->requests().size(), recorded);
}

void FakeProviderTest::destructionClosesOpenConnections()
{
    m_provider->setReply(QStringLiteral("/silent"), FakeReply{.mode = FakeReply::Mode::NoAnswer});
    const auto reply = get("/silent");
    QVERIFY(m_provider->waitForRequests(1));
    m_provider.reset();
    QVERIFY(finishes(reply.get(), 2000));
    QVERIFY(reply->error() != QNetworkReply::NoError);
}

QTEST_GUILESS_MAIN(FakeProviderTest)
#include "tst_fake_provider.moc"
