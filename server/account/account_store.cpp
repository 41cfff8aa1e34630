#include "account/account_store.h"

#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>
#include <QVariant>

namespace {

const char *deviceStateText(AccountStore::DeviceState state)
{
    switch (state) {
    case AccountStore::DeviceState::Pending:
        return "pending";
    case AccountStore::DeviceState::Approved:
        return "approved";
    case AccountStore::DeviceState::Used:
        return "used";
    }
    return "used";
}

AccountStore::DeviceState deviceStateFrom(const QString &text)
{
    if (text == QLatin1String("pending"))
        return AccountStore::DeviceState::Pending;
    if (text == QLatin1String("approved"))
        return AccountStore::DeviceState::Approved;
    return AccountStore::DeviceState::Used;
}

} // namespace

AccountStore::AccountStore()
    : m_connectionName(QStringLiteral("querlin-account-") +
                       QUuid::createUuid().toString(QUuid::WithoutBraces))
{}

AccountStore::~AccountStore()
{
    if (m_db.isValid())
        m_db.close();
    m_db = QSqlDatabase();
    if (QSqlDatabase::contains(m_connectionName))
        QSqlDatabase::removeDatabase(m_connectionName);
}

bool AccountStore::open(const QString &path, QString *error)
{
    m_open = false;
    const auto fail = [&](const QString &message) {
        if (error)
            *error = message;
        if (m_db.isValid())
            m_db.close();
        return false;
    };
    if (path.isEmpty())
        return fail(QStringLiteral("no database file given"));
    if (QFileInfo(path).isDir())
        return fail(QStringLiteral("%1 is a folder, not a database file").arg(path));
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE")))
        return fail(QStringLiteral("the Qt SQLite driver is not installed"));
    if (!m_db.isValid())
        m_db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    m_db.setDatabaseName(path);
    m_db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
    if (!m_db.open())
        return fail(m_db.lastError().text());
    QString schemaError;
    if (!createSchema(&schemaError))
        return fail(schemaError);
    m_open = true;
    return true;
}

bool AccountStore::createSchema(QString *error)
{
    // SQLite answers "PRAGMA journal_mode" with the mode it ended up in.
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("PRAGMA journal_mode=WAL")) || !query.next() ||
        query.value(0).toString().compare(QLatin1String("wal"), Qt::CaseInsensitive) != 0) {
        *error = QStringLiteral("cannot switch the database to WAL mode: %1")
                         .arg(query.lastError().text());
        return false;
    }
    const QStringList statements = {
            QStringLiteral("PRAGMA foreign_keys=ON"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS users (id INTEGER PRIMARY KEY, "
                           "email TEXT NOT NULL UNIQUE, first_name TEXT NOT NULL DEFAULT '', "
                           "password_key BLOB NOT NULL, password_salt BLOB NOT NULL, "
                           "password_iterations INTEGER NOT NULL, created_unix INTEGER NOT NULL)"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS tokens (digest TEXT PRIMARY KEY, "
                           "user_id INTEGER NOT NULL REFERENCES users(id), "
                           "created_ms INTEGER NOT NULL, expires_ms INTEGER NOT NULL, "
                           "revoked INTEGER NOT NULL DEFAULT 0)"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS login_failures (key TEXT NOT NULL, "
                           "at_ms INTEGER NOT NULL)"),
            QStringLiteral("CREATE INDEX IF NOT EXISTS login_failures_key ON login_failures(key)"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS device_codes (code TEXT PRIMARY KEY, "
                           "state TEXT NOT NULL, expires_ms INTEGER NOT NULL, "
                           "user_id INTEGER REFERENCES users(id))"),
            QStringLiteral("CREATE TABLE IF NOT EXISTS sync_items (user_id INTEGER NOT NULL "
                           "REFERENCES users(id), namespace TEXT NOT NULL, "
                           "version INTEGER NOT NULL, payload TEXT NOT NULL, "
                           "payload_bytes INTEGER NOT NULL, updated_unix INTEGER NOT NULL, "
                           "PRIMARY KEY (user_id, namespace))"),
    };
    for (const QString &statement : statements) {
        if (!query.exec(statement)) {
            *error = query.lastError().text();
            return false;
        }
    }
    return true;
}

std::optional<AccountStore::User> AccountStore::userByEmail(const QString &email)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT id FROM users WHERE email = ?"));
    query.addBindValue(email);
    if (!m_open || !query.exec() || !query.next())
        return std::nullopt;
    return userById(query.value(0).toLongLong());
}

std::optional<AccountStore::User> AccountStore::userById(qint64 id)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT email, first_name, password_key, password_salt, "
                                 "password_iterations FROM users WHERE id = ?"));
    query.addBindValue(id);
    if (!m_open || !query.exec() || !query.next())
        return std::nullopt;
    User user;
    user.id = id;
    user.email = query.value(0).toString();
    user.firstName = query.value(1).toString();
    user.password.key = query.value(2).toByteArray();
    user.password.salt = query.value(3).toByteArray();
    user.password.iterations = query.value(4).toInt();
    return user;
}

