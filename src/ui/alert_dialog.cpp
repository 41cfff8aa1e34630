#include "ui/alert_dialog.h"

#include "app/language.h"
#include "market/market_row.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>

#include <cmath>

std::optional<PriceAlert> runCreateAlertDialog(const QString &symbol, double currentPrice,
                                               QWidget *parent)
{
    if (symbol.isEmpty())
        return std::nullopt;
    QDialog dialog(parent);
    dialog.setObjectName(QStringLiteral("createAlertDialog"));
    dialog.setWindowTitle(
            translated(QStringLiteral("Create alert - %1"), QStringLiteral("Criar alerta - %1"))
                    .arg(symbol));
    auto *form = new QFormLayout(&dialog);
    const bool priced = std::isfinite(currentPrice) && currentPrice > 0;
    form->addRow(translated(QStringLiteral("Symbol"), QStringLiteral("Símbolo")),
                 new QLabel(symbol, &dialog));
    form->addRow(
            translated(QStringLiteral("Current"), QStringLiteral("Atual")),
            new QLabel(priced ? formatMarketNumber(currentPrice) : QStringLiteral("--"), &dialog));
    auto *condition = new QComboBox(&dialog);
    condition->setObjectName(QStringLiteral("alertCondition"));
    condition->addItems({translated(QStringLiteral("Above"), QStringLiteral("Acima")),
                         translated(QStringLiteral("Below"), QStringLiteral("Abaixo"))});
    form->addRow(translated(QStringLiteral("Condition"), QStringLiteral("Condição")), condition);
    auto *target = new QDoubleSpinBox(&dialog);
    target->setObjectName(QStringLiteral("alertTarget"));
    target->setDecimals(6);
    target->setRange(0.000001, 1e9);
    target->setSingleStep(1);
    if (priced)
        target->setValue(currentPrice);
    form->addRow(translated(QStringLiteral("Target"), QStringLiteral("Alvo")), target);
    auto *repeat = new QCheckBox(translated(QStringLiteral("Repeat after trigger"),
                                            QStringLiteral("Repetir após disparar")),
                                 &dialog);
    repeat->setObjectName(QStringLiteral("alertRepeat"));
    repeat->setToolTip(translated(
            QStringLiteral("Keeps this alert active after it fires, with a 60 second cooldown."),
            QStringLiteral("Mantém este alerta ativo depois de disparar, com intervalo de 60 "
                           "segundos.")));
    form->addRow(translated(QStringLiteral("Mode"), QStringLiteral("Modo")), repeat);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() != QDialog::Accepted || !std::isfinite(target->value()))
        return std::nullopt;
    PriceAlert alert;
    alert.symbol = symbol;
    alert.target = target->value();
    alert.above = condition->currentIndex() == 0;
    alert.repeating = repeat->isChecked();
    return alert;
}
