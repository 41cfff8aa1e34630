#pragma once

#include <QString>
#include <QStringList>

#include <chrono>
#include <random>

// Kills the crash writer (tools/crash_writer) with SIGKILL at random moments while it saves the
// terminal's files, and after every kill checks each file against what the steps before the kill
// saved: the complete old or the complete new document, never anything else, readable by the
// terminal's own readers, the key file owner-only. It runs under the current process's folders
// (the caller isolates them); the writer inherits them.

struct CrashDelays
{
    // Counted from the start of the writer's first save. Every other kill waits a log-uniform time
    // (most of them inside that save, where a file is created, opened and written), the others a
    // uniform one across several rounds of saves.
    explicit CrashDelays(quint64 seed)
        : m_random(seed)
    {}
    std::chrono::microseconds next();

    static constexpr qint64 kShortestUs = 1;
    static constexpr qint64 kLongestLogUs = 20000;
    static constexpr qint64 kLongestUniformUs = 60000;

private:
    std::mt19937_64 m_random;
    bool m_uniform = false;
};

// Waits `delay`, spinning for the short ones a sleep cannot resolve.
void waitPrecisely(std::chrono::microseconds delay);

struct FileCrashFigures
{
    int kills = 0;
    int killsMidSave = 0;   // the writer had begun a save and not reported its end
    int oldContentKept = 0; // ...and the file still held the document before it
    qint64 savesCompleted = 0;
    int filesChecked = 0;
    int keyModeChecks = 0;
    QStringList leftovers; // files found beside the documents, not documents themselves
    QStringList failures;  // each names the kill, its delay and the seed
};

// `kills` kills of the writer at `writerPath`, the delays drawn from `seed`.
FileCrashFigures runFileCrashes(const QString &writerPath, int kills, quint64 seed);
