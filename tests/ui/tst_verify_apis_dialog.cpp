#include "app/language.h"
#include "providers/quota_meter.h"
#include "support/fake_provider.h"
#include "support/isolated_folders.h"
#include "ui/main_window.h"
#include "ui/verify_apis_dialog.h"

#include <QAction>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>

namespace {

QTableWidget *table(const VerifyApisDialog &dialog)
{
    return dialog.findChild<QTableWidget *>(QStringLiteral("apiStatusTable"));
}

int rowOf(const QString &healthKeyText)
{
    const auto catalogue = providerCatalogue();
    for (int row = 0; row < int(catalogue.size()); ++row) {
        if (healthKey(catalogue[row]) == healthKeyText)
            return row;
    }
    return -1;
}

QString colorOf(const QTableWidgetItem *item)
{
    return item->foreground().color().name();
}

KeyLookup keysWith(const QMap<QString, QString> &values)
{
    return [values](const QString &name) { return values.value(name); };
}

} // namespace

class VerifyApisDialogTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }

    void cascadeCellsFollowKeysAndTheme_data();
    void cascadeCellsFollowKeysAndTheme();
    void recordUpdateRecoloursItsRow();
    void progressTextFollowsLanguage_data();
    void progressTextFollowsLanguage();
    void quotaCellsShowUsedOverLimit();
    void buttonsAskTheCaller();
    void windowChecksCountsAndKeepsThemAcrossRestart();
};

void VerifyApisDialogTest::cascadeCellsFollowKeysAndTheme_data()
{
    QTest::addColumn<QString>("theme");
    QTest::newRow("dark") << QStringLiteral("coffee_dark");
    QTest::newRow("light") << QStringLiteral("qrl_light");
}

void VerifyApisDialogTest::cascadeCellsFollowKeysAndTheme()
{
    QFETCH(QString, theme);
    const KeyLookup keys = keysWith({{QStringLiteral("twelvedata_api_key"), QStringLiteral("td")}});
    VerifyApisDialog dialog(keys, {}, nullptr, theme);
    QTableWidget *view = table(dialog);
    QVERIFY(view);
    QCOMPARE(view->rowCount(), int(providerCatalogue().size()));
    QCOMPARE(view->columnCount(), int(VerifyApisDialog::ColumnCount));

    const auto cascade = [&](const char *key) {
        return view->item(rowOf(QString::fromLatin1(key)), VerifyApisDialog::CascadeColumn);
    };
    QCOMPARE(cascade("Forex|Twelve Data")->text(), QStringLiteral("enabled"));
    QCOMPARE(colorOf(cascade("Forex|Twelve Data")), QStringLiteral("#20c878"));
    QCOMPARE(cascade("B3|Twelve Data")->text(), QStringLiteral("not implemented"));
    QCOMPARE(colorOf(cascade("B3|Twelve Data")), theme == QLatin1String("qrl_light")
                                                         ? QStringLiteral("#52606d")
                                                         : QStringLiteral("#9aa0a6"));
    QCOMPARE(cascade("US/America|Finnhub")->text(), QStringLiteral("skipped: no key"));
    QCOMPARE(colorOf(cascade("US/America|Finnhub")), QStringLiteral("#f45d5d"));
    QCOMPARE(colorOf(cascade("B3|BrAPI")), theme == QLatin1String("qrl_light")
                                                   ? QStringLiteral("#006cb4")
                                                   : QStringLiteral("#8fb8ad"));

    // The key column names the key; its value appears nowhere.
    const int row = rowOf(QStringLiteral("Forex|Twelve Data"));
    QCOMPARE(view->item(row, VerifyApisDialog::KeyColumn)->text(),
             QStringLiteral("twelvedata_api_key"));
    for (int column = 0; column < view->columnCount(); ++column)
        QVERIFY(view->item(row, column)->text() != QLatin1String("td"));
}

