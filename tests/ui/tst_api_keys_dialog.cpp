#include "app/endpoints.h"
#include "app/language.h"
#include "providers/api_keys.h"
#include "ui/api_keys_dialog.h"

#include <QAction>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolButton>

namespace {

QLineEdit *field(const QDialog &dialog, const QString &name)
{
    return dialog.findChild<QLineEdit *>(name);
}

// The button the line edit shows for the eye action: clicking it is what the user does.
QToolButton *eyeButton(QLineEdit *edit)
{
    auto *toggle = edit->findChild<QAction *>(QStringLiteral("toggleKeyVisibility"));
    for (QToolButton *button : edit->findChildren<QToolButton *>()) {
        if (toggle && button->defaultAction() == toggle)
            return button;
    }
    return nullptr;
}

} // namespace

class ApiKeysDialogTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInterfaceLanguage(QStringLiteral("en")); }

    void oneMaskedRowPerCatalogueKey();
    void textsAndEyeFollowLanguage_data();
    void textsAndEyeFollowLanguage();
    void applyToTrimsAndClears_data();
    void applyToTrimsAndClears();
    void saveAppliesAndCancelDoesNot_data();
    void saveAppliesAndCancelDoesNot();
};

void ApiKeysDialogTest::oneMaskedRowPerCatalogueKey()
{
    ApiKeyStore keys;
    keys.setApiKey(QStringLiteral("brapi_token"), QStringLiteral("br-token"));
    keys.setApiKey(QStringLiteral("finnhub_api_key"), QStringLiteral("fh-key"));
    ApiKeysDialog dialog(keys);
    QCOMPARE(dialog.size(), QSize(560, 520));

    const auto *form = dialog.findChild<QFormLayout *>();
    QVERIFY(form);
    const auto catalogue = apiKeyCatalogue();
    QCOMPARE(catalogue.size(), 16u);
    QCOMPARE(form->rowCount(), 16);
    QCOMPARE(dialog.findChildren<QLineEdit *>().size(), 16);
    for (int row = 0; row < form->rowCount(); ++row) {
        const ApiKeyEntry &entry = catalogue[row];
        const auto *label =
                qobject_cast<QLabel *>(form->itemAt(row, QFormLayout::LabelRole)->widget());
        const auto *edit =
                qobject_cast<QLineEdit *>(form->itemAt(row, QFormLayout::FieldRole)->widget());
        QVERIFY(label && edit);
        QCOMPARE(label->text(), entry.displayLabel());
        QCOMPARE(edit->objectName(), QString::fromLatin1(entry.name));
        QCOMPARE(edit->echoMode(), QLineEdit::Password);
        QVERIFY(edit->isClearButtonEnabled());
        QCOMPARE(edit->placeholderText(), entry.description());
        QCOMPARE(edit->text(), keys.apiKey(edit->objectName()));
    }
}

void ApiKeysDialogTest::textsAndEyeFollowLanguage_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("noteStart");
    QTest::addColumn<QString>("newsDescription");
    QTest::addColumn<QString>("save");
    QTest::addColumn<QString>("show");
    QTest::addColumn<QString>("hide");
    QTest::addColumn<QStringList>("labels"); // Binance key, Binance secret, news token, BrAPI
    QTest::newRow("en") << "en"
                        << "API Keys"
                        << "Local keys are saved in the user config folder."
                        << "Optional override for " + houseNewsFeed() << "Save"
                        << "Show key"
                        << "Hide key"
                        << QStringList{"Binance API Key", "Binance API Secret",
                                       "Querlin News Token", "BrAPI"};
    QTest::newRow("pt_BR") << "pt_BR"
                           << "Chaves de API"
                           << "As chaves locais são salvas"
                           << "Substituição opcional de " + houseNewsFeed() << "Salvar"
                           << "Mostrar chave"
                           << "Ocultar chave"
                           << QStringList{"Chave de API da Binance", "Segredo de API da Binance",
                                          "Token de notícias Querlin", "BrAPI"};
}

