#include "ui/screener_panel.h"

#include "app/language.h"
#include "market/symbols.h"
#include "ui/side_panel.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kSortKeyRole = Qt::UserRole + 1;

// Numeric cells sort by their value; an unknown value sorts below every known one.
class ScreenerItem : public QTableWidgetItem
{
public:
    using QTableWidgetItem::QTableWidgetItem;

    bool operator<(const QTableWidgetItem &other) const override
    {
        const QVariant mine = data(kSortKeyRole);
        const QVariant theirs = other.data(kSortKeyRole);
        if (mine.isValid() || theirs.isValid()) {
            if (mine.isValid() != theirs.isValid())
                return !mine.isValid();
            if (mine.toDouble() != theirs.toDouble())
                return mine.toDouble() < theirs.toDouble();
        }
        return text() < other.text();
    }
};

void refill(QComboBox *box, const QStringList &ids, QString (*label)(const QString &))
{
    const QString previous = box->currentData().toString();
    const QSignalBlocker blocker(box);
    box->clear();
    for (const QString &id : ids)
        box->addItem(label(id), id);
    box->setCurrentIndex(std::max(0, box->findData(previous)));
}

void selectId(QComboBox *box, const QString &id)
{
    const int index = box->findData(id);
    if (index >= 0)
        box->setCurrentIndex(index);
}

ScreenerItem *numberItem(const QString &text, double value)
{
    auto *item = new ScreenerItem(text);
    if (std::isfinite(value))
        item->setData(kSortKeyRole, value);
    item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return item;
}

} // namespace

ScreenerPanel::ScreenerPanel(QWidget *parent)
    : QWidget(parent)
{
    QVBoxLayout *layout = setUpSidePanel(this, "screenerPanel", &m_title);

    m_scope = new QComboBox(this);
    m_scope->setObjectName(QStringLiteral("screenerScope"));
    m_asset = new QComboBox(this);
    m_asset->setObjectName(QStringLiteral("screenerAsset"));
    layout->addLayout(selectorRow({m_scope, m_asset}));

    auto *search = new QHBoxLayout;
    search->setSpacing(4);
    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("screenerSearch"));
    m_search->setClearButtonEnabled(true);
    m_search->setMaxLength(40);
    search->addWidget(m_search, 1);
    m_minimumChange = new QDoubleSpinBox(this);
    m_minimumChange->setObjectName(QStringLiteral("screenerMinChange"));
    m_minimumChange->setRange(-kScreenerMinimumChangeLimit, kScreenerMinimumChangeLimit);
    m_minimumChange->setDecimals(2);
    m_minimumChange->setSingleStep(0.5);
    m_minimumChange->setSuffix(QStringLiteral("%"));
    m_minimumChange->setAccelerated(true);
    m_minimumChange->setMinimumWidth(60);
    search->addWidget(m_minimumChange, 1);
    layout->addLayout(search);

    m_table = new QTableWidget(0, ColumnCount, this);
    m_table->setObjectName(QStringLiteral("screenerTable"));
    m_table->verticalHeader()->setVisible(false);
    // Column widths are measured on the rows in view: the universe has hundreds of rows and the
    // table is rebuilt every second while quotes arrive.
    m_table->verticalHeader()->setResizeContentsPrecision(0);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    QHeaderView *header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setMinimumSectionSize(24);
    // The symbol takes what the other columns leave; they keep their whole width.
    header->setSectionResizeMode(QHeaderView::ResizeToContents);
    header->setSectionResizeMode(SymbolColumn, QHeaderView::Stretch);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setTextElideMode(Qt::ElideRight);
    m_table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(SymbolColumn, Qt::AscendingOrder);
    m_table->installEventFilter(this);
    layout->addWidget(m_table, 1);

    connect(m_scope, &QComboBox::currentIndexChanged, this, &ScreenerPanel::reportChange);
    connect(m_asset, &QComboBox::currentIndexChanged, this, &ScreenerPanel::reportChange);
    connect(m_minimumChange, &QDoubleSpinBox::valueChanged, this, &ScreenerPanel::reportChange);
    connect(m_search, &QLineEdit::textChanged, this, &ScreenerPanel::reportChange);
    connect(m_table, &QTableWidget::cellDoubleClicked, this,
            [this](int row, int) { activateRow(row); });

    refillSelectors();
    retranslate();
}

ScreenerFilters ScreenerPanel::filters() const
{
    ScreenerFilters filters;
    filters.scope = m_scope->currentData().toString();
    filters.asset = m_asset->currentData().toString();
    filters.minimumChange = m_minimumChange->value();
    filters.search = m_search->text();
    return filters;
}

void ScreenerPanel::setFilters(const ScreenerFilters &filters)
{
    m_settingFilters = true;
    selectId(m_scope, filters.scope);
    selectId(m_asset, filters.asset);
    m_minimumChange->setValue(filters.minimumChange);
    m_search->setText(filters.search);
    m_settingFilters = false;
}

