// The local settings and the workspace snapshot: what the window keeps between runs.
#include "app/atomic_file.h"
#include "app/language.h"
#include "app/paths.h"
#include "chart/indicators.h"
#include "chart/price_chart.h"
#include "chart/timeframe.h"
#include "overview/screener.h"
#include "ui/book_panel.h"
#include "ui/main_window.h"
#include "ui/market_table.h"
#include "ui/movers_panel.h"
#include "ui/screener_panel.h"

#include <QAction>
#include <QComboBox>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMessageBox>
#include <QSplitter>
#include <QTimer>

namespace {

void showWorkspaceMessage(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                          const QString &text)
{
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.exec();
}

QString saveWorkspaceTitle()
{
    return translated(QStringLiteral("Save Workspace"),
                      QStringLiteral("Salvar espaço de trabalho"));
}

QString loadWorkspaceTitle()
{
    return translated(QStringLiteral("Load Workspace"),
                      QStringLiteral("Carregar espaço de trabalho"));
}

} // namespace

WorkspaceValues MainWindow::currentWorkspaceValues() const
{
    WorkspaceValues values;
    values.language = interfaceLanguage();
    values.theme = m_theme;
    values.chartMode = m_chartMode;
    values.chartTimeframe = m_chartTimeframe;
    values.windowGeometry = saveGeometry();
    values.hiddenColumns = m_hiddenColumns;
    values.shortcuts = m_shortcutOverrides;
    values.leftSplitterSizes = splitterSizes(m_leftSplitter);
    values.workspaceSplitterSizes = splitterSizes(m_workspaceSplitter);
    values.bookStep = m_book->step();
    if (!m_savedBookPreset.isEmpty())
        values.bookPreset = m_savedBookPreset;
    values.indicators = m_chart->indicatorSettings().toJson();
    values.drawings = m_drawingsStore;
    const MoversFilters movers = m_movers->filters();
    values.moversScope = movers.scope;
    values.moversInterval = movers.interval;
    values.moversSector = movers.sector;
    values.moversMinVolume = movers.minimumVolume;
    values.moversMinTurnover = movers.minimumTurnover;
    return values;
}

void MainWindow::storeWorkspaceValues(const WorkspaceValues &values)
{
    if (values.language)
        setInterfaceLanguage(*values.language);
    if (values.theme)
        m_theme = *values.theme;
    if (values.chartMode) {
        m_chartMode = *values.chartMode;
        m_chartModeSelector->setCurrentIndex(m_chartModeSelector->findData(m_chartMode));
    }
    if (values.chartTimeframe) {
        m_chartTimeframe = *values.chartTimeframe;
        m_timeframeSelector->setCurrentText(m_chartTimeframe);
    }
    if (!values.windowGeometry.isEmpty())
        restoreGeometry(values.windowGeometry);
    if (values.hiddenColumns)
        m_hiddenColumns = *values.hiddenColumns;
    if (values.shortcuts)
        m_shortcutOverrides = *values.shortcuts;
    if (!values.leftSplitterSizes.isEmpty())
        setSplitterSizes(m_leftSplitter, values.leftSplitterSizes);
    if (!values.workspaceSplitterSizes.isEmpty())
        setSplitterSizes(m_workspaceSplitter, values.workspaceSplitterSizes);
    if (values.bookStep)
        m_book->setStep(*values.bookStep);
    if (values.bookPreset)
        m_savedBookPreset = *values.bookPreset;
    if (values.indicators) {
        IndicatorSettings settings = m_chart->indicatorSettings();
        settings.readJson(*values.indicators);
        m_chart->setIndicatorSettings(settings);
        m_indicatorValues.clear();
        m_marketTable->setIndicatorPeriods(settings.smaPeriod, settings.emaPeriod);
    }
    if (values.drawings) {
        m_drawingsStore = *values.drawings;
        refreshChart();
    }
    MoversFilters movers = m_movers->filters();
    movers.scope = values.moversScope.value_or(movers.scope);
    movers.interval = values.moversInterval.value_or(movers.interval);
    movers.sector = values.moversSector.value_or(movers.sector);
    movers.minimumVolume = values.moversMinVolume.value_or(movers.minimumVolume);
    movers.minimumTurnover = values.moversMinTurnover.value_or(movers.minimumTurnover);
    m_movers->setFilters(movers);
}

void MainWindow::loadLocalSettings()
{
    // The constructor applies shortcuts, texts, columns and the theme right after this.
    const QJsonObject settings = m_settingsFile.load();
    storeWorkspaceValues(readWorkspaceValues(settings, chartTimeframes()));
    loadPersonalState(settings);
    loadAccountState(settings);
    m_screener->setFilters(readScreenerFilters(settings, m_screener->filters()));
    m_healthRecords = healthRecordsFromJson(settings.value(QStringLiteral("api_health")));
    m_quota.fromJson(settings.value(QStringLiteral("api_quota")));
    m_logoutAction->setEnabled(hasStoredSession());
}

