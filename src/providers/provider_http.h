#pragma once

#include "app/clock.h"
#include "providers/provider_response.h"

#include <QNetworkReply>
#include <QNetworkRequest>

#include <functional>

class QNetworkAccessManager;
class QObject;

// One finished provider GET, read whole.
struct ProviderReply
{
    int httpStatus = 0; // 0 when the request never got a status
    RawHeaderList rawHeaders;
    QByteArray body;
    qint64 latencyMs = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    bool tooLarge = false; // cut off at kMaxProviderReplyBytes
};

inline constexpr int kProviderTransferTimeoutMs = 10000;
// The largest reply a provider is allowed to send; a five-year daily chart is well under 1 MiB.
inline constexpr qint64 kMaxProviderReplyBytes = 8 * 1024 * 1024;

using ProviderReplyHandler = std::function<void(const ProviderReply &)>;

// Sends a GET on the shared manager with the transfer time-out (unless the request has its own),
// and calls `handler` once when the reply finishes, unless `context` is gone by then. The reply is
// always released.
void sendProviderGet(QNetworkAccessManager &manager, QNetworkRequest request, QObject *context,
                     ProviderReplyHandler handler, Clock clock = systemClock());