void VerifyApisDialogTest::recordUpdateRecoloursItsRow()
{
    ApiHealthRecords records;
    const QString key = QStringLiteral("US/America|Alpha Vantage");
    records[key].state = QStringLiteral("ok");
    VerifyApisDialog dialog(keysWith({}), records, nullptr, QStringLiteral("coffee_dark"));
    QTableWidget *view = table(dialog);
    const int row = rowOf(key);
    QCOMPARE(colorOf(view->item(row, VerifyApisDialog::HealthColumn)), QStringLiteral("#20c878"));
    QCOMPARE(view->item(row, VerifyApisDialog::LatencyColumn)->text(), QStringLiteral("--"));
    QVERIFY(view->item(row, VerifyApisDialog::QuotaDayColumn)->text().isEmpty()); // no meter

    ApiHealthRecord limited;
    limited.state = QStringLiteral("rate limited");
    limited.latencyMs = 120;
    limited.lastError = QStringLiteral("HTTP 429 rate limit; retry in 30s");
    limited.attempts = 2;
    limited.successes = 1;
    limited.failures = 1;
    dialog.setRecord(key, limited);
    dialog.setRecord(QStringLiteral("Nowhere|Nothing"), limited); // ignored

    QCOMPARE(view->item(row, VerifyApisDialog::HealthColumn)->text(),
             QStringLiteral("rate limited"));
    QCOMPARE(colorOf(view->item(row, VerifyApisDialog::HealthColumn)), QStringLiteral("#f3b24a"));
    QCOMPARE(view->item(row, VerifyApisDialog::LatencyColumn)->text(), QStringLiteral("120 ms"));
    QCOMPARE(view->item(row, VerifyApisDialog::LastErrorColumn)->toolTip(), limited.lastError);
    QCOMPARE(view->item(row, VerifyApisDialog::CountersColumn)->text(),
             QStringLiteral("2 / 1 / 1"));
    // Other rows keep their first record.
    QCOMPARE(view->item(row - 1, VerifyApisDialog::HealthColumn)->text(),
             QStringLiteral("not tested"));
}

void VerifyApisDialogTest::progressTextFollowsLanguage_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("expected");
    QTest::newRow("en") << QStringLiteral("en") << QStringLiteral("Checking: 3 of 8 answered");
    QTest::newRow("pt_BR") << QStringLiteral("pt_BR")
                           << QStringLiteral("Verificando: 3 de 8 respondidas");
}

void VerifyApisDialogTest::progressTextFollowsLanguage()
{
    QFETCH(QString, language);
    QFETCH(QString, expected);
    VerifyApisDialog dialog(keysWith({}), {}, nullptr, QStringLiteral("coffee_dark"));
    auto *run = dialog.findChild<QPushButton *>(QStringLiteral("runHealthChecks"));
    auto *progress = dialog.findChild<QLabel *>(QStringLiteral("healthProgress"));
    QVERIFY(run->isEnabled() && progress->isHidden());
    dialog.setRunning(true);
    dialog.setProgress(3, 8);
    QVERIFY(!run->isEnabled() && !progress->isHidden());

    setInterfaceLanguage(language);
    QEvent change(QEvent::LanguageChange);
    QCoreApplication::sendEvent(&dialog, &change);
    QCOMPARE(progress->text(), expected);
    // After the run the line stays with what answered.
    dialog.setProgress(8, 8);
    dialog.setRunning(false);
    QVERIFY(run->isEnabled() && !progress->isHidden());
    QVERIFY(progress->text().contains(QStringLiteral("8")));
    QVERIFY(progress->text() != expected);
}

