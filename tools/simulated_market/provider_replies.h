#pragma once

#include "loopback_http/http_server.h"
#include "simulated_market/binance_exchange.h"
#include "simulated_market/instruments.h"
#include "simulated_market/price_walk.h"

#include <QLocale>
#include <QString>
#include <QtGlobal>

#include <cmath>
#include <optional>

// The replies of each simulated provider, in the shape the real service gives them: key names and
// order, numbers as numbers or as strings with the service's decimals, and the service's own way of
// saying it does not know a symbol.

struct MarketContext
{
    const PriceWalk &walk;
    const InstrumentCatalogue &catalogue;
    const BinanceExchange &binance;
    qint64 step; // every price of one reply is taken at this step

    qint64 now() const { return walk.epochSecondsOf(step); }
};

inline int priceDecimals(const Instrument &instrument)
{
    return instrumentProfile(instrument.symbol).priceDecimals;
}

inline double roundTo(double value, int decimals)
{
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

// "147.48 - 150.395": the shortest form of each end.
inline QString priceRange(double low, double high, int decimals)
{
    const auto text = [decimals](double value) {
        return QString::number(roundTo(value, decimals), 'f', QLocale::FloatingPointShortest);
    };
    return text(low) + QStringLiteral(" - ") + text(high);
}

// The day with its prices rounded to the instrument's decimals, so that changes computed from it
// agree with the prices shown beside them.
inline DaySummary roundedDay(const MarketContext &market, const Instrument &instrument)
{
    const int decimals = priceDecimals(instrument);
    DaySummary day = market.walk.day(instrument.symbol, market.step);
    for (double *price : {&day.price, &day.open, &day.high, &day.low, &day.previousClose})
        *price = roundTo(*price, decimals);
    day.volume = std::round(day.volume);
    return day;
}

// Yahoo Finance
HttpResponse yahooChartReply(const MarketContext &market, const HttpRequest &request);
HttpResponse yahooQuoteReply(const MarketContext &market, const HttpRequest &request);
HttpResponse yahooSearchReply(const MarketContext &market, const HttpRequest &request);
// The session behind the batch quote: the cookie host's root (a 404 page that sets the A3 cookie)
// and /v1/test/getcrumb, whose crumb belongs to the A3 cookie sent.
HttpResponse yahooCookieReply(const MarketContext &market, const HttpRequest &request);
HttpResponse yahooCrumbReply(const MarketContext &market, const HttpRequest &request);
QString yahooCrumbFor(const QByteArray &cookieValue);
// The batch quote's 401 when the request lacks the A3 cookie or its crumb; nothing when both fit.
std::optional<HttpResponse> yahooSessionRefusal(const HttpRequest &request);

// BrAPI
HttpResponse brapiQuoteReply(const MarketContext &market, const HttpRequest &request);

// Binance
HttpResponse binanceTickerReply(const MarketContext &market, const HttpRequest &request);
HttpResponse binancePriceReply(const MarketContext &market, const HttpRequest &request);
HttpResponse binanceExchangeInfoReply(const MarketContext &market, const HttpRequest &request);
HttpResponse binanceDepthReply(const MarketContext &market, const HttpRequest &request);
HttpResponse binanceKlinesReply(const MarketContext &market, const HttpRequest &request);

// The keyed services
HttpResponse finnhubQuoteReply(const MarketContext &market, const HttpRequest &request);
HttpResponse twelveDataQuoteReply(const MarketContext &market, const HttpRequest &request);
HttpResponse fmpQuoteReply(const MarketContext &market, const HttpRequest &request);
HttpResponse alphaVantageReply(const MarketContext &market, const HttpRequest &request);
// GET /query?function=TOP_GAINERS_LOSERS&apikey=..; alphaVantageReply passes it on once the key
// is checked.
HttpResponse alphaVantageMoversReply(const MarketContext &market, const HttpRequest &request);

// The news
HttpResponse houseNewsReply(const MarketContext &market, const HttpRequest &request);
HttpResponse newsApiEverythingReply(const MarketContext &market, const HttpRequest &request);
HttpResponse yahooHeadlineFeedReply(const MarketContext &market, const HttpRequest &request);
