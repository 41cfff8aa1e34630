#include "measure.h"

#include <QFile>
#include <QTextStream>

#include <cstdio>
#include <valgrind/callgrind.h>

namespace bench {

bool underCallgrind()
{
    return RUNNING_ON_VALGRIND != 0;
}

void startRegion()
{
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
}

void endRegion(const char *label)
{
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(label);
}

void measure(const char *label, const std::function<void()> &work)
{
    startRegion();
    work();
    endRegion(label);
}

static qint64 statusField(const char *name)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray prefix = QByteArray(name) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

qint64 residentKiB()
{
    return statusField("VmRSS");
}

qint64 peakResidentKiB()
{
    return statusField("VmHWM");
}

void report(const QString &name, double value)
{
    std::printf("report %s %.6g\n", qPrintable(name), value);
    std::fflush(stdout);
}

} // namespace bench
