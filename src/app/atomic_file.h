#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

// Writes the whole file or nothing: the previous file stays in place until the new content is
// complete on disk, so a crash or a full disk never leaves half a file. The parent folder is
// created. Permissions, when given, apply before the new file becomes visible (the key file is
// never readable by others, not even for a moment).
bool writeFileAtomically(const QString &path, const QByteArray &contents,
                         QFileDevice::Permissions permissions = {}, QString *errorText = nullptr);
