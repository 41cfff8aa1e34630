#include "ui/layout_presets.h"

#include "app/language.h"

QString LayoutPreset::displayName() const
{
    return translated(english, portuguese);
}

const QList<LayoutPreset> &layoutPresets()
{
    static const QList<LayoutPreset> presets{
            {QStringLiteral("balanced"),
             QStringLiteral("Balanced"),
             QStringLiteral("Balanceado"),
             {1080, 320},
             {360, 420, 150}},
            {QStringLiteral("dense"),
             QStringLiteral("Dense Terminal"),
             QStringLiteral("Terminal denso"),
             {1080, 320},
             {330, 390, 150}},
            {QStringLiteral("chart"),
             QStringLiteral("Chart Focus"),
             QStringLiteral("Foco no gráfico"),
             {1180, 240},
             {230, 560, 150}},
            {QStringLiteral("order_flow"),
             QStringLiteral("Order Flow Focus"),
             QStringLiteral("Foco em fluxo"),
             {930, 430},
             {360, 360, 160}},
    };
    return presets;
}

const LayoutPreset &layoutPreset(const QString &id)
{
    for (const LayoutPreset &preset : layoutPresets()) {
        if (preset.id == id)
            return preset;
    }
    return layoutPresets().first();
}

QRect centredOnScreen(const QSize &size, const QRect &available)
{
    const QSize bounded = size.boundedTo(available.size());
    return {available.x() + (available.width() - bounded.width()) / 2,
            available.y() + (available.height() - bounded.height()) / 2, bounded.width(),
            bounded.height()};
}

int nextScreenIndex(int current, int count)
{
    if (count <= 0)
        return -1;
    if (current < 0 || current >= count)
        return 0;
    return (current + 1) % count;
}
