#include "simulated_market/instruments.h"

#include "market/symbols.h"
#include "market/universe.h"
#include "simulated_market/hashing.h"

#include <QSet>

#include <cmath>
#include <iterator>

namespace {

struct KnownInstrument
{
    const char *symbol;
    double price;
    double volume; // 0: derived like any other
    const char *shortName;
    const char *longName;
};

// Levels of late 2024, so the screens look familiar.
constexpr KnownInstrument kKnown[] = {
        {"PETR4.SA", 37.0, 40e6, "PETROBRAS   PN      N2", "Petróleo Brasileiro S.A. - Petrobras"},
        {"PETR3.SA", 40.0, 15e6, "PETROBRAS   ON      N2", "Petróleo Brasileiro S.A. - Petrobras"},
        {"VALE3.SA", 60.0, 25e6, "VALE        ON      NM", "Vale S.A."},
        {"ITUB4.SA", 33.0, 22e6, "ITAUUNIBANCOPN      N1", "Itaú Unibanco Holding S.A."},
        {"BBDC4.SA", 13.0, 35e6, "BRADESCO    PN      N1", "Banco Bradesco S.A."},
        {"BBAS3.SA", 27.0, 18e6, "BRASIL      ON      NM", "Banco do Brasil S.A."},
        {"B3SA3.SA", 11.0, 30e6, "B3          ON      NM", "B3 S.A. - Brasil, Bolsa, Balcão"},
        {"ABEV3.SA", 12.5, 25e6, "AMBEV S/A   ON", "Ambev S.A."},
        {"WEGE3.SA", 52.0, 6e6, "WEG         ON      NM", "WEG S.A."},
        {"MGLU3.SA", 9.0, 20e6, "MAGAZ LUIZA ON      NM", "Magazine Luiza S.A."},
        {"^BVSP", 128000.0, 0, "IBOVESPA", "IBOVESPA"},
        {"AAPL", 228.0, 50e6, "Apple Inc.", "Apple Inc."},
        {"MSFT", 420.0, 20e6, "Microsoft Corporation", "Microsoft Corporation"},
        {"NVDA", 140.0, 220e6, "NVIDIA Corporation", "NVIDIA Corporation"},
        {"AMZN", 205.0, 40e6, "Amazon.com, Inc.", "Amazon.com, Inc."},
        {"GOOGL", 175.0, 25e6, "Alphabet Inc.", "Alphabet Inc."},
        {"GOOG", 177.0, 18e6, "Alphabet Inc.", "Alphabet Inc."},
        {"META", 580.0, 12e6, "Meta Platforms, Inc.", "Meta Platforms, Inc."},
        {"TSLA", 340.0, 90e6, "Tesla, Inc.", "Tesla, Inc."},
        {"JPM", 240.0, 9e6, "JPMorgan Chase & Co.", "JPMorgan Chase & Co."},
        {"BRK-B", 470.0, 4e6, "Berkshire Hathaway Inc. New", "Berkshire Hathaway Inc."},
        {"NFLX", 880.0, 3e6, "Netflix, Inc.", "Netflix, Inc."},
        {"AMD", 135.0, 40e6, "Advanced Micro Devices, Inc.", "Advanced Micro Devices, Inc."},
        {"INTC", 22.0, 60e6, "Intel Corporation", "Intel Corporation"},
        {"SPY", 590.0, 45e6, "SPDR S&P 500", "SPDR S&P 500 ETF Trust"},
        {"QQQ", 510.0, 30e6, "Invesco QQQ Trust, Series 1", "Invesco QQQ Trust"},
        {"^GSPC", 5900.0, 3.5e9, "S&P 500", "S&P 500"},
        {"^DJI", 43000.0, 4e8, "Dow Jones Industrial Average", "Dow Jones Industrial Average"},
        {"^IXIC", 19000.0, 7e9, "NASDAQ Composite", "NASDAQ Composite"},
        {"^RUT", 2350.0, 0, "Russell 2000", "Russell 2000"},
        {"^VIX", 16.0, 0, "CBOE Volatility Index", "CBOE Volatility Index"},
        {"BTCUSDT", 90000.0, 25e3, "Bitcoin USD", "Bitcoin USD"},
        {"ETHUSDT", 3100.0, 4e5, "Ethereum USD", "Ethereum USD"},
        {"BNBUSDT", 620.0, 0, "BNB USD", "BNB USD"},
        {"SOLUSDT", 230.0, 0, "Solana USD", "Solana USD"},
        {"XRPUSDT", 1.1, 0, "XRP USD", "XRP USD"},
        {"ADAUSDT", 0.8, 0, "Cardano USD", "Cardano USD"},
        {"DOGEUSDT", 0.38, 0, "Dogecoin USD", "Dogecoin USD"},
        {"PEPEUSDT", 0.000019, 0, "Pepe USD", "Pepe USD"},
        {"SHIBUSDT", 0.000024, 0, "Shiba Inu USD", "Shiba Inu USD"},
        {"BRL=X", 5.8, 0, nullptr, nullptr},
        {"BRLUSD=X", 0.1724, 0, nullptr, nullptr},
        {"EURUSD=X", 1.05, 0, nullptr, nullptr},
        {"EUR=X", 0.952, 0, nullptr, nullptr},
        {"GBPUSD=X", 1.27, 0, nullptr, nullptr},
        {"JPY=X", 154.0, 0, nullptr, nullptr},
        {"CHF=X", 0.89, 0, nullptr, nullptr},
        {"CAD=X", 1.40, 0, nullptr, nullptr},
        {"AUDUSD=X", 0.65, 0, nullptr, nullptr},
        {"NZDUSD=X", 0.59, 0, nullptr, nullptr},
        {"EURBRL=X", 6.09, 0, nullptr, nullptr},
        {"GBPBRL=X", 7.37, 0, nullptr, nullptr},
};

// The indexes are not in the built-in universe; the simulated market quotes them all the same.
constexpr const char *kIndexes[] = {"^GSPC", "^DJI", "^IXIC", "^RUT", "^VIX", "^BVSP"};

const KnownInstrument *known(const QString &symbol)
{
    for (const KnownInstrument &entry : kKnown) {
        if (symbol == QLatin1String(entry.symbol))
            return &entry;
    }
    return nullptr;
}

const QSet<QString> &fundSymbols()
{
    static const QSet<QString> funds = [] {
        QSet<QString> set;
        for (const char *fund : {"SPY", "QQQ",  "DIA", "IWM", "VTI", "VOO", "IVV", "VEA", "VWO",
                                 "EEM", "XLF",  "XLK", "XLE", "XLV", "XLY", "XLP", "XLI", "XLU",
                                 "XLB", "XLRE", "GLD", "SLV", "USO", "TLT", "HYG"})
            set.insert(QLatin1String(fund));
        return set;
    }();
    return funds;
}

// A value spread evenly on a log scale between `low` and `high`, fixed by the symbol text.
double logUniform(const QString &symbol, quint64 salt, double low, double high)
{
    const double u = unitInterval(mix64(textHash(symbol), salt));
    return low * std::pow(high / low, u);
}

int cryptoDecimals(double price)
{
    if (price >= 100.0)
        return 2;
    if (price >= 1.0)
        return 4;
    if (price >= 0.01)
        return 5;
    return 8;
}

// "WEGE3" -> "WEGE        ON      NM": the root to twelve columns, the class to eight.
QString b3ShortName(const QString &ticker)
{
    qsizetype digits = 0;
    while (digits < ticker.size() && ticker.at(ticker.size() - 1 - digits).isDigit())
        ++digits;
    const QString root = ticker.chopped(digits);
    const QString number = ticker.right(digits);
    QString shareClass = QStringLiteral("PN");
    if (number == QLatin1String("3"))
        shareClass = QStringLiteral("ON");
    else if (number == QLatin1String("11"))
        shareClass = QStringLiteral("UNT");
    else if (number == QLatin1String("31"))
        shareClass = QStringLiteral("DRN");
    return root.leftJustified(12, QLatin1Char(' ')) +
           shareClass.leftJustified(8, QLatin1Char(' ')) + QStringLiteral("NM");
}

// Yahoo's sectors, with the shares of the built-in universe that belong to each (B3 shares by their
// ticker without ".SA").
struct SectorShares
{
    const char *sector;
    const char *tickers; // separated by blanks
};

constexpr SectorShares kSectors[] = {
        {"Technology", "AAPL MSFT NVDA AVGO AMD INTC ORCL CRM ADBE CSCO QCOM TXN MU IBM SHOP UBER "
                       "SNOW NET DDOG CRWD ZS PANW MDB PLTR TSM ASML ARM SMCI TOTS3 LWSA3 CASH3 "
                       "POSI3 INTB3 BMOB3"},
        {"Communication Services", "GOOGL GOOG META NFLX DIS CMCSA T VZ TMUS RBLX ROKU VIVT3 "
                                   "TIMS3"},
        {"Consumer Cyclical", "AMZN TSLA HD LOW NKE MCD SBUX ABNB RIVN LCID F GM NIO BABA PDD JD "
                              "LREN3 MGLU3 VIVA3 SOMA3 ARZZ3 YDUQ3 COGN3 ANIM3 ALPA4 GRND3 GUAR3 "
                              "PETZ3 LEVE3 VULC3 LJQQ3 SEER3 MOVI3"},
        {"Financial Services", "JPM BAC WFC GS MS V MA AXP PYPL COIN BRK-B SQ SOFI ITUB3 ITUB4 "
                               "BBDC3 BBDC4 BBAS3 B3SA3 SANB11 BPAC11 CIEL3 BBSE3 IRBR3 PSSA3 "
                               "XPBR31"},
        {"Healthcare", "UNH LLY JNJ PFE MRK ABBV TMO DHR ISRG RADL3 HAPV3 FLRY3 RDOR3 QUAL3 ODPV3 "
                       "ONCO3 PNVL3"},
        {"Consumer Defensive", "WMT COST TGT KO PEP PG PM MO ABEV3 JBSS3 BRFS3 MRFG3 BEEF3 ASAI3 "
                               "CRFB3 GMAT3 PCAR3 SMTO3 SLCE3 AGRO3 SOJA3 NTCO3 MDIA3"},
        {"Energy", "XOM CVX COP SLB OXY PETR3 PETR4 PRIO3 RRRP3 RECV3 UGPA3 VBBR3 CSAN3 RAIZ4"},
        {"Basic Materials", "VALE3 SUZB3 GGBR4 GOAU4 CSNA3 USIM5 BRKM5 KLBN11 DXCO3 UNIP6 CBAV3"},
        {"Industrials", "BA CAT DE GE HON MMM LMT RTX UPS FDX WEGE3 RENT3 RAIL3 CCRO3 ECOR3 AZUL4 "
                        "GOLL4 EMBR3 PORT3 VAMO3 SIMH3 STBP3 KEPL3 MILS3 TRIS3"},
        {"Utilities", "ELET3 ELET6 CMIG3 CMIG4 CPLE3 CPLE6 TAEE11 TRPL4 EGIE3 ENEV3 EQTL3 CPFE3 "
                      "SBSP3 AURE3"},
        {"Real Estate", "MULT3 IGTI11 ALOS3 CYRE3 EZTC3 MRVE3 TEND3 DIRR3 CURY3 LOGG3"},
};

// A share outside the table still gets one of the sectors, fixed by its ticker.
QString shareSector(const QString &ticker)
{
    static const QHash<QString, QString> sectors = [] {
        QHash<QString, QString> table;
        for (const SectorShares &entry : kSectors) {
            for (const QString &share :
                 QString::fromLatin1(entry.tickers).split(QLatin1Char(' '), Qt::SkipEmptyParts))
                table.insert(share, QLatin1String(entry.sector));
        }
        return table;
    }();
    if (const auto found = sectors.constFind(ticker); found != sectors.cend())
        return *found;
    return QLatin1String(kSectors[textHash(ticker) % std::size(kSectors)].sector);
}

QString cryptoName(const QString &pair)
{
    return pair.chopped(4) + QStringLiteral(" USD");
}

} // namespace

