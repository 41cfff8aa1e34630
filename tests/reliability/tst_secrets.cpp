// A distinct canary in every key slot, every provider host played by a server of its own, and the
// terminal driven through quotes, streams, the health check, the API keys dialog, saves and an
// account sync. Afterwards no canary may be found anywhere but in the key file and in the requests
// to its own provider: not in a file, a log line, another host's request, a sync payload or any
// text on screen. A crash report is looked at in a child process.
#include "account/account_request.h"
#include "account/account_service.h"
#include "app/identity.h"
#include "app/language.h"
#include "providers/api_keys.h"
#include "providers/secret_mask.h"
#include "support/fake_provider.h"
#include "support/fake_websocket_server.h"
#include "support/isolated_folders.h"
#include "tst_secrets_scan.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/modal_script.h"
#include "ui/verify_apis_dialog.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QStatusBar>
#include <QTest>
#include <QUrl>

#include <cstdio>
#include <map>
#include <memory>
#include <sys/stat.h>

namespace {

const QString kMarker = QStringLiteral("CANARY");
const QString kEmail = QStringLiteral("ana@example.com");
const QString kPassword = QStringLiteral("correct horse battery");
const QString kNewsEndpointName = QStringLiteral("querlin_news_endpoint");

// One canary per key slot. The Financial Modeling Prep one carries characters a URL encodes, so an
// echo of the request address quotes it in a form other than the one the terminal holds.
QString canaryFor(const QString &slot)
{
    QString canary = kMarker + QLatin1Char('-') + slot + QStringLiteral("-7f3a9c");
    if (slot == QLatin1String("financial_modeling_prep_api_key"))
        canary += QStringLiteral("+/=");
    return canary;
}

QStringList secretSlots()
{
    QStringList names;
    for (const ApiKeyEntry &entry : apiKeyCatalogue()) {
        if (QString::fromLatin1(entry.name) != kNewsEndpointName)
            names << QString::fromLatin1(entry.name);
    }
    return names;
}

// The forms a key may take in a request to its own provider: as is and percent-encoded.
QStringList formsOf(const QString &value)
{
    return {value, QString::fromLatin1(QUrl::toPercentEncoding(value))};
}

QString requestText(const RecordedRequest &request)
{
    QByteArray text = request.method + ' ' + request.path + '?' + request.rawQuery + '\n';
    for (const auto &[name, value] : request.headers)
        text += name + ": " + value + '\n';
    return QString::fromUtf8(text + request.body);
}

int fileMode(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return int(status.st_mode & 07777);
}

// Every host the terminal calls, each played by a server of its own, and the key slot whose value
// may reach it (empty: none may).
struct Hosts
{
    std::map<QString, std::unique_ptr<FakeProvider>> http; // by environment variable
    std::map<QString, QString> ownSlot;                    // by environment variable
    FakeProvider houseNews;                                // the key file's news endpoint
    FakeProvider stranger;                                 // where redirects lead
    FakeWebSocketServer binanceStream;
    FakeWebSocketServer itick;

    FakeProvider &operator[](const char *variable) { return *http.at(QLatin1String(variable)); }

    bool listen()
    {
        const std::pair<const char *, const char *> table[] = {
                {"QRL_ENDPOINT_BINANCE_REST", ""},
                {"QRL_ENDPOINT_YAHOO_QUERY", ""},
                {"QRL_ENDPOINT_YAHOO_COOKIE", ""},
                {"QRL_ENDPOINT_YAHOO_FEEDS", ""},
                {"QRL_ENDPOINT_BRAPI", "brapi_token"},
                {"QRL_ENDPOINT_ALPHA_VANTAGE", "alpha_vantage_api_key"},
                {"QRL_ENDPOINT_FINNHUB", "finnhub_api_key"},
                {"QRL_ENDPOINT_TWELVE_DATA", "twelvedata_api_key"},
                {"QRL_ENDPOINT_FMP", "financial_modeling_prep_api_key"},
                {"QRL_ENDPOINT_NEWSAPI", "newsapi_api_key"},
        };
        for (const auto &[variable, slot] : table) {
            auto server = std::make_unique<FakeProvider>();
            if (!server->listen())
                return false;
            qputenv(variable, server->baseUrl().toUtf8());
            http.emplace(QLatin1String(variable), std::move(server));
            ownSlot.emplace(QLatin1String(variable), QLatin1String(slot));
        }
        if (!houseNews.listen() || !stranger.listen() || !binanceStream.listen() || !itick.listen())
            return false;
        qputenv("QRL_ENDPOINT_BINANCE_STREAM", binanceStream.baseUrl().toUtf8());
        qputenv("QRL_ENDPOINT_ITICK_STREAM", itick.baseUrl().toUtf8());
        return true;
    }

