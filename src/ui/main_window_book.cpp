// The order book panel: depth ladders, the REST snapshot, the fallbacks that stand in for depth a
// free feed does not have, and the aggregation presets.
#include "app/language.h"
#include "market/symbols.h"
#include "providers/data_fetcher.h"
#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "streams/binance_frames.h"
#include "streams/itick_session.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QTableWidgetItem>
#include <QTime>
#include <QWebSocket>

#include <cmath>

namespace {

QString orderBookWord()
{
    return translated(QStringLiteral("ORDER BOOK"), QStringLiteral("LIVRO DE OFERTAS"));
}

QString quoteSnapshotWord()
{
    return translated(QStringLiteral("QUOTE SNAPSHOT"), QStringLiteral("RESUMO DA COTAÇÃO"));
}

// A cell's number, NaN for "--" and anything else that is not one.
double cellNumber(const QTableWidgetItem *cell)
{
    if (!cell)
        return qQNaN();
    const QVariant value = cell->data(Qt::UserRole);
    return value.isValid() ? value.toDouble() : qQNaN();
}

} // namespace

void MainWindow::setBookTitle(const QString &title)
{
    m_book->setTitle(title);
}

void MainWindow::resetBook(const QString &title)
{
    m_depthPending = false;
    m_depthValid = false;
    m_bookMiddlePrice = qQNaN();
    m_book->reset(title);
}

void MainWindow::showDepth(const DepthSides &sides, bool fromSnapshot)
{
    m_depthPending = false;
    m_depthValid = isDepthUsable(sides);
    if (!m_depthValid) {
        showQuoteStatsFallback(m_bookSymbol);
        setBookTitle(
                panelTitleText(quoteSnapshotWord(), m_bookSymbol,
                               translated(QStringLiteral("Binance depth insufficient"),
                                          QStringLiteral("profundidade da Binance insuficiente"))));
        return;
    }
    if (const BookMetrics metrics = depthMetrics(sides); metrics.quoteOk())
        m_bookMiddlePrice = (metrics.bestBid + metrics.bestAsk) / 2;
    if (m_bookStepAwaitsPrice)
        applySavedBookPreset(); // the book's middle is the first price this symbol has
    m_book->showLadder(sides);
    if (fromSnapshot)
        setBookTitle(panelTitleText(
                orderBookWord(), m_bookSymbol,
                translated(QStringLiteral("snapshot"), QStringLiteral("instantâneo"))));
    else
        setBookTitle(QStringLiteral("%1  %2%3")
                             .arg(panelTitleText(orderBookWord(), m_bookSymbol, QString()),
                                  QTime::currentTime().toString(QStringLiteral("HH:mm:ss")),
                                  stepSuffix()));
}

void MainWindow::requestDepthSnapshot(const QString &symbol)
{
    sendProviderGet(
            *m_network, binanceDepthRequest(symbol), this,
            [this, symbol](const ProviderReply &reply) {
                // Only for the symbol the book still shows, and never over live depth.
                if (symbol != m_bookSymbol || (m_depthValid && !m_depthPending))
                    return;
                if (reply.error != QNetworkReply::NoError || reply.tooLarge) {
                    m_depthPending = false;
                    m_depthValid = false;
                    showQuoteStatsFallback(symbol);
                    setBookTitle(panelTitleText(
                            quoteSnapshotWord(), symbol,
                            translated(QStringLiteral("Binance depth unavailable"),
                                       QStringLiteral("profundidade da Binance indisponível"))));
                    return;
                }
                showDepth(readDepthSnapshot(reply.body), true);
            });
}

void MainWindow::showLevel2Depth(const Level2Book &book, const QString &title)
{
    if (!book.isUsable()) {
        showQuoteStatsFallback(m_bookSymbol);
        setBookTitle(panelTitleText(quoteSnapshotWord(), m_bookSymbol,
                                    translated(QStringLiteral("depth below %1 levels"),
                                               QStringLiteral("profundidade abaixo de %1 níveis"))
                                            .arg(kMinimumDepthLevels)));
        return;
    }
    m_depthValid = true;
    m_depthPending = false;
    m_book->showLevel2(book);
    setBookTitle(QStringLiteral("%1  %2 %3  Mid %4  %5 %6%%7")
                         .arg(title, translated(QStringLiteral("Spread"), QStringLiteral("Spread")),
                              QString::number(book.spread(), 'f', 4),
                              QString::number(book.mid(), 'f', 4),
                              translated(QStringLiteral("Imb"), QStringLiteral("Desb")),
                              QString::number(book.imbalance(), 'f', 1), stepSuffix()));
}

