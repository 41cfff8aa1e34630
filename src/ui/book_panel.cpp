#include "ui/book_panel.h"

#include "app/language.h"
#include "market/market_table_item.h"
#include "ui/screen_rate.h"

#include <QDoubleSpinBox>
#include <QEvent>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr const char *kBidColor = "#20c878";
constexpr const char *kAskColor = "#f45d5d";
constexpr int kTileMinimumHeight = 38;
constexpr int kTileMinimumWidth = 40;
constexpr int kTileSpacing = 4;
constexpr int kPresetButtonMinimumWidth = 36;
constexpr double kMaximumStep = 1e7;
// Below this the two ladders stand one above the other: side by side, a Level 2 total such as
// 12500.0000 would be cut.
constexpr int kSideBySideMinimumWidth = 520;

// The step box shows as many decimals as the step needs: 50, 0.5, 0.00001.
class StepSpinBox : public QDoubleSpinBox
{
public:
    using QDoubleSpinBox::QDoubleSpinBox;

    QString textFromValue(double value) const override
    {
        QString text = locale().toString(value, 'f', decimals());
        const QChar point = locale().decimalPoint().at(0);
        if (text.contains(point)) {
            while (text.endsWith(QLatin1Char('0')))
                text.chop(1);
            if (text.endsWith(point))
                text.chop(1);
        }
        return text;
    }
};

QTableWidget *createBookTable(QWidget *parent, const char *name)
{
    auto *table = new QTableWidget(0, 3, parent);
    table->setObjectName(QLatin1String(name));
    table->verticalHeader()->setVisible(false);
    table->verticalHeader()->setDefaultSectionSize(20);
    // Every column stretches, the last one included, so the three share the width evenly (a
    // stretched last section on its own keeps the default section size as its floor).
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table->horizontalHeader()->setHighlightSections(false);
    table->horizontalHeader()->setMinimumSectionSize(24); // the stretch shares a narrow width
    table->setSelectionMode(QAbstractItemView::NoSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setFocusPolicy(Qt::NoFocus);
    table->setAlternatingRowColors(true);
    table->setWordWrap(false);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    return table;
}

QList<DepthLevel> depthLevels(const QList<Level2Level> &levels)
{
    QList<DepthLevel> result;
    result.reserve(levels.size());
    for (const Level2Level &level : levels)
        result.append({level.price, level.size, true});
    return result;
}

// The three texts of each row, for whichever table a view fills.
template<typename Row, typename Texts>
QList<QStringList> tableRows(const QList<Row> &rows, Texts texts)
{
    QList<QStringList> result;
    result.reserve(rows.size());
    for (const Row &row : rows)
        result.append(texts(row));
    return result;
}

QStringList ladderTexts(const BookTableRow &row)
{
    return {row.price, row.size, row.total};
}

QStringList fallbackTexts(const BookFallbackRow &row)
{
    return {row.field, row.value, row.source};
}

} // namespace

