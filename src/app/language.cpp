#include "app/language.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

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

namespace {

// The toolkit's own texts (the Yes, No and Cancel of a message box, the buttons of an input
// dialog) follow the interface language through Qt's translations, when they are installed.
void applyToolkitTranslations(const QString &language)
{
    if (!QCoreApplication::instance())
        return;
    static QTranslator *translator = nullptr;
    if (translator) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
        translator = nullptr;
    }
    if (language != kPortuguese)
        return;
    auto *loaded = new QTranslator;
    if (loaded->load(QStringLiteral("qtbase_pt_BR"),
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(loaded);
        translator = loaded;
    } else {
        delete loaded;
    }
}

} // namespace

bool setInterfaceLanguage(const QString &code)
{
    const QString language = normalizedLanguageCode(code);
    if (language == currentLanguage())
        return false;
    currentLanguage() = language;
    applyToolkitTranslations(language);
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
