#include "ui/theme.h"

#include <QRegularExpression>

#include <array>

namespace {

// Every colour of both themes, side by side, as the exact text the style sheet uses. The palettes
// and the style sheet are both generated from this one table, so the two themes (and the widgets
// that paint themselves) cannot drift apart.
struct ColourRole
{
    const char *name; // also the @name@ token of the style sheet template
    QColor ThemePalette::*member;
    const char *light;
    const char *dark;
};

// clang-format off
#define QRL_ROLE(member, light, dark) {#member, &ThemePalette::member, light, dark}
// clang-format on

constexpr const char kLightBorder[] = "rgba(0, 108, 180, 0.28)";
constexpr const char kDarkBorder[] = "rgba(191, 128, 64, 0.45)";

const ColourRole kColourRoles[] = {
        QRL_ROLE(windowBackground, "#f5f9ff", "#0f0a06"),
        QRL_ROLE(windowText, "#1a1a1a", "#f1e4d6"),
        QRL_ROLE(menuBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(menuText, "#24435f", "#f1e4d6"),
        QRL_ROLE(menuBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(menuSelectedBackground, "#e7f1fb", "#392613"),
        QRL_ROLE(menuSelectedText, "#004472", "#ffb84d"),
        QRL_ROLE(titleText, "#006cb4", "#ff9900"),
        QRL_ROLE(subtitleText, "#4e6174", "#d8c6b5"),
        QRL_ROLE(fxTickerBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(fxTickerBorder, kLightBorder, kDarkBorder),
        QRL_ROLE(fxTickerText, "#004472", "#ffcc80"),
        QRL_ROLE(upText, "#009d5b", "#20c878"),
        QRL_ROLE(downText, "#d64242", "#f45d5d"),
        QRL_ROLE(quoteTileBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(quoteTileBorder, "#d8e5f2", "#3d3024"),
        QRL_ROLE(quoteTileText, "#24435f", "#d8c6b5"),
        QRL_ROLE(inputBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(inputBorder, kLightBorder, kDarkBorder),
        QRL_ROLE(inputText, "#1a1a1a", "#fff4e6"),
        QRL_ROLE(selectionBackground, "#006cb4", "#ff9900"),
        QRL_ROLE(selectionText, "#ffffff", "#1a0f08"),
        QRL_ROLE(buttonBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(buttonBorder, kLightBorder, kDarkBorder),
        QRL_ROLE(buttonText, "#004472", "#fff4e6"),
        QRL_ROLE(buttonActiveBackground, "#e7f1fb", "#392613"),
        QRL_ROLE(buttonActiveBorder, "#006cb4", "#ff9900"),
        QRL_ROLE(tableBackground, "#ffffff", "#0d0906"),
        QRL_ROLE(tableAlternateBackground, "#f5f9ff", "#1a140d"),
        QRL_ROLE(tableBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(tableGrid, "#e0e0e0", "#2b2119"),
        QRL_ROLE(tableSelectionBackground, "#d9ecfb", "#392613"),
        QRL_ROLE(tableSelectionText, "#1a1a1a", "#ffffff"),
        QRL_ROLE(headerBackground, "#edf4fb", "#1a140d"),
        QRL_ROLE(headerText, "#004472", "#ffd39a"),
        QRL_ROLE(headerBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(tabPaneBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(tabBackground, "#ffffff", "#1a140d"),
        QRL_ROLE(tabText, "#4e6174", "#d8c6b5"),
        QRL_ROLE(tabBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(tabSelectedBackground, "#edf4fb", "#392613"),
        QRL_ROLE(tabSelectedText, "#004472", "#fff4e6"),
        QRL_ROLE(splitterHandle, "#d8e5f2", "#2b2119"),
        QRL_ROLE(eventConsoleBackground, "#ffffff", "#080503"),
        QRL_ROLE(eventConsoleBorder, "#d8e5f2", "#3d3530"),
        QRL_ROLE(eventConsoleText, "#24435f", "#d8c6b5"),
        QRL_ROLE(statusBarBackground, "#edf4fb", "#0f0a06"),
        QRL_ROLE(statusBarText, "#24435f", "#d8c6b5"),
        // Our own additions: scroll bars and the custom-painted panels.
        QRL_ROLE(scrollHandle, "#b7cadd", "#4a3b2e"),
        QRL_ROLE(disabledText, "#9aabbb", "#6e5f52"),
        QRL_ROLE(chartBackground, "#ffffff", "#0d0906"),
        QRL_ROLE(chartGrid, "#e0e0e0", "#2b2119"),
        QRL_ROLE(chartAxisText, "#4e6174", "#d8c6b5"),
        QRL_ROLE(chartCrosshair, "#7f93a8", "#8a7563"),
        QRL_ROLE(upCandle, "#009d5b", "#20c878"),
        QRL_ROLE(downCandle, "#d64242", "#f45d5d"),
        QRL_ROLE(neutralText, "#4e6174", "#d8c6b5"),
};

#undef QRL_ROLE

// "#rrggbb" or "rgba(r, g, b, a)" with a in 0..1, the two forms the table uses.
QColor colourFromCss(const QString &text)
{
    static const QRegularExpression rgba(
            QStringLiteral(R"(^rgba\(\s*(\d+)\s*,\s*(\d+)\s*,\s*(\d+)\s*,\s*([0-9.]+)\s*\)$)"));
    const QRegularExpressionMatch match = rgba.match(text);
    if (!match.hasMatch())
        return QColor(text);
    QColor colour(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    colour.setAlphaF(match.captured(4).toFloat());
    return colour;
}

ThemePalette buildPalette(bool light)
{
    ThemePalette palette;
    palette.id = QString::fromLatin1(light ? kLightThemeId : kDarkThemeId);
    for (const ColourRole &role : kColourRoles)
        palette.*role.member = colourFromCss(QString::fromLatin1(light ? role.light : role.dark));
    return palette;
}

// One template for both themes. Framed inputs and buttons: 1 px border, 5 px radius. Dense
// paddings throughout; a terminal shows as many rows as it can.
constexpr char kStyleSheetTemplate[] = R"qss(
QMainWindow, QDialog, QMessageBox, QWidget {
    background-color: @windowBackground@;
    color: @windowText@;
    font-size: 13px;
}
QLabel, QCheckBox, QRadioButton, QStatusBar QWidget { background-color: transparent; }
#terminalBrand, #brandLogo { background-color: transparent; }
#terminalTitle {
    background-color: transparent;
    color: @titleText@;
    font-size: 18px;
    font-weight: 800;
}
QLabel#panelTitle { color: @titleText@; font-weight: 800; padding: 4px 2px; }
QLabel#subPanelTitle { color: @subtitleText@; font-weight: 700; padding: 2px 2px; }
QLabel#fxTicker {
    background-color: @fxTickerBackground@;
    border: 1px solid @fxTickerBorder@;
    border-radius: 5px;
    color: @fxTickerText@;
    font-weight: 800;
    padding: 7px 10px;
}
QLabel#quoteTile {
    background-color: @quoteTileBackground@;
    border: 1px solid @quoteTileBorder@;
    border-radius: 5px;
    color: @quoteTileText@;
    font-weight: 700;
    padding: 4px 8px;
}
QLabel#fxTicker[direction="up"], QLabel#quoteTile[direction="up"] { color: @upText@; }
QLabel#fxTicker[direction="down"], QLabel#quoteTile[direction="down"] { color: @downText@; }
QMenuBar {
    background-color: @menuBackground@; color: @menuText@; border-bottom: 1px solid @menuBorder@;
}
QMenuBar::item { background-color: transparent; padding: 4px 10px; }
QMenuBar::item:selected, QMenuBar::item:pressed {
    background-color: @menuSelectedBackground@;
    color: @menuSelectedText@;
}
QMenu {
    background-color: @menuBackground@;
    color: @menuText@;
    border: 1px solid @menuBorder@;
    padding: 3px 0px;
}
QMenu::item { background-color: transparent; padding: 4px 22px 4px 24px; }
QMenu::item:selected { background-color: @menuSelectedBackground@; color: @menuSelectedText@; }
QMenu::item:disabled { color: @disabledText@; }
QMenu::separator { height: 1px; background-color: @menuBorder@; margin: 3px 8px; }
QLineEdit, QComboBox, QSpinBox, QDoubleSpinBox, QKeySequenceEdit QLineEdit {
    background-color: @inputBackground@;
    border: 1px solid @inputBorder@;
    border-radius: 5px;
    color: @inputText@;
    padding: 3px 6px;
    selection-background-color: @selectionBackground@;
    selection-color: @selectionText@;
}
QLineEdit:disabled, QComboBox:disabled, QSpinBox:disabled, QDoubleSpinBox:disabled {
    color: @disabledText@;
}
QLineEdit:focus, QComboBox:focus, QSpinBox:focus, QDoubleSpinBox:focus {
    border-color: @buttonActiveBorder@;
}
QComboBox::drop-down, QSpinBox::up-button, QSpinBox::down-button,
QDoubleSpinBox::up-button, QDoubleSpinBox::down-button {
    background-color: transparent;
    border: none;
    width: 16px;
}
/* Arrows as border triangles: the side borders must be opaque (the input background), since
   transparent ones are dropped and leave a plain bar instead of a triangle. */
QComboBox::down-arrow, QSpinBox::down-arrow, QDoubleSpinBox::down-arrow,
QSpinBox::up-arrow, QDoubleSpinBox::up-arrow {
    width: 0px;
    height: 0px;
    border-left: 4px solid @inputBackground@;
    border-right: 4px solid @inputBackground@;
}
QComboBox::down-arrow, QSpinBox::down-arrow, QDoubleSpinBox::down-arrow {
    border-top: 5px solid @inputText@;
}
QSpinBox::up-arrow, QDoubleSpinBox::up-arrow { border-bottom: 5px solid @inputText@; }
QComboBox QAbstractItemView {
    background-color: @menuBackground@;
    color: @menuText@;
    border: 1px solid @menuBorder@;
    outline: 0px;
    selection-background-color: @menuSelectedBackground@;
    selection-color: @menuSelectedText@;
}
QPushButton {
    background-color: @buttonBackground@;
    border: 1px solid @buttonBorder@;
    border-radius: 5px;
    color: @buttonText@;
    padding: 4px 12px;
}
QPushButton:hover, QPushButton:checked, QPushButton:pressed {
    background-color: @buttonActiveBackground@;
    border-color: @buttonActiveBorder@;
}
QPushButton:disabled {
    background-color: @windowBackground@;
    border-color: @tableBorder@;
    color: @disabledText@;
}
QPushButton#chartToolButton, QPushButton#bookPresetButton { padding: 3px 8px; }
QPushButton#chartToolButton:checked, QPushButton#bookPresetButton:checked {
    color: @titleText@;
    font-weight: 700;
}
QToolButton { background-color: transparent; border: none; color: @buttonText@; }
QTableView, QTableWidget, QTreeView, QListView {
    background-color: @tableBackground@;
    alternate-background-color: @tableAlternateBackground@;
    border: 1px solid @tableBorder@;
    gridline-color: @tableGrid@;
    selection-background-color: @tableSelectionBackground@;
    selection-color: @tableSelectionText@;
    outline: 0px;
}
QHeaderView { background-color: @headerBackground@; border: none; }
QHeaderView::section, QTableCornerButton::section {
    background-color: @headerBackground@;
    color: @headerText@;
    border: none;
    border-right: 1px solid @headerBorder@;
    border-bottom: 1px solid @headerBorder@;
    padding: 3px 6px;
    font-weight: 700;
}
QTabWidget::pane { border: 1px solid @tabPaneBorder@; top: -1px; }
QTabBar::tab {
    background-color: @tabBackground@;
    color: @tabText@;
    border: 1px solid @tabBorder@;
    border-top-left-radius: 4px;
    border-top-right-radius: 4px;
    padding: 4px 7px;
    margin-right: 1px;
}
QTabBar::tab:selected {
    background-color: @tabSelectedBackground@;
    color: @tabSelectedText@;
    border-bottom-color: @tabSelectedBackground@;
}
QTabBar::tab:hover:!selected { color: @menuSelectedText@; }
QTabBar QToolButton { background-color: @tabBackground@; border: 1px solid @tabBorder@; }
QLabel#chartArea, QLabel#emptyState {
    background-color: @tableBackground@;
    border: 1px solid @tableBorder@;
    color: @subtitleText@;
}
QSplitter::handle { background-color: @splitterHandle@; }
QSplitter::handle:horizontal { width: 3px; }
QSplitter::handle:vertical { height: 3px; }
QPlainTextEdit#eventConsole {
    background-color: @eventConsoleBackground@;
    border: 1px solid @eventConsoleBorder@;
    color: @eventConsoleText@;
    font-family: "DejaVu Sans Mono", "Consolas", monospace;
    selection-background-color: @selectionBackground@;
    selection-color: @selectionText@;
}
QStatusBar {
    background-color: @statusBarBackground@;
    color: @statusBarText@;
    border-top: 1px solid @tableBorder@;
}
QStatusBar QLabel { color: @statusBarText@; }
QStatusBar::item { border: none; }
QToolTip {
    background-color: @menuBackground@;
    color: @menuText@;
    border: 1px solid @buttonActiveBorder@;
    padding: 3px 6px;
}
QScrollBar { background-color: @windowBackground@; border: none; margin: 0px; }
QScrollBar:vertical { width: 10px; }
QScrollBar:horizontal { height: 10px; }
QScrollBar::handle { background-color: @scrollHandle@; border-radius: 3px; margin: 2px; }
QScrollBar::handle:vertical { min-height: 24px; }
QScrollBar::handle:horizontal { min-width: 24px; }
QScrollBar::handle:hover, QScrollBar::handle:pressed { background-color: @buttonActiveBorder@; }
QScrollBar::add-line, QScrollBar::sub-line {
    border: none; background: none; width: 0px; height: 0px;
}
QScrollBar::add-page, QScrollBar::sub-page { background: none; }
QAbstractScrollArea::corner { background-color: @windowBackground@; }
QCheckBox, QRadioButton { spacing: 6px; }
QCheckBox::indicator, QRadioButton::indicator {
    width: 12px;
    height: 12px;
    background-color: @inputBackground@;
    border: 1px solid @inputBorder@;
}
QCheckBox::indicator { border-radius: 3px; }
QRadioButton::indicator { border-radius: 7px; }
QCheckBox::indicator:hover, QRadioButton::indicator:hover { border-color: @buttonActiveBorder@; }
QCheckBox::indicator:checked, QRadioButton::indicator:checked {
    background-color: @buttonActiveBorder@;
    border-color: @buttonActiveBorder@;
}
/* A checked box is an accent ring around an accent square, drawn without images. */
QCheckBox::indicator:checked {
    width: 8px;
    height: 8px;
    padding: 2px;
    background-clip: content;
}
QGroupBox {
    border: 1px solid @tableBorder@;
    border-radius: 5px;
    margin-top: 10px;
    padding-top: 4px;
}
QGroupBox::title { subcontrol-origin: margin; left: 8px; color: @subtitleText@; }
)qss";

} // namespace

QString normalizedThemeId(const QString &themeId)
{
    return QString::fromLatin1(isLightTheme(themeId) ? kLightThemeId : kDarkThemeId);
}

bool isLightTheme(const QString &themeId)
{
    return themeId == QLatin1StringView(kLightThemeId);
}

const ThemePalette &themePalette(bool light)
{
    static const std::array<ThemePalette, 2> palettes = {buildPalette(false), buildPalette(true)};
    return palettes[light ? 1 : 0];
}

QString themeStyleSheet(const QString &themeId)
{
    const bool light = isLightTheme(themeId);
    QString sheet = QString::fromLatin1(kStyleSheetTemplate);
    for (const ColourRole &role : kColourRoles) {
        sheet.replace(QLatin1Char('@') + QLatin1StringView(role.name) + QLatin1Char('@'),
                      QLatin1StringView(light ? role.light : role.dark));
    }
    Q_ASSERT(!sheet.contains(QLatin1Char('@')));
    return sheet;
}