void MainWindow::saveLocalSettings()
{
    m_settingsSaveTimer->stop();
    m_settingsFile.carry(personalStateJson());
    m_settingsFile.carry(accountStateJson());
    m_settingsFile.carry(screenerFiltersToJson(m_screener->filters()));
    m_settingsFile.carry({{QStringLiteral("api_quota"), m_quota.toJson()}});
    // Health records are written once a check has run; until then the stored ones stay as they are.
    if (m_healthRecordsChecked)
        m_settingsFile.carry(
                {{QStringLiteral("api_health"), healthRecordsToJson(m_healthRecords)}});
    m_settingsFile.save(workspaceValuesToJson(currentWorkspaceValues()));
}

void MainWindow::scheduleSettingsSave()
{
    m_settingsSaveTimer->start();
}

void MainWindow::applySettingsObject(const QJsonObject &settings)
{
    const QString language = interfaceLanguage();
    storeWorkspaceValues(readWorkspaceValues(settings, chartTimeframes()));
    // Settings of panels the window does not apply itself travel with the file.
    QJsonObject carried = workspaceSnapshotOf(settings);
    for (const QString &key : workspaceValuesToJson({}).keys())
        carried.remove(key);
    m_settingsFile.carry(carried);
    m_screener->setFilters(readScreenerFilters(settings, m_screener->filters()));

    applyConfiguredShortcuts();
    if (interfaceLanguage() != language)
        retranslateUi();
    applyColumnVisibilityConfig();
    applyTheme();
    updateThemedWidgets();
}

void MainWindow::saveWorkspaceSnapshot()
{
    QJsonObject settings = m_settingsFile.stored();
    const QJsonObject current = workspaceValuesToJson(currentWorkspaceValues());
    for (auto it = current.begin(); it != current.end(); ++it)
        settings.insert(it.key(), it.value());
    const QJsonObject snapshot = workspaceSnapshotOf(settings);
    if (!writeFileAtomically(dataFileWritePath(DataFile::WorkspaceSnapshot),
                             orderedJsonText(snapshot, workspaceSnapshotKeys()))) {
        showWorkspaceMessage(this, QMessageBox::Warning, saveWorkspaceTitle(),
                             translated(QStringLiteral("Could not save the workspace snapshot."),
                                        QStringLiteral("Não foi possível salvar o snapshot do "
                                                       "espaço de trabalho.")));
        return;
    }
    logEvent(translated(QStringLiteral("Workspace saved"),
                        QStringLiteral("Espaço de trabalho salvo")));
}

void MainWindow::loadWorkspaceSnapshot()
{
    QFile file(dataFileReadPath(DataFile::WorkspaceSnapshot));
    if (!file.open(QIODevice::ReadOnly)) {
        showWorkspaceMessage(this, QMessageBox::Information, loadWorkspaceTitle(),
                             translated(QStringLiteral("No saved workspace snapshot was found."),
                                        QStringLiteral("Nenhum snapshot salvo do espaço de "
                                                       "trabalho foi encontrado.")));
        return;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        showWorkspaceMessage(this, QMessageBox::Warning, loadWorkspaceTitle(),
                             translated(QStringLiteral("The saved workspace snapshot could not be "
                                                       "read; nothing was changed."),
                                        QStringLiteral("Não foi possível ler o snapshot salvo do "
                                                       "espaço de trabalho; nada foi alterado.")));
        return;
    }
    // Only the layout keys: a snapshot never brings alerts, portfolios or a session with it.
    applySettingsObject(workspaceSnapshotOf(document.object()));
    logEvent(translated(QStringLiteral("Workspace loaded"),
                        QStringLiteral("Espaço de trabalho carregado")));
    scheduleSettingsSave();
}

void MainWindow::setChartMode(const QString &mode)
{
    if (mode == m_chartMode || (mode != QLatin1String("line") && mode != QLatin1String("candle")))
        return;
    m_chartMode = mode;
    refreshChart();
    scheduleSettingsSave();
}

void MainWindow::setChartTimeframe(const QString &timeframe)
{
    if (timeframe == m_chartTimeframe || !chartTimeframes().contains(timeframe))
        return;
    m_chartTimeframe = timeframe;
    // The chart's bars belong to the timeframe they were asked for: reload at once rather than
    // show them under the new label until the next refresh.
    const QString symbol = m_marketTable->selectedSymbol();
    m_candleCache.remove(symbol);
    m_indicatorValues.remove(symbol);
    loadChartSymbol(symbol);
    scheduleSettingsSave();
}
