#pragma once

#include "streams/time_and_sales.h"

#include <QAbstractTableModel>
#include <QList>

// The tape as a table model: Time, Price, Size, Side/Source. It shows what the list held when it
// last synced, and sync() tells the view only what changed since: rows that arrived go in at the
// top and rows pushed past the limit leave at the bottom, so a view repaints in proportion to what
// changed, however many trades came in between.
class TapeTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column {
        TimeColumn,
        PriceColumn,
        SizeColumn,
        SideColumn,
        ColumnCount
    };

    explicit TapeTableModel(const TimeAndSales &tape, QObject *parent = nullptr);

    void sync();
    // The headers follow the interface language.
    void retranslate();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    const TimeAndSales &m_tape;
    QList<TapeRow> m_rows; // newest first, as of the last sync
    quint64 m_syncedAdmitted = 0;
    quint64 m_syncedGeneration = 0;
};
