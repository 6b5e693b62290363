#pragma once

#include "sim/support/server_process.h"

#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

namespace test_support {

// One opcua_sim process on a free loopback port (scenario format: sim/README.md).
// Stops the process when it goes out of scope.
class SimServer
{
public:
    // Stats::None: no stats file, whose rewrite after every request would dominate a long browse.
    enum class Stats { File, None };

    explicit SimServer(Stats stats = Stats::File);
    ~SimServer();
    SimServer(const SimServer&) = delete;
    SimServer& operator=(const SimServer&) = delete;

    // Writes the scenario into its own temporary directory and starts the simulator on it.
    bool start(const QJsonObject& scenario, QString* error);
    bool startFile(const QString& scenarioPath, QString* error);
    void stop();
    bool running() const;

    // A server that goes away in the middle of a session: killed at once (SIGKILL), frozen
    // (SIGSTOP) and thawed again, or killed and started again with the same scenario on the
    // same port.
    bool kill();
    bool freeze();
    bool thaw();
    bool restart(QString* error);

    quint16 port() const;
    QString endpointUrl() const;  // opc.tcp://127.0.0.1:PORT
    // The request counters of the stats file; empty before the start.
    QJsonObject stats() const;
    // The counters once counter key has reached expected, or as they are after five seconds: the
    // file is written after each counted message, which may come after the call that sent it has
    // returned (a close is not answered).
    QJsonObject statsOnceSettled(const QString& key, int expected) const;
    QString statsFilePath() const;

private:
    bool launch(const QString& scenarioPath, quint16 port, QString* error);

    QTemporaryDir dir_;
    QString scenarioPath_;
    ServerProcess process_;
    Stats statsMode_;
};

QString simExecutable();
// A loopback port that nothing listened on a moment ago.
quint16 freeLoopbackPort();

} // namespace test_support
