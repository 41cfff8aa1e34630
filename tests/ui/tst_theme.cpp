#include "ui/theme.h"

#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QStyle>
#include <QTableWidget>
#include <QTest>
#include <QVBoxLayout>

namespace {

// A small window with the named widgets the sheets bind to, polished under one theme.
struct ThemedWindow
{
    explicit ThemedWindow(const QString &themeId)
    {
        auto *central = new QWidget;
        auto *layout = new QVBoxLayout(central);
        const auto add = [&](QWidget *widget, const char *name) {
            widget->setObjectName(QLatin1StringView(name));
            layout->addWidget(widget);
        };
        add(new QLabel(QStringLiteral("Terminal Querlin")), "terminalTitle");
        add(new QLabel(QStringLiteral("MARKET MOVERS")), "panelTitle");
        add(new QLabel(QStringLiteral("USD/BRL --")), "fxTicker");
        add(new QLabel(QStringLiteral("PETR4.SA 38.20")), "quoteTile");
        add(new QLineEdit, "tickerSearch");
        add(new QTableWidget(4, 3), "marketTable");
        add(new QPushButton(QStringLiteral("Select")), "chartToolButton");
        add(new QPlainTextEdit, "eventConsole");
        window.setCentralWidget(central);
        window.setStyleSheet(themeStyleSheet(themeId));
        window.ensurePolished();
        for (QWidget *widget : window.findChildren<QWidget *>())
            widget->ensurePolished();
    }

    QWidget *named(const QString &name)
    {
        return name.isEmpty() ? &window : window.findChild<QWidget *>(name);
    }

    // What the window does when a quote moves: a new property value needs a re-polish.
    void setDirection(const QString &name, const char *direction)
    {
        QWidget *label = named(name);
        label->setProperty("direction", QString::fromLatin1(direction));
        label->style()->unpolish(label);
        label->style()->polish(label);
    }

    QColor colour(const QString &name, QPalette::ColorRole role)
    {
        return named(name)->palette().color(QPalette::Active, role);
    }

    QMainWindow window;
};

} // namespace

class ThemeTest : public QObject
{
    Q_OBJECT

private slots:
    // A typo in the template makes Qt drop the whole sheet with nothing but a warning.
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("stylesheet"))); }

    void onlyTheExactLightIdIsLight_data();
    void onlyTheExactLightIdIsLight();
    void sheetCarriesEveryTableColour_data();
    void sheetCarriesEveryTableColour();
    void namedWidgetsResolveThemeColours_data();
    void namedWidgetsResolveThemeColours();
    void titlesAreLargeAndHeavy();
    void paletteAgreesWithSheet();
};

void ThemeTest::onlyTheExactLightIdIsLight_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("light");
    QTest::newRow("light") << "qrl_light" << true;
    QTest::newRow("dark") << "coffee_dark" << false;
    QTest::newRow("loose word") << "light" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("other case") << "QRL_LIGHT" << false;
}

void ThemeTest::onlyTheExactLightIdIsLight()
{
    QFETCH(QString, stored);
    QFETCH(bool, light);
    const QString normalized = QString::fromLatin1(light ? kLightThemeId : kDarkThemeId);
    QCOMPARE(normalizedThemeId(stored), normalized);
    QCOMPARE(isLightTheme(stored), light);
    QCOMPARE(themeStyleSheet(stored), themeStyleSheet(normalized));
}

void ThemeTest::sheetCarriesEveryTableColour_data()
{
    QTest::addColumn<QString>("themeId");
    QTest::addColumn<QString>("colours"); // separated by ";"
    // Every colour of each theme's table, exactly as written there.
    QTest::newRow("qrl_light") << "qrl_light"
                               << "#f5f9ff;#1a1a1a;#ffffff;#24435f;#d8e5f2;#e7f1fb;#004472;#006cb4;"
                                  "#4e6174;rgba(0, 108, 180, 0.28);#009d5b;#d64242;#d9ecfb;"
                                  "#e0e0e0;#edf4fb";
    QTest::newRow("coffee_dark") << "coffee_dark"
                                 << "#0f0a06;#f1e4d6;#1a140d;#3d3530;#392613;#ffb84d;#ff9900;"
                                    "#d8c6b5;rgba(191, 128, 64, 0.45);#ffcc80;#20c878;#f45d5d;"
                                    "#3d3024;#fff4e6;#1a0f08;#0d0906;#2b2119;#ffffff;#ffd39a;"
                                    "#080503";
}

void ThemeTest::sheetCarriesEveryTableColour()
{
    QFETCH(QString, themeId);
    QFETCH(QString, colours);
    const QString sheet = themeStyleSheet(themeId);
    for (const QString &colour : colours.split(QLatin1Char(';')))
        QVERIFY2(sheet.contains(colour), qPrintable(colour));
    QVERIFY(!sheet.contains(QLatin1Char('@'))); // every template token was filled
}

