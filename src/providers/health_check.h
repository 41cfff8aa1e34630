#pragma once

#include "app/clock.h"
#include "providers/provider_catalogue.h"

#include <QObject>

class QNetworkAccessManager;
class QuotaMeter;

// One run of the API health checks: every probed catalogue row is sent at once and each answer
// updates its record as it comes. A new run makes the answers of the one before it stale.
class HealthCheck : public QObject
{
    Q_OBJECT

public:
    explicit HealthCheck(QNetworkAccessManager &manager, QObject *parent = nullptr);

    void setClock(Clock clock) { m_clock = std::move(clock); }
    // When set, every probe sent is counted against its provider's free limit.
    void setQuotaMeter(QuotaMeter *meter) { m_quotaMeter = meter; }

    // Starts a run over `previous` (the records as loaded from the settings). Rows that are not
    // probed are settled at once; a run without probes finishes before this returns.
    void start(const KeyLookup &keys, const ApiHealthRecords &previous);

    const ApiHealthRecords &records() const { return m_records; }
    quint64 generation() const { return m_generation; }
    int answered() const { return m_answered; }
    int total() const { return m_total; }
    bool isRunning() const { return m_answered < m_total; }

signals:
    // A row's record changed (its state at the start of the run, then its answer).
    void recordChanged(const QString &healthKey, const ApiHealthRecord &record);
    void progress(int answered, int total);
    void finished(const ApiHealthRecords &records);

private:
    void send(const QString &key, const QString &providerId, const QNetworkRequest &request,
              qint64 startedMs);
    void answer(const QString &key, const ProviderResponseCheck &check, qint64 latencyMs);

    QNetworkAccessManager &m_manager;
    Clock m_clock = systemClock();
    QuotaMeter *m_quotaMeter = nullptr;
    ApiHealthRecords m_records;
    quint64 m_generation = 0;
    int m_answered = 0;
    int m_total = 0;
};
