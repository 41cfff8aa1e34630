#pragma once

#include <QByteArray>
#include <QMap>
#include <QSet>
#include <QString>

#include <span>

// One key the user can enter: its name in the key file, the product it unlocks and what it is for.
struct ApiKeyEntry
{
    const char *name;
    const char *label; // a product name, the same in every language
    const char *english;
    const char *portuguese;
    bool endsWithNewsFeed; // the description names the default news address after the text
    const char *portugueseLabel = nullptr; // when the label is more than a product name

    QString description() const;  // in the interface language
    QString displayLabel() const; // in the interface language
};

// Every key the terminal knows, in the order the key file and the API Keys dialog list them.
std::span<const ApiKeyEntry> apiKeyCatalogue();

// The keys the user gave the terminal on this machine. Alpha Vantage, iTick and BrAPI have slots of
// their own (they may come from the environment and the quote cascade reads them on every step);
// every other key lives in a map that never holds an empty value.
//
// The key file ("config.txt") is plain "name=value" lines, written owner-only. Key values are never
// logged, not even partly.
class ApiKeyStore
{
public:
    QString apiKey(const QString &name) const; // empty when not set
    void setApiKey(const QString &name, const QString &value);
    // The map plus the three dedicated names with their current values (empty ones included).
    QMap<QString, QString> allApiKeys() const;

    // QRL_ALPHA_VANTAGE_API_KEY, QRL_BRAPI_TOKEN and QRL_ITICK_API_KEY fill the dedicated slots;
    // an unset or empty variable leaves its slot alone.
    void applyEnvironment();
    // Reads a key file over what is already there; a missing or unreadable file changes nothing.
    // The column numbers (1-15) of a "hidden_columns" line join *hiddenColumns when given.
    void readKeyFile(const QString &path, QSet<int> *hiddenColumns = nullptr);
    // The environment first, then the key file, so a key in the file wins.
    void loadConfig(QSet<int> *hiddenColumns = nullptr);

    // The whole key file: a header, the three dedicated keys, then every other catalogue key.
    QByteArray keyFileText() const;
    // Replaces the key file in the config folder, readable by the owner only. False when it cannot;
    // the reason goes to *error.
    bool saveLocalApiKeys(QString *error = nullptr) const;

private:
    QString m_alphaVantageKey;
    QString m_itickKey;
    QString m_brapiToken;
    QMap<QString, QString> m_otherKeys;
};

// Status-bar texts for the outcome of a save.
QString unableToSaveKeysText();
QString keysSavedText();
