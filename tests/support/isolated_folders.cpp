#include "isolated_folders.h"

#include "app/endpoints.h"
#include "app/identity.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

namespace {

void restoreVariable(const char *name, const QByteArray &value)
{
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}

QByteArray currentVariable(const char *name)
{
    return qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray();
}

} // namespace

IsolatedFolders::IsolatedFolders()
    : m_previousWorkingFolder(QDir::currentPath())
    , m_previousHome(currentVariable("HOME"))
    , m_previousConfigHome(currentVariable("XDG_CONFIG_HOME"))
    , m_previousCacheHome(currentVariable("XDG_CACHE_HOME"))
{
    QVERIFY2(m_dir.isValid(), "cannot create a temporary folder");
    QDir().mkpath(home());
    QDir().mkpath(workingFolder());
    qputenv("HOME", home().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (root() + QStringLiteral("/xdg-config")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (root() + QStringLiteral("/xdg-cache")).toLocal8Bit());
    QDir::setCurrent(workingFolder());
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        if (qEnvironmentVariableIsSet(definition.environmentVariable))
            continue;
        // Port 9 (discard) has no listener here: connections are refused at once.
        qputenv(definition.environmentVariable,
                definition.isStream ? "ws://127.0.0.1:9" : "http://127.0.0.1:9");
        m_deadEndpoints << definition.environmentVariable;
    }
}

IsolatedFolders::~IsolatedFolders()
{
    QDir::setCurrent(m_previousWorkingFolder);
    restoreVariable("HOME", m_previousHome);
    restoreVariable("XDG_CONFIG_HOME", m_previousConfigHome);
    restoreVariable("XDG_CACHE_HOME", m_previousCacheHome);
    for (const char *variable : m_deadEndpoints)
        qunsetenv(variable);
}

QString IsolatedFolders::expectedConfigFolder() const
{
    return root() + QStringLiteral("/xdg-config/") + QCoreApplication::organizationName() +
           QLatin1Char('/') + QCoreApplication::applicationName();
}

QString IsolatedFolders::expectedCacheFolder() const
{
    return root() + QStringLiteral("/xdg-cache/") + QCoreApplication::organizationName() +
           QLatin1Char('/') + QCoreApplication::applicationName();
}

QString IsolatedFolders::writeFile(const QString &path, const QByteArray &contents) const
{
    const QString absolute =
            QDir::isRelativePath(path) ? workingFolder() + QLatin1Char('/') + path : path;
    QDir().mkpath(QFileInfo(absolute).absolutePath());
    QFile file(absolute);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write test file %s", qPrintable(absolute));
    file.write(contents);
    return absolute;
}

QByteArray IsolatedFolders::readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

void useTerminalIdentity()
{
    QCoreApplication::setOrganizationName(QString::fromLatin1(kOrganizationName));
    QCoreApplication::setOrganizationDomain(QString::fromLatin1(kOrganizationDomain));
    QCoreApplication::setApplicationName(QString::fromLatin1(kApplicationName));
}
