#pragma once

#include "providers/provider_response.h"
#include "providers/provider_table.h"

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QNetworkRequest>
#include <QString>
#include <QStringList>

#include <optional>
#include <span>

// Every provider the terminal knows, per asset group, in the rank it is tried in: what the
// "Verify APIs" dialog lists, what the health check probes and what the quota meter measures.

struct CatalogueRow
{
    const char *group; // "Crypto", "US/America", "B3", "Forex", "News"
    int rank;          // 99: the public last resort
    const char *provider;
    const char *keyName; // empty for public rows
    const char *coverage;
    const char *bookDepth;
    const char *fallback;
    bool isPublic;
};

std::span<const CatalogueRow> providerCatalogue();

// The name of a row's health record: group + "|" + provider ("Crypto|Binance Public").
QString healthKey(const CatalogueRow &row);

// "enabled", "public fallback", "not implemented" or "skipped: no key".
QString cascadeState(const CatalogueRow &row, const KeyLookup &keys);

inline constexpr char kLightTheme[] = "qrl_light";
QString cascadeStateColor(const QString &state, const QString &theme);
QString healthStateColor(const QString &state, const QString &theme);

// One row's recent behaviour, kept in the settings under "api_health".
struct ApiHealthRecord
{
    QString state = QStringLiteral("not tested");
    qint64 latencyMs = 0; // -1 when not measured
    QString lastSuccess;  // local "yyyy-MM-dd HH:mm:ss"
    QString lastError;
    int attempts = 0;
    int successes = 0;
    int failures = 0;

    // A field of the wrong type reads as if it were missing.
    static ApiHealthRecord fromJson(const QJsonValue &value);
    QJsonObject toJson() const;
    friend bool operator==(const ApiHealthRecord &, const ApiHealthRecord &) = default;
};

using ApiHealthRecords = QMap<QString, ApiHealthRecord>; // by healthKey()

// The value of "api_health"; anything but an object gives no records.
ApiHealthRecords healthRecordsFromJson(const QJsonValue &value);
QJsonObject healthRecordsToJson(const ApiHealthRecords &records);

// Keyed rows that are usable but have no probe (Polygon, IEX Cloud, Tiingo, ...) get this state;
// like "skipped: no key" it is shown in the neutral colour.
inline constexpr char kNoProbeState[] = "skipped: no probe";

// The provider id a row's test reply is classified as ("alpha_vantage", "yahoo_fx", "querlin").
QString healthProviderId(const CatalogueRow &row);
// The GET that tests a row, or none for rows without a probe.
std::optional<QNetworkRequest> healthTestRequest(const CatalogueRow &row, const KeyLookup &keys);

// What a run does with a row before anything is sent: the state it shows and whether it probes.
struct HealthPlan
{
    QString state; // "not implemented", "skipped: ...", or "testing" when probed
    std::optional<QNetworkRequest> request;
};
HealthPlan healthPlan(const CatalogueRow &row, const KeyLookup &keys);
// Sets the plan's state on the record and, when it probes, counts an attempt.
void beginHealthTest(ApiHealthRecord &record, const HealthPlan &plan);

// The reply rules: a usable verdict is "ok" with the time of success; anything else is
// "rate limited" or "error" with the verdict's text (and the wait the provider asked for).
// A failure keeps the previous last success.
void applyHealthTestReply(ApiHealthRecord &record, const ProviderResponseCheck &check,
                          qint64 latencyMs, const QDateTime &now);

// "API cascade %1: %2", or empty when the subject or the order is empty.
QString cascadeLogLine(const QString &subject, const QStringList &providerIds);
// One line per quote order the keys produce, crypto, US, B3 and forex in that order.
QStringList cascadeLogLines(const KeyLookup &keys);

// What a provider gives away per window, as its documentation states; 0 where none is stated.
struct ProviderFreeLimit
{
    const char *providerId;
    const char *keyName;
    int perMinute;
    int perDay;
    int perMonth;
};
std::span<const ProviderFreeLimit> providerFreeLimits();
const ProviderFreeLimit *providerFreeLimit(const QString &providerId);
