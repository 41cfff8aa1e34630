// The account: signing in (password or browser), the stored session, and syncing the five
// namespaces of local state with the account service.
#include "account/account_request.h"
#include "account/account_sync.h"
#include "app/endpoints.h"
#include "app/language.h"
#include "app/startup_log.h"
#include "ui/login_dialog.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QAction>
#include <QDateTime>
#include <QDesktopServices>
#include <QEventLoop>
#include <QJsonArray>
#include <QMessageBox>
#include <QPointer>
#include <QStatusBar>
#include <QTimer>
#include <QUrlQuery>

#include <algorithm>

namespace {

QString sessionCode(const AccountReply &reply)
{
    return reply.object.value(QStringLiteral("error")).toString();
}

// Waits `milliseconds` with the interface alive, or less when `stop` becomes true.
void waitAlive(int milliseconds, const bool &stop)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&loop, &stop] {
        if (stop)
            loop.quit();
    });
    timer.start(milliseconds);
    check.start(50);
    loop.exec();
}

// Marks the window busy with the account service for as long as it lives. A request waits in a
// nested event loop, where a timer or a click could start a second one; the second is refused.
class AccountBusy
{
public:
    explicit AccountBusy(bool &busy)
        : m_busy(busy)
        , m_entered(!busy)
    {
        m_busy = true;
    }
    ~AccountBusy()
    {
        if (m_entered)
            m_busy = false;
    }
    bool entered() const { return m_entered; }

private:
    bool &m_busy;
    bool m_entered;
};

} // namespace

void MainWindow::connectAccount()
{
    connect(m_syncNowAction, &QAction::triggered, this, &MainWindow::syncAccountNow);
    connect(m_syncStatusAction, &QAction::triggered, this, &MainWindow::showAccountSyncStatus);
    m_urlOpener = [](const QUrl &url) { return QDesktopServices::openUrl(url); };
}

void MainWindow::loadAccountState(const QJsonObject &settings)
{
    m_session = AccountSession::fromJson(settings.value(QStringLiteral("auth")).toObject());
    m_syncState.versions = settings.value(QStringLiteral("sync_versions")).toObject();
    m_syncState.lastUnix =
            std::max<qint64>(0, syncInteger(settings.value(QStringLiteral("sync_last_unix"))));
    m_syncState.lastStatus = settings.value(QStringLiteral("sync_last_status")).toString();
}

QJsonObject MainWindow::accountStateJson() const
{
    QJsonObject state{{QStringLiteral("sync_versions"), m_syncState.versions},
                      {QStringLiteral("sync_last_unix"), double(m_syncState.lastUnix)},
                      {QStringLiteral("sync_last_status"), m_syncState.lastStatus}};
    if (m_session.isSignedIn())
        state.insert(QStringLiteral("auth"), m_session.toJson());
    return state;
}

void MainWindow::storeSession(const AccountSession &session)
{
    m_session = session;
    if (!m_session.isSignedIn())
        m_settingsFile.forget(QStringLiteral("auth"));
    m_logoutAction->setEnabled(m_session.isSignedIn());
    saveLocalSettings();
}

bool MainWindow::login(const QString &email, const QString &password, QString *error)
{
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return false;
    if (email.trimmed().isEmpty() || password.isEmpty()) {
        *error = accountErrorMessage(QStringLiteral("missing_credentials"));
        return false;
    }
    const AccountReply reply = accountRequest(
            accountScriptUrl(accountAuthEndpoint(), QStringLiteral("login.php")), "POST",
            {{QStringLiteral("email"), email.trimmed()},
             {QStringLiteral("password"), password},
             {QStringLiteral("lang"), accountLanguage()}},
            QString(), m_accountTimeoutMs);
    AccountSession session;
    if (!readSessionReply(reply.object, &session)) {
        *error = reply.httpStatus == 0 && !reply.errorText.isEmpty()
                         ? reply.errorText
                         : accountErrorMessage(sessionCode(reply));
        return false;
    }
    storeSession(session);
    statusBar()->showMessage(
            translated(QStringLiteral("Login successful"), QStringLiteral("Login realizado")));
    return true;
}

