#pragma once

#include "sim/support/server_process.h"

#include <QString>
#include <QStringList>

namespace test_support {

// One node-opcua process (sim/node) on a free loopback port: the peer server
// (peer_server.js) or the local discovery server (discovery_server.js). Options
// are those of the scripts (sim/node/README.md). Stops the process when it goes
// out of scope; the process also ends by itself when the test process dies.
class NodePeer
{
public:
    NodePeer();
    ~NodePeer();
    NodePeer(const NodePeer&) = delete;
    NodePeer& operator=(const NodePeer&) = delete;

    bool start(const QStringList& args, QString* error);
    bool startDiscoveryServer(const QStringList& args, QString* error);
    void stop();
    bool running() const;
    // Kills the process at once (SIGKILL), as a server that dies.
    bool kill();

    quint16 port() const;
    // opc.tcp://127.0.0.1:PORT followed by the --path given, if any.
    QString endpointUrl() const;

    // True when node is installed and sim/node/node_modules holds node-opcua.
    static bool available(QString* why);

private:
    bool launch(const QString& script, const QStringList& args, QString* error);

    ServerProcess process_;
    QString path_;
};

QString nodeExecutable();
QString nodeSimDir();

} // namespace test_support
