#include "simulated_market/hashing.h"
#include "simulated_market/json_text.h"
#include "simulated_market/provider_replies.h"

#include <QDateTime>
#include <QSet>
#include <QTimeZone>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kListLength = 20;
// Small companies, warrants and units beside the catalogue's shares: they make the day's extremes,
// as on the real lists.
constexpr int kSmallCaps = 90;

struct Mover
{
    QString ticker;
    double price = 0.0;
    double previousClose = 0.0;
    qint64 volume = 0;

    double change() const { return price - previousClose; }
    double changePercent() const { return change() / previousClose * 100.0; }
};

// Alpha Vantage writes its numbers as Python prints them: the shortest form, "69.0" for a whole
// number.
QString pythonNumber(double value)
{
    if (value == 0.0)
        value = 0.0; // no "-0.0"
    QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    if (!text.contains(QLatin1Char('.')))
        text += QStringLiteral(".0");
    return text;
}

int moverDecimals(double price)
{
    return price < 1.0 ? 4 : 2;
}

// "JWSM+", "BWAQW", "CELG^": three or four letters, sometimes with a warrant's or unit's mark.
QString smallCapTicker(quint64 key)
{
    static const char *const marks[] = {"", "", "", "", "W", "+", "^", "U"};
    const int length = 3 + int(key % 2);
    QString ticker;
    for (int i = 0; i < length; ++i) {
        key = mix64(key);
        ticker += QLatin1Char(char('A' + key % 26));
    }
    return ticker + QLatin1String(marks[mix64(key, 1) % std::size(marks)]);
}

// A small cap moves like any share of the walk, only many times as far.
Mover smallCap(const MarketContext &market, const QString &ticker)
{
    const quint64 hash = mix64(market.walk.seed(), textHash(ticker));
    const InstrumentProfile profile = instrumentProfile(ticker);
    const double level = 0.0005 * std::pow(2e4, unitInterval(mix64(hash, 1)));
    const double leverage = 8.0 + 40.0 * unitInterval(mix64(hash, 2));
    const DaySummary day = market.walk.day(ticker, market.step);
    const double percent = std::max(-95.0, day.changePercent() * leverage);

    Mover mover;
    mover.ticker = ticker;
    mover.price = std::max(0.0001, level * day.price / profile.basePrice);
    const int decimals = moverDecimals(mover.price);
    mover.price = std::max(0.0001, roundTo(mover.price, decimals));
    mover.previousClose = std::max(0.0001, roundTo(mover.price / (1.0 + percent / 100.0), 4));
    mover.volume = qint64(99.0 * std::pow(1e6, unitInterval(mix64(hash, 3))) *
                          (1.0 + std::abs(percent) / 10.0));
    return mover;
}

QList<Mover> moversOfTheDay(const MarketContext &market)
{
    QList<Mover> movers;
    QSet<QString> taken;
    for (const Instrument &instrument : market.catalogue.instruments()) {
        if (instrument.kind != InstrumentKind::UsEquity &&
            instrument.kind != InstrumentKind::UsFund)
            continue;
        const DaySummary day = roundedDay(market, instrument);
        if (day.previousClose <= 0.0)
            continue;
        movers.append({instrument.symbol, day.price, day.previousClose, qint64(day.volume)});
        taken.insert(instrument.symbol);
    }
    int added = 0;
    for (quint64 attempt = 1; added < kSmallCaps && attempt <= 8 * kSmallCaps; ++attempt) {
        const QString ticker = smallCapTicker(mix64(market.walk.seed(), 1000 + attempt));
        if (taken.contains(ticker))
            continue;
        taken.insert(ticker);
        movers.append(smallCap(market, ticker));
        ++added;
    }
    return movers;
}

QByteArray moverJson(const Mover &mover)
{
    const int decimals = moverDecimals(mover.price);
    return OrderedJson()
            .text("ticker", mover.ticker)
            .text("price", pythonNumber(roundTo(mover.price, decimals)))
            .text("change_amount", pythonNumber(roundTo(mover.change(), 4)))
            .text("change_percentage",
                  pythonNumber(roundTo(mover.changePercent(), 4)) + QLatin1Char('%'))
            .text("volume", QString::number(mover.volume))
            .toJson(JsonLayout::Indented, 2);
}

// An array of objects inside the four-space document.
QByteArray indentedArray(const QList<Mover> &movers)
{
    if (movers.isEmpty())
        return "[]";
    QByteArray out = "[";
    for (qsizetype i = 0; i < movers.size(); ++i)
        out += (i > 0 ? ",\n        " : "\n        ") + moverJson(movers.at(i));
    return out + "\n    ]";
}

// "2024-03-08 16:15:59 US/Eastern": New York's wall clock, not ISO.
QString lastUpdated(qint64 epochSeconds)
{
    const QDateTime time = QDateTime::fromSecsSinceEpoch(
            epochSeconds, QTimeZone(QByteArrayLiteral("America/New_York")));
    return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" US/Eastern");
}

} // namespace

// The day's 20 best and worst changes and the 20 largest volumes among US shares, funds and small
// caps, every value a string.
HttpResponse alphaVantageMoversReply(const MarketContext &market, const HttpRequest &)
{
    QList<Mover> movers = moversOfTheDay(market);
    std::stable_sort(movers.begin(), movers.end(), [](const Mover &a, const Mover &b) {
        return a.changePercent() > b.changePercent();
    });
    const qsizetype count = std::min<qsizetype>(kListLength, movers.size() / 2);
    const QList<Mover> gainers = movers.first(count);
    QList<Mover> losers = movers.last(count);
    std::reverse(losers.begin(), losers.end());
    std::stable_sort(movers.begin(), movers.end(),
                     [](const Mover &a, const Mover &b) { return a.volume > b.volume; });
    const QList<Mover> active = movers.first(std::min<qsizetype>(kListLength, movers.size()));

    return HttpResponse::json(
            OrderedJson()
                    .text("metadata",
                          QStringLiteral("Top gainers, losers, and most actively traded US "
                                         "tickers"))
                    .text("last_updated", lastUpdated(market.now()))
                    .raw("top_gainers", indentedArray(gainers))
                    .raw("top_losers", indentedArray(losers))
                    .raw("most_actively_traded", indentedArray(active))
                    .toJson(JsonLayout::Indented));
}
