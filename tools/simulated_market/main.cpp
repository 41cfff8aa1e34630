#include "simulated_market/simulated_market.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

void fail(const QString &message)
{
    std::fprintf(stderr, "querlin-simulated-market: %s\n", qPrintable(message));
    std::exit(2);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("querlin-simulated-market"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
            "Plays the market-data providers of Terminal Querlin on 127.0.0.1 with simulated "
            "prices.\n\nPoint the terminal at it with QRL_ENDPOINT_*=http://127.0.0.1:<port>, and "
            "QRL_ENDPOINT_BINANCE_STREAM=ws://127.0.0.1:<stream port> (Binance's combined "
            "streams: /stream?streams=<pair>@ticker/<pair>@depth20@100ms/<pair>@trade), and "
            "QRL_ENDPOINT_ITICK_STREAM at the same stream port (iTick's stock stream: /stock).\n"
            "Providers: yahoo, yahoo_rss (headline feed), brapi, binance, finnhub, twelvedata, "
            "fmp, alpha_vantage, newsapi, querlin_news (the house news feed), and binance_ws and "
            "itick_ws for the streams (or all).\n"
            "Faults: none, 429, 5xx, html, limit, note, malformed, slow:<ms>, silent; for "
            "binance_ws and itick_ws: none, silent, close, garbage, short_depth.\n"
            "At run time: GET /__sim/fault?provider=<id>&kind=<fault>, GET /__sim/health."));
    parser.addHelpOption();
    const QCommandLineOption portOption(
            QStringLiteral("port"),
            QStringLiteral("Port to listen on, 8765 by default (0: any free one)."),
            QStringLiteral("N"), QStringLiteral("8765"));
    const QCommandLineOption streamPortOption(
            QStringLiteral("stream-port"),
            QStringLiteral(
                    "Port of the Binance and iTick streams, 8766 by default (0: any free one)."),
            QStringLiteral("N"), QStringLiteral("8766"));
    const QCommandLineOption seedOption(QStringLiteral("seed"),
                                        QStringLiteral("Seed of the price series, 42 by default."),
                                        QStringLiteral("N"), QStringLiteral("42"));
    const QCommandLineOption faultOption(
            QStringLiteral("fault"),
            QStringLiteral("Start with a provider misbehaving, e.g. finnhub=429 (repeatable)."),
            QStringLiteral("provider=kind"));
    const QCommandLineOption morePortsOption(
            QStringLiteral("more-ports"),
            QStringLiteral("Also answer on this many more free ports, so each provider can be "
                           "pointed at a port of its own (0 by default)."),
            QStringLiteral("N"), QStringLiteral("0"));
    parser.addOptions({portOption, streamPortOption, seedOption, faultOption, morePortsOption});
    parser.process(app);

    bool ok = false;
    const uint port = parser.value(portOption).toUInt(&ok);
    if (!ok || port > 65535)
        fail(QStringLiteral("--port wants a number from 0 to 65535"));
    const uint streamPort = parser.value(streamPortOption).toUInt(&ok);
    if (!ok || streamPort > 65535)
        fail(QStringLiteral("--stream-port wants a number from 0 to 65535"));
    const quint64 seed = parser.value(seedOption).toULongLong(&ok);
    if (!ok)
        fail(QStringLiteral("--seed wants a whole number"));
    const uint morePorts = parser.value(morePortsOption).toUInt(&ok);
    if (!ok || morePorts > 32)
        fail(QStringLiteral("--more-ports wants a number from 0 to 32"));

    SimulatedMarket market(seed);
    for (const QString &setting : parser.values(faultOption)) {
        const QString problem = market.applyFault(setting);
        if (!problem.isEmpty())
            fail(QStringLiteral("--fault: %1").arg(problem));
    }
    if (!market.listen(quint16(port))) {
        std::fprintf(stderr, "querlin-simulated-market: cannot listen on 127.0.0.1:%u: %s\n", port,
                     qPrintable(market.errorString()));
        return 1;
    }
    if (!market.listenStreams(quint16(streamPort))) {
        std::fprintf(stderr, "querlin-simulated-market: cannot listen on 127.0.0.1:%u: %s\n",
                     streamPort, qPrintable(market.streamErrorString()));
        return 1;
    }
    QObject::connect(&market, &SimulatedMarket::served,
                     [](const QString &line) { std::fprintf(stderr, "%s\n", qPrintable(line)); });

    std::printf("simulated market listening on %s\n", qPrintable(market.baseUrl()));
    for (uint i = 0; i < morePorts; ++i) {
        const QString url = market.listenAlso();
        if (url.isEmpty())
            fail(QStringLiteral("cannot listen on one more port"));
        std::printf("simulated market also listening on %s\n", qPrintable(url));
    }
    std::printf("simulated market streams on %s\n", qPrintable(market.streamBaseUrl()));
    std::fflush(stdout);
    return app.exec();
}
