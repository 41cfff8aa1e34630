#pragma once

#include <QHash>
#include <QString>

// Provider pauses the terminal keeps after a provider asked it to slow down: a cool-down per keyed
// provider ("twelvedata", "fmp") and the Alpha Vantage block. Times are absolute, in milliseconds
// since the epoch; the cascade consults them before it asks a provider.
class ProviderThrottles
{
public:
    bool isCoolingDown(const QString &providerId, qint64 nowMs) const;
    qint64 cooldownUntil(const QString &providerId) const; // 0 when none was set
    void startCooldown(const QString &providerId, qint64 nowMs, int retryAfterSeconds);
    void clearCooldown(const QString &providerId);

    bool isAlphaVantageBlocked(qint64 nowMs) const { return nowMs < m_alphaVantageBlockedUntil; }
    qint64 alphaVantageBlockedUntil() const { return m_alphaVantageBlockedUntil; }
    void blockAlphaVantage(qint64 nowMs, int retryAfterSeconds);

private:
    QHash<QString, qint64> m_cooldownUntil;
    qint64 m_alphaVantageBlockedUntil = 0;
};
