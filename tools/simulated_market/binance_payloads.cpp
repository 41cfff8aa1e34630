#include "simulated_market/binance_payloads.h"

#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"

#include <QList>

#include <cmath>

namespace {

// Writes the numbers of one payload in the chosen form.
class Numbers
{
public:
    explicit Numbers(NumberForm form)
        : m_form(form)
    {}

    QByteArray price(double value)
    {
        switch (m_form) {
        case NumberForm::Strings:
            break;
        case NumberForm::Numbers:
            return json::number(value, 8);
        case NumberForm::NonFinite:
            return m_nonFinite++ % 2 == 0 ? R"("NaN")" : R"("1e999")";
        }
        return json::fixed(value, 8);
    }

    QByteArray quantity(double value) const
    {
        return m_form == NumberForm::Numbers ? json::number(value, 8) : json::fixed(value, 8);
    }

    QByteArray percent(double value) const
    {
        return m_form == NumberForm::Numbers ? json::number(value, 3) : json::fixed(value, 3);
    }

private:
    NumberForm m_form;
    int m_nonFinite = 0;
};

QByteArray levels(const QList<BookLevel> &side, qsizetype count, Numbers &numbers, bool oneElement)
{
    QList<QByteArray> written;
    written.reserve(count);
    for (qsizetype i = 0; i < count && i < side.size(); ++i) {
        const QByteArray price = numbers.price(side.at(i).price);
        written.append(oneElement ? json::array({price})
                                  : json::array({price, numbers.quantity(side.at(i).quantity)}));
    }
    return json::array(written);
}

QByteArray filters(const BinancePair &pair)
{
    const bool inBitcoin = pair.quoteAsset == QLatin1String("BTC");
    const QByteArray price = OrderedJson()
                                     .text("filterType", QStringLiteral("PRICE_FILTER"))
                                     .fixed("minPrice", pair.tickSize(), 8)
                                     .fixed("maxPrice", std::pow(10.0, 8 - pair.priceDecimals), 8)
                                     .fixed("tickSize", pair.tickSize(), 8)
                                     .toJson();
    const QByteArray lot = OrderedJson()
                                   .text("filterType", QStringLiteral("LOT_SIZE"))
                                   .fixed("minQty", pair.stepSize(), 8)
                                   .fixed("maxQty", 9.0 * std::pow(10.0, 8 - pair.lotDecimals), 8)
                                   .fixed("stepSize", pair.stepSize(), 8)
                                   .toJson();
    const QByteArray notional = OrderedJson()
                                        .text("filterType", QStringLiteral("NOTIONAL"))
                                        .fixed("minNotional", inBitcoin ? 0.0001 : 5.0, 8)
                                        .boolean("applyMinToMarket", true)
                                        .fixed("maxNotional", inBitcoin ? 900.0 : 9000000.0, 8)
                                        .boolean("applyMaxToMarket", false)
                                        .integer("avgPriceMins", 5)
                                        .toJson();
    return json::array({price, lot, notional});
}

} // namespace

QByteArray binanceTickerJson(const BinancePair &pair, const BinanceTicker &ticker)
{
    return OrderedJson()
            .text("symbol", pair.symbol)
            .fixed("priceChange", ticker.priceChange, 8)
            .fixed("priceChangePercent", ticker.priceChangePercent, 3)
            .fixed("weightedAvgPrice", ticker.weightedAvgPrice, 8)
            .fixed("prevClosePrice", ticker.prevClosePrice, 8)
            .fixed("lastPrice", ticker.lastPrice, 8)
            .fixed("lastQty", ticker.lastQty, 8)
            .fixed("bidPrice", ticker.bidPrice, 8)
            .fixed("bidQty", ticker.bidQty, 8)
            .fixed("askPrice", ticker.askPrice, 8)
            .fixed("askQty", ticker.askQty, 8)
            .fixed("openPrice", ticker.openPrice, 8)
            .fixed("highPrice", ticker.highPrice, 8)
            .fixed("lowPrice", ticker.lowPrice, 8)
            .fixed("volume", ticker.volume, 8)
            .fixed("quoteVolume", ticker.quoteVolume, 8)
            .integer("openTime", ticker.openTime)
            .integer("closeTime", ticker.closeTime)
            .integer("firstId", ticker.firstId)
            .integer("lastId", ticker.lastId)
            .integer("count", ticker.count)
            .toJson();
}

