#pragma once

#include "app/clock.h"
#include "loopback_http/http_server.h"
#include "simulated_market/binance_exchange.h"
#include "simulated_market/binance_streams.h"
#include "simulated_market/cooldown_ledger.h"
#include "simulated_market/instruments.h"
#include "simulated_market/itick_streams.h"
#include "simulated_market/market_faults.h"
#include "simulated_market/price_walk.h"

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

// The market-data providers the terminal calls, played on one loopback port: Yahoo's chart, batch
// quote (behind its cookie and crumb) and symbol search, BrAPI's quote, Binance's 24-hour ticker,
// exchange information, book and klines, and the quotes of Finnhub, Twelve Data, Financial Modeling
// Prep and Alpha Vantage (its quote and its top gainers and losers), and the news the terminal
// reads: the house feed (/TERMINAL/NEWS.json), NewsAPI's `everything` and Yahoo's RSS headlines,
// each in its real reply shape and priced from one seeded PriceWalk.
// Binance's combined streams play on a second port (see BinanceStreams), and iTick's stock stream
// beside them at /stock (see ItickStreams): WebSocket upgrades are not taken on the HTTP port.
// Point every QRL_ENDPOINT_* variable at baseUrl(), the Binance and iTick streams' at
// streamBaseUrl(), and the terminal runs without the internet.
//
// Three control paths sit beside them:
//   GET /__sim/health                                -> {"ok":true,"seed":42}
//   GET /__sim/fault?provider=finnhub&kind=429       -> switches a fault (kind=none clears it);
//                                                       without items it lists the active ones.
//   GET /__sim/stats                                 -> the requests per provider and those that
//                                                       came while the provider was to pause
//                                                       (see CooldownLedger).
class SimulatedMarket : public QObject
{
    Q_OBJECT

public:
    explicit SimulatedMarket(quint64 seed = 42, Clock clock = systemClock(),
                             QObject *parent = nullptr);

    // Listens on 127.0.0.1; port 0 lets the system pick one.
    bool listen(quint16 port = 0);
    quint16 port() const { return m_server.port(); }
    QString baseUrl() const;
    QString errorString() const { return m_server.errorString(); }
    // One more port answering as the first; its base URL, or an empty text when it cannot listen.
    // With a port per provider the terminal keeps a connection pool per provider, as it does with
    // the real hosts, and a provider that holds its connections (silent, slow) holds up no other.
    QString listenAlso(quint16 port = 0);

    // The streams, on a port of their own; port 0 lets the system pick one.
    bool listenStreams(quint16 port = 0) { return m_streams.listen(port); }
    quint16 streamPort() const { return m_streams.port(); }
    QString streamBaseUrl() const { return m_streams.baseUrl(); }
    QString streamErrorString() const { return m_streams.errorString(); }
    BinanceStreams &streams() { return m_streams; }
    ItickStreams &itickStreams() { return m_itick; }

    quint64 seed() const { return m_walk.seed(); }
    const PriceWalk &prices() const { return m_walk; }
    const InstrumentCatalogue &catalogue() const { return m_catalogue; }
    const BinanceExchange &binance() const { return m_binance; }

    // "finnhub=429", "binance_ws=close", "all=none"; an explanation when the setting cannot be
    // used, else empty.
    QString applyFault(const QString &setting);
    Fault faultOf(const QString &provider) const { return m_faults.faultOf(provider); }
    const CooldownLedger &ledger() const { return m_ledger; }

signals:
    // One line per request: "GET /api/v1/quote?symbol=AAPL&token=… -> 200", and per stream
    // connection opened or closed: "WS /stream?streams=btcusdt@ticker -> open".
    void served(const QString &line);

private:
    HttpResponse respond(const HttpRequest &request);
    void reportAnswers(HttpServer &server);
    HttpResponse control(const HttpRequest &request);

    PriceWalk m_walk;
    InstrumentCatalogue m_catalogue;
    BinanceExchange m_binance;
    FaultBoard m_faults;
    CooldownLedger m_ledger;
    HttpServer m_server;
    std::vector<std::unique_ptr<HttpServer>> m_moreServers;
    BinanceStreams m_streams;
    ItickStreams m_itick;
};
