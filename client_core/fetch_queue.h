#pragma once

#include "client_core/node_table.h"
#include "client_core/request_size.h"
#include "ua/holders.h"

#include <open62541/types.h>

#include <unordered_map>
#include <vector>

// A node of a request: by its number in the walk's node table, with the NodeId the request carries.
struct QueuedNode
{
    NodeTable::Key node = 0;   // its number in the walk's node table
    Ua::NodeIdHolder id;       // the NodeId a request carries
    int position = -1;         // its position in the queue's order; -1: none
    int siblingGroup = -1;     // the Browse answer that found it: siblings share it; -1: none
    bool variable = false;     // found as a Variable
};

// In which order a depth-first walk meets the siblings one Browse answer found.
enum class SiblingOrder { FirstToLast, LastToFirst };

// The nodes of one kind of question (Browse results, or variable attributes) found ahead of the
// walk, in the order found, and how large a request of this kind may be. A node enters once:
// found ahead or asked by the walk, it is never queued again. A node keeps its position; the
// position is empty while the node is in a request and after it was answered.
// A waiting node is held as its number only (a few bytes, whatever the size of the address
// space): the NodeId a request carries is read from the node's text when it joins a request,
// and held only for the rare node whose NodeId its text does not name exactly.
class FetchQueue
{
public:
    FetchQueue(const NodeTable* nodes, SiblingOrder order, size_t operationsPerNode);

    RequestSize& size() { return size_; }
    const RequestSize& size() const { return size_; }

    // Whether the node was found ahead or asked for already.
    bool known(NodeTable::Key node) const;
    // A node found ahead: it waits for its answer. A request carries `requestId` for it when given
    // and not the NodeId its text names; without it, the NodeId its text names. A node whose text
    // names no NodeId then joins no request.
    void add(NodeTable::Key node, int siblingGroup, bool variable, const UA_NodeId* requestId = nullptr);

    // The request for `asked`, which the walk needs now: the asked node first, then its
    // siblings (which a depth-first walk asks for next), then waiting nodes near its position in
    // the order the walk will ask for them, as many as the size allows. With `roomAhead` false
    // (much was fetched ahead and not asked for yet) only sibling Variables join: they hold few
    // references, and without them a folder of thousands of variables would be asked one
    // variable per request. A node that must be asked alone is asked alone.
    std::vector<QueuedNode> startRequest(NodeTable::Key asked, const UA_NodeId& node, bool roomAhead);

    // The node's answer was kept: it waits no more and its position is emptied.
    void answered(NodeTable::Key node);
    // A node whose answer in a request of several nodes may be that request's doing waits to be
    // asked later in a request of its own.
    void askAlone(QueuedNode node);
    // The request keeps its first `keep` nodes; the others wait again at their positions.
    void giveBack(std::vector<QueuedNode>* request, size_t keep);

private:
    enum Mark : quint8 {
        Known = 1,      // found ahead or asked for
        Waiting = 2,    // found ahead and not answered yet
        Alone = 4,      // asked in a request of its own
        Variable = 8,   // found as a Variable
    };
    struct Entry
    {
        quint8 marks = 0;
        int position = -1;
    };
    // A position: the node waiting there, or none.
    struct Slot
    {
        NodeTable::Key node;
        int siblingGroup;
    };
    static constexpr NodeTable::Key noNode = ~NodeTable::Key(0);

    Entry& entry(NodeTable::Key node);
    void giveBack(QueuedNode node);
    void keepRequestId(const QueuedNode& node);
    bool requestIdOf(NodeTable::Key node, Ua::NodeIdHolder* id) const;
    void takeNear(int from, size_t count, bool siblingsOnly, int siblingGroup, bool roomAhead,
                  std::vector<QueuedNode>* request);
    bool wanted(NodeTable::Key node) const;
    void empty(int position);

    const NodeTable* nodes_;
    SiblingOrder order_;
    RequestSize size_;
    std::vector<Slot> slots_;        // by position
    std::vector<Entry> entries_;     // by node number; marks 0: not known to this queue
    std::unordered_map<NodeTable::Key, Ua::NodeIdHolder> requestIds_;   // only NodeIds their text does not name
};
