#include "simulated_market/hashing.h"
#include "simulated_market/provider_replies.h"

namespace {

const QByteArray kCrumbAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789./";

QByteArray hex(quint64 value)
{
    return QByteArray::number(value, 16).rightJustified(16, '0');
}

// The A3 cookie of this market: the same for every client of one seed, in Yahoo's "d=…&S=…" form.
QByteArray cookieValue(quint64 seed)
{
    return "d=AQABBK" + hex(mix64(seed)) + "&S=AQAAA" + hex(mix64(seed, 1));
}

// The value of the A3 cookie the request carries; empty when it carries none.
QByteArray sentA3(const HttpRequest &request)
{
    for (const QByteArray &part : request.header("Cookie").split(';')) {
        const QByteArray pair = part.trimmed();
        if (pair.startsWith("A3="))
            return pair.mid(3);
    }
    return {};
}

} // namespace

QString yahooCrumbFor(const QByteArray &cookieValue)
{
    quint64 hash = textHash(QString::fromLatin1(cookieValue));
    QString crumb;
    for (int i = 0; i < 11; ++i) {
        if (i == 10)
            hash = mix64(hash);
        crumb += QLatin1Char(kCrumbAlphabet.at(int(hash & 63)));
        hash >>= 6;
    }
    return crumb;
}

std::optional<HttpResponse> yahooSessionRefusal(const HttpRequest &request)
{
    const QByteArray a3 = sentA3(request);
    if (!a3.isEmpty() && request.queryItem(QStringLiteral("crumb")) == yahooCrumbFor(a3))
        return std::nullopt;
    return HttpResponse::json(R"({"finance":{"result":null,"error":{"code":"Unauthorized",)"
                              R"("description":"Invalid Crumb"}}})",
                              401);
}

// GET / on the cookie host: an error page, and the cookie all the same.
HttpResponse yahooCookieReply(const MarketContext &market, const HttpRequest &)
{
    HttpResponse response = HttpResponse::html(
            "<!DOCTYPE html>\n<html><head><title>Yahoo</title></head>"
            "<body><h1>Sorry, the page you requested was not found.</h1></body></html>\n",
            404);
    response.headers.append({"Set-Cookie", "A3=" + cookieValue(market.walk.seed()) +
                                                   "; Max-Age=31557600; Path=/; HttpOnly"});
    return response;
}

// GET /v1/test/getcrumb: the crumb of the A3 cookie sent, as plain text.
HttpResponse yahooCrumbReply(const MarketContext &, const HttpRequest &request)
{
    const QByteArray a3 = sentA3(request);
    if (a3.isEmpty())
        return HttpResponse::text({}, 401);
    return HttpResponse::text(yahooCrumbFor(a3).toLatin1(), 200);
}
