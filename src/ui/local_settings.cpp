#include "ui/local_settings.h"

#include "app/atomic_file.h"
#include "app/paths.h"
#include "market/market_row.h"
#include "overview/movers.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kIndent = 4;

QByteArray valueText(const QJsonValue &value, int depth)
{
    if (value.isObject() || value.isArray()) {
        const QJsonDocument document =
                value.isObject() ? QJsonDocument(value.toObject()) : QJsonDocument(value.toArray());
        QByteArray text = document.toJson(QJsonDocument::Indented).trimmed();
        // Nested documents are indented from column 0; move them under their key.
        text.replace("\n", "\n" + QByteArray(depth * kIndent, ' '));
        return text;
    }
    // A scalar is written the way the toolkit writes it inside an array.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

QByteArray keyText(const QString &key)
{
    return valueText(QJsonValue(key), 0);
}

} // namespace

const QStringList &localSettingsKeyOrder()
{
    static const QStringList keys{
            "language",
            "theme",
            "chart_mode",
            "chart_timeframe",
            "window_geometry",
            "hidden_columns",
            "indicators",
            "shortcuts",
            "alerts",
            "alert_history",
            "portfolios",
            "api_health",
            "auth",
            "sync_versions",
            "sync_last_unix",
            "sync_last_status",
            "book_step",
            "book_preset",
            "movers_min_volume",
            "movers_min_turnover",
            "movers_scope",
            "movers_interval",
            "movers_sector",
            "screener_asset",
            "screener_scope",
            "screener_min_change",
            "left_splitter_sizes",
            "workspace_splitter_sizes",
            "drawings",
    };
    return keys;
}

QByteArray orderedJsonText(const QJsonObject &object, const QStringList &order)
{
    QStringList keys;
    for (const QString &key : order) {
        if (object.contains(key))
            keys << key;
    }
    QStringList rest;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!order.contains(it.key()))
            rest << it.key();
    }
    std::sort(rest.begin(), rest.end());
    keys << rest;

    if (keys.isEmpty())
        return QByteArrayLiteral("{\n}\n");
    QByteArray text = "{\n";
    for (int i = 0; i < keys.size(); ++i) {
        text += QByteArray(kIndent, ' ') + keyText(keys.at(i)) + ": " +
                valueText(object.value(keys.at(i)), 1);
        text += i + 1 < keys.size() ? ",\n" : "\n";
    }
    text += "}\n";
    return text;
}

const QStringList &workspaceSnapshotKeys()
{
    static const QStringList keys{
            "language",
            "theme",
            "chart_mode",
            "chart_timeframe",
            "window_geometry",
            "hidden_columns",
            "indicators",
            "shortcuts",
            "drawings",
            "book_step",
            "book_preset",
            "movers_min_volume",
            "movers_min_turnover",
            "movers_scope",
            "movers_interval",
            "movers_sector",
            "screener_asset",
            "screener_scope",
            "screener_min_change",
            "left_splitter_sizes",
            "workspace_splitter_sizes",
    };
    return keys;
}

QJsonObject workspaceSnapshotOf(const QJsonObject &settings)
{
    QJsonObject snapshot;
    for (const QString &key : workspaceSnapshotKeys()) {
        if (settings.contains(key))
            snapshot.insert(key, settings.value(key));
    }
    return snapshot;
}

namespace {

std::optional<QString> acceptedText(const QJsonValue &value, const QStringList &accepted)
{
    const QString text = value.toString();
    if (accepted.contains(text))
        return text;
    return std::nullopt;
}

} // namespace