    ~Hosts()
    {
        for (const auto &[variable, server] : http)
            qunsetenv(variable.toLatin1().constData());
        qunsetenv("QRL_ENDPOINT_BINANCE_STREAM");
        qunsetenv("QRL_ENDPOINT_ITICK_STREAM");
    }
};

} // namespace

class SecretsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void canariesStayWithTheirOwnProviders();
    void crashReportDoesNotPrintKeys();

private:
    void scriptReplies();
    void saveKeysThroughTheDialog(MainWindow &window);
    void checkKeyFileMode(const char *after);
    void runHealthChecks(MainWindow &window);
    void syncAccount(MainWindow &window);
    QString keyFilePath() const { return m_folders->expectedConfigFolder() + "/config.txt"; }
    QStringList leaksOnServers(const QList<QByteArray> &accountRequests);

    std::unique_ptr<IsolatedFolders> m_folders;
    std::unique_ptr<Hosts> m_hosts;
    std::unique_ptr<AccountService> m_account;
    std::map<QString, QString> m_canaries; // by slot
};

void SecretsTest::initTestCase()
{
    useTerminalIdentity();
    setInterfaceLanguage(QStringLiteral("en"));
    for (const QString &slot : secretSlots())
        m_canaries.emplace(slot, canaryFor(slot));
}

void SecretsTest::init()
{
    m_folders = std::make_unique<IsolatedFolders>();
    m_hosts = std::make_unique<Hosts>();
    QVERIFY(m_hosts->listen());
    m_account = std::make_unique<AccountService>();
    AccountService::Options options;
    options.databasePath = m_folders->root() + QStringLiteral("/server/accounts.sqlite");
    options.logRequests = false;
    QDir().mkpath(m_folders->root() + QStringLiteral("/server"));
    QVERIFY(m_account->open(options));
    QVERIFY(m_account->listen());
    QVERIFY(m_account->addUser(kEmail, kPassword, QStringLiteral("Ana")));
    qputenv("QRL_ENDPOINT_ACCOUNT", m_account->baseUrl().toUtf8());

    QByteArray keyFile = "# QUERLIN_TERMINAL local keys. Do not commit this file.\n";
    for (const auto &[slot, canary] : m_canaries)
        keyFile += slot.toUtf8() + '=' + canary.toUtf8() + '\n';
    keyFile += kNewsEndpointName.toUtf8() + '=' + m_hosts->houseNews.baseUrl().toUtf8() +
               "/TERMINAL/NEWS.json\n";
    m_folders->writeFile(keyFilePath(), keyFile); // readable by all, as a hand-written file is
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/watchlists/default.json",
                         R"({"symbols":[{"symbol":"AAPL"},{"symbol":"PETR4.SA"},)"
                         R"({"symbol":"EURUSD=X"},{"symbol":"BTCUSDT"}]})");
    scriptReplies();
}

void SecretsTest::cleanup()
{
    m_account.reset();
    qunsetenv("QRL_ENDPOINT_ACCOUNT");
    m_hosts.reset();
    m_folders.reset();
}

