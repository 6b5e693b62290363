#pragma once

#include "sim/support/process_runner.h"

#include <QString>
#include <QStringList>

namespace test_support {

// One plant of sim/plant (network namespaces with a gateway and server hosts).
// Every instance has a plant name of its own, unique in this run (pid and a
// counter), so that tests may bring up plants side by side. The destructor
// takes the plant down.
class Plant
{
public:
    Plant();
    explicit Plant(QString name);
    ~Plant();
    Plant(const Plant&) = delete;
    Plant& operator=(const Plant&) = delete;

    // plantFile: a plant.json or the folder holding one.
    bool up(const QString& plantFile, QString* error);
    // Runs a program on the gateway host, inside its namespace.
    ProcessResult execOnGateway(const QString& program, const QStringList& args, int timeoutMs = 30000) const;
    ProcessResult status() const;
    void down();

    QString name() const { return name_; }
    // The namespace names of this plant that exist right now.
    QStringList namespaces() const;

    // Runs sim/plant with this plant's name.
    ProcessResult run(const QStringList& args, int timeoutMs) const;

    static QString script();
    // True when plants can be built here: root, ip, node with node-opcua, python3.
    static bool available(QString* why);

private:
    QString name_;
    bool up_ = false;
};

} // namespace test_support
