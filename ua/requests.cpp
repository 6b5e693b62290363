#include "ua/requests.h"

namespace Ua {

namespace {

// A new array of `count` values of the type, initialised; null when memory ran out or count is 0.
template <typename T>
T* newArray(size_t count, int typeIndex)
{
    return count == 0 ? nullptr : static_cast<T*>(UA_Array_new(count, &UA_TYPES[typeIndex]));
}

} // namespace

BrowseRequestHolder browseRequest(const std::vector<const UA_NodeId*>& nodes, const BrowseFilter& filter, bool* ok)
{
    BrowseRequestHolder request;
    *ok = false;
    request->requestedMaxReferencesPerNode = 0;
    request->nodesToBrowse = newArray<UA_BrowseDescription>(nodes.size(), UA_TYPES_BROWSEDESCRIPTION);
    if (!request->nodesToBrowse)
        return request;
    request->nodesToBrowseSize = nodes.size();
    for (size_t i = 0; i < nodes.size(); ++i) {
        UA_BrowseDescription& description = request->nodesToBrowse[i];
        if (UA_NodeId_copy(nodes[i], &description.nodeId) != UA_STATUSCODE_GOOD)
            return request;
        description.browseDirection = filter.direction;
        description.referenceTypeId = UA_NODEID_NUMERIC(0, filter.referenceType);
        description.includeSubtypes = filter.includeSubtypes;
        description.nodeClassMask = filter.nodeClassMask;
        description.resultMask = UA_BROWSERESULTMASK_ALL;
    }
    *ok = true;
    return request;
}

BrowseNextRequestHolder browseNextRequest(const std::vector<const UA_ByteString*>& points, bool release, bool* ok)
{
    BrowseNextRequestHolder request;
    *ok = false;
    request->releaseContinuationPoints = release;
    request->continuationPoints = newArray<UA_ByteString>(points.size(), UA_TYPES_BYTESTRING);
    if (!request->continuationPoints)
        return request;
    request->continuationPointsSize = points.size();
    for (size_t i = 0; i < points.size(); ++i) {
        if (UA_ByteString_copy(points[i], &request->continuationPoints[i]) != UA_STATUSCODE_GOOD)
            return request;
    }
    *ok = true;
    return request;
}

ReadRequestHolder readRequest(const std::vector<const UA_NodeId*>& nodes, const std::vector<UA_AttributeId>& attributes,
                              bool* ok)
{
    ReadRequestHolder request;
    *ok = false;
    const size_t count = nodes.size() * attributes.size();
    request->nodesToRead = newArray<UA_ReadValueId>(count, UA_TYPES_READVALUEID);
    if (!request->nodesToRead)
        return request;
    request->nodesToReadSize = count;
    for (size_t i = 0; i < count; ++i) {
        UA_ReadValueId& item = request->nodesToRead[i];
        item.attributeId = attributes[i % attributes.size()];
        if (UA_NodeId_copy(nodes[i / attributes.size()], &item.nodeId) != UA_STATUSCODE_GOOD)
            return request;
    }
    *ok = true;
    return request;
}

WriteRequestHolder writeValueRequest(NodeIdHolder node, VariantHolder value, const std::string& indexRange, bool* ok)
{
    WriteRequestHolder request;
    *ok = false;
    request->nodesToWrite = newArray<UA_WriteValue>(1, UA_TYPES_WRITEVALUE);
    if (!request->nodesToWrite)
        return request;
    request->nodesToWriteSize = 1;
    UA_WriteValue& item = request->nodesToWrite[0];
    item.nodeId = node.release();
    item.attributeId = UA_ATTRIBUTEID_VALUE;
    item.value.hasValue = true;
    item.value.value = value.release();
    if (!indexRange.empty()) {
        item.indexRange = UA_STRING_ALLOC(indexRange.c_str());
        if (!item.indexRange.data)
            return request;
    }
    *ok = true;
    return request;
}

} // namespace Ua
