#include "app/language.h"
#include "portfolio/price_alerts.h"

#include <QJsonDocument>
#include <QTest>

#include <cmath>

namespace {

constexpr qint64 kStart = 1'750'000'000'000;

PriceAlert alertOn(const QString &symbol, double target, bool above, bool repeating = false)
{
    PriceAlert alert;
    alert.symbol = symbol;
    alert.target = target;
    alert.above = above;
    alert.repeating = repeating;
    return alert;
}

QJsonArray arrayFrom(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).array();
}

} // namespace

class TestPriceAlerts : public QObject
{
    Q_OBJECT

private slots:
    void init() { setInterfaceLanguage(QStringLiteral("en")); }

    void alertFiresWhenThePriceReachesTheTarget_data()
    {
        QTest::addColumn<bool>("above");
        QTest::addColumn<double>("price");
        QTest::addColumn<bool>("fires");
        QTest::newRow("above at equality") << true << 100.0 << true;
        QTest::newRow("below at equality") << false << 100.0 << true;
        QTest::newRow("above, under the target") << true << 99.99 << false;
        QTest::newRow("below, over the target") << false << 100.01 << false;
        QTest::newRow("below, under the target") << false << 42.0 << true;
        QTest::newRow("no price") << false << double(NAN) << false;
    }
    void alertFiresWhenThePriceReachesTheTarget()
    {
        QFETCH(bool, above);
        QFETCH(double, price);
        QFETCH(bool, fires);
        QList<PriceAlert> alerts{alertOn("AAPL", 100, above)};
        QCOMPARE(checkAlerts(alerts, "AAPL", price, kStart), fires ? QList<int>{0} : QList<int>{});
        QCOMPARE(alerts[0].triggered, fires);
        QCOMPARE(alerts[0].lastTriggerMs, fires ? kStart : 0);
    }

    void oneShotAlertStaysSilentUntilRearmed()
    {
        QList<PriceAlert> alerts{alertOn("PETR4.SA", 40, true), alertOn("VALE3.SA", 40, true),
                                 alertOn("PETR4.SA", 38, true)};
        // Both alerts of the symbol fire on one update, the other symbol's is not looked at.
        QCOMPARE(checkAlerts(alerts, "PETR4.SA", 41, kStart), (QList<int>{0, 2}));
        QVERIFY(!alerts[1].triggered);
        QVERIFY(checkAlerts(alerts, "PETR4.SA", 45, kStart + 3'600'000).isEmpty());

        alerts[0].triggered = false;
        alerts[0].lastTriggerMs = 0;
        QCOMPARE(checkAlerts(alerts, "PETR4.SA", 45, kStart + 3'600'001), QList<int>{0});
    }

