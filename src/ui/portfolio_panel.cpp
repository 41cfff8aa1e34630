#include "ui/portfolio_panel.h"

#include "app/language.h"
#include "ui/side_panel.h"

#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QRegularExpression>
#include <QSplitter>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

constexpr int kWideLayoutMinimumWidth = 520;

QTableWidget *createTable(QWidget *parent, const char *name, int columns)
{
    auto *table = new QTableWidget(0, columns, parent);
    table->setObjectName(QLatin1String(name));
    table->verticalHeader()->setVisible(false);
    table->verticalHeader()->setDefaultSectionSize(20);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setStretchLastSection(true); // the last shown one
    table->horizontalHeader()->setHighlightSections(false);
    table->horizontalHeader()->setMinimumSectionSize(24);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setAlternatingRowColors(true);
    table->setWordWrap(false);
    table->setContextMenuPolicy(Qt::CustomContextMenu);
    return table;
}

void setRow(QTableWidget *table, int row, const QStringList &texts, int firstNumber)
{
    for (int column = 0; column < texts.size(); ++column) {
        auto *cell = new QTableWidgetItem(texts.at(column));
        cell->setTextAlignment(column >= firstNumber ? Qt::AlignRight | Qt::AlignVCenter
                                                     : Qt::AlignLeft | Qt::AlignVCenter);
        table->setItem(row, column, cell);
    }
}

struct RequestText
{
    PortfolioPanel::Request request;
    const char *english;
    const char *portuguese;
};

constexpr RequestText kTexts[] = {
        {PortfolioPanel::Request::NewPortfolio, "New", "Nova"},
        {PortfolioPanel::Request::RenamePortfolio, "Rename", "Renomear"},
        {PortfolioPanel::Request::DeletePortfolio, "Delete", "Excluir"},
        {PortfolioPanel::Request::AddPosition, "Add position", "Adicionar posição"},
        {PortfolioPanel::Request::AddCashFlow, "Add cash flow", "Adicionar fluxo de caixa"},
        {PortfolioPanel::Request::AddDividend, "Add dividend", "Adicionar dividendo"},
        {PortfolioPanel::Request::EditQuantity, "Edit quantity", "Editar quantidade"},
        {PortfolioPanel::Request::EditAveragePrice, "Edit average price", "Editar preço médio"},
        {PortfolioPanel::Request::DeleteTransaction, "Delete transaction", "Excluir transação"},
        {PortfolioPanel::Request::ExportPositions, "Export positions to CSV",
         "Exportar posições para CSV"},
        {PortfolioPanel::Request::ExportTransactions, "Export transactions to CSV",
         "Exportar transações para CSV"},
};

QString requestText(PortfolioPanel::Request request)
{
    for (const RequestText &text : kTexts) {
        if (text.request == request)
            return translated(QString::fromUtf8(text.english), QString::fromUtf8(text.portuguese));
    }
    return {};
}

// The buttons' short labels; the full text is their tooltip.
QString shortRequestText(PortfolioPanel::Request request)
{
    switch (request) {
    case PortfolioPanel::Request::AddPosition:
        return translated(QStringLiteral("+ Position"), QStringLiteral("+ Posição"));
    case PortfolioPanel::Request::AddCashFlow:
        return translated(QStringLiteral("+ Cash"), QStringLiteral("+ Caixa"));
    case PortfolioPanel::Request::AddDividend:
        return translated(QStringLiteral("+ Dividend"), QStringLiteral("+ Provento"));
    default:
        return requestText(request);
    }
}

QString manageText(PortfolioPanel::Request request)
{
    switch (request) {
    case PortfolioPanel::Request::NewPortfolio:
        return translated(QStringLiteral("New portfolio"), QStringLiteral("Nova carteira"));
    case PortfolioPanel::Request::RenamePortfolio:
        return translated(QStringLiteral("Rename portfolio"), QStringLiteral("Renomear carteira"));
    default:
        return translated(QStringLiteral("Delete portfolio"), QStringLiteral("Excluir carteira"));
    }
}

} // namespace

