#pragma once

#include "portfolio/price_alerts.h"

#include <QWidget>

class QLabel;
class QMenu;
class QTableWidget;

// The History tab: every alert event, newest last, with the event and status cells coloured. Its
// row menu rearms or removes the alert a row stands for, clears the history or exports it.
class AlertHistoryPanel : public QWidget
{
    Q_OBJECT

public:
    enum class Request {
        Rearm,
        Remove,
        Clear,
        Export,
    };

    explicit AlertHistoryPanel(QWidget *parent = nullptr);

    // Rebuilt whole, sorting off meanwhile; each row remembers its index in `history`.
    void showHistory(const QList<AlertHistoryEntry> &history);
    // The history index of the selected row, -1 with none.
    int selectedEntry() const;

    QTableWidget *table() const { return m_table; }
    QMenu *createRowMenu(int row); // -1: no row, clear and export only

signals:
    void requested(AlertHistoryPanel::Request request, int entry);

protected:
    void changeEvent(QEvent *event) override;

private:
    void retranslate();

    QLabel *m_title = nullptr;
    QTableWidget *m_table = nullptr;
    QList<AlertHistoryEntry> m_history;
};
