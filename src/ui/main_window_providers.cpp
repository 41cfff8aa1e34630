// The providers as the user sees them: the Verify APIs dialog with its health checks, the cascade
// log, and the meter of keyed requests against each provider's free limits.
#include "app/language.h"
#include "overview/movers_feed.h"
#include "overview/news_feed.h"
#include "providers/health_check.h"
#include "ui/main_window.h"
#include "ui/verify_apis_dialog.h"

#include <QAction>
#include <QPointer>
#include <QStatusBar>

void MainWindow::connectProviders()
{
    m_healthCheck = new HealthCheck(*m_network, this);
    m_healthCheck->setQuotaMeter(&m_quota);
    m_quoteRouter->setQuotaMeter(&m_quota);
    m_moversFeed->setQuotaMeter(&m_quota);
    m_newsFeed->setQuotaMeter(&m_quota);
    connect(m_verifyApisAction, &QAction::triggered, this, &MainWindow::showVerifyApisDialog);
    // Each answer is kept at once, so a terminal closed mid-run still shows what had answered.
    connect(m_healthCheck, &HealthCheck::recordChanged, this,
            [this](const QString &key, const ApiHealthRecord &record) {
                m_healthRecords.insert(key, record);
                m_healthRecordsChecked = true;
                scheduleSettingsSave();
            });
    connect(m_healthCheck, &HealthCheck::finished, this, [this](const ApiHealthRecords &records) {
        m_healthRecords = records;
        m_healthRecordsChecked = true;
        scheduleSettingsSave();
    });
}

void MainWindow::showVerifyApisDialog()
{
    // One dialog at a time, left open beside the terminal while its checks run.
    if (m_verifyApisDialog) {
        m_verifyApisDialog->raise();
        m_verifyApisDialog->activateWindow();
        return;
    }
    const KeyLookup keys = [this](const QString &name) { return m_keys.apiKey(name); };
    auto *dialog = new VerifyApisDialog(keys, m_healthRecords, &m_quota, m_theme, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    m_verifyApisDialog = dialog;
    connect(dialog, &VerifyApisDialog::runChecksRequested, this, [this, dialog, keys] {
        dialog->setRunning(true);
        statusBar()->showMessage(
                translated(QStringLiteral("API health verification started"),
                           QStringLiteral("Verificação de saúde das APIs iniciada")));
        m_healthCheck->start(keys, m_healthRecords);
    });
    connect(dialog, &VerifyApisDialog::logCascadeRequested, this, [this, keys] {
        for (const QString &line : cascadeLogLines(keys)) {
            logEvent(line);
            statusBar()->showMessage(line);
        }
    });
    connect(m_healthCheck, &HealthCheck::recordChanged, dialog, &VerifyApisDialog::setRecord);
    connect(m_healthCheck, &HealthCheck::progress, dialog, &VerifyApisDialog::setProgress);
    connect(m_healthCheck, &HealthCheck::finished, dialog, [dialog] {
        dialog->setRunning(false);
        dialog->refreshQuota();
    });
    dialog->show();
}
