// Keys, quote routing and the timers that keep quotes fresh.
#include "ui/api_keys_dialog.h"
#include "ui/language.h"
#include "ui/main_window.h"

#include <QNetworkAccessManager>
#include <QStatusBar>
#include <QTimer>

#include <cmath>

namespace {

constexpr int kQuoteRefreshMs = 15000;
constexpr int kWatchlistRefreshMs = 60000;
constexpr int kMarketDataStartMs = 250;

QString priceText(double value)
{
    return std::isfinite(value) ? QString::number(value, 'f', std::abs(value) >= 1000 ? 2 : 4)
                                : QStringLiteral("--");
}

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
    QTimer::singleShot(kMarketDataStartMs, this, &MainWindow::startMarketData);
}

void MainWindow::loadConfig()
{
    m_keys.loadConfig(&m_hiddenColumns);
}

void MainWindow::startMarketData()
{
    refreshMarketQuotes();
    refreshWatchlistBatch();
    m_quoteTimer->start();
    m_watchlistTimer->start();
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
    for (const QString &symbol : std::as_const(m_followedSymbols)) {
        if (assetClassOf(symbol) != AssetClass::Crypto)
            refreshQuote(symbol);
    }
}

void MainWindow::refreshWatchlistBatch()
{
    m_quoteRouter->refreshWatchlistBatch(m_followedSymbols);
}

void MainWindow::updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                                 const QString &latency, const QString &status)
{
    m_lastQuotes.insert(quote.symbol, quote);
    // Until the market table shows them, the latest quote is told in the status bar.
    showStatusMessage(QStringLiteral("%1  %2  %3%  ·  %4  ·  %5  ·  %6")
                              .arg(displaySymbol(quote.symbol), priceText(quote.price),
                                   QString::number(quote.changePercent, 'f', 2), provider, latency,
                                   status));
}

void MainWindow::setMarketRowStatus(const QString &, const QString &) {}

void MainWindow::showStatusMessage(const QString &text)
{
    statusBar()->showMessage(text);
}
