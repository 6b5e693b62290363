#pragma once

#include <open62541/client.h>

#include <cstddef>

// The operation limits a server publishes in Server.ServerCapabilities; 0 where it publishes
// none or the read failed. MaxNodesPerRead counts ReadValueIds (one per attribute), not nodes.
struct ServerLimits
{
    size_t maxNodesPerBrowse = 0;
    size_t maxNodesPerRead = 0;
    size_t maxBrowseContinuationPoints = 0;
    double readMs = 0;   // how long the read took; 0 when it failed
};

// Reads the three limits in one Read.
ServerLimits readServerLimits(UA_Client* client);
