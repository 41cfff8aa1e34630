#include "account/account_session.h"

#include "app/language.h"

#include <QUuid>

QJsonObject AccountSession::toJson() const
{
    return {{QStringLiteral("token"), token},
            {QStringLiteral("token_expiration"), tokenExpiration},
            {QStringLiteral("email"), email},
            {QStringLiteral("first_name"), firstName}};
}

AccountSession AccountSession::fromJson(const QJsonObject &object)
{
    AccountSession session;
    session.token = object.value(QStringLiteral("token")).toString().trimmed();
    session.tokenExpiration = object.value(QStringLiteral("token_expiration")).toString();
    session.email = object.value(QStringLiteral("email")).toString();
    session.firstName = object.value(QStringLiteral("first_name")).toString();
    return session;
}

bool readSessionReply(const QJsonObject &reply, AccountSession *session)
{
    if (reply.value(QStringLiteral("ok")).toBool() != true)
        return false;
    const AccountSession read = AccountSession::fromJson(reply);
    if (!read.isSignedIn())
        return false;
    *session = read;
    return true;
}

QString accountErrorMessage(const QString &code)
{
    if (code == QLatin1String("invalid_credentials"))
        return translated(QStringLiteral("Invalid email or password."),
                          QStringLiteral("E-mail ou senha inválidos."));
    if (code == QLatin1String("invalid_or_expired_token"))
        return translated(QStringLiteral("Session expired. Please log in again."),
                          QStringLiteral("Sessão expirada. Entre novamente."));
    if (code == QLatin1String("missing_credentials"))
        return translated(QStringLiteral("Fill email and password."),
                          QStringLiteral("Preencha e-mail e senha."));
    if (code == QLatin1String("rate_limited"))
        return translated(
                QStringLiteral("Too many attempts. Wait a few minutes and try again."),
                QStringLiteral("Muitas tentativas. Aguarde alguns minutos e tente novamente."));
    if (code == QLatin1String("refresh_failed"))
        return translated(QStringLiteral("Session refresh failed. Try again later."),
                          QStringLiteral("Falha ao renovar a sessão. Tente novamente mais tarde."));
    return translated(QStringLiteral("Login failed. Please try again."),
                      QStringLiteral("Falha no login. Tente novamente."));
}

QDateTime sessionExpiry(const AccountSession &session)
{
    const QString text = session.tokenExpiration.trimmed();
    bool numeric = false;
    const qint64 seconds = text.toLongLong(&numeric);
    if (numeric && seconds > 0)
        return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
    QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!parsed.isValid())
        parsed = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    return parsed;
}

bool sessionWantsRefresh(const AccountSession &session, const QDateTime &now)
{
    const QDateTime expiry = sessionExpiry(session);
    return session.isSignedIn() && expiry.isValid() &&
           now.secsTo(expiry) < kSessionRefreshWindowSeconds;
}

QString newDeviceCode()
{
    return QUuid::createUuid().toString(QUuid::Id128);
}

QString accountLanguage()
{
    return isPortuguese() ? QStringLiteral("pt") : QStringLiteral("en");
}
