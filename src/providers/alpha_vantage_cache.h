#pragma once

#include "providers/quote_snapshot.h"

#include <QByteArray>
#include <QString>

#include <optional>

// Alpha Vantage's free plan allows a handful of calls a minute, so every good quote reply is kept
// on disk per symbol and stands in while the provider is throttled or blocked.
inline constexpr qint64 kAlphaVantageCacheFreshMs = 900 * 1000;
inline constexpr qint64 kMaxCacheBytes = 1024 * 1024; // a quote reply is well under 1 KiB

bool writeAlphaVantageCache(const QString &symbol, const QByteArray &body);
// The cached quote when its file is at most 15 minutes old (and not from the future) at `nowMs`.
std::optional<QuoteSnapshot> freshAlphaVantageCache(const QString &symbol, qint64 nowMs);
