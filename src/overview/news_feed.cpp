#include "overview/news_feed.h"

#include "app/language.h"
#include "providers/provider_http.h"

#include <QNetworkAccessManager>

namespace {

QString siteNewsErrorMessage()
{
    return translated(QStringLiteral("Querlin news error"),
                      QStringLiteral("Erro nas notícias Querlin"));
}

QString newsApiErrorMessage()
{
    return translated(QStringLiteral("NewsAPI error"), QStringLiteral("Erro na NewsAPI"));
}

bool isUsable(const ProviderReply &reply)
{
    return reply.error == QNetworkReply::NoError && !reply.tooLarge && reply.httpStatus >= 200 &&
           reply.httpStatus < 300;
}

} // namespace

NewsFeed::NewsFeed(QNetworkAccessManager &network, QObject *parent)
    : QObject(parent)
    , m_network(network)
{}

void NewsFeed::refresh(const NewsQuery &query)
{
    const quint64 generation = ++m_generation;
    ask(generation, query, firstNewsStep(query.sourceId, !query.newsApiKey.trimmed().isEmpty()));
}

void NewsFeed::ask(quint64 generation, const NewsQuery &query, const NewsStep &step)
{
    QNetworkRequest request;
    switch (step.source) {
    case NewsSource::Site: {
        const QUrl endpoint = siteNewsEndpoint(query.siteEndpoint);
        if (endpoint.isEmpty()) {
            yieldedNothing(generation, query, step, siteNewsErrorMessage(), {});
            return;
        }
        request = siteNewsRequest(endpoint, query.siteToken.trimmed(), query.categoryId,
                                  query.queryText, query.language);
        break;
    }
    case NewsSource::NewsApi: {
        const auto kept = m_newsApiBySymbol.constFind(query.newsSymbol);
        if (kept != m_newsApiBySymbol.constEnd() && m_clock() - kept->atMs < kNewsApiReuseMs) {
            const QList<NewsItem> items = kept->items;
            if (items.isEmpty())
                yieldedNothing(generation, query, step, {}, items);
            else
                emit newsReady(items, newsSourceLabel(step.source));
            return;
        }
        if (m_clock() < m_newsApiSilencedUntilMs) {
            yieldedNothing(generation, query, step, newsApiErrorMessage(), {});
            return;
        }
        request = newsApiRequest(query.newsSymbol, query.newsApiKey.trimmed());
        countProviderRequest(m_quota, QStringLiteral("newsapi"));
        break;
    }
    case NewsSource::PublicRss:
        request = publicNewsRequest(query.newsSymbol);
        break;
    }
    sendProviderGet(
            m_network, request, this,
            [this, generation, query, step](const ProviderReply &reply) {
                if (step.source == NewsSource::NewsApi && reply.httpStatus == 429)
                    m_newsApiSilencedUntilMs = m_clock() + kNewsApiSilenceMs;
                if (generation != m_generation)
                    return;
                const QString label = newsSourceLabel(step.source);
                if (!isUsable(reply)) {
                    QString message = publicNewsErrorMessage();
                    if (step.source == NewsSource::Site)
                        message = siteNewsErrorMessage();
                    else if (step.source == NewsSource::NewsApi)
                        message = newsApiErrorMessage();
                    yieldedNothing(generation, query, step, message, {});
                    return;
                }
                QList<NewsItem> items;
                if (step.source == NewsSource::Site) {
                    items = readSiteNews(reply.body);
                } else if (step.source == NewsSource::NewsApi) {
                    items = readNewsApiArticles(reply.body);
                    m_newsApiBySymbol.insert(query.newsSymbol, Kept{items, m_clock()});
                } else {
                    items = readPublicNewsFeed(reply.body);
                }
                if (!items.isEmpty()) {
                    emit newsReady(items, label);
                    return;
                }
                if (step.source == NewsSource::PublicRss) {
                    emit newsReady({}, label);
                    emit newsFailed(noPublicHeadlinesMessage(query.newsSymbol));
                    return;
                }
                yieldedNothing(generation, query, step, {}, items);
            },
            m_clock);
}

void NewsFeed::yieldedNothing(quint64 generation, const NewsQuery &query, const NewsStep &step,
                              const QString &message, const QList<NewsItem> &items)
{
    if (const std::optional<NewsStep> next = nextNewsStep(step)) {
        ask(generation, query, *next);
        return;
    }
    // The chain ends here: a source that answered with nothing is shown as such, a failure keeps
    // the headlines already on screen.
    if (message.isEmpty())
        emit newsReady(items, newsSourceLabel(step.source));
    else
        emit newsFailed(message);
}
