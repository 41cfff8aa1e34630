// The symbol universe behind the ticker search: completer, sectors and merges.
#include "app/paths.h"
#include "market/symbols.h"
#include "ui/main_window.h"

#include <QCompleter>
#include <QLineEdit>
#include <QStringListModel>

void MainWindow::setupCompleter()
{
    m_universe.rebuild(loadUniverseFiles(universeSearchFolders()));

    m_completerModel = new QStringListModel(m_universe.completerEntries(), m_tickerSearch);
    m_completer = new QCompleter(m_completerModel, m_tickerSearch);
    m_completer->setCaseSensitivity(Qt::CaseInsensitive);
    m_completer->setFilterMode(Qt::MatchContains);
    m_completer->setCompletionMode(QCompleter::PopupCompletion);
    m_completer->setMaxVisibleItems(14);
    m_tickerSearch->setCompleter(m_completer);
}

void MainWindow::loadSymbolClassifications()
{
    m_universe.setSectors(readSymbolClassifications(universeSearchFolders()));
}

void MainWindow::mergeUniverseSymbols(const QStringList &symbols)
{
    if (m_universe.mergeUniverseSymbols(symbols) && m_completerModel)
        m_completerModel->setStringList(m_universe.completerEntries());
}

QString MainWindow::normalizeSymbolInput(const QString &text) const
{
    return m_universe.normalizeSymbolInput(text);
}

QString MainWindow::sectorForSymbol(const QString &symbol) const
{
    return m_universe.sectorForSymbol(symbol);
}
