#pragma once

// The folders of the targets that read real files: a scratch folder in memory when the machine
// has one (every input writes and syncs a file, and a disk makes that the slowest part of a run),
// and the terminal's config, cache and working folders moved into it.

#include <QByteArray>
#include <QDir>
#include <QFileInfo>
#include <QString>

inline QString scratchFolder()
{
    const QFileInfo memory(QStringLiteral("/dev/shm"));
    return memory.isDir() && memory.isWritable() ? memory.filePath() : QDir::tempPath();
}

// HOME, XDG_CONFIG_HOME and XDG_CACHE_HOME point into `root`, and so does the working folder, where
// legacy files would be looked up: run the target with absolute corpus and artifact paths.
inline void isolateDataFolders(const QString &root)
{
    const QByteArray path = root.toUtf8();
    qputenv("HOME", path);
    qputenv("XDG_CONFIG_HOME", path + "/config");
    qputenv("XDG_CACHE_HOME", path + "/cache");
    for (const char *name : {"QRL_ALPHA_VANTAGE_API_KEY", "QRL_BRAPI_TOKEN", "QRL_ITICK_API_KEY"})
        qunsetenv(name);
    QDir::setCurrent(root);
}
