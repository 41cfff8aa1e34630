// The price chart: candle history from Binance, Yahoo and BrAPI, the candle store and what follows
// a store (table columns, tooltips, the chart), the chart's tools, indicators and drawings.
#include "app/language.h"
#include "chart/candle_history.h"
#include "chart/indicators.h"
#include "chart/price_chart.h"
#include "chart/timeframe.h"
#include "market/symbols.h"
#include "providers/provider_http.h"
#include "providers/provider_requests.h"
#include "ui/main_window.h"
#include "ui/market_table.h"

#include <QComboBox>
#include <QPushButton>

#include <cmath>

namespace {

QString latencyText(qint64 milliseconds)
{
    return QStringLiteral("%1 ms").arg(milliseconds);
}

} // namespace

void MainWindow::connectChart()
{
    m_chart->setMessageCallback([this](const QString &text) { logEvent(text); });
    m_chart->setChangeCallback([this] { chartSettingsChanged(); });
    m_chart->setToolCallback([this](PriceChart::DrawMode mode) {
        static const char *ids[] = {"select", "hline", "vline", "trend"};
        if (QPushButton *button = m_chartToolButtons.value(QLatin1String(ids[int(mode)])))
            button->setChecked(true);
    });
    const struct
    {
        const char *id;
        PriceChart::DrawMode mode;
    } tools[] = {{"select", PriceChart::Select},
                 {"hline", PriceChart::HorizontalLine},
                 {"vline", PriceChart::VerticalLine},
                 {"trend", PriceChart::TrendLine}};
    for (const auto &tool : tools) {
        const PriceChart::DrawMode mode = tool.mode;
        connect(m_chartToolButtons.value(QLatin1String(tool.id)), &QPushButton::clicked, this,
                [this, mode] {
                    if (m_chart->drawMode() != mode)
                        m_chart->setDrawMode(mode);
                });
    }
    connect(m_chartToolButtons.value(QStringLiteral("reset")), &QPushButton::clicked, m_chart,
            &PriceChart::resetZoom);
}

void MainWindow::loadChartSymbol(const QString &symbol)
{
    refreshChart();
    if (symbol.isEmpty() || !m_marketDataStarted)
        return;
    requestHistory(symbol);
}

void MainWindow::requestHistory(const QString &symbol)
{
    switch (assetClassOf(symbol)) {
    case AssetClass::Crypto:
        requestBinanceKlines(symbol);
        return;
    case AssetClass::BrEquity:
        // A BrAPI token brings B3 history with a keyed quote; without one Yahoo has the history.
        if (!m_keys.apiKey(QStringLiteral("brapi_token")).isEmpty()) {
            requestBrapiHistory(symbol, true);
            return;
        }
        break;
    case AssetClass::UsEquity:
    case AssetClass::Forex:
        break;
    }
    // The row's quote is the cascade's business (keyed providers first); the chart only needs the
    // history, so it is asked quietly.
    requestYahooChart(symbol, false);
}

void MainWindow::refreshCryptoKlines()
{
    for (const QString &symbol : m_marketTable->symbols()) {
        if (assetClassOf(symbol) == AssetClass::Crypto)
            requestBinanceKlines(symbol);
    }
}

void MainWindow::requestBinanceKlines(const QString &symbol)
{
    const TimeframeParameters parameters = timeframeParameters(m_chartTimeframe);
    const QString timeframe = m_chartTimeframe;
    sendProviderGet(*m_network, binanceKlinesRequest(symbol, parameters.binanceInterval), this,
                    [this, symbol, timeframe](const ProviderReply &reply) {
                        if (reply.error != QNetworkReply::NoError || reply.tooLarge) {
                            setMarketRowStatus(symbol, QStringLiteral("kline error"));
                            logEvent(translated(QStringLiteral("Binance kline error: %1"),
                                                QStringLiteral("Erro de kline da Binance: %1"))
                                             .arg(symbol));
                            return;
                        }
                        // Bars of another timeframe than the one now chosen would mislabel the
                        // chart.
                        if (timeframe != m_chartTimeframe)
                            return;
                        const QList<Candle> candles = readBinanceKlines(reply.body);
                        if (candles.isEmpty())
                            return;
                        storeCandles(symbol, candles);
                        refreshCandleColumns(symbol);
                        if (const int row = findMarketRow(symbol); row >= 0) {
                            SortingPause pause(m_marketTable);
                            m_marketTable->setMarketCell(row, LatencyColumn,
                                                         latencyText(reply.latencyMs));
                        }
                    });
}