bool MainWindow::loginWithGoogle(QString *error)
{
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return false;
    const QString device = newDeviceCode();
    const QUrl start = accountScriptUrl(
            accountAuthEndpoint(), QStringLiteral("google_start.php"),
            {{QStringLiteral("device"), device}, {QStringLiteral("lang"), accountLanguage()}});
    if (m_urlOpener && m_urlOpener(start)) {
        QPointer<MainWindow> self(this);
        QTimer::singleShot(250, this, [self] {
            if (self)
                self->statusBar()->showMessage(
                        translated(QStringLiteral("Opening Google login in your browser..."),
                                   QStringLiteral("Abrindo o login do Google no navegador...")));
        });
    }
    const QString expired =
            translated(QStringLiteral("Google login expired or timed out. Try again."),
                       QStringLiteral("O login com Google expirou. Tente novamente."));
    m_googleCancelled = false;
    const qint64 deadline = QDateTime::currentMSecsSinceEpoch() + m_googleDeadlineMs;
    while (QDateTime::currentMSecsSinceEpoch() < deadline) {
        waitAlive(m_googlePollMs, m_googleCancelled);
        if (m_googleCancelled) {
            *error = translated(QStringLiteral("Google login cancelled."),
                                QStringLiteral("Login com Google cancelado."));
            return false;
        }
        const AccountReply reply = accountRequest(
                accountScriptUrl(accountAuthEndpoint(), QStringLiteral("google_poll.php"),
                                 {{QStringLiteral("device"), device}}),
                "GET", {}, QString(), m_accountTimeoutMs);
        if (reply.httpStatus == 410)
            break;
        if (reply.object.value(QStringLiteral("status")).toString() == QLatin1String("complete")) {
            AccountSession session;
            if (!readSessionReply(reply.object, &session)) {
                *error = accountErrorMessage(sessionCode(reply));
                return false;
            }
            storeSession(session);
            statusBar()->showMessage(translated(QStringLiteral("Google login successful"),
                                                QStringLiteral("Login com Google realizado")));
            return true;
        }
    }
    *error = expired;
    return false;
}

bool MainWindow::validateStoredSession()
{
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return false;
    if (!m_session.isSignedIn())
        return false;
    const AccountReply reply =
            accountRequest(accountScriptUrl(accountAuthEndpoint(), QStringLiteral("me.php")), "GET",
                           {}, m_session.token, m_accountTimeoutMs);
    m_lastValidationStatus = reply.httpStatus;
    AccountSession checked;
    if (!readSessionReply(reply.object, &checked)) {
        const QString code = sessionCode(reply);
        statusBar()->showMessage(
                translated(QStringLiteral("Saved session rejected by server: HTTP %1 %2"),
                           QStringLiteral("Sessão salva recusada pelo servidor: HTTP %1 %2"))
                        .arg(reply.httpStatus)
                        .arg(code.isEmpty() ? reply.errorText : code));
        return false;
    }
    // The service may name the same session with fresher details; the token stays the stored one.
    checked.token = m_session.token;
    if (checked.tokenExpiration.isEmpty())
        checked.tokenExpiration = m_session.tokenExpiration;
    m_session = checked;
    return true;
}

void MainWindow::refreshSession()
{
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return;
    if (!m_session.isSignedIn())
        return;
    const AccountReply reply =
            accountRequest(accountScriptUrl(accountAuthEndpoint(), QStringLiteral("refresh.php")),
                           "POST", {}, m_session.token, m_accountTimeoutMs);
    AccountSession session;
    if (!readSessionReply(reply.object, &session)) {
        const QString code = sessionCode(reply);
        statusBar()->showMessage(
                translated(QStringLiteral("Session refresh skipped: HTTP %1 %2"),
                           QStringLiteral("Renovação da sessão ignorada: HTTP %1 %2"))
                        .arg(reply.httpStatus)
                        .arg(code.isEmpty() ? reply.errorText : code));
        return;
    }
    storeSession(session);
    statusBar()->showMessage(
            translated(QStringLiteral("Session refreshed"), QStringLiteral("Sessão renovada")));
}

