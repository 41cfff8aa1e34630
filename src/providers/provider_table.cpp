#include "providers/provider_table.h"

namespace {

using enum AssetClass;
using enum DataKind;

// clang-format off
const ProviderEntry kProviders[] = {
    {"binance_public", "",                                true,  true,  bitsOf<AssetClass>({Crypto}),                   bitsOf<DataKind>({Quote, History, Fundamentals, OrderBook, Trades})},
    {"itick",          "itick_api_key",                   false, true,  bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({OrderBook, Trades})},
    {"polygon",        "polygon_api_key",                 false, false, bitsOf<AssetClass>({UsEquity, Forex, Crypto}),  bitsOf<DataKind>({Quote, History, Fundamentals})},
    {"finnhub",        "finnhub_api_key",                 false, true,  bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote})},
    {"twelvedata",     "twelvedata_api_key",              false, true,  bitsOf<AssetClass>({UsEquity, Forex}),          bitsOf<DataKind>({Quote})},
    {"iex",            "iex_cloud_api_key",               false, false, bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote})},
    {"fmp",            "financial_modeling_prep_api_key", false, true,  bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote})},
    {"tiingo",         "tiingo_api_key",                  false, false, bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote, History})},
    {"eodhd",          "eodhd_api_key",                   false, false, bitsOf<AssetClass>({UsEquity, BrEquity}),       bitsOf<DataKind>({Quote, History})},
    {"marketstack",    "marketstack_api_key",             false, false, bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote})},
    {"alpha_vantage",  "alpha_vantage_api_key",           false, true,  bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote, Fundamentals})},
    {"brapi_keyed",    "brapi_token",                     false, true,  bitsOf<AssetClass>({BrEquity}),                 bitsOf<DataKind>({Quote, History, Fundamentals})},
    {"brapi_public",   "",                                true,  true,  bitsOf<AssetClass>({BrEquity}),                 bitsOf<DataKind>({Quote, History, Fundamentals})},
    {"yahoo_us",       "",                                true,  true,  bitsOf<AssetClass>({UsEquity}),                 bitsOf<DataKind>({Quote, History, Fundamentals})},
    {"yahoo_b3",       "",                                true,  true,  bitsOf<AssetClass>({BrEquity}),                 bitsOf<DataKind>({Quote, History, Fundamentals})},
    {"yahoo_fx",       "",                                true,  true,  bitsOf<AssetClass>({Forex}),                    bitsOf<DataKind>({Quote, History})},
};
// clang-format on

} // namespace

bool ProviderEntry::serves(AssetClass assetClass) const
{
    return assetClasses & bitsOf({assetClass});
}

bool ProviderEntry::offers(DataKind kind) const
{
    return dataKinds & bitsOf({kind});
}

std::span<const ProviderEntry> providerTable()
{
    return kProviders;
}

QStringList providerOrder(AssetClass assetClass, DataKind kind, const KeyLookup &keys)
{
    QStringList keyed;
    QStringList open;
    for (const ProviderEntry &entry : kProviders) {
        if (!entry.implemented || !entry.serves(assetClass) || !entry.offers(kind))
            continue;
        if (entry.isPublic)
            open << QString::fromLatin1(entry.id);
        else if (keys && !keys(QString::fromLatin1(entry.keyName)).trimmed().isEmpty())
            keyed << QString::fromLatin1(entry.id);
    }
    return keyed + open;
}
