#include "account/account_service.h"
#include "app/language.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/modal_script.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

#include <algorithm>
#include <memory>

Q_DECLARE_METATYPE(FakeReply)

namespace {

const QString kEmail = QStringLiteral("ana@example.com");
const QString kPassword = QStringLiteral("correct horse battery");
const QByteArray kCanary = "CANARY-KEY-7f3e9a";

using Button = QMessageBox::StandardButton;

// What the terminal sent to the account service, headers and body, for the whole test.
struct SentRequests
{
    QList<QByteArray> texts;
    SentRequests()
    {
        setAccountRequestObserver([this](const QNetworkRequest &request, const QByteArray &body) {
            QByteArray text = request.url().toEncoded() + '\n';
            for (const QByteArray &name : request.rawHeaderList())
                text += name + ": " + request.rawHeader(name) + '\n';
            texts << text + body;
        });
    }
    ~SentRequests() { setAccountRequestObserver({}); }
};

} // namespace

class AccountWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void loginIsAcceptedOrRefusedByCode_data();
    void loginIsAcceptedOrRefusedByCode();
    void silentServiceTimesOut();
    void browserSignInPollsUntilCompleteGoneOrCancelled_data();
    void browserSignInPollsUntilCompleteGoneOrCancelled();
    void storedSessionIsCheckedRefreshedAndLoggedOut();
    void firstSyncUploadsEverythingAndKeysNeverTravel();
    void newerRemoteAsksOnlyAboutItAndConflictsKeepVersions();
    void unavailableDatabaseSaysTheEndpointIsNotReady();
    void twoTerminalsSyncThroughOneService();

private:
    std::unique_ptr<MainWindow> window();
    bool signIn(MainWindow &window);

    std::unique_ptr<IsolatedFolders> m_folders;
    std::unique_ptr<QTemporaryDir> m_data;
    std::unique_ptr<AccountService> m_service;
    qint64 m_nowMs = 1'795'000'000'000;
};

void AccountWindowTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
    m_folders = std::make_unique<IsolatedFolders>();
    m_data = std::make_unique<QTemporaryDir>();
    m_service = std::make_unique<AccountService>();
    m_service->setClock([this] { return m_nowMs; });
    AccountService::Options options;
    options.databasePath = m_data->filePath(QStringLiteral("accounts.sqlite"));
    options.logRequests = false;
    QVERIFY(m_service->open(options));
    QVERIFY(m_service->listen());
    QVERIFY(m_service->addUser(kEmail, kPassword, QStringLiteral("Ana")));
    qputenv("QRL_ENDPOINT_ACCOUNT", m_service->baseUrl().toUtf8());
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/config.txt",
                         "newsapi_api_key=" + kCanary + "\nfinnhub_api_key=" + kCanary + "\n");
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/watchlists/default.json",
                         R"({"symbols":[{"symbol":"AAPL"},{"symbol":"PETR4.SA"}]})");
}

void AccountWindowTest::cleanup()
{
    m_service.reset();
    m_data.reset();
    m_folders.reset();
}

std::unique_ptr<MainWindow> AccountWindowTest::window()
{
    auto window = std::make_unique<MainWindow>();
    window->setAccountTiming(3000, 10, 2000);
    window->setUrlOpener([](const QUrl &) { return true; });
    window->setOfferLoginAfterLogout(false);
    return window;
}

bool AccountWindowTest::signIn(MainWindow &window)
{
    QString error;
    return window.login(kEmail, kPassword, &error);
}

void AccountWindowTest::loginIsAcceptedOrRefusedByCode_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("password");
    QTest::addColumn<int>("earlierFailures");
    QTest::addColumn<QString>("error");

    QTest::newRow("accepted") << kEmail << kPassword << 0 << QString();
    QTest::newRow("wrong password") << kEmail << "nope" << 0 << "Invalid email or password.";
    QTest::newRow("unknown e-mail")
            << "bob@example.com" << kPassword << 0 << "Invalid email or password.";
    QTest::newRow("empty") << ""
                           << "" << 0 << "Fill email and password.";
    QTest::newRow("quote in the e-mail") << "x' OR '1'='1"
                                         << "' OR 1=1 --" << 0 << "Invalid email or password.";
    QTest::newRow("after many failures")
            << kEmail << kPassword << 8 << "Too many attempts. Wait a few minutes and try again.";
}