BookPanel::BookPanel(QWidget *parent)
    : QWidget(parent)
    , m_renderer(new FrameRenderer(this, [this] { drawLadder(); }))
{
    setObjectName(QStringLiteral("bookPanel"));
    // A narrow side pane holds two ladders: a compact fixed font keeps prices whole and aligned
    // (set on the cells, where the theme's style sheet leaves it alone).
    m_cellFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_cellFont.setPixelSize(11);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 6);
    layout->setSpacing(4);

    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("panelTitle"));
    m_title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_title->setMinimumWidth(1); // a long title wraps, never widens the tab
    m_title->setWordWrap(true);
    layout->addWidget(m_title);

    auto *tiles = new QHBoxLayout;
    tiles->setSpacing(kTileSpacing);
    QFont tileFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    tileFont.setPointSize(9);
    tileFont.setBold(true);
    for (int i = 0; i < 4; ++i) {
        auto *tile = new QLabel(this);
        tile->setObjectName(QStringLiteral("bookMetric"));
        tile->setAlignment(Qt::AlignCenter);
        tile->setMinimumHeight(kTileMinimumHeight);
        tile->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        tile->setMinimumWidth(kTileMinimumWidth); // a narrow side pane shares the row evenly
        tile->setFont(tileFont);
        tiles->addWidget(tile);
        m_tiles << tile;
        m_tileColors << QString();
    }
    layout->addLayout(tiles);

    auto *steps = new QHBoxLayout;
    steps->setSpacing(4);
    m_stepLabel = new QLabel(this);
    m_stepLabel->setObjectName(QStringLiteral("subPanelTitle"));
    steps->addWidget(m_stepLabel);
    m_stepBox = new StepSpinBox(this);
    m_stepBox->setObjectName(QStringLiteral("bookStep"));
    m_stepBox->setRange(0, kMaximumStep);
    m_stepBox->setDecimals(10); // a tight step on a pair priced in millionths
    m_stepBox->setSingleStep(0.01);
    m_stepBox->setAccelerated(true);
    m_stepBox->setMinimumWidth(72);
    steps->addWidget(m_stepBox, 1);
    layout->addLayout(steps);
    auto *presets = new QHBoxLayout;
    presets->setSpacing(4);
    for (const QString &id : bookPresetIds()) {
        auto *button = new QPushButton(this);
        button->setObjectName(QStringLiteral("bookPresetButton"));
        button->setProperty("bookPreset", id);
        button->setCheckable(true);
        button->setFocusPolicy(Qt::NoFocus);
        button->setMinimumWidth(kPresetButtonMinimumWidth);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        connect(button, &QPushButton::clicked, this, [this, id, button] {
            // The check mark follows the step, not the click; the window re-checks.
            button->setChecked(m_activePreset == id);
            emit presetClicked(id);
        });
        presets->addWidget(button);
        m_presetButtons << button;
    }
    layout->addLayout(presets);
    connect(m_stepBox, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        if (m_hasLadder)
            m_renderer->schedule(); // the same ladder, bucketed anew
        if (m_stepBox->property("settingStep").toBool())
            return;
        emit stepEdited(value);
    });

    m_tablesLayout = new QGridLayout;
    m_tablesLayout->setHorizontalSpacing(6);
    m_tablesLayout->setVerticalSpacing(2);
    for (int i = 0; i < 2; ++i) {
        m_tableTitles[i] = new QLabel(this);
        m_tableTitles[i]->setObjectName(QStringLiteral("subPanelTitle"));
        m_tables[i] = createBookTable(this, i == 0 ? "bookAskTable" : "bookBidTable");
    }
    layout->addLayout(m_tablesLayout, 1);
    arrangeTables();

    reset(QString());
    retranslate();
    applyTheme(m_theme);
}

void BookPanel::setTitle(const QString &title)
{
    m_title->setText(title);
    m_title->setToolTip(title);
}

QString BookPanel::title() const
{
    return m_title->text();
}

void BookPanel::reset(const QString &title)
{
    m_renderer->cancel();
    m_hasLadder = false;
    setTitle(title);
    m_hasMetrics = false;
    const QList<MetricTile> tiles = emptyMetricTiles();
    for (int i = 0; i < tiles.size(); ++i)
        setTile(i, tiles.at(i));
    for (QTableWidget *table : m_tables)
        table->setRowCount(0);
}

void BookPanel::showLadder(const DepthSides &sides, int sizeDecimals)
{
    setView(View::Depth);
    m_pendingSides = sides;
    m_pendingIsLevel2 = false;
    m_pendingSizeDecimals = sizeDecimals;
    m_hasLadder = true;
    m_renderer->schedule();
}

void BookPanel::showLevel2(const Level2Book &book)
{
    setView(View::Depth);
    m_pendingLevel2 = book;
    m_pendingIsLevel2 = true;
    m_pendingSizeDecimals = 4;
    m_hasLadder = true;
    m_renderer->schedule();
}

void BookPanel::drawLadder()
{
    if (!m_hasLadder || m_view != View::Depth)
        return;
    const double step = m_stepBox->value();
    DepthSides sides;
    BookMetrics metrics;
    if (m_pendingIsLevel2) {
        sides.bids = depthLevels(m_pendingLevel2.bids);
        sides.asks = depthLevels(m_pendingLevel2.asks);
        metrics.bestBid = m_pendingLevel2.bestBid();
        metrics.bestAsk = m_pendingLevel2.bestAsk();
        metrics.bidSum = m_pendingLevel2.bidSum();
        metrics.askSum = m_pendingLevel2.askSum();
    } else {
        sides = m_pendingSides;
        metrics = depthMetrics(sides);
    }
    setMetrics(metrics);
    fillTable(m_tables[0],
              tableRows(bookTableRows(aggregateSide(sides.asks, step, BookSide::Ask),
                                      m_pendingSizeDecimals),
                        ladderTexts),
              QLatin1String(kAskColor));
    fillTable(m_tables[1],
              tableRows(bookTableRows(aggregateSide(sides.bids, step, BookSide::Bid),
                                      m_pendingSizeDecimals),
                        ladderTexts),
              QLatin1String(kBidColor));
}