bool AccountStore::addUser(const QString &email, const account::PasswordHash &password,
                           const QString &firstName, qint64 nowUnix, QString *error)
{
    if (!m_open) {
        *error = QStringLiteral("database_unavailable");
        return false;
    }
    if (userByEmail(email)) {
        *error = QStringLiteral("duplicate_email");
        return false;
    }
    QSqlQuery query(m_db);
    // A first name that was never given arrives as a null text, which binds as NULL.
    query.prepare(QStringLiteral("INSERT INTO users (email, first_name, password_key, "
                                 "password_salt, password_iterations, created_unix) "
                                 "VALUES (?, COALESCE(?, ''), ?, ?, ?, ?)"));
    query.addBindValue(email);
    query.addBindValue(firstName);
    query.addBindValue(password.key);
    query.addBindValue(password.salt);
    query.addBindValue(password.iterations);
    query.addBindValue(nowUnix);
    if (!query.exec()) {
        *error = QStringLiteral("database_unavailable");
        return false;
    }
    return true;
}

bool AccountStore::storeToken(const QString &digest, qint64 userId, qint64 expiresMs, qint64 nowMs)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("INSERT INTO tokens (digest, user_id, created_ms, expires_ms) "
                                 "VALUES (?, ?, ?, ?)"));
    query.addBindValue(digest);
    query.addBindValue(userId);
    query.addBindValue(nowMs);
    query.addBindValue(expiresMs);
    return m_open && query.exec();
}

std::optional<AccountStore::Token> AccountStore::liveToken(const QString &digest, qint64 nowMs)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("SELECT user_id, expires_ms FROM tokens "
                                 "WHERE digest = ? AND revoked = 0 AND expires_ms > ?"));
    query.addBindValue(digest);
    query.addBindValue(nowMs);
    if (!m_open || !query.exec() || !query.next())
        return std::nullopt;
    return Token{query.value(0).toLongLong(), query.value(1).toLongLong()};
}

bool AccountStore::revokeToken(const QString &digest)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("UPDATE tokens SET revoked = 1 WHERE digest = ?"));
    query.addBindValue(digest);
    return m_open && query.exec();
}

int AccountStore::failuresSince(const QString &key, qint64 sinceMs)
{
    QSqlQuery query(m_db);
    query.prepare(
            QStringLiteral("SELECT COUNT(*) FROM login_failures WHERE key = ? AND at_ms > ?"));
    query.addBindValue(key);
    query.addBindValue(sinceMs);
    if (!m_open || !query.exec() || !query.next())
        return 0;
    return query.value(0).toInt();
}

void AccountStore::recordFailure(const QString &key, qint64 nowMs)
{
    // Failures older than a day no longer count towards any limit.
    QSqlQuery prune(m_db);
    prune.prepare(QStringLiteral("DELETE FROM login_failures WHERE at_ms < ?"));
    prune.addBindValue(nowMs - 24 * 3600 * 1000LL);
    if (m_open)
        prune.exec();
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("INSERT INTO login_failures (key, at_ms) VALUES (?, ?)"));
    query.addBindValue(key);
    query.addBindValue(nowMs);
    if (m_open)
        query.exec();
}

void AccountStore::clearFailures(const QString &key)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("DELETE FROM login_failures WHERE key = ?"));
    query.addBindValue(key);
    if (m_open)
        query.exec();
}

std::optional<AccountStore::DeviceCode> AccountStore::deviceCode(const QString &code)
{
    QSqlQuery query(m_db);
    query.prepare(
            QStringLiteral("SELECT state, expires_ms, user_id FROM device_codes WHERE code = ?"));
    query.addBindValue(code.toLower());
    if (!m_open || !query.exec() || !query.next())
        return std::nullopt;
    return DeviceCode{deviceStateFrom(query.value(0).toString()), query.value(1).toLongLong(),
                      query.value(2).toLongLong()};
}

