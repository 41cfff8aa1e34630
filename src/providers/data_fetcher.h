#pragma once

#include "providers/quote_snapshot.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QNetworkRequest>
#include <QString>

#include <optional>

// One public market-data HTTP API: how to ask it for one symbol's quote and how to read the answer.
// Fetchers are immutable after construction and may be shared by several pending requests; the
// cascade issues the request, classifies the reply and calls parseQuote() only on a usable one.
// Every failure to read gives no quote, never an error text.
class DataFetcher
{
public:
    virtual ~DataFetcher() = default;
    virtual QString displayName() const = 0;
    // A GET request carrying exactly one header, the fetcher user agent; keys travel in the query.
    virtual QNetworkRequest buildRequest(const QString &symbol) const = 0;
    virtual std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                                    const QByteArray &body) const = 0;
};

class BinanceFetcher : public DataFetcher
{
public:
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;
};

class BrAPIFetcher : public DataFetcher
{
public:
    BrAPIFetcher(QString token, QString interval, QString range);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_token;
    QString m_interval;
    QString m_range;
};

class AlphaVantageFetcher : public DataFetcher
{
public:
    explicit AlphaVantageFetcher(QString apiKey);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_apiKey;
};

class FinnhubFetcher : public DataFetcher
{
public:
    explicit FinnhubFetcher(QString apiKey);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_apiKey;
};

class TwelveDataFetcher : public DataFetcher
{
public:
    explicit TwelveDataFetcher(QString apiKey);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_apiKey;
};

class FinancialModelingPrepFetcher : public DataFetcher
{
public:
    explicit FinancialModelingPrepFetcher(QString apiKey);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_apiKey;
};

class YahooFetcher : public DataFetcher
{
public:
    YahooFetcher(QString interval, QString range);
    QString displayName() const override;
    QNetworkRequest buildRequest(const QString &symbol) const override;
    std::optional<QuoteSnapshot> parseQuote(const QString &symbol,
                                            const QByteArray &body) const override;

private:
    QString m_interval;
    QString m_range;
};

// Number readers shared by the parsers.

// A string with every "%" removed and converted (0.0 when it does not convert), else the JSON
// number (0.0 when absent or not a number). So "-0.4512%" reads as -0.4512.
double lenientNumber(const QJsonValue &value);
// Binance sends every price as a string; a plain number is read too.
double stringNumber(const QJsonValue &value);
// The last element of the array that is a number, walking back over nulls; 0.0 when none.
double lastNumericEntry(const QJsonArray &values);

// The fields of an Alpha Vantage quote reply ("Global Quote", or its delayed-data twin).
QJsonObject alphaVantageGlobalQuote(const QJsonObject &reply);
