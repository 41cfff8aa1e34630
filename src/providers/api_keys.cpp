#include "providers/api_keys.h"

#include "app/atomic_file.h"
#include "app/endpoints.h"
#include "app/language.h"
#include "app/paths.h"
#include "providers/secret_mask.h"

#include <QFile>
#include <QTextStream>

namespace {

const QString kAlphaVantageName = QStringLiteral("alpha_vantage_api_key");
const QString kItickName = QStringLiteral("itick_api_key");
const QString kBrapiName = QStringLiteral("brapi_token");
const QString kHiddenColumnsName = QStringLiteral("hidden_columns");
// An address, not a secret: masking it would hide the news feed's own name in messages.
const QString kNewsEndpointName = QStringLiteral("querlin_news_endpoint");

// The values the sample key file ships with; they mean "no key yet".
const QString kBrapiPlaceholder = QStringLiteral("YOUR_BRAPI_TOKEN_HERE");
const QString kAlphaVantagePlaceholder = QStringLiteral("YOUR_ALPHA_VANTAGE_KEY_HERE");

constexpr int kFirstColumn = 1;
constexpr int kLastColumn = 15;

constexpr ApiKeyEntry kCatalogue[] = {
        {"alpha_vantage_api_key", "Alpha Vantage", "US quotes, movers and fundamentals",
         "Cotações, destaques e fundamentos dos EUA", false},
        {"itick_api_key", "iTick", "US Level 2 stock depth, quote and tick stream",
         "Livro nível 2, cotação e negócios de ações dos EUA", false},
        {"brapi_token", "BrAPI", "B3 quotes, fundamentals and broader coverage",
         "Cotações e fundamentos da B3 com cobertura mais ampla", false},
        {"polygon_api_key", "Polygon", "US stocks, options, forex and crypto",
         "Ações, opções, câmbio e cripto dos EUA", false},
        {"finnhub_api_key", "Finnhub", "US/Global quotes, news and fundamentals",
         "Cotações, notícias e fundamentos dos EUA/globais", false},
        {"twelvedata_api_key", "Twelve Data", "Global stocks, forex and crypto",
         "Ações globais, câmbio e cripto", false},
        {"iex_cloud_api_key", "IEX Cloud", "US market data", "Dados de mercado dos EUA", false},
        {"financial_modeling_prep_api_key", "Financial Modeling Prep",
         "Fundamentals, screeners and statements", "Fundamentos, filtros e demonstrativos", false},
        {"tiingo_api_key", "Tiingo", "US prices and news", "Preços e notícias dos EUA", false},
        {"eodhd_api_key", "EODHD", "End-of-day and fundamentals", "Fechamento diário e fundamentos",
         false},
        {"marketstack_api_key", "Marketstack", "End-of-day/global equities",
         "Fechamento diário/ações globais", false},
        {"querlin_news_endpoint", "Querlin News JSON", "Optional override for ",
         "Substituição opcional de ", true},
        {"querlin_news_token", "Querlin News Token",
         "Optional bearer token for Querlin news endpoint",
         "Token bearer opcional para as notícias Querlin", false, "Token de notícias Querlin"},
        {"newsapi_api_key", "NewsAPI", "News panel", "Painel de notícias", false},
        {"binance_api_key", "Binance API Key", "Optional account/private endpoints",
         "Endpoints opcionais de conta/privados", false, "Chave de API da Binance"},
        {"binance_api_secret", "Binance API Secret", "Optional account/private endpoints",
         "Endpoints opcionais de conta/privados", false, "Segredo de API da Binance"},
};

bool isDedicated(const QString &name)
{
    return name == kAlphaVantageName || name == kItickName || name == kBrapiName;
}

// Every key value that enters the store is masked in whatever the terminal shows or logs.
void rememberKey(const QString &name, const QString &value)
{
    if (name != kNewsEndpointName)
        rememberSecret(value);
}

void takeFromEnvironment(const char *variable, const QString &name, QString &slot)
{
    const QString value = qEnvironmentVariable(variable).trimmed();
    if (value.isEmpty())
        return;
    slot = value;
    rememberKey(name, value);
}

void addHiddenColumns(const QString &list, QSet<int> &columns)
{
    for (const QString &item : list.split(QLatin1Char(','))) {
        bool ok = false;
        const int column = item.trimmed().toInt(&ok);
        if (ok && column >= kFirstColumn && column <= kLastColumn)
            columns.insert(column);
    }
}

// A line break inside a value would start a new line of the file: a pasted key must not be able
// to add entries of its own.
QByteArray fileLine(const QString &name, QString value)
{
    value.remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
    return name.toUtf8() + '=' + value.toUtf8() + '\n';
}

} // namespace