void AccountWindowTest::loginIsAcceptedOrRefusedByCode()
{
    QFETCH(QString, email);
    QFETCH(QString, password);
    QFETCH(int, earlierFailures);
    QFETCH(QString, error);
    auto terminal = window();
    QString failure;
    for (int i = 0; i < earlierFailures; ++i)
        terminal->login(kEmail, QStringLiteral("wrong"), &failure);
    failure.clear();
    const bool accepted = terminal->login(email, password, &failure);
    QCOMPARE(accepted, error.isEmpty());
    QCOMPARE(failure, error);
    QCOMPARE(terminal->hasStoredSession(), accepted);
    if (accepted) {
        QCOMPARE(terminal->accountSession().firstName, QStringLiteral("Ana"));
        QCOMPARE(terminal->statusBar()->currentMessage(), QStringLiteral("Login successful"));
        // The session survives a restart.
        terminal.reset();
        QCOMPARE(window()->accountSession().email, kEmail);
    }
}

void AccountWindowTest::silentServiceTimesOut()
{
    FakeProvider silent;
    QVERIFY(silent.listen());
    silent.setReply("/TERMINAL/auth/login.php", FakeReply{.mode = FakeReply::Mode::NoAnswer});
    qputenv("QRL_ENDPOINT_ACCOUNT", silent.baseUrl().toUtf8());
    auto terminal = window();
    terminal->setAccountTiming(150, 10, 1000);
    QString failure;
    QVERIFY(!terminal->login(kEmail, kPassword, &failure));
    QCOMPARE(failure, QStringLiteral("Network timeout."));
}

void AccountWindowTest::browserSignInPollsUntilCompleteGoneOrCancelled_data()
{
    QTest::addColumn<QList<FakeReply>>("polls");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QString>("error");
    const FakeReply pending = FakeReply::json(R"({"ok":true,"status":"pending"})");
    const FakeReply complete = FakeReply::json(
            R"({"ok":true,"status":"complete","token":"t0k","token_expiration":"2027-01-01T00:00:00Z","email":"ana@example.com","first_name":"Ana"})");
    const FakeReply gone = FakeReply::json(R"({"ok":false,"error":"expired"})", 410);
    QTest::newRow("approved") << QList<FakeReply>{pending, pending, complete} << false << QString();
    QTest::newRow("code gone") << QList<FakeReply>{pending, gone, complete} << false
                               << "Google login expired or timed out. Try again.";
    QTest::newRow("cancelled") << QList<FakeReply>{} << true << "Google login cancelled.";
}

void AccountWindowTest::browserSignInPollsUntilCompleteGoneOrCancelled()
{
    QFETCH(QList<FakeReply>, polls);
    QFETCH(bool, cancel);
    QFETCH(QString, error);
    FakeProvider service;
    QVERIFY(service.listen());
    for (const FakeReply &reply : polls)
        service.queueReply("/TERMINAL/auth/google_poll.php", reply);
    service.setReply("/TERMINAL/auth/google_poll.php",
                     FakeReply::json(R"({"ok":true,"status":"pending"})"));
    qputenv("QRL_ENDPOINT_ACCOUNT", service.baseUrl().toUtf8());
    auto terminal = window();
    QUrl opened;
    terminal->setUrlOpener([&opened](const QUrl &url) {
        opened = url;
        return true;
    });

    QString failure;
    if (cancel) {
        ModalScript dialog({[](QWidget *modal) {
            auto *login = static_cast<QDialog *>(modal);
            QTimer::singleShot(0, login, [login] {
                for (QPushButton *button : login->findChildren<QPushButton *>()) {
                    if (button->text() == QLatin1String("Sign in with Google"))
                        button->click();
                }
            });
            QTimer::singleShot(120, login, [login] { login->reject(); });
        }});
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!terminal->showLoginDialog());
        QVERIFY(clock.elapsed() < 1500); // stopped at once, not at the deadline
        QVERIFY(!terminal->hasStoredSession());
        return;
    }
    const bool accepted = terminal->loginWithGoogle(&failure);
    QCOMPARE(failure, error);
    QCOMPARE(accepted, error.isEmpty());
    QCOMPARE(opened.path(), QStringLiteral("/TERMINAL/auth/google_start.php"));
    const QString device = QUrlQuery(opened).queryItemValue(QStringLiteral("device"));
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(device).hasMatch());
    QCOMPARE(service.lastRequest().queryItem(QStringLiteral("device")), device);
    QCOMPARE(terminal->accountSession().token, accepted ? QStringLiteral("t0k") : QString());
}

