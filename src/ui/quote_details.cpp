#include "ui/quote_details.h"

#include "app/language.h"
#include "market/symbols.h"
#include "ui/market_table.h"

#include <QEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QStyle>
#include <QTableWidget>
#include <QVBoxLayout>

#include <cmath>

namespace {

const QString kGain = QStringLiteral("#20c878");
const QString kLoss = QStringLiteral("#f45d5d");
const QString kDelayed = QStringLiteral("#f2c078");

QString delayedFallbackText()
{
    return translated(QStringLiteral("delayed fallback"), QStringLiteral("fallback com atraso"));
}

QString priceColor(double changePercent)
{
    return std::isfinite(changePercent) && changePercent < 0 ? kLoss : kGain;
}

QString volumeText(double volume)
{
    if (!std::isfinite(volume))
        return QStringLiteral("--");
    if (volume >= 1e9)
        return QString::number(volume / 1e9, 'f', 2) + QLatin1Char('B');
    if (volume >= 1e6)
        return QString::number(volume / 1e6, 'f', 2) + QLatin1Char('M');
    if (volume >= 1e3)
        return QString::number(volume / 1e3, 'f', 1) + QLatin1Char('K');
    return QString::number(volume, 'f', 0);
}

} // namespace

void setChangeDirection(QWidget *widget, double changePercent)
{
    const QString direction = !std::isfinite(changePercent) ? QString()
                              : changePercent >= 0          ? QStringLiteral("up")
                                                            : QStringLiteral("down");
    if (widget->property("direction").toString() == direction)
        return;
    widget->setProperty("direction", direction);
    // Style sheets read dynamic properties at polish time only.
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
}

QuoteHeader::QuoteHeader(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("quoteHeader"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    m_symbolTile = addTile("quoteSymbol");
    m_lastTile = addTile("quoteLast");
    m_changeTile = addTile("quoteChange");
    m_rangeTile = addTile("quoteRange");
    m_sourceTile = addTile("quoteSource");
    m_timeTile = addTile("quoteTime");
    layout->addWidget(m_symbolTile);
    layout->addWidget(m_lastTile);
    layout->addWidget(m_changeTile);
    layout->addWidget(m_rangeTile, 1);
    layout->addWidget(m_sourceTile);
    layout->addWidget(m_timeTile);
    // The day's range and the source are the long tiles: on a narrow window they give way instead
    // of pushing the window wider than the screen.
    for (QLabel *tile : {m_rangeTile, m_sourceTile}) {
        tile->setMinimumWidth(1);
        tile->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    }
    m_sourceTile->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    m_rangeTile->setTextFormat(Qt::PlainText);
    m_rangeTile->installEventFilter(this);
    QFont bold = m_symbolTile->font();
    bold.setBold(true);
    m_symbolTile->setFont(bold);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    for (QLabel *tile : {m_lastTile, m_changeTile, m_rangeTile, m_timeTile})
        tile->setFont(fixed);
    QFont bigger = fixed;
    bigger.setBold(true);
    m_lastTile->setFont(bigger);
    render();
}

QLabel *QuoteHeader::addTile(const char *name)
{
    auto *tile = new QLabel(this);
    tile->setObjectName(QStringLiteral("quoteTile"));
    tile->setProperty("tile", QLatin1String(name));
    tile->setTextFormat(Qt::RichText);
    tile->setMinimumHeight(26);
    return tile;
}

void QuoteHeader::showSymbol(const QString &symbol, const MarketQuote *quote)
{
    m_symbol = symbol;
    m_hasQuote = quote != nullptr;
    if (quote)
        m_quote = *quote;
    render();
}

void QuoteHeader::render()
{
    if (m_symbol.isEmpty()) {
        m_symbolTile->setText(translated(QStringLiteral("No symbol selected"),
                                         QStringLiteral("Nenhum ativo selecionado")));
    } else {
        m_symbolTile->setText(QStringLiteral("%1 <span style=\"font-weight:400\">· %2</span>")
                                      .arg(displaySymbol(m_symbol).toHtmlEscaped(),
                                           assetClassForSymbol(m_symbol).toHtmlEscaped()));
    }
    const MarketQuote quote = m_hasQuote ? m_quote : MarketQuote{};
    if (m_hasQuote)
        m_lastTile->setText(
                QStringLiteral("<span style=\"color:%1\">%2</span>")
                        .arg(priceColor(quote.changePercent), formatMarketNumber(quote.price)));
    else
        m_lastTile->setText(QStringLiteral("--"));
    m_changeTile->setText(formatChangePercent(quote.changePercent));
    setChangeDirection(m_changeTile, quote.changePercent);
    m_rangeText = translated(QStringLiteral("O %1  H %2  L %3  Prev %4  Vol %5"),
                             QStringLiteral("A %1  Máx %2  Mín %3  Ant %4  Vol %5"))
                          .arg(formatMarketNumber(quote.open), formatMarketNumber(quote.high),
                               formatMarketNumber(quote.low),
                               formatMarketNumber(quote.previousClose), volumeText(quote.volume));
    fitRangeText();
    if (!m_hasQuote) {
        m_sourceTile->setText(QStringLiteral("--"));
        m_timeTile->setText(QStringLiteral("--:--:--"));
        return;
    }
    QString source = quote.source.toHtmlEscaped();
    if (!quote.latency.isEmpty())
        source += QStringLiteral(" · ") + quote.latency.toHtmlEscaped();
    if (isDelayedFallback(quote.status))
        source += QStringLiteral(" · <span style=\"color:%1\">%2</span>")
                          .arg(kDelayed, delayedFallbackText().toHtmlEscaped());
    else
        source += QStringLiteral(" · ") + localizedStatusWord(quote.status).toHtmlEscaped();
    m_sourceTile->setText(source);
    m_timeTile->setText(quote.time.toString(QStringLiteral("HH:mm:ss")));
}

void QuoteHeader::fitRangeText()
{
    const int width = m_rangeTile->contentsRect().width();
    const QString shown =
            m_rangeTile->fontMetrics().elidedText(m_rangeText, Qt::ElideRight, qMax(width, 0));
    m_rangeTile->setText(shown);
    m_rangeTile->setToolTip(shown == m_rangeText ? QString() : m_rangeText);
}

bool QuoteHeader::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_rangeTile &&
        (event->type() == QEvent::Resize || event->type() == QEvent::FontChange ||
         event->type() == QEvent::StyleChange))
        fitRangeText();
    return QWidget::eventFilter(watched, event);
}

