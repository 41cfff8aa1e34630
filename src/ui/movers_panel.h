#pragma once

#include "overview/movers.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QWidget>

class MoversMosaic;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QMenu;
class QTableWidget;

// The five filters of the movers panel, as the settings keep them.
struct MoversFilters
{
    QString scope = QStringLiteral("crypto");
    QString interval = QStringLiteral("hour");
    QString sector = QStringLiteral("all");
    double minimumVolume = 0;
    double minimumTurnover = 0;
};

// The Movers tab: scope, interval, sector and the two minimums; the breadth tiles; the mosaic; the
// gainers and losers tables. It shows what it is given and reports what the user asked for.
class MoversPanel : public QWidget
{
    Q_OBJECT

public:
    enum class Action {
        OpenChart,
        AddToWatchlist,
        CreateAlert,
    };

    explicit MoversPanel(QWidget *parent = nullptr);

    MoversFilters filters() const;
    // Sets the selectors and boxes without reporting a change; unknown ids keep the current one
    // (an unknown scope is the crypto scope).
    void setFilters(const MoversFilters &filters);
    // The sector choices: "All sectors" and the given names, sorted; the selection stays when it
    // is still listed, else it becomes "all".
    void setSectors(const QStringList &sectors);

    void showMovers(const MoversView &view);
    // The row menu offers "Create alert" only where price alerts exist.
    void setAlertActionAvailable(bool available) { m_alertActionAvailable = available; }
    void applyTheme(const QString &themeId);

    MoversMosaic *mosaic() const { return m_mosaic; }
    QTableWidget *gainersTable() const { return m_tables[0]; }
    QTableWidget *losersTable() const { return m_tables[1]; }
    QList<QLabel *> breadthLabels() const { return m_tiles; }
    QComboBox *scopeSelector() const { return m_scope; }
    QComboBox *intervalSelector() const { return m_interval; }
    QComboBox *sectorSelector() const { return m_sector; }
    QDoubleSpinBox *minimumVolumeBox() const { return m_minimumVolume; }
    QDoubleSpinBox *minimumTurnoverBox() const { return m_minimumTurnover; }

    // The menu of a gainers or losers row (selected by this), acting on the symbol the row holds
    // now; null for no row. The caller shows and deletes it.
    QMenu *createRowMenu(QTableWidget *table, int row);

signals:
    void filtersChanged();
    void symbolAction(const QString &symbol, MoversPanel::Action action);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void fillTable(QTableWidget *table, const QList<MoverRecord> &records);
    void setTiles(const QList<BreadthTile> &tiles);
    void refillSelectors();
    void retranslate();

    QLabel *m_title = nullptr;
    QComboBox *m_scope = nullptr;
    QComboBox *m_interval = nullptr;
    QComboBox *m_sector = nullptr;
    QDoubleSpinBox *m_minimumVolume = nullptr;
    QDoubleSpinBox *m_minimumTurnover = nullptr;
    QList<QLabel *> m_tiles;
    QList<QString> m_tileColors;
    MoversMosaic *m_mosaic = nullptr;
    QLabel *m_tableTitles[2] = {};
    QTableWidget *m_tables[2] = {};
    QStringList m_sectors;
    MoversView m_view;
    bool m_hasView = false;
    QString m_theme;
    bool m_settingFilters = false;
    bool m_alertActionAvailable = false;
};
