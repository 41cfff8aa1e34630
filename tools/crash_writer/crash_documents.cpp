#include "crash_writer/crash_documents.h"

#include "account/account_session.h"
#include "account/account_sync.h"
#include "app/atomic_file.h"
#include "app/paths.h"
#include "chart/drawings.h"
#include "chart/indicators.h"
#include "chart/timeframe.h"
#include "market/watchlist.h"
#include "portfolio/portfolio.h"
#include "portfolio/price_alerts.h"
#include "providers/alpha_vantage_cache.h"
#include "providers/api_keys.h"
#include "providers/provider_catalogue.h"
#include "ui/local_settings.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>

#include <cmath>

namespace {

enum StepKind {
    KeysStep,
    SettingsStep,
    WatchlistStep,
    DrawingsStep,
    WorkspaceStep,
    CacheStep,
};

StepKind kindOf(qint64 step)
{
    return StepKind(step % kCrashStepsPerRound);
}

qint64 roundOf(qint64 step)
{
    return step / kCrashStepsPerRound;
}

// One generator per round and purpose, so a document never depends on the order of the others.
QRandomGenerator generatorFor(qint64 round, quint32 purpose)
{
    return QRandomGenerator(quint32(round * 7919 + 104729) ^ (purpose * 2654435761u));
}

QString token(QRandomGenerator &random, int length)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString text;
    for (int i = 0; i < length; ++i)
        text += QLatin1Char(alphabet[random.bounded(int(sizeof alphabet) - 1)]);
    return text;
}

double price(QRandomGenerator &random, double low, double high)
{
    // Four decimals, as the terminal shows them; exact in both directions through JSON.
    return std::round((low + random.generateDouble() * (high - low)) * 10000) / 10000;
}

// The entry at `index`, counted round the list (the drawings of the round before the first have a
// negative round).
QString pick(const QStringList &list, qint64 index)
{
    const qint64 size = list.size();
    return list.at(((index % size) + size) % size);
}

const QStringList &symbolPool()
{
    static const QStringList symbols{
            "PETR4.SA", "VALE3.SA", "ITUB4.SA", "BBDC4.SA", "BBAS3.SA", "WEGE3.SA",
            "ABEV3.SA", "MGLU3.SA", "B3SA3.SA", "RENT3.SA", "AAPL",     "MSFT",
            "NVDA",     "AMZN",     "GOOGL",    "META",     "TSLA",     "JPM",
            "^GSPC",    "^BVSP",    "BTCUSDT",  "ETHUSDT",  "SOLUSDT",  "BNBUSDT",
            "XRPUSDT",  "ADAUSDT",  "EURUSD=X", "GBPUSD=X", "USDJPY=X", "BRL=X",
    };
    return symbols;
}

ApiKeyStore keysOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 1);
    ApiKeyStore keys;
    for (const ApiKeyEntry &entry : apiKeyCatalogue()) {
        const QString name = QString::fromLatin1(entry.name);
        const QString value = name == QLatin1String("querlin_news_endpoint")
                                      ? QStringLiteral("https://news.example.test/feed/%1.json")
                                                .arg(token(random, 8))
                                      : token(random, 24 + random.bounded(41));
        keys.setApiKey(name, value);
    }
    return keys;
}

QStringList watchlistOf(qint64 round)
{
    // Every round moves the rows and drops one, as a user reordering and pruning the list.
    QStringList symbols = symbolPool();
    const qsizetype shift = round % symbols.size();
    symbols = symbols.mid(shift) + symbols.mid(0, shift);
    symbols.removeAt((round * 7) % symbols.size());
    return symbols;
}

QJsonObject drawingsOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 2);
    QJsonObject store;
    const QStringList timeframes = chartTimeframes();
    for (int chart = 0; chart < 8; ++chart) {
        const QString symbol = pick(symbolPool(), chart * 3 + round);
        QList<ChartDrawing> drawings;
        for (int i = 0; i < 5; ++i) {
            ChartDrawing drawing;
            drawing.type = ChartDrawing::Type(i % 3);
            drawing.price1 = price(random, 10, 70000);
            drawing.price2 =
                    drawing.type == ChartDrawing::Trend ? price(random, 10, 70000) : drawing.price1;
            drawing.index1 = random.bounded(400);
            drawing.index2 =
                    drawing.type == ChartDrawing::Trend ? random.bounded(400) : drawing.index1;
            drawing.label = drawing.type == ChartDrawing::Horizontal
                                    ? QString::number(drawing.price1, 'f', 4)
                                    : QStringLiteral("Trend %1").arg(token(random, 6));
            drawing.locked = random.bounded(2) == 1;
            drawing.color = QColor::fromRgb(random.generate() & 0xffffff);
            drawings << drawing;
        }
        store.insert(drawingsKey(symbol, pick(timeframes, chart)), drawingsToJson(drawings));
    }
    return store;
}

