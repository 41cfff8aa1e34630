#include "providers/alpha_vantage_cache.h"

#include "app/atomic_file.h"
#include "app/paths.h"
#include "providers/data_fetcher.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

bool writeAlphaVantageCache(const QString &symbol, const QByteArray &body)
{
    return writeFileAtomically(alphaVantageCacheWritePath(symbol), body);
}

std::optional<QuoteSnapshot> freshAlphaVantageCache(const QString &symbol, qint64 nowMs)
{
    const QString path = alphaVantageCacheReadPath(symbol);
    const QFileInfo info(path);
    if (!info.isFile())
        return std::nullopt;
    const qint64 age = nowMs - info.lastModified().toMSecsSinceEpoch();
    if (age < 0 || age > kAlphaVantageCacheFreshMs)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return AlphaVantageFetcher(QString()).parseQuote(symbol, file.read(kMaxCacheBytes));
}
