#include "reliability/crash_files.h"

#include "app/paths.h"
#include "crash_writer/crash_documents.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QProcess>

#include <cmath>
#include <optional>
#include <signal.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace std::chrono;

constexpr int kStartTimeoutMs = 10000;

// What one run of the writer reported before it died.
struct Journal
{
    qint64 lastEnded = -1; // the last step whose save returned
    qint64 open = -1;      // a step begun and not ended
    QByteArray failure;    // an "f" line
    int ended = 0;
};

Journal readJournal(const QByteArray &output)
{
    Journal journal;
    for (const QByteArray &line : output.split('\n')) {
        if (line.startsWith("b ")) {
            journal.open = line.mid(2).toLongLong();
        } else if (line.startsWith("e ")) {
            journal.lastEnded = line.mid(2).toLongLong();
            journal.open = -1;
            ++journal.ended;
        } else if (line.startsWith("f ")) {
            journal.failure = line;
        }
    }
    return journal;
}

int modeOf(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return -1;
    return int(status.st_mode & 07777);
}

QString describeMismatch(const QByteArray &bytes, const QList<QByteArray> &candidates)
{
    QStringList sizes;
    for (const QByteArray &candidate : candidates) {
        qsizetype same = 0;
        while (same < bytes.size() && same < candidate.size() && bytes[same] == candidate[same])
            ++same;
        sizes << QStringLiteral("%1 bytes, first difference at %2").arg(candidate.size()).arg(same);
    }
    return QStringLiteral("holds %1 bytes matching neither document (%2)")
            .arg(bytes.size())
            .arg(sizes.join(QStringLiteral("; ")));
}

class FileCrashRun
{
public:
    FileCrashRun(const QString &writerPath, quint64 seed)
        : m_writerPath(writerPath)
        , m_seed(seed)
        , m_delays(seed)
    {}

    FileCrashFigures run(int kills)
    {
        // The first kills meet a fresh folder, as at the terminal's first start: a file the kill
        // cut off in its first save must be absent or whole.
        for (CrashFile file : kCrashFiles)
            m_lastWrite[file] = kAbsent;
        for (int kill = 0; kill < kills && m_figures.failures.size() < 10; ++kill)
            killOnce(kill);
        return m_figures;
    }

private:
    static constexpr qint64 kAbsent = -1;

    void killOnce(int kill)
    {
        const microseconds delay = m_delays.next();
        const QString label = QStringLiteral("kill %1 (seed %2, delay %3 us, from step %4)")
                                      .arg(kill)
                                      .arg(m_seed)
                                      .arg(delay.count())
                                      .arg(m_next);
        QProcess writer;
        writer.start(m_writerPath, {QStringLiteral("--from"), QString::number(m_next)});
        QByteArray output;
        // The delay counts from the first save's start, so that it is a save the kill meets.
        while (!output.contains("\nb ") && !output.startsWith("f ")) {
            if (!writer.waitForReadyRead(kStartTimeoutMs)) {
                m_figures.failures << label + QStringLiteral(": the writer did not start: ") +
                                              writer.errorString();
                writer.kill();
                writer.waitForFinished();
                return;
            }
            output += writer.readAllStandardOutput();
        }
        waitPrecisely(delay);
        // Never a pid of 0 or below: that would signal the test's own process group.
        if (const qint64 pid = writer.processId(); pid > 0)
            ::kill(pid_t(pid), SIGKILL);
        writer.waitForFinished(kStartTimeoutMs);
        output += writer.readAllStandardOutput();
        ++m_figures.kills;

        const Journal journal = readJournal(output);
        if (!journal.failure.isEmpty())
            m_figures.failures << label + QStringLiteral(": the writer reported ") +
                                          QString::fromUtf8(journal.failure);
        else if (writer.exitStatus() != QProcess::CrashExit || writer.exitCode() != SIGKILL)
            m_figures.failures << label + QStringLiteral(": the writer ended before the kill");
        m_figures.savesCompleted += journal.ended;
        if (journal.open >= 0)
            ++m_figures.killsMidSave;
        checkFiles(journal, label);
        m_next = std::max({m_next, journal.lastEnded + 1, journal.open + 1});
    }

