// The watchlist: market rows, the file that keeps them, and what a new quote sets off.
#include "app/atomic_file.h"
#include "app/language.h"
#include "app/paths.h"
#include "chart/candle_history.h"
#include "chart/timeframe.h"
#include "market/symbols.h"
#include "market/watchlist.h"
#include "ui/bilingual.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/quote_details.h"
#include "ui/screen_rate.h"

#include <QFile>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>

#include <cmath>

int MainWindow::findMarketRow(const QString &symbol) const
{
    return m_marketTable->findMarketRow(symbol);
}

void MainWindow::addMarketRow(const QString &symbol, const QString &classLabel,
                              const QString &source, const QString &status, bool select)
{
    m_marketTable->addMarketRow(symbol, classLabel, source, status, select);
}

void MainWindow::updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                                 const QString &latency, const QString &status)
{
    // Fetchers leave fields they do not deliver at 0; the details show those as unknown.
    auto known = [](double value) { return value != 0.0 ? value : qQNaN(); };
    MarketQuote &stored = m_lastQuotes[quote.symbol];
    stored.open = known(quote.open);
    stored.high = known(quote.high);
    stored.low = known(quote.low);
    stored.previousClose = known(quote.previousClose);
    stored.volume = known(quote.volume);
    // Yahoo's and BrAPI's quote steps bring the chart's history with them.
    if (!quote.candles.isEmpty())
        storeCandles(quote.symbol, mergeHourBars(quote.candles,
                                                 timeframeParameters(m_chartTimeframe).mergeHours));
    updateMarketRow(quote.symbol, quote.price, quote.changePercent, provider, latency, status);
    if (!quote.candles.isEmpty() && quote.symbol == m_marketTable->selectedSymbol())
        refreshChart();
}

void MainWindow::updateMarketRow(const QString &symbol, double price, double changePercent,
                                 const QString &source, const QString &latency,
                                 const QString &status)
{
    if (!storeRowQuote(symbol, price, changePercent, source, latency, status))
        return;
    // A quote that arrives while stream frames wait for the screen goes out with them, in order.
    if (m_pendingRowSet.contains(symbol)) {
        m_rowRenderer->flush();
        return;
    }
    const QDateTime now = QDateTime::currentDateTime();
    m_marketTable->beginRowWrites();
    const int row = showRowQuote(symbol, now, marketTimestamp(now));
    m_marketTable->endRowWrites(row >= 0 ? QList<int>{row} : QList<int>());
    afterRowQuotes();
}

bool MainWindow::storeRowQuote(const QString &symbol, double price, double changePercent,
                               const QString &source, const QString &latency, const QString &status)
{
    // The top-bar ticker follows its pair whether or not the pair has a row.
    if (symbol == fxTickerSymbol()) {
        updateFxTicker(price, changePercent);
        if (std::isfinite(price) && price > 0 && price != m_usdBrlRate) {
            m_usdBrlRate = price; // every conversion of the portfolios follows it
            refreshPortfolio();
        }
    }
    if (findMarketRow(symbol) < 0) {
        m_lastQuotes.remove(symbol);
        return false;
    }
    MarketQuote &quote = m_lastQuotes[symbol];
    quote.symbol = symbol;
    quote.price = price;
    quote.changePercent = changePercent;
    if (quote.source != source)
        quote.source = source;
    if (quote.latency != latency)
        quote.latency = latency;
    const QString canonical = canonicalStatusWord(status);
    if (quote.status != canonical)
        quote.status = canonical;
    return true;
}

void MainWindow::queueStreamQuote(const QString &symbol)
{
    if (!m_pendingRowSet.contains(symbol)) {
        m_pendingRowSet.insert(symbol);
        m_pendingRows.append(symbol);
    }
    m_rowRenderer->schedule();
}

void MainWindow::renderPendingRows()
{
    const QStringList symbols = std::exchange(m_pendingRows, {});
    m_pendingRowSet.clear();
    // One clock reading and one time text for the whole batch.
    const QDateTime now = QDateTime::currentDateTime();
    const QString timestamp = marketTimestamp(now);
    QList<int> rows;
    rows.reserve(symbols.size());
    m_marketTable->beginRowWrites();
    for (const QString &symbol : symbols) {
        if (const int row = showRowQuote(symbol, now, timestamp); row >= 0)
            rows.append(row);
    }
    m_marketTable->endRowWrites(rows);
    if (!symbols.isEmpty())
        afterRowQuotes();
}

int MainWindow::showRowQuote(const QString &symbol, const QDateTime &now, const QString &timestamp)
{
    const int row = findMarketRow(symbol);
    const auto stored = m_lastQuotes.find(symbol);
    if (row < 0 || stored == m_lastQuotes.end())
        return -1;
    MarketQuote &quote = *stored;
    quote.time = now;
    const double price = quote.price;
    const double changePercent = quote.changePercent;

    const MarketTable::RowCells cells = m_marketTable->rowCells(row);
    writeCandleColumns(cells, symbol);
    m_marketTable->writeQuoteCells(cells, price, changePercent, quote.source, quote.latency,
                                   quote.status, timestamp);

    checkPriceAlerts(symbol, price);
    m_quoteLog->record(quote);
    if (m_quoteHeader->shownSymbol() == symbol)
        m_quoteHeader->showSymbol(symbol, &quote);

    if (symbol == m_tapeSymbol && !m_tapeLive)
        addQuoteTapeRow(symbol, price, changePercent, quote.source,
                        {localizedStatusWord(quote.status)});
    if (symbol == m_marketTable->selectedSymbol()) {
        if (m_bookStepAwaitsPrice)
            applySavedBookPreset();
        updateChartLastCandle(symbol, price);
        const AssetClass assetClass = assetClassOf(symbol);
        if (assetClass == AssetClass::BrEquity)
            refreshB3BookNotice(symbol);
        else
            refreshSymbolDetailsTable(symbol); // a crypto book in fallback follows REST quotes too
    }
    return row;
}

