#include "client_core/browse.h"

#include "client_core/batched_source.h"
#include "client_core/browse_items.h"
#include "client_core/browse_path.h"
#include "client_core/node_data_source.h"
#include "client_core/one_by_one_source.h"
#include "client_core/opc_ua_client_core.h"
#include "client_core/reference_filter.h"
#include "ua/client.h"
#include "ua/text.h"

#include <QHash>

#include <memory>
#include <vector>

namespace {

// One node waiting to be browsed, with the path of browse-name segments that led to it.
struct PendingBrowse
{
    NodeTable::Key node;
    BrowsePathTree::Ref path;
};

// Where a node stands in the walk, by its number in the walk's node table.
enum NodeMark : quint8 { queuedMark = 1, browsedMark = 2 };

// Everything one browseNodes call works on; nothing of it outlives the call but the items.
struct BrowseState
{
    NodeDataSource* source = nullptr;
    BrowseItems* items = nullptr;
    QStringList* warnings = nullptr;
    const std::function<void()>* progress = nullptr;
    std::vector<PendingBrowse> work;
    QHash<NodeTable::Key, size_t> workPosition;   // a queued node's place in the work list until it is taken
    std::vector<quint8> marks;                    // by node: NodeMark bits
    bool stopped = false;

    bool has(NodeTable::Key node, NodeMark mark) const { return node < marks.size() && (marks[node] & mark) != 0; }
    void mark(NodeTable::Key node, NodeMark mark)
    {
        if (node >= marks.size())
            marks.resize(size_t(items->nodes().size()), 0);
        marks[node] |= mark;
    }
};

void warn(BrowseState& state, const QString& text)
{
    if (state.warnings)
        state.warnings->append(text);
}

// A node reached again before it was browsed keeps the better of its two paths.
void offerPathToQueuedEntry(BrowseState& state, NodeTable::Key child, BrowsePathTree::Ref childPath)
{
    const auto position = state.workPosition.constFind(child);
    if (position == state.workPosition.constEnd())
        return;
    PendingBrowse& entry = state.work[position.value()];
    const BrowsePathTree& paths = state.items->paths();
    if (isBetterBrowsePath(paths.text(childPath), paths.text(entry.path)))
        entry.path = childPath;
}

void handleVariable(BrowseState& state, NodeTable::Key node, const QString& variable, BrowsePathTree::Ref childPath,
                    const UA_ReferenceDescription& reference)
{
    const BrowseItems::Item known = state.items->itemOf(node);
    if (known >= 0) {
        state.items->offerPath(known, childPath);
        return;
    }

    const VariableAttributes attributes = state.source->attributes(node, reference.nodeId.nodeId);
    if (attributes.dataTypeStatus != UA_STATUSCODE_GOOD) {
        warn(state, QStringLiteral("Skipping %1 because reading its data type failed: %2")
                        .arg(variable, Ua::statusCodeName(attributes.dataTypeStatus)));
        if (isConnectionLoss(attributes.dataTypeStatus))
            state.stopped = true;
        return;
    }

    ResolvedDataType type;
    if (!state.source->resolveDataType(*attributes.dataType, &type)) {
        QString typeText = Ua::nodeIdToQString(*attributes.dataType);
        if (typeText.isEmpty())
            typeText = QStringLiteral("<unknown>");
        warn(state, QStringLiteral("Skipping %1 because OPC UA data type %2 is not supported by the connector")
                        .arg(variable, typeText));
        return;
    }

    const UA_Byte accessLevel = attributes.accessLevel;
    const bool accessLevelFailed = attributes.accessLevelStatus != UA_STATUSCODE_GOOD;
    if (accessLevelFailed)
        warn(state, QStringLiteral("Could not read access level for %1, defaulting to readable: %2")
                        .arg(variable, Ua::statusCodeName(attributes.accessLevelStatus)));
    const UA_Int32 valueRank = attributes.valueRank;

    const bool readable = accessLevelFailed || (accessLevel & UA_ACCESSLEVELMASK_READ) != 0;
    const bool writable = (accessLevel & UA_ACCESSLEVELMASK_WRITE) != 0 && type.writable;
    if (!readable && !writable) {
        warn(state, QStringLiteral("Skipping %1 because it is neither readable nor writable").arg(variable));
        return;
    }

    // A path without segments (names that the path leaves out) gives way to the variable's
    // display name, browse name or identifier.
    BrowsePathTree::Ref itemPath = childPath;
    if (itemPath == BrowsePathTree::empty) {
        QString name = Ua::toQString(reference.displayName.text);
        if (name.isEmpty())
            name = Ua::toQString(reference.browseName.name);
        if (name.isEmpty())
            name = variable;
        itemPath = state.items->paths().literal(name);
    }
    state.items->append(node, itemPath, *Ua::supportedTypeOfKind(quint32(type.typeIndex)), readable, writable,
                        valueRank >= 0);
    if (*state.progress)
        (*state.progress)();
}

void handleReference(BrowseState& state, const QString& parent, BrowsePathTree::Ref parentPath,
                     const UA_ReferenceDescription& reference)
{
    QString child;
    switch (judgeReference(reference, &child)) {
    case ReferenceVerdict::NotLocal:
        warn(state, QStringLiteral("Skipping non-local OPC UA reference under %1").arg(parent));
        return;
    case ReferenceVerdict::UnnamedTarget:
        warn(state, QStringLiteral("Skipping OPC UA reference with unsupported NodeId encoding under %1").arg(parent));
        return;
    case ReferenceVerdict::NotWalkedClass:
        return;
    case ReferenceVerdict::Followed:
        break;
    }

    QString segment = Ua::toQString(reference.browseName.name);
    if (segment.isEmpty())
        segment = Ua::toQString(reference.displayName.text);

    const NodeTable::Key node = state.items->nodes().add(child);
    const BrowsePathTree::Ref childPath = state.items->paths().child(parentPath, segment);
    if (!state.has(node, browsedMark)) {
        if (!state.has(node, queuedMark)) {
            state.workPosition.insert(node, state.work.size());
            state.work.push_back(PendingBrowse{node, childPath});
            state.mark(node, queuedMark);
            state.source->queued(node);
        } else {
            offerPathToQueuedEntry(state, node, childPath);
        }
    }

    if (reference.nodeClass == UA_NODECLASS_VARIABLE)
        handleVariable(state, node, child, childPath, reference);
}

// Handles one result of a node's Browse and the pages that continued it.
void handleChain(BrowseState& state, const PendingBrowse& parent, const QString& parentId, const BrowseChain& chain)
{
    for (size_t p = 0; p < chain.pages.size(); ++p) {
        const UA_BrowseResult& page = *chain.pages[p];
        if (UA_StatusCode_isBad(page.statusCode)) {
            warn(state, QStringLiteral("Browse result failed for %1: %2")
                            .arg(parentId, Ua::statusCodeName(page.statusCode)));
            if (isConnectionLoss(page.statusCode))
                state.stopped = true;
            return;
        }
        for (size_t i = 0; i < page.referencesSize && !state.stopped; ++i)
            handleReference(state, parentId, parent.path, page.references[i]);
        if (state.stopped || page.continuationPoint.length == 0)
            return;
    }
    if (!chain.continuationFailed)
        return;
    // A Good answer without a result is reported with its Good status name on purpose.
    warn(state, QStringLiteral("BrowseNext failed for %1: %2")
                    .arg(parentId, Ua::statusCodeName(chain.continuationStatus)));
    if (isConnectionLoss(chain.continuationStatus))
        state.stopped = true;
}

void browseOne(BrowseState& state, const PendingBrowse& entry)
{
    // The work list holds nodes by number; the text is spelled out only for the node in hand.
    const Utf8View text = state.items->nodes().text(entry.node);
    const QString entryId = text.toQString();
    bool parsed = false;
    const Ua::NodeIdHolder nodeId = Ua::nodeIdFromUtf8(text.data, size_t(text.size), &parsed);
    if (!parsed) {
        warn(state, QStringLiteral("Unable to parse browsed node identifier %1").arg(entryId));
        return;
    }

    const NodeBrowse browse = state.source->browse(entry.node, *nodeId);
    if (UA_StatusCode_isBad(browse.status)) {
        warn(state, QStringLiteral("Browse failed for %1: %2").arg(entryId, Ua::statusCodeName(browse.status)));
        if (isConnectionLoss(browse.status)) {
            warn(state, QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                       "connection timeout. %1 items were collected.")
                            .arg(state.items->size()));
            state.stopped = true;
        }
        return;
    }
    for (const BrowseChain& chain : browse.chains) {
        handleChain(state, entry, entryId, chain);
        if (state.stopped)
            return;
    }
}

} // namespace

