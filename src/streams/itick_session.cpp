#include "streams/itick_session.h"

#include "app/language.h"

#include <QNetworkRequest>
#include <QTimer>
#include <QWebSocket>

namespace {

constexpr int kPingMs = 30000;
constexpr int kDepthTimeoutMs = 7000;
constexpr int kFirstRetryMs = 1000;

QTimer *ownOrGiven(QTimer *given, QObject *owner, bool singleShot)
{
    QTimer *timer = given ? given : new QTimer(owner);
    timer->setSingleShot(singleShot);
    return timer;
}

} // namespace

ItickSession::ItickSession(ItickTimers timers, Clock clock, QObject *parent)
    : QObject(parent)
    , m_pingTimer(ownOrGiven(timers.ping, this, false))
    , m_depthTimer(ownOrGiven(timers.depthTimeout, this, true))
    , m_retryTimer(ownOrGiven(timers.retry, this, true))
    , m_clock(std::move(clock))
{
    m_pingTimer->setInterval(kPingMs);
    m_depthTimer->setInterval(kDepthTimeoutMs);
    connect(m_pingTimer, &QTimer::timeout, this, &ItickSession::pingDue);
    connect(m_depthTimer, &QTimer::timeout, this, &ItickSession::depthTimedOut);
    connect(m_retryTimer, &QTimer::timeout, this, &ItickSession::retryDue);
}

ItickSession::~ItickSession()
{
    dropSocket();
}

bool ItickSession::isConnected() const
{
    return m_socket && m_socket->state() == QAbstractSocket::ConnectedState;
}

void ItickSession::start(const QString &symbol)
{
    m_retryTimer->stop();
    m_depthTimer->stop();
    m_pingTimer->stop();
    dropSocket();
    m_retries = 0;
    m_depthValid = false;
    m_depthPending = false;
    m_symbol = symbol.trimmed().toUpper();
    if (m_symbol.isEmpty())
        return;
    if (m_key.isEmpty()) {
        emit fallbackToLevel1(m_symbol, translated(QStringLiteral("iTick key missing"),
                                                   QStringLiteral("chave iTick ausente")));
        return;
    }
    connectStream();
}

void ItickSession::stop()
{
    m_retryTimer->stop();
    m_depthTimer->stop();
    m_pingTimer->stop();
    dropSocket();
    m_symbol.clear();
    m_retries = 0;
    m_depthPending = false;
    m_depthValid = false;
}

void ItickSession::connectStream()
{
    if (m_symbol.isEmpty() || m_key.isEmpty())
        return;
    QString state =
            translated(QStringLiteral("iTick connecting"), QStringLiteral("iTick conectando"));
    if (m_retries > 0)
        state += QStringLiteral(" #%1").arg(m_retries + 1);
    emit connecting(m_symbol, state);
    m_depthPending = true;
    m_depthValid = false;

    dropSocket();
    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    m_socket = socket;
    connect(socket, &QWebSocket::connected, this, &ItickSession::onConnected);
    connect(socket, &QWebSocket::textMessageReceived, this, &ItickSession::onText);
    connect(socket, &QWebSocket::disconnected, this, [this] {
        m_pingTimer->stop();
        retry(translated(QStringLiteral("iTick disconnected"),
                         QStringLiteral("iTick desconectado")));
    });
    // Qt 6.4 names the signal error(); errorOccurred() came with 6.5.
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this, [this] {
        retry(translated(QStringLiteral("iTick error"), QStringLiteral("erro no iTick")));
    });
    QNetworkRequest request(itickStreamUrl());
    request.setRawHeader("token", m_key.toUtf8());
    socket->open(request);
    m_depthTimer->start();
}

// The old socket says nothing more: its close and its errors belong to an attempt already over.
void ItickSession::dropSocket()
{
    if (!m_socket)
        return;
    QWebSocket *socket = m_socket;
    m_socket = nullptr;
    socket->disconnect(this);
    socket->close(QWebSocketProtocol::CloseCodeNormal);
    socket->deleteLater();
}

void ItickSession::onConnected()
{
    if (!m_socket || m_key.isEmpty() || m_symbol.isEmpty())
        return;
    m_socket->sendTextMessage(QString::fromUtf8(itickAuthMessage(m_key)));
    m_socket->sendTextMessage(QString::fromUtf8(itickSubscribeMessage(m_symbol)));
    m_pingTimer->start();
    emit status(m_symbol,
                translated(QStringLiteral("iTick Level 2"), QStringLiteral("iTick Nível 2")));
}

void ItickSession::onText(const QString &text)
{
    const ItickFrame frame = readItickFrame(text.toUtf8());
    if (frame.symbol != m_symbol || m_symbol.isEmpty())
        return;
    if (frame.kind == ItickFrameKind::Quote) {
        emit status(m_symbol, translated(QStringLiteral("iTick quote/depth"),
                                         QStringLiteral("iTick cotação/profundidade")));
        emit quote(m_symbol, frame.quote);
        return;
    }
    if (frame.kind != ItickFrameKind::Depth)
        return;
    m_depthTimer->stop();
    if (!frame.book.isUsable()) {
        retry(translated(QStringLiteral("iTick depth below 5 levels"),
                         QStringLiteral("profundidade iTick abaixo de 5 níveis")));
        return;
    }
    m_retries = 0;
    m_retryTimer->stop();
    m_depthPending = false;
    m_depthValid = true;
    emit level2Book(m_symbol, frame.book);
}

void ItickSession::pingDue()
{
    if (isConnected())
        m_socket->sendTextMessage(QString::fromUtf8(itickPingMessage(m_clock())));
}

void ItickSession::depthTimedOut()
{
    retry(translated(QStringLiteral("iTick depth timeout"),
                     QStringLiteral("tempo esgotado da profundidade iTick")));
}

void ItickSession::retryDue()
{
    m_retryTimer->stop();
    connectStream();
}

void ItickSession::retry(const QString &reason)
{
    if (m_symbol.isEmpty() || m_depthValid)
        return;
    m_depthTimer->stop();
    m_pingTimer->stop();
    dropSocket();
    if (m_retries < kMaxRetries) {
        const int delayMs = kFirstRetryMs << m_retries;
        ++m_retries;
        emit status(m_symbol, translated(QStringLiteral("iTick retry in %1 ms"),
                                         QStringLiteral("nova tentativa iTick em %1 ms"))
                                      .arg(delayMs));
        emit event(translated(QStringLiteral("iTick retry %1/3 scheduled for %2"),
                              QStringLiteral("nova tentativa iTick %1/3 agendada para %2"))
                           .arg(m_retries)
                           .arg(m_symbol));
        m_retryTimer->start(delayMs);
        return;
    }
    m_retryTimer->stop();
    m_depthPending = false;
    emit fallbackToLevel1(m_symbol, reason + translated(QStringLiteral("; retries exhausted"),
                                                        QStringLiteral("; tentativas esgotadas")));
}
