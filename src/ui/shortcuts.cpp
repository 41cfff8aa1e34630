#include "ui/shortcuts.h"

#include "app/language.h"

namespace {

const ShortcutEntry *findEntry(const QString &id)
{
    for (const ShortcutEntry &entry : shortcutTable()) {
        if (id == QLatin1String(entry.id))
            return &entry;
    }
    return nullptr;
}

QKeySequence fromPortableText(const QString &text)
{
    return QKeySequence::fromString(text, QKeySequence::PortableText);
}

struct ChartToolTip
{
    const char *id;
    const char *english;    // with the key as %1
    const char *portuguese; // with the key as %1
    const char *englishWithoutKey;
    const char *portugueseWithoutKey;
};

const ChartToolTip kChartToolTips[] = {
        {"chart_select", "Select (%1)", "Selecionar (%1)", "Select", "Selecionar"},
        {"chart_reset", "Reset zoom to the latest candle (%1)",
         "Resetar zoom para o último candle (%1)", "Reset zoom to the latest candle",
         "Resetar zoom para o último candle"},
        {"chart_hline", "Horizontal line (%1)", "Linha horizontal (%1)", "Horizontal line",
         "Linha horizontal"},
        {"chart_vline", "Vertical line (%1)", "Linha vertical (%1)", "Vertical line",
         "Linha vertical"},
        {"chart_trend", "Trend line (%1)", "Linha de tendência (%1)", "Trend line",
         "Linha de tendência"},
};

} // namespace

QString ShortcutEntry::label() const
{
    return translated(english, portuguese);
}

const QList<ShortcutEntry> &shortcutTable()
{
    static const QList<ShortcutEntry> table = {
            {"chart_select", QStringLiteral("Chart: Select tool"),
             QStringLiteral("Gráfico: ferramenta selecionar"), "Alt+1"},
            {"chart_reset", QStringLiteral("Chart: Reset zoom"),
             QStringLiteral("Gráfico: resetar zoom"), "Alt+0"},
            {"chart_hline", QStringLiteral("Chart: Horizontal line"),
             QStringLiteral("Gráfico: linha horizontal"), "Alt+2"},
            {"chart_vline", QStringLiteral("Chart: Vertical line"),
             QStringLiteral("Gráfico: linha vertical"), "Alt+3"},
            {"chart_trend", QStringLiteral("Chart: Trend line"),
             QStringLiteral("Gráfico: linha de tendência"), "Alt+4"},
            {"layout_balanced", QStringLiteral("Layout: Balanced"),
             QStringLiteral("Layout: balanceado"), "Ctrl+Alt+1"},
            {"layout_dense", QStringLiteral("Layout: Dense Terminal"),
             QStringLiteral("Layout: terminal denso"), "Ctrl+Alt+2"},
            {"layout_chart", QStringLiteral("Layout: Chart Focus"),
             QStringLiteral("Layout: foco no gráfico"), "Ctrl+Alt+3"},
            {"layout_order_flow", QStringLiteral("Layout: Order Flow Focus"),
             QStringLiteral("Layout: foco em fluxo"), "Ctrl+Alt+4"},
            {"layout_next_monitor", QStringLiteral("Layout: Move to next monitor"),
             QStringLiteral("Layout: mover para próximo monitor"), "Ctrl+Alt+M"},
            {"book_raw", QStringLiteral("Book: Raw levels"), QStringLiteral("Livro: níveis brutos"),
             "Ctrl+1"},
            {"book_tight", QStringLiteral("Book: Tight aggregation"),
             QStringLiteral("Livro: agregação estreita"), "Ctrl+2"},
            {"book_normal", QStringLiteral("Book: Normal aggregation"),
             QStringLiteral("Livro: agregação normal"), "Ctrl+3"},
            {"book_wide", QStringLiteral("Book: Wide aggregation"),
             QStringLiteral("Livro: agregação ampla"), "Ctrl+4"},
    };
    return table;
}

QKeySequence defaultShortcut(const QString &id)
{
    const ShortcutEntry *entry = findEntry(id);
    return entry ? fromPortableText(QLatin1String(entry->defaultKey)) : QKeySequence();
}

QKeySequence configuredShortcut(const ShortcutOverrides &overrides, const QString &id)
{
    if (!findEntry(id))
        return {};
    const QString text = overrides.value(id).trimmed();
    // An empty override counts as none: the maps built here never hold one, hand-made ones might.
    return text.isEmpty() ? defaultShortcut(id) : fromPortableText(text);
}

ShortcutOverrides shortcutOverridesFromJson(const QJsonValue &value)
{
    ShortcutOverrides overrides;
    if (!value.isObject())
        return overrides;
    const QJsonObject object = value.toObject();
    for (const ShortcutEntry &entry : shortcutTable()) {
        const QString id = QLatin1String(entry.id);
        const QString text = object.value(id).toString().trimmed(); // non-strings read as empty
        // A stored default is dropped, so the map keeps only differences and a later change of a
        // default reaches users who never changed that key.
        if (text.isEmpty() || fromPortableText(text) == defaultShortcut(id))
            continue;
        overrides.insert(id, text);
    }
    return overrides;
}

QJsonObject shortcutOverridesToJson(const ShortcutOverrides &overrides)
{
    QJsonObject object;
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

ShortcutOverrides shortcutOverridesFromSequences(const QMap<QString, QKeySequence> &edited)
{
    ShortcutOverrides overrides;
    for (const ShortcutEntry &entry : shortcutTable()) {
        const QString id = QLatin1String(entry.id);
        const QKeySequence sequence = edited.value(id);
        if (sequence.isEmpty() || sequence == defaultShortcut(id))
            continue;
        overrides.insert(id, sequence.toString(QKeySequence::PortableText));
    }
    return overrides;
}

QString shortcutsTitleText()
{
    return translated(QStringLiteral("Shortcuts"), QStringLiteral("Atalhos"));
}

QString shortcutsHintText()
{
    return translated(QStringLiteral("Review and customize keyboard shortcuts. Leave a field empty "
                                     "to disable that shortcut."),
                      QStringLiteral("Revise e personalize os atalhos de teclado. Deixe um campo "
                                     "vazio para desativar o atalho."));
}

QString restoreDefaultsText()
{
    return translated(QStringLiteral("Restore defaults"), QStringLiteral("Restaurar padrões"));
}

QString shortcutsUpdatedText()
{
    return translated(QStringLiteral("Shortcuts updated"), QStringLiteral("Atalhos atualizados"));
}

QString chartToolTip(const QString &id, const QKeySequence &sequence)
{
    for (const ChartToolTip &tip : kChartToolTips) {
        if (id != QLatin1String(tip.id))
            continue;
        if (sequence.isEmpty()) {
            return translated(QString::fromUtf8(tip.englishWithoutKey),
                              QString::fromUtf8(tip.portugueseWithoutKey));
        }
        return translated(QString::fromUtf8(tip.english), QString::fromUtf8(tip.portuguese))
                .arg(sequence.toString(QKeySequence::NativeText));
    }
    return {};
}
