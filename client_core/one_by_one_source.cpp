#include "client_core/node_data_source.h"

#include "ua/services.h"
#include "ua/text.h"

#include <QHash>

const UA_AttributeId variableAttributeIds[3] = {UA_ATTRIBUTEID_DATATYPE, UA_ATTRIBUTEID_ACCESSLEVEL,
                                                UA_ATTRIBUTEID_VALUERANK};

bool isConnectionLoss(UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADTIMEOUT || status == UA_STATUSCODE_BADCONNECTIONCLOSED
        || status == UA_STATUSCODE_BADSECURECHANNELCLOSED || status == UA_STATUSCODE_BADSESSIONCLOSED
        || status == UA_STATUSCODE_BADSERVERNOTCONNECTED;
}

bool isConnectionFailure(UA_StatusCode status)
{
    switch (status) {
    case UA_STATUSCODE_BADCONNECTIONCLOSED:
    case UA_STATUSCODE_BADCONNECTIONREJECTED:
    case UA_STATUSCODE_BADSECURECHANNELCLOSED:
    case UA_STATUSCODE_BADSECURECHANNELIDINVALID:
    case UA_STATUSCODE_BADSECURECHANNELTOKENUNKNOWN:
    case UA_STATUSCODE_BADSESSIONCLOSED:
    case UA_STATUSCODE_BADSESSIONIDINVALID:
    case UA_STATUSCODE_BADSESSIONNOTACTIVATED:
    case UA_STATUSCODE_BADSERVERNOTCONNECTED:
    case UA_STATUSCODE_BADNOTCONNECTED:
    case UA_STATUSCODE_BADCOMMUNICATIONERROR:
    case UA_STATUSCODE_BADDISCONNECT:
    case UA_STATUSCODE_BADTCPINTERNALERROR:
    case UA_STATUSCODE_BADTCPSECURECHANNELUNKNOWN:
    case UA_STATUSCODE_BADSHUTDOWN:
    case UA_STATUSCODE_BADSERVERHALTED:
        return true;
    default:
        return false;
    }
}

bool describeWalkBrowse(const UA_NodeId& node, UA_BrowseDescription* description)
{
    if (UA_NodeId_copy(&node, &description->nodeId) != UA_STATUSCODE_GOOD)
        return false;
    description->browseDirection = UA_BROWSEDIRECTION_FORWARD;
    description->referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description->includeSubtypes = true;
    description->nodeClassMask = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE | UA_NODECLASS_VIEW;
    description->resultMask = UA_BROWSERESULTMASK_ALL;
    return true;
}

bool appendChainPage(BrowseChain* chain, ContinuationGuard* guard, Ua::BrowseResultHolder page)
{
    const bool admitted = guard->admit(*page, chain->pages.empty() ? nullptr : chain->pages.back().get());
    const bool more = !UA_StatusCode_isBad(page->statusCode) && page->continuationPoint.length > 0;
    chain->pages.push_back(std::move(page));
    if (more && !admitted) {
        chain->continuationFailed = true;
        chain->continuationStatus = chainEndedStatus;
    }
    return more && admitted;
}

void continueChainAlone(UA_Client* client, BrowseChain* chain, ContinuationGuard* guard)
{
    for (;;) {
        const UA_BrowseResult& last = *chain->pages.back();
        Ua::BrowseNextRequestHolder request;
        request->releaseContinuationPoints = false;
        request->continuationPoints = UA_ByteString_new();
        if (!request->continuationPoints
            || UA_ByteString_copy(&last.continuationPoint, request->continuationPoints) != UA_STATUSCODE_GOOD) {
            chain->continuationFailed = true;
            chain->continuationStatus = UA_STATUSCODE_BADOUTOFMEMORY;
            return;
        }
        request->continuationPointsSize = 1;
        Ua::BrowseNextResponseHolder response = Ua::browseNext(client, *request);
        const UA_StatusCode status = response->responseHeader.serviceResult;
        // Only the first result continues the chain; a Good answer without one ends it as a failure.
        if (status != UA_STATUSCODE_GOOD || response->resultsSize == 0) {
            chain->continuationFailed = true;
            chain->continuationStatus = status;
            return;
        }
        if (!appendChainPage(chain, guard, Ua::BrowseResultHolder(std::move(response->results[0]))))
            return;
    }
}

BrowseChain followChainAlone(UA_Client* client, Ua::BrowseResultHolder first)
{
    BrowseChain chain;
    ContinuationGuard guard;
    if (appendChainPage(&chain, &guard, std::move(first)))
        continueChainAlone(client, &chain, &guard);
    return chain;
}