// Replies as the providers give them when a key is wrong or spent, each quoting the key back.
void SecretsTest::scriptReplies()
{
    const auto canary = [this](const char *slot) {
        return m_canaries.at(QLatin1String(slot)).toUtf8();
    };
    const QByteArray alpha = canary("alpha_vantage_api_key");
    m_hosts->operator[]("QRL_ENDPOINT_ALPHA_VANTAGE")
            .setReply("/query",
                      FakeReply::json(R"({"Information": "We have detected your API key as )" +
                                      alpha +
                                      R"( and our standard API rate limit is 25 requests per day.)"
                                      R"( Please subscribe to any of the premium plans at )"
                                      R"(https://www.alphavantage.co/premium/ to instantly )"
                                      R"(remove all daily rate limits."})"));
    const QByteArray finnhub = canary("finnhub_api_key");
    m_hosts->operator[]("QRL_ENDPOINT_FINNHUB")
            .setReply("/api/v1/quote",
                      FakeReply::json(R"({"error":"Invalid API key )" + finnhub +
                                      R"( in https://finnhub.io/api/v1/quote?symbol=AAPL&token=)" +
                                      finnhub + R"("})"));
    // The key straddles the 180th character, where a provider message is cut.
    const QByteArray twelve = canary("twelvedata_api_key");
    m_hosts->operator[]("QRL_ENDPOINT_TWELVE_DATA")
            .setReply("/quote", FakeReply::json(R"({"code":401,"status":"error","message":")" +
                                                QByteArray(170, 'x') + ' ' + twelve + R"("})"));
    // Financial Modeling Prep quotes the address it was asked, percent-encoded as sent.
    const QByteArray fmp =
            QUrl::toPercentEncoding(QString::fromUtf8(canary("financial_modeling_prep_api_key")));
    const FakeReply fmpReply = FakeReply::json(
            R"({"Error Message":"Invalid API KEY for /api/v3/quote/AAPL?apikey=)" + fmp + R"("})");
    m_hosts->operator[]("QRL_ENDPOINT_FMP").setReply("/api/v3/quote/AAPL", fmpReply);
    m_hosts->operator[]("QRL_ENDPOINT_FMP").setReply("/stable/quote", fmpReply);
    m_hosts->operator[]("QRL_ENDPOINT_BRAPI")
            .setReply("/api/quote/PETR4",
                      FakeReply::json(R"({"error":true,"message":"O seu token )" +
                                      canary("brapi_token") + R"( é inválido"})"));
    m_hosts->operator[]("QRL_ENDPOINT_NEWSAPI")
            .setReply("/v2/everything",
                      FakeReply::json(R"({"status":"error","code":"apiKeyInvalid","message":)"
                                      R"("Your API key )" +
                                              canary("newsapi_api_key") + R"( is invalid."})",
                                      401));
    m_hosts->operator[]("QRL_ENDPOINT_YAHOO_QUERY")
            .setReply("/v8/finance/chart/AAPL", FakeReply::text("Too Many Requests", 429));
    // The house feed moved elsewhere; its bearer token must not follow.
    m_hosts->houseNews.setReply(
            "/TERMINAL/NEWS.json",
            FakeReply{.status = 302,
                      .headers = {{"Location", m_hosts->stranger.baseUrl().toUtf8() + "/news"}}});
    // iTick echoes the token in its auth answer, and again when it refuses it.
    const QByteArray itick = canary("itick_api_key");
    m_hosts->itick.setGreeting(
            {R"({"code":1,"msg":"Connected Successfully"})",
             R"({"code":1,"resAc":"auth","msg":"authenticated","data":{"params":")" + itick +
                     R"("}})",
             R"({"code":0,"resAc":"auth","msg":"auth failed for )" + itick + R"("})"});
}

void SecretsTest::checkKeyFileMode(const char *after)
{
    QVERIFY2(fileMode(keyFilePath()) == 0600, after);
}

void SecretsTest::saveKeysThroughTheDialog(MainWindow &window)
{
    ModalScript script({ModalScript::accept()});
    window.showApiKeysDialog();
    QVERIFY(script.done());
    QCOMPARE(window.statusBar()->currentMessage(), keysSavedText());
    const QByteArray saved = IsolatedFolders::readFile(keyFilePath());
    for (const auto &[slot, canary] : m_canaries)
        QVERIFY2(saved.contains(slot.toUtf8() + '=' + canary.toUtf8() + '\n'), qPrintable(slot));
    checkKeyFileMode("the API keys dialog");
}

void SecretsTest::runHealthChecks(MainWindow &window)
{
    window.findChild<QAction *>(QStringLiteral("verifyApisAction"))->trigger();
    auto *dialog = window.findChild<VerifyApisDialog *>();
    QVERIFY(dialog);
    auto *run = dialog->findChild<QPushButton *>(QStringLiteral("runHealthChecks"));
    run->click();
    QTRY_VERIFY(run->isEnabled());
    dialog->findChild<QPushButton *>(QStringLiteral("logCascade"))->click();
    const ApiHealthRecord alpha = window.healthRecords().value("US/America|Alpha Vantage");
    QCOMPARE(alpha.state, QStringLiteral("rate limited"));
    QVERIFY2(alpha.lastError.startsWith("We have detected your API key as "),
             qPrintable(alpha.lastError));
}

