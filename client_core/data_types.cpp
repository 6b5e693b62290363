#include "client_core/data_types.h"

#include "ua/holders.h"
#include "ua/services.h"
#include "ua/supported_types.h"
#include "ua/text.h"

#include <QSet>

namespace {

const int maxSupertypeSteps = 32;

bool lookUpSupportedType(const UA_NodeId& id, ResolvedDataType* out)
{
    const Ua::SupportedType* type = Ua::supportedTypeOfNode(id);
    if (!type)
        return false;
    out->name = QString::fromLatin1(type->name);
    out->typeIndex = type->typeIndex;
    out->writable = type->writable;
    return true;
}

bool isLocalTarget(const UA_ExpandedNodeId& target)
{
    return target.serverIndex == 0 && target.namespaceUri.length == 0;
}

// The direct supertype of a data type, found by browsing HasSubtype backwards.
bool findSupertype(UA_Client* client, const UA_NodeId& type, Ua::NodeIdHolder* supertype)
{
    Ua::BrowseRequestHolder request;
    request->nodesToBrowse = UA_BrowseDescription_new();
    if (!request->nodesToBrowse)
        return false;
    request->nodesToBrowseSize = 1;
    UA_BrowseDescription& description = request->nodesToBrowse[0];
    if (UA_NodeId_copy(&type, &description.nodeId) != UA_STATUSCODE_GOOD)
        return false;
    description.browseDirection = UA_BROWSEDIRECTION_INVERSE;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASSUBTYPE);
    description.includeSubtypes = false;
    description.nodeClassMask = UA_NODECLASS_DATATYPE;
    description.resultMask = UA_BROWSERESULTMASK_ALL;

    const Ua::BrowseResponseHolder response = Ua::browse(client, *request);
    if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD || response->resultsSize == 0)
        return false;

    for (size_t r = 0; r < response->resultsSize; ++r) {
        const UA_BrowseResult& result = response->results[r];
        if (UA_StatusCode_isBad(result.statusCode) || result.referencesSize == 0)
            continue;
        for (size_t i = 0; i < result.referencesSize; ++i) {
            const UA_ReferenceDescription& reference = result.references[i];
            if (reference.nodeClass != UA_NODECLASS_DATATYPE || !isLocalTarget(reference.nodeId))
                continue;
            Ua::NodeIdHolder found;
            if (UA_NodeId_copy(&reference.nodeId.nodeId, found.get()) != UA_STATUSCODE_GOOD)
                return false;
            *supertype = std::move(found);
            return true;
        }
    }
    return false;
}

} // namespace

bool resolveSupportedDataType(UA_Client* client, const UA_NodeId& dataType, ResolvedDataType* out)
{
    if (!client || !out)
        return false;
    Ua::NodeIdHolder current;
    if (UA_NodeId_copy(&dataType, current.get()) != UA_STATUSCODE_GOOD)
        return false;
    QSet<QString> visited;
    for (int step = 0;; ++step) {
        if (lookUpSupportedType(*current, out))
            return true;
        if (step == maxSupertypeSteps)
            return false;
        const QString text = Ua::nodeIdToQString(*current);
        if (!text.isEmpty()) {
            if (visited.contains(text))
                return false;
            visited.insert(text);
        }
        Ua::NodeIdHolder supertype;
        if (!findSupertype(client, *current, &supertype))
            return false;
        current = std::move(supertype);
    }
}
