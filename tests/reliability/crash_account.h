#pragma once

#include <QString>
#include <QStringList>

// Runs the real account service on a database in `folder`, pushes the five namespaces from the
// terminal's own request helper in a loop, kills the service with SIGKILL at a random moment,
// restarts it on the same database and checks what it kept: the database opens and passes
// SQLite's integrity check, every namespace holds one whole version that was pushed (the payload
// of that very push, all five from the same push, since a push is all or nothing), and no push
// the service acknowledged is lost.

struct ServiceCrashFigures
{
    int kills = 0;
    int killsMidPush = 0; // a push was on the wire or being stored
    int pushesAcknowledged = 0;
    int pushesCutOffKept = 0; // a push whose reply the kill cut off, found stored after restart
    int pushesCutOffLost = 0; // ...and found not stored (the whole push, never a part)
    int restarts = 0;
    int namespacesChecked = 0;
    int integrityChecks = 0;
    qint64 pushMs = 0;    // time spent in acknowledged pushes
    qint64 restartMs = 0; // time from a restart to the service answering
    QStringList failures; // each names the kill, its delay and the seed
};

ServiceCrashFigures runServiceCrashes(const QString &servicePath, const QString &folder, int kills,
                                      quint64 seed);
