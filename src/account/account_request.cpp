#include "account/account_request.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>
#include <QUrlQuery>

namespace {

AccountRequestObserver &observer()
{
    static AccountRequestObserver instance;
    return instance;
}

constexpr int kErrorTextLength = 240;

} // namespace

void setAccountRequestObserver(AccountRequestObserver newObserver)
{
    observer() = std::move(newObserver);
}

QUrl accountScriptUrl(const QString &base, const QString &script,
                      const QList<QPair<QString, QString>> &query)
{
    QUrl url(base + QLatin1Char('/') + script);
    if (!query.isEmpty()) {
        QUrlQuery items;
        for (const auto &[name, value] : query)
            items.addQueryItem(name, QString::fromLatin1(QUrl::toPercentEncoding(value)));
        url.setQuery(items);
    }
    return url;
}

AccountReply accountRequest(const QUrl &url, const QByteArray &method, const QJsonObject &body,
                            const QString &bearerToken, int timeoutMs)
{
    // A manager of its own: the call is self-contained. It and its reply go with deleteLater, since
    // the reply's own signals may still be on their way when the wait ends.
    auto *manager = new QNetworkAccessManager;
    QNetworkRequest request(url);
    request.setRawHeader("User-Agent", kAccountUserAgent);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    if (!bearerToken.isEmpty()) {
        // A redirect carries every header along: the session token follows one only on its own
        // host.
        request.setRawHeader("Authorization", "Bearer " + bearerToken.toUtf8());
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::SameOriginRedirectPolicy);
    }
    const bool get = method == "GET";
    const QByteArray payload =
            get ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact);
    if (observer())
        observer()(request, payload);

    QPointer<QNetworkReply> reply = get ? manager->get(request) : manager->post(request, payload);
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    timer.start(timeoutMs);
    loop.exec();

    AccountReply result;
    if (!reply->isFinished()) {
        reply->abort();
        reply->deleteLater();
        manager->deleteLater();
        result.errorText = QStringLiteral("Network timeout.");
        return result;
    }
    result.httpStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    if (reply->error() != QNetworkReply::NoError) {
        result.errorText = QString::fromUtf8(result.body).left(kErrorTextLength);
        if (result.errorText.trimmed().isEmpty())
            result.errorText = reply->errorString().left(kErrorTextLength);
    }
    result.object = QJsonDocument::fromJson(result.body).object();
    reply->deleteLater();
    manager->deleteLater();
    return result;
}
