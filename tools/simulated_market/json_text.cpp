#include "simulated_market/json_text.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

namespace json {

QByteArray string(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    QByteArray out;
    out.reserve(utf8.size() + 2);
    out += '"';
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += "\\u00" +
                       QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0');
            else
                out += c;
        }
    }
    out += '"';
    return out;
}

QByteArray number(double value, int decimals)
{
    if (!std::isfinite(value))
        return kNull;
    if (decimals >= 0) {
        const double scale = std::pow(10.0, decimals);
        value = std::round(value * scale) / scale;
    }
    if (value == 0.0)
        value = 0.0; // no "-0"
    return QByteArray::number(value, 'f', QLocale::FloatingPointShortest);
}

QByteArray integer(qint64 value)
{
    return QByteArray::number(value);
}

QByteArray boolean(bool value)
{
    return value ? "true" : "false";
}

QByteArray fixed(double value, int decimals)
{
    // A value that rounds to zero is written without a sign: never "-0.000".
    if (!std::isfinite(value) || std::round(value * std::pow(10.0, decimals)) == 0.0)
        value = 0.0;
    // A double holds about 15 significant digits; the places beyond them are written as zeros
    // rather than as the noise of the binary fraction.
    const int whole = std::abs(value) >= 1.0 ? int(std::floor(std::log10(std::abs(value)))) + 1 : 1;
    const int exact = std::clamp(15 - whole, 0, decimals);
    QByteArray text = QByteArray::number(value, 'f', exact);
    if (exact < decimals)
        text += (exact == 0 ? "." : "") + QByteArray(decimals - exact, '0');
    return '"' + text + '"';
}

QByteArray array(const QList<QByteArray> &items)
{
    QByteArray out = "[";
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (i > 0)
            out += ',';
        out += items.at(i);
    }
    return out + ']';
}

QByteArray stringArray(const QStringList &items)
{
    QList<QByteArray> written;
    written.reserve(items.size());
    for (const QString &item : items)
        written.append(string(item));
    return array(written);
}

} // namespace json

OrderedJson &OrderedJson::raw(const char *key, const QByteArray &json)
{
    m_fields.append({json::string(QString::fromUtf8(key)), json});
    return *this;
}

OrderedJson &OrderedJson::text(const char *key, const QString &value)
{
    return raw(key, json::string(value));
}

OrderedJson &OrderedJson::number(const char *key, double value, int decimals)
{
    return raw(key, json::number(value, decimals));
}

OrderedJson &OrderedJson::integer(const char *key, qint64 value)
{
    return raw(key, json::integer(value));
}

OrderedJson &OrderedJson::boolean(const char *key, bool value)
{
    return raw(key, json::boolean(value));
}

OrderedJson &OrderedJson::null(const char *key)
{
    return raw(key, json::kNull);
}

OrderedJson &OrderedJson::fixed(const char *key, double value, int decimals)
{
    return raw(key, json::fixed(value, decimals));
}

QByteArray OrderedJson::toJson(JsonLayout layout, int depth) const
{
    if (m_fields.isEmpty())
        return "{}";
    QByteArray separator = ":";
    QByteArray fieldIndent;
    QByteArray closingIndent;
    if (layout == JsonLayout::Spaced) {
        separator = " : ";
        fieldIndent = "\n  ";
        closingIndent = "\n";
    } else if (layout == JsonLayout::Indented) {
        separator = ": ";
        fieldIndent = '\n' + QByteArray(4 * (depth + 1), ' ');
        closingIndent = '\n' + QByteArray(4 * depth, ' ');
    }
    QByteArray out = "{";
    for (qsizetype i = 0; i < m_fields.size(); ++i) {
        if (i > 0)
            out += ',';
        out += fieldIndent + m_fields.at(i).first + separator + m_fields.at(i).second;
    }
    return out + closingIndent + '}';
}