WorkspaceValues readWorkspaceValues(const QJsonObject &document, const QStringList &timeframes)
{
    WorkspaceValues values;
    values.language = acceptedText(document.value(QStringLiteral("language")),
                                   {QStringLiteral("pt_BR"), QStringLiteral("en")});
    values.theme = acceptedText(document.value(QStringLiteral("theme")),
                                {QStringLiteral("qrl_light"), QStringLiteral("coffee_dark")});
    values.chartMode = acceptedText(document.value(QStringLiteral("chart_mode")),
                                    {QStringLiteral("line"), QStringLiteral("candle")});
    values.chartTimeframe =
            acceptedText(document.value(QStringLiteral("chart_timeframe")), timeframes);
    values.windowGeometry = QByteArray::fromBase64(
            document.value(QStringLiteral("window_geometry")).toString().toLatin1());
    // A file without the key leaves the columns a legacy key file may have hidden.
    if (document.contains(QStringLiteral("hidden_columns")))
        values.hiddenColumns =
                parseHiddenColumns(document.value(QStringLiteral("hidden_columns")).toString());
    if (document.contains(QStringLiteral("shortcuts")))
        values.shortcuts = shortcutOverridesFromJson(document.value(QStringLiteral("shortcuts")));
    values.leftSplitterSizes = readSplitterSizes(
            document.value(QStringLiteral("left_splitter_sizes")), kLeftSplitterPanes);
    values.workspaceSplitterSizes = readSplitterSizes(
            document.value(QStringLiteral("workspace_splitter_sizes")), kWorkspaceSplitterPanes);
    // A step is a price distance: finite, not negative, and no larger than any price it buckets.
    constexpr double kLargestBookStep = 1e7;
    const QJsonValue step = document.value(QStringLiteral("book_step"));
    if (step.isDouble() && std::isfinite(step.toDouble()) && step.toDouble() >= 0 &&
        step.toDouble() <= kLargestBookStep)
        values.bookStep = step.toDouble();
    if (const QJsonValue indicators = document.value(QStringLiteral("indicators"));
        indicators.isObject())
        values.indicators = indicators.toObject();
    if (const QJsonValue drawings = document.value(QStringLiteral("drawings")); drawings.isObject())
        values.drawings = drawings.toObject();
    values.bookPreset = acceptedText(document.value(QStringLiteral("book_preset")),
                                     {QStringLiteral("raw"), QStringLiteral("tight"),
                                      QStringLiteral("normal"), QStringLiteral("wide")});
    const auto nonEmptyText = [&document](const char *key) -> std::optional<QString> {
        const QString text = document.value(QLatin1String(key)).toString().trimmed();
        if (text.isEmpty() || text.size() > 80)
            return std::nullopt;
        return text;
    };
    if (const std::optional<QString> scope = nonEmptyText("movers_scope"))
        values.moversScope = normalizedMoversScope(*scope);
    values.moversInterval =
            acceptedText(document.value(QStringLiteral("movers_interval")), moversIntervalIds());
    values.moversSector = nonEmptyText("movers_sector");
    // The spin boxes' ranges: a larger minimum is damage, not a filter.
    const auto minimum = [&document](const char *key, double largest) -> std::optional<double> {
        const QJsonValue value = document.value(QLatin1String(key));
        if (value.isDouble() && std::isfinite(value.toDouble()) && value.toDouble() >= 0 &&
            value.toDouble() <= largest)
            return std::round(value.toDouble());
        return std::nullopt;
    };
    values.moversMinVolume = minimum("movers_min_volume", 1e12);
    values.moversMinTurnover = minimum("movers_min_turnover", 1e15);
    return values;
}

