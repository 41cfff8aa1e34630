#pragma once

#include "providers/quote_snapshot.h"

#include <QByteArray>
#include <QList>

// The quotes of a Yahoo batch quote reply (`quoteResponse.result`), each named by its own `symbol`:
// Yahoo silently leaves unknown symbols out, so results never line up with the request by position.
// Entries without a symbol or a positive price are skipped.
QList<QuoteSnapshot> parseYahooBatchQuotes(const QByteArray &body);
