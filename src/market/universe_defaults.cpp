#include "market/universe.h"

#include <iterator>

// The built-in universe, compiled in so the completer works before any file or download.
// It holds no "^" index symbols: indexes enter only through universe files or typing.
const QStringList &defaultUniverseSymbols()
{
    // clang-format off
    static constexpr const char *kSymbols[] = {
        // B3 shares and units (122)
        "PETR3.SA", "PETR4.SA", "VALE3.SA", "ITUB3.SA", "ITUB4.SA", "BBDC3.SA", "BBDC4.SA", "BBAS3.SA",
        "B3SA3.SA", "ABEV3.SA", "WEGE3.SA", "RENT3.SA", "PRIO3.SA", "SUZB3.SA", "ELET3.SA", "ELET6.SA",
        "GGBR4.SA", "GOAU4.SA", "CSNA3.SA", "USIM5.SA", "JBSS3.SA", "BRFS3.SA", "MRFG3.SA", "BEEF3.SA",
        "RAIL3.SA", "CCRO3.SA", "ECOR3.SA", "VIVT3.SA", "TIMS3.SA", "CMIG3.SA", "CMIG4.SA", "CPLE3.SA",
        "CPLE6.SA", "TAEE11.SA", "TRPL4.SA", "EGIE3.SA", "ENEV3.SA", "EQTL3.SA", "CPFE3.SA",
        "SBSP3.SA", "SANB11.SA", "BPAC11.SA", "CIEL3.SA", "BBSE3.SA", "IRBR3.SA", "MULT3.SA",
        "IGTI11.SA", "ALOS3.SA", "CYRE3.SA", "EZTC3.SA", "MRVE3.SA", "TEND3.SA", "DIRR3.SA",
        "LREN3.SA", "MGLU3.SA", "ASAI3.SA", "CRFB3.SA", "GMAT3.SA", "PCAR3.SA", "RADL3.SA", "HAPV3.SA",
        "FLRY3.SA", "RDOR3.SA", "QUAL3.SA", "YDUQ3.SA", "COGN3.SA", "VIVA3.SA", "SOMA3.SA", "ARZZ3.SA",
        "NTCO3.SA", "AZUL4.SA", "GOLL4.SA", "EMBR3.SA", "BRKM5.SA", "KLBN11.SA", "SMTO3.SA",
        "SLCE3.SA", "AGRO3.SA", "RRRP3.SA", "RECV3.SA", "UGPA3.SA", "VBBR3.SA", "CSAN3.SA", "RAIZ4.SA",
        "TOTS3.SA", "LWSA3.SA", "CASH3.SA", "POSI3.SA", "PSSA3.SA", "PORT3.SA", "MDIA3.SA", "VAMO3.SA",
        "SIMH3.SA", "STBP3.SA", "KEPL3.SA", "ODPV3.SA", "ALPA4.SA", "ANIM3.SA", "AURE3.SA", "BMOB3.SA",
        "CBAV3.SA", "CURY3.SA", "DXCO3.SA", "GRND3.SA", "GUAR3.SA", "INTB3.SA", "LEVE3.SA", "LOGG3.SA",
        "LJQQ3.SA", "MILS3.SA", "MOVI3.SA", "ONCO3.SA", "ORVR3.SA", "PETZ3.SA", "PNVL3.SA", "RAPT4.SA",
        "SEER3.SA", "SOJA3.SA", "TRIS3.SA", "UNIP6.SA", "VULC3.SA", "XPBR31.SA",
        // US shares and ETFs (125)
        "AAPL", "MSFT", "NVDA", "AMZN", "GOOGL", "GOOG", "META", "TSLA", "AVGO", "AMD", "INTC", "NFLX",
        "ORCL", "CRM", "ADBE", "CSCO", "QCOM", "TXN", "MU", "IBM", "JPM", "BAC", "WFC", "GS", "MS",
        "V", "MA", "AXP", "PYPL", "COIN", "BRK-B", "UNH", "LLY", "JNJ", "PFE", "MRK", "ABBV", "TMO",
        "DHR", "ISRG", "WMT", "COST", "HD", "LOW", "TGT", "NKE", "MCD", "SBUX", "KO", "PEP", "PG",
        "PM", "MO", "XOM", "CVX", "COP", "SLB", "OXY", "BA", "CAT", "DE", "GE", "HON", "MMM", "LMT",
        "RTX", "UPS", "FDX", "DIS", "CMCSA", "T", "VZ", "TMUS", "SHOP", "UBER", "ABNB", "RBLX", "PLTR",
        "SNOW", "NET", "DDOG", "CRWD", "ZS", "PANW", "MDB", "SQ", "ROKU", "SOFI", "RIVN", "LCID", "F",
        "GM", "NIO", "BABA", "PDD", "JD", "TSM", "ASML", "ARM", "SMCI", "SPY", "QQQ", "DIA", "IWM",
        "VTI", "VOO", "IVV", "VEA", "VWO", "EEM", "XLF", "XLK", "XLE", "XLV", "XLY", "XLP", "XLI",
        "XLU", "XLB", "XLRE", "GLD", "SLV", "USO", "TLT", "HYG",
        // forex pairs written with a slash (12)
        "USD/BRL", "BRL/USD", "EUR/USD", "USD/EUR", "GBP/USD", "USD/JPY", "USD/CHF", "USD/CAD",
        "AUD/USD", "NZD/USD", "EUR/BRL", "GBP/BRL",
        // forex symbols (4)
        "BRL=X", "BRLUSD=X", "EURUSD=X", "JPY=X",
        // Binance USDT pairs (32)
        "BTCUSDT", "ETHUSDT", "BNBUSDT", "SOLUSDT", "XRPUSDT", "ADAUSDT", "DOGEUSDT", "AVAXUSDT",
        "LINKUSDT", "DOTUSDT", "LTCUSDT", "TRXUSDT", "BCHUSDT", "NEARUSDT", "ATOMUSDT", "APTUSDT",
        "ARBUSDT", "OPUSDT", "SUIUSDT", "SEIUSDT", "INJUSDT", "FILUSDT", "ETCUSDT", "UNIUSDT",
        "AAVEUSDT", "MKRUSDT", "RUNEUSDT", "FTMUSDT", "WLDUSDT", "PEPEUSDT", "SHIBUSDT", "FETUSDT",
    };
    // clang-format on
    static const QStringList symbols = [] {
        QStringList list;
        list.reserve(std::size(kSymbols));
        for (const char *symbol : kSymbols)
            list.append(QString::fromLatin1(symbol));
        return list;
    }();
    return symbols;
}