void QuoteHeader::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        render();
    QWidget::changeEvent(event);
}

QuoteLog::QuoteLog(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("quoteLog"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("subPanelTitle"));
    layout->addWidget(m_title);
    m_table = new QTableWidget(0, 6, this);
    m_table->setObjectName(QStringLiteral("quoteLogTable"));
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionMode(QAbstractItemView::NoSelection);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    // The source ("brapi_public · delayed fallback") is the long text; it takes the spare room.
    m_table->horizontalHeader()->setSectionResizeMode(3, QHeaderView::Stretch);
    m_table->horizontalHeader()->setHighlightSections(false);
    const int widths[] = {68, 84, 70, 170, 68, 140};
    for (int column = 0; column < 6; ++column)
        m_table->setColumnWidth(column, widths[column]);
    layout->addWidget(m_table, 1);
    retranslate();
}

void QuoteLog::record(const MarketQuote &quote)
{
    // A ring of kMaxEntries: once full, each quote takes the oldest one's place, so a symbol quoted
    // every second for hours allocates nothing more.
    QuoteRing &ring = m_entries[quote.symbol];
    if (int(ring.quotes.size()) < kMaxEntries) {
        ring.quotes.push_back(quote);
    } else {
        ring.quotes[std::size_t(ring.oldest)] = quote;
        ring.oldest = (ring.oldest + 1) % kMaxEntries;
    }
    if (quote.symbol != m_symbol)
        return;
    m_table->insertRow(0);
    insertRow(0, quote);
    if (m_table->rowCount() > kMaxEntries)
        m_table->setRowCount(kMaxEntries);
}

void QuoteLog::showSymbol(const QString &symbol)
{
    m_symbol = symbol;
    retranslate();
    const auto found = m_entries.constFind(symbol);
    const int count = found == m_entries.constEnd() ? 0 : int(found->quotes.size());
    m_table->setRowCount(count);
    for (int i = 0; i < count; ++i) {
        // Newest first: the one before the oldest, going back.
        const int index = (found->oldest + count - 1 - i) % count;
        insertRow(i, found->quotes.at(std::size_t(index)));
    }
}

void QuoteLog::forget(const QString &symbol)
{
    m_entries.remove(symbol);
    if (symbol == m_symbol)
        showSymbol(QString());
}

void QuoteLog::insertRow(int row, const MarketQuote &quote)
{
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    auto put = [this, row, &fixed](int column, const QString &text, bool number) {
        auto *cell = new QTableWidgetItem(text);
        if (number) {
            cell->setFont(fixed);
            cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        }
        m_table->setItem(row, column, cell);
        return cell;
    };
    put(0, quote.time.toString(QStringLiteral("HH:mm:ss")), true);
    put(1, formatMarketNumber(quote.price), true)
            ->setForeground(QColor(priceColor(quote.changePercent)));
    put(2, formatChangePercent(quote.changePercent), true)
            ->setForeground(changeColor(quote.changePercent));
    // Words are written in the language of the moment, like every other log line.
    if (isDelayedFallback(quote.status))
        put(3, QStringLiteral("%1 · %2").arg(quote.source, delayedFallbackText()), false)
                ->setForeground(QColor(kDelayed));
    else
        put(3, quote.source, false);
    put(4, quote.latency, true);
    put(5, localizedStatusWord(quote.status), false);
}

void QuoteLog::retranslate()
{
    m_title->setText(m_symbol.isEmpty() ? translated(QStringLiteral("QUOTE LOG"),
                                                     QStringLiteral("LOG DE COTAÇÕES"))
                                        : translated(QStringLiteral("QUOTE LOG · %1"),
                                                     QStringLiteral("LOG DE COTAÇÕES · %1"))
                                                  .arg(displaySymbol(m_symbol)));
    m_table->setHorizontalHeaderLabels({
            translated(QStringLiteral("Time"), QStringLiteral("Hora")),
            translated(QStringLiteral("Last"), QStringLiteral("Último")),
            translated(QStringLiteral("Change"), QStringLiteral("Variação")),
            translated(QStringLiteral("Source"), QStringLiteral("Fonte")),
            translated(QStringLiteral("Latency"), QStringLiteral("Latência")),
            QStringLiteral("Status"),
    });
    widenColumnsToHeaders(m_table);
}

void QuoteLog::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    if (event->type() == QEvent::StyleChange)
        fitColumnsToHeadersLater(m_table);
    QWidget::changeEvent(event);
}
