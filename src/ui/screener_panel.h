#pragma once

#include "overview/screener.h"

#include <QList>
#include <QString>
#include <QWidget>

class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QTableWidget;

// The Screener tab: scope, asset and minimum-change filters, the search field and the eight-column
// table. It shows the rows it is given and reports what the user asked for.
class ScreenerPanel : public QWidget
{
    Q_OBJECT

public:
    enum Column {
        SymbolColumn,
        AssetColumn,
        LastColumn,
        ChangeColumn,
        VolumeColumn,
        MarketColumn,
        SourceColumn,
        SignalColumn,
        ColumnCount
    };

    explicit ScreenerPanel(QWidget *parent = nullptr);

    ScreenerFilters filters() const;
    // Sets the selectors, the box and the field without reporting a change; an unknown id keeps
    // the current one, and the box clamps the minimum to its range.
    void setFilters(const ScreenerFilters &filters);

    // One row each, in the table's current sort order; sorting is paused while they are written.
    void setRows(const QList<ScreenerRow> &rows);

    QTableWidget *table() const { return m_table; }
    QComboBox *scopeSelector() const { return m_scope; }
    QComboBox *assetSelector() const { return m_asset; }
    QDoubleSpinBox *minimumChangeBox() const { return m_minimumChange; }
    QLineEdit *searchField() const { return m_search; }

signals:
    void filtersChanged();
    // A row was double-clicked or Enter was pressed on it.
    void symbolActivated(const QString &symbol);
    // The panel came into view (its tab was chosen, the window shown).
    void shown();

protected:
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void activateRow(int row);
    void fitColumns();
    void refillSelectors();
    void retranslate();
    void reportChange();

    QLabel *m_title = nullptr;
    QComboBox *m_scope = nullptr;
    QComboBox *m_asset = nullptr;
    QDoubleSpinBox *m_minimumChange = nullptr;
    QLineEdit *m_search = nullptr;
    QTableWidget *m_table = nullptr;
    QList<ScreenerRow> m_rows;
    bool m_settingFilters = false;
};
