#include "account/account_sync.h"

#include "account/account_session.h"
#include "app/language.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

qint64 syncInteger(const QJsonValue &value)
{
    const double number = value.toDouble(-1);
    if (!std::isfinite(number) || number < 0 || number > 1e15)
        return -1;
    return qint64(number);
}

const QStringList &syncNamespaces()
{
    static const QStringList namespaces{QStringLiteral("settings"), QStringLiteral("watchlists"),
                                        QStringLiteral("alerts"), QStringLiteral("workspace"),
                                        QStringLiteral("portfolios")};
    return namespaces;
}

const QStringList &syncedSettingsKeys()
{
    static const QStringList keys{QStringLiteral("language"),   QStringLiteral("theme"),
                                  QStringLiteral("shortcuts"),  QStringLiteral("hidden_columns"),
                                  QStringLiteral("indicators"), QStringLiteral("drawings")};
    return keys;
}

const QStringList &syncedWorkspaceKeys()
{
    static const QStringList keys{
            QStringLiteral("chart_mode"),          QStringLiteral("chart_timeframe"),
            QStringLiteral("book_step"),           QStringLiteral("book_preset"),
            QStringLiteral("movers_min_volume"),   QStringLiteral("movers_min_turnover"),
            QStringLiteral("movers_scope"),        QStringLiteral("movers_interval"),
            QStringLiteral("movers_sector"),       QStringLiteral("screener_asset"),
            QStringLiteral("screener_scope"),      QStringLiteral("screener_min_change"),
            QStringLiteral("left_splitter_sizes"), QStringLiteral("workspace_splitter_sizes")};
    return keys;
}

QJsonObject settingsSubset(const QJsonObject &settings, const QStringList &keys)
{
    QJsonObject subset;
    for (const QString &key : keys) {
        if (settings.contains(key))
            subset.insert(key, settings.value(key));
    }
    return subset;
}

QHash<QString, RemoteSyncItem> readRemoteSyncItems(const QJsonObject &reply)
{
    QHash<QString, RemoteSyncItem> items;
    const QJsonObject object = reply.value(QStringLiteral("items")).toObject();
    for (const QString &name : syncNamespaces()) {
        const QJsonObject entry = object.value(name).toObject();
        const qint64 version = syncInteger(entry.value(QStringLiteral("version")));
        if (version < 0)
            continue;
        RemoteSyncItem item;
        item.version = version;
        item.payload = entry.value(QStringLiteral("payload"));
        item.payloadBytes = std::max<qint64>(0, syncInteger(entry.value("payload_bytes")));
        item.updatedUnix = std::max<qint64>(0, syncInteger(entry.value("updated_unix")));
        items.insert(name, item);
    }
    return items;
}

QStringList newerRemoteNamespaces(const QHash<QString, RemoteSyncItem> &remote,
                                  const QJsonObject &knownVersions)
{
    QStringList newer;
    for (const QString &name : syncNamespaces()) {
        const auto item = remote.constFind(name);
        if (item != remote.constEnd() &&
            item->version > std::max<qint64>(0, syncInteger(knownVersions.value(name))))
            newer << name;
    }
    return newer;
}

QHash<QString, qint64> readPushedVersions(const QJsonObject &reply, const QStringList &pushed)
{
    QHash<QString, qint64> versions;
    const QJsonObject plain = reply.value(QStringLiteral("versions")).toObject();
    const QJsonObject items = reply.value(QStringLiteral("items")).toObject();
    for (const QString &name : pushed) {
        QJsonValue value = plain.value(name);
        if (!value.isDouble())
            value = items.value(name).toObject().value(QStringLiteral("version"));
        if (!value.isDouble())
            value = reply.value(name).toObject().value(QStringLiteral("version"));
        if (const qint64 version = syncInteger(value); value.isDouble() && version >= 0)
            versions.insert(name, version);
    }
    return versions;
}