void BookPanel::flushPendingDraw()
{
    m_renderer->flush();
}

void BookPanel::showFallback(const QList<BookFallbackRow> &quoteRows,
                             const QList<BookFallbackRow> &statsRows)
{
    m_renderer->cancel();
    m_hasLadder = false;
    setView(View::Fallback);
    fillTable(m_tables[0], tableRows(quoteRows, fallbackTexts), QString());
    fillTable(m_tables[1], tableRows(statsRows, fallbackTexts), QString());
}

void BookPanel::setMetrics(const BookMetrics &metrics)
{
    m_metrics = metrics;
    m_hasMetrics = true;
    const QList<MetricTile> tiles = metricTiles(metrics);
    for (int i = 0; i < tiles.size(); ++i)
        setTile(i, tiles.at(i));
}

void BookPanel::setTile(int index, const MetricTile &tile)
{
    QLabel *label = m_tiles.at(index);
    label->setText(QStringLiteral("%1\n%2").arg(tile.name, tile.value));
    // A style sheet re-polishes the label: only when the colour really changes.
    if (m_tileColors.at(index) != tile.color) {
        m_tileColors[index] = tile.color;
        label->setStyleSheet(metricTileStyle(m_theme, tile.color));
    }
}

void BookPanel::fillTable(QTableWidget *table, const QList<QStringList> &rows, const QString &color)
{
    // Cells are kept and rewritten: a ladder redrawn every frame creates no items. Their texts are
    // written quietly and the table repainted once, not one model signal per cell.
    table->setRowCount(int(rows.size()));
    const QBrush brush = color.isEmpty() ? QBrush() : QBrush(QColor(color));
    MarketTableItem::setQuietWrites(true);
    for (int row = 0; row < rows.size(); ++row) {
        const QStringList &texts = rows.at(row);
        for (int column = 0; column < 3; ++column) {
            QTableWidgetItem *cell = table->item(row, column);
            if (!cell) {
                cell = new MarketTableItem;
                cell->setFont(m_cellFont);
                cell->setTextAlignment(column == 0 && color.isEmpty()
                                               ? Qt::AlignLeft | Qt::AlignVCenter
                                               : Qt::AlignRight | Qt::AlignVCenter);
                table->setItem(row, column, cell);
            }
            if (cell->text() != texts.value(column))
                cell->setText(texts.value(column));
            if (cell->foreground() != brush)
                cell->setForeground(brush);
        }
    }
    MarketTableItem::setQuietWrites(false);
    table->viewport()->update();
}

void BookPanel::setView(View view)
{
    if (m_view == view)
        return;
    m_view = view;
    for (QTableWidget *table : m_tables) {
        table->setRowCount(0); // cells of the other view keep no alignment of theirs
        table->clearContents();
    }
    arrangeTables();
    retranslate();
}

void BookPanel::arrangeTables()
{
    // Two ladders side by side, asks left and bids right; the QUOTE and STATS tables carry words
    // and times, so they take the whole width one above the other.
    for (int i = 0; i < 2; ++i) {
        m_tablesLayout->removeWidget(m_tableTitles[i]);
        m_tablesLayout->removeWidget(m_tables[i]);
    }
    for (int row = 0; row < 4; ++row)
        m_tablesLayout->setRowStretch(row, 0);
    if (m_view == View::Depth && !m_stacked) {
        for (int i = 0; i < 2; ++i) {
            m_tablesLayout->addWidget(m_tableTitles[i], 0, i);
            m_tablesLayout->addWidget(m_tables[i], 1, i);
        }
        m_tablesLayout->setRowStretch(1, 1);
    } else if (m_view == View::Depth) {
        for (int i = 0; i < 2; ++i) {
            m_tablesLayout->addWidget(m_tableTitles[i], 2 * i, 0, 1, 2);
            m_tablesLayout->addWidget(m_tables[i], 2 * i + 1, 0, 1, 2);
        }
        m_tablesLayout->setRowStretch(1, 1);
        m_tablesLayout->setRowStretch(3, 1);
    } else {
        for (int i = 0; i < 2; ++i) {
            m_tablesLayout->addWidget(m_tableTitles[i], 2 * i, 0, 1, 2);
            m_tablesLayout->addWidget(m_tables[i], 2 * i + 1, 0, 1, 2);
        }
        m_tablesLayout->setRowStretch(1, 6); // six QUOTE rows, five STATS rows
        m_tablesLayout->setRowStretch(3, 5);
    }
    // Field names are short; values and sources take the rest.
    for (QTableWidget *table : m_tables)
        table->horizontalHeader()->setSectionResizeMode(
                0, m_view == View::Depth ? QHeaderView::Stretch : QHeaderView::ResizeToContents);
}

