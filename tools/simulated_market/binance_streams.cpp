#include "simulated_market/binance_streams.h"

#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUrlQuery>
#include <QWebSocket>

#include <utility>

namespace {

constexpr int kTickMs = 100;
constexpr int kTicksPerSecond = 1000 / kTickMs;
constexpr int kShortDepthAsks = 3;
constexpr int kGarbageWays = 5;

// The path and query for the log; a terminal watching every pair asks for hundreds of streams.
QString logLabel(const QUrl &url, qsizetype streams)
{
    constexpr qsizetype kShown = 160;
    QString path = url.path(QUrl::FullyEncoded);
    if (url.hasQuery())
        path += QLatin1Char('?') + url.query(QUrl::FullyEncoded);
    if (path.size() > kShown)
        path = path.left(kShown) + QStringLiteral("… (%1 streams)").arg(streams);
    return path;
}

// The id of a request, echoed in its reply as it came: a number, a text or null.
QByteArray idJson(const QJsonValue &id)
{
    if (id.isDouble())
        return json::integer(id.toInteger());
    if (id.isString())
        return json::string(id.toString());
    return json::kNull;
}

QByteArray requestError(int code, const QString &message, const QJsonValue &id)
{
    return OrderedJson().integer("code", code).text("msg", message).raw("id", idJson(id)).toJson();
}

} // namespace

BinanceStreams::BinanceStreams(const PriceWalk &walk, const BinanceExchange &exchange, Clock clock,
                               FaultSource fault, QObject *parent)
    : QObject(parent)
    , m_walk(walk)
    , m_exchange(exchange)
    , m_clock(std::move(clock))
    , m_fault(std::move(fault))
    , m_server(QStringLiteral("simulated market streams"), QWebSocketServer::NonSecureMode)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(kTickMs);
    connect(&m_timer, &QTimer::timeout, this, &BinanceStreams::tick);
    connect(&m_server, &QWebSocketServer::newConnection, this, &BinanceStreams::acceptConnections);
}

BinanceStreams::~BinanceStreams()
{
    m_timer.stop();
    // Signals of sockets going away must not reach a half-destroyed object.
    for (QWebSocket *socket : std::as_const(m_order)) {
        socket->disconnect(this);
        socket->abort();
        delete socket;
    }
    m_server.close();
}

bool BinanceStreams::listen(quint16 port)
{
    return m_server.listen(QHostAddress::LocalHost, port);
}

QString BinanceStreams::baseUrl() const
{
    return QStringLiteral("ws://127.0.0.1:%1").arg(port());
}

void BinanceStreams::setTickInterval(int ms)
{
    m_timer.setInterval(qMax(1, ms));
}

void BinanceStreams::applyFault()
{
    if (m_fault().kind == FaultKind::Close)
        closeEvery(kFaultCloseCode, QStringLiteral("Simulated outage."));
}

// "btcusdt@depth20@100ms": the pair before the first '@', then the kind and its pace.
BinanceStreams::Subscription BinanceStreams::subscription(const QString &name) const
{
    Subscription stream;
    stream.name = name;
    const QStringList parts = name.split(QLatin1Char('@'));
    // The exchange's names are lower-case; it serves nothing for "BTCUSDT@ticker".
    if (parts.size() < 2 || name != name.toLower())
        return stream;
    const QString kind = parts.at(1);
    if (parts.size() == 2 && kind == QLatin1String("ticker")) {
        stream.kind = Kind::Ticker;
        stream.everyTicks = kTicksPerSecond;
    } else if (parts.size() == 2 && kind == QLatin1String("trade")) {
        stream.kind = Kind::Trade;
    } else if (kind == QLatin1String("depth5") || kind == QLatin1String("depth10") ||
               kind == QLatin1String("depth20")) {
        if (parts.size() == 3 && parts.at(2) != QLatin1String("100ms"))
            return stream;
        if (parts.size() > 3)
            return stream;
        stream.kind = Kind::Depth;
        stream.levels = kind.mid(5).toInt();
        stream.everyTicks = parts.size() == 3 ? 1 : kTicksPerSecond;
    } else {
        return stream;
    }
    const BinancePair *pair = m_exchange.find(parts.at(0));
    if (pair && pair->trading)
        stream.pair = pair;
    return stream;
}