QList<PriceAlert> alertsOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 3);
    QList<PriceAlert> alerts;
    for (int i = 0; i < 14; ++i) {
        PriceAlert alert;
        alert.symbol = symbolPool().at(random.bounded(int(symbolPool().size())));
        alert.target = price(random, 1, 90000);
        alert.above = random.bounded(2) == 1;
        alert.repeating = random.bounded(3) == 0;
        alert.triggered = !alert.repeating && random.bounded(4) == 0;
        alert.lastTriggerMs = alert.triggered ? 1700000000000 + random.bounded(1000000000) : 0;
        alerts << alert;
    }
    return alerts;
}

QList<AlertHistoryEntry> historyOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 4);
    static const char *events[] = {"Armed", "Triggered", "Rearmed", "Removed"};
    static const char *states[] = {"Active", "Active / Repeat", "Hit", "Inactive"};
    QList<AlertHistoryEntry> history;
    const QDateTime start(QDate(2024, 3, 1), QTime(9, 0));
    for (int i = 0; i < 160; ++i) {
        AlertHistoryEntry entry;
        entry.timestamp = start.addSecs(i * 1800 + round).toString(u"yyyy-MM-dd HH:mm:ss");
        entry.event = QString::fromLatin1(events[random.bounded(4)]);
        entry.symbol = symbolPool().at(random.bounded(int(symbolPool().size())));
        entry.target = price(random, 1, 90000);
        entry.condition = alertCondition(random.bounded(2) == 1, entry.target);
        entry.price = price(random, 1, 90000);
        entry.status = QString::fromLatin1(states[random.bounded(4)]);
        history << entry;
    }
    return history;
}

PortfolioStore portfoliosOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 5);
    PortfolioStore store;
    for (const char *name : {"Principal", "Cripto"}) {
        Portfolio portfolio;
        portfolio.name = QString::fromLatin1(name);
        portfolio.baseCurrency = portfolio.name == QLatin1String("Cripto") ? QStringLiteral("USD")
                                                                           : QStringLiteral("BRL");
        for (int i = 0; i < 16; ++i)
            portfolio.positions << PortfolioPosition{pick(symbolPool(), i * 5 + round),
                                                     double(random.bounded(1, 5000)),
                                                     price(random, 1, 60000)};
        for (int i = 0; i < 30; ++i) {
            PortfolioTransaction transaction;
            transaction.timestamp = QStringLiteral("2024-%1-%2 10:%3:00")
                                            .arg(1 + i % 12, 2, 10, QLatin1Char('0'))
                                            .arg(1 + i % 28, 2, 10, QLatin1Char('0'))
                                            .arg(round % 60, 2, 10, QLatin1Char('0'));
            transaction.type = i % 3 == 0 ? QStringLiteral("dividend") : QStringLiteral("cash");
            transaction.symbol = transaction.type == QLatin1String("dividend")
                                         ? symbolPool().at(i % 10)
                                         : QString();
            transaction.amount = price(random, -5000, 20000);
            transaction.currency = portfolio.baseCurrency;
            transaction.note = QStringLiteral("Aporte %1").arg(token(random, 5));
            portfolio.transactions << transaction;
        }
        store.items << portfolio;
    }
    store.active = store.items.at(round % 2).name;
    return store;
}

ApiHealthRecords healthOf(qint64 round)
{
    QRandomGenerator random = generatorFor(round, 6);
    ApiHealthRecords records;
    for (const char *id : {"binance_public", "yahoo_us", "yahoo_br", "brapi_public", "brapi_keyed",
                           "finnhub", "twelvedata", "fmp", "alpha_vantage", "itick", "newsapi"}) {
        ApiHealthRecord record;
        record.attempts = random.bounded(1, 400);
        record.successes = random.bounded(record.attempts + 1);
        record.failures = record.attempts - record.successes;
        record.state = record.failures > record.successes ? QStringLiteral("failing")
                                                          : QStringLiteral("ok");
        record.latencyMs = random.bounded(20, 3000);
        record.lastSuccess =
                QStringLiteral("2024-03-08 14:%1:05").arg(round % 60, 2, 10, QLatin1Char('0'));
        record.lastError = record.failures ? QStringLiteral("HTTP 429 rate limited") : QString();
        records.insert(QString::fromLatin1(id), record);
    }
    return records;
}

