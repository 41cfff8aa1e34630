// The Binance streams: the ticker of every crypto row, and the depth and trades of the selected
// pair, with the crypto universe that joins the completer.
#include "app/language.h"
#include "market/symbols.h"
#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "streams/binance_frames.h"
#include "streams/itick_session.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/screen_rate.h"
#include "ui/tape_panel.h"

#include <QDateTime>
#include <QSignalBlocker>
#include <QStatusBar>
#include <QTime>
#include <QWebSocket>

#include <cmath>

namespace {

QString orderBookWord()
{
    return translated(QStringLiteral("ORDER BOOK"), QStringLiteral("LIVRO DE OFERTAS"));
}

QString timeAndSalesWord()
{
    return translated(QStringLiteral("TIME & SALES"), QStringLiteral("TEMPOS E NEGÓCIOS"));
}

QString connectingState()
{
    return translated(QStringLiteral("connecting"), QStringLiteral("conectando"));
}

QString liveState()
{
    return translated(QStringLiteral("live"), QStringLiteral("ao vivo"));
}

QString disconnectedState()
{
    return translated(QStringLiteral("disconnected"), QStringLiteral("desconectado"));
}

// Closes a socket on purpose: the close is the terminal's own decision, so it is not reported as
// a dropped stream (a later, asynchronous end of the same connection is told apart by its URL).
void closeOnPurpose(QWebSocket *socket)
{
    if (!socket || socket->state() == QAbstractSocket::UnconnectedState)
        return;
    const QSignalBlocker blocker(socket);
    if (socket->state() == QAbstractSocket::ConnectedState)
        socket->close(QWebSocketProtocol::CloseCodeNormal, QString());
    else
        socket->abort(); // a handshake under way has nothing to close politely
}

void reopen(QWebSocket *socket, const QUrl &url)
{
    closeOnPurpose(socket);
    socket->open(url);
}

} // namespace

void MainWindow::createStreams()
{
    m_rowRenderer = new FrameRenderer(this, [this] { renderPendingRows(); });
    connectItick();
}

QWebSocket *MainWindow::streamSocket(QWebSocket *&socket, const char *name,
                                     void (MainWindow::*onConnected)(),
                                     void (MainWindow::*onDisconnected)(),
                                     void (MainWindow::*onFrame)(const QString &))
{
    if (socket)
        return socket;
    socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setObjectName(QLatin1String(name));
    connect(socket, &QWebSocket::connected, this, onConnected);
    connect(socket, &QWebSocket::disconnected, this, onDisconnected);
    connect(socket, &QWebSocket::textMessageReceived, this, onFrame);
    return socket;
}

QWebSocket *MainWindow::tickerSocket()
{
    return streamSocket(m_tickerSocket, "tickerSocket", &MainWindow::onTickerConnected,
                        &MainWindow::onTickerDisconnected, &MainWindow::onTickerFrame);
}

QWebSocket *MainWindow::depthSocket()
{
    return streamSocket(m_depthSocket, "depthSocket", &MainWindow::onDepthConnected,
                        &MainWindow::onDepthDisconnected, &MainWindow::onDepthFrame);
}

QWebSocket *MainWindow::tradeSocket()
{
    return streamSocket(m_tradeSocket, "tradeSocket", &MainWindow::onTradeConnected,
                        &MainWindow::onTradeDisconnected, &MainWindow::onTradeFrame);
}

bool MainWindow::isBinanceStreamConnected() const
{
    return m_tickerSocket && m_tickerSocket->state() == QAbstractSocket::ConnectedState;
}

QStringList MainWindow::cryptoRowSymbols() const
{
    QStringList symbols;
    for (const QString &symbol : m_marketTable->symbols()) {
        if (assetClassOf(symbol) == AssetClass::Crypto)
            symbols << symbol;
    }
    return symbols;
}

void MainWindow::setCryptoRowsStatus(const QString &status)
{
    for (const QString &symbol : cryptoRowSymbols())
        setMarketRowStatus(symbol, status);
}