bool ClientCore::browseNodes(BrowseItems* items, QStringList* warnings, const std::function<void()>& progress,
                             BrowseFetch fetch)
{
    if (!items || !client || !isConnected())
        return false;
    items->clear();
    if (warnings)
        warnings->clear();

    // A server that went away ends the walk; it is not connected again behind the walk's back.
    const Ua::NoReconnectScope noReconnect(client.get());
    const std::unique_ptr<NodeDataSource> source =
        fetch == BrowseFetch::Batched ? newBatchedSource(client.get(), &items->nodes()) : newOneByOneSource(client.get());
    BrowseState state;
    state.source = source.get();
    state.items = items;
    state.warnings = warnings;
    state.progress = &progress;

    QString start = Ua::nodeIdToQString(UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    if (start.isEmpty())
        start = QStringLiteral("i=85");
    const NodeTable::Key startNode = items->nodes().add(start);
    state.workPosition.insert(startNode, 0);
    state.work.push_back(PendingBrowse{startNode, BrowsePathTree::empty});
    state.mark(startNode, queuedMark);
    state.source->queued(startNode);

    while (!state.work.empty() && !state.stopped) {
        const PendingBrowse entry = std::move(state.work.back());
        state.work.pop_back();
        state.workPosition.remove(entry.node);
        if (state.has(entry.node, browsedMark))
            continue;
        state.mark(entry.node, browsedMark);
        browseOne(state, entry);
    }
    // The server is gone or does not answer: its channel is closed at once, so that the
    // disconnect that follows does not wait a time-out more for a server that cannot answer.
    if (state.stopped)
        Ua::closeSecureChannelPromptly(client.get());
    return true;
}
