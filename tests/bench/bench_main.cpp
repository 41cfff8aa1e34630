// querlin-bench: the terminal's performance figures. Run without arguments it is the driver: it
// runs each scenario in a child process (under callgrind for instruction counts, natively for
// memory and repaints), prints one line per figure with its goal, and exits 0 when every goal
// holds. `--scenario NAME` runs one scenario; `--list` names them.
#include "scenarios.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

namespace {

struct Results
{
    QHash<QString, double> values; // "ticker/parse" -> instructions, "session/rss60" -> KiB
    QStringList problems;

    double get(const QString &key)
    {
        if (!values.contains(key)) {
            problems << QStringLiteral("no figure for %1").arg(key);
            return qQNaN();
        }
        return values.value(key);
    }
};

// Reads every dump of a callgrind run: "desc: Trigger: Client Request: LABEL" and its totals.
void readDumps(const QString &folder, const QString &scenario, Results &results)
{
    const QDir dir(folder);
    for (const QString &name : dir.entryList({scenario + QStringLiteral(".out*")}, QDir::Files)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        QString label;
        double total = qQNaN();
        while (!file.atEnd()) {
            const QByteArray line = file.readLine().trimmed();
            if (line.startsWith("desc: Trigger: Client Request: "))
                label = QString::fromUtf8(line.mid(31));
            else if (line.startsWith("totals: ") || line.startsWith("summary: "))
                total = line.mid(line.indexOf(' ') + 1).split(' ').value(0).toDouble();
        }
        if (!label.isEmpty() && !std::isnan(total))
            results.values.insert(scenario + QLatin1Char('/') + label, total);
    }
}

// "report NAME VALUE" lines of a scenario's output.
void readReports(const QByteArray &output, const QString &scenario, Results &results)
{
    for (const QByteArray &line : output.split('\n')) {
        const QList<QByteArray> parts = line.trimmed().split(' ');
        if (parts.size() == 3 && parts[0] == "report")
            results.values.insert(scenario + QLatin1Char('/') + QString::fromUtf8(parts[1]),
                                  parts[2].toDouble());
    }
}

bool runChild(const QString &scenario, bool callgrind, const QString &folder, Results &results)
{
    const QString self = QCoreApplication::applicationFilePath();
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("*=false"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::SeparateChannels);
    const QStringList scenarioArgs{QStringLiteral("--scenario"), scenario};
    if (callgrind) {
        const QString valgrind = QStandardPaths::findExecutable(QStringLiteral("valgrind"));
        child.start(
                valgrind,
                QStringList{QStringLiteral("--tool=callgrind"),
                            QStringLiteral("--collect-atstart=no"),
                            QStringLiteral("--callgrind-out-file=%1/%2.out").arg(folder, scenario),
                            self} +
                        scenarioArgs);
    } else {
        child.start(self, scenarioArgs);
    }
    std::printf("  running %s%s...\n", qPrintable(scenario), callgrind ? " under callgrind" : "");
    std::fflush(stdout);
    if (!child.waitForFinished(-1) || child.exitStatus() != QProcess::NormalExit ||
        child.exitCode() != 0) {
        results.problems << QStringLiteral("scenario %1 failed: %2")
                                    .arg(scenario,
                                         QString::fromUtf8(
                                                 child.readAllStandardError().right(2000)));
        return false;
    }
    readReports(child.readAllStandardOutput(), scenario, results);
    if (callgrind)
        readDumps(folder, scenario, results);
    return true;
}

struct Figure
{
    QString name;
    double goal;
    std::function<double(Results &)> value;
    QString unit = QStringLiteral("x");
};

} // namespace