void MainWindow::restoreSession()
{
    // A stored session is checked once at start; one that expires within a week is renewed, so a
    // terminal used daily never has to sign in again.
    if (!m_session.isSignedIn())
        return;
    // Another request is waiting (a sign-in or a sync the user started first): check afterwards.
    if (m_accountBusy) {
        QTimer::singleShot(500, this, &MainWindow::restoreSession);
        return;
    }
    if (!validateStoredSession()) {
        // Refused by the service, the session ends; unreachable (offline at start), it is kept
        // for the next start.
        if (m_lastValidationStatus != 0)
            storeSession({});
        return;
    }
    if (sessionWantsRefresh(m_session, QDateTime::currentDateTimeUtc()))
        refreshSession();
}

void MainWindow::logout()
{
    if (m_session.isSignedIn()) {
        // The reply does not matter: offline, the session still ends here.
        accountRequest(accountScriptUrl(accountAuthEndpoint(), QStringLiteral("logout.php")),
                       "POST", {}, m_session.token, m_accountTimeoutMs);
    }
    storeSession({});
    logEvent(translated(QStringLiteral("Logged out"), QStringLiteral("Sessão encerrada")));
    if (m_offerLoginAfterLogout)
        QTimer::singleShot(0, this, [this] { showLoginDialog(); });
}

bool MainWindow::hasStoredSession() const
{
    return m_session.isSignedIn();
}

bool MainWindow::showLoginDialog()
{
    writeStartupLog(QStringLiteral("showLoginDialog: enter"));
    LoginDialog::Actions actions;
    actions.login = [this](const QString &email, const QString &password) {
        QString error;
        return login(email, password, &error) ? QString() : error;
    };
    actions.loginWithGoogle = [this] {
        QString error;
        return loginWithGoogle(&error) ? QString() : error;
    };
    actions.cancelGoogle = [this] { m_googleCancelled = true; };
    actions.createAccount = [this] {
        QUrl page(accountLoginPage());
        QUrlQuery query;
        query.addQueryItem(QStringLiteral("lang"), accountLanguage());
        query.addQueryItem(QStringLiteral("register"), QStringLiteral("1"));
        query.addQueryItem(QStringLiteral("form"), QStringLiteral("1"));
        page.setQuery(query);
        if (m_urlOpener)
            m_urlOpener(page);
    };
    LoginDialog dialog(actions, this);
    writeStartupLog(QStringLiteral("showLoginDialog: widgets created"));
    writeStartupLog(QStringLiteral("showLoginDialog: before exec"));
    const int result = dialog.exec();
    writeStartupLog(QStringLiteral("showLoginDialog: after exec %1").arg(result));
    return result == QDialog::Accepted;
}

QJsonValue MainWindow::localSyncPayload(const QString &name) const
{
    if (name == QLatin1String("watchlists"))
        return buildWatchlistJson();
    if (name == QLatin1String("alerts"))
        return QJsonObject{
                {QStringLiteral("alerts"), alertsToJson(m_alerts, m_unreadableAlerts)},
                {QStringLiteral("history"), historyToJson(m_alertHistory, m_unreadableHistory)}};
    if (name == QLatin1String("portfolios"))
        return portfolioStoreToJson(m_portfolios);
    QJsonObject settings = m_settingsFile.stored();
    const QJsonObject current = workspaceValuesToJson(currentWorkspaceValues());
    for (auto it = current.begin(); it != current.end(); ++it)
        settings.insert(it.key(), it.value());
    return settingsSubset(settings, name == QLatin1String("settings") ? syncedSettingsKeys()
                                                                      : syncedWorkspaceKeys());
}

bool MainWindow::applySyncPayload(const QString &name, const QJsonValue &payload)
{
    if (!payload.isObject())
        return false;
    const QJsonObject object = payload.toObject();
    if (name == QLatin1String("watchlists")) {
        if (!object.value(QStringLiteral("symbols")).isArray())
            return false;
        replaceWatchlist(object);
    } else if (name == QLatin1String("alerts")) {
        m_unreadableAlerts.clear();
        m_unreadableHistory.clear();
        m_alerts = readAlerts(object.value(QStringLiteral("alerts")), &m_unreadableAlerts);
        m_alertHistory =
                readAlertHistory(object.value(QStringLiteral("history")), &m_unreadableHistory);
        refreshAlertHistoryTable();
    } else if (name == QLatin1String("portfolios")) {
        m_portfolios =
                readPortfolioStore({{QStringLiteral("portfolios"), object}},
                                   translated(QStringLiteral("Main"), QStringLiteral("Principal")));
        m_portfolioNamesShown.clear();
        refreshPortfolio();
    } else {
        const QStringList &keys =
                name == QLatin1String("settings") ? syncedSettingsKeys() : syncedWorkspaceKeys();
        applySettingsObject(settingsSubset(object, keys));
    }
    return true;
}

