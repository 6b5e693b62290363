#include "client_core/fetch_queue.h"

namespace {

// Looking for nodes near a position stops after this many positions per node wanted, plus a few.
const int positionsLookedAtPerNode = 8;
const int positionsLookedAtAtLeast = 64;

} // namespace

FetchQueue::FetchQueue(SiblingOrder order, size_t operationsPerNode)
    : order_(order)
    , size_(operationsPerNode)
{
}

bool FetchQueue::known(const QString& text) const
{
    return entries_.contains(text);
}

void FetchQueue::add(QueuedNode node)
{
    Entry& entry = entries_[node.text];
    entry.marks |= Waiting;
    node.position = int(nodes_.size());
    entry.position = node.position;
    nodes_.push_back(std::move(node));
}

std::vector<QueuedNode> FetchQueue::startRequest(const QString& asked, const UA_NodeId& node, bool roomAhead)
{
    Entry& entry = entries_[asked];
    // Asked now, whatever happens to the others: never a member of a request it does not start.
    empty(entry.position);
    const int from = entry.position >= 0 ? entry.position : int(nodes_.size());
    const int siblingGroup = entry.position >= 0 ? nodes_[size_t(entry.position)].siblingGroup : -1;
    std::vector<QueuedNode> request(1);
    request.front().text = asked;
    UA_NodeId_copy(&node, request.front().id.get());
    if (entry.marks & Alone)
        return request;
    const size_t room = size_.nodes();
    if (siblingGroup >= 0)
        takeNear(from, room - request.size(), true, siblingGroup, roomAhead, &request);
    if (roomAhead)
        takeNear(from, room - request.size(), false, -1, roomAhead, &request);
    return request;
}

void FetchQueue::answered(const QString& text)
{
    const auto found = entries_.find(text);
    if (found == entries_.end())
        return;
    found->marks &= quint8(~Waiting);
    empty(found->position);
}

void FetchQueue::askAlone(QueuedNode node)
{
    entries_[node.text].marks |= Alone;
    giveBack(std::move(node));
}

void FetchQueue::giveBack(std::vector<QueuedNode>* request, size_t keep)
{
    for (size_t i = keep; i < request->size(); ++i)
        giveBack(std::move((*request)[i]));
    request->resize(keep);
}

void FetchQueue::giveBack(QueuedNode node)
{
    if (node.position >= 0) {
        const size_t position = size_t(node.position);
        nodes_[position] = std::move(node);
        return;
    }
    // The node that started the request had no position: it waits at the end.
    Entry& entry = entries_[node.text];
    node.position = int(nodes_.size());
    entry.position = node.position;
    nodes_.push_back(std::move(node));
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
        for (int i = from + step, looked = 0; i >= 0 && i < int(nodes_.size()) && looked < lookLimit && taken < count;
             i += step, ++looked) {
            QueuedNode& node = nodes_[size_t(i)];
            if (node.text.isEmpty() || !wanted(node))
                continue;
            if (siblingsOnly && (node.siblingGroup != siblingGroup || !(roomAhead || node.variable)))
                continue;
            request->push_back(std::move(node));
            node.text = QString();
            node.id = Ua::NodeIdHolder();
            ++taken;
        }
    }
}

bool FetchQueue::wanted(const QueuedNode& node) const
{
    const auto found = entries_.constFind(node.text);
    return found != entries_.constEnd() && (found->marks & Waiting) && !(found->marks & Alone);
}

void FetchQueue::empty(int position)
{
    if (position < 0 || position >= int(nodes_.size()))
        return;
    nodes_[size_t(position)].text = QString();
    nodes_[size_t(position)].id = Ua::NodeIdHolder();
}
