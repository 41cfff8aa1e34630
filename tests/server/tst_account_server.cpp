#include "account/account_service.h"
#include "account/request_readers.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

const QString kEmail = QStringLiteral("ana@example.com");
const QString kPassword = QStringLiteral("correct horse");
const qint64 kStartMs = 1'800'000'000'000;
const QString kDevice = QStringLiteral("0123456789abcdef0123456789abcdef");

struct Reply
{
    int status = 0;
    QJsonObject json;
    QByteArray body;
    QString error() const { return json.value(QLatin1String("error")).toString(); }
};

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

class AccountServerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void loginOutcomes_data();
    void loginOutcomes();
    void repeatedFailuresAreRateLimited();
    void tokenExpiresWithTheClock();
    void refreshRotatesAndRevokesTheOldToken();
    void logoutRevokesTheToken();
    void deviceSignInCompletesOnce();
    void deviceCodeExpires();
    void pushStoresVersionsAndPullReturnsPayloads();
    void versionConflictChangesNothing();
    void pushRefusals_data();
    void pushRefusals();
    void refusedPushReadsNoItems_data();
    void refusedPushReadsNoItems();
    void wrongMethodsAreRefused_data();
    void wrongMethodsAreRefused();
    void metacharactersRoundTripHarmlessly();
    void registrationCreatesAnAccount();
    void unopenableDatabaseAnswersUnavailable();
    void pushSurvivesARestart();
    void newsIsFilteredAndFollowsTheFile_data();
    void newsIsFilteredAndFollowsTheFile();

private:
    void startService(AccountService::Options options = {});
    Reply call(const QByteArray &method, const QString &pathAndQuery, const QByteArray &body = {},
               const QString &token = {},
               const QByteArray &contentType = QByteArrayLiteral("application/json"));
    QString login(const QString &email = kEmail, const QString &password = kPassword);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<AccountService> m_service;
    QNetworkAccessManager m_network;
    qint64 m_now = kStartMs;
};

void AccountServerTest::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_now = kStartMs;
    startService();
    QString error;
    QVERIFY2(m_service->addUser(kEmail, kPassword, QStringLiteral("Ana"), &error),
             qPrintable(error));
}

void AccountServerTest::cleanup()
{
    m_service.reset();
    m_dir.reset();
}

void AccountServerTest::startService(AccountService::Options options)
{
    m_service.reset();
    if (options.databasePath.isEmpty())
        options.databasePath = m_dir->filePath(QStringLiteral("accounts.sqlite"));
    options.logRequests = false;
    m_service = std::make_unique<AccountService>();
    m_service->open(options);
    m_service->setClock([this] { return m_now; });
    QVERIFY(m_service->listen());
}

Reply AccountServerTest::call(const QByteArray &method, const QString &pathAndQuery,
                              const QByteArray &body, const QString &token,
                              const QByteArray &contentType)
{
    QNetworkRequest request(QUrl(m_service->baseUrl() + pathAndQuery));
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    if (!token.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
    QNetworkReply *reply = m_network.sendCustomRequest(request, method, body);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(15000))
        qWarning("no reply to %s %s", method.constData(), qPrintable(pathAndQuery));
    Reply result;
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    result.json = QJsonDocument::fromJson(result.body).object();
    reply->deleteLater();
    return result;
}

QString AccountServerTest::login(const QString &email, const QString &password)
{
    const Reply reply = call("POST", QStringLiteral("/TERMINAL/auth/login.php"),
                             json({{"email", email}, {"password", password}, {"lang", "en"}}));
    return reply.json.value(QLatin1String("token")).toString();
}

void AccountServerTest::loginOutcomes_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error");

    QTest::newRow("accepted") << json({{"email", kEmail}, {"password", kPassword}, {"lang", "pt"}})
                              << 200 << QString();
    QTest::newRow("e-mail in capitals")
            << json({{"email", " ANA@Example.com "}, {"password", kPassword}}) << 200 << QString();
    QTest::newRow("wrong password") << json({{"email", kEmail}, {"password", "Correct horse"}})
                                    << 401 << "invalid_credentials";
    QTest::newRow("unknown e-mail") << json({{"email", "bob@example.com"}, {"password", kPassword}})
                                    << 401 << "invalid_credentials";
    QTest::newRow("empty password")
            << json({{"email", kEmail}, {"password", ""}}) << 400 << "missing_credentials";
    QTest::newRow("no e-mail") << json({{"password", kPassword}}) << 400 << "missing_credentials";
    QTest::newRow("not JSON") << QByteArray("email=ana") << 400 << "bad_request";
    QTest::newRow("number as password")
            << json({{"email", kEmail}, {"password", 12345678}}) << 400 << "bad_request";
}

