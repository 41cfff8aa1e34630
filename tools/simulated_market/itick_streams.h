#pragma once

#include "app/clock.h"
#include "simulated_market/market_faults.h"
#include "simulated_market/price_walk.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWebSocketProtocol>

#include <functional>

class QWebSocket;

// iTick's stock stream at /stock, served beside Binance's streams on their port. The connection
// is greeted with {"code":1,"msg":"Connected Successfully"}; a `token` header authenticates at
// once and, as on the service, the auth reply echoes the token. Messages answered:
//   {"ac":"auth","token"|"params":"<key>"}              -> the auth reply (code 0 and a close for
//                                                          an empty key)
//   {"ac":"subscribe","params":"AAPL$US","types":"depth,quote"} -> the subscribe reply
//   {"ac":"ping","params":"<ms>"}                       ->
//   {"resAc":"pong","data":{"params":"<ms>"}}
// Each second every subscribed US symbol gets a five-level depth frame and a quote frame in the
// service's shape ({"code":1,"data":{...,"type":"depth"}}), priced from the market's PriceWalk.
// Symbols the market does not list as US shares or funds are kept but send nothing.
class ItickStreams : public QObject
{
    Q_OBJECT

public:
    using FaultSource = std::function<Fault()>;

    ItickStreams(const PriceWalk &walk, Clock clock, FaultSource fault, QObject *parent = nullptr);
    ~ItickStreams() override;

    static QString path() { return QStringLiteral("/stock"); }
    // Takes a new connection whose path is path(); false leaves it to the caller.
    bool accept(QWebSocket *socket);
    int openConnections() const { return int(m_connections.size()); }

    // A second by default; tests shorten it.
    void setFrameInterval(int ms) { m_timer.setInterval(qMax(1, ms)); }
    // "close" drops every connection at once.
    void applyFault();

signals:
    void served(const QString &line);

private:
    struct Connection
    {
        QStringList symbols;
        bool authenticated = false;
        quint64 garbage = 0;
    };

    void answer(QWebSocket *socket, const QString &message);
    void authenticate(QWebSocket *socket, const QString &token);
    void forget(QWebSocket *socket);
    void closeEvery();
    void tick();
    QList<QByteArray> frames(const QString &symbol, int levels) const;

    const PriceWalk &m_walk;
    Clock m_clock;
    FaultSource m_fault;
    QTimer m_timer;
    QHash<QWebSocket *, Connection> m_connections;
};
