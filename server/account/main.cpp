#include "account/account_service.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>

namespace {

int fail(const QString &message)
{
    std::fprintf(stderr, "querlin-account-service: %s\n", qPrintable(message));
    return 2;
}

// "ADDR:PORT", "[v6]:PORT" or a bare port.
bool readListen(const QString &text, QHostAddress *address, quint16 *port)
{
    const qsizetype colon = text.lastIndexOf(QLatin1Char(':'));
    QString host = colon < 0 ? QStringLiteral("127.0.0.1") : text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    if (host == QLatin1String("localhost"))
        host = QStringLiteral("127.0.0.1");
    bool ok = false;
    const uint number = text.mid(colon + 1).toUInt(&ok);
    if (!ok || number > 65535 || !address->setAddress(host))
        return false;
    *port = quint16(number);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("querlin-account-service"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
            "The account service of Terminal Querlin: sign-in sessions, the browser sign-in, "
            "account sync and the house news feed, kept in one SQLite file.\n\n"
            "Point the terminal at it with QRL_ENDPOINT_ACCOUNT=http://ADDR:PORT."));
    parser.addHelpOption();
    const QCommandLineOption listenOption(
            QStringLiteral("listen"),
            QStringLiteral("Address and port to serve on, 127.0.0.1:8780 by default (port 0: any "
                           "free one)."),
            QStringLiteral("ADDR:PORT"), QStringLiteral("127.0.0.1:8780"));
    const QCommandLineOption databaseOption(
            QStringLiteral("database"),
            QStringLiteral("SQLite file of the accounts, created when missing (default: "
                           "accounts.sqlite in the application data folder)."),
            QStringLiteral("FILE"));
    const QCommandLineOption newsOption(
            QStringLiteral("news"),
            QStringLiteral("JSON file of the house news feed: an object with the arrays "
                           "\"domestic\", \"international\" and \"crypto\". Read again when it "
                           "changes."),
            QStringLiteral("FILE"));
    const QCommandLineOption certOption(QStringLiteral("tls-cert"),
                                        QStringLiteral("PEM certificate; serve HTTPS."),
                                        QStringLiteral("FILE"));
    const QCommandLineOption keyOption(QStringLiteral("tls-key"),
                                       QStringLiteral("PEM private key of --tls-cert."),
                                       QStringLiteral("FILE"));
    const QCommandLineOption addUserOption(
            QStringLiteral("add-user"),
            QStringLiteral("Create an account and exit; the password is the first line of the "
                           "standard input."),
            QStringLiteral("EMAIL"));
    const QCommandLineOption firstNameOption(QStringLiteral("first-name"),
                                             QStringLiteral("First name for --add-user."),
                                             QStringLiteral("NAME"));
    parser.addOptions({listenOption, databaseOption, newsOption, certOption, keyOption,
                       addUserOption, firstNameOption});
    parser.process(app);

    QHostAddress address;
    quint16 port = 0;
    if (!readListen(parser.value(listenOption), &address, &port))
        return fail(QStringLiteral("--listen wants ADDR:PORT, e.g. 127.0.0.1:8780"));

    AccountService::Options options;
    options.databasePath = parser.value(databaseOption);
    if (options.databasePath.isEmpty()) {
        const QString folder =
                QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
        QDir().mkpath(folder);
        options.databasePath = folder + QStringLiteral("/accounts.sqlite");
    }
    options.newsFile = parser.value(newsOption);
    if (!options.newsFile.isEmpty() && !QFileInfo::exists(options.newsFile))
        return fail(QStringLiteral("--news: %1 does not exist").arg(options.newsFile));

    AccountService service;
    QString error;
    const bool databaseOpen = service.open(options, &error);

    if (parser.isSet(addUserOption)) {
        if (!databaseOpen)
            return fail(QStringLiteral("cannot open %1: %2").arg(options.databasePath, error));
        QTextStream input(stdin);
        const QString password = input.readLine();
        if (!service.addUser(parser.value(addUserOption), password, parser.value(firstNameOption),
                             &error))
            return fail(error);
        std::printf("added %s\n", qPrintable(parser.value(addUserOption).trimmed().toLower()));
        return 0;
    }
    if (!databaseOpen) {
        std::fprintf(stderr,
                     "querlin-account-service: cannot open %s: %s; answering "
                     "database_unavailable until restarted\n",
                     qPrintable(options.databasePath), qPrintable(error));
    }

    if (parser.isSet(certOption) != parser.isSet(keyOption))
        return fail(QStringLiteral("--tls-cert and --tls-key go together"));
    if (parser.isSet(certOption) &&
        !service.setTls(parser.value(certOption), parser.value(keyOption), &error))
        return fail(QStringLiteral("cannot serve HTTPS: %1").arg(error));

    if (!service.listen(address, port))
        return fail(QStringLiteral("cannot listen on %1").arg(parser.value(listenOption)));
    std::printf("account service listening on %s\n", qPrintable(service.baseUrl()));
    std::fflush(stdout);
    return app.exec();
}
