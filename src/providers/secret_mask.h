#pragma once

#include <QString>

// The one place where key values are taken out of text. Providers quote the caller's key back in
// their messages (Alpha Vantage's daily-limit notice, iTick's auth answer, an echoed request
// address), and any such text may end up in the event console, the status bar, a table cell, the
// settings file or the message log. Every key value the user gave the terminal is remembered here
// for the life of the process, and maskSecrets() replaces each one in a text, as is and in its
// percent-encoded form, with kMaskedSecret. Nothing of a key is kept visible, not even a few
// characters. Thread-safe: the message handler may run on any thread.

inline constexpr char kMaskedSecret[] = "***";
// Shorter values are not masked: they would also match ordinary words and numbers.
inline constexpr int kMinMaskedSecretLength = 4;

// Adds a value to the ones masked (surrounding spaces ignored). Values are never forgotten while
// the process runs, so a key the user replaced is still masked in a late reply.
void rememberSecret(const QString &value);
// Tests only: forget every value.
void forgetSecrets();

QString maskSecrets(const QString &text);

// Puts a handler in front of the current message handler that masks every qDebug, qInfo,
// qWarning, qCritical and qFatal message before passing it on, so no log line and no crash report
// prints a key. Installing it again does nothing.
void installSecretMaskingMessageHandler();
