#pragma once

#include <QObject>
#include <QString>

#include <memory>

// The simulated market seen through a narrow window, so a test can hold it beside the terminal's
// stream readers: both sides have a BookLevel of their own and cannot share a translation unit.
class SimulatedItickMarket
{
public:
    SimulatedItickMarket();
    ~SimulatedItickMarket();

    bool listen(); // the streams' port, chosen by the system
    QString streamBaseUrl() const;
    void setFrameInterval(int ms);
    QString applyFault(const QString &setting); // empty when taken

private:
    std::unique_ptr<QObject> m_market;
};
