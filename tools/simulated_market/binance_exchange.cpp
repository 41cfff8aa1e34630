#include "simulated_market/binance_exchange.h"

#include "simulated_market/hashing.h"
#include "simulated_market/provider_replies.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr qint64 kDay = 86400;
constexpr int kUsdtPairs = 300;

// Coins listed beside the catalogue's, spelled as the exchange spells them: a base may start with a
// digit, end in "UP" without being a leveraged token, or not be ASCII at all.
constexpr const char *kListedCoins[] = {
        "LTC",  "DOT",   "LINK",     "AVAX",     "TRX",  "MATIC", "UNI",  "ATOM", "XLM",  "ETC",
        "FIL",  "APT",   "ARB",      "OP",       "NEAR", "ICP",   "HBAR", "VET",  "ALGO", "SAND",
        "MANA", "AXS",   "AAVE",     "MKR",      "GRT",  "INJ",   "SUI",  "SEI",  "TIA",  "RUNE",
        "FTM",  "EGLD",  "XTZ",      "EOS",      "FLOW", "CHZ",   "CRV",  "LDO",  "SNX",  "COMP",
        "ZEC",  "DASH",  "NEO",      "KAVA",     "ENJ",  "BAT",   "ZIL",  "IOTA", "WIF",  "BONK",
        "JUP",  "PYTH",  "STX",      "IMX",      "GALA", "APE",   "DYDX", "WLD",  "TON",  "ENA",
        "BCH",  "1INCH", "1000SATS", "币安人生",
};

// Leveraged tokens, long halted: the all-pairs ticker still lists them, with zero prices.
constexpr const char *kHaltedTokens[] = {"BTCUP", "BTCDOWN", "ETHDOWN", "LINKUP", "AAVEDOWN"};
// Leveraged tokens still trading, with prices that look like any coin's: only their names tell a
// mover list to leave them out.
constexpr const char *kTradingTokens[] = {"ETHUP", "BNBBULL", "XRPBEAR", "ADAUP"};

constexpr const char *kFdusdBases[] = {"BTC", "ETH", "BNB", "SOL", "XRP", "DOGE", "LINK", "TON"};

int lotDecimalsFor(double dollarsPerCoin)
{
    if (dollarsPerCoin >= 1000.0)
        return 5;
    if (dollarsPerCoin >= 100.0)
        return 3;
    if (dollarsPerCoin >= 1.0)
        return 2;
    return 0;
}

// Five significant digits on the pair's tick, as the exchange sets the ticks of its BTC pairs.
int crossDecimals(double price)
{
    return std::clamp(3 - int(std::floor(std::log10(price))), 2, 8);
}

// A made-up coin name of three to five letters.
QString madeUpCoin(quint64 key)
{
    const int length = 3 + int(key % 3);
    QString name;
    for (int i = 0; i < length; ++i) {
        key = mix64(key);
        name += QLatin1Char(char('A' + key % 26));
    }
    return name;
}

bool looksLeveraged(const QString &coin)
{
    for (const char *marker : {"UP", "DOWN", "BULL", "BEAR"}) {
        if (coin.endsWith(QLatin1String(marker)))
            return true;
    }
    return coin.startsWith(QLatin1String("USD"));
}

double priceIn(const PriceWalk &walk, const QString &base, qint64 step)
{
    return walk.price(base + QStringLiteral("USDT"), step);
}

// FDUSD is a dollar, give or take a few hundredths of a percent.
double fdusdFactor(const BinancePair &pair)
{
    return 1.0 + 0.0004 * signedUnit(mix64(textHash(pair.symbol), 11));
}

