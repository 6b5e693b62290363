#pragma once

#include "client_core/batch_fetch.h"
#include "client_core/node_data_source.h"

#include <functional>

// The attributes of several variables (DataType, AccessLevel, ValueRank of each) in one Read.
class AttributeBatch : public BatchQuestion
{
public:
    using Keep = std::function<void(NodeTable::Key variable, VariableAttributes answer)>;

    // `keep` receives every answer kept as a variable's own.
    AttributeBatch(UA_Client* client, Keep keep);

    BatchAnswer askTogether(const std::vector<QueuedNode>& variables) override;
    std::vector<bool> keepAnswers(const std::vector<QueuedNode>& variables) override;
    void askAlone(const QueuedNode& variable) override;
    void keepFailure(NodeTable::Key variable, UA_StatusCode status) override;

private:
    UA_Client* client_;
    Keep keep_;
    Ua::ReadResponseHolder response_;   // the answered request, until its answers are kept
};
