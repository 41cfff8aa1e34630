#pragma once

#include "market/universe.h"
#include "providers/api_keys.h"
#include "providers/quote_router.h"

#include <QHash>
#include <QMainWindow>
#include <QSet>

class QAction;
class QActionGroup;
class QCompleter;
class QLabel;
class QLineEdit;
class QMenu;
class QNetworkAccessManager;
class QSplitter;
class QStringListModel;
class QTabWidget;
class QTimer;

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

    void addSymbolFromSearch();

    // Language
    void setLanguage(const QString &code);
    void retranslateUi();

    // Keys and quotes
    void loadConfig();
    void showApiKeysDialog();
    const ApiKeyStore &apiKeys() const { return m_keys; }
    QuoteRouter &quoteRouter() { return *m_quoteRouter; }
    void refreshQuote(const QString &symbol);
    // Every non-crypto symbol the window follows, through its cascade (the 15 s timer).
    void refreshMarketQuotes();
    void refreshWatchlistBatch();
    void startMarketData();
    QStringList followedSymbols() const { return m_followedSymbols; }

private:
    void setupMenus();
    QWidget *createBrand();
    void createTickerSearch();
    QWidget *createPanelPlaceholder(const QString &objectName);
    void connectSignals();
    void setupQuoteRouting();

    // How quotes reach the window.
    void updateMarketRow(const QuoteSnapshot &quote, const QString &provider,
                         const QString &latency, const QString &status) override;
    void setMarketRowStatus(const QString &symbol, const QString &status) override;
    void showStatusMessage(const QString &text) override;
    bool isBinanceStreamConnected() const override { return false; }
    QString chartTimeframe() const override { return m_chartTimeframe; }

    SymbolUniverse m_universe;
    ApiKeyStore m_keys;
    QSet<int> m_hiddenColumns;
    QNetworkAccessManager *m_network = nullptr;
    QuoteRouter *m_quoteRouter = nullptr;
    QTimer *m_quoteTimer = nullptr;
    QTimer *m_watchlistTimer = nullptr;
    QStringList m_followedSymbols;
    QHash<QString, QuoteSnapshot> m_lastQuotes;
    QString m_chartTimeframe = QStringLiteral("1d");

    QMenu *m_viewMenu = nullptr;
    QMenu *m_dataMenu = nullptr;
    QAction *m_apiKeysAction = nullptr;
    QMenu *m_languageMenu = nullptr;
    QAction *m_englishAction = nullptr;
    QAction *m_portugueseAction = nullptr;
    QActionGroup *m_languageGroup = nullptr;

    QLabel *m_terminalTitle = nullptr;
    QLineEdit *m_tickerSearch = nullptr;
    QStringListModel *m_completerModel = nullptr;
    QCompleter *m_completer = nullptr;
    QLabel *m_fxTicker = nullptr;

    QSplitter *m_workspaceSplitter = nullptr;
    QSplitter *m_leftSplitter = nullptr;
    QTabWidget *m_rightTabs = nullptr;
    QWidget *m_marketPanel = nullptr;
    QWidget *m_chartPanel = nullptr;
    QWidget *m_bookPanel = nullptr;
    QWidget *m_moversPanel = nullptr;
    QWidget *m_screenerPanel = nullptr;
    QWidget *m_newsPanel = nullptr;
    QWidget *m_portfolioPanel = nullptr;
    QWidget *m_tapePanel = nullptr;
    QWidget *m_historyPanel = nullptr;
};