void SecretsTest::syncAccount(MainWindow &window)
{
    window.setAccountTiming(3000, 10, 2000);
    window.setUrlOpener([](const QUrl &) { return true; });
    window.setOfferLoginAfterLogout(false);
    QString error;
    QVERIFY2(window.login(kEmail, kPassword, &error), qPrintable(error));
    ModalScript script({ModalScript::button(QMessageBox::Ok)});
    window.syncAccountNow();
    QVERIFY(script.done());
    QCOMPARE(window.syncState().lastStatus, QStringLiteral("uploaded"));
}

QStringList SecretsTest::leaksOnServers(const QList<QByteArray> &accountRequests)
{
    const auto allowedFor = [this](const QString &slot) {
        return slot.isEmpty() ? QStringList() : formsOf(m_canaries.at(slot));
    };
    QStringList leaks;
    for (const auto &[variable, server] : m_hosts->http) {
        QList<FoundText> sent;
        for (const RecordedRequest &request : server->requests())
            sent.append({variable, requestText(request)});
        leaks += leaksIn(sent, kMarker, allowedFor(m_hosts->ownSlot.at(variable)));
    }
    QList<FoundText> news;
    for (const RecordedRequest &request : m_hosts->houseNews.requests())
        news.append({QStringLiteral("house news"), requestText(request)});
    leaks += leaksIn(news, kMarker, allowedFor(QStringLiteral("querlin_news_token")));

    QList<FoundText> elsewhere;
    for (const RecordedRequest &request : m_hosts->stranger.requests())
        elsewhere.append({QStringLiteral("redirect target"), requestText(request)});
    for (const QByteArray &request : accountRequests)
        elsewhere.append({QStringLiteral("account service"), QString::fromUtf8(request)});
    for (const QString &path : m_hosts->binanceStream.requestedPaths())
        elsewhere.append({QStringLiteral("binance stream"), path});
    for (const QString &message : m_hosts->binanceStream.receivedMessages())
        elsewhere.append({QStringLiteral("binance stream"), message});
    for (const char *header : {"token", "authorization", "cookie"})
        elsewhere.append({QStringLiteral("binance stream"),
                          QString::fromUtf8(m_hosts->binanceStream.lastRequestHeader(header))});
    leaks += leaksIn(elsewhere, kMarker);

    QList<FoundText> itick;
    for (const QString &message : m_hosts->itick.receivedMessages())
        itick.append({QStringLiteral("itick"), message});
    itick.append({QStringLiteral("itick"),
                  QString::fromUtf8(m_hosts->itick.lastRequestHeader("token"))});
    leaks += leaksIn(itick, kMarker, allowedFor(QStringLiteral("itick_api_key")));
    return leaks;
}

