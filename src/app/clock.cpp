#include "app/clock.h"

#include <QDateTime>

qint64 systemNowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

Clock systemClock()
{
    return &systemNowMs;
}
