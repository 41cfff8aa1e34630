#include "reliability/crash_account.h"

#include "account/account_request.h"
#include "account/account_session.h"
#include "account/account_sync.h"
#include "app/endpoints.h"
#include "crash_writer/crash_documents.h"
#include "reliability/crash_files.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <atomic>
#include <signal.h>
#include <thread>

namespace {

using namespace std::chrono;

const QString kEmail = QStringLiteral("crash@querlin.test");
const QString kPassword = QStringLiteral("crash-test-password");
constexpr int kStartTimeoutMs = 10000;
constexpr qint64 kPayloadRounds = 24;

class CrashService
{
public:
    CrashService(const QString &servicePath, const QString &folder)
        : m_servicePath(servicePath)
        , m_database(folder + QStringLiteral("/accounts.sqlite"))
        , m_log(folder + QStringLiteral("/service.log"))
    {}
    ~CrashService()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QString database() const { return m_database; }
    qint64 pid() const { return m_process.processId(); }

    // Without --first-name, as an operator adding an account may well run it.
    bool addUser(QString *error)
    {
        QProcess add;
        add.setStandardErrorFile(m_log, QIODevice::Append);
        add.start(m_servicePath,
                  {QStringLiteral("--database"), m_database, QStringLiteral("--add-user"), kEmail});
        add.write(kPassword.toUtf8() + '\n');
        add.closeWriteChannel();
        if (add.waitForFinished(30000) && add.exitStatus() == QProcess::NormalExit &&
            add.exitCode() == 0)
            return true;
        *error = QStringLiteral("--add-user failed: ") + QString::fromUtf8(add.readAll());
        return false;
    }

    // Starts the service on a free loopback port and points the terminal's account addresses at it.
    bool start(QString *error)
    {
        m_process.setStandardErrorFile(m_log, QIODevice::Append);
        m_process.start(m_servicePath, {QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                                        QStringLiteral("--database"), m_database});
        QByteArray output;
        static const QByteArray listening = "listening on ";
        while (!output.contains('\n')) {
            if (!m_process.waitForReadyRead(kStartTimeoutMs)) {
                *error = QStringLiteral("the service did not start: ") + m_process.errorString();
                return false;
            }
            output += m_process.readAllStandardOutput();
        }
        const qsizetype at = output.indexOf(listening);
        if (at < 0) {
            *error = QStringLiteral("the service said: ") + QString::fromUtf8(output);
            return false;
        }
        const QByteArray base = output.mid(at + listening.size()).trimmed();
        qputenv("QRL_ENDPOINT_ACCOUNT", base);
        return true;
    }

    // True when it was the kill that ended it.
    bool waitForKill()
    {
        m_process.waitForFinished(kStartTimeoutMs);
        return m_process.exitStatus() == QProcess::CrashExit && m_process.exitCode() == SIGKILL;
    }

private:
    QString m_servicePath;
    QString m_database;
    QString m_log;
    QProcess m_process;
};

// SQLite's own check of the file, from a connection of our own while the service has it open.
QString integrityOf(const QString &database)
{
    const QString connection = QStringLiteral("crash-integrity");
    QString result;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(database);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=5000"));
        if (!db.open()) {
            result = QStringLiteral("does not open");
        } else {
            QSqlQuery query(db);
            result = query.exec(QStringLiteral("PRAGMA integrity_check")) && query.next()
                             ? query.value(0).toString()
                             : QStringLiteral("cannot be checked");
        }
    }
    QSqlDatabase::removeDatabase(connection);
    return result;
}

class ServiceCrashRun
{
public:
    ServiceCrashRun(const QString &servicePath, const QString &folder, quint64 seed)
        : m_service(servicePath, folder)
        , m_seed(seed)
        , m_delays(seed ^ 0x5eedULL)
    {}

    ServiceCrashFigures run(int kills)
    {
        QString error;
        if (!m_service.addUser(&error) || !m_service.start(&error) || !login(&error)) {
            m_figures.failures << error;
            return m_figures;
        }
        for (int kill = 0; kill < kills && m_figures.failures.size() < 10; ++kill) {
            m_label = QStringLiteral("service kill %1 (seed %2").arg(kill).arg(m_seed);
            if (!checkStored())
                break;
            pushUntilKilled();
            QElapsedTimer restart;
            restart.start();
            if (!m_service.start(&error)) {
                m_figures.failures << m_label + QStringLiteral("): restart: ") + error;
                break;
            }
            ++m_figures.restarts;
            m_figures.restartMs += restart.elapsed();
        }
        if (m_figures.failures.isEmpty())
            checkStored();
        return m_figures;
    }

private:
    bool login(QString *error)
    {
        const AccountReply reply = accountRequest(
                accountScriptUrl(accountAuthEndpoint(), QStringLiteral("login.php")), "POST",
                {{QStringLiteral("email"), kEmail}, {QStringLiteral("password"), kPassword}}, {});
        AccountSession session;
        if (!readSessionReply(reply.object, &session)) {
            *error = QStringLiteral("login failed: HTTP %1 %2")
                             .arg(reply.httpStatus)
                             .arg(QString::fromUtf8(reply.body));
            return false;
        }
        m_token = session.token;
        return true;
    }

    // The payloads of a round, built once: the pushes follow one another as fast as the service
    // answers, so most kills meet one on the wire or in the database.
    const QJsonObject &payloadsOf(qint64 round)
    {
        auto cached = m_payloads.find(round);
        if (cached == m_payloads.end())
            cached = m_payloads.insert(round, crashSyncPayloads(round));
        return *cached;
    }

