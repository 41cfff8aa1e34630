#pragma once

#include "portfolio/price_alerts.h"

#include <optional>

class QWidget;

// The "Create alert - %1" form: condition, target and repeat mode for a symbol at its current
// price (NaN or 0 when it has none). An alert when the user confirms, nothing when cancelled.
std::optional<PriceAlert> runCreateAlertDialog(const QString &symbol, double currentPrice,
                                               QWidget *parent);
