#include "providers/quota_meter.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

namespace {

qint64 localMs(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second)).toMSecsSinceEpoch();
}

QuotaUsage usageOf(const QuotaMeter &meter, const QString &providerId, const QString &window)
{
    for (const QuotaUsage &usage : quotaUsage(meter)) {
        if (usage.providerId == providerId && usage.window == window)
            return usage;
    }
    return {};
}

} // namespace

class QuotaMeterTest : public QObject
{
    Q_OBJECT

private slots:
    void countsRollWithTheCalendar();
    void countsSurviveARestart();
    void wrongTypedJsonResets_data();
    void wrongTypedJsonResets();
    void onlyKeyedProvidersAreCounted();
    void usageColoursAsTheLimitNears_data();
    void usageColoursAsTheLimitNears();
};

void QuotaMeterTest::countsRollWithTheCalendar()
{
    qint64 now = localMs(2025, 3, 31, 23, 59, 5);
    QuotaMeter meter([&now] { return now; });
    for (int i = 0; i < 3; ++i)
        meter.count("twelvedata");
    now = localMs(2025, 3, 31, 23, 59, 55);
    meter.count("twelvedata");
    QCOMPARE(meter.minuteCount("twelvedata"), 4);
    QCOMPARE(meter.dayCount("twelvedata"), 4);
    QCOMPARE(meter.monthCount("twelvedata"), 4);

    // Midnight at the end of a month starts a new minute, day and month.
    now = localMs(2025, 4, 1, 0, 0, 10);
    QCOMPARE(meter.minuteCount("twelvedata"), 0);
    QCOMPARE(meter.dayCount("twelvedata"), 0);
    QCOMPARE(meter.monthCount("twelvedata"), 0);
    meter.count("twelvedata");
    QCOMPARE(meter.monthCount("twelvedata"), 1);

    // Midnight inside a month keeps the month's count.
    now = localMs(2025, 4, 1, 23, 59, 59);
    meter.count("twelvedata");
    now = localMs(2025, 4, 2, 0, 0, 1);
    meter.count("twelvedata");
    QCOMPARE(meter.minuteCount("twelvedata"), 1);
    QCOMPARE(meter.dayCount("twelvedata"), 1);
    QCOMPARE(meter.monthCount("twelvedata"), 3);
}

void QuotaMeterTest::countsSurviveARestart()
{
    qint64 now = localMs(2025, 5, 14, 10, 0, 0);
    QuotaMeter before([&now] { return now; });
    for (int i = 0; i < 5; ++i)
        before.count("alpha_vantage");
    before.count("marketstack");
    const QByteArray saved = QJsonDocument(before.toJson()).toJson();

    QuotaMeter after([&now] { return now; });
    after.fromJson(QJsonDocument::fromJson(saved).object());
    QCOMPARE(after.minuteCount("alpha_vantage"), 5);
    QCOMPARE(after.dayCount("alpha_vantage"), 5);
    QCOMPARE(after.monthCount("marketstack"), 1);

    // Started again the next day: the day is new, the month is not.
    now = localMs(2025, 5, 15, 9, 0, 0);
    QuotaMeter nextDay([&now] { return now; });
    nextDay.fromJson(QJsonDocument::fromJson(saved).object());
    QCOMPARE(nextDay.dayCount("alpha_vantage"), 0);
    QCOMPARE(nextDay.monthCount("alpha_vantage"), 5);
    nextDay.count("alpha_vantage");
    QCOMPARE(nextDay.dayCount("alpha_vantage"), 1);
    QCOMPARE(nextDay.monthCount("alpha_vantage"), 6);
}

