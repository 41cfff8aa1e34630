#pragma once

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

// Account sync without the network: the five namespaces, what each carries of the local state,
// the replies of the sync scripts and the texts of the status dialog.

// A whole number kept or sent as JSON (a double): a version, a size or a time. -1 when it cannot
// be one: negative, not finite, or beyond what a 64-bit integer holds exactly.
qint64 syncInteger(const QJsonValue &value);

// "settings", "watchlists", "alerts", "workspace", "portfolios", in this order.
const QStringList &syncNamespaces();

// Which keys of the local settings travel in "settings" (the user's preferences) and which in
// "workspace" (the layout of the panels). The window's place on this screen, the provider health,
// the account session and the sync state stay on this machine.
const QStringList &syncedSettingsKeys();
const QStringList &syncedWorkspaceKeys();
// The keys of `settings` among `keys`.
QJsonObject settingsSubset(const QJsonObject &settings, const QStringList &keys);

struct RemoteSyncItem
{
    qint64 version = 0;
    QJsonValue payload;
    qint64 payloadBytes = 0;
    qint64 updatedUnix = 0;
};
// The `items` of a pull or status reply, only the five namespaces, each with a version.
QHash<QString, RemoteSyncItem> readRemoteSyncItems(const QJsonObject &reply);
// The namespaces whose remote version is above the known one (none known counts 0), in order.
QStringList newerRemoteNamespaces(const QHash<QString, RemoteSyncItem> &remote,
                                  const QJsonObject &knownVersions);
// The versions a push reply gives: `versions` {ns: n}, or `items` {ns: {version}}, for the
// namespaces pushed.
QHash<QString, qint64> readPushedVersions(const QJsonObject &reply, const QStringList &pushed);

// The message for a failed pull or push, in the current language.
QString syncErrorMessage(const QString &code, const QByteArray &body, bool push);
// "Account sync failed: HTTP %1 %2" / "Account sync upload failed: HTTP %1 %2".
QString syncFailureStatus(bool push, int httpStatus, const QString &code, const QString &message);

struct SyncState
{
    QJsonObject versions; // namespace -> last known remote version
    qint64 lastUnix = 0;
    QString lastStatus; // "uploaded", "downloaded" or "failed"
};
// The status dialog's local lines: last sync, last status, the synced namespaces, the key note.
QStringList syncStatusLocalLines(const SyncState &state);
// Its remote lines from a status reply; `reachable` false gives the unavailable line.
QStringList syncStatusRemoteLines(bool reachable, const QHash<QString, RemoteSyncItem> &remote,
                                  int httpStatus, const QString &error);
