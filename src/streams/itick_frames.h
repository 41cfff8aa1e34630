#pragma once

#include "streams/order_book.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <QtGlobal>

// The iTick stock stream: the messages the terminal sends and the reader of what comes back. The
// documented frames carry `type` at the top level beside `data`; the service itself sends
// {"code":1,"data":{...,"type":"depth"}}, so both are read. Replies to actions carry `resAc`, and
// `code` 1 means success. The auth reply echoes the caller's token, so a frame is never written to
// a log as received: only the fields read here leave the reader, and no token is among them.

// The stream on the configured iTick base: "<base>/stock".
QUrl itickStreamUrl();

// "AAPL" -> "AAPL$US": the symbol as selected, upper-cased, with iTick's US region.
QString itickSymbolCode(const QString &symbol);

// Compact JSON text messages.
QByteArray itickAuthMessage(const QString &key);         // {"ac":"auth","token":key}
QByteArray itickSubscribeMessage(const QString &symbol); // depth and quote of one US symbol
QByteArray itickPingMessage(qint64 nowMs);               // {"ac":"ping","params":"<ms>"}

enum class ItickFrameKind {
    Unreadable,     // not a JSON object
    Connected,      // the greeting sent when the socket opens
    AuthReply,      // `resAc` "auth"
    SubscribeReply, // `resAc` "subscribe"
    Pong,           // `resAc` "pong"
    Depth,
    Quote,
    Error, // `code` other than 1 with a message and nothing else to act on
    Other, // readable but of no use here (klines, unknown actions)
};

inline constexpr int kItickLevels = 5; // levels kept per side

struct ItickQuote
{
    double last = qQNaN(); // `ld`
    double open = qQNaN();
    double high = qQNaN();
    double low = qQNaN();
    double volume = qQNaN();
    double turnover = qQNaN(); // `tu`
    qint64 timeMs = 0;         // `t`, epoch milliseconds; 0 when missing
};

struct ItickFrame
{
    ItickFrameKind kind = ItickFrameKind::Unreadable;
    bool ok = false;  // replies: `code` is 1
    int code = -1;    // -1 when absent or not a number
    QString message;  // the service's `msg`, for replies and errors
    QString symbol;   // depth and quote: `data.s` as the terminal spells it ("AAPL.US" -> "AAPL")
    Level2Book book;  // depth
    ItickQuote quote; // quote
};

// Never throws. Depth levels are read in order: position from `po` (else the count so far + 1),
// price `p`, size `v`; numbers sent as decimal strings are taken, a level whose price or size
// cannot be read or whose price is not above 0 is dropped, and a side stops at kItickLevels kept
// levels or kMaxDepthLevelsRead entries looked at. A depth or quote frame without a symbol is
// Other.
ItickFrame readItickFrame(const QByteArray &frame);

// The book title of a full ladder: "US: Level 2 (5 levels)  AAPL".
QString itickLevel2Title(const QString &symbol);
