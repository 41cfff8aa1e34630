#pragma once

#include "app/clock.h"
#include "market/symbols.h"
#include "providers/async_provider_cascade.h"
#include "providers/provider_table.h"
#include "providers/provider_throttles.h"
#include "providers/quota_meter.h"
#include "providers/quote_step.h"
#include "providers/yahoo_session.h"

#include <QHash>
#include <QObject>
#include <QPointer>

class QNetworkAccessManager;

// What the router needs from the window that owns the market table: the one entry by which quotes
// reach a row, status-only writes, the status bar, and two facts about the rest of the terminal.
class QuoteRouterHost
{
public:
    virtual ~QuoteRouterHost() = default;
    // `provider` names who delivered it ("finnhub", "Yahoo", "Alpha Cache"), `latency` is "120 ms"
    // or "cache", `status` the row quality ("free/delayed", "key/delayed", "cached/delayed").
    virtual void updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                                 const QString &latency, const QString &status) = 0;
    virtual void setMarketRowStatus(const QString &symbol, const QString &status) = 0;
    virtual void showStatusMessage(const QString &text) = 0;
    virtual bool isBinanceStreamConnected() const = 0;
    virtual QString chartTimeframe() const = 0;
};

// Routes quote requests: per symbol it picks the providers for the symbol's class and the keys the
// user has, runs them as a cascade (keyed first, public last), guards the keyed providers' quotas,
// and reports one message when all of them failed. A newer request for a symbol replaces the
// running one; replies of the replaced one are read and dropped.
class QuoteRouter : public QObject
{
    Q_OBJECT

public:
    QuoteRouter(QNetworkAccessManager &network, QuoteRouterHost &host, KeyLookup keys,
                QObject *parent = nullptr);

    void setClock(Clock clock);
    void setStepTimeoutMs(int milliseconds) { m_stepTimeoutMs = milliseconds; }
    void setTransferTimeoutMs(int milliseconds);
    // Every keyed request the cascade sends is counted here (never changing what it sends).
    void setQuotaMeter(QuotaMeter *meter) { m_quota = meter; }

    // The order the symbol's class and the current keys give, and one cascade over it.
    void refreshQuote(const QString &symbol);
    void fetchUsQuoteCascade(const QString &symbol, const QStringList &order);
    void fetchB3QuoteCascade(const QString &symbol, const QStringList &order);
    void fetchForexQuoteCascade(const QString &symbol, const QStringList &order);
    // Crypto rows live on the Binance ticker stream; this is the one-step HTTP quote beside it.
    void fetchCryptoHttpQuote(const QString &symbol);
    // One Alpha Vantage quote outside any cascade, falling back to the public Yahoo quote.
    void fetchAlphaVantageQuote(const QString &symbol);
    void fetchPublicYahooQuote(const QString &symbol);
    // The non-crypto symbols in Yahoo batch quotes of up to 80; a failed batch changes nothing.
    void refreshWatchlistBatch(const QStringList &symbols);

    quint64 quoteGeneration(const QString &symbol) const { return m_generations.value(symbol); }
    AsyncProviderCascade *runningCascade(const QString &symbol) const;
    ProviderThrottles &throttles() { return m_throttles; }
    // The cookie and crumb every Yahoo request that needs them shares.
    YahooSession &yahooSession() { return m_yahooSession; }

private:
    struct StepPlan
    {
        QString providerId;
        QuoteStepKind kind;
        std::shared_ptr<const DataFetcher> fetcher;
    };

    QString key(const QString &name) const;
    quint64 nextGeneration(const QString &symbol);
    void runCascade(const QString &symbol, AssetClass assetClass, const QStringList &order,
                    const QList<StepPlan> &steps);
    void startStep(const QString &symbol, quint64 generation, const StepPlan &plan,
                   AsyncProviderCascade::Completion done);
    void sendStep(const QuoteStep &step, std::function<void(const AsyncProviderResult &)> report);
    void applyCachedAlphaVantage(const QuoteSnapshot &quote);
    void finishCascade(AsyncProviderCascade *cascade, const QString &symbol, AssetClass assetClass,
                       const QStringList *failures);
    QuoteStepHooks stepHooks();

    QNetworkAccessManager &m_network;
    QuoteRouterHost &m_host;
    KeyLookup m_keys;
    Clock m_clock = systemClock();
    int m_stepTimeoutMs = AsyncProviderCascade::kStepTimeoutMs;
    int m_transferTimeoutMs = kProviderTransferTimeoutMs;
    QuotaMeter *m_quota = nullptr;
    QHash<QString, quint64> m_generations;
    QHash<QString, QPointer<AsyncProviderCascade>> m_cascades;
    ProviderThrottles m_throttles;
    YahooSession m_yahooSession;
};

// The row quality a provider's quote gets: public ones are "free/delayed", keyed ones
// "key/delayed".
QString quoteQualityForProvider(const QString &providerId);