// The last 24 hours of the pair, unrounded.
DaySummary pairDay(const PriceWalk &walk, const BinancePair &pair, qint64 step)
{
    if (pair.quoteAsset == QLatin1String("USDT"))
        return walk.day(pair.symbol, step);
    DaySummary day = walk.day(pair.baseAsset + QStringLiteral("USDT"), step);
    if (pair.quoteAsset == QLatin1String("FDUSD")) {
        const double factor = fdusdFactor(pair);
        for (double *price : {&day.price, &day.open, &day.high, &day.low, &day.previousClose})
            *price *= factor;
        day.volume *= 0.2;
        return day;
    }
    const DaySummary bitcoin = walk.day(QStringLiteral("BTCUSDT"), step);
    DaySummary cross;
    cross.price = day.price / bitcoin.price;
    cross.open = day.open / bitcoin.open;
    cross.previousClose = day.previousClose / bitcoin.previousClose;
    cross.high = std::max({cross.price, cross.open, day.high / bitcoin.price});
    cross.low = std::min({cross.price, cross.open, day.low / bitcoin.price});
    cross.volume = day.volume * 0.05;
    return cross;
}

qint64 ticksOf(double price, double tick)
{
    return std::max<qint64>(2, std::llround(price / tick));
}

double lotQuantity(const BinancePair &pair, double dollars, double dollarsPerCoin)
{
    return std::max(pair.stepSize(), roundTo(dollars / dollarsPerCoin, pair.lotDecimals));
}

} // namespace

double BinancePair::tickSize() const
{
    return std::pow(10.0, -priceDecimals);
}

double BinancePair::stepSize() const
{
    return std::pow(10.0, -lotDecimals);
}

BinanceExchange::BinanceExchange(quint64 seed, const InstrumentCatalogue &catalogue)
{
    const PriceWalk walk(seed, [] { return qint64(0); });
    QList<BinancePair> usdt;
    QList<QString> coins;
    const auto addUsdt = [&](const QString &coin, bool trading) {
        const QString symbol = coin + QStringLiteral("USDT");
        if (coins.contains(coin))
            return;
        const InstrumentProfile profile = instrumentProfile(symbol);
        coins.append(coin);
        usdt.append({symbol, coin, QStringLiteral("USDT"), trading, profile.priceDecimals,
                     lotDecimalsFor(profile.basePrice)});
    };
    for (const Instrument &instrument : catalogue.instruments()) {
        if (instrument.kind == InstrumentKind::Crypto && instrument.symbol.endsWith("USDT"))
            addUsdt(instrument.symbol.chopped(4), true);
    }
    const qsizetype catalogued = coins.size();
    for (const char *coin : kListedCoins)
        addUsdt(QString::fromUtf8(coin), true);
    const qsizetype leveraged = qsizetype(std::size(kHaltedTokens) + std::size(kTradingTokens));
    for (quint64 attempt = 1; usdt.size() < kUsdtPairs - leveraged; ++attempt) {
        const QString coin = madeUpCoin(mix64(seed, attempt));
        if (!looksLeveraged(coin))
            addUsdt(coin, true);
    }
    // Two of the made-up coins are halted as well, so a reader cannot trust a listed quote asset.
    const qsizetype madeUp = catalogued + qsizetype(std::size(kListedCoins));
    for (int salt = 0; salt < 2 && usdt.size() > madeUp; ++salt)
        usdt[madeUp + qsizetype(mix64(seed, 100 + salt) % quint64(usdt.size() - madeUp))].trading =
                false;
    for (const char *token : kHaltedTokens)
        addUsdt(QLatin1String(token), false);
    for (const char *token : kTradingTokens)
        addUsdt(QLatin1String(token), true);

    QList<BinancePair> all = usdt;
    // Pairs quoted in BTC for the coins worth enough for a tick of a satoshi to mean something.
    const double bitcoin = priceIn(walk, QStringLiteral("BTC"), 0);
    int crosses = 0;
    for (const BinancePair &pair : std::as_const(usdt)) {
        const double price = priceIn(walk, pair.baseAsset, 0) / bitcoin;
        if (!pair.trading || pair.baseAsset == QLatin1String("BTC") ||
            looksLeveraged(pair.baseAsset) || price < 1e-6 || crosses == 24)
            continue;
        ++crosses;
        // One of them halted too.
        all.append({pair.baseAsset + QStringLiteral("BTC"), pair.baseAsset, QStringLiteral("BTC"),
                    crosses != 7, crossDecimals(price), pair.lotDecimals});
    }
    for (const char *base : kFdusdBases) {
        const QString coin = QLatin1String(base);
        const auto usdtPair = std::find_if(usdt.cbegin(), usdt.cend(), [&coin](const auto &pair) {
            return pair.baseAsset == coin;
        });
        if (usdtPair != usdt.cend()) {
            all.append({coin + QStringLiteral("FDUSD"), coin, QStringLiteral("FDUSD"), true,
                        usdtPair->priceDecimals, usdtPair->lotDecimals});
        }
    }
    // The exchange lists in the order pairs were added over the years, not by name.
    std::stable_sort(all.begin(), all.end(), [seed](const BinancePair &a, const BinancePair &b) {
        return mix64(seed, textHash(a.symbol)) < mix64(seed, textHash(b.symbol));
    });
    for (const BinancePair &pair : std::as_const(all))
        add(pair);
}