void ApiKeysDialogTest::textsAndEyeFollowLanguage()
{
    QFETCH(QString, language);
    QFETCH(QString, title);
    QFETCH(QString, noteStart);
    QFETCH(QString, newsDescription);
    QFETCH(QString, save);
    QFETCH(QString, show);
    QFETCH(QString, hide);
    QFETCH(QStringList, labels);
    setInterfaceLanguage(language);

    ApiKeyStore keys;
    keys.setApiKey(QStringLiteral("itick_api_key"), QStringLiteral("it-1"));
    ApiKeysDialog dialog(keys);
    dialog.show();
    QCOMPARE(dialog.windowTitle(), title);
    bool noteFound = false;
    for (const QLabel *label : dialog.findChildren<QLabel *>())
        noteFound = noteFound || (label->text().startsWith(noteStart) && label->wordWrap());
    QVERIFY(noteFound);
    QCOMPARE(field(dialog, QStringLiteral("querlin_news_endpoint"))->placeholderText(),
             newsDescription);
    QCOMPARE(dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Save)->text(), save);
    QStringList shown;
    for (const char *name :
         {"binance_api_key", "binance_api_secret", "querlin_news_token", "brapi_token"}) {
        for (const QLabel *label : dialog.findChildren<QLabel *>()) {
            if (label->buddy() == field(dialog, QString::fromLatin1(name)))
                shown << label->text();
        }
    }
    QCOMPARE(shown, labels);

    QLineEdit *edit = field(dialog, QStringLiteral("itick_api_key"));
    QToolButton *eye = eyeButton(edit);
    QVERIFY(eye);
    const qint64 maskedIcon = eye->icon().cacheKey();
    QCOMPARE(eye->toolTip(), show);

    QTest::mouseClick(eye, Qt::LeftButton);
    QCOMPARE(edit->echoMode(), QLineEdit::Normal);
    QCOMPARE(eye->toolTip(), hide);
    QVERIFY(eye->icon().cacheKey() != maskedIcon);
    QCOMPARE(edit->text(), QStringLiteral("it-1"));
    // The other fields stay masked.
    QCOMPARE(field(dialog, QStringLiteral("brapi_token"))->echoMode(), QLineEdit::Password);

    QTest::mouseClick(eye, Qt::LeftButton);
    QCOMPARE(edit->echoMode(), QLineEdit::Password);
    QCOMPARE(eye->toolTip(), show);
    QCOMPARE(eye->icon().cacheKey(), maskedIcon);
}

void ApiKeysDialogTest::applyToTrimsAndClears_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("listed"); // whether allApiKeys() names the key afterwards
    QTest::newRow("map key trimmed") << "polygon_api_key"
                                     << "  p2\t"
                                     << "p2" << true;
    QTest::newRow("map key emptied") << "polygon_api_key"
                                     << ""
                                     << "" << false;
    QTest::newRow("map key blanked") << "polygon_api_key"
                                     << "   "
                                     << "" << false;
    QTest::newRow("new map key") << "newsapi_api_key"
                                 << " n1 "
                                 << "n1" << true;
    QTest::newRow("dedicated emptied") << "brapi_token"
                                       << " "
                                       << "" << true;
    QTest::newRow("dedicated trimmed") << "alpha_vantage_api_key"
                                       << " av2 "
                                       << "av2" << true;
}

void ApiKeysDialogTest::applyToTrimsAndClears()
{
    QFETCH(QString, name);
    QFETCH(QString, typed);
    QFETCH(QString, expected);
    QFETCH(bool, listed);
    ApiKeyStore keys;
    keys.setApiKey(QStringLiteral("polygon_api_key"), QStringLiteral("p1"));
    keys.setApiKey(QStringLiteral("brapi_token"), QStringLiteral("b1"));
    keys.setApiKey(QStringLiteral("binance_api_key"), QStringLiteral("untouched"));
    ApiKeysDialog dialog(keys);
    field(dialog, name)->setText(typed);

    dialog.applyTo(keys);
    QCOMPARE(keys.apiKey(name), expected);
    QCOMPARE(keys.allApiKeys().contains(name), listed);
    QCOMPARE(keys.apiKey(QStringLiteral("binance_api_key")), QStringLiteral("untouched"));
}

void ApiKeysDialogTest::saveAppliesAndCancelDoesNot_data()
{
    QTest::addColumn<QDialogButtonBox::StandardButton>("button");
    QTest::addColumn<bool>("applied");
    QTest::newRow("save") << QDialogButtonBox::Save << true;
    QTest::newRow("cancel") << QDialogButtonBox::Cancel << false;
}

void ApiKeysDialogTest::saveAppliesAndCancelDoesNot()
{
    QFETCH(QDialogButtonBox::StandardButton, button);
    QFETCH(bool, applied);
    ApiKeyStore keys;
    keys.setApiKey(QStringLiteral("tiingo_api_key"), QStringLiteral("old"));
    bool clicked = false;
    QTimer::singleShot(0, this, [&] {
        QWidget *dialog = QApplication::activeModalWidget();
        QVERIFY(dialog);
        auto *edit = dialog->findChild<QLineEdit *>(QStringLiteral("tiingo_api_key"));
        edit->clear();
        QTest::keyClicks(edit, QStringLiteral(" new "));
        QTest::mouseClick(dialog->findChild<QDialogButtonBox *>()->button(button), Qt::LeftButton);
        clicked = true;
    });
    QCOMPARE(runApiKeysDialog(keys), applied);
    QVERIFY(clicked);
    QCOMPARE(keys.apiKey(QStringLiteral("tiingo_api_key")),
             applied ? QStringLiteral("new") : QStringLiteral("old"));
}

QTEST_MAIN(ApiKeysDialogTest)
#include "tst_api_keys_dialog.moc"
