#pragma once

#include "simulated_market/binance_exchange.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Binance's JSON, written in the exchange's key order: prices and quantities as strings with eight
// decimals, ids and times as numbers. A broken feed can be asked to write its numbers otherwise.

enum class NumberForm {
    Strings,   // "91234.56000000", as the exchange writes them
    Numbers,   // 91234.56: numbers where strings belong
    NonFinite, // "NaN" and "1e999" in turn for every price; quantities stay as usual
};

// The REST 24-hour ticker of one pair: {"symbol":"BTCUSDT","priceChange":...,"count":N}.
QByteArray binanceTickerJson(const BinancePair &pair, const BinanceTicker &ticker);

// One entry of exchangeInfo's `symbols`.
QByteArray binanceSymbolJson(const BinancePair &pair);

// {"lastUpdateId":N,"bids":[["p","q"],...],"asks":[...]}: the REST snapshot and the partial-depth
// stream share it. Only `askLevels` asks are written when it is not negative; `oneElementLevels`
// leaves the quantity out of every level.
QByteArray binanceBookJson(qint64 lastUpdateId, const BookSides &book,
                           NumberForm form = NumberForm::Strings, int askLevels = -1,
                           bool oneElementLevels = false);

// The 24hrTicker event of the `@ticker` stream.
QByteArray binanceTickerEventJson(const BinancePair &pair, const BinanceTicker &ticker,
                                  qint64 eventMs, NumberForm form = NumberForm::Strings);

// The event of the `@trade` stream: e, E, s, t, p, q, T, m, M; no `b`/`a` since mid-2024.
QByteArray binanceTradeEventJson(const BinancePair &pair, const BinanceTrade &trade, qint64 eventMs,
                                 NumberForm form = NumberForm::Strings);

// The combined stream's envelope: {"stream":"btcusdt@ticker","data":...}.
QByteArray binanceEnvelope(const QString &stream, const QByteArray &data);
