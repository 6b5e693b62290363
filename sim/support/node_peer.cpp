#include "sim/support/node_peer.h"

#include "sim/support/process_runner.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>

namespace test_support {

namespace {

// node-opcua loads the standard address space at start-up: seconds on an idle
// machine, much longer while the whole suite builds and runs on two cores.
constexpr int readyTimeoutMs = 90000;

QString optionValue(const QStringList& args, const QString& option)
{
    const int index = args.lastIndexOf(option);
    if (index >= 0 && index + 1 < args.size())
        return args.at(index + 1);
    const QString prefix = option + QLatin1Char('=');
    for (int i = args.size() - 1; i >= 0; --i) {
        if (args.at(i).startsWith(prefix))
            return args.at(i).mid(prefix.size());
    }
    return {};
}

} // namespace

QString nodeExecutable()
{
    return QStandardPaths::findExecutable(QStringLiteral("node"));
}

QString nodeSimDir()
{
    return sourceDir() + QStringLiteral("/sim/node");
}

bool NodePeer::available(QString* why)
{
    if (nodeExecutable().isEmpty()) {
        if (why)
            *why = QStringLiteral("node is not installed");
        return false;
    }
    if (!QFileInfo::exists(nodeSimDir() + QStringLiteral("/node_modules/node-opcua/package.json"))) {
        if (why)
            *why = QStringLiteral("node-opcua is not installed: run npm ci in %1").arg(nodeSimDir());
        return false;
    }
    return true;
}

NodePeer::NodePeer() = default;

NodePeer::~NodePeer()
{
    stop();
}

bool NodePeer::start(const QStringList& args, QString* error)
{
    return launch(QStringLiteral("peer_server.js"), args, error);
}

bool NodePeer::startDiscoveryServer(const QStringList& args, QString* error)
{
    return launch(QStringLiteral("discovery_server.js"), args, error);
}

bool NodePeer::launch(const QString& script, const QStringList& args, QString* error)
{
    stop();
    if (!available(error))
        return false;
    // Port 0: the script binds a free port itself and reports it, so no other
    // process can take the port between a probe and the bind.
    QStringList arguments{nodeSimDir() + QLatin1Char('/') + script, QStringLiteral("--port"), QStringLiteral("0"),
                          QStringLiteral("--listen"), QStringLiteral("127.0.0.1"),
                          QStringLiteral("--exit-on-stdin-close")};
    arguments += args;
    path_ = optionValue(args, QStringLiteral("--path"));
    if (path_ == QLatin1String("/"))
        path_.clear();
    else if (!path_.isEmpty() && !path_.startsWith(QLatin1Char('/')))
        path_.prepend(QLatin1Char('/'));

    ServerProcess::Options options;
    options.workingDirectory = nodeSimDir();
    options.readyTimeoutMs = readyTimeoutMs;
    if (process_.start(nodeExecutable(), arguments, options, error))
        return true;
    *error = script + QStringLiteral(": ") + *error;
    path_.clear();
    return false;
}

void NodePeer::stop()
{
    process_.stop();
    path_.clear();
}

bool NodePeer::kill()
{
    return process_.sendSignal(SIGKILL);
}

bool NodePeer::running() const
{
    return process_.running();
}

quint16 NodePeer::port() const
{
    return process_.port();
}

QString NodePeer::endpointUrl() const
{
    return QStringLiteral("opc.tcp://127.0.0.1:%1%2").arg(QString::number(port()), path_);
}

} // namespace test_support
