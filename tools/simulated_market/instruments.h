#pragma once

#include <QHash>
#include <QList>
#include <QPair>
#include <QString>

// What the simulated market trades: the terminal's built-in universe (slash forex pairs folded into
// their "=X" symbols) and a few market indexes. Symbols are in the Yahoo style, except that crypto
// keeps its Binance pair name ("BTCUSDT"); each provider's own spelling is mapped onto them here.

enum class InstrumentKind {
    BrEquity,
    BrIndex,
    UsEquity,
    UsFund,
    UsIndex,
    Forex,
    Crypto,
};

InstrumentKind instrumentKindOf(const QString &symbol);

// The constants the price walk starts from.
struct InstrumentProfile
{
    double basePrice = 1.0;
    double dailyVolume = 0.0;     // shares, units or coins a day; 0 for currencies
    double dailyVolatility = 0.0; // a typical day's move, as a fraction of the price
    int priceDecimals = 2;        // Yahoo's price hint
};

// A table for the well-known symbols, a value derived from the symbol text for the others.
InstrumentProfile instrumentProfile(const QString &symbol);

struct Instrument
{
    QString symbol;
    InstrumentKind kind = InstrumentKind::UsEquity;
    QString shortName; // B3 shares in the exchange's padded form: "PETROBRAS   PN      N2"
    QString longName;
    QString currency; // of the price: the quote currency for forex
    // Yahoo's sector of a share ("Technology", "Energy"); empty for indexes, funds, currencies and
    // coins, as Yahoo gives them none.
    QString sector;
};

// "BRL=X" -> {"USD", "BRL"}, "EURUSD=X" -> {"EUR", "USD"}.
QPair<QString, QString> forexCurrencies(const QString &symbol);
QString currencyName(const QString &code); // "BRL" -> "Brazilian Real"

class InstrumentCatalogue
{
public:
    InstrumentCatalogue();

    const QList<Instrument> &instruments() const { return m_instruments; }
    const Instrument *find(const QString &symbol) const;

    // Each provider's spelling, case-insensitive; nullptr when that provider does not list it.
    const Instrument *fromYahoo(const QString &symbol) const;    // "BTC-USD", "USDBRL=X", "^GSPC"
    const Instrument *fromBrapi(const QString &ticker) const;    // B3 only: "PETR4", "^BVSP"
    const Instrument *fromBinance(const QString &pair) const;    // crypto pairs only
    const Instrument *fromUsMarket(const QString &symbol) const; // US shares, funds and indexes
    // US shares and funds, and currency pairs written "USD/BRL".
    const Instrument *fromTwelveData(const QString &symbol) const;

private:
    void add(const QString &symbol);

    QList<Instrument> m_instruments;
    QHash<QString, qsizetype> m_index;
};

// The symbol Yahoo knows the instrument by: "BTCUSDT" -> "BTC-USD".
QString yahooSymbolOf(const Instrument &instrument);
