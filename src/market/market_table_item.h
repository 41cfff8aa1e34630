#pragma once

#include <QTableWidgetItem>

// A market-table cell. Numeric cells carry their value in Qt::UserRole and sort by it; cells
// without one ("--", text columns) sort by their text. A pair sorts by whichever rule both allow.
class MarketTableItem : public QTableWidgetItem
{
public:
    explicit MarketTableItem(const QString &text = QString());

    bool operator<(const QTableWidgetItem &other) const override;
};
