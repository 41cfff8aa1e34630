#include "stream_frames.h"

#include <cmath>

namespace {

constexpr qint64 kStartMs = 1789499759014;

QString decimal(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
}

// A deterministic walk: the same symbol, round and step always give the same price.
double priceOf(int symbolIndex, int round, int step = 0)
{
    const double base = 10.0 + 37.0 * symbolIndex;
    return base * (1.0 + 0.002 * std::sin(0.7 * round + 0.13 * step + symbolIndex));
}

} // namespace

QStringList benchPairs(int count)
{
    QStringList pairs{QStringLiteral("BTCUSDT"), QStringLiteral("ETHUSDT")};
    for (int i = 0; pairs.size() < count; ++i) {
        QString name;
        for (int n = i; name.size() < 4; n /= 26)
            name.prepend(QChar(u'A' + n % 26));
        pairs << name + QStringLiteral("USDT");
    }
    return pairs;
}

QByteArray watchlistJson(const QStringList &symbols)
{
    QStringList rows;
    for (const QString &symbol : symbols)
        rows << QStringLiteral(R"({"symbol":"%1"})").arg(symbol);
    return QStringLiteral(R"({"symbols":[%1]})").arg(rows.join(QLatin1Char(','))).toUtf8();
}

QString tickerFrame(const QStringList &symbols, int i, int round)
{
    const double close = priceOf(i, round);
    const double open = priceOf(i, 0) * 0.99;
    const double change = close - open;
    const qint64 now = kStartMs + round * 1000 + i;
    return QStringLiteral(R"({"stream":"%1@ticker","data":{"e":"24hrTicker","E":%2,"s":"%3",)"
                          R"("p":"%4","P":"%5","w":"%6","x":"%7","c":"%8","Q":"0.01200000",)"
                          R"("b":"%9","B":"1.20000000","a":"%10","A":"0.80000000","o":"%11",)"
                          R"("h":"%12","l":"%13","v":"21280.39701000","q":"1635793874.54800260",)"
                          R"("O":%14,"C":%15,"F":4219000000,"L":4222397723,"n":3397723}})")
            .arg(symbols[i].toLower(), QString::number(now), symbols[i], decimal(change, 8),
                 decimal(100.0 * change / open, 3), decimal((open + close) / 2, 8),
                 decimal(open, 8), decimal(close, 8), decimal(close * 0.9999, 8))
            .arg(decimal(close * 1.0001, 8), decimal(open, 8),
                 decimal(std::max(open, close) * 1.01, 8), decimal(std::min(open, close) * 0.99, 8),
                 QString::number(now - 86400000), QString::number(now - 1));
}

QStringList tickerFrames(const QStringList &symbols, int round)
{
    QStringList frames;
    frames.reserve(symbols.size());
    for (int i = 0; i < symbols.size(); ++i)
        frames << tickerFrame(symbols, i, round);
    return frames;
}

QString tradeFrame(const QString &symbol, int i, int count, int round)
{
    const qint64 time = kStartMs + qint64(round) * 1000000 + i / 5;
    return QStringLiteral(R"({"stream":"%1@trade","data":{"e":"trade","E":%2,"s":"%3",)"
                          R"("t":%4,"p":"%5","q":"%6","T":%7,"m":%8,"M":true}})")
            .arg(symbol.toLower(), QString::number(time + 1), symbol,
                 QString::number(4219164344LL + qint64(round) * count + i),
                 decimal(98910.32 + 5 * std::sin(0.01 * i + round), 8),
                 decimal(0.00012 * (1 + i % 97), 8), QString::number(time),
                 i % 3 == 0 ? QStringLiteral("true") : QStringLiteral("false"));
}

QStringList tradeFrames(const QString &symbol, int count, int round)
{
    QStringList frames;
    frames.reserve(count);
    for (int i = 0; i < count; ++i)
        frames << tradeFrame(symbol, i, count, round);
    return frames;
}

QString depthFrame(const QString &symbol, int f, int round)
{
    const double mid = 98910.0 + 3 * std::sin(0.1 * f + round);
    QStringList bids;
    QStringList asks;
    for (int level = 0; level < 20; ++level) {
        const QString size = decimal(0.001 * (1 + (level * 7 + f) % 50), 8);
        bids << QStringLiteral(R"(["%1","%2"])").arg(decimal(mid - 0.01 * (level + 1), 8), size);
        asks << QStringLiteral(R"(["%1","%2"])").arg(decimal(mid + 0.01 * (level + 1), 8), size);
    }
    return QStringLiteral(R"({"stream":"%1@depth20@100ms","data":{"lastUpdateId":%2,)"
                          R"("bids":[%3],"asks":[%4]}})")
            .arg(symbol.toLower(), QString::number(91205533412LL + round * 10000 + f),
                 bids.join(QLatin1Char(',')), asks.join(QLatin1Char(',')));
}

QStringList depthFrames(const QString &symbol, int count, int round)
{
    QStringList frames;
    frames.reserve(count);
    for (int f = 0; f < count; ++f)
        frames << depthFrame(symbol, f, round);
    return frames;
}

QList<Candle> benchCandles(int count)
{
    QList<Candle> candles;
    candles.reserve(count);
    double close = 100.0;
    for (int i = 0; i < count; ++i) {
        const double open = close;
        close = open * (1.0 + 0.003 * std::sin(0.05 * i) + 0.001 * std::cos(1.3 * i));
        candles.append({kStartMs - qint64(count - i) * 60000, open, std::max(open, close) * 1.001,
                        std::min(open, close) * 0.999, close,
                        1000.0 + 500.0 * (1 + std::sin(0.2 * i))});
    }
    return candles;
}
