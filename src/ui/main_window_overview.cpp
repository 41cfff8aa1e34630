// Market movers and news: the feeds behind the two tabs, the movers pipeline and opening a mover.
#include "app/language.h"
#include "market/symbols.h"
#include "overview/movers_feed.h"
#include "overview/news_feed.h"
#include "overview/screener.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/news_panel.h"
#include "ui/screener_panel.h"

#include <QDesktopServices>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableWidgetItem>
#include <QTimer>

#include <cmath>

namespace {

constexpr int kMoversRefreshMs = 60000;
constexpr int kWatchlistMoversDelayMs = 1000;

} // namespace

void MainWindow::createOverviewFeeds()
{
    m_moversFeed = new MoversFeed(*m_network, m_quoteRouter->yahooSession(), this);
    m_moversFeed->setAlphaVantageKey(
            [this] { return m_keys.apiKey(QStringLiteral("alpha_vantage_api_key")); });
    m_newsFeed = new NewsFeed(*m_network, this);
}

void MainWindow::connectOverview()
{
    createOverviewFeeds();
    connect(m_moversFeed, &MoversFeed::moversReady, this,
            [this](const QString &scope, const QList<MoverRecord> &records) {
                // A scope the user has left since asking is not shown.
                if (scope != normalizedMoversScope(m_movers->filters().scope))
                    return;
                applyMovers(moversScopeLabel(scope), records);
            });
    connect(m_moversFeed, &MoversFeed::binanceFailed, this, [this] {
        logEvent(translated(QStringLiteral("Market movers error: Binance 24h request failed"),
                            QStringLiteral("Erro nos destaques do mercado: falha na requisição "
                                           "24h da Binance")));
        applyMovers(moversScopeLabel(QStringLiteral("watchlist")), watchlistMoverRecords());
    });
    connect(m_moversFeed, &MoversFeed::quotesFailed, this, [this](const QString &scope) {
        logEvent(translated(QStringLiteral("Market movers error: no quotes for %1"),
                            QStringLiteral("Erro nos destaques do mercado: nenhuma cotação para "
                                           "%1"))
                         .arg(moversScopeLabel(scope)));
    });
    connect(m_movers, &MoversPanel::filtersChanged, this, [this] {
        scheduleSettingsSave();
        refreshMarketMovers();
    });
    connect(m_movers, &MoversPanel::symbolAction, this,
            [this](const QString &symbol, MoversPanel::Action action) {
                moverActionChosen(symbol, int(action));
            });
    m_moversTimer->setInterval(kMoversRefreshMs);
    connect(m_moversTimer, &QTimer::timeout, this, [this] {
        // Movers nobody looks at are not worth a request; the tab asks again when shown.
        if (m_rightTabs->currentWidget() == m_movers || !m_moversShown)
            refreshMarketMovers();
    });
    connect(m_rightTabs, &QTabWidget::currentChanged, this, [this] {
        if (m_marketDataStarted && m_rightTabs->currentWidget() == m_movers)
            refreshMarketMovers();
    });
    m_watchlistMoversTimer->setInterval(kWatchlistMoversDelayMs);
    connect(m_watchlistMoversTimer, &QTimer::timeout, this, [this] {
        if (m_movers->filters().scope == QLatin1String("watchlist"))
            applyMovers(moversScopeLabel(QStringLiteral("watchlist")), watchlistMoverRecords(),
                        false);
    });

    m_screenerTimer = new QTimer(this);
    m_screenerTimer->setObjectName(QStringLiteral("screenerRefreshTimer"));
    m_screenerTimer->setSingleShot(true);
    m_screenerTimer->setInterval(kWatchlistMoversDelayMs);
    connect(m_screenerTimer, &QTimer::timeout, this, &MainWindow::refreshScreenerIfShown);
    connect(m_screener, &ScreenerPanel::shown, this, [this] {
        if (m_screenerStale)
            refreshScreener();
    });
    connect(m_screener, &ScreenerPanel::filtersChanged, this, [this] {
        scheduleSettingsSave();
        refreshScreener();
    });
    connect(m_screener, &ScreenerPanel::symbolActivated, this,
            [this](const QString &symbol) { moverActionChosen(symbol, 0); });

    connect(m_newsFeed, &NewsFeed::newsReady, this, &MainWindow::showNews);
    connect(m_newsFeed, &NewsFeed::newsFailed, this,
            [this](const QString &message) { statusBar()->showMessage(message); });
    connect(m_news, &NewsPanel::refreshRequested, this, &MainWindow::refreshNews);
    connect(m_news, &NewsPanel::linkActivated, this,
            [](const QUrl &url) { QDesktopServices::openUrl(url); });
}

