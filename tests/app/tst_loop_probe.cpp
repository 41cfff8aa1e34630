#include "app/loop_probe.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

// One turn of the loop as the probe sees it: when it came, whether a modal wait was running,
// how long the thread had waited for a processor by then.
struct Turn
{
    qint64 atMs;
    bool modal;
    qint64 cpuWaitMs;
};

LoopProbe::ThreadTimes waited(qint64 waitingMs)
{
    return {0, waitingMs};
}

QJsonObject readReport(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

Q_DECLARE_METATYPE(QList<Turn>)

class LoopProbeTest : public QObject
{
    Q_OBJECT

private slots:
    void turnsAreMeasured_data();
    void turnsAreMeasured();
    void reportIsWrittenWhileRunningAndAtTheEnd();
    void messagesAreTalliedUpToTheCap();
    void nestedLoopCountsAsModalWait();
    void environmentDecidesWhetherItRuns();

private:
    QTemporaryDir m_dir;
};

void LoopProbeTest::turnsAreMeasured_data()
{
    QTest::addColumn<QList<Turn>>("turns");
    QTest::addColumn<qint64>("longestBlock");
    QTest::addColumn<int>("overLimit");
    QTest::addColumn<qint64>("longestLate");
    QTest::addColumn<qint64>("modalTurns");

    // Every turn is asked for 20 ms after the one before.
    QTest::newRow("on time") << QList<Turn>{{1000, false, 0}, {1020, false, 0}, {1040, false, 0}}
                             << qint64(0) << 0 << qint64(0) << qint64(0);
    QTest::newRow("one long block")
            << QList<Turn>{{1000, false, 0}, {1020, false, 0}, {1340, false, 0}, {1360, false, 0}}
            << qint64(300) << 1 << qint64(300) << qint64(0);
    QTest::newRow("exactly at the limit is no block")
            << QList<Turn>{{1000, false, 0}, {1270, false, 0}} << qint64(250) << 0 << qint64(250)
            << qint64(0);
    QTest::newRow("waiting for a processor is not the terminal's")
            << QList<Turn>{{1000, false, 5}, {1420, false, 305}} << qint64(100) << 0 << qint64(400)
            << qint64(0);
    QTest::newRow("a modal wait and the turn after it are left out")
            << QList<Turn>{{1000, false, 0}, {1020, true, 0},  {3020, true, 0},
                           {4020, false, 0}, {4040, false, 0}, {4100, false, 0}}
            << qint64(40) << 0 << qint64(40) << qint64(3);
}

void LoopProbeTest::turnsAreMeasured()
{
    QFETCH(QList<Turn>, turns);
    QFETCH(qint64, longestBlock);
    QFETCH(int, overLimit);
    QFETCH(qint64, longestLate);
    QFETCH(qint64, modalTurns);

    qsizetype index = 0;
    LoopProbe probe(
            m_dir.filePath(QStringLiteral("measured.json")), [&] { return turns.at(index).atMs; },
            [&] { return turns.at(index).modal; },
            [&] { return waited(turns.at(index).cpuWaitMs); });
    for (index = 0; index < turns.size(); ++index)
        probe.tick();

    const LoopProbe::Figures figures = probe.figures();
    QCOMPARE(figures.longestBlockMs, longestBlock);
    QCOMPARE(figures.blocksOverLimit, overLimit);
    QCOMPARE(figures.longestLateMs, longestLate);
    QCOMPARE(figures.modalTurns, modalTurns);
    QCOMPARE(figures.turns + figures.modalTurns, qint64(turns.size() - 1));
    QCOMPARE(figures.watchedMs, turns.last().atMs - turns.first().atMs);
}

void LoopProbeTest::reportIsWrittenWhileRunningAndAtTheEnd()
{
    const QString path = m_dir.filePath(QStringLiteral("report.json"));
    qint64 now = 5000;
    qint64 running = 0;
    {
        LoopProbe probe(
                path, [&] { return now; }, [] { return false; },
                [&] {
                    return LoopProbe::ThreadTimes{running, 0};
                });
        probe.tick();
        for (now += 20; now < 5000 + LoopProbe::kReportEveryMs; now += 20)
            probe.tick();
        QVERIFY(!QFile::exists(path));
        // One turn half a second late, busy with what it said; and the report is due.
        probe.noteMessage(QStringLiteral("Market movers updated"));
        now += 480;
        running += 470;
        probe.tick();
        const QJsonObject report = readReport(path);
        QCOMPARE(report.value("final").toBool(true), false);
        QCOMPARE(report.value("longest_block_ms").toInt(), 480);
        QCOMPARE(report.value("blocks_over_limit").toInt(), 1);
        const QJsonArray blocks = report.value("blocks").toArray();
        QCOMPARE(blocks.size(), 1);
        const QJsonObject block = blocks.at(0).toObject();
        QCOMPARE(block.value("ms").toInt(), 480);
        QCOMPARE(block.value("running_ms").toInt(), 470);
        QCOMPARE(block.value("texts").toArray(), QJsonArray{"Market movers updated"});
        probe.noteMessage(QStringLiteral("Binance ticker stream connected"));
    }
    const QJsonObject last = readReport(path);
    QCOMPARE(last.value("final").toBool(), true);
    QCOMPARE(last.value("limit_ms").toInt(), LoopProbe::kLimitMs);
    QCOMPARE(last.value("messages").toObject().value("Binance ticker stream connected").toInt(), 1);
    QVERIFY(QDir(m_dir.path()).entryList({QStringLiteral("report.json.*")}).isEmpty());
}

void LoopProbeTest::messagesAreTalliedUpToTheCap()
{
    LoopProbe probe(m_dir.filePath(QStringLiteral("messages.json")));
    probe.noteMessage(QString());
    probe.noteMessage(QStringLiteral("Terminal initialized"));
    probe.noteMessage(QStringLiteral("Terminal initialized"));
    for (int i = 1; i < LoopProbe::kMessagesKept + 3; ++i)
        probe.noteMessage(QStringLiteral("News updated: Querlin JSON (%1 headlines)").arg(i));
    const QJsonObject report = QJsonDocument::fromJson(probe.reportJson(false)).object();
    const QJsonObject messages = report.value("messages").toObject();
    QCOMPARE(messages.size(), LoopProbe::kMessagesKept);
    QCOMPARE(messages.value("Terminal initialized").toInt(), 2);
    QCOMPARE(report.value("messages_dropped").toInt(), 3);
}

void LoopProbeTest::nestedLoopCountsAsModalWait()
{
    // `outer` plays the application's loop; a dialog's exec() would add one above it.
    bool inOuter = true;
    bool inNested = false;
    QEventLoop outer;
    QEventLoop nested;
    QTimer::singleShot(0, &outer, [&] {
        inOuter = LoopProbe::nestedEventLoopRunning();
        QTimer::singleShot(0, &nested, [&] {
            inNested = LoopProbe::nestedEventLoopRunning();
            nested.quit();
        });
        nested.exec();
        outer.quit();
    });
    outer.exec();
    QVERIFY(!inOuter);
    QVERIFY(inNested);
}

void LoopProbeTest::environmentDecidesWhetherItRuns()
{
    qunsetenv("QRL_LOOP_PROBE");
    QVERIFY(!LoopProbe::fromEnvironment());

    const QString path = m_dir.filePath(QStringLiteral("environment.json"));
    qputenv("QRL_LOOP_PROBE", path.toUtf8());
    {
        const std::unique_ptr<LoopProbe> probe = LoopProbe::fromEnvironment();
        QVERIFY(probe);
        QTRY_VERIFY(probe->figures().turns >= 3);
        QVERIFY(LoopProbe::currentThreadTimes().runningMs > 0);
    }
    qunsetenv("QRL_LOOP_PROBE");
    QCOMPARE(readReport(path).value("final").toBool(), true);
}

QTEST_GUILESS_MAIN(LoopProbeTest)
#include "tst_loop_probe.moc"
