#pragma once

#include "market/market_row.h"

#include <QHash>
#include <QList>
#include <QWidget>

#include <vector>

class QLabel;
class QTableWidget;

// Sets the `direction` property the theme colours by ("up" from zero, "down", none when unknown).
void setChangeDirection(QWidget *widget, double changePercent);

// The quote header of the selected symbol: a strip of tiles with its last quote.
class QuoteHeader : public QWidget
{
    Q_OBJECT

public:
    explicit QuoteHeader(QWidget *parent = nullptr);

    // A symbol without a quote yet shows its name and placeholders.
    void showSymbol(const QString &symbol, const MarketQuote *quote);
    QString shownSymbol() const { return m_symbol; }

protected:
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QLabel *addTile(const char *name);
    void render();
    // The range tile shows as much of its text as fits, ending in "…".
    void fitRangeText();

    QString m_symbol;
    QString m_rangeText;
    bool m_hasQuote = false;
    MarketQuote m_quote;
    QLabel *m_symbolTile;
    QLabel *m_lastTile;
    QLabel *m_changeTile;
    QLabel *m_rangeTile;
    QLabel *m_sourceTile;
    QLabel *m_timeTile;
};

// The quote log of the selected symbol: every quote it received this session, newest first.
class QuoteLog : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kMaxEntries = 200;

    explicit QuoteLog(QWidget *parent = nullptr);

    // Every quote of every row is kept; the table shows the selected symbol's.
    void record(const MarketQuote &quote);
    void showSymbol(const QString &symbol);
    void forget(const QString &symbol);
    QString shownSymbol() const { return m_symbol; }
    QTableWidget *table() const { return m_table; }

protected:
    void changeEvent(QEvent *event) override;

private:
    void insertRow(int row, const MarketQuote &quote);
    void retranslate();

    QString m_symbol;
    struct QuoteRing
    {
        std::vector<MarketQuote> quotes; // at most kMaxEntries
        int oldest = 0;                  // where the oldest is once the ring is full
    };
    QHash<QString, QuoteRing> m_entries;
    QLabel *m_title;
    QTableWidget *m_table;
};
