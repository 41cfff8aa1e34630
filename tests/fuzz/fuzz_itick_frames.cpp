// Feeds arbitrary bytes to the iTick frame reader as one text frame and checks what comes out:
// bounded sides of priced, finite levels, and a symbol only where one belongs. A broken invariant
// traps, so libFuzzer keeps the input.
#include "streams/itick_frames.h"
#include "streams/order_book.h"

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

bool finiteOrNaN(double value)
{
    return std::isfinite(value) || std::isnan(value);
}

void checkSide(const QList<Level2Level> &side)
{
    check(side.size() <= kItickLevels);
    for (const Level2Level &level : side)
        check(std::isfinite(level.price) && level.price > 0 && std::isfinite(level.size) &&
              level.position >= 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    const ItickFrame frame = readItickFrame(input);

    checkSide(frame.book.bids);
    checkSide(frame.book.asks);
    check(frame.kind == ItickFrameKind::Depth ||
          (frame.book.bids.isEmpty() && frame.book.asks.isEmpty()));
    const bool carriesSymbol =
            frame.kind == ItickFrameKind::Depth || frame.kind == ItickFrameKind::Quote;
    check(carriesSymbol != frame.symbol.isEmpty());
    check(std::isfinite(frame.book.spread()));
    check(std::isfinite(frame.book.imbalance()) || std::isnan(frame.book.imbalance()));

    const ItickQuote &quote = frame.quote;
    check(finiteOrNaN(quote.last) && finiteOrNaN(quote.open) && finiteOrNaN(quote.high) &&
          finiteOrNaN(quote.low) && finiteOrNaN(quote.volume) && finiteOrNaN(quote.turnover));
    return 0;
}
