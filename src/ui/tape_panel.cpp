#include "ui/tape_panel.h"

#include "app/language.h"
#include "streams/tape_table_model.h"
#include "ui/screen_rate.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QVBoxLayout>

TapePanel::TapePanel(QWidget *parent)
    : QWidget(parent)
    , m_model(new TapeTableModel(m_rows, this))
    , m_renderer(new FrameRenderer(this, [this] { m_model->sync(); }))
{
    setObjectName(QStringLiteral("tapePanel"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 6);
    layout->setSpacing(4);

    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("panelTitle"));
    m_title->setMinimumWidth(1);
    layout->addWidget(m_title);

    auto *filters = new QHBoxLayout;
    filters->setSpacing(4);
    m_sideFilter = new QComboBox(this);
    m_sideFilter->setObjectName(QStringLiteral("tapeSideFilter"));
    m_sideFilter->setMinimumWidth(60);
    m_sideFilter->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_sideFilter->setMinimumContentsLength(4);
    filters->addWidget(m_sideFilter, 1);
    m_minimumSize = new QDoubleSpinBox(this);
    m_minimumSize->setMinimumWidth(80);
    m_minimumSize->setObjectName(QStringLiteral("tapeMinimumSize"));
    m_minimumSize->setRange(0, 1e12);
    m_minimumSize->setDecimals(5);
    m_minimumSize->setSingleStep(0.01);
    m_minimumSize->setAccelerated(true);
    filters->addWidget(m_minimumSize, 1);
    layout->addLayout(filters);

    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("tapeTable"));
    m_table->setModel(m_model);
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setHighlightSections(false);
    m_table->setSelectionMode(QAbstractItemView::NoSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setFocusPolicy(Qt::NoFocus);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setColumnWidth(TapeTableModel::TimeColumn, 70);
    m_table->setColumnWidth(TapeTableModel::PriceColumn, 90);
    m_table->setColumnWidth(TapeTableModel::SizeColumn, 90);
    layout->addWidget(m_table, 1);

    connect(m_sideFilter, &QComboBox::currentIndexChanged, this, &TapePanel::updateFilter);
    connect(m_minimumSize, &QDoubleSpinBox::valueChanged, this, &TapePanel::updateFilter);
    refillSideFilter();
    retranslate();
}

void TapePanel::retranslate()
{
    m_sideFilter->setToolTip(translated(QStringLiteral("Side of the prints shown"),
                                        QStringLiteral("Lado dos negócios exibidos")));
    m_minimumSize->setPrefix(translated(QStringLiteral("Min "), QStringLiteral("Mín. ")));
    m_minimumSize->setToolTip(
            translated(QStringLiteral("Smallest size shown; 0 shows every print"),
                       QStringLiteral("Menor quantidade exibida; 0 exibe todos")));
}

void TapePanel::setTitle(const QString &title)
{
    m_title->setText(title);
    m_title->setToolTip(title);
}

QString TapePanel::title() const
{
    return m_title->text();
}

bool TapePanel::addRow(const TapeRow &row)
{
    if (!m_rows.add(row))
        return false;
    m_renderer->schedule();
    return true;
}

void TapePanel::clearRows()
{
    m_rows.clear();
    m_renderer->schedule();
}

void TapePanel::flushPendingDraw()
{
    m_renderer->flush();
}

void TapePanel::refillSideFilter()
{
    const QString current = sideFilter();
    {
        const QSignalBlocker blocker(m_sideFilter);
        m_sideFilter->clear();
        for (const QString &id : tapeSideIds())
            m_sideFilter->addItem(tapeSideLabel(id), id);
        const int index =
                m_sideFilter->findData(current.isEmpty() ? QStringLiteral("all") : current);
        m_sideFilter->setCurrentIndex(qMax(0, index));
    }
    updateFilter();
}

QString TapePanel::sideFilter() const
{
    return m_sideFilter->currentData().toString();
}

void TapePanel::updateFilter()
{
    // Rows already in the tape stay; the filter decides which new ones join.
    TapeFilter filter;
    filter.side = sideFilter().isEmpty() ? QStringLiteral("all") : sideFilter();
    filter.minimumSize = m_minimumSize->value();
    m_rows.setFilter(filter);
}

void TapePanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        refillSideFilter();
        m_model->retranslate();
        retranslate();
    }
    QWidget::changeEvent(event);
}