    bool fail(const QString &what)
    {
        m_figures.failures << m_label + QStringLiteral("): ") + what;
        return false;
    }

    // What the restarted service holds: one version for all five namespaces, the payloads of the
    // push that made it, nothing acknowledged lost.
    bool checkStored()
    {
        const QString integrity = integrityOf(m_service.database());
        ++m_figures.integrityChecks;
        if (integrity != QLatin1String("ok"))
            return fail(QStringLiteral("the database %1").arg(integrity));
        const AccountReply reply =
                accountRequest(accountScriptUrl(accountSyncEndpoint(), QStringLiteral("pull.php")),
                               "GET", {}, m_token);
        if (reply.object.value(QStringLiteral("ok")).toBool() != true)
            return fail(QStringLiteral("pull after restart: HTTP %1 %2")
                                .arg(reply.httpStatus)
                                .arg(QString::fromUtf8(reply.body.left(200))));
        const QHash<QString, RemoteSyncItem> items = readRemoteSyncItems(reply.object);
        qint64 version = items.isEmpty() ? 0 : -1;
        for (const QString &name : syncNamespaces()) {
            if (items.isEmpty())
                break;
            ++m_figures.namespacesChecked;
            const auto item = items.constFind(name);
            if (item == items.constEnd())
                return fail(QStringLiteral("%1 is missing beside the others").arg(name));
            if (version >= 0 && item->version != version)
                return fail(QStringLiteral("%1 is at version %2, another namespace at %3")
                                    .arg(name)
                                    .arg(item->version)
                                    .arg(version));
            version = item->version;
            if (!m_sentRound.contains(version))
                return fail(
                        QStringLiteral("%1 is at version %2, never pushed").arg(name).arg(version));
            if (item->payload != payloadsOf(m_sentRound.value(version)).value(name))
                return fail(QStringLiteral("%1 v%2 holds another payload than its push")
                                    .arg(name)
                                    .arg(version));
        }
        if (version < m_acknowledged)
            return fail(QStringLiteral("acknowledged version %1 lost, the service has %2")
                                .arg(m_acknowledged)
                                .arg(version));
        if (m_attempted > m_acknowledged)
            ++(version == m_attempted ? m_figures.pushesCutOffKept : m_figures.pushesCutOffLost);
        m_acknowledged = m_attempted = version;
        return true;
    }

    void pushUntilKilled()
    {
        const microseconds delay = m_delays.next();
        m_label += QStringLiteral(", delay %1 us").arg(delay.count());
        std::atomic<bool> pushing = false;
        std::atomic<bool> midPush = false;
        std::thread killer([&, pid = pid_t(m_service.pid())] {
            waitPrecisely(delay);
            midPush = pushing.load();
            if (pid > 0) // never the test's own process group
                ::kill(pid, SIGKILL);
        });
        for (;;) {
            // Consecutive pushes always differ; a few dozen rounds are enough to tell them apart.
            const qint64 round = m_nextRound++ % kPayloadRounds;
            const QJsonObject &payloads = payloadsOf(round);
            QJsonObject expected;
            for (const QString &name : syncNamespaces())
                expected.insert(name, double(m_acknowledged));
            m_sentRound.insert(m_acknowledged + 1, round);
            m_attempted = m_acknowledged + 1;
            pushing = true;
            QElapsedTimer pushTime;
            pushTime.start();
            const AccountReply reply = accountRequest(
                    accountScriptUrl(accountSyncEndpoint(), QStringLiteral("push.php")), "POST",
                    {{QStringLiteral("items"), payloads},
                     {QStringLiteral("expected_versions"), expected}},
                    m_token);
            pushing = false;
            if (reply.httpStatus == 0)
                break; // the service is gone
            if (reply.object.value(QStringLiteral("ok")).toBool() != true) {
                fail(QStringLiteral("push refused: HTTP %1 %2")
                             .arg(reply.httpStatus)
                             .arg(QString::fromUtf8(reply.body.left(200))));
                break;
            }
            for (const qint64 version : readPushedVersions(reply.object, syncNamespaces())) {
                if (version != m_attempted)
                    fail(QStringLiteral("push answered version %1 for %2")
                                 .arg(version)
                                 .arg(m_attempted));
            }
            m_acknowledged = m_attempted;
            ++m_figures.pushesAcknowledged;
            m_figures.pushMs += pushTime.elapsed();
        }
        killer.join();
        ++m_figures.kills;
        if (midPush)
            ++m_figures.killsMidPush;
        else
            m_attempted = m_acknowledged; // the last push went out after the kill: refused
        if (!m_service.waitForKill())
            fail(QStringLiteral("the service ended before the kill"));
    }

    CrashService m_service;
    quint64 m_seed;
    CrashDelays m_delays;
    ServiceCrashFigures m_figures;
    QString m_token;
    QString m_label;
    QHash<qint64, qint64> m_sentRound; // version -> the round whose payloads the push sent
    QHash<qint64, QJsonObject> m_payloads;
    qint64 m_acknowledged = 0;
    qint64 m_attempted = 0;
    qint64 m_nextRound = 0;
};

} // namespace

ServiceCrashFigures runServiceCrashes(const QString &servicePath, const QString &folder, int kills,
                                      quint64 seed)
{
    return ServiceCrashRun(servicePath, folder, seed).run(kills);
}
