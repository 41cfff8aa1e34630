#include "ui/market_table.h"

#include "app/language.h"
#include "market/market_row.h"
#include "market/market_table_item.h"

#include <QAction>
#include <QEvent>
#include <QFontDatabase>
#include <QHeaderView>
#include <QHelpEvent>
#include <QMenu>
#include <QMetaMethod>
#include <QStyle>
#include <QTimer>
#include <QToolTip>

#include <cmath>

namespace {

// Starting widths; the user resizes from there and nothing resizes per update.
constexpr int kColumnWidths[MarketColumnCount] = {88, 78, 72, 72, 72,  72, 80,  66,
                                                  72, 72, 72, 66, 104, 64, 110, 134};
constexpr int kRowHeight = 22;

bool isNumericColumn(int column)
{
    return (column >= OpenColumn && column <= MacdColumn) || column == LatencyColumn;
}

} // namespace

void widenColumnsToHeaders(QTableWidget *table)
{
    // Longer header words (Portuguese ones) widen their column; nothing ever narrows it.
    QHeaderView *header = table->horizontalHeader();
    for (int column = 0; column < table->columnCount(); ++column) {
        const int needed = header->sectionSizeHint(column);
        if (table->columnWidth(column) < needed)
            table->setColumnWidth(column, needed);
    }
}

void fitColumnsToHeadersLater(QTableWidget *table)
{
    // A new style sheet reaches the header after the table; measure once both are polished.
    QTimer::singleShot(0, table, [table] { widenColumnsToHeaders(table); });
}

SortingPause::SortingPause(QTableWidget *table)
    : m_table(table)
    , m_wasEnabled(table->isSortingEnabled())
{
    m_table->setSortingEnabled(false);
}

SortingPause::~SortingPause()
{
    m_table->setSortingEnabled(m_wasEnabled);
}

MarketTable::MarketTable(QWidget *parent)
    : QTableWidget(0, MarketColumnCount, parent)
{
    setObjectName(QStringLiteral("marketTable"));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setCornerButtonEnabled(false);
    setContextMenuPolicy(Qt::CustomContextMenu);
    verticalHeader()->setVisible(false);
    verticalHeader()->setDefaultSectionSize(kRowHeight);
    verticalHeader()->setMinimumSectionSize(kRowHeight);

    QHeaderView *header = horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsClickable(true);
    header->setSectionsMovable(false);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(-1, Qt::AscendingOrder);
    header->setStretchLastSection(true);
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    for (int column = 0; column < MarketColumnCount; ++column)
        setColumnWidth(column, kColumnWidths[column]);

    // Sorting starts off; the first click on a header switches it on for that column.
    connect(header, &QHeaderView::sectionClicked, this, [this] {
        if (!isSortingEnabled())
            setSortingEnabled(true);
    });
    connect(header, &QWidget::customContextMenuRequested, this, [this, header](const QPoint &at) {
        createHeaderMenu()->popup(header->viewport()->mapToGlobal(at));
    });
    connect(this, &QWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        const int row = rowAt(at.y());
        if (row < 0)
            return;
        selectRow(row);
        createRowMenu(row)->popup(viewport()->mapToGlobal(at));
    });
    retranslate();
}

int MarketTable::findMarketRow(const QString &symbol) const
{
    // Stream frames look rows up many times a second: a persistent index follows its row through
    // sorting, inserts and removals, so only a row it has lost is searched for.
    const auto known = m_rowIndex.constFind(symbol);
    if (known != m_rowIndex.constEnd() && known->isValid()) {
        const QTableWidgetItem *cell = item(known->row(), SymbolColumn);
        if (cell && cell->text() == symbol)
            return known->row();
    }
    for (int row = 0; row < rowCount(); ++row) {
        const QTableWidgetItem *cell = item(row, SymbolColumn);
        if (cell && cell->text() == symbol) {
            m_rowIndex.insert(symbol, QPersistentModelIndex(model()->index(row, SymbolColumn)));
            return row;
        }
    }
    m_rowIndex.remove(symbol);
    return -1;
}