void AccountServerTest::loginOutcomes()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, error);

    const Reply reply = call("POST", QStringLiteral("/TERMINAL/auth/login.php"), body);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.json.value(QLatin1String("ok")).toBool(), error.isEmpty());
    QCOMPARE(reply.error(), error);
    if (!error.isEmpty())
        return;
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{64}$"))
                    .match(reply.json.value(QLatin1String("token")).toString())
                    .hasMatch());
    QCOMPARE(reply.json.value(QLatin1String("token_expiration")).toString(),
             QDateTime::fromMSecsSinceEpoch(kStartMs + 30LL * 24 * 3600 * 1000, Qt::UTC)
                     .toString(Qt::ISODate));
    QCOMPARE(reply.json.value(QLatin1String("email")).toString(), kEmail);
    QCOMPARE(reply.json.value(QLatin1String("first_name")).toString(), QStringLiteral("Ana"));
}

void AccountServerTest::repeatedFailuresAreRateLimited()
{
    for (int attempt = 0; attempt < 5; ++attempt)
        QVERIFY(login(kEmail, QStringLiteral("guess %1").arg(attempt)).isEmpty());
    const Reply limited = call("POST", QStringLiteral("/TERMINAL/auth/login.php"),
                               json({{"email", kEmail}, {"password", kPassword}}));
    QCOMPARE(limited.status, 429);
    QCOMPARE(limited.error(), QStringLiteral("rate_limited"));

    m_now += 16 * 60 * 1000;
    QVERIFY(!login().isEmpty());
}

void AccountServerTest::tokenExpiresWithTheClock()
{
    const QString token = login();
    const Reply me = call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token);
    QCOMPARE(me.status, 200);
    QCOMPARE(me.json.value(QLatin1String("token")).toString(), token);
    QCOMPARE(me.json.value(QLatin1String("email")).toString(), kEmail);

    m_now += 30LL * 24 * 3600 * 1000;
    const Reply expired = call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token);
    QCOMPARE(expired.status, 401);
    QCOMPARE(expired.error(), QStringLiteral("invalid_or_expired_token"));
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php")).error(),
             QStringLiteral("invalid_or_expired_token"));
}

void AccountServerTest::refreshRotatesAndRevokesTheOldToken()
{
    const QString old = login();
    m_now += 1000;
    const Reply refreshed = call("POST", QStringLiteral("/TERMINAL/auth/refresh.php"), "{}", old);
    QCOMPARE(refreshed.status, 200);
    const QString fresh = refreshed.json.value(QLatin1String("token")).toString();
    QVERIFY(!fresh.isEmpty() && fresh != old);
    QCOMPARE(refreshed.json.value(QLatin1String("first_name")).toString(), QStringLiteral("Ana"));

    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, old).status, 401);
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, fresh).status, 200);
    QCOMPARE(call("POST", QStringLiteral("/TERMINAL/auth/refresh.php"), "{}", old).error(),
             QStringLiteral("invalid_or_expired_token"));
}

void AccountServerTest::logoutRevokesTheToken()
{
    const QString token = login();
    const Reply out = call("POST", QStringLiteral("/TERMINAL/auth/logout.php"), "{}", token);
    QCOMPARE(out.status, 200);
    QVERIFY(out.json.value(QLatin1String("ok")).toBool());
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token).status, 401);
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token).error(),
             QStringLiteral("invalid_or_expired_token"));
}

