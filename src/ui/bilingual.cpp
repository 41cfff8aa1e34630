#include "ui/bilingual.h"

#include "app/language.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QEvent>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QTabWidget>
#include <QVariant>

namespace {

constexpr int kRoleCount = 5;

QByteArray propertyName(TextRole role, bool portuguese)
{
    return QByteArrayLiteral("qrlText_") + QByteArray::number(static_cast<int>(role)) +
           (portuguese ? QByteArrayLiteral("_pt") : QByteArrayLiteral("_en"));
}

void setTabTitle(QWidget *page, const QString &text)
{
    for (QWidget *parent = page->parentWidget(); parent; parent = parent->parentWidget()) {
        if (auto *tabs = qobject_cast<QTabWidget *>(parent)) {
            const int index = tabs->indexOf(page);
            if (index >= 0)
                tabs->setTabText(index, text);
            return;
        }
    }
}

void applyText(QObject *object, TextRole role, const QString &text)
{
    switch (role) {
    case TextRole::Text:
        if (auto *menu = qobject_cast<QMenu *>(object))
            menu->setTitle(text);
        else if (auto *action = qobject_cast<QAction *>(object))
            action->setText(text);
        else if (auto *label = qobject_cast<QLabel *>(object))
            label->setText(text);
        else if (auto *button = qobject_cast<QAbstractButton *>(object))
            button->setText(text);
        else if (auto *group = qobject_cast<QGroupBox *>(object))
            group->setTitle(text);
        break;
    case TextRole::Placeholder:
        if (auto *edit = qobject_cast<QLineEdit *>(object))
            edit->setPlaceholderText(text);
        break;
    case TextRole::ToolTip:
        if (auto *action = qobject_cast<QAction *>(object))
            action->setToolTip(text);
        else if (auto *widget = qobject_cast<QWidget *>(object))
            widget->setToolTip(text);
        break;
    case TextRole::WindowTitle:
        if (auto *widget = qobject_cast<QWidget *>(object))
            widget->setWindowTitle(text);
        break;
    case TextRole::TabTitle:
        if (auto *widget = qobject_cast<QWidget *>(object))
            setTabTitle(widget, text);
        break;
    }
}

void applyItemTexts(QComboBox *box, const QStringList &texts)
{
    for (int i = 0; i < texts.size() && i < box->count(); ++i)
        box->setItemText(i, texts.at(i));
}

void applyObjectTexts(QObject *object)
{
    const bool portuguese = isPortuguese();
    if (auto *box = qobject_cast<QComboBox *>(object)) {
        const QVariant items = box->property(portuguese ? "qrlItems_pt" : "qrlItems_en");
        if (items.isValid())
            applyItemTexts(box, items.toStringList());
    }
    for (int role = 0; role < kRoleCount; ++role) {
        const QVariant text = object->property(propertyName(TextRole(role), portuguese));
        if (text.isValid())
            applyText(object, TextRole(role), text.toString());
    }
}

} // namespace

void bindText(QObject *object, const QString &english, const QString &portuguese, TextRole role)
{
    if (!object)
        return;
    object->setProperty(propertyName(role, false), english);
    object->setProperty(propertyName(role, true), portuguese);
    applyText(object, role, translated(english, portuguese));
}

void bindItemTexts(QComboBox *box, const QStringList &english, const QStringList &portuguese)
{
    if (!box)
        return;
    box->setProperty("qrlItems_en", english);
    box->setProperty("qrlItems_pt", portuguese);
    applyItemTexts(box, isPortuguese() ? portuguese : english);
}

void applyBoundTexts(QObject *root)
{
    if (!root)
        return;
    applyObjectTexts(root);
    const QList<QObject *> children = root->findChildren<QObject *>();
    for (QObject *child : children)
        applyObjectTexts(child);
}

void retranslateAllWindows()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows)
        applyBoundTexts(window);
    // QWidget passes the event on to its children, so each window reaches every panel.
    for (QWidget *window : windows) {
        QEvent event(QEvent::LanguageChange);
        QCoreApplication::sendEvent(window, &event);
    }
}
