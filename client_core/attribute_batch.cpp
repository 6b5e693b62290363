#include "client_core/attribute_batch.h"

#include "client_core/node_requests.h"
#include "ua/requests.h"
#include "ua/services.h"

#include <QElapsedTimer>

AttributeBatch::AttributeBatch(UA_Client* client, Keep keep)
    : client_(client)
    , keep_(std::move(keep))
{
}

BatchAnswer AttributeBatch::askTogether(const std::vector<QueuedNode>& variables)
{
    bool built = false;
    const Ua::ReadRequestHolder request = Ua::readRequest(nodeIdsOf(variables), variableAttributeIds, &built);
    if (!built)
        return BatchAnswer();
    QElapsedTimer timer;
    timer.start();
    response_ = Ua::read(client_, *request);
    return judgeAnswer(response_->responseHeader.serviceResult, response_->resultsSize,
                       variables.size() * variableAttributeIds.size(), timer.elapsed());
}

// A variable whose three attributes were all read is answered; any other answer may be the
// request's doing, and the variable is read alone.
std::vector<bool> AttributeBatch::keepAnswers(const std::vector<QueuedNode>& variables)
{
    std::vector<bool> kept(variables.size(), false);
    const size_t perVariable = variableAttributeIds.size();
    for (size_t v = 0; v < variables.size(); ++v) {
        const UA_DataValue* results = response_->results + perVariable * v;
        bool clean = true;
        for (size_t a = 0; a < perVariable; ++a)
            clean = clean && results[a].status == UA_STATUSCODE_GOOD;
        if (!clean)
            continue;
        keep_(variables[v].node, attributesFromResults(results));
        kept[v] = true;
    }
    response_ = Ua::ReadResponseHolder();
    return kept;
}

void AttributeBatch::askAlone(const QueuedNode& variable)
{
    keep_(variable.node, readAttributesAlone(client_, *variable.id));
}

void AttributeBatch::keepFailure(NodeTable::Key variable, UA_StatusCode status)
{
    VariableAttributes failed;
    failed.dataTypeStatus = status;
    failed.accessLevelStatus = status;
    keep_(variable, std::move(failed));
}