void AccountServerTest::deviceSignInCompletesOnce()
{
    const QString poll = QStringLiteral("/TERMINAL/auth/google_poll.php?device=") + kDevice;
    const QString start = QStringLiteral("/TERMINAL/auth/google_start.php");
    // The terminal may poll before the browser has opened the page: the code waits all the same.
    QCOMPARE(call("GET", poll).json.value(QLatin1String("status")).toString(),
             QStringLiteral("pending"));

    const Reply page = call("GET", start + QStringLiteral("?device=%1&lang=pt").arg(kDevice));
    QCOMPARE(page.status, 200);
    QVERIFY(page.body.contains("OAuth"));
    QVERIFY(page.body.contains("action=\"google_start.php\""));
    QCOMPARE(call("GET", poll).json.value(QLatin1String("status")).toString(),
             QStringLiteral("pending"));

    const QByteArray form = "device=" + kDevice.toLatin1() + "&lang=en&email=ana%40example.com";
    QCOMPARE(call("POST", start, form + "&password=nope", {}, "application/x-www-form-urlencoded")
                     .status,
             401);
    QCOMPARE(call("GET", poll).json.value(QLatin1String("status")).toString(),
             QStringLiteral("pending"));
    QCOMPARE(call("POST", start, form + "&password=correct+horse", {},
                  "application/x-www-form-urlencoded")
                     .status,
             200);

    const Reply complete = call("GET", poll);
    QCOMPARE(complete.json.value(QLatin1String("status")).toString(), QStringLiteral("complete"));
    const QString token = complete.json.value(QLatin1String("token")).toString();
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token).status, 200);
    const Reply used = call("GET", poll);
    QCOMPARE(used.status, 410);
    QCOMPARE(used.error(), QStringLiteral("expired"));
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/google_poll.php?device=xyz")).status, 400);
}

void AccountServerTest::deviceCodeExpires()
{
    const QString start = QStringLiteral("/TERMINAL/auth/google_start.php");
    QCOMPARE(call("GET", start + QStringLiteral("?device=") + kDevice).status, 200);
    m_now += 10 * 60 * 1000;
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/google_poll.php?device=") + kDevice).status,
             410);
    const QByteArray form =
            "device=" + kDevice.toLatin1() + "&email=ana%40example.com&password=correct+horse";
    QCOMPARE(call("POST", start, form, {}, "application/x-www-form-urlencoded").status, 410);
}

void AccountServerTest::pushStoresVersionsAndPullReturnsPayloads()
{
    const QString token = login();
    const Reply empty = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token);
    QCOMPARE(empty.status, 200);
    QVERIFY(empty.json.value(QLatin1String("items")).isObject());
    QVERIFY(empty.json.value(QLatin1String("items")).toObject().isEmpty());

    const QJsonObject settings{{"theme", "dark"}, {"language", "pt"}};
    const QJsonArray alerts{QJsonObject{{"symbol", "PETR4.SA"}, {"above", 40.5}}};
    const Reply first =
            call("POST", QStringLiteral("/TERMINAL/sync/push.php"),
                 json({{"items", QJsonObject{{"settings", settings}, {"alerts", alerts}}},
                       {"expected_versions", QJsonObject{}}}),
                 token);
    QCOMPARE(first.status, 200);
    QCOMPARE(first.json.value(QLatin1String("versions")).toObject(),
             QJsonObject({{"settings", 1}, {"alerts", 1}}));
    QCOMPARE(first.json.value(QLatin1String("items")).toObject(),
             QJsonObject({{"settings", QJsonObject{{"version", 1}}},
                          {"alerts", QJsonObject{{"version", 1}}}}));

    m_now += 5000;
    const Reply second = call("POST", QStringLiteral("/TERMINAL/sync/push.php"),
                              json({{"items", QJsonObject{{"alerts", QJsonArray{}}}},
                                    {"expected_versions", QJsonObject{{"alerts", 1}}}}),
                              token);
    QCOMPARE(second.json.value(QLatin1String("versions")).toObject(), QJsonObject({{"alerts", 2}}));

    const QJsonObject items = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token)
                                      .json.value("items")
                                      .toObject();
    QCOMPARE(items.keys(), QStringList({"alerts", "settings"}));
    const QJsonObject storedSettings = items.value("settings").toObject();
    QCOMPARE(storedSettings.value("payload").toObject(), settings);
    QCOMPARE(storedSettings.value("version").toInt(), 1);
    QCOMPARE(storedSettings.value("payload_bytes").toInt(),
             int(QJsonDocument(settings).toJson(QJsonDocument::Compact).size()));
    QCOMPARE(storedSettings.value("updated_unix").toInteger(), kStartMs / 1000);
    QCOMPARE(items.value("alerts").toObject().value("payload").toArray(), QJsonArray());
    QCOMPARE(items.value("alerts").toObject().value("updated_unix").toInteger(),
             (kStartMs + 5000) / 1000);

    const QJsonObject status = call("GET", QStringLiteral("/TERMINAL/sync/status.php"), {}, token)
                                       .json.value("items")
                                       .toObject();
    QCOMPARE(status.value("alerts").toObject().value("version").toInt(), 2);
    QVERIFY(!status.value("settings").toObject().contains("payload"));
    QVERIFY(status.value("settings").toObject().contains("payload_bytes"));
}

