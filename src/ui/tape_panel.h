#pragma once

#include "streams/time_and_sales.h"

#include <QWidget>

class FrameRenderer;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QTableView;
class TapeTableModel;

// The Tape tab: a title, the side and minimum-size filters, and the newest prints on top. A row
// joins the list at once (filters and the 200-row limit apply as it arrives) and the table catches
// up at most once per screen frame, so thousands of trades a second never hold up the window.
class TapePanel : public QWidget
{
    Q_OBJECT

public:
    explicit TapePanel(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    QString title() const;

    // False when the filters refused the row.
    bool addRow(const TapeRow &row);
    void clearRows();
    const TimeAndSales &rows() const { return m_rows; }

    // Refills the side selector in the current language, keeping the chosen side.
    void refillSideFilter();
    QString sideFilter() const;

    // Shows the pending rows now (before reading the table).
    void flushPendingDraw();
    QTableView *table() const { return m_table; }
    TapeTableModel *model() const { return m_model; }

protected:
    void changeEvent(QEvent *event) override;

private:
    void updateFilter();
    void retranslate();

    TimeAndSales m_rows;
    TapeTableModel *m_model;
    FrameRenderer *m_renderer;
    QLabel *m_title;
    QComboBox *m_sideFilter;
    QDoubleSpinBox *m_minimumSize;
    QTableView *m_table;
};
