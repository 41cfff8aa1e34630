#include "app/language.h"
#include "support/isolated_folders.h"
#include "ui/alert_history_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/modal_script.h"
#include "ui/portfolio_panel.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFile>
#include <QInputDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>

namespace {

using Answer = ModalScript::Answer;
const auto text = ModalScript::text;
const auto number = ModalScript::number;
const auto button = ModalScript::button;

QString lastEvent(const MainWindow &window)
{
    const QString text = window.findChild<QPlainTextEdit *>("eventConsole")->toPlainText();
    return text.section(QLatin1Char('\n'), -1).mid(11);
}

QStringList column(const QTableWidget *table, int column)
{
    QStringList texts;
    for (int row = 0; row < table->rowCount(); ++row)
        texts << table->item(row, column)->text();
    return texts;
}

void trigger(QMenu *menu, int request)
{
    for (QAction *action : menu->actions()) {
        if (!action->isSeparator() && action->data().toInt() == request) {
            action->trigger();
            return;
        }
    }
    QFAIL("no such menu entry");
}

const char *kSettings = R"({"portfolios":{"active":"Main","items":[{"name":"Main",
  "base_currency":"BRL","positions":[{"symbol":"PETR4.SA","quantity":100,"average_price":36.5},
  {"symbol":"AAPL","quantity":10,"average_price":220}],"transactions":[
  {"timestamp":"2026-11-20 10:00:00","type":"cash","symbol":"","amount":-500,"currency":"BRL",
   "note":"Withdrawal, \u0022rent\u0022"},
  {"timestamp":"2026-11-21 10:00:00","type":"dividend","symbol":"PETR4.SA","amount":30,
   "currency":"BRL","note":""}]}]}})";

} // namespace

class PortfolioWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void positionsAreValuedLiveWithTheDollarRate();
    void addingAPositionFollowsTheDialogs();
    void nameClashesAndTheLastPortfolioAreRefused();
    void alertArmsFiresOnceAndIsRearmed();
    void clearingTheHistoryKeepsTheAlerts();
    void tablesExportToCsvForEachLocale_data();
    void tablesExportToCsvForEachLocale();

private:
    std::unique_ptr<IsolatedFolders> m_folders;
    std::unique_ptr<MainWindow> m_window;
};

void PortfolioWindowTest::init()
{
    setInterfaceLanguage(QStringLiteral("en"));
    m_folders = std::make_unique<IsolatedFolders>();
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/watchlists/default.json",
                         R"({"symbols":[{"symbol":"PETR4.SA"},{"symbol":"AAPL"}]})");
    m_folders->writeFile(m_folders->expectedConfigFolder() + "/local.json", kSettings);
    m_window = std::make_unique<MainWindow>();
}

void PortfolioWindowTest::cleanup()
{
    m_window.reset();
    m_folders.reset();
}

void PortfolioWindowTest::positionsAreValuedLiveWithTheDollarRate()
{
    PortfolioPanel *panel = m_window->portfolioPanel();
    QCOMPARE(column(panel->positionsTable(), 3), (QStringList{"--", "--"}));
    // Unpriced positions lower the total by their whole cost; the dollar one cannot be converted.
    QCOMPARE(panel->summaryLabel()->text(),
             QStringLiteral("BRL Market 0.00 | P&L -3650.00 | Cash -470.00 | Div 30.00 | partial "
                            "FX"));

    m_window->updateMarketRow("PETR4.SA", 38, 1, "Yahoo", "1 ms", "free/delayed");
    m_window->updateMarketRow("AAPL", 240, 1, "Yahoo", "1 ms", "free/delayed");
    QVERIFY(panel->summaryLabel()->text().endsWith(" | partial FX"));
    m_window->updateMarketRow("BRL=X", 5, 0.1, "Yahoo", "1 ms", "free/delayed");
    QCOMPARE(column(panel->positionsTable(), 5), (QStringList{"150.00", "200.00"}));
    QCOMPARE(panel->summaryLabel()->text(),
             QStringLiteral("BRL Market 15800.00 | P&L 1150.00 | Cash -470.00 | Div 30.00"));
    QVERIFY(panel->summaryLabel()->styleSheet().contains("#20c878"));
    m_window->setLanguage(QStringLiteral("pt_BR"));
    QCOMPARE(panel->summaryLabel()->text(),
             QStringLiteral("BRL Mercado 15800.00 | P&L 1150.00 | Caixa -470.00 | Div 30.00"));
    QCOMPARE(panel->transactionsTable()->item(1, 1)->text(), QStringLiteral("Dividendo"));
}

