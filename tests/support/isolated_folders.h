#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTemporaryDir>

// Gives a test its own home, configuration, cache and working folders, so nothing it does reaches
// the user's files: HOME, XDG_CONFIG_HOME and XDG_CACHE_HOME point into a temporary folder and the
// working directory (where legacy paths and "data/universe" are looked up) is a fresh "work" folder
// inside it. Every remote address a test has not pointed at a fake of its own leads to a closed
// port on 127.0.0.1, so a forgotten one fails at once instead of reaching the internet.
// Everything is restored and removed when it goes out of scope.
class IsolatedFolders
{
public:
    IsolatedFolders();
    ~IsolatedFolders();
    IsolatedFolders(const IsolatedFolders &) = delete;
    IsolatedFolders &operator=(const IsolatedFolders &) = delete;

    QString root() const { return m_dir.path(); }
    QString home() const { return m_dir.path() + QStringLiteral("/home"); }
    QString workingFolder() const { return m_dir.path() + QStringLiteral("/work"); }
    // Where the terminal's config and cache folders resolve to under this isolation.
    QString expectedConfigFolder() const;
    QString expectedCacheFolder() const;

    // Writes a file (creating its folders); a relative path is taken from the working folder.
    QString writeFile(const QString &path, const QByteArray &contents) const;
    static QByteArray readFile(const QString &path);

private:
    QTemporaryDir m_dir;
    QString m_previousWorkingFolder;
    QByteArray m_previousHome;
    QByteArray m_previousConfigHome;
    QByteArray m_previousCacheHome;
    QList<const char *> m_deadEndpoints; // the variables this isolation set
};

// The organisation and application names the terminal runs under (the folders derive from them).
void useTerminalIdentity();
