// Keys, quote routing and the timers that keep quotes fresh.
#include "ui/api_keys_dialog.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QNetworkAccessManager>
#include <QStatusBar>
#include <QTimer>

void MainWindow::setupQuoteRouting()
{
    m_quoteRouter = new QuoteRouter(
            *m_network, *this, [this](const QString &name) { return m_keys.apiKey(name); }, this);
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
    requestCryptoUniverse();
    // The first quote of every row, crypto included: the streams take over crypto rows later.
    for (const QString &symbol : m_marketTable->symbols())
        refreshQuote(symbol);
    refreshWatchlistBatch();
    refreshNews();
    refreshMarketMovers();
    // The ticker's pair is asked only when no row already asked for it.
    if (findMarketRow(fxTickerSymbol()) < 0)
        refreshFxTicker();
    rebuildTickerStream();
    switchBookSymbol();
    loadChartSymbol(m_marketTable->selectedSymbol());
    m_quoteTimer->start();
    m_watchlistTimer->start();
    m_newsTimer->start();
    m_moversTimer->start();
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
    // A dropped ticker stream has no reconnect timer of its own: REST covers the crypto rows once
    // and the stream is opened again here, every cycle, until it holds.
    if (!isBinanceStreamConnected())
        refreshCryptoRowsOverRest();
    rebuildTickerStream();
}

void MainWindow::refreshWatchlistBatch()
{
    m_quoteRouter->refreshWatchlistBatch(m_marketTable->symbols());
    refreshCryptoKlines();
}

void MainWindow::refreshFxTicker()
{
    refreshQuote(fxTickerSymbol());
}

void MainWindow::showStatusMessage(const QString &text)
{
    // Failures of the quote providers are worth keeping: the next status replaces the status bar.
    logEvent(text);
}
