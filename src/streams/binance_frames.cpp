#include "streams/binance_frames.h"

#include "app/endpoints.h"
#include "streams/frame_scan.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QSet>

#include <charconv>
#include <cmath>

namespace {

// Binance sends prices and quantities as decimal strings; a number is taken as well. Anything
// else, and any text that does not give a finite number ("NaN", "inf", "1e999"), is NaN.
double decimalOf(const QJsonValue &value)
{
    double number = qQNaN();
    if (value.isDouble()) {
        number = value.toDouble();
    } else if (value.isString()) {
        // A depth frame holds eighty of these: a plain decimal is read directly, anything else
        // ("+1", " 2", "NaN") by QString's rules.
        const QString text = value.toString();
        const std::optional<double> quick = scannedDecimal(text);
        if (quick) {
            number = *quick;
        } else {
            bool ok = false;
            number = text.toDouble(&ok);
            if (!ok)
                return qQNaN();
        }
    }
    return std::isfinite(number) ? number : qQNaN();
}

// Epoch milliseconds arrive as integers; a double is truncated, anything else is 0.
qint64 millisecondsOf(const QJsonValue &value)
{
    if (!value.isDouble())
        return 0;
    const double number = value.toDouble();
    // Inside the range of qint64 with a margin, so the conversion is defined.
    if (!std::isfinite(number) || std::abs(number) > 9.0e18)
        return 0;
    return value.toInteger(qint64(number));
}

bool isUsablePrice(double price)
{
    return std::isfinite(price) && price > 0;
}

QJsonObject objectOf(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return document.isObject() ? document.object() : QJsonObject();
}

// The envelope's symbol, or empty when the envelope carries no `data` object.
QString envelopeSymbol(const QJsonObject &envelope)
{
    const QJsonValue data = envelope.value(QLatin1String("data"));
    if (!data.isObject())
        return {};
    const QJsonValue inside = data.toObject().value(QLatin1String("s"));
    if (inside.isString() && !inside.toString().isEmpty())
        return inside.toString();
    const QJsonValue stream = envelope.value(QLatin1String("stream"));
    if (!stream.isString())
        return {};
    const QString name = stream.toString();
    return name.left(name.indexOf(QLatin1Char('@'))).toUpper();
}

// A frame's symbol and payload; an empty symbol means the frame is dropped.
struct Envelope
{
    QString symbol;
    QJsonObject data;
};

Envelope envelopeOf(const QByteArray &frame)
{
    const QJsonObject envelope = objectOf(frame);
    return {envelopeSymbol(envelope), envelope.value(QLatin1String("data")).toObject()};
}

QList<DepthLevel> levelsOf(const QJsonValue &value)
{
    QList<DepthLevel> levels;
    const QJsonArray array = value.toArray();
    const qsizetype count = std::min<qsizetype>(array.size(), kMaxDepthLevelsRead);
    levels.reserve(count);
    for (qsizetype i = 0; i < count; ++i) {
        DepthLevel level;
        const QJsonValue entry = array.at(i);
        if (entry.isArray()) {
            const QJsonArray pair = entry.toArray();
            if (!pair.isEmpty())
                level.price = decimalOf(pair.at(0));
            if (pair.size() >= 2) {
                level.quantity = decimalOf(pair.at(1));
                level.complete = true;
            }
        }
        levels.append(level);
    }
    return levels;
}

// The full key when it holds levels, else the short one (diff and futures depth use `b`/`a`).
QList<DepthLevel> sideOf(const QJsonObject &data, QLatin1String fullKey, QLatin1String shortKey)
{
    const QJsonValue full = data.value(fullKey);
    if (full.isArray() && !full.toArray().isEmpty())
        return levelsOf(full);
    return levelsOf(data.value(shortKey));
}

// The scanned counterparts of the readers above. Each gives nothing when only the full parse can
// tell, and then the frame is parsed whole.

// data.s is always the first wanted key.
QString scannedSymbol(const ScannedFrame &frame)
{
    if (!frame.dataIsObject)
        return {};
    const ScannedValue &inside = frame.data[0];
    if (inside.type == ScannedValue::String && !inside.text.isEmpty())
        return QString::fromLatin1(inside.text);
    if (frame.stream.type != ScannedValue::String)
        return {};
    const QByteArrayView name = frame.stream.text;
    const qsizetype at = name.indexOf('@');
    return QString::fromLatin1(at >= 0 ? name.first(at) : name).toUpper();
}

std::optional<double> scannedDecimalOf(const ScannedValue &value)
{
    if (value.type != ScannedValue::Number && value.type != ScannedValue::String)
        return qQNaN();
    const std::optional<double> number = scannedDecimal(value.text);
    if (!number)
        return std::nullopt;
    return std::isfinite(*number) ? *number : qQNaN();
}

std::optional<qint64> scannedMilliseconds(const ScannedValue &value)
{
    if (value.type != ScannedValue::Number)
        return 0;
    qint64 integer = 0;
    const char *end = value.text.data() + value.text.size();
    const auto [stop, error] = std::from_chars(value.text.data(), end, integer);
    if (error != std::errc() || stop != end)
        return std::nullopt; // a fraction or an exponent: the full parse rounds it
    return std::abs(double(integer)) > 9.0e18 ? 0 : integer;
}

// The levels of a scanned side: an array of [price, quantity] pairs of strings or numbers, as
// Binance sends them. Anything else in an array gives nothing (the full parse reads it); a value
// that is not an array holds no levels.
std::optional<QList<DepthLevel>> scannedLevels(const ScannedValue &value)
{
    QList<DepthLevel> levels;
    const QByteArrayView text = value.text;
    if (value.type != ScannedValue::Composite || !text.startsWith('['))
        return levels;
    qsizetype at = 1;
    const auto skipSpace = [&] {
        while (at < text.size() &&
               (text[at] == ' ' || text[at] == '\t' || text[at] == '\n' || text[at] == '\r'))
            ++at;
    };
    // One scalar of a pair: a string without escapes or a number.
    const auto scalar = [&](ScannedValue &out) {
        skipSpace();
        if (at >= text.size())
            return false;
        if (text[at] == '"') {
            const qsizetype end = text.indexOf('"', at + 1);
            if (end < 0)
                return false;
            out = {ScannedValue::String, text.sliced(at + 1, end - at - 1)};
            at = end + 1;
            return !out.text.contains('\\');
        }
        const qsizetype start = at;
        while (at < text.size() && text[at] != ',' && text[at] != ']' && text[at] != ' ' &&
               text[at] != '\t' && text[at] != '\n' && text[at] != '\r')
            ++at;
        out = {ScannedValue::Number, text.sliced(start, at - start)};
        return at > start && (text[start] == '-' || (text[start] >= '0' && text[start] <= '9'));
    };
    const auto expect = [&](char c) {
        skipSpace();
        if (at >= text.size() || text[at] != c)
            return false;
        ++at;
        return true;
    };
    skipSpace();
    if (at < text.size() && text[at] == ']')
        return levels;
    while (levels.size() < kMaxDepthLevelsRead) {
        ScannedValue price;
        ScannedValue quantity;
        if (!expect('[') || !scalar(price) || !expect(',') || !scalar(quantity) || !expect(']'))
            return std::nullopt;
        const std::optional<double> priceValue = scannedDecimalOf(price);
        const std::optional<double> quantityValue = scannedDecimalOf(quantity);
        if (!priceValue || !quantityValue)
            return std::nullopt;
        DepthLevel level;
        level.price = *priceValue;
        level.quantity = *quantityValue;
        level.complete = true;
        levels.append(level);
        skipSpace();
        if (at < text.size() && text[at] == ']')
            break;
        if (!expect(','))
            return std::nullopt;
    }
    return levels;
}

// The full key's side when it holds levels, else the short key's.
std::optional<QList<DepthLevel>> scannedSide(const ScannedValue &full, const ScannedValue &shorter)
{
    std::optional<QList<DepthLevel>> levels = scannedLevels(full);
    if (!levels || !levels->isEmpty())
        return levels;
    return scannedLevels(shorter);
}

QUrl streamUrl(const QStringList &streamNames)
{
    if (streamNames.isEmpty())
        return {};
    return endpointUrl(Endpoint::BinanceStream,
                       QStringLiteral("/stream?streams=") + streamNames.join(QLatin1Char('/')));
}

} // namespace

