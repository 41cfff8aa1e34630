#include "app/termination_signals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// The handler may only write to a pipe; the notifier reads it on the event loop.
int g_pipe[2] = {-1, -1};

extern "C" void forwardSignal(int signalNumber)
{
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> onFirstSignal, QObject *parent)
    : QObject(parent)
    , m_onFirstSignal(std::move(onFirstSignal))
{
    if (g_pipe[0] >= 0 || ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &TerminationSignals::takeSignal);
    struct sigaction action = {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : kSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    if (!m_notifier)
        return;
    for (const int signalNumber : kSignals)
        std::signal(signalNumber, SIG_DFL);
    delete m_notifier;
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = -1;
}

void TerminationSignals::takeSignal()
{
    unsigned char byte = 0;
    while (::read(g_pipe[0], &byte, 1) == 1) {
        if (++m_received == 1) {
            if (m_onFirstSignal)
                m_onFirstSignal();
        } else {
            QCoreApplication::exit(exitStatusFor(byte));
        }
    }
}
