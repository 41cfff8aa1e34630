#include "providers/quote_router.h"

#include "app/language.h"
#include "chart/timeframe.h"
#include "providers/alpha_vantage_cache.h"
#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "providers/yahoo_batch_quote.h"

#include <QSet>

namespace {

const QString kAllFailedStatus = QStringLiteral("all providers failed");

QString latencyText(qint64 milliseconds)
{
    return QStringLiteral("%1 ms").arg(milliseconds);
}

QString allFailedMessage(AssetClass assetClass, const QString &symbol, const QStringList &failures)
{
    const QString joined = failures.join(QStringLiteral(" | "));
    switch (assetClass) {
    case AssetClass::UsEquity:
        return translated(QStringLiteral("All quote providers failed for %1: %2"),
                          QStringLiteral("Todos os provedores de cotação falharam para %1: %2"))
                .arg(symbol, joined);
    case AssetClass::BrEquity:
        return translated(QStringLiteral("All B3 providers failed for %1: %2"),
                          QStringLiteral("Todos os provedores da B3 falharam para %1: %2"))
                .arg(symbol, joined);
    case AssetClass::Forex:
        return translated(QStringLiteral("Forex quote failed for %1: %2"),
                          QStringLiteral("A cotação de câmbio falhou para %1: %2"))
                .arg(symbol, joined);
    case AssetClass::Crypto:
        break;
    }
    return {};
}

QString cooldownText()
{
    return translated(QStringLiteral("cooldown"), QStringLiteral("pausa do provedor"));
}

QString localThrottleText()
{
    return translated(QStringLiteral("local throttle"), QStringLiteral("limite local"));
}

QString fetcherUnavailableText()
{
    return translated(QStringLiteral("fetcher unavailable"),
                      QStringLiteral("consulta indisponível"));
}

} // namespace

QString quoteQualityForProvider(const QString &providerId)
{
    // Yahoo's steps carry market suffixes ("yahoo_us", "yahoo_fx"); the rest are table ids.
    if (providerId.startsWith(QLatin1String("yahoo")))
        return QStringLiteral("free/delayed");
    for (const ProviderEntry &entry : providerTable()) {
        if (QLatin1String(entry.id) == providerId)
            return entry.isPublic ? QStringLiteral("free/delayed") : QStringLiteral("key/delayed");
    }
    return QStringLiteral("key/delayed");
}

QuoteRouter::QuoteRouter(QNetworkAccessManager &network, QuoteRouterHost &host, KeyLookup keys,
                         QObject *parent)
    : QObject(parent)
    , m_network(network)
    , m_host(host)
    , m_keys(std::move(keys))
    , m_yahooSession(network)
{}

void QuoteRouter::setClock(Clock clock)
{
    m_clock = clock;
    m_yahooSession.setClock(std::move(clock));
}

void QuoteRouter::setTransferTimeoutMs(int milliseconds)
{
    m_transferTimeoutMs = milliseconds;
    m_yahooSession.setTransferTimeoutMs(milliseconds);
}

QString QuoteRouter::key(const QString &name) const
{
    return m_keys ? m_keys(name).trimmed() : QString();
}

AsyncProviderCascade *QuoteRouter::runningCascade(const QString &symbol) const
{
    return m_cascades.value(symbol);
}

quint64 QuoteRouter::nextGeneration(const QString &symbol)
{
    return ++m_generations[symbol];
}

void QuoteRouter::refreshQuote(const QString &symbol)
{
    const AssetClass assetClass = assetClassOf(symbol);
    const QStringList order = providerOrder(assetClass, DataKind::Quote, m_keys);
    if (order.isEmpty()) {
        fetchPublicYahooQuote(symbol);
        return;
    }
    switch (assetClass) {
    case AssetClass::UsEquity:
        fetchUsQuoteCascade(symbol, order);
        return;
    case AssetClass::BrEquity:
        fetchB3QuoteCascade(symbol, order);
        return;
    case AssetClass::Forex:
        fetchForexQuoteCascade(symbol, order);
        return;
    case AssetClass::Crypto:
        fetchCryptoHttpQuote(symbol);
        return;
    }
}

