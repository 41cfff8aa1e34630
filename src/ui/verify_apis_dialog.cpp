#include "ui/verify_apis_dialog.h"

#include "app/language.h"
#include "providers/quota_meter.h"

#include <QBrush>
#include <QColor>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <iterator>

namespace {

// Free texts are elided at these widths (their tooltip holds the whole text), so the status
// columns stay on screen at the dialog's default size.
constexpr int kKeyWidth = 140;
constexpr int kCoverageWidth = 130;
constexpr int kBookDepthWidth = 110;
constexpr int kFallbackWidth = 100;
constexpr int kLastErrorWidth = 200;
constexpr int kCellPadding = 18;
constexpr int kQuotaRefreshMs = 2000;

struct Header
{
    const char *english;
    const char *portuguese;
};

// In Column order.
constexpr Header kHeaders[] = {
        {"Asset", "Ativo"},
        {"Rank", "Ordem"},
        {"Provider", "Provedor"},
        {"Key", "Chave"},
        {"Cascade", "Cascata"},
        {"Coverage", "Cobertura"},
        {"Book/Depth", "Livro/Profundidade"},
        {"Fallback", "Alternativa"},
        {"Health", "Saúde"},
        {"Latency", "Latência"},
        {"Last Success", "Último sucesso"},
        {"Last Error", "Último erro"},
        {"Attempts / OK / Fail", "Tentativas / OK / Falhas"},
        {"Quota / min", "Cota / min"},
        {"Quota / day", "Cota / dia"},
        {"Quota / month", "Cota / mês"},
};
static_assert(std::size(kHeaders) == VerifyApisDialog::ColumnCount);

QString goalText()
{
    return translated(
            QStringLiteral("Goal: obtain the maximum market data possible for free. User-provided "
                           "API keys have priority by capability; the app tries each implemented "
                           "configured provider until one works, then continues through public "
                           "fallbacks. Secrets are never displayed or logged."),
            QStringLiteral("Objetivo: obter o máximo de dados de mercado possível de graça. As "
                           "chaves de API do usuário têm prioridade por capacidade; o app tenta "
                           "cada provedor implementado e configurado até um funcionar e depois "
                           "segue pelas alternativas públicas. Segredos nunca são exibidos nem "
                           "registrados."));
}

QString windowText(const char *window)
{
    const QString name = QString::fromLatin1(window);
    if (name == QLatin1String("minute"))
        return translated(QStringLiteral("per minute"), QStringLiteral("por minuto"));
    if (name == QLatin1String("day"))
        return translated(QStringLiteral("per day"), QStringLiteral("por dia"));
    return translated(QStringLiteral("per month"), QStringLiteral("por mês"));
}

// "Twelve Data free plan: 8 per minute, 800 per day."
QString limitFactsText(const ProviderFreeLimit &limit, const QString &providerLabel)
{
    QStringList facts;
    if (limit.perMinute > 0)
        facts << QStringLiteral("%1 %2").arg(limit.perMinute).arg(windowText("minute"));
    if (limit.perDay > 0)
        facts << QStringLiteral("%1 %2").arg(limit.perDay).arg(windowText("day"));
    if (limit.perMonth > 0)
        facts << QStringLiteral("%1 %2").arg(limit.perMonth).arg(windowText("month"));
    return translated(QStringLiteral("%1 free plan: %2 requests."),
                      QStringLiteral("Plano gratuito %1: %2 requisições."))
            .arg(providerLabel, facts.join(QStringLiteral(", ")));
}

// The free-limit entry that meters a row's provider, matched by the key both name.
const ProviderFreeLimit *freeLimitOf(const CatalogueRow &row)
{
    if (row.isPublic || !*row.keyName)
        return nullptr;
    for (const ProviderFreeLimit &limit : providerFreeLimits()) {
        if (qstrcmp(limit.keyName, row.keyName) == 0)
            return limit.perMinute > 0 || limit.perDay > 0 || limit.perMonth > 0 ? &limit : nullptr;
    }
    return nullptr;
}

QTableWidgetItem *textItem(const QString &text, bool withToolTip = false)
{
    auto *item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    if (withToolTip)
        item->setToolTip(text);
    return item;
}

} // namespace

