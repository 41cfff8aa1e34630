#pragma once

#include <QList>
#include <QRect>
#include <QSize>
#include <QString>

// The four arrangements of the window's two splitters the Layout menu offers.
struct LayoutPreset
{
    QString id;
    QString english;
    QString portuguese;
    QList<int> workspaceSizes; // left column, side tabs
    QList<int> leftSizes;      // market table, chart, console

    QString displayName() const; // in the interface language
};

// balanced, dense, chart, order_flow: the order of the menu.
const QList<LayoutPreset> &layoutPresets();
// An unknown id gets the balanced arrangement.
const LayoutPreset &layoutPreset(const QString &id);

// Where a window of `size` lands on a screen with the `available` area: no larger than that area
// and centred in it.
QRect centredOnScreen(const QSize &size, const QRect &available);
// The screen after `current` in a list of `count`, wrapping from the last to the first.
int nextScreenIndex(int current, int count);