QByteArray binanceSymbolJson(const BinancePair &pair)
{
    static const QByteArray orderTypes =
            json::stringArray({"LIMIT", "LIMIT_MAKER", "MARKET", "STOP_LOSS", "STOP_LOSS_LIMIT",
                               "TAKE_PROFIT", "TAKE_PROFIT_LIMIT"});
    static const QByteArray preventionModes =
            json::stringArray({"EXPIRE_TAKER", "EXPIRE_MAKER", "EXPIRE_BOTH", "DECREMENT"});
    const bool margin = pair.trading && mix64(textHash(pair.symbol), 5) % 3 != 0;
    const QByteArray permissions = json::array(
            {json::stringArray(margin ? QStringList{"SPOT", "MARGIN"} : QStringList{"SPOT"})});
    return OrderedJson()
            .text("symbol", pair.symbol)
            .text("status", pair.status())
            .text("baseAsset", pair.baseAsset)
            .integer("baseAssetPrecision", 8)
            .text("quoteAsset", pair.quoteAsset)
            .integer("quotePrecision", 8)
            .integer("quoteAssetPrecision", 8)
            .integer("baseCommissionPrecision", 8)
            .integer("quoteCommissionPrecision", 8)
            .raw("orderTypes", orderTypes)
            .boolean("icebergAllowed", true)
            .boolean("ocoAllowed", true)
            .boolean("otoAllowed", true)
            .boolean("opoAllowed", true)
            .boolean("quoteOrderQtyMarketAllowed", true)
            .boolean("allowTrailingStop", true)
            .boolean("cancelReplaceAllowed", true)
            .boolean("amendAllowed", true)
            .boolean("pegInstructionsAllowed", true)
            .boolean("isSpotTradingAllowed", true)
            .boolean("isMarginTradingAllowed", margin)
            .raw("filters", filters(pair))
            .raw("permissions", "[]")
            .raw("permissionSets", permissions)
            .text("defaultSelfTradePreventionMode", QStringLiteral("EXPIRE_MAKER"))
            .raw("allowedSelfTradePreventionModes", preventionModes)
            .toJson();
}

QByteArray binanceBookJson(qint64 lastUpdateId, const BookSides &book, NumberForm form,
                           int askLevels, bool oneElementLevels)
{
    Numbers numbers(form);
    const qsizetype asks = askLevels < 0 ? book.asks.size() : askLevels;
    return OrderedJson()
            .integer("lastUpdateId", lastUpdateId)
            .raw("bids", levels(book.bids, book.bids.size(), numbers, oneElementLevels))
            .raw("asks", levels(book.asks, asks, numbers, oneElementLevels))
            .toJson();
}

QByteArray binanceTickerEventJson(const BinancePair &pair, const BinanceTicker &ticker,
                                  qint64 eventMs, NumberForm form)
{
    Numbers numbers(form);
    return OrderedJson()
            .text("e", QStringLiteral("24hrTicker"))
            .integer("E", eventMs)
            .text("s", pair.symbol)
            .raw("p", numbers.price(ticker.priceChange))
            .raw("P", numbers.percent(ticker.priceChangePercent))
            .raw("w", numbers.price(ticker.weightedAvgPrice))
            .raw("x", numbers.price(ticker.prevClosePrice))
            .raw("c", numbers.price(ticker.lastPrice))
            .raw("Q", numbers.quantity(ticker.lastQty))
            .raw("b", numbers.price(ticker.bidPrice))
            .raw("B", numbers.quantity(ticker.bidQty))
            .raw("a", numbers.price(ticker.askPrice))
            .raw("A", numbers.quantity(ticker.askQty))
            .raw("o", numbers.price(ticker.openPrice))
            .raw("h", numbers.price(ticker.highPrice))
            .raw("l", numbers.price(ticker.lowPrice))
            .raw("v", numbers.quantity(ticker.volume))
            .raw("q", numbers.quantity(ticker.quoteVolume))
            .integer("O", ticker.openTime)
            .integer("C", ticker.closeTime)
            .integer("F", ticker.firstId)
            .integer("L", ticker.lastId)
            .integer("n", ticker.count)
            .toJson();
}

QByteArray binanceTradeEventJson(const BinancePair &pair, const BinanceTrade &trade, qint64 eventMs,
                                 NumberForm form)
{
    Numbers numbers(form);
    return OrderedJson()
            .text("e", QStringLiteral("trade"))
            .integer("E", eventMs)
            .text("s", pair.symbol)
            .integer("t", trade.id)
            .raw("p", numbers.price(trade.price))
            .raw("q", numbers.quantity(trade.quantity))
            .integer("T", trade.timeMs)
            .boolean("m", trade.buyerIsMaker)
            .boolean("M", true)
            .toJson();
}

QByteArray binanceEnvelope(const QString &stream, const QByteArray &data)
{
    return OrderedJson().text("stream", stream).raw("data", data).toJson();
}