InstrumentKind instrumentKindOf(const QString &symbol)
{
    if (symbol == QLatin1String("^BVSP"))
        return InstrumentKind::BrIndex;
    if (symbol.startsWith(QLatin1Char('^')))
        return InstrumentKind::UsIndex;
    switch (assetClassOf(symbol)) {
    case AssetClass::BrEquity:
        return InstrumentKind::BrEquity;
    case AssetClass::Crypto:
        return InstrumentKind::Crypto;
    case AssetClass::Forex:
        return InstrumentKind::Forex;
    case AssetClass::UsEquity:
        break;
    }
    return fundSymbols().contains(symbol) ? InstrumentKind::UsFund : InstrumentKind::UsEquity;
}

InstrumentProfile instrumentProfile(const QString &symbol)
{
    const InstrumentKind kind = instrumentKindOf(symbol);
    InstrumentProfile profile;
    switch (kind) {
    case InstrumentKind::BrEquity:
        profile = {logUniform(symbol, 1, 5.0, 80.0), logUniform(symbol, 2, 2e6, 60e6), 0.018, 2};
        break;
    case InstrumentKind::BrIndex:
        profile = {logUniform(symbol, 1, 5e4, 2e5), 1e7, 0.010, 2};
        break;
    case InstrumentKind::UsEquity:
        profile = {logUniform(symbol, 1, 15.0, 450.0), logUniform(symbol, 2, 3e6, 80e6), 0.015, 2};
        break;
    case InstrumentKind::UsFund:
        profile = {logUniform(symbol, 1, 20.0, 500.0), logUniform(symbol, 2, 5e6, 70e6), 0.010, 2};
        break;
    case InstrumentKind::UsIndex:
        profile = {logUniform(symbol, 1, 1e3, 2e4), logUniform(symbol, 2, 1e8, 5e9), 0.009, 2};
        break;
    case InstrumentKind::Forex:
        profile = {logUniform(symbol, 1, 0.5, 2.0), 0.0, 0.005, 4};
        break;
    case InstrumentKind::Crypto:
        profile = {logUniform(symbol, 1, 0.05, 300.0), 0.0, 0.030, 2};
        break;
    }
    if (const KnownInstrument *entry = known(symbol)) {
        profile.basePrice = entry->price;
        if (entry->volume > 0.0)
            profile.dailyVolume = entry->volume;
    }
    if (kind == InstrumentKind::Crypto) {
        // Traded value of 20 million to 2 billion dollars a day, counted in coins.
        if (profile.dailyVolume <= 0.0)
            profile.dailyVolume = logUniform(symbol, 2, 2e7, 2e9) / profile.basePrice;
        profile.priceDecimals = cryptoDecimals(profile.basePrice);
    }
    if (symbol == QLatin1String("^VIX"))
        profile.dailyVolatility = 0.06;
    if (kind == InstrumentKind::Forex && profile.basePrice >= 20.0)
        profile.priceDecimals = 3; // yen and the like
    return profile;
}

