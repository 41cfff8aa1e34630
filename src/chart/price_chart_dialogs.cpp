// The chart's context menus and the questions they ask, and the real dialogs behind the hooks.

#include "app/language.h"
#include "chart/price_chart.h"

#include <QAction>
#include <QColorDialog>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGuiApplication>
#include <QInputDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

#include <algorithm>

namespace {

QString tr2(const char *english, const char *portuguese)
{
    return translated(QString::fromUtf8(english), QString::fromUtf8(portuguese));
}

void showButtonColor(QPushButton *button, const QColor &color)
{
    button->setText(color.name());
    button->setStyleSheet(QStringLiteral("QPushButton { background: %1; color: %2; }")
                                  .arg(color.name(), color.lightnessF() > 0.5
                                                             ? QStringLiteral("#000000")
                                                             : QStringLiteral("#ffffff")));
}

bool askTrendDialog(QWidget *parent, ChartDrawing &trend)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(tr2("Trend line", "Linha de tendência"));
    auto *form = new QFormLayout(&dialog);
    auto *label = new QLineEdit(trend.label, &dialog);
    label->setObjectName(QStringLiteral("trendLabel"));
    auto priceBox = [&dialog](double value) {
        auto *box = new QDoubleSpinBox(&dialog);
        box->setDecimals(6);
        box->setRange(0.0, 1e9);
        box->setValue(value);
        return box;
    };
    QDoubleSpinBox *start = priceBox(trend.price1);
    QDoubleSpinBox *end = priceBox(trend.price2);
    QColor color = trend.color;
    auto *colorButton = new QPushButton(&dialog);
    showButtonColor(colorButton, color);
    QObject::connect(colorButton, &QPushButton::clicked, &dialog, [&] {
        const QColor chosen =
                QColorDialog::getColor(color, &dialog, tr2("Line color", "Cor da linha"));
        if (chosen.isValid()) {
            color = chosen;
            showButtonColor(colorButton, color);
        }
    });
    form->addRow(tr2("Label", "Rótulo"), label);
    form->addRow(tr2("Start price", "Preço inicial"), start);
    form->addRow(tr2("End price", "Preço final"), end);
    form->addRow(tr2("Color", "Cor"), colorButton);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    form->addRow(buttons);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    trend.label = label->text().trimmed();
    trend.price1 = start->value();
    trend.price2 = end->value();
    trend.color = color;
    return true;
}

} // namespace

PriceChart::Dialogs PriceChart::defaultDialogs()
{
    Dialogs dialogs;
    dialogs.askDouble = [](QWidget *parent, const QString &title, const QString &label,
                           double value, double minimum, double maximum,
                           int decimals) -> std::optional<double> {
        bool ok = false;
        const double chosen = QInputDialog::getDouble(parent, title, label, value, minimum, maximum,
                                                      decimals, &ok, Qt::WindowFlags(), 1.0);
        return ok ? std::optional<double>(chosen) : std::nullopt;
    };
    dialogs.askInt = [](QWidget *parent, const QString &title, const QString &label, int value,
                        int minimum, int maximum) -> std::optional<int> {
        bool ok = false;
        const int chosen =
                QInputDialog::getInt(parent, title, label, value, minimum, maximum, 1, &ok);
        return ok ? std::optional<int>(chosen) : std::nullopt;
    };
    dialogs.askText = [](QWidget *parent, const QString &title, const QString &label,
                         const QString &text) -> std::optional<QString> {
        bool ok = false;
        const QString chosen =
                QInputDialog::getText(parent, title, label, QLineEdit::Normal, text, &ok);
        return ok ? std::optional<QString>(chosen) : std::nullopt;
    };
    dialogs.askColor = [](QWidget *parent, const QColor &initial, const QString &title) {
        return QColorDialog::getColor(initial, parent, title);
    };
    dialogs.askTrend = askTrendDialog;
    dialogs.confirm = [](QWidget *parent, const QString &title, const QString &question) {
        return QMessageBox::question(parent, title, question, QMessageBox::Yes | QMessageBox::No,
                                     QMessageBox::No) == QMessageBox::Yes;
    };
    dialogs.keyboardModifiers = [] { return QGuiApplication::queryKeyboardModifiers(); };
    return dialogs;
}

