#include "streams/itick_frames.h"

#include "app/endpoints.h"
#include "app/language.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <cmath>

namespace {

// The service sends JSON numbers; a decimal string is taken as well. Anything that does not give a
// finite number is NaN.
double numberOf(const QJsonValue &value)
{
    double number = qQNaN();
    if (value.isDouble()) {
        number = value.toDouble();
    } else if (value.isString()) {
        bool ok = false;
        number = value.toString().trimmed().toDouble(&ok);
        if (!ok)
            return qQNaN();
    }
    return std::isfinite(number) ? number : qQNaN();
}

qint64 millisecondsOf(const QJsonValue &value)
{
    const double number = numberOf(value);
    if (std::isnan(number) || std::abs(number) > 9.0e18)
        return 0;
    return qint64(number);
}

// `code` as an integer, -1 when absent or not a whole number in range.
int codeOf(const QJsonValue &value)
{
    const double number = numberOf(value);
    if (std::isnan(number) || number != std::floor(number) || std::abs(number) > 1.0e9)
        return -1;
    return int(number);
}

// "AAPL.US" and "AAPL$US" are the US listing of "AAPL".
QString terminalSymbol(const QString &code)
{
    QString symbol = code.trimmed().toUpper();
    if (symbol.endsWith(QLatin1String(".US")) || symbol.endsWith(QLatin1String("$US")))
        symbol.chop(3);
    return symbol;
}

QList<Level2Level> levelsOf(const QJsonValue &value)
{
    QList<Level2Level> levels;
    const QJsonArray entries = value.toArray();
    int looked = 0;
    for (const QJsonValue &entry : entries) {
        if (levels.size() >= kItickLevels || looked++ >= kMaxDepthLevelsRead)
            break;
        if (!entry.isObject())
            continue;
        const QJsonObject object = entry.toObject();
        const double price = numberOf(object.value(QLatin1String("p")));
        const double size = numberOf(object.value(QLatin1String("v")));
        if (!(price > 0) || std::isnan(size))
            continue;
        Level2Level level;
        level.price = price;
        level.size = size;
        const double position = numberOf(object.value(QLatin1String("po")));
        level.position =
                position >= 0 && position <= 1.0e6 ? int(position) : int(levels.size()) + 1;
        levels.append(level);
    }
    return levels;
}

} // namespace

QUrl itickStreamUrl()
{
    return endpointUrl(Endpoint::ItickStream, QStringLiteral("/stock"));
}

QString itickSymbolCode(const QString &symbol)
{
    return QStringLiteral("%1$US").arg(symbol.trimmed().toUpper());
}

QByteArray itickAuthMessage(const QString &key)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("ac"), QStringLiteral("auth")},
                                     {QStringLiteral("token"), key}})
            .toJson(QJsonDocument::Compact);
}

QByteArray itickSubscribeMessage(const QString &symbol)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("ac"), QStringLiteral("subscribe")},
                                     {QStringLiteral("params"), itickSymbolCode(symbol)},
                                     {QStringLiteral("types"), QStringLiteral("depth,quote")}})
            .toJson(QJsonDocument::Compact);
}

QByteArray itickPingMessage(qint64 nowMs)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("ac"), QStringLiteral("ping")},
                                     {QStringLiteral("params"), QString::number(nowMs)}})
            .toJson(QJsonDocument::Compact);
}

ItickFrame readItickFrame(const QByteArray &frame)
{
    ItickFrame result;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(frame, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return result;
    const QJsonObject root = document.object();
    const QJsonObject data = root.value(QLatin1String("data")).toObject();
    result.kind = ItickFrameKind::Other;
    result.code = codeOf(root.value(QLatin1String("code")));
    result.ok = result.code == 1;
    result.message = root.value(QLatin1String("msg")).toString();

    const QString action = root.value(QLatin1String("resAc")).toString();
    if (action == QLatin1String("auth")) {
        result.kind = ItickFrameKind::AuthReply;
        return result;
    }
    if (action == QLatin1String("subscribe")) {
        result.kind = ItickFrameKind::SubscribeReply;
        return result;
    }
    if (action == QLatin1String("pong")) {
        result.kind = ItickFrameKind::Pong;
        result.ok = true;
        return result;
    }

    QString type = root.value(QLatin1String("type")).toString();
    if (type.isEmpty())
        type = data.value(QLatin1String("type")).toString();
    if (type == QLatin1String("depth") || type == QLatin1String("quote")) {
        result.symbol = terminalSymbol(data.value(QLatin1String("s")).toString());
        if (result.symbol.isEmpty())
            return result;
        if (type == QLatin1String("depth")) {
            result.kind = ItickFrameKind::Depth;
            result.book.bids = levelsOf(data.value(QLatin1String("b")));
            result.book.asks = levelsOf(data.value(QLatin1String("a")));
        } else {
            result.kind = ItickFrameKind::Quote;
            result.quote.last = numberOf(data.value(QLatin1String("ld")));
            result.quote.open = numberOf(data.value(QLatin1String("o")));
            result.quote.high = numberOf(data.value(QLatin1String("h")));
            result.quote.low = numberOf(data.value(QLatin1String("l")));
            result.quote.volume = numberOf(data.value(QLatin1String("v")));
            result.quote.turnover = numberOf(data.value(QLatin1String("tu")));
            result.quote.timeMs = millisecondsOf(data.value(QLatin1String("t")));
        }
        return result;
    }

    // Klines come with `code` 0 and no type: data, not an error.
    if (!data.isEmpty() || !action.isEmpty())
        return result;
    if (result.code == 1 && !result.message.isEmpty()) {
        result.kind = ItickFrameKind::Connected;
        return result;
    }
    if (result.code != -1 && result.code != 1)
        result.kind = ItickFrameKind::Error;
    return result;
}

QString itickLevel2Title(const QString &symbol)
{
    return translated(QStringLiteral("US: Level 2 (5 levels)  %1"),
                      QStringLiteral("EUA: Nível 2 (5 níveis)  %1"))
            .arg(symbol);
}