int main(int argc, char *argv[])
{
    const QStringList args = [&] {
        QStringList list;
        for (int i = 1; i < argc; ++i)
            list << QString::fromLocal8Bit(argv[i]);
        return list;
    }();
    if (args.value(0) == QLatin1String("--scenario"))
        return runScenario(args.value(1), argc, argv);
    if (args.value(0) == QLatin1String("--list")) {
        for (const QString &name : scenarioNames())
            std::printf("%s\n", qPrintable(name));
        return 0;
    }

    QCoreApplication app(argc, argv);
    if (QStandardPaths::findExecutable(QStringLiteral("valgrind")).isEmpty()) {
        std::fprintf(stderr, "querlin-bench needs valgrind (scripts/install-deps --bench)\n");
        return 2;
    }
    QTemporaryDir folder;
    Results results;
    std::printf(
            "Terminal Querlin benchmarks (instruction counts from callgrind; memory natively)\n");
    for (const QString &scenario : callgrindScenarioNames())
        runChild(scenario, true, folder.path(), results);
    for (const QString &scenario : nativeScenarioNames())
        runChild(scenario, false, folder.path(), results);

    const QList<Figure> figures = {
            {QStringLiteral("@ticker frame into a 300-row watchlist / bare parse"), 1.3,
             [](Results &r) {
                 return (r.get("ticker/apply") + r.get("ticker/screener_second")) /
                        r.get("ticker/parse");
             }},
            {QStringLiteral("the same sorted by Last / unsorted"), 1.2,
             [](Results &r) {
                 return (r.get("ticker/apply_sorted") + r.get("ticker/screener_second")) /
                        (r.get("ticker/apply") + r.get("ticker/screener_second"));
             }},
            {QStringLiteral("@trade frame into the tape (5,000 in a second) / bare parse"), 2.0,
             [](Results &r) { return r.get("trades/apply") / r.get("trades/parse"); }},
            {QStringLiteral("tape repaints in that second"), 60,
             [](Results &r) { return r.get("tape_repaints/repaints"); }, QStringLiteral("")},
            {QStringLiteral("depth20 frame into the book / bare parse"), 3.0,
             [](Results &r) { return r.get("depth/apply") / r.get("depth/parse"); }},
            // The narrowest view is 4% of the history: 100,000 candles show at least 4,000, so the
            // same visible count is a 4,000-candle history shown whole.
            {QStringLiteral("chart paint, 100,000 candles / 4,000, 4,000 visible, all indicators"),
             1.1, [](Results &r) { return r.get("chart/paint_100k") / r.get("chart/paint_4000"); }},
            {QStringLiteral("crosshair mouse move / full chart paint"), 1.0,
             [](Results &r) { return r.get("chart/crosshair") / r.get("chart/paint_100k"); }},
            {QStringLiteral("series recomputed by crosshair moves"), 0,
             [](Results &r) { return r.get("chart/recomputed"); }, QStringLiteral("")},
            {QStringLiteral("start-up to first paint, 300 rows / empty QMainWindow: instructions"),
             3.0,
             [](Results &r) {
                 return r.get("startup_terminal/startup") / r.get("startup_empty/startup");
             }},
            {QStringLiteral("the same: peak RSS"), 2.0,
             [](Results &r) {
                 return r.get("rss_terminal/peak_kib") / r.get("rss_empty/peak_kib");
             }},
            {QStringLiteral("RSS after a one-hour session / after five minutes"), 1.05,
             [](Results &r) { return r.get("session/rss_60min") / r.get("session/rss_5min"); }},
    };

    bool allHold = true;
    std::printf("\n%-72s %10s  %-8s %s\n", "Figure", "Measured", "Goal", "");
    for (const Figure &figure : figures) {
        const double value = figure.value(results);
        const bool holds = !std::isnan(value) && value <= figure.goal + 1e-9;
        allHold = allHold && holds;
        std::printf("%-72s %10.3f%s  <= %-5g %s\n", qPrintable(figure.name), value,
                    qPrintable(figure.unit), figure.goal, holds ? "holds" : "MISSES");
    }
    std::printf(
            "\nFor scale, start-up of a QMainWindow showing one label / empty QMainWindow: %.3f\n",
            results.get("startup_label/startup") / results.get("startup_empty/startup"));
    std::printf("\nRaw counts:\n");
    QStringList keys = results.values.keys();
    keys.sort();
    for (const QString &key : keys)
        std::printf("  %-40s %.0f\n", qPrintable(key), results.values.value(key));
    for (const QString &problem : results.problems)
        std::fprintf(stderr, "problem: %s\n", qPrintable(problem));
    return allHold && results.problems.isEmpty() ? 0 : 1;
}
