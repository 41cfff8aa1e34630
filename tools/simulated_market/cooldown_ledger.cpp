#include "simulated_market/cooldown_ledger.h"

#include "simulated_market/json_text.h"

#include <algorithm>

namespace {

struct PauseRule
{
    const char *channel;
    bool shortRetryAfterShortens; // else the pause is never below the default
    qint64 spacingMs;             // 0: not paced
};

constexpr qint64 kDefaultPauseMs = 60000;
constexpr int kExamplesKept = 20;

constexpr PauseRule kRules[] = {
        {"twelvedata", true, 15000},
        {"fmp", true, 15000},
        {"alpha_vantage", false, 12000},
        {"alpha_vantage_movers", false, 0},
};

const PauseRule *ruleOf(const QString &channel)
{
    for (const PauseRule &rule : kRules) {
        if (channel == QLatin1String(rule.channel))
            return &rule;
    }
    return nullptr;
}

QString channelOf(const QString &provider, const HttpRequest &request)
{
    if (provider == QLatin1String("alpha_vantage") &&
        request.queryItem(QStringLiteral("function")) == QLatin1String("TOP_GAINERS_LOSERS"))
        return QStringLiteral("alpha_vantage_movers");
    return provider;
}

int retryAfterSeconds(const HttpResponse &response)
{
    for (const auto &[name, value] : response.headers) {
        if (name.compare("Retry-After", Qt::CaseInsensitive) == 0)
            return std::max(0, value.trimmed().toInt());
    }
    return 0;
}

qint64 pauseMs(const PauseRule &rule, int retryAfter)
{
    const qint64 asked = qint64(retryAfter) * 1000;
    if (rule.shortRetryAfterShortens)
        return retryAfter >= 1 ? asked : kDefaultPauseMs;
    return std::max(kDefaultPauseMs, asked);
}

bool isThrottle(FaultKind fault, const HttpResponse &response)
{
    const bool throttling = fault == FaultKind::RateLimited || fault == FaultKind::Limit ||
                            fault == FaultKind::Note;
    return throttling && response.mode == HttpResponse::Mode::Answer;
}

QString requestText(const HttpRequest &request)
{
    QString text = QString::fromLatin1(request.path);
    if (!request.rawQuery.isEmpty())
        text += QLatin1Char('?') + QString::fromLatin1(request.rawQuery);
    return text;
}

} // namespace

CooldownLedger::CooldownLedger(Clock clock)
    : m_clock(std::move(clock))
{}

void CooldownLedger::record(const QString &provider, const HttpRequest &request, FaultKind fault,
                            const HttpResponse &response)
{
    const qint64 now = m_clock();
    const QString channelName = channelOf(provider, request);
    Channel &channel = m_channels[channelName];
    ++channel.requests;
    const PauseRule *rule = ruleOf(channelName);
    const auto remember = [this, &request](const QString &what) {
        if (m_examples.size() < kExamplesKept)
            m_examples.append(QStringLiteral("%1 %2").arg(requestText(request), what));
    };
    if (rule) {
        if (now < channel.until) {
            ++channel.inside;
            remember(QStringLiteral("came %1 ms before the %2 pause ended")
                             .arg(channel.until - now)
                             .arg(channelName));
        }
        if (rule->spacingMs > 0 && channel.lastRequest > 0 &&
            now - channel.lastRequest < rule->spacingMs - kArrivalToleranceMs) {
            ++channel.tooClose;
            remember(QStringLiteral("came %1 ms after the one before")
                             .arg(now - channel.lastRequest));
        }
        channel.lastRequest = now;
    } else if (now < m_retryAfterUntil.value(provider)) {
        ++m_insideRetryAfterElsewhere;
    }

    if (!isThrottle(fault, response))
        return;
    ++channel.throttled;
    const int retryAfter = retryAfterSeconds(response);
    if (rule) {
        ++channel.windows;
        channel.until = std::max(channel.until, now + pauseMs(*rule, retryAfter));
    } else if (retryAfter > 0) {
        m_retryAfterUntil.insert(provider, now + qint64(retryAfter) * 1000);
    }
}

int CooldownLedger::requestsInsideCooldowns() const
{
    int inside = 0;
    for (const Channel &channel : m_channels)
        inside += channel.inside;
    return inside;
}

int CooldownLedger::requestsInsideSpacing() const
{
    int tooClose = 0;
    for (const Channel &channel : m_channels)
        tooClose += channel.tooClose;
    return tooClose;
}

QByteArray CooldownLedger::toJson() const
{
    OrderedJson requests;
    OrderedJson throttled;
    OrderedJson paused;
    int pauses = 0;
    for (auto channel = m_channels.cbegin(); channel != m_channels.cend(); ++channel) {
        const QByteArray name = channel.key().toLatin1();
        requests.integer(name.constData(), channel->requests);
        if (channel->throttled > 0)
            throttled.integer(name.constData(), channel->throttled);
        pauses += channel->windows;
        if (ruleOf(channel.key())) {
            paused.raw(name.constData(), OrderedJson()
                                                 .integer("pauses", channel->windows)
                                                 .integer("requests_inside", channel->inside)
                                                 .integer("requests_too_close", channel->tooClose)
                                                 .toJson());
        }
    }
    return OrderedJson()
            .boolean("ok", true)
            .integer("requests_inside_cooldowns", requestsInsideCooldowns())
            .integer("requests_inside_spacing", requestsInsideSpacing())
            .integer("cooldowns_started", pauses)
            .integer("fault_switches", m_faultSwitches)
            .integer("inside_retry_after_elsewhere", m_insideRetryAfterElsewhere)
            .raw("requests", requests.toJson())
            .raw("throttled", throttled.toJson())
            .raw("cooldowns", paused.toJson())
            .raw("not_waited", json::stringArray(m_examples))
            .toJson();
}
