#include "app/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

namespace {

const QString kUniverseSubfolder = QStringLiteral("/share/QUERLIN_TERMINAL/universe");

struct DataFileLocation
{
    const char *configRelative;
    const char *legacyRelative;
};

DataFileLocation locationOf(DataFile file)
{
    switch (file) {
    case DataFile::ApiKeys:
        return {"config.txt", "config.txt"};
    case DataFile::LocalSettings:
        return {"local.json", "data/settings/local.json"};
    case DataFile::DefaultWatchlist:
        return {"watchlists/default.json", "data/watchlists/default.json"};
    case DataFile::WorkspaceSnapshot:
        return {"workspace.default.json", "data/settings/workspace.default.json"};
    }
    return {"", ""};
}

QString ensureParentFolder(const QString &filePath)
{
    QDir().mkpath(QFileInfo(filePath).absolutePath());
    return filePath;
}

} // namespace

QString resolveDataFolder(const QString &standardLocation, const QString &homeFallback)
{
    const QString folder = standardLocation.trimmed().isEmpty() ? QDir::homePath() + homeFallback
                                                                : standardLocation;
    QDir().mkpath(folder); // a failure shows later, when a file there cannot be opened
    return QDir(folder).absolutePath();
}

QString configFolderPath()
{
    return resolveDataFolder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation),
                             QStringLiteral("/.config/QUERLIN_TERMINAL"));
}

QString cacheFolderPath()
{
    return resolveDataFolder(QStandardPaths::writableLocation(QStandardPaths::CacheLocation),
                             QStringLiteral("/.cache/QUERLIN_TERMINAL"));
}

QString resolveReadPath(const QString &legacyRelativePath, const QString &configPath)
{
    if (QFileInfo::exists(configPath) || !QFileInfo::exists(legacyRelativePath))
        return configPath;
    return legacyRelativePath;
}

QString dataFileWritePath(DataFile file)
{
    return ensureParentFolder(configFolderPath() + QLatin1Char('/') +
                              QLatin1String(locationOf(file).configRelative));
}

QString dataFileLegacyPath(DataFile file)
{
    return QString::fromLatin1(locationOf(file).legacyRelative);
}

QString dataFileReadPath(DataFile file)
{
    return resolveReadPath(dataFileLegacyPath(file), dataFileWritePath(file));
}

QString sanitizedCacheKey(const QString &key)
{
    static const QRegularExpression unsafe(QStringLiteral("[^A-Z0-9_.-]"));
    QString name = key;
    return name.replace(unsafe, QStringLiteral("_"));
}

QString alphaVantageCacheWritePath(const QString &key)
{
    return ensureParentFolder(cacheFolderPath() + QStringLiteral("/alpha_vantage/") +
                              sanitizedCacheKey(key) + QStringLiteral(".json"));
}

QString alphaVantageCacheReadPath(const QString &key)
{
    const QString legacy = QStringLiteral("data/cache/alpha_vantage/") + sanitizedCacheKey(key) +
                           QStringLiteral(".json");
    return resolveReadPath(legacy, alphaVantageCacheWritePath(key));
}

QString startupLogPath()
{
    return configFolderPath() + QStringLiteral("/startup.log");
}

QStringList universeSearchFolders()
{
    return universeSearchFolders(QCoreApplication::applicationDirPath());
}

QStringList universeSearchFolders(const QString &appDir)
{
    QStringList folders{QStringLiteral("data/universe")};
    if (!appDir.isEmpty()) {
        // Cleaned, so that /usr/bin/../share and /usr/share count as one folder.
        folders << QDir::cleanPath(appDir + kUniverseSubfolder)
                << QDir::cleanPath(appDir + QStringLiteral("/..") + kUniverseSubfolder);
    }
    folders << QStringLiteral("/usr/local") + kUniverseSubfolder
            << QStringLiteral("/usr") + kUniverseSubfolder;
    folders.removeDuplicates(); // keeps the first occurrence
    return folders;
}