double BookPanel::step() const
{
    return m_stepBox->value();
}

void BookPanel::setStep(double step)
{
    m_stepBox->setProperty("settingStep", true);
    m_stepBox->setValue(std::isfinite(step) ? qBound(0.0, step, kMaximumStep) : 0.0);
    m_stepBox->setProperty("settingStep", false);
}

void BookPanel::refreshPresetButtons(const QHash<QString, double> &presetSteps,
                                     const QHash<QString, QKeySequence> &keys)
{
    m_activePreset.clear();
    for (QPushButton *button : m_presetButtons) {
        const QString id = button->property("bookPreset").toString();
        const bool checked = stepMatchesPreset(m_stepBox->value(), presetSteps.value(id));
        button->setChecked(checked);
        if (checked)
            m_activePreset = id;
        const QString label = bookPresetLabel(id);
        button->setText(label);
        button->setToolTip(QStringLiteral("%1 (%2)").arg(
                label, keys.value(id).toString(QKeySequence::NativeText)));
    }
}

void BookPanel::applyTheme(const QString &themeId)
{
    m_theme = themeId;
    // Same colours, new surface; the spread tile takes the theme's text colour until the next
    // metrics write.
    for (int i = 0; i < m_tiles.size(); ++i) {
        if (i == 2)
            m_tileColors[i] = spreadTileThemeColor(themeId);
        m_tiles.at(i)->setStyleSheet(metricTileStyle(themeId, m_tileColors.at(i)));
    }
    fitTiles(); // a theme's padding can change their height
}

void BookPanel::retranslate()
{
    m_stepLabel->setText(translated(QStringLiteral("Step"), QStringLiteral("Passo")));
    const bool depth = m_view == View::Depth;
    m_tableTitles[0]->setText(
            depth ? translated(QStringLiteral("ASK"), QStringLiteral("VENDA"))
                  : translated(QStringLiteral("QUOTE"), QStringLiteral("COTAÇÃO")));
    m_tableTitles[1]->setText(
            depth ? translated(QStringLiteral("BID"), QStringLiteral("COMPRA"))
                  : translated(QStringLiteral("STATS"), QStringLiteral("ESTATÍSTICAS")));
    const QStringList headers =
            depth ? QStringList{translated(QStringLiteral("Price"), QStringLiteral("Preço")),
                                translated(QStringLiteral("Size"), QStringLiteral("Qtd.")),
                                translated(QStringLiteral("Total"), QStringLiteral("Total"))}
                  : QStringList{translated(QStringLiteral("Field"), QStringLiteral("Campo")),
                                translated(QStringLiteral("Value"), QStringLiteral("Valor")),
                                translated(QStringLiteral("Source"), QStringLiteral("Fonte"))};
    for (QTableWidget *table : m_tables)
        table->setHorizontalHeaderLabels(headers);
    for (QPushButton *button : m_presetButtons)
        button->setText(bookPresetLabel(button->property("bookPreset").toString()));
    const QList<MetricTile> tiles = m_hasMetrics ? metricTiles(m_metrics) : emptyMetricTiles();
    for (int i = 0; i < tiles.size(); ++i)
        setTile(i, tiles.at(i));
}

void BookPanel::resizeEvent(QResizeEvent *event)
{
    const bool stacked = width() < kSideBySideMinimumWidth;
    if (stacked != m_stacked) {
        m_stacked = stacked;
        arrangeTables();
    }
    fitTiles();
    QWidget::resizeEvent(event);
}

void BookPanel::fitTiles()
{
    // The tiles share the row evenly at a fixed size: a label whose size may change asks every
    // layout up to the window to lay out again when its text changes, and the values change with
    // every frame.
    const QMargins margins = layout()->contentsMargins();
    const int available = width() - margins.left() - margins.right();
    const int tileWidth = std::max(kTileMinimumWidth, (available - 3 * kTileSpacing) / 4);
    int tileHeight = kTileMinimumHeight;
    for (QLabel *tile : std::as_const(m_tiles))
        tileHeight = std::max(tileHeight, tile->sizeHint().height());
    for (QLabel *tile : std::as_const(m_tiles))
        tile->setFixedSize(tileWidth, tileHeight);
}

void BookPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QWidget::changeEvent(event);
}
