#pragma once

// open62541 client helpers of the suites that talk to servers directly. Header only, so that
// test_support itself does not depend on open62541: include it from targets that link it.

#include "ua/client.h"
#include "ua/holders.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <QString>

#include <cstdarg>
#include <vector>

namespace test_support {

inline void silentUaLog(void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}

inline void silenceClientLog(UA_ClientConfig* config)
{
    // Only the log function changes: the stack still frees its logger when the client is deleted.
    if (config->logging)
        config->logging->log = silentUaLog;
}

// A None client that gives up after timeoutMs per request and, unless logged, logs nothing.
inline Ua::Client newTestClient(int timeoutMs, bool logged = false)
{
    Ua::Client client(UA_Client_new());
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    UA_ClientConfig_setDefault(config);
    if (!logged)
        silenceClientLog(config);
    config->timeout = static_cast<UA_UInt32>(timeoutMs);
    return client;
}

inline QString uaText(const UA_String& text)
{
    if (!text.data || text.length == 0)
        return {};
    return QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.length));
}

// A Browse request for the forward hierarchical references of one node.
inline Ua::BrowseRequestHolder forwardBrowseRequest(const UA_NodeId& node)
{
    Ua::BrowseRequestHolder request;
    request->nodesToBrowse = UA_BrowseDescription_new();
    request->nodesToBrowseSize = 1;
    UA_NodeId_copy(&node, &request->nodesToBrowse[0].nodeId);
    request->nodesToBrowse[0].browseDirection = UA_BROWSEDIRECTION_FORWARD;
    request->nodesToBrowse[0].referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    request->nodesToBrowse[0].includeSubtypes = true;
    request->nodesToBrowse[0].resultMask = UA_BROWSERESULTMASK_ALL;
    return request;
}

// The forward hierarchical references of one node, continuation points followed to the end.
struct BrowseOutcome
{
    UA_StatusCode status = UA_STATUSCODE_GOOD;  // the failing service or result status
    std::vector<QString> names;                 // browse names in server order
    int continuationPoints = 0;
    QString error;                              // empty when every answer was complete
};

inline BrowseOutcome browseAll(UA_Client* client, const UA_NodeId& node)
{
    BrowseOutcome outcome;
    Ua::BrowseResponseHolder response =
        Ua::BrowseResponseHolder(UA_Client_Service_browse(client, *forwardBrowseRequest(node)));
    outcome.status = response->responseHeader.serviceResult;
    if (outcome.status != UA_STATUSCODE_GOOD) {
        outcome.error = QStringLiteral("Browse: %1").arg(QString::fromLatin1(UA_StatusCode_name(outcome.status)));
        return outcome;
    }
    if (response->resultsSize != 1) {
        outcome.error = QStringLiteral("Browse: %1 results").arg(response->resultsSize);
        return outcome;
    }
    Ua::BrowseNextResponseHolder nextResponse;
    for (const UA_BrowseResult* result = &response->results[0];;) {
        if (result->statusCode != UA_STATUSCODE_GOOD) {
            outcome.status = result->statusCode;
            outcome.error = QStringLiteral("Browse result: %1").arg(QString::fromLatin1(UA_StatusCode_name(outcome.status)));
            return outcome;
        }
        for (size_t i = 0; i < result->referencesSize; ++i)
            outcome.names.push_back(uaText(result->references[i].browseName.name));
        if (result->continuationPoint.length == 0)
            return outcome;
        ++outcome.continuationPoints;
        Ua::BrowseNextRequestHolder next;
        next->continuationPoints = UA_ByteString_new();
        next->continuationPointsSize = 1;
        UA_ByteString_copy(&result->continuationPoint, &next->continuationPoints[0]);
        // The old answer (which `result` points into) is released only after the copy above.
        nextResponse = Ua::BrowseNextResponseHolder(UA_Client_Service_browseNext(client, *next));
        outcome.status = nextResponse->responseHeader.serviceResult;
        if (outcome.status != UA_STATUSCODE_GOOD || nextResponse->resultsSize != 1) {
            outcome.error = QStringLiteral("BrowseNext failed");
            return outcome;
        }
        result = &nextResponse->results[0];
    }
}

} // namespace test_support
