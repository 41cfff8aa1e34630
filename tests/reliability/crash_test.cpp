#include "crash_writer/crash_documents.h"
#include "reliability/crash_account.h"
#include "reliability/crash_files.h"
#include "support/isolated_folders.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

// The terminal and the account service killed with SIGKILL in the middle of their saves. The
// counts and the seed come from the environment, so `make crash` runs the long version of the same
// test: QRL_CRASH_KILLS (terminal kills), QRL_CRASH_SERVICE_KILLS, QRL_CRASH_SEED.
class CrashTest : public QObject
{
    Q_OBJECT

private slots:
    void savedFilesSurviveKills();
    void accountServiceSurvivesKills();

private:
    static int setting(const char *name, int fallback)
    {
        bool ok = false;
        const int value = qEnvironmentVariableIntValue(name, &ok);
        return ok && value >= 0 ? value : fallback;
    }
    static quint64 seed()
    {
        bool ok = false;
        const quint64 value = qEnvironmentVariable("QRL_CRASH_SEED").toULongLong(&ok);
        return ok ? value : 20240308;
    }
};

void CrashTest::savedFilesSurviveKills()
{
    IsolatedFolders folders;
    useTerminalIdentity();
    // Half-written temporary files, as a kill in the middle of a save on a file system without
    // unnamed temporary files leaves them: the terminal must never read one as its document.
    const QStringList planted{crashFilePath(CrashFile::Settings) + QStringLiteral(".Q7fKx2"),
                              crashFilePath(CrashFile::Keys) + QStringLiteral(".Zr4mPa")};
    for (const QString &path : planted) {
        const CrashFile file =
                path.contains(QLatin1String("config")) ? CrashFile::Keys : CrashFile::Settings;
        const QByteArray whole = expectedCrashBytes(file, file == CrashFile::Keys ? 0 : 1);
        QFile partial(path);
        QVERIFY(partial.open(QIODevice::WriteOnly));
        partial.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        partial.write(whole.left(whole.size() / 2));
    }

    const int kills = setting("QRL_CRASH_KILLS", 24);
    QElapsedTimer clock;
    clock.start();
    const FileCrashFigures figures =
            runFileCrashes(QString::fromUtf8(QRL_CRASH_WRITER), kills, seed());
    QStringList leftovers;
    for (const QString &path : figures.leftovers) {
        if (!planted.contains(path))
            leftovers << QFileInfo(path).fileName();
    }
    qInfo().noquote() << QStringLiteral("crash files: seed %1, kills %2 (mid-save %3, old document "
                                        "kept %4), saves completed "
                                        "%5, files checked %6, key mode checks %7, leftover "
                                        "temporary files %8%9, failures %10, "
                                        "%11 s")
                                 .arg(seed())
                                 .arg(figures.kills)
                                 .arg(figures.killsMidSave)
                                 .arg(figures.oldContentKept)
                                 .arg(figures.savesCompleted)
                                 .arg(figures.filesChecked)
                                 .arg(figures.keyModeChecks)
                                 .arg(leftovers.size())
                                 .arg(leftovers.isEmpty()
                                              ? QString()
                                              : QStringLiteral(" (%1)").arg(leftovers.join(u", ")))
                                 .arg(figures.failures.size())
                                 .arg(double(clock.elapsed()) / 1000, 0, 'f', 1);
    for (const QString &failure : figures.failures)
        qWarning().noquote() << failure;
    QVERIFY(figures.failures.isEmpty());
    QCOMPARE(figures.kills, kills);
    QCOMPARE(figures.filesChecked, kills * int(kCrashFiles.size()));
    // The delays put most kills inside a save; a run where none landed there proves nothing.
    QVERIFY(kills == 0 || figures.killsMidSave > kills / 2);
}

void CrashTest::accountServiceSurvivesKills()
{
    IsolatedFolders folders;
    const int kills = setting("QRL_CRASH_SERVICE_KILLS", 8);
    QElapsedTimer clock;
    clock.start();
    const ServiceCrashFigures figures = runServiceCrashes(QString::fromUtf8(QRL_ACCOUNT_SERVICE),
                                                          folders.root(), kills, seed());
    qInfo().noquote()
            << QStringLiteral(
                       "crash account service: seed %1, kills %2 (mid-push %3), restarts %4, "
                       "pushes "
                       "acknowledged %5, cut-off pushes kept %6 / dropped whole %7, namespaces "
                       "checked %8, "
                       "integrity checks %9, failures %10, %11 s (a push %12 ms, a restart %13 ms)")
                       .arg(seed())
                       .arg(figures.kills)
                       .arg(figures.killsMidPush)
                       .arg(figures.restarts)
                       .arg(figures.pushesAcknowledged)
                       .arg(figures.pushesCutOffKept)
                       .arg(figures.pushesCutOffLost)
                       .arg(figures.namespacesChecked)
                       .arg(figures.integrityChecks)
                       .arg(figures.failures.size())
                       .arg(double(clock.elapsed()) / 1000, 0, 'f', 1)
                       .arg(figures.pushMs / std::max(1, figures.pushesAcknowledged))
                       .arg(figures.restartMs / std::max(1, figures.restarts));
    for (const QString &failure : figures.failures)
        qWarning().noquote() << failure;
    QVERIFY(figures.failures.isEmpty());
    QCOMPARE(figures.kills, kills);
    QCOMPARE(figures.restarts, kills);
    QVERIFY(kills == 0 || figures.pushesAcknowledged > 0);
}

QTEST_GUILESS_MAIN(CrashTest)
#include "crash_test.moc"
