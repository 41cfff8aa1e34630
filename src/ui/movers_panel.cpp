#include "ui/movers_panel.h"

#include "app/language.h"
#include "market/market_row.h"
#include "overview/movers_mosaic.h"
#include "streams/order_book.h"
#include "ui/side_panel.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int kColumns = 5; // symbol, last, change, volume, signal
constexpr int kTileMinimumHeight = 34;
constexpr int kSignalColumnMinimumWidth = 400;

QTableWidget *createMoversTable(QWidget *parent, const char *name)
{
    auto *table = new QTableWidget(0, kColumns, parent);
    table->setObjectName(QLatin1String(name));
    table->verticalHeader()->setVisible(false);
    table->verticalHeader()->setDefaultSectionSize(20);
    // The symbol takes what the numbers leave; the numbers keep their whole width.
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->horizontalHeader()->setHighlightSections(false);
    table->horizontalHeader()->setMinimumSectionSize(24);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setAlternatingRowColors(true);
    table->setWordWrap(false);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->setContextMenuPolicy(Qt::CustomContextMenu);
    return table;
}

QDoubleSpinBox *createMinimumBox(QWidget *parent, const char *name, double maximum, double step)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setObjectName(QLatin1String(name));
    box->setRange(0, maximum);
    box->setDecimals(0);
    box->setSingleStep(step);
    box->setGroupSeparatorShown(true);
    box->setAccelerated(true);
    box->setMinimumWidth(60);
    return box;
}

void selectId(QComboBox *box, const QString &id)
{
    const int index = box->findData(id);
    if (index >= 0)
        box->setCurrentIndex(index);
}

} // namespace