int MarketTable::addMarketRow(const QString &symbol, const QString &classLabel,
                              const QString &source, const QString &status, bool select)
{
    int row = 0;
    {
        SortingPause pause(this);
        row = rowCount();
        insertRow(row);
        setMarketCell(row, SymbolColumn, symbol);
        setMarketCell(row, AssetColumn, classLabel);
        for (int column = OpenColumn; column <= MacdColumn; ++column)
            setMarketCell(row, column, QStringLiteral("--"));
        setMarketCell(row, SourceColumn, source);
        setMarketCell(row, LatencyColumn, QStringLiteral("--"));
        setMarketStatus(row, status);
        setMarketCell(row, UpdatedColumn, marketTimestamp());
    }
    // Sorting may have moved the new row.
    row = findMarketRow(symbol);
    if (select && row >= 0)
        selectRow(row);
    return row;
}

QTableWidgetItem *MarketTable::cellAt(int row, int column)
{
    QTableWidgetItem *cell = item(row, column);
    if (cell)
        return cell;
    auto *created = new MarketTableItem;
    if (column == SymbolColumn) {
        QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        font.setBold(true);
        created->setFont(font);
    } else if (isNumericColumn(column) || column == LastColumn) {
        created->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        created->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    }
    setItem(row, column, created);
    return created;
}

void MarketTable::setMarketCell(int row, int column, const QString &text)
{
    QTableWidgetItem *cell = cellAt(row, column);
    cell->setText(text);
    cell->setData(Qt::UserRole, QVariant());
}

void MarketTable::setMarketNumberCell(int row, int column, const QString &text, double value)
{
    QTableWidgetItem *cell = cellAt(row, column);
    cell->setText(text);
    cell->setData(Qt::UserRole, value);
}

void MarketTable::setMarketIndicatorCell(int row, int column, double value)
{
    if (std::isfinite(value))
        setMarketNumberCell(row, column, formatMarketNumber(value), value);
    else
        setMarketCell(row, column, QStringLiteral("--"));
}

void MarketTable::colorChangeCell(int row, double changePercent)
{
    cellAt(row, ChangeColumn)->setForeground(changeColor(changePercent));
}

void MarketTable::beginRowWrites()
{
    MarketTableItem::setQuietWrites(true);
}

void MarketTable::endRowWrites(const QList<int> &rows)
{
    MarketTableItem::setQuietWrites(false);
    if (rows.isEmpty())
        return;
    QHeaderView *header = horizontalHeader();
    const int column = header->sortIndicatorSection();
    if (isSortingEnabled() && column >= 0 && column < columnCount()) {
        const bool ascending = header->sortIndicatorOrder() == Qt::AscendingOrder;
        // `a` may stand before `b` in the sorted order.
        const auto inOrder = [&](int a, int b) {
            const QTableWidgetItem *first = item(a, column);
            const QTableWidgetItem *second = item(b, column);
            if (!first || !second)
                return false;
            return ascending ? !(*second < *first) : !(*first < *second);
        };
        for (int row : rows) {
            if ((row > 0 && !inOrder(row - 1, row)) ||
                (row + 1 < rowCount() && !inOrder(row, row + 1))) {
                sortItems(column, header->sortIndicatorOrder());
                viewport()->update();
                return;
            }
        }
    }
    for (int row : rows) {
        const QRect first = visualRect(model()->index(row, 0));
        viewport()->update(QRect(0, first.top(), viewport()->width(), first.height()));
    }
}

MarketTable::RowCells MarketTable::rowCells(int row)
{
    static_assert(std::tuple_size_v<RowCells> == MarketColumnCount);
    RowCells cells{};
    for (int column = 0; column < MarketColumnCount; ++column)
        cells[column] = cellAt(row, column);
    return cells;
}

void MarketTable::writeCell(QTableWidgetItem *cell, const QString &text)
{
    if (cell->text() != text)
        cell->setText(text);
    if (cell->data(Qt::UserRole).isValid())
        cell->setData(Qt::UserRole, QVariant());
}

void MarketTable::writeNumber(QTableWidgetItem *cell, double value)
{
    if (!std::isfinite(value)) {
        writeCell(cell, QStringLiteral("--"));
        return;
    }
    // The sort value first: a sorted table places the row once, by the new value.
    const QVariant stored = cell->data(Qt::UserRole);
    if (!stored.isValid() || stored.toDouble() != value)
        cell->setData(Qt::UserRole, value);
    const QString text = formatMarketNumber(value);
    if (cell->text() != text)
        cell->setText(text);
}