QMenu *PriceChart::createContextMenu(const QPoint &pos)
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("priceChartMenu"));
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    auto add = [](QMenu *to, const char *name, const QString &text) {
        QAction *action = to->addAction(text);
        action->setObjectName(QLatin1String(name));
        return action;
    };

    // Without candles no drawing is painted, so none can be under the mouse.
    const int hit = m_candles.isEmpty() ? -1 : drawingAt(pos);
    if (hit >= 0) {
        // The menu does not block, so each entry checks the drawing is still there.
        const bool locked = m_drawings.at(hit).locked;
        connect(add(menu, "editDrawing", tr2("Edit", "Editar")), &QAction::triggered, this,
                [this, hit] { editDrawing(hit); });
        connect(add(menu, "toggleDrawingLock",
                    locked ? tr2("Unlock", "Desbloquear") : tr2("Lock", "Bloquear")),
                &QAction::triggered, this, [this, hit] {
                    if (hit >= m_drawings.size())
                        return;
                    ChartDrawing &drawing = m_drawings[hit];
                    drawing.locked = !drawing.locked;
                    send(drawing.locked ? QStringLiteral("Drawing locked")
                                        : QStringLiteral("Drawing unlocked"));
                    notifyChanged();
                    refresh();
                });
        connect(add(menu, "removeDrawing", tr2("Remove", "Remover")), &QAction::triggered, this,
                [this, hit] {
                    if (hit >= m_drawings.size())
                        return;
                    m_drawings.removeAt(hit);
                    send(QStringLiteral("Drawing removed"));
                    notifyChanged();
                    refresh();
                });
        return menu;
    }

    connect(add(menu, "resetZoom",
                tr2("Reset zoom to latest", "Redefinir zoom para o mais recente")),
            &QAction::triggered, this, &PriceChart::resetZoom);
    menu->addSeparator();

    QMenu *indicators = menu->addMenu(tr2("Indicators", "Indicadores"));
    indicators->setObjectName(QStringLiteral("indicatorsMenu"));
    auto toggle = [this, add](QMenu *to, const char *name, const QString &text,
                              bool IndicatorSettings::*flag) {
        QAction *action = add(to, name, text);
        action->setCheckable(true);
        action->setChecked(m_settings.*flag);
        connect(action, &QAction::triggered, this, [this, flag](bool checked) {
            m_settings.*flag = checked;
            afterMenuChange();
        });
    };
    const IndicatorSettings &s = m_settings;
    toggle(indicators, "indicatorSma", QStringLiteral("SMA %1").arg(s.smaPeriod),
           &IndicatorSettings::sma);
    toggle(indicators, "indicatorEma", QStringLiteral("EMA %1").arg(s.emaPeriod),
           &IndicatorSettings::ema);
    toggle(indicators, "indicatorVwap", QStringLiteral("VWAP"), &IndicatorSettings::vwap);
    toggle(indicators, "indicatorMacd",
           QStringLiteral("MACD %1/%2/%3").arg(s.macdFast).arg(s.macdSlow).arg(s.macdSignal),
           &IndicatorSettings::macd);
    indicators->addSeparator();
    connect(add(indicators, "configureSma", tr2("Configure SMA", "Configurar SMA")),
            &QAction::triggered, this, [this] {
                configurePeriod(&IndicatorSettings::smaPeriod, QStringLiteral("SMA period"),
                                QStringLiteral("Período da SMA"));
            });
    connect(add(indicators, "configureEma", tr2("Configure EMA", "Configurar EMA")),
            &QAction::triggered, this, [this] {
                configurePeriod(&IndicatorSettings::emaPeriod, QStringLiteral("EMA period"),
                                QStringLiteral("Período da EMA"));
            });
    toggle(indicators, "vwapSession", tr2("VWAP session reset", "VWAP reiniciado por sessão"),
           &IndicatorSettings::vwapSession);
    connect(add(indicators, "configureMacd", tr2("Configure MACD", "Configurar MACD")),
            &QAction::triggered, this, &PriceChart::configureMacd);

    QMenu *drawings = menu->addMenu(tr2("Drawings", "Desenhos"));
    drawings->setObjectName(QStringLiteral("drawingsMenu"));
    toggle(drawings, "showHLines", tr2("Show HLine", "Mostrar linhas horizontais"),
           &IndicatorSettings::showHLines);
    toggle(drawings, "showVLines", tr2("Show VLine", "Mostrar linhas verticais"),
           &IndicatorSettings::showVLines);
    toggle(drawings, "showTrends", tr2("Show Trend", "Mostrar linhas de tendência"),
           &IndicatorSettings::showTrends);
    menu->addSeparator();
    connect(add(menu, "clearSchemes", tr2("Clear schemes", "Limpar esquemas")), &QAction::triggered,
            this, &PriceChart::clearSchemes);
    return menu;
}

