#pragma once

#include "ua/holders.h"

#include <open62541/client.h>
#include <open62541/client_highlevel.h>

// The OPC UA services the client core calls, typed, each answer owned by a holder.
namespace Ua {

inline BrowseResponseHolder browse(UA_Client* client, const UA_BrowseRequest& request)
{
    return BrowseResponseHolder(UA_Client_Service_browse(client, request));
}

inline BrowseNextResponseHolder browseNext(UA_Client* client, const UA_BrowseNextRequest& request)
{
    return BrowseNextResponseHolder(UA_Client_Service_browseNext(client, request));
}

inline ReadResponseHolder read(UA_Client* client, const UA_ReadRequest& request)
{
    return ReadResponseHolder(UA_Client_Service_read(client, request));
}

inline WriteResponseHolder write(UA_Client* client, const UA_WriteRequest& request)
{
    return WriteResponseHolder(UA_Client_Service_write(client, request));
}

// Single attribute reads, each one Read of one attribute as the stack's attribute read sends it.
inline UA_StatusCode readValue(UA_Client* client, const UA_NodeId& nodeId, VariantHolder* value)
{
    return UA_Client_readValueAttribute(client, nodeId, value->get());
}

inline UA_StatusCode readDataType(UA_Client* client, const UA_NodeId& nodeId, NodeIdHolder* dataType)
{
    return UA_Client_readDataTypeAttribute(client, nodeId, dataType->get());
}

} // namespace Ua
