#pragma once

#include <QByteArray>
#include <QStringList>

// The symbols of a Yahoo symbol search reply (`/v1/finance/search`), in Yahoo's order, upper-cased,
// trimmed and without repeats, at most kYahooSymbolSearchLimit of them. Only Yahoo's own securities
// of the kinds the terminal quotes through Yahoo are kept: Crunchbase hits (no symbol), options,
// futures and Yahoo's crypto entries are left out, since crypto comes from Binance's pairs.
// A reply that does not have the search shape (an HTML error page, no `quotes` array, an entry
// that is not an object) gives an empty list.
QStringList parseYahooSymbolSearch(const QByteArray &body);

inline constexpr int kYahooSymbolSearchLimit = 20;
