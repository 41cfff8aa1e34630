#pragma once

#include <QIcon>
#include <QString>

class QGuiApplication;

inline constexpr char kOrganizationName[] = "Querlin";
inline constexpr char kOrganizationDomain[] = "querlin.app";
inline constexpr char kApplicationName[] = "Terminal Querlin";
inline constexpr char kApplicationVersion[] = "0.1.0";
inline constexpr char kApplicationIconPath[] = ":/icons/icons/querlin_terminal.png";

QIcon applicationIcon();

// Sets organisation name, organisation domain, application name, version and then the window
// icon, in that order, before any window exists: the folders derive from the names.
void applyApplicationIdentity(QGuiApplication &app);
