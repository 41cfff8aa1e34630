// Feeds arbitrary reply bodies to every quote fetcher. The first byte picks the fetcher, the rest
// is the body. Whatever comes in, a fetcher returns a valid quote or none.
#include "providers/data_fetcher.h"

#include <QByteArray>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

std::unique_ptr<DataFetcher> fetcherFor(uint8_t selector)
{
    switch (selector % 7) {
    case 0:
        return std::make_unique<BinanceFetcher>();
    case 1:
        return std::make_unique<BrAPIFetcher>("", "1d", "5d");
    case 2:
        return std::make_unique<AlphaVantageFetcher>("KEY");
    case 3:
        return std::make_unique<FinnhubFetcher>("KEY");
    case 4:
        return std::make_unique<TwelveDataFetcher>("KEY");
    case 5:
        return std::make_unique<FinancialModelingPrepFetcher>("KEY");
    default:
        return std::make_unique<YahooFetcher>("1d", "5d");
    }
}

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const std::unique_ptr<DataFetcher> fetcher = fetcherFor(data[0]);
    const QByteArray body(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const auto quote = fetcher->parseQuote(QStringLiteral("petr4.sa"), body);
    if (!quote)
        return 0;
    check(quote->isValid() && std::isfinite(quote->price) && quote->price > 0.0);
    check(!quote->symbol.isEmpty() && quote->symbol == quote->symbol.toUpper());
    check(quote->source == fetcher->displayName());
    for (const Candle &candle : quote->candles)
        check(std::isfinite(candle.open) && std::isfinite(candle.high) &&
              std::isfinite(candle.low) && std::isfinite(candle.close));
    return 0;
}