void ThemeTest::namedWidgetsResolveThemeColours_data()
{
    QTest::addColumn<QString>("themeId");
    QTest::addColumn<QString>("widget");       // object name; empty for the main window
    QTest::addColumn<QByteArray>("direction"); // set on the widget first when not empty
    QTest::addColumn<QPalette::ColorRole>("role");
    QTest::addColumn<QColor>("expected");
    const auto row = [](const char *theme, const char *widget, QPalette::ColorRole role,
                        const char *colour, const char *direction = "") {
        QTest::addRow("%s %s %s %d", theme, *widget ? widget : "window", direction, int(role))
                << QString::fromLatin1(theme) << QString::fromLatin1(widget)
                << QByteArray(direction) << role << QColor(QLatin1StringView(colour));
    };
    for (const char *theme : {"qrl_light", "coffee_dark"}) {
        const bool light = theme == QLatin1StringView(kLightThemeId);
        row(theme, "", QPalette::Window, light ? "#f5f9ff" : "#0f0a06");
        row(theme, "fxTicker", QPalette::WindowText, light ? "#004472" : "#ffcc80");
        row(theme, "fxTicker", QPalette::Window, light ? "#ffffff" : "#1a140d");
        row(theme, "quoteTile", QPalette::WindowText, light ? "#24435f" : "#d8c6b5");
        for (const char *label : {"fxTicker", "quoteTile"}) {
            row(theme, label, QPalette::WindowText, light ? "#009d5b" : "#20c878", "up");
            row(theme, label, QPalette::WindowText, light ? "#d64242" : "#f45d5d", "down");
        }
        row(theme, "terminalTitle", QPalette::WindowText, light ? "#006cb4" : "#ff9900");
        row(theme, "panelTitle", QPalette::WindowText, light ? "#006cb4" : "#ff9900");
        row(theme, "tickerSearch", QPalette::Base, light ? "#ffffff" : "#1a140d");
        row(theme, "tickerSearch", QPalette::Highlight, light ? "#006cb4" : "#ff9900");
        row(theme, "marketTable", QPalette::Base, light ? "#ffffff" : "#0d0906");
        row(theme, "marketTable", QPalette::AlternateBase, light ? "#f5f9ff" : "#1a140d");
        row(theme, "marketTable", QPalette::Highlight, light ? "#d9ecfb" : "#392613");
        row(theme, "marketTable", QPalette::HighlightedText, light ? "#1a1a1a" : "#ffffff");
        row(theme, "chartToolButton", QPalette::ButtonText, light ? "#004472" : "#fff4e6");
        row(theme, "eventConsole", QPalette::Base, light ? "#ffffff" : "#080503");
        row(theme, "eventConsole", QPalette::Text, light ? "#24435f" : "#d8c6b5");
    }
}

void ThemeTest::namedWidgetsResolveThemeColours()
{
    QFETCH(QString, themeId);
    QFETCH(QString, widget);
    QFETCH(QByteArray, direction);
    QFETCH(QPalette::ColorRole, role);
    QFETCH(QColor, expected);
    ThemedWindow w(themeId);
    QVERIFY(w.named(widget));
    if (!direction.isEmpty())
        w.setDirection(widget, direction.constData());
    QCOMPARE(w.colour(widget, role), expected);
}

void ThemeTest::titlesAreLargeAndHeavy()
{
    for (const char *theme : {kLightThemeId, kDarkThemeId}) {
        ThemedWindow w(QString::fromLatin1(theme));
        QCOMPARE(w.window.font().pixelSize(), 13);
        QCOMPARE(w.named(QStringLiteral("terminalTitle"))->font().pixelSize(), 18);
        for (const char *name : {"terminalTitle", "panelTitle", "fxTicker"})
            QCOMPARE(w.named(QLatin1StringView(name))->font().weight(), QFont::ExtraBold);
    }
}

void ThemeTest::paletteAgreesWithSheet()
{
    const ThemePalette &light = themePalette(true);
    const ThemePalette &dark = themePalette(false);
    QCOMPARE(light.id, QStringLiteral("qrl_light"));
    QCOMPARE(dark.id, QStringLiteral("coffee_dark"));
    QCOMPARE(light.fxTickerText, QColor("#004472"));
    QCOMPARE(dark.eventConsoleBackground, QColor("#080503"));
    // Candles follow the up/down text colours of their theme.
    QCOMPARE(light.upCandle, QColor("#009d5b"));
    QCOMPARE(light.downCandle, light.downText);
    QCOMPARE(dark.upCandle, dark.upText);
    QCOMPARE(dark.downCandle, QColor("#f45d5d"));
    // Translucent borders keep their alpha for painters too.
    QCOMPARE(light.inputBorder.rgb(), QColor(0, 108, 180).rgb());
    QCOMPARE(qRound(light.inputBorder.alphaF() * 100), 28);
    QCOMPARE(qRound(dark.buttonBorder.alphaF() * 100), 45);
}

QTEST_MAIN(ThemeTest)
#include "tst_theme.moc"