void MainWindow::refreshCryptoRowsOverRest()
{
    for (const QString &symbol : cryptoRowSymbols())
        refreshQuote(symbol);
}

void MainWindow::rebuildTickerStream()
{
    if (!m_marketDataStarted)
        return;
    QStringList symbols = cryptoRowSymbols();
    if (symbols.isEmpty()) {
        closeOnPurpose(m_tickerSocket);
        m_tickerStreamSymbols.clear();
        return;
    }
    if (m_marketTable->isSortingEnabled()) {
        // A sorted table moves rows with every quote; only a manual order is the watchlist's
        // order, so sorting alone never re-opens the stream: the pairs it already carries keep
        // their places and new ones follow.
        QStringList ordered;
        for (const QString &symbol : std::as_const(m_tickerStreamSymbols)) {
            if (symbols.contains(symbol))
                ordered << symbol;
        }
        for (const QString &symbol : std::as_const(symbols)) {
            if (!ordered.contains(symbol))
                ordered << symbol;
        }
        symbols = ordered;
    }
    const QUrl url = binanceTickerStreamUrl(symbols);
    // An unchanged watchlist never reconnects, nor interrupts a connection on its way up.
    const QAbstractSocket::SocketState state = tickerSocket()->state();
    if (tickerSocket()->requestUrl() == url &&
        (state == QAbstractSocket::ConnectedState || state == QAbstractSocket::ConnectingState ||
         state == QAbstractSocket::HostLookupState))
        return;
    closeOnPurpose(m_tickerSocket);
    setCryptoRowsStatus(QStringLiteral("ws connecting"));
    m_tickerStreamSymbols = symbols;
    tickerSocket()->open(url);
}

void MainWindow::onTickerConnected()
{
    statusBar()->showMessage(translated(QStringLiteral("Binance WebSocket connected."),
                                        QStringLiteral("WebSocket da Binance conectado.")));
    logEvent(translated(QStringLiteral("Binance ticker stream connected"),
                        QStringLiteral("Stream de ticker da Binance conectado")));
}

void MainWindow::onTickerDisconnected()
{
    setCryptoRowsStatus(QStringLiteral("ws disconnected"));
    // Until the next refresh cycle re-opens the stream, REST keeps the rows fresh.
    refreshCryptoRowsOverRest();
    logEvent(translated(QStringLiteral("Binance ticker stream disconnected"),
                        QStringLiteral("Stream de ticker da Binance desconectado")));
}

void MainWindow::onTickerFrame(const QString &text)
{
    const std::optional<TickerFrame> frame = readTickerFrame(text.toUtf8());
    if (!frame)
        return;
    recordLocalPrice(frame->symbol, frame->price);
    static const QString source = QStringLiteral("Binance WS");
    static const QString latency = QStringLiteral("stream");
    static const QString status = QStringLiteral("realtime");
    if (storeRowQuote(frame->symbol, frame->price, frame->changePercent, source, latency, status))
        queueStreamQuote(frame->symbol);
}

void MainWindow::recordLocalPrice(const QString &symbol, double price)
{
    if (!std::isfinite(price))
        return;
    QList<Candle> &bars = m_localPriceSeries[symbol];
    if (bars.isEmpty()) {
        bars.append({QDateTime::currentSecsSinceEpoch(), price, price, price, price, 0});
        return;
    }
    Candle &last = bars.last();
    last.close = price;
    last.high = std::max(last.high, price);
    last.low = std::min(last.low, price);
}

