#pragma once

#include <QHash>
#include <QPersistentModelIndex>
#include <QSet>
#include <QTableWidget>

#include <array>
#include <functional>

class QMenu;

// The watchlist table: one row per followed symbol, sixteen columns. It writes cells by the
// table's rules and reports what the user asked for; the window decides what follows (saving the
// watchlist, the settings, the event console).
class MarketTable : public QTableWidget
{
    Q_OBJECT

public:
    explicit MarketTable(QWidget *parent = nullptr);

    int findMarketRow(const QString &symbol) const;
    int addMarketRow(const QString &symbol, const QString &classLabel, const QString &source,
                     const QString &status, bool select);
    void setMarketCell(int row, int column, const QString &text);
    void setMarketNumberCell(int row, int column, const QString &text, double value);
    void setMarketIndicatorCell(int row, int column, double value);
    void colorChangeCell(int row, double changePercent);

    // The cells of one row, fetched before any is written: while the table is sorted, writing the
    // sort column moves the row, and the cells go with it.
    using RowCells = std::array<QTableWidgetItem *, 16>;
    RowCells rowCells(int row);
    // Writes only what differs from what the cell shows, so an unchanged value costs no update.
    static void writeCell(QTableWidgetItem *cell, const QString &text);
    static void writeNumber(QTableWidgetItem *cell, double value);
    // Quotes write many cells of a few rows at once. Between these two calls texts and values
    // change without a model signal; at the end each written row is repainted once, and a sorted
    // table is sorted again only when one of those rows is no longer in its place.
    void beginRowWrites();
    void endRowWrites(const QList<int> &rows);
    // Last price, change and its colour, source, latency, status and time of one row.
    void writeQuoteCells(const RowCells &cells, double price, double changePercent,
                         const QString &source, const QString &latency, const QString &status,
                         const QString &timestamp);
    void setMarketStatus(int row, const QString &status);
    // A row's tooltip is built when it is asked for (hovering), from the row's symbol.
    void setToolTipProvider(std::function<QString(const QString &symbol)> provider);
    QString rowToolTip(int row) const;
    // Paints the symbol's row (an alert hit); it keeps the colour until the next highlight of it.
    void highlightRow(const QString &symbol, const QColor &color);
    // Moves a row and keeps the manual order (sorting stays off). False when nothing moved.
    bool moveMarketRow(int from, int to);

    QString symbolAt(int row) const;
    QString selectedSymbol() const;
    QStringList symbols() const;

    // Column visibility. Column 0 is always shown.
    QSet<int> hiddenColumns() const { return m_hiddenColumns; }
    void setHiddenColumns(const QSet<int> &columns);
    void applyColumnPreset(const QString &preset);
    // Shows or hides one column from the header menu; false for column 0, which stays.
    bool toggleColumn(int column);

    void setIndicatorPeriods(int smaPeriod, int emaPeriod);
    void retranslate();

    // The menus, built on demand; the caller shows them and they delete themselves when closed.
    QMenu *createHeaderMenu();
    // The row menu acts on the symbol of `row`, wherever sorting has moved it by the time an entry
    // is chosen; once the symbol is gone its entries do nothing.
    QMenu *createRowMenu(int row);

protected:
    bool viewportEvent(QEvent *event) override;

signals:
    void createAlertRequested(const QString &symbol);
    void moveRequested(int from, int to);
    void removeRequested(int row);
    // A column was shown or hidden from the header menu.
    void columnVisibilityChanged();
    void symbolColumnHideRefused();

protected:
    void changeEvent(QEvent *event) override;

private:
    QTableWidgetItem *cellAt(int row, int column);
    void applyHiddenColumns();

    QSet<int> m_hiddenColumns;
    mutable QHash<QString, QPersistentModelIndex> m_rowIndex; // symbol -> its column-0 cell
    std::function<QString(const QString &)> m_toolTipProvider;
    int m_smaPeriod = 20;
    int m_emaPeriod = 20;
};

// Widens every column whose header text does not fit.
void widenColumnsToHeaders(QTableWidget *table);
void fitColumnsToHeadersLater(QTableWidget *table);

// Switches sorting off for a multi-cell write and restores it, so rows do not move while their
// cells are being written.
class SortingPause
{
public:
    explicit SortingPause(QTableWidget *table);
    ~SortingPause();
    SortingPause(const SortingPause &) = delete;
    SortingPause &operator=(const SortingPause &) = delete;

private:
    QTableWidget *m_table;
    bool m_wasEnabled;
};
