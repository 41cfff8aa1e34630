#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// The default watchlist file: {"name": "Default", "symbols": [{symbol, asset_class, provider}]}.

struct WatchlistEntry
{
    QString symbol;   // as stored; the caller normalises it
    QString provider; // as stored; may be empty or unknown
};

// The document for the rows in table order. The class id is written for other readers only.
QJsonObject watchlistDocument(const QStringList &symbols);

// The stored entries in file order. A document that does not parse, is not an object or has no
// `symbols` array gives no entries; elements of the wrong type are skipped.
QList<WatchlistEntry> readWatchlistEntries(const QByteArray &bytes);
