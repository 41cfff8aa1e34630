#include "overview/movers_feed.h"

#include "providers/provider_requests.h"
#include "providers/provider_response.h"
#include "providers/yahoo_session.h"

#include <QNetworkAccessManager>

#include <memory>

namespace {

QList<MoverRecord> joined(QList<MoverRecord> records, const QList<MoverRecord> &more)
{
    QSet<QString> symbols;
    for (const MoverRecord &record : records)
        symbols.insert(record.symbol);
    for (const MoverRecord &record : more) {
        if (!symbols.contains(record.symbol))
            records.append(record);
    }
    return records;
}

} // namespace

MoversFeed::MoversFeed(QNetworkAccessManager &network, YahooSession &yahoo, QObject *parent)
    : QObject(parent)
    , m_network(network)
    , m_yahoo(yahoo)
{}

bool MoversFeed::isFresh(const std::optional<Kept> &kept, qint64 reuseMs) const
{
    return kept && m_clock() - kept->atMs < reuseMs;
}

bool MoversFeed::isAlphaVantageSilenced() const
{
    return m_clock() < m_alphaVantageSilencedUntilMs;
}

void MoversFeed::forgetRecentAnswers()
{
    m_binance.reset();
    m_alphaVantage.reset();
    m_yahooByScope.clear();
    m_yahooSymbolsByScope.clear();
}

void MoversFeed::refresh(const QString &scope, const QStringList &quoteSymbols,
                         const QList<MoverRecord> &knownRecords)
{
    const quint64 generation = ++m_generation;
    const QString id = normalizedMoversScope(scope);
    if (id == QLatin1String("crypto")) {
        askBinance(generation);
        return;
    }
    const QString key = m_alphaVantageKey ? m_alphaVantageKey().trimmed() : QString();
    if (id == QLatin1String("us") && !key.isEmpty()) {
        if (isFresh(m_alphaVantage, kAlphaVantageReuseMs) && !m_alphaVantage->records.isEmpty()) {
            emit moversReady(id, m_alphaVantage->records);
            return;
        }
        if (!isAlphaVantageSilenced()) {
            askAlphaVantage(generation, quoteSymbols);
            return;
        }
    }
    askYahoo(generation, id, quoteSymbols, knownRecords);
}

void MoversFeed::askBinance(quint64 generation)
{
    if (isFresh(m_binance, kBinanceReuseMs)) {
        emit moversReady(QStringLiteral("crypto"), m_binance->records);
        return;
    }
    sendProviderGet(
            m_network, binanceAllTickersRequest(), this,
            [this, generation](const ProviderReply &reply) {
                if (generation != m_generation)
                    return;
                const ProviderResponseCheck check = classifyProviderResponse(
                        QStringLiteral("binance"), reply.httpStatus, reply.rawHeaders, reply.body);
                if (!check.ok) {
                    emit binanceFailed();
                    return;
                }
                m_binance = Kept{readBinanceMovers(reply.body), m_clock()};
                emit moversReady(QStringLiteral("crypto"), m_binance->records);
            },
            m_clock);
}

void MoversFeed::askAlphaVantage(quint64 generation, const QStringList &quoteSymbols)
{
    const QString key = m_alphaVantageKey();
    countProviderRequest(m_quota, QStringLiteral("alpha_vantage"));
    sendProviderGet(
            m_network, alphaVantageMoversRequest(key.trimmed()), this,
            [this, generation, quoteSymbols](const ProviderReply &reply) {
                const ProviderResponseCheck check =
                        classifyProviderResponse(QStringLiteral("alpha_vantage"), reply.httpStatus,
                                                 reply.rawHeaders, reply.body);
                // The silence holds whatever the user did meanwhile.
                if (check.rateLimited) {
                    m_alphaVantageSilencedUntilMs =
                            alphaVantageBlockUntil(m_clock(), check.retryAfterSeconds);
                }
                if (generation != m_generation)
                    return;
                const QList<MoverRecord> records =
                        check.ok ? readAlphaVantageMovers(reply.body) : QList<MoverRecord>();
                if (!records.isEmpty()) {
                    m_alphaVantage = Kept{records, m_clock()};
                    emit moversReady(QStringLiteral("us"), records);
                    return;
                }
                askYahoo(generation, QStringLiteral("us"), quoteSymbols, {});
            },
            m_clock);
}

void MoversFeed::askYahoo(quint64 generation, const QString &scope, const QStringList &symbols,
                          const QList<MoverRecord> &knownRecords)
{
    const auto kept = m_yahooByScope.constFind(scope);
    if (kept != m_yahooByScope.constEnd() && m_yahooSymbolsByScope.value(scope) == symbols &&
        m_clock() - kept->atMs < kYahooReuseMs) {
        emit moversReady(scope, joined(kept->records, knownRecords));
        return;
    }
    const QList<QNetworkRequest> requests = yahooBatchQuoteRequests(symbols);
    if (requests.isEmpty()) {
        emit moversReady(scope, knownRecords);
        return;
    }
    // Every batch answers into one list; the last one to finish hands it on.
    struct Gathering
    {
        int pending = 0;
        bool anyRead = false;
        QList<MoverRecord> records;
    };
    auto gathering = std::make_shared<Gathering>();
    gathering->pending = int(requests.size());
    for (const QNetworkRequest &request : requests) {
        m_yahoo.get(request, this,
                    [this, generation, scope, symbols, knownRecords,
                     gathering](const ProviderReply &reply) {
                        const ProviderResponseCheck check =
                                classifyProviderResponse(QStringLiteral("yahoo"), reply.httpStatus,
                                                         reply.rawHeaders, reply.body);
                        if (check.ok) {
                            gathering->anyRead = true;
                            gathering->records += readYahooMovers(reply.body, &m_sectors);
                        }
                        if (--gathering->pending > 0 || generation != m_generation)
                            return;
                        if (!gathering->anyRead) {
                            emit quotesFailed(scope);
                            return;
                        }
                        m_yahooByScope.insert(scope, Kept{gathering->records, m_clock()});
                        m_yahooSymbolsByScope.insert(scope, symbols);
                        emit moversReady(scope, joined(gathering->records, knownRecords));
                    });
    }
}
