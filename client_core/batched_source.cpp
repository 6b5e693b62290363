#include "client_core/batched_source.h"

#include "client_core/attribute_batch.h"
#include "client_core/batch_fetch.h"
#include "client_core/browse_batch.h"
#include "client_core/fetch_queue.h"
#include "client_core/node_requests.h"
#include "client_core/reference_filter.h"
#include "client_core/server_limits.h"
#include "client_core/server_watch.h"
#include "ua/text.h"

#include <algorithm>
#include <unordered_map>

namespace {

// Ceilings whatever the server allows: larger requests gain nothing on a LAN.
const size_t browseCeilingNodes = 1000;
const size_t readCeilingOperations = 3000;   // ReadValueIds, three per variable
// Answers fetched ahead and not yet asked for by the walk stay within these bounds. A held
// reference costs about 200 bytes; 50 000 of them keep requests as full as four times as many.
const size_t aheadReferences = 50000;
const size_t aheadBrowseAnswers = 20000;
const size_t aheadAttributeAnswers = 20000;

size_t referenceCount(const NodeBrowse& browse)
{
    size_t count = 0;
    for (const BrowseChain& chain : browse.chains) {
        for (const Ua::BrowseResultHolder& page : chain.pages)
            count += page->referencesSize;
    }
    return count;
}

// Two fetch queues, one per kind of question, fed by the answers themselves: every Browse answer
// names the nodes the walk will browse and the variables whose attributes it will read.
class BatchedSource : public NodeDataSource
{
public:
    BatchedSource(UA_Client* client, NodeTable* nodes)
        : NodeDataSource(client)
        , nodes_(nodes)
        , timeoutMs_(int(std::max<UA_UInt32>(1, UA_Client_getConfig(client)->timeout)))
        , watch_(client)
        , browsing_(nodes, SiblingOrder::LastToFirst, 1)
        , reading_(nodes, SiblingOrder::FirstToLast, variableAttributeIds.size())
        , browseBatch_(client, &watch_, &browsing_.size(),
                       [this](NodeTable::Key node, NodeBrowse answer) { keepBrowse(node, std::move(answer)); })
        , attributeBatch_(client, [this](NodeTable::Key variable, VariableAttributes answer) {
            keepAttributes(variable, std::move(answer));
        })
    {
        const ServerLimits limits = readServerLimits(client);
        browsing_.size().start(limits.maxNodesPerBrowse, browseCeilingNodes);
        reading_.size().start(limits.maxNodesPerRead, readCeilingOperations);
        browseBatch_.setContinuationPointsPerRequest(limits.maxBrowseContinuationPoints);
        watch_.setFirstReadMs(limits.readMs);
        watch_.watchPace(&browsing_.size());
        watch_.watchPace(&reading_.size());
    }

    void queued(NodeTable::Key node) override
    {
        if (!browsing_.known(node))
            browsing_.add(node, -1, false);
    }

    NodeBrowse browse(NodeTable::Key node, const UA_NodeId& nodeId) override
    {
        auto fetched = fetchedBrowse_.find(node);
        if (fetched == fetchedBrowse_.end()) {
            const bool roomAhead = heldReferences_ < aheadReferences && fetchedBrowse_.size() < aheadBrowseAnswers;
            fetchInBatches(browsing_, browseBatch_, watch_, timeoutMs_, browsing_.startRequest(node, nodeId, roomAhead));
            fetched = fetchedBrowse_.find(node);
        }
        NodeBrowse outcome = std::move(fetched->second);
        fetchedBrowse_.erase(fetched);
        heldReferences_ -= std::min(heldReferences_, referenceCount(outcome));
        return outcome;
    }

    VariableAttributes attributes(NodeTable::Key node, const UA_NodeId& nodeId) override
    {
        auto fetched = fetchedAttributes_.find(node);
        if (fetched == fetchedAttributes_.end()) {
            const bool roomAhead = fetchedAttributes_.size() < aheadAttributeAnswers;
            fetchInBatches(reading_, attributeBatch_, watch_, timeoutMs_, reading_.startRequest(node, nodeId, roomAhead));
            fetched = fetchedAttributes_.find(node);
        }
        VariableAttributes outcome = std::move(fetched->second);
        fetchedAttributes_.erase(fetched);
        return outcome;
    }

private:
    void keepBrowse(NodeTable::Key node, NodeBrowse answer)
    {
        browsing_.answered(node);
        queueWhatTheWalkWillAsk(answer);
        heldReferences_ += referenceCount(answer);
        fetchedBrowse_[node] = std::move(answer);
    }

    void keepAttributes(NodeTable::Key variable, VariableAttributes answer)
    {
        reading_.answered(variable);
        fetchedAttributes_[variable] = std::move(answer);
    }

    // The children the walk will queue once it handles this answer, and among them the
    // variables whose attributes it will read. They are siblings: one answer found them.
    void queueWhatTheWalkWillAsk(const NodeBrowse& answer)
    {
        const int siblingGroup = siblingGroups_++;
        for (const BrowseChain& chain : answer.chains) {
            for (const Ua::BrowseResultHolder& page : chain.pages) {
                for (size_t i = 0; i < page->referencesSize; ++i)
                    queueChild(page->references[i], siblingGroup);
            }
        }
    }

    void queueChild(const UA_ReferenceDescription& reference, int siblingGroup)
    {
        if (judgeReference(reference, &child_) != ReferenceVerdict::Followed)
            return;
        const bool variable = reference.nodeClass == UA_NODECLASS_VARIABLE;
        const NodeTable::Key node = nodes_->add(child_);
        // The walk browses the node its text names, so the request carries that; it reads the
        // attributes of the NodeId the reference names.
        if (!browsing_.known(node))
            browsing_.add(node, siblingGroup, variable);
        if (variable && !reading_.known(node))
            reading_.add(node, siblingGroup, true, &reference.nodeId.nodeId);
    }

    NodeTable* nodes_;
    int timeoutMs_;
    ServerWatch watch_;
    FetchQueue browsing_;
    FetchQueue reading_;
    BrowseBatch browseBatch_;
    AttributeBatch attributeBatch_;
    std::unordered_map<NodeTable::Key, NodeBrowse> fetchedBrowse_;
    size_t heldReferences_ = 0;
    int siblingGroups_ = 0;
    std::unordered_map<NodeTable::Key, VariableAttributes> fetchedAttributes_;
    QString child_;   // the text of the child being queued, its buffer reused
};

} // namespace

std::unique_ptr<NodeDataSource> newBatchedSource(UA_Client* client, NodeTable* nodes)
{
    return std::make_unique<BatchedSource>(client, nodes);
}