QJsonObject workspaceValuesToJson(const WorkspaceValues &values)
{
    const auto sizes = [](const QList<int> &list) {
        QJsonArray array;
        for (int size : list)
            array.append(size);
        return array;
    };
    return {
            {QStringLiteral("language"), values.language.value_or(QStringLiteral("en"))},
            {QStringLiteral("theme"), values.theme.value_or(QStringLiteral("coffee_dark"))},
            {QStringLiteral("chart_mode"), values.chartMode.value_or(QStringLiteral("line"))},
            {QStringLiteral("chart_timeframe"),
             values.chartTimeframe.value_or(QStringLiteral("1m"))},
            {QStringLiteral("window_geometry"),
             QString::fromLatin1(values.windowGeometry.toBase64())},
            {QStringLiteral("hidden_columns"),
             hiddenColumnsText(values.hiddenColumns.value_or(QSet<int>()))},
            {QStringLiteral("shortcuts"),
             shortcutOverridesToJson(values.shortcuts.value_or(ShortcutOverrides()))},
            {QStringLiteral("left_splitter_sizes"), sizes(values.leftSplitterSizes)},
            {QStringLiteral("workspace_splitter_sizes"), sizes(values.workspaceSplitterSizes)},
            {QStringLiteral("book_step"), values.bookStep.value_or(0.0)},
            {QStringLiteral("book_preset"), values.bookPreset.value_or(QString())},
            {QStringLiteral("indicators"), values.indicators.value_or(QJsonObject())},
            {QStringLiteral("drawings"), values.drawings.value_or(QJsonObject())},
            {QStringLiteral("movers_min_volume"), values.moversMinVolume.value_or(0.0)},
            {QStringLiteral("movers_min_turnover"), values.moversMinTurnover.value_or(0.0)},
            {QStringLiteral("movers_scope"), values.moversScope.value_or(QStringLiteral("crypto"))},
            {QStringLiteral("movers_interval"),
             values.moversInterval.value_or(QStringLiteral("hour"))},
            {QStringLiteral("movers_sector"), values.moversSector.value_or(QStringLiteral("all"))},
    };
}

QList<int> readSplitterSizes(const QJsonValue &value, int panes)
{
    // Larger than any screen wall: such a value is damage, not a layout.
    constexpr double kLargestPane = 100000;
    const QJsonArray array = value.toArray();
    if (array.size() != panes)
        return {};
    QList<int> sizes;
    for (const QJsonValue &entry : array) {
        const double size = entry.toDouble(-1);
        if (!entry.isDouble() || size < 1 || size > kLargestPane || size != std::floor(size))
            return {};
        sizes << static_cast<int>(size);
    }
    return sizes;
}

int storedAlertCount(const QJsonObject &settings)
{
    int count = 0;
    for (const QJsonValue &alert : settings.value(QStringLiteral("alerts")).toArray()) {
        if (alert.isObject())
            ++count;
    }
    return count;
}

QString storedSessionToken(const QJsonObject &settings)
{
    return settings.value(QStringLiteral("auth"))
            .toObject()
            .value(QStringLiteral("token"))
            .toString()
            .trimmed();
}

QJsonObject LocalSettingsFile::load()
{
    m_stored = {};
    m_corruptBytes = QByteArray();
    QFile file(dataFileReadPath(DataFile::LocalSettings));
    if (!file.open(QIODevice::ReadOnly))
        return m_stored;
    const QByteArray bytes = file.readAll();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.isObject())
        m_stored = document.object();
    else
        m_corruptBytes = bytes.isNull() ? QByteArray("") : bytes;
    return m_stored;
}

bool LocalSettingsFile::save(const QJsonObject &values)
{
    QJsonObject document = m_stored;
    for (auto it = values.begin(); it != values.end(); ++it)
        document.insert(it.key(), it.value());

    const QString path = dataFileWritePath(DataFile::LocalSettings);
    if (!m_corruptBytes.isNull()) {
        // The user's unreadable file stays beside the new one, for them to recover by hand.
        if (!writeFileAtomically(path + QStringLiteral(".corrupt"), m_corruptBytes))
            return false;
        m_corruptBytes = QByteArray();
    }
    if (!writeFileAtomically(path, orderedJsonText(document, localSettingsKeyOrder())))
        return false;
    m_stored = document;
    ++m_writeCount;
    return true;
}

void LocalSettingsFile::carry(const QJsonObject &values)
{
    for (auto it = values.begin(); it != values.end(); ++it)
        m_stored.insert(it.key(), it.value());
}

void LocalSettingsFile::forget(const QString &key)
{
    m_stored.remove(key);
}