PortfolioPanel::PortfolioPanel(QWidget *parent)
    : QWidget(parent)
{
    QVBoxLayout *layout = setUpSidePanel(this, "portfolioPanel", &m_title);

    auto *choice = new QHBoxLayout;
    choice->setSpacing(4);
    m_selector = new QComboBox(this);
    m_selector->setObjectName(QStringLiteral("portfolioSelector"));
    m_selector->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_selector->setMinimumContentsLength(4);
    choice->addWidget(m_selector, 1);
    // New, rename and delete share one button: the side pane has no room for three.
    m_manage = new QToolButton(this);
    m_manage->setObjectName(QStringLiteral("portfolioManage"));
    m_manage->setPopupMode(QToolButton::InstantPopup);
    m_manage->setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto *manageMenu = new QMenu(m_manage);
    for (Request request :
         {Request::NewPortfolio, Request::RenamePortfolio, Request::DeletePortfolio}) {
        QAction *action = manageMenu->addAction(QString());
        action->setData(int(request));
        connect(action, &QAction::triggered, this, [this, request] { emit requested(request); });
        m_manageActions.append(action);
    }
    m_manage->setMenu(manageMenu);
    choice->addWidget(m_manage);
    layout->addLayout(choice);
    auto *adds = new QHBoxLayout;
    adds->setSpacing(4);
    for (Request request : {Request::AddPosition, Request::AddCashFlow, Request::AddDividend})
        addButton(adds, request);
    layout->addLayout(adds);

    auto *splitter = new QSplitter(Qt::Vertical, this);
    splitter->setChildrenCollapsible(false);
    for (int i = 0; i < 2; ++i) {
        auto *pane = new QWidget(splitter);
        auto *paneLayout = new QVBoxLayout(pane);
        paneLayout->setContentsMargins(0, 0, 0, 0);
        paneLayout->setSpacing(2);
        auto *title = new QLabel(pane);
        title->setObjectName(QStringLiteral("subPanelTitle"));
        paneLayout->addWidget(title);
        QTableWidget *table = i == 0 ? createTable(pane, "portfolioPositions", 7)
                                     : createTable(pane, "portfolioTransactions", 6);
        paneLayout->addWidget(table, 1);
        splitter->addWidget(pane);
        (i == 0 ? m_positionsTitle : m_transactionsTitle) = title;
        (i == 0 ? m_positions : m_transactions) = table;
        connect(table, &QWidget::customContextMenuRequested, this,
                [this, table](const QPoint &position) {
                    const int row = table->rowAt(position.y());
                    if (row >= 0)
                        table->selectRow(row);
                    QMenu *menu = table == m_positions ? createPositionsMenu(row)
                                                       : createTransactionsMenu(row);
                    menu->setAttribute(Qt::WA_DeleteOnClose);
                    menu->popup(table->viewport()->mapToGlobal(position));
                });
    }
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    layout->addWidget(splitter, 1);

    m_summary = new QLabel(this);
    m_summary->setObjectName(QStringLiteral("portfolioSummary"));
    m_summary->setWordWrap(true);
    m_summary->setTextFormat(Qt::PlainText);
    layout->addWidget(m_summary);

    connect(m_selector, &QComboBox::activated, this,
            [this] { emit portfolioChosen(m_selector->currentText()); });
    retranslate();
}

QPushButton *PortfolioPanel::addButton(QLayout *layout, Request request)
{
    auto *button = new QPushButton(this);
    button->setFocusPolicy(Qt::NoFocus);
    button->setMinimumWidth(30);
    button->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    connect(button, &QPushButton::clicked, this, [this, request] { emit requested(request); });
    if (layout)
        layout->addWidget(button);
    m_buttons.append({button, request});
    return button;
}

