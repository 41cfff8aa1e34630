#include "simulated_itick_market.h"

#include "simulated_market/simulated_market.h"

namespace {

SimulatedMarket *marketOf(const std::unique_ptr<QObject> &object)
{
    return static_cast<SimulatedMarket *>(object.get());
}

} // namespace

SimulatedItickMarket::SimulatedItickMarket()
    : m_market(std::make_unique<SimulatedMarket>())
{}

SimulatedItickMarket::~SimulatedItickMarket() = default;

bool SimulatedItickMarket::listen()
{
    return marketOf(m_market)->listenStreams();
}

QString SimulatedItickMarket::streamBaseUrl() const
{
    return marketOf(m_market)->streamBaseUrl();
}

void SimulatedItickMarket::setFrameInterval(int ms)
{
    marketOf(m_market)->itickStreams().setFrameInterval(ms);
}

QString SimulatedItickMarket::applyFault(const QString &setting)
{
    return marketOf(m_market)->applyFault(setting);
}
