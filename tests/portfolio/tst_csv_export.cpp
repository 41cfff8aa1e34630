#include "portfolio/csv_export.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

const QByteArray kBom("\xEF\xBB\xBF");

} // namespace

class TestCsvExport : public QObject
{
    Q_OBJECT

private slots:
    void fieldsAreQuotedForTheLocale_data()
    {
        QTest::addColumn<bool>("portuguese");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("English") << false
                                 << QByteArray("Name,Value\r\n"
                                               "\"Ações, BR\",1234.50\r\n"
                                               "\"say \"\"hi\"\"\",-0.1235\r\n"
                                               "\"two\r\nlines\",\r\n"
                                               "semi;colon,0\r\n");
        QTest::newRow("Portuguese") << true
                                    << QByteArray("Name;Value\r\n"
                                                  "Ações, BR;1234,50\r\n"
                                                  "\"say \"\"hi\"\"\";-0,1235\r\n"
                                                  "\"two\r\nlines\";\r\n"
                                                  "\"semi;colon\";0\r\n");
    }
    void fieldsAreQuotedForTheLocale()
    {
        QFETCH(bool, portuguese);
        QFETCH(QByteArray, expected);
        const QList<QList<CsvCell>> rows{
                {CsvCell::of(QStringLiteral("Ações, BR")), CsvCell::of(1234.5, 2)},
                {CsvCell::of(QStringLiteral("say \"hi\"")), CsvCell::of(-0.12345678, 4)},
                {CsvCell::of(QStringLiteral("two\r\nlines")), CsvCell::of(NAN, 2)},
                {CsvCell::of(QStringLiteral("semi;colon")), CsvCell::of(-0.0001, 0)},
        };
        QCOMPARE(csvDocument({"Name", "Value"}, rows, portuguese), kBom + expected);
    }

    void largeNumbersHaveNoThousandsSeparator()
    {
        const QByteArray document =
                csvDocument({"Market Value"}, {{CsvCell::of(12345678.9, 2)}}, true);
        QCOMPARE(document, kBom + "Market Value\r\n12345678,90\r\n");
    }

    void writtenFileReadsBack()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("exports/positions.csv"));
        const QByteArray document = csvDocument(
                {"Symbol", "Quantity"}, {{CsvCell::of("PETR4.SA"), CsvCell::of(100, 8)}}, false);
        QString error;
        QVERIFY2(writeCsvFile(path, document, &error), qPrintable(error));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), kBom + "Symbol,Quantity\r\nPETR4.SA,100.00000000\r\n");

        // A folder where the file should be cannot be replaced and says why.
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("taken.csv")));
        QVERIFY(!writeCsvFile(dir.filePath(QStringLiteral("taken.csv")), document, &error));
        QVERIFY(!error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestCsvExport)
#include "tst_csv_export.moc"
