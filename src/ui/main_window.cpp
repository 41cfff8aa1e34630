#include "ui/main_window.h"

#include "app/identity.h"
#include "app/startup_log.h"
#include "ui/language.h"

#include <QAction>
#include <QActionGroup>
#include <QCompleter>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

void milestone(const char *stage)
{
    writeStartupLog(QStringLiteral("MainWindow ctor: ") + QLatin1String(stage));
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    milestone("enter");
    setWindowTitle(QString::fromLatin1(kApplicationName));
    setWindowIcon(applicationIcon());
    resize(1400, 900);

    milestone("before menu setup");
    setupMenus();
    milestone("after menu setup");

    auto *root = new QWidget(this);
    auto *rootLayout = new QVBoxLayout(root);
    rootLayout->setContentsMargins(8, 6, 8, 6);
    rootLayout->setSpacing(6);
    milestone("root layout created");

    auto *topLayout = new QHBoxLayout;
    topLayout->setSpacing(10);
    rootLayout->addLayout(topLayout);
    milestone("top layout created");

    topLayout->addWidget(createBrand());
    milestone("brand created");

    milestone("before setupCompleter");
    createTickerSearch();
    setupCompleter();
    milestone("after setupCompleter");

    milestone("before loadSymbolClassifications");
    loadSymbolClassifications();
    milestone("after loadSymbolClassifications");

    topLayout->addWidget(m_tickerSearch, 1);
    topLayout->addStretch(1);
    m_fxTicker = new QLabel(QStringLiteral("USD/BRL --"), root);
    m_fxTicker->setObjectName(QStringLiteral("fxTicker"));
    topLayout->addWidget(m_fxTicker);
    milestone("top bar created");

    m_marketPanel = createPanelPlaceholder(QStringLiteral("marketPanel"));
    milestone("table created");
    milestone("chart toolbar partially created");
    m_chartPanel = createPanelPlaceholder(QStringLiteral("chartPanel"));
    milestone("chart panel created");
    m_bookPanel = createPanelPlaceholder(QStringLiteral("bookPanel"));
    milestone("book panel created");
    m_moversPanel = createPanelPlaceholder(QStringLiteral("moversPanel"));
    milestone("movers panel created");
    m_screenerPanel = createPanelPlaceholder(QStringLiteral("screenerPanel"));
    milestone("screener panel created");
    m_newsPanel = createPanelPlaceholder(QStringLiteral("newsPanel"));
    milestone("news panel created");
    m_portfolioPanel = createPanelPlaceholder(QStringLiteral("portfolioPanel"));
    milestone("portfolio panel created");
    m_tapePanel = createPanelPlaceholder(QStringLiteral("tapePanel"));
    milestone("tape panel created");

    m_historyPanel = createPanelPlaceholder(QStringLiteral("historyPanel"));
    m_rightTabs = new QTabWidget(root);
    m_rightTabs->setObjectName(QStringLiteral("rightTabs"));
    for (QWidget *panel : {m_moversPanel, m_screenerPanel, m_newsPanel, m_portfolioPanel,
                           m_bookPanel, m_tapePanel, m_historyPanel})
        m_rightTabs->addTab(panel, QString());
    m_leftSplitter = new QSplitter(Qt::Vertical, root);
    m_leftSplitter->setObjectName(QStringLiteral("leftSplitter"));
    m_leftSplitter->addWidget(m_marketPanel);
    m_leftSplitter->addWidget(m_chartPanel);
    m_workspaceSplitter = new QSplitter(Qt::Horizontal, root);
    m_workspaceSplitter->setObjectName(QStringLiteral("workspaceSplitter"));
    m_workspaceSplitter->addWidget(m_leftSplitter);
    m_workspaceSplitter->addWidget(m_rightTabs);
    m_workspaceSplitter->setSizes({1080, 320});
    rootLayout->addWidget(m_workspaceSplitter, 1);
    milestone("right tabs created");

    setCentralWidget(root);
    milestone("central widget set");

    milestone("before signal connects");
    setupQuoteRouting();
    connectSignals();

    // Loading the stored state: each step runs between its milestones once its owner exists; the
    // milestones are written from the start so the trail always has the same shape.
    milestone("before loadConfig");
    loadConfig();
    milestone("before loadLocalSettings");
    milestone("before applyConfiguredShortcuts");
    milestone("before retranslateUi");
    retranslateUi();
    milestone("before applyColumnVisibilityConfig");
    milestone("before loadWatchlist");
    milestone("before refreshPortfolio");
    milestone("before applyTheme");
    milestone("before updateThemedWidgets");
    milestone("before refreshAlertHistoryTable");
    milestone("after refreshAlertHistoryTable");
}

MainWindow::~MainWindow() = default;

