#include "portfolio/csv_export.h"

#include "app/atomic_file.h"

#include <cmath>

namespace {

QString numberField(const CsvCell &cell, bool portuguese)
{
    if (!std::isfinite(cell.number))
        return {};
    QString text = QString::number(cell.number, 'f', qBound(0, cell.decimals, 15));
    if (text.startsWith(QLatin1Char('-')) && text.toDouble() == 0)
        text.remove(0, 1);
    // Never a thousands separator: only the decimal mark follows the locale.
    if (portuguese)
        text.replace(QLatin1Char('.'), QLatin1Char(','));
    return text;
}

QString textField(const QString &text, QChar separator)
{
    if (!text.contains(separator) && !text.contains(QLatin1Char('"')) &&
        !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')))
        return text;
    QString quoted = text;
    quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

} // namespace

QByteArray csvDocument(const QStringList &header, const QList<QList<CsvCell>> &rows,
                       bool portuguese)
{
    const QChar separator = portuguese ? QLatin1Char(';') : QLatin1Char(',');
    QString text;
    const auto appendLine = [&](const QStringList &fields) {
        text += fields.join(separator);
        text += QLatin1String("\r\n");
    };
    QStringList fields;
    for (const QString &title : header)
        fields << textField(title, separator);
    appendLine(fields);
    for (const QList<CsvCell> &row : rows) {
        fields.clear();
        for (const CsvCell &cell : row)
            fields << (cell.isNumber ? numberField(cell, portuguese)
                                     : textField(cell.text, separator));
        appendLine(fields);
    }
    // The byte-order mark is what makes a spreadsheet read the file as UTF-8.
    return QByteArray("\xEF\xBB\xBF") + text.toUtf8();
}

bool writeCsvFile(const QString &path, const QByteArray &document, QString *error)
{
    return writeFileAtomically(path, document, {}, error);
}
