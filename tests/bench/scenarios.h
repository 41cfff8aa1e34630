#pragma once

#include <QStringList>

// The benchmark scenarios. Each runs in a process of its own; those run under callgrind dump
// their measured regions, the others print "report NAME VALUE" lines.
QStringList callgrindScenarioNames();
QStringList nativeScenarioNames();
QStringList scenarioNames();
int runScenario(const QString &name, int argc, char *argv[]);
