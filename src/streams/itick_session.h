#pragma once

#include "app/clock.h"
#include "streams/itick_frames.h"
#include "streams/order_book.h"

#include <QObject>
#include <QPointer>
#include <QString>

class QTimer;
class QWebSocket;

// The iTick Level 2 stream of one US symbol at a time: opens <base>/stock with the key in the
// `token` header, sends auth then subscribe once connected, pings every 30 s and expects a depth
// frame within 7 s of each connect. A trigger (depth time-out, disconnect, socket error, a frame
// with fewer than five levels on a side) schedules a reconnect after 1000, 2000 and 4000 ms; the
// next one gives up and asks for the US Level 1 fallback. The first full ladder makes the stream
// valid: from then on drops no longer retry and the last ladder stays.
//
// Each attempt gets a socket of its own and a trigger abandons it, so the close of an old socket
// or a second report of the same failure (an error followed by its disconnect) counts once.
// The owner decides what the symbol is and calls start() on every switch to a US equity and stop()
// on a switch away; nothing here shows anything, it only reports through the signals.
// The timers a session drives: the owner's (so its settings and tests can see them) or, when null,
// ones of the session's own. Their intervals are set by the session.
struct ItickTimers
{
    QTimer *ping = nullptr;         // repeating, 30000 ms
    QTimer *depthTimeout = nullptr; // single-shot, 7000 ms
    QTimer *retry = nullptr;        // single-shot, interval set per retry
};

class ItickSession : public QObject
{
    Q_OBJECT

public:
    static constexpr int kMaxRetries = 3;

    explicit ItickSession(ItickTimers timers = {}, Clock clock = systemClock(),
                          QObject *parent = nullptr);
    ~ItickSession() override;

    // The user's iTick key; takes effect at the next start().
    void setKey(const QString &key) { m_key = key; }
    QString key() const { return m_key; }

    // Start iTick for a selected US symbol: resets the retries and connects, or asks for the Level
    // 1 fallback at once when no key is set.
    void start(const QString &symbol);
    // Leaves the symbol: closes the socket and stops every timer without any further signal.
    void stop();

    QString symbol() const { return m_symbol; }
    int retryCount() const { return m_retries; }
    bool isDepthValid() const { return m_depthValid; }
    bool isDepthPending() const { return m_depthPending; }
    bool isConnected() const;

    // The timer handlers, public so an owner with timers of its own can route them here.
    void pingDue();
    void depthTimedOut();
    void retryDue();

signals:
    // A connection attempt begins: clear the book and reset the panel with this state
    // ("iTick connecting", "iTick connecting #2").
    void connecting(const QString &symbol, const QString &state);
    // The panel's state text changes ("iTick Level 2", "iTick quote/depth", "iTick retry in 1000
    // ms").
    void status(const QString &symbol, const QString &state);
    // A full ladder, five levels a side: show it under itickLevel2Title(symbol).
    void level2Book(const QString &symbol, const Level2Book &book);
    void quote(const QString &symbol, const ItickQuote &quote);
    // Give up on Level 2 and show the US Level 1 snapshot; the reason is in the current language.
    void fallbackToLevel1(const QString &symbol, const QString &reason);
    // A line for the event console ("iTick retry 1/3 scheduled for AAPL").
    void event(const QString &text);

private:
    void connectStream();
    void dropSocket();
    void onConnected();
    void onText(const QString &text);
    void retry(const QString &reason);

    QTimer *m_pingTimer;
    QTimer *m_depthTimer;
    QTimer *m_retryTimer;
    Clock m_clock;
    QPointer<QWebSocket> m_socket;
    QString m_key;
    QString m_symbol;
    int m_retries = 0;
    bool m_depthPending = false;
    bool m_depthValid = false;
};