VerifyApisDialog::VerifyApisDialog(const KeyLookup &keys, const ApiHealthRecords &records,
                                   const QuotaMeter *quota, const QString &themeId, QWidget *parent)
    : QDialog(parent)
    , m_themeId(themeId)
    , m_quota(quota)
{
    setObjectName(QStringLiteral("verifyApisDialog"));
    resize(1100, 600);

    m_goal = new QLabel(this);
    m_goal->setObjectName(QStringLiteral("verifyApisGoal"));
    m_goal->setWordWrap(true);

    const auto catalogue = providerCatalogue();
    m_table = new QTableWidget(int(catalogue.size()), ColumnCount, this);
    m_table->setObjectName(QStringLiteral("apiStatusTable"));
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setTextElideMode(Qt::ElideRight);
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_table->horizontalHeader()->setHighlightSections(false);

    for (int row = 0; row < int(catalogue.size()); ++row) {
        const CatalogueRow &entry = catalogue[row];
        const QString key = healthKey(entry);
        m_rowKeys.append(key);
        const QString state = cascadeState(entry, keys);
        auto *cascade = textItem(state);
        cascade->setForeground(QColor(cascadeStateColor(state, m_themeId)));
        auto *rank = textItem(QString::number(entry.rank));
        rank->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);

        m_table->setItem(row, AssetColumn, textItem(QString::fromLatin1(entry.group)));
        m_table->setItem(row, RankColumn, rank);
        m_table->setItem(row, ProviderColumn, textItem(QString::fromLatin1(entry.provider)));
        // The key's name only: its value never reaches the dialog.
        m_table->setItem(row, KeyColumn,
                         *entry.keyName ? textItem(QString::fromLatin1(entry.keyName), true)
                                        : textItem(QStringLiteral("—")));
        m_table->setItem(row, CascadeColumn, cascade);
        m_table->setItem(row, CoverageColumn, textItem(QString::fromUtf8(entry.coverage), true));
        m_table->setItem(row, BookDepthColumn, textItem(QString::fromUtf8(entry.bookDepth), true));
        m_table->setItem(row, FallbackColumn, textItem(QString::fromUtf8(entry.fallback), true));
        for (int column = HealthColumn; column < ColumnCount; ++column) {
            auto *item = textItem(QString());
            if (column == LatencyColumn || column >= CountersColumn)
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            m_table->setItem(row, column, item);
        }
        fillRecord(row, records.value(key));
    }

    m_progress = new QLabel(this);
    m_progress->setObjectName(QStringLiteral("healthProgress"));
    m_progress->hide();

    m_runButton = new QPushButton(this);
    m_runButton->setObjectName(QStringLiteral("runHealthChecks"));
    m_runButton->setAutoDefault(false);
    m_logButton = new QPushButton(this);
    m_logButton->setObjectName(QStringLiteral("logCascade"));
    m_logButton->setAutoDefault(false);
    m_closeButton = new QPushButton(this);
    m_closeButton->setObjectName(QStringLiteral("closeVerifyApis"));
    connect(m_runButton, &QPushButton::clicked, this, &VerifyApisDialog::runChecksRequested);
    connect(m_logButton, &QPushButton::clicked, this, &VerifyApisDialog::logCascadeRequested);
    connect(m_closeButton, &QPushButton::clicked, this, &QDialog::reject);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_runButton);
    buttons->addWidget(m_logButton);
    buttons->addSpacing(12);
    buttons->addWidget(m_progress);
    buttons->addStretch(1);
    buttons->addWidget(m_closeButton);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_goal);
    layout->addWidget(m_table, 1);
    layout->addLayout(buttons);

    // Quote traffic keeps counting while the dialog is open.
    auto *quotaTimer = new QTimer(this);
    quotaTimer->setInterval(kQuotaRefreshMs);
    connect(quotaTimer, &QTimer::timeout, this, &VerifyApisDialog::refreshQuota);
    if (m_quota)
        quotaTimer->start();

    retranslate();
    m_closeButton->setFocus(); // not the table, which would frame its first cell
}