void VerifyApisDialogTest::quotaCellsShowUsedOverLimit()
{
    // 2024-03-15 12:00:10 local: minute, day and month windows all open.
    qint64 now = QDateTime(QDate(2024, 3, 15), QTime(12, 0, 10)).toMSecsSinceEpoch();
    QuotaMeter meter([&now] { return now; });
    for (int i = 0; i < 6; ++i)
        meter.count(QStringLiteral("twelvedata"));

    VerifyApisDialog dialog(keysWith({}), {}, &meter, QStringLiteral("coffee_dark"));
    QTableWidget *view = table(dialog);
    const int row = rowOf(QStringLiteral("Forex|Twelve Data"));
    const auto cell = [&](int column) { return view->item(row, column); };
    QCOMPARE(cell(VerifyApisDialog::QuotaMinuteColumn)->text(), QStringLiteral("6 / 8"));
    QCOMPARE(colorOf(cell(VerifyApisDialog::QuotaMinuteColumn)), QStringLiteral("#f3b24a"));
    QCOMPARE(colorOf(cell(VerifyApisDialog::QuotaDayColumn)), QStringLiteral("#20c878"));
    QVERIFY(cell(VerifyApisDialog::QuotaMonthColumn)->text().isEmpty()); // no monthly limit
    QVERIFY(cell(VerifyApisDialog::QuotaDayColumn)->toolTip().contains(QLatin1String("800")));

    meter.count(QStringLiteral("twelvedata"));
    meter.count(QStringLiteral("twelvedata"));
    dialog.refreshQuota();
    QCOMPARE(cell(VerifyApisDialog::QuotaMinuteColumn)->text(), QStringLiteral("8 / 8"));
    QCOMPARE(colorOf(cell(VerifyApisDialog::QuotaMinuteColumn)), QStringLiteral("#f45d5d"));

    now += 60'000; // the next minute starts empty
    dialog.refreshQuota();
    QCOMPARE(cell(VerifyApisDialog::QuotaMinuteColumn)->text(), QStringLiteral("0 / 8"));
    QCOMPARE(cell(VerifyApisDialog::QuotaDayColumn)->text(), QStringLiteral("8 / 800"));

    // Public rows have no free limit to meter.
    const int publicRow = rowOf(QStringLiteral("Crypto|Binance Public"));
    QVERIFY(view->item(publicRow, VerifyApisDialog::QuotaDayColumn)->text().isEmpty());
}

void VerifyApisDialogTest::buttonsAskTheCaller()
{
    VerifyApisDialog dialog(keysWith({}), {}, nullptr, QStringLiteral("coffee_dark"));
    QSignalSpy run(&dialog, &VerifyApisDialog::runChecksRequested);
    QSignalSpy log(&dialog, &VerifyApisDialog::logCascadeRequested);
    QSignalSpy rejected(&dialog, &QDialog::rejected);
    QTest::mouseClick(dialog.findChild<QPushButton *>(QStringLiteral("runHealthChecks")),
                      Qt::LeftButton);
    QTest::mouseClick(dialog.findChild<QPushButton *>(QStringLiteral("logCascade")),
                      Qt::LeftButton);
    QCOMPARE(run.count(), 1);
    QCOMPARE(log.count(), 1);
    QCOMPARE(rejected.count(), 0);
    QTest::mouseClick(dialog.findChild<QPushButton *>(QStringLiteral("closeVerifyApis")),
                      Qt::LeftButton);
    QCOMPARE(rejected.count(), 1);
}