NodeBrowse browseNodeAlone(UA_Client* client, const UA_NodeId& node)
{
    NodeBrowse outcome;
    Ua::BrowseRequestHolder request;
    request->requestedMaxReferencesPerNode = 0;
    request->nodesToBrowse = UA_BrowseDescription_new();
    if (!request->nodesToBrowse) {
        outcome.status = UA_STATUSCODE_BADOUTOFMEMORY;
        return outcome;
    }
    request->nodesToBrowseSize = 1;
    if (!describeWalkBrowse(node, &request->nodesToBrowse[0])) {
        outcome.status = UA_STATUSCODE_BADOUTOFMEMORY;
        return outcome;
    }
    Ua::BrowseResponseHolder response = Ua::browse(client, *request);
    outcome.status = response->responseHeader.serviceResult;
    if (UA_StatusCode_isBad(outcome.status))
        return outcome;
    // Every result the server gave is handled, however many there are.
    for (size_t i = 0; i < response->resultsSize; ++i)
        outcome.chains.push_back(followChainAlone(client, Ua::BrowseResultHolder(std::move(response->results[i]))));
    return outcome;
}

VariableAttributes attributesFromResults(const UA_DataValue* results)
{
    const UA_DataType* expected[3] = {&UA_TYPES[UA_TYPES_NODEID], &UA_TYPES[UA_TYPES_BYTE], &UA_TYPES[UA_TYPES_INT32]};
    UA_StatusCode statuses[3];
    for (size_t i = 0; i < 3; ++i) {
        UA_StatusCode status = results[i].status;
        if (status == UA_STATUSCODE_GOOD
            && (!results[i].hasValue || !UA_Variant_isScalar(&results[i].value) || results[i].value.type != expected[i]))
            status = UA_STATUSCODE_BADUNEXPECTEDERROR;
        statuses[i] = status;
    }
    VariableAttributes attributes;
    attributes.dataTypeStatus = statuses[0];
    if (statuses[0] == UA_STATUSCODE_GOOD
        && UA_NodeId_copy(static_cast<const UA_NodeId*>(results[0].value.data), attributes.dataType.get())
               != UA_STATUSCODE_GOOD)
        attributes.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
    attributes.accessLevelStatus = statuses[1];
    if (statuses[1] == UA_STATUSCODE_GOOD)
        attributes.accessLevel = *static_cast<const UA_Byte*>(results[1].value.data);
    if (statuses[2] == UA_STATUSCODE_GOOD)
        attributes.valueRank = *static_cast<const UA_Int32*>(results[2].value.data);
    return attributes;
}

// One Read for the three attributes instead of three round trips; each result is judged as a
// single attribute read judges its own (service result, result count, per-result status, scalar
// of the expected type).
VariableAttributes readAttributesAlone(UA_Client* client, const UA_NodeId& node)
{
    VariableAttributes failed;
    Ua::ReadRequestHolder request;
    request->nodesToRead = static_cast<UA_ReadValueId*>(UA_Array_new(3, &UA_TYPES[UA_TYPES_READVALUEID]));
    if (!request->nodesToRead) {
        failed.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
        return failed;
    }
    request->nodesToReadSize = 3;
    for (size_t i = 0; i < 3; ++i) {
        request->nodesToRead[i].attributeId = variableAttributeIds[i];
        if (UA_NodeId_copy(&node, &request->nodesToRead[i].nodeId) != UA_STATUSCODE_GOOD) {
            failed.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
            return failed;
        }
    }
    const Ua::ReadResponseHolder response = Ua::read(client, *request);
    UA_StatusCode status = response->responseHeader.serviceResult;
    if (status == UA_STATUSCODE_GOOD && response->resultsSize != 3)
        status = UA_STATUSCODE_BADUNEXPECTEDERROR;
    if (status != UA_STATUSCODE_GOOD) {
        failed.dataTypeStatus = status;
        failed.accessLevelStatus = status;
        return failed;
    }
    return attributesFromResults(response->results);
}

namespace {

class OneByOneSource : public NodeDataSource
{
public:
    explicit OneByOneSource(UA_Client* client)
        : client_(client)
    {
    }

    void queued(const QString&) override {}

    NodeBrowse browse(const QString&, const UA_NodeId& node) override { return browseNodeAlone(client_, node); }

    VariableAttributes attributes(const QString&, const UA_NodeId& node) override
    {
        return readAttributesAlone(client_, node);
    }

    // Many variables share few data types; a type resolved once needs no second walk up its hierarchy.
    bool resolveDataType(const UA_NodeId& dataType, ResolvedDataType* out) override
    {
        const QString key = Ua::nodeIdToQString(dataType);
        const auto cached = resolved_.constFind(key);
        if (!key.isEmpty() && cached != resolved_.constEnd()) {
            *out = cached.value();
            return true;
        }
        if (!resolveSupportedDataType(client_, dataType, out))
            return false;
        if (!key.isEmpty())
            resolved_.insert(key, *out);
        return true;
    }

private:
    UA_Client* client_;
    QHash<QString, ResolvedDataType> resolved_;
};

} // namespace

std::unique_ptr<NodeDataSource> newOneByOneSource(UA_Client* client)
{
    return std::make_unique<OneByOneSource>(client);
}
