#include "sim/server/address_space.h"
#include "sim/server/request_stats.h"
#include "sim/server/scenario.h"
#include "sim/server/server_setup.h"
#include "sim/server/wire_hook.h"

#include <open62541/server.h>

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

volatile std::sig_atomic_t running = 1;

void stopRunning(int)
{
    running = 0;
}

struct Arguments
{
    QString scenarioPath;
    QString statsPath;
    QString listen;
    int port = -1;
};

bool parseArguments(const QStringList& args, Arguments* out, QString* error)
{
    for (int i = 1; i < args.size(); ++i) {
        const QString& option = args.at(i);
        if (i + 1 >= args.size()) {
            *error = QStringLiteral("%1 needs a value").arg(option);
            return false;
        }
        const QString value = args.at(++i);
        if (option == QLatin1String("--scenario")) {
            out->scenarioPath = value;
        } else if (option == QLatin1String("--stats-file")) {
            out->statsPath = value;
        } else if (option == QLatin1String("--listen")) {
            out->listen = value;
        } else if (option == QLatin1String("--port")) {
            bool ok = false;
            out->port = value.toInt(&ok);
            if (!ok || out->port < 1 || out->port > 65535) {
                *error = QStringLiteral("bad port %1").arg(value);
                return false;
            }
        } else {
            *error = QStringLiteral("unknown option %1").arg(option);
            return false;
        }
    }
    if (out->scenarioPath.isEmpty()) {
        *error = QStringLiteral("usage: opcua_sim --scenario FILE [--port N] [--listen ADDR] [--stats-file PATH]");
        return false;
    }
    return true;
}

int fail(const QString& message)
{
    std::fprintf(stderr, "opcua_sim: %s\n", message.toLocal8Bit().constData());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Arguments arguments;
    QString error;
    if (!parseArguments(app.arguments(), &arguments, &error))
        return fail(error);

    opcua_sim::Scenario scenario;
    if (!opcua_sim::loadScenario(arguments.scenarioPath, &scenario, &error))
        return fail(error);
    if (arguments.port > 0)
        scenario.port = static_cast<quint16>(arguments.port);
    if (!arguments.listen.isEmpty())
        scenario.listen = arguments.listen;

    std::signal(SIGTERM, stopRunning);
    std::signal(SIGINT, stopRunning);
    std::signal(SIGPIPE, SIG_IGN);

    UA_ServerConfig config;
    std::memset(&config, 0, sizeof config);
    if (!opcua_sim::configureServer(&config, scenario, &error)) {
        UA_ServerConfig_clean(&config);
        return fail(error);
    }
    opcua_sim::configureHistory(&config);

    opcua_sim::WireHook hook;
    hook.scenario = &scenario;
    hook.stats = opcua_sim::newRequestStats(arguments.statsPath);
    hook.running = &running;
    if (!opcua_sim::installWireHook(&hook, opcua_sim::tcpConnectionManager(&config), &error)) {
        UA_ServerConfig_clean(&config);
        return fail(error);
    }

    UA_Server* server = UA_Server_newWithConfig(&config);
    if (!server)
        return fail(QStringLiteral("creating the server failed"));
    hook.server = server;
    if (!opcua_sim::buildAddressSpace(server, scenario, &error)) {
        UA_Server_delete(server);
        opcua_sim::releaseHistory();
        return fail(error);
    }
    const UA_StatusCode status = UA_Server_run_startup(server);
    if (status != UA_STATUSCODE_GOOD) {
        UA_Server_delete(server);
        opcua_sim::releaseHistory();
        return fail(QStringLiteral("starting the server on %1:%2 failed: %3")
                        .arg(scenario.listen, QString::number(scenario.port),
                             QString::fromLatin1(UA_StatusCode_name(status))));
    }
    // The stack browses its own nodes while it builds and starts, so the limit comes last.
    UA_Server_getConfig(server)->maxReferencesPerNode = scenario.addressSpace.maxReferencesPerNode;
    if (!opcua_sim::applyOperationLimits(server, scenario, &error)) {
        UA_Server_run_shutdown(server);
        UA_Server_delete(server);
        opcua_sim::releaseHistory();
        return fail(error);
    }
    opcua_sim::writeRequestStats(hook.stats);
    std::printf("ready %u\n", static_cast<unsigned>(scenario.port));
    std::fflush(stdout);

    while (running)
        UA_Server_run_iterate(server, true);

    UA_Server_run_shutdown(server);
    UA_Server_delete(server);
    opcua_sim::releaseHistory();
    return 0;
}
