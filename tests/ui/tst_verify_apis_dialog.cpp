#include "app/language.h"
#include "providers/quota_meter.h"
#include "ui/verify_apis_dialog.h"

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
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
    QTest::newRow("en") << QStringLiteral("en") << QStringLiteral("Checking 3 of 8 answered");
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
    dialog.setRunning(false);
    QVERIFY(run->isEnabled() && progress->isHidden());
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

QTEST_MAIN(VerifyApisDialogTest)
#include "tst_verify_apis_dialog.moc"
