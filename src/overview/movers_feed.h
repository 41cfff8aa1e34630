#pragma once

#include "app/clock.h"
#include "overview/movers.h"
#include "providers/provider_http.h"
#include "providers/quota_meter.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class QNetworkAccessManager;
class YahooSession;

// Where the movers of a scope come from, and how often each source is asked:
// - crypto: Binance's all-pairs 24-hour tickers, at most once every 30 s (weight 80 of 6000 a
//   minute); a filter change inside that time re-uses the last list.
// - US: Alpha Vantage's TOP_GAINERS_LOSERS when a key is set. The free plan allows 25 requests a
//   day shared with the quote cascade, and the list changes slowly, so it is asked at most once
//   every 4 hours (6 a day) and a rate-limit reply silences it for at least a minute. When it
//   gives nothing, Yahoo's batch quote over the US shares serves instead.
// - B3, all, watchlist (and US without Alpha Vantage): Yahoo's batch quote with the shared
//   session, at most 80 symbols a request, at most once every 30 s per scope.
class MoversFeed : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 kBinanceReuseMs = 30'000;
    static constexpr qint64 kYahooReuseMs = 30'000;
    static constexpr qint64 kAlphaVantageReuseMs = 4 * 3600 * 1000;

    MoversFeed(QNetworkAccessManager &network, YahooSession &yahoo, QObject *parent = nullptr);

    void setClock(Clock clock) { m_clock = std::move(clock); }
    void setAlphaVantageKey(std::function<QString()> key) { m_alphaVantageKey = std::move(key); }
    void setQuotaMeter(QuotaMeter *meter) { m_quota = meter; }

    // Asks the scope's sources (or re-uses a recent answer) and reports through moversReady or
    // binanceFailed. `quoteSymbols` are the symbols Yahoo is asked for; `knownRecords` join the
    // answer (the watchlist's crypto rows, which the batch quote does not cover). A newer refresh
    // makes the answers of an older one stale.
    void refresh(const QString &scope, const QStringList &quoteSymbols,
                 const QList<MoverRecord> &knownRecords = {});
    // Forgets the answers kept for re-use, so the next refresh asks again.
    void forgetRecentAnswers();

    bool isAlphaVantageSilenced() const;
    qint64 alphaVantageSilencedUntilMs() const { return m_alphaVantageSilencedUntilMs; }
    // The sectors the batch quotes named so far.
    const QHash<QString, QString> &sectors() const { return m_sectors; }

signals:
    void moversReady(const QString &scope, const QList<MoverRecord> &records);
    void binanceFailed();
    // No batch of the scope's quotes could be read; the lists shown stay as they are.
    void quotesFailed(const QString &scope);

private:
    struct Kept
    {
        QList<MoverRecord> records;
        qint64 atMs = 0;
    };

    void askBinance(quint64 generation);
    void askAlphaVantage(quint64 generation, const QStringList &quoteSymbols);
    void askYahoo(quint64 generation, const QString &scope, const QStringList &symbols,
                  const QList<MoverRecord> &knownRecords);
    bool isFresh(const std::optional<Kept> &kept, qint64 reuseMs) const;

    QNetworkAccessManager &m_network;
    YahooSession &m_yahoo;
    Clock m_clock = systemClock();
    std::function<QString()> m_alphaVantageKey;
    quint64 m_generation = 0;
    std::optional<Kept> m_binance;
    std::optional<Kept> m_alphaVantage;
    QHash<QString, Kept> m_yahooByScope; // with the symbols asked, below
    QHash<QString, QStringList> m_yahooSymbolsByScope;
    QHash<QString, QString> m_sectors;
    qint64 m_alphaVantageSilencedUntilMs = 0;
    QuotaMeter *m_quota = nullptr;
};