void QuoteRouter::fetchUsQuoteCascade(const QString &symbol, const QStringList &order)
{
    const TimeframeParameters history = timeframeParameters(m_host.chartTimeframe());
    QList<StepPlan> steps;
    if (const QString k = key("finnhub_api_key"); !k.isEmpty())
        steps.append({"finnhub", QuoteStepKind::Plain, std::make_shared<FinnhubFetcher>(k)});
    if (const QString k = key("twelvedata_api_key"); !k.isEmpty())
        steps.append(
                {"twelvedata", QuoteStepKind::KeyedUs, std::make_shared<TwelveDataFetcher>(k)});
    if (const QString k = key("financial_modeling_prep_api_key"); !k.isEmpty())
        steps.append(
                {"fmp", QuoteStepKind::KeyedUs, std::make_shared<FinancialModelingPrepFetcher>(k)});
    if (const QString k = key("alpha_vantage_api_key"); !k.isEmpty())
        steps.append({"alpha_vantage", QuoteStepKind::KeyedUs,
                      std::make_shared<AlphaVantageFetcher>(k)});
    steps.append({"yahoo_us", QuoteStepKind::Plain,
                  std::make_shared<YahooFetcher>(history.yahooInterval, history.yahooRange)});
    runCascade(symbol, AssetClass::UsEquity, order, steps);
}

void QuoteRouter::fetchB3QuoteCascade(const QString &symbol, const QStringList &order)
{
    const TimeframeParameters history = timeframeParameters(m_host.chartTimeframe());
    QList<StepPlan> steps;
    if (const QString token = key("brapi_token"); !token.isEmpty())
        steps.append(
                {"brapi_keyed", QuoteStepKind::Plain,
                 std::make_shared<BrAPIFetcher>(token, history.yahooInterval, history.yahooRange)});
    steps.append(
            {"brapi_public", QuoteStepKind::Plain,
             std::make_shared<BrAPIFetcher>(QString(), history.yahooInterval, history.yahooRange)});
    steps.append({"yahoo_b3", QuoteStepKind::Plain,
                  std::make_shared<YahooFetcher>(history.yahooInterval, history.yahooRange)});
    runCascade(symbol, AssetClass::BrEquity, order, steps);
}

void QuoteRouter::fetchForexQuoteCascade(const QString &symbol, const QStringList &order)
{
    const TimeframeParameters history = timeframeParameters(m_host.chartTimeframe());
    QList<StepPlan> steps;
    if (const QString k = key("twelvedata_api_key"); !k.isEmpty())
        steps.append({"twelvedata", QuoteStepKind::Forex, std::make_shared<TwelveDataFetcher>(k)});
    steps.append({"yahoo_fx", QuoteStepKind::Forex,
                  std::make_shared<YahooFetcher>(history.yahooInterval, history.yahooRange)});
    runCascade(symbol, AssetClass::Forex, order, steps);
}

void QuoteRouter::fetchCryptoHttpQuote(const QString &symbol)
{
    runCascade(symbol, AssetClass::Crypto, {QStringLiteral("binance_public")},
               {{"binance_public", QuoteStepKind::Crypto, std::make_shared<BinanceFetcher>()}});
}

void QuoteRouter::runCascade(const QString &symbol, AssetClass assetClass, const QStringList &order,
                             const QList<StepPlan> &steps)
{
    const quint64 generation = nextGeneration(symbol);
    if (AsyncProviderCascade *previous = m_cascades.take(symbol))
        previous->deleteLater();

    QStringList ids;
    QHash<QString, StepPlan> plans;
    for (const QString &id : order) {
        for (const StepPlan &plan : steps) {
            if (plan.providerId == id) {
                ids << id;
                plans.insert(id, plan);
            }
        }
    }
    if (ids.isEmpty()) {
        fetchPublicYahooQuote(symbol);
        return;
    }

    auto *cascade = new AsyncProviderCascade(this);
    m_cascades.insert(symbol, cascade);
    m_host.setMarketRowStatus(symbol, QStringLiteral("loading"));
    cascade->start(
            ids,
            [this, symbol, generation, plans](const QString &id,
                                              AsyncProviderCascade::Completion done) {
                const auto plan = plans.constFind(id);
                if (plan == plans.cend()) {
                    done(AsyncProviderResult::failure(fetcherUnavailableText()));
                    return;
                }
                startStep(symbol, generation, *plan, std::move(done));
            },
            [this, cascade, symbol, assetClass](const QString &) {
                finishCascade(cascade, symbol, assetClass, nullptr);
            },
            [this, cascade, symbol, assetClass](const QStringList &failures) {
                finishCascade(cascade, symbol, assetClass, &failures);
            },
            m_stepTimeoutMs);
}

