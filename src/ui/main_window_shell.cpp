// The window shell: timers, the session start, the event console, layout presets, monitors and
// closing.
#include "app/language.h"
#include "providers/secret_mask.h"
#include "ui/bilingual.h"
#include "ui/layout_presets.h"
#include "ui/main_window.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStatusBar>
#include <QTime>
#include <QTimer>

namespace {

constexpr int kQuoteRefreshMs = 15000;
constexpr int kWatchlistRefreshMs = 60000;
constexpr int kNewsRefreshMs = 60000;
constexpr int kSymbolSearchDelayMs = 350;
constexpr int kSettingsSaveDelayMs = 450;
constexpr int kFxTickerRefreshMs = 60000;
constexpr int kItickPingMs = 30000;
constexpr int kItickDepthTimeoutMs = 7000;
constexpr int kMonitorMessageMs = 3000;

QTimer *createTimer(QObject *owner, const char *name, bool singleShot)
{
    auto *timer = new QTimer(owner);
    timer->setObjectName(QLatin1String(name));
    timer->setSingleShot(singleShot);
    return timer;
}

} // namespace

void MainWindow::createTimers()
{
    m_network = new QNetworkAccessManager(this);
    m_quoteTimer = createTimer(this, "quoteRefreshTimer", false);
    m_watchlistTimer = createTimer(this, "watchlistRefreshTimer", false);
    m_newsTimer = createTimer(this, "newsRefreshTimer", false);
    m_searchTimer = createTimer(this, "symbolSearchTimer", true);
    m_settingsSaveTimer = createTimer(this, "settingsSaveTimer", true);
    m_fxTimer = createTimer(this, "fxTickerTimer", false);
    m_itickPingTimer = createTimer(this, "itickPingTimer", false);
    m_itickDepthTimer = createTimer(this, "itickDepthTimer", true);
    // Its interval is set for each retry.
    m_itickReconnectTimer = createTimer(this, "itickReconnectTimer", true);
    m_moversTimer = createTimer(this, "moversRefreshTimer", false);
    m_watchlistMoversTimer = createTimer(this, "watchlistMoversTimer", true);
}

void MainWindow::connectTimers()
{
    m_quoteTimer->setInterval(kQuoteRefreshMs);
    connect(m_quoteTimer, &QTimer::timeout, this, &MainWindow::refreshMarketQuotes);
    m_watchlistTimer->setInterval(kWatchlistRefreshMs);
    connect(m_watchlistTimer, &QTimer::timeout, this, &MainWindow::refreshWatchlistBatch);
    m_newsTimer->setInterval(kNewsRefreshMs);
    connect(m_newsTimer, &QTimer::timeout, this, &MainWindow::refreshNews);
    m_searchTimer->setInterval(kSymbolSearchDelayMs);
    connect(m_searchTimer, &QTimer::timeout, this, &MainWindow::searchSymbolsOnline);
    // Precise, so the write never comes before the quiet period is over.
    m_settingsSaveTimer->setTimerType(Qt::PreciseTimer);
    m_settingsSaveTimer->setInterval(kSettingsSaveDelayMs);
    connect(m_settingsSaveTimer, &QTimer::timeout, this, &MainWindow::saveLocalSettings);
    m_fxTimer->setInterval(kFxTickerRefreshMs);
    connect(m_fxTimer, &QTimer::timeout, this, &MainWindow::refreshFxTicker);
    // The iTick stream starts and stops these two with its connection.
    m_itickPingTimer->setInterval(kItickPingMs);
    m_itickDepthTimer->setInterval(kItickDepthTimeoutMs);
}

void MainWindow::startSession()
{
    m_sessionStarted = true;
    m_sessionTimer->stop();
    restoreSession();
    startMarketData();
}

void MainWindow::logEvent(const QString &text)
{
    // Provider texts end up here; no key they quote is shown.
    const QString shown = maskSecrets(text);
    m_eventConsole->appendPlainText(QStringLiteral("[%1] %2").arg(
            QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), shown));
    statusBar()->showMessage(shown);
}

void MainWindow::setSplitterSizes(QSplitter *splitter, const QList<int> &sizes)
{
    splitter->setSizes(sizes);
    splitter->setProperty("requestedSizes", QVariant::fromValue(sizes));
}

QList<int> MainWindow::splitterSizes(const QSplitter *splitter)
{
    const QVariant requested = splitter->property("requestedSizes");
    if (!splitter->isVisible() && requested.isValid())
        return requested.value<QList<int>>();
    return splitter->sizes();
}

void MainWindow::applyLayoutPreset(const QString &id)
{
    const LayoutPreset &preset = layoutPreset(id);
    setSplitterSizes(m_workspaceSplitter, preset.workspaceSizes);
    setSplitterSizes(m_leftSplitter, preset.leftSizes);
    saveLocalSettings();
    logEvent(translated(QStringLiteral("Layout preset applied: %1"),
                        QStringLiteral("Layout aplicado: %1"))
                     .arg(preset.displayName()));
}

void MainWindow::moveToNextMonitor()
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    if (screens.size() < 2) {
        statusBar()->showMessage(translated(QStringLiteral("Only one monitor detected"),
                                            QStringLiteral("Apenas um monitor detectado")),
                                 kMonitorMessageMs);
        return;
    }
    QScreen *target = screens.at(nextScreenIndex(screens.indexOf(screen()), screens.size()));
    if (isMaximized())
        showNormal();
    setGeometry(centredOnScreen(size(), target->availableGeometry()));
    statusBar()->showMessage(translated(QStringLiteral("Moved to monitor: %1"),
                                        QStringLiteral("Movido para o monitor: %1"))
                                     .arg(target->name()),
                             kMonitorMessageMs);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    if (m_closeConfirmed || !hasStoredSession()) {
        saveLocalSettings();
        event->accept();
        return;
    }
    QMessageBox box(QMessageBox::Question, windowTitle(),
                    translated(QStringLiteral("What do you want to do?"),
                               QStringLiteral("O que você deseja fazer?")),
                    QMessageBox::NoButton, this);
    QPushButton *logoutButton =
            box.addButton(translated(QStringLiteral("Logout"), QStringLiteral("Sair da conta")),
                          QMessageBox::DestructiveRole);
    QPushButton *closeButton = box.addButton(
            translated(QStringLiteral("Close app"), QStringLiteral("Fechar aplicativo")),
            QMessageBox::AcceptRole);
    QPushButton *cancelButton =
            box.addButton(translated(QStringLiteral("Cancel"), QStringLiteral("Cancelar")),
                          QMessageBox::RejectRole);
    box.setDefaultButton(cancelButton);
    box.setEscapeButton(cancelButton);
    box.exec();

    event->ignore();
    if (box.clickedButton() == logoutButton) {
        logout();
    } else if (box.clickedButton() == closeButton) {
        saveLocalSettings();
        m_closeConfirmed = true;
        event->accept();
    }
}
