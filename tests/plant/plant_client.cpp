#include "tests/plant/plant_client.h"

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <cstdarg>

namespace plant_test {

namespace {

void silentLog(void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}

} // namespace

UaClientPtr newClient(int timeoutMs)
{
    UaClientPtr client(UA_Client_new());
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    UA_ClientConfig_setDefault(config);
    // Only the log function changes: the stack still frees its logger on delete.
    if (config->logging)
        config->logging->log = silentLog;
    config->timeout = static_cast<UA_UInt32>(timeoutMs);
    return client;
}

QString toQString(const UA_String& text)
{
    if (!text.data || text.length == 0)
        return {};
    return QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.length));
}

bool browseNames(UA_Client* client, const UA_NodeId& node, QStringList* names, QString* error)
{
    UaBrowseRequestHolder request;
    request->requestedMaxReferencesPerNode = 0;
    request->nodesToBrowse = UA_BrowseDescription_new();
    request->nodesToBrowseSize = 1;
    UA_NodeId_copy(&node, &request->nodesToBrowse[0].nodeId);
    request->nodesToBrowse[0].browseDirection = UA_BROWSEDIRECTION_FORWARD;
    request->nodesToBrowse[0].referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    request->nodesToBrowse[0].includeSubtypes = true;
    request->nodesToBrowse[0].resultMask = UA_BROWSERESULTMASK_ALL;

    UaBrowseResponseHolder response = UaBrowseResponseHolder::adopt(UA_Client_Service_browse(client, *request));
    if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD) {
        *error = QStringLiteral("Browse: %1").arg(QString::fromLatin1(UA_StatusCode_name(response->responseHeader.serviceResult)));
        return false;
    }
    if (response->resultsSize != 1) {
        *error = QStringLiteral("Browse: %1 results").arg(response->resultsSize);
        return false;
    }
    UaBrowseNextResponseHolder nextResponse;
    for (const UA_BrowseResult* result = &response->results[0];;) {
        if (result->statusCode != UA_STATUSCODE_GOOD) {
            *error = QStringLiteral("Browse result: %1").arg(QString::fromLatin1(UA_StatusCode_name(result->statusCode)));
            return false;
        }
        for (size_t i = 0; i < result->referencesSize; ++i)
            *names << toQString(result->references[i].browseName.name);
        if (result->continuationPoint.length == 0)
            return true;
        UaBrowseNextRequestHolder next;
        next->continuationPoints = UA_ByteString_new();
        next->continuationPointsSize = 1;
        UA_ByteString_copy(&result->continuationPoint, &next->continuationPoints[0]);
        // The old answer (which `result` points into) is released only after the copy above.
        nextResponse = UaBrowseNextResponseHolder::adopt(UA_Client_Service_browseNext(client, *next));
        if (nextResponse->responseHeader.serviceResult != UA_STATUSCODE_GOOD || nextResponse->resultsSize != 1) {
            *error = QStringLiteral("BrowseNext failed");
            return false;
        }
        result = &nextResponse->results[0];
    }
}

} // namespace plant_test
