#pragma once

#include "sim/server/scenario.h"

#include <open62541/server.h>

namespace opcua_sim {

// Fills a zeroed server configuration from the scenario: logging to standard error
// (warnings and up), listen URL, identity, certificate, security policies, endpoints and
// users. The caller creates the server from it with UA_Server_newWithConfig.
bool configureServer(UA_ServerConfig* config, const Scenario& scenario, QString* error);

// Applies the scenario's operation limits to the running server and publishes them in
// Server.ServerCapabilities. Call after the start-up: the stack's own start-up work must not
// meet them.
bool applyOperationLimits(UA_Server* server, const Scenario& scenario, QString* error);

// The TCP connection manager of the configuration's event loop (null if there is none).
UA_ConnectionManager* tcpConnectionManager(UA_ServerConfig* config);

} // namespace opcua_sim