void MainWindow::replaceWatchlist(const QJsonObject &document)
{
    const QStringList before = m_marketTable->symbols();
    QStringList symbols;
    for (const QJsonValue &entry : document.value(QStringLiteral("symbols")).toArray()) {
        const QString symbol = normalizeSymbolInput(
                entry.isObject() ? entry.toObject().value(QStringLiteral("symbol")).toString()
                                 : entry.toString());
        if (!symbol.isEmpty() && !symbols.contains(symbol))
            symbols << symbol;
    }
    for (const QString &symbol : before) {
        if (!symbols.contains(symbol)) {
            m_marketTable->selectRow(findMarketRow(symbol));
            removeSelectedSymbol();
        }
    }
    for (const QString &symbol : symbols) {
        if (findMarketRow(symbol) < 0) {
            addMarketRow(symbol, assetClassForSymbol(symbol), searchSourceLabel(symbol),
                         QStringLiteral("pending"), false);
            if (m_marketDataStarted)
                refreshQuote(symbol);
        }
    }
    for (int to = 0; to < symbols.size(); ++to) {
        const int from = findMarketRow(symbols.at(to));
        if (from != to && from >= 0)
            m_marketTable->moveMarketRow(from, to);
    }
    saveWatchlist();
    if (m_marketDataStarted)
        rebuildTickerStream();
    if (m_marketTable->rowCount() > 0 && m_marketTable->selectedSymbol().isEmpty())
        m_marketTable->selectRow(0);
}

bool MainWindow::pushAccountState(const QStringList &namespaces)
{
    QJsonObject items;
    QJsonObject expected;
    for (const QString &name : namespaces) {
        items.insert(name, localSyncPayload(name));
        expected.insert(name, std::max<qint64>(0, syncInteger(m_syncState.versions.value(name))));
    }
    const AccountReply reply = accountRequest(
            accountScriptUrl(accountSyncEndpoint(), QStringLiteral("push.php")), "POST",
            {{QStringLiteral("items"), items}, {QStringLiteral("expected_versions"), expected}},
            m_session.token, m_accountTimeoutMs);
    if (reply.object.value(QStringLiteral("ok")).toBool() != true) {
        syncFailed(true, reply);
        return false;
    }
    const QHash<QString, qint64> versions = readPushedVersions(reply.object, namespaces);
    for (auto it = versions.constBegin(); it != versions.constEnd(); ++it)
        m_syncState.versions.insert(it.key(), it.value());
    m_syncState.lastUnix = QDateTime::currentSecsSinceEpoch();
    m_syncState.lastStatus = QStringLiteral("uploaded");
    saveLocalSettings();
    return true;
}

void MainWindow::syncFailed(bool push, const AccountReply &reply)
{
    const QString code = sessionCode(reply);
    const QString message = reply.httpStatus == 0 && !reply.errorText.isEmpty()
                                    ? reply.errorText
                                    : syncErrorMessage(code, reply.body, push);
    statusBar()->showMessage(syncFailureStatus(push, reply.httpStatus, code, message));
    m_syncState.lastStatus = QStringLiteral("failed");
    saveLocalSettings();
    QMessageBox::warning(this, windowTitle(), message);
}

void MainWindow::applyRemoteAccountState(const QHash<QString, RemoteSyncItem> &items)
{
    for (const QString &name : syncNamespaces()) {
        const auto item = items.constFind(name);
        if (item == items.constEnd())
            continue;
        // A payload that cannot be read leaves that part of the local state as it was.
        if (applySyncPayload(name, item->payload))
            m_syncState.versions.insert(name, item->version);
    }
    m_syncState.lastUnix = QDateTime::currentSecsSinceEpoch();
    m_syncState.lastStatus = QStringLiteral("downloaded");
}

