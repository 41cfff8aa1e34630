#include "ui/news_panel.h"

#include "app/language.h"
#include "ui/side_panel.h"

#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTextDocument>
#include <QVBoxLayout>

namespace {

enum Column {
    TimeColumn,
    CategoryColumn,
    SourceColumn,
    HeadlineColumn,
    LinkColumn,
    ColumnCount
};

void refill(QComboBox *box, const QStringList &ids, QString (*label)(const QString &))
{
    const QString previous = box->currentData().toString();
    const QSignalBlocker blocker(box);
    box->clear();
    for (const QString &id : ids)
        box->addItem(label(id), id);
    box->setCurrentIndex(int(ids.indexOf(newsSelectionAfterRefill(ids, previous))));
}

QString sourceLabelOf(const QString &id)
{
    return newsSourceLabel(id);
}

constexpr int kTimeKeyRole = Qt::UserRole + 1;
constexpr int kWideLayoutMinimumWidth = 480;

// A time cell shows the compact local time and sorts by the moment it names; times that cannot be
// read sort before every readable one, by their text.
class NewsTimeItem : public QTableWidgetItem
{
public:
    using QTableWidgetItem::QTableWidgetItem;

    bool operator<(const QTableWidgetItem &other) const override
    {
        const qint64 mine = data(kTimeKeyRole).toLongLong();
        const qint64 theirs = other.data(kTimeKeyRole).toLongLong();
        if (mine != theirs)
            return mine < theirs;
        return toolTip() < other.toolTip();
    }
};

} // namespace

