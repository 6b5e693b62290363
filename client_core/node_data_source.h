#pragma once

#include "client_core/continuation_guard.h"
#include "client_core/data_types.h"
#include "client_core/node_table.h"
#include "ua/holders.h"

#include <open62541/client.h>

#include <memory>
#include <vector>

// What the address-space walk needs to know about nodes, and the two ways of asking a server
// for it. The walk makes every decision; a source only fetches, and hands each node the answer
// that one request for that node alone would have given.

// One Browse result of a node and the BrowseNext results that continued it, in order.
struct BrowseChain
{
    // The Browse result first. A page with a bad status, or without continuation point, is the last.
    std::vector<Ua::BrowseResultHolder> pages;
    // The last page has a continuation point that BrowseNext did not continue: the service result
    // of that BrowseNext (Good when it answered without a result).
    bool continuationFailed = false;
    UA_StatusCode continuationStatus = UA_STATUSCODE_GOOD;
};

// A Browse of one node: the service result and, unless it is bad, one chain per result.
struct NodeBrowse
{
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    std::vector<BrowseChain> chains;
};

// The three attributes a variable item needs, each with the status a single attribute read
// would have given it.
struct VariableAttributes
{
    Ua::NodeIdHolder dataType;
    UA_StatusCode dataTypeStatus = UA_STATUSCODE_BADUNEXPECTEDERROR;
    UA_Byte accessLevel = UA_ACCESSLEVELMASK_READ;
    UA_StatusCode accessLevelStatus = UA_STATUSCODE_BADUNEXPECTEDERROR;
    UA_Int32 valueRank = UA_VALUERANK_SCALAR;
};

// The small interface between the walk and the server: the walk asks for each node once, in
// its own order; a source may fetch ahead of it. A node is named by its number in the walk's
// node table. Both sources resolve data types alike, with one memory of the type hierarchy per
// walk.
class NodeDataSource
{
public:
    explicit NodeDataSource(UA_Client* client);
    virtual ~NodeDataSource() = default;

    // The walk put a node on its work list (a hint: it will ask for its Browse result).
    virtual void queued(NodeTable::Key node) = 0;
    // The node's forward hierarchical references, continuation chains followed to their end.
    virtual NodeBrowse browse(NodeTable::Key node, const UA_NodeId& nodeId) = 0;
    // DataType, AccessLevel and ValueRank of a variable.
    virtual VariableAttributes attributes(NodeTable::Key node, const UA_NodeId& nodeId) = 0;
    // The supported built-in type a data type resolves to; false when there is none.
    bool resolveDataType(const UA_NodeId& dataType, ResolvedDataType* out) { return dataTypes_.resolve(dataType, out); }

private:
    DataTypeResolver dataTypes_;
};

// Status codes after which the server is taken as gone: the walk stops on them.
bool isConnectionLoss(UA_StatusCode status);

// A failure of the connection rather than of one request: the channel or session is closed or
// invalid, the connection refused or lost, the server not connected, a communication error.
// Asking again in smaller requests cannot cure it.
bool isConnectionFailure(UA_StatusCode status);
