#include "providers/provider_http.h"

#include <QNetworkAccessManager>

#include <memory>

void sendProviderGet(QNetworkAccessManager &manager, QNetworkRequest request, QObject *context,
                     ProviderReplyHandler handler, Clock clock)
{
    if (request.transferTimeout() == 0)
        request.setTransferTimeout(kProviderTransferTimeoutMs);
    const qint64 startedMs = clock();
    QNetworkReply *reply = manager.get(request);
    auto tooLarge = std::make_shared<bool>(false);

    QObject::connect(
            reply, &QNetworkReply::downloadProgress, reply,
            [reply, tooLarge](qint64 received, qint64 total) {
                if ((received > kMaxProviderReplyBytes || total > kMaxProviderReplyBytes) &&
                    !*tooLarge) {
                    *tooLarge = true;
                    reply->abort();
                }
            });
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    QObject::connect(
            reply, &QNetworkReply::finished, context,
            [reply, tooLarge, startedMs, clock = std::move(clock), handler = std::move(handler)] {
                ProviderReply result;
                result.latencyMs = clock() - startedMs;
                result.tooLarge = *tooLarge;
                result.error = reply->error();
                // A reply cut off by its time-out is already closed: nothing to read.
                if (!result.tooLarge && reply->isOpen())
                    result.body = reply->readAll();
                result.httpStatus =
                        reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
                result.rawHeaders = reply->rawHeaderPairs();
                handler(result);
            });
}
