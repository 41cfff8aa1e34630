#pragma once

#include <QByteArrayView>
#include <QString>
#include <QtGlobal>

#include <array>
#include <optional>

// A single pass over a stream frame that checks it is well-formed JSON and picks out the few
// members a hot reader needs, without building a document: a ticker or trade frame costs a
// fraction of a full parse. It reads strictly and only what it is sure of: anything unusual for a
// Binance frame (a byte outside ASCII, a \u escape or a number with an exponent anywhere, an
// escape in a key or a wanted value, a wanted member given twice, nesting deeper than a frame has)
// makes it give up, and the caller reads the frame with the full parser instead. It never calls a
// frame bad on its own.

struct ScannedValue
{
    enum Type : quint8 {
        Missing,
        String,
        Number,
        True,
        False,
        Null,
        Composite
    };
    Type type = Missing;
    // A string's contents without quotes, a number's literal, or an object's or array's whole text.
    QByteArrayView text;
};

inline constexpr int kMaxScannedKeys = 6;

struct ScannedFrame
{
    ScannedValue stream;                            // the envelope's "stream"
    bool dataIsObject = false;                      // the envelope's "data" is an object
    std::array<ScannedValue, kMaxScannedKeys> data; // wanted members of "data", in key order
};

// `dataKeys` names at most kMaxScannedKeys members of "data". Nothing when the scan gives up.
std::optional<ScannedFrame> scanFrame(QByteArrayView json,
                                      std::initializer_list<QByteArrayView> dataKeys);

// A JSON number literal or a plain decimal string ("75998.81000000", "-3.930", "1e-5") as a
// double; nothing for any other text (leading '+', spaces, "NaN") or a value out of the double's
// range, which the caller reads the slow way.
std::optional<double> scannedDecimal(QByteArrayView text);
// The same for a string value: a short plain-ASCII text is scanned as above.
std::optional<double> scannedDecimal(const QString &text);
