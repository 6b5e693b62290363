#pragma once

#include "client_core/request_size.h"
#include "ua/holders.h"

#include <QHash>
#include <QString>

#include <open62541/types.h>

#include <vector>

// A node the walk will ask about, waiting in a fetch queue.
struct QueuedNode
{
    QString text;             // the text the walk knows it by
    Ua::NodeIdHolder id;      // the NodeId a request carries
    int position = -1;        // its position in the queue's order; -1: none
    int siblingGroup = -1;    // the Browse answer that found it: siblings share it; -1: none
    bool variable = false;    // found as a Variable
};

// In which order a depth-first walk meets the siblings one Browse answer found.
enum class SiblingOrder { FirstToLast, LastToFirst };

// The nodes of one kind of question (Browse results, or variable attributes) found ahead of the
// walk, in the order found, and how large a request of this kind may be. A node enters once:
// found ahead or asked by the walk, it is never queued again. A node keeps its position; the
// position is empty while the node is in a request and after it was answered.
class FetchQueue
{
public:
    FetchQueue(SiblingOrder order, size_t operationsPerNode);

    RequestSize& size() { return size_; }
    const RequestSize& size() const { return size_; }

    // Whether the node was found ahead or asked for already.
    bool known(const QString& text) const;
    // A node found ahead: it waits for its answer.
    void add(QueuedNode node);

    // The request for `asked`, which the walk needs now: the asked node first, then its
    // siblings (which a depth-first walk asks for next), then waiting nodes near its position in
    // the order the walk will ask for them, as many as the size allows. With `roomAhead` false
    // (much was fetched ahead and not asked for yet) only sibling Variables join: they hold few
    // references, and without them a folder of thousands of variables would be asked one
    // variable per request. A node that must be asked alone is asked alone.
    std::vector<QueuedNode> startRequest(const QString& asked, const UA_NodeId& node, bool roomAhead);

    // The node's answer was kept: it waits no more and its position is emptied.
    void answered(const QString& text);
    // A node whose answer in a request of several nodes may be that request's doing waits to be
    // asked later in a request of its own.
    void askAlone(QueuedNode node);
    // The request keeps its first `keep` nodes; the others wait again at their positions.
    void giveBack(std::vector<QueuedNode>* request, size_t keep);

private:
    enum Mark : quint8 {
        Waiting = 1,   // found ahead and not answered yet
        Alone = 2,     // asked in a request of its own
    };
    struct Entry
    {
        quint8 marks = 0;
        int position = -1;
    };

    void giveBack(QueuedNode node);
    void takeNear(int from, size_t count, bool siblingsOnly, int siblingGroup, bool roomAhead,
                  std::vector<QueuedNode>* request);
    bool wanted(const QueuedNode& node) const;
    void empty(int position);

    SiblingOrder order_;
    RequestSize size_;
    std::vector<QueuedNode> nodes_;     // by position
    QHash<QString, Entry> entries_;     // every node known to this queue
};