void QuotaMeterTest::wrongTypedJsonResets_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("day");
    QTest::addColumn<int>("month");

    QTest::newRow("array") << QByteArray("[1, 2]") << 0 << 0;
    QTest::newRow("provider is a text") << QByteArray(R"({"finnhub": "many"})") << 0 << 0;
    QTest::newRow("day is a number") << QByteArray(R"({"finnhub": {"day": 20250514, "day_count": 9,
                                          "month": "2025-05", "month_count": 9}})")
                                     << 0 << 9;
    QTest::newRow("count is a text")
            << QByteArray(R"({"finnhub": {"day": "2025-05-14", "day_count": "9"}})") << 0 << 0;
    QTest::newRow("negative count")
            << QByteArray(R"({"finnhub": {"day": "2025-05-14", "day_count": -4}})") << 0 << 0;
    QTest::newRow("unknown provider")
            << QByteArray(R"({"nobody": {"day": "2025-05-14", "day_count": 4}})") << 0 << 0;
}

void QuotaMeterTest::wrongTypedJsonResets()
{
    QFETCH(QByteArray, json);
    const qint64 now = localMs(2025, 5, 14, 12, 0, 0);
    QuotaMeter meter([now] { return now; });
    meter.fromJson(QJsonDocument::fromJson(json).isArray()
                           ? QJsonValue(QJsonDocument::fromJson(json).array())
                           : QJsonValue(QJsonDocument::fromJson(json).object()));
    QTEST(meter.dayCount("finnhub"), "day");
    QTEST(meter.monthCount("finnhub"), "month");
    QVERIFY(!meter.toJson().contains("nobody"));
    meter.count("finnhub");
    QCOMPARE(meter.minuteCount("finnhub"), 1);
}

void QuotaMeterTest::onlyKeyedProvidersAreCounted()
{
    QuotaMeter meter([] { return localMs(2025, 5, 14, 12, 0, 0); });
    countProviderRequest(&meter, "yahoo_us");
    countProviderRequest(&meter, "binance_public");
    countProviderRequest(nullptr, "finnhub");
    QVERIFY(meter.toJson().isEmpty());
}

void QuotaMeterTest::usageColoursAsTheLimitNears_data()
{
    QTest::addColumn<QString>("providerId");
    QTest::addColumn<QString>("window");
    QTest::addColumn<int>("requests");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("color");

    QTest::newRow("twelve data half a minute") << "twelvedata"
                                               << "minute" << 4 << 8 << "#20c878";
    QTest::newRow("twelve data 75 %") << "twelvedata"
                                      << "minute" << 6 << 8 << "#f3b24a";
    QTest::newRow("twelve data at the limit") << "twelvedata"
                                              << "minute" << 8 << 8 << "#f45d5d";
    QTest::newRow("twelve data per day") << "twelvedata"
                                         << "day" << 8 << 800 << "#20c878";
    QTest::newRow("alpha vantage 68 %") << "alpha_vantage"
                                        << "day" << 17 << 25 << "#20c878";
    QTest::newRow("alpha vantage 72 %") << "alpha_vantage"
                                        << "day" << 18 << 25 << "#f3b24a";
    QTest::newRow("alpha vantage 88 %") << "alpha_vantage"
                                        << "day" << 22 << 25 << "#f3b24a";
    QTest::newRow("alpha vantage 92 %") << "alpha_vantage"
                                        << "day" << 23 << 25 << "#f45d5d";
    QTest::newRow("fmp per day") << "fmp"
                                 << "day" << 225 << 250 << "#f45d5d";
    QTest::newRow("finnhub per minute") << "finnhub"
                                        << "minute" << 42 << 60 << "#f3b24a";
}

void QuotaMeterTest::usageColoursAsTheLimitNears()
{
    QFETCH(QString, providerId);
    QFETCH(QString, window);
    QFETCH(int, requests);
    QuotaMeter meter([] { return localMs(2025, 5, 14, 12, 0, 0); });
    for (int i = 0; i < requests; ++i)
        countProviderRequest(&meter, providerId);
    const QuotaUsage usage = usageOf(meter, providerId, window);
    QCOMPARE(usage.used, requests);
    QTEST(usage.limit, "limit");
    QTEST(usage.color, "color");
}

QTEST_GUILESS_MAIN(QuotaMeterTest)
#include "tst_quota_meter.moc"
