#include "providers/health_check.h"

#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "providers/quota_meter.h"
#include "providers/quote_step.h"

#include <QDateTime>
#include <QUrlQuery>

HealthCheck::HealthCheck(QNetworkAccessManager &manager, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
{}

void HealthCheck::start(const KeyLookup &keys, const ApiHealthRecords &previous)
{
    ++m_generation;
    m_records = previous;
    m_answered = 0;
    m_total = 0;

    struct Probe
    {
        QString key;
        QString providerId;
        QNetworkRequest request;
    };
    QList<Probe> probes;
    for (const CatalogueRow &row : providerCatalogue()) {
        const QString key = healthKey(row);
        const HealthPlan plan = healthPlan(row, keys);
        ApiHealthRecord &record = m_records[key];
        beginHealthTest(record, plan);
        if (plan.request)
            probes.append({key, healthProviderId(row), *plan.request});
        emit recordChanged(key, record);
    }
    m_total = int(probes.size());
    emit progress(0, m_total);
    if (m_total == 0) {
        emit finished(m_records);
        return;
    }
    const qint64 startedMs = m_clock();
    for (const Probe &probe : probes)
        send(probe.key, probe.providerId, probe.request, startedMs);
}

void HealthCheck::send(const QString &key, const QString &providerId,
                       const QNetworkRequest &request, qint64 startedMs)
{
    countProviderRequest(m_quotaMeter, providerId);
    const quint64 generation = m_generation;
    const QUrl url = request.url();
    sendProviderGet(
            m_manager, request, this,
            [this, generation, key, providerId, url, startedMs](const ProviderReply &reply) {
                if (generation != m_generation)
                    return;
                if (providerId == QLatin1String("fmp") &&
                    url.path().startsWith(QLatin1String("/api/v3/")) &&
                    isFmpLegacyEndpointReply(reply.httpStatus, reply.body)) {
                    // The same switch as the quote step's: a newer key is tested on /stable.
                    setFmpStableQuoteInUse(true);
                    QNetworkRequest stable =
                            fmpQuoteRequest(QStringLiteral("AAPL"),
                                            QUrlQuery(url).queryItemValue(QStringLiteral("apikey"),
                                                                          QUrl::FullyDecoded));
                    stable.setRawHeader("User-Agent", kFetcherUserAgent);
                    send(key, providerId, stable, startedMs);
                    return;
                }
                ProviderResponseCheck check;
                if (reply.tooLarge) {
                    check.message = replyTooLargeText();
                } else {
                    check = classifyProviderResponse(providerId, reply.httpStatus, reply.rawHeaders,
                                                     reply.body);
                    check.message = maskRequestSecrets(check.message, url);
                }
                answer(key, check, m_clock() - startedMs);
            },
            m_clock);
}

void HealthCheck::answer(const QString &key, const ProviderResponseCheck &check, qint64 latencyMs)
{
    ApiHealthRecord &record = m_records[key];
    applyHealthTestReply(record, check, latencyMs,
                         QDateTime::fromMSecsSinceEpoch(m_clock(), Qt::LocalTime));
    ++m_answered;
    emit recordChanged(key, record);
    emit progress(m_answered, m_total);
    if (m_answered == m_total)
        emit finished(m_records);
}
