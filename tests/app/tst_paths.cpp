#include "app/atomic_file.h"
#include "app/paths.h"
#include "support/isolated_folders.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTest>

Q_DECLARE_METATYPE(DataFile)

class PathsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useTerminalIdentity(); }

    void blankLocationFallsBackToHome_data();
    void blankLocationFallsBackToHome();
    void foldersAreResolvedAndRecreatedOnEveryCall();
    void readPathPrefersConfigFolder_data();
    void readPathPrefersConfigFolder();
    void firstSaveMovesLegacySettingsForGood();
    void watchlistWritePathCreatesItsFolder();
    void cacheKeyBecomesSafeFileName_data();
    void cacheKeyBecomesSafeFileName();
    void alphaVantageCacheHasLegacyPath();
    void universeFoldersInOrderWithoutDuplicates();
    void universeFoldersDropDuplicates_data();
    void universeFoldersDropDuplicates();
};

void PathsTest::blankLocationFallsBackToHome_data()
{
    QTest::addColumn<QString>("standardLocation");
    QTest::addColumn<bool>("usesFallback");
    QTest::newRow("empty") << QString() << true;
    QTest::newRow("blank") << QStringLiteral("  \t ") << true;
    QTest::newRow("given") << QStringLiteral("given/folder") << false;
}

void PathsTest::blankLocationFallsBackToHome()
{
    QFETCH(QString, standardLocation);
    QFETCH(bool, usesFallback);
    IsolatedFolders folders;
    const QString resolved = resolveDataFolder(standardLocation, QStringLiteral("/.config/X_Y"));
    const QString expected = usesFallback
                                     ? folders.home() + QStringLiteral("/.config/X_Y")
                                     : folders.workingFolder() + QStringLiteral("/given/folder");
    QCOMPARE(resolved, expected);
    QVERIFY(QFileInfo(resolved).isDir());
    QVERIFY(QFileInfo(resolved).isAbsolute());
}

void PathsTest::foldersAreResolvedAndRecreatedOnEveryCall()
{
    IsolatedFolders folders;
    QCOMPARE(configFolderPath(), folders.expectedConfigFolder());
    QCOMPARE(cacheFolderPath(), folders.expectedCacheFolder());
    QVERIFY(QDir(folders.expectedConfigFolder()).removeRecursively());
    QCOMPARE(configFolderPath(), folders.expectedConfigFolder());
    QVERIFY(QFileInfo(folders.expectedConfigFolder()).isDir());
}

void PathsTest::readPathPrefersConfigFolder_data()
{
    QTest::addColumn<DataFile>("file");
    QTest::addColumn<QString>("configName");
    QTest::addColumn<QString>("legacyPath");
    QTest::addColumn<bool>("configExists");
    QTest::addColumn<bool>("legacyExists");
    QTest::addColumn<bool>("readsLegacy");

    const struct
    {
        const char *tag;
        DataFile file;
        const char *configName;
        const char *legacy;
    } files[] = {
            {"keys", DataFile::ApiKeys, "config.txt", "config.txt"},
            {"settings", DataFile::LocalSettings, "local.json", "data/settings/local.json"},
            {"watchlist", DataFile::DefaultWatchlist, "watchlists/default.json",
             "data/watchlists/default.json"},
            {"workspace", DataFile::WorkspaceSnapshot, "workspace.default.json",
             "data/settings/workspace.default.json"},
    };
    for (const auto &f : files) {
        const QString name = QString::fromLatin1(f.configName);
        const QString legacy = QString::fromLatin1(f.legacy);
        QTest::addRow("%s: none", f.tag) << f.file << name << legacy << false << false << false;
        QTest::addRow("%s: legacy only", f.tag)
                << f.file << name << legacy << false << true << true;
        QTest::addRow("%s: config only", f.tag)
                << f.file << name << legacy << true << false << false;
        QTest::addRow("%s: both", f.tag) << f.file << name << legacy << true << true << false;
    }
}

void PathsTest::readPathPrefersConfigFolder()
{
    QFETCH(DataFile, file);
    QFETCH(QString, configName);
    QFETCH(QString, legacyPath);
    QFETCH(bool, configExists);
    QFETCH(bool, legacyExists);
    QFETCH(bool, readsLegacy);

    IsolatedFolders folders;
    const QString configPath = folders.expectedConfigFolder() + QLatin1Char('/') + configName;
    if (configExists)
        folders.writeFile(configPath, "config");
    if (legacyExists)
        folders.writeFile(legacyPath, "legacy");

    QCOMPARE(dataFileWritePath(file), configPath);
    QCOMPARE(dataFileLegacyPath(file), legacyPath);
    QCOMPARE(dataFileReadPath(file), readsLegacy ? legacyPath : configPath);
}

