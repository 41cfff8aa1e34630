#pragma once

#include <QObject>

#include <functional>

class QSocketNotifier;

// Turns SIGTERM, SIGINT and SIGHUP into a call on the event loop, so a terminal ended by its
// session, a service manager or Ctrl+C closes its window (and saves) as if the user had closed
// it. A second signal before the program is gone ends every event loop at once: whatever the
// first one started is waiting for something that will not come. Only one may exist at a time;
// the default handlers come back when it goes.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(std::function<void()> onFirstSignal, QObject *parent = nullptr);
    ~TerminationSignals() override;

    bool isActive() const { return m_notifier != nullptr; }

    // The exit status after a second signal: 128 + the signal's number, as a shell reports it.
    static int exitStatusFor(int signalNumber) { return 128 + signalNumber; }

private:
    void takeSignal();

    std::function<void()> m_onFirstSignal;
    QSocketNotifier *m_notifier = nullptr;
    int m_received = 0;
};
