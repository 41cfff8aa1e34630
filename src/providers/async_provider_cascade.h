#pragma once

#include "providers/provider_response.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>

// Tries providers one after another for one symbol until one delivers. Each step gets a time-out;
// every failed provider leaves one entry in the failure list. Step results are tagged with the
// generation they were started under, so a late answer from a step the cascade already gave up on
// (timed out, or replaced) is ignored.
class AsyncProviderCascade : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(const AsyncProviderResult &)>;
    using Starter = std::function<void(const QString &providerId, Completion done)>;
    using SuccessHandler = std::function<void(const QString &providerId)>;
    using FailureHandler = std::function<void(const QStringList &failures)>;

    static constexpr int kStepTimeoutMs = 11000;

    explicit AsyncProviderCascade(QObject *parent = nullptr);

    void start(const QStringList &providerIds, Starter starter, SuccessHandler onSuccess,
               FailureHandler onAllFailed, int stepTimeoutMs = kStepTimeoutMs);
    void startNext();
    void onStepResult(quint64 generation, const QString &providerId,
                      const AsyncProviderResult &result);
    void onStepTimeout();

    bool isRunning() const { return m_running; }
    QStringList providerIds() const { return m_providerIds; }
    QStringList failures() const { return m_failures; }
    quint64 generation() const { return m_generation; }

private:
    QString currentId() const;
    void recordFailure(const QString &providerId, const AsyncProviderResult &result);

    QStringList m_providerIds;
    QStringList m_failures;
    Starter m_starter;
    SuccessHandler m_onSuccess;
    FailureHandler m_onAllFailed;
    QTimer m_timer;
    int m_index = -1;
    int m_stepTimeoutMs = kStepTimeoutMs;
    quint64 m_generation = 0;
    bool m_running = false;
};
