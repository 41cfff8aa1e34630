#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The local settings file "local.json": one JSON object holding every piece of user state that is
// not a watchlist or a key. The window supplies the values it owns; every other key read from the
// file (state of panels this version does not have, or has not loaded yet) is written back as it
// was, so no version ever loses another's data.

// The keys in the order they are written; keys outside this list follow in alphabetical order.
const QStringList &localSettingsKeyOrder();

// Indented JSON of `object` with the keys of `order` first, in that order.
QByteArray orderedJsonText(const QJsonObject &object, const QStringList &order);

class LocalSettingsFile
{
public:
    // The stored object. A missing file gives an empty object; a file that does not parse as an
    // object also gives one, and is kept aside as "local.json.corrupt" before the first save
    // replaces it.
    QJsonObject load();
    // Writes the stored object with `values` laid over it, atomically. False when it could not be
    // written; the previous file is then untouched.
    bool save(const QJsonObject &values);

    const QJsonObject &stored() const { return m_stored; }
    bool readCorruptFile() const { return !m_corruptBytes.isNull(); }

private:
    QJsonObject m_stored;
    QByteArray m_corruptBytes;
};
