#pragma once

#include <QColor>
#include <QString>

// The two visual themes of the terminal. Widgets take their colours from one application style
// sheet generated from a ThemePalette; panels that paint themselves (price chart, movers mosaic)
// read the same palette, so a theme is defined in exactly one place.

inline constexpr char kLightThemeId[] = "qrl_light";
inline constexpr char kDarkThemeId[] = "coffee_dark";

// "qrl_light" when the id is exactly that, otherwise "coffee_dark" (also the default).
QString normalizedThemeId(const QString &themeId);
bool isLightTheme(const QString &themeId);

struct ThemePalette
{
    QString id;

    QColor windowBackground;
    QColor windowText;

    QColor menuBackground;
    QColor menuText;
    QColor menuBorder;
    QColor menuSelectedBackground;
    QColor menuSelectedText;

    QColor titleText;    // terminalTitle and panelTitle
    QColor subtitleText; // subPanelTitle

    QColor fxTickerBackground;
    QColor fxTickerBorder;
    QColor fxTickerText;
    QColor upText;   // fxTicker and quoteTile with direction "up"
    QColor downText; // ... and "down"

    QColor quoteTileBackground;
    QColor quoteTileBorder;
    QColor quoteTileText;

    QColor inputBackground;
    QColor inputBorder;
    QColor inputText;
    QColor selectionBackground; // text selection in edits
    QColor selectionText;

    QColor buttonBackground;
    QColor buttonBorder;
    QColor buttonText;
    QColor buttonActiveBackground; // hovered or checked
    QColor buttonActiveBorder;

    QColor tableBackground;
    QColor tableAlternateBackground;
    QColor tableBorder;
    QColor tableGrid;
    QColor tableSelectionBackground;
    QColor tableSelectionText;

    QColor headerBackground;
    QColor headerText;
    QColor headerBorder;

    QColor tabPaneBorder;
    QColor tabBackground;
    QColor tabText;
    QColor tabBorder;
    QColor tabSelectedBackground;
    QColor tabSelectedText;

    QColor splitterHandle;

    QColor eventConsoleBackground;
    QColor eventConsoleBorder;
    QColor eventConsoleText;

    QColor statusBarBackground;
    QColor statusBarText;

    // Beyond the widget roles: scroll bars, disabled text and the panels that paint themselves.
    QColor scrollHandle;
    QColor disabledText;
    QColor chartBackground;
    QColor chartGrid;
    QColor chartAxisText;
    QColor chartCrosshair;
    QColor upCandle;
    QColor downCandle;
    QColor neutralText;
};

const ThemePalette &themePalette(bool light);

// The whole application style sheet of a theme; unknown ids get the dark one.
QString themeStyleSheet(const QString &themeId);