void BinanceExchange::add(const BinancePair &pair)
{
    m_index.insert(pair.symbol.toUpper(), m_pairs.size());
    m_pairs.append(pair);
}

const BinancePair *BinanceExchange::find(const QString &symbol) const
{
    const auto found = m_index.constFind(symbol.trimmed().toUpper());
    return found == m_index.cend() ? nullptr : &m_pairs.at(*found);
}

double binancePrice(const PriceWalk &walk, const BinancePair &pair, qint64 step)
{
    if (pair.quoteAsset == QLatin1String("USDT"))
        return walk.price(pair.symbol, step);
    const double dollars = priceIn(walk, pair.baseAsset, step);
    if (pair.quoteAsset == QLatin1String("FDUSD"))
        return dollars * fdusdFactor(pair);
    return dollars / priceIn(walk, pair.quoteAsset, step);
}

double binanceDollarsPerCoin(const PriceWalk &walk, const BinancePair &pair, qint64 step)
{
    return pair.quoteAsset == QLatin1String("USDT") ? walk.price(pair.symbol, step)
                                                    : priceIn(walk, pair.baseAsset, step);
}

qint64 binanceLastTradeId(const BinancePair &pair, qint64 step)
{
    return 3000000000LL + qint64(textHash(pair.symbol) % 100000000) + step * 20;
}

qint64 binanceBookUpdateId(const BinancePair &pair, qint64 step)
{
    return 40000000000LL + qint64(textHash(pair.symbol) % 1000000000) + step * 200;
}

BinanceTicker binanceTicker(const PriceWalk &walk, const BinancePair &pair, qint64 step,
                            qint64 closeTimeMs, qint64 lastTradeId)
{
    const int decimals = pair.priceDecimals;
    BinanceTicker ticker;
    ticker.closeTime = closeTimeMs;
    ticker.openTime = closeTimeMs - kDay * 1000;
    if (!pair.trading) {
        // Halted long ago: only the last close is left.
        ticker.prevClosePrice = roundTo(binancePrice(walk, pair, -90 * kDay), decimals);
        return ticker;
    }
    const DaySummary day = pairDay(walk, pair, step);
    // Binance's 24 hours open at the price of exactly a day ago.
    const double open = roundTo(day.previousClose, decimals);
    const double last = roundTo(day.price, decimals);
    const double high = roundTo(std::max({day.high, open, last}), decimals);
    const double low = roundTo(std::min({day.low, open, last}), decimals);
    const double volume = roundTo(day.volume, pair.lotDecimals);
    const double average = roundTo((open + high + low + last) / 4.0, decimals);
    const quint64 hash = mix64(textHash(pair.symbol), quint64(step));
    const auto quantity = [&](int salt) {
        return roundTo(volume * 2e-6 * (0.2 + unitInterval(mix64(hash, salt))), pair.lotDecimals);
    };
    ticker.priceChange = last - open;
    ticker.priceChangePercent = open > 0.0 ? (last - open) / open * 100.0 : 0.0;
    ticker.weightedAvgPrice = average;
    ticker.prevClosePrice = roundTo(binancePrice(walk, pair, step - kDay - 1), decimals);
    ticker.lastPrice = last;
    ticker.lastQty = quantity(1);
    ticker.bidPrice = last - pair.tickSize();
    ticker.bidQty = quantity(2);
    ticker.askPrice = last;
    ticker.askQty = quantity(3);
    ticker.openPrice = open;
    ticker.highPrice = high;
    ticker.lowPrice = low;
    ticker.volume = volume;
    ticker.quoteVolume = roundTo(volume * average, 8);
    ticker.count = 100000 + qint64(mix64(textHash(pair.symbol), 9) % 1900000);
    ticker.lastId = lastTradeId > 0 ? lastTradeId : binanceLastTradeId(pair, step);
    ticker.firstId = ticker.lastId - ticker.count + 1;
    return ticker;
}

