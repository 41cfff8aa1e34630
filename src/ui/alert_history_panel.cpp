#include "ui/alert_history_panel.h"

#include "app/language.h"
#include "ui/side_panel.h"

#include <QEvent>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

constexpr int kEntryRole = Qt::UserRole + 1;

} // namespace

AlertHistoryPanel::AlertHistoryPanel(QWidget *parent)
    : QWidget(parent)
{
    QVBoxLayout *layout = setUpSidePanel(this, "historyPanel", &m_title);
    m_table = new QTableWidget(0, 7, this);
    m_table->setObjectName(QStringLiteral("alertHistoryTable"));
    m_table->verticalHeader()->setVisible(false);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setHighlightSections(false);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setSortingEnabled(true);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_table, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        const int row = m_table->rowAt(position.y());
        if (row >= 0)
            m_table->selectRow(row);
        QMenu *menu = createRowMenu(row);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(m_table->viewport()->mapToGlobal(position));
    });
    layout->addWidget(m_table, 1);
    retranslate();
}

void AlertHistoryPanel::showHistory(const QList<AlertHistoryEntry> &history)
{
    m_history = history;
    const bool sorting = m_table->isSortingEnabled();
    m_table->setSortingEnabled(false);
    m_table->clearContents();
    m_table->setRowCount(int(history.size()));
    for (int row = 0; row < history.size(); ++row) {
        const AlertHistoryEntry &entry = history.at(row);
        const QStringList texts{entry.timestamp,
                                entry.event,
                                entry.symbol,
                                entry.condition,
                                QString::number(entry.target, 'f', 4),
                                QString::number(entry.price, 'f', 4),
                                entry.status};
        for (int column = 0; column < texts.size(); ++column) {
            auto *cell = new QTableWidgetItem(texts.at(column));
            if (column >= 4 && column <= 5)
                cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            if (column == 1 || column == 6)
                cell->setForeground(QColor(alertHistoryColor(texts.at(column))));
            m_table->setItem(row, column, cell);
        }
        m_table->item(row, 0)->setData(kEntryRole, row);
    }
    m_table->setSortingEnabled(sorting);
}

int AlertHistoryPanel::selectedEntry() const
{
    const QList<QTableWidgetItem *> items = m_table->selectedItems();
    if (items.isEmpty())
        return -1;
    const QTableWidgetItem *first = m_table->item(items.first()->row(), 0);
    return first ? first->data(kEntryRole).toInt() : -1;
}

QMenu *AlertHistoryPanel::createRowMenu(int row)
{
    auto *menu = new QMenu(this);
    const QTableWidgetItem *first = row >= 0 ? m_table->item(row, 0) : nullptr;
    const int entry = first ? first->data(kEntryRole).toInt() : -1;
    const auto add = [this, menu, entry](Request request, const QString &text) {
        QAction *action = menu->addAction(text);
        action->setData(int(request));
        connect(action, &QAction::triggered, this,
                [this, request, entry] { emit requested(request, entry); });
    };
    if (entry >= 0) {
        add(Request::Rearm,
            translated(QStringLiteral("Rearm alert"), QStringLiteral("Rearmar alerta")));
        add(Request::Remove,
            translated(QStringLiteral("Remove alert"), QStringLiteral("Remover alerta")));
    }
    add(Request::Clear,
        translated(QStringLiteral("Clear history"), QStringLiteral("Limpar histórico")));
    menu->addSeparator();
    add(Request::Export, translated(QStringLiteral("Export history to CSV"),
                                    QStringLiteral("Exportar histórico para CSV")));
    return menu;
}

void AlertHistoryPanel::retranslate()
{
    m_title->setText(
            translated(QStringLiteral("ALERT HISTORY"), QStringLiteral("HISTÓRICO DE ALERTAS")));
    m_table->setHorizontalHeaderLabels({
            translated(QStringLiteral("Time"), QStringLiteral("Hora")),
            translated(QStringLiteral("Event"), QStringLiteral("Evento")),
            translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
            translated(QStringLiteral("Condition"), QStringLiteral("Condição")),
            translated(QStringLiteral("Target"), QStringLiteral("Alvo")),
            translated(QStringLiteral("Price"), QStringLiteral("Preço")),
            translated(QStringLiteral("Status"), QStringLiteral("Status")),
    });
}

void AlertHistoryPanel::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QWidget::changeEvent(event);
}
