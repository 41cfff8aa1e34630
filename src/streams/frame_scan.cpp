#include "streams/frame_scan.h"

#include <charconv>

namespace {

// A frame is an envelope holding an object of scalars (depth frames hold arrays of pairs): deeper
// nesting is left to the full parser.
constexpr int kMaxDepth = 8;
constexpr qsizetype kMaxPlainNumberLength = 300;

class Scanner
{
public:
    Scanner(QByteArrayView json, std::initializer_list<QByteArrayView> keys)
        : m_json(json)
        , m_keys(keys)
    {}

    std::optional<ScannedFrame> run()
    {
        if (m_keys.size() > kMaxScannedKeys)
            return std::nullopt;
        skipSpace();
        if (!peek('{') || !value(0, Place::Top))
            return std::nullopt;
        skipSpace();
        if (m_pos != m_json.size())
            return std::nullopt;
        return m_frame;
    }

private:
    enum class Place {
        Top,
        Envelope,
        Data,
        Other
    };

    bool atEnd() const { return m_pos >= m_json.size(); }
    bool peek(char c) const { return !atEnd() && m_json[m_pos] == c; }

    void skipSpace()
    {
        while (!atEnd()) {
            const char c = m_json[m_pos];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
                return;
            ++m_pos;
        }
    }

    // A string at m_pos (on its opening quote). `escaped` tells whether it held an escape.
    bool string(QByteArrayView &text, bool &escaped)
    {
        ++m_pos;
        const qsizetype start = m_pos;
        escaped = false;
        while (!atEnd()) {
            const auto c = static_cast<unsigned char>(m_json[m_pos]);
            if (c == '"') {
                text = m_json.sliced(start, m_pos - start);
                ++m_pos;
                return true;
            }
            if (c < 0x20 || c >= 0x80)
                return false;
            if (c == '\\') {
                escaped = true;
                ++m_pos;
                if (atEnd())
                    return false;
                // \u escapes (surrogates above all) are left to the full parser.
                const char e = m_json[m_pos];
                if (e != '"' && e != '\\' && e != '/' && e != 'b' && e != 'f' && e != 'n' &&
                    e != 'r' && e != 't')
                    return false;
            }
            ++m_pos;
        }
        return false;
    }

    bool digits()
    {
        const qsizetype start = m_pos;
        while (!atEnd() && m_json[m_pos] >= '0' && m_json[m_pos] <= '9')
            ++m_pos;
        return m_pos > start;
    }

    bool number(QByteArrayView &text)
    {
        const qsizetype start = m_pos;
        if (peek('-'))
            ++m_pos;
        if (peek('0'))
            ++m_pos;
        else if (!digits())
            return false;
        if (peek('.')) {
            ++m_pos;
            if (!digits())
                return false;
        }
        // A full parse refuses a number out of the double's range anywhere in the text: numbers
        // with an exponent, and absurdly long ones, are left to it.
        if (peek('e') || peek('E') || m_pos - start > kMaxPlainNumberLength)
            return false;
        text = m_json.sliced(start, m_pos - start);
        return true;
    }

    bool literal(const char *word)
    {
        for (const char *c = word; *c; ++c, ++m_pos) {
            if (!peek(*c))
                return false;
        }
        return true;
    }

    // One value at m_pos; `place` says where it sits, and `slot` receives it when it is wanted.
    bool value(int depth, Place place, ScannedValue *slot = nullptr)
    {
        if (atEnd())
            return false;
        ScannedValue found;
        const char c = m_json[m_pos];
        if (c == '{' || c == '[') {
            if (depth >= kMaxDepth)
                return false;
            found.type = ScannedValue::Composite;
            const qsizetype start = m_pos;
            if (!(c == '{' ? object(depth + 1, place) : array(depth + 1)))
                return false;
            found.text = m_json.sliced(start, m_pos - start);
        } else if (c == '"') {
            bool escaped = false;
            if (!string(found.text, escaped) || (escaped && slot))
                return false;
            found.type = ScannedValue::String;
        } else if (c == 't') {
            found.type = ScannedValue::True;
            if (!literal("true"))
                return false;
        } else if (c == 'f') {
            found.type = ScannedValue::False;
            if (!literal("false"))
                return false;
        } else if (c == 'n') {
            found.type = ScannedValue::Null;
            if (!literal("null"))
                return false;
        } else {
            found.type = ScannedValue::Number;
            if (!number(found.text))
                return false;
        }
        if (slot) {
            if (slot->type != ScannedValue::Missing)
                return false; // given twice: the full parser decides which counts
            *slot = found;
        }
        return true;
    }

