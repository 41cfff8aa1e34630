#include "app/paths.h"
#include "providers/api_keys.h"
#include "support/isolated_folders.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>

namespace {

const char *const kKeyVariables[] = {"QRL_ALPHA_VANTAGE_API_KEY", "QRL_BRAPI_TOKEN",
                                     "QRL_ITICK_API_KEY"};

QString configKeyFile(const IsolatedFolders &folders)
{
    return folders.expectedConfigFolder() + QStringLiteral("/config.txt");
}

// What allApiKeys() holds for a store with nothing but the given map keys.
QMap<QString, QString> withDedicated(QMap<QString, QString> keys)
{
    for (const char *name : {"alpha_vantage_api_key", "itick_api_key", "brapi_token"})
        keys.insert(QString::fromLatin1(name), keys.value(QString::fromLatin1(name)));
    return keys;
}

} // namespace

class ApiKeysTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useTerminalIdentity(); }
    void init()
    {
        for (const char *variable : kKeyVariables)
            qunsetenv(variable);
    }
    void cleanup() { init(); }

    void keyFileTextIsExactAndRoundTrips();
    void environmentAndFilePrecedence_data();
    void environmentAndFilePrecedence();
    void lineParsing_data();
    void lineParsing();
    void hiddenColumnsAreReadButNeverWritten();
    void clearedMapKeyIsRemovedButStillWrittenEmpty();
    void legacyFileIsReadAndSaveGoesToConfigFolder();
    void savedFileIsOwnerOnly();
    void failedSaveReturnsFalseAndKeepsFiles();
};

void ApiKeysTest::keyFileTextIsExactAndRoundTrips()
{
    IsolatedFolders folders;
    ApiKeyStore keys;
    keys.setApiKey(QStringLiteral("alpha_vantage_api_key"), QStringLiteral("AV1"));
    keys.setApiKey(QStringLiteral("brapi_token"), QStringLiteral("BR=1"));
    keys.setApiKey(QStringLiteral("finnhub_api_key"), QStringLiteral("fh"));
    keys.setApiKey(QStringLiteral("querlin_news_endpoint"), QStringLiteral("https://n.example/x"));
    // A pasted line break must not smuggle a line of its own into the file.
    keys.setApiKey(QStringLiteral("binance_api_secret"), QStringLiteral("s1\nhidden_columns=2"));
    keys.setApiKey(QStringLiteral("not_in_catalogue"), QStringLiteral("dropped on save"));

    const QByteArray expected = "# QUERLIN_TERMINAL local keys. Do not commit this file.\n"
                                "alpha_vantage_api_key=AV1\n"
                                "itick_api_key=\n"
                                "brapi_token=BR=1\n"
                                "polygon_api_key=\n"
                                "finnhub_api_key=fh\n"
                                "twelvedata_api_key=\n"
                                "iex_cloud_api_key=\n"
                                "financial_modeling_prep_api_key=\n"
                                "tiingo_api_key=\n"
                                "eodhd_api_key=\n"
                                "marketstack_api_key=\n"
                                "querlin_news_endpoint=https://n.example/x\n"
                                "querlin_news_token=\n"
                                "newsapi_api_key=\n"
                                "binance_api_key=\n"
                                "binance_api_secret=s1hidden_columns=2\n";
    QCOMPARE(keys.keyFileText(), expected);
    QVERIFY(keys.saveLocalApiKeys());
    QCOMPARE(IsolatedFolders::readFile(configKeyFile(folders)), expected);

    ApiKeyStore loaded;
    QSet<int> hidden;
    loaded.loadConfig(&hidden);
    QMap<QString, QString> survivors = keys.allApiKeys();
    survivors.remove(QStringLiteral("not_in_catalogue"));
    survivors.insert(QStringLiteral("binance_api_secret"), QStringLiteral("s1hidden_columns=2"));
    QCOMPARE(loaded.allApiKeys(), survivors);
    QVERIFY(hidden.isEmpty());
    QCOMPARE(loaded.keyFileText(), expected);
}