void MainWindow::switchBookSymbol()
{
    // Nothing streams before market data starts; the first switch happens then.
    if (!m_marketDataStarted)
        return;
    const QString symbol = m_marketTable->selectedSymbol();
    if (symbol.isEmpty() || assetClassOf(symbol) != AssetClass::UsEquity)
        m_itick->stop();
    if (symbol.isEmpty()) {
        m_bookSymbol.clear();
        closeOnPurpose(m_depthSocket);
        switchTapeSymbol(QString());
        m_depthPending = false;
        m_depthValid = false;
        resetBook(orderBookWord());
        return;
    }
    applySavedBookPreset();
    switchTapeSymbol(symbol);

    switch (assetClassOf(symbol)) {
    case AssetClass::UsEquity:
        m_bookSymbol = symbol;
        closeOnPurpose(m_depthSocket);
        startItick(symbol);
        return;
    case AssetClass::BrEquity:
        m_bookSymbol = symbol;
        closeOnPurpose(m_depthSocket);
        showB3Notice(symbol);
        return;
    case AssetClass::Forex:
        m_bookSymbol = symbol;
        closeOnPurpose(m_depthSocket);
        showQuoteStatsFallback(symbol);
        return;
    case AssetClass::Crypto:
        break;
    }
    if (m_bookSymbol == symbol && depthSocket()->state() == QAbstractSocket::ConnectedState)
        return;
    m_bookSymbol = symbol;
    resetBook(panelTitleText(orderBookWord(), symbol, connectingState()));
    m_depthPending = true;
    m_depthValid = false;
    requestDepthSnapshot(symbol);
    reopen(depthSocket(), binanceDepthStreamUrl(symbol));
}

void MainWindow::startItick(const QString &symbol)
{
    // Five-level US depth comes from the iTick stream when a key is set; without one, or once its
    // retries are spent, the session asks for the US Level 1 snapshot.
    m_itick->setKey(m_keys.apiKey(QStringLiteral("itick_api_key")));
    m_itick->start(symbol);
}

void MainWindow::onDepthConnected()
{
    if (m_bookSymbol.isEmpty() ||
        depthSocket()->requestUrl() != binanceDepthStreamUrl(m_bookSymbol))
        return;
    setBookTitle(panelTitleText(orderBookWord(), m_bookSymbol, liveState()));
    logEvent(translated(QStringLiteral("Order book stream connected: %1"),
                        QStringLiteral("Stream do livro de ofertas conectado: %1"))
                     .arg(m_bookSymbol));
}

void MainWindow::onDepthDisconnected()
{
    // The end of a stream of a symbol the book has left tells nothing about the current one.
    if (m_bookSymbol.isEmpty() ||
        depthSocket()->requestUrl() != binanceDepthStreamUrl(m_bookSymbol))
        return;
    setBookTitle(panelTitleText(orderBookWord(), m_bookSymbol, disconnectedState()));
    m_depthPending = false;
    if (!m_depthValid && m_bookSymbol == m_marketTable->selectedSymbol() &&
        assetClassOf(m_bookSymbol) == AssetClass::Crypto)
        showQuoteStatsFallback(m_bookSymbol);
    logEvent(translated(QStringLiteral("Order book stream disconnected"),
                        QStringLiteral("Stream do livro de ofertas desconectado")));
}

void MainWindow::onDepthFrame(const QString &text)
{
    const std::optional<DepthFrame> frame = readDepthFrame(text.toUtf8());
    // A frame of the previous symbol that arrives after a switch is dropped here.
    if (!frame || frame->symbol != m_bookSymbol)
        return;
    showDepth(frame->sides, false);
}

void MainWindow::switchTapeSymbol(const QString &symbol)
{
    if (symbol != m_tapeSymbol)
        m_tape->clearRows(); // prints of another symbol would read as this one's
    if (symbol.isEmpty()) {
        m_tapeSymbol.clear();
        m_tapeLive = false;
        closeOnPurpose(m_tradeSocket);
        setTapeTitle(panelTitleText(
                timeAndSalesWord(), QString(),
                translated(QStringLiteral("select ticker"), QStringLiteral("selecione um ativo"))));
        return;
    }
    if (assetClassOf(symbol) != AssetClass::Crypto) {
        m_tapeSymbol = symbol;
        m_tapeLive = false;
        closeOnPurpose(m_tradeSocket);
        const auto quote = m_lastQuotes.constFind(symbol);
        const double price = quote != m_lastQuotes.constEnd() ? quote->price : qQNaN();
        const double change = quote != m_lastQuotes.constEnd() ? quote->changePercent : qQNaN();
        setTapeTitle(panelTitleText(
                translated(QStringLiteral("QUOTE TAPE"), QStringLiteral("FITA DE COTAÇÕES")),
                symbol,
                translated(QStringLiteral("delayed fallback"),
                           QStringLiteral("alternativa com atraso"))));
        addQuoteTapeRow(symbol, price, change,
                        translated(QStringLiteral("Selected"), QStringLiteral("Selecionado")));
        return;
    }
    const QAbstractSocket::SocketState state = tradeSocket()->state();
    if (m_tapeSymbol == symbol &&
        (state == QAbstractSocket::ConnectedState || state == QAbstractSocket::ConnectingState))
        return;
    m_tapeSymbol = symbol;
    m_tapeLive = true;
    setTapeTitle(panelTitleText(timeAndSalesWord(), symbol, connectingState()));
    reopen(tradeSocket(), binanceTradeStreamUrl(symbol));
}