QString binanceTickerStreamName(const QString &symbol)
{
    return symbol.toLower() + QStringLiteral("@ticker");
}

QUrl binanceTickerStreamUrl(const QStringList &symbols)
{
    QStringList names;
    names.reserve(symbols.size());
    for (const QString &symbol : symbols) {
        if (!symbol.trimmed().isEmpty())
            names.append(binanceTickerStreamName(symbol));
    }
    return streamUrl(names);
}

QUrl binanceDepthStreamUrl(const QString &symbol)
{
    if (symbol.trimmed().isEmpty())
        return {};
    return streamUrl({symbol.toLower() + QStringLiteral("@depth20@100ms")});
}

QUrl binanceTradeStreamUrl(const QString &symbol)
{
    if (symbol.trimmed().isEmpty())
        return {};
    return streamUrl({symbol.toLower() + QStringLiteral("@trade")});
}

QString binanceFrameSymbol(const QByteArray &frame)
{
    return envelopeSymbol(objectOf(frame));
}

std::optional<TickerFrame> readTickerFrame(const QByteArray &frame)
{
    // Hundreds of ticker frames a second: read by a scan, parsed whole only when it is unsure.
    if (const auto scanned = scanFrame(frame, {"s", "c", "P"})) {
        const std::optional<double> price = scannedDecimalOf(scanned->data[1]);
        const std::optional<double> change = scannedDecimalOf(scanned->data[2]);
        if (price && change) {
            TickerFrame ticker{scannedSymbol(*scanned), *price, *change};
            if (ticker.symbol.isEmpty() || !isUsablePrice(ticker.price))
                return std::nullopt;
            return ticker;
        }
    }
    return readTickerFrameParsed(frame);
}