void MainWindow::showQuoteStatsFallback(const QString &symbol)
{
    m_depthPending = false;
    m_depthValid = false;
    m_bookShowsSnapshot = false;
    fillQuoteStatsTables(symbol);
    setBookTitle(
            panelTitleText(quoteSnapshotWord(), symbol,
                           translated(QStringLiteral("delayed"), QStringLiteral("com atraso"))));
}

void MainWindow::fillQuoteStatsTables(const QString &symbol)
{
    const int row = findMarketRow(symbol);
    if (row < 0) {
        m_book->showFallback({{translated(QStringLiteral("Status"), QStringLiteral("Status")),
                               translated(QStringLiteral("No selected symbol"),
                                          QStringLiteral("Nenhum ativo selecionado")),
                               QStringLiteral("--")}},
                             {});
        return;
    }
    const auto text = [this, row](int column) {
        const QTableWidgetItem *cell = m_marketTable->item(row, column);
        return cell ? cell->text() : QStringLiteral("--");
    };
    const QString source = text(SourceColumn);
    const auto quote = m_lastQuotes.constFind(symbol);
    // Candle columns fill in with the chart's history; the quote knows these values before that.
    const auto valueOrQuote = [&](int column, double MarketQuote::*field) {
        const QString cell = text(column);
        if (cell != QLatin1String("--") || quote == m_lastQuotes.constEnd())
            return cell;
        return formatMarketNumber((*quote).*field);
    };
    const QList<BookFallbackRow> quoteRows{
            {translated(QStringLiteral("Last"), QStringLiteral("Último")), text(LastColumn),
             source},
            {translated(QStringLiteral("Change"), QStringLiteral("Variação")), text(ChangeColumn),
             source},
            {translated(QStringLiteral("Open"), QStringLiteral("Abertura")),
             valueOrQuote(OpenColumn, &MarketQuote::open), source},
            {translated(QStringLiteral("High"), QStringLiteral("Máxima")),
             valueOrQuote(HighColumn, &MarketQuote::high), source},
            {translated(QStringLiteral("Low"), QStringLiteral("Mínima")),
             valueOrQuote(LowColumn, &MarketQuote::low), source},
            {translated(QStringLiteral("Close"), QStringLiteral("Fechamento")), text(CloseColumn),
             source},
    };
    QString volume = QStringLiteral("--");
    if (const auto series = m_localPriceSeries.constFind(symbol);
        series != m_localPriceSeries.constEnd() && !series->isEmpty())
        volume = formatLargeAmount(series->constLast().volume);
    else if (quote != m_lastQuotes.constEnd() && std::isfinite(quote->volume))
        volume = formatLargeAmount(quote->volume);
    const QList<BookFallbackRow> statsRows{
            {translated(QStringLiteral("Volume"), QStringLiteral("Volume")), volume, source},
            {translated(QStringLiteral("Latency"), QStringLiteral("Latência")), text(LatencyColumn),
             source},
            {translated(QStringLiteral("Status"), QStringLiteral("Status")), text(StatusColumn),
             source},
            {translated(QStringLiteral("Updated"), QStringLiteral("Atualizado")),
             text(UpdatedColumn), source},
            {translated(QStringLiteral("Depth"), QStringLiteral("Profundidade")),
             translated(QStringLiteral("Not in free feed"),
                        QStringLiteral("Fora do feed gratuito")),
             translated(QStringLiteral("Broker/feed needed"),
                        QStringLiteral("Requer corretora/feed"))},
    };
    m_book->showFallback(quoteRows, statsRows);
    // Close against Last on purpose: the spread tile shows how far the price moved from the close.
    BookMetrics metrics;
    const double close = cellNumber(m_marketTable->item(row, CloseColumn));
    const double last = cellNumber(m_marketTable->item(row, LastColumn));
    metrics.bestBid = std::isfinite(close) ? close : 0;
    metrics.bestAsk = std::isfinite(last) ? last : 0;
    m_book->setMetrics(metrics);
}