void AccountWindowTest::storedSessionIsCheckedRefreshedAndLoggedOut()
{
    auto terminal = window();
    QVERIFY(signIn(*terminal));
    const QString first = terminal->accountSession().token;

    // A token near its end is renewed at start; the old one then stops working.
    m_nowMs += qint64(25) * 24 * 3600 * 1000;
    terminal.reset();
    terminal = window();
    QVERIFY(terminal->validateStoredSession());
    terminal->refreshSession();
    QCOMPARE(terminal->statusBar()->currentMessage(), QStringLiteral("Session refreshed"));
    const QString second = terminal->accountSession().token;
    QVERIFY(second != first);

    // A failed refresh keeps the session it had.
    qputenv("QRL_ENDPOINT_ACCOUNT", "http://127.0.0.1:9");
    terminal->refreshSession();
    QCOMPARE(terminal->accountSession().token, second);
    QVERIFY(terminal->statusBar()->currentMessage().startsWith("Session refresh skipped: HTTP 0"));
    qputenv("QRL_ENDPOINT_ACCOUNT", m_service->baseUrl().toUtf8());

    // Past its expiry the stored token is refused, with the server's code in the message.
    m_nowMs += qint64(40) * 24 * 3600 * 1000;
    QVERIFY(!terminal->validateStoredSession());
    QVERIFY(terminal->statusBar()->currentMessage().startsWith(
            "Saved session rejected by server: HTTP 401"));

    // Logging out offline still ends the session here.
    qputenv("QRL_ENDPOINT_ACCOUNT", "http://127.0.0.1:9");
    terminal->logout();
    QVERIFY(!terminal->hasStoredSession());
    terminal.reset();
    QVERIFY(!window()->hasStoredSession());
}

void AccountWindowTest::firstSyncUploadsEverythingAndKeysNeverTravel()
{
    SentRequests sent;
    auto terminal = window();
    QVERIFY(signIn(*terminal));
    QSignalSpy statusMessages(terminal->statusBar(), &QStatusBar::messageChanged);
    {
        ModalScript script({ModalScript::button(QMessageBox::Ok)});
        terminal->syncAccountNow();
        QCOMPARE(script.texts,
                 QStringList{"Initial local state was uploaded to your Querlin account."});
    }
    QVERIFY(std::any_of(statusMessages.cbegin(), statusMessages.cend(), [](const auto &args) {
        return args.at(0).toString() == QLatin1String("Initial account sync uploaded");
    }));
    QCOMPARE(terminal->syncState().versions.keys(),
             (QStringList{"alerts", "portfolios", "settings", "watchlists", "workspace"}));
    QCOMPARE(terminal->syncState().lastStatus, QStringLiteral("uploaded"));

    // The status dialog lists what the account holds.
    {
        ModalScript script({ModalScript::button(QMessageBox::Ok)});
        terminal->showAccountSyncStatus();
        QVERIFY(script.texts.value(0).contains("Remote backend: reachable\n- settings v1 |"));
        QVERIFY(script.texts.value(0).contains(
                "API keys are local-only and are not included in account sync."));
    }
    QVERIFY(!sent.texts.isEmpty());
    for (const QByteArray &text : sent.texts)
        QVERIFY2(!text.contains(kCanary), text.constData());
}

