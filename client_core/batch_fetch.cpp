#include "client_core/batch_fetch.h"

#include "client_core/server_watch.h"

#include <algorithm>

namespace {

// After a time-out only the node the walk needs is asked again; after any other failure, which
// may be the size, half of the request.
size_t nodesAskedAgain(size_t nodes, UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADTIMEOUT ? 1 : std::max<size_t>(1, nodes / 2);
}

} // namespace

std::vector<const UA_NodeId*> nodeIdsOf(const std::vector<QueuedNode>& nodes)
{
    std::vector<const UA_NodeId*> ids;
    ids.reserve(nodes.size());
    for (const QueuedNode& node : nodes)
        ids.push_back(node.id.get());
    return ids;
}

BatchAnswer judgeAnswer(UA_StatusCode status, size_t results, size_t expectedResults, qint64 elapsedMs)
{
    BatchAnswer answer;
    answer.status = status;
    const bool complete = status == UA_STATUSCODE_GOOD && results == expectedResults;
    answer.outcome = complete ? BatchAnswer::Outcome::Answered : BatchAnswer::Outcome::Failed;
    answer.elapsedMs = elapsedMs;
    return answer;
}

void fetchInBatches(FetchQueue& queue, BatchQuestion& question, ServerWatch& watch, int timeoutMs,
                    std::vector<QueuedNode> request)
{
    for (;;) {
        if (request.size() == 1) {
            question.askAlone(request.front());
            return;
        }
        const BatchAnswer answer = question.askTogether(request);
        switch (answer.outcome) {
        case BatchAnswer::Outcome::NotBuilt:
            queue.giveBack(&request, 1);
            continue;
        case BatchAnswer::Outcome::Failed:
            if (watch.gone(queue.size(), request.size(), answer.status)) {
                queue.giveBack(&request, 1);
                question.keepFailure(request.front().node, answer.status);
                return;
            }
            queue.size().refused(request.size(), answer.status);
            queue.giveBack(&request, nodesAskedAgain(request.size(), answer.status));
            continue;
        case BatchAnswer::Outcome::Answered:
            break;
        }
        queue.size().answered(request.size(), answer.elapsedMs, timeoutMs);
        const std::vector<bool> kept = question.keepAnswers(request);
        for (size_t i = 1; i < request.size(); ++i) {
            if (!kept[i])
                queue.askAlone(std::move(request[i]));
        }
        if (!kept.front())
            question.askAlone(request.front());
        return;
    }
}