// The whole "local.json" of round `round`, with the drawings of round `drawingsRound`: every key
// the terminal writes, the same set in every round (the stored object never holds a key the next
// save lacks, so the file is a function of the step alone).
QJsonObject settingsDocument(qint64 round, qint64 drawingsRound)
{
    QRandomGenerator random = generatorFor(round, 7);
    const QStringList timeframes = chartTimeframes();
    WorkspaceValues values;
    values.language = round % 2 ? QStringLiteral("pt_BR") : QStringLiteral("en");
    values.theme = round % 3 ? QStringLiteral("coffee_dark") : QStringLiteral("qrl_light");
    values.chartMode = round % 2 ? QStringLiteral("candle") : QStringLiteral("line");
    values.chartTimeframe = pick(timeframes, round);
    for (int i = 0; i < 66; ++i)
        values.windowGeometry += char(random.bounded(256));
    values.hiddenColumns = QSet<int>{int(1 + round % 15), 7};
    values.shortcuts = ShortcutOverrides{
            {QStringLiteral("chart_hline"), QStringLiteral("Ctrl+Alt+%1").arg(round % 10)}};
    values.leftSplitterSizes = {400 + int(round % 200), 360, 140};
    values.workspaceSplitterSizes = {1100 + int(round % 300), 520};
    values.bookStep = double(round % 5) / 2;
    values.bookPreset = QStringLiteral("normal");
    IndicatorSettings indicators;
    indicators.sma = round % 2;
    indicators.smaPeriod = int(5 + round % 200);
    indicators.macd = round % 3 == 0;
    values.indicators = indicators.toJson();
    values.drawings = drawingsOf(drawingsRound);
    values.moversScope = QStringLiteral("crypto");
    values.moversInterval = QStringLiteral("day");
    values.moversSector = QStringLiteral("all");
    values.moversMinVolume = double(round % 1000) * 1000;
    values.moversMinTurnover = 250000;

    QJsonObject document = workspaceValuesToJson(values);
    document.insert(QStringLiteral("alerts"), alertsToJson(alertsOf(round)));
    document.insert(QStringLiteral("alert_history"), historyToJson(historyOf(round)));
    document.insert(QStringLiteral("portfolios"), portfolioStoreToJson(portfoliosOf(round)));
    document.insert(QStringLiteral("api_health"), healthRecordsToJson(healthOf(round)));
    const AccountSession session{token(random, 64), QStringLiteral("2031-01-01T00:00:00Z"),
                                 QStringLiteral("trader@querlin.test"), QStringLiteral("Ana")};
    document.insert(QStringLiteral("auth"), session.toJson());
    QJsonObject versions;
    for (const QString &name : syncNamespaces())
        versions.insert(name, double(round));
    document.insert(QStringLiteral("sync_versions"), versions);
    document.insert(QStringLiteral("sync_last_unix"), double(1709900000 + round));
    document.insert(QStringLiteral("sync_last_status"), QStringLiteral("uploaded"));
    document.insert(QStringLiteral("screener_asset"), QStringLiteral("all"));
    document.insert(QStringLiteral("screener_scope"), QStringLiteral("watchlist"));
    document.insert(QStringLiteral("screener_min_change"), double(round % 10));
    return document;
}

QJsonObject settingsOfStep(qint64 step)
{
    const qint64 round = roundOf(step);
    return settingsDocument(round, kindOf(step) == SettingsStep ? round - 1 : round);
}

QByteArray watchlistBytes(qint64 round)
{
    return QJsonDocument(watchlistDocument(watchlistOf(round))).toJson(QJsonDocument::Indented);
}

QByteArray workspaceBytes(qint64 round)
{
    return orderedJsonText(workspaceSnapshotOf(settingsDocument(round, round)),
                           workspaceSnapshotKeys());
}

double cachePrice(qint64 round)
{
    // A whole number of cents divided once: the same double the reader parses from the text.
    return double(40000 + round % 5000) / 100;
}

