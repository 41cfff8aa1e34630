#pragma once

#include "market/universe.h"

#include <QMainWindow>

class QAction;
class QActionGroup;
class QCompleter;
class QLabel;
class QLineEdit;
class QMenu;
class QSplitter;
class QStringListModel;
class QTabWidget;

// The single top-level window: the composition root that owns every panel, timer and piece of user
// state. Behaviour lives in the units and panels it wires together; its own operations are split
// by concern into main_window_*.cpp files.
class MainWindow : public QMainWindow
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

private:
    void setupMenus();
    QWidget *createBrand();
    void createTickerSearch();
    QWidget *createPanelPlaceholder(const QString &objectName);
    void connectSignals();

    SymbolUniverse m_universe;

    QMenu *m_viewMenu = nullptr;
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