void MarketTable::writeQuoteCells(const RowCells &cells, double price, double changePercent,
                                  const QString &source, const QString &latency,
                                  const QString &status, const QString &timestamp)
{
    QTableWidgetItem *change = cells[ChangeColumn];
    if (std::isfinite(changePercent)) {
        if (change->data(Qt::UserRole).toDouble() != changePercent ||
            !change->data(Qt::UserRole).isValid())
            change->setData(Qt::UserRole, changePercent);
        const QString text = formatChangePercent(changePercent);
        if (change->text() != text)
            change->setText(text);
    } else {
        writeCell(change, QStringLiteral("--"));
    }
    const QColor color = changeColor(changePercent);
    if (change->foreground().color() != color)
        change->setForeground(color);
    writeCell(cells[SourceColumn], source);
    writeCell(cells[LatencyColumn], latency);
    writeCell(cells[StatusColumn], localizedStatusWord(status));
    writeCell(cells[UpdatedColumn], timestamp);
    writeNumber(cells[LastColumn], price);
}

void MarketTable::setMarketStatus(int row, const QString &status)
{
    setMarketCell(row, StatusColumn, localizedStatusWord(status));
}

void MarketTable::setToolTipProvider(std::function<QString(const QString &)> provider)
{
    m_toolTipProvider = std::move(provider);
}

QString MarketTable::rowToolTip(int row) const
{
    const QString symbol = symbolAt(row);
    return m_toolTipProvider && !symbol.isEmpty() ? m_toolTipProvider(symbol) : QString();
}

bool MarketTable::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        const auto *help = static_cast<QHelpEvent *>(event);
        const QModelIndex index = indexAt(help->pos());
        const QString text = index.isValid() ? rowToolTip(index.row()) : QString();
        if (text.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), text, viewport(), visualRect(index));
        return true;
    }
    return QTableWidget::viewportEvent(event);
}

void MarketTable::highlightRow(const QString &symbol, const QColor &color)
{
    const int row = findMarketRow(symbol);
    if (row < 0)
        return;
    // Light text stays readable on the dark highlight in both themes; the change keeps its colour.
    const QColor text(QStringLiteral("#f3ead2"));
    for (int column = 0; column < columnCount(); ++column) {
        cellAt(row, column)->setBackground(color);
        if (column != ChangeColumn)
            cellAt(row, column)->setForeground(text);
    }
}

bool MarketTable::moveMarketRow(int from, int to)
{
    if (from < 0 || to < 0 || from >= rowCount() || to >= rowCount() || from == to)
        return false;
    // A manual order and a sorted view exclude each other: the move keeps the manual order.
    setSortingEnabled(false);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    QList<QTableWidgetItem *> cells;
    for (int column = 0; column < columnCount(); ++column)
        cells << takeItem(from, column);
    removeRow(from);
    insertRow(to);
    for (int column = 0; column < cells.size(); ++column)
        setItem(to, column, cells.at(column));
    selectRow(to);
    return true;
}

QString MarketTable::symbolAt(int row) const
{
    const QTableWidgetItem *cell = item(row, SymbolColumn);
    return cell ? cell->text() : QString();
}

QString MarketTable::selectedSymbol() const
{
    return symbolAt(currentRow());
}

QStringList MarketTable::symbols() const
{
    QStringList result;
    for (int row = 0; row < rowCount(); ++row) {
        if (const QTableWidgetItem *cell = item(row, SymbolColumn))
            result << cell->text();
    }
    return result;
}

void MarketTable::setHiddenColumns(const QSet<int> &columns)
{
    m_hiddenColumns = columns;
    m_hiddenColumns.remove(SymbolColumn);
    applyHiddenColumns();
}

void MarketTable::applyColumnPreset(const QString &preset)
{
    setHiddenColumns(hiddenColumnsForPreset(preset));
}

bool MarketTable::toggleColumn(int column)
{
    if (column <= SymbolColumn || column >= MarketColumnCount)
        return false;
    if (m_hiddenColumns.contains(column))
        m_hiddenColumns.remove(column);
    else
        m_hiddenColumns.insert(column);
    applyHiddenColumns();
    return true;
}

void MarketTable::applyHiddenColumns()
{
    for (int column = 0; column < MarketColumnCount; ++column)
        setColumnHidden(column, m_hiddenColumns.contains(column));
}

void MarketTable::setIndicatorPeriods(int smaPeriod, int emaPeriod)
{
    m_smaPeriod = smaPeriod;
    m_emaPeriod = emaPeriod;
    retranslate();
}

