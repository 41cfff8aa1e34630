#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>

// Every provider reply passes classifyProviderResponse() before anything reads it: the verdict says
// whether the reply is usable, whether the provider is throttling us, how long it asks us to wait
// and which short text describes the failure.

using RawHeaderList = QList<QPair<QByteArray, QByteArray>>;

struct ProviderResponseCheck
{
    bool ok = false;
    bool rateLimited = false;
    int retryAfterSeconds = 0; // from Retry-After, whatever the verdict
    QString message;           // empty when ok
};

// What one provider step reports to its cascade.
struct AsyncProviderResult
{
    bool ok = false;
    bool rateLimited = false;
    QString message;

    static AsyncProviderResult success() { return {true, false, {}}; }
    static AsyncProviderResult failure(QString message, bool rateLimited = false)
    {
        return {false, rateLimited, std::move(message)};
    }
};

// `httpStatus` is 0 when the request never got one (time-out, refused connection).
ProviderResponseCheck classifyProviderResponse(const QString &providerId, int httpStatus,
                                               const RawHeaderList &rawHeaders,
                                               const QByteArray &body);

// Seconds from the first Retry-After header (any case); only the delta-seconds form is understood,
// anything else (a date, garbage, a negative value) gives 0.
int parseRetryAfter(const RawHeaderList &rawHeaders);

// The text a provider puts in "Note", "Information", "Error Message", "message" or "error",
// whichever comes first in that order with a non-blank value, with every known key masked
// (providers quote the caller's key back), cut to 180 characters.
QString extractProviderMessage(const QJsonObject &object);
inline constexpr int kProviderMessageLength = 180;

// Whether a parsed 2xx reply carries what the provider sends when it has data, judged by the
// provider family named in the id ("binance", "yahoo", "brapi", "alpha", "finnhub", "twelve",
// "fmp"/"financial", "querlin").
bool providerPayloadAccepted(const QString &providerId, const QJsonDocument &document);

// Twelve Data and Financial Modeling Prep pause for the Retry-After the provider asked for, or a
// minute. Alpha Vantage's daily quota makes a short Retry-After meaningless, so its block is never
// shorter than a minute.
inline constexpr qint64 kProviderCooldownMs = 60000;
inline constexpr qint64 kAlphaVantageBlockMs = 60000;
qint64 providerCooldownUntil(qint64 nowMs, int retryAfterSeconds);
qint64 alphaVantageBlockUntil(qint64 nowMs, int retryAfterSeconds);

// One entry of a cascade's failure list: "alpha_vantage: <text> [rate limited]".
QString providerFailureEntry(const QString &providerId, const QString &message, bool rateLimited);

// Failure texts of the provider steps, in the interface language.
QString invalidQuotePayloadText();
QString invalidCryptoPayloadText();
QString invalidForexPayloadText();
QString missingStarterText();
QString stepTimeoutText();
QString replyTooLargeText();
