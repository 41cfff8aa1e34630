// Feeds arbitrary bytes to the movers' reply readers and to the reading of Yahoo's session, then
// runs what was read through the whole movers pipeline. Records must be usable as they are ranked
// and painted; a crumb taken as plausible must be fit for a query. A broken invariant traps, so
// libFuzzer keeps the input.
#include "overview/movers.h"
#include "providers/yahoo_session.h"

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

void checkPipeline(const QList<MoverRecord> &records, const QHash<QString, QString> &sectors)
{
    for (const QString &interval : moversIntervalIds()) {
        const MoversView view = buildMoversView(
                records, interval, {1000, 0, QStringLiteral("all")},
                [&sectors](const QString &symbol) { return sectors.value(symbol); }, {});
        check(view.gainers.size() <= kMoversTableLimit && view.losers.size() <= kMoversTableLimit);
        check(view.mosaic.size() <= 2 * kMosaicSideLimit);
        check(view.tiles.size() == 5);
        for (const MoverRecord &record : view.gainers)
            check(record.change > 0);
        for (const MoverRecord &record : view.losers)
            check(record.change < 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                    static_cast<qsizetype>(size));
    const QList<MoverRecord> binance = readBinanceMovers(body);
    for (const MoverRecord &record : binance) {
        check(record.symbol.endsWith(QLatin1String("USDT")) && !record.symbol.contains("UPUSDT"));
        check(std::isfinite(record.price) && record.price > 0 && std::isfinite(record.change) &&
              std::isfinite(record.volume));
    }
    checkPipeline(binance, {});

    const QList<MoverRecord> alphaVantage = readAlphaVantageMovers(body);
    for (const MoverRecord &record : alphaVantage)
        check(!record.symbol.isEmpty() && std::isfinite(record.price) &&
              std::isfinite(record.change));
    checkPipeline(alphaVantage, {});

    QHash<QString, QString> sectors;
    checkPipeline(readYahooMovers(body, &sectors), sectors);

    if (isPlausibleYahooCrumb(body)) {
        check(!body.isEmpty() && body.size() <= 64);
        for (const char c : body)
            check(c != '&' && c != '<' && c != ' ' && c != '\n');
    }
    isYahooUnauthorized(401, body);
    cookieHeaderOf({{"Set-Cookie", body}});
    return 0;
}
