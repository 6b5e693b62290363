#pragma once

#include "client_core/opc_ua_client_core.h"

#include <open62541/client.h>

// The OPC UA node identifier of a configured data point. The caller owns the result.
UA_NodeId getNodeId(ClientCore::Node* node);

// Per-response callback of UA_Client_HistoryRead_raw; handle is a QList<UA_DataValue>* the caller clears.
UA_Boolean readHist(UA_Client* client, const UA_NodeId* nodeId, UA_Boolean moreDataAvailable,
                    const UA_ExtensionObject* data, void* handle);
