#pragma once

#include <QHash>
#include <QString>

// The quota guards of the keyed providers: the pauses a provider asked for (a cool-down per
// provider, the Alpha Vantage block) and the local spacing of requests that keeps free plans inside
// their per-minute allowance. Times are absolute, in milliseconds since the epoch; they live for
// the run and are never saved.
class ProviderThrottles
{
public:
    bool isCoolingDown(const QString &providerId, qint64 nowMs) const;
    qint64 cooldownUntil(const QString &providerId) const; // 0 when none was set
    void startCooldown(const QString &providerId, qint64 nowMs, int retryAfterSeconds);
    void clearCooldown(const QString &providerId);

    // Twelve Data and Financial Modeling Prep: refused while cooling down or when the provider was
    // asked less than kProviderSpacingMs ago; a granted slot counts as a request now.
    bool takeProviderSlot(const QString &providerId, qint64 nowMs);

    bool isAlphaVantageBlocked(qint64 nowMs) const { return nowMs < m_alphaVantageBlockedUntil; }
    qint64 alphaVantageBlockedUntil() const { return m_alphaVantageBlockedUntil; }
    void blockAlphaVantage(qint64 nowMs, int retryAfterSeconds);
    // Alpha Vantage was asked less than kAlphaVantageSpacingMs ago.
    bool isAlphaVantageThrottled(qint64 nowMs) const;
    void recordAlphaVantageRequest(qint64 nowMs) { m_lastAlphaVantageRequest = nowMs; }

    static constexpr qint64 kProviderSpacingMs = 15000;
    static constexpr qint64 kAlphaVantageSpacingMs = 12000;

private:
    QHash<QString, qint64> m_cooldownUntil;
    QHash<QString, qint64> m_lastRequest;
    qint64 m_alphaVantageBlockedUntil = 0;
    qint64 m_lastAlphaVantageRequest = 0;
};
