#pragma once

#include <QString>
#include <QStringList>

// Where the terminal keeps its files. Every load goes through a read path and every save through a
// write path; nothing else in the program builds a path of its own.

// The per-user configuration and cache folders (absolute), created on every call and never cached,
// so a folder removed while the terminal runs comes back with the next save.
QString configFolderPath();
QString cacheFolderPath();

// The folder resolution itself: the standard location, or home + fallback when it is blank.
QString resolveDataFolder(const QString &standardLocation, const QString &homeFallback);

// The config-folder file wins; a legacy file relative to the working directory is read only while
// no config-folder file of that name exists. Saves always go to the config folder, so the first
// save moves the data there for good; the legacy file is never touched.
QString resolveReadPath(const QString &legacyRelativePath, const QString &configPath);

enum class DataFile {
    ApiKeys,
    LocalSettings,
    DefaultWatchlist,
    WorkspaceSnapshot,
};

QString dataFileWritePath(DataFile file); // creates the file's folder
QString dataFileLegacyPath(DataFile file);
QString dataFileReadPath(DataFile file);

// Alpha Vantage replies are cached per request key; the key becomes a safe file name.
QString sanitizedCacheKey(const QString &key);
QString alphaVantageCacheWritePath(const QString &key); // creates the cache subfolder
QString alphaVantageCacheReadPath(const QString &key);

QString startupLogPath();

// Folders searched for universe and sector files, in order, without duplicates; the application
// directory is the executable's folder.
QStringList universeSearchFolders();
QStringList universeSearchFolders(const QString &applicationDirectory);