QPair<QString, QString> forexCurrencies(const QString &symbol)
{
    const QString pair = symbol.endsWith(QLatin1String("=X")) ? symbol.chopped(2) : symbol;
    if (pair.size() == 3)
        return {QStringLiteral("USD"), pair};
    return {pair.left(3), pair.mid(3, 3)};
}

QString currencyName(const QString &code)
{
    static const QHash<QString, QString> names{
            {QStringLiteral("USD"), QStringLiteral("US Dollar")},
            {QStringLiteral("BRL"), QStringLiteral("Brazilian Real")},
            {QStringLiteral("EUR"), QStringLiteral("Euro")},
            {QStringLiteral("GBP"), QStringLiteral("British Pound")},
            {QStringLiteral("JPY"), QStringLiteral("Japanese Yen")},
            {QStringLiteral("CHF"), QStringLiteral("Swiss Franc")},
            {QStringLiteral("CAD"), QStringLiteral("Canadian Dollar")},
            {QStringLiteral("AUD"), QStringLiteral("Australian Dollar")},
            {QStringLiteral("NZD"), QStringLiteral("New Zealand Dollar")},
    };
    return names.value(code, code);
}

InstrumentCatalogue::InstrumentCatalogue()
{
    for (const QString &symbol : defaultUniverseSymbols())
        add(symbol.contains(QLatin1Char('/')) ? normalizeForexSymbol(symbol) : symbol);
    for (const char *index : kIndexes)
        add(QLatin1String(index));
}

