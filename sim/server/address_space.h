#pragma once

#include "sim/server/scenario.h"

#include <open62541/server.h>

namespace opcua_sim {

// Node id text of the variable whose AccessLevel read is made to fail on the wire.
inline const char* accessLevelReadFailsId() { return "Access.LevelReadFails"; }

// Installs the history database into the configuration; call before the server is created.
void configureHistory(UA_ServerConfig* config);

// Frees the history stores; call after the server is deleted.
void releaseHistory();

// Adds the scenario's presets below the Objects folder, all in namespace 1.
bool buildAddressSpace(UA_Server* server, const Scenario& scenario, QString* error);

} // namespace opcua_sim
