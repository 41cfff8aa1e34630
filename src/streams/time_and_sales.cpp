#include "streams/time_and_sales.h"

#include "app/language.h"

#include <QDateTime>

#include <cmath>
#include <limits>

namespace {

const QString kBuyColor = QStringLiteral("#20c878");
const QString kSellColor = QStringLiteral("#f45d5d");
const QString kUnknownChangeColor = QStringLiteral("#f2c078");

} // namespace

const QStringList &tapeSideIds()
{
    static const QStringList ids{QStringLiteral("all"), QStringLiteral("buy"),
                                 QStringLiteral("sell"), QStringLiteral("quote")};
    return ids;
}

QString tapeSideLabel(const QString &sideId)
{
    if (sideId == QLatin1String("all"))
        return translated(QStringLiteral("All"), QStringLiteral("Todos"));
    if (sideId == QLatin1String("buy"))
        return translated(QStringLiteral("Buy"), QStringLiteral("Compra"));
    if (sideId == QLatin1String("sell"))
        return translated(QStringLiteral("Sell"), QStringLiteral("Venda"));
    if (sideId == QLatin1String("quote"))
        return translated(QStringLiteral("Quote"), QStringLiteral("Cotação"));
    return sideId;
}

QString tapePriceText(double price)
{
    if (!std::isfinite(price))
        return QStringLiteral("--");
    return QString::number(price, 'f', price >= 1000 ? 2 : 4);
}

QString tapeSizeText(double size)
{
    return std::isfinite(size) ? QString::number(size, 'f', 5) : QStringLiteral("--");
}

bool TapeFilter::admits(const TapeRow &row) const
{
    if (side == QLatin1String("buy") || side == QLatin1String("sell")) {
        if (row.side != tapeSideLabel(side))
            return false;
    } else if (side == QLatin1String("quote")) {
        if (!row.side.startsWith(tapeSideLabel(side)))
            return false;
    }
    const double minimum = std::isnan(minimumSize) ? 0 : minimumSize;
    if (std::isfinite(row.size))
        return row.size >= minimum;
    // Quote rows carry no size: a minimum hides them.
    return minimum <= 0;
}

TapeRow tradeTapeRow(double price, double quantity, qint64 timeMs, bool buyerIsMaker)
{
    // Trades come thousands a second in a burst: the time text of a second and the side labels of
    // a language are made once, and the rows share them.
    static qint64 shownSecond = std::numeric_limits<qint64>::min();
    static QString shownTime;
    static QString labelsLanguage;
    static QString buyLabel;
    static QString sellLabel;
    const qint64 second = timeMs >= 0 ? timeMs / 1000 : (timeMs - 999) / 1000;
    if (second != shownSecond) {
        shownTime =
                QDateTime::fromMSecsSinceEpoch(second * 1000).toString(QStringLiteral("HH:mm:ss"));
        shownSecond = second;
    }
    if (const QString language = interfaceLanguage(); language != labelsLanguage) {
        buyLabel = tapeSideLabel(QStringLiteral("buy"));
        sellLabel = tapeSideLabel(QStringLiteral("sell"));
        labelsLanguage = language;
    }
    TapeRow row;
    row.time = shownTime;
    row.price = price;
    row.size = quantity;
    // The maker bought, so the aggressor sold.
    row.side = buyerIsMaker ? sellLabel : buyLabel;
    row.color = buyerIsMaker ? kSellColor : kBuyColor;
    return row;
}

TapeRow quoteTapeRow(double price, double changePercent, const QString &note,
                     const QStringList &extraNotes, const QString &time)
{
    QString notes = note;
    for (const QString &extra : extraNotes) {
        const QString text = extra.trimmed();
        if (!text.isEmpty() && text != QLatin1String("--"))
            notes += QStringLiteral(" ") + text;
    }
    TapeRow row;
    row.time = time;
    row.price = price;
    row.side =
            QStringLiteral("%1  %2").arg(tapeSideLabel(QStringLiteral("quote")), notes.trimmed());
    if (!std::isfinite(changePercent))
        row.color = kUnknownChangeColor;
    else
        row.color = changePercent >= 0 ? kBuyColor : kSellColor;
    return row;
}

bool TimeAndSales::add(const TapeRow &row)
{
    if (!m_filter.admits(row))
        return false;
    m_rows.push_front(row);
    while (m_rows.size() > std::size_t(kTapeRowLimit))
        m_rows.pop_back();
    ++m_admitted;
    return true;
}

void TimeAndSales::clear()
{
    m_rows.clear();
    ++m_generation;
}