void VerifyApisDialog::setRecord(const QString &healthKey, const ApiHealthRecord &record)
{
    const int row = m_rowKeys.indexOf(healthKey);
    if (row >= 0)
        fillRecord(row, record);
}

void VerifyApisDialog::setProgress(int answered, int total)
{
    m_answered = answered;
    m_total = total;
    updateProgressText();
}

void VerifyApisDialog::setRunning(bool running)
{
    m_running = running;
    m_runButton->setEnabled(!running);
    // The line stays after a run with what answered; before the first run there is nothing to say.
    m_progress->setVisible(running || m_total > 0);
    updateProgressText();
}

void VerifyApisDialog::refreshQuota()
{
    const auto catalogue = providerCatalogue();
    const QList<QuotaUsage> usage = m_quota ? quotaUsage(*m_quota) : QList<QuotaUsage>();
    for (int row = 0; row < int(catalogue.size()); ++row) {
        const CatalogueRow &entry = catalogue[row];
        const ProviderFreeLimit *limit = m_quota ? freeLimitOf(entry) : nullptr;
        const QString facts =
                limit ? limitFactsText(*limit, QString::fromLatin1(entry.provider)) : QString();
        const char *windows[] = {"minute", "day", "month"};
        for (int i = 0; i < 3; ++i) {
            QTableWidgetItem *item = m_table->item(row, QuotaMinuteColumn + i);
            item->setText(QString());
            item->setToolTip(QString());
            item->setData(Qt::ForegroundRole, QVariant());
            if (!limit)
                continue;
            const QString id = QString::fromLatin1(limit->providerId);
            const QString window = QString::fromLatin1(windows[i]);
            for (const QuotaUsage &entryUsage : usage) {
                if (entryUsage.providerId != id || entryUsage.window != window)
                    continue;
                item->setText(QStringLiteral("%1 / %2").arg(entryUsage.used).arg(entryUsage.limit));
                item->setForeground(QColor(entryUsage.color));
                item->setToolTip(facts);
            }
        }
    }
}

void VerifyApisDialog::showEvent(QShowEvent *event)
{
    // Sized once the style sheet has set the fonts and paddings, to the widest of what a record can
    // show, so later updates never reflow the table.
    if (!m_columnsSized) {
        m_columnsSized = true;
        sizeColumns();
        fitToScreen();
    }
    QDialog::showEvent(event);
}

void VerifyApisDialog::sizeColumns()
{
    m_table->resizeColumnsToContents();
    const QFontMetrics metrics = m_table->fontMetrics();
    const auto atLeast = [&](int column, const QString &sample) {
        const int width = metrics.horizontalAdvance(sample) + kCellPadding;
        if (m_table->columnWidth(column) < width)
            m_table->setColumnWidth(column, width);
    };
    // Texts are elided, never the header: a cap yields to a header that is wider.
    const auto atMost = [&](int column, int width) {
        width = qMax(width, m_table->horizontalHeader()->sectionSizeHint(column));
        if (m_table->columnWidth(column) > width)
            m_table->setColumnWidth(column, width);
    };
    atLeast(HealthColumn, QString::fromLatin1(kNoProbeState));
    atLeast(LatencyColumn, QStringLiteral("10000 ms"));
    atLeast(LastSuccessColumn, QStringLiteral("0000-00-00 00:00:00"));
    atLeast(CountersColumn, QStringLiteral("000 / 000 / 000"));
    atLeast(LastErrorColumn, QStringLiteral("HTTP 429 rate limit; retry in 30s"));
    atMost(KeyColumn, kKeyWidth);
    atMost(CoverageColumn, kCoverageWidth);
    atMost(BookDepthColumn, kBookDepthWidth);
    atMost(FallbackColumn, kFallbackWidth);
    atMost(LastErrorColumn, kLastErrorWidth);
}