void MainWindow::onTradeConnected()
{
    if (m_tapeSymbol.isEmpty() ||
        tradeSocket()->requestUrl() != binanceTradeStreamUrl(m_tapeSymbol))
        return;
    setTapeTitle(panelTitleText(timeAndSalesWord(), m_tapeSymbol, liveState()));
    logEvent(translated(QStringLiteral("Trade tape stream connected: %1"),
                        QStringLiteral("Stream de negócios conectado: %1"))
                     .arg(m_tapeSymbol));
}

void MainWindow::onTradeDisconnected()
{
    if (!m_tapeLive || m_tapeSymbol.isEmpty() ||
        tradeSocket()->requestUrl() != binanceTradeStreamUrl(m_tapeSymbol))
        return;
    setTapeTitle(panelTitleText(timeAndSalesWord(), m_tapeSymbol, disconnectedState()));
}

void MainWindow::onTradeFrame(const QString &text)
{
    if (!m_tapeLive)
        return;
    const std::optional<TradeFrame> frame = readTradeFrame(text.toUtf8());
    if (!frame || frame->symbol != m_tapeSymbol)
        return;
    addTapeRow(tradeTapeRow(frame->price, frame->quantity, frame->timeMs, frame->buyerIsMaker));
}

void MainWindow::addTapeRow(const TapeRow &row)
{
    m_tape->addRow(row);
}

void MainWindow::addQuoteTapeRow(const QString &symbol, double price, double changePercent,
                                 const QString &note, const QStringList &extraNotes)
{
    if (symbol != m_tapeSymbol || m_tapeLive || !std::isfinite(price))
        return;
    setTapeTitle(panelTitleText(
            translated(QStringLiteral("QUOTE TAPE"), QStringLiteral("FITA DE COTAÇÕES")), symbol,
            translated(QStringLiteral("delayed fallback"),
                       QStringLiteral("alternativa com atraso"))));
    addTapeRow(quoteTapeRow(price, changePercent, note, extraNotes,
                            QTime::currentTime().toString(QStringLiteral("HH:mm:ss"))));
}

void MainWindow::setTapeTitle(const QString &title)
{
    m_tape->setTitle(title);
}

void MainWindow::requestCryptoUniverse()
{
    sendProviderGet(*m_network, binanceExchangeInfoRequest(), this,
                    [this](const ProviderReply &reply) { loadCryptoUniverse(reply); });
}

void MainWindow::loadCryptoUniverse(const ProviderReply &reply)
{
    // A failed request leaves the universe without the Binance pairs, silently.
    if (reply.error != QNetworkReply::NoError || reply.tooLarge)
        return;
    const CryptoUniverse universe = readCryptoUniverse(reply.body);
    m_cryptoBaseAssets = universe.baseAssets;
    mergeUniverseSymbols(universe.pairs);
    logEvent(translated(QStringLiteral("Crypto universe loaded: %1 Binance USDT pairs"),
                        QStringLiteral("Universo cripto carregado: %1 pares USDT da Binance"))
                     .arg(universe.pairs.size()));
}

void MainWindow::flushScreenFrame()
{
    m_rowRenderer->flush();
    m_tape->flushPendingDraw();
    m_book->flushPendingDraw();
}