void QuoteRouter::finishCascade(AsyncProviderCascade *cascade, const QString &symbol,
                                AssetClass assetClass, const QStringList *failures)
{
    if (m_cascades.value(symbol) != cascade)
        return;
    m_cascades.remove(symbol);
    cascade->deleteLater();
    if (!failures)
        return;
    if (assetClass == AssetClass::Crypto) {
        if (!m_host.isBinanceStreamConnected())
            m_host.setMarketRowStatus(symbol, kAllFailedStatus);
        return;
    }
    m_host.setMarketRowStatus(symbol, kAllFailedStatus);
    m_host.showStatusMessage(allFailedMessage(assetClass, symbol, *failures));
}

void QuoteRouter::startStep(const QString &symbol, quint64 generation, const StepPlan &plan,
                            AsyncProviderCascade::Completion done)
{
    const qint64 now = m_clock();
    const QString &id = plan.providerId;
    if (id == QLatin1String("alpha_vantage")) {
        if (m_throttles.isAlphaVantageBlocked(now)) {
            done(AsyncProviderResult::failure(cooldownText(), true));
            return;
        }
        if (m_throttles.isAlphaVantageThrottled(now)) {
            if (const auto cached = freshAlphaVantageCache(symbol, now)) {
                applyCachedAlphaVantage(*cached);
                done(AsyncProviderResult::success());
            } else {
                done(AsyncProviderResult::failure(localThrottleText(), true));
            }
            return;
        }
        m_throttles.recordAlphaVantageRequest(now);
    } else if (id == QLatin1String("twelvedata") || id == QLatin1String("fmp")) {
        if (!m_throttles.takeProviderSlot(id, now)) {
            done(AsyncProviderResult::failure(localThrottleText(), true));
            return;
        }
    }
    if (!plan.fetcher) {
        done(AsyncProviderResult::failure(fetcherUnavailableText()));
        return;
    }
    QuoteStep step{plan.kind, id, symbol, plan.fetcher, generation, {}};
    if (id == QLatin1String("twelvedata") && assetClassOf(symbol) == AssetClass::Forex)
        step.providerSymbol = providerForexPair(symbol);
    sendStep(step, std::move(done));
}

QuoteStepHooks QuoteRouter::stepHooks()
{
    QuoteStepHooks hooks;
    hooks.currentGeneration = [this](const QString &symbol) { return quoteGeneration(symbol); };
    hooks.applyQuote = [this](const QuoteSnapshot &quote, const QString &providerId,
                              qint64 latency) {
        m_host.updateMarketRow(quote, providerId, latencyText(latency),
                               quoteQualityForProvider(providerId));
    };
    hooks.writeAlphaVantageCache = [](const QString &symbol, const QByteArray &body) {
        writeAlphaVantageCache(symbol, body);
    };
    hooks.throttles = &m_throttles;
    hooks.clock = m_clock;
    hooks.transferTimeoutMs = m_transferTimeoutMs;
    hooks.quota = m_quota;
    return hooks;
}

void QuoteRouter::sendStep(const QuoteStep &step,
                           std::function<void(const AsyncProviderResult &)> report)
{
    startQuoteStep(m_network, this, step, stepHooks(), std::move(report));
}

