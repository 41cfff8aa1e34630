#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kDefaultKlines = 500;
constexpr int kMaxKlines = 1000;
constexpr qint64 kDay = 86400;
// 1970-01-05 was the first Monday after the epoch: weekly klines open on Mondays.
constexpr qint64 kFirstMonday = 4 * kDay;

// Binance's kline intervals and their lengths in seconds; 0 marks the calendar month.
struct KlineInterval
{
    const char *name;
    qint64 seconds;
};

constexpr KlineInterval kIntervals[] = {
        {"1s", 1},        {"1m", 60},       {"3m", 180},      {"5m", 300},
        {"15m", 900},     {"30m", 1800},    {"1h", 3600},     {"2h", 7200},
        {"4h", 4 * 3600}, {"6h", 6 * 3600}, {"8h", 8 * 3600}, {"12h", 12 * 3600},
        {"1d", kDay},     {"3d", 3 * kDay}, {"1w", 7 * kDay}, {"1M", 0},
};

const KlineInterval *klineInterval(const QString &name)
{
    // Case matters: "1m" is a minute, "1M" a month.
    for (const KlineInterval &interval : kIntervals) {
        if (name == QLatin1String(interval.name))
            return &interval;
    }
    return nullptr;
}

HttpResponse binanceError(int code, const QString &message)
{
    return HttpResponse::json(OrderedJson().integer("code", code).text("msg", message).toJson(),
                              400);
}

qint64 monthStart(qint64 seconds, int monthsBack)
{
    const QDate day = QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).date();
    const QDate month = QDate(day.year(), day.month(), 1).addMonths(-monthsBack);
    return QDateTime(month, QTime(0, 0), Qt::UTC).toSecsSinceEpoch();
}

// The opening times (epoch seconds) of `count` klines ending with the one in progress at `now`,
// and the opening of the kline after them.
QList<qint64> klineOpenings(const KlineInterval &interval, qint64 now, int count)
{
    QList<qint64> openings;
    openings.reserve(count + 1);
    if (interval.seconds == 0) {
        for (int back = count - 1; back >= -1; --back)
            openings.append(monthStart(now, back));
        return openings;
    }
    const qint64 anchor = interval.seconds == 7 * kDay ? kFirstMonday : 0;
    const qint64 current = anchor + floorDiv(now - anchor, interval.seconds) * interval.seconds;
    for (int back = count - 1; back >= -1; --back)
        openings.append(current - back * interval.seconds);
    return openings;
}

// The pair's bar between two steps, from the same prices as its ticker and book. A USDT pair is
// the walk's own bar; the others follow their USDT legs, with a share of the base coin's volume.
PriceBar pairBar(const PriceWalk &walk, const BinancePair &pair, qint64 from, qint64 to)
{
    if (pair.quoteAsset == QLatin1String("USDT"))
        return walk.bar(pair.symbol, from, to);
    PriceBar bar;
    bar.open = binancePrice(walk, pair, from);
    bar.close = binancePrice(walk, pair, to);
    bar.high = std::max(bar.open, bar.close);
    bar.low = std::min(bar.open, bar.close);
    if (to <= from)
        return bar;
    for (int quarter = 1; quarter < 4; ++quarter) {
        const double price = binancePrice(walk, pair, from + (to - from) * quarter / 4);
        bar.high = std::max(bar.high, price);
        bar.low = std::min(bar.low, price);
    }
    const double share = pair.quoteAsset == QLatin1String("FDUSD") ? 0.2 : 0.05;
    bar.volume = walk.bar(pair.baseAsset + QStringLiteral("USDT"), from, to).volume * share;
    return bar;
}

QByteArray klineJson(const BinancePair &pair, const PriceBar &rawBar, double dollarsPerCoin,
                     qint64 openMs, qint64 closeMs)
{
    const int decimals = pair.priceDecimals;
    const double open = roundTo(rawBar.open, decimals);
    const double high = roundTo(rawBar.high, decimals);
    const double low = roundTo(rawBar.low, decimals);
    const double close = roundTo(rawBar.close, decimals);
    const double volume = roundTo(rawBar.volume, pair.lotDecimals);
    const double average = (open + high + low + close) / 4.0;
    const quint64 hash = mix64(textHash(pair.symbol), quint64(openMs));
    // Buyers take a little under or over half of it; a trade is some five hundred dollars' worth.
    const double takerBase = roundTo(volume * (0.4 + 0.2 * unitInterval(hash)), pair.lotDecimals);
    const qint64 trades = volume > 0.0 ? 1 + qint64(volume * dollarsPerCoin / 500.0) : 0;
    return json::array({json::integer(openMs), json::fixed(open, 8), json::fixed(high, 8),
                        json::fixed(low, 8), json::fixed(close, 8), json::fixed(volume, 8),
                        json::integer(closeMs), json::fixed(volume * average, 8),
                        json::integer(trades), json::fixed(takerBase, 8),
                        json::fixed(takerBase * average, 8), json::string(QStringLiteral("0"))});
}

} // namespace

// GET /api/v3/klines?symbol=BTCUSDT&interval=1h&limit=180: `limit` klines (500 unless asked, at
// most 1000), oldest first, the last one still open; a halted pair has none.
HttpResponse binanceKlinesReply(const MarketContext &market, const HttpRequest &request)
{
    const QString symbol = request.queryItem(QStringLiteral("symbol"));
    if (symbol.trimmed().isEmpty()) {
        return binanceError(-1102, QStringLiteral("Mandatory parameter 'symbol' was not sent, was "
                                                  "empty/null, or malformed."));
    }
    const QString intervalName = request.queryItem(QStringLiteral("interval"));
    if (intervalName.isEmpty()) {
        return binanceError(-1102, QStringLiteral("Mandatory parameter 'interval' was not sent, "
                                                  "was empty/null, or malformed."));
    }
    int limit = kDefaultKlines;
    if (const QString text = request.queryItem(QStringLiteral("limit")); !text.isNull()) {
        bool ok = false;
        limit = text.toInt(&ok);
        if (!ok || limit < 0) {
            return binanceError(-1100, QStringLiteral("Illegal characters found in parameter "
                                                      "'limit'; legal range is '^[0-9]{1,20}$'."));
        }
        limit = std::clamp(limit, 1, kMaxKlines);
    }
    const BinancePair *pair = market.binance.find(symbol);
    if (!pair)
        return binanceError(-1121, QStringLiteral("Invalid symbol."));
    const KlineInterval *interval = klineInterval(intervalName);
    if (!interval)
        return binanceError(-1120, QStringLiteral("Invalid interval."));
    if (!pair->trading)
        return HttpResponse::json("[]");

    const QList<qint64> openings = klineOpenings(*interval, market.now(), limit);
    QList<QByteArray> klines;
    klines.reserve(limit);
    for (qsizetype i = 0; i + 1 < openings.size(); ++i) {
        const qint64 from = market.walk.stepOf(openings.at(i));
        const qint64 to = std::min(market.walk.stepOf(openings.at(i + 1)), market.step);
        klines.append(klineJson(*pair, pairBar(market.walk, *pair, from, std::max(from, to)),
                                binanceDollarsPerCoin(market.walk, *pair, from),
                                openings.at(i) * 1000, openings.at(i + 1) * 1000 - 1));
    }
    return HttpResponse::json(json::array(klines));
}