std::optional<TickerFrame> readTickerFrameParsed(const QByteArray &frame)
{
    const auto [symbol, data] = envelopeOf(frame);
    TickerFrame ticker;
    ticker.symbol = symbol;
    if (ticker.symbol.isEmpty())
        return std::nullopt;
    // Lower and upper case name different fields: `c` last price, `C` close time; `P` percent, `p`
    // absolute change.
    ticker.price = decimalOf(data.value(QLatin1String("c")));
    if (!isUsablePrice(ticker.price))
        return std::nullopt;
    ticker.changePercent = decimalOf(data.value(QLatin1String("P")));
    return ticker;
}

std::optional<TradeFrame> readTradeFrame(const QByteArray &frame)
{
    // Thousands of trades a second in a burst: the same scan as ticker frames.
    if (const auto scanned = scanFrame(frame, {"s", "p", "q", "T", "m"})) {
        const std::optional<double> price = scannedDecimalOf(scanned->data[1]);
        const std::optional<double> quantity = scannedDecimalOf(scanned->data[2]);
        const std::optional<qint64> time = scannedMilliseconds(scanned->data[3]);
        if (price && quantity && time) {
            TradeFrame trade{scannedSymbol(*scanned), *price, *quantity, *time,
                             scanned->data[4].type == ScannedValue::True};
            if (trade.symbol.isEmpty() || !isUsablePrice(trade.price))
                return std::nullopt;
            return trade;
        }
    }
    return readTradeFrameParsed(frame);
}

std::optional<TradeFrame> readTradeFrameParsed(const QByteArray &frame)
{
    const auto [symbol, data] = envelopeOf(frame);
    TradeFrame trade;
    trade.symbol = symbol;
    if (trade.symbol.isEmpty())
        return std::nullopt;
    trade.price = decimalOf(data.value(QLatin1String("p")));
    if (!isUsablePrice(trade.price))
        return std::nullopt;
    trade.quantity = decimalOf(data.value(QLatin1String("q")));
    trade.timeMs = millisecondsOf(data.value(QLatin1String("T")));
    trade.buyerIsMaker = data.value(QLatin1String("m")).toBool(false);
    return trade;
}

std::optional<DepthFrame> readDepthFrame(const QByteArray &frame)
{
    // Ten frames a second of eighty decimals each: scanned like ticker frames.
    if (const auto scanned = scanFrame(frame, {"s", "asks", "a", "bids", "b"})) {
        const std::optional<QList<DepthLevel>> asks =
                scannedSide(scanned->data[1], scanned->data[2]);
        const std::optional<QList<DepthLevel>> bids =
                scannedSide(scanned->data[3], scanned->data[4]);
        if (asks && bids) {
            DepthFrame depth;
            depth.symbol = scannedSymbol(*scanned);
            if (depth.symbol.isEmpty())
                return std::nullopt;
            depth.sides.asks = *asks;
            depth.sides.bids = *bids;
            return depth;
        }
    }
    return readDepthFrameParsed(frame);
}

std::optional<DepthFrame> readDepthFrameParsed(const QByteArray &frame)
{
    const auto [symbol, data] = envelopeOf(frame);
    DepthFrame depth;
    depth.symbol = symbol;
    if (depth.symbol.isEmpty())
        return std::nullopt;
    depth.sides.asks = sideOf(data, QLatin1String("asks"), QLatin1String("a"));
    depth.sides.bids = sideOf(data, QLatin1String("bids"), QLatin1String("b"));
    return depth;
}

DepthSides readDepthSnapshot(const QByteArray &body)
{
    const QJsonObject snapshot = objectOf(body);
    DepthSides sides;
    sides.asks = levelsOf(snapshot.value(QLatin1String("asks")));
    sides.bids = levelsOf(snapshot.value(QLatin1String("bids")));
    return sides;
}

CryptoUniverse readCryptoUniverse(const QByteArray &body)
{
    CryptoUniverse universe;
    QSet<QString> seenBases;
    const QJsonArray symbols = objectOf(body).value(QLatin1String("symbols")).toArray();
    for (const QJsonValue &entry : symbols) {
        const QJsonObject info = entry.toObject();
        if (info.value(QLatin1String("status")).toString() != QLatin1String("TRADING") ||
            info.value(QLatin1String("quoteAsset")).toString() != QLatin1String("USDT"))
            continue;
        const QString pair = info.value(QLatin1String("symbol")).toString();
        if (pair.isEmpty())
            continue;
        universe.pairs.append(pair);
        const QString base = info.value(QLatin1String("baseAsset")).toString();
        if (!base.isEmpty() && !seenBases.contains(base)) {
            seenBases.insert(base);
            universe.baseAssets.append(base);
        }
    }
    return universe;
}
