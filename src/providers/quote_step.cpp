#include "providers/quote_step.h"

#include "providers/provider_requests.h"
#include "providers/secret_mask.h"

#include <QUrlQuery>

namespace {

QString unreadablePayloadText(QuoteStepKind kind)
{
    switch (kind) {
    case QuoteStepKind::Crypto:
        return invalidCryptoPayloadText();
    case QuoteStepKind::Forex:
        return invalidForexPayloadText();
    case QuoteStepKind::Plain:
    case QuoteStepKind::KeyedUs:
        break;
    }
    return invalidQuotePayloadText();
}

bool pausesOnThrottle(QuoteStepKind kind, const QString &providerId)
{
    if (kind == QuoteStepKind::Forex)
        return providerId == QLatin1String("twelvedata");
    if (kind == QuoteStepKind::KeyedUs)
        return providerId == QLatin1String("twelvedata") || providerId == QLatin1String("fmp");
    return false;
}

void updatePauses(QuoteStepKind kind, const QString &providerId, const ProviderResponseCheck &check,
                  bool succeeded, ProviderThrottles &throttles, qint64 nowMs)
{
    if (kind == QuoteStepKind::KeyedUs && providerId == QLatin1String("alpha_vantage")) {
        if (!check.ok && check.rateLimited)
            throttles.blockAlphaVantage(nowMs, check.retryAfterSeconds);
        return;
    }
    if (!pausesOnThrottle(kind, providerId))
        return;
    if (succeeded)
        throttles.clearCooldown(providerId);
    else if (!check.ok && check.rateLimited)
        throttles.startCooldown(providerId, nowMs, check.retryAfterSeconds);
}

} // namespace

QuoteStepOutcome resolveQuoteStep(QuoteStepKind kind, const QString &providerId,
                                  const DataFetcher &fetcher, const QString &symbol,
                                  const ProviderResponseCheck &check, const QByteArray &body,
                                  ProviderThrottles &throttles, qint64 nowMs)
{
    QuoteStepOutcome outcome;
    if (!check.ok) {
        outcome.result = AsyncProviderResult::failure(check.message, check.rateLimited);
    } else if (auto quote = fetcher.parseQuote(symbol, body)) {
        outcome.result = AsyncProviderResult::success();
        outcome.quote = std::move(quote);
        outcome.writeAlphaVantageCache =
                kind == QuoteStepKind::KeyedUs && providerId == QLatin1String("alpha_vantage");
    } else {
        outcome.result = AsyncProviderResult::failure(unreadablePayloadText(kind));
    }
    updatePauses(kind, providerId, check, outcome.result.ok, throttles, nowMs);
    return outcome;
}

QString maskRequestSecrets(const QString &text, const QUrl &requestUrl)
{
    QString masked = text;
    const QUrlQuery query(requestUrl);
    for (const auto &[key, value] : query.queryItems(QUrl::FullyDecoded)) {
        const QString name = key.toLower();
        if ((name == QLatin1String("apikey") || name == QLatin1String("token")) &&
            value.size() >= kMinMaskedSecretLength) {
            // A provider quoting the address it was asked shows the value as it was sent.
            masked.replace(value, QLatin1String(kMaskedSecret));
            masked.replace(QString::fromLatin1(QUrl::toPercentEncoding(value)),
                           QLatin1String(kMaskedSecret));
        }
    }
    return maskSecrets(masked);
}

void startQuoteStep(QNetworkAccessManager &manager, QObject *context, const QuoteStep &step,
                    const QuoteStepHooks &hooks,
                    std::function<void(const AsyncProviderResult &)> report)
{
    const QString providerSymbol =
            step.providerSymbol.isEmpty() ? step.symbol : step.providerSymbol;
    QNetworkRequest request = step.fetcher->buildRequest(providerSymbol);
    request.setTransferTimeout(hooks.transferTimeoutMs);
    const QUrl requestUrl = request.url();
    countProviderRequest(hooks.quota, step.providerId);
    sendProviderGet(
            manager, request, context,
            [&manager, context, step, providerSymbol, hooks, requestUrl,
             report = std::move(report)](const ProviderReply &reply) mutable {
                if (hooks.currentGeneration &&
                    hooks.currentGeneration(step.symbol) != step.generation)
                    return;
                if (step.providerId == QLatin1String("fmp") &&
                    requestUrl.path().startsWith(QLatin1String("/api/v3/")) &&
                    isFmpLegacyEndpointReply(reply.httpStatus, reply.body)) {
                    // A newer key: ask /stable instead, now and for the rest of the run.
                    setFmpStableQuoteInUse(true);
                    startQuoteStep(manager, context, step, hooks, std::move(report));
                    return;
                }
                if (reply.tooLarge) {
                    report(AsyncProviderResult::failure(replyTooLargeText()));
                    return;
                }
                ProviderResponseCheck check = classifyProviderResponse(
                        step.providerId, reply.httpStatus, reply.rawHeaders, reply.body);
                check.message = maskRequestSecrets(check.message, requestUrl);
                ProviderThrottles scratch;
                ProviderThrottles &throttles = hooks.throttles ? *hooks.throttles : scratch;
                QuoteStepOutcome outcome =
                        resolveQuoteStep(step.kind, step.providerId, *step.fetcher, providerSymbol,
                                         check, reply.body, throttles, hooks.clock());
                if (outcome.quote) {
                    outcome.quote->symbol = step.symbol;
                    if (hooks.applyQuote)
                        hooks.applyQuote(*outcome.quote, step.providerId, reply.latencyMs);
                    if (outcome.writeAlphaVantageCache && hooks.writeAlphaVantageCache)
                        hooks.writeAlphaVantageCache(step.symbol, reply.body);
                }
                report(outcome.result);
            },
            hooks.clock);
}