void BinanceStreams::acceptConnections()
{
    while (QWebSocket *socket = m_server.nextPendingConnection()) {
        if (m_otherStreams && m_otherStreams(socket))
            continue;
        socket->setParent(this);
        const QUrl url = socket->requestUrl();
        Connection connection;
        const QString streams =
                QUrlQuery(url).queryItemValue(QStringLiteral("streams"), QUrl::FullyDecoded);
        // A connection holds each stream once, however often it was asked for.
        QStringList names = streams.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        names.removeDuplicates();
        for (const QString &name : std::as_const(names))
            connection.streams.append(subscription(name));
        connection.label = logLabel(url, connection.streams.size());
        m_connections.insert(socket, connection);
        m_order.append(socket);
        connect(socket, &QWebSocket::disconnected, this, [this, socket] { forget(socket); });
        connect(socket, &QWebSocket::textMessageReceived, this,
                [this, socket](const QString &message) { answer(socket, message); });
        emit served(QStringLiteral("WS %1 -> open").arg(connection.label));

        if (m_fault().kind == FaultKind::Close) {
            close(socket, kFaultCloseCode, QStringLiteral("Simulated outage."));
        } else if (url.path() != QLatin1String("/stream")) {
            close(socket, QWebSocketProtocol::CloseCodePolicyViolated,
                  QStringLiteral("Only /stream?streams=... is served here."));
        } else if (!m_timer.isActive()) {
            m_lastTickMs = m_clock() - kTickMs;
            m_timer.start();
        }
    }
}

// {"method":"SUBSCRIBE","params":["btcusdt@trade"],"id":1} -> {"result":null,"id":1}
void BinanceStreams::answer(QWebSocket *socket, const QString &message)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end() || found->closing || m_fault().kind == FaultKind::Silent)
        return;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(message.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        socket->sendTextMessage(QString::fromUtf8(requestError(
                3,
                QStringLiteral("Invalid JSON: expected an object at offset %1").arg(error.offset),
                QJsonValue())));
        return;
    }
    const QJsonObject request = document.object();
    const QJsonValue id = request.value(QLatin1String("id"));
    const QString method = request.value(QLatin1String("method")).toString();
    const QJsonArray params = request.value(QLatin1String("params")).toArray();
    QByteArray result = json::kNull;
    if (method == QLatin1String("SUBSCRIBE") || method == QLatin1String("UNSUBSCRIBE")) {
        for (const QJsonValue &param : params) {
            const QString name = param.toString();
            const auto existing = std::find_if(
                    found->streams.begin(), found->streams.end(),
                    [&name](const Subscription &stream) { return stream.name == name; });
            if (method == QLatin1String("UNSUBSCRIBE") && existing != found->streams.end())
                found->streams.erase(existing);
            else if (method == QLatin1String("SUBSCRIBE") && existing == found->streams.end() &&
                     !name.isEmpty())
                found->streams.append(subscription(name));
        }
    } else if (method == QLatin1String("LIST_SUBSCRIPTIONS")) {
        QStringList names;
        for (const Subscription &stream : std::as_const(found->streams))
            names.append(stream.name);
        result = json::stringArray(names);
    } else {
        socket->sendTextMessage(QString::fromUtf8(requestError(
                2,
                QStringLiteral("Invalid request: unknown variant `%1`, expected one of "
                               "`SUBSCRIBE`, `UNSUBSCRIBE`, `LIST_SUBSCRIPTIONS`")
                        .arg(method),
                id)));
        return;
    }
    socket->sendTextMessage(
            QString::fromUtf8(OrderedJson().raw("result", result).raw("id", idJson(id)).toJson()));
}

void BinanceStreams::forget(QWebSocket *socket)
{
    const auto found = m_connections.constFind(socket);
    if (found == m_connections.cend())
        return;
    emit served(
            QStringLiteral("WS %1 -> closed (%2)").arg(found->label).arg(int(socket->closeCode())));
    m_connections.erase(found);
    m_order.removeOne(socket);
    socket->deleteLater();
    if (m_connections.isEmpty())
        m_timer.stop();
}

void BinanceStreams::close(QWebSocket *socket, QWebSocketProtocol::CloseCode code,
                           const QString &reason)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end() || found->closing)
        return;
    found->closing = true;
    socket->close(code, reason);
}

void BinanceStreams::closeEvery(QWebSocketProtocol::CloseCode code, const QString &reason)
{
    // Closing may report the disconnection at once, which changes the list.
    const QList<QWebSocket *> sockets = m_order;
    for (QWebSocket *socket : sockets)
        close(socket, code, reason);
}

