// Feeds arbitrary bytes to the account service's request readers: the first byte picks the reader
// (login body, push body, query string and form body, news file), the rest is what a client or the
// operator sent. Whatever a reader accepts must hold together; a broken invariant traps, so
// libFuzzer keeps the input.
#include "account/news_feed.h"
#include "account/request_readers.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QUrlQuery>

#include <cstddef>
#include <cstdint>

namespace {

constexpr qint64 kMaxPayloadBytes = 4096;

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

void login(const QByteArray &body)
{
    const account::LoginBody login = account::readLoginBody(body);
    check(login.error.isEmpty() || login.error == QLatin1String("bad_request") ||
          login.error == QLatin1String("missing_credentials"));
    if (login.error.isEmpty()) {
        check(!login.email.isEmpty() && !login.password.isEmpty());
        check(login.email == login.email.trimmed().toLower());
    }
    check(login.lang == QLatin1String("pt") || login.lang == QLatin1String("en"));
}

void push(const QByteArray &body)
{
    const account::PushBody push = account::readPushBody(body, kMaxPayloadBytes);
    static const QStringList errors = {QString(), QStringLiteral("bad_request"),
                                       QStringLiteral("unknown_namespace"),
                                       QStringLiteral("payload_too_large")};
    check(errors.contains(push.error));
    check(push.error.isEmpty() || push.items.isEmpty());
    for (const account::PushItem &item : push.items) {
        check(account::syncNamespaces().contains(item.name));
        check(item.expectedVersion >= 0);
        check(item.payloadJson.size() <= kMaxPayloadBytes);
        // What is stored reads back as the same value.
        check(account::compactJson(account::jsonFromText(item.payloadJson)) == item.payloadJson);
    }
}

void query(const QByteArray &text)
{
    const account::NewsQuery news = account::readNewsQuery(QUrlQuery(QString::fromUtf8(text)));
    check(news.limit >= 1 && news.limit <= 200);
    check(news.lang == QLatin1String("pt") || news.lang == QLatin1String("en"));
    check(news.category == news.category.trimmed().toLower() && !news.category.isEmpty());

    const QHash<QString, QString> form = account::readFormBody(text);
    const QString device = form.value(QStringLiteral("device"));
    if (account::isDeviceCode(device))
        check(device.size() == 32);
    const QString token = account::bearerToken(text);
    check(token == token.trimmed());
    if (!token.isEmpty())
        check(text.trimmed().toLower().startsWith("bearer "));
}

void newsFile(const QByteArray &text)
{
    bool ok = false;
    const QJsonArray items = NewsFeed::readItems(text, &ok);
    check(ok || items.isEmpty());
    static const QStringList categories = {
            QStringLiteral("domestic"), QStringLiteral("international"), QStringLiteral("crypto")};
    for (const QJsonValue &value : items) {
        const QJsonObject item = value.toObject();
        check(!item.value(QLatin1String("title")).toString().isEmpty());
        check(categories.contains(item.value(QLatin1String("category")).toString()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray rest(reinterpret_cast<const char *>(data) + 1, qsizetype(size - 1));
    switch (data[0] % 4) {
    case 0:
        login(rest);
        break;
    case 1:
        push(rest);
        break;
    case 2:
        query(rest);
        break;
    default:
        newsFile(rest);
        break;
    }
    return 0;
}