MoversPanel::MoversPanel(QWidget *parent)
    : QWidget(parent)
{
    QVBoxLayout *layout = setUpSidePanel(this, "moversPanel", &m_title);

    auto *selectors = new QHBoxLayout;
    selectors->setSpacing(4);
    m_scope = new QComboBox(this);
    m_scope->setObjectName(QStringLiteral("moversScope"));
    m_interval = new QComboBox(this);
    m_interval->setObjectName(QStringLiteral("moversInterval"));
    m_sector = new QComboBox(this);
    m_sector->setObjectName(QStringLiteral("moversSector"));
    // The interval's labels are the shortest: the scope and the sector get the room.
    for (QComboBox *box : {m_scope, m_interval, m_sector}) {
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        box->setMinimumContentsLength(2);
        selectors->addWidget(box, box == m_interval ? 2 : 3);
    }
    layout->addLayout(selectors);
    auto *minimums = new QHBoxLayout;
    minimums->setSpacing(4);
    m_minimumVolume = createMinimumBox(this, "moversMinVolume", 1e12, 10000);
    m_minimumTurnover = createMinimumBox(this, "moversMinTurnover", 1e15, 100000);
    minimums->addWidget(m_minimumVolume, 1);
    minimums->addWidget(m_minimumTurnover, 1);
    layout->addLayout(minimums);

    // Five tiles on two rows: the narrow side pane cannot hold "BEST BTCUSDT 12.34%" five abreast.
    auto *tiles = new QGridLayout;
    tiles->setSpacing(4);
    QFont tileFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    tileFont.setPointSize(8);
    tileFont.setBold(true);
    // ADV / DEC, MEDIAN, BEST, WORST, TURNOVER: row, column, column span on a 12-column grid
    // whose columns share the width evenly; the longest names get the widest tiles.
    const int places[5][3] = {{0, 0, 5}, {0, 5, 3}, {1, 0, 6}, {1, 6, 6}, {0, 8, 4}};
    for (const auto &place : places) {
        auto *tile = new QLabel(this);
        tile->setObjectName(QStringLiteral("bookMetric")); // the order book's tile style
        tile->setAlignment(Qt::AlignCenter);
        tile->setMinimumHeight(kTileMinimumHeight);
        tile->setMinimumWidth(30);
        tile->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        tile->setFont(tileFont);
        tiles->addWidget(tile, place[0], place[1], 1, place[2]);
        m_tiles << tile;
        m_tileColors << QString();
    }
    for (int column = 0; column < 12; ++column)
        tiles->setColumnStretch(column, 1);
    layout->addLayout(tiles);

    auto *splitter = new QSplitter(Qt::Vertical, this);
    splitter->setObjectName(QStringLiteral("moversSplitter"));
    splitter->setChildrenCollapsible(false);
    m_mosaic = new MoversMosaic(splitter);
    m_mosaic->setActivationCallback(
            [this](const QString &symbol) { emit symbolAction(symbol, Action::OpenChart); });
    splitter->addWidget(m_mosaic);
    for (int i = 0; i < 2; ++i) {
        auto *pane = new QWidget(splitter);
        auto *paneLayout = new QVBoxLayout(pane);
        paneLayout->setContentsMargins(0, 0, 0, 0);
        paneLayout->setSpacing(2);
        m_tableTitles[i] = new QLabel(pane);
        m_tableTitles[i]->setObjectName(QStringLiteral("subPanelTitle"));
        paneLayout->addWidget(m_tableTitles[i]);
        m_tables[i] = createMoversTable(pane, i == 0 ? "moversGainers" : "moversLosers");
        paneLayout->addWidget(m_tables[i], 1);
        splitter->addWidget(pane);
        QTableWidget *table = m_tables[i];
        connect(table, &QWidget::customContextMenuRequested, this,
                [this, table](const QPoint &position) {
                    QMenu *menu = createRowMenu(table, table->rowAt(position.y()));
                    if (!menu)
                        return;
                    menu->setAttribute(Qt::WA_DeleteOnClose);
                    menu->popup(table->viewport()->mapToGlobal(position));
                });
    }
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setStretchFactor(2, 2);
    layout->addWidget(splitter, 1);

    const auto changed = [this] {
        if (!m_settingFilters)
            emit filtersChanged();
    };
    for (QComboBox *box : {m_scope, m_interval, m_sector})
        connect(box, &QComboBox::activated, this, changed);
    for (QDoubleSpinBox *box : {m_minimumVolume, m_minimumTurnover})
        connect(box, &QDoubleSpinBox::valueChanged, this, changed);

    refillSelectors();
    selectId(m_scope, QStringLiteral("crypto"));
    selectId(m_interval, QStringLiteral("hour"));
    setSectors({});
    retranslate();
    applyTheme(QString());
    setTiles(breadthTiles({}));
}

MoversFilters MoversPanel::filters() const
{
    MoversFilters filters;
    filters.scope = m_scope->currentData().toString();
    filters.interval = m_interval->currentData().toString();
    filters.sector = m_sector->currentData().toString();
    filters.minimumVolume = m_minimumVolume->value();
    filters.minimumTurnover = m_minimumTurnover->value();
    return filters;
}

void MoversPanel::setFilters(const MoversFilters &filters)
{
    m_settingFilters = true;
    selectId(m_scope, normalizedMoversScope(filters.scope));
    selectId(m_interval, filters.interval);
    if (filters.sector != QLatin1String("all") && !m_sectors.contains(filters.sector)) {
        // A saved sector is listed before the first data names it, so it can stay selected.
        QStringList sectors = m_sectors;
        sectors.append(filters.sector);
        setSectors(sectors);
    }
    selectId(m_sector, filters.sector);
    m_minimumVolume->setValue(filters.minimumVolume);
    m_minimumTurnover->setValue(filters.minimumTurnover);
    m_settingFilters = false;
}