void ScreenerPanel::setRows(const QList<ScreenerRow> &rows)
{
    m_rows = rows;
    const bool sorting = m_table->isSortingEnabled();
    m_table->setSortingEnabled(false);
    m_table->clearContents();
    m_table->setRowCount(int(rows.size()));
    for (int index = 0; index < rows.size(); ++index) {
        const ScreenerRow &row = rows.at(index);
        auto *symbol = new ScreenerItem(displaySymbol(row.symbol));
        symbol->setData(Qt::UserRole, row.symbol);
        m_table->setItem(index, SymbolColumn, symbol);
        m_table->setItem(index, AssetColumn, new ScreenerItem(row.asset));
        m_table->setItem(index, LastColumn, numberItem(formatMarketNumber(row.last), row.last));
        QTableWidgetItem *change = numberItem(formatChangePercent(row.change), row.change);
        m_table->setItem(index, ChangeColumn, change);
        m_table->setItem(index, VolumeColumn,
                         numberItem(formatLargeAmount(row.volume), row.volume));
        m_table->setItem(index, MarketColumn, new ScreenerItem(row.market));
        m_table->setItem(index, SourceColumn, new ScreenerItem(row.source));
        auto *signal = new ScreenerItem(screenerSignal(row.change));
        m_table->setItem(index, SignalColumn, signal);
        // An unknown change keeps the table's own text colour, so either theme can read it.
        if (std::isfinite(row.change)) {
            const QColor color = changeColor(row.change);
            change->setForeground(color);
            signal->setForeground(color);
        }
        // What a narrow pane hides stays one hover away.
        const QString summary =
                QStringLiteral("%1 · %2 · %3\n%4 %5")
                        .arg(row.asset, row.market, row.source,
                             translated(QStringLiteral("Volume"), QStringLiteral("Volume")),
                             formatLargeAmount(row.volume));
        symbol->setToolTip(summary);
    }
    m_table->setSortingEnabled(sorting);
    fitColumns();
}

void ScreenerPanel::activateRow(int row)
{
    const QTableWidgetItem *item = m_table->item(row, SymbolColumn);
    if (item)
        emit symbolActivated(item->data(Qt::UserRole).toString());
}

void ScreenerPanel::reportChange()
{
    if (!m_settingFilters)
        emit filtersChanged();
}

void ScreenerPanel::refillSelectors()
{
    refill(m_scope, screenerScopeIds(), screenerScopeLabel);
    refill(m_asset, screenerAssetIds(), screenerAssetLabel);
}

void ScreenerPanel::retranslate()
{
    m_title->setText(translated(QStringLiteral("SCREENER"), QStringLiteral("RASTREADOR")));
    m_search->setPlaceholderText(
            translated(QStringLiteral("Search symbol"), QStringLiteral("Buscar ativo")));
    m_scope->setToolTip(
            translated(QStringLiteral("Symbols to screen"), QStringLiteral("Ativos a rastrear")));
    m_asset->setToolTip(
            translated(QStringLiteral("Asset class"), QStringLiteral("Classe de ativo")));
    m_minimumChange->setPrefix(translated(QStringLiteral("Min chg "), QStringLiteral("Var mín ")));
    m_minimumChange->setToolTip(translated(
            QStringLiteral("Minimum change: a positive value lists moves of at least that size "
                           "either way, a negative one only falls at least that deep; 0 is off"),
            QStringLiteral("Variação mínima: um valor positivo lista movimentos de pelo menos esse "
                           "tamanho nos dois sentidos, um negativo só quedas dessa profundidade; "
                           "0 desliga")));
    m_table->setHorizontalHeaderLabels({
            translated(QStringLiteral("Symbol"), QStringLiteral("Ativo")),
            translated(QStringLiteral("Asset"), QStringLiteral("Classe")),
            translated(QStringLiteral("Last"), QStringLiteral("Último")),
            translated(QStringLiteral("Change"), QStringLiteral("Variação")),
            translated(QStringLiteral("Volume"), QStringLiteral("Volume")),
            translated(QStringLiteral("Market"), QStringLiteral("Mercado")),
            translated(QStringLiteral("Source"), QStringLiteral("Fonte")),
            translated(QStringLiteral("Signal"), QStringLiteral("Sinal")),
    });
}

bool ScreenerPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_table && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
            m_table->currentRow() >= 0) {
            activateRow(m_table->currentRow());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void ScreenerPanel::fitColumns()
{
    // The symbol, its price and its move always stay; the rest goes, least telling first, until
    // the shown columns fit without a horizontal scroll bar. Widths depend on the language and the
    // theme's font, so they are measured rather than assumed.
    static constexpr int kHideOrder[] = {AssetColumn, MarketColumn, SourceColumn, VolumeColumn,
                                         SignalColumn};
    QHeaderView *header = m_table->horizontalHeader();
    for (int column = 0; column < ColumnCount; ++column)
        m_table->setColumnHidden(column, false);
    const int available =
            m_table->contentsRect().width() - m_table->verticalScrollBar()->sizeHint().width();
    const QAbstractItemView *view = m_table; // QTableView hides the measure it overrides
    int needed[ColumnCount] = {};
    int total = 0;
    for (int column = 0; column < ColumnCount; ++column) {
        needed[column] = std::max(view->sizeHintForColumn(column), header->sectionSizeHint(column));
        total += needed[column];
    }
    for (int column : kHideOrder) {
        if (total <= available)
            break;
        m_table->setColumnHidden(column, true);
        total -= needed[column];
    }
}

void ScreenerPanel::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    emit shown();
}

void ScreenerPanel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitColumns();
}

void ScreenerPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        refillSelectors();
        retranslate();
        // The signals are words of the language; the headers' widths change with them.
        setRows(m_rows);
    }
    QWidget::changeEvent(event);
}
