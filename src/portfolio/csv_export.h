#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Tables as CSV files a spreadsheet of the user's locale opens as they are: a header row, RFC 4180
// quoting (a field holding the separator, a quote or a line break is quoted, quotes doubled), CRLF
// line ends, UTF-8 with a byte-order mark. English uses "," and a decimal point; Portuguese ";"
// and a decimal comma.

struct CsvCell
{
    QString text;
    bool isNumber = false;
    double number = 0;
    int decimals = 2;

    static CsvCell of(const QString &text) { return {text, false, 0, 2}; }
    static CsvCell of(double number, int decimals) { return {{}, true, number, decimals}; }
};

// `portuguese` picks the separator and the decimal mark; a non-finite number is an empty field.
QByteArray csvDocument(const QStringList &header, const QList<QList<CsvCell>> &rows,
                       bool portuguese);
// Writes atomically; false with *error set when it cannot.
bool writeCsvFile(const QString &path, const QByteArray &document, QString *error = nullptr);
