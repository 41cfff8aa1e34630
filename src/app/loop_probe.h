#pragma once

#include "app/clock.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>

// Watches how late the event loop comes back to a short repeating timer: the longest wait is the
// longest time the window could not answer the user. The time the GUI thread spent waiting for a
// processor (a machine busy with other work) is taken off and reported apart, so the figure is
// what the terminal itself held the loop for, running or waiting on a file or a socket.
// A turn that starts or ends inside a modal wait (a dialog's exec(), a message box, a blocking
// account request) is left out: those waits are the documented behaviour and run a nested loop
// that keeps the window painting.
// main() installs it only when QRL_LOOP_PROBE names a report file; the figures go there, written
// atomically, every few seconds and once more at exit. It also tallies the status-bar texts the
// window showed, so an unattended run can be checked for its messages afterwards.
class LoopProbe : public QObject
{
    Q_OBJECT

public:
    using ModalCheck = std::function<bool()>;

    // How long the GUI thread has run on a processor, and waited for one, since it started.
    struct ThreadTimes
    {
        qint64 runningMs = 0;
        qint64 waitingMs = 0;
    };
    using ThreadTimesSource = std::function<ThreadTimes()>;

    struct Figures
    {
        qint64 longestBlockMs = 0; // how much later than asked the loop came back, at worst,
                                   // less the time it waited for a processor
        int blocksOverLimit = 0;   // turns blocked longer than kLimitMs
        qint64 longestLateMs = 0;  // the same with the waits for a processor
        int lateOverLimit = 0;
        qint64 turns = 0;      // turns measured
        qint64 modalTurns = 0; // turns left out for a modal wait
        qint64 watchedMs = 0;  // from the first turn to the last
    };

    explicit LoopProbe(QString reportPath, Clock clock = systemClock(),
                       ModalCheck inModalWait = nestedEventLoopRunning,
                       ThreadTimesSource threadTimes = currentThreadTimes,
                       QObject *parent = nullptr);
    ~LoopProbe() override; // writes the final report

    // The probe QRL_LOOP_PROBE asks for, already started; none when the variable is unset.
    static std::unique_ptr<LoopProbe> fromEnvironment();

    void start();
    // One turn of the loop; the timer calls it, tests call it with the clock moved.
    void tick();
    void noteMessage(const QString &text);

    Figures figures() const { return m_figures; }
    QByteArray reportJson(bool final) const;
    bool writeReport(bool final) const;

    // The GUI thread is inside a loop of its own on top of the application's.
    static bool nestedEventLoopRunning();
    // The calling thread's times from /proc/thread-self/schedstat; zeros where the system does
    // not say.
    static ThreadTimes currentThreadTimes();

    static constexpr int kIntervalMs = 20;
    static constexpr int kLimitMs = 250;
    static constexpr qint64 kReportEveryMs = 10000;
    static constexpr int kMessagesKept = 500; // distinct texts; later new ones are only counted
    static constexpr int kBlocksKept = 20;    // the first blocks over the limit, with their times
    static constexpr int kTextsPerTurn = 4;   // texts shown during one turn, kept for a block

private:
    QString m_reportPath;
    Clock m_clock;
    ModalCheck m_inModalWait;
    ThreadTimesSource m_threadTimes;
    QTimer m_timer;
    Figures m_figures;
    qint64 m_firstTick = 0;
    qint64 m_lastTick = 0;
    qint64 m_lastReport = 0;
    ThreadTimes m_lastTimes;
    qint64 m_longestBlockAt = 0;
    bool m_lastTickModal = false;
    struct Block
    {
        qint64 at;
        qint64 blockedMs;
        qint64 runningMs;
        qint64 lateMs;
        QStringList texts; // what the window said during it: what it was busy with
    };
    QList<Block> m_blocks;
    QStringList m_textsThisTurn;
    QHash<QString, int> m_messages;
    int m_messagesDropped = 0;
};