QString syncErrorMessage(const QString &code, const QByteArray &body, bool push)
{
    if (code == QLatin1String("missing_token"))
        return translated(QStringLiteral("Session token is missing. Log in again."),
                          QStringLiteral("O token da sessão está ausente. Entre novamente."));
    if (code == QLatin1String("method_not_allowed") ||
        code == QLatin1String("database_unavailable") || code == QLatin1String("sync_failed"))
        return translated(
                QStringLiteral("Account sync endpoint is not ready. Upload/test the site sync "
                               "files."),
                QStringLiteral("O serviço de sincronização da conta não está pronto. Envie/teste "
                               "os arquivos de sincronização do site."));
    if (code == QLatin1String("version_conflict") && push)
        return translated(
                QStringLiteral("Remote account data changed before upload. Run Sync Now again "
                               "and choose whether to download or overwrite."),
                QStringLiteral("Os dados remotos da conta mudaram antes do envio. Sincronize de "
                               "novo e escolha se quer baixar ou sobrescrever."));
    if (code == QLatin1String("invalid_credentials") ||
        code == QLatin1String("invalid_or_expired_token") ||
        code == QLatin1String("missing_credentials") || code == QLatin1String("rate_limited") ||
        code == QLatin1String("refresh_failed"))
        return accountErrorMessage(code);
    if (push)
        return translated(QStringLiteral("Could not upload account sync data."),
                          QStringLiteral("Não foi possível enviar os dados de sincronização."));
    const QString text = QString::fromUtf8(body).trimmed().left(160);
    if (!text.isEmpty())
        return text;
    return translated(QStringLiteral("Account sync failed."),
                      QStringLiteral("Falha na sincronização da conta."));
}

QString syncFailureStatus(bool push, int httpStatus, const QString &code, const QString &message)
{
    const QString format =
            push ? translated(QStringLiteral("Account sync upload failed: HTTP %1 %2"),
                              QStringLiteral("Falha no envio da sincronização: "
                                             "HTTP %1 %2"))
                 : translated(QStringLiteral("Account sync failed: HTTP %1 %2"),
                              QStringLiteral("Falha na sincronização da conta: "
                                             "HTTP %1 %2"));
    return format.arg(httpStatus).arg(code.isEmpty() ? message.left(80) : code);
}

namespace {

// The stored status word ("uploaded", "downloaded", "failed") as the reader's language says it.
QString syncStatusWord(const QString &status)
{
    if (status == QLatin1String("uploaded"))
        return translated(status, QStringLiteral("enviado"));
    if (status == QLatin1String("downloaded"))
        return translated(status, QStringLiteral("baixado"));
    if (status == QLatin1String("failed"))
        return translated(status, QStringLiteral("falhou"));
    return status.isEmpty() ? QStringLiteral("--") : status;
}

QString localTime(qint64 unixSeconds)
{
    return QDateTime::fromSecsSinceEpoch(unixSeconds)
            .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

} // namespace

QStringList syncStatusLocalLines(const SyncState &state)
{
    QStringList lines;
    lines << translated(QStringLiteral("Last sync: %1"), QStringLiteral("Última sincronização: %1"))
                     .arg(state.lastUnix > 0
                                  ? localTime(state.lastUnix)
                                  : translated(QStringLiteral("Never"), QStringLiteral("Nunca")));
    lines << translated(QStringLiteral("Last status: %1"), QStringLiteral("Último status: %1"))
                     .arg(syncStatusWord(state.lastStatus));
    lines << translated(QStringLiteral("Synced namespaces:"),
                        QStringLiteral("Namespaces sincronizados:"));
    if (state.versions.isEmpty())
        lines << QStringLiteral("- --");
    for (auto it = state.versions.constBegin(); it != state.versions.constEnd(); ++it)
        lines << QStringLiteral("- %1 v%2").arg(it.key()).arg(syncInteger(it.value()));
    lines << translated(QStringLiteral("API keys are local-only and are not included in account "
                                       "sync."),
                        QStringLiteral("As chaves de API ficam só neste computador e não entram na "
                                       "sincronização da conta."));
    return lines;
}

QStringList syncStatusRemoteLines(bool reachable, const QHash<QString, RemoteSyncItem> &remote,
                                  int httpStatus, const QString &error)
{
    if (!reachable)
        return {translated(QStringLiteral("Remote backend: unavailable (%1 %2)"),
                           QStringLiteral("Servidor remoto: indisponível (%1 %2)"))
                        .arg(httpStatus)
                        .arg(error)};
    QStringList lines{translated(QStringLiteral("Remote backend: reachable"),
                                 QStringLiteral("Servidor remoto: acessível"))};
    bool any = false;
    for (const QString &name : syncNamespaces()) {
        const auto item = remote.constFind(name);
        if (item == remote.constEnd())
            continue;
        any = true;
        lines << QStringLiteral("- %1 v%2 | %3 | %4")
                         .arg(name)
                         .arg(item->version)
                         .arg(localTime(item->updatedUnix))
                         .arg(item->payloadBytes);
    }
    if (!any)
        lines << translated(QStringLiteral("- no remote namespaces yet"),
                            QStringLiteral("- nenhum namespace remoto ainda"));
    return lines;
}
