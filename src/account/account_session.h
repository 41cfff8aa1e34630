#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>

// The account session as the settings keep it under "auth", and the rules around the replies of
// the account service's session scripts.

struct AccountSession
{
    QString token;
    QString tokenExpiration; // as the service sent it
    QString email;
    QString firstName;

    bool isSignedIn() const { return !token.isEmpty(); }
    QJsonObject toJson() const;
    static AccountSession fromJson(const QJsonObject &object);
};

// A session reply is accepted when `ok` is true and it carries a token; then it is the session.
bool readSessionReply(const QJsonObject &reply, AccountSession *session);

// The message of a session `error` code, in the current language; unknown codes (and none) give
// "Login failed. Please try again."
QString accountErrorMessage(const QString &code);

// The expiry when the service sent one it can be read from (ISO 8601 or Unix seconds).
QDateTime sessionExpiry(const AccountSession &session);
// The session is refreshed at start when it expires within this many seconds: a terminal used
// daily never sees its session lapse, and one not used for longer signs in again.
inline constexpr qint64 kSessionRefreshWindowSeconds = 7 * 24 * 3600;
bool sessionWantsRefresh(const AccountSession &session, const QDateTime &now);

// A new device code for the browser sign-in: a random UUID without braces and dashes.
QString newDeviceCode();
// "pt" for a Portuguese interface, else "en".
QString accountLanguage();
