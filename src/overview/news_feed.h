#pragma once

#include "app/clock.h"
#include "overview/news.h"
#include "providers/quota_meter.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

class QNetworkAccessManager;

// What a news refresh asks for: the selectors, the query field, the symbol the headlines are about
// and the user's news settings.
struct NewsQuery
{
    QString sourceId = QStringLiteral("auto");
    QString categoryId = QStringLiteral("all");
    QString queryText;  // the trimmed field text
    QString newsSymbol; // see newsSymbol()
    QString language;   // the interface language
    QString siteEndpoint;
    QString siteToken;
    QString newsApiKey;
};

// Sends one refresh's requests, walking the fallback chain when a source yields nothing, and
// reports the headlines or the status of the last source asked. Answers of an older refresh are
// dropped when a newer one has started.
//
// NewsAPI's free plan allows 100 requests a day, so its headlines for a symbol are re-used for 15
// minutes (at most 96 requests a day with the minute refresh) and a throttled reply silences it for
// an hour; meanwhile the chain goes on to the next source as if NewsAPI had nothing.
class NewsFeed : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 kNewsApiReuseMs = 15 * 60 * 1000;
    static constexpr qint64 kNewsApiSilenceMs = 60 * 60 * 1000;

    explicit NewsFeed(QNetworkAccessManager &network, QObject *parent = nullptr);

    void setClock(Clock clock) { m_clock = std::move(clock); }
    void setQuotaMeter(QuotaMeter *meter) { m_quota = meter; }
    void refresh(const NewsQuery &query);

signals:
    // A source gave headlines, or the chain ended at a source that gave none.
    void newsReady(const QList<NewsItem> &items, const QString &sourceLabel);
    // The chain ended without a list to show (the public feed failed, or a site request that may
    // not fall back had no usable address or failed).
    void newsFailed(const QString &message);

private:
    void ask(quint64 generation, const NewsQuery &query, const NewsStep &step);
    void yieldedNothing(quint64 generation, const NewsQuery &query, const NewsStep &step,
                        const QString &message, const QList<NewsItem> &items);

    struct Kept
    {
        QList<NewsItem> items;
        qint64 atMs = 0;
    };

    QNetworkAccessManager &m_network;
    Clock m_clock = systemClock();
    quint64 m_generation = 0;
    QHash<QString, Kept> m_newsApiBySymbol;
    qint64 m_newsApiSilencedUntilMs = 0;
    QuotaMeter *m_quota = nullptr;
};
