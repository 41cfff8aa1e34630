#pragma once

#include <QByteArray>
#include <QString>

// Passwords are kept only as salted PBKDF2-SHA256 keys, tokens only as SHA-256 digests.
namespace account {

struct PasswordHash
{
    QByteArray salt;
    QByteArray key;
    int iterations = 0;
};

PasswordHash hashPassword(const QString &password);
// Derives with the stored salt and iteration count and compares in constant time.
bool verifyPassword(const QString &password, const PasswordHash &stored);

// 32 random bytes from the system generator, as 64 hexadecimal characters.
QString newToken();
// What the database keeps of a token.
QString tokenDigest(const QString &token);

bool equalInConstantTime(const QByteArray &a, const QByteArray &b);

} // namespace account
