#pragma once

#include "client_core/node_read.h"

#include <open62541/client.h>

// The OPC UA node identifier of a configured data point. The caller owns the result.
UA_NodeId getNodeId(DataPoint* node);
