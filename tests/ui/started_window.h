#pragma once

#include "support/isolated_folders.h"
#include "ui/main_window.h"

#include <QByteArray>
#include <QStringList>

#include <memory>

// A window over a watchlist of the given symbols ("BTCUSDT,AAPL") whose market data has started,
// as it has 250 ms after a real start.
inline std::unique_ptr<MainWindow> startedWindow(const IsolatedFolders &folders,
                                                 const QByteArray &symbols)
{
    QStringList rows;
    for (const QByteArray &symbol : symbols.split(','))
        rows << QStringLiteral(R"({"symbol":"%1"})").arg(QString::fromLatin1(symbol));
    folders.writeFile(folders.expectedConfigFolder() + "/watchlists/default.json",
                      QStringLiteral(R"({"symbols":[%1]})").arg(rows.join(',')).toUtf8());
    auto window = std::make_unique<MainWindow>();
    window->startMarketData();
    return window;
}
