#include "tst_secrets_scan.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDirIterator>
#include <QFile>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMutex>
#include <QPlainTextEdit>
#include <QStatusBar>
#include <QTabBar>
#include <QTextEdit>

#include <algorithm>

namespace {

QMutex capturedLock;
QStringList captured;
QtMessageHandler previousHandler = nullptr;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker locker(&capturedLock);
        captured << message;
    }
    if (previousHandler)
        previousHandler(type, context, message);
}

QString nameOf(const QObject *object)
{
    return QString::fromLatin1(object->metaObject()->className()) + QLatin1Char('#') +
           object->objectName();
}

void addModel(QList<FoundText> &found, const QString &where, const QAbstractItemModel *model,
              const QModelIndex &parent = {})
{
    if (!model)
        return;
    const int rows = model->rowCount(parent);
    const int columns = model->columnCount(parent);
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const QModelIndex index = model->index(row, column, parent);
            for (int role : {int(Qt::DisplayRole), int(Qt::ToolTipRole), int(Qt::StatusTipRole)})
                found.append({where, index.data(role).toString()});
            if (column == 0 && model->hasChildren(index))
                addModel(found, where, model, index);
        }
    }
    if (parent.isValid())
        return;
    for (Qt::Orientation orientation : {Qt::Horizontal, Qt::Vertical}) {
        const int count = orientation == Qt::Horizontal ? columns : rows;
        for (int section = 0; section < count; ++section) {
            for (int role : {int(Qt::DisplayRole), int(Qt::ToolTipRole)})
                found.append({where, model->headerData(section, orientation, role).toString()});
        }
    }
}

void addOwnText(QList<FoundText> &found, const QString &where, QWidget *widget)
{
    if (auto *label = qobject_cast<QLabel *>(widget)) {
        found.append({where, label->text()});
    } else if (auto *button = qobject_cast<QAbstractButton *>(widget)) {
        found.append({where, button->text()});
    } else if (auto *edit = qobject_cast<QLineEdit *>(widget)) {
        if (edit->echoMode() == QLineEdit::Normal)
            found.append({where, edit->text()});
        found.append({where, edit->placeholderText()});
    } else if (auto *text = qobject_cast<QTextEdit *>(widget)) {
        found.append({where, text->toPlainText()});
    } else if (auto *plain = qobject_cast<QPlainTextEdit *>(widget)) {
        found.append({where, plain->toPlainText()});
    } else if (auto *combo = qobject_cast<QComboBox *>(widget)) {
        found.append({where, combo->currentText()});
        addModel(found, where, combo->model());
    } else if (auto *view = qobject_cast<QAbstractItemView *>(widget)) {
        addModel(found, where, view->model());
    } else if (auto *tabs = qobject_cast<QTabBar *>(widget)) {
        for (int tab = 0; tab < tabs->count(); ++tab)
            found.append({where, tabs->tabText(tab) + QLatin1Char(' ') + tabs->tabToolTip(tab)});
    } else if (auto *group = qobject_cast<QGroupBox *>(widget)) {
        found.append({where, group->title()});
    } else if (auto *status = qobject_cast<QStatusBar *>(widget)) {
        found.append({where, status->currentMessage()});
    }
}

} // namespace

QList<FoundText> widgetTexts()
{
    QList<FoundText> found;
    for (QWidget *widget : QApplication::allWidgets()) {
        const QString where = nameOf(widget);
        for (const QString &text :
             {widget->windowTitle(), widget->toolTip(), widget->statusTip(), widget->whatsThis(),
              widget->accessibleName(), widget->accessibleDescription()})
            found.append({where, text});
        for (const QAction *action : widget->actions())
            found.append({where, action->text() + QLatin1Char(' ') + action->toolTip() +
                                         QLatin1Char(' ') + action->statusTip()});
        addOwnText(found, where, widget);
    }
    return found;
}

QList<FoundText> folderFiles(const QString &folder, const QStringList &skip)
{
    QList<FoundText> found;
    QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        const QString relative = path.mid(folder.size() + 1);
        if (skip.contains(relative))
            continue;
        QFile file(path);
        const QByteArray contents = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        found.append({relative, relative + QLatin1Char('\n') + QString::fromUtf8(contents)});
    }
    return found;
}

MessageCapture::MessageCapture()
{
    {
        QMutexLocker locker(&capturedLock);
        captured.clear();
    }
    previousHandler = qInstallMessageHandler(capture);
}

MessageCapture::~MessageCapture()
{
    qInstallMessageHandler(previousHandler);
    previousHandler = nullptr;
}

QStringList MessageCapture::lines() const
{
    QMutexLocker locker(&capturedLock);
    return captured;
}

QStringList leaksIn(const QList<FoundText> &found, const QString &marker,
                    const QStringList &allowed)
{
    QStringList leaks;
    for (const FoundText &item : found) {
        QString text = item.text;
        for (const QString &value : allowed)
            text.remove(value);
        const qsizetype at = text.indexOf(marker, 0, Qt::CaseInsensitive);
        if (at >= 0)
            leaks << item.where + QStringLiteral(": ") +
                             text.mid(std::max<qsizetype>(0, at - 60), 160);
    }
    return leaks;
}
