#pragma once

#include "ua/client.h"
#include "ua/holders.h"

#include <open62541/client.h>
#include <open62541/client_highlevel.h>

// The OPC UA services the client core calls, typed, each answer owned by a holder. A client that
// must not reconnect and has lost its connection gets BadServerNotConnected, and nothing is sent
// (see NoReconnectScope).
namespace Ua {

namespace detail {

template <typename Holder>
Holder refusedResponse(UA_StatusCode status)
{
    Holder response;
    response->responseHeader.serviceResult = status;
    return response;
}

} // namespace detail

inline BrowseResponseHolder browse(UA_Client* client, const UA_BrowseRequest& request)
{
    if (const UA_StatusCode refused = refusedReconnect(client))
        return detail::refusedResponse<BrowseResponseHolder>(refused);
    return BrowseResponseHolder(UA_Client_Service_browse(client, request));
}

inline BrowseNextResponseHolder browseNext(UA_Client* client, const UA_BrowseNextRequest& request)
{
    if (const UA_StatusCode refused = refusedReconnect(client))
        return detail::refusedResponse<BrowseNextResponseHolder>(refused);
    return BrowseNextResponseHolder(UA_Client_Service_browseNext(client, request));
}

inline ReadResponseHolder read(UA_Client* client, const UA_ReadRequest& request)
{
    if (const UA_StatusCode refused = refusedReconnect(client))
        return detail::refusedResponse<ReadResponseHolder>(refused);
    return ReadResponseHolder(UA_Client_Service_read(client, request));
}

inline WriteResponseHolder write(UA_Client* client, const UA_WriteRequest& request)
{
    if (const UA_StatusCode refused = refusedReconnect(client))
        return detail::refusedResponse<WriteResponseHolder>(refused);
    return WriteResponseHolder(UA_Client_Service_write(client, request));
}

// Single attribute reads, each one Read of one attribute as the stack's attribute read sends it.
// What the holder held before is cleared first.
inline UA_StatusCode readValue(UA_Client* client, const UA_NodeId& nodeId, VariantHolder* value)
{
    value->reset();
    if (const UA_StatusCode refused = refusedReconnect(client))
        return refused;
    return UA_Client_readValueAttribute(client, nodeId, value->get());
}

inline UA_StatusCode readDataType(UA_Client* client, const UA_NodeId& nodeId, NodeIdHolder* dataType)
{
    dataType->reset();
    if (const UA_StatusCode refused = refusedReconnect(client))
        return refused;
    return UA_Client_readDataTypeAttribute(client, nodeId, dataType->get());
}

// The raw history of a node from start to end, source and server timestamps, no bounds: every
// value the server gives, in its order. The stack follows the continuation points, asking for at
// most valuesPerRequest values per request. The list is emptied first.
UA_StatusCode historyReadRaw(UA_Client* client, const UA_NodeId& nodeId, UA_DateTime start, UA_DateTime end,
                             UA_UInt32 valuesPerRequest, DataValueList* values);

} // namespace Ua