void PortfolioWindowTest::addingAPositionFollowsTheDialogs()
{
    ModalScript script({text("btc"), number(0.5), number(60000)});
    emit m_window->portfolioPanel()->requested(PortfolioPanel::Request::AddPosition);
    QVERIFY(script.done());
    QCOMPARE(column(m_window->portfolioPanel()->positionsTable(), 0),
             (QStringList{"PETR4.SA", "AAPL", "BTCUSDT"}));
    QCOMPARE(m_window->portfolioPanel()->positionsTable()->item(2, 1)->text(),
             QStringLiteral("0.50000000"));
    // A symbol the watchlist does not follow yet joins it, waiting for its data.
    QVERIFY(m_window->findMarketRow("BTCUSDT") >= 0);
    const QJsonObject stored =
            QJsonDocument::fromJson(
                    IsolatedFolders::readFile(m_folders->expectedConfigFolder() + "/local.json"))
                    .object();
    const QJsonArray positions = stored.value("portfolios")
                                         .toObject()
                                         .value("items")
                                         .toArray()
                                         .first()
                                         .toObject()
                                         .value("positions")
                                         .toArray();
    QCOMPARE(positions.size(), 3);
    QCOMPARE(positions.last().toObject().value("average_price").toDouble(), 60000.0);

    // A cancelled dialog changes nothing.
    ModalScript cancel({ModalScript::reject()});
    emit m_window->portfolioPanel()->requested(PortfolioPanel::Request::AddCashFlow);
    QCOMPARE(m_window->portfolioPanel()->transactionsTable()->rowCount(), 2);
}

void PortfolioWindowTest::nameClashesAndTheLastPortfolioAreRefused()
{
    PortfolioPanel *panel = m_window->portfolioPanel();
    {
        ModalScript script({button(QMessageBox::Ok)});
        emit panel->requested(PortfolioPanel::Request::DeletePortfolio);
        QCOMPARE(script.texts, QStringList{"At least one portfolio must remain."});
    }
    {
        ModalScript script({text("Growth")});
        emit panel->requested(PortfolioPanel::Request::NewPortfolio);
    }
    QCOMPARE(m_window->portfolios().active, QStringLiteral("Growth"));
    QCOMPARE(panel->selector()->count(), 2);
    {
        ModalScript script({text("Main"), button(QMessageBox::Ok)});
        emit panel->requested(PortfolioPanel::Request::RenamePortfolio);
        QCOMPARE(script.texts, QStringList{"A portfolio with this name already exists."});
    }
    {
        ModalScript script({button(QMessageBox::Yes)});
        emit panel->requested(PortfolioPanel::Request::DeletePortfolio);
        QCOMPARE(script.texts, QStringList{"Delete portfolio 'Growth' and all its positions?"});
    }
    QCOMPARE(m_window->portfolios().active, QStringLiteral("Main"));
    QCOMPARE(panel->selector()->count(), 1);
}

void PortfolioWindowTest::alertArmsFiresOnceAndIsRearmed()
{
    m_window->updateMarketRow("AAPL", 240, 1, "Yahoo", "1 ms", "free/delayed");
    {
        ModalScript script({[](QWidget *modal) {
            modal->findChild<QDoubleSpinBox *>("alertTarget")->setValue(250);
            static_cast<QDialog *>(modal)->accept();
        }});
        m_window->createAlert(QStringLiteral("AAPL"));
        QCOMPARE(script.titles, QStringList{"Create alert - AAPL"});
    }
    QCOMPARE(lastEvent(*m_window), QStringLiteral("Alert armed: AAPL >= 250.0000"));
    QCOMPARE(m_window->alertHistory().constLast().status, QStringLiteral("Active"));

    // Equality fires; the box opens without holding the quote path, once per crossing.
    for (double price : {249.99, 250.0, 251.0, 249.0, 252.0})
        m_window->updateMarketRow("AAPL", price, 1, "Yahoo", "1 ms", "free/delayed");
    QList<QMessageBox *> boxes = m_window->findChildren<QMessageBox *>("priceAlertBox");
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(),
             QStringLiteral("AAPL alert triggered.\n\nLast: 250.0000\nCondition: >= 250.0000"));
    QVERIFY(boxes.first()->isVisible());
    boxes.first()->close();
    QCOMPARE(
            m_window->marketTable()->item(m_window->findMarketRow("AAPL"), 0)->background().color(),
            QColor("#5a4808"));
    QCOMPARE(lastEvent(*m_window), QStringLiteral("ALERT HIT: AAPL last 250.0000 target 250.0000"));

    AlertHistoryPanel *history = m_window->alertHistoryPanel();
    QCOMPARE(column(history->table(), 1), (QStringList{"Armed", "Triggered"}));
    QCOMPARE(history->table()->item(1, 6)->foreground().color(), QColor("#f45d5d"));
    std::unique_ptr<QMenu> menu(history->createRowMenu(1));
    trigger(menu.get(), int(AlertHistoryPanel::Request::Rearm));
    QCOMPARE(lastEvent(*m_window), QStringLiteral("Alert rearmed: AAPL"));
    QVERIFY(!m_window->priceAlerts().first().triggered);
    m_window->updateMarketRow("AAPL", 255, 1, "Yahoo", "1 ms", "free/delayed");
    QTRY_COMPARE(m_window->findChildren<QMessageBox *>("priceAlertBox").size(), 1);
    qDeleteAll(m_window->findChildren<QMessageBox *>("priceAlertBox"));

    // Removed, its rows can no longer find it.
    menu.reset(history->createRowMenu(0));
    trigger(menu.get(), int(AlertHistoryPanel::Request::Remove));
    QVERIFY(m_window->priceAlerts().isEmpty());
    ModalScript script({button(QMessageBox::Ok)});
    menu.reset(history->createRowMenu(0));
    trigger(menu.get(), int(AlertHistoryPanel::Request::Rearm));
    QCOMPARE(script.texts, QStringList{"No matching saved alert found for selected history row."});
}

