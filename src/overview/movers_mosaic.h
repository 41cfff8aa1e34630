#pragma once

#include "overview/movers.h"

#include <QList>
#include <QRectF>
#include <QWidget>

#include <functional>

// The movers as a mosaic of tiles, largest moves first: green for gains, red for losses, deeper
// for larger moves. A double click on a tile opens its symbol.
class MoversMosaic : public QWidget
{
    Q_OBJECT

public:
    explicit MoversMosaic(QWidget *parent = nullptr);

    void setItems(const QList<MoverRecord> &items);
    const QList<MoverRecord> &items() const { return m_items; }
    void setLightTheme(bool light);
    void setActivationCallback(std::function<void(const QString &symbol)> callback);
    // The tiles of the last paint, for hit testing.
    const QList<QRectF> &tileRects() const { return m_tiles; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    QList<MoverRecord> m_items;
    QList<QRectF> m_tiles;
    bool m_light = false;
    std::function<void(const QString &)> m_activate;
};
