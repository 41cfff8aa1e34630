#pragma once

#include <QString>

#include <functional>

// Measured regions of a benchmark run. Under callgrind (started with --collect-atstart=no) a region
// collects the instructions of its work alone and dumps them under its label, which the driver
// reads back; run natively, a region just does its work.
namespace bench {

bool underCallgrind();
// Runs `work` with instruction collection on and dumps the count under `label`.
void measure(const char *label, const std::function<void()> &work);
// Starts and stops collection by hand, for regions that span an event loop.
void startRegion();
void endRegion(const char *label);

// The process's resident set now and at its peak, in KiB (Linux /proc/self/status).
qint64 residentKiB();
qint64 peakResidentKiB();

// What a scenario reports besides instruction counts ("repaints 12"), read back by the driver.
void report(const QString &name, double value);

} // namespace bench