void PriceChart::afterMenuChange()
{
    const QString legend = indicatorLegendMessage(m_symbol, m_candles, m_settings);
    if (!legend.isEmpty())
        send(legend);
    notifyChanged();
    refresh();
}

void PriceChart::configurePeriod(int IndicatorSettings::*period, const QString &title,
                                 const QString &portugueseTitle)
{
    const QPointer<PriceChart> alive(this);
    const std::optional<int> chosen =
            m_dialogs.askInt(this, translated(title, portugueseTitle), tr2("Period", "Período"),
                             m_settings.*period, kMinIndicatorPeriod, kMaxIndicatorPeriod);
    if (!alive || !chosen)
        return;
    m_settings.*period = std::clamp(*chosen, kMinIndicatorPeriod, kMaxIndicatorPeriod);
    afterMenuChange();
}

void PriceChart::configureMacd()
{
    const QPointer<PriceChart> alive(this);
    const QString title = QStringLiteral("MACD");
    const std::optional<int> fast =
            m_dialogs.askInt(this, title, tr2("Fast EMA", "EMA rápida"), m_settings.macdFast,
                             kMinIndicatorPeriod, kMaxIndicatorPeriod);
    if (!alive || !fast)
        return;
    const int slowMinimum = std::min(*fast + 1, kMaxIndicatorPeriod);
    const std::optional<int> slow =
            m_dialogs.askInt(this, title, tr2("Slow EMA", "EMA lenta"),
                             std::clamp(m_settings.macdSlow, slowMinimum, kMaxIndicatorPeriod),
                             slowMinimum, kMaxIndicatorPeriod);
    if (!alive || !slow)
        return;
    const std::optional<int> signal =
            m_dialogs.askInt(this, title, tr2("Signal EMA", "EMA de sinal"), m_settings.macdSignal,
                             kMinIndicatorPeriod, kMaxIndicatorPeriod);
    if (!alive || !signal)
        return;
    m_settings.macdFast = std::clamp(*fast, kMinIndicatorPeriod, kMaxIndicatorPeriod);
    m_settings.macdSlow = std::max(std::clamp(*slow, kMinIndicatorPeriod, kMaxIndicatorPeriod),
                                   m_settings.macdFast + 1);
    m_settings.macdSignal = std::clamp(*signal, kMinIndicatorPeriod, kMaxIndicatorPeriod);
    afterMenuChange();
}

void PriceChart::clearSchemes()
{
    const QPointer<PriceChart> alive(this);
    const bool yes =
            m_dialogs.confirm(this, tr2("Clear chart schemes", "Limpar esquemas do gráfico"),
                              tr2("Remove all indicators and drawings for this chart?",
                                  "Remover todos os indicadores e desenhos deste gráfico?"));
    if (!alive || !yes)
        return;
    m_settings.reset();
    m_drawings.clear();
    m_selectedDrawing = -1;
    notifyChanged();
    refresh();
}

void PriceChart::editDrawing(int index)
{
    if (index < 0 || index >= m_drawings.size())
        return;
    const QPointer<PriceChart> alive(this);
    ChartDrawing drawing = m_drawings.at(index);
    // A question may run an event loop: the drawing is written back only if it is still there.
    auto stillThere = [&] { return alive && index < m_drawings.size(); };
    if (drawing.type == ChartDrawing::Trend) {
        if (!m_dialogs.askTrend(this, drawing) || !stillThere())
            return;
        if (drawing.label.isEmpty())
            drawing.label = QStringLiteral("Trend");
    } else {
        const QString colorTitle = tr2("Line color", "Cor da linha");
        if (drawing.type == ChartDrawing::Horizontal) {
            const std::optional<double> price = m_dialogs.askDouble(
                    this, tr2("Edit horizontal line", "Editar linha horizontal"),
                    tr2("Price", "Preço"), drawing.price1, 0.0, 1e9, 6);
            if (!price || !stillThere())
                return;
            drawing.price1 = *price;
            drawing.price2 = *price;
        } else {
            const std::optional<QString> label =
                    m_dialogs.askText(this, tr2("Edit vertical line", "Editar linha vertical"),
                                      tr2("Label", "Rótulo"), drawing.label);
            if (!label || !stillThere())
                return;
            drawing.label = *label;
        }
        const QColor color = m_dialogs.askColor(this, drawing.color, colorTitle);
        if (!stillThere())
            return;
        if (color.isValid())
            drawing.color = color;
    }
    m_drawings[index] = drawing;
    send(QStringLiteral("Drawing edited"));
    notifyChanged();
    refresh();
}
