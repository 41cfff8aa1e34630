#include "overview/movers_mosaic.h"

#include <QImage>
#include <QTest>

class MoversMosaicTest : public QObject
{
    Q_OBJECT

private slots:
    void tilesAreFilledByDirectionAndOpenOnDoubleClick();
    void volumeLineNeedsA42PixelTile_data();
    void volumeLineNeedsA42PixelTile();
};

void MoversMosaicTest::tilesAreFilledByDirectionAndOpenOnDoubleClick()
{
    MoversMosaic mosaic;
    mosaic.resize(471, 256);
    QList<MoverRecord> items;
    for (int i = 0; i < 25; ++i) {
        MoverRecord item;
        item.symbol = QStringLiteral("S%1").arg(i);
        item.change = i % 2 ? 36.0 : -36.0;
        item.price = 10;
        item.volume = 1e6;
        items << item;
    }
    mosaic.setItems(items);
    const QImage image = mosaic.grab().toImage();
    QCOMPARE(mosaic.tileRects().size(), 20); // 4 columns x 5 rows
    // Full intensity: a loss is (0.68, 0.08, 0.10), a gain (0.05, 0.70, 0.19); sample a corner of
    // each tile, clear of its texts.
    const auto corner = [&](int tile) {
        const QRectF rect = mosaic.tileRects().at(tile);
        return image.pixelColor(int(rect.right()) - 3, int(rect.top()) + 3);
    };
    QCOMPARE(corner(0).rgb(), QColor::fromRgbF(0.68f, 0.08f, 0.10f).rgb());
    QCOMPARE(corner(1).rgb(), QColor::fromRgbF(0.05f, 0.70f, 0.19f).rgb());

    QStringList opened;
    mosaic.setActivationCallback([&opened](const QString &symbol) { opened << symbol; });
    QTest::mouseDClick(&mosaic, Qt::LeftButton, {}, mosaic.tileRects().at(5).center().toPoint());
    QTest::mouseDClick(&mosaic, Qt::LeftButton, {}, QPoint(2, 2)); // the margin opens nothing
    QCOMPARE(opened, QStringList{"S5"});

    mosaic.setItems({});
    mosaic.grab();
    QVERIFY(mosaic.tileRects().isEmpty());
}

void MoversMosaicTest::volumeLineNeedsA42PixelTile_data()
{
    QTest::addColumn<int>("height");
    QTest::addColumn<bool>("volumeLine");
    // 12 tiles on 4 columns use 3 rows: the tile height is (height - 10 - 2 x 5) / 3.
    QTest::newRow("42 px tiles") << 146 << true;
    QTest::newRow("41 px tiles") << 143 << false;
}

void MoversMosaicTest::volumeLineNeedsA42PixelTile()
{
    QFETCH(int, height);
    QFETCH(bool, volumeLine);
    MoversMosaic mosaic;
    mosaic.setMinimumHeight(0); // a layout never goes below 210; the rule still holds below it
    mosaic.resize(471, height);
    QList<MoverRecord> items;
    for (int i = 0; i < 12; ++i) {
        MoverRecord item;
        item.symbol = QStringLiteral("S%1").arg(i);
        item.change = -1.0;
        item.price = 123.45;
        item.volume = 8.8e9;
        items << item;
    }
    mosaic.setItems(items);
    const QImage image = mosaic.grab().toImage();
    const QRect tile = mosaic.tileRects().at(0).toRect();
    QCOMPARE(tile.height(), volumeLine ? 42 : 41);
    // The band above the bottom inset, clear of the symbol and the centred change: only the volume
    // line's light text can be there.
    int lightPixels = 0;
    for (int y = tile.bottom() - 12; y <= tile.bottom() - 3; ++y) {
        for (int x = tile.left() + 5; x < tile.right() - 5; ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.green() > 150 && pixel.blue() > 150)
                ++lightPixels;
        }
    }
    QCOMPARE(lightPixels > 0, volumeLine);
}

QTEST_MAIN(MoversMosaicTest)
#include "tst_movers_mosaic.moc"
