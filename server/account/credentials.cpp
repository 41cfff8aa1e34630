#include "account/credentials.h"

#include <QCryptographicHash>
#include <QPasswordDigestor>
#include <QRandomGenerator>

#include <array>

namespace account {

namespace {

// Stored per user, so a later deployment can raise it without invalidating existing passwords.
constexpr int kIterations = 100000;
constexpr int kSaltBytes = 16;
constexpr int kKeyBytes = 32;

QByteArray randomBytes(int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i)
        bytes[i] = char(QRandomGenerator::system()->bounded(256));
    return bytes;
}

QByteArray derive(const QString &password, const QByteArray &salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256, password.toUtf8(), salt,
                                              iterations, kKeyBytes);
}

} // namespace

PasswordHash hashPassword(const QString &password)
{
    PasswordHash hash;
    hash.salt = randomBytes(kSaltBytes);
    hash.iterations = kIterations;
    hash.key = derive(password, hash.salt, hash.iterations);
    return hash;
}

bool verifyPassword(const QString &password, const PasswordHash &stored)
{
    if (stored.iterations <= 0 || stored.salt.isEmpty() || stored.key.isEmpty())
        return false;
    return equalInConstantTime(derive(password, stored.salt, stored.iterations), stored.key);
}

QString newToken()
{
    std::array<quint32, 8> words;
    QRandomGenerator::system()->fillRange(words.data(), int(words.size()));
    const QByteArray bytes(reinterpret_cast<const char *>(words.data()), int(sizeof(words)));
    return QString::fromLatin1(bytes.toHex());
}

QString tokenDigest(const QString &token)
{
    return QString::fromLatin1(
            QCryptographicHash::hash(token.toUtf8(), QCryptographicHash::Sha256).toHex());
}

bool equalInConstantTime(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    unsigned char difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    return difference == 0;
}

} // namespace account
