#include "account/account_request.h"
#include "providers/api_keys.h"
#include "providers/provider_catalogue.h"
#include "providers/provider_requests.h"
#include "providers/provider_response.h"
#include "providers/quote_step.h"
#include "providers/secret_mask.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"

#include <QDateTime>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

namespace {

QStringList logged;
void keepMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    logged << message;
}

} // namespace

class SecretMaskTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useTerminalIdentity(); }
    void init() { forgetSecrets(); }

    void masksEveryFormOfAKnownKey_data();
    void masksEveryFormOfAKnownKey();
    void keyStoreRemembersWhatEntersIt();
    void messageHandlerMasksBeforePassingOn();
    void providerMessageIsMaskedBeforeItIsCut();
    void requestMaskerCatchesTheEncodedQueryValue();
    void healthRecordsNeverKeepAKey();
    void bearerTokenDoesNotFollowARedirectElsewhere_data();
    void bearerTokenDoesNotFollowARedirectElsewhere();
    void accountTokenDoesNotFollowARedirectElsewhere();
};

void SecretMaskTest::masksEveryFormOfAKnownKey_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("masked");

    const QStringList key{QStringLiteral("k3y+/=value")};
    QTest::newRow("as is") << key << "detected k3y+/=value twice: k3y+/=value"
                           << "detected *** twice: ***";
    QTest::newRow("percent-encoded") << key << "?apikey=k3y%2B%2F%3Dvalue&x=1"
                                     << "?apikey=***&x=1";
    QTest::newRow("lower-case escapes") << key << "apikey=k3y%2b%2f%3dvalue"
                                        << "apikey=***";
    QTest::newRow("a key inside a longer one")
            << QStringList{"abcd", "abcdefgh"} << "abcdefgh and abcd"
            << "*** and ***";
    QTest::newRow("spaces around a key") << QStringList{"  spaced-key \n"} << "[spaced-key]"
                                         << "[***]";
    QTest::newRow("short values stay") << QStringList{"abc"} << "abc abcd"
                                       << "abc abcd";
    QTest::newRow("nothing known") << QStringList{} << "plain text"
                                   << "plain text";
}

void SecretMaskTest::masksEveryFormOfAKnownKey()
{
    QFETCH(QStringList, keys);
    QFETCH(QString, text);
    QFETCH(QString, masked);
    for (const QString &key : keys)
        rememberSecret(key);
    QCOMPARE(maskSecrets(text), masked);
}

void SecretMaskTest::keyStoreRemembersWhatEntersIt()
{
    IsolatedFolders folders;
    qputenv("QRL_ITICK_API_KEY", "from-the-environment");
    folders.writeFile(folders.expectedConfigFolder() + "/config.txt",
                      "newsapi_api_key=from-the-file\n"
                      "querlin_news_endpoint=https://news.example.com/feed.json\n"
                      "hidden_columns=3,15\n");
    ApiKeyStore keys;
    keys.loadConfig();
    keys.setApiKey(QStringLiteral("binance_api_secret"), QStringLiteral("typed-in-dialog"));
    qunsetenv("QRL_ITICK_API_KEY");
    QCOMPARE(maskSecrets("from-the-environment from-the-file typed-in-dialog"),
             QStringLiteral("*** *** ***"));
    // The news address is not a secret, and neither are column numbers.
    QCOMPARE(maskSecrets("https://news.example.com/feed.json 3,15"),
             QStringLiteral("https://news.example.com/feed.json 3,15"));
}

void SecretMaskTest::messageHandlerMasksBeforePassingOn()
{
    logged.clear();
    const QtMessageHandler previous = qInstallMessageHandler(keepMessage);
    installSecretMaskingMessageHandler();
    installSecretMaskingMessageHandler(); // a second time changes nothing
    rememberSecret(QStringLiteral("logged-key-123"));
    qWarning("reply quoted logged-key-123");
    qDebug() << "url" << QUrl("http://x/?token=logged-key-123");
    qInstallMessageHandler(previous);
    QCOMPARE(logged, (QStringList{"reply quoted ***", "url QUrl(\"http://x/?token=***\")"}));
}

void SecretMaskTest::providerMessageIsMaskedBeforeItIsCut()
{
    const QString key = QStringLiteral("TWELVE-KEY-0123456789");
    rememberSecret(key);
    // The key starts at the 171st character and would be cut in two at the 180th.
    const QString text = QString(170, QLatin1Char('x')) + QLatin1Char(' ') + key;
    const QString message = extractProviderMessage({{"message", text}});
    QCOMPARE(message, QString(170, QLatin1Char('x')) + QStringLiteral(" ***"));
}

