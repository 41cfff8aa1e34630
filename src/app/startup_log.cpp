#include "app/startup_log.h"

#include "app/paths.h"

#include <QFile>

QString startupLogLine(const QDateTime &utc, const QString &message)
{
    return utc.toUTC().toString(Qt::ISODateWithMs) + QLatin1Char(' ') + message + QLatin1Char('\n');
}

void writeStartupLog(const QString &message)
{
    QFile file(startupLogPath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return; // the trail is diagnostic only
    file.write(startupLogLine(QDateTime::currentDateTimeUtc(), message).toUtf8());
}