void PortfolioPanel::setPortfolios(const QStringList &names, const QString &active)
{
    const QSignalBlocker blocker(m_selector);
    m_selector->clear();
    m_selector->addItems(names);
    m_selector->setCurrentIndex(std::max(0, int(names.indexOf(active))));
}

void PortfolioPanel::showValuation(const PortfolioValuation &valuation)
{
    // Quotes revalue the portfolio many times a second: the tables are written only when something
    // they show changed (a language change writes them again).
    const bool unchanged = m_valuationShown && valuation.positions == m_valuation.positions &&
                           valuation.transactions == m_valuation.transactions &&
                           valuation.summary == m_valuation.summary &&
                           valuation.summaryColor == m_valuation.summaryColor;
    m_valuation = valuation;
    if (unchanged)
        return;
    m_valuationShown = true;
    const int position = selectedPosition();
    m_positions->setSortingEnabled(false);
    m_positions->setRowCount(int(valuation.positions.size()));
    for (int row = 0; row < valuation.positions.size(); ++row) {
        const PositionRow &texts = valuation.positions.at(row);
        setRow(m_positions, row,
               {texts.symbol, texts.quantity, texts.averagePrice, texts.last, texts.marketValue,
                texts.pnl, texts.pnlPercent},
               1);
        for (int column : {5, 6})
            m_positions->item(row, column)->setForeground(QColor(texts.pnlColor));
        // Every field in the tooltip: a narrow pane hides some columns.
        const QString tip =
                QStringLiteral("%1  %2 @ %3  |  %4 %5  |  %6  |  P&L %7 (%8)")
                        .arg(texts.symbol, texts.quantity, texts.averagePrice,
                             translated(QStringLiteral("Last"), QStringLiteral("Último")),
                             texts.last, texts.marketValue, texts.pnl, texts.pnlPercent);
        for (int column = 0; column < m_positions->columnCount(); ++column)
            m_positions->item(row, column)->setToolTip(tip);
    }
    if (position >= 0 && position < m_positions->rowCount())
        m_positions->selectRow(position);
    m_transactions->setRowCount(int(valuation.transactions.size()));
    for (int row = 0; row < valuation.transactions.size(); ++row) {
        const TransactionRow &texts = valuation.transactions.at(row);
        setRow(m_transactions, row,
               {texts.time, texts.type, texts.symbol, texts.amount, texts.currency, texts.note}, 3);
        m_transactions->item(row, 4)->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
        m_transactions->item(row, 5)->setTextAlignment(Qt::AlignLeft | Qt::AlignVCenter);
        const QString tip =
                QStringList{texts.time, texts.type, texts.symbol,
                            texts.amount + QLatin1Char(' ') + texts.currency, texts.note}
                        .filter(QRegularExpression(QStringLiteral("\\S")))
                        .join(QStringLiteral("  |  "));
        for (int column = 0; column < m_transactions->columnCount(); ++column)
            m_transactions->item(row, column)->setToolTip(tip);
    }
    m_summary->setText(valuation.summary);
    m_summary->setToolTip(valuation.summary);
    const QString summaryStyle =
            QStringLiteral("color:%1;font-weight:700;").arg(valuation.summaryColor);
    if (m_summary->styleSheet() != summaryStyle)
        m_summary->setStyleSheet(summaryStyle);
}

int PortfolioPanel::selectedPosition() const
{
    const QList<QTableWidgetItem *> items = m_positions->selectedItems();
    return items.isEmpty() ? -1 : items.first()->row();
}

int PortfolioPanel::selectedTransaction() const
{
    const QList<QTableWidgetItem *> items = m_transactions->selectedItems();
    return items.isEmpty() ? -1 : items.first()->row();
}

