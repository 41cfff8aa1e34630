#include "portfolio/price_alerts.h"

#include "app/language.h"

#include <QDateTime>

#include <cmath>
#include <limits>
#include <optional>

namespace {

QString fixed4(double value)
{
    if (!std::isfinite(value))
        return QStringLiteral("--");
    return QString::number(value, 'f', 4);
}

// The shared price display: 2 decimals at 1000 and above, 4 below.
QString priceText(double price)
{
    if (!std::isfinite(price))
        return QStringLiteral("--");
    return QString::number(price, 'f', std::abs(price) >= 1000 ? 2 : 4);
}

// Missing keys take their defaults; a key of the wrong type makes the whole entry unreadable.
bool readText(const QJsonObject &object, const QString &key, QString &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

bool readFlag(const QJsonObject &object, const QString &key, bool &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isBool())
        return false;
    out = value.toBool();
    return true;
}

std::optional<double> finiteValue(const QJsonValue &value)
{
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return std::nullopt;
    return value.toDouble();
}

// Milliseconds as written (an exact integer), or a whole double within the 64-bit range.
bool readMilliseconds(const QJsonObject &object, const QString &key, qint64 &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    const auto number = finiteValue(value);
    if (!number || std::abs(*number) >= 9.2e18)
        return false;
    const qint64 exact = value.toInteger(std::numeric_limits<qint64>::min());
    out = exact != std::numeric_limits<qint64>::min() ? exact : qint64(std::trunc(*number));
    return true;
}

std::optional<PriceAlert> readAlert(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    PriceAlert alert;
    alert.symbol = object.value(QLatin1String("symbol")).toString().trimmed().toUpper();
    const auto target = finiteValue(object.value(QLatin1String("target")));
    if (alert.symbol.isEmpty() || !target)
        return std::nullopt;
    alert.target = *target;
    if (!readFlag(object, QStringLiteral("above"), alert.above) ||
        !readFlag(object, QStringLiteral("triggered"), alert.triggered) ||
        !readFlag(object, QStringLiteral("repeating"), alert.repeating) ||
        !readMilliseconds(object, QStringLiteral("last_trigger_ms"), alert.lastTriggerMs))
        return std::nullopt;
    return alert;
}

std::optional<AlertHistoryEntry> readHistoryEntry(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    AlertHistoryEntry entry;
    if (!readText(object, QStringLiteral("timestamp"), entry.timestamp) ||
        !readText(object, QStringLiteral("event"), entry.event) ||
        !readText(object, QStringLiteral("symbol"), entry.symbol) ||
        !readText(object, QStringLiteral("condition"), entry.condition) ||
        !readText(object, QStringLiteral("status"), entry.status))
        return std::nullopt;
    const auto target = finiteValue(object.value(QLatin1String("target")));
    if (entry.symbol.isEmpty() || !target)
        return std::nullopt;
    entry.target = *target;
    // An entry made while the symbol had no price keeps it as null.
    const QJsonValue price = object.value(QLatin1String("price"));
    if (price.isUndefined() || price.isNull()) {
        entry.price = NAN;
    } else if (const auto number = finiteValue(price)) {
        entry.price = *number;
    } else {
        return std::nullopt;
    }
    return entry;
}

template<typename T, typename Reader>
QList<T> readArray(const QJsonValue &value, QList<QJsonValue> *unreadable, Reader read)
{
    QList<T> items;
    for (const QJsonValue &entry : value.toArray()) {
        if (auto item = read(entry))
            items << *item;
        else if (unreadable)
            *unreadable << entry;
    }
    return items;
}

QJsonValue numberOrNull(double value)
{
    return std::isfinite(value) ? QJsonValue(value) : QJsonValue(QJsonValue::Null);
}

} // namespace

QJsonObject alertToJson(const PriceAlert &alert)
{
    return {{QStringLiteral("symbol"), alert.symbol},
            {QStringLiteral("target"), alert.target},
            {QStringLiteral("above"), alert.above},
            {QStringLiteral("triggered"), alert.triggered},
            {QStringLiteral("repeating"), alert.repeating},
            {QStringLiteral("last_trigger_ms"), alert.lastTriggerMs}};
}

QJsonObject historyEntryToJson(const AlertHistoryEntry &entry)
{
    return {{QStringLiteral("timestamp"), entry.timestamp},
            {QStringLiteral("event"), entry.event},
            {QStringLiteral("symbol"), entry.symbol},
            {QStringLiteral("condition"), entry.condition},
            {QStringLiteral("target"), numberOrNull(entry.target)},
            {QStringLiteral("price"), numberOrNull(entry.price)},
            {QStringLiteral("status"), entry.status}};
}

QList<PriceAlert> readAlerts(const QJsonValue &value, QList<QJsonValue> *unreadable)
{
    return readArray<PriceAlert>(value, unreadable, readAlert);
}

