#include "client_core/fetch_queue.h"

#include "ua/text.h"

namespace {

// Looking for nodes near a position stops after this many positions per node wanted, plus a few.
const int positionsLookedAtPerNode = 8;
const int positionsLookedAtAtLeast = 64;

} // namespace

FetchQueue::FetchQueue(const NodeTable* nodes, SiblingOrder order, size_t operationsPerNode)
    : nodes_(nodes)
    , order_(order)
    , size_(operationsPerNode)
{
}

FetchQueue::Entry& FetchQueue::entry(NodeTable::Key node)
{
    if (node >= entries_.size())
        entries_.resize(size_t(node) + 1);
    Entry& found = entries_[node];
    found.marks |= Known;
    return found;
}

bool FetchQueue::known(NodeTable::Key node) const
{
    return node < entries_.size() && (entries_[node].marks & Known) != 0;
}

void FetchQueue::add(NodeTable::Key node, int siblingGroup, bool variable, const UA_NodeId* requestId)
{
    if (requestId) {
        bool ok = false;
        const Utf8View text = nodes_->text(node);
        const Ua::NodeIdHolder named = Ua::nodeIdFromUtf8(text.data, size_t(text.size), &ok);
        if (!ok || !UA_NodeId_equal(named.get(), requestId)) {
            Ua::NodeIdHolder own;
            if (UA_NodeId_copy(requestId, own.get()) != UA_STATUSCODE_GOOD)
                return;
            requestIds_[node] = std::move(own);
        }
    }
    Entry& found = entry(node);
    found.marks |= Waiting;
    if (variable)
        found.marks |= Variable;
    found.position = int(slots_.size());
    slots_.push_back(Slot{node, siblingGroup});
}

std::vector<QueuedNode> FetchQueue::startRequest(NodeTable::Key asked, const UA_NodeId& node, bool roomAhead)
{
    Entry& found = entry(asked);
    // Asked now, whatever happens to the others: never a member of a request it does not start.
    empty(found.position);
    const int from = found.position >= 0 ? found.position : int(slots_.size());
    const int siblingGroup = found.position >= 0 ? slots_[size_t(found.position)].siblingGroup : -1;
    std::vector<QueuedNode> request(1);
    request.front().node = asked;
    UA_NodeId_copy(&node, request.front().id.get());
    if (found.marks & Alone)
        return request;
    const size_t room = size_.nodes();
    if (siblingGroup >= 0)
        takeNear(from, room - request.size(), true, siblingGroup, roomAhead, &request);
    if (roomAhead)
        takeNear(from, room - request.size(), false, -1, roomAhead, &request);
    return request;
}

void FetchQueue::answered(NodeTable::Key node)
{
    if (!known(node))
        return;
    Entry& found = entries_[node];
    found.marks &= quint8(~Waiting);
    empty(found.position);
    requestIds_.erase(node);
}

void FetchQueue::askAlone(QueuedNode node)
{
    entry(node.node).marks |= Alone;
    giveBack(std::move(node));
}

void FetchQueue::giveBack(std::vector<QueuedNode>* request, size_t keep)
{
    for (size_t i = keep; i < request->size(); ++i)
        giveBack(std::move((*request)[i]));
    request->resize(keep);
}

// Only nodes taken from their positions come back (the node that starts a request is never given
// back), so their NodeIds are found again as they were found when they were taken.
void FetchQueue::giveBack(QueuedNode node)
{
    if (node.position >= 0) {
        slots_[size_t(node.position)] = Slot{node.node, node.siblingGroup};
        return;
    }
    Entry& found = entry(node.node);
    found.position = int(slots_.size());
    slots_.push_back(Slot{node.node, node.siblingGroup});
}

bool FetchQueue::requestIdOf(NodeTable::Key node, Ua::NodeIdHolder* id) const
{
    const auto own = requestIds_.find(node);
    if (own != requestIds_.end())
        return UA_NodeId_copy(own->second.get(), id->get()) == UA_STATUSCODE_GOOD;
    bool ok = false;
    const Utf8View text = nodes_->text(node);
    *id = Ua::nodeIdFromUtf8(text.data, size_t(text.size), &ok);
    return ok;
}

// Up to `count` waiting nodes nearest to `from`, first in the walk's direction through siblings,
// then the other way; only a bounded stretch of positions is looked at.
void FetchQueue::takeNear(int from, size_t count, bool siblingsOnly, int siblingGroup, bool roomAhead,
                          std::vector<QueuedNode>* request)
{
    const int lookLimit = int(count) * positionsLookedAtPerNode + positionsLookedAtAtLeast;
    const bool backwards = order_ == SiblingOrder::LastToFirst;
    size_t taken = 0;
    for (int pass = 0; pass < 2; ++pass) {
        const int step = (pass == 0) == backwards ? -1 : 1;
        for (int i = from + step, looked = 0; i >= 0 && i < int(slots_.size()) && looked < lookLimit && taken < count;
             i += step, ++looked) {
            Slot& slot = slots_[size_t(i)];
            if (slot.node == noNode || !wanted(slot.node))
                continue;
            const bool variable = (entries_[slot.node].marks & Variable) != 0;
            if (siblingsOnly && (slot.siblingGroup != siblingGroup || !(roomAhead || variable)))
                continue;
            QueuedNode node;
            if (!requestIdOf(slot.node, &node.id)) {
                // No request can carry it: it waits for nothing.
                entries_[slot.node].marks &= quint8(~Waiting);
                slot.node = noNode;
                continue;
            }
            node.node = slot.node;
            node.position = i;
            node.siblingGroup = slot.siblingGroup;
            node.variable = variable;
            request->push_back(std::move(node));
            slot.node = noNode;
            ++taken;
        }
    }
}

bool FetchQueue::wanted(NodeTable::Key node) const
{
    if (node >= entries_.size())
        return false;
    const quint8 marks = entries_[node].marks;
    return (marks & Known) && (marks & Waiting) && !(marks & Alone);
}

void FetchQueue::empty(int position)
{
    if (position < 0 || position >= int(slots_.size()))
        return;
    slots_[size_t(position)].node = noNode;
}