void MainWindow::refreshMarketMovers()
{
    const MoversFilters filters = m_movers->filters();
    const QString scope = normalizedMoversScope(filters.scope);
    const QStringList rows = m_marketTable->symbols();
    QList<MoverRecord> known;
    if (scope == QLatin1String("watchlist")) {
        // The batch quote covers shares, indices and forex; crypto rows bring their own quotes.
        for (const MoverRecord &record : watchlistMoverRecords()) {
            if (assetClassOf(record.symbol) == AssetClass::Crypto)
                known.append(record);
        }
    }
    m_moversFeed->refresh(scope, moversQuoteSymbols(scope, m_universe.symbols(), rows), known);
}

QString MainWindow::moverSectorOf(const QString &symbol) const
{
    const QString sector = m_moversFeed->sectors().value(symbol);
    return sector.isEmpty() ? m_universe.sectors().value(symbol) : sector;
}

void MainWindow::applyMovers(const QString &sourceLabel, const QList<MoverRecord> &records,
                             bool report)
{
    if (!m_movers)
        return;
    const MoversFilters filters = m_movers->filters();
    MoverFilter filter;
    filter.minimumVolume = filters.minimumVolume;
    filter.minimumTurnover = filters.minimumTurnover;
    filter.sector = filters.sector.isEmpty() ? QStringLiteral("all") : filters.sector;
    const MoversView view = buildMoversView(
            records, filters.interval, filter,
            [this](const QString &symbol) { return moverSectorOf(symbol); }, m_localPriceSeries);

    QStringList sectors;
    for (const MoverRecord &record : view.records) {
        m_moversCache.insert(record.symbol, record);
        m_moverSources.insert(record.symbol, sourceLabel);
    }
    for (const MoverRecord &record : std::as_const(m_moversCache)) {
        const QString sector = moverSectorOf(record.symbol);
        if (!sector.isEmpty() && !sectors.contains(sector))
            sectors.append(sector);
    }
    m_movers->setSectors(sectors);

    m_movers->showMovers(view);
    m_moversShown = true;
    // The screener reads the movers too, but one out of view waits until it is shown again.
    refreshScreenerIfShown();
    if (report) {
        statusBar()->showMessage(moversStatusText(sourceLabel, int(view.gainers.size()),
                                                  int(view.losers.size()), view.suffix));
    }
}

QList<MoverRecord> MainWindow::watchlistMoverRecords() const
{
    QList<MoverRecord> records;
    for (const QString &symbol : m_marketTable->symbols()) {
        MoverRecord record = m_moversCache.value(symbol);
        record.symbol = symbol;
        const auto quote = m_lastQuotes.constFind(symbol);
        if (quote != m_lastQuotes.constEnd()) {
            if (std::isfinite(quote->price) && quote->price > 0)
                record.price = quote->price;
            if (std::isfinite(quote->changePercent))
                record.change = quote->changePercent;
            if (std::isfinite(quote->volume))
                record.volume = quote->volume;
        }
        if (std::isfinite(record.change))
            records.append(record);
    }
    return records;
}

void MainWindow::refreshScreener()
{
    if (!m_screener || !m_screenerTimer)
        return;
    m_screenerTimer->stop();
    m_screenerStale = false;
    ScreenerInputs inputs;
    inputs.universe = m_universe.symbols();
    for (const QString &symbol : m_marketTable->symbols()) {
        MarketQuote quote = m_lastQuotes.value(symbol);
        quote.symbol = symbol;
        const int row = findMarketRow(symbol);
        if (const QTableWidgetItem *source = m_marketTable->item(row, SourceColumn))
            quote.source = source->text();
        inputs.watchlist.append(quote);
    }
    inputs.movers = m_moversCache;
    inputs.moverSources = m_moverSources;
    inputs.localSeries = m_localPriceSeries;
    m_screener->setRows(screenerRows(inputs, m_screener->filters()));
}

