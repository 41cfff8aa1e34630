#include "portfolio/portfolio.h"

#include "app/language.h"
#include "market/symbols.h"

#include <QHash>
#include <QJsonArray>
#include <QSet>

#include <cmath>

namespace {

const QString kBrl = QStringLiteral("BRL");
const QString kUsd = QStringLiteral("USD");
const QString kGain = QStringLiteral("#20c878");
const QString kLoss = QStringLiteral("#f45d5d");
const QString kDash = QStringLiteral("--");

// Fixed notation that never shows "-0.00" for a value that rounds to zero.
QString fixed(double value, int decimals)
{
    if (!std::isfinite(value))
        return kDash;
    QString text = QString::number(value, 'f', decimals);
    if (text.startsWith(QLatin1Char('-')) && text.toDouble() == 0)
        text.remove(0, 1);
    return text;
}

QString currencyCode(const QJsonValue &value)
{
    return value.toString().trimmed().toUpper();
}

// A number the store accepts: present, numeric and finite. Missing gives `fallback`.
std::optional<double> finiteNumber(const QJsonObject &object, const QString &key,
                                   std::optional<double> fallback)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return fallback;
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return std::nullopt;
    return value.toDouble();
}

std::optional<PortfolioPosition> readPosition(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QString symbol = object.value(QLatin1String("symbol")).toString().trimmed().toUpper();
    const auto quantity = finiteNumber(object, QStringLiteral("quantity"), std::nullopt);
    const auto average = finiteNumber(object, QStringLiteral("average_price"), 0.0);
    if (symbol.isEmpty() || !quantity || !average)
        return std::nullopt;
    return PortfolioPosition{symbol, *quantity, *average};
}

std::optional<PortfolioTransaction> readTransaction(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const auto amount = finiteNumber(object, QStringLiteral("amount"), std::nullopt);
    if (!amount)
        return std::nullopt;
    PortfolioTransaction transaction;
    transaction.amount = *amount;
    transaction.timestamp = object.value(QLatin1String("timestamp")).toString();
    // Anything that is not a dividend still moves cash, so it is read as a cash flow.
    if (object.value(QLatin1String("type")).toString().trimmed().toLower() ==
        QLatin1String("dividend"))
        transaction.type = QStringLiteral("dividend");
    transaction.symbol = object.value(QLatin1String("symbol")).toString().trimmed().toUpper();
    const QString currency = currencyCode(object.value(QLatin1String("currency")));
    if (!currency.isEmpty())
        transaction.currency = currency;
    transaction.note = object.value(QLatin1String("note")).toString();
    return transaction;
}

// Positions and transactions of one portfolio; entries that cannot be read are left out.
void readContents(const QJsonObject &object, Portfolio &portfolio)
{
    const QString base = currencyCode(object.value(QLatin1String("base_currency")));
    portfolio.baseCurrency = base == kUsd ? kUsd : kBrl;
    for (const QJsonValue &entry : object.value(QLatin1String("positions")).toArray()) {
        if (const auto position = readPosition(entry))
            portfolio.positions << *position;
    }
    for (const QJsonValue &entry : object.value(QLatin1String("transactions")).toArray()) {
        if (const auto transaction = readTransaction(entry))
            portfolio.transactions << *transaction;
    }
}

// A portfolio needs a name to be told apart from the others; without one it is kept unread.
std::optional<Portfolio> readPortfolio(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue name = object.value(QLatin1String("name"));
    if (!name.isString() || name.toString().trimmed().isEmpty())
        return std::nullopt;
    const QJsonValue positions = object.value(QLatin1String("positions"));
    const QJsonValue transactions = object.value(QLatin1String("transactions"));
    if ((!positions.isUndefined() && !positions.isArray()) ||
        (!transactions.isUndefined() && !transactions.isArray()))
        return std::nullopt;
    Portfolio portfolio;
    portfolio.name = name.toString();
    readContents(object, portfolio);
    return portfolio;
}

// The older single-portfolio setting: either one portfolio object (named or not) or a bare array
// of positions.
std::optional<Portfolio> readLegacyPortfolio(const QJsonValue &value, const QString &defaultName)
{
    Portfolio portfolio;
    portfolio.name = defaultName;
    if (value.isArray()) {
        readContents(QJsonObject{{QStringLiteral("positions"), value}}, portfolio);
        return portfolio;
    }
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QString name = object.value(QLatin1String("name")).toString();
    if (!name.trimmed().isEmpty())
        portfolio.name = name;
    readContents(object, portfolio);
    return portfolio;
}

