#include "app/atomic_file.h"
#include "support/isolated_folders.h"

#include <QDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

class AtomicFileTest : public QObject
{
    Q_OBJECT

private slots:
    void replacesWholeContentAndCreatesFolders();
    void ownerOnlyPermissionsFromTheStart();
    void fullDiskKeepsThePreviousFile();
};

void AtomicFileTest::replacesWholeContentAndCreatesFolders()
{
    IsolatedFolders folders;
    const QString path = folders.root() + QStringLiteral("/a/b/file.json");
    QVERIFY(writeFileAtomically(path, QByteArray(4096, 'x')));
    QVERIFY(writeFileAtomically(path, "short"));
    QCOMPARE(IsolatedFolders::readFile(path), QByteArray("short"));
    // No temporary file is left beside it.
    QCOMPARE(QDir(folders.root() + QStringLiteral("/a/b")).entryList(QDir::Files),
             QStringList{QStringLiteral("file.json")});
}

void AtomicFileTest::ownerOnlyPermissionsFromTheStart()
{
    IsolatedFolders folders;
    const QString path = folders.root() + QStringLiteral("/config.txt");
    QVERIFY(writeFileAtomically(path, "secret", QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    struct stat info
    {
    };
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 0777, 0600u);
}

void AtomicFileTest::fullDiskKeepsThePreviousFile()
{
    IsolatedFolders folders;
    const QString path = folders.root() + QStringLiteral("/local.json");
    QVERIFY(writeFileAtomically(path, "previous"));

    // A file-size limit makes the disk look full, even to root.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit tight = saved;
    tight.rlim_cur = 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &tight), 0);
    QString error;
    const bool written = writeFileAtomically(path, QByteArray(64 * 1024, 'n'), {}, &error);
    setrlimit(RLIMIT_FSIZE, &saved);

    QVERIFY(!written);
    QVERIFY(!error.isEmpty());
    QCOMPARE(IsolatedFolders::readFile(path), QByteArray("previous"));
    QCOMPARE(QDir(folders.root()).entryList(QDir::Files),
             QStringList{QStringLiteral("local.json")});
}

QTEST_GUILESS_MAIN(AtomicFileTest)
#include "tst_atomic_file.moc"
