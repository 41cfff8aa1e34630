#pragma once

#include "loopback_http/http_server.h"

#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// The ways a simulated provider can misbehave, switched per provider from the command line or at
// run time, so the terminal's throttles, fallbacks and error texts can be watched at work.
enum class FaultKind {
    None,
    RateLimited, // "429": the provider's throttling reply, with Retry-After: 17
    Unavailable, // "5xx": HTTP 503 with an HTML page
    Limit,       // "limit": HTTP 200 carrying the provider's limit message
    Note,        // "note": Alpha Vantage's older per-minute Note (the others answer as for limit)
    Malformed,   // "malformed": HTTP 200 with the usual body cut in half
    Slow,        // "slow:<ms>": the usual reply, that much later
    Silent,      // "silent": no reply at all, the connection left open
};

struct Fault
{
    FaultKind kind = FaultKind::None;
    int delayMs = 0; // Slow only

    QString name() const; // as written on the command line: "429", "slow:250"
    // "none", "429", "5xx", "limit", "note", "malformed", "slow:<ms>" or "silent".
    static std::optional<Fault> parse(const QString &text);
};

inline constexpr int kRetryAfterSeconds = 17;
inline constexpr int kMaxSlowMs = 600000;

// The providers the market plays, by the ids faults are set with: yahoo, brapi, binance, finnhub,
// twelvedata, fmp and alpha_vantage.
const QStringList &simulatedProviders();

class FaultBoard
{
public:
    // `provider` is one of simulatedProviders() or "all"; false when it is neither.
    bool set(const QString &provider, const Fault &fault);
    // "finnhub=429"; an explanation when the setting cannot be used, else an empty text.
    QString apply(const QString &setting);
    Fault faultOf(const QString &provider) const { return m_faults.value(provider); }
    // The providers with a fault, in the order of simulatedProviders().
    QList<QPair<QString, Fault>> active() const;

private:
    QHash<QString, Fault> m_faults;
};

// What a faulty provider answers. `usual` gives the reply it would have sent; only the faults that
// pass it on (slow, malformed) ask for it.
HttpResponse faultyReply(const QString &provider, const Fault &fault,
                         const std::function<HttpResponse()> &usual);
