#pragma once

#include <QString>
#include <QStringList>

class QComboBox;
class QObject;
class QWidget;

// Texts that follow the interface language. A widget, action or menu gets both texts once, where it
// is built; every language change sets them again, so the window never has to know a panel's
// widgets one by one. Widgets whose texts are computed (headers with numbers, status words) handle
// QEvent::LanguageChange in their changeEvent instead.

enum class TextRole {
    Text,        // QAction/QLabel/QAbstractButton text, QMenu/QGroupBox title
    Placeholder, // QLineEdit placeholder
    ToolTip,
    WindowTitle,
    TabTitle, // the page's title in the QTabWidget that holds it
};

void bindText(QObject *object, const QString &english, const QString &portuguese,
              TextRole role = TextRole::Text);

// The item texts of a selector, in item order; items keep their data and the current index.
void bindItemTexts(QComboBox *box, const QStringList &english, const QStringList &portuguese);

// Sets every bound text under `root` (included) in the current language.
void applyBoundTexts(QObject *root);

// After the language changed: sets the bound texts of every window and sends QEvent::LanguageChange
// through every widget, so panels with computed texts rebuild them.
void retranslateAllWindows();
