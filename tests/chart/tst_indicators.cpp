#include "chart/indicators.h"

#include <QJsonDocument>
#include <QTest>

#include <cmath>
#include <ctime>

namespace {

const double kNaN = qQNaN();

Candle candleAt(qint64 time, double high, double low, double close, double volume)
{
    return Candle{time, close, high, low, close, volume};
}

QList<Candle> closes(const QList<double> &values)
{
    QList<Candle> candles;
    for (qsizetype i = 0; i < values.size(); ++i)
        candles.append(candleAt(1700000000 + i * 60, values[i] + 1, values[i] - 1, values[i], 1));
    return candles;
}

// Entries agree when both are NaN or both lie within 1e-9.
bool sameSeries(const IndicatorSeries &actual, const IndicatorSeries &expected)
{
    if (actual.size() != expected.size())
        return false;
    for (qsizetype i = 0; i < actual.size(); ++i) {
        if (std::isnan(actual[i]) != std::isnan(expected[i]))
            return false;
        if (!std::isnan(expected[i]) && std::abs(actual[i] - expected[i]) > 1e-9)
            return false;
    }
    return true;
}

QByteArray describe(const IndicatorSeries &series)
{
    QStringList parts;
    for (double value : series)
        parts.append(QString::number(value, 'g', 12));
    return parts.join(QLatin1Char(' ')).toLatin1();
}

bool sameValue(double actual, double expected)
{
    return sameSeries({actual}, {expected});
}

QJsonObject objectFrom(const char *text)
{
    return QJsonDocument::fromJson(QByteArray(text)).object();
}

} // namespace

class IndicatorsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void seriesMatchHandWorkedValues_data();
    void seriesMatchHandWorkedValues();
    void signalSkipsMissingMacdEntries();
    void vwapRestartsAtLocalMidnight_data();
    void vwapRestartsAtLocalMidnight();
    void tableValuesFollowTheSettings_data();
    void tableValuesFollowTheSettings();
    void settingsAreClampedWhenRead_data();
    void settingsAreClampedWhenRead();
    void settingsRoundTripAllKeys();
    void legendNamesTheEnabledIndicators_data();
    void legendNamesTheEnabledIndicators();
};

void IndicatorsTest::initTestCase()
{
    // Three hours west of UTC, no daylight saving: local midnight is 03:00 UTC.
    qputenv("TZ", "<-03>3");
    tzset();
}

void IndicatorsTest::seriesMatchHandWorkedValues_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QList<double>>("closeValues");
    QTest::addColumn<QList<double>>("expected");
    const QList<double> nineteen(19, 5.0);
    QTest::newRow("sma 3") << "sma3" << QList<double>{1, 2, 3, 4, 5}
                           << QList<double>{kNaN, kNaN, 2, 3, 4};
    QTest::newRow("sma warm-up: 19 candles with period 20")
            << "sma20" << nineteen << QList<double>(19, kNaN);
    QTest::newRow("ema 3 seeded with the first close")
            << "ema3" << QList<double>{10, 20, 10} << QList<double>{10, 15, 12.5};
    QTest::newRow("ema of one candle") << "ema3" << QList<double>{42} << QList<double>{42};
    QTest::newRow("ema of nothing") << "ema3" << QList<double>{} << QList<double>{};
    QTest::newRow("macd 1/3") << "macd" << QList<double>{10, 20, 10} << QList<double>{0, 5, -2.5};
    QTest::newRow("macd signal 3")
            << "signal" << QList<double>{10, 20, 10} << QList<double>{0, 2.5, 0};
    QTest::newRow("macd of one candle") << "macd" << QList<double>{42} << QList<double>{0};
    QTest::newRow("signal of one candle") << "signal" << QList<double>{42} << QList<double>{0};
}

void IndicatorsTest::seriesMatchHandWorkedValues()
{
    QFETCH(QString, kind);
    QFETCH(QList<double>, closeValues);
    QFETCH(QList<double>, expected);
    const QList<Candle> candles = closes(closeValues);
    IndicatorSeries actual;
    if (kind == QLatin1String("sma3"))
        actual = smaSeries(candles, 3);
    else if (kind == QLatin1String("sma20"))
        actual = smaSeries(candles, 20);
    else if (kind == QLatin1String("ema3"))
        actual = emaSeries(candles, 3);
    else if (kind == QLatin1String("macd"))
        actual = macdLineSeries(candles, 1, 3);
    else
        actual = macdSignalSeries(macdLineSeries(candles, 1, 3), 3);
    QVERIFY2(sameSeries(actual, expected), describe(actual));
}

