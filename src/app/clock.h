#pragma once

#include <QtGlobal>

#include <functional>

// Milliseconds since the Unix epoch. Everything whose behaviour depends on time (throttles,
// cool-downs, latencies, time-outs) takes a Clock, so tests move time instead of sleeping.
using Clock = std::function<qint64()>;

qint64 systemNowMs();
Clock systemClock();
