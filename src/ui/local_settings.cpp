#include "ui/local_settings.h"

#include "app/atomic_file.h"
#include "app/paths.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

#include <algorithm>

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
    return true;
}
