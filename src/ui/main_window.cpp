#include "ui/main_window.h"

#include "app/identity.h"
#include "app/language.h"
#include "app/startup_log.h"
#include "chart/price_chart.h"
#include "chart/timeframe.h"
#include "streams/itick_session.h"
#include "ui/alert_history_panel.h"
#include "ui/bilingual.h"
#include "ui/book_panel.h"
#include "ui/layout_presets.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/news_panel.h"
#include "ui/portfolio_panel.h"
#include "ui/quote_details.h"
#include "ui/screener_panel.h"
#include "ui/tape_panel.h"

#include <QAction>
#include <QActionGroup>
#include <QComboBox>
#include <QCompleter>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebSocket>

namespace {

// The session and market data start a moment after the window is first painted, so that setting
// up connections never holds back the first picture, even on a slow machine. A window never
// painted (shown minimised, or never shown) starts them anyway after a while.
constexpr int kSessionStartMs = 250;
constexpr int kFirstPaintWaitMs = 2000;

void milestone(const char *stage)
{
    writeStartupLog(QStringLiteral("MainWindow ctor: ") + QLatin1String(stage));
}

QAction *addBoundAction(QMenu *menu, const QString &english, const QString &portuguese)
{
    QAction *action = menu->addAction(english);
    bindText(action, english, portuguese);
    return action;
}

QMenu *addBoundMenu(QMenu *parent, const QString &english, const QString &portuguese)
{
    QMenu *menu = parent->addMenu(english);
    bindText(menu, english, portuguese);
    return menu;
}

QLabel *panelTitle(const QString &english, const QString &portuguese, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(QStringLiteral("panelTitle"));
    bindText(label, english, portuguese);
    return label;
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    milestone("enter");
    setWindowTitle(QString::fromLatin1(kApplicationName));
    setWindowIcon(applicationIcon());
    // A first start opens at a comfortable size, never larger than the screen; a stored geometry
    // replaces this when the settings load.
    if (QScreen *current = screen())
        setGeometry(centredOnScreen(QSize(1400, 900), current->availableGeometry()));
    else
        resize(1400, 900);
    m_theme = QStringLiteral("coffee_dark");
    createTimers();
    createStreams();

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

    m_marketPanel = createMarketPanel();
    milestone("table created");
    milestone("chart toolbar partially created");
    m_chartPanel = createChartPanel();
    milestone("chart panel created");
    m_book = new BookPanel(root);
    milestone("book panel created");
    m_movers = new MoversPanel(root);
    milestone("movers panel created");
    m_screener = new ScreenerPanel(root);
    milestone("screener panel created");
    m_news = new NewsPanel(root);
    milestone("news panel created");
    m_portfolio = new PortfolioPanel(root);
    milestone("portfolio panel created");
    m_tape = new TapePanel(root);
    milestone("tape panel created");

    m_history = new AlertHistoryPanel(root);
    m_rightTabs = new QTabWidget(root);
    m_rightTabs->setObjectName(QStringLiteral("rightTabs"));
    m_rightTabs->setDocumentMode(false);
    m_rightTabs->setUsesScrollButtons(true);
    const struct
    {
        QWidget *panel;
        const char *english;
        const char *portuguese;
    } tabs[] = {
            {m_movers, "Movers", "Destaques"},   {m_screener, "Screener", "Rastreador"},
            {m_news, "News", "Notícias"},        {m_portfolio, "Portfolio", "Carteira"},
            {m_book, "Book", "Livro"},           {m_tape, "Tape", "Negócios"},
            {m_history, "History", "Histórico"},
    };
    for (const auto &tab : tabs) {
        m_rightTabs->addTab(tab.panel, QString());
        bindText(tab.panel, QString::fromUtf8(tab.english), QString::fromUtf8(tab.portuguese),
                 TextRole::TabTitle);
    }
    m_consolePane = createConsolePane();
    m_leftSplitter = new QSplitter(Qt::Vertical, root);
    m_leftSplitter->setObjectName(QStringLiteral("leftSplitter"));
    m_leftSplitter->setChildrenCollapsible(false);
    m_leftSplitter->addWidget(m_marketPanel);
    m_leftSplitter->addWidget(m_chartPanel);
    m_leftSplitter->addWidget(m_consolePane);
    setSplitterSizes(m_leftSplitter, layoutPreset(QString()).leftSizes);
    m_workspaceSplitter = new QSplitter(Qt::Horizontal, root);
    m_workspaceSplitter->setObjectName(QStringLiteral("workspaceSplitter"));
    m_workspaceSplitter->setChildrenCollapsible(false);
    m_workspaceSplitter->addWidget(m_leftSplitter);
    m_workspaceSplitter->addWidget(m_rightTabs);
    setSplitterSizes(m_workspaceSplitter, layoutPreset(QString()).workspaceSizes);
    rootLayout->addWidget(m_workspaceSplitter, 1);
    milestone("right tabs created");

    setCentralWidget(root);
    milestone("central widget set");

    milestone("before signal connects");
    setupQuoteRouting();
    connectSignals();
    connectChart();
    connectOverview();
    connectPortfolio();
    connectAccount();
    connectProviders();
    connect(m_book, &BookPanel::presetClicked, this, &MainWindow::applyBookPreset);
    connect(m_book, &BookPanel::stepEdited, this, [this] {
        // A step typed by hand is nobody's preset until it matches one.
        refreshPresetButtons();
        m_savedBookPreset = m_book->activePreset();
        scheduleSettingsSave();
    });

    milestone("before loadConfig");
    loadConfig();
    milestone("before loadLocalSettings");
    loadLocalSettings();
    milestone("before applyConfiguredShortcuts");
    applyConfiguredShortcuts();
    milestone("before retranslateUi");
    retranslateUi();
    milestone("before applyColumnVisibilityConfig");
    applyColumnVisibilityConfig();
    milestone("before loadWatchlist");
    loadWatchlist();
    milestone("before refreshPortfolio");
    refreshPortfolio();
    milestone("before applyTheme");
    applyTheme();
    milestone("before updateThemedWidgets");
    updateThemedWidgets();
    milestone("before refreshAlertHistoryTable");
    refreshAlertHistoryTable();
    milestone("after refreshAlertHistoryTable");

    logEvent(translated(QStringLiteral("Terminal initialized"),
                        QStringLiteral("Terminal inicializado")));
    if (const int alerts = storedAlertCount(m_settingsFile.stored()); alerts > 0)
        logEvent(translated(QStringLiteral("Loaded %1 saved alert(s)"),
                            QStringLiteral("%1 alerta(s) salvo(s) carregado(s)"))
                         .arg(alerts));
    if (m_marketTable->rowCount() > 0)
        m_marketTable->selectRow(0);
    m_sessionTimer = new QTimer(this);
    m_sessionTimer->setSingleShot(true);
    connect(m_sessionTimer, &QTimer::timeout, this, &MainWindow::startSession);
    m_sessionTimer->start(kSessionStartMs);
}

bool MainWindow::event(QEvent *event)
{
    if (!m_sessionStarted && !m_firstPaintSeen) {
        if (event->type() == QEvent::Show) {
            m_sessionTimer->start(kFirstPaintWaitMs);
        } else if (event->type() == QEvent::Paint) {
            m_firstPaintSeen = true;
            m_sessionTimer->start(kSessionStartMs);
        }
    }
    return QMainWindow::event(event);
}

MainWindow::~MainWindow()
{
    // A socket still open says "disconnected" while it is destroyed, after the panels its
    // handlers write to are gone: it is cut off first.
    for (QWebSocket *socket : {m_tickerSocket, m_depthSocket, m_tradeSocket}) {
        if (!socket)
            continue;
        socket->disconnect(this);
        socket->abort();
    }
    if (m_itick) {
        m_itick->disconnect(this);
        m_itick->stop();
    }
}

void MainWindow::setupMenus()
{
    m_viewMenu = menuBar()->addMenu(QString());
    bindText(m_viewMenu, QStringLiteral("View"), QStringLiteral("Exibir"));

    // Entries whose features are not built yet are shown disabled, so the menu keeps its shape.
    QMenu *account = addBoundMenu(m_viewMenu, QStringLiteral("Account"), QStringLiteral("Conta"));
    m_syncNowAction = addBoundAction(account, QStringLiteral("Sync Now"),
                                     QStringLiteral("Sincronizar agora"));
    m_syncStatusAction = addBoundAction(account, QStringLiteral("Sync Status"),
                                        QStringLiteral("Status da sincronização"));
    m_logoutAction =
            addBoundAction(account, QStringLiteral("Logout"), QStringLiteral("Sair da conta"));

    QMenu *data = addBoundMenu(m_viewMenu, QStringLiteral("Data And APIs"),
                               QStringLiteral("Dados e APIs"));
    m_apiKeysAction =
            addBoundAction(data, QStringLiteral("API Keys"), QStringLiteral("Chaves de API"));
    m_verifyApisAction =
            addBoundAction(data, QStringLiteral("Verify APIs"), QStringLiteral("Verificar APIs"));
    m_verifyApisAction->setObjectName(QStringLiteral("verifyApisAction"));

    m_shortcutsAction =
            addBoundAction(m_viewMenu, QStringLiteral("Shortcuts"), QStringLiteral("Atalhos"));
    m_viewMenu->addSeparator();

    QMenu *language =
            addBoundMenu(m_viewMenu, QStringLiteral("Language"), QStringLiteral("Idioma"));
    auto *languageGroup = new QActionGroup(this);
    m_englishAction = language->addAction(QStringLiteral("English"));
    m_portugueseAction = language->addAction(QStringLiteral("Português"));
    for (QAction *action : {m_englishAction, m_portugueseAction}) {
        action->setCheckable(true);
        languageGroup->addAction(action);
    }

    QMenu *appearance =
            addBoundMenu(m_viewMenu, QStringLiteral("Appearance"), QStringLiteral("Aparência"));
    auto *themeGroup = new QActionGroup(this);
    m_darkAction = addBoundAction(appearance, QStringLiteral("Dark"), QStringLiteral("Escuro"));
    m_lightAction = addBoundAction(appearance, QStringLiteral("Light"), QStringLiteral("Claro"));
    for (QAction *action : {m_darkAction, m_lightAction}) {
        action->setCheckable(true);
        themeGroup->addAction(action);
    }
    m_viewMenu->addSeparator();

    QMenu *layout = addBoundMenu(m_viewMenu, QStringLiteral("Layout"), QStringLiteral("Layout"));
    for (const LayoutPreset &preset : layoutPresets()) {
        QAction *action = addBoundAction(layout, preset.english, preset.portuguese);
        const QString id = preset.id;
        connect(action, &QAction::triggered, this, [this, id] { applyLayoutPreset(id); });
        m_layoutActions << action;
    }
    layout->addSeparator();
    m_saveWorkspaceAction = addBoundAction(layout, QStringLiteral("Save Workspace"),
                                           QStringLiteral("Salvar espaço de trabalho"));
    m_loadWorkspaceAction = addBoundAction(layout, QStringLiteral("Load Workspace"),
                                           QStringLiteral("Carregar espaço de trabalho"));
    layout->addSeparator();
    m_nextMonitorAction = addBoundAction(layout, QStringLiteral("Move To Next Monitor"),
                                         QStringLiteral("Mover para o próximo monitor"));

    QMenu *columns = addBoundMenu(m_viewMenu, QStringLiteral("Columns"), QStringLiteral("Colunas"));
    const struct
    {
        const char *preset;
        const char *english;
        const char *portuguese;
    } presets[] = {
            {"all", "All", "Todas"},
            {"trading", "Trading", "Negociação"},
            {"analytics", "Analytics", "Análise"},
            {"compact", "Compact", "Compacta"},
    };
    for (const auto &preset : presets) {
        QAction *action = addBoundAction(columns, QString::fromUtf8(preset.english),
                                         QString::fromUtf8(preset.portuguese));
        const QString id = QString::fromLatin1(preset.preset);
        connect(action, &QAction::triggered, this, [this, id] { applyColumnPreset(id); });
    }

    // One window-wide shortcut per book aggregation mode.
    for (const char *mode : {"raw", "tight", "normal", "wide"}) {
        auto *shortcut = new QShortcut(this);
        shortcut->setObjectName(QStringLiteral("book_%1").arg(QLatin1String(mode)));
        shortcut->setContext(Qt::WindowShortcut);
        const QString id = QString::fromLatin1(mode);
        connect(shortcut, &QShortcut::activated, this, [this, id] { applyBookPreset(id); });
        m_bookShortcuts << shortcut;
    }
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
    bindText(m_tickerSearch, QStringLiteral("Search ticker: PETR4.SA, AAPL, BTCUSDT, USD/BRL"),
             QStringLiteral("Buscar ativo: PETR4.SA, AAPL, BTCUSDT, USD/BRL"),
             TextRole::Placeholder);
}

QWidget *MainWindow::createMarketPanel()
{
    auto *panel = new QWidget(this);
    panel->setObjectName(QStringLiteral("marketPanel"));
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(
            panelTitle(QStringLiteral("WATCHLIST"), QStringLiteral("LISTA DE ATIVOS"), panel));
    m_marketTable = new MarketTable(panel);
    m_marketTable->setToolTipProvider([this](const QString &symbol) { return rowToolTip(symbol); });
    layout->addWidget(m_marketTable, 1);
    return panel;
}

QWidget *MainWindow::createChartPanel()
{
    auto *panel = new QWidget(this);
    panel->setObjectName(QStringLiteral("chartPanel"));
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->setSpacing(4);
    m_quoteHeader = new QuoteHeader(panel);
    layout->addWidget(m_quoteHeader);

    layout->addWidget(createChartToolbar(panel));

    m_chart = new PriceChart(panel);
    m_chart->setObjectName(QStringLiteral("priceChart"));
    layout->addWidget(m_chart, 1);
    return panel;
}

QWidget *MainWindow::createChartToolbar(QWidget *panel)
{
    auto *toolbar = new QWidget(panel);
    toolbar->setObjectName(QStringLiteral("chartToolbar"));
    auto *layout = new QHBoxLayout(toolbar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);

    m_chartModeSelector = new QComboBox(toolbar);
    m_chartModeSelector->setObjectName(QStringLiteral("chartMode"));
    m_chartModeSelector->addItem(QString(), QStringLiteral("line"));
    m_chartModeSelector->addItem(QString(), QStringLiteral("candle"));
    bindItemTexts(m_chartModeSelector, {QStringLiteral("Line"), QStringLiteral("Candles")},
                  {QStringLiteral("Linha"), QStringLiteral("Candles")});
    connect(m_chartModeSelector, qOverload<int>(&QComboBox::activated), this,
            [this](int index) { setChartMode(m_chartModeSelector->itemData(index).toString()); });
    layout->addWidget(m_chartModeSelector);

    m_timeframeSelector = new QComboBox(toolbar);
    m_timeframeSelector->setObjectName(QStringLiteral("chartTimeframe"));
    m_timeframeSelector->addItems(chartTimeframes());
    m_timeframeSelector->setCurrentText(m_chartTimeframe);
    connect(m_timeframeSelector, &QComboBox::textActivated, this, &MainWindow::setChartTimeframe);
    layout->addWidget(m_timeframeSelector);
    layout->addSpacing(8);

    // The tool names are the chart's own and are not translated.
    const struct
    {
        const char *id;
        const char *label;
        bool checkable;
    } tools[] = {
            {"select", "Select", true}, {"reset", "Reset", false}, {"hline", "HLine", true},
            {"vline", "VLine", true},   {"trend", "Trend", true},
    };
    for (const auto &tool : tools) {
        auto *button = new QPushButton(QString::fromLatin1(tool.label), toolbar);
        button->setObjectName(QStringLiteral("chartToolButton"));
        button->setProperty("tool", QLatin1String(tool.id));
        button->setCheckable(tool.checkable);
        button->setAutoExclusive(tool.checkable);
        button->setFocusPolicy(Qt::NoFocus);
        layout->addWidget(button);
        m_chartToolButtons.insert(QString::fromLatin1(tool.id), button);
    }
    m_chartToolButtons.value(QStringLiteral("select"))->setChecked(true);
    layout->addStretch(1);
    return toolbar;
}

QWidget *MainWindow::createPanelPlaceholder(const QString &objectName, const char *title,
                                            const char *portugueseTitle, const char *emptyText,
                                            const char *portugueseEmptyText)
{
    // The panel's title and what it shows while it has nothing to show.
    auto *panel = new QWidget(this);
    panel->setObjectName(objectName);
    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(6, 4, 6, 6);
    layout->setSpacing(4);
    layout->addWidget(
            panelTitle(QString::fromUtf8(title), QString::fromUtf8(portugueseTitle), panel));
    auto *empty = new QLabel(panel);
    empty->setObjectName(QStringLiteral("emptyState"));
    empty->setAlignment(Qt::AlignCenter);
    empty->setWordWrap(true);
    bindText(empty, QString::fromUtf8(emptyText), QString::fromUtf8(portugueseEmptyText));
    layout->addWidget(empty, 1);
    return panel;
}

QWidget *MainWindow::createConsolePane()
{
    auto *pane = new QWidget(this);
    pane->setObjectName(QStringLiteral("consolePane"));
    auto *layout = new QHBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    m_quoteLog = new QuoteLog(pane);
    layout->addWidget(m_quoteLog, 3);

    auto *events = new QWidget(pane);
    auto *eventsLayout = new QVBoxLayout(events);
    eventsLayout->setContentsMargins(0, 0, 0, 0);
    eventsLayout->setSpacing(2);
    auto *title = new QLabel(events);
    title->setObjectName(QStringLiteral("subPanelTitle"));
    bindText(title, QStringLiteral("EVENTS"), QStringLiteral("EVENTOS"));
    eventsLayout->addWidget(title);
    m_eventConsole = new QPlainTextEdit(events);
    m_eventConsole->setObjectName(QStringLiteral("eventConsole"));
    m_eventConsole->setReadOnly(true);
    m_eventConsole->setMaximumBlockCount(2000);
    m_eventConsole->setLineWrapMode(QPlainTextEdit::NoWrap);
    eventsLayout->addWidget(m_eventConsole, 1);
    layout->addWidget(events, 2);
    return pane;
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
    connect(m_shortcutsAction, &QAction::triggered, this, &MainWindow::showShortcutsDialog);
    connect(m_englishAction, &QAction::triggered, this,
            [this] { setLanguage(QStringLiteral("en")); });
    connect(m_portugueseAction, &QAction::triggered, this,
            [this] { setLanguage(QStringLiteral("pt_BR")); });
    connect(m_darkAction, &QAction::triggered, this,
            [this] { setTheme(QStringLiteral("coffee_dark")); });
    connect(m_lightAction, &QAction::triggered, this,
            [this] { setTheme(QStringLiteral("qrl_light")); });

    connect(m_marketTable, &QTableWidget::itemSelectionChanged, this,
            &MainWindow::selectionChanged);
    connect(m_marketTable, &MarketTable::moveRequested, this, &MainWindow::moveMarketRow);
    connect(m_marketTable, &MarketTable::removeRequested, this, [this](int row) {
        m_marketTable->selectRow(row);
        removeSelectedSymbol();
    });
    connect(m_marketTable, &MarketTable::columnVisibilityChanged, this, [this] {
        m_hiddenColumns = m_marketTable->hiddenColumns();
        saveLocalSettings();
    });
    connect(m_marketTable, &MarketTable::symbolColumnHideRefused, this, [this] {
        logEvent(translated(QStringLiteral("Symbol column cannot be hidden"),
                            QStringLiteral("A coluna Símbolo não pode ser ocultada")));
    });

    connect(m_logoutAction, &QAction::triggered, this, &MainWindow::logout);
    connect(m_saveWorkspaceAction, &QAction::triggered, this, &MainWindow::saveWorkspaceSnapshot);
    connect(m_loadWorkspaceAction, &QAction::triggered, this, &MainWindow::loadWorkspaceSnapshot);
    connect(m_nextMonitorAction, &QAction::triggered, this, &MainWindow::moveToNextMonitor);
    for (QSplitter *splitter : {m_leftSplitter, m_workspaceSplitter})
        connect(splitter, &QSplitter::splitterMoved, this, &MainWindow::scheduleSettingsSave);
    connect(m_tickerSearch, &QLineEdit::textEdited, m_searchTimer, qOverload<>(&QTimer::start));
    connectTimers();
}
