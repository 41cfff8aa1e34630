#include "providers/provider_throttles.h"

#include "providers/provider_response.h"

bool ProviderThrottles::isCoolingDown(const QString &providerId, qint64 nowMs) const
{
    return nowMs < cooldownUntil(providerId);
}

qint64 ProviderThrottles::cooldownUntil(const QString &providerId) const
{
    return m_cooldownUntil.value(providerId, 0);
}

void ProviderThrottles::startCooldown(const QString &providerId, qint64 nowMs,
                                      int retryAfterSeconds)
{
    m_cooldownUntil.insert(providerId, providerCooldownUntil(nowMs, retryAfterSeconds));
}

void ProviderThrottles::clearCooldown(const QString &providerId)
{
    m_cooldownUntil.remove(providerId);
}

void ProviderThrottles::blockAlphaVantage(qint64 nowMs, int retryAfterSeconds)
{
    m_alphaVantageBlockedUntil = alphaVantageBlockUntil(nowMs, retryAfterSeconds);
}
