#pragma once

#include "app/clock.h"
#include "simulated_market/binance_exchange.h"
#include "simulated_market/binance_payloads.h"
#include "simulated_market/market_faults.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWebSocketProtocol>
#include <QWebSocketServer>

#include <functional>
#include <optional>

class QWebSocket;

// Binance's combined streams on 127.0.0.1: ws://127.0.0.1:<port>/stream?streams=a/b/c, every frame
// in the envelope {"stream":"<name>","data":{...}}. The names, lower-case as on the exchange:
//   <pair>@ticker                 the 24hrTicker event, once a second
//   <pair>@depth<5|10|20>@100ms   the partial book, ten times a second (once without "@100ms"),
//                                 with no symbol inside: only the stream name carries it
//   <pair>@trade                  every trade as it happens, in bursts of up to a few hundred a
//   second
// SUBSCRIBE, UNSUBSCRIBE and LIST_SUBSCRIPTIONS messages are answered as the exchange answers them.
// A name the exchange would not serve (an unlisted or halted pair, an unknown kind) is kept but
// sends nothing; any other path than /stream has its connection closed.
//
// Everything runs on one timer on the owner's thread, a tick a tenth of a second. Prices come from
// the market's PriceWalk, frame times from its clock; each pair's trade ids and book update ids
// rise from tick to tick, shared by every connection that watches the pair.
class BinanceStreams : public QObject
{
    Q_OBJECT

public:
    using FaultSource = std::function<Fault()>;

    // `fault` gives the streams' fault at the moment; the walk and exchange must outlive this.
    BinanceStreams(const PriceWalk &walk, const BinanceExchange &exchange, Clock clock,
                   FaultSource fault, QObject *parent = nullptr);
    ~BinanceStreams() override; // drops every open connection

    // Listens on 127.0.0.1; port 0 lets the system pick one.
    bool listen(quint16 port = 0);
    quint16 port() const { return m_server.serverPort(); }
    QString baseUrl() const; // "ws://127.0.0.1:<port>"
    QString errorString() const { return m_server.errorString(); }
    int openConnections() const { return int(m_connections.size()); }

    // One tick lasts 100 ms as on the exchange; tests shorten it. Every pace of the streams is
    // counted in ticks, so a shorter tick plays the market faster.
    void setTickInterval(int ms);
    int tickInterval() const { return m_timer.interval(); }

    // Takes a new fault at once rather than at the next tick: "close" drops every connection.
    void applyFault();

    // Another stream served on this port: each new connection is offered to `take` first, and one
    // it takes is no longer this object's concern.
    void setOtherStreams(std::function<bool(QWebSocket *)> take)
    {
        m_otherStreams = std::move(take);
    }

    static constexpr QWebSocketProtocol::CloseCode kFaultCloseCode =
            QWebSocketProtocol::CloseCodeGoingAway;

signals:
    // One line per connection opened or closed: "WS /stream?streams=btcusdt@ticker -> open".
    void served(const QString &line);

private:
    enum class Kind {
        Ticker,
        Depth,
        Trade,
    };

    struct Subscription
    {
        QString name;
        const BinancePair *pair = nullptr; // nullptr: nothing is sent for it
        Kind kind = Kind::Ticker;
        int levels = 0;      // depth only
        int everyTicks = 1;  // how often it sends
        quint64 garbage = 0; // broken frames sent so far, to take turns among the ways
    };

    struct Connection
    {
        QString label; // the path and query, for the log
        QList<Subscription> streams;
        bool closing = false;
    };

    // What one tick has for one pair; the book and ticker are worked out when first asked for.
    struct PairTick
    {
        const BinancePair *pair = nullptr;
        QList<BinanceTrade> trades;
        qint64 updateId = 0;
        quint64 bookVersion = 0;
        qint64 lastTradeId = 0;
        std::optional<BookSides> book;
        std::optional<BinanceTicker> ticker;
    };

    struct PairState
    {
        qint64 lastTradeId = 0;
        qint64 updateId = 0;
        quint64 bookVersion = 0;
    };

    Subscription subscription(const QString &name) const;
    void acceptConnections();
    void answer(QWebSocket *socket, const QString &message);
    void forget(QWebSocket *socket);
    void close(QWebSocket *socket, QWebSocketProtocol::CloseCode code, const QString &reason);
    void closeEvery(QWebSocketProtocol::CloseCode code, const QString &reason);
    void tick();
    QList<QByteArray> frames(Subscription &stream, PairTick &pair, FaultKind fault);
    QList<QByteArray> payloads(const Subscription &stream, PairTick &pair, NumberForm form,
                               int askLevels, bool oneElementLevels);

    const PriceWalk &m_walk;
    const BinanceExchange &m_exchange;
    Clock m_clock;
    FaultSource m_fault;
    std::function<bool(QWebSocket *)> m_otherStreams;
    QWebSocketServer m_server;
    QTimer m_timer;
    QHash<QWebSocket *, Connection> m_connections;
    QList<QWebSocket *> m_order; // the open connections in the order they came
    QHash<QString, PairState> m_pairs;
    quint64 m_tick = 0;
    qint64 m_lastTickMs = 0;
};
