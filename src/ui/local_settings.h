#pragma once

#include "ui/shortcuts.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// The local settings file "local.json": one JSON object holding every piece of user state that is
// not a watchlist or a key. The window supplies the values it owns; every other key read from the
// file (state of panels this version does not have, or has not loaded yet) is written back as it
// was, so no version ever loses another's data.

// The keys in the order they are written; keys outside this list follow in alphabetical order.
const QStringList &localSettingsKeyOrder();

// Indented JSON of `object` with the keys of `order` first, in that order.
QByteArray orderedJsonText(const QJsonObject &object, const QStringList &order);

// The keys a workspace snapshot holds: the layout of the window, never alerts, portfolios, provider
// health, the account session or sync state.
const QStringList &workspaceSnapshotKeys();
// The snapshot keys of `settings` that it has.
QJsonObject workspaceSnapshotOf(const QJsonObject &settings);

// The values of a settings document that the window itself applies, after the acceptance rules.
// An empty optional, list or geometry leaves the window's current value in place: a missing key, a
// value of the wrong type and a rejected value all keep what is there.
struct WorkspaceValues
{
    std::optional<QString> language;       // "en" or "pt_BR"
    std::optional<QString> theme;          // "coffee_dark" or "qrl_light"
    std::optional<QString> chartMode;      // "line" or "candle"
    std::optional<QString> chartTimeframe; // one of the chart selector's entries
    QByteArray windowGeometry;             // as the toolkit saves it
    std::optional<QSet<int>> hiddenColumns;
    std::optional<ShortcutOverrides> shortcuts;
    QList<int> leftSplitterSizes;          // market table, chart, console
    QList<int> workspaceSplitterSizes;     // left column, side tabs
    std::optional<double> bookStep;        // the order book's price step, 0 for raw levels
    std::optional<QString> bookPreset;     // raw, tight, normal or wide
    std::optional<QJsonObject> indicators; // the chart's indicator settings
    std::optional<QJsonObject> drawings;   // "SYMBOL|timeframe" -> drawings of that chart
    std::optional<QString> moversScope;    // any id the panel does not list is crypto
    std::optional<QString> moversInterval; // hour, day, week or month
    std::optional<QString> moversSector;   // "all" or a sector name
    std::optional<double> moversMinVolume;
    std::optional<double> moversMinTurnover;
};

// `timeframes` are the entries the chart's timeframe selector offers, matched case-sensitively.
WorkspaceValues readWorkspaceValues(const QJsonObject &document, const QStringList &timeframes);
// The document form of a complete set of values, as "local.json" and the snapshot store them.
QJsonObject workspaceValuesToJson(const WorkspaceValues &values);

inline constexpr int kLeftSplitterPanes = 3;
inline constexpr int kWorkspaceSplitterPanes = 2;
// Splitter sizes from a stored array: exactly `panes` whole numbers, each a plausible pixel size;
// anything else gives an empty list.
QList<int> readSplitterSizes(const QJsonValue &value, int panes);

// The number of stored price alerts, and the token of a stored account session (empty when none).
int storedAlertCount(const QJsonObject &settings);
QString storedSessionToken(const QJsonObject &settings);

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

    // Values the window does not own yet (a loaded snapshot's panel settings) join the stored
    // object and reach the file with the next save.
    void carry(const QJsonObject &values);
    // Drops a key from the stored object; the next save writes the file without it.
    void forget(const QString &key);

    const QJsonObject &stored() const { return m_stored; }
    bool readCorruptFile() const { return !m_corruptBytes.isNull(); }
    // How many times the file was written by this object.
    int writeCount() const { return m_writeCount; }

private:
    QJsonObject m_stored;
    QByteArray m_corruptBytes;
    int m_writeCount = 0;
};
