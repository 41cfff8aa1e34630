#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Stable hashes: the same input gives the same number on every machine and in every run, which
// qHash does not promise.

// The splitmix64 finaliser.
inline constexpr quint64 mix64(quint64 x)
{
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

inline constexpr quint64 mix64(quint64 a, quint64 b)
{
    return mix64(a ^ mix64(b));
}

// FNV-1a over the UTF-8 text.
inline quint64 textHash(const QString &text)
{
    quint64 hash = 0xcbf29ce484222325ULL;
    for (const char c : text.toUtf8()) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

// A uniform value in [0, 1) from the top 53 bits.
inline constexpr double unitInterval(quint64 hash)
{
    return double(hash >> 11) * (1.0 / 9007199254740992.0);
}

// A uniform value in [-1, 1).
inline constexpr double signedUnit(quint64 hash)
{
    return 2.0 * unitInterval(hash) - 1.0;
}

inline constexpr qint64 floorDiv(qint64 value, qint64 divisor)
{
    const qint64 quotient = value / divisor;
    return (value % divisor != 0 && value < 0) ? quotient - 1 : quotient;
}

// Smoothed value noise in [-1, 1]: seeded values at every multiple of `period`, eased in between.
inline double smoothNoise(quint64 key, qint64 step, qint64 period)
{
    const qint64 knot = floorDiv(step, period);
    const double t = double(step - knot * period) / double(period);
    const double eased = t * t * (3.0 - 2.0 * t);
    const double a = signedUnit(mix64(key, quint64(knot)));
    const double b = signedUnit(mix64(key, quint64(knot + 1)));
    return a + (b - a) * eased;
}
