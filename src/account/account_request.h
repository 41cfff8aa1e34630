#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <functional>

// The one HTTP helper of the account features. It waits for its reply in a nested event loop, so
// the window keeps painting while it waits; whoever calls it must check afterwards that what it
// works on still exists (the window may have changed under it).

struct AccountReply
{
    QJsonObject object; // the body as a JSON object, empty when it is not one
    int httpStatus = 0; // 0 when no status came (time-out, refused connection)
    QString errorText;  // the body's first 240 characters on a network error; "Network timeout."
    QByteArray body;
};

inline constexpr int kAccountRequestTimeoutMs = 15000;
inline constexpr char kAccountUserAgent[] = "QUERLIN_TERMINAL/0.1 Qt";

// GET when `method` is "GET", else a POST of `body` in compact form; the token, when not empty,
// goes as a bearer header. Never longer than `timeoutMs`.
AccountReply accountRequest(const QUrl &url, const QByteArray &method, const QJsonObject &body,
                            const QString &bearerToken, int timeoutMs = kAccountRequestTimeoutMs);

// Tests watch every request the account helper sends (headers and body), to prove what never
// leaves the machine. Null in the terminal.
using AccountRequestObserver =
        std::function<void(const QNetworkRequest &request, const QByteArray &body)>;
void setAccountRequestObserver(AccountRequestObserver observer);

// `base` + "/" + `script`, with the query items given.
QUrl accountScriptUrl(const QString &base, const QString &script,
                      const QList<QPair<QString, QString>> &query = {});
