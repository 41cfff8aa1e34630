#pragma once

#include "ui/local_settings.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <array>

// The terminal's saved files as the crash writer produces them: a pure function of a step number,
// so the process that kills the writer knows, for any step, the exact bytes each file held before
// and after it. The documents are sized like a user's after months of use (alerts and their
// history, two portfolios, drawings on several charts, every key filled in).
//
// The writer saves in rounds of six steps, each through the terminal's own save function:
//   keys (config.txt), settings (local.json), watchlist (watchlists/default.json),
//   drawings (local.json again, only the drawings changed, as after a chart edit),
//   workspace (workspace.default.json) and an Alpha Vantage cache entry.

enum class CrashFile {
    Keys,
    Settings,
    Watchlist,
    Workspace,
    Cache,
};
inline constexpr std::array<CrashFile, 5> kCrashFiles = {CrashFile::Keys, CrashFile::Settings,
                                                         CrashFile::Watchlist, CrashFile::Workspace,
                                                         CrashFile::Cache};
inline constexpr qint64 kCrashStepsPerRound = 6;

QString crashFileName(CrashFile file); // "config.txt", "local.json", ...
QString crashStepName(qint64 step);    // "keys", "settings", ..., "drawings", ...
CrashFile crashFileOfStep(qint64 step);
// The last step at or before `step` that wrote `file`; -1 when none did.
qint64 lastCrashWrite(CrashFile file, qint64 step);

// Where the file lives, under the folders the terminal resolves (config folder, cache folder).
QString crashFilePath(CrashFile file);
// The symbol of the cached Alpha Vantage reply.
QString crashCacheSymbol();

// The bytes `file` holds once step `writeStep` (a step that writes it) has completed.
QByteArray expectedCrashBytes(CrashFile file, qint64 writeStep);

// The namespace payloads of account sync for round `round`, as the terminal builds them from the
// same state: "settings", "watchlists", "alerts", "workspace", "portfolios".
QJsonObject crashSyncPayloads(qint64 round);

// Performs the steps through the terminal's save functions, holding what the terminal holds
// between saves (the stored settings object).
class CrashWriter
{
public:
    // Reads what the terminal reads at start-up before its first save: the keys and the settings.
    // False when the settings file reads as damaged.
    bool start(QString *error);
    // False (with the reason) when the save reports a failure.
    bool save(qint64 step, QString *error);

private:
    LocalSettingsFile m_settings;
};

// Reads the file with the terminal's own reader, as it does at start-up, and says whether it finds
// exactly the state that step `writeStep` saved; the reason when not. The settings reader must
// also not take the file for a damaged one.
bool readsAsCrashStep(CrashFile file, qint64 writeStep, QString *why);
