#include "ua/services.h"

namespace Ua {

namespace {

// The per-response callback of the raw history read: copies the data values of every HistoryData
// answer into the list the handle points to, and asks for the rest.
UA_Boolean readHist(UA_Client* client, const UA_NodeId* nodeId, UA_Boolean moreDataAvailable,
                    const UA_ExtensionObject* data, void* handle)
{
    (void)client;
    (void)nodeId;
    (void)moreDataAvailable;
    if (!data || !handle || data->encoding < UA_EXTENSIONOBJECT_DECODED
        || data->content.decoded.type != &UA_TYPES[UA_TYPES_HISTORYDATA])
        return true;

    auto* values = static_cast<DataValueList*>(handle);
    const auto* history = static_cast<const UA_HistoryData*>(data->content.decoded.data);
    for (size_t i = 0; i < history->dataValuesSize; ++i) {
        DataValueHolder copy;
        if (UA_DataValue_copy(&history->dataValues[i], copy.get()) == UA_STATUSCODE_GOOD)
            values->push_back(std::move(copy));
    }
    return true;
}

} // namespace

UA_StatusCode historyReadRaw(UA_Client* client, const UA_NodeId& nodeId, UA_DateTime start, UA_DateTime end,
                             UA_UInt32 valuesPerRequest, DataValueList* values)
{
    values->clear();
    if (const UA_StatusCode refused = refusedReconnect(client))
        return refused;
    return UA_Client_HistoryRead_raw(client, &nodeId, readHist, start, end, UA_STRING_NULL, false, valuesPerRequest,
                                     UA_TIMESTAMPSTORETURN_BOTH, values);
}

} // namespace Ua
