#include "app/identity.h"
#include "crash_writer/crash_documents.h"

#include <QCoreApplication>
#include <QStringList>

#include <unistd.h>

// Saves the terminal's files in a loop through its own save functions until it is killed: the
// crash test starts it, kills it with SIGKILL at a random moment and checks what is on disk.
//
//   querlin-crash-writer --from STEP [--steps COUNT]
//
// It runs under the folders the environment gives (HOME, XDG_CONFIG_HOME, XDG_CACHE_HOME) and
// reports on standard output, one unbuffered line each: "ready" once it has read its files,
// "b STEP" before a save and "e STEP" after it, "f STEP REASON" when a save fails (exit 3).
// With --steps it stops after COUNT steps (exit 0).

namespace {

void report(const QByteArray &line)
{
    // One write per line: a kill between two lines never leaves half of one in the pipe.
    const QByteArray text = line + '\n';
    qsizetype done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.constData() + done, text.size() - done);
        if (written <= 0)
            return;
        done += written;
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QString::fromLatin1(kOrganizationName));
    QCoreApplication::setOrganizationDomain(QString::fromLatin1(kOrganizationDomain));
    QCoreApplication::setApplicationName(QString::fromLatin1(kApplicationName));

    const QStringList arguments = app.arguments();
    qint64 from = -1;
    qint64 steps = 0;
    for (qsizetype i = 1; i + 1 < arguments.size(); i += 2) {
        if (arguments.at(i) == QLatin1String("--from"))
            from = arguments.at(i + 1).toLongLong();
        else if (arguments.at(i) == QLatin1String("--steps"))
            steps = arguments.at(i + 1).toLongLong();
    }
    if (from < 0) {
        report("usage: querlin-crash-writer --from STEP [--steps COUNT]");
        return 2;
    }

    CrashWriter writer;
    QString error;
    if (!writer.start(&error)) {
        report("f " + QByteArray::number(from) + ' ' + error.toUtf8());
        return 3;
    }
    report("ready");
    for (qint64 step = from; steps == 0 || step < from + steps; ++step) {
        report("b " + QByteArray::number(step));
        if (!writer.save(step, &error)) {
            report("f " + QByteArray::number(step) + ' ' + error.toUtf8());
            return 3;
        }
        report("e " + QByteArray::number(step));
    }
    return 0;
}