void IndicatorsTest::signalSkipsMissingMacdEntries()
{
    const IndicatorSeries signal = macdSignalSeries({kNaN, 4, kNaN, 8, qInf()}, 3);
    QVERIFY2(sameSeries(signal, {kNaN, 4, kNaN, 6, kNaN}), describe(signal));
    QVERIFY(sameValue(lastFinite(signal), 6));
    QVERIFY(std::isnan(lastFinite({kNaN, kNaN})));
    QVERIFY(std::isnan(lastFinite({})));
}

void IndicatorsTest::vwapRestartsAtLocalMidnight_data()
{
    QTest::addColumn<qint64>("unit");
    QTest::addColumn<bool>("session");
    QTest::addColumn<QList<double>>("expected");
    // Typical prices 10, 12, 20, 14 with volumes 1, 3, 2, 2; the third candle starts a new local
    // day although all four share one UTC date.
    QTest::newRow("anchored") << qint64(1) << false << QList<double>{10, 11.5, 86.0 / 6, 14.25};
    QTest::newRow("session, seconds") << qint64(1) << true << QList<double>{10, 11.5, 20, 17};
    QTest::newRow("session, milliseconds")
            << qint64(1000) << true << QList<double>{10, 11.5, 20, 17};
}

void IndicatorsTest::vwapRestartsAtLocalMidnight()
{
    QFETCH(qint64, unit);
    QFETCH(bool, session);
    QFETCH(QList<double>, expected);
    const qint64 newYearUtc = 1704067200; // 2024-01-01 00:00 UTC, 21:00 local the day before
    const QList<Candle> candles{
            candleAt((newYearUtc + 2 * 3600) * unit, 12, 8, 10, 1),
            candleAt((newYearUtc + 2 * 3600 + 1800) * unit, 15, 9, 12, 3),
            candleAt((newYearUtc + 3 * 3600 + 1800) * unit, 22, 18, 20, 2),
            candleAt((newYearUtc + 4 * 3600) * unit, 16, 12, 14, 2),
    };
    const IndicatorSeries vwap = vwapSeries(candles, session);
    QVERIFY2(sameSeries(vwap, expected), describe(vwap));
}

void IndicatorsTest::tableValuesFollowTheSettings_data()
{
    QTest::addColumn<QList<Candle>>("candles");
    QTest::addColumn<bool>("session");
    QTest::addColumn<double>("sma");
    QTest::addColumn<double>("ema");
    QTest::addColumn<double>("vwap");
    QTest::addColumn<double>("macd");
    // Periods: SMA 3, EMA 3, MACD 1/3.
    QTest::newRow("three candles")
            << closes({10, 20, 10}) << false << 40.0 / 3 << 12.5 << 40.0 / 3 << -2.5;
    QTest::newRow("too short for the sma")
            << closes({10, 20}) << false << kNaN << 15.0 << 15.0 << 5.0;
    QList<Candle> silent = closes({10, 20, 10});
    for (Candle &candle : silent)
        candle.volume = 0;
    QTest::newRow("zero volume") << silent << true << 40.0 / 3 << 12.5 << kNaN << -2.5;
    QTest::newRow("no candles") << QList<Candle>{} << false << kNaN << kNaN << kNaN << kNaN;
}

void IndicatorsTest::tableValuesFollowTheSettings()
{
    QFETCH(QList<Candle>, candles);
    QFETCH(bool, session);
    QFETCH(double, sma);
    QFETCH(double, ema);
    QFETCH(double, vwap);
    QFETCH(double, macd);
    IndicatorSettings settings;
    settings.smaPeriod = 3;
    settings.emaPeriod = 3;
    settings.macdFast = 1;
    settings.macdSlow = 3;
    settings.vwapSession = session;
    const IndicatorValues values = lastIndicatorValues(candles, settings);
    QVERIFY2(sameValue(values.sma, sma), QByteArray::number(values.sma));
    QVERIFY2(sameValue(values.ema, ema), QByteArray::number(values.ema));
    QVERIFY2(sameValue(values.vwap, vwap), QByteArray::number(values.vwap));
    QVERIFY2(sameValue(values.macd, macd), QByteArray::number(values.macd));
}