QString ApiKeyEntry::description() const
{
    const QString text = translated(QString::fromUtf8(english), QString::fromUtf8(portuguese));
    return endsWithNewsFeed ? text + houseNewsFeed() : text;
}

QString ApiKeyEntry::displayLabel() const
{
    const QString english = QString::fromUtf8(label);
    return portugueseLabel ? translated(english, QString::fromUtf8(portugueseLabel)) : english;
}

std::span<const ApiKeyEntry> apiKeyCatalogue()
{
    return kCatalogue;
}

QString ApiKeyStore::apiKey(const QString &name) const
{
    if (name == kAlphaVantageName)
        return m_alphaVantageKey;
    if (name == kItickName)
        return m_itickKey;
    if (name == kBrapiName)
        return m_brapiToken;
    return m_otherKeys.value(name);
}

void ApiKeyStore::setApiKey(const QString &name, const QString &value)
{
    rememberKey(name, value);
    if (name == kAlphaVantageName)
        m_alphaVantageKey = value;
    else if (name == kItickName)
        m_itickKey = value;
    else if (name == kBrapiName)
        m_brapiToken = value;
    else if (value.isEmpty())
        m_otherKeys.remove(name);
    else
        m_otherKeys.insert(name, value);
}

QMap<QString, QString> ApiKeyStore::allApiKeys() const
{
    QMap<QString, QString> keys = m_otherKeys;
    keys.insert(kAlphaVantageName, m_alphaVantageKey);
    keys.insert(kItickName, m_itickKey);
    keys.insert(kBrapiName, m_brapiToken);
    return keys;
}

void ApiKeyStore::applyEnvironment()
{
    takeFromEnvironment("QRL_ALPHA_VANTAGE_API_KEY", kAlphaVantageName, m_alphaVantageKey);
    takeFromEnvironment("QRL_BRAPI_TOKEN", kBrapiName, m_brapiToken);
    takeFromEnvironment("QRL_ITICK_API_KEY", kItickName, m_itickKey);
}

void ApiKeyStore::readKeyFile(const QString &path, QSet<int> *hiddenColumns)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    QTextStream stream(&file); // UTF-8
    QString line;
    while (stream.readLineInto(&line)) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0)
            continue;
        const QString name = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (name != kHiddenColumnsName)
            rememberKey(name, value);

        // A placeholder brapi or Alpha Vantage value falls through to the map, where nothing
        // reads it; an empty iTick value does clear the slot.
        if (name == kBrapiName && !value.isEmpty() && value != kBrapiPlaceholder) {
            m_brapiToken = value;
        } else if (name == kAlphaVantageName && !value.isEmpty() &&
                   value != kAlphaVantagePlaceholder) {
            m_alphaVantageKey = value;
        } else if (name == kItickName) {
            m_itickKey = value;
        } else if (name == kHiddenColumnsName) {
            if (hiddenColumns)
                addHiddenColumns(value, *hiddenColumns);
        } else if (!value.isEmpty()) {
            m_otherKeys.insert(name, value);
        }
    }
}

void ApiKeyStore::loadConfig(QSet<int> *hiddenColumns)
{
    applyEnvironment();
    readKeyFile(dataFileReadPath(DataFile::ApiKeys), hiddenColumns);
}

QByteArray ApiKeyStore::keyFileText() const
{
    QByteArray text = "# QUERLIN_TERMINAL local keys. Do not commit this file.\n";
    text += fileLine(kAlphaVantageName, m_alphaVantageKey);
    text += fileLine(kItickName, m_itickKey);
    text += fileLine(kBrapiName, m_brapiToken);
    for (const ApiKeyEntry &entry : apiKeyCatalogue()) {
        const QString name = QString::fromLatin1(entry.name);
        if (!isDedicated(name))
            text += fileLine(name, m_otherKeys.value(name));
    }
    return text;
}

bool ApiKeyStore::saveLocalApiKeys(QString *error) const
{
    return writeFileAtomically(dataFileWritePath(DataFile::ApiKeys), keyFileText(),
                               QFileDevice::ReadOwner | QFileDevice::WriteOwner, error);
}

QString unableToSaveKeysText()
{
    return translated(QStringLiteral("Unable to save local API keys"),
                      QStringLiteral("Não foi possível salvar as chaves de API locais"));
}

QString keysSavedText()
{
    return translated(QStringLiteral("API keys saved locally"),
                      QStringLiteral("Chaves de API salvas localmente"));
}