void VerifyApisDialog::fitToScreen()
{
    // As large as the whole table when the screen allows, so every row and the quota columns show
    // without scrolling; on a smaller screen nearly the screen's size.
    layout()->activate();
    const int frame = m_table->frameWidth() * 2;
    int tableWidth = frame + m_table->verticalScrollBar()->sizeHint().width();
    for (int column = 0; column < ColumnCount; ++column)
        tableWidth += m_table->columnWidth(column);
    int tableHeight = frame + m_table->horizontalHeader()->sizeHint().height() +
                      m_table->horizontalScrollBar()->sizeHint().height();
    for (int row = 0; row < m_table->rowCount(); ++row)
        tableHeight += m_table->rowHeight(row);
    int width = this->width() - m_table->width() + tableWidth;
    int height = this->height() - m_table->height() + tableHeight;
    if (const QScreen *shown = screen()) {
        const QRect available = shown->availableGeometry();
        width = qMin(width, available.width() * 96 / 100);
        height = qMin(height, available.height() * 90 / 100);
    }
    resize(width, height);
}

void VerifyApisDialog::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void VerifyApisDialog::retranslate()
{
    setWindowTitle(translated(QStringLiteral("Verify APIs"), QStringLiteral("Verificar APIs")));
    m_goal->setText(goalText());
    QStringList headers;
    for (const Header &header : kHeaders)
        headers << translated(QString::fromUtf8(header.english),
                              QString::fromUtf8(header.portuguese));
    m_table->setHorizontalHeaderLabels(headers);
    const QString quotaTip =
            translated(QStringLiteral("Requests counted against the provider's free limit: used / "
                                      "limit in the current window"),
                       QStringLiteral("Requisições contadas contra o limite gratuito do provedor: "
                                      "usadas / limite na janela atual"));
    for (int column = QuotaMinuteColumn; column <= QuotaMonthColumn; ++column)
        m_table->horizontalHeaderItem(column)->setToolTip(quotaTip);
    m_runButton->setText(
            translated(QStringLiteral("Run Health Checks"), QStringLiteral("Verificar saúde")));
    m_logButton->setText(
            translated(QStringLiteral("Log Cascade"), QStringLiteral("Registrar cascata")));
    m_closeButton->setText(translated(QStringLiteral("Close"), QStringLiteral("Fechar")));
    updateProgressText();
    refreshQuota(); // the limit tooltips
}

void VerifyApisDialog::fillRecord(int row, const ApiHealthRecord &record)
{
    QTableWidgetItem *health = m_table->item(row, HealthColumn);
    health->setText(record.state);
    health->setForeground(QColor(healthStateColor(record.state, m_themeId)));

    const bool measured = record.latencyMs > 0 || (record.latencyMs == 0 && record.attempts > 0);
    m_table->item(row, LatencyColumn)
            ->setText(measured ? QStringLiteral("%1 ms").arg(record.latencyMs)
                               : QStringLiteral("--"));
    QTableWidgetItem *success = m_table->item(row, LastSuccessColumn);
    success->setText(record.lastSuccess);
    QTableWidgetItem *error = m_table->item(row, LastErrorColumn);
    error->setText(record.lastError);
    error->setToolTip(record.lastError);
    m_table->item(row, CountersColumn)
            ->setText(QStringLiteral("%1 / %2 / %3")
                              .arg(record.attempts)
                              .arg(record.successes)
                              .arg(record.failures));
}

void VerifyApisDialog::updateProgressText()
{
    const QString text =
            m_running ? translated(QStringLiteral("Checking: %1 of %2 answered"),
                                   QStringLiteral("Verificando: %1 de %2 respondidas"))
                      : translated(QStringLiteral("Checks done: %1 of %2 answered"),
                                   QStringLiteral("Verificação concluída: %1 de %2 respondidas"));
    m_progress->setText(text.arg(m_answered).arg(m_total));
}
