#include "providers/async_provider_cascade.h"

#include <QPointer>

#include <algorithm>

AsyncProviderCascade::AsyncProviderCascade(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &AsyncProviderCascade::onStepTimeout);
}

void AsyncProviderCascade::start(const QStringList &providerIds, Starter starter,
                                 SuccessHandler onSuccess, FailureHandler onAllFailed,
                                 int stepTimeoutMs)
{
    ++m_generation;
    m_providerIds = providerIds;
    m_starter = std::move(starter);
    m_onSuccess = std::move(onSuccess);
    m_onAllFailed = std::move(onAllFailed);
    m_failures.clear();
    m_stepTimeoutMs = std::max(1, stepTimeoutMs);
    m_index = -1;
    m_running = true;
    startNext();
}

void AsyncProviderCascade::startNext()
{
    ++m_index;
    if (m_index >= m_providerIds.size()) {
        m_running = false;
        m_timer.stop();
        if (m_onAllFailed)
            m_onAllFailed(m_failures);
        return;
    }
    const QString id = m_providerIds.at(m_index);
    const quint64 generation = ++m_generation;
    m_timer.start(m_stepTimeoutMs);
    if (!m_starter) {
        onStepResult(generation, id, AsyncProviderResult::failure(missingStarterText()));
        return;
    }
    // The step may answer after this cascade was replaced and deleted.
    QPointer<AsyncProviderCascade> self(this);
    m_starter(id, [self, generation, id](const AsyncProviderResult &result) {
        if (self)
            self->onStepResult(generation, id, result);
    });
}

void AsyncProviderCascade::onStepResult(quint64 generation, const QString &providerId,
                                        const AsyncProviderResult &result)
{
    if (!m_running || generation != m_generation || providerId != currentId())
        return;
    m_timer.stop();
    if (result.ok) {
        m_running = false;
        if (m_onSuccess)
            m_onSuccess(providerId);
        return;
    }
    recordFailure(providerId, result);
    startNext();
}

void AsyncProviderCascade::onStepTimeout()
{
    if (!m_running || m_index < 0 || m_index >= m_providerIds.size())
        return;
    onStepResult(m_generation, currentId(), AsyncProviderResult::failure(stepTimeoutText()));
}

QString AsyncProviderCascade::currentId() const
{
    return m_index >= 0 && m_index < m_providerIds.size() ? m_providerIds.at(m_index) : QString();
}

void AsyncProviderCascade::recordFailure(const QString &providerId,
                                         const AsyncProviderResult &result)
{
    m_failures << providerFailureEntry(providerId, result.message, result.rateLimited);
}
