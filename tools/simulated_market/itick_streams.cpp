#include "simulated_market/itick_streams.h"

#include "simulated_market/hashing.h"
#include "simulated_market/instruments.h"
#include "simulated_market/json_text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QWebSocket>

#include <cmath>
#include <utility>

namespace {

constexpr int kFrameMs = 1000;
constexpr int kLevels = 5;
constexpr int kShortLevels = 3;
constexpr int kGarbageWays = 4;

// "AAPL$US" and "AAPL.US" both name the US listing of "AAPL".
QString marketSymbol(const QString &code)
{
    QString symbol = code.trimmed().toUpper();
    if (symbol.endsWith(QLatin1String("$US")) || symbol.endsWith(QLatin1String(".US")))
        symbol.chop(3);
    return symbol;
}

bool isUsListing(const QString &symbol)
{
    const InstrumentKind kind = instrumentKindOf(symbol);
    return kind == InstrumentKind::UsEquity || kind == InstrumentKind::UsFund;
}

QByteArray reply(int code, const char *action, const QString &message)
{
    return OrderedJson()
            .integer("code", code)
            .text("resAc", QString::fromLatin1(action))
            .text("msg", message)
            .toJson();
}

} // namespace

ItickStreams::ItickStreams(const PriceWalk &walk, Clock clock, FaultSource fault, QObject *parent)
    : QObject(parent)
    , m_walk(walk)
    , m_clock(std::move(clock))
    , m_fault(std::move(fault))
{
    m_timer.setInterval(kFrameMs);
    connect(&m_timer, &QTimer::timeout, this, &ItickStreams::tick);
}

ItickStreams::~ItickStreams()
{
    m_timer.stop();
    const QList<QWebSocket *> sockets = m_connections.keys();
    for (QWebSocket *socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
}

bool ItickStreams::accept(QWebSocket *socket)
{
    if (socket->requestUrl().path() != path())
        return false;
    socket->setParent(this);
    m_connections.insert(socket, Connection());
    connect(socket, &QWebSocket::disconnected, this, [this, socket] { forget(socket); });
    connect(socket, &QWebSocket::textMessageReceived, this,
            [this, socket](const QString &message) { answer(socket, message); });
    // The token stays out of the log.
    emit served(QStringLiteral("WS %1 -> open").arg(path()));

    const FaultKind fault = m_fault().kind;
    if (fault == FaultKind::Close) {
        socket->close(QWebSocketProtocol::CloseCodeGoingAway, QStringLiteral("Simulated outage."));
        return true;
    }
    if (!m_timer.isActive())
        m_timer.start();
    if (fault == FaultKind::Silent)
        return true;
    socket->sendTextMessage(QStringLiteral(R"({"code":1,"msg":"Connected Successfully"})"));
    const QByteArray token = socket->request().rawHeader("token");
    if (!token.isEmpty())
        authenticate(socket, QString::fromUtf8(token));
    return true;
}

void ItickStreams::authenticate(QWebSocket *socket, const QString &token)
{
    if (token.isEmpty()) {
        socket->sendTextMessage(QString::fromUtf8(reply(0, "auth", QStringLiteral("auth failed"))));
        socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("auth failed"));
        return;
    }
    m_connections[socket].authenticated = true;
    socket->sendTextMessage(
            QString::fromUtf8(OrderedJson()
                                      .integer("code", 1)
                                      .text("resAc", QStringLiteral("auth"))
                                      .text("msg", QStringLiteral("authenticated"))
                                      .raw("data", OrderedJson().text("params", token).toJson())
                                      .toJson()));
}

void ItickStreams::answer(QWebSocket *socket, const QString &message)
{
    if (!m_connections.contains(socket) || m_fault().kind == FaultKind::Silent)
        return;
    const QJsonObject request = QJsonDocument::fromJson(message.toUtf8()).object();
    const QString action = request.value(QLatin1String("ac")).toString();
    if (action == QLatin1String("auth")) {
        QString token = request.value(QLatin1String("token")).toString();
        if (token.isEmpty())
            token = request.value(QLatin1String("params")).toString();
        authenticate(socket, token);
    } else if (action == QLatin1String("subscribe")) {
        Connection &connection = m_connections[socket];
        if (!connection.authenticated) {
            socket->sendTextMessage(
                    QString::fromUtf8(reply(0, "subscribe", QStringLiteral("not authenticated"))));
            return;
        }
        const QStringList codes = request.value(QLatin1String("params"))
                                          .toString()
                                          .split(QLatin1Char(','), Qt::SkipEmptyParts);
        for (const QString &code : codes) {
            const QString symbol = marketSymbol(code);
            if (!symbol.isEmpty() && !connection.symbols.contains(symbol))
                connection.symbols.append(symbol);
        }
        socket->sendTextMessage(
                QString::fromUtf8(reply(1, "subscribe", QStringLiteral("subscribe Successfully"))));
    } else if (action == QLatin1String("ping")) {
        socket->sendTextMessage(QString::fromUtf8(
                OrderedJson()
                        .text("resAc", QStringLiteral("pong"))
                        .raw("data",
                             OrderedJson()
                                     .text("params",
                                           request.value(QLatin1String("params")).toString())
                                     .toJson())
                        .toJson()));
    } else {
        socket->sendTextMessage(QStringLiteral(R"({"code":0,"msg":"cannot be resolved action"})"));
    }
}

