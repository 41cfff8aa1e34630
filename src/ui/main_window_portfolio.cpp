// Portfolios and price alerts: the stored state, the dialogs that edit it, the valuation run after
// every edit and price, alerts checked on every price, and their CSV exports.
#include "app/language.h"
#include "market/market_row.h"
#include "market/symbols.h"
#include "portfolio/csv_export.h"
#include "ui/alert_dialog.h"
#include "ui/alert_history_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/portfolio_panel.h"

#include <QApplication>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QJsonArray>
#include <QMessageBox>
#include <QStandardPaths>
#include <QStatusBar>
#include <QSystemTrayIcon>

#include <cmath>

namespace {

QString defaultPortfolioName()
{
    return translated(QStringLiteral("Main"), QStringLiteral("Principal"));
}

QString csvFileName(const QString &stem)
{
    return QStringLiteral("%1-%2.csv")
            .arg(stem, QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmm")));
}

} // namespace

void MainWindow::connectPortfolio()
{
    connect(m_portfolio, &PortfolioPanel::portfolioChosen, this, [this](const QString &name) {
        m_portfolios.active = name;
        refreshPortfolio();
        scheduleSettingsSave();
    });
    connect(m_portfolio, &PortfolioPanel::requested, this,
            [this](PortfolioPanel::Request request) { portfolioRequested(int(request)); });
    connect(m_history, &AlertHistoryPanel::requested, this,
            [this](AlertHistoryPanel::Request request, int entry) {
                alertHistoryRequested(int(request), entry);
            });
    connect(m_marketTable, &MarketTable::createAlertRequested, this, &MainWindow::createAlert);
    m_movers->setAlertActionAvailable(true);
    m_csvPathChooser = [this](const QString &suggested) {
        return QFileDialog::getSaveFileName(
                this, translated(QStringLiteral("Export CSV"), QStringLiteral("Exportar CSV")),
                suggested, QStringLiteral("CSV (*.csv)"));
    };
}

void MainWindow::loadPersonalState(const QJsonObject &settings)
{
    m_portfolios = readPortfolioStore(settings, defaultPortfolioName());
    m_unreadableAlerts.clear();
    m_unreadableHistory.clear();
    m_alerts = readAlerts(settings.value(QStringLiteral("alerts")), &m_unreadableAlerts);
    m_alertHistory =
            readAlertHistory(settings.value(QStringLiteral("alert_history")), &m_unreadableHistory);
}

QJsonObject MainWindow::personalStateJson() const
{
    return {
            {QStringLiteral("portfolios"), portfolioStoreToJson(m_portfolios)},
            {QStringLiteral("alerts"), alertsToJson(m_alerts, m_unreadableAlerts)},
            {QStringLiteral("alert_history"), historyToJson(m_alertHistory, m_unreadableHistory)},
    };
}

double MainWindow::lastPriceOf(const QString &symbol) const
{
    const auto quote = m_lastQuotes.constFind(symbol);
    if (quote == m_lastQuotes.constEnd() || !std::isfinite(quote->price) || quote->price <= 0)
        return qQNaN();
    return quote->price;
}

void MainWindow::refreshPortfolio()
{
    if (!m_portfolio)
        return;
    QStringList names;
    for (const Portfolio &portfolio : std::as_const(m_portfolios.items))
        names << portfolio.name;
    if (names != m_portfolioNamesShown ||
        m_portfolio->selector()->currentText() != m_portfolios.active) {
        m_portfolio->setPortfolios(names, m_portfolios.active);
        m_portfolioNamesShown = names;
    }
    const Portfolio *active = m_portfolios.activePortfolio();
    if (!active)
        return;
    m_portfolio->showValuation(valuePortfolio(
            *active, [this](const QString &symbol) { return lastPriceOf(symbol); }, m_usdBrlRate));
}

void MainWindow::portfolioChanged()
{
    refreshPortfolio();
    saveLocalSettings();
}

void MainWindow::portfolioRequested(int which)
{
    using Request = PortfolioPanel::Request;
    Portfolio *active = m_portfolios.activePortfolio();
    if (!active)
        return;
    bool ok = false;
    switch (Request(which)) {
    case Request::NewPortfolio:
    case Request::RenamePortfolio: {
        const bool renaming = Request(which) == Request::RenamePortfolio;
        const QString name =
                QInputDialog::getText(this,
                                      renaming ? translated(QStringLiteral("Rename portfolio"),
                                                            QStringLiteral("Renomear carteira"))
                                               : translated(QStringLiteral("New portfolio"),
                                                            QStringLiteral("Nova carteira")),
                                      translated(QStringLiteral("Name"), QStringLiteral("Nome")),
                                      QLineEdit::Normal, renaming ? active->name : QString(), &ok)
                        .trimmed();
        if (!ok || name.isEmpty())
            return;
        const QString problem =
                portfolioNameProblem(m_portfolios, name, renaming ? active->name : QString());
        if (!problem.isEmpty()) {
            QMessageBox::warning(this, windowTitle(), problem);
            return;
        }
        if (renaming) {
            active->name = name;
        } else {
            Portfolio portfolio;
            portfolio.name = name;
            portfolio.baseCurrency = active->baseCurrency;
            m_portfolios.items.append(portfolio);
        }
        m_portfolios.active = name;
        portfolioChanged();
        return;
    }
    case Request::DeletePortfolio: {
        const QString problem = portfolioDeleteProblem(m_portfolios);
        if (!problem.isEmpty()) {
            QMessageBox::warning(this, windowTitle(), problem);
            return;
        }
        if (QMessageBox::question(this, windowTitle(),
                                  translated(QStringLiteral("Delete portfolio '%1' and all its "
                                                            "positions?"),
                                             QStringLiteral("Excluir a carteira '%1' e todas as "
                                                            "suas posições?"))
                                          .arg(active->name)) != QMessageBox::Yes)
            return;
        m_portfolios.items.removeAt(m_portfolios.indexOf(active->name));
        m_portfolios.active = m_portfolios.items.constFirst().name;
        portfolioChanged();
        return;
    }
    case Request::AddPosition:
        addPortfolioPosition();
        return;
    case Request::AddCashFlow:
    case Request::AddDividend:
        addPortfolioTransaction(Request(which) == Request::AddDividend);
        return;
    case Request::EditQuantity:
    case Request::EditAveragePrice: {
        const int row = m_portfolio->selectedPosition();
        if (row < 0 || row >= active->positions.size())
            return;
        PortfolioPosition &position = active->positions[row];
        const bool quantity = Request(which) == Request::EditQuantity;
        const QString label =
                quantity ? translated(QStringLiteral("Quantity"), QStringLiteral("Quantidade"))
                         : translated(QStringLiteral("Average price"),
                                      QStringLiteral("Preço médio"));
        const double value = QInputDialog::getDouble(
                this, position.symbol, label, quantity ? position.quantity : position.averagePrice,
                quantity ? -1e12 : 0, quantity ? 1e12 : 1e15, 8, &ok, Qt::WindowFlags(), 1);
        if (!ok || !std::isfinite(value))
            return;
        (quantity ? position.quantity : position.averagePrice) = value;
        portfolioChanged();
        return;
    }
    case Request::DeleteTransaction: {
        const int row = m_portfolio->selectedTransaction();
        if (row < 0 || row >= active->transactions.size())
            return;
        const PortfolioTransaction &transaction = active->transactions.at(row);
        const QString kind =
                transaction.type == QLatin1String("dividend")
                        ? translated(QStringLiteral("dividend"), QStringLiteral("dividendo"))
                        : translated(QStringLiteral("cash flow"), QStringLiteral("fluxo de caixa"));
        const QString amount = QStringLiteral("%1 %2")
                                       .arg(transaction.currency)
                                       .arg(transaction.amount, 0, 'f', 2);
        if (QMessageBox::question(this,
                                  translated(QStringLiteral("Delete transaction"),
                                             QStringLiteral("Excluir transação")),
                                  translated(QStringLiteral("Delete %1 transaction of %2?"),
                                             QStringLiteral("Excluir a transação de %1 de %2?"))
                                          .arg(kind, amount)) != QMessageBox::Yes)
            return;
        active->transactions.removeAt(row);
        portfolioChanged();
        return;
    }
    case Request::ExportPositions:
    case Request::ExportTransactions:
        exportPortfolioCsv(Request(which) == Request::ExportPositions);
        return;
    }
}

void MainWindow::addPortfolioPosition()
{
    Portfolio *active = m_portfolios.activePortfolio();
    bool ok = false;
    const QString text = QInputDialog::getText(
            this, translated(QStringLiteral("Add position"), QStringLiteral("Adicionar posição")),
            translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")), QLineEdit::Normal,
            m_marketTable->selectedSymbol(), &ok);
    const QString symbol = ok ? normalizeSymbolInput(text) : QString();
    if (symbol.isEmpty())
        return;
    int index = -1;
    for (int i = 0; i < active->positions.size(); ++i) {
        if (active->positions.at(i).symbol == symbol)
            index = i;
    }
    PortfolioPosition position;
    position.symbol = symbol;
    const double last = lastPriceOf(symbol);
    position.averagePrice = std::isfinite(last) ? last : 0;
    if (index >= 0)
        position = active->positions.at(index);
    const double quantity = QInputDialog::getDouble(
            this,
            translated(QStringLiteral("Position quantity"),
                       QStringLiteral("Quantidade da posição")),
            translated(QStringLiteral("Quantity"), QStringLiteral("Quantidade")), position.quantity,
            -1e12, 1e12, 8, &ok, Qt::WindowFlags(), 1);
    if (!ok || !std::isfinite(quantity))
        return;
    const double average = QInputDialog::getDouble(
            this, translated(QStringLiteral("Average price"), QStringLiteral("Preço médio")),
            translated(QStringLiteral("Average price"), QStringLiteral("Preço médio")),
            position.averagePrice, 0, 1e15, 8, &ok, Qt::WindowFlags(), 1);
    if (!ok || !std::isfinite(average))
        return;
    position.quantity = quantity;
    position.averagePrice = average;
    if (index >= 0)
        active->positions[index] = position;
    else
        active->positions.append(position);
    if (findMarketRow(symbol) < 0) {
        addMarketRow(symbol, assetClassForSymbol(symbol), searchSourceLabel(symbol),
                     QStringLiteral("pending"), false);
        saveWatchlist();
        refreshQuote(symbol);
        if (assetClassOf(symbol) == AssetClass::Crypto)
            rebuildTickerStream();
    }
    portfolioChanged();
}

void MainWindow::addPortfolioTransaction(bool dividend)
{
    Portfolio *active = m_portfolios.activePortfolio();
    bool ok = false;
    PortfolioTransaction transaction;
    transaction.type = dividend ? QStringLiteral("dividend") : QStringLiteral("cash");
    if (dividend) {
        const QString text = QInputDialog::getText(
                this,
                translated(QStringLiteral("Add dividend"), QStringLiteral("Adicionar dividendo")),
                translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")), QLineEdit::Normal,
                m_marketTable->selectedSymbol(), &ok);
        transaction.symbol = ok ? normalizeSymbolInput(text) : QString();
        if (transaction.symbol.isEmpty())
            return;
    }
    const double amount = QInputDialog::getDouble(
            this,
            dividend ? translated(QStringLiteral("Add dividend"),
                                  QStringLiteral("Adicionar dividendo"))
                     : translated(QStringLiteral("Add cash flow"),
                                  QStringLiteral("Adicionar fluxo de caixa")),
            dividend ? translated(QStringLiteral("Net amount"), QStringLiteral("Valor líquido"))
                     : translated(QStringLiteral("Amount (negative for withdrawal)"),
                                  QStringLiteral("Valor (negativo para saque)")),
            0, -1e15, 1e15, 2, &ok, Qt::WindowFlags(), 1);
    if (!ok || !std::isfinite(amount) || amount == 0)
        return;
    const QStringList currencies{QStringLiteral("BRL"), QStringLiteral("USD")};
    const QString currency = QInputDialog::getItem(
            this, translated(QStringLiteral("Currency"), QStringLiteral("Moeda")),
            translated(QStringLiteral("Currency"), QStringLiteral("Moeda")), currencies,
            std::max(0, int(currencies.indexOf(active->baseCurrency))), false, &ok);
    if (!ok)
        return;
    const QString note = QInputDialog::getText(
            this,
            translated(QStringLiteral("Transaction note"), QStringLiteral("Nota da transação")),
            translated(QStringLiteral("Optional note"), QStringLiteral("Nota opcional")),
            QLineEdit::Normal, QString(), &ok);
    if (!ok)
        return;
    transaction.amount = amount;
    transaction.currency = currency;
    transaction.note = note.trimmed();
    transaction.timestamp =
            QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    active->transactions.append(transaction);
    portfolioChanged();
}

void MainWindow::createAlert(const QString &symbol)
{
    // A mover opened from its panel may have no quote of its own yet: its mover price stands in.
    double price = lastPriceOf(symbol);
    if (!std::isfinite(price))
        price = m_moversCache.value(symbol).price;
    const std::optional<PriceAlert> alert = runCreateAlertDialog(symbol, price, this);
    if (!alert)
        return;
    m_alerts.append(*alert);
    m_alertHistory.append(alertHistoryEntry(
            *alert, QStringLiteral("Armed"), QStringLiteral("Active"),
            std::isfinite(price) ? price : 0, QDateTime::currentMSecsSinceEpoch()));
    refreshAlertHistoryTable();
    saveLocalSettings();
    logEvent(
            translated(QStringLiteral("Alert armed: %1 %2"), QStringLiteral("Alerta armado: %1 %2"))
                    .arg(symbol, alertCondition(alert->above, alert->target)));
}

void MainWindow::checkPriceAlerts(const QString &symbol, double price)
{
    if (m_alerts.isEmpty() || !std::isfinite(price) || price <= 0)
        return;
    const QList<int> fired =
            checkAlerts(m_alerts, symbol, price, QDateTime::currentMSecsSinceEpoch());
    for (int index : fired) {
        // Copied: the box below runs no nested loop, but the list may change before it closes.
        const PriceAlert alert = m_alerts.at(index);
        QApplication::beep();
        m_marketTable->highlightRow(symbol, QColor(QStringLiteral("#5a4808")));
        notifyAlert(alert, price);
        m_alertHistory.append(alertHistoryEntry(alert, QStringLiteral("Triggered"),
                                                QStringLiteral("Hit"), price,
                                                QDateTime::currentMSecsSinceEpoch()));
        logEvent(alertHitLogLine(alert, price));
    }
    if (!fired.isEmpty()) {
        refreshAlertHistoryTable();
        saveLocalSettings();
    }
}

void MainWindow::notifyAlert(const PriceAlert &alert, double price)
{
    // A desktop notification reaches a user who is in another window; the box waits for them here.
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        if (!m_trayIcon) {
            m_trayIcon = new QSystemTrayIcon(windowIcon(), this);
            m_trayIcon->setToolTip(windowTitle());
            m_trayIcon->show();
        }
        m_trayIcon->showMessage(alertBoxTitle(alert.symbol), alertBoxText(alert, price),
                                QSystemTrayIcon::Information, 10000);
    }
    // Opened, not executed: a stream frame handler never waits inside a nested event loop.
    auto *box = new QMessageBox(QMessageBox::Information, alertBoxTitle(alert.symbol),
                                alertBoxText(alert, price), QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("priceAlertBox"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::refreshAlertHistoryTable()
{
    if (m_history)
        m_history->showHistory(m_alertHistory);
}

void MainWindow::alertHistoryRequested(int which, int entry)
{
    using Request = AlertHistoryPanel::Request;
    switch (Request(which)) {
    case Request::Rearm:
    case Request::Remove: {
        if (entry < 0 || entry >= m_alertHistory.size())
            return;
        const int index = matchingAlert(m_alerts, m_alertHistory.at(entry));
        if (index < 0) {
            const QString text = translated(
                    QStringLiteral("No matching saved alert found for selected history row."),
                    QStringLiteral("Nenhum alerta salvo corresponde à linha selecionada do "
                                   "histórico."));
            statusBar()->showMessage(text);
            QMessageBox::information(this, windowTitle(), text);
            return;
        }
        PriceAlert alert = m_alerts.at(index);
        const double last = lastPriceOf(alert.symbol);
        const double price = std::isfinite(last) ? last : 0;
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        if (Request(which) == Request::Rearm) {
            m_alerts[index].triggered = false;
            m_alerts[index].lastTriggerMs = 0;
            m_alertHistory.append(alertHistoryEntry(m_alerts.at(index), QStringLiteral("Rearmed"),
                                                    QStringLiteral("Active"), price, now));
            logEvent(translated(QStringLiteral("Alert rearmed: %1"),
                                QStringLiteral("Alerta rearmado: %1"))
                             .arg(alert.symbol));
        } else {
            m_alerts.removeAt(index);
            m_alertHistory.append(alertHistoryEntry(alert, QStringLiteral("Removed"),
                                                    QStringLiteral("Inactive"), price, now));
            logEvent(translated(QStringLiteral("Alert removed: %1"),
                                QStringLiteral("Alerta removido: %1"))
                             .arg(alert.symbol));
        }
        refreshAlertHistoryTable();
        saveLocalSettings();
        return;
    }
    case Request::Clear:
        if (QMessageBox::question(
                    this,
                    translated(QStringLiteral("Clear alert history"),
                               QStringLiteral("Limpar histórico de alertas")),
                    translated(QStringLiteral("Remove all alert history rows? Active alerts will "
                                              "remain armed."),
                               QStringLiteral("Remover todas as linhas do histórico de alertas? "
                                              "Os alertas ativos continuarão armados.")),
                    QMessageBox::Yes | QMessageBox::No, QMessageBox::No) != QMessageBox::Yes)
            return;
        m_alertHistory.clear();
        m_unreadableHistory.clear();
        refreshAlertHistoryTable();
        saveLocalSettings();
        logEvent(translated(QStringLiteral("Alert history cleared"),
                            QStringLiteral("Histórico de alertas limpo")));
        return;
    case Request::Export:
        exportAlertHistoryCsv();
        return;
    }
}

void MainWindow::exportPortfolioCsv(bool positions)
{
    const Portfolio *active = m_portfolios.activePortfolio();
    if (!active)
        return;
    const bool portuguese = isPortuguese();
    QStringList header;
    QList<QList<CsvCell>> rows;
    if (positions) {
        header = {translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
                  translated(QStringLiteral("Quantity"), QStringLiteral("Quantidade")),
                  translated(QStringLiteral("Avg Price"), QStringLiteral("Preço médio")),
                  translated(QStringLiteral("Last"), QStringLiteral("Último")),
                  translated(QStringLiteral("Currency"), QStringLiteral("Moeda"))};
        for (const PortfolioPosition &position : active->positions) {
            rows.append({CsvCell::of(position.symbol), CsvCell::of(position.quantity, 8),
                         CsvCell::of(position.averagePrice, 4),
                         CsvCell::of(lastPriceOf(position.symbol), 4),
                         CsvCell::of(positionCurrency(position.symbol))});
        }
    } else {
        header = {translated(QStringLiteral("Time"), QStringLiteral("Hora")),
                  translated(QStringLiteral("Type"), QStringLiteral("Tipo")),
                  translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
                  translated(QStringLiteral("Amount"), QStringLiteral("Valor")),
                  translated(QStringLiteral("Currency"), QStringLiteral("Moeda")),
                  translated(QStringLiteral("Note"), QStringLiteral("Nota"))};
        for (const PortfolioTransaction &transaction : active->transactions) {
            const QString type =
                    transaction.type == QLatin1String("dividend")
                            ? translated(QStringLiteral("Dividend"), QStringLiteral("Dividendo"))
                            : translated(QStringLiteral("Cash flow"),
                                         QStringLiteral("Fluxo de caixa"));
            rows.append({CsvCell::of(transaction.timestamp), CsvCell::of(type),
                         CsvCell::of(transaction.symbol), CsvCell::of(transaction.amount, 2),
                         CsvCell::of(transaction.currency), CsvCell::of(transaction.note)});
        }
    }
    writeCsvExport(csvDocument(header, rows, portuguese),
                   csvFileName(active->name + (positions ? QStringLiteral("-positions")
                                                         : QStringLiteral("-transactions"))));
}

void MainWindow::exportAlertHistoryCsv()
{
    QList<QList<CsvCell>> rows;
    for (const AlertHistoryEntry &entry : std::as_const(m_alertHistory)) {
        rows.append({CsvCell::of(entry.timestamp), CsvCell::of(entry.event),
                     CsvCell::of(entry.symbol), CsvCell::of(entry.condition),
                     CsvCell::of(entry.target, 4), CsvCell::of(entry.price, 4),
                     CsvCell::of(entry.status)});
    }
    const QStringList header{translated(QStringLiteral("Time"), QStringLiteral("Hora")),
                             translated(QStringLiteral("Event"), QStringLiteral("Evento")),
                             translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
                             translated(QStringLiteral("Condition"), QStringLiteral("Condição")),
                             translated(QStringLiteral("Target"), QStringLiteral("Alvo")),
                             translated(QStringLiteral("Price"), QStringLiteral("Preço")),
                             QStringLiteral("Status")};
    writeCsvExport(csvDocument(header, rows, isPortuguese()),
                   csvFileName(QStringLiteral("alerts")));
}

void MainWindow::writeCsvExport(const QByteArray &document, const QString &fileName)
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (folder.isEmpty())
        folder = QDir::homePath();
    const QString path =
            m_csvPathChooser ? m_csvPathChooser(folder + QLatin1Char('/') + fileName) : QString();
    if (path.isEmpty())
        return;
    QString error;
    if (!writeCsvFile(path, document, &error)) {
        logEvent(translated(QStringLiteral("CSV export failed: %1"),
                            QStringLiteral("Falha ao exportar CSV: %1"))
                         .arg(error));
        return;
    }
    logEvent(translated(QStringLiteral("CSV exported: %1"), QStringLiteral("CSV exportado: %1"))
                     .arg(QDir::toNativeSeparators(path)));
}
