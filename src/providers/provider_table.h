#pragma once

#include "market/symbols.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <initializer_list>
#include <span>

// What a provider can be asked for.
enum class DataKind {
    Quote = 0,
    History = 1,
    Fundamentals = 2, // fundamentals and movers
    OrderBook = 3,
    Trades = 4,
};

// One row of the fixed provider table. The order of the table is the order providers are tried in,
// keyed ones first.
struct ProviderEntry
{
    const char *id;
    const char *keyName; // empty for public providers
    bool isPublic;
    bool implemented;
    unsigned assetClasses; // bit per AssetClass value
    unsigned dataKinds;    // bit per DataKind value

    bool serves(AssetClass assetClass) const;
    bool offers(DataKind kind) const;
};

std::span<const ProviderEntry> providerTable();

template<typename Enum>
constexpr unsigned bitsOf(std::initializer_list<Enum> values)
{
    unsigned bits = 0;
    for (Enum value : values)
        bits |= 1u << static_cast<int>(value);
    return bits;
}

// The value of a key by its name ("finnhub_api_key"); empty when the user has none.
using KeyLookup = std::function<QString(const QString &keyName)>;

// The providers to try for one class and kind of data: implemented ones that serve the class and
// the kind, keyed ones (only when their key is set) before public ones, each in table order.
QStringList providerOrder(AssetClass assetClass, DataKind kind, const KeyLookup &keys);