void MainWindow::setupMenus()
{
    m_viewMenu = menuBar()->addMenu(QString());
    m_dataMenu = m_viewMenu->addMenu(QString());
    m_apiKeysAction = m_dataMenu->addAction(QString());
    m_languageMenu = m_viewMenu->addMenu(QString());
    m_languageGroup = new QActionGroup(this);
    m_languageGroup->setExclusive(true);
    m_englishAction = m_languageMenu->addAction(QString());
    m_portugueseAction = m_languageMenu->addAction(QString());
    for (QAction *action : {m_englishAction, m_portugueseAction}) {
        action->setCheckable(true);
        m_languageGroup->addAction(action);
    }
    m_englishAction->setChecked(true);
}

QWidget *MainWindow::createBrand()
{
    auto *brand = new QWidget(this);
    brand->setObjectName(QStringLiteral("terminalBrand"));
    auto *layout = new QHBoxLayout(brand);
    layout->setContentsMargins(0, 0, 6, 0);
    layout->setSpacing(8);

    auto *logo = new QLabel(brand);
    logo->setObjectName(QStringLiteral("brandLogo"));
    logo->setPixmap(applicationIcon().pixmap(QSize(28, 28), devicePixelRatio()));
    layout->addWidget(logo);

    m_terminalTitle = new QLabel(QString::fromLatin1(kApplicationName), brand);
    m_terminalTitle->setObjectName(QStringLiteral("terminalTitle"));
    QFont titleFont = m_terminalTitle->font();
    titleFont.setPixelSize(18);
    titleFont.setWeight(QFont::ExtraBold);
    m_terminalTitle->setFont(titleFont);
    layout->addWidget(m_terminalTitle);
    return brand;
}

void MainWindow::createTickerSearch()
{
    m_tickerSearch = new QLineEdit(this);
    m_tickerSearch->setObjectName(QStringLiteral("tickerSearch"));
    m_tickerSearch->setClearButtonEnabled(true);
    m_tickerSearch->setMinimumWidth(360);
    m_tickerSearch->setMaximumWidth(560);
}

QWidget *MainWindow::createPanelPlaceholder(const QString &objectName)
{
    auto *panel = new QWidget(this);
    panel->setObjectName(objectName);
    return panel;
}

void MainWindow::connectSignals()
{
    connect(m_tickerSearch, &QLineEdit::returnPressed, this, &MainWindow::addSymbolFromSearch);
    // Picking an entry confirms it. Enter on the popup also reaches returnPressed afterwards, but
    // by then the field is empty and the second call does nothing.
    connect(m_completer, qOverload<const QString &>(&QCompleter::activated), this,
            [this](const QString &entry) {
                m_tickerSearch->setText(entry);
                addSymbolFromSearch();
            });
    connect(m_apiKeysAction, &QAction::triggered, this, &MainWindow::showApiKeysDialog);
    connect(m_englishAction, &QAction::triggered, this,
            [this] { setLanguage(QStringLiteral("en")); });
    connect(m_portugueseAction, &QAction::triggered, this,
            [this] { setLanguage(QStringLiteral("pt_BR")); });
}

void MainWindow::setLanguage(const QString &code)
{
    if (!setInterfaceLanguage(code))
        return;
    retranslateUi();
}

void MainWindow::retranslateUi()
{
    m_viewMenu->setTitle(translated(QStringLiteral("View"), QStringLiteral("Exibir")));
    m_dataMenu->setTitle(
            translated(QStringLiteral("Data And APIs"), QStringLiteral("Dados e APIs")));
    m_apiKeysAction->setText(
            translated(QStringLiteral("API Keys"), QStringLiteral("Chaves de API")));
    m_languageMenu->setTitle(translated(QStringLiteral("Language"), QStringLiteral("Idioma")));
    m_englishAction->setText(QStringLiteral("English"));
    m_portugueseAction->setText(QStringLiteral("Português"));
    (isPortuguese() ? m_portugueseAction : m_englishAction)->setChecked(true);

    m_tickerSearch->setPlaceholderText(
            translated(QStringLiteral("Search ticker: PETR4.SA, AAPL, BTCUSDT, USD/BRL"),
                       QStringLiteral("Buscar ativo: PETR4.SA, AAPL, BTCUSDT, USD/BRL")));

    const QList<std::pair<QString, QString>> tabTitles = {
            {QStringLiteral("Movers"), QStringLiteral("Destaques")},
            {QStringLiteral("Screener"), QStringLiteral("Rastreador")},
            {QStringLiteral("News"), QStringLiteral("Notícias")},
            {QStringLiteral("Portfolio"), QStringLiteral("Carteira")},
            {QStringLiteral("Book"), QStringLiteral("Livro")},
            {QStringLiteral("Tape"), QStringLiteral("Negócios")},
            {QStringLiteral("History"), QStringLiteral("Histórico")},
    };
    for (int i = 0; i < tabTitles.size() && i < m_rightTabs->count(); ++i)
        m_rightTabs->setTabText(i, translated(tabTitles.at(i).first, tabTitles.at(i).second));
}