void MainWindow::requestYahooChart(const QString &symbol, bool report)
{
    const TimeframeParameters parameters = timeframeParameters(m_chartTimeframe);
    const QString timeframe = m_chartTimeframe;
    if (report)
        setMarketRowStatus(symbol, QStringLiteral("loading"));
    sendProviderGet(
            *m_network, yahooChartRequest(symbol, parameters.yahooInterval, parameters.yahooRange),
            this, [this, symbol, report, timeframe, parameters](const ProviderReply &reply) {
                const YahooChartReply chart = readYahooChart(reply.body);
                if (!chart.hasResult) {
                    if (report) {
                        setMarketRowStatus(symbol, QStringLiteral("no free data"));
                        logEvent(translated(
                                         QStringLiteral("No free data response for: %1"),
                                         QStringLiteral("Sem resposta de dados gratuitos para: %1"))
                                         .arg(symbol));
                    }
                    return;
                }
                if (!std::isfinite(chart.price)) {
                    if (report) {
                        setMarketRowStatus(symbol, QStringLiteral("invalid free data"));
                        logEvent(translated(QStringLiteral("Invalid free data response for: %1"),
                                            QStringLiteral("Resposta de dados gratuitos inválida "
                                                           "para: %1"))
                                         .arg(symbol));
                    }
                    return;
                }
                if (symbol == fxTickerSymbol()) {
                    m_usdBrlRate = chart.price;
                    updateFxTicker(chart.price, chart.changePercent);
                    refreshPortfolio();
                }
                if (timeframe == m_chartTimeframe)
                    storeCandles(symbol, mergeHourBars(chart.candles, parameters.mergeHours));
                if (report)
                    updateMarketRow(symbol, chart.price, chart.changePercent,
                                    QStringLiteral("Yahoo"), latencyText(reply.latencyMs),
                                    QStringLiteral("free/delayed"));
                refreshCandleColumns(symbol);
            });
}

void MainWindow::requestBrapiHistory(const QString &symbol, bool withToken)
{
    const TimeframeParameters parameters = timeframeParameters(m_chartTimeframe);
    const QString timeframe = m_chartTimeframe;
    const QString token = withToken ? m_keys.apiKey(QStringLiteral("brapi_token")) : QString();
    setMarketRowStatus(symbol, QStringLiteral("loading"));
    sendProviderGet(
            *m_network,
            brapiQuoteRequest(symbol, token, parameters.yahooRange, parameters.yahooInterval), this,
            [this, symbol, withToken, token, timeframe, parameters](const ProviderReply &reply) {
                const BrapiHistoryReply history = readBrapiHistory(reply.body);
                if (!history.hasResult) {
                    // The token-less request and then Yahoo stand in, without a message.
                    if (withToken && !token.isEmpty())
                        requestBrapiHistory(symbol, false);
                    else
                        requestYahooChart(symbol, true);
                    return;
                }
                if (history.candles.isEmpty())
                    requestYahooChart(symbol, false); // the history from Yahoo, the price from here
                else if (timeframe == m_chartTimeframe)
                    storeCandles(symbol, mergeHourBars(history.candles, parameters.mergeHours));
                updateMarketRow(symbol, history.price, history.changePercent,
                                QStringLiteral("BrAPI"), latencyText(reply.latencyMs),
                                QStringLiteral("free/delayed"));
                refreshCandleColumns(symbol);
            });
}

void MainWindow::storeCandles(const QString &symbol, const QList<Candle> &candles)
{
    // A load without a bar keeps what the store had; nothing but a load writes the store.
    if (candles.isEmpty())
        return;
    m_candleCache.insert(symbol, candles);
    m_indicatorValues.remove(symbol);
}

void MainWindow::refreshCandleColumns(const QString &symbol)
{
    const int row = findMarketRow(symbol);
    if (row >= 0)
        writeCandleColumns(m_marketTable->rowCells(row), symbol);
    if (symbol == m_marketTable->selectedSymbol())
        refreshChart();
}

void MainWindow::writeCandleColumns(const MarketTable::RowCells &cells, const QString &symbol)
{
    const auto stored = m_candleCache.constFind(symbol);
    if (stored == m_candleCache.constEnd() || stored->isEmpty())
        return;
    const Candle &last = stored->constLast();
    const double prices[] = {last.open, last.high, last.low, last.close};
    for (int i = 0; i < 4; ++i)
        MarketTable::writeNumber(cells[OpenColumn + i], prices[i]);
    // Quotes and ticker frames rewrite the row many times a second; the indicators change only
    // with the candles or the settings.
    auto values = m_indicatorValues.constFind(symbol);
    if (values == m_indicatorValues.constEnd())
        values = m_indicatorValues.insert(
                symbol, lastIndicatorValues(*stored, m_chart->indicatorSettings()));
    MarketTable::writeNumber(cells[SmaColumn], values->sma);
    MarketTable::writeNumber(cells[EmaColumn], values->ema);
    MarketTable::writeNumber(cells[VwapColumn], values->vwap);
    MarketTable::writeNumber(cells[MacdColumn], values->macd);
}

void MainWindow::refreshChart()
{
    const QString symbol = m_marketTable->selectedSymbol();
    const QString key = drawingsKey(symbol, m_chartTimeframe);
    m_chart->setData(symbol, m_candleCache.value(symbol),
                     m_chartMode == QLatin1String("candle") ? 1 : 0, m_chartTimeframe);
    m_chart->setDrawings(drawingsFromJson(m_drawingsStore.value(key).toArray()));
}

void MainWindow::chartSettingsChanged()
{
    // Drawings belong to the chart on screen; the indicator settings to the whole terminal.
    const QString key = drawingsKey(m_chart->symbol(), m_chartTimeframe);
    const QJsonArray drawings = drawingsToJson(m_chart->drawings());
    if (drawings.isEmpty())
        m_drawingsStore.remove(key);
    else
        m_drawingsStore.insert(key, drawings);
    const IndicatorSettings settings = m_chart->indicatorSettings();
    m_indicatorValues.clear();
    m_marketTable->setIndicatorPeriods(settings.smaPeriod, settings.emaPeriod);
    for (const QString &symbol : m_marketTable->symbols()) {
        if (const int row = findMarketRow(symbol); row >= 0)
            writeCandleColumns(m_marketTable->rowCells(row), symbol);
    }
    scheduleSettingsSave();
}
