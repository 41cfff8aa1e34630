#include "app/termination_signals.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <csignal>

class TerminationSignalsTest : public QObject
{
    Q_OBJECT

private slots:
    void firstSignalClosesSecondEndsEveryLoop_data();
    void firstSignalClosesSecondEndsEveryLoop();
    void handlersGoWithIt();
};

void TerminationSignalsTest::firstSignalClosesSecondEndsEveryLoop_data()
{
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TerminationSignalsTest::firstSignalClosesSecondEndsEveryLoop()
{
    QFETCH(int, signalNumber);
    int closes = 0;
    QObject run;         // keeps this row's timers to this row
    QEventLoop question; // what closing a window may open: a modal question, never answered
    TerminationSignals termination([&] {
        ++closes;
        question.exec();
    });
    QVERIFY(termination.isActive());

    QTimer::singleShot(0, &run, [signalNumber] { ::raise(signalNumber); });
    // The second signal comes while the first one's question waits.
    QTimer::singleShot(100, &question, [signalNumber] { ::raise(signalNumber); });
    QTimer::singleShot(5000, &run, [] { QCoreApplication::exit(-1); });
    const int status = QCoreApplication::exec();

    QCOMPARE(closes, 1);
    QCOMPARE(status, TerminationSignals::exitStatusFor(signalNumber));
    QVERIFY(!question.isRunning());
}

void TerminationSignalsTest::handlersGoWithIt()
{
    {
        TerminationSignals first([] {});
        TerminationSignals second([] {}); // only one takes the signals
        QVERIFY(first.isActive());
        QVERIFY(!second.isActive());
    }
    struct sigaction current = {};
    ::sigaction(SIGTERM, nullptr, &current);
    QVERIFY(current.sa_handler == SIG_DFL);
    TerminationSignals again([] {});
    QVERIFY(again.isActive());
}

QTEST_GUILESS_MAIN(TerminationSignalsTest)
#include "tst_termination_signals.moc"
