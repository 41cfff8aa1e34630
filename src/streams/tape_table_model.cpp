#include "streams/tape_table_model.h"

#include "app/language.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QFontDatabase>

#include <cmath>

TapeTableModel::TapeTableModel(const TimeAndSales &tape, QObject *parent)
    : QAbstractTableModel(parent)
    , m_tape(tape)
{
    sync();
}

void TapeTableModel::sync()
{
    const quint64 arrived = m_tape.admitted() - m_syncedAdmitted;
    const bool cleared = m_tape.generation() != m_syncedGeneration;
    if (!cleared && arrived == 0)
        return;
    m_syncedAdmitted = m_tape.admitted();
    m_syncedGeneration = m_tape.generation();

    // After a clear, or a burst that replaced every row, start over: cheaper than row moves.
    if (cleared || arrived >= quint64(m_tape.size())) {
        beginResetModel();
        m_rows.clear();
        m_rows.reserve(m_tape.size());
        for (int i = 0; i < m_tape.size(); ++i)
            m_rows.append(m_tape.at(i));
        endResetModel();
        return;
    }
    const int added = int(arrived);
    beginInsertRows({}, 0, added - 1);
    QList<TapeRow> fresh;
    fresh.reserve(added);
    for (int i = 0; i < added; ++i)
        fresh.append(m_tape.at(i));
    m_rows = fresh + m_rows;
    endInsertRows();
    if (m_rows.size() > m_tape.size()) {
        beginRemoveRows({}, m_tape.size(), int(m_rows.size()) - 1);
        m_rows.resize(m_tape.size());
        endRemoveRows();
    }
}

void TapeTableModel::retranslate()
{
    emit headerDataChanged(Qt::Horizontal, 0, ColumnCount - 1);
}

int TapeTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int TapeTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TapeTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const TapeRow &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case TimeColumn:
            return row.time;
        case PriceColumn:
            return tapePriceText(row.price);
        case SizeColumn:
            return tapeSizeText(row.size);
        case SideColumn:
            return row.side;
        }
        return {};
    case Qt::UserRole: // the number a column sorts by
        if (index.column() == PriceColumn)
            return row.price;
        if (index.column() == SizeColumn)
            return std::isfinite(row.size) ? row.size : 0.0;
        return {};
    case Qt::FontRole: {
        // Fixed-width digits line prices and sizes up; the theme's sheet sets no cell fonts.
        static const QFont font = [] {
            QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
            fixed.setPixelSize(12);
            return fixed;
        }();
        return font;
    }
    case Qt::ForegroundRole:
        return row.color.isEmpty() ? QVariant() : QVariant(QBrush(QColor(row.color)));
    case Qt::TextAlignmentRole:
        return index.column() == PriceColumn || index.column() == SizeColumn
                       ? int(Qt::AlignRight | Qt::AlignVCenter)
                       : int(Qt::AlignLeft | Qt::AlignVCenter);
    }
    return {};
}

QVariant TapeTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case TimeColumn:
        return translated(QStringLiteral("Time"), QStringLiteral("Hora"));
    case PriceColumn:
        return translated(QStringLiteral("Price"), QStringLiteral("Preço"));
    case SizeColumn:
        return translated(QStringLiteral("Size"), QStringLiteral("Qtd."));
    case SideColumn:
        return translated(QStringLiteral("Side/Source"), QStringLiteral("Lado/Fonte"));
    }
    return {};
}