NewsPanel::NewsPanel(QWidget *parent)
    : QWidget(parent)
{
    QVBoxLayout *layout = setUpSidePanel(this, "newsPanel", &m_title);

    m_source = new QComboBox(this);
    m_source->setObjectName(QStringLiteral("newsSource"));
    m_category = new QComboBox(this);
    m_category->setObjectName(QStringLiteral("newsCategory"));
    layout->addLayout(selectorRow({m_source, m_category}));
    auto *search = new QHBoxLayout;
    search->setSpacing(4);
    m_query = new QLineEdit(this);
    m_query->setObjectName(QStringLiteral("newsQuery"));
    m_query->setClearButtonEnabled(true);
    m_query->setMaxLength(120);
    search->addWidget(m_query, 1);
    m_refresh = new QPushButton(this);
    m_refresh->setObjectName(QStringLiteral("newsRefresh"));
    search->addWidget(m_refresh);
    layout->addLayout(search);

    m_table = new QTableWidget(0, ColumnCount, this);
    m_table->setObjectName(QStringLiteral("newsTable"));
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    QHeaderView *header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(HeadlineColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(TimeColumn, QHeaderView::ResizeToContents);
    header->resizeSection(CategoryColumn, 56);
    header->resizeSection(SourceColumn, 76);
    header->resizeSection(LinkColumn, 120);
    header->setMinimumSectionSize(30);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setTextElideMode(Qt::ElideRight);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(TimeColumn, Qt::DescendingOrder);
    layout->addWidget(m_table, 1);

    connect(m_source, &QComboBox::activated, this, &NewsPanel::refreshRequested);
    connect(m_category, &QComboBox::activated, this, &NewsPanel::refreshRequested);
    connect(m_query, &QLineEdit::returnPressed, this, &NewsPanel::refreshRequested);
    connect(m_refresh, &QPushButton::clicked, this, &NewsPanel::refreshRequested);
    m_table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    connect(m_table, &QTableWidget::cellDoubleClicked, this, [this](int row, int) {
        const QTableWidgetItem *link = m_table->item(row, LinkColumn);
        const QString text = link ? safeNewsLink(link->data(Qt::UserRole).toString()) : QString();
        if (!text.isEmpty())
            emit linkActivated(QUrl(text));
    });

    refillSelectors();
    retranslate();
}

QString NewsPanel::sourceId() const
{
    return m_source->currentData().toString();
}

QString NewsPanel::categoryId() const
{
    return m_category->currentData().toString();
}

QString NewsPanel::queryText() const
{
    return m_query->text().trimmed();
}

void NewsPanel::showNews(const QList<NewsItem> &items, const QString &sourceLabel)
{
    const bool sorting = m_table->isSortingEnabled();
    m_table->setSortingEnabled(false);
    m_table->clearContents();
    m_table->setRowCount(int(items.size()));
    const QDateTime now = QDateTime::currentDateTime();
    for (int row = 0; row < items.size(); ++row) {
        const NewsItem &item = items.at(row);
        const NewsRowTexts texts = newsRowTexts(item, sourceLabel);
        const QString cells[ColumnCount] = {compactNewsTime(texts.time, now), texts.category,
                                            texts.source, texts.headline, texts.link};
        for (int column = 0; column < ColumnCount; ++column) {
            // Plain items: a feed's text is never read as rich text.
            auto *cell = column == TimeColumn ? new NewsTimeItem(cells[column])
                                              : new QTableWidgetItem(cells[column]);
            m_table->setItem(row, column, cell);
        }
        QTableWidgetItem *time = m_table->item(row, TimeColumn);
        const QDateTime moment = newsTime(texts.time);
        time->setData(kTimeKeyRole, moment.isValid() ? moment.toMSecsSinceEpoch() : qint64(0));
        time->setToolTip(texts.time); // as the source wrote it
        m_table->item(row, SourceColumn)->setToolTip(texts.source);
        // A tooltip that looks like markup would be rendered as rich text: the text goes in as
        // escaped paragraphs, so a feed's "<b>" shows as those three characters.
        // The whole headline leads, since a narrow column cuts it.
        const QString tooltip = texts.tooltip.isEmpty()
                                        ? texts.headline
                                        : texts.headline + QStringLiteral("\n\n") + texts.tooltip;
        m_table->item(row, HeadlineColumn)
                ->setToolTip(Qt::convertFromPlainText(tooltip, Qt::WhiteSpaceNormal));
        m_table->item(row, LinkColumn)->setData(Qt::UserRole, item.link);
        if (!item.link.isEmpty())
            m_table->item(row, LinkColumn)
                    ->setToolTip(Qt::convertFromPlainText(item.link, Qt::WhiteSpaceNormal));
    }
    m_table->setSortingEnabled(sorting);
}

void NewsPanel::refillSelectors()
{
    refill(m_source, newsSourceIds(), sourceLabelOf);
    refill(m_category, newsCategoryIds(isPortuguese()), newsCategoryLabel);
}

void NewsPanel::retranslate()
{
    m_title->setText(
            translated(QStringLiteral("MARKET NEWS"), QStringLiteral("NOTÍCIAS DO MERCADO")));
    m_query->setPlaceholderText(
            translated(QStringLiteral("Symbol or query"), QStringLiteral("Ativo ou busca")));
    m_refresh->setText(translated(QStringLiteral("Refresh"), QStringLiteral("Atualizar")));
    m_source->setToolTip(translated(QStringLiteral("News source"), QStringLiteral("Fonte")));
    m_category->setToolTip(translated(QStringLiteral("Category"), QStringLiteral("Categoria")));
    m_table->setHorizontalHeaderLabels({
            translated(QStringLiteral("Time"), QStringLiteral("Hora")),
            translated(QStringLiteral("Category"), QStringLiteral("Categoria")),
            translated(QStringLiteral("Source"), QStringLiteral("Fonte")),
            translated(QStringLiteral("Headline"), QStringLiteral("Manchete")),
            translated(QStringLiteral("Link"), QStringLiteral("Link")),
    });
}

void NewsPanel::resizeEvent(QResizeEvent *event)
{
    // In a narrow side pane the headline needs the room: the category is the selector's, and the
    // link opens with a double click on the row.
    const bool narrow = width() < kWideLayoutMinimumWidth;
    m_table->setColumnHidden(CategoryColumn, narrow);
    m_table->setColumnHidden(LinkColumn, narrow);
    QWidget::resizeEvent(event);
}

void NewsPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        refillSelectors();
        retranslate();
    }
    QWidget::changeEvent(event);
}