void MainWindow::syncAccountNow()
{
    if (!m_session.isSignedIn()) {
        QMessageBox::warning(this, windowTitle(),
                             translated(QStringLiteral("Log in before syncing account data."),
                                        QStringLiteral("Entre na conta antes de sincronizar os "
                                                       "dados.")));
        showLoginDialog();
        return;
    }
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return;
    const AccountReply pull =
            accountRequest(accountScriptUrl(accountSyncEndpoint(), QStringLiteral("pull.php")),
                           "GET", {}, m_session.token, m_accountTimeoutMs);
    if (pull.object.value(QStringLiteral("ok")).toBool() != true) {
        syncFailed(false, pull);
        return;
    }
    const QHash<QString, RemoteSyncItem> remote = readRemoteSyncItems(pull.object);
    if (remote.isEmpty()) {
        if (!pushAccountState(syncNamespaces()))
            return;
        statusBar()->showMessage(translated(QStringLiteral("Initial account sync uploaded"),
                                            QStringLiteral("Sincronização inicial enviada")));
        QMessageBox::information(
                this, windowTitle(),
                translated(QStringLiteral("Initial local state was uploaded to your Querlin "
                                          "account."),
                           QStringLiteral("O estado local inicial foi enviado para a sua conta "
                                          "Querlin.")));
        return;
    }
    const QStringList newer = newerRemoteNamespaces(remote, m_syncState.versions);
    if (!newer.isEmpty()) {
        const QMessageBox::StandardButton answer = QMessageBox::question(
                this, windowTitle(),
                translated(QStringLiteral("Remote account data is newer for: %1.\n\nDownload it "
                                          "and replace local state? Choose No to keep local "
                                          "state and upload it."),
                           QStringLiteral("Os dados remotos da conta são mais novos em: %1.\n\n"
                                          "Baixar e substituir o estado local? Escolha Não para "
                                          "manter o estado local e enviá-lo."))
                        .arg(newer.join(QStringLiteral(", "))),
                QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, QMessageBox::Yes);
        if (answer == QMessageBox::Cancel || answer == QMessageBox::Escape ||
            answer == QMessageBox::NoButton)
            return;
        if (answer == QMessageBox::Yes) {
            applyRemoteAccountState(remote);
            saveLocalSettings();
            statusBar()->showMessage(translated(QStringLiteral("Remote account state downloaded"),
                                                QStringLiteral("Estado remoto da conta baixado")));
            QMessageBox::information(
                    this, windowTitle(),
                    translated(QStringLiteral("Remote account state was applied locally."),
                               QStringLiteral("O estado remoto da conta foi aplicado "
                                              "localmente.")));
            return;
        }
    } else {
        // Nothing newer: the remote versions are the ones the upload expects.
        for (auto it = remote.constBegin(); it != remote.constEnd(); ++it)
            m_syncState.versions.insert(it.key(), it->version);
    }
    if (!pushAccountState(syncNamespaces()))
        return;
    statusBar()->showMessage(translated(QStringLiteral("Account state synced"),
                                        QStringLiteral("Conta sincronizada")));
    QMessageBox::information(this, windowTitle(),
                             translated(QStringLiteral("Local state was synced to your Querlin "
                                                       "account."),
                                        QStringLiteral("O estado local foi sincronizado com a sua "
                                                       "conta Querlin.")));
}

void MainWindow::showAccountSyncStatus()
{
    AccountBusy busy(m_accountBusy);
    if (!busy.entered())
        return;
    QStringList lines = syncStatusLocalLines(m_syncState);
    const AccountReply status =
            accountRequest(accountScriptUrl(accountSyncEndpoint(), QStringLiteral("status.php")),
                           "GET", {}, m_session.token, m_accountTimeoutMs);
    const bool reachable = status.object.value(QStringLiteral("ok")).toBool() == true;
    const QString error = sessionCode(status).isEmpty() ? status.errorText : sessionCode(status);
    lines += syncStatusRemoteLines(reachable, readRemoteSyncItems(status.object), status.httpStatus,
                                   error);
    QMessageBox box(
            QMessageBox::Information,
            translated(QStringLiteral("Sync Status"), QStringLiteral("Status da sincronização")),
            lines.join(QLatin1Char('\n')), QMessageBox::Ok, this);
    box.setObjectName(QStringLiteral("syncStatusBox"));
    box.setTextFormat(Qt::PlainText);
    box.exec();
}
