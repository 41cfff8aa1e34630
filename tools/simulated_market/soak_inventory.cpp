#include "simulated_market/soak_inventory.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString numberText(const QJsonValue &value)
{
    return QString::number(value.toDouble(), 'g', 12);
}

QJsonObject objectOf(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

void listPortfolios(const QJsonObject &settings, QStringList *lines)
{
    QJsonValue store = settings.value(QStringLiteral("portfolios"));
    if (!store.isObject())
        store = settings.value(QStringLiteral("portfolio"));
    for (const QJsonValue &item : store.toObject().value(QStringLiteral("items")).toArray()) {
        const QJsonObject portfolio = item.toObject();
        const QString name = portfolio.value(QStringLiteral("name")).toString();
        lines->append(
                QStringLiteral("portfolio %1 %2")
                        .arg(name, portfolio.value(QStringLiteral("base_currency")).toString()));
        for (const QJsonValue &entry : portfolio.value(QStringLiteral("positions")).toArray()) {
            const QJsonObject position = entry.toObject();
            lines->append(
                    QStringLiteral("position %1 %2 %3 %4")
                            .arg(name, position.value(QStringLiteral("symbol")).toString(),
                                 numberText(position.value(QStringLiteral("quantity"))),
                                 numberText(position.value(QStringLiteral("average_price")))));
        }
        for (const QJsonValue &entry : portfolio.value(QStringLiteral("transactions")).toArray()) {
            const QJsonObject flow = entry.toObject();
            lines->append(QStringLiteral("transaction %1 %2 %3 %4 %5 %6")
                                  .arg(name, flow.value(QStringLiteral("timestamp")).toString(),
                                       flow.value(QStringLiteral("type")).toString(),
                                       flow.value(QStringLiteral("symbol")).toString(),
                                       numberText(flow.value(QStringLiteral("amount"))),
                                       flow.value(QStringLiteral("currency")).toString()));
        }
    }
}

void listAlertsAndDrawings(const QJsonObject &settings, QStringList *lines)
{
    for (const QJsonValue &entry : settings.value(QStringLiteral("alerts")).toArray()) {
        const QJsonObject alert = entry.toObject();
        lines->append(QStringLiteral("alert %1 %2 %3%4")
                              .arg(alert.value(QStringLiteral("symbol")).toString(),
                                   alert.value(QStringLiteral("above")).toBool() ? ">=" : "<=",
                                   numberText(alert.value(QStringLiteral("target"))),
                                   alert.value(QStringLiteral("repeating")).toBool()
                                           ? QStringLiteral(" repeating")
                                           : QString()));
    }
    const QJsonObject drawings = settings.value(QStringLiteral("drawings")).toObject();
    for (auto chart = drawings.begin(); chart != drawings.end(); ++chart) {
        for (const QJsonValue &entry : chart.value().toArray()) {
            const QJsonObject drawing = entry.toObject();
            lines->append(QStringLiteral("drawing %1 %2 %3 %4 %5 %6 %7")
                                  .arg(chart.key(),
                                       drawing.value(QStringLiteral("type")).toString(),
                                       numberText(drawing.value(QStringLiteral("price1"))),
                                       numberText(drawing.value(QStringLiteral("price2"))),
                                       numberText(drawing.value(QStringLiteral("index1"))),
                                       numberText(drawing.value(QStringLiteral("index2"))),
                                       drawing.value(QStringLiteral("label")).toString()));
        }
    }
}

} // namespace

QStringList soakInventory(const QByteArray &watchlistJson, const QByteArray &settingsJson)
{
    QStringList lines;
    for (const QJsonValue &row : objectOf(watchlistJson).value(QStringLiteral("symbols")).toArray())
        lines.append(QStringLiteral("row %1").arg(
                row.toObject().value(QStringLiteral("symbol")).toString()));
    const QJsonObject settings = objectOf(settingsJson);
    listPortfolios(settings, &lines);
    listAlertsAndDrawings(settings, &lines);
    lines.sort();
    return lines;
}

QStringList soakInventoryOfFolder(const QString &configFolder, QString *problem)
{
    const auto read = [&configFolder, problem](const char *name) {
        QFile file(configFolder + QLatin1Char('/') + QLatin1String(name));
        if (!file.open(QIODevice::ReadOnly)) {
            if (problem)
                *problem = QStringLiteral("cannot read %1: %2")
                                   .arg(file.fileName(), file.errorString());
            return QByteArray();
        }
        return file.readAll();
    };
    const QByteArray watchlist = read("watchlists/default.json");
    const QByteArray settings = read("local.json");
    return soakInventory(watchlist, settings);
}
