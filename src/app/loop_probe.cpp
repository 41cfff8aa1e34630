#include "app/loop_probe.h"

#include "app/atomic_file.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <algorithm>

namespace {

const char kReportVariable[] = "QRL_LOOP_PROBE";

QString timeText(qint64 ms)
{
    return ms > 0 ? QDateTime::fromMSecsSinceEpoch(ms).toString(Qt::ISODateWithMs) : QString();
}

} // namespace

LoopProbe::LoopProbe(QString reportPath, Clock clock, ModalCheck inModalWait,
                     ThreadTimesSource threadTimes, QObject *parent)
    : QObject(parent)
    , m_reportPath(std::move(reportPath))
    , m_clock(std::move(clock))
    , m_inModalWait(std::move(inModalWait))
    , m_threadTimes(std::move(threadTimes))
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(kIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &LoopProbe::tick);
}

LoopProbe::~LoopProbe()
{
    writeReport(true);
}

std::unique_ptr<LoopProbe> LoopProbe::fromEnvironment()
{
    const QString path = qEnvironmentVariable(kReportVariable).trimmed();
    if (path.isEmpty())
        return nullptr;
    auto probe = std::make_unique<LoopProbe>(path);
    probe->start();
    return probe;
}

void LoopProbe::start()
{
    m_timer.start();
}

bool LoopProbe::nestedEventLoopRunning()
{
    return QThread::currentThread()->loopLevel() > 1;
}

LoopProbe::ThreadTimes LoopProbe::currentThreadTimes()
{
    // "<ns on a processor> <ns waiting in the run queue> <time slices>"
    QFile file(QStringLiteral("/proc/thread-self/schedstat"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    const QList<QByteArray> fields = file.read(128).simplified().split(' ');
    if (fields.size() < 2)
        return {};
    return {fields.at(0).toLongLong() / 1000000, fields.at(1).toLongLong() / 1000000};
}

void LoopProbe::tick()
{
    const qint64 now = m_clock();
    const bool modal = m_inModalWait && m_inModalWait();
    const ThreadTimes times = m_threadTimes ? m_threadTimes() : ThreadTimes();
    if (m_lastTick == 0) {
        m_firstTick = now;
        m_lastReport = now;
    } else if (modal || m_lastTickModal) {
        ++m_figures.modalTurns;
    } else {
        ++m_figures.turns;
        const qint64 late = std::max<qint64>(0, now - m_lastTick - kIntervalMs);
        const qint64 blocked =
                std::max<qint64>(0, late - (times.waitingMs - m_lastTimes.waitingMs));
        if (blocked > m_figures.longestBlockMs) {
            m_figures.longestBlockMs = blocked;
            m_longestBlockAt = now;
        }
        m_figures.longestLateMs = std::max(m_figures.longestLateMs, late);
        if (late > kLimitMs)
            ++m_figures.lateOverLimit;
        if (blocked > kLimitMs) {
            ++m_figures.blocksOverLimit;
            if (m_blocks.size() < kBlocksKept) {
                m_blocks.append({now, blocked, times.runningMs - m_lastTimes.runningMs, late,
                                 m_textsThisTurn});
            }
        }
    }
    m_textsThisTurn.clear();
    m_lastTimes = times;
    m_lastTick = now;
    m_lastTickModal = modal;
    m_figures.watchedMs = now - m_firstTick;
    if (now - m_lastReport >= kReportEveryMs) {
        m_lastReport = now;
        writeReport(false);
    }
}

void LoopProbe::noteMessage(const QString &text)
{
    if (text.isEmpty())
        return;
    if (m_textsThisTurn.size() < kTextsPerTurn)
        m_textsThisTurn.append(text);
    if (auto found = m_messages.find(text); found != m_messages.end())
        ++*found;
    else if (m_messages.size() < kMessagesKept)
        m_messages.insert(text, 1);
    else
        ++m_messagesDropped;
}

QByteArray LoopProbe::reportJson(bool final) const
{
    QJsonArray blocks;
    for (const Block &block : m_blocks) {
        blocks.append(QJsonObject{
                {QStringLiteral("at"), timeText(block.at)},
                {QStringLiteral("ms"), block.blockedMs},
                {QStringLiteral("running_ms"), block.runningMs},
                {QStringLiteral("late_ms"), block.lateMs},
                {QStringLiteral("texts"), QJsonArray::fromStringList(block.texts)},
        });
    }
    QJsonObject messages;
    for (auto message = m_messages.cbegin(); message != m_messages.cend(); ++message)
        messages.insert(message.key(), message.value());
    const QJsonObject report{
            {QStringLiteral("longest_block_ms"), m_figures.longestBlockMs},
            {QStringLiteral("longest_block_at"), timeText(m_longestBlockAt)},
            {QStringLiteral("blocks_over_limit"), m_figures.blocksOverLimit},
            {QStringLiteral("blocks"), blocks},
            {QStringLiteral("longest_late_ms"), m_figures.longestLateMs},
            {QStringLiteral("late_over_limit"), m_figures.lateOverLimit},
            {QStringLiteral("limit_ms"), kLimitMs},
            {QStringLiteral("interval_ms"), kIntervalMs},
            {QStringLiteral("turns"), m_figures.turns},
            {QStringLiteral("modal_turns"), m_figures.modalTurns},
            {QStringLiteral("watched_ms"), m_figures.watchedMs},
            {QStringLiteral("final"), final},
            {QStringLiteral("messages"), messages},
            {QStringLiteral("messages_dropped"), m_messagesDropped},
    };
    return QJsonDocument(report).toJson(QJsonDocument::Indented);
}

bool LoopProbe::writeReport(bool final) const
{
    return writeFileAtomically(m_reportPath, reportJson(final));
}
