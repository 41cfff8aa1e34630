#include "app/paths.h"
#include "app/startup_log.h"
#include "support/isolated_folders.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

class StartupLogTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useTerminalIdentity(); }

    void lineIsUtcIsoWithMilliseconds_data();
    void lineIsUtcIsoWithMilliseconds();
    void runsAppendToTheSameLog();
    void unopenableLogIsDroppedSilently();
};

void StartupLogTest::lineIsUtcIsoWithMilliseconds_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::addColumn<QString>("line");
    QTest::newRow("utc") << QDateTime(QDate(2026, 11, 14), QTime(17, 20, 39, 123), Qt::UTC)
                         << QStringLiteral("2026-11-14T17:20:39.123Z hello\n");
    QTest::newRow("whole second keeps .000")
            << QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC)
            << QStringLiteral("2026-01-02T03:04:05.000Z hello\n");
    QTest::newRow("offset converted to UTC")
            << QDateTime(QDate(2026, 11, 14), QTime(14, 20, 39, 5), Qt::OffsetFromUTC, -3 * 3600)
            << QStringLiteral("2026-11-14T17:20:39.005Z hello\n");
}

void StartupLogTest::lineIsUtcIsoWithMilliseconds()
{
    QFETCH(QDateTime, time);
    QFETCH(QString, line);
    QCOMPARE(startupLogLine(time, QStringLiteral("hello")), line);
}

void StartupLogTest::runsAppendToTheSameLog()
{
    IsolatedFolders folders;
    writeStartupLog(QStringLiteral("first run: a"));
    writeStartupLog(QStringLiteral("first run: b"));
    writeStartupLog(QStringLiteral("second run: a"));

    const QString log = QString::fromUtf8(IsolatedFolders::readFile(
            folders.expectedConfigFolder() + QStringLiteral("/startup.log")));
    const QStringList lines = log.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 3);
    static const QRegularExpression shape(
            QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (.*)$)"));
    const QStringList messages{QStringLiteral("first run: a"), QStringLiteral("first run: b"),
                               QStringLiteral("second run: a")};
    for (int i = 0; i < lines.size(); ++i) {
        const auto match = shape.match(lines.at(i));
        QVERIFY2(match.hasMatch(), qPrintable(lines.at(i)));
        QCOMPARE(match.captured(1), messages.at(i));
    }
}

void StartupLogTest::unopenableLogIsDroppedSilently()
{
    IsolatedFolders folders;
    QVERIFY(QDir().mkpath(startupLogPath())); // a folder where the file should be
    writeStartupLog(QStringLiteral("lost"));
    QVERIFY(QFileInfo(startupLogPath()).isDir());
}

QTEST_GUILESS_MAIN(StartupLogTest)
#include "tst_startup_log.moc"
