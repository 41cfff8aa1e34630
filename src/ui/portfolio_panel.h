#pragma once

#include "portfolio/portfolio.h"

#include <QStringList>
#include <QWidget>

class QComboBox;
class QLabel;
class QMenu;
class QPushButton;
class QTableWidget;
class QToolButton;
class QAction;

// The Portfolio tab: the portfolio selector with its actions, the positions and transactions
// tables and the one-line summary. It shows the valuation it is given and reports what the user
// asked for; the window owns the portfolios and runs the dialogs.
class PortfolioPanel : public QWidget
{
    Q_OBJECT

public:
    enum class Request {
        NewPortfolio,
        RenamePortfolio,
        DeletePortfolio,
        AddPosition,
        AddCashFlow,
        AddDividend,
        EditQuantity,      // of the selected position
        EditAveragePrice,  // of the selected position
        DeleteTransaction, // the selected transaction
        ExportPositions,
        ExportTransactions,
    };

    explicit PortfolioPanel(QWidget *parent = nullptr);

    void setPortfolios(const QStringList &names, const QString &active);
    void showValuation(const PortfolioValuation &valuation);

    // The row of the selected position or transaction, in the order given, -1 with none.
    int selectedPosition() const;
    int selectedTransaction() const;

    QComboBox *selector() const { return m_selector; }
    QTableWidget *positionsTable() const { return m_positions; }
    QTableWidget *transactionsTable() const { return m_transactions; }
    QLabel *summaryLabel() const { return m_summary; }
    // The context menus of the two tables for a row (-1: no row, export only); the caller shows and
    // deletes them.
    QMenu *createPositionsMenu(int row);
    QMenu *createTransactionsMenu(int row);

signals:
    void portfolioChosen(const QString &name);
    void requested(PortfolioPanel::Request request);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QPushButton *addButton(QLayout *layout, Request request);
    void retranslate();

    QLabel *m_title = nullptr;
    QComboBox *m_selector = nullptr;
    QToolButton *m_manage = nullptr;
    QList<QAction *> m_manageActions;
    QList<QPair<QPushButton *, Request>> m_buttons;
    QLabel *m_positionsTitle = nullptr;
    QLabel *m_transactionsTitle = nullptr;
    QTableWidget *m_positions = nullptr;
    QTableWidget *m_transactions = nullptr;
    QLabel *m_summary = nullptr;
    PortfolioValuation m_valuation;
    bool m_valuationShown = false;
};
