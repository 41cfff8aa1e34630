// Feeds arbitrary bytes to the three chart-history readers as a reply body and merges whatever
// bars come out into four-hour ones. A broken invariant traps, so libFuzzer keeps the input.
#include "chart/candle_history.h"

#include <QByteArray>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

bool finitePrices(const Candle &candle)
{
    return std::isfinite(candle.open) && std::isfinite(candle.high) && std::isfinite(candle.low) &&
           std::isfinite(candle.close);
}

// Every reader hands out bars with finite prices; merging never adds bars, keeps them drawable and
// stamps each on a four-hour boundary in seconds.
void checkBars(const QList<Candle> &candles)
{
    for (const Candle &candle : candles)
        check(finitePrices(candle) && !std::isnan(candle.volume));
    const QList<Candle> merged = mergeHourBars(candles, 4);
    check(merged.size() <= candles.size());
    check(candles.isEmpty() == merged.isEmpty());
    for (const Candle &bar : merged) {
        check(finitePrices(bar));
        check(bar.time % (4 * 3600) == 0);
    }
    check(mergeHourBars(candles, 1).size() == candles.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                    static_cast<qsizetype>(size));

    const QList<Candle> klines = readBinanceKlines(body);
    for (const Candle &candle : klines)
        check(candle.open > 0 && candle.high > 0 && candle.low > 0 && candle.close > 0);
    checkBars(klines);

    const YahooChartReply chart = readYahooChart(body);
    check(chart.hasResult || (chart.candles.isEmpty() && std::isnan(chart.price)));
    check(!std::isinf(chart.changePercent));
    checkBars(chart.candles);

    const BrapiHistoryReply brapi = readBrapiHistory(body);
    check(brapi.hasResult == std::isfinite(brapi.price));
    check(brapi.hasResult || brapi.candles.isEmpty());
    checkBars(brapi.candles);
    return 0;
}
