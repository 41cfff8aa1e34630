#pragma once

#include "app/clock.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

// Price alerts: one symbol watched for its last price reaching a target from below ("Above") or
// from above ("Below"), one-shot or repeating behind a 60 s cooldown, and the history of what
// happened to them. Nothing here needs a widget: checkAlerts() says which alerts fired and the
// window beeps, highlights, notifies and logs.

struct PriceAlert
{
    QString symbol;
    double target = 0;
    bool above = true;       // fires when price >= target; else when price <= target
    bool triggered = false;  // a one-shot alert that has fired
    bool repeating = false;
    qint64 lastTriggerMs = 0; // 0 = never
};

struct AlertHistoryEntry
{
    QString timestamp; // local "yyyy-MM-dd HH:mm:ss"
    QString event;     // "Armed", "Triggered", "Rearmed", "Removed"
    QString symbol;
    QString condition; // ">= 100.0000" or "<= 100.0000"
    double target = 0;
    double price = 0;
    QString status; // "Active", "Active / Repeat", "Hit", "Inactive"
};

inline constexpr qint64 kAlertCooldownMs = 60000;

QJsonObject alertToJson(const PriceAlert &alert);
QJsonObject historyEntryToJson(const AlertHistoryEntry &entry);

// The `alerts` and `alert_history` arrays of the settings. Entries that cannot be read (wrong
// types, missing keys, non-finite numbers) are skipped and kept in *unreadable, so a save writes
// them back as they were.
QList<PriceAlert> readAlerts(const QJsonValue &value, QList<QJsonValue> *unreadable = nullptr);
QList<AlertHistoryEntry> readAlertHistory(const QJsonValue &value,
                                          QList<QJsonValue> *unreadable = nullptr);
QJsonArray alertsToJson(const QList<PriceAlert> &alerts, const QList<QJsonValue> &unreadable = {});
QJsonArray historyToJson(const QList<AlertHistoryEntry> &history,
                         const QList<QJsonValue> &unreadable = {});

// ">= %1" / "<= %1" with the target in fixed notation, 4 decimals.
QString alertCondition(bool above, double target);
// A history entry for `alert` at `price`, stamped with `nowMs` in local time; "Active" becomes
// "Active / Repeat" for a repeating alert.
AlertHistoryEntry alertHistoryEntry(const PriceAlert &alert, const QString &event,
                                    const QString &status, double price, qint64 nowMs);

// Checks every alert of `symbol` against `price` in list order and returns the indexes of those
// that fire, having already set lastTriggerMs and the triggered flag of each (so an alert cannot
// fire twice for one crossing). One-shot alerts that fired are skipped; a repeating alert is
// silent while less than 60 000 ms passed since its last firing.
QList<int> checkAlerts(QList<PriceAlert> &alerts, const QString &symbol, double price,
                       qint64 nowMs);

// The saved alert a history row stands for: same symbol, condition and target; -1 when none.
int matchingAlert(const QList<PriceAlert> &alerts, const AlertHistoryEntry &row);

// The texts of a firing, in the current language.
QString alertBoxTitle(const QString &symbol);                 // "Price Alert - %1"
QString alertBoxText(const PriceAlert &alert, double price); // "%1 alert triggered.\n\nLast: ..."
QString alertHitLogLine(const PriceAlert &alert, double price); // "ALERT HIT: ..."
// "#f45d5d" for Triggered/Hit, "#9aa0a6" for Removed/Inactive, else "#20c878".
QString alertHistoryColor(const QString &text);
