#include "client_core/request_size.h"

#include <algorithm>
#include <limits>

namespace {

// Nodes of the first request of a kind, before anything was measured.
const size_t firstRequestNodes = 16;
// How much larger the next request may be than the last one answered.
const size_t growthFactor = 4;
// A request is expected to take at most this share of the time-out (1/4).
const double timeoutShareDivisor = 4.0;
// After a time-out the next request is this much smaller: the request was far too large for the
// server; after any other failure, it was too large.
const size_t shrinkAfterTimeout = 4;
const size_t shrinkAfterRefusal = 2;

} // namespace

RequestSize::RequestSize(size_t operationsPerNode)
    : operationsPerNode_(std::max<size_t>(1, operationsPerNode))
    , limit_(operationsPerNode_)
    , learned_(std::numeric_limits<size_t>::max())
    , current_(operationsPerNode_)
{
}

void RequestSize::start(size_t publishedLimit, size_t ceiling)
{
    limit_ = publishedLimit > 0 ? std::min(publishedLimit, ceiling) : ceiling;
    current_ = std::min(limit_, firstRequestNodes * operationsPerNode_);
}

size_t RequestSize::nodes() const
{
    // A limit below one node's operations still allows the request of one node.
    return std::max<size_t>(1, current_ / operationsPerNode_);
}

void RequestSize::answered(size_t nodes, qint64 ms, int timeoutMs)
{
    if (nodes == 0)
        return;
    msPerNode_ = double(ms) / double(nodes);
    const size_t operations = nodes * operationsPerNode_;
    size_t next = std::min({limit_, learned_, std::max(current_, operations) * growthFactor});
    if (msPerNode_ > 0) {
        const double allowedNodes = (timeoutMs / timeoutShareDivisor) / msPerNode_;
        next = std::min(next, size_t(std::max(1.0, allowedNodes)) * operationsPerNode_);
    }
    current_ = std::max(operationsPerNode_, next);
}

void RequestSize::refused(size_t nodes, UA_StatusCode status)
{
    const size_t divisor = status == UA_STATUSCODE_BADTIMEOUT ? shrinkAfterTimeout : shrinkAfterRefusal;
    const size_t shrunk = std::max(operationsPerNode_, (nodes / divisor) * operationsPerNode_);
    current_ = std::min(current_, shrunk);
    if (isSizeRefusal(status))
        learned_ = std::min(learned_, current_);
}

bool isSizeRefusal(UA_StatusCode status)
{
    switch (status) {
    case UA_STATUSCODE_BADTOOMANYOPERATIONS:
    case UA_STATUSCODE_BADTIMEOUT:
    case UA_STATUSCODE_BADREQUESTTOOLARGE:
    case UA_STATUSCODE_BADRESPONSETOOLARGE:
    case UA_STATUSCODE_BADENCODINGLIMITSEXCEEDED:
        return true;
    default:
        return false;
    }
}
