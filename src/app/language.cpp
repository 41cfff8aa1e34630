#include "app/language.h"

namespace {

const QString kPortuguese = QStringLiteral("pt_BR");
const QString kEnglish = QStringLiteral("en");

// Only the GUI thread reads or writes the language.
QString &currentLanguage()
{
    static QString language = kEnglish;
    return language;
}

} // namespace

QString interfaceLanguage()
{
    return currentLanguage();
}

QString normalizedLanguageCode(const QString &code)
{
    return code == kPortuguese ? kPortuguese : kEnglish;
}

bool setInterfaceLanguage(const QString &code)
{
    const QString language = normalizedLanguageCode(code);
    if (language == currentLanguage())
        return false;
    currentLanguage() = language;
    return true;
}

bool isPortuguese()
{
    return currentLanguage() == kPortuguese;
}

QString translated(const QString &english, const QString &portuguese)
{
    return isPortuguese() ? portuguese : english;
}
