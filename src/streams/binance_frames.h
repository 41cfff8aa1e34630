#pragma once

#include "streams/order_book.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QtGlobal>

#include <optional>

// The Binance combined streams the terminal listens to, and the readers of their frames. Every
// frame is an envelope {"stream":"btcusdt@ticker","data":{...}}; real partial-depth frames carry no
// symbol in `data`, so the symbol comes from `data.s` when present and otherwise from the
// upper-cased pair part of the stream name. Readers never throw and never trust a type: a frame
// that cannot be used gives nothing (or an empty symbol), so the caller drops it.

// "btcusdt@ticker"
QString binanceTickerStreamName(const QString &symbol);
// The ticker stream over the given symbols, in the given order (names joined with "/"); an empty
// URL for an empty list. The caller passes only crypto symbols.
QUrl binanceTickerStreamUrl(const QStringList &symbols);
QUrl binanceDepthStreamUrl(const QString &symbol); // ".../stream?streams=btcusdt@depth20@100ms"
QUrl binanceTradeStreamUrl(const QString &symbol); // ".../stream?streams=btcusdt@trade"

// The symbol a frame belongs to: `data.s` when it is a non-empty string, else the part of `stream`
// before the first '@', upper-cased. Empty for anything that is not such an envelope.
QString binanceFrameSymbol(const QByteArray &frame);

struct TickerFrame
{
    QString symbol;
    double price = qQNaN();         // `c`
    double changePercent = qQNaN(); // `P`, already in percent; NaN when missing or unusable
};
// Nothing when the symbol is empty or the price is not a finite number above 0.
std::optional<TickerFrame> readTickerFrame(const QByteArray &frame);
// The same reader over a full parse of the frame; readTickerFrame gives what this gives.
std::optional<TickerFrame> readTickerFrameParsed(const QByteArray &frame);

struct TradeFrame
{
    QString symbol;
    double price = qQNaN();    // `p`
    double quantity = qQNaN(); // `q`; NaN when missing or unusable
    qint64 timeMs = 0;         // `T`, epoch milliseconds (0 when missing)
    bool buyerIsMaker = false; // `m`: true is an aggressive sell
};
// Nothing when the symbol is empty or the price is not a finite number above 0. Trades since
// mid-2024 carry no `b`/`a`; nothing here needs them.
std::optional<TradeFrame> readTradeFrame(const QByteArray &frame);
std::optional<TradeFrame> readTradeFrameParsed(const QByteArray &frame);

struct DepthFrame
{
    QString symbol;
    DepthSides sides;
};
// Asks from `asks`, or `a` when that is empty; bids from `bids`, or `b`. Nothing when the symbol is
// empty. At most kMaxDepthLevelsRead levels are read per side, so a huge frame costs no more than
// a normal one.
std::optional<DepthFrame> readDepthFrame(const QByteArray &frame);
std::optional<DepthFrame> readDepthFrameParsed(const QByteArray &frame);

// The REST snapshot (/api/v3/depth): only `asks` and `bids` are read. Empty sides for anything
// else.
DepthSides readDepthSnapshot(const QByteArray &body);

// The crypto universe from /api/v3/exchangeInfo: every `symbols` entry whose `status` is exactly
// "TRADING" and whose `quoteAsset` is exactly "USDT" gives its `symbol` (in reply order) and, when
// not empty, its `baseAsset` (duplicates removed, first kept).
struct CryptoUniverse
{
    QStringList pairs;
    QStringList baseAssets;
};
CryptoUniverse readCryptoUniverse(const QByteArray &body);
