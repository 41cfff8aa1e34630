// Feeds arbitrary replies to the classifier. Input layout: one byte picks the provider id, one
// byte the HTTP status, the bytes up to the first newline are the Retry-After value and the rest is
// the body. A broken invariant traps, so libFuzzer keeps the input.
#include "providers/provider_response.h"

#include <QByteArray>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

const std::array<const char *, 12> kProviderIds{
        "binance_public", "yahoo_us", "yahoo_b3",   "yahoo_fx", "brapi_keyed",  "brapi_public",
        "alpha_vantage",  "finnhub",  "twelvedata", "fmp",      "querlin_news", "newsapi"};
const std::array<int, 10> kStatuses{200, 201, 204, 429, 0, 301, 400, 404, 451, 503};

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const QString providerId = QString::fromLatin1(kProviderIds[data[0] % kProviderIds.size()]);
    const int status = kStatuses[data[1] % kStatuses.size()];
    const QByteArray rest(reinterpret_cast<const char *>(data + 2), qsizetype(size - 2));
    const qsizetype newline = rest.indexOf('\n');
    const QByteArray retryAfter = newline < 0 ? QByteArray() : rest.left(newline);
    const QByteArray body = newline < 0 ? rest : rest.mid(newline + 1);
    const RawHeaderList headers{{"Content-Type", "application/json"}, {"retry-after", retryAfter}};

    const ProviderResponseCheck verdict =
            classifyProviderResponse(providerId, status, headers, body);
    check(verdict.ok == verdict.message.isEmpty());
    check(verdict.retryAfterSeconds >= 0);
    check(!verdict.ok || (status >= 200 && status < 300));
    check(!verdict.rateLimited || !verdict.ok);
    check(status != 429 || verdict.rateLimited);
    return 0;
}