QByteArray cacheBody(qint64 round)
{
    const QString price = QString::number(cachePrice(round), 'f', 4);
    return QStringLiteral("{\n"
                          "    \"Global Quote\": {\n"
                          "        \"01. symbol\": \"MSFT\",\n"
                          "        \"02. open\": \"%1\",\n"
                          "        \"03. high\": \"%1\",\n"
                          "        \"04. low\": \"%1\",\n"
                          "        \"05. price\": \"%1\",\n"
                          "        \"06. volume\": \"%2\",\n"
                          "        \"07. latest trading day\": \"2024-03-08\",\n"
                          "        \"08. previous close\": \"%1\",\n"
                          "        \"09. change\": \"0.0000\",\n"
                          "        \"10. change percent\": \"0.0000%\"\n"
                          "    }\n"
                          "}\n")
            .arg(price)
            .arg(29062853 + round)
            .toUtf8();
}

bool fail(QString *why, const QString &text)
{
    if (why)
        *why = text;
    return false;
}

} // namespace

QString crashFileName(CrashFile file)
{
    switch (file) {
    case CrashFile::Keys:
        return QStringLiteral("config.txt");
    case CrashFile::Settings:
        return QStringLiteral("local.json");
    case CrashFile::Watchlist:
        return QStringLiteral("watchlists/default.json");
    case CrashFile::Workspace:
        return QStringLiteral("workspace.default.json");
    case CrashFile::Cache:
        return QStringLiteral("alpha_vantage/%1.json").arg(crashCacheSymbol());
    }
    return {};
}

QString crashStepName(qint64 step)
{
    static const char *names[] = {"keys",     "settings",  "watchlist",
                                  "drawings", "workspace", "cache"};
    return QString::fromLatin1(names[kindOf(step)]);
}

CrashFile crashFileOfStep(qint64 step)
{
    switch (kindOf(step)) {
    case KeysStep:
        return CrashFile::Keys;
    case SettingsStep:
    case DrawingsStep:
        return CrashFile::Settings;
    case WatchlistStep:
        return CrashFile::Watchlist;
    case WorkspaceStep:
        return CrashFile::Workspace;
    case CacheStep:
        return CrashFile::Cache;
    }
    return CrashFile::Keys;
}

qint64 lastCrashWrite(CrashFile file, qint64 step)
{
    for (qint64 candidate = step; candidate >= 0 && candidate > step - kCrashStepsPerRound;
         --candidate) {
        if (crashFileOfStep(candidate) == file)
            return candidate;
    }
    return -1;
}

QString crashFilePath(CrashFile file)
{
    switch (file) {
    case CrashFile::Keys:
        return dataFileWritePath(DataFile::ApiKeys);
    case CrashFile::Settings:
        return dataFileWritePath(DataFile::LocalSettings);
    case CrashFile::Watchlist:
        return dataFileWritePath(DataFile::DefaultWatchlist);
    case CrashFile::Workspace:
        return dataFileWritePath(DataFile::WorkspaceSnapshot);
    case CrashFile::Cache:
        return alphaVantageCacheWritePath(crashCacheSymbol());
    }
    return {};
}

QString crashCacheSymbol()
{
    return QStringLiteral("MSFT");
}

QByteArray expectedCrashBytes(CrashFile file, qint64 writeStep)
{
    const qint64 round = roundOf(writeStep);
    switch (file) {
    case CrashFile::Keys:
        return keysOf(round).keyFileText();
    case CrashFile::Settings:
        return orderedJsonText(settingsOfStep(writeStep), localSettingsKeyOrder());
    case CrashFile::Watchlist:
        return watchlistBytes(round);
    case CrashFile::Workspace:
        return workspaceBytes(round);
    case CrashFile::Cache:
        return cacheBody(round);
    }
    return {};
}

QJsonObject crashSyncPayloads(qint64 round)
{
    // What the window's localSyncPayload gives for the same state.
    const QJsonObject settings = settingsDocument(round, round);
    return {
            {QStringLiteral("settings"), settingsSubset(settings, syncedSettingsKeys())},
            {QStringLiteral("watchlists"), watchlistDocument(watchlistOf(round))},
            {QStringLiteral("alerts"),
             QJsonObject{{QStringLiteral("alerts"), alertsToJson(alertsOf(round))},
                         {QStringLiteral("history"), historyToJson(historyOf(round))}}},
            {QStringLiteral("workspace"), settingsSubset(settings, syncedWorkspaceKeys())},
            {QStringLiteral("portfolios"), portfolioStoreToJson(portfoliosOf(round))},
    };
}

