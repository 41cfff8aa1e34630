#pragma once

#include "streams/order_book.h"

#include <QFont>
#include <QHash>
#include <QKeySequence>
#include <QList>
#include <QWidget>

class FrameRenderer;
class QDoubleSpinBox;
class QGridLayout;
class QLabel;
class QPushButton;
class QTableWidget;

// One row of the QUOTE or STATS table of the fallback view.
struct BookFallbackRow
{
    QString field;
    QString value;
    QString source;
};

// The Book tab: a title, the BID/ASK/SPR/IMB tiles, the price step with its four presets, and two
// tables that show either the two sides of a depth ladder or the QUOTE/STATS fallback. It shows
// what it is given; the window decides which view applies and reacts to the step and presets.
//
// A ladder arrives as raw sides and is drawn at most once per screen frame: ten depth frames a
// second, or a hundred, cost one aggregation and one table fill per refresh of the screen.
class BookPanel : public QWidget
{
    Q_OBJECT

public:
    enum class View {
        Depth,
        Fallback
    };

    explicit BookPanel(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    QString title() const;

    // Empty tiles and tables; the tables keep their current view.
    void reset(const QString &title);
    // The ladder of the raw sides, aggregated by the current step, sizes with `sizeDecimals`.
    void showLadder(const DepthSides &sides, int sizeDecimals = 5);
    // The Level 2 form: five levels a side, metrics over all of them, sizes with 4 decimals.
    void showLevel2(const Level2Book &book);
    void showFallback(const QList<BookFallbackRow> &quoteRows,
                      const QList<BookFallbackRow> &statsRows);
    void setMetrics(const BookMetrics &metrics);
    View view() const { return m_view; }

    double step() const;
    // Sets the step box without reporting an edit.
    void setStep(double step);
    // Checks the presets whose step equals the box (each with its step at the current price),
    // and gives each button its label and a tooltip with its key.
    void refreshPresetButtons(const QHash<QString, double> &presetSteps,
                              const QHash<QString, QKeySequence> &keys);
    QString activePreset() const { return m_activePreset; }

    void applyTheme(const QString &themeId);

    // Draws a pending ladder now (before reading the tables).
    void flushPendingDraw();
    QTableWidget *askTable() const { return m_tables[0]; }
    QTableWidget *bidTable() const { return m_tables[1]; }
    QList<QLabel *> metricLabels() const { return m_tiles; }

signals:
    void presetClicked(const QString &presetId);
    // The user changed the step in the box.
    void stepEdited(double step);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void fitTiles();

private:
    void setView(View view);
    void arrangeTables();
    void retranslate();
    void drawLadder();
    void setTile(int index, const MetricTile &tile);
    void fillTable(QTableWidget *table, const QList<QStringList> &rows, const QString &color);

    View m_view = View::Depth;
    // In a narrow side pane the two ladders stand one above the other, asks on top, so prices and
    // sizes keep their whole width.
    bool m_stacked = false;
    QString m_theme = QStringLiteral("coffee_dark");
    QFont m_cellFont;
    QString m_activePreset;
    BookMetrics m_metrics;
    bool m_hasMetrics = false;
    QStringList m_tileColors; // as last set, so a theme change restyles with the same colours

    // The ladder waiting to be drawn.
    DepthSides m_pendingSides;
    Level2Book m_pendingLevel2;
    bool m_pendingIsLevel2 = false;
    int m_pendingSizeDecimals = 5;
    bool m_hasLadder = false;
    FrameRenderer *m_renderer;

    QLabel *m_title;
    QList<QLabel *> m_tiles; // BID, ASK, SPR, IMB
    QLabel *m_stepLabel;
    QDoubleSpinBox *m_stepBox;
    QList<QPushButton *> m_presetButtons; // raw, tight, normal, wide
    QGridLayout *m_tablesLayout;
    QLabel *m_tableTitles[2];
    QTableWidget *m_tables[2]; // asks or QUOTE on the left, bids or STATS on the right
};
