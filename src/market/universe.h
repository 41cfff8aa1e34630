#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

// The 295 symbols compiled into the program, in their five groups: B3, US, slash forex pairs,
// "=X" forex symbols and Binance USDT pairs.
const QStringList &defaultUniverseSymbols();

// Symbols from every "*.txt" and "*.csv" file of the given folders, walked in order, files sorted
// by name, each file read once even when two folders reach it. Missing folders and unreadable
// files are skipped without a word.
QStringList loadUniverseFiles(const QStringList &folders);

// The sector table from the first folder that holds "classification.csv": symbol -> sector.
QHash<QString, QString> readSymbolClassifications(const QStringList &folders);

// "PETR4.SA  (B3)": the display symbol, two blanks and the market label in parentheses.
QString completerEntry(const QString &symbol);

// Every known symbol (upper case, unique, sorted case-insensitively) with the lists derived from
// it. The main window holds one; it is built once and later grows only by merging.
class SymbolUniverse
{
public:
    // Built-in list + file symbols, de-duplicated and sorted; rebuilds the B3 short tickers.
    void rebuild(const QStringList &fileSymbols);
    // Appends the new symbols; true when anything was added (the completer then refills).
    bool mergeUniverseSymbols(const QStringList &symbols);

    void setCryptoBaseAssets(const QStringList &bases) { m_cryptoBaseAssets = bases; }
    void setSectors(const QHash<QString, QString> &sectors) { m_sectors = sectors; }

    QString normalizeSymbolInput(const QString &text) const;
    QStringList usEquityUniverse() const;
    // The sector, or the translated "Unclassified".
    QString sectorForSymbol(const QString &symbol) const;
    QStringList completerEntries() const;

    bool contains(const QString &symbol) const { return m_known.contains(symbol); }
    const QStringList &symbols() const { return m_symbols; }
    const QStringList &b3ShortTickers() const { return m_b3ShortTickers; }
    const QStringList &cryptoBaseAssets() const { return m_cryptoBaseAssets; }
    const QHash<QString, QString> &sectors() const { return m_sectors; }

private:
    QStringList m_symbols;
    QSet<QString> m_known;
    QStringList m_b3ShortTickers;
    QStringList m_cryptoBaseAssets; // empty until the Binance pairs have loaded
    QHash<QString, QString> m_sectors;
};
