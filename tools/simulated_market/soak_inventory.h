#pragma once

#include <QByteArray>
#include <QStringList>

// What a long run must not lose, read from the terminal's own files: one line per watchlist row,
// portfolio, position, cash flow, price alert and chart drawing, sorted, so the lists taken before
// and after a run compare line by line. Only what the user made is listed; what the terminal
// changes as it runs (an alert's last firing, the quotes) is left out.
QStringList soakInventory(const QByteArray &watchlistJson, const QByteArray &settingsJson);
// The same from a configuration folder ("watchlists/default.json" and "local.json").
QStringList soakInventoryOfFolder(const QString &configFolder, QString *problem = nullptr);
