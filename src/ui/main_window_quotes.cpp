// Keys, quote routing and the timers that keep quotes fresh.
#include "ui/api_keys_dialog.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QNetworkAccessManager>
#include <QStatusBar>
#include <QTimer>

namespace {

constexpr int kQuoteRefreshMs = 15000;
constexpr int kWatchlistRefreshMs = 60000;
constexpr int kFxTickerRefreshMs = 60000;
constexpr int kMarketDataStartMs = 250;

} // namespace

void MainWindow::setupQuoteRouting()
{
    m_network = new QNetworkAccessManager(this);
    m_quoteRouter = new QuoteRouter(
            *m_network, *this, [this](const QString &name) { return m_keys.apiKey(name); }, this);
    m_quoteTimer = new QTimer(this);
    m_quoteTimer->setInterval(kQuoteRefreshMs);
    connect(m_quoteTimer, &QTimer::timeout, this, &MainWindow::refreshMarketQuotes);
    m_watchlistTimer = new QTimer(this);
    m_watchlistTimer->setInterval(kWatchlistRefreshMs);
    connect(m_watchlistTimer, &QTimer::timeout, this, &MainWindow::refreshWatchlistBatch);
    m_fxTimer = new QTimer(this);
    m_fxTimer->setInterval(kFxTickerRefreshMs);
    connect(m_fxTimer, &QTimer::timeout, this, &MainWindow::refreshFxTicker);
    QTimer::singleShot(kMarketDataStartMs, this, &MainWindow::startMarketData);
}

void MainWindow::loadConfig()
{
    m_keys.loadConfig(&m_hiddenColumns);
}

void MainWindow::startMarketData()
{
    if (m_marketDataStarted)
        return;
    m_marketDataStarted = true;
    // The first quote of every row, crypto included: the streams take over crypto rows later.
    for (const QString &symbol : m_marketTable->symbols())
        refreshQuote(symbol);
    refreshWatchlistBatch();
    // The ticker's pair is asked only when no row already asked for it.
    if (findMarketRow(fxTickerSymbol()) < 0)
        refreshFxTicker();
    m_quoteTimer->start();
    m_watchlistTimer->start();
    m_fxTimer->start();
}

void MainWindow::showApiKeysDialog()
{
    if (!runApiKeysDialog(m_keys, this))
        return;
    showStatusMessage(m_keys.saveLocalApiKeys() ? keysSavedText() : unableToSaveKeysText());
    // New keys change the provider order: ask again at once rather than at the next tick.
    refreshMarketQuotes();
}

void MainWindow::refreshQuote(const QString &symbol)
{
    m_quoteRouter->refreshQuote(symbol);
}

void MainWindow::refreshMarketQuotes()
{
    for (const QString &symbol : m_marketTable->symbols()) {
        if (assetClassOf(symbol) != AssetClass::Crypto)
            refreshQuote(symbol);
    }
}

void MainWindow::refreshWatchlistBatch()
{
    m_quoteRouter->refreshWatchlistBatch(m_marketTable->symbols());
}

void MainWindow::refreshFxTicker()
{
    refreshQuote(fxTickerSymbol());
}

void MainWindow::showStatusMessage(const QString &text)
{
    statusBar()->showMessage(text);
}
