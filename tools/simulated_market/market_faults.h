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
// run time, so the terminal's throttles, fallbacks, reconnections and error texts can be watched at
// work. The HTTP providers take the kinds up to Slow and Silent; the streams take Silent and those
// after it.
enum class FaultKind {
    None,
    RateLimited, // "429": the provider's throttling reply, with Retry-After: 17
    Unavailable, // "5xx": HTTP 503 with an HTML page
    Html,        // "html": HTTP 200 with an HTML page (a maintenance notice, a portal)
    Limit,       // "limit": HTTP 200 carrying the provider's limit message
    Note,        // "note": Alpha Vantage's older per-minute Note (the others answer as for limit)
    Malformed,   // "malformed": HTTP 200 with the usual body cut in half
    Slow,        // "slow:<ms>": the usual reply, that much later
    Silent,      // "silent": no reply at all, the connection left open; a stream sends nothing
    Close,       // "close": every stream connection closed, and each new one as soon as it opens
    Garbage,     // "garbage": stream frames that cannot be read, in several ways
    ShortDepth,  // "short_depth": depth frames with only three ask levels
};

struct Fault
{
    FaultKind kind = FaultKind::None;
    int delayMs = 0; // Slow only

    QString name() const; // as written on the command line: "429", "slow:250"
    // "none", "429", "5xx", "html", "limit", "note", "malformed", "slow:<ms>", "silent",
    // "close", "garbage" or "short_depth".
    static std::optional<Fault> parse(const QString &text);
};

inline constexpr int kRetryAfterSeconds = 17;
inline constexpr int kMaxSlowMs = 600000;

// The providers the market plays, by the ids faults are set with: yahoo, yahoo_rss (Yahoo's
// headline feed), brapi, binance, finnhub, twelvedata, fmp, alpha_vantage, newsapi and
// querlin_news (the house news feed) over HTTP, binance_ws, Binance's streams, and itick_ws,
// iTick's stock stream.
const QStringList &simulatedProviders();
inline const QString kBinanceStreams = QStringLiteral("binance_ws");
inline const QString kItickStreams = QStringLiteral("itick_ws");
bool isStreamProvider(const QString &provider);
// Whether the provider can show that fault; every provider takes None and Silent.
bool faultFits(const QString &provider, FaultKind kind);

class FaultBoard
{
public:
    // `provider` is one of simulatedProviders() or "all", which sets every provider the fault
    // fits; false for another provider or one the fault does not fit.
    bool set(const QString &provider, const Fault &fault);
    // "finnhub=429", "binance_ws=close"; an explanation when the setting cannot be used, else an
    // empty text.
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