void PortfolioWindowTest::clearingTheHistoryKeepsTheAlerts()
{
    ModalScript arm({ModalScript::accept()});
    m_window->createAlert(QStringLiteral("PETR4.SA"));
    QCOMPARE(m_window->priceAlerts().size(), 1);
    {
        ModalScript script({button(QMessageBox::No)});
        std::unique_ptr<QMenu> menu(m_window->alertHistoryPanel()->createRowMenu(-1));
        trigger(menu.get(), int(AlertHistoryPanel::Request::Clear));
        QCOMPARE(m_window->alertHistory().size(), 1);
    }
    ModalScript script({button(QMessageBox::Yes)});
    std::unique_ptr<QMenu> menu(m_window->alertHistoryPanel()->createRowMenu(-1));
    trigger(menu.get(), int(AlertHistoryPanel::Request::Clear));
    QCOMPARE(script.titles, QStringList{"Clear alert history"});
    QVERIFY(m_window->alertHistory().isEmpty());
    QCOMPARE(m_window->priceAlerts().size(), 1);
    QCOMPARE(lastEvent(*m_window), QStringLiteral("Alert history cleared"));
}

void PortfolioWindowTest::tablesExportToCsvForEachLocale_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QByteArray>("transactions");
    QTest::newRow("English")
            << "en"
            << QByteArray(
                       "\xEF\xBB\xBFTime,Type,Symbol,Amount,Currency,Note\r\n"
                       "2026-11-20 10:00:00,Cash flow,,-500.00,BRL,\"Withdrawal, \"\"rent\"\"\"\r\n"
                       "2026-11-21 10:00:00,Dividend,PETR4.SA,30.00,BRL,\r\n");
    QTest::newRow("Portuguese") << "pt_BR"
                                << QByteArray(
                                           "\xEF\xBB\xBFHora;Tipo;Símbolo;Valor;Moeda;Nota\r\n"
                                           "2026-11-20 10:00:00;Fluxo de "
                                           "caixa;;-500,00;BRL;\"Withdrawal, \"\"rent\"\"\"\r\n"
                                           "2026-11-21 10:00:00;Dividendo;PETR4.SA;30,00;BRL;\r\n");
}

void PortfolioWindowTest::tablesExportToCsvForEachLocale()
{
    QFETCH(QString, language);
    QFETCH(QByteArray, transactions);
    m_window->setLanguage(language);
    QString suggested;
    const QString path = m_folders->root() + "/export.csv";
    m_window->setCsvPathChooser([&](const QString &name) {
        suggested = name;
        return path;
    });
    std::unique_ptr<QMenu> menu(m_window->portfolioPanel()->createTransactionsMenu(-1));
    trigger(menu.get(), int(PortfolioPanel::Request::ExportTransactions));
    QVERIFY(suggested.contains("Main-transactions-"));
    QCOMPARE(IsolatedFolders::readFile(path), transactions);
    QVERIFY(lastEvent(*m_window).contains("export.csv"));
}

QTEST_MAIN(PortfolioWindowTest)
#include "tst_portfolio_window.moc"
