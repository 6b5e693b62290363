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
// Answers fetched ahead and not yet asked for by the walk stay within these bounds.
const size_t aheadReferences = 200000;
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
    explicit BatchedSource(UA_Client* client)
        : NodeDataSource(client)
        , timeoutMs_(int(std::max<UA_UInt32>(1, UA_Client_getConfig(client)->timeout)))
        , watch_(client)
        , browsing_(SiblingOrder::LastToFirst, 1)
        , reading_(SiblingOrder::FirstToLast, variableAttributeIds.size())
        , browseBatch_(client, &watch_, &browsing_.size(),
                       [this](const QString& node, NodeBrowse answer) { keepBrowse(node, std::move(answer)); })
        , attributeBatch_(client, [this](const QString& variable, VariableAttributes answer) {
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

    void queued(const QString& nodeId) override
    {
        if (browsing_.known(nodeId))
            return;
        QueuedNode node;
        bool ok = false;
        node.id = Ua::nodeIdFromQString(nodeId, &ok);
        node.text = nodeId;
        if (ok)
            browsing_.add(std::move(node));
    }

    NodeBrowse browse(const QString& nodeId, const UA_NodeId& node) override
    {
        auto fetched = fetchedBrowse_.find(nodeId);
        if (fetched == fetchedBrowse_.end()) {
            const bool roomAhead = heldReferences_ < aheadReferences && fetchedBrowse_.size() < aheadBrowseAnswers;
            fetchInBatches(browsing_, browseBatch_, watch_, timeoutMs_, browsing_.startRequest(nodeId, node, roomAhead));
            fetched = fetchedBrowse_.find(nodeId);
        }
        NodeBrowse outcome = std::move(fetched->second);
        fetchedBrowse_.erase(fetched);
        heldReferences_ -= std::min(heldReferences_, referenceCount(outcome));
        return outcome;
    }

    VariableAttributes attributes(const QString& nodeId, const UA_NodeId& node) override
    {
        auto fetched = fetchedAttributes_.find(nodeId);
        if (fetched == fetchedAttributes_.end()) {
            const bool roomAhead = fetchedAttributes_.size() < aheadAttributeAnswers;
            fetchInBatches(reading_, attributeBatch_, watch_, timeoutMs_, reading_.startRequest(nodeId, node, roomAhead));
            fetched = fetchedAttributes_.find(nodeId);
        }
        VariableAttributes outcome = std::move(fetched->second);
        fetchedAttributes_.erase(fetched);
        return outcome;
    }

private:
    void keepBrowse(const QString& node, NodeBrowse answer)
    {
        browsing_.answered(node);
        queueWhatTheWalkWillAsk(answer);
        heldReferences_ += referenceCount(answer);
        fetchedBrowse_[node] = std::move(answer);
    }

    void keepAttributes(const QString& variable, VariableAttributes answer)
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
        QString child;
        if (judgeReference(reference, &child) != ReferenceVerdict::Followed)
            return;
        const bool variable = reference.nodeClass == UA_NODECLASS_VARIABLE;
        if (!browsing_.known(child)) {
            // The walk browses the node its text names, so the request carries that.
            QueuedNode node{child, Ua::NodeIdHolder(), -1, siblingGroup, variable};
            bool ok = false;
            node.id = Ua::nodeIdFromQString(child, &ok);
            if (ok)
                browsing_.add(std::move(node));
        }
        if (variable && !reading_.known(child)) {
            QueuedNode node{child, Ua::NodeIdHolder(), -1, siblingGroup, true};
            if (UA_NodeId_copy(&reference.nodeId.nodeId, node.id.get()) == UA_STATUSCODE_GOOD)
                reading_.add(std::move(node));
        }
    }

    int timeoutMs_;
    ServerWatch watch_;
    FetchQueue browsing_;
    FetchQueue reading_;
    BrowseBatch browseBatch_;
    AttributeBatch attributeBatch_;
    std::unordered_map<QString, NodeBrowse> fetchedBrowse_;
    size_t heldReferences_ = 0;
    int siblingGroups_ = 0;
    std::unordered_map<QString, VariableAttributes> fetchedAttributes_;
};

} // namespace

std::unique_ptr<NodeDataSource> newBatchedSource(UA_Client* client)
{
    return std::make_unique<BatchedSource>(client);
}
