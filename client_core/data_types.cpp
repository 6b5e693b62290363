#include "client_core/data_types.h"

#include "client_core/ua_holders.h"
#include "client_core/ua_text.h"

#include <QSet>

namespace {

struct SupportedType
{
    UA_UInt32 identifier;
    const char* name;
    qint32 typeIndex;
    bool writable;
};

// Guid and LocalizedText can be read but the connector has no text form to write them from.
const SupportedType supportedTypes[] = {
    {1, "Boolean", UA_TYPES_BOOLEAN, true},     {2, "SByte", UA_TYPES_SBYTE, true},
    {3, "Byte", UA_TYPES_BYTE, true},           {4, "Int16", UA_TYPES_INT16, true},
    {5, "UInt16", UA_TYPES_UINT16, true},       {6, "Int32", UA_TYPES_INT32, true},
    {7, "UInt32", UA_TYPES_UINT32, true},       {8, "Int64", UA_TYPES_INT64, true},
    {9, "UInt64", UA_TYPES_UINT64, true},       {10, "Float", UA_TYPES_FLOAT, true},
    {11, "Double", UA_TYPES_DOUBLE, true},      {12, "String", UA_TYPES_STRING, true},
    {13, "DateTime", UA_TYPES_DATETIME, true},  {14, "Guid", UA_TYPES_GUID, false},
    {15, "ByteString", UA_TYPES_BYTESTRING, true}, {21, "LocalizedText", UA_TYPES_LOCALIZEDTEXT, false},
};

const int maxSupertypeSteps = 32;

bool lookUpSupportedType(const UA_NodeId& id, ResolvedDataType* out)
{
    if (id.namespaceIndex != 0 || id.identifierType != UA_NODEIDTYPE_NUMERIC)
        return false;
    for (const SupportedType& type : supportedTypes) {
        if (type.identifier == id.identifier.numeric) {
            out->name = QString::fromLatin1(type.name);
            out->typeIndex = type.typeIndex;
            out->writable = type.writable;
            return true;
        }
    }
    return false;
}

bool isLocalTarget(const UA_ExpandedNodeId& target)
{
    return target.serverIndex == 0 && target.namespaceUri.length == 0;
}

// The direct supertype of a data type, found by browsing HasSubtype backwards.
bool findSupertype(UA_Client* client, const UA_NodeId& type, UaNodeIdHolder* supertype)
{
    UaBrowseRequestHolder request;
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

    UaBrowseResponseHolder response;
    __UA_Client_Service(client, request.get(), &UA_TYPES[UA_TYPES_BROWSEREQUEST], response.get(),
                        &UA_TYPES[UA_TYPES_BROWSERESPONSE]);
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
            UaNodeIdHolder found;
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
    UaNodeIdHolder current;
    if (UA_NodeId_copy(&dataType, current.get()) != UA_STATUSCODE_GOOD)
        return false;
    QSet<QString> visited;
    for (int step = 0;; ++step) {
        if (lookUpSupportedType(*current, out))
            return true;
        if (step == maxSupertypeSteps)
            return false;
        const QString text = nodeIdToQString(*current);
        if (!text.isEmpty()) {
            if (visited.contains(text))
                return false;
            visited.insert(text);
        }
        UaNodeIdHolder supertype;
        if (!findSupertype(client, *current, &supertype))
            return false;
        current = std::move(supertype);
    }
}

QString nodeIdToQString(const UA_NodeId& nodeId)
{
    UaStringHolder text;
    if (UA_NodeId_print(&nodeId, text.get()) != UA_STATUSCODE_GOOD)
        return QString();
    return fromUaString(*text);
}
