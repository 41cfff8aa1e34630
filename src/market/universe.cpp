#include "market/universe.h"

#include "app/language.h"
#include "market/symbols.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>

namespace {

const QString kClassificationFile = QStringLiteral("classification.csv");

void sortCaseInsensitively(QStringList &symbols)
{
    std::stable_sort(symbols.begin(), symbols.end(), [](const QString &a, const QString &b) {
        return QString::compare(a, b, Qt::CaseInsensitive) < 0;
    });
}

bool isHeaderField(const QString &field)
{
    return field.compare(QLatin1String("symbol"), Qt::CaseInsensitive) == 0;
}

// Trimmed lines that are neither empty nor comments.
template<typename Visit>
void forEachDataLine(QFile &file, Visit visit)
{
    QTextStream in(&file);
    QString line;
    while (in.readLineInto(&line)) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        visit(line);
    }
}

void readUniverseFile(const QString &path, QStringList &symbols)
{
    static const QRegularExpression fieldEnd(QStringLiteral("[,;\\t]"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    forEachDataLine(file, [&](const QString &line) {
        const qsizetype cut = line.indexOf(fieldEnd);
        const QString field = (cut >= 0 ? line.left(cut) : line).trimmed();
        if (!field.isEmpty() && !isHeaderField(field))
            symbols.append(field.toUpper());
    });
}

} // namespace

QStringList loadUniverseFiles(const QStringList &folders)
{
    QStringList symbols;
    QSet<QString> filesRead;
    for (const QString &folder : folders) {
        const QDir dir(folder);
        if (!dir.exists())
            continue;
        const QFileInfoList files =
                dir.entryInfoList({QStringLiteral("*.txt"), QStringLiteral("*.csv")},
                                  QDir::Files | QDir::Readable, QDir::Name);
        for (const QFileInfo &info : files) {
            const QString canonical = info.canonicalFilePath();
            if (canonical.isEmpty() || filesRead.contains(canonical))
                continue;
            filesRead.insert(canonical);
            readUniverseFile(info.filePath(), symbols);
        }
    }
    return symbols;
}

QHash<QString, QString> readSymbolClassifications(const QStringList &folders)
{
    QHash<QString, QString> sectors;
    for (const QString &folder : folders) {
        const QString path = QDir(folder).filePath(kClassificationFile);
        if (!QFileInfo(path).isFile())
            continue;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return sectors; // only the first folder's file counts, readable or not
        forEachDataLine(file, [&](const QString &line) {
            const QStringList fields = line.split(QLatin1Char(','), Qt::KeepEmptyParts);
            if (fields.size() < 2 || isHeaderField(fields.at(0)))
                return;
            const QString symbol = fields.at(0).trimmed().toUpper();
            const QString sector = fields.at(1).trimmed();
            if (!symbol.isEmpty() && !sector.isEmpty())
                sectors.insert(symbol, sector);
        });
        return sectors;
    }
    return sectors;
}

QString completerEntry(const QString &symbol)
{
    return QStringLiteral("%1  (%2)").arg(displaySymbol(symbol), marketLabelForSymbol(symbol));
}

void SymbolUniverse::rebuild(const QStringList &fileSymbols)
{
    m_symbols = defaultUniverseSymbols() + fileSymbols;
    m_symbols.removeDuplicates();
    sortCaseInsensitively(m_symbols);
    m_known = QSet<QString>(m_symbols.cbegin(), m_symbols.cend());

    m_b3ShortTickers.clear();
    for (const QString &symbol : std::as_const(m_symbols)) {
        if (symbol.endsWith(QLatin1String(".SA")))
            m_b3ShortTickers.append(symbol.chopped(3));
    }
    m_b3ShortTickers.removeDuplicates();
}

bool SymbolUniverse::mergeUniverseSymbols(const QStringList &symbols)
{
    bool added = false;
    for (const QString &raw : symbols) {
        const QString symbol = raw.trimmed().toUpper();
        if (symbol.isEmpty() || m_known.contains(symbol))
            continue;
        m_symbols.append(symbol);
        m_known.insert(symbol);
        added = true;
    }
    if (added)
        sortCaseInsensitively(m_symbols);
    return added;
}

QString SymbolUniverse::normalizeSymbolInput(const QString &text) const
{
    return ::normalizeSymbolInput(text, m_cryptoBaseAssets, m_b3ShortTickers);
}

QStringList SymbolUniverse::usEquityUniverse() const
{
    // Deliberately simple: slash pairs and "=X" symbols pass as well. The universe is already
    // unique and sorted, and filtering keeps it so.
    QStringList result;
    for (const QString &symbol : m_symbols) {
        if (symbol.contains(QLatin1Char('.')) || symbol.endsWith(QLatin1String("USDT")) ||
            symbol.endsWith(QLatin1String("BUSD")) || symbol.endsWith(QLatin1String("USDC")))
            continue;
        result.append(symbol);
    }
    return result;
}

QString SymbolUniverse::sectorForSymbol(const QString &symbol) const
{
    const auto it = m_sectors.constFind(symbol);
    if (it != m_sectors.constEnd())
        return it.value();
    return translated(QStringLiteral("Unclassified"), QStringLiteral("Não classificado"));
}

QStringList SymbolUniverse::completerEntries() const
{
    QStringList entries;
    entries.reserve(m_symbols.size());
    for (const QString &symbol : m_symbols)
        entries.append(completerEntry(symbol));
    return entries;
}