void QuoteRouter::applyCachedAlphaVantage(const QuoteSnapshot &quote)
{
    m_host.updateMarketRow(quote, QStringLiteral("Alpha Cache"), QStringLiteral("cache"),
                           QStringLiteral("cached/delayed"));
}

void QuoteRouter::fetchAlphaVantageQuote(const QString &symbol)
{
    const QString apiKey = key("alpha_vantage_api_key");
    if (apiKey.isEmpty()) {
        fetchPublicYahooQuote(symbol);
        return;
    }
    const qint64 now = m_clock();
    if (m_throttles.isAlphaVantageBlocked(now) || m_throttles.isAlphaVantageThrottled(now)) {
        if (const auto cached = freshAlphaVantageCache(symbol, now))
            applyCachedAlphaVantage(*cached);
        else
            fetchPublicYahooQuote(symbol);
        return;
    }
    m_throttles.recordAlphaVantageRequest(now);
    m_host.setMarketRowStatus(symbol, QStringLiteral("loading"));
    const QuoteStep step{QuoteStepKind::KeyedUs,
                         QStringLiteral("alpha_vantage"),
                         symbol,
                         std::make_shared<AlphaVantageFetcher>(apiKey),
                         nextGeneration(symbol),
                         {}};
    sendStep(step, [this, symbol](const AsyncProviderResult &result) {
        if (result.ok)
            return;
        if (result.rateLimited)
            m_host.showStatusMessage(
                    translated(QStringLiteral(
                                       "Alpha Vantage limit reached; using public fallback: %1"),
                               QStringLiteral("Limite do Alpha Vantage atingido; usando a fonte "
                                              "pública: %1"))
                            .arg(result.message));
        fetchPublicYahooQuote(symbol);
    });
}

void QuoteRouter::fetchPublicYahooQuote(const QString &symbol)
{
    const TimeframeParameters history = timeframeParameters(m_host.chartTimeframe());
    m_host.setMarketRowStatus(symbol, QStringLiteral("loading"));
    QuoteStepHooks hooks = stepHooks();
    hooks.applyQuote = [this](const QuoteSnapshot &quote, const QString &, qint64 latency) {
        m_host.updateMarketRow(quote, QStringLiteral("Yahoo"), latencyText(latency),
                               QStringLiteral("free/delayed"));
    };
    const QuoteStep step{QuoteStepKind::Plain,
                         QStringLiteral("yahoo_public"),
                         symbol,
                         std::make_shared<YahooFetcher>(history.yahooInterval, history.yahooRange),
                         nextGeneration(symbol),
                         {}};
    startQuoteStep(m_network, this, step, hooks, [this, symbol](const AsyncProviderResult &result) {
        if (result.ok)
            return;
        m_host.setMarketRowStatus(symbol, QStringLiteral("no free data"));
        m_host.showStatusMessage(
                translated(QStringLiteral("No free data response for: %1"),
                           QStringLiteral("Sem resposta de dados gratuitos para: %1"))
                        .arg(symbol));
    });
}

void QuoteRouter::refreshWatchlistBatch(const QStringList &symbols)
{
    QStringList wanted;
    for (const QString &symbol : symbols) {
        if (assetClassOf(symbol) != AssetClass::Crypto && !wanted.contains(symbol))
            wanted << symbol;
    }
    const QSet<QString> known(wanted.cbegin(), wanted.cend());
    for (const QNetworkRequest &request : yahooBatchQuoteRequests(wanted)) {
        m_yahooSession.get(request, this, [this, known](const ProviderReply &reply) {
            if (reply.tooLarge)
                return;
            const ProviderResponseCheck check = classifyProviderResponse(
                    QStringLiteral("yahoo_us"), reply.httpStatus, reply.rawHeaders, reply.body);
            if (!check.ok)
                return;
            for (const QuoteSnapshot &quote : parseYahooBatchQuotes(reply.body)) {
                if (known.contains(quote.symbol))
                    m_host.updateMarketRow(quote, QStringLiteral("Yahoo"),
                                           latencyText(reply.latencyMs),
                                           QStringLiteral("free/delayed"));
            }
        });
    }
}
