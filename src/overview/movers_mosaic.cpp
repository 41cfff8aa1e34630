#include "overview/movers_mosaic.h"

#include "app/language.h"
#include "market/market_row.h"

#include <QFontMetrics>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kVolumeLineMinimumHeight = 42;

} // namespace

MoversMosaic::MoversMosaic(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("moversMosaic"));
    setMinimumHeight(210);
    setMouseTracking(true);
}

void MoversMosaic::setItems(const QList<MoverRecord> &items)
{
    m_items = items;
    update();
}

void MoversMosaic::setLightTheme(bool light)
{
    m_light = light;
    update();
}

void MoversMosaic::setActivationCallback(std::function<void(const QString &)> callback)
{
    m_activate = std::move(callback);
}

void MoversMosaic::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(m_light ? "#ffffff" : "#080d0f"));
    m_tiles = mosaicTiles(QSizeF(size()), int(m_items.size()));
    if (m_items.isEmpty()) {
        painter.setPen(QColor(m_light ? "#4e6174" : "#5f7973"));
        painter.drawText(rect(), Qt::AlignCenter,
                         translated(QStringLiteral("Waiting for market movers"),
                                    QStringLiteral("Aguardando destaques do mercado")));
        return;
    }
    const QColor border(m_light ? "#d8e5f2" : "#15282c");
    QFont symbolFont = font();
    symbolFont.setBold(true);
    symbolFont.setPointSizeF(std::max(8.0, font().pointSizeF()));
    QFont changeFont = font();
    changeFont.setPointSizeF(std::max(7.0, font().pointSizeF() - 2));
    for (int i = 0; i < m_tiles.size(); ++i) {
        const MoverRecord &item = m_items.at(i);
        const QRectF tile = m_tiles.at(i);
        const MosaicFill fill = mosaicFill(item.change);
        painter.setPen(border);
        painter.setBrush(QColor::fromRgbF(float(fill.red), float(fill.green), float(fill.blue)));
        painter.drawRect(tile);

        const QRectF text = tile.adjusted(5, 3, -5, -3);
        painter.setFont(symbolFont);
        painter.setPen(QColor("#f1f7f5"));
        painter.drawText(text, Qt::AlignLeft | Qt::AlignTop,
                         QFontMetrics(symbolFont)
                                 .elidedText(item.symbol, Qt::ElideRight, int(tile.width() - 10)));
        painter.setFont(changeFont);
        painter.setPen(QColor(item.change >= 0 ? "#caffdf" : "#ffd2d2"));
        painter.drawText(tile.adjusted(5, 2, -5, -2), Qt::AlignLeft | Qt::AlignVCenter,
                         QStringLiteral("%1%").arg(item.change, 0, 'f', 2));
        if (tile.height() >= kVolumeLineMinimumHeight) {
            painter.setPen(QColor("#d8e6e3"));
            const QString line =
                    QStringLiteral("%1  Vol %2")
                            .arg(formatMarketNumber(item.price), formatLargeAmount(item.volume));
            painter.drawText(tile.adjusted(5, 2, -5, -3), Qt::AlignLeft | Qt::AlignBottom,
                             QFontMetrics(changeFont)
                                     .elidedText(line, Qt::ElideRight, int(tile.width() - 10)));
        }
    }
}

void MoversMosaic::mouseDoubleClickEvent(QMouseEvent *event)
{
    for (int i = 0; i < m_tiles.size() && i < m_items.size(); ++i) {
        if (m_tiles.at(i).contains(event->position())) {
            if (m_activate)
                m_activate(m_items.at(i).symbol);
            return;
        }
    }
    QWidget::mouseDoubleClickEvent(event);
}