void MainWindow::showSnapshotFallback(const QString &symbol, double last, double close,
                                      const QString &title)
{
    if (!(last > 0) || !std::isfinite(last)) {
        showQuoteStatsFallback(symbol);
        return;
    }
    if (!(close > 0) || !std::isfinite(close))
        close = last;
    showQuoteStatsFallback(symbol);
    BookMetrics metrics;
    metrics.bestBid = std::min(close, last);
    metrics.bestAsk = last;
    m_book->setMetrics(metrics);
    m_bookShowsSnapshot = true;
    setBookTitle(
            QStringLiteral("%1  %2").arg(title, translated(QStringLiteral("snapshot fallback"),
                                                           QStringLiteral("resumo alternativo"))));
}

void MainWindow::showB3Notice(const QString &symbol)
{
    const int row = findMarketRow(symbol);
    const double last = row >= 0 ? cellNumber(m_marketTable->item(row, LastColumn)) : qQNaN();
    double close = row >= 0 ? cellNumber(m_marketTable->item(row, CloseColumn)) : qQNaN();
    if (!(close > 0))
        close = last;
    if (last > 0)
        showSnapshotFallback(
                symbol, last, close,
                panelTitleText(quoteSnapshotWord(), symbol,
                               translated(QStringLiteral("B3 no free Order Book"),
                                          QStringLiteral("B3 sem livro de ofertas gratuito"))));
    else
        showQuoteStatsFallback(symbol);
}

void MainWindow::showUsLevel1Fallback(const QString &symbol, const QString &reason)
{
    if (symbol != m_marketTable->selectedSymbol())
        return;
    m_depthPending = false;
    m_depthValid = false;
    const quint64 generation = ++m_usLevel1Generation;
    std::shared_ptr<DataFetcher> fetcher;
    if (const QString key = m_keys.apiKey(QStringLiteral("finnhub_api_key")); !key.isEmpty())
        fetcher = std::make_shared<FinnhubFetcher>(key);
    else if (const QString av = m_keys.apiKey(QStringLiteral("alpha_vantage_api_key"));
             !av.isEmpty())
        fetcher = std::make_shared<AlphaVantageFetcher>(av);
    const QString failedTitle =
            panelTitleText(quoteSnapshotWord(), symbol,
                           translated(QStringLiteral("US Level 1 fallback snapshot (%1)"),
                                      QStringLiteral("resumo Nível 1 dos EUA (%1)"))
                                   .arg(reason));
    showQuoteStatsFallback(symbol);
    setBookTitle(failedTitle);
    if (!fetcher)
        return;
    sendProviderGet(*m_network, fetcher->buildRequest(symbol), this,
                    [this, symbol, generation, fetcher, failedTitle](const ProviderReply &reply) {
                        // Only the latest request, and only while its symbol is still shown.
                        if (generation != m_usLevel1Generation ||
                            symbol != m_marketTable->selectedSymbol())
                            return;
                        const std::optional<QuoteSnapshot> quote =
                                reply.error == QNetworkReply::NoError
                                        ? fetcher->parseQuote(symbol, reply.body)
                                        : std::nullopt;
                        if (!quote)
                            return; // the plain snapshot is already there
                        showSnapshotFallback(symbol, quote->price, quote->previousClose,
                                             panelTitleText(quoteSnapshotWord(), symbol,
                                                            fetcher->displayName()));
                    });
}

double MainWindow::selectedReferencePrice() const
{
    const QString symbol = m_marketTable->selectedSymbol();
    const double price = m_lastQuotes.value(symbol).price;
    if (std::isfinite(price) && price > 0)
        return price;
    const QList<Candle> bars = m_localPriceSeries.value(symbol);
    if (!bars.isEmpty())
        return bars.constLast().close;
    return symbol == m_bookSymbol ? m_bookMiddlePrice : qQNaN();
}

double MainWindow::stepOfPreset(const QString &presetId) const
{
    return ::stepOfPreset(presetId, selectedReferencePrice());
}

QString MainWindow::stepSuffix() const
{
    return ::stepSuffix(m_book->step());
}

void MainWindow::refreshPresetButtons()
{
    QHash<QString, double> steps;
    QHash<QString, QKeySequence> keys;
    for (const QString &id : bookPresetIds()) {
        steps.insert(id, stepOfPreset(id));
        keys.insert(id, configuredShortcut(QStringLiteral("book_%1").arg(id)));
    }
    m_book->refreshPresetButtons(steps, keys);
}

