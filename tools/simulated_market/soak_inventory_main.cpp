#include "simulated_market/soak_inventory.h"

#include <QCoreApplication>

#include <cstdio>

// querlin-soak-inventory <config folder>: the rows, portfolios, alerts and drawings the terminal
// keeps there, one per line (see soakInventory); exit status 1 when a file cannot be read.
int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: querlin-soak-inventory <config folder>\n");
        return 2;
    }
    QString problem;
    const QStringList lines = soakInventoryOfFolder(arguments.at(1), &problem);
    for (const QString &line : lines)
        std::printf("%s\n", qPrintable(line));
    if (!problem.isEmpty()) {
        std::fprintf(stderr, "querlin-soak-inventory: %s\n", qPrintable(problem));
        return 1;
    }
    return 0;
}