void MarketTable::retranslate()
{
    QStringList headers;
    for (int column = 0; column < MarketColumnCount; ++column)
        headers << marketColumnHeader(column, m_smaPeriod, m_emaPeriod);
    setHorizontalHeaderLabels(headers);
    widenColumnsToHeaders(this);
    // Status words are longer in Portuguese; the column holds the longest one whole.
    int statusWidth = 0;
    for (const QString &word : statusWords())
        statusWidth = qMax(statusWidth, fontMetrics().horizontalAdvance(localizedStatusWord(word)));
    statusWidth += 2 * style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 12;
    if (columnWidth(StatusColumn) < statusWidth)
        setColumnWidth(StatusColumn, statusWidth);
    // Status words follow the language; every other written cell keeps the one it was written in.
    SortingPause pause(this);
    for (int row = 0; row < rowCount(); ++row) {
        if (QTableWidgetItem *cell = item(row, StatusColumn))
            cell->setText(localizedStatusWord(cell->text()));
    }
}

void MarketTable::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    if (event->type() == QEvent::StyleChange || event->type() == QEvent::FontChange)
        fitColumnsToHeadersLater(this);
    QTableWidget::changeEvent(event);
}

QMenu *MarketTable::createHeaderMenu()
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("marketHeaderMenu"));
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    for (int column = 0; column < MarketColumnCount; ++column) {
        QAction *action = menu->addAction(marketColumnHeader(column, m_smaPeriod, m_emaPeriod));
        action->setCheckable(true);
        action->setChecked(!isColumnHidden(column));
        action->setData(column);
        connect(action, &QAction::triggered, this, [this, column] {
            if (toggleColumn(column))
                emit columnVisibilityChanged();
            else
                emit symbolColumnHideRefused();
        });
    }
    return menu;
}

QMenu *MarketTable::createRowMenu(int row)
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("marketRowMenu"));
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    // The menu does not block: quotes keep sorting the table while it is open, so every entry acts
    // on the symbol it was opened on, wherever that row is by then, and on nothing once it is gone.
    const QString symbol = symbolAt(row);
    auto add = [menu](const char *name, const QString &english, const QString &portuguese) {
        QAction *action = menu->addAction(translated(english, portuguese));
        action->setObjectName(QLatin1String(name));
        return action;
    };
    QAction *alert =
            add("createAlert", QStringLiteral("Create alert"), QStringLiteral("Criar alerta"));
    // Offered once something can take the alert.
    alert->setEnabled(
            isSignalConnected(QMetaMethod::fromSignal(&MarketTable::createAlertRequested)));
    connect(alert, &QAction::triggered, this, [this, symbol] {
        if (findMarketRow(symbol) >= 0)
            emit createAlertRequested(symbol);
    });
    menu->addSeparator();
    enum class Target {
        Up,
        Down,
        Top,
        Bottom
    };
    const struct
    {
        const char *name;
        QString english;
        QString portuguese;
        Target target;
    } moves[] = {
            {"moveUp", QStringLiteral("Move up"), QStringLiteral("Mover para cima"), Target::Up},
            {"moveDown", QStringLiteral("Move down"), QStringLiteral("Mover para baixo"),
             Target::Down},
            {"moveToTop", QStringLiteral("Move to top"), QStringLiteral("Mover para o topo"),
             Target::Top},
            {"moveToBottom", QStringLiteral("Move to bottom"), QStringLiteral("Mover para o fim"),
             Target::Bottom},
    };
    for (const auto &move : moves) {
        const Target target = move.target;
        connect(add(move.name, move.english, move.portuguese), &QAction::triggered, this,
                [this, symbol, target] {
                    const int from = findMarketRow(symbol);
                    if (from < 0)
                        return;
                    const int to = target == Target::Up     ? from - 1
                                   : target == Target::Down ? from + 1
                                   : target == Target::Top  ? 0
                                                            : rowCount() - 1;
                    emit moveRequested(from, to);
                });
    }
    menu->addSeparator();
    connect(add("removeSymbol", QStringLiteral("Remove symbol"), QStringLiteral("Remover símbolo")),
            &QAction::triggered, this, [this, symbol] {
                const int current = findMarketRow(symbol);
                if (current >= 0)
                    emit removeRequested(current);
            });
    return menu;
}
