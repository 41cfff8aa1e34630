#pragma once

#include <QString>

// The interface language of the process: "en" or "pt_BR". Every user-visible text is given in both
// languages where it is used and picked at the moment it is written; texts already shown keep the
// language they were written in until their owner retranslates them.

QString interfaceLanguage();
// "pt_BR" when the code is exactly that, otherwise "en".
QString normalizedLanguageCode(const QString &code);
// Returns true when the language changed.
bool setInterfaceLanguage(const QString &code);
bool isPortuguese();
QString translated(const QString &english, const QString &portuguese);