void MoversPanel::setSectors(const QStringList &sectors)
{
    QStringList sorted;
    for (const QString &sector : sectors) {
        const QString name = sector.trimmed();
        if (!name.isEmpty() && name != QLatin1String("all") && !sorted.contains(name))
            sorted.append(name);
    }
    std::sort(sorted.begin(), sorted.end(), [](const QString &a, const QString &b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    if (sorted == m_sectors && m_sector->count() == sorted.size() + 1)
        return;
    const QString previous = m_sector->currentData().toString();
    m_sectors = sorted;
    const bool setting = m_settingFilters;
    m_settingFilters = true;
    m_sector->clear();
    m_sector->addItem(translated(QStringLiteral("All sectors"), QStringLiteral("Todos os setores")),
                      QStringLiteral("all"));
    for (const QString &sector : sorted)
        m_sector->addItem(sector, sector);
    selectId(m_sector, sorted.contains(previous) ? previous : QStringLiteral("all"));
    m_settingFilters = setting;
}

void MoversPanel::showMovers(const MoversView &view)
{
    m_view = view;
    m_hasView = true;
    fillTable(m_tables[0], view.gainers);
    fillTable(m_tables[1], view.losers);
    m_mosaic->setItems(view.mosaic);
    setTiles(view.tiles);
}

void MoversPanel::fillTable(QTableWidget *table, const QList<MoverRecord> &records)
{
    table->setRowCount(int(records.size()));
    // The cells are written with the model quiet and announced by one signal for the whole
    // table. A signal per cell would have the header, whose number columns fit their contents,
    // measure every row of every such column again for each of the several hundred writes.
    QAbstractItemModel *model = table->model();
    QSignalBlocker quiet(model);
    for (int row = 0; row < records.size(); ++row) {
        const MoverRecord &record = records.at(row);
        const QStringList texts{
                record.symbol, formatMarketNumber(record.price), formatChangePercent(record.change),
                record.volume > 0 ? formatLargeAmount(record.volume) : QStringLiteral("--"),
                directionClass(record.change)};
        for (int column = 0; column < kColumns; ++column) {
            QTableWidgetItem *cell = table->item(row, column);
            if (!cell) {
                cell = new QTableWidgetItem;
                cell->setTextAlignment(column == 0 || column == 4
                                               ? Qt::AlignLeft | Qt::AlignVCenter
                                               : Qt::AlignRight | Qt::AlignVCenter);
                table->setItem(row, column, cell);
            }
            cell->setText(texts.at(column));
            if (column == 2)
                cell->setForeground(changeColor(record.change));
        }
        table->item(row, 0)->setData(Qt::UserRole, record.symbol);
        table->item(row, 0)->setToolTip(
                QStringLiteral("%1  %2  %3").arg(record.symbol, texts.at(2), texts.at(4)));
    }
    quiet.unblock();
    if (!records.isEmpty())
        emit model->dataChanged(model->index(0, 0),
                                model->index(int(records.size()) - 1, kColumns - 1));
}

void MoversPanel::setTiles(const QList<BreadthTile> &tiles)
{
    for (int i = 0; i < tiles.size() && i < m_tiles.size(); ++i) {
        QLabel *label = m_tiles.at(i);
        label->setText(QStringLiteral("%1\n%2").arg(tiles.at(i).name, tiles.at(i).value));
        label->setToolTip(label->text());
        if (m_tileColors.at(i) != tiles.at(i).color) {
            m_tileColors[i] = tiles.at(i).color;
            label->setStyleSheet(metricTileStyle(m_theme, m_tileColors.at(i)));
        }
    }
}

void MoversPanel::applyTheme(const QString &themeId)
{
    m_theme = themeId;
    m_mosaic->setLightTheme(themeId == QLatin1String("qrl_light"));
    for (int i = 0; i < m_tiles.size(); ++i)
        m_tiles.at(i)->setStyleSheet(metricTileStyle(themeId, m_tileColors.at(i)));
}

QMenu *MoversPanel::createRowMenu(QTableWidget *table, int row)
{
    if (row < 0 || !table->item(row, 0))
        return nullptr;
    table->selectRow(row);
    // The symbol is taken now: a refresh may re-rank the rows while the menu is open.
    const QString symbol = table->item(row, 0)->data(Qt::UserRole).toString();
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("moversRowMenu"));
    const struct
    {
        const char *english;
        const char *portuguese;
        Action action;
    } entries[] = {
            {"Open chart", "Abrir gráfico", Action::OpenChart},
            {"Add/select watchlist", "Adicionar/selecionar na lista", Action::AddToWatchlist},
            {"Create alert", "Criar alerta", Action::CreateAlert},
    };
    for (const auto &entry : entries) {
        if (entry.action == Action::CreateAlert && !m_alertActionAvailable)
            continue;
        QAction *action = menu->addAction(
                translated(QString::fromUtf8(entry.english), QString::fromUtf8(entry.portuguese)));
        action->setData(int(entry.action));
        const Action chosen = entry.action;
        connect(action, &QAction::triggered, this,
                [this, symbol, chosen] { emit symbolAction(symbol, chosen); });
    }
    return menu;
}

void MoversPanel::refillSelectors()
{
    const bool setting = m_settingFilters;
    m_settingFilters = true;
    const QString scope = m_scope->currentData().toString();
    const QString interval = m_interval->currentData().toString();
    m_scope->clear();
    for (const QString &id : moversScopeIds())
        m_scope->addItem(moversScopeLabel(id), id);
    m_interval->clear();
    for (const QString &id : moversIntervalIds())
        m_interval->addItem(moversIntervalLabel(id), id);
    selectId(m_scope, scope);
    selectId(m_interval, interval);
    if (m_sector->count() > 0)
        m_sector->setItemText(
                0, translated(QStringLiteral("All sectors"), QStringLiteral("Todos os setores")));
    m_settingFilters = setting;
}

void MoversPanel::retranslate()
{
    m_title->setText(
            translated(QStringLiteral("MARKET MOVERS"), QStringLiteral("DESTAQUES DO MERCADO")));
    m_tableTitles[0]->setText(
            translated(QStringLiteral("TOP GAINERS"), QStringLiteral("MAIORES ALTAS")));
    m_tableTitles[1]->setText(
            translated(QStringLiteral("TOP LOSERS"), QStringLiteral("MAIORES BAIXAS")));
    const QStringList headers{
            translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
            translated(QStringLiteral("Last"), QStringLiteral("Último")),
            translated(QStringLiteral("Chg %"), QStringLiteral("Var %")),
            translated(QStringLiteral("Volume"), QStringLiteral("Volume")),
            translated(QStringLiteral("Signal"), QStringLiteral("Sinal")),
    };
    for (QTableWidget *table : m_tables)
        table->setHorizontalHeaderLabels(headers);
    m_minimumVolume->setPrefix(translated(QStringLiteral("Min Vol "), QStringLiteral("Vol mín ")));
    m_minimumTurnover->setPrefix(
            translated(QStringLiteral("Min Turnover "), QStringLiteral("Giro mín ")));
    m_scope->setToolTip(translated(QStringLiteral("Scope"), QStringLiteral("Escopo")));
    m_interval->setToolTip(translated(QStringLiteral("Interval"), QStringLiteral("Intervalo")));
    m_sector->setToolTip(translated(QStringLiteral("Sector"), QStringLiteral("Setor")));
}

void MoversPanel::resizeEvent(QResizeEvent *event)
{
    // A narrow side pane cannot hold five columns: the signal then lives in the symbol's tooltip.
    const bool narrow = width() < kSignalColumnMinimumWidth;
    for (QTableWidget *table : m_tables)
        table->setColumnHidden(kColumns - 1, narrow);
    QWidget::resizeEvent(event);
}

void MoversPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        refillSelectors();
        retranslate();
        // Tile names and signals follow the language.
        if (m_hasView) {
            MoversView view = m_view;
            view.tiles = breadthTiles(view.kept);
            showMovers(view);
        } else {
            setTiles(breadthTiles({}));
        }
    }
    QWidget::changeEvent(event);
}
