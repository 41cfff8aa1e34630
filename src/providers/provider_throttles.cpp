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

bool ProviderThrottles::takeProviderSlot(const QString &providerId, qint64 nowMs)
{
    if (isCoolingDown(providerId, nowMs))
        return false;
    const auto last = m_lastRequest.constFind(providerId);
    if (last != m_lastRequest.cend() && nowMs - *last < kProviderSpacingMs)
        return false;
    m_lastRequest.insert(providerId, nowMs);
    return true;
}

bool ProviderThrottles::isAlphaVantageThrottled(qint64 nowMs) const
{
    return m_lastAlphaVantageRequest > 0 &&
           nowMs - m_lastAlphaVantageRequest < kAlphaVantageSpacingMs;
}
