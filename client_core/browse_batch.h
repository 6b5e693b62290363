#pragma once

#include "client_core/batch_fetch.h"
#include "client_core/node_data_source.h"

#include <functional>

class ServerWatch;

// The Browse results of several nodes in one Browse request, their continuation chains followed
// by BrowseNext requests of many continuation points.
class BrowseBatch : public BatchQuestion
{
public:
    using Keep = std::function<void(NodeTable::Key node, NodeBrowse answer)>;

    // `size` sizes this kind of request; `keep` receives every answer kept as a node's own.
    BrowseBatch(UA_Client* client, ServerWatch* watch, const RequestSize* size, Keep keep);

    // The continuation points one BrowseNext may carry; 0: no limit.
    void setContinuationPointsPerRequest(size_t points) { continuationPointsPerRequest_ = points; }

    BatchAnswer askTogether(const std::vector<QueuedNode>& nodes) override;
    std::vector<bool> keepAnswers(const std::vector<QueuedNode>& nodes) override;
    void askAlone(const QueuedNode& node) override;
    void keepFailure(NodeTable::Key node, UA_StatusCode status) override;

private:
    // The chains of the nodes of one request while BrowseNext continues them.
    struct OpenChains
    {
        explicit OpenChains(size_t nodes);
        std::vector<BrowseChain> chains;
        std::vector<ContinuationGuard> guards;
        std::vector<bool> answered;   // false: the node is not answered by this request
    };

    void continueChains(OpenChains* open);
    void continueSome(OpenChains* open, const std::vector<size_t>& which);

    UA_Client* client_;
    ServerWatch* watch_;
    const RequestSize* size_;
    Keep keep_;
    size_t continuationPointsPerRequest_ = 0;
    Ua::BrowseResponseHolder response_;   // the answered request, until its answers are kept
};
