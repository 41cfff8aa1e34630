#include "app/atomic_file.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

bool writeFileAtomically(const QString &path, const QByteArray &contents,
                         QFileDevice::Permissions permissions, QString *errorText)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    const auto fail = [&](const QString &why) {
        if (errorText)
            *errorText = why;
        file.cancelWriting();
        return false;
    };
    if (!file.open(QIODevice::WriteOnly))
        return fail(file.errorString());
    if (permissions && !file.setPermissions(permissions))
        return fail(file.errorString());
    if (file.write(contents) != contents.size())
        return fail(file.errorString());
    if (!file.commit()) {
        if (errorText)
            *errorText = file.errorString();
        return false;
    }
    return true;
}
