#include "chart/timeframe.h"
#include "ui/layout_presets.h"
#include "ui/local_settings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {

QJsonObject parsed(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

QString shown(const std::optional<QString> &value)
{
    return value ? *value : QStringLiteral("<kept>");
}

} // namespace

class LocalSettingsTest : public QObject
{
    Q_OBJECT

private slots:
    void acceptanceRules_data();
    void acceptanceRules();
    void hiddenColumnsKeepOnlyMovableColumns_data();
    void hiddenColumnsKeepOnlyMovableColumns();
    void splitterSizesMustFitTheirSplitter_data();
    void splitterSizesMustFitTheirSplitter();
    void snapshotLeavesPersonalStateOut();
    void windowLandsCentredWithinTheScreen_data();
    void windowLandsCentredWithinTheScreen();
};

void LocalSettingsTest::acceptanceRules_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("theme");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("timeframe");
    QTest::newRow("accepted") << QByteArray(R"({"language":"pt_BR","theme":"qrl_light",
            "chart_mode":"candle","chart_timeframe":"4h"})")
                              << "pt_BR"
                              << "qrl_light"
                              << "candle"
                              << "4h";
    QTest::newRow("defaults spelled out") << QByteArray(R"({"language":"en",
            "theme":"coffee_dark","chart_mode":"line","chart_timeframe":"1mo"})")
                                          << "en"
                                          << "coffee_dark"
                                          << "line"
                                          << "1mo";
    QTest::newRow("near misses") << QByteArray(R"({"language":"de","theme":"light",
            "chart_mode":"bars","chart_timeframe":"2h"})")
                                 << "<kept>"
                                 << "<kept>"
                                 << "<kept>"
                                 << "<kept>";
    // "1M" is Binance's month; the selector says "1mo", and the match is case-sensitive.
    QTest::newRow("case matters") << QByteArray(R"({"language":"pt_br","theme":"QRL_LIGHT",
            "chart_mode":"Candle","chart_timeframe":"1M"})")
                                  << "<kept>"
                                  << "<kept>"
                                  << "<kept>"
                                  << "<kept>";
    QTest::newRow("wrong types") << QByteArray(R"({"language":["pt_BR"],"theme":1,
            "chart_mode":true,"chart_timeframe":{"v":"1h"}})")
                                 << "<kept>"
                                 << "<kept>"
                                 << "<kept>"
                                 << "<kept>";
    QTest::newRow("missing") << QByteArray("{}") << "<kept>"
                             << "<kept>"
                             << "<kept>"
                             << "<kept>";
}

void LocalSettingsTest::acceptanceRules()
{
    QFETCH(QByteArray, document);
    const WorkspaceValues values = readWorkspaceValues(parsed(document), chartTimeframes());
    QTEST(shown(values.language), "language");
    QTEST(shown(values.theme), "theme");
    QTEST(shown(values.chartMode), "mode");
    QTEST(shown(values.chartTimeframe), "timeframe");
}

void LocalSettingsTest::hiddenColumnsKeepOnlyMovableColumns_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<bool>("present");
    QTest::addColumn<QList<int>>("hidden");
    QTest::newRow("symbol column and strangers")
            << QByteArray(R"({"hidden_columns":"0,3,16,x"})") << true << QList<int>{3};
    QTest::newRow("spaces and both ends")
            << QByteArray(R"({"hidden_columns":" 1 , 15,15,-2"})") << true << QList<int>{1, 15};
    QTest::newRow("empty shows all")
            << QByteArray(R"({"hidden_columns":""})") << true << QList<int>{};
    QTest::newRow("wrong type shows all")
            << QByteArray(R"({"hidden_columns":[3,4]})") << true << QList<int>{};
    // Without the key a legacy key file may still decide.
    QTest::newRow("missing") << QByteArray("{}") << false << QList<int>{};
}

