#pragma once

#include "providers/provider_catalogue.h"

#include <QDialog>
#include <QList>

class QLabel;
class QPushButton;
class QTableWidget;
class QuotaMeter;

// The "Verify APIs" dialog: one row per catalogue row with its cascade state, its health record
// and, for providers with a documented free limit, the requests counted against that limit. The
// dialog only shows what it is handed and asks for runs; the caller owns the health check and the
// log. Cells are named by column: the table is "apiStatusTable", the buttons "runHealthChecks" and
// "logCascade", the progress line "healthProgress".
class VerifyApisDialog : public QDialog
{
    Q_OBJECT

public:
    enum Column {
        AssetColumn,
        RankColumn,
        ProviderColumn,
        KeyColumn,
        CascadeColumn,
        CoverageColumn,
        BookDepthColumn,
        FallbackColumn,
        HealthColumn,
        LatencyColumn,
        LastSuccessColumn,
        LastErrorColumn,
        CountersColumn,
        QuotaMinuteColumn,
        QuotaDayColumn,
        QuotaMonthColumn,
        ColumnCount
    };

    // `quota` may be null (no quota is shown) and must outlive the dialog otherwise.
    VerifyApisDialog(const KeyLookup &keys, const ApiHealthRecords &records,
                     const QuotaMeter *quota, const QString &themeId, QWidget *parent = nullptr);

    // Shows a row's new record; unknown keys are ignored.
    void setRecord(const QString &healthKey, const ApiHealthRecord &record);
    void setProgress(int answered, int total);
    // While a run is under way the run button is disabled and the progress line shows.
    void setRunning(bool running);
    // Reads the meter again (after probes or quote traffic were counted).
    void refreshQuota();

signals:
    void runChecksRequested();
    void logCascadeRequested();

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void sizeColumns();
    void fitToScreen();
    void retranslate();
    void fillRecord(int row, const ApiHealthRecord &record);
    void updateProgressText();

    QString m_themeId;
    const QuotaMeter *m_quota;
    QList<QString> m_rowKeys; // healthKey per table row
    QLabel *m_goal = nullptr;
    QLabel *m_progress = nullptr;
    QTableWidget *m_table = nullptr;
    QPushButton *m_runButton = nullptr;
    QPushButton *m_logButton = nullptr;
    QPushButton *m_closeButton = nullptr;
    int m_answered = 0;
    int m_total = 0;
    bool m_running = false;
    bool m_columnsSized = false;
};