void BinanceStreams::tick()
{
    ++m_tick;
    const qint64 nowMs = m_clock();
    const qint64 fromMs = qMin(m_lastTickMs, nowMs);
    m_lastTickMs = nowMs;
    const FaultKind fault = m_fault().kind;
    if (fault == FaultKind::Close) {
        closeEvery(kFaultCloseCode, QStringLiteral("Simulated outage."));
        return;
    }

    // Every watched pair moves once a tick, however many connections watch it, and whether or not
    // anything is sent.
    const qint64 step = m_walk.currentStep();
    QHash<QString, PairTick> pairs;
    for (const Connection &connection : std::as_const(m_connections)) {
        for (const Subscription &stream : connection.streams) {
            if (!stream.pair || pairs.contains(stream.pair->symbol))
                continue;
            const BinancePair &pair = *stream.pair;
            auto state = m_pairs.find(pair.symbol);
            if (state == m_pairs.end()) {
                state = m_pairs.insert(pair.symbol, {binanceLastTradeId(pair, step),
                                                     binanceBookUpdateId(pair, step), 0});
            }
            PairTick &now = pairs[pair.symbol];
            now.pair = &pair;
            now.trades = binanceTrades(m_walk, pair, step, m_tick, state->lastTradeId + 1, fromMs,
                                       nowMs);
            state->lastTradeId += now.trades.size();
            state->updateId += 1 + now.trades.size() + qint64(mix64(m_tick, state->updateId) % 20);
            now.lastTradeId = state->lastTradeId;
            now.updateId = state->updateId;
            now.bookVersion = ++state->bookVersion;
        }
    }
    if (fault == FaultKind::Silent)
        return;

    const QList<QWebSocket *> sockets = m_order;
    for (QWebSocket *socket : sockets) {
        const auto connection = m_connections.find(socket);
        if (connection == m_connections.end() || connection->closing ||
            socket->state() != QAbstractSocket::ConnectedState)
            continue;
        QList<QByteArray> due;
        for (Subscription &stream : connection->streams) {
            if (stream.pair && m_tick % quint64(stream.everyTicks) == 0)
                due += frames(stream, pairs[stream.pair->symbol], fault);
        }
        // Sent once the connection's entry is no longer in hand: a failing socket may report
        // its disconnection at once.
        for (const QByteArray &frame : std::as_const(due))
            socket->sendTextMessage(QString::fromUtf8(frame));
    }
}

QList<QByteArray> BinanceStreams::frames(Subscription &stream, PairTick &pair, FaultKind fault)
{
    const int askLevels = fault == FaultKind::ShortDepth ? kShortDepthAsks : -1;
    QList<QByteArray> frames;
    if (fault != FaultKind::Garbage) {
        for (const QByteArray &data : payloads(stream, pair, NumberForm::Strings, askLevels, false))
            frames.append(binanceEnvelope(stream.name, data));
        return frames;
    }
    // Each broken frame breaks in the next way: cut short, without data, numbers where strings
    // belong, prices that are not finite, levels of one element (or no data object at all).
    const QList<QByteArray> usual = payloads(stream, pair, NumberForm::Strings, -1, false);
    QHash<int, QList<QByteArray>> broken;
    const auto brokenPayload = [&](int way, qsizetype i) {
        if (!broken.contains(way)) {
            broken.insert(way, payloads(stream, pair,
                                        way == 2   ? NumberForm::Numbers
                                        : way == 3 ? NumberForm::NonFinite
                                                   : NumberForm::Strings,
                                        -1, way == 4));
        }
        return broken.value(way).at(i);
    };
    for (qsizetype i = 0; i < usual.size(); ++i) {
        const int way = int(stream.garbage++ % kGarbageWays);
        QByteArray frame;
        if (way == 0) {
            frame = binanceEnvelope(stream.name, usual.at(i));
            frame.truncate(frame.size() / 2);
        } else if (way == 1) {
            frame = OrderedJson().text("stream", stream.name).toJson();
        } else if (way == 4 && stream.kind != Kind::Depth) {
            frame = binanceEnvelope(stream.name, json::kNull);
        } else {
            frame = binanceEnvelope(stream.name, brokenPayload(way, i));
        }
        frames.append(frame);
    }
    return frames;
}

QList<QByteArray> BinanceStreams::payloads(const Subscription &stream, PairTick &pair,
                                           NumberForm form, int askLevels, bool oneElementLevels)
{
    const qint64 nowMs = m_lastTickMs;
    const qint64 step = m_walk.currentStep();
    switch (stream.kind) {
    case Kind::Ticker:
        if (!pair.ticker) {
            pair.ticker = binanceTicker(m_walk, *pair.pair, step, nowMs - 1, pair.lastTradeId);
        }
        return {binanceTickerEventJson(*pair.pair, *pair.ticker, nowMs, form)};
    case Kind::Depth: {
        if (!pair.book)
            pair.book = binanceBook(m_walk, *pair.pair, step, 20, pair.bookVersion);
        BookSides book = *pair.book;
        book.bids = book.bids.first(qMin(book.bids.size(), qsizetype(stream.levels)));
        book.asks = book.asks.first(qMin(book.asks.size(), qsizetype(stream.levels)));
        return {binanceBookJson(pair.updateId, book, form, askLevels, oneElementLevels)};
    }
    case Kind::Trade: {
        QList<QByteArray> trades;
        trades.reserve(pair.trades.size());
        for (const BinanceTrade &trade : std::as_const(pair.trades)) {
            // The event is stamped a moment after the trade.
            trades.append(
                    binanceTradeEventJson(*pair.pair, trade, trade.timeMs + trade.id % 3, form));
        }
        return trades;
    }
    }
    return {};
}