BookSides binanceBook(const PriceWalk &walk, const BinancePair &pair, qint64 step, int levels,
                      quint64 version)
{
    BookSides book;
    if (!pair.trading || levels <= 0)
        return book;
    const double tick = pair.tickSize();
    const double dollarsPerCoin = binanceDollarsPerCoin(walk, pair, step);
    const qint64 bestAsk = ticksOf(binancePrice(walk, pair, step), tick);
    const quint64 key = textHash(pair.symbol);
    for (const int direction : {-1, 1}) {
        QList<BookLevel> &side = direction < 0 ? book.bids : book.asks;
        side.reserve(levels);
        qint64 ticks = direction < 0 ? bestAsk - 1 : bestAsk;
        for (int level = 0; level < levels && ticks > 0; ++level) {
            const quint64 levelKey = mix64(key + quint64(direction + 1), quint64(ticks));
            // Each level is refreshed every few versions, the best ones most often, not all at
            // once.
            const quint64 period = 1 + quint64(std::min(level, 7));
            const quint64 epoch = (version + levelKey % period) / period;
            const double dollars = 200.0 * std::pow(2000.0, unitInterval(mix64(levelKey, epoch))) *
                                   (1.0 + level * 0.05);
            side.append({double(ticks) * tick, lotQuantity(pair, dollars, dollarsPerCoin)});
            const qint64 gap = levelKey % 6 == 0 ? 2 + qint64((levelKey >> 8) % 3) : 1;
            ticks += direction * gap;
        }
    }
    return book;
}

double binanceTradeRate(const BinancePair &pair, quint64 tick)
{
    const quint64 key = textHash(pair.symbol);
    const double swing = 0.6 * smoothNoise(mix64(key, 21), qint64(tick), 80) +
                         0.4 * smoothNoise(mix64(key, 22), qint64(tick), 15);
    return 2.0 * std::pow(400.0, (swing + 1.0) / 2.0);
}

QList<BinanceTrade> binanceTrades(const PriceWalk &walk, const BinancePair &pair, qint64 step,
                                  quint64 tick, qint64 firstId, qint64 fromMs, qint64 toMs)
{
    QList<BinanceTrade> trades;
    if (!pair.trading)
        return trades;
    const double rate = binanceTradeRate(pair, tick);
    const quint64 hash = mix64(textHash(pair.symbol), tick);
    const int count = std::min(100, int(rate * 0.1 + unitInterval(hash)));
    const double tickSize = pair.tickSize();
    const double dollarsPerCoin = binanceDollarsPerCoin(walk, pair, step);
    const qint64 bestAsk = ticksOf(binancePrice(walk, pair, step), tickSize);
    // A burst sweeps a level or two beyond the best prices.
    const bool burst = rate > 100.0;
    trades.reserve(count);
    for (int i = 0; i < count; ++i) {
        const quint64 tradeKey = mix64(hash, quint64(i) + 1);
        const bool sell = tradeKey & 1;
        const qint64 reach = burst ? qint64((tradeKey >> 1) % 3) : 0;
        const qint64 ticks = sell ? std::max<qint64>(1, bestAsk - 1 - reach) : bestAsk + reach;
        const double dollars = 10.0 * std::pow(5000.0, unitInterval(mix64(tradeKey, 2)));
        trades.append({firstId + i, double(ticks) * tickSize,
                       lotQuantity(pair, dollars, dollarsPerCoin),
                       fromMs + (toMs - fromMs) * (i + 1) / count, sell});
    }
    return trades;
}