void PathsTest::firstSaveMovesLegacySettingsForGood()
{
    IsolatedFolders folders;
    const QString legacy =
            folders.writeFile(QStringLiteral("data/settings/local.json"), "{\"a\":1}");
    QCOMPARE(IsolatedFolders::readFile(dataFileReadPath(DataFile::LocalSettings)), "{\"a\":1}");

    QVERIFY(writeFileAtomically(dataFileWritePath(DataFile::LocalSettings), "{\"a\":2}"));
    QCOMPARE(dataFileReadPath(DataFile::LocalSettings),
             folders.expectedConfigFolder() + QStringLiteral("/local.json"));
    QCOMPARE(IsolatedFolders::readFile(dataFileReadPath(DataFile::LocalSettings)), "{\"a\":2}");
    QCOMPARE(IsolatedFolders::readFile(legacy), "{\"a\":1}"); // never rewritten
}

void PathsTest::watchlistWritePathCreatesItsFolder()
{
    IsolatedFolders folders;
    const QString path = dataFileWritePath(DataFile::DefaultWatchlist);
    QVERIFY(QFileInfo(QFileInfo(path).absolutePath()).isDir());
    QVERIFY(path.endsWith(QStringLiteral("/watchlists/default.json")));
}

void PathsTest::cacheKeyBecomesSafeFileName_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("fileName");
    QTest::newRow("lower case and slash") << QStringLiteral("abc/1") << QStringLiteral("____1");
    QTest::newRow("kept as is") << QStringLiteral("GLOBAL_QUOTE-IBM.X")
                                << QStringLiteral("GLOBAL_QUOTE-IBM.X");
    QTest::newRow("forex") << QStringLiteral("BRL=X") << QStringLiteral("BRL_X");
    QTest::newRow("traversal") << QStringLiteral("../../etc") << QStringLiteral(".._..____");
    QTest::newRow("accents and blanks") << QStringLiteral("PÃO 1") << QStringLiteral("P_O_1");
}

void PathsTest::cacheKeyBecomesSafeFileName()
{
    QFETCH(QString, key);
    QFETCH(QString, fileName);
    QCOMPARE(sanitizedCacheKey(key), fileName);
}

void PathsTest::alphaVantageCacheHasLegacyPath()
{
    IsolatedFolders folders;
    const QString write = alphaVantageCacheWritePath(QStringLiteral("abc/1"));
    QCOMPARE(write, folders.expectedCacheFolder() + QStringLiteral("/alpha_vantage/____1.json"));
    QVERIFY(QFileInfo(folders.expectedCacheFolder() + QStringLiteral("/alpha_vantage")).isDir());
    QCOMPARE(alphaVantageCacheReadPath(QStringLiteral("abc/1")), write);

    folders.writeFile(QStringLiteral("data/cache/alpha_vantage/IBM.json"), "{}");
    QCOMPARE(alphaVantageCacheReadPath(QStringLiteral("IBM")),
             QStringLiteral("data/cache/alpha_vantage/IBM.json"));
}

void PathsTest::universeFoldersInOrderWithoutDuplicates()
{
    const QString appDir = QCoreApplication::applicationDirPath();
    const QStringList expected{
            QStringLiteral("data/universe"),
            QDir::cleanPath(appDir + QStringLiteral("/share/QUERLIN_TERMINAL/universe")),
            QDir::cleanPath(appDir + QStringLiteral("/../share/QUERLIN_TERMINAL/universe")),
            QStringLiteral("/usr/local/share/QUERLIN_TERMINAL/universe"),
            QStringLiteral("/usr/share/QUERLIN_TERMINAL/universe"),
    };
    QCOMPARE(universeSearchFolders(), expected);
}

void PathsTest::universeFoldersDropDuplicates_data()
{
    QTest::addColumn<QString>("appDir");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("/usr/bin")
            << QStringLiteral("/usr/bin")
            << QStringList{QStringLiteral("data/universe"),
                           QStringLiteral("/usr/bin/share/QUERLIN_TERMINAL/universe"),
                           QStringLiteral("/usr/share/QUERLIN_TERMINAL/universe"),
                           QStringLiteral("/usr/local/share/QUERLIN_TERMINAL/universe")};
    QTest::newRow("/usr/local/bin")
            << QStringLiteral("/usr/local/bin")
            << QStringList{QStringLiteral("data/universe"),
                           QStringLiteral("/usr/local/bin/share/QUERLIN_TERMINAL/universe"),
                           QStringLiteral("/usr/local/share/QUERLIN_TERMINAL/universe"),
                           QStringLiteral("/usr/share/QUERLIN_TERMINAL/universe")};
}

void PathsTest::universeFoldersDropDuplicates()
{
    QFETCH(QString, appDir);
    QFETCH(QStringList, expected);
    QCOMPARE(universeSearchFolders(appDir), expected);
}

QTEST_GUILESS_MAIN(PathsTest)
#include "tst_paths.moc"