void MainWindow::refreshScreenerIfShown()
{
    // Quotes keep coming whatever tab is in front: a screener out of view is rebuilt when it
    // comes back into view, not every second meanwhile.
    if (m_screener && !m_screener->isVisible()) {
        m_screenerStale = true;
        return;
    }
    refreshScreener();
}

void MainWindow::refreshMoversMosaic()
{
    // Rows came or went: the screener and the watchlist movers follow.
    refreshScreener();
    if (m_movers && m_movers->filters().scope == QLatin1String("watchlist"))
        m_watchlistMoversTimer->start();
}

void MainWindow::refreshWatchlistMovers()
{
    // A row's quote changed: re-ranked at most once a second, however fast quotes arrive.
    if (m_screenerTimer && !m_screenerTimer->isActive())
        m_screenerTimer->start();
    if (m_movers && m_movers->filters().scope == QLatin1String("watchlist") &&
        !m_watchlistMoversTimer->isActive())
        m_watchlistMoversTimer->start();
}

void MainWindow::addOrSelectInWatchlist(const QString &symbol)
{
    const int row = findMarketRow(symbol);
    if (row >= 0) {
        m_marketTable->selectRow(row);
        logEvent(translated(QStringLiteral("Market mover selected: %1"),
                            QStringLiteral("Destaque do mercado selecionado: %1"))
                         .arg(symbol));
        return;
    }
    addMarketRow(symbol, assetClassForSymbol(symbol), searchSourceLabel(symbol),
                 QStringLiteral("pending"), true);
    refreshQuote(symbol);
    if (assetClassOf(symbol) == AssetClass::Crypto)
        rebuildTickerStream();
    saveWatchlist();
    refreshMoversMosaic(); // the screener and the watchlist movers
    mergeUniverseSymbols({symbol});
    logEvent(translated(QStringLiteral("Market mover added to watchlist: %1"),
                        QStringLiteral("Destaque do mercado adicionado à lista: %1"))
                     .arg(symbol));
}

void MainWindow::moverActionChosen(const QString &text, int action)
{
    const QString symbol = normalizeSymbolInput(text);
    if (symbol.isEmpty())
        return;
    addOrSelectInWatchlist(symbol);
    switch (MoversPanel::Action(action)) {
    case MoversPanel::Action::OpenChart:
        // Selecting the row has loaded its chart and switched the book.
        loadChartSymbol(symbol);
        break;
    case MoversPanel::Action::AddToWatchlist:
        statusBar()->showMessage(
                translated(QStringLiteral("Mover ready: %1"), QStringLiteral("Destaque pronto: %1"))
                        .arg(symbol));
        break;
    case MoversPanel::Action::CreateAlert:
        createAlert(symbol);
        break;
    }
}

void MainWindow::refreshNews()
{
    if (!m_news || !m_newsFeed)
        return;
    NewsQuery query;
    query.sourceId = m_news->sourceId();
    query.categoryId = m_news->categoryId();
    query.queryText = m_news->queryText();
    query.newsSymbol =
            newsSymbol(normalizeSymbolInput(query.queryText), m_marketTable->selectedSymbol());
    query.language = interfaceLanguage();
    query.siteEndpoint = m_keys.apiKey(QStringLiteral("querlin_news_endpoint"));
    query.siteToken = m_keys.apiKey(QStringLiteral("querlin_news_token"));
    query.newsApiKey = m_keys.apiKey(QStringLiteral("newsapi_api_key"));
    m_newsFeed->refresh(query);
}

void MainWindow::showNews(const QList<NewsItem> &items, const QString &sourceLabel)
{
    m_news->showNews(items, sourceLabel);
    statusBar()->showMessage(newsUpdatedMessage(sourceLabel, items.size()));
}