void InstrumentCatalogue::add(const QString &symbol)
{
    if (symbol.isEmpty() || m_index.contains(symbol))
        return;
    Instrument instrument;
    instrument.symbol = symbol;
    instrument.kind = instrumentKindOf(symbol);
    instrument.currency = currencyForSymbol(symbol);
    switch (instrument.kind) {
    case InstrumentKind::BrEquity:
        instrument.shortName = b3ShortName(symbol.chopped(3));
        instrument.longName = symbol.chopped(3) + QStringLiteral(" S.A.");
        instrument.sector = shareSector(symbol.chopped(3));
        break;
    case InstrumentKind::BrIndex:
        instrument.currency = QStringLiteral("BRL");
        break;
    case InstrumentKind::Forex:
        instrument.shortName = displaySymbol(symbol);
        instrument.longName = instrument.shortName;
        instrument.currency = forexCurrencies(symbol).second;
        break;
    case InstrumentKind::Crypto:
        instrument.shortName = cryptoName(symbol);
        instrument.longName = instrument.shortName;
        break;
    case InstrumentKind::UsEquity:
        instrument.sector = shareSector(symbol);
        break;
    case InstrumentKind::UsFund:
    case InstrumentKind::UsIndex:
        break;
    }
    if (const KnownInstrument *entry = known(symbol); entry && entry->shortName) {
        instrument.shortName = QString::fromUtf8(entry->shortName);
        instrument.longName = QString::fromUtf8(entry->longName);
    }
    if (instrument.shortName.isEmpty())
        instrument.shortName = instrument.longName = symbol;
    m_index.insert(symbol, m_instruments.size());
    m_instruments.append(instrument);
}

