#pragma once

#include "account/credentials.h"
#include "account/request_readers.h"

#include <QHash>
#include <QList>
#include <QSqlDatabase>
#include <QString>

#include <optional>

// The service's SQLite file: users, token digests, login failures, device codes of the browser
// sign-in and one versioned payload per user and namespace. Every statement is prepared with bound
// values. One connection, used from the thread that opened it.
class AccountStore
{
public:
    AccountStore();
    ~AccountStore();
    AccountStore(const AccountStore &) = delete;
    AccountStore &operator=(const AccountStore &) = delete;

    bool open(const QString &path, QString *error);
    bool isOpen() const { return m_open; }

    struct User
    {
        qint64 id = 0;
        QString email;
        QString firstName;
        account::PasswordHash password;
    };
    std::optional<User> userByEmail(const QString &email);
    std::optional<User> userById(qint64 id);
    // `error` is "duplicate_email" or "database_unavailable".
    bool addUser(const QString &email, const account::PasswordHash &password,
                 const QString &firstName, qint64 nowUnix, QString *error);

    struct Token
    {
        qint64 userId = 0;
        qint64 expiresMs = 0;
    };
    bool storeToken(const QString &digest, qint64 userId, qint64 expiresMs, qint64 nowMs);
    // A token that exists, is not revoked and has not expired at `nowMs`.
    std::optional<Token> liveToken(const QString &digest, qint64 nowMs);
    bool revokeToken(const QString &digest);

    int failuresSince(const QString &key, qint64 sinceMs);
    void recordFailure(const QString &key, qint64 nowMs);
    void clearFailures(const QString &key);

    enum class DeviceState {
        Pending,
        Approved,
        Used
    };
    struct DeviceCode
    {
        DeviceState state = DeviceState::Pending;
        qint64 expiresMs = 0;
        qint64 userId = 0;
    };
    std::optional<DeviceCode> deviceCode(const QString &code);
    bool insertDeviceCode(const QString &code, qint64 expiresMs);
    bool approveDeviceCode(const QString &code, qint64 userId);
    bool markDeviceCodeUsed(const QString &code);

    struct SyncItem
    {
        QString name;
        qint64 version = 0;
        QByteArray payloadJson;
        qint64 payloadBytes = 0;
        qint64 updatedUnix = 0;
    };
    std::optional<QList<SyncItem>> syncItems(qint64 userId, bool withPayloads);

    enum class PushOutcome {
        Stored,
        Conflict,
        Failed
    };
    // All or nothing, in one transaction: every item's stored version must equal its expected one.
    PushOutcome push(qint64 userId, const QList<account::PushItem> &items, qint64 nowUnix,
                     QHash<QString, qint64> *newVersions);

private:
    bool createSchema(QString *error);

    QString m_connectionName;
    QSqlDatabase m_db;
    bool m_open = false;
};
