#pragma once

#include <QTableWidgetItem>

// A market-table cell. Numeric cells carry their value in Qt::UserRole and sort by it; cells
// without one ("--", text columns) sort by their text. A pair sorts by whichever rule both allow.
//
// The text and the value are kept by the cell itself, so that a batch of quotes can write them
// without a model signal per write (setQuietWrites): a table sorted by Qt loses the fast way from
// a cell to its place, and each signal would then search the whole table. The table that writes
// quietly repaints the rows and keeps them in order itself.
class MarketTableItem : public QTableWidgetItem
{
public:
    explicit MarketTableItem(const QString &text = QString());

    bool operator<(const QTableWidgetItem &other) const override;
    QVariant data(int role) const override;
    void setData(int role, const QVariant &value) override;

    static void setQuietWrites(bool quiet);

private:
    QString m_text;
    QVariant m_value;
};
