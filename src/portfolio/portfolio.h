#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Named portfolios of positions plus a cash ledger, as the settings keep them under "portfolios",
// and their valuation in the portfolio's base currency. Nothing here needs a widget: the panel
// shows what valuePortfolio() gives.

struct PortfolioPosition
{
    QString symbol;
    double quantity = 0; // may be negative
    double averagePrice = 0;
};

struct PortfolioTransaction
{
    QString timestamp;                     // local time as stamped
    QString type = QStringLiteral("cash"); // "cash" or "dividend"
    QString symbol;                        // empty for cash flows
    double amount = 0;                     // negative for a withdrawal
    QString currency = QStringLiteral("BRL");
    QString note;
};

struct Portfolio
{
    QString name;
    QString baseCurrency = QStringLiteral("BRL");
    QList<PortfolioPosition> positions;
    QList<PortfolioTransaction> transactions;
};

struct PortfolioStore
{
    QList<Portfolio> items;
    QString active;
    // Entries of `items` that could not be read, kept as they were so a save never drops them.
    QList<QJsonValue> unreadable;

    Portfolio *activePortfolio();
    const Portfolio *activePortfolio() const;
    int indexOf(const QString &name) const;
};

// The store from the settings: `portfolios` ({items, active}), else the older `portfolio` key.
// Wrong types, missing keys, non-finite numbers and duplicate names never stop the rest from
// loading. With nothing usable, one portfolio named `defaultName` ("Main" / "Principal") is made
// active. An active name that names no portfolio selects the first.
PortfolioStore readPortfolioStore(const QJsonObject &settings, const QString &defaultName);
// The `portfolios` value: {items, active}; unreadable entries are written back after the others.
QJsonObject portfolioStoreToJson(const PortfolioStore &store);

// Refusals of the selector's actions, in the current language; empty when allowed.
QString
portfolioNameProblem(const PortfolioStore &store, const QString &name,
                     const QString &renaming = {}); // "A portfolio with this name already exists."
QString
portfolioDeleteProblem(const PortfolioStore &store); // "At least one portfolio must remain."

// "BRL" for a B3 share, "USD" for every other class.
QString positionCurrency(const QString &symbol);

// Amount in `to`, with usdBrl the last USD/BRL price: same currency as is; USD<->BRL through a
// finite rate above 0; anything else (no rate yet, another currency) is not ok and 0.
struct Conversion
{
    double value = 0;
    bool ok = false;
};
Conversion convert(double amount, const QString &from, const QString &to, double usdBrl);

// One positions-table row, already formatted ("--" where there is no price), with its P&L colour.
struct PositionRow
{
    QString symbol, quantity, averagePrice, last, marketValue, pnl, pnlPercent;
    QString pnlColor; // "#20c878" when P&L >= 0, else "#f45d5d"
    double pnlValue = 0;
    friend bool operator==(const PositionRow &, const PositionRow &) = default;
};
struct TransactionRow
{
    QString time, type, symbol, amount, currency, note; // type: "Cash flow" / "Dividend"
    friend bool operator==(const TransactionRow &, const TransactionRow &) = default;
};
struct PortfolioValuation
{
    QList<PositionRow> positions;
    QList<TransactionRow> transactions;
    double totalCost = 0;
    double totalMarket = 0;
    double totalPnl = 0; // market - cost: an unpriced position lowers it by its whole cost
    double cash = 0;
    double dividends = 0;
    bool partialFx = false;
    QString summary;      // "BRL Market 1234.00 | P&L 12.00 | Cash 470.00 | Div 30.00 | partial FX"
    QString summaryColor; // "#20c878" when total P&L >= 0, else "#f45d5d"
};
// `lastPrice` gives the symbol's last price, NaN or 0 when there is none.
PortfolioValuation valuePortfolio(const Portfolio &portfolio,
                                  const std::function<double(const QString &)> &lastPrice,
                                  double usdBrl);
