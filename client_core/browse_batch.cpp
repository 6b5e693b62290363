#include "client_core/browse_batch.h"

#include "client_core/node_requests.h"
#include "client_core/reference_filter.h"
#include "client_core/server_watch.h"
#include "ua/requests.h"
#include "ua/services.h"

#include <QElapsedTimer>

#include <algorithm>

BrowseBatch::OpenChains::OpenChains(size_t nodes)
    : chains(nodes)
    , guards(nodes)
    , answered(nodes, true)
{
}

BrowseBatch::BrowseBatch(UA_Client* client, ServerWatch* watch, const RequestSize* size, Keep keep)
    : client_(client)
    , watch_(watch)
    , size_(size)
    , keep_(std::move(keep))
{
}

BatchAnswer BrowseBatch::askTogether(const std::vector<QueuedNode>& nodes)
{
    bool built = false;
    const Ua::BrowseRequestHolder request = Ua::browseRequest(nodeIdsOf(nodes), walkBrowseFilter, &built);
    if (!built)
        return BatchAnswer();
    QElapsedTimer timer;
    timer.start();
    response_ = Ua::browse(client_, *request);
    return judgeAnswer(response_->responseHeader.serviceResult, response_->resultsSize, nodes.size(), timer.elapsed());
}

std::vector<bool> BrowseBatch::keepAnswers(const std::vector<QueuedNode>& nodes)
{
    OpenChains open(nodes.size());
    for (size_t i = 0; i < nodes.size(); ++i) {
        // A bad result may be the request's doing (no continuation point left, say): the node
        // is asked alone.
        if (UA_StatusCode_isBad(response_->results[i].statusCode)) {
            open.answered[i] = false;
            continue;
        }
        appendChainPage(&open.chains[i], &open.guards[i], Ua::BrowseResultHolder(std::move(response_->results[i])));
    }
    response_ = Ua::BrowseResponseHolder();
    continueChains(&open);
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (!open.answered[i])
            continue;
        NodeBrowse outcome;
        outcome.chains.push_back(std::move(open.chains[i]));
        keep_(nodes[i].node, std::move(outcome));
    }
    return open.answered;
}

void BrowseBatch::askAlone(const QueuedNode& node)
{
    keep_(node.node, browseNodeAlone(client_, *node.id));
}

void BrowseBatch::keepFailure(NodeTable::Key node, UA_StatusCode status)
{
    NodeBrowse failed;
    failed.status = status;
    keep_(node, std::move(failed));
}

// Follows every open chain with BrowseNext requests of many continuation points. A chain whose
// continuation fails in such a request is not answered: its node is asked alone.
void BrowseBatch::continueChains(OpenChains* open)
{
    for (;;) {
        std::vector<size_t> continuing;
        for (size_t i = 0; i < open->chains.size(); ++i) {
            const BrowseChain& chain = open->chains[i];
            if (open->answered[i] && !chain.pages.empty() && chain.pages.back()->continuationPoint.length > 0
                && !UA_StatusCode_isBad(chain.pages.back()->statusCode) && !chain.continuationFailed)
                continuing.push_back(i);
        }
        if (continuing.empty())
            return;
        const size_t perRequest = continuationPointsPerRequest_ > 0
            ? std::min(continuationPointsPerRequest_, continuing.size())
            : continuing.size();
        for (size_t begin = 0; begin < continuing.size(); begin += perRequest) {
            const size_t end = std::min(continuing.size(), begin + perRequest);
            continueSome(open, std::vector<size_t>(continuing.begin() + long(begin), continuing.begin() + long(end)));
        }
    }
}

void BrowseBatch::continueSome(OpenChains* open, const std::vector<size_t>& which)
{
    if (which.size() == 1) {
        // One continuation point: the BrowseNext a request of its own would send.
        continueChainAlone(client_, &open->chains[which.front()], &open->guards[which.front()]);
        return;
    }
    std::vector<const UA_ByteString*> points;
    for (size_t index : which)
        points.push_back(&open->chains[index].pages.back()->continuationPoint);
    bool built = false;
    Ua::BrowseNextRequestHolder request = Ua::browseNextRequest(points, false, &built);
    if (!built) {
        for (size_t index : which)
            open->answered[index] = false;
        return;
    }
    Ua::BrowseNextResponseHolder response = Ua::browseNext(client_, *request);
    const UA_StatusCode status = response->responseHeader.serviceResult;
    if (status != UA_STATUSCODE_GOOD || response->resultsSize != which.size()) {
        if (watch_->gone(*size_, which.size(), status)) {
            // The chain of the node the walk asked for (the first) ends with the failure, as its
            // own BrowseNext would have; the other nodes were not answered.
            for (size_t index : which) {
                if (index == 0) {
                    open->chains[0].continuationFailed = true;
                    open->chains[0].continuationStatus = status;
                } else {
                    open->answered[index] = false;
                }
            }
            return;
        }
        // The server may still hold the points: release them, so that the nodes asked alone
        // find the points they need.
        request->releaseContinuationPoints = true;
        Ua::browseNext(client_, *request);
        for (size_t index : which)
            open->answered[index] = false;
        return;
    }
    for (size_t k = 0; k < which.size(); ++k) {
        if (UA_StatusCode_isBad(response->results[k].statusCode)) {
            open->answered[which[k]] = false;
            continue;
        }
        appendChainPage(&open->chains[which[k]], &open->guards[which[k]],
                        Ua::BrowseResultHolder(std::move(response->results[k])));
    }
}