    void repeatingAlertWaitsOneMinuteBetweenFirings()
    {
        QList<PriceAlert> alerts{alertOn("BTCUSDT", 60000, true, true)};
        QCOMPARE(checkAlerts(alerts, "BTCUSDT", 60100, kStart), QList<int>{0});
        QVERIFY(!alerts[0].triggered);
        QVERIFY(checkAlerts(alerts, "BTCUSDT", 60100, kStart + 59'999).isEmpty());
        QCOMPARE(alerts[0].lastTriggerMs, kStart);
        QCOMPARE(checkAlerts(alerts, "BTCUSDT", 60100, kStart + 60'000), QList<int>{0});
        QCOMPARE(alerts[0].lastTriggerMs, kStart + 60'000);
    }

    void historyRowFindsItsAlert()
    {
        const QList<PriceAlert> alerts{alertOn("AAPL", 200, true), alertOn("AAPL", 200, false),
                                       alertOn("MSFT", 200, false)};
        const AlertHistoryEntry below =
                alertHistoryEntry(alerts[1], "Armed", "Active", 210, kStart);
        QCOMPARE(below.condition, QStringLiteral("<= 200.0000"));
        QCOMPARE(matchingAlert(alerts, below), 1);
        AlertHistoryEntry other = below;
        other.target = 200.5;
        other.condition = alertCondition(false, 200.5);
        QCOMPARE(matchingAlert(alerts, other), -1);
        other = below;
        other.symbol = QStringLiteral("NVDA");
        QCOMPARE(matchingAlert(alerts, other), -1);
    }

    void historyEntryShowsRepeatInItsStatus()
    {
        const PriceAlert repeating = alertOn("EURUSD=X", 1.1, false, true);
        QCOMPARE(alertHistoryEntry(repeating, "Armed", "Active", 1.12, kStart).status,
                 QStringLiteral("Active / Repeat"));
        QCOMPARE(alertHistoryEntry(repeating, "Triggered", "Hit", 1.1, kStart).status,
                 QStringLiteral("Hit"));
        QCOMPARE(alertHistoryEntry(alertOn("AAPL", 1, true), "Armed", "Active", 2, kStart).status,
                 QStringLiteral("Active"));
        QCOMPARE(alertHistoryEntry(repeating, "Armed", "Active", 1.12, kStart).timestamp,
                 QDateTime::fromMSecsSinceEpoch(kStart).toString("yyyy-MM-dd HH:mm:ss"));
    }

    void firingTextsInBothLanguages()
    {
        PriceAlert alert = alertOn("PETR4.SA", 38.5, true);
        QCOMPARE(alertBoxTitle("PETR4.SA"), QStringLiteral("Price Alert - PETR4.SA"));
        QCOMPARE(alertBoxText(alert, 38.52),
                 QStringLiteral(
                         "PETR4.SA alert triggered.\n\nLast: 38.5200\nCondition: >= 38.5000"));
        QCOMPARE(alertHitLogLine(alert, 38.52),
                 QStringLiteral("ALERT HIT: PETR4.SA last 38.5200 target 38.5000"));
        alert.repeating = true;
        QVERIFY(alertBoxText(alert, 38.52).endsWith(QStringLiteral("\nMode: Repeat")));
        QVERIFY(alertHitLogLine(alert, 38.52).endsWith(QStringLiteral(" repeat")));
        setInterfaceLanguage(QStringLiteral("pt_BR"));
        QCOMPARE(alertBoxTitle("PETR4.SA"), QStringLiteral("Alerta de preço - PETR4.SA"));
        QVERIFY(alertBoxText(alert, 38.52).contains(QStringLiteral("Condição: >= 38.5000")));

        QCOMPARE(alertHistoryColor("Triggered"), alertHistoryColor("Hit"));
        QCOMPARE(alertHistoryColor("Hit"), QStringLiteral("#f45d5d"));
        QCOMPARE(alertHistoryColor("Removed"), QStringLiteral("#9aa0a6"));
        QCOMPARE(alertHistoryColor("Inactive"), QStringLiteral("#9aa0a6"));
        QCOMPARE(alertHistoryColor("Active / Repeat"), QStringLiteral("#20c878"));
    }

    void savedAlertsSurviveBadNeighbours()
    {
        const QJsonArray stored = arrayFrom(R"([
            {"symbol":"AAPL","target":190.5,"above":false,"triggered":true,"repeating":false,
             "last_trigger_ms":1750000000123},
            {"symbol":"PETR4.SA","target":38},
            {"symbol":"MSFT","target":"400"}, {"target":1}, 12,
            {"symbol":"BTCUSDT","target":1,"repeating":"yes"}])");
        QList<QJsonValue> unreadable;
        const QList<PriceAlert> alerts = readAlerts(stored, &unreadable);
        QCOMPARE(alerts.size(), 2);
        QCOMPARE(unreadable.size(), 4);
        QCOMPARE(alerts[0].lastTriggerMs, 1750000000123);
        QVERIFY(alerts[0].triggered && !alerts[0].above);
        QVERIFY(alerts[1].above && !alerts[1].repeating && alerts[1].lastTriggerMs == 0);

        const QJsonArray written = alertsToJson(alerts, unreadable);
        QCOMPARE(written.size(), stored.size());
        QCOMPARE(written[0].toObject(), stored[0].toObject());
        QList<QJsonValue> again;
        QCOMPARE(alertsToJson(readAlerts(written, &again), again), written);
    }

    void savedHistorySurvivesBadNeighbours()
    {
        const QJsonArray stored = arrayFrom(R"([
            {"timestamp":"2025-07-01 10:00:00","event":"Armed","symbol":"AAPL",
             "condition":">= 200.0000","target":200,"price":null,"status":"Active"},
            {"timestamp":"2025-07-01 10:05:00","event":"Triggered","symbol":"AAPL",
             "condition":">= 200.0000","target":200,"price":200.25,"status":"Hit"},
            {"event":7,"symbol":"AAPL","target":200}, {"symbol":"AAPL","target":null}, "x"])");
        QList<QJsonValue> unreadable;
        const QList<AlertHistoryEntry> history = readAlertHistory(stored, &unreadable);
        QCOMPARE(history.size(), 2);
        QCOMPARE(unreadable.size(), 3);
        QVERIFY(std::isnan(history[0].price));
        QCOMPARE(history[1].price, 200.25);

        const QJsonArray written = historyToJson(history, unreadable);
        QCOMPARE(written, stored);
    }
};

QTEST_GUILESS_MAIN(TestPriceAlerts)
#include "tst_price_alerts.moc"
