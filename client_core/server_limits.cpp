#include "client_core/server_limits.h"

#include "ua/requests.h"
#include "ua/services.h"

#include <QElapsedTimer>

#include <algorithm>
#include <iterator>

namespace {

// A read that took no measurable time still counts as a measure.
const double shortestReadMs = 0.001;
const double nanosecondsPerMs = 1e6;

// A published limit: an unsigned scalar; anything else counts as none.
size_t limitFromResult(const UA_DataValue& value)
{
    if (value.status != UA_STATUSCODE_GOOD || !value.hasValue || !UA_Variant_isScalar(&value.value))
        return 0;
    if (value.value.type == &UA_TYPES[UA_TYPES_UINT32])
        return *static_cast<const UA_UInt32*>(value.value.data);
    if (value.value.type == &UA_TYPES[UA_TYPES_UINT16])
        return *static_cast<const UA_UInt16*>(value.value.data);
    return 0;
}

} // namespace

ServerLimits readServerLimits(UA_Client* client)
{
    const UA_NodeId nodes[] = {
        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE),
        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD),
        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBROWSECONTINUATIONPOINTS)};
    ServerLimits limits;
    size_t* const fields[] = {&limits.maxNodesPerBrowse, &limits.maxNodesPerRead, &limits.maxBrowseContinuationPoints};
    bool built = false;
    const Ua::ReadRequestHolder request =
        Ua::readRequest({&nodes[0], &nodes[1], &nodes[2]}, {UA_ATTRIBUTEID_VALUE}, &built);
    if (!built)
        return limits;
    QElapsedTimer timer;
    timer.start();
    const Ua::ReadResponseHolder response = Ua::read(client, *request);
    if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD)
        return limits;
    limits.readMs = std::max(double(timer.nsecsElapsed()) / nanosecondsPerMs, shortestReadMs);
    if (response->resultsSize != std::size(nodes))
        return limits;
    for (size_t i = 0; i < std::size(nodes); ++i)
        *fields[i] = limitFromResult(response->results[i]);
    return limits;
}