QMenu *PortfolioPanel::createPositionsMenu(int row)
{
    auto *menu = new QMenu(this);
    const auto add = [this, menu](Request request) {
        QAction *action = menu->addAction(requestText(request));
        action->setData(int(request));
        connect(action, &QAction::triggered, this, [this, request] { emit requested(request); });
    };
    if (row >= 0) {
        add(Request::EditQuantity);
        add(Request::EditAveragePrice);
        menu->addSeparator();
    }
    add(Request::AddPosition);
    add(Request::ExportPositions);
    return menu;
}

QMenu *PortfolioPanel::createTransactionsMenu(int row)
{
    auto *menu = new QMenu(this);
    const auto add = [this, menu](Request request) {
        QAction *action = menu->addAction(requestText(request));
        action->setData(int(request));
        connect(action, &QAction::triggered, this, [this, request] { emit requested(request); });
    };
    if (row >= 0) {
        add(Request::DeleteTransaction);
        menu->addSeparator();
    }
    add(Request::ExportTransactions);
    return menu;
}

void PortfolioPanel::retranslate()
{
    m_title->setText(
            translated(QStringLiteral("PORTFOLIO / P&L"), QStringLiteral("CARTEIRA / P&L")));
    m_positionsTitle->setText(translated(QStringLiteral("POSITIONS"), QStringLiteral("POSIÇÕES")));
    m_transactionsTitle->setText(
            translated(QStringLiteral("TRANSACTIONS"), QStringLiteral("TRANSAÇÕES")));
    for (const auto &[button, request] : std::as_const(m_buttons)) {
        button->setText(shortRequestText(request));
        button->setToolTip(requestText(request));
    }
    for (QAction *action : std::as_const(m_manageActions))
        action->setText(manageText(Request(action->data().toInt())));
    m_manage->setText(translated(QStringLiteral("Manage"), QStringLiteral("Gerenciar")));
    m_manage->setToolTip(translated(QStringLiteral("New, rename or delete a portfolio"),
                                    QStringLiteral("Criar, renomear ou excluir uma carteira")));
    m_selector->setToolTip(translated(QStringLiteral("Portfolio"), QStringLiteral("Carteira")));
    m_positions->setHorizontalHeaderLabels({
            translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
            translated(QStringLiteral("Quantity"), QStringLiteral("Quantidade")),
            translated(QStringLiteral("Avg Price"), QStringLiteral("Preço médio")),
            translated(QStringLiteral("Last"), QStringLiteral("Último")),
            translated(QStringLiteral("Market Value"), QStringLiteral("Valor de mercado")),
            QStringLiteral("P&L"),
            QStringLiteral("P&L %"),
    });
    m_transactions->setHorizontalHeaderLabels({
            translated(QStringLiteral("Time"), QStringLiteral("Hora")),
            translated(QStringLiteral("Type"), QStringLiteral("Tipo")),
            translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
            translated(QStringLiteral("Amount"), QStringLiteral("Valor")),
            translated(QStringLiteral("Currency"), QStringLiteral("Moeda")),
            translated(QStringLiteral("Note"), QStringLiteral("Nota")),
    });
}

void PortfolioPanel::resizeEvent(QResizeEvent *event)
{
    // A narrow side pane keeps what a glance needs (symbol, value, P&L; time, type, amount); the
    // rest is in each row's tooltip and the watchlist.
    const bool narrow = width() < kWideLayoutMinimumWidth;
    for (int column : {1, 2, 3})
        m_positions->setColumnHidden(column, narrow);
    for (int column : {2, 5})
        m_transactions->setColumnHidden(column, narrow);
    // The columns left share the width there, so nothing scrolls sideways.
    for (QTableWidget *table : {m_positions, m_transactions}) {
        QHeaderView *header = table->horizontalHeader();
        header->setSectionResizeMode(narrow ? QHeaderView::Stretch : QHeaderView::ResizeToContents);
        // A stretched last section keeps at least the default size, wider than a shared share.
        header->setStretchLastSection(!narrow);
    }
    QWidget::resizeEvent(event);
}

void PortfolioPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        m_valuationShown = false;
        retranslate();
    }
    QWidget::changeEvent(event);
}