void VerifyApisDialogTest::windowChecksCountsAndKeepsThemAcrossRestart()
{
    IsolatedFolders folders;
    FakeProvider provider;
    QVERIFY(provider.listen());
    for (const char *name : {"QRL_ENDPOINT_FINNHUB", "QRL_ENDPOINT_ALPHA_VANTAGE",
                             "QRL_ENDPOINT_BINANCE_REST", "QRL_ENDPOINT_YAHOO_QUERY"})
        qputenv(name, provider.baseUrl().toUtf8());
    provider.setReply("/api/v1/quote",
                      FakeReply::json(R"({"c":190.1,"d":1.2,"dp":0.63,"h":191,"l":189,"o":189.5,)"
                                      R"("pc":188.9,"t":1700000000})"));
    provider.setReply("/query", FakeReply{.status = 429, .headers = {{"Retry-After", "30"}}});
    provider.setReply("/api/v3/ticker/price",
                      FakeReply::json(R"({"symbol":"BTCUSDT","price":"82000.00"})"));
    provider.setReply("/v8/finance/chart/AAPL", FakeReply::text("<html>busy</html>", 200));
    folders.writeFile(folders.expectedConfigFolder() + "/config.txt",
                      "finnhub_api_key=canary-finnhub\nalpha_vantage_api_key=canary-alpha\n");
    // A crypto-only watchlist: a session starting during the checks sends Finnhub nothing, so
    // the quota counts only the probes.
    folders.writeFile(folders.expectedConfigFolder() + "/watchlists/default.json",
                      R"({"symbols":[{"symbol":"BTCUSDT"}]})");
    const QString alpha = QStringLiteral("US/America|Alpha Vantage");
    {
        MainWindow window;
        window.findChild<QAction *>(QStringLiteral("verifyApisAction"))->trigger();
        auto *dialog = window.findChild<VerifyApisDialog *>();
        QVERIFY(dialog && dialog->isVisible());
        auto *run = dialog->findChild<QPushButton *>(QStringLiteral("runHealthChecks"));
        run->click();
        QCOMPARE(window.statusBar()->currentMessage(),
                 QStringLiteral("API health verification started"));
        QVERIFY(!run->isEnabled());
        QTRY_VERIFY(run->isEnabled());
        QCOMPARE(dialog->findChild<QLabel *>(QStringLiteral("healthProgress"))->text(),
                 QStringLiteral("Checks done: 9 of 9 answered"));

        const ApiHealthRecords records = window.healthRecords();
        QCOMPARE(records.value(alpha).state, QStringLiteral("rate limited"));
        QCOMPARE(records.value(alpha).lastError,
                 QStringLiteral("HTTP 429 rate limit; retry in 30s"));
        QCOMPARE(records.value("US/America|Finnhub").state, QStringLiteral("ok"));
        QCOMPARE(records.value("Crypto|Binance Public").state, QStringLiteral("ok"));
        QCOMPARE(records.value("US/America|Yahoo Public").state, QStringLiteral("error"));
        QCOMPARE(records.value("US/America|Polygon").state, QStringLiteral("skipped: no key"));
        // The US and Forex Finnhub rows each probed once; the quota cells show it.
        QCOMPARE(window.quotaMeter().dayCount(QStringLiteral("finnhub")), 2);
        QCOMPARE(window.quotaMeter().dayCount(QStringLiteral("alpha_vantage")), 1);
        QCOMPARE(table(*dialog)->item(rowOf(alpha), VerifyApisDialog::QuotaDayColumn)->text(),
                 QStringLiteral("1 / 25"));

        dialog->findChild<QPushButton *>(QStringLiteral("logCascade"))->click();
        const QString events = window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
        QVERIFY(events.contains(QStringLiteral("finnhub -> alpha_vantage -> yahoo_us")));
        QVERIFY(!events.contains(QStringLiteral("canary")));
        for (const RecordedRequest &request : provider.requests()) {
            if (request.path == "/api/v1/quote")
                QVERIFY(request.rawQuery.contains("token=canary-finnhub"));
            else
                QVERIFY(!request.rawQuery.contains("canary-finnhub"));
        }
        window.saveLocalSettings();
    }

    // A restart keeps the records and the counts, and the next run counts on from them.
    MainWindow again;
    QCOMPARE(again.healthRecords().value(alpha).state, QStringLiteral("rate limited"));
    QCOMPARE(again.quotaMeter().dayCount(QStringLiteral("finnhub")), 2);
    again.findChild<QAction *>(QStringLiteral("verifyApisAction"))->trigger();
    auto *dialog = again.findChild<VerifyApisDialog *>();
    QCOMPARE(table(*dialog)->item(rowOf(alpha), VerifyApisDialog::HealthColumn)->text(),
             QStringLiteral("rate limited"));
    dialog->findChild<QPushButton *>(QStringLiteral("runHealthChecks"))->click();
    QTRY_VERIFY(dialog->findChild<QPushButton *>(QStringLiteral("runHealthChecks"))->isEnabled());
    QCOMPARE(again.quotaMeter().dayCount(QStringLiteral("finnhub")), 4);
    QCOMPARE(again.healthRecords().value(alpha).attempts, 2);
}

QTEST_MAIN(VerifyApisDialogTest)
#include "tst_verify_apis_dialog.moc"