bool AccountStore::insertDeviceCode(const QString &code, qint64 expiresMs)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("INSERT OR IGNORE INTO device_codes (code, state, expires_ms) "
                                 "VALUES (?, ?, ?)"));
    query.addBindValue(code.toLower());
    query.addBindValue(QString::fromLatin1(deviceStateText(DeviceState::Pending)));
    query.addBindValue(expiresMs);
    return m_open && query.exec();
}

bool AccountStore::approveDeviceCode(const QString &code, qint64 userId)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("UPDATE device_codes SET state = ?, user_id = ? "
                                 "WHERE code = ? AND state = ?"));
    query.addBindValue(QString::fromLatin1(deviceStateText(DeviceState::Approved)));
    query.addBindValue(userId);
    query.addBindValue(code.toLower());
    query.addBindValue(QString::fromLatin1(deviceStateText(DeviceState::Pending)));
    return m_open && query.exec() && query.numRowsAffected() == 1;
}

bool AccountStore::markDeviceCodeUsed(const QString &code)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("UPDATE device_codes SET state = ? WHERE code = ?"));
    query.addBindValue(QString::fromLatin1(deviceStateText(DeviceState::Used)));
    query.addBindValue(code.toLower());
    return m_open && query.exec();
}

std::optional<QList<AccountStore::SyncItem>> AccountStore::syncItems(qint64 userId,
                                                                     bool withPayloads)
{
    QSqlQuery query(m_db);
    query.prepare(
            withPayloads ? QStringLiteral("SELECT namespace, version, payload_bytes, "
                                          "updated_unix, payload FROM sync_items WHERE user_id = ?")
                         : QStringLiteral("SELECT namespace, version, payload_bytes, "
                                          "updated_unix FROM sync_items WHERE user_id = ?"));
    query.addBindValue(userId);
    if (!m_open || !query.exec())
        return std::nullopt;
    QList<SyncItem> items;
    while (query.next()) {
        SyncItem item;
        item.name = query.value(0).toString();
        item.version = query.value(1).toLongLong();
        item.payloadBytes = query.value(2).toLongLong();
        item.updatedUnix = query.value(3).toLongLong();
        if (withPayloads)
            item.payloadJson = query.value(4).toString().toUtf8();
        items.append(item);
    }
    return items;
}

AccountStore::PushOutcome AccountStore::push(qint64 userId, const QList<account::PushItem> &items,
                                             qint64 nowUnix, QHash<QString, qint64> *newVersions)
{
    if (!m_open || !m_db.transaction())
        return PushOutcome::Failed;
    const auto rollback = [this](PushOutcome outcome) {
        m_db.rollback();
        return outcome;
    };
    QHash<QString, qint64> versions;
    for (const account::PushItem &item : items) {
        QSqlQuery current(m_db);
        current.prepare(QStringLiteral(
                "SELECT version FROM sync_items WHERE user_id = ? AND namespace = ?"));
        current.addBindValue(userId);
        current.addBindValue(item.name);
        if (!current.exec())
            return rollback(PushOutcome::Failed);
        const qint64 stored = current.next() ? current.value(0).toLongLong() : 0;
        if (stored != item.expectedVersion)
            return rollback(PushOutcome::Conflict);
        QSqlQuery write(m_db);
        write.prepare(QStringLiteral(
                "INSERT INTO sync_items (user_id, namespace, version, payload, payload_bytes, "
                "updated_unix) VALUES (?, ?, ?, ?, ?, ?) ON CONFLICT (user_id, namespace) DO "
                "UPDATE "
                "SET version = excluded.version, payload = excluded.payload, "
                "payload_bytes = excluded.payload_bytes, updated_unix = excluded.updated_unix"));
        write.addBindValue(userId);
        write.addBindValue(item.name);
        write.addBindValue(stored + 1);
        write.addBindValue(QString::fromUtf8(item.payloadJson));
        write.addBindValue(qint64(item.payloadJson.size()));
        write.addBindValue(nowUnix);
        if (!write.exec())
            return rollback(PushOutcome::Failed);
        versions.insert(item.name, stored + 1);
    }
    if (!m_db.commit())
        return rollback(PushOutcome::Failed);
    *newVersions = versions;
    return PushOutcome::Stored;
}
