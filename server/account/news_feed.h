#pragma once

#include "account/request_readers.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// The house news feed, read from the operator's JSON file:
//   {"domestic": [item...], "international": [item...], "crypto": [item...]}
// each item {"Titulo" or "title", "Texto" or "text", "Fonte" or "source", "Data" or "date",
// "Link" or "link"}. The file is read again whenever its modification time or size changes, so the
// operator can edit it while the service runs; a file that stops parsing keeps the last good list.
class NewsFeed
{
public:
    void setFile(const QString &path);
    QString file() const { return m_path; }

    // {"ok": true, "news": [{title, text, source, date, link, category}]}, newest first, with
    // category "domestic", "international" or "crypto" (names the terminal maps to br, us, crypto).
    QJsonObject reply(const account::NewsQuery &query);

    // The items of one file's text, in the order above; `ok` false when it is not such an object.
    static QJsonArray readItems(const QByteArray &text, bool *ok);

private:
    void reloadIfChanged();

    QString m_path;
    QDateTime m_modified;
    qint64 m_size = -1;
    QJsonArray m_items;
};
