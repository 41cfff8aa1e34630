#include "market/market_table_item.h"

namespace {

bool g_quietWrites = false; // one GUI thread writes cells

} // namespace

MarketTableItem::MarketTableItem(const QString &text)
    : QTableWidgetItem(text, QTableWidgetItem::UserType)
    , m_text(text)
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

QVariant MarketTableItem::data(int role) const
{
    if (role == Qt::DisplayRole || role == Qt::EditRole)
        return m_text;
    if (role == Qt::UserRole)
        return m_value;
    return QTableWidgetItem::data(role);
}

void MarketTableItem::setData(int role, const QVariant &value)
{
    // Colours and tooltips always go through the model; text and value only outside a batch.
    if (role == Qt::DisplayRole || role == Qt::EditRole) {
        m_text = value.toString();
    } else if (role == Qt::UserRole) {
        m_value = value;
    } else {
        QTableWidgetItem::setData(role, value);
        return;
    }
    if (!g_quietWrites)
        QTableWidgetItem::setData(role, value);
}

void MarketTableItem::setQuietWrites(bool quiet)
{
    g_quietWrites = quiet;
}