void LocalSettingsTest::hiddenColumnsKeepOnlyMovableColumns()
{
    QFETCH(QByteArray, document);
    QFETCH(bool, present);
    QFETCH(QList<int>, hidden);
    const WorkspaceValues values = readWorkspaceValues(parsed(document), chartTimeframes());
    QCOMPARE(values.hiddenColumns.has_value(), present);
    if (present)
        QCOMPARE(*values.hiddenColumns, QSet<int>(hidden.begin(), hidden.end()));
}

void LocalSettingsTest::splitterSizesMustFitTheirSplitter_data()
{
    QTest::addColumn<QByteArray>("sizes");
    QTest::addColumn<int>("panes");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("three panes") << QByteArray("[360,420,150]") << 3 << QList<int>{360, 420, 150};
    QTest::newRow("two panes") << QByteArray("[930,430]") << 2 << QList<int>{930, 430};
    QTest::newRow("too few") << QByteArray("[360,420]") << 3 << QList<int>{};
    QTest::newRow("too many") << QByteArray("[1,2,3]") << 2 << QList<int>{};
    QTest::newRow("collapsed pane") << QByteArray("[0,420,150]") << 3 << QList<int>{};
    QTest::newRow("negative") << QByteArray("[-5,420,150]") << 3 << QList<int>{};
    QTest::newRow("fraction") << QByteArray("[360.5,420,150]") << 3 << QList<int>{};
    QTest::newRow("text") << QByteArray(R"(["360",420,150])") << 3 << QList<int>{};
    QTest::newRow("absurd") << QByteArray("[1e12,420,150]") << 3 << QList<int>{};
    QTest::newRow("not an array") << QByteArray(R"({"a":1})") << 2 << QList<int>{};
}

void LocalSettingsTest::splitterSizesMustFitTheirSplitter()
{
    QFETCH(QByteArray, sizes);
    QFETCH(int, panes);
    QFETCH(QList<int>, expected);
    const QJsonObject document = parsed("{\"v\":" + sizes + "}");
    QCOMPARE(readSplitterSizes(document.value("v"), panes), expected);
}

void LocalSettingsTest::snapshotLeavesPersonalStateOut()
{
    QJsonObject settings;
    for (const QString &key : localSettingsKeyOrder())
        settings.insert(key, QStringLiteral("value of ") + key);
    settings.insert(QStringLiteral("portfolio"), 1); // the older name of the portfolios
    const QJsonObject snapshot = workspaceSnapshotOf(settings);
    QCOMPARE(snapshot.size(), 21);
    for (const char *personal : {"alerts", "alert_history", "portfolios", "portfolio", "api_health",
                                 "auth", "sync_versions", "sync_last_unix", "sync_last_status"})
        QVERIFY2(!snapshot.contains(QLatin1String(personal)), personal);
    QCOMPARE(snapshot.value("drawings").toString(), QStringLiteral("value of drawings"));
}

void LocalSettingsTest::windowLandsCentredWithinTheScreen_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QRect>("available");
    QTest::addColumn<QRect>("expected");
    QTest::newRow("fits") << QSize(1400, 900) << QRect(1920, 0, 1920, 1040)
                          << QRect(2180, 70, 1400, 900);
    QTest::newRow("too large") << QSize(2560, 1400) << QRect(0, 24, 1366, 744)
                               << QRect(0, 24, 1366, 744);
    QTest::newRow("too tall only")
            << QSize(1000, 900) << QRect(-1280, 0, 1280, 800) << QRect(-1140, 0, 1000, 800);
}

void LocalSettingsTest::windowLandsCentredWithinTheScreen()
{
    QFETCH(QSize, size);
    QFETCH(QRect, available);
    QTEST(centredOnScreen(size, available), "expected");
    QVERIFY(available.contains(centredOnScreen(size, available)));
    QCOMPARE(nextScreenIndex(0, 2), 1);
    QCOMPARE(nextScreenIndex(2, 3), 0); // after the last comes the first
    QCOMPARE(nextScreenIndex(-1, 3), 0);
}

QTEST_GUILESS_MAIN(LocalSettingsTest)
#include "tst_local_settings.moc"
