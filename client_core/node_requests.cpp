#include "client_core/node_requests.h"

#include "client_core/reference_filter.h"
#include "ua/requests.h"
#include "ua/services.h"

const std::vector<UA_AttributeId> variableAttributeIds = {UA_ATTRIBUTEID_DATATYPE, UA_ATTRIBUTEID_ACCESSLEVEL,
                                                          UA_ATTRIBUTEID_VALUERANK};

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
        bool built = false;
        const Ua::BrowseNextRequestHolder request =
            Ua::browseNextRequest({&chain->pages.back()->continuationPoint}, false, &built);
        if (!built) {
            chain->continuationFailed = true;
            chain->continuationStatus = UA_STATUSCODE_BADOUTOFMEMORY;
            return;
        }
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
    bool built = false;
    const Ua::BrowseRequestHolder request = Ua::browseRequest({&node}, walkBrowseFilter, &built);
    if (!built) {
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
    const UA_DataType* expected[] = {&UA_TYPES[UA_TYPES_NODEID], &UA_TYPES[UA_TYPES_BYTE], &UA_TYPES[UA_TYPES_INT32]};
    UA_StatusCode statuses[] = {UA_STATUSCODE_GOOD, UA_STATUSCODE_GOOD, UA_STATUSCODE_GOOD};
    for (size_t i = 0; i < variableAttributeIds.size(); ++i) {
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
    bool built = false;
    const Ua::ReadRequestHolder request = Ua::readRequest({&node}, variableAttributeIds, &built);
    if (!built) {
        failed.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
        return failed;
    }
    const Ua::ReadResponseHolder response = Ua::read(client, *request);
    UA_StatusCode status = response->responseHeader.serviceResult;
    if (status == UA_STATUSCODE_GOOD && response->resultsSize != variableAttributeIds.size())
        status = UA_STATUSCODE_BADUNEXPECTEDERROR;
    if (status != UA_STATUSCODE_GOOD) {
        failed.dataTypeStatus = status;
        failed.accessLevelStatus = status;
        return failed;
    }
    return attributesFromResults(response->results);
}
