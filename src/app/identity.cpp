#include "app/identity.h"

#include <QGuiApplication>

QIcon applicationIcon()
{
    return QIcon(QString::fromLatin1(kApplicationIconPath));
}

void applyApplicationIdentity(QGuiApplication &app)
{
    QCoreApplication::setOrganizationName(QString::fromLatin1(kOrganizationName));
    QCoreApplication::setOrganizationDomain(QString::fromLatin1(kOrganizationDomain));
    QCoreApplication::setApplicationName(QString::fromLatin1(kApplicationName));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(kApplicationVersion));
    app.setWindowIcon(applicationIcon());
}
