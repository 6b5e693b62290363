#pragma once

#include "ua/holders.h"

#include <open62541/types.h>

#include <cstddef>
#include <string>
#include <vector>

// The service requests the client sends, built here and nowhere else. Each request is owned by
// its holder from the first allocation on, so a request that could not be built completely is
// cleared with it; `ok` tells whether it was built.
namespace Ua {

// Which references of a node a Browse asks for.
struct BrowseFilter
{
    UA_BrowseDirection direction = UA_BROWSEDIRECTION_FORWARD;
    UA_UInt32 referenceType = UA_NS0ID_HIERARCHICALREFERENCES;  // a type of namespace 0
    bool includeSubtypes = true;
    UA_UInt32 nodeClassMask = 0;                                // 0: every class
};

// One Browse of the nodes in the order given, each with the filter and every result field,
// without a limit of references per node (the server may still answer in pages).
BrowseRequestHolder browseRequest(const std::vector<const UA_NodeId*>& nodes, const BrowseFilter& filter, bool* ok);

// One BrowseNext of the continuation points in the order given. With `release` the server only
// frees them.
BrowseNextRequestHolder browseNextRequest(const std::vector<const UA_ByteString*>& points, bool release, bool* ok);

// One Read of the attributes of every node, node by node: for each node, the attributes in the
// order given. It carries nodes × attributes ReadValueIds.
ReadRequestHolder readRequest(const std::vector<const UA_NodeId*>& nodes, const std::vector<UA_AttributeId>& attributes,
                              bool* ok);

// One Write of the Value attribute of one node, taking over the node identifier and the value.
// An empty `indexRange` writes the whole value, otherwise the elements it names.
WriteRequestHolder writeValueRequest(NodeIdHolder node, VariantHolder value, const std::string& indexRange, bool* ok);

} // namespace Ua