void AccountServerTest::versionConflictChangesNothing()
{
    const QString token = login();
    const QString push = QStringLiteral("/TERMINAL/sync/push.php");
    call("POST", push, json({{"items", QJsonObject{{"settings", "one"}, {"alerts", "one"}}}}),
         token);
    call("POST", push,
         json({{"items", QJsonObject{{"alerts", "two"}}},
               {"expected_versions", QJsonObject{{"alerts", 1}}}}),
         token);

    // Settings would be fine at version 1; alerts are at 2, so neither may change.
    const Reply conflict =
            call("POST", push,
                 json({{"items", QJsonObject{{"settings", "three"}, {"alerts", "three"}}},
                       {"expected_versions", QJsonObject{{"settings", 1}, {"alerts", 1}}}}),
                 token);
    QCOMPARE(conflict.status, 409);
    QCOMPARE(conflict.error(), QStringLiteral("version_conflict"));

    const QJsonObject items = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token)
                                      .json.value("items")
                                      .toObject();
    QCOMPARE(items.value("settings").toObject().value("payload").toString(), QStringLiteral("one"));
    QCOMPARE(items.value("settings").toObject().value("version").toInt(), 1);
    QCOMPARE(items.value("alerts").toObject().value("payload").toString(), QStringLiteral("two"));
    QCOMPARE(items.value("alerts").toObject().value("version").toInt(), 2);
}

void AccountServerTest::refusedPushReadsNoItems_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");
    // The first namespace reads well; the refusal comes with a later one.
    QTest::newRow("later version as text")
            << json({{"items", QJsonObject{{"settings", 1}, {"alerts", 2}}},
                     {"expected_versions", QJsonObject{{"settings", 1}, {"alerts", "x"}}}})
            << "bad_request";
    QTest::newRow("later payload too large")
            << json({{"items", QJsonObject{{"settings", 1},
                                           {"workspace", QString(5000, QLatin1Char('x'))}}}})
            << "payload_too_large";
}

void AccountServerTest::refusedPushReadsNoItems()
{
    QFETCH(QByteArray, body);
    const account::PushBody push = account::readPushBody(body, 4096);
    QTEST(push.error, "error");
    QVERIFY(push.items.isEmpty());
}

void AccountServerTest::pushRefusals_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("signedIn");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error");

    const auto items = [](const QJsonObject &items) { return json({{"items", items}}); };
    QTest::newRow("unknown namespace")
            << items({{"settings", 1}, {"api_keys", 2}}) << true << 400 << "unknown_namespace";
    QTest::newRow("payload too large") << items({{"workspace", QString(5000, QLatin1Char('x'))}})
                                       << true << 413 << "payload_too_large";
    QTest::newRow("truncated JSON")
            << QByteArray("{\"items\": {\"settings\": ") << true << 400 << "bad_request";
    QTest::newRow("items not an object")
            << json({{"items", QJsonArray{1, 2}}}) << true << 400 << "bad_request";
    QTest::newRow("version as text") << json({{"items", QJsonObject{{"alerts", 1}}},
                                              {"expected_versions", QJsonObject{{"alerts", "1"}}}})
                                     << true << 400 << "bad_request";
    QTest::newRow("negative version") << json({{"items", QJsonObject{{"alerts", 1}}},
                                               {"expected_versions", QJsonObject{{"alerts", -1}}}})
                                      << true << 400 << "bad_request";
    QTest::newRow("no token") << items({{"settings", 1}}) << false << 401 << "missing_token";
}

