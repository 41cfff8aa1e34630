#pragma once

#include "app/clock.h"
#include "loopback_http/http_server.h"
#include "simulated_market/market_faults.h"

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

// Keeps the pauses the market asked of the terminal and counts the requests that did not wait.
// Whenever a provider answers with its throttling reply (a 429 with Retry-After, or its limit
// message under HTTP 200), the pause the terminal is documented to take starts:
//   twelvedata, fmp                    Retry-After when it is at least 1 s, else 60 s;
//   alpha_vantage (quotes)             at least 60 s, longer when Retry-After says so;
//   alpha_vantage_movers (top movers)  the same rule, kept apart from the quotes' block.
// Those providers are also paced (15 s apart; Alpha Vantage quotes 12 s apart) and a request
// closer than that to the one before is counted too. The other providers have no documented
// pause: a request of theirs inside the Retry-After they were sent is counted on its own, as a
// fact to look at rather than a fault.
class CooldownLedger
{
public:
    explicit CooldownLedger(Clock clock);

    // One request to `provider` and the answer it is about to get under `fault`.
    void record(const QString &provider, const HttpRequest &request, FaultKind fault,
                const HttpResponse &response);
    void countFaultSwitch() { ++m_faultSwitches; }

    int requestsInsideCooldowns() const;
    int requestsInsideSpacing() const;
    // GET /__sim/stats
    QByteArray toJson() const;

    // How far apart a paced provider's requests may arrive closer than its pacing, for the jitter
    // between the terminal deciding to send and the request arriving here.
    static constexpr qint64 kArrivalToleranceMs = 250;

private:
    struct Channel
    {
        int requests = 0;
        int throttled = 0; // throttling replies sent
        int windows = 0;   // pauses started
        int inside = 0;    // requests that came during a pause
        int tooClose = 0;  // requests that came closer than the pacing
        qint64 until = 0;  // end of the current pause, ms since the epoch
        qint64 lastRequest = 0;
    };

    Clock m_clock;
    QMap<QString, Channel> m_channels;        // by channel: a provider, or alpha_vantage_movers
    QHash<QString, qint64> m_retryAfterUntil; // providers without a documented pause
    int m_insideRetryAfterElsewhere = 0;
    int m_faultSwitches = 0;
    QStringList m_examples; // the first requests that did not wait, for the report
};
