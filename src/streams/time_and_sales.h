#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <deque>

// The tape's rules that need no widget: side labels, the two filters, the quote-row texts and the
// bounded list of rows, newest first. The list changes at once when a row arrives; whoever shows it
// asks what changed since it last looked, so a burst of trades costs one repaint.

inline constexpr int kTapeRowLimit = 200;

// Side ids, in selector order: all, buy, sell, quote.
const QStringList &tapeSideIds();
// "All"/"Todos", "Buy"/"Compra", "Sell"/"Venda", "Quote"/"Cotação", in the current language; an
// unknown id is returned unchanged.
QString tapeSideLabel(const QString &sideId);

struct TapeRow
{
    QString time;          // "HH:mm:ss"
    double price = qQNaN();
    double size = qQNaN(); // NaN for quote rows
    QString side;          // side label or "Quote  note..."
    QString color;         // "#20c878", "#f45d5d", "#f2c078"
};

// Time, price, size texts as the table shows them: price with 2 decimals from 1000 up and 4 below,
// size with 5 decimals or "--".
QString tapePriceText(double price);
QString tapeSizeText(double size);

struct TapeFilter
{
    QString side = QStringLiteral("all");
    double minimumSize = 0;

    // Side: buy and sell match the label exactly, quote matches the start of the text. Size: a
    // finite size must not be below the minimum; a missing size passes only while the minimum is 0
    // or less. Labels are those of the current language.
    bool admits(const TapeRow &row) const;
};

// A trade print: side label of buy or sell and its colour, time from epoch milliseconds (local).
TapeRow tradeTapeRow(double price, double quantity, qint64 timeMs, bool buyerIsMaker);
// A quote print for a non-crypto tape: colour by change (unknown change in "#f2c078"), side text
// "Quote  <note> <extra>..." with empty and "--" extras left out, `time` as given (the caller's
// local clock), no size.
TapeRow quoteTapeRow(double price, double changePercent, const QString &note,
                     const QStringList &extraNotes, const QString &time);

// The tape's rows, newest first, at most kTapeRowLimit. add() applies the filter in force when the
// row arrives; rows already in the list stay when the filter changes.
class TimeAndSales
{
public:
    void setFilter(const TapeFilter &filter) { m_filter = filter; }
    const TapeFilter &filter() const { return m_filter; }

    bool add(const TapeRow &row); // false when the filter refused it
    void clear();

    int size() const { return int(m_rows.size()); }
    const TapeRow &at(int index) const { return m_rows.at(std::size_t(index)); } // 0 is the newest
    // Rows admitted since the list was created, a counter that only grows (clear() included), so a
    // view that remembers it knows how many rows arrived since it last looked.
    quint64 admitted() const { return m_admitted; }
    // Counts clear() calls, so a view knows its rows are gone.
    quint64 generation() const { return m_generation; }

private:
    TapeFilter m_filter;
    std::deque<TapeRow> m_rows;
    quint64 m_admitted = 0;
    quint64 m_generation = 0;
};