QList<AlertHistoryEntry> readAlertHistory(const QJsonValue &value, QList<QJsonValue> *unreadable)
{
    return readArray<AlertHistoryEntry>(value, unreadable, readHistoryEntry);
}

QJsonArray alertsToJson(const QList<PriceAlert> &alerts, const QList<QJsonValue> &unreadable)
{
    QJsonArray array;
    for (const PriceAlert &alert : alerts)
        array.append(alertToJson(alert));
    for (const QJsonValue &entry : unreadable)
        array.append(entry);
    return array;
}

QJsonArray historyToJson(const QList<AlertHistoryEntry> &history,
                         const QList<QJsonValue> &unreadable)
{
    QJsonArray array;
    for (const AlertHistoryEntry &entry : history)
        array.append(historyEntryToJson(entry));
    for (const QJsonValue &entry : unreadable)
        array.append(entry);
    return array;
}

QString alertCondition(bool above, double target)
{
    return QStringLiteral("%1 %2").arg(above ? QStringLiteral(">=") : QStringLiteral("<="),
                                       fixed4(target));
}

AlertHistoryEntry alertHistoryEntry(const PriceAlert &alert, const QString &event,
                                    const QString &status, double price, qint64 nowMs)
{
    AlertHistoryEntry entry;
    entry.timestamp = QDateTime::fromMSecsSinceEpoch(nowMs).toLocalTime().toString(
            QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    entry.event = event;
    entry.symbol = alert.symbol;
    entry.condition = alertCondition(alert.above, alert.target);
    entry.target = alert.target;
    entry.price = price;
    entry.status = alert.repeating && status == QLatin1String("Active")
                           ? QStringLiteral("Active / Repeat")
                           : status;
    return entry;
}

QList<int> checkAlerts(QList<PriceAlert> &alerts, const QString &symbol, double price, qint64 nowMs)
{
    QList<int> fired;
    if (!std::isfinite(price) || price <= 0)
        return fired;
    for (int i = 0; i < alerts.size(); ++i) {
        PriceAlert &alert = alerts[i];
        if (!alert.repeating && alert.triggered)
            continue;
        if (alert.symbol != symbol)
            continue;
        if (alert.above ? !(price >= alert.target) : !(price <= alert.target))
            continue;
        if (alert.repeating && alert.lastTriggerMs > 0 &&
            nowMs - alert.lastTriggerMs < kAlertCooldownMs)
            continue;
        alert.lastTriggerMs = nowMs;
        if (!alert.repeating)
            alert.triggered = true;
        fired << i;
    }
    return fired;
}

int matchingAlert(const QList<PriceAlert> &alerts, const AlertHistoryEntry &row)
{
    for (int i = 0; i < alerts.size(); ++i) {
        const PriceAlert &alert = alerts[i];
        if (alert.symbol == row.symbol && alert.target == row.target &&
            alertCondition(alert.above, alert.target) == row.condition)
            return i;
    }
    return -1;
}

QString alertBoxTitle(const QString &symbol)
{
    return translated(QStringLiteral("Price Alert - %1"), QStringLiteral("Alerta de preço - %1"))
            .arg(symbol);
}

QString alertBoxText(const PriceAlert &alert, double price)
{
    const QString comparison = alert.above ? QStringLiteral(">=") : QStringLiteral("<=");
    const QString text =
            alert.repeating
                    ? translated(
                              QStringLiteral("%1 alert triggered.\n\nLast: %2\nCondition: %3 "
                                             "%4\nMode: Repeat"),
                              QStringLiteral("Alerta de %1 disparado.\n\nÚltimo: %2\nCondição: %3 "
                                             "%4\nModo: Repetir"))
                    : translated(
                              QStringLiteral("%1 alert triggered.\n\nLast: %2\nCondition: %3 %4"),
                              QStringLiteral(
                                      "Alerta de %1 disparado.\n\nÚltimo: %2\nCondição: %3 %4"));
    return text.arg(alert.symbol, priceText(price), comparison, fixed4(alert.target));
}

QString alertHitLogLine(const PriceAlert &alert, double price)
{
    const QString text =
            alert.repeating
                    ? translated(
                              QStringLiteral("ALERT HIT: %1 last %2 target %3 repeat"),
                              QStringLiteral("ALERTA ATINGIDO: %1 último %2 alvo %3 com repetição"))
                    : translated(QStringLiteral("ALERT HIT: %1 last %2 target %3"),
                                 QStringLiteral("ALERTA ATINGIDO: %1 último %2 alvo %3"));
    return text.arg(alert.symbol, fixed4(price), fixed4(alert.target));
}

QString alertHistoryColor(const QString &text)
{
    if (text == QLatin1String("Triggered") || text == QLatin1String("Hit"))
        return QStringLiteral("#f45d5d");
    if (text == QLatin1String("Removed") || text == QLatin1String("Inactive"))
        return QStringLiteral("#9aa0a6");
    return QStringLiteral("#20c878");
}
