#include "providers/provider_response.h"

#include "app/language.h"
#include "providers/data_fetcher.h"
#include "providers/secret_mask.h"

#include <QJsonArray>
#include <QJsonParseError>

#include <algorithm>

namespace {

QString rateLimitText()
{
    return translated(QStringLiteral("HTTP 429 rate limit"),
                      QStringLiteral("HTTP 429 limite de requisições"));
}

QString malformedJsonText()
{
    return translated(QStringLiteral("Malformed or empty JSON"),
                      QStringLiteral("JSON malformado ou vazio"));
}

QString invalidPayloadText()
{
    return translated(QStringLiteral("Invalid or limited payload"),
                      QStringLiteral("Resposta inválida ou limitada"));
}

bool mentionsThrottling(const QString &text)
{
    for (const char *word : {"limit", "frequency", "rate"}) {
        if (text.contains(QLatin1String(word), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

// Numbers convert to their decimal text; objects, arrays, null and booleans carry no message
// (BrAPI flags failures with "error": true beside the real text).
QString messageText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (value.isDouble())
        return value.toVariant().toString();
    return {};
}

bool nonEmptyArray(const QJsonValue &value)
{
    return value.isArray() && !value.toArray().isEmpty();
}

bool binancePayload(const QJsonDocument &document)
{
    const QJsonObject object = document.object();
    if (stringNumber(object.value(QLatin1String("price"))) > 0.0)
        return true;
    if (stringNumber(object.value(QLatin1String("lastPrice"))) > 0.0)
        return true;
    return document.isArray();
}

bool yahooPayload(const QJsonDocument &document)
{
    const QJsonObject object = document.object();
    // A symbol search that finds nothing still answers with its `quotes` array, just empty.
    if (object.value(QLatin1String("quotes")).isArray())
        return true;
    return nonEmptyArray(object.value(QLatin1String("chart"))
                                 .toObject()
                                 .value(QLatin1String("result"))) ||
           nonEmptyArray(object.value(QLatin1String("quoteResponse"))
                                 .toObject()
                                 .value(QLatin1String("result")));
}

bool alphaVantagePayload(const QJsonDocument &document)
{
    const QJsonObject object = document.object();
    return !alphaVantageGlobalQuote(object).isEmpty() ||
           nonEmptyArray(object.value(QLatin1String("top_gainers"))) ||
           nonEmptyArray(object.value(QLatin1String("top_losers")));
}

bool financialModelingPrepPayload(const QJsonDocument &document)
{
    if (!document.isArray() || document.array().isEmpty())
        return false;
    return lenientNumber(document.array().first().toObject().value(QLatin1String("price"))) > 0.0;
}

} // namespace

ProviderResponseCheck classifyProviderResponse(const QString &providerId, int httpStatus,
                                               const RawHeaderList &rawHeaders,
                                               const QByteArray &body)
{
    ProviderResponseCheck check;
    check.retryAfterSeconds = parseRetryAfter(rawHeaders);
    if (httpStatus == 429) {
        check.rateLimited = true;
        check.message = rateLimitText();
        return check;
    }
    if (httpStatus < 200 || httpStatus >= 300) {
        check.message = QStringLiteral("HTTP %1").arg(httpStatus);
        return check;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (body.isEmpty() || error.error != QJsonParseError::NoError) {
        check.message = malformedJsonText();
        return check;
    }
    // Several providers answer failures under HTTP 200 with a text in the body.
    const QString providerMessage = extractProviderMessage(document.object());
    if (!providerMessage.isEmpty()) {
        check.rateLimited = mentionsThrottling(providerMessage);
        check.message = providerMessage;
        return check;
    }
    check.ok = providerPayloadAccepted(providerId, document);
    if (!check.ok)
        check.message = invalidPayloadText();
    return check;
}

int parseRetryAfter(const RawHeaderList &rawHeaders)
{
    for (const auto &[name, value] : rawHeaders) {
        if (name.compare("Retry-After", Qt::CaseInsensitive) != 0)
            continue;
        bool ok = false;
        const int seconds = value.trimmed().toInt(&ok, 10);
        return ok ? std::max(seconds, 0) : 0;
    }
    return 0;
}

QString extractProviderMessage(const QJsonObject &object)
{
    for (const char *key : {"Note", "Information", "Error Message", "message", "error"}) {
        // Masked before the cut: a key cut in two would no longer be recognised as one.
        const QString text = maskSecrets(messageText(object.value(QLatin1String(key))).trimmed());
        if (text.isEmpty())
            continue;
        qsizetype length = std::min<qsizetype>(text.size(), kProviderMessageLength);
        // Never leave half of a surrogate pair at the cut.
        if (length < text.size() && text.at(length - 1).isHighSurrogate())
            --length;
        return text.left(length);
    }
    return {};
}

bool providerPayloadAccepted(const QString &providerId, const QJsonDocument &document)
{
    const QString id = providerId.toLower();
    const QJsonObject object = document.object();
    if (id.contains(QLatin1String("binance")))
        return binancePayload(document);
    if (id.contains(QLatin1String("yahoo")))
        return yahooPayload(document);
    if (id.contains(QLatin1String("brapi")))
        return nonEmptyArray(object.value(QLatin1String("results")));
    if (id.contains(QLatin1String("alpha")))
        return alphaVantagePayload(document);
    if (id.contains(QLatin1String("finnhub"))) {
        const QJsonValue price = object.value(QLatin1String("c"));
        return price.isDouble() && price.toDouble() > 0.0;
    }
    if (id.contains(QLatin1String("twelve")))
        return lenientNumber(object.value(QLatin1String("close"))) > 0.0;
    if (id.contains(QLatin1String("fmp")) || id.contains(QLatin1String("financial")))
        return financialModelingPrepPayload(document);
    if (id.contains(QLatin1String("querlin")))
        return document.isArray() || !object.isEmpty();
    return !document.isNull();
}

qint64 providerCooldownUntil(qint64 nowMs, int retryAfterSeconds)
{
    return nowMs +
           (retryAfterSeconds >= 1 ? qint64(retryAfterSeconds) * 1000 : kProviderCooldownMs);
}

qint64 alphaVantageBlockUntil(qint64 nowMs, int retryAfterSeconds)
{
    return nowMs + std::max(kAlphaVantageBlockMs, qint64(retryAfterSeconds) * 1000);
}

QString providerFailureEntry(const QString &providerId, const QString &message, bool rateLimited)
{
    const QString text = message.isEmpty() ? translated(QStringLiteral("invalid response"),
                                                        QStringLiteral("resposta inválida"))
                                           : message;
    QString entry = providerId + QStringLiteral(": ") + text;
    if (rateLimited)
        entry +=
                translated(QStringLiteral(" [rate limited]"), QStringLiteral(" [limite atingido]"));
    return entry;
}

QString invalidQuotePayloadText()
{
    return translated(QStringLiteral("invalid quote payload"),
                      QStringLiteral("cotação inválida na resposta"));
}

QString invalidCryptoPayloadText()
{
    return translated(QStringLiteral("invalid crypto payload"),
                      QStringLiteral("cotação cripto inválida na resposta"));
}

QString invalidForexPayloadText()
{
    return translated(QStringLiteral("invalid forex payload"),
                      QStringLiteral("cotação de câmbio inválida na resposta"));
}

QString missingStarterText()
{
    return translated(QStringLiteral("missing starter"), QStringLiteral("provedor sem iniciador"));
}

QString stepTimeoutText()
{
    return translated(QStringLiteral("timeout"), QStringLiteral("tempo esgotado"));
}

QString replyTooLargeText()
{
    return translated(QStringLiteral("reply too large"), QStringLiteral("resposta grande demais"));
}
