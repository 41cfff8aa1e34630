#include "simulated_market/binance_payloads.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <algorithm>

namespace {

constexpr int kDefaultDepth = 100;
constexpr int kMaxDepth = 5000;

HttpResponse binanceError(int code, const char *message)
{
    return HttpResponse::json(
            OrderedJson().integer("code", code).text("msg", QLatin1String(message)).toJson(), 400);
}

HttpResponse invalidSymbol()
{
    return binanceError(-1121, "Invalid symbol.");
}

HttpResponse missingSymbol()
{
    return binanceError(-1102,
                        "Mandatory parameter 'symbol' was not sent, was empty/null, or malformed.");
}

QByteArray rateLimits()
{
    const auto limit = [](const char *type, const char *interval, int count, int value) {
        return OrderedJson()
                .text("rateLimitType", QLatin1String(type))
                .text("interval", QLatin1String(interval))
                .integer("intervalNum", count)
                .integer("limit", value)
                .toJson();
    };
    return json::array({limit("REQUEST_WEIGHT", "MINUTE", 1, 6000),
                        limit("ORDERS", "SECOND", 10, 100), limit("ORDERS", "DAY", 1, 200000),
                        limit("RAW_REQUESTS", "MINUTE", 5, 61000)});
}

} // namespace

// GET /api/v3/ticker/24hr?symbol=BTCUSDT; without a symbol, every listed pair in one array, the
// halted ones with zero prices among them.
HttpResponse binanceTickerReply(const MarketContext &market, const HttpRequest &request)
{
    const qint64 closeTime = market.now() * 1000;
    const QString symbol = request.queryItem(QStringLiteral("symbol"));
    if (symbol.isNull()) {
        QList<QByteArray> tickers;
        for (const BinancePair &pair : market.binance.pairs()) {
            tickers.append(binanceTickerJson(
                    pair, binanceTicker(market.walk, pair, market.step, closeTime)));
        }
        return HttpResponse::json(json::array(tickers));
    }
    if (symbol.trimmed().isEmpty())
        return missingSymbol();
    const BinancePair *pair = market.binance.find(symbol);
    if (!pair)
        return invalidSymbol();
    return HttpResponse::json(
            binanceTickerJson(*pair, binanceTicker(market.walk, *pair, market.step, closeTime)));
}

// GET /api/v3/ticker/price?symbol=BTCUSDT: the last price alone, as a string (the terminal's
// health check asks for it).
HttpResponse binancePriceReply(const MarketContext &market, const HttpRequest &request)
{
    const QString symbol = request.queryItem(QStringLiteral("symbol"));
    if (symbol.isNull() || symbol.trimmed().isEmpty())
        return missingSymbol();
    const BinancePair *pair = market.binance.find(symbol);
    if (!pair)
        return invalidSymbol();
    const BinanceTicker ticker =
            binanceTicker(market.walk, *pair, market.step, market.now() * 1000);
    return HttpResponse::json(OrderedJson()
                                      .text("symbol", pair->symbol)
                                      .fixed("price", ticker.lastPrice, 8)
                                      .toJson());
}

// GET /api/v3/exchangeInfo: every listed pair with its status, assets and filters.
HttpResponse binanceExchangeInfoReply(const MarketContext &market, const HttpRequest &)
{
    QList<QByteArray> symbols;
    symbols.reserve(market.binance.pairs().size());
    for (const BinancePair &pair : market.binance.pairs())
        symbols.append(binanceSymbolJson(pair));
    return HttpResponse::json(OrderedJson()
                                      .text("timezone", QStringLiteral("UTC"))
                                      .integer("serverTime", market.now() * 1000)
                                      .raw("rateLimits", rateLimits())
                                      .raw("exchangeFilters", "[]")
                                      .raw("symbols", json::array(symbols))
                                      .toJson());
}

// GET /api/v3/depth?symbol=BTCUSDT&limit=20: `limit` levels a side (100 unless asked, at most
// 5000); a halted pair has an empty book.
HttpResponse binanceDepthReply(const MarketContext &market, const HttpRequest &request)
{
    const QString symbol = request.queryItem(QStringLiteral("symbol"));
    if (symbol.trimmed().isEmpty())
        return missingSymbol();
    int limit = kDefaultDepth;
    if (const QString text = request.queryItem(QStringLiteral("limit")); !text.isNull()) {
        bool ok = false;
        limit = text.toInt(&ok);
        if (!ok || limit < 0) {
            return binanceError(-1100, "Illegal characters found in parameter 'limit'; legal "
                                       "range is '^[0-9]{1,20}$'.");
        }
        limit = std::clamp(limit, 1, kMaxDepth);
    }
    const BinancePair *pair = market.binance.find(symbol);
    if (!pair)
        return invalidSymbol();
    const qint64 updateId = binanceBookUpdateId(*pair, market.step);
    return HttpResponse::json(binanceBookJson(
            updateId, binanceBook(market.walk, *pair, market.step, limit, quint64(updateId))));
}
