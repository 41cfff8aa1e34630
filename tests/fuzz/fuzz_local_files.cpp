// Feeds arbitrary bytes to the readers of the terminal's own files, each through a real file in a
// temporary config, cache or universe folder. The first byte picks the file (default watchlist, key
// file, universe list, sector file, Alpha Vantage cache entry, local settings), the rest is its
// contents. Whatever
// a file holds, what is read is usable as read, and what the terminal writes back reads as itself.
// A broken invariant traps, so libFuzzer keeps the input.
#include "app/paths.h"
#include "fuzz_folders.h"
#include "market/symbols.h"
#include "market/universe.h"
#include "market/watchlist.h"
#include "providers/alpha_vantage_cache.h"
#include "providers/api_keys.h"
#include "providers/data_fetcher.h"
#include "ui/local_settings.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

QTemporaryDir *folders = nullptr;

QString universeFolder()
{
    return folders->path() + QStringLiteral("/universe");
}

void writeAll(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    check(file.write(bytes) == bytes.size());
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Loaded as the window loads it: each stored symbol is normalised and kept once; the document
// written for those rows reads back as the same rows.
void watchlist(const QByteArray &bytes)
{
    const QString path = dataFileWritePath(DataFile::DefaultWatchlist);
    writeAll(path, bytes);
    const QList<WatchlistEntry> entries = readWatchlistEntries(readAll(path));
    const QJsonArray stored =
            QJsonDocument::fromJson(bytes).object().value(QLatin1String("symbols")).toArray();
    check(entries.size() <= stored.size());

    QStringList rows;
    for (const WatchlistEntry &entry : entries) {
        const QString symbol = normalizeSymbolInput(entry.symbol, {}, {});
        if (!symbol.isEmpty() && !rows.contains(symbol))
            rows << symbol;
    }
    const QList<WatchlistEntry> again =
            readWatchlistEntries(QJsonDocument(watchlistDocument(rows)).toJson());
    check(again.size() == rows.size());
    for (qsizetype i = 0; i < rows.size(); ++i) {
        check(again[i].symbol == rows[i]);
        check(normalizeSymbolInput(rows[i], {}, {}) == rows[i]);
    }
}

// Every key read survives the file the terminal writes; a key never spans two lines of it.
void keyFile(const QByteArray &bytes)
{
    const QString path = folders->path() + QStringLiteral("/config.txt");
    writeAll(path, bytes);
    ApiKeyStore store;
    QSet<int> hidden;
    store.readKeyFile(path, &hidden);
    for (int column : hidden)
        check(column >= 1 && column <= 15);

    const QByteArray text = store.keyFileText();
    writeAll(path, text);
    ApiKeyStore again;
    again.readKeyFile(path);
    for (const ApiKeyEntry &entry : apiKeyCatalogue()) {
        const QString name = QString::fromLatin1(entry.name);
        const QString value = store.apiKey(name);
        check(value == value.trimmed());
        check(!value.contains(QLatin1Char('\n')) && !value.contains(QLatin1Char('\r')));
        check(again.apiKey(name) == value);
    }
    check(text.count('\n') == qsizetype(apiKeyCatalogue().size()) + 1);
}

// Symbols from a list file are trimmed, upper case and without a separator; the universe built
// from them holds each once.
void universeList(const QByteArray &bytes)
{
    writeAll(universeFolder() + QStringLiteral("/list.csv"), bytes);
    const QStringList symbols = loadUniverseFiles({universeFolder()});
    for (const QString &symbol : symbols) {
        check(!symbol.isEmpty() && symbol == symbol.trimmed() && symbol == symbol.toUpper());
        check(!symbol.contains(QLatin1Char(',')) && !symbol.contains(QLatin1Char(';')) &&
              !symbol.contains(QLatin1Char('\t')) && !symbol.contains(QLatin1Char('\n')));
    }
    SymbolUniverse universe;
    universe.rebuild(symbols);
    const QStringList &all = universe.symbols();
    check(QSet<QString>(all.cbegin(), all.cend()).size() == all.size());
    for (const QString &symbol : symbols)
        check(universe.contains(symbol));
    check(universe.completerEntries().size() == all.size());
    check(!universe.mergeUniverseSymbols(symbols));
    QFile::remove(universeFolder() + QStringLiteral("/list.csv"));
}

void sectorFile(const QByteArray &bytes)
{
    writeAll(universeFolder() + QStringLiteral("/classification.csv"), bytes);
    const QHash<QString, QString> sectors = readSymbolClassifications({universeFolder()});
    SymbolUniverse universe;
    universe.setSectors(sectors);
    for (auto it = sectors.begin(); it != sectors.end(); ++it) {
        check(!it.key().isEmpty() && it.key() == it.key().trimmed().toUpper());
        check(!it.value().isEmpty() && it.value() == it.value().trimmed());
        check(!it.value().contains(QLatin1Char(',')));
        check(universe.sectorForSymbol(it.key()) == it.value());
    }
    QFile::remove(universeFolder() + QStringLiteral("/classification.csv"));
}

// The first line names the symbol, the rest is the reply kept for it. A fresh entry reads as
// the reply itself, an old or future one as nothing.
void alphaVantageCache(const QByteArray &bytes)
{
    const qsizetype newline = bytes.indexOf('\n');
    const QString symbol = QString::fromUtf8(newline < 0 ? QByteArray() : bytes.left(newline));
    const QByteArray body = newline < 0 ? bytes : bytes.mid(newline + 1);
    // Whatever the symbol holds, its entry stays inside the cache folder.
    const QString path = alphaVantageCacheReadPath(symbol);
    check(QFileInfo(path).absolutePath().startsWith(folders->path() + QStringLiteral("/cache")));
    // A name too long for a file name (no symbol is), with the suffix of the temporary file the
    // entry is written through, has no entry and reads as none.
    if (!writeAlphaVantageCache(symbol, body)) {
        check(QFileInfo(path).fileName().toUtf8().size() > 255 - 7);
        check(!freshAlphaVantageCache(symbol, QDateTime::currentMSecsSinceEpoch()));
        return;
    }
    check(readAll(path) == body);
    const qint64 written = QFileInfo(path).lastModified().toMSecsSinceEpoch();
    const auto cached = freshAlphaVantageCache(symbol, written + 1000);
    const auto parsed = AlphaVantageFetcher(QString()).parseQuote(symbol, body);
    check(cached.has_value() == parsed.has_value());
    if (cached) {
        check(cached->isValid() && cached->symbol == parsed->symbol);
        check(cached->price == parsed->price);
    }
    check(!freshAlphaVantageCache(symbol, written + kAlphaVantageCacheFreshMs + 1000));
    check(!freshAlphaVantageCache(symbol, written - 1000));
}

// "local.json" loaded and saved as the window does: the save keeps every key the file had, and an
// unreadable file stays beside the new one, byte for byte.
void localSettings(const QByteArray &bytes)
{
    const QString path = dataFileWritePath(DataFile::LocalSettings);
    const QString corrupt = path + QStringLiteral(".corrupt");
    QFile::remove(corrupt);
    writeAll(path, bytes);

    LocalSettingsFile file;
    const QJsonObject loaded = file.load();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    const bool readable = error.error == QJsonParseError::NoError && document.isObject();
    check(file.readCorruptFile() == !readable);
    check(loaded == (readable ? document.object() : QJsonObject()));

    check(file.save({{QStringLiteral("language"), QStringLiteral("pt_BR")}}));
    QJsonObject expected = loaded;
    expected.insert(QStringLiteral("language"), QStringLiteral("pt_BR"));
    check(file.stored() == expected);
    const QJsonDocument saved = QJsonDocument::fromJson(readAll(path), &error);
    check(error.error == QJsonParseError::NoError && saved.object() == expected);
    check(readable ? !QFile::exists(corrupt) : readAll(corrupt) == bytes);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    folders = new QTemporaryDir(scratchFolder() + QStringLiteral("/fuzz_local_files-XXXXXX"));
    isolateDataFolders(folders->path());
    QDir().mkpath(universeFolder());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray rest(reinterpret_cast<const char *>(data) + 1, qsizetype(size - 1));
    switch (data[0] % 6) {
    case 0:
        watchlist(rest);
        break;
    case 1:
        keyFile(rest);
        break;
    case 2:
        universeList(rest);
        break;
    case 3:
        sectorFile(rest);
        break;
    case 4:
        alphaVantageCache(rest);
        break;
    default:
        localSettings(rest);
        break;
    }
    return 0;
}
