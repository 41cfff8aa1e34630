// The symbol universe behind the ticker search: completer, sectors and merges.
#include "app/paths.h"
#include "market/symbols.h"
#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "providers/yahoo_symbol_search.h"
#include "ui/main_window.h"

#include <QCompleter>
#include <QLineEdit>
#include <QStringListModel>

namespace {

// One letter matches half the market; the local universe completes that well enough.
constexpr int kOnlineSearchMinimumLength = 2;

} // namespace

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

void MainWindow::searchSymbolsOnline()
{
    // Only the latest text counts: a reply for what the user typed before is dropped.
    const quint64 generation = ++m_searchGeneration;
    const QString text = m_tickerSearch->text().trimmed();
    if (text.size() < kOnlineSearchMinimumLength)
        return;
    sendProviderGet(*m_network, yahooSymbolSearchRequest(text), this,
                    [this, generation](const ProviderReply &reply) {
                        if (generation != m_searchGeneration)
                            return;
                        // A failed search leaves the local universe to complete on its own.
                        if (!classifyProviderResponse(QStringLiteral("yahoo"), reply.httpStatus,
                                                      reply.rawHeaders, reply.body)
                                     .ok)
                            return;
                        const QStringList symbols = parseYahooSymbolSearch(reply.body);
                        if (symbols.isEmpty())
                            return;
                        mergeUniverseSymbols(symbols);
                        // The refilled model closes an open popup; show the new matches.
                        if (m_tickerSearch->hasFocus() && !m_tickerSearch->text().isEmpty())
                            m_completer->complete();
                    });
}