    bool array(int depth)
    {
        ++m_pos;
        skipSpace();
        if (peek(']')) {
            ++m_pos;
            return true;
        }
        while (true) {
            skipSpace();
            if (!value(depth, Place::Other))
                return false;
            skipSpace();
            if (peek(']')) {
                ++m_pos;
                return true;
            }
            if (!peek(','))
                return false;
            ++m_pos;
        }
    }

    // An object whose container sits at `parent`: the top level is the envelope, the envelope's
    // "data" member holds the wanted keys.
    bool object(int depth, Place parent)
    {
        const Place here = parent == Place::Top ? Place::Envelope : parent;
        ++m_pos;
        skipSpace();
        if (peek('}')) {
            ++m_pos;
            return true;
        }
        while (true) {
            skipSpace();
            if (!peek('"'))
                return false;
            QByteArrayView key;
            bool escaped = false;
            if (!string(key, escaped))
                return false;
            // An escaped key may spell a wanted one: only the full parser reads it right.
            if (escaped && (here == Place::Envelope || here == Place::Data))
                return false;
            skipSpace();
            if (!peek(':'))
                return false;
            ++m_pos;
            skipSpace();
            ScannedValue *slot = nullptr;
            Place childPlace = Place::Other;
            if (here == Place::Envelope) {
                if (key == "stream") {
                    slot = &m_frame.stream;
                } else if (key == "data") {
                    if (m_dataSeen)
                        return false;
                    m_dataSeen = true;
                    m_frame.dataIsObject = peek('{');
                    childPlace = m_frame.dataIsObject ? Place::Data : Place::Other;
                }
            } else if (here == Place::Data) {
                int index = 0;
                for (const QByteArrayView &wanted : m_keys) {
                    if (key == wanted) {
                        slot = &m_frame.data[std::size_t(index)];
                        break;
                    }
                    ++index;
                }
            }
            if (childPlace == Place::Data) {
                if (depth >= kMaxDepth || !object(depth + 1, Place::Data))
                    return false;
            } else if (!value(depth, Place::Other, slot)) {
                return false;
            }
            skipSpace();
            if (peek('}')) {
                ++m_pos;
                return true;
            }
            if (!peek(','))
                return false;
            ++m_pos;
        }
    }

    QByteArrayView m_json;
    std::initializer_list<QByteArrayView> m_keys;
    qsizetype m_pos = 0;
    bool m_dataSeen = false;
    ScannedFrame m_frame;
};

} // namespace

std::optional<ScannedFrame> scanFrame(QByteArrayView json,
                                      std::initializer_list<QByteArrayView> dataKeys)
{
    return Scanner(json, dataKeys).run();
}

std::optional<double> scannedDecimal(QByteArrayView text)
{
    // The JSON number grammar, which every plain decimal string also follows.
    qsizetype i = 0;
    const qsizetype n = text.size();
    auto isDigit = [&](qsizetype at) { return at < n && text[at] >= '0' && text[at] <= '9'; };
    if (i < n && text[i] == '-')
        ++i;
    if (!isDigit(i))
        return std::nullopt;
    while (isDigit(i))
        ++i;
    if (i < n && text[i] == '.') {
        ++i;
        if (!isDigit(i))
            return std::nullopt;
        while (isDigit(i))
            ++i;
    }
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < n && (text[i] == '+' || text[i] == '-'))
            ++i;
        if (!isDigit(i))
            return std::nullopt;
        while (isDigit(i))
            ++i;
    }
    if (i != n)
        return std::nullopt;
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + n, value);
    if (error != std::errc() || end != text.data() + n)
        return std::nullopt;
    return value;
}

std::optional<double> scannedDecimal(const QString &text)
{
    char ascii[64];
    if (text.size() >= qsizetype(sizeof ascii))
        return std::nullopt;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (c >= 0x80)
            return std::nullopt;
        ascii[i] = char(c);
    }
    return scannedDecimal(QByteArrayView(ascii, text.size()));
}
