#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrlQuery>

// Readers of what clients send: request bodies, headers and query strings in, plain values out.
// They never touch the database or the network, so the fuzz target and the tests call them alone.
namespace account {

// The synchronised namespaces, in the order the terminal lists them.
const QStringList &syncNamespaces();

// POST login.php: {"email", "password", "lang"}. `error` is "bad_request" for a body that is not a
// JSON object or holds non-text credentials, "missing_credentials" when either is empty.
struct LoginBody
{
    QString email; // trimmed and lower-cased
    QString password;
    QString lang = QStringLiteral("en");
    QString error;
};
LoginBody readLoginBody(const QByteArray &body);

struct PushItem
{
    QString name;
    QByteArray payloadJson; // compact JSON text of the payload
    qint64 expectedVersion = 0;
};

// POST push.php: {"items": {namespace: payload}, "expected_versions": {namespace: integer}}.
// `error` is "bad_request", "unknown_namespace" or "payload_too_large" (one payload's compact JSON
// longer than `maxPayloadBytes`). A namespace missing from expected_versions expects version 0.
struct PushBody
{
    QList<PushItem> items; // in namespace order
    QString error;
};
PushBody readPushBody(const QByteArray &body, qint64 maxPayloadBytes);

// The token of an "Authorization: Bearer <token>" header; empty when there is none.
QString bearerToken(const QByteArray &authorization);

// A device code of the browser sign-in: 32 hexadecimal characters.
bool isDeviceCode(const QString &code);

// GET NEWS.json: `category` (all, br, us, crypto; the file's own names are understood too), `q`,
// `limit` (1 to 200, 80 when absent or unreadable) and `lang`.
struct NewsQuery
{
    QString category = QStringLiteral("all");
    QString text;
    int limit = 80;
    QString lang = QStringLiteral("en");
};
NewsQuery readNewsQuery(const QUrlQuery &query);

// "pt" for a Portuguese request, "en" for anything else.
QString pageLanguage(const QString &lang);

// The fields of an application/x-www-form-urlencoded body ("+" read as a space).
QHash<QString, QString> readFormBody(const QByteArray &body);

// JSON text of any value, scalars included (QJsonDocument only holds objects and arrays).
QByteArray compactJson(const QJsonValue &value);
QJsonValue jsonFromText(const QByteArray &text);

} // namespace account
