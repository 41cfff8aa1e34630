#pragma once

#include <QDateTime>
#include <QString>

// The start-up trail: one line per milestone in "startup.log" in the config folder. The file is
// opened and closed for every line, so a crash during start-up loses nothing already written.
void writeStartupLog(const QString &message);

// "2026-11-14T17:20:39.123Z message\n" for a UTC time.
QString startupLogLine(const QDateTime &utc, const QString &message);
