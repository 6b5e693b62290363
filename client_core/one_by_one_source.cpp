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

    void queued(const QString&) override {}

    NodeBrowse browse(const QString&, const UA_NodeId& node) override { return browseNodeAlone(client_, node); }

    VariableAttributes attributes(const QString&, const UA_NodeId& node) override
    {
        return readAttributesAlone(client_, node);
    }

private:
    UA_Client* client_;
};

} // namespace

std::unique_ptr<NodeDataSource> newOneByOneSource(UA_Client* client)
{
    return std::make_unique<OneByOneSource>(client);
}
