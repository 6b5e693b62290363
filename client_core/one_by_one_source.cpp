#include "client_core/one_by_one_source.h"

#include "client_core/node_requests.h"

namespace {

// Every question in a request of its own, when the walk asks it.
class OneByOneSource : public NodeDataSource
{
public:
    explicit OneByOneSource(UA_Client* client)
        : NodeDataSource(client)
        , client_(client)
    {
    }

    void queued(NodeTable::Key) override {}

    NodeBrowse browse(NodeTable::Key, const UA_NodeId& nodeId) override { return browseNodeAlone(client_, nodeId); }

    VariableAttributes attributes(NodeTable::Key, const UA_NodeId& nodeId) override
    {
        return readAttributesAlone(client_, nodeId);
    }

private:
    UA_Client* client_;
};

} // namespace

std::unique_ptr<NodeDataSource> newOneByOneSource(UA_Client* client)
{
    return std::make_unique<OneByOneSource>(client);
}
