#pragma once

#include "account/account_request.h"
#include "account/account_session.h"
#include "account/account_sync.h"
#include "chart/candle.h"
#include "chart/indicators.h"
#include "market/market_row.h"
#include "market/universe.h"
#include "overview/movers.h"
#include "overview/news.h"
#include "portfolio/portfolio.h"
#include "portfolio/price_alerts.h"
#include "providers/api_keys.h"
#include "providers/provider_catalogue.h"
#include "providers/quota_meter.h"
#include "providers/quote_router.h"
#include "streams/order_book.h"
#include "streams/time_and_sales.h"
#include "ui/local_settings.h"
#include "ui/market_table.h"
#include "ui/shortcuts.h"

#include <QHash>
#include <QMainWindow>
#include <QPointer>
#include <QSet>

#include <functional>

class BookPanel;
class ItickSession;
class HealthCheck;
class VerifyApisDialog;
class MoversFeed;
class MoversPanel;
class NewsFeed;
class NewsPanel;
class AlertHistoryPanel;
class PortfolioPanel;
class ScreenerPanel;
class QSystemTrayIcon;
class QAction;
class QActionGroup;
class QComboBox;
class QCompleter;
class QLabel;
class QLineEdit;
class QMenu;
class QNetworkAccessManager;
class QPlainTextEdit;
class QPushButton;
class QShortcut;
class QSplitter;
class QStringListModel;
class QTabWidget;
class FrameRenderer;
class QTimer;
class QWebSocket;
class PriceChart;
struct ProviderReply;
class TapePanel;
class QuoteHeader;
class QuoteLog;