void ItickStreams::forget(QWebSocket *socket)
{
    if (m_connections.remove(socket)) {
        emit served(QStringLiteral("WS %1 -> closed").arg(path()));
        socket->deleteLater();
    }
    if (m_connections.isEmpty())
        m_timer.stop();
}

void ItickStreams::applyFault()
{
    if (m_fault().kind == FaultKind::Close)
        closeEvery();
}

void ItickStreams::closeEvery()
{
    const QList<QWebSocket *> sockets = m_connections.keys();
    for (QWebSocket *socket : sockets)
        socket->close(QWebSocketProtocol::CloseCodeGoingAway, QStringLiteral("Simulated outage."));
}

// Depth then quote, as the service sends them: `type` inside `data`, `s` with the region.
QList<QByteArray> ItickStreams::frames(const QString &symbol, int levels) const
{
    const qint64 step = m_walk.currentStep();
    const DaySummary day = m_walk.day(symbol, step);
    const double price = day.price;
    const double tick = price >= 1.0 ? 0.01 : 0.0001;
    const QString code = symbol + QStringLiteral(".US");
    const auto side = [&](int sign, quint64 salt) {
        QList<QByteArray> entries;
        for (int i = 0; i < levels; ++i) {
            const double levelPrice = std::round((price + sign * tick * (i + 1)) / tick) * tick;
            const double size =
                    100.0 * (1 + std::floor(unitInterval(mix64(textHash(symbol) ^ salt,
                                                               quint64(step) * 16 + quint64(i))) *
                                            40));
            entries.append(OrderedJson()
                                   .integer("po", i + 1)
                                   .number("p", levelPrice, 4)
                                   .number("v", size)
                                   .number("o", 1 + i % 3)
                                   .toJson());
        }
        return json::array(entries);
    };
    const QByteArray depth = OrderedJson()
                                     .integer("code", 1)
                                     .raw("data", OrderedJson()
                                                          .text("s", code)
                                                          .raw("a", side(1, 0xa5))
                                                          .raw("b", side(-1, 0xb1))
                                                          .text("type", QStringLiteral("depth"))
                                                          .toJson())
                                     .toJson();
    const QByteArray quote =
            OrderedJson()
                    .integer("code", 1)
                    .raw("data", OrderedJson()
                                         .text("s", code)
                                         .number("ld", price, 4)
                                         .number("o", day.open, 4)
                                         .number("h", day.high, 4)
                                         .number("l", day.low, 4)
                                         .integer("t", m_clock())
                                         .number("v", std::round(day.volume))
                                         .number("tu", std::round(day.volume * price))
                                         .integer("ts", 0)
                                         .text("type", QStringLiteral("quote"))
                                         .toJson())
                    .toJson();
    return {depth, quote};
}

void ItickStreams::tick()
{
    const FaultKind fault = m_fault().kind;
    if (fault == FaultKind::Silent || fault == FaultKind::Close)
        return;
    for (auto it = m_connections.begin(); it != m_connections.end(); ++it) {
        for (const QString &symbol : std::as_const(it->symbols)) {
            if (!isUsListing(symbol))
                continue;
            const QList<QByteArray> sent =
                    frames(symbol, fault == FaultKind::ShortDepth ? kShortLevels : kLevels);
            for (const QByteArray &frame : sent) {
                QByteArray text = frame;
                if (fault == FaultKind::Garbage) {
                    switch (it->garbage++ % kGarbageWays) {
                    case 0:
                        text = frame.left(frame.size() / 2);
                        break;
                    case 1:
                        text = QByteArrayLiteral("[]");
                        break;
                    case 2:
                        text.replace("\"p\":", "\"p\":\"x");
                        break;
                    default:
                        text = QByteArrayLiteral("\xff\xfe not json");
                        break;
                    }
                }
                it.key()->sendTextMessage(QString::fromUtf8(text));
            }
        }
    }
}
