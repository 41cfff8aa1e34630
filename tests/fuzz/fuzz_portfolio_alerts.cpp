// Feeds arbitrary settings text to the portfolio and alert readers, values every portfolio read,
// checks the alerts read against a price of each symbol and writes everything back. Whatever comes
// in, the store has a unique active portfolio, totals stay finite while the inputs are moderate, no
// alert fires twice for one crossing, and a write and read keeps every item, unreadable ones too.
#include "portfolio/portfolio.h"
#include "portfolio/price_alerts.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

bool moderate(double value)
{
    return std::isfinite(value) && std::abs(value) < 1e100;
}

// A price per symbol that depends only on its text: some symbols have none.
double priceOf(const QString &symbol)
{
    const size_t hash = qHash(symbol);
    return hash % 5 == 0 ? NAN : double(hash % 100000) / 100.0;
}

void checkPortfolios(const QJsonObject &settings)
{
    const PortfolioStore store = readPortfolioStore(settings, QStringLiteral("Main"));
    check(!store.items.isEmpty());
    check(store.activePortfolio() && store.activePortfolio()->name == store.active);
    QSet<QString> names;
    for (const Portfolio &portfolio : store.items) {
        check(!names.contains(portfolio.name));
        names.insert(portfolio.name);

        bool inputsModerate = true;
        for (const PortfolioPosition &position : portfolio.positions)
            inputsModerate = inputsModerate && moderate(position.quantity) &&
                             moderate(position.averagePrice);
        for (const PortfolioTransaction &transaction : portfolio.transactions)
            inputsModerate = inputsModerate && moderate(transaction.amount);
        for (double rate : {5.0, double(NAN)}) {
            const PortfolioValuation valuation = valuePortfolio(portfolio, priceOf, rate);
            check(valuation.positions.size() == portfolio.positions.size());
            check(valuation.transactions.size() == portfolio.transactions.size());
            check(!valuation.summary.isEmpty());
            if (inputsModerate) {
                for (double total : {valuation.totalCost, valuation.totalMarket, valuation.totalPnl,
                                     valuation.cash, valuation.dividends})
                    check(std::isfinite(total));
            }
        }
    }

    const QJsonObject written = portfolioStoreToJson(store);
    const QByteArray text = QJsonDocument(written).toJson(QJsonDocument::Compact);
    const PortfolioStore again = readPortfolioStore(
            {{QStringLiteral("portfolios"), QJsonDocument::fromJson(text).object()}},
            QStringLiteral("Main"));
    check(again.items.size() == store.items.size());
    check(again.unreadable.size() == store.unreadable.size());
    check(again.active == store.active);
    check(portfolioStoreToJson(again) ==
          portfolioStoreToJson(readPortfolioStore({{QStringLiteral("portfolios"), written}},
                                                  QStringLiteral("Main"))));
}

void checkAlertLists(const QJsonObject &settings)
{
    const QJsonValue storedAlerts = settings.value(QLatin1String("alerts"));
    const QJsonValue storedHistory = settings.value(QLatin1String("alert_history"));
    QList<QJsonValue> unreadableAlerts;
    QList<QJsonValue> unreadableHistory;
    QList<PriceAlert> alerts = readAlerts(storedAlerts, &unreadableAlerts);
    const QList<AlertHistoryEntry> history = readAlertHistory(storedHistory, &unreadableHistory);
    check(alerts.size() + unreadableAlerts.size() == storedAlerts.toArray().size());
    check(history.size() + unreadableHistory.size() == storedHistory.toArray().size());

    const QJsonArray writtenAlerts = alertsToJson(alerts, unreadableAlerts);
    const QJsonArray writtenHistory = historyToJson(history, unreadableHistory);
    QList<QJsonValue> again;
    check(readAlerts(writtenAlerts, &again).size() == alerts.size());
    check(again.size() == unreadableAlerts.size());
    again.clear();
    check(readAlertHistory(writtenHistory, &again).size() == history.size());
    check(again.size() == unreadableHistory.size());

    const qint64 now = 1'750'000'000'000;
    for (const PriceAlert &alert : QList<PriceAlert>(alerts)) {
        for (double price : {alert.target, priceOf(alert.symbol)}) {
            const QList<int> fired = checkAlerts(alerts, alert.symbol, price, now);
            for (int index : fired) {
                check(index >= 0 && index < alerts.size());
                check(alerts[index].lastTriggerMs == now);
                check(alerts[index].repeating || alerts[index].triggered);
                check(!alertBoxText(alerts[index], price).isEmpty());
                const AlertHistoryEntry entry =
                        alertHistoryEntry(alerts[index], QStringLiteral("Triggered"),
                                          QStringLiteral("Hit"), price, now);
                check(matchingAlert(alerts, entry) >= 0);
            }
            check(checkAlerts(alerts, alert.symbol, price, now).isEmpty());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), qsizetype(size));
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject())
        return 0;
    const QJsonObject settings = document.object();
    checkPortfolios(settings);
    checkAlertLists(settings);
    return 0;
}