void ApiKeysTest::environmentAndFilePrecedence_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("brapi placeholder keeps env")
            << QByteArray("brapi_token=YOUR_BRAPI_TOKEN_HERE\n") << QByteArray("QRL_BRAPI_TOKEN")
            << "brapi_token"
            << "xyz";
    QTest::newRow("brapi in file wins")
            << QByteArray("brapi_token=abc\n") << QByteArray("QRL_BRAPI_TOKEN") << "brapi_token"
            << "abc";
    QTest::newRow("alpha placeholder keeps env")
            << QByteArray("alpha_vantage_api_key=YOUR_ALPHA_VANTAGE_KEY_HERE\n")
            << QByteArray("QRL_ALPHA_VANTAGE_API_KEY") << "alpha_vantage_api_key"
            << "xyz";
    QTest::newRow("empty alpha keeps env")
            << QByteArray("alpha_vantage_api_key=\n") << QByteArray("QRL_ALPHA_VANTAGE_API_KEY")
            << "alpha_vantage_api_key"
            << "xyz";
    QTest::newRow("empty itick clears env")
            << QByteArray("itick_api_key=\n") << QByteArray("QRL_ITICK_API_KEY") << "itick_api_key"
            << "";
    QTest::newRow("no file, env only")
            << QByteArray() << QByteArray("QRL_ITICK_API_KEY") << "itick_api_key"
            << "xyz";
}

void ApiKeysTest::environmentAndFilePrecedence()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, variable);
    QFETCH(QString, name);
    QFETCH(QString, expected);
    IsolatedFolders folders;
    if (!file.isNull())
        folders.writeFile(configKeyFile(folders), file);
    qputenv(variable.constData(), "xyz");
    ApiKeyStore keys;
    keys.loadConfig();
    QCOMPARE(keys.apiKey(name), expected);
}

void ApiKeysTest::lineParsing_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("name"); // empty: nothing is stored
    QTest::addColumn<QString>("value");
    QTest::newRow("padded") << QByteArray("  finnhub_api_key =  k1  ") << "finnhub_api_key"
                            << "k1";
    QTest::newRow("equals in value") << QByteArray("tiingo_api_key=a=b") << "tiingo_api_key"
                                     << "a=b";
    QTest::newRow("unknown name kept") << QByteArray("future_key=v") << "future_key"
                                       << "v";
    QTest::newRow("no name") << QByteArray("=value") << ""
                             << "";
    QTest::newRow("padded no name") << QByteArray("   = value") << ""
                                    << "";
    QTest::newRow("no equals") << QByteArray("finnhub_api_key k1") << ""
                               << "";
    QTest::newRow("comment") << QByteArray("# finnhub_api_key=k1") << ""
                             << "";
    QTest::newRow("indented comment") << QByteArray("   #finnhub_api_key=k1") << ""
                                      << "";
    QTest::newRow("empty value") << QByteArray("finnhub_api_key=   ") << ""
                                 << "";
    QTest::newRow("windows line end") << QByteArray("newsapi_api_key=n1\r") << "newsapi_api_key"
                                      << "n1";
}

void ApiKeysTest::lineParsing()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, name);
    QFETCH(QString, value);
    IsolatedFolders folders;
    const QString path = folders.writeFile(QStringLiteral("keys.txt"), "\n" + line + "\n\n");
    ApiKeyStore keys;
    keys.readKeyFile(path);
    QMap<QString, QString> expected;
    if (!name.isEmpty())
        expected.insert(name, value);
    QCOMPARE(keys.allApiKeys(), withDedicated(expected));
}

