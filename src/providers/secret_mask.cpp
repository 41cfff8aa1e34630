#include "providers/secret_mask.h"

#include <QMutex>
#include <QStringList>
#include <QUrl>

#include <algorithm>

namespace {

QMutex secretsLock;
QStringList secretForms; // every form to replace, longest first

QtMessageHandler forwardedHandler = nullptr;

void addForm(const QString &form)
{
    if (form.size() < kMinMaskedSecretLength || secretForms.contains(form))
        return;
    // Longest first, so a key that contains another key is masked whole.
    const auto at = std::find_if(secretForms.begin(), secretForms.end(),
                                 [&](const QString &known) { return known.size() < form.size(); });
    secretForms.insert(at, form);
}

void maskingHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (forwardedHandler)
        forwardedHandler(type, context, maskSecrets(message));
}

} // namespace

void rememberSecret(const QString &value)
{
    const QString trimmed = value.trimmed();
    if (trimmed.size() < kMinMaskedSecretLength)
        return;
    QMutexLocker locker(&secretsLock);
    addForm(trimmed);
    // As it travels in a query or a form, and as a provider quoting its own address shows it.
    QByteArray encoded = QUrl::toPercentEncoding(trimmed);
    addForm(QString::fromLatin1(encoded));
    for (qsizetype at = encoded.indexOf('%'); at >= 0 && at + 2 < encoded.size();
         at = encoded.indexOf('%', at + 3)) {
        encoded[at + 1] = char(QChar::toLower(char32_t(encoded[at + 1])));
        encoded[at + 2] = char(QChar::toLower(char32_t(encoded[at + 2])));
    }
    addForm(QString::fromLatin1(encoded)); // "%2b" as some servers write it
}

void forgetSecrets()
{
    QMutexLocker locker(&secretsLock);
    secretForms.clear();
}

QString maskSecrets(const QString &text)
{
    if (text.size() < kMinMaskedSecretLength)
        return text;
    QMutexLocker locker(&secretsLock);
    QString masked = text;
    for (const QString &form : std::as_const(secretForms))
        masked.replace(form, QLatin1String(kMaskedSecret));
    return masked;
}

void installSecretMaskingMessageHandler()
{
    const QtMessageHandler current = qInstallMessageHandler(maskingHandler);
    if (current != maskingHandler)
        forwardedHandler = current;
}
