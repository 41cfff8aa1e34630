#include "account/request_readers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>

namespace account {

namespace {

constexpr int kMaxNewsLimit = 200;
constexpr int kDefaultNewsLimit = 80;

QJsonObject objectOf(const QByteArray &body, bool *ok)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    *ok = parseError.error == QJsonParseError::NoError && document.isObject();
    return document.object();
}

// A version is a whole number from 0 up; JSON numbers arrive as doubles.
bool readVersion(const QJsonValue &value, qint64 *version)
{
    if (!value.isDouble())
        return false;
    const double number = value.toDouble();
    if (!(number >= 0 && number <= 9e15) || number != double(qint64(number)))
        return false;
    *version = qint64(number);
    return true;
}

} // namespace

const QStringList &syncNamespaces()
{
    static const QStringList names = {QStringLiteral("settings"), QStringLiteral("watchlists"),
                                      QStringLiteral("alerts"), QStringLiteral("workspace"),
                                      QStringLiteral("portfolios")};
    return names;
}

LoginBody readLoginBody(const QByteArray &body)
{
    LoginBody login;
    bool ok = false;
    const QJsonObject object = objectOf(body, &ok);
    if (!ok) {
        login.error = QStringLiteral("bad_request");
        return login;
    }
    const QJsonValue email = object.value(QLatin1String("email"));
    const QJsonValue password = object.value(QLatin1String("password"));
    const auto textOrAbsent = [](const QJsonValue &value) {
        return value.isString() || value.isUndefined() || value.isNull();
    };
    if (!textOrAbsent(email) || !textOrAbsent(password)) {
        login.error = QStringLiteral("bad_request");
        return login;
    }
    login.email = email.toString().trimmed().toLower();
    login.password = password.toString();
    login.lang = pageLanguage(object.value(QLatin1String("lang")).toString());
    if (login.email.isEmpty() || login.password.isEmpty())
        login.error = QStringLiteral("missing_credentials");
    return login;
}

PushBody readPushBody(const QByteArray &body, qint64 maxPayloadBytes)
{
    PushBody push;
    bool ok = false;
    const QJsonObject object = objectOf(body, &ok);
    const QJsonValue items = object.value(QLatin1String("items"));
    const QJsonValue expected = object.value(QLatin1String("expected_versions"));
    if (!ok || !items.isObject() || !(expected.isObject() || expected.isUndefined())) {
        push.error = QStringLiteral("bad_request");
        return push;
    }
    const QJsonObject itemObject = items.toObject();
    const QJsonObject expectedObject = expected.toObject();
    for (auto it = itemObject.begin(); it != itemObject.end(); ++it) {
        if (!syncNamespaces().contains(it.key())) {
            push.error = QStringLiteral("unknown_namespace");
            return push;
        }
    }
    for (const QString &name : syncNamespaces()) {
        if (!itemObject.contains(name))
            continue;
        PushItem item;
        item.name = name;
        const QJsonValue version = expectedObject.value(name);
        if (!version.isUndefined() && !version.isNull() &&
            !readVersion(version, &item.expectedVersion)) {
            // A refused push stores nothing: no item read before the bad one goes with it.
            return {{}, QStringLiteral("bad_request")};
        }
        item.payloadJson = compactJson(itemObject.value(name));
        if (item.payloadJson.size() > maxPayloadBytes)
            return {{}, QStringLiteral("payload_too_large")};
        push.items.append(item);
    }
    return push;
}

QString bearerToken(const QByteArray &authorization)
{
    const QByteArray value = authorization.trimmed();
    const QByteArray scheme = "bearer ";
    if (value.size() <= scheme.size() || value.left(scheme.size()).toLower() != scheme)
        return {};
    return QString::fromLatin1(value.mid(scheme.size()).trimmed());
}

bool isDeviceCode(const QString &code)
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-fA-F]{32}$"));
    return pattern.match(code).hasMatch();
}

NewsQuery readNewsQuery(const QUrlQuery &query)
{
    NewsQuery news;
    const QString category = query.queryItemValue(QStringLiteral("category"), QUrl::FullyDecoded)
                                     .trimmed()
                                     .toLower();
    if (!category.isEmpty())
        news.category = category;
    news.text = query.queryItemValue(QStringLiteral("q"), QUrl::FullyDecoded).trimmed();
    bool ok = false;
    const int limit = query.queryItemValue(QStringLiteral("limit")).toInt(&ok);
    news.limit = ok && limit > 0 ? qMin(limit, kMaxNewsLimit) : kDefaultNewsLimit;
    news.lang = pageLanguage(query.queryItemValue(QStringLiteral("lang")));
    return news;
}

QString pageLanguage(const QString &lang)
{
    return lang.trimmed().toLower().startsWith(QLatin1String("pt")) ? QStringLiteral("pt")
                                                                    : QStringLiteral("en");
}

QHash<QString, QString> readFormBody(const QByteArray &body)
{
    QByteArray text = body;
    text.replace('+', "%20");
    const QUrlQuery query(QString::fromLatin1(text));
    QHash<QString, QString> fields;
    for (const auto &[key, value] : query.queryItems(QUrl::FullyDecoded))
        fields.insert(key, value);
    return fields;
}

QByteArray compactJson(const QJsonValue &value)
{
    if (value.isObject())
        return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
    if (value.isArray())
        return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact);
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}

QJsonValue jsonFromText(const QByteArray &text)
{
    const QJsonDocument document = QJsonDocument::fromJson("[" + text + "]");
    return document.array().at(0);
}

} // namespace account