void IndicatorsTest::settingsAreClampedWhenRead_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("changes");
    QTest::newRow("fast above slow") << QByteArray(R"({"macd_fast": 30, "macd_slow": 10})")
                                     << QByteArray(R"({"macd_fast": 30, "macd_slow": 31})");
    QTest::newRow("fast equal to slow") << QByteArray(R"({"macd_fast": 26})")
                                        << QByteArray(R"({"macd_fast": 26, "macd_slow": 27})");
    QTest::newRow("fast beyond the maximum")
            << QByteArray(R"({"macd_fast": 500})")
            << QByteArray(R"({"macd_fast": 400, "macd_slow": 400})");
    QTest::newRow("fractional period")
            << QByteArray(R"({"sma_period": 25.7})") << QByteArray(R"({"sma_period": 25})");
    QTest::newRow("huge and negative periods")
            << QByteArray(R"({"sma_period": 1e300, "macd_signal": -4, "ema_period": 0.5})")
            << QByteArray(R"({"sma_period": 400, "macd_signal": 1, "ema_period": 1})");
    QTest::newRow("missing keys keep the current values")
            << QByteArray(R"({"vwap": false})") << QByteArray(R"({"vwap": false})");
    QTest::newRow("wrong types keep the current values")
            << QByteArray(R"({"sma20": "false", "ema_period": "7", "draw_hline": 1,
                             "macd_slow": null, "vwap_session": [true]})")
            << QByteArray("{}");
}

void IndicatorsTest::settingsAreClampedWhenRead()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, changes);
    IndicatorSettings settings;
    settings.sma = true;
    settings.vwap = true;
    settings.emaPeriod = 50;
    settings.showHLines = false;
    QJsonObject expected = settings.toJson();
    const QJsonObject changed = objectFrom(changes.constData());
    for (auto it = changed.begin(); it != changed.end(); ++it)
        expected.insert(it.key(), it.value());

    settings.readJson(objectFrom(json.constData()));
    QCOMPARE(settings.toJson(), expected);
}

void IndicatorsTest::settingsRoundTripAllKeys()
{
    IndicatorSettings settings;
    settings.sma = true;
    settings.ema = true;
    settings.vwap = true;
    settings.macd = true;
    settings.smaPeriod = 7;
    settings.emaPeriod = 8;
    settings.macdFast = 5;
    settings.macdSlow = 35;
    settings.macdSignal = 4;
    settings.vwapSession = true;
    settings.showHLines = false;
    settings.showVLines = false;
    settings.showTrends = false;
    const QJsonObject json = settings.toJson();
    QCOMPARE(json, objectFrom(R"({"sma20": true, "ema20": true, "vwap": true, "macd": true,
        "sma_period": 7, "ema_period": 8, "macd_fast": 5, "macd_slow": 35, "macd_signal": 4,
        "vwap_session": true, "draw_hline": false, "draw_vline": false, "draw_trend": false})"));

    IndicatorSettings read;
    read.readJson(json);
    QCOMPARE(read.toJson(), json);
    read.reset();
    QCOMPARE(read.toJson(), IndicatorSettings().toJson());
}

void IndicatorsTest::legendNamesTheEnabledIndicators_data()
{
    QTest::addColumn<QList<Candle>>("candles");
    QTest::addColumn<QByteArray>("enabled");
    QTest::addColumn<QString>("message");
    // Typical prices 10, 20, 10 with volumes 1, 1, 2.
    QList<Candle> candles = closes({10, 20, 10});
    candles[2].volume = 2;
    QTest::newRow("all four") << candles
                              << QByteArray(R"({"sma20": true, "ema20": true, "vwap": true,
                                               "macd": true})")
                              << "Indicators BTCUSDT SMA3=13.3333 | EMA3=12.5000 | "
                                 "VWAP(anchored)=12.5000 | MACD1/3/3=-2.5000 signal=0.0000";
    QTest::newRow("session vwap only")
            << candles << QByteArray(R"({"vwap": true, "vwap_session": true})")
            << "Indicators BTCUSDT VWAP(session)=12.5000";
    QTest::newRow("ema and macd") << candles << QByteArray(R"({"ema20": true, "macd": true})")
                                  << "Indicators BTCUSDT EMA3=12.5000 | "
                                     "MACD1/3/3=-2.5000 signal=0.0000";
    QTest::newRow("sma still warming up takes no earlier value")
            << closes({10, 20}) << QByteArray(R"({"sma20": true})")
            << "Indicators BTCUSDT SMA3=nan";
    QTest::newRow("none enabled") << candles << QByteArray("{}") << QString();
    QTest::newRow("no candles") << QList<Candle>{} << QByteArray(R"({"ema20": true})") << QString();
}

void IndicatorsTest::legendNamesTheEnabledIndicators()
{
    QFETCH(QList<Candle>, candles);
    QFETCH(QByteArray, enabled);
    QFETCH(QString, message);
    IndicatorSettings settings;
    settings.smaPeriod = 3;
    settings.emaPeriod = 3;
    settings.macdFast = 1;
    settings.macdSlow = 3;
    settings.macdSignal = 3;
    settings.readJson(objectFrom(enabled.constData()));
    QCOMPARE(indicatorLegendMessage(QStringLiteral("BTCUSDT"), candles, settings), message);
}

QTEST_GUILESS_MAIN(IndicatorsTest)
#include "tst_indicators.moc"
