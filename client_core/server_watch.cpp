#include "client_core/server_watch.h"

#include "client_core/node_data_source.h"
#include "ua/client.h"
#include "ua/services.h"

#include <algorithm>

namespace {

// The drain read waits at most this many time-outs, and never longer than the ceiling.
const UA_UInt32 drainTimeouts = 10;
const UA_UInt32 drainCeilingMs = 600000;
// ... and where the pace is known, this many times what the failed request should have taken.
const double drainPaceFactor = 2.0;

} // namespace

UA_UInt32 drainWaitMs(UA_UInt32 timeoutMs, double msPerNode, size_t nodes)
{
    const UA_UInt32 longest = std::min<UA_UInt32>(timeoutMs * drainTimeouts, drainCeilingMs);
    if (msPerNode <= 0)
        return longest;
    const double expected = std::min(drainPaceFactor * msPerNode * double(nodes), double(drainCeilingMs));
    return std::min(longest, std::max(timeoutMs, UA_UInt32(expected)));
}

ServerWatch::ServerWatch(UA_Client* client)
    : client_(client)
{
}

bool ServerWatch::gone(const RequestSize& size, size_t nodes, UA_StatusCode status)
{
    if (isConnectionFailure(status))
        return true;
    return status == UA_STATUSCODE_BADTIMEOUT && !answersDrainRead(size, nodes);
}

bool ServerWatch::answersDrainRead(const RequestSize& size, size_t nodes)
{
    // Without a measure of this kind of request, another kind's tells the server's pace, and
    // before either the first read.
    double msPerNode = size.msPerNode();
    if (msPerNode <= 0) {
        for (const RequestSize* other : paces_)
            msPerNode = std::max(msPerNode, other->msPerNode());
    }
    if (msPerNode <= 0)
        msPerNode = firstReadMs_;
    const UA_UInt32 timeout = UA_Client_getConfig(client_)->timeout;
    const Ua::TimeoutScope longer(client_, drainWaitMs(timeout, msPerNode, nodes));
    Ua::VariantHolder state;
    return Ua::readValue(client_, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERSTATUS_STATE), &state)
        == UA_STATUSCODE_GOOD;
}