// The single top-level window: the composition root that owns every panel, timer and piece of user
// state. Behaviour lives in the units and panels it wires together; its own operations are split
// by concern into main_window_*.cpp files.
class MainWindow : public QMainWindow, private QuoteRouterHost
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // Symbols and universe
    void setupCompleter();
    void loadSymbolClassifications();
    void mergeUniverseSymbols(const QStringList &symbols);
    QString normalizeSymbolInput(const QString &text) const;
    QString sectorForSymbol(const QString &symbol) const;
    const SymbolUniverse &symbolUniverse() const { return m_universe; }

    // Watchlist and market table
    MarketTable *marketTable() const { return m_marketTable; }
    int findMarketRow(const QString &symbol) const;
    void addMarketRow(const QString &symbol, const QString &classLabel, const QString &source,
                      const QString &status, bool select);
    void updateMarketRow(const QString &symbol, double price, double changePercent,
                         const QString &source, const QString &latency, const QString &status);
    void addSymbolFromSearch();
    void loadWatchlist();
    void saveWatchlist();
    QJsonObject buildWatchlistJson() const;
    void moveMarketRow(int from, int to);
    void removeSelectedSymbol();
    void applyColumnPreset(const QString &preset);
    void applyColumnVisibilityConfig();

    // Language, theme, shortcuts and the settings that keep them
    void setLanguage(const QString &code);
    void retranslateUi();
    void setTheme(const QString &themeId);
    QString theme() const { return m_theme; }
    void applyTheme();
    void updateThemedWidgets();
    QKeySequence configuredShortcut(const QString &id) const;
    const ShortcutOverrides &shortcutOverrides() const { return m_shortcutOverrides; }
    void setShortcutOverrides(const ShortcutOverrides &overrides);
    void applyConfiguredShortcuts();
    void showShortcutsDialog();

    // Settings and workspace snapshots
    void loadLocalSettings();
    void saveLocalSettings();
    // Turns a burst of changes into one write of the settings, 450 ms after the last.
    void scheduleSettingsSave();
    void applySettingsObject(const QJsonObject &settings);
    void saveWorkspaceSnapshot();
    void loadWorkspaceSnapshot();
    const LocalSettingsFile &settingsFile() const { return m_settingsFile; }
    QString chartMode() const { return m_chartMode; }

    // Window shell
    void logEvent(const QString &text);
    void applyLayoutPreset(const QString &id);
    void moveToNextMonitor();
    void logout();
    bool hasStoredSession() const;

    // The account: session and sync.
    bool login(const QString &email, const QString &password, QString *error);
    bool loginWithGoogle(QString *error);
    bool validateStoredSession();
    void refreshSession();
    bool showLoginDialog();
    void syncAccountNow();
    bool pushAccountState(const QStringList &namespaces);
    void applyRemoteAccountState(const QHash<QString, RemoteSyncItem> &items);
    void showAccountSyncStatus();
    const AccountSession &accountSession() const { return m_session; }
    const SyncState &syncState() const { return m_syncState; }
    // Tests shorten the waits and keep the browser closed.
    void setAccountTiming(int requestTimeoutMs, int googlePollMs, qint64 googleDeadlineMs)
    {
        m_accountTimeoutMs = requestTimeoutMs;
        m_googlePollMs = googlePollMs;
        m_googleDeadlineMs = googleDeadlineMs;
    }
    void setUrlOpener(std::function<bool(const QUrl &)> opener) { m_urlOpener = std::move(opener); }
    void setOfferLoginAfterLogout(bool offer) { m_offerLoginAfterLogout = offer; }

    // Providers: the Verify APIs dialog and the meter of keyed requests.
    void showVerifyApisDialog();
    const QuotaMeter &quotaMeter() const { return m_quota; }
    const ApiHealthRecords &healthRecords() const { return m_healthRecords; }

    // Keys and quotes
    void loadConfig();
    void showApiKeysDialog();
    const ApiKeyStore &apiKeys() const { return m_keys; }
    QuoteRouter &quoteRouter() { return *m_quoteRouter; }
    void refreshQuote(const QString &symbol);
    // Every non-crypto market row, top to bottom, through its cascade (the 15 s timer).
    void refreshMarketQuotes();
    void refreshWatchlistBatch();
    void refreshFxTicker();
    // The pair behind the top-bar USD/BRL ticker.
    static QString fxTickerSymbol() { return QStringLiteral("BRL=X"); }
    void startMarketData();

    // Binance streams: the ticker of every crypto row, depth and trades of the selected pair.
    void rebuildTickerStream();
    void switchBookSymbol();
    void switchTapeSymbol(const QString &symbol);
    void requestCryptoUniverse();
    void loadCryptoUniverse(const ProviderReply &reply);
    // The Binance sockets, made when first needed: making one sets up TLS, which can wait until
    // the window is on screen.
    QWebSocket *tickerSocket();
    QWebSocket *depthSocket();
    // What the stream sockets call with each text frame; the benchmarks feed them directly.
    void onTickerFrame(const QString &text);
    void onDepthFrame(const QString &text);
    void onTradeFrame(const QString &text);
    // Draws now what waits for the next screen frame: stream rows, the tape and the book.
    void flushScreenFrame();
    QWebSocket *tradeSocket();
    QString bookSymbol() const { return m_bookSymbol; }
    QString tapeSymbol() const { return m_tapeSymbol; }
    bool isDepthPending() const { return m_depthPending; }
    bool isDepthValid() const { return m_depthValid; }
    const QStringList &cryptoBaseAssets() const { return m_cryptoBaseAssets; }
    // Bars made from the ticker stream, per symbol, oldest first.
    const QHash<QString, QList<Candle>> &localPriceSeries() const { return m_localPriceSeries; }

    // The price chart and the candle history behind it.
    PriceChart *priceChart() const { return m_chart; }
    QList<Candle> storedCandles(const QString &symbol) const { return m_candleCache.value(symbol); }
    const QJsonObject &drawingsStore() const { return m_drawingsStore; }
    void requestBinanceKlines(const QString &symbol);
    void requestYahooChart(const QString &symbol, bool report);
    void requestBrapiHistory(const QString &symbol, bool withToken);
    // Klines again for every crypto row (the watchlist refresh).
    void refreshCryptoKlines();

    // The order book panel.
    BookPanel *bookPanel() const { return m_book; }
    void resetBook(const QString &title);
    void showDepth(const DepthSides &sides, bool fromSnapshot);
    void requestDepthSnapshot(const QString &symbol);
    void showLevel2Depth(const Level2Book &book, const QString &title);
    void showQuoteStatsFallback(const QString &symbol);
    void showSnapshotFallback(const QString &symbol, double last, double close,
                              const QString &title);
    void showB3Notice(const QString &symbol);
    void showUsLevel1Fallback(const QString &symbol, const QString &reason);
    double stepOfPreset(const QString &presetId) const;
    QString stepSuffix() const;
    void refreshPresetButtons();
    QString savedBookPreset() const { return m_savedBookPreset; }

    // The time-and-sales tape.
    TapePanel *tapePanel() const { return m_tape; }
    void addTapeRow(const TapeRow &row);
    void addQuoteTapeRow(const QString &symbol, double price, double changePercent,
                         const QString &note, const QStringList &extraNotes = {});

    // Market movers: the scope's sources, the pipeline that fills the panel, and opening a mover.
    MoversPanel *moversPanel() const { return m_movers; }
    MoversFeed *moversFeed() const { return m_moversFeed; }
    void refreshMarketMovers();
    void applyMovers(const QString &sourceLabel, const QList<MoverRecord> &records,
                     bool report = true);
    // The watchlist rows as movers, from their latest quotes.
    QList<MoverRecord> watchlistMoverRecords() const;
    void addOrSelectInWatchlist(const QString &symbol);
    // Every mover seen, and the label of the source that gave it (the screener reads both).
    const QHash<QString, MoverRecord> &moversCache() const { return m_moversCache; }
    QString moverSource(const QString &symbol) const { return m_moverSources.value(symbol); }
    // The screener over the universe or the watchlist, from the rows' quotes and the movers.
    ScreenerPanel *screenerPanel() const { return m_screener; }
    void refreshScreener();
    // The once-a-second rebuild while quotes arrive: only a screener in view is rebuilt.
    void refreshScreenerIfShown();

    // News.
    NewsPanel *newsPanel() const { return m_news; }
    void showNews(const QList<NewsItem> &items, const QString &sourceLabel);

    // Portfolios and price alerts.
    PortfolioPanel *portfolioPanel() const { return m_portfolio; }
    AlertHistoryPanel *alertHistoryPanel() const { return m_history; }
    const PortfolioStore &portfolios() const { return m_portfolios; }
    const QList<PriceAlert> &priceAlerts() const { return m_alerts; }
    const QList<AlertHistoryEntry> &alertHistory() const { return m_alertHistory; }
    void createAlert(const QString &symbol);
    void refreshPortfolio();
    // Where a CSV export goes: asked with a save dialog unless a test says otherwise.
    void setCsvPathChooser(std::function<QString(const QString &suggested)> chooser)
    {
        m_csvPathChooser = std::move(chooser);
    }

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void createTimers();
    void connectTimers();
    void startSession();
    void setupMenus();
    QWidget *createBrand();
    void createTickerSearch();
    QWidget *createMarketPanel();
    QWidget *createChartPanel();
    QWidget *createPanelPlaceholder(const QString &objectName, const char *title,
                                    const char *portugueseTitle, const char *emptyText,
                                    const char *portugueseEmptyText);
    QWidget *createChartToolbar(QWidget *panel);
    QWidget *createConsolePane();
    void connectSignals();
    void setupQuoteRouting();
    void selectionChanged();
    void updateFxTicker(double price, double changePercent);
    QString rowToolTip(const QString &symbol) const;
    // A quote for a row: kept at once; false when the symbol has no row.
    bool storeRowQuote(const QString &symbol, double price, double changePercent,
                       const QString &source, const QString &latency, const QString &status);
    // Shows a kept quote in its row and wherever the symbol is on screen; the row, or -1. Called
    // between the table's beginRowWrites() and endRowWrites().
    int showRowQuote(const QString &symbol, const QDateTime &now, const QString &timestamp);
    // What depends on every row (mosaic, screener, portfolio, watchlist movers), once per batch.
    void afterRowQuotes();
    // Stream frames keep their quote at once and are shown once per screen frame.
    void queueStreamQuote(const QString &symbol);
    void renderPendingRows();
    WorkspaceValues currentWorkspaceValues() const;
    // A splitter that has not been laid out yet reports made-up sizes; until it is shown, the
    // sizes it was last given are its sizes.
    static void setSplitterSizes(QSplitter *splitter, const QList<int> &sizes);
    static QList<int> splitterSizes(const QSplitter *splitter);
    void storeWorkspaceValues(const WorkspaceValues &values);
    void setChartMode(const QString &mode);
    void setChartTimeframe(const QString &timeframe);
    void searchSymbolsOnline();

    // Steps of a market-row update that belong to panels which fill them in: each is the one place
    // where that panel learns about a new quote or selection.
    void checkPriceAlerts(const QString &symbol, double price);
    void refreshMoversMosaic();
    void updateChartLastCandle(const QString &symbol, double price);
    void refreshB3BookNotice(const QString &symbol);
    void refreshSymbolDetailsTable(const QString &symbol);
    void refreshWatchlistMovers();
    void applyBookPreset(const QString &mode);
    void forgetOrderFlowSymbol(const QString &symbol);
    void refreshNews();
    void createOverviewFeeds();
    void connectOverview();
    void moverActionChosen(const QString &symbol, int action);
    QString moverSectorOf(const QString &symbol) const;
    void refreshAlertHistoryTable();
    void connectPortfolio();
    void loadPersonalState(const QJsonObject &settings);
    QJsonObject personalStateJson() const;
    double lastPriceOf(const QString &symbol) const;
    void portfolioChanged();
    void portfolioRequested(int request);
    void addPortfolioPosition();
    void addPortfolioTransaction(bool dividend);
    void notifyAlert(const PriceAlert &alert, double price);
    void alertHistoryRequested(int request, int entry);
    void exportPortfolioCsv(bool positions);
    void exportAlertHistoryCsv();
    void writeCsvExport(const QByteArray &document, const QString &fileName);
    void restoreSession();
    void connectAccount();
    void connectProviders();
    void loadAccountState(const QJsonObject &settings);
    QJsonObject accountStateJson() const;
    void storeSession(const AccountSession &session);
    QJsonValue localSyncPayload(const QString &name) const;
    bool applySyncPayload(const QString &name, const QJsonValue &payload);
    void replaceWatchlist(const QJsonObject &document);
    void syncFailed(bool push, const AccountReply &reply);

    void connectChart();
    void loadChartSymbol(const QString &symbol);
    void requestHistory(const QString &symbol);
    void storeCandles(const QString &symbol, const QList<Candle> &candles);
    // The table's candle and indicator columns, the tooltip and, for the selection, the chart.
    void refreshCandleColumns(const QString &symbol);
    void writeCandleColumns(const MarketTable::RowCells &cells, const QString &symbol);
    void refreshChart();
    void chartSettingsChanged();

    void createStreams();
    void onTickerConnected();
    void onTickerDisconnected();
    void onDepthConnected();
    void onDepthDisconnected();
    void onTradeConnected();
    void onTradeDisconnected();
    void recordLocalPrice(const QString &symbol, double price);
    QStringList cryptoRowSymbols() const;
    void setCryptoRowsStatus(const QString &status);
    void refreshCryptoRowsOverRest();
    void startItick(const QString &symbol);
    void connectItick();
    // The QUOTE and STATS tables and the metrics of a symbol's watchlist row.
    void fillQuoteStatsTables(const QString &symbol);
    void applySavedBookPreset();
    // The selected symbol's last price, NaN while it has none.
    double selectedReferencePrice() const;
    void setBookStep(double step);
    void setBookTitle(const QString &title);
    void setTapeTitle(const QString &title);

    // How quotes reach the window.
    void updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                         const QString &latency, const QString &status) override;
    void setMarketRowStatus(const QString &symbol, const QString &status) override;
    void showStatusMessage(const QString &text) override;
    bool isBinanceStreamConnected() const override;
    QString chartTimeframe() const override { return m_chartTimeframe; }

    SymbolUniverse m_universe;
    ApiKeyStore m_keys;
    LocalSettingsFile m_settingsFile;
    QSet<int> m_hiddenColumns;
    QString m_theme;
    ShortcutOverrides m_shortcutOverrides;
    QNetworkAccessManager *m_network = nullptr;
    QuoteRouter *m_quoteRouter = nullptr;
    QTimer *m_quoteTimer = nullptr;
    QTimer *m_watchlistTimer = nullptr;
    QTimer *m_newsTimer = nullptr;
    QTimer *m_searchTimer = nullptr;
    QTimer *m_settingsSaveTimer = nullptr;
    QTimer *m_fxTimer = nullptr;
    QTimer *m_itickPingTimer = nullptr;
    QTimer *m_itickDepthTimer = nullptr;
    QTimer *m_itickReconnectTimer = nullptr;
    QuotaMeter m_quota;
    ApiHealthRecords m_healthRecords;
    bool m_healthRecordsChecked = false; // a check ran in this session
    HealthCheck *m_healthCheck = nullptr;
    QPointer<VerifyApisDialog> m_verifyApisDialog;
    ItickSession *m_itick = nullptr; // the US Level 2 stream of the book's symbol
    QTimer *m_moversTimer = nullptr;
    // Live quotes re-rank the watchlist movers at most once a second.
    QTimer *m_watchlistMoversTimer = nullptr;
    QTimer *m_screenerTimer = nullptr;      // quotes rebuild the screener at most once a second
    bool m_screenerStale = false;           // quotes changed while the screener was out of view
    FrameRenderer *m_rowRenderer = nullptr; // stream quotes reach their rows once per screen frame
    QStringList m_pendingRows;              // symbols with a kept quote not yet shown, in order
    QSet<QString> m_pendingRowSet;
    MoversFeed *m_moversFeed = nullptr;
    NewsFeed *m_newsFeed = nullptr;
    QHash<QString, MoverRecord> m_moversCache;
    QHash<QString, QString> m_moverSources;
    bool m_moversShown = false; // the panel has shown a source's answer
    PortfolioStore m_portfolios;
    QStringList m_portfolioNamesShown;
    QList<PriceAlert> m_alerts;
    QList<AlertHistoryEntry> m_alertHistory;
    QList<QJsonValue> m_unreadableAlerts; // kept as they were, written back on every save
    QList<QJsonValue> m_unreadableHistory;
    QSystemTrayIcon *m_trayIcon = nullptr;
    AccountSession m_session;
    SyncState m_syncState;
    bool m_googleCancelled = false;
    bool m_accountBusy = false;     // a request to the account service is waiting
    int m_lastValidationStatus = 0; // of the last stored-session check, 0 when unreachable
    bool m_offerLoginAfterLogout = true;
    int m_accountTimeoutMs = kAccountRequestTimeoutMs;
    int m_googlePollMs = 2000;
    qint64 m_googleDeadlineMs = 5 * 60 * 1000;
    std::function<bool(const QUrl &)> m_urlOpener;
    std::function<QString(const QString &)> m_csvPathChooser;
    QWebSocket *streamSocket(QWebSocket *&socket, const char *name,
                             void (MainWindow::*onConnected)(),
                             void (MainWindow::*onDisconnected)(),
                             void (MainWindow::*onFrame)(const QString &));
    QWebSocket *m_tickerSocket = nullptr;
    QWebSocket *m_depthSocket = nullptr;
    QWebSocket *m_tradeSocket = nullptr;
    QStringList m_tickerStreamSymbols; // in the order of the open ticker stream
    QString m_bookSymbol;
    bool m_depthPending = false;
    bool m_depthValid = false;
    QString m_tapeSymbol;
    bool m_tapeLive = false;
    bool m_bookShowsSnapshot = false; // the fallback book holds a snapshot's bid and ask
    QStringList m_cryptoBaseAssets;
    QHash<QString, QList<Candle>> m_localPriceSeries;
    QString m_savedBookPreset;
    // The saved preset was applied before the symbol had a price; the first depth gives one.
    bool m_bookStepAwaitsPrice = false;
    double m_bookMiddlePrice = qQNaN(); // of the last usable depth of the book symbol
    quint64 m_usLevel1Generation = 0;
    bool m_marketDataStarted = false;
    QTimer *m_sessionTimer = nullptr;
    bool m_sessionStarted = false;
    bool m_firstPaintSeen = false;
    bool m_closeConfirmed = false;
    quint64 m_searchGeneration = 0;
    QHash<QString, MarketQuote> m_lastQuotes;
    QHash<QString, QList<Candle>> m_candleCache;
    QString m_chartMode = QStringLiteral("line");
    QString m_chartTimeframe = QStringLiteral("1m");
    QJsonObject m_drawingsStore;                       // "SYMBOL|timeframe" -> drawings
    QHash<QString, IndicatorValues> m_indicatorValues; // of the stored candles, per symbol
    double m_usdBrlRate = qQNaN();                     // from the BRL=X chart, for conversions

    QMenu *m_viewMenu = nullptr;
    QAction *m_logoutAction = nullptr;
    QAction *m_syncNowAction = nullptr;
    QAction *m_verifyApisAction = nullptr;
    QAction *m_syncStatusAction = nullptr;
    QAction *m_apiKeysAction = nullptr;
    QAction *m_shortcutsAction = nullptr;
    QAction *m_englishAction = nullptr;
    QAction *m_portugueseAction = nullptr;
    QAction *m_darkAction = nullptr;
    QAction *m_lightAction = nullptr;
    QList<QAction *> m_layoutActions; // balanced, dense, chart, order flow
    QAction *m_saveWorkspaceAction = nullptr;
    QAction *m_loadWorkspaceAction = nullptr;
    QAction *m_nextMonitorAction = nullptr;
    QList<QShortcut *> m_bookShortcuts; // raw, tight, normal, wide

    QLabel *m_terminalTitle = nullptr;
    QLineEdit *m_tickerSearch = nullptr;
    QStringListModel *m_completerModel = nullptr;
    QCompleter *m_completer = nullptr;
    QLabel *m_fxTicker = nullptr;

    MarketTable *m_marketTable = nullptr;
    QuoteHeader *m_quoteHeader = nullptr;
    QuoteLog *m_quoteLog = nullptr;
    QPlainTextEdit *m_eventConsole = nullptr;
    PriceChart *m_chart = nullptr;
    QComboBox *m_chartModeSelector = nullptr;
    QComboBox *m_timeframeSelector = nullptr;
    QHash<QString, QPushButton *> m_chartToolButtons; // select, reset, hline, vline, trend

    QSplitter *m_workspaceSplitter = nullptr;
    QSplitter *m_leftSplitter = nullptr;
    QTabWidget *m_rightTabs = nullptr;
    QWidget *m_marketPanel = nullptr;
    QWidget *m_chartPanel = nullptr;
    QWidget *m_consolePane = nullptr;
    BookPanel *m_book = nullptr;
    MoversPanel *m_movers = nullptr;
    ScreenerPanel *m_screener = nullptr;
    NewsPanel *m_news = nullptr;
    PortfolioPanel *m_portfolio = nullptr;
    TapePanel *m_tape = nullptr;
    AlertHistoryPanel *m_history = nullptr;
};
