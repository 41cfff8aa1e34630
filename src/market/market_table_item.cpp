#include "market/market_table_item.h"

MarketTableItem::MarketTableItem(const QString &text)
    : QTableWidgetItem(text, QTableWidgetItem::UserType)
{}

bool MarketTableItem::operator<(const QTableWidgetItem &other) const
{
    const QVariant mine = data(Qt::UserRole);
    const QVariant theirs = other.data(Qt::UserRole);
    if (mine.isValid() && theirs.isValid())
        return mine.toDouble() < theirs.toDouble();
    // Plain code-unit order, case-sensitive, as the user sees the text.
    return text() < other.text();
}