void AccountServerTest::pushRefusals()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, signedIn);
    QFETCH(int, status);
    QFETCH(QString, error);

    AccountService::Options options;
    options.maxPayloadBytes = 4096;
    startService(options);
    const QString token = signedIn ? login() : QString();
    const Reply reply = call("POST", QStringLiteral("/TERMINAL/sync/push.php"), body, token);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.error(), error);
    if (signedIn) {
        const Reply pull = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token);
        QVERIFY(pull.json.value(QLatin1String("items")).toObject().isEmpty());
    }
}

void AccountServerTest::wrongMethodsAreRefused_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");

    QTest::newRow("GET login") << QByteArray("GET") << "/TERMINAL/auth/login.php";
    QTest::newRow("POST me") << QByteArray("POST") << "/TERMINAL/auth/me.php";
    QTest::newRow("GET refresh") << QByteArray("GET") << "/TERMINAL/auth/refresh.php";
    QTest::newRow("POST poll") << QByteArray("POST") << "/TERMINAL/auth/google_poll.php";
    QTest::newRow("GET push") << QByteArray("GET") << "/TERMINAL/sync/push.php";
    QTest::newRow("POST pull") << QByteArray("POST") << "/TERMINAL/sync/pull.php";
    QTest::newRow("DELETE status") << QByteArray("DELETE") << "/TERMINAL/sync/status.php";
    QTest::newRow("PUT news") << QByteArray("PUT") << "/TERMINAL/NEWS.json";
}

void AccountServerTest::wrongMethodsAreRefused()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);

    const Reply reply = call(method, path, "{}");
    QCOMPARE(reply.status, 405);
    QCOMPARE(reply.error(), QStringLiteral("method_not_allowed"));
}

void AccountServerTest::metacharactersRoundTripHarmlessly()
{
    const QString email = QStringLiteral("o'neil\";--@example.com");
    const QString password = QStringLiteral("x' OR '1'='1'; DROP TABLE users; --");
    QVERIFY(m_service->addUser(email, password, QStringLiteral("Robert'); DELETE FROM tokens;--")));
    QVERIFY(login(email, QStringLiteral("x' OR '1'='1")).isEmpty());
    const QString token = login(email, password);
    QVERIFY(!token.isEmpty());

    const QJsonObject payload{{"note", "'); DELETE FROM sync_items; --"}, {"%", "_\\\"\u00e9"}};
    QCOMPARE(call("POST", QStringLiteral("/TERMINAL/sync/push.php"),
                  json({{"items", QJsonObject{{"watchlists", payload}}}}), token)
                     .status,
             200);
    const QJsonObject items = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token)
                                      .json.value("items")
                                      .toObject();
    QCOMPARE(items.value("watchlists").toObject().value("payload").toObject(), payload);
    const Reply me = call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token);
    QCOMPARE(me.json.value(QLatin1String("first_name")).toString(),
             QStringLiteral("Robert'); DELETE FROM tokens;--"));
    QVERIFY(!login().isEmpty()); // the first user is still there
}

void AccountServerTest::registrationCreatesAnAccount()
{
    const QString path = QStringLiteral("/login_page.php");
    const Reply form = call("GET", path + QStringLiteral("?lang=pt&register&form"));
    QCOMPARE(form.status, 200);
    QVERIFY(form.body.contains("name=\"password2\""));

    const auto post = [&](const QByteArray &fields) {
        return call("POST", path, "lang=en&" + fields, {}, "application/x-www-form-urlencoded");
    };
    QCOMPARE(post("email=bo%40example.com&password=short&password2=short").status, 400);
    QCOMPARE(post("email=bo%40example.com&password=long+enough&password2=long+enougH").status, 400);
    QCOMPARE(post("email=ana%40example.com&password=long+enough&password2=long+enough").status,
             409);

    const Reply created = post("email=bo%40example.com&first_name=%3Cb%3EBo%3C%2Fb%3E"
                               "&password=long+enough&password2=long+enough");
    QCOMPARE(created.status, 200);
    QVERIFY(created.body.contains("bo@example.com"));
    const Reply problem = post("email=%3Cscript%3E&password=long+enough&password2=long+enough");
    QVERIFY(!problem.body.contains("<script>"));
    QVERIFY(problem.body.contains("&lt;script&gt;"));

    const QString token = login(QStringLiteral("bo@example.com"), QStringLiteral("long enough"));
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/auth/me.php"), {}, token)
                     .json.value("first_name")
                     .toString(),
             QStringLiteral("<b>Bo</b>"));
}

