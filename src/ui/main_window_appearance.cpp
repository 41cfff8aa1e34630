// Language, theme and shortcuts.
#include "app/language.h"
#include "chart/price_chart.h"
#include "market/market_row.h"
#include "ui/bilingual.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/shortcuts.h"
#include "ui/shortcuts_dialog.h"
#include "ui/theme.h"

#include <QAbstractItemView>
#include <QAction>
#include <QCompleter>
#include <QPushButton>
#include <QShortcut>

void MainWindow::setLanguage(const QString &code)
{
    if (!setInterfaceLanguage(code))
        return;
    retranslateUi();
    refreshPortfolio(); // the summary and the transaction types are texts of the language
    refreshNews();      // headlines are asked for in the interface language
    saveLocalSettings();
    logEvent(translated(QStringLiteral("Language changed"), QStringLiteral("Idioma alterado")));
}

void MainWindow::retranslateUi()
{
    // Bound texts of every menu, action, placeholder and title, then a language-change event
    // through every widget so panels rebuild the texts they compute.
    retranslateAllWindows();
    (isPortuguese() ? m_portugueseAction : m_englishAction)->setChecked(true);
    applyConfiguredShortcuts(); // the chart tooltips embed both a text and a key
}

void MainWindow::setTheme(const QString &themeId)
{
    m_theme = normalizedThemeId(themeId);
    applyTheme();
    updateThemedWidgets();
    saveLocalSettings();
}

void MainWindow::applyTheme()
{
    (isLightTheme(m_theme) ? m_lightAction : m_darkAction)->setChecked(true);
    const QString sheet = themeStyleSheet(m_theme);
    if (styleSheet() != sheet) // setting a sheet styles every widget again
        setStyleSheet(sheet);
    // The completer's popup is a window of its own and does not inherit the window's sheet.
    if (m_completer)
        m_completer->popup()->setStyleSheet(sheet);
}

void MainWindow::updateThemedWidgets()
{
    // The price chart and the movers mosaic paint their own colours; the change cells keep their
    // fixed gain and loss colours in both themes.
    m_book->applyTheme(m_theme);
    m_movers->applyTheme(m_theme);
    m_chart->setLightTheme(isLightTheme(m_theme));
}

QKeySequence MainWindow::configuredShortcut(const QString &id) const
{
    return ::configuredShortcut(m_shortcutOverrides, id);
}

void MainWindow::setShortcutOverrides(const ShortcutOverrides &overrides)
{
    m_shortcutOverrides = overrides;
    applyConfiguredShortcuts();
    saveLocalSettings();
}

void MainWindow::applyConfiguredShortcuts()
{
    const char *layoutIds[] = {"layout_balanced", "layout_dense", "layout_chart",
                               "layout_order_flow"};
    for (int i = 0; i < m_layoutActions.size(); ++i)
        m_layoutActions.at(i)->setShortcut(configuredShortcut(QLatin1String(layoutIds[i])));
    m_nextMonitorAction->setShortcut(configuredShortcut(QStringLiteral("layout_next_monitor")));

    for (auto it = m_chartToolButtons.begin(); it != m_chartToolButtons.end(); ++it) {
        const QString id = QStringLiteral("chart_") + it.key();
        const QKeySequence sequence = configuredShortcut(id);
        it.value()->setShortcut(sequence);
        it.value()->setToolTip(chartToolTip(id, sequence));
    }
    for (QShortcut *shortcut : std::as_const(m_bookShortcuts))
        shortcut->setKey(configuredShortcut(shortcut->objectName()));
    refreshPresetButtons(); // their tooltips name the keys
    m_chart->setResetZoomShortcut(configuredShortcut(QStringLiteral("chart_reset")));
}

void MainWindow::showShortcutsDialog()
{
    ShortcutOverrides overrides = m_shortcutOverrides;
    if (!runShortcutsDialog(overrides, this))
        return;
    setShortcutOverrides(overrides);
    logEvent(
            translated(QStringLiteral("Shortcuts updated"), QStringLiteral("Atalhos atualizados")));
}
