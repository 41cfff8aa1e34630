#pragma once

#include "app/clock.h"
#include "providers/data_fetcher.h"
#include "providers/provider_http.h"
#include "providers/provider_response.h"
#include "providers/provider_throttles.h"
#include "providers/quota_meter.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;
class QObject;

// How a quote step treats its provider beyond the common frame: which text a payload it cannot read
// gets, and which pauses a throttled or successful reply starts or lifts.
enum class QuoteStepKind {
    Plain,   // "finnhub", "yahoo_us", "brapi_keyed", "brapi_public", "yahoo_b3"
    Crypto,  // "binance_public"
    Forex,   // "twelvedata", "yahoo_fx"
    KeyedUs, // "alpha_vantage", "twelvedata", "fmp"
};

struct QuoteStepOutcome
{
    AsyncProviderResult result;
    std::optional<QuoteSnapshot> quote; // set exactly when result.ok
    bool writeAlphaVantageCache = false;
};

// The verdict of one classified reply: parses a usable body with the step's fetcher and updates
// the provider pauses as the step kind asks.
QuoteStepOutcome resolveQuoteStep(QuoteStepKind kind, const QString &providerId,
                                  const DataFetcher &fetcher, const QString &symbol,
                                  const ProviderResponseCheck &check, const QByteArray &body,
                                  ProviderThrottles &throttles, qint64 nowMs);

// Provider texts can quote the caller's own key back (Alpha Vantage does); every key value the
// request carried in its query, as is or percent-encoded, and every other known key (see
// secret_mask.h) is replaced by "***" before the text is shown or logged.
QString maskRequestSecrets(const QString &text, const QUrl &requestUrl);

struct QuoteStep
{
    QuoteStepKind kind = QuoteStepKind::Plain;
    QString providerId;
    QString symbol; // the market symbol: generations, and the symbol the applied quote carries
    std::shared_ptr<const DataFetcher> fetcher;
    quint64 generation = 0; // the symbol's quote generation when the step started
    QString providerSymbol; // what the provider is asked for ("USD/BRL"); empty: the symbol
};

// What the owner of the market state lends a running step.
struct QuoteStepHooks
{
    std::function<quint64(const QString &symbol)> currentGeneration;
    std::function<void(const QuoteSnapshot &quote, const QString &providerId, qint64 latencyMs)>
            applyQuote;
    // The Alpha Vantage reply body a good quote was read from; may be empty.
    std::function<void(const QString &symbol, const QByteArray &body)> writeAlphaVantageCache;
    ProviderThrottles *throttles = nullptr;
    Clock clock = systemClock();
    int transferTimeoutMs = kProviderTransferTimeoutMs; // a silent provider fails as HTTP 0
    QuotaMeter *quota = nullptr; // counts each request against the provider's free limits
};

// Sends the fetcher's request and, when the reply finishes, applies a good quote and reports the
// step's result. A reply that arrives after a newer request for the same symbol replaced this one
// changes nothing and reports nothing.
void startQuoteStep(QNetworkAccessManager &manager, QObject *context, const QuoteStep &step,
                    const QuoteStepHooks &hooks,
                    std::function<void(const AsyncProviderResult &)> report);
