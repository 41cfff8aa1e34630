#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// JSON texts written in the order their fields are added, so every reply keeps the key order of
// the service it imitates (QJsonObject would sort the keys) and numbers keep the form the service
// uses: a plain number without exponent, or a string with a fixed count of decimals.
namespace json {

QByteArray string(const QString &text);
// Rounded to `decimals` places (-1 keeps every digit), written in its shortest form without an
// exponent; null when the value is not finite.
QByteArray number(double value, int decimals = -1);
QByteArray integer(qint64 value);
QByteArray boolean(bool value);
inline constexpr char kNull[] = "null";
// A number as a JSON string with exactly this many decimals: fixed(36.7, 8) is "36.70000000".
QByteArray fixed(double value, int decimals);
// Items already written as JSON, joined into an array.
QByteArray array(const QList<QByteArray> &items);
QByteArray stringArray(const QStringList &items);

} // namespace json

// How an object is laid out. Most services answer compact; Financial Modeling Prep puts one field
// per line with " : " between key and value, Alpha Vantage indents by four spaces.
enum class JsonLayout {
    Compact,
    Spaced,
    Indented,
};

class OrderedJson
{
public:
    // `json` is a value already written as JSON (a nested object or array, or a json:: value).
    OrderedJson &raw(const char *key, const QByteArray &json);
    OrderedJson &text(const char *key, const QString &value);
    OrderedJson &number(const char *key, double value, int decimals = -1);
    OrderedJson &integer(const char *key, qint64 value);
    OrderedJson &boolean(const char *key, bool value);
    OrderedJson &null(const char *key);
    OrderedJson &fixed(const char *key, double value, int decimals);

    bool isEmpty() const { return m_fields.isEmpty(); }
    // `depth` is how deep this object sits in an indented document.
    QByteArray toJson(JsonLayout layout = JsonLayout::Compact, int depth = 0) const;

private:
    QList<QPair<QByteArray, QByteArray>> m_fields;
};
