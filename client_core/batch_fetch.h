#pragma once

#include "client_core/fetch_queue.h"

#include <open62541/types.h>

#include <QtGlobal>

#include <vector>

class ServerWatch;

// How a request of several nodes went.
struct BatchAnswer
{
    enum class Outcome {
        NotBuilt,   // the request could not be built (memory): nothing was sent
        Failed,     // the service failed, or answered with the wrong number of results
        Answered,   // the service answered every node
    };
    Outcome outcome = Outcome::NotBuilt;
    UA_StatusCode status = UA_STATUSCODE_GOOD;   // the service result
    qint64 elapsedMs = 0;                        // Answered: how long the request took
};

// The NodeIds a request about these nodes carries, in order.
std::vector<const UA_NodeId*> nodeIdsOf(const std::vector<QueuedNode>& nodes);

// A sent request answered `status` with `results` results after `elapsedMs`; it is answered
// when the service succeeded with the `expectedResults` the request asked for.
BatchAnswer judgeAnswer(UA_StatusCode status, size_t results, size_t expectedResults, qint64 elapsedMs);

// One kind of question asked of the server, for one node or for several in one request.
class BatchQuestion
{
public:
    virtual ~BatchQuestion() = default;

    // Asks about the nodes in one request; an answered request is held for keepAnswers.
    virtual BatchAnswer askTogether(const std::vector<QueuedNode>& nodes) = 0;
    // Keeps every answer of the held request that counts as a node's own: the answer a request
    // for that node alone would have given. Whether each node's answer was kept, in order.
    virtual std::vector<bool> keepAnswers(const std::vector<QueuedNode>& nodes) = 0;
    // Asks about one node in a request of its own and keeps the answer.
    virtual void askAlone(const QueuedNode& node) = 0;
    // Keeps the failure of a request as the node's answer, as if the request had been its own.
    virtual void keepFailure(NodeTable::Key node, UA_StatusCode status) = 0;
};

// Asks about the nodes of a request (the node the walk needs now first) and keeps every answer
// that counts as the node's own. A request of several nodes that failed while the server is
// still there is never an answer: the nodes are asked again in smaller requests, the first one
// down to a request of its own, and the next requests of this kind stay small. Nodes whose
// answers in a request of several nodes may be that request's doing are asked alone later.
// When the server is gone, the failure is the first node's answer.
void fetchInBatches(FetchQueue& queue, BatchQuestion& question, ServerWatch& watch, int timeoutMs,
                    std::vector<QueuedNode> request);
