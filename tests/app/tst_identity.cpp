#include "app/identity.h"

#include <QApplication>
#include <QTest>

class IdentityTest : public QObject
{
    Q_OBJECT

private slots:
    void identityAndIconAreSet();
};

void IdentityTest::identityAndIconAreSet()
{
    applyApplicationIdentity(*qApp);
    QCOMPARE(QCoreApplication::organizationName(), QStringLiteral("Querlin"));
    QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("Terminal Querlin"));
    QCOMPARE(QCoreApplication::applicationVersion(), QStringLiteral("0.1.0"));
    QVERIFY(!QCoreApplication::organizationDomain().isEmpty());

    // The icon is compiled in and sharp at both ends of the scale.
    const QPixmap big(QString::fromLatin1(kApplicationIconPath));
    QCOMPARE(big.size(), QSize(256, 256));
    QVERIFY(!QApplication::windowIcon().isNull());
    QVERIFY(!QApplication::windowIcon().pixmap(16, 16).isNull());
}

QTEST_MAIN(IdentityTest)
#include "tst_identity.moc"