void SecretMaskTest::requestMaskerCatchesTheEncodedQueryValue()
{
    // Not known to the store (a fetcher built by hand): the request's own query is the guide.
    const QUrl url(QStringLiteral("http://fmp/api/v3/quote/AAPL?apikey=fmp%2Bkey%2F1"));
    QCOMPARE(maskRequestSecrets("Invalid key fmp+key/1 for ?apikey=fmp%2Bkey%2F1", url),
             QStringLiteral("Invalid key *** for ?apikey=***"));
}

void SecretMaskTest::healthRecordsNeverKeepAKey()
{
    rememberSecret(QStringLiteral("alpha-key-4242"));
    ApiHealthRecord record;
    ProviderResponseCheck check;
    check.rateLimited = true;
    check.retryAfterSeconds = 30;
    check.message = QStringLiteral("We have detected your API key as alpha-key-4242");
    applyHealthTestReply(record, check, 12, QDateTime::currentDateTime());
    QCOMPARE(record.lastError,
             QStringLiteral("We have detected your API key as ***; retry in 30s"));
    // A settings file written before masking existed is cleaned as it is read.
    const ApiHealthRecord loaded = ApiHealthRecord::fromJson(
            QJsonObject{{"state", "error"}, {"last_error", "key alpha-key-4242 refused"}});
    QCOMPARE(loaded.lastError, QStringLiteral("key *** refused"));
}

void SecretMaskTest::bearerTokenDoesNotFollowARedirectElsewhere_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<bool>("house");
    QTest::newRow("BrAPI with a token") << "brapi-bearer-77" << false;
    QTest::newRow("BrAPI without one") << "" << false;
    QTest::newRow("house news with a token") << "news-bearer-77" << true;
}

void SecretMaskTest::bearerTokenDoesNotFollowARedirectElsewhere()
{
    QFETCH(QString, token);
    QFETCH(bool, house);
    IsolatedFolders folders;
    FakeProvider provider;
    FakeProvider elsewhere;
    QVERIFY(provider.listen() && elsewhere.listen());
    qputenv("QRL_ENDPOINT_BRAPI", provider.baseUrl().toUtf8());
    const FakeReply moved{.status = 302,
                          .headers = {{"Location", elsewhere.baseUrl().toUtf8() + "/moved"}}};
    provider.setReply("/api/quote/PETR4", moved);
    provider.setReply("/feed.json", moved);
    provider.setReply("/same-host", FakeReply::json("[]"));
    const QNetworkRequest request =
            house ? terminalNewsRequest(QUrl(provider.baseUrl() + "/feed.json"), token, {}, {},
                                        QStringLiteral("en"))
                  : brapiQuoteRequest(QStringLiteral("PETR4.SA"), token);

    QNetworkAccessManager network;
    QNetworkReply *reply = network.get(request);
    QTRY_VERIFY(reply->isFinished());
    delete reply;
    QCOMPARE(provider.requests().size(), 1);
    QCOMPARE(elsewhere.requests().size(), token.isEmpty() ? 1 : 0);

    // On its own host a redirect is still followed, token and all.
    provider.setReply("/feed.json",
                      FakeReply{.status = 302, .headers = {{"Location", "/same-host"}}});
    provider.setReply("/api/quote/PETR4",
                      FakeReply{.status = 302, .headers = {{"Location", "/same-host"}}});
    reply = network.get(request);
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
    delete reply;
    QCOMPARE(provider.lastRequest().header("Authorization"),
             token.isEmpty() ? QByteArray() : "Bearer " + token.toUtf8());
    qunsetenv("QRL_ENDPOINT_BRAPI");
}

void SecretMaskTest::accountTokenDoesNotFollowARedirectElsewhere()
{
    FakeProvider account;
    FakeProvider elsewhere;
    QVERIFY(account.listen() && elsewhere.listen());
    account.setReply("/api/v1/me",
                     FakeReply{.status = 302,
                               .headers = {{"Location", elsewhere.baseUrl().toUtf8() + "/me"}}});
    const AccountReply reply = accountRequest(QUrl(account.baseUrl() + "/api/v1/me"), "GET", {},
                                              QStringLiteral("session-token-77"), 3000);
    QCOMPARE(reply.httpStatus, 302);
    QCOMPARE(account.requests().size(), 1);
    QVERIFY(elsewhere.requests().isEmpty());
}

QTEST_GUILESS_MAIN(SecretMaskTest)
#include "tst_secret_mask.moc"