bool CrashWriter::start(QString *error)
{
    // What the terminal reads at start-up, before its first save.
    ApiKeyStore keys;
    keys.loadConfig();
    m_settings.load();
    if (m_settings.readCorruptFile())
        return fail(error, QStringLiteral("local.json reads as damaged"));
    return true;
}

bool CrashWriter::save(qint64 step, QString *error)
{
    const qint64 round = roundOf(step);
    bool saved = false;
    switch (kindOf(step)) {
    case KeysStep:
        return keysOf(round).saveLocalApiKeys(error);
    case SettingsStep:
    case DrawingsStep:
        // A change of the chart's drawings reaches the file by the same save as any other setting.
        saved = m_settings.save(settingsOfStep(step));
        break;
    case WatchlistStep:
        // As MainWindow::saveWatchlist.
        saved = writeFileAtomically(dataFileWritePath(DataFile::DefaultWatchlist),
                                    watchlistBytes(round), {}, error);
        break;
    case WorkspaceStep:
        // As MainWindow::saveWorkspaceSnapshot.
        saved = writeFileAtomically(dataFileWritePath(DataFile::WorkspaceSnapshot),
                                    workspaceBytes(round), {}, error);
        break;
    case CacheStep:
        saved = writeAlphaVantageCache(crashCacheSymbol(), cacheBody(round));
        break;
    }
    if (!saved && error && error->isEmpty())
        *error = QStringLiteral("the %1 save reported a failure").arg(crashStepName(step));
    return saved;
}

bool readsAsCrashStep(CrashFile file, qint64 writeStep, QString *why)
{
    const qint64 round = roundOf(writeStep);
    switch (file) {
    case CrashFile::Keys: {
        ApiKeyStore read;
        read.readKeyFile(dataFileReadPath(DataFile::ApiKeys));
        if (read.allApiKeys() != keysOf(round).allApiKeys())
            return fail(why, QStringLiteral("the key reader finds other keys"));
        return true;
    }
    case CrashFile::Settings: {
        LocalSettingsFile read;
        const QJsonObject settings = read.load();
        if (read.readCorruptFile())
            return fail(why, QStringLiteral("the settings reader takes local.json for damaged"));
        const QJsonObject expected = settingsOfStep(writeStep);
        if (settings != expected)
            return fail(why, QStringLiteral("the settings reader finds another document"));
        QList<QJsonValue> unreadable;
        readAlerts(settings.value(QStringLiteral("alerts")), &unreadable);
        readAlertHistory(settings.value(QStringLiteral("alert_history")), &unreadable);
        if (!unreadable.isEmpty())
            return fail(why, QStringLiteral("%1 alerts do not read").arg(unreadable.size()));
        const WorkspaceValues values = readWorkspaceValues(settings, chartTimeframes());
        if (!values.drawings || *values.drawings != expected.value(QStringLiteral("drawings")))
            return fail(why, QStringLiteral("the drawings do not read back"));
        for (const QJsonValue &chart : *values.drawings) {
            if (drawingsToJson(drawingsFromJson(chart.toArray())) != chart.toArray())
                return fail(why, QStringLiteral("a chart's drawings do not read back"));
        }
        return true;
    }
    case CrashFile::Watchlist: {
        QFile read(dataFileReadPath(DataFile::DefaultWatchlist));
        if (!read.open(QIODevice::ReadOnly))
            return fail(why, read.errorString());
        QStringList symbols;
        for (const WatchlistEntry &entry : readWatchlistEntries(read.readAll()))
            symbols << entry.symbol;
        if (symbols != watchlistOf(round))
            return fail(why, QStringLiteral("the watchlist reader finds other rows"));
        return true;
    }
    case CrashFile::Workspace: {
        // As MainWindow::loadWorkspaceSnapshot.
        QFile read(dataFileReadPath(DataFile::WorkspaceSnapshot));
        if (!read.open(QIODevice::ReadOnly))
            return fail(why, read.errorString());
        const QJsonDocument document = QJsonDocument::fromJson(read.readAll());
        if (!document.isObject() || workspaceSnapshotOf(document.object()) !=
                                            workspaceSnapshotOf(settingsDocument(round, round)))
            return fail(why, QStringLiteral("the snapshot reader finds another layout"));
        return true;
    }
    case CrashFile::Cache: {
        const auto quote =
                freshAlphaVantageCache(crashCacheSymbol(), QDateTime::currentMSecsSinceEpoch());
        if (!quote || quote->price != cachePrice(round))
            return fail(why, QStringLiteral("the cache reader finds no quote or another price"));
        return true;
    }
    }
    return false;
}