void MainWindow::afterRowQuotes()
{
    // The screener and the watchlist movers follow quotes at most once a second.
    refreshPortfolio();
    refreshWatchlistMovers();
}

void MainWindow::setMarketRowStatus(const QString &symbol, const QString &status)
{
    const int row = findMarketRow(symbol);
    if (row < 0)
        return;
    SortingPause pause(m_marketTable);
    m_marketTable->setMarketStatus(row, status);
}

QString MainWindow::rowToolTip(const QString &symbol) const
{
    const auto quote = m_lastQuotes.constFind(symbol);
    return marketRowToolTip(symbol, sectorForSymbol(symbol),
                            quote != m_lastQuotes.constEnd() ? &quote.value() : nullptr);
}

void MainWindow::addSymbolFromSearch()
{
    const QString symbol = normalizeSymbolInput(m_tickerSearch->text());
    if (symbol.isEmpty() || findMarketRow(symbol) >= 0)
        return;
    addMarketRow(symbol, assetClassForSymbol(symbol), searchSourceLabel(symbol),
                 QStringLiteral("pending"), true);
    m_tickerSearch->clear();
    saveWatchlist();
    refreshMoversMosaic();
    refreshQuote(symbol);
    if (assetClassOf(symbol) == AssetClass::Crypto)
        rebuildTickerStream();
}

void MainWindow::loadWatchlist()
{
    QFile file(dataFileReadPath(DataFile::DefaultWatchlist));
    if (file.open(QIODevice::ReadOnly)) {
        for (const WatchlistEntry &entry : readWatchlistEntries(file.readAll())) {
            const QString symbol = normalizeSymbolInput(entry.symbol);
            if (symbol.isEmpty() || findMarketRow(symbol) >= 0)
                continue;
            addMarketRow(symbol, assetClassForSymbol(symbol),
                         sourceLabelForProvider(entry.provider, symbol), QStringLiteral("pending"),
                         false);
        }
    }
    if (m_marketTable->rowCount() > 0)
        return;
    for (const QString &symbol : defaultWatchlistSymbols())
        addMarketRow(symbol, assetClassForSymbol(symbol), defaultSourceLabel(symbol),
                     QStringLiteral("pending"), false);
    saveWatchlist();
}

QJsonObject MainWindow::buildWatchlistJson() const
{
    return watchlistDocument(m_marketTable->symbols());
}

void MainWindow::saveWatchlist()
{
    // A failure keeps the previous file and is silent: the rows are still on screen and the next
    // change tries again.
    writeFileAtomically(dataFileWritePath(DataFile::DefaultWatchlist),
                        QJsonDocument(buildWatchlistJson()).toJson(QJsonDocument::Indented));
}

void MainWindow::moveMarketRow(int from, int to)
{
    if (!m_marketTable->moveMarketRow(from, to))
        return;
    saveWatchlist();
    refreshMoversMosaic();
    selectionChanged();
    logEvent(translated(QStringLiteral("Watchlist row moved"),
                        QStringLiteral("Linha da lista movida")));
}

void MainWindow::removeSelectedSymbol()
{
    const int row = m_marketTable->currentRow();
    const QString symbol = m_marketTable->symbolAt(row);
    if (row < 0 || symbol.isEmpty())
        return;
    m_candleCache.remove(symbol);
    m_indicatorValues.remove(symbol);
    m_lastQuotes.remove(symbol);
    m_quoteLog->forget(symbol);
    m_marketTable->removeRow(row);
    forgetOrderFlowSymbol(symbol);
    refreshMoversMosaic();
    refreshPortfolio();
    selectionChanged();
    saveWatchlist();
    rebuildTickerStream();
}

void MainWindow::selectionChanged()
{
    const QString symbol = m_marketTable->selectedSymbol();
    const auto quote = m_lastQuotes.constFind(symbol);
    m_quoteHeader->showSymbol(symbol, quote != m_lastQuotes.constEnd() ? &quote.value() : nullptr);
    m_quoteLog->showSymbol(symbol);
    loadChartSymbol(symbol);
    switchBookSymbol();
}

void MainWindow::applyColumnPreset(const QString &preset)
{
    m_marketTable->applyColumnPreset(preset);
    m_hiddenColumns = m_marketTable->hiddenColumns();
    saveLocalSettings();
    logEvent(translated(QStringLiteral("Column preset applied: %1"),
                        QStringLiteral("Predefinição de colunas aplicada: %1"))
                     .arg(preset));
}

void MainWindow::applyColumnVisibilityConfig()
{
    m_marketTable->setHiddenColumns(m_hiddenColumns);
    m_hiddenColumns = m_marketTable->hiddenColumns();
}

void MainWindow::updateFxTicker(double price, double changePercent)
{
    if (!std::isfinite(price) || price <= 0)
        return;
    QString text = QStringLiteral("USD/BRL %1").arg(formatMarketNumber(price));
    if (std::isfinite(changePercent))
        text += QStringLiteral("  %1%2").arg(changePercent >= 0 ? QStringLiteral("+") : QString(),
                                             formatChangePercent(changePercent));
    m_fxTicker->setText(text);
    setChangeDirection(m_fxTicker, changePercent);
}

// The panels below arrive one by one; each hook is where its panel hears about the market table.

void MainWindow::updateChartLastCandle(const QString &, double) {}