// Later portfolios that repeat a name get " (2)", " (3)"... so none of the user's data is lost;
// the suffix avoids every name already in the list, not only the earlier ones.
void makeNamesUnique(QList<Portfolio> &items)
{
    QSet<QString> taken;
    for (const Portfolio &portfolio : items)
        taken.insert(portfolio.name);
    QSet<QString> seen;
    QHash<QString, int> nextSuffix;
    for (Portfolio &portfolio : items) {
        if (!seen.contains(portfolio.name)) {
            seen.insert(portfolio.name);
            continue;
        }
        int &suffix = nextSuffix[portfolio.name];
        suffix = std::max(suffix, 2);
        QString candidate;
        do {
            candidate = QStringLiteral("%1 (%2)").arg(portfolio.name).arg(suffix++);
        } while (taken.contains(candidate));
        taken.insert(candidate);
        seen.insert(candidate);
        portfolio.name = candidate;
    }
}

QJsonObject portfolioToJson(const Portfolio &portfolio)
{
    QJsonArray positions;
    for (const PortfolioPosition &position : portfolio.positions)
        positions.append(QJsonObject{{QStringLiteral("symbol"), position.symbol},
                                     {QStringLiteral("quantity"), position.quantity},
                                     {QStringLiteral("average_price"), position.averagePrice}});
    QJsonArray transactions;
    for (const PortfolioTransaction &transaction : portfolio.transactions)
        transactions.append(QJsonObject{{QStringLiteral("timestamp"), transaction.timestamp},
                                        {QStringLiteral("type"), transaction.type},
                                        {QStringLiteral("symbol"), transaction.symbol},
                                        {QStringLiteral("amount"), transaction.amount},
                                        {QStringLiteral("currency"), transaction.currency},
                                        {QStringLiteral("note"), transaction.note}});
    return {{QStringLiteral("name"), portfolio.name},
            {QStringLiteral("base_currency"),
             portfolio.baseCurrency.isEmpty() ? kBrl : portfolio.baseCurrency},
            {QStringLiteral("positions"), positions},
            {QStringLiteral("transactions"), transactions}};
}

bool hasPrice(double last)
{
    return std::isfinite(last) && last > 0;
}

QString lastPriceText(double last)
{
    if (!hasPrice(last))
        return kDash;
    return fixed(last, last >= 1000 ? 2 : 4);
}

} // namespace

Portfolio *PortfolioStore::activePortfolio()
{
    return const_cast<Portfolio *>(std::as_const(*this).activePortfolio());
}

const Portfolio *PortfolioStore::activePortfolio() const
{
    if (items.isEmpty())
        return nullptr;
    const int index = indexOf(active);
    return &items[index >= 0 ? index : 0];
}

int PortfolioStore::indexOf(const QString &name) const
{
    for (int i = 0; i < items.size(); ++i) {
        if (items[i].name == name)
            return i;
    }
    return -1;
}

PortfolioStore readPortfolioStore(const QJsonObject &settings, const QString &defaultName)
{
    PortfolioStore store;
    const QJsonValue current = settings.value(QLatin1String("portfolios"));
    if (current.isObject() || current.isArray()) {
        const QJsonObject object = current.toObject();
        // A bare array of portfolios is read as the items alone.
        const QJsonArray items = current.isArray() ? current.toArray()
                                                   : object.value(QLatin1String("items")).toArray();
        for (const QJsonValue &entry : items) {
            if (auto portfolio = readPortfolio(entry))
                store.items << *portfolio;
            else
                store.unreadable << entry;
        }
        store.active = object.value(QLatin1String("active")).toString();
    } else if (auto legacy = readLegacyPortfolio(settings.value(QLatin1String("portfolio")),
                                                 defaultName)) {
        store.items << *legacy;
    }
    makeNamesUnique(store.items);
    if (store.items.isEmpty()) {
        Portfolio portfolio;
        portfolio.name = defaultName;
        store.items << portfolio;
    }
    if (store.indexOf(store.active) < 0)
        store.active = store.items.first().name;
    return store;
}

QJsonObject portfolioStoreToJson(const PortfolioStore &store)
{
    QJsonArray items;
    for (const Portfolio &portfolio : store.items)
        items.append(portfolioToJson(portfolio));
    for (const QJsonValue &entry : store.unreadable)
        items.append(entry);
    return {{QStringLiteral("items"), items}, {QStringLiteral("active"), store.active}};
}

