#pragma once

#include "simulated_market/instruments.h"
#include "simulated_market/price_walk.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QtGlobal>

// The simulated Binance spot exchange: which pairs it lists and their prices, books and trades,
// all from the market's one PriceWalk. The replies and the streams only write these numbers down.

struct BinancePair
{
    QString symbol;     // "BTCUSDT", "ETHBTC"
    QString baseAsset;  // "BTC"
    QString quoteAsset; // "USDT", "BTC" or "FDUSD"
    bool trading = true;
    int priceDecimals = 2; // of the tick size
    int lotDecimals = 5;   // of the step size

    QString status() const { return trading ? QStringLiteral("TRADING") : QStringLiteral("BREAK"); }
    double tickSize() const;
    double stepSize() const;
};

// A few hundred USDT pairs (every crypto instrument of the catalogue among them, a few halted, and
// leveraged tokens such as ETHUPUSDT and XRPBEARUSDT, some halted, some trading), and some quoted
// in BTC and FDUSD. Which made-up coins are listed, and which pairs are halted, follows
// the seed.
class BinanceExchange
{
public:
    BinanceExchange(quint64 seed, const InstrumentCatalogue &catalogue);

    const QList<BinancePair> &pairs() const { return m_pairs; }
    // Case-insensitive; nullptr for a pair the exchange does not list.
    const BinancePair *find(const QString &symbol) const;

private:
    void add(const BinancePair &pair);

    QList<BinancePair> m_pairs;
    QHash<QString, qsizetype> m_index;
};

// The pair's price at a step, unrounded: the walk's for a USDT pair, the USDT prices' ratio for a
// BTC one; FDUSD trades a hair off USDT.
double binancePrice(const PriceWalk &walk, const BinancePair &pair, qint64 step);
// What one coin of the pair's base is worth in dollars, for sizing orders and trades.
double binanceDollarsPerCoin(const PriceWalk &walk, const BinancePair &pair, qint64 step);

// The numbers of the 24-hour ticker, on the pair's tick and lot. A halted pair has every price and
// quantity zero, no trades (ids -1) and only its last close left, as the real exchange reports it.
struct BinanceTicker
{
    double priceChange = 0.0;
    double priceChangePercent = 0.0;
    double weightedAvgPrice = 0.0;
    double prevClosePrice = 0.0;
    double lastPrice = 0.0;
    double lastQty = 0.0;
    double bidPrice = 0.0;
    double bidQty = 0.0;
    double askPrice = 0.0;
    double askQty = 0.0;
    double openPrice = 0.0;
    double highPrice = 0.0;
    double lowPrice = 0.0;
    double volume = 0.0;
    double quoteVolume = 0.0;
    qint64 openTime = 0;
    qint64 closeTime = 0;
    qint64 firstId = -1;
    qint64 lastId = -1;
    qint64 count = 0;
};

// The ticker at a step; its window closes at `closeTimeMs`. `lastTradeId` > 0 names the last trade
// (the streams count theirs), else one is derived from the step.
BinanceTicker binanceTicker(const PriceWalk &walk, const BinancePair &pair, qint64 step,
                            qint64 closeTimeMs, qint64 lastTradeId = 0);
// The id of the pair's last trade as the REST replies count it at a step.
qint64 binanceLastTradeId(const BinancePair &pair, qint64 step);
// The order book's update id as the REST snapshot reports it at a step.
qint64 binanceBookUpdateId(const BinancePair &pair, qint64 step);

struct BookLevel
{
    double price = 0.0;
    double quantity = 0.0;
};

struct BookSides
{
    QList<BookLevel> bids; // best first
    QList<BookLevel> asks;
};

// `levels` per side around the price at `step`: the best ask at the last price, the best bid a tick
// under it, further levels mostly a tick apart. `version` moves the quantities: from one version to
// the next a few levels change, the best ones most often. A halted pair has an empty book.
BookSides binanceBook(const PriceWalk &walk, const BinancePair &pair, qint64 step, int levels,
                      quint64 version);

struct BinanceTrade
{
    qint64 id = 0;
    double price = 0.0;
    double quantity = 0.0;
    qint64 timeMs = 0;
    bool buyerIsMaker = false; // an aggressive sell, at the bid
};

// How many trades per second the pair sees around `tick` (a tenth of a second each): from a few in
// quiet spells to several hundred in bursts.
double binanceTradeRate(const BinancePair &pair, quint64 tick);
// The trades of one tenth of a second, `tick`, spread over [fromMs, toMs], ids from `firstId` up.
QList<BinanceTrade> binanceTrades(const PriceWalk &walk, const BinancePair &pair, qint64 step,
                                  quint64 tick, qint64 firstId, qint64 fromMs, qint64 toMs);