void AccountServerTest::unopenableDatabaseAnswersUnavailable()
{
    AccountService::Options options;
    options.databasePath = m_dir->path(); // a folder
    startService(options);
    QVERIFY(!m_service->databaseAvailable());
    QVERIFY(!m_service->addUser(QStringLiteral("bo@example.com"), kPassword));

    const Reply login = call("POST", QStringLiteral("/TERMINAL/auth/login.php"),
                             json({{"email", kEmail}, {"password", kPassword}}));
    QCOMPARE(login.status, 503);
    QCOMPARE(login.error(), QStringLiteral("database_unavailable"));
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, QStringLiteral("abc"))
                     .error(),
             QStringLiteral("database_unavailable"));
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/NEWS.json")).status, 200);
}

void AccountServerTest::pushSurvivesARestart()
{
    const QString token = login();
    QCOMPARE(call("POST", QStringLiteral("/TERMINAL/sync/push.php"),
                  json({{"items", QJsonObject{{"portfolios", QJsonArray{"main"}}}}}), token)
                     .status,
             200);
    startService();
    const QJsonObject item = call("GET", QStringLiteral("/TERMINAL/sync/pull.php"), {}, token)
                                     .json.value("items")
                                     .toObject()
                                     .value("portfolios")
                                     .toObject();
    QCOMPARE(item.value("version").toInt(), 1);
    QCOMPARE(item.value("payload").toArray(), QJsonArray{"main"});
}

void AccountServerTest::newsIsFilteredAndFollowsTheFile_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QStringList>("titles");

    QTest::newRow("everything, newest first")
            << "category=all&limit=80"
            << QStringList{"Bitcoin sobe", "Fed holds", "Petrobras lucra"};
    QTest::newRow("crypto") << "category=crypto" << QStringList{"Bitcoin sobe"};
    QTest::newRow("br") << "category=br" << QStringList{"Petrobras lucra"};
    QTest::newRow("text, any case") << "q=PETRÓLEO" << QStringList{"Petrobras lucra"};
    QTest::newRow("text in title") << "q=fed&category=us" << QStringList{"Fed holds"};
    QTest::newRow("limit") << "limit=2" << QStringList{"Bitcoin sobe", "Fed holds"};
}

void AccountServerTest::newsIsFilteredAndFollowsTheFile()
{
    QFETCH(QString, query);
    QFETCH(QStringList, titles);

    const QString file = m_dir->filePath(QStringLiteral("news.json"));
    const auto write = [&](const QByteArray &text) {
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(text);
    };
    write(R"({"domestic": [{"Titulo": "Petrobras lucra", "Texto": "Alta do petróleo",
                            "Fonte": "Valor", "Data": "2026-03-02T10:00:00Z"}],
              "international": [{"title": "Fed holds", "source": "Reuters",
                                 "date": "2026-03-02T11:00:00Z", "link": "https://x/1"}],
              "crypto": [{"title": "Bitcoin sobe", "date": "2026-03-02T12:00:00Z"}]})");
    AccountService::Options options;
    options.newsFile = file;
    startService(options);

    const Reply reply = call("GET", QStringLiteral("/TERMINAL/NEWS.json?") + query);
    QStringList got;
    for (const QJsonValue &item : reply.json.value(QLatin1String("news")).toArray())
        got.append(item.toObject().value(QLatin1String("title")).toString());
    QCOMPARE(got, titles);

    write(R"({"crypto": [{"title": "Ether cai"}]})");
    const QJsonArray edited =
            call("GET", QStringLiteral("/TERMINAL/NEWS.json")).json.value("news").toArray();
    QCOMPARE(edited.size(), 1);
    QCOMPARE(edited.at(0).toObject().value("category").toString(), QStringLiteral("crypto"));

    startService();
    QCOMPARE(call("GET", QStringLiteral("/TERMINAL/NEWS.json")).json,
             QJsonObject({{"ok", true}, {"news", QJsonArray{}}}));
}

QTEST_GUILESS_MAIN(AccountServerTest)
#include "tst_account_server.moc"