void ApiKeysTest::hiddenColumnsAreReadButNeverWritten()
{
    IsolatedFolders folders;
    const QString path = folders.writeFile(configKeyFile(folders),
                                           "hidden_columns=3, 0, 16, x, 15\nitick_api_key=it\n");
    ApiKeyStore keys;
    QSet<int> hidden;
    keys.loadConfig(&hidden);
    QCOMPARE(hidden, (QSet<int>{3, 15}));
    QCOMPARE(keys.allApiKeys(), withDedicated({{QStringLiteral("itick_api_key"), "it"}}));
    QVERIFY(keys.saveLocalApiKeys());
    QVERIFY(!IsolatedFolders::readFile(path).contains("hidden_columns"));
}

void ApiKeysTest::clearedMapKeyIsRemovedButStillWrittenEmpty()
{
    IsolatedFolders folders;
    folders.writeFile(configKeyFile(folders), "polygon_api_key=p1\nfinnhub_api_key=f1\n");
    ApiKeyStore keys;
    keys.loadConfig();
    keys.setApiKey(QStringLiteral("polygon_api_key"), QString());
    QCOMPARE(keys.allApiKeys(), withDedicated({{QStringLiteral("finnhub_api_key"), "f1"}}));
    QVERIFY(keys.saveLocalApiKeys());
    const QByteArray saved = IsolatedFolders::readFile(configKeyFile(folders));
    QVERIFY(saved.contains("\npolygon_api_key=\n"));
    QVERIFY(saved.contains("\nfinnhub_api_key=f1\n"));
}

void ApiKeysTest::legacyFileIsReadAndSaveGoesToConfigFolder()
{
    IsolatedFolders folders;
    const QByteArray legacyText = "brapi_token=legacy\n";
    const QString legacy = folders.writeFile(QStringLiteral("config.txt"), legacyText);
    ApiKeyStore keys;
    keys.loadConfig();
    QCOMPARE(keys.apiKey(QStringLiteral("brapi_token")), QStringLiteral("legacy"));

    keys.setApiKey(QStringLiteral("brapi_token"), QStringLiteral("moved"));
    QVERIFY(keys.saveLocalApiKeys());
    QCOMPARE(IsolatedFolders::readFile(legacy), legacyText);
    QCOMPARE(IsolatedFolders::readFile(configKeyFile(folders)), keys.keyFileText());

    // From now on the config-folder file wins over the legacy one.
    ApiKeyStore reloaded;
    reloaded.loadConfig();
    QCOMPARE(reloaded.apiKey(QStringLiteral("brapi_token")), QStringLiteral("moved"));
}

void ApiKeysTest::savedFileIsOwnerOnly()
{
    IsolatedFolders folders;
    const QString path = folders.writeFile(configKeyFile(folders), "finnhub_api_key=f1\n");
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                                QFile::ReadOther));
    ApiKeyStore keys;
    keys.loadConfig();
    QVERIFY(keys.saveLocalApiKeys());
    struct stat info
    {
    };
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 0600u);
}

void ApiKeysTest::failedSaveReturnsFalseAndKeepsFiles()
{
    IsolatedFolders folders;
    // A file where the config folder should be: nothing can be created under it, even by root.
    const QString obstruction = folders.writeFile(folders.expectedConfigFolder(), "in the way");
    const QString legacy = folders.writeFile(QStringLiteral("config.txt"), "brapi_token=old\n");
    ApiKeyStore keys;
    keys.loadConfig();
    QCOMPARE(keys.apiKey(QStringLiteral("brapi_token")), QStringLiteral("old"));

    keys.setApiKey(QStringLiteral("brapi_token"), QStringLiteral("new"));
    QString error;
    QVERIFY(!keys.saveLocalApiKeys(&error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(IsolatedFolders::readFile(legacy), QByteArray("brapi_token=old\n"));
    QCOMPARE(IsolatedFolders::readFile(obstruction), QByteArray("in the way"));
}

QTEST_GUILESS_MAIN(ApiKeysTest)
#include "tst_api_keys.moc"