void AccountWindowTest::newerRemoteAsksOnlyAboutItAndConflictsKeepVersions()
{
    auto terminal = window();
    QVERIFY(signIn(*terminal));
    {
        ModalScript script({ModalScript::button(QMessageBox::Ok)});
        terminal->syncAccountNow();
    }
    // Another machine moves "alerts" ahead twice behind this terminal's back.
    for (int version = 1; version <= 2; ++version) {
        QNetworkAccessManager network;
        QNetworkRequest request(QUrl(m_service->baseUrl() + "/TERMINAL/sync/push.php"));
        request.setRawHeader("Authorization",
                             "Bearer " + terminal->accountSession().token.toUtf8());
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        const QByteArray body =
                QJsonDocument(QJsonObject{{"items",
                                           QJsonObject{{"alerts",
                                                        QJsonObject{{"alerts", QJsonArray{}},
                                                                    {"history", QJsonArray{}}}}}},
                                          {"expected_versions", QJsonObject{{"alerts", version}}}})
                        .toJson();
        QNetworkReply *reply = network.post(request, body);
        QTRY_VERIFY(reply->isFinished());
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
        reply->deleteLater();
    }
    // Only alerts is newer. No uploads everything with the versions this terminal knows (alerts
    // 1), and the service, now at 3, refuses.
    const QJsonObject before = terminal->syncState().versions;
    // Other parts of a started window write the status bar too: every message is kept.
    QSignalSpy statusMessages(terminal->statusBar(), &QStatusBar::messageChanged);
    ModalScript script(
            {ModalScript::button(QMessageBox::No), ModalScript::button(QMessageBox::Ok)});
    terminal->syncAccountNow();
    QCOMPARE(script.texts.value(0),
             QStringLiteral("Remote account data is newer for: alerts.\n\nDownload it and "
                            "replace local state? Choose No to keep local state and upload it."));
    QCOMPARE(script.texts.value(1),
             QStringLiteral("Remote account data changed before upload. Run Sync Now again and "
                            "choose whether to download or overwrite."));
    QCOMPARE(terminal->syncState().versions, before);
    QCOMPARE(terminal->syncState().lastStatus, QStringLiteral("failed"));
    QVERIFY(std::any_of(statusMessages.cbegin(), statusMessages.cend(), [](const auto &args) {
        return args.at(0).toString().startsWith(
                "Account sync upload failed: HTTP 409 version_conflict");
    }));

    // Cancel changes nothing; Yes takes the remote state and its version.
    {
        ModalScript cancel({ModalScript::button(QMessageBox::Cancel)});
        terminal->syncAccountNow();
        QCOMPARE(terminal->syncState().versions, before);
    }
    ModalScript yes({ModalScript::button(QMessageBox::Yes), ModalScript::button(QMessageBox::Ok)});
    terminal->syncAccountNow();
    QCOMPARE(terminal->syncState().versions.value("alerts").toInt(), 3);
    QCOMPARE(terminal->syncState().lastStatus, QStringLiteral("downloaded"));
}

void AccountWindowTest::unavailableDatabaseSaysTheEndpointIsNotReady()
{
    AccountService broken;
    AccountService::Options options;
    options.databasePath = m_data->path(); // a folder is no database
    options.logRequests = false;
    broken.open(options);
    QVERIFY(broken.listen());
    auto terminal = window();
    QVERIFY(signIn(*terminal));
    qputenv("QRL_ENDPOINT_ACCOUNT", broken.baseUrl().toUtf8());
    ModalScript script({ModalScript::button(QMessageBox::Ok)});
    terminal->syncAccountNow();
    QCOMPARE(script.texts, QStringList{"Account sync endpoint is not ready. Upload/test the site "
                                       "sync files."});
    QCOMPARE(terminal->syncState().lastStatus, QStringLiteral("failed"));
}

void AccountWindowTest::twoTerminalsSyncThroughOneService()
{
    // Two config folders, one process: each terminal works while its folder is the current one.
    QTemporaryDir second;
    const QByteArray first = qgetenv("XDG_CONFIG_HOME");
    const auto useFolder = [&](bool secondFolder) {
        qputenv("XDG_CONFIG_HOME", secondFolder ? second.path().toUtf8() : first);
    };
    auto office = window();
    QVERIFY(signIn(*office));
    {
        ModalScript script({ModalScript::button(QMessageBox::Ok)});
        office->syncAccountNow();
    }

    useFolder(true);
    auto laptop = window();
    QVERIFY(signIn(*laptop));
    {
        // The laptop starts from the default watchlist; it takes the account's, then changes it.
        ModalScript script(
                {ModalScript::button(QMessageBox::Yes), ModalScript::button(QMessageBox::Ok)});
        laptop->syncAccountNow();
    }
    QCOMPARE(laptop->marketTable()->symbols(), (QStringList{"AAPL", "PETR4.SA"}));
    laptop->marketTable()->selectRow(laptop->findMarketRow("AAPL"));
    laptop->removeSelectedSymbol();
    {
        ModalScript script({ModalScript::button(QMessageBox::Ok)});
        laptop->syncAccountNow();
    }

    useFolder(false);
    ModalScript script(
            {ModalScript::button(QMessageBox::Yes), ModalScript::button(QMessageBox::Ok)});
    office->syncAccountNow();
    QVERIFY(script.texts.value(0).contains("newer for: settings, watchlists"));
    QCOMPARE(office->marketTable()->symbols(), QStringList{"PETR4.SA"});
}

QTEST_MAIN(AccountWindowTest)
#include "tst_account_window.moc"
