// Feeds arbitrary text to the local settings readers: the document goes through every reader the
// window hands a settings key to. Whatever comes in, a read value meets its acceptance rule,
// writing what was read and reading it again changes nothing, and the settings text the window
// writes reads back as the very document it was given. ("local.json" as a file, loaded and saved,
// is fuzz_local_files' part.)
#include "account/account_session.h"
#include "account/account_sync.h"
#include "chart/timeframe.h"
#include "market/market_row.h"
#include "overview/screener.h"
#include "providers/provider_catalogue.h"
#include "providers/quota_meter.h"
#include "ui/local_settings.h"
#include "ui/shortcuts.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

QJsonObject reread(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    check(error.error == QJsonParseError::NoError && document.isObject());
    return document.object();
}

void checkWorkspaceValues(const QJsonObject &settings)
{
    const QStringList timeframes = chartTimeframes();
    const WorkspaceValues values = readWorkspaceValues(settings, timeframes);
    if (values.language)
        check(*values.language == QLatin1String("en") ||
              *values.language == QLatin1String("pt_BR"));
    if (values.chartTimeframe)
        check(timeframes.contains(*values.chartTimeframe));
    if (values.hiddenColumns) {
        for (int column : *values.hiddenColumns)
            check(column >= 1 && column <= 15);
    }
    check(values.leftSplitterSizes.isEmpty() ||
          values.leftSplitterSizes.size() == kLeftSplitterPanes);
    check(values.workspaceSplitterSizes.isEmpty() ||
          values.workspaceSplitterSizes.size() == kWorkspaceSplitterPanes);
    for (int size : values.leftSplitterSizes + values.workspaceSplitterSizes)
        check(size >= 1);
    if (values.bookStep)
        check(std::isfinite(*values.bookStep) && *values.bookStep >= 0);
    for (const std::optional<double> &minimum : {values.moversMinVolume, values.moversMinTurnover})
        check(!minimum || (std::isfinite(*minimum) && *minimum >= 0));

    // What the window writes back reads as itself.
    const QJsonObject written = workspaceValuesToJson(values);
    check(workspaceValuesToJson(readWorkspaceValues(written, timeframes)) == written);

    // A snapshot holds only layout keys, and exactly those the settings had.
    const QJsonObject snapshot = workspaceSnapshotOf(settings);
    for (auto it = snapshot.begin(); it != snapshot.end(); ++it) {
        check(workspaceSnapshotKeys().contains(it.key()));
        check(settings.value(it.key()) == it.value());
    }
    for (const char *key : {"alerts", "portfolios", "auth", "api_health", "sync_versions"})
        check(!snapshot.contains(QLatin1String(key)));
}

void checkOwnedValues(const QJsonObject &settings)
{
    const ShortcutOverrides shortcuts =
            shortcutOverridesFromJson(settings.value(QLatin1String("shortcuts")));
    for (auto it = shortcuts.begin(); it != shortcuts.end(); ++it)
        check(!defaultShortcut(it.key()).isEmpty() && !it.value().trimmed().isEmpty());
    check(shortcutOverridesFromJson(shortcutOverridesToJson(shortcuts)) == shortcuts);

    const QSet<int> hidden =
            parseHiddenColumns(settings.value(QLatin1String("hidden_columns")).toString());
    check(parseHiddenColumns(hiddenColumnsText(hidden)) == hidden);

    const ScreenerFilters filters = readScreenerFilters(settings, ScreenerFilters());
    check(screenerScopeIds().contains(filters.scope));
    check(screenerAssetIds().contains(filters.asset));
    check(std::isfinite(filters.minimumChange) &&
          std::abs(filters.minimumChange) <= kScreenerMinimumChangeLimit);
    check(readScreenerFilters(screenerFiltersToJson(filters), ScreenerFilters()) == filters);

    const ApiHealthRecords health =
            healthRecordsFromJson(settings.value(QLatin1String("api_health")));
    check(healthRecordsFromJson(healthRecordsToJson(health)) == health);

    QuotaMeter quota([] { return qint64(1'750'000'000'000); });
    quota.fromJson(settings.value(QLatin1String("api_quota")));
    for (const QuotaUsage &usage : quotaUsage(quota))
        check(usage.limit > 0 && std::isfinite(usage.fraction) && !usage.color.isEmpty());
    QuotaMeter again([] { return qint64(1'750'000'000'000); });
    again.fromJson(quota.toJson());
    check(again.toJson() == quota.toJson());

    const AccountSession session =
            AccountSession::fromJson(settings.value(QLatin1String("auth")).toObject());
    check(session.token == session.token.trimmed());
    check(session.token == storedSessionToken(settings));
    const AccountSession stored = AccountSession::fromJson(session.toJson());
    check(stored.token == session.token && stored.email == session.email &&
          stored.firstName == session.firstName &&
          stored.tokenExpiration == session.tokenExpiration);
    sessionWantsRefresh(session, QDateTime::fromMSecsSinceEpoch(1'750'000'000'000, Qt::UTC));
    syncInteger(settings.value(QLatin1String("sync_last_unix")));
    check(storedAlertCount(settings) <= settings.value(QLatin1String("alerts")).toArray().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const QJsonObject settings = QJsonDocument::fromJson(bytes).object();
    checkWorkspaceValues(settings);
    checkOwnedValues(settings);
    // The settings text the window writes reads back as the same document.
    const QByteArray text = orderedJsonText(settings, localSettingsKeyOrder());
    check(reread(text) == settings);
    return 0;
}