    // Every file against the steps of this run: the last save that returned must be on disk, or
    // the one cut off by the kill, whole.
    void checkFiles(const Journal &journal, const QString &label)
    {
        for (CrashFile file : kCrashFiles) {
            qint64 completed = m_lastWrite.value(file);
            if (journal.lastEnded >= m_next && lastCrashWrite(file, journal.lastEnded) >= m_next)
                completed = lastCrashWrite(file, journal.lastEnded);
            QList<qint64> candidates{completed};
            if (journal.open >= 0 && crashFileOfStep(journal.open) == file)
                candidates.prepend(journal.open);

            const QString path = crashFilePath(file);
            QFile read(path);
            const bool exists = read.open(QIODevice::ReadOnly);
            const QByteArray bytes = exists ? read.readAll() : QByteArray();
            ++m_figures.filesChecked;
            std::optional<qint64> found;
            QList<QByteArray> expected;
            for (qint64 step : candidates) {
                if (step == kAbsent) {
                    if (!found && !exists)
                        found = step;
                    continue;
                }
                expected << expectedCrashBytes(file, step);
                if (!found && exists && bytes == expected.constLast())
                    found = step;
            }
            if (!found) {
                m_figures.failures << QStringLiteral("%1: %2 %3")
                                              .arg(label, crashFileName(file),
                                                   exists ? describeMismatch(bytes, expected)
                                                          : QStringLiteral("is missing"));
                continue;
            }
            if (candidates.size() > 1 && *found == completed)
                ++m_figures.oldContentKept;
            m_lastWrite[file] = *found;
            if (*found == kAbsent)
                continue;
            if (QString why; !readsAsCrashStep(file, *found, &why))
                m_figures.failures
                        << QStringLiteral("%1: %2: %3").arg(label, crashFileName(file), why);
            if (file == CrashFile::Keys) {
                ++m_figures.keyModeChecks;
                if (const int mode = modeOf(path); mode != 0600)
                    m_figures.failures << QStringLiteral("%1: config.txt has mode %2")
                                                  .arg(label)
                                                  .arg(mode, 4, 8, QLatin1Char('0'));
            }
        }
        checkLeftovers(label);
    }

    // Anything else in the folders is a temporary file the kill left behind. The terminal reads
    // only the documents' own names, so it never takes one for a document; a copy of the keys must
    // still be owner-only.
    void checkLeftovers(const QString &label)
    {
        QSet<QString> documents;
        for (CrashFile file : kCrashFiles)
            documents.insert(QFileInfo(crashFilePath(file)).absoluteFilePath());
        for (const QString &folder : {configFolderPath(), cacheFolderPath()}) {
            QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (files.hasNext()) {
                const QString path = QFileInfo(files.next()).absoluteFilePath();
                if (documents.contains(path) || m_figures.leftovers.contains(path))
                    continue;
                m_figures.leftovers << path;
                const QString name = QFileInfo(path).fileName();
                if (name.startsWith(QLatin1String("config.txt")) && (modeOf(path) & 077))
                    m_figures.failures << QStringLiteral("%1: %2 holds keys with mode %3")
                                                  .arg(label, name)
                                                  .arg(modeOf(path), 4, 8, QLatin1Char('0'));
            }
        }
    }

    QString m_writerPath;
    quint64 m_seed;
    CrashDelays m_delays;
    FileCrashFigures m_figures;
    QMap<CrashFile, qint64> m_lastWrite; // the step whose document each file holds
    qint64 m_next = 0;
};

} // namespace

microseconds CrashDelays::next()
{
    m_uniform = !m_uniform;
    if (m_uniform)
        return microseconds(std::uniform_int_distribution<qint64>(0, kLongestUniformUs)(m_random));
    const double exponent = std::uniform_real_distribution<double>(
            std::log(double(kShortestUs)), std::log(double(kLongestLogUs)))(m_random);
    return microseconds(qint64(std::exp(exponent)));
}

void waitPrecisely(microseconds delay)
{
    const auto until = steady_clock::now() + delay;
    if (delay > milliseconds(2))
        std::this_thread::sleep_until(until - milliseconds(1));
    while (steady_clock::now() < until) {
    }
}

FileCrashFigures runFileCrashes(const QString &writerPath, int kills, quint64 seed)
{
    return FileCrashRun(writerPath, seed).run(kills);
}
