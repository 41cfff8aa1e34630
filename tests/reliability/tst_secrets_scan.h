#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// What the secrets test looks through: every text a person could read on screen, every file the
// terminal left behind, every line it wrote to the message log.

// One piece of text and where it was found ("QLabel#quoteTitle", "config/local.json").
struct FoundText
{
    QString where;
    QString text;
};

// Every text of every widget alive: titles, labels, buttons, plain (not password) line edits,
// text edits, combo items, tab texts, item-view cells and headers with their tooltips, actions,
// tooltips and status tips, and the status bar's current message.
QList<FoundText> widgetTexts();

// Every file under `folder`, recursively, named relative to it; the file's name is part of what is
// looked at. `skip` (relative names) are left out.
QList<FoundText> folderFiles(const QString &folder, const QStringList &skip = {});

// Collects every qDebug/qInfo/qWarning/qCritical line from construction to destruction, then passes
// it on to the handler that was there before.
class MessageCapture
{
public:
    MessageCapture();
    ~MessageCapture();
    MessageCapture(const MessageCapture &) = delete;
    MessageCapture &operator=(const MessageCapture &) = delete;

    QStringList lines() const;
};

// The leaks in `found`: each text that still holds `marker` (case-insensitive) once the texts in
// `allowed` are taken out, as "where: text" (cut short).
QStringList leaksIn(const QList<FoundText> &found, const QString &marker,
                    const QStringList &allowed = {});