const Instrument *InstrumentCatalogue::find(const QString &symbol) const
{
    const auto found = m_index.constFind(symbol);
    return found == m_index.cend() ? nullptr : &m_instruments.at(*found);
}

const Instrument *InstrumentCatalogue::fromYahoo(const QString &symbol) const
{
    const QString upper = symbol.trimmed().toUpper();
    if (upper.endsWith(QLatin1String("-USD"))) {
        const Instrument *crypto = find(upper.chopped(4) + QStringLiteral("USDT"));
        return crypto && crypto->kind == InstrumentKind::Crypto ? crypto : nullptr;
    }
    if (upper.endsWith(QLatin1String("=X")))
        return find(normalizeForexSymbol(upper));
    const Instrument *instrument = find(upper);
    // Yahoo has no Binance pairs: "BTCUSDT" is unknown there.
    return instrument && instrument->kind != InstrumentKind::Crypto ? instrument : nullptr;
}

const Instrument *InstrumentCatalogue::fromBrapi(const QString &ticker) const
{
    const QString upper = ticker.trimmed().toUpper();
    if (upper.startsWith(QLatin1Char('^'))) {
        const Instrument *index = find(upper);
        return index && index->kind == InstrumentKind::BrIndex ? index : nullptr;
    }
    if (upper.isEmpty() || upper.contains(QLatin1Char('.')))
        return nullptr;
    return find(upper + QStringLiteral(".SA"));
}

const Instrument *InstrumentCatalogue::fromBinance(const QString &pair) const
{
    const Instrument *instrument = find(pair.trimmed().toUpper());
    return instrument && instrument->kind == InstrumentKind::Crypto ? instrument : nullptr;
}

const Instrument *InstrumentCatalogue::fromUsMarket(const QString &symbol) const
{
    const Instrument *instrument = find(symbol.trimmed().toUpper());
    if (!instrument)
        return nullptr;
    switch (instrument->kind) {
    case InstrumentKind::UsEquity:
    case InstrumentKind::UsFund:
    case InstrumentKind::UsIndex:
        return instrument;
    default:
        return nullptr;
    }
}

const Instrument *InstrumentCatalogue::fromTwelveData(const QString &symbol) const
{
    const QString upper = symbol.trimmed().toUpper();
    if (upper.contains(QLatin1Char('/'))) {
        const QString forex = normalizeForexSymbol(upper);
        return forex.isEmpty() ? nullptr : find(forex);
    }
    const Instrument *instrument = fromUsMarket(upper);
    return instrument && instrument->kind != InstrumentKind::UsIndex ? instrument : nullptr;
}

QString yahooSymbolOf(const Instrument &instrument)
{
    return instrument.kind == InstrumentKind::Crypto ? yahooCryptoSymbol(instrument.symbol)
                                                     : instrument.symbol;
}