QString portfolioNameProblem(const PortfolioStore &store, const QString &name,
                             const QString &renaming)
{
    if (!renaming.isEmpty() && name == renaming)
        return {};
    if (store.indexOf(name) < 0)
        return {};
    return translated(QStringLiteral("A portfolio with this name already exists."),
                      QStringLiteral("Já existe uma carteira com este nome."));
}

QString portfolioDeleteProblem(const PortfolioStore &store)
{
    if (store.items.size() > 1)
        return {};
    return translated(QStringLiteral("At least one portfolio must remain."),
                      QStringLiteral("Pelo menos uma carteira precisa permanecer."));
}

QString positionCurrency(const QString &symbol)
{
    return assetClassOf(symbol) == AssetClass::BrEquity ? kBrl : kUsd;
}

Conversion convert(double amount, const QString &from, const QString &to, double usdBrl)
{
    if (from == to)
        return {amount, true};
    if (std::isfinite(usdBrl) && usdBrl > 0) {
        if (from == kUsd && to == kBrl)
            return {amount * usdBrl, true};
        if (from == kBrl && to == kUsd)
            return {amount / usdBrl, true};
    }
    return {0, false};
}

PortfolioValuation valuePortfolio(const Portfolio &portfolio,
                                  const std::function<double(const QString &)> &lastPrice,
                                  double usdBrl)
{
    PortfolioValuation valuation;
    const QString base = portfolio.baseCurrency.isEmpty() ? kBrl : portfolio.baseCurrency;

    for (const PortfolioPosition &position : portfolio.positions) {
        const double last = lastPrice ? lastPrice(position.symbol) : NAN;
        const bool priced = hasPrice(last);
        const double cost = position.quantity * position.averagePrice;
        const double market = priced ? position.quantity * last : 0;
        const double pnl = priced ? market - cost : 0;
        const bool hasPercent = priced && cost != 0;
        const double percent = hasPercent ? pnl / std::abs(cost) * 100 : 0;

        const QString currency = positionCurrency(position.symbol);
        const Conversion costInBase = convert(cost, currency, base, usdBrl);
        const Conversion marketInBase = convert(market, currency, base, usdBrl);
        if (!costInBase.ok || !marketInBase.ok)
            valuation.partialFx = true;
        valuation.totalCost += costInBase.value;
        valuation.totalMarket += marketInBase.value;

        PositionRow row;
        row.symbol = position.symbol;
        row.quantity = fixed(position.quantity, 8);
        row.averagePrice = fixed(position.averagePrice, 4);
        row.last = lastPriceText(last);
        row.marketValue = priced ? fixed(market, 2) : kDash;
        row.pnl = priced ? fixed(pnl, 2) : kDash;
        row.pnlPercent = hasPercent && std::isfinite(percent)
                                 ? QStringLiteral("%1%").arg(fixed(percent, 2))
                                 : kDash;
        row.pnlValue = pnl;
        row.pnlColor = pnl >= 0 ? kGain : kLoss;
        valuation.positions << row;
    }

    for (const PortfolioTransaction &transaction : portfolio.transactions) {
        const Conversion amount = convert(transaction.amount, transaction.currency, base, usdBrl);
        if (!amount.ok)
            valuation.partialFx = true;
        const bool dividend = transaction.type == QLatin1String("dividend");
        valuation.cash += amount.value;
        if (dividend)
            valuation.dividends += amount.value;
        valuation.transactions << TransactionRow{
                transaction.timestamp,
                dividend
                        ? translated(QStringLiteral("Dividend"), QStringLiteral("Dividendo"))
                        : translated(QStringLiteral("Cash flow"), QStringLiteral("Fluxo de caixa")),
                transaction.symbol,
                fixed(transaction.amount, 2),
                transaction.currency,
                transaction.note};
    }

    valuation.totalPnl = valuation.totalMarket - valuation.totalCost;
    const QString partial = valuation.partialFx ? translated(QStringLiteral(" | partial FX"),
                                                             QStringLiteral(" | câmbio parcial"))
                                                : QString();
    valuation.summary =
            translated(QStringLiteral("%1 Market %2 | P&L %3 | Cash %4 | Div %5%6"),
                       QStringLiteral("%1 Mercado %2 | P&L %3 | Caixa %4 | Div %5%6"))
                    .arg(base, fixed(valuation.totalMarket, 2), fixed(valuation.totalPnl, 2),
                         fixed(valuation.cash, 2), fixed(valuation.dividends, 2), partial);
    valuation.summaryColor = valuation.totalPnl >= 0 ? kGain : kLoss;
    return valuation;
}
