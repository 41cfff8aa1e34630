// Feeds arbitrary bytes to the terminal's readers of the account service's replies: a session
// reply must never yield a session without a token, a pull or status reply only the five
// namespaces with sane versions, and nothing may crash. A broken invariant traps.
#include "account/account_session.h"
#include "account/account_sync.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonDocument>

#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                    static_cast<qsizetype>(size));
    const QJsonObject reply = QJsonDocument::fromJson(body).object();

    AccountSession session;
    if (readSessionReply(reply, &session))
        check(session.isSignedIn());
    sessionWantsRefresh(session, QDateTime::currentDateTimeUtc());

    const QHash<QString, RemoteSyncItem> items = readRemoteSyncItems(reply);
    for (auto it = items.constBegin(); it != items.constEnd(); ++it) {
        check(syncNamespaces().contains(it.key()));
        check(it->version >= 0);
    }
    newerRemoteNamespaces(items, reply.value(QStringLiteral("versions")).toObject());
    for (qint64 version : readPushedVersions(reply, syncNamespaces()))
        check(version >= 0);
    syncErrorMessage(reply.value(QStringLiteral("error")).toString(), body, size % 2 == 0);
    syncStatusRemoteLines(true, items, 200, QString());
    return 0;
}