void SecretsTest::canariesStayWithTheirOwnProviders()
{
    MessageCapture messages;
    installSecretMaskingMessageHandler(); // as main() does
    QList<QByteArray> accountRequests;
    setAccountRequestObserver([&](const QNetworkRequest &request, const QByteArray &body) {
        QByteArray text = request.url().toEncoded() + '\n';
        for (const QByteArray &name : request.rawHeaderList())
            text += name + ": " + request.rawHeader(name) + '\n';
        accountRequests << text + body;
    });
    auto restoreObserver = qScopeGuard([] { setAccountRequestObserver({}); });

    QStringList leaks;
    QList<FoundText> statusMessages; // every one shown, not only the last
    {
        MainWindow window;
        connect(window.statusBar(), &QStatusBar::messageChanged, this,
                [&statusMessages](const QString &message) {
                    statusMessages.append({QStringLiteral("status bar"), message});
                });
        window.show();
        window.startMarketData();
        const auto events = [&window] {
            return window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
        };
        QTRY_VERIFY(events().contains("All quote providers failed for AAPL"));
        QTRY_VERIFY(events().contains("All B3 providers failed for PETR4.SA"));
        QTRY_VERIFY(events().contains("Forex quote failed for EURUSD=X"));
        QTRY_VERIFY(!m_hosts->houseNews.requests().isEmpty());
        QTRY_VERIFY(!m_hosts->operator[]("QRL_ENDPOINT_NEWSAPI").requests().isEmpty());

        // A US equity opens iTick, which answers with the token; a B3 symbol asks BrAPI for its
        // history with the token as a bearer header, and BrAPI moves it elsewhere.
        window.marketTable()->selectRow(window.findMarketRow(QStringLiteral("AAPL")));
        QVERIFY(m_hosts->itick.waitForMessages(2));
        m_hosts->operator[]("QRL_ENDPOINT_BRAPI")
                .setReply("/api/quote/PETR4",
                          FakeReply{.status = 301,
                                    .headers = {{"Location", m_hosts->stranger.baseUrl().toUtf8() +
                                                                     "/brapi"}}});
        // The request with the token stops at the redirect; the one without follows it.
        window.marketTable()->selectRow(window.findMarketRow(QStringLiteral("PETR4.SA")));
        QTRY_VERIFY(!m_hosts->stranger.requests().isEmpty());

        FakeProvider &finnhub = m_hosts->operator[]("QRL_ENDPOINT_FINNHUB");
        const qsizetype finnhubBefore = finnhub.requests().size();
        window.refreshMarketQuotes();
        QTRY_VERIFY(finnhub.requests().size() > finnhubBefore);
        runHealthChecks(window);
        saveKeysThroughTheDialog(window);
        window.saveLocalSettings();
        checkKeyFileMode("the settings save");
        window.saveWorkspaceSnapshot();
        checkKeyFileMode("the workspace save");
        syncAccount(window);
        window.logEvent(QStringLiteral("finished"));
        qWarning("A provider said: %s", qPrintable(m_canaries.at("alpha_vantage_api_key")));

        leaks += leaksIn(widgetTexts(), kMarker);
        window.saveLocalSettings();
    }
    checkKeyFileMode("closing the window");

    QList<FoundText> logged;
    for (const QString &line : messages.lines())
        logged.append({QStringLiteral("message log"), line});
    QVERIFY(messages.lines().contains(QStringLiteral("A provider said: ***")));
    leaks += leaksIn(logged, kMarker);
    leaks += leaksIn(statusMessages, kMarker);
    QVERIFY(statusMessages.size() > 10);
    leaks += leaksIn(
            folderFiles(m_folders->root(), {keyFilePath().mid(m_folders->root().size() + 1)}),
            kMarker);
    leaks += leaksOnServers(accountRequests);
    // Every leak at once; QTest would cut a long failure message short.
    for (const QString &leak : std::as_const(leaks))
        std::fprintf(stderr, "leak: %s\n",
                     qPrintable(QString(leak).replace(QLatin1Char('\n'), QLatin1String(" \\n "))));
    QVERIFY2(leaks.isEmpty(), qPrintable(QString::number(leaks.size()) + " leaks"));
    QVERIFY(!accountRequests.isEmpty());
}

// qFatal's report goes through the message handler on its way to stderr before the abort.
void SecretsTest::crashReportDoesNotPrintKeys()
{
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QRL_SECRETS_CRASH_CHILD"), canaryFor("crash"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {});
    QVERIFY(child.waitForFinished(10000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    const QString output = QString::fromUtf8(child.readAllStandardError());
    QVERIFY2(output.contains(QStringLiteral("Unrecoverable provider reply: ***")),
             qPrintable(output));
    QVERIFY2(!output.contains(kMarker, Qt::CaseInsensitive), qPrintable(output));
}

namespace {

// The child: a key is known, and then the terminal dies quoting it.
int crashWithKnownKey(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    installSecretMaskingMessageHandler();
    ApiKeyStore keys;
    const QString key = qEnvironmentVariable("QRL_SECRETS_CRASH_CHILD");
    keys.setApiKey(QStringLiteral("finnhub_api_key"), key);
    qFatal("Unrecoverable provider reply: %s", qPrintable(key));
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsSet("QRL_SECRETS_CRASH_CHILD"))
        return crashWithKnownKey(argc, argv);
    QApplication app(argc, argv);
    SecretsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_secrets.moc"
