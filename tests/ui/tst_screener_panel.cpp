#include "app/language.h"
#include "ui/screener_panel.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QHeaderView>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTest>

#include <cmath>

namespace {

QList<ScreenerRow> sampleRows()
{
    ScreenerRow petro{QStringLiteral("PETR4.SA"), QStringLiteral("BR Equity"), 38.5, -2.5, 1.2e6,
                      QStringLiteral("B3"),       QStringLiteral("brapi"),     true};
    ScreenerRow bitcoin{QStringLiteral("BTCUSDT"), QStringLiteral("Crypto"),     65000, 0.3, 42.5,
                        QStringLiteral("Binance"), QStringLiteral("Binance WS"), true};
    ScreenerRow apple{
            QStringLiteral("AAPL"), QStringLiteral("US Equity"),       qQNaN(), qQNaN(), 0,
            QStringLiteral("US"),   QStringLiteral("Movers snapshot"), false};
    return {petro, bitcoin, apple};
}

int rowOf(const QTableWidget *table, const QString &symbol)
{
    for (int row = 0; row < table->rowCount(); ++row) {
        if (table->item(row, ScreenerPanel::SymbolColumn)->data(Qt::UserRole) == symbol)
            return row;
    }
    return -1;
}

void retranslateTo(QWidget *widget, const QString &language)
{
    setInterfaceLanguage(language);
    QEvent change(QEvent::LanguageChange);
    QCoreApplication::sendEvent(widget, &change);
}

} // namespace

class ScreenerPanelTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }
    void filtersRoundTripWithoutSignals();
    void userEditsReportFilters();
    void doubleClickAndEnterOpenTheSymbol();
    void languageChangeRelabelsAndKeepsSelection();
    void narrowPaneHidesSecondaryColumns();
};

void ScreenerPanelTest::filtersRoundTripWithoutSignals()
{
    ScreenerPanel panel;
    QSignalSpy changed(&panel, &ScreenerPanel::filtersChanged);
    const ScreenerFilters wanted{QStringLiteral("universe"), QStringLiteral("forex"), -2.5,
                                 QStringLiteral("usd")};
    panel.setFilters(wanted);
    QCOMPARE(panel.filters(), wanted);

    // Unknown ids keep the current ones; the box keeps the minimum within its range.
    panel.setFilters({QStringLiteral("sector"), QStringLiteral("bonds"), 1e6, QString()});
    QCOMPARE(panel.filters().scope, QStringLiteral("universe"));
    QCOMPARE(panel.filters().asset, QStringLiteral("forex"));
    QCOMPARE(panel.filters().minimumChange, kScreenerMinimumChangeLimit);
    QCOMPARE(changed.count(), 0);
}

void ScreenerPanelTest::userEditsReportFilters()
{
    ScreenerPanel panel;
    QSignalSpy changed(&panel, &ScreenerPanel::filtersChanged);
    panel.assetSelector()->setCurrentIndex(panel.assetSelector()->findData("crypto"));
    QCOMPARE(changed.count(), 1);
    QTest::keyClicks(panel.searchField(), QStringLiteral("bt"));
    QCOMPARE(changed.count(), 3);
    QCOMPARE(panel.filters().search, QStringLiteral("bt"));
}

void ScreenerPanelTest::doubleClickAndEnterOpenTheSymbol()
{
    ScreenerPanel panel;
    panel.resize(700, 400);
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    panel.setRows(sampleRows());
    QTableWidget *table = panel.table();
    QCOMPARE(table->rowCount(), 3);
    QSignalSpy opened(&panel, &ScreenerPanel::symbolActivated);

    const int bitcoin = rowOf(table, QStringLiteral("BTCUSDT"));
    const QRect cell = table->visualRect(table->model()->index(bitcoin, ScreenerPanel::LastColumn));
    // A double click follows a first click on the same cell.
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, cell.center());
    QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, cell.center());
    QCOMPARE(opened.count(), 1);
    QCOMPARE(opened.takeFirst().first().toString(), QStringLiteral("BTCUSDT"));

    table->setFocus();
    table->setCurrentCell(rowOf(table, QStringLiteral("PETR4.SA")), ScreenerPanel::ChangeColumn);
    QTest::keyClick(table, Qt::Key_Return);
    QCOMPARE(opened.count(), 1);
    QCOMPARE(opened.takeFirst().first().toString(), QStringLiteral("PETR4.SA"));
}

void ScreenerPanelTest::languageChangeRelabelsAndKeepsSelection()
{
    ScreenerPanel panel;
    panel.setFilters({QStringLiteral("universe"), QStringLiteral("br"), 0, QString()});
    panel.setRows(sampleRows());
    QSignalSpy changed(&panel, &ScreenerPanel::filtersChanged);
    retranslateTo(&panel, QStringLiteral("pt_BR"));

    QTableWidget *table = panel.table();
    QCOMPARE(table->horizontalHeaderItem(ScreenerPanel::SignalColumn)->text(),
             QStringLiteral("Sinal"));
    QCOMPARE(panel.scopeSelector()->currentText(), QStringLiteral("Universo completo"));
    QCOMPARE(panel.assetSelector()->currentText(), QStringLiteral("Brasil"));
    const int apple = rowOf(table, QStringLiteral("AAPL"));
    QCOMPARE(table->item(apple, ScreenerPanel::SignalColumn)->text(),
             QStringLiteral("Não carregado"));
    QCOMPARE(table->item(rowOf(table, QStringLiteral("PETR4.SA")), ScreenerPanel::SignalColumn)
                     ->text(),
             QStringLiteral("Baixa forte"));
    QCOMPARE(panel.filters().asset, QStringLiteral("br"));
    QCOMPARE(changed.count(), 0);
}

void ScreenerPanelTest::narrowPaneHidesSecondaryColumns()
{
    ScreenerPanel panel;
    panel.setRows(sampleRows());
    panel.resize(300, 500);
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QTableWidget *table = panel.table();
    QHeaderView *header = table->horizontalHeader();
    for (int column :
         {ScreenerPanel::SymbolColumn, ScreenerPanel::LastColumn, ScreenerPanel::ChangeColumn})
        QVERIFY(!table->isColumnHidden(column));
    QVERIFY(table->isColumnHidden(ScreenerPanel::AssetColumn));
    QVERIFY(table->isColumnHidden(ScreenerPanel::SourceColumn));
    // What is shown fits: nothing is cut at the right edge, and the symbol is whole.
    QVERIFY(header->length() <= table->viewport()->width());
    QVERIFY(header->sectionSize(ScreenerPanel::SymbolColumn) >=
            static_cast<QAbstractItemView *>(table)->sizeHintForColumn(
                    ScreenerPanel::SymbolColumn));

    panel.resize(1100, 500);
    QTRY_VERIFY(!table->isColumnHidden(ScreenerPanel::SourceColumn));
    for (int column = 0; column < ScreenerPanel::ColumnCount; ++column)
        QVERIFY(!table->isColumnHidden(column));
}

QTEST_MAIN(ScreenerPanelTest)
#include "tst_screener_panel.moc"