void MainWindow::setBookStep(double step)
{
    m_book->setStep(step);
}

void MainWindow::applyBookPreset(const QString &mode)
{
    m_savedBookPreset = bookPresetIds().contains(mode) ? mode : QStringLiteral("normal");
    applySavedBookPreset();
    scheduleSettingsSave();
}

void MainWindow::applySavedBookPreset()
{
    // The saved preset follows the symbol's price. A symbol without a price yet keeps the step it
    // has, and the preset is applied when the first price arrives (a quote or the book's middle):
    // a step made from no price would bucket nothing.
    m_bookStepAwaitsPrice = false;
    if (!m_savedBookPreset.isEmpty()) {
        if (m_savedBookPreset == QLatin1String("raw") || std::isfinite(selectedReferencePrice()))
            setBookStep(stepOfPreset(m_savedBookPreset));
        else
            m_bookStepAwaitsPrice = true;
    }
    refreshPresetButtons();
}

void MainWindow::refreshB3BookNotice(const QString &symbol)
{
    if (symbol == m_bookSymbol)
        showB3Notice(symbol);
}

void MainWindow::refreshSymbolDetailsTable(const QString &symbol)
{
    // A fallback book follows the row's quotes; a live ladder is left alone.
    if (symbol != m_bookSymbol || m_depthValid || m_book->view() != BookPanel::View::Fallback)
        return;
    const QString title = m_book->title();
    fillQuoteStatsTables(symbol);
    if (m_bookShowsSnapshot) {
        // A snapshot's tiles follow the row by the snapshot's own rule: a missing close is the
        // previous close of the last quote, else the last price.
        const int row = findMarketRow(symbol);
        const double last = row >= 0 ? cellNumber(m_marketTable->item(row, LastColumn)) : qQNaN();
        double close = row >= 0 ? cellNumber(m_marketTable->item(row, CloseColumn)) : qQNaN();
        if (!(close > 0))
            close = m_lastQuotes.value(symbol).previousClose;
        if (!(close > 0) || !std::isfinite(close))
            close = last;
        if (last > 0 && std::isfinite(last)) {
            BookMetrics metrics;
            metrics.bestBid = std::min(close, last);
            metrics.bestAsk = last;
            m_book->setMetrics(metrics);
        }
    }
    setBookTitle(title);
}

void MainWindow::forgetOrderFlowSymbol(const QString &symbol)
{
    if (symbol == m_bookSymbol) {
        m_bookSymbol.clear();
        if (m_depthSocket && m_depthSocket->state() != QAbstractSocket::UnconnectedState)
            m_depthSocket->close(QWebSocketProtocol::CloseCodeNormal, QString());
        resetBook(orderBookWord());
    }
    if (symbol == m_tapeSymbol)
        switchTapeSymbol(QString());
    m_localPriceSeries.remove(symbol);
}

void MainWindow::connectItick()
{
    m_itick = new ItickSession({m_itickPingTimer, m_itickDepthTimer, m_itickReconnectTimer},
                               systemClock(), this);
    // Every report names its symbol: one the book has left meanwhile is not shown.
    connect(m_itick, &ItickSession::connecting, this,
            [this](const QString &symbol, const QString &state) {
                if (symbol != m_bookSymbol)
                    return;
                m_depthPending = true;
                m_depthValid = false;
                resetBook(panelTitleText(orderBookWord(), symbol, state));
            });
    connect(m_itick, &ItickSession::status, this,
            [this](const QString &symbol, const QString &state) {
                if (symbol == m_bookSymbol && !m_depthValid)
                    setBookTitle(panelTitleText(orderBookWord(), symbol, state));
            });
    connect(m_itick, &ItickSession::level2Book, this,
            [this](const QString &symbol, const Level2Book &book) {
                if (symbol == m_bookSymbol)
                    showLevel2Depth(book, itickLevel2Title(symbol));
            });
    connect(m_itick, &ItickSession::fallbackToLevel1, this,
            [this](const QString &symbol, const QString &reason) {
                if (symbol == m_bookSymbol)
                    showUsLevel1Fallback(symbol, reason);
            });
    connect(m_itick, &ItickSession::event, this, &MainWindow::logEvent);
}
