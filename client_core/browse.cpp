#include "client_core/opc_ua_client_core.h"

#include "client_core/browse_path.h"
#include "client_core/node_data_source.h"
#include "client_core/reference_filter.h"
#include "ua/client.h"
#include "ua/text.h"

#include <QHash>
#include <QSet>

#include <memory>
#include <vector>

namespace {

// One node waiting to be browsed, with the browse-name segments that led to it.
struct PendingBrowse
{
    QString nodeId;
    QStringList path;
};

// Everything one browseNodes call works on; nothing of it outlives the call.
struct BrowseState
{
    NodeDataSource* source = nullptr;
    QList<ClientCore::BrowseItem>* items = nullptr;
    QStringList* warnings = nullptr;
    const std::function<void()>* progress = nullptr;
    std::vector<PendingBrowse> work;
    QHash<QString, size_t> workPosition;   // a queued node's place in the work list until it is taken
    QSet<QString> browsed;
    QSet<QString> queued;
    QHash<QString, int> itemIndex;
    bool stopped = false;
};

void warn(BrowseState& state, const QString& text)
{
    if (state.warnings)
        state.warnings->append(text);
}

// A node reached again before it was browsed keeps the better of its two paths.
void offerPathToQueuedEntry(BrowseState& state, const QString& child, const QStringList& childPath)
{
    const auto position = state.workPosition.constFind(child);
    if (position == state.workPosition.constEnd())
        return;
    PendingBrowse& entry = state.work[position.value()];
    if (isBetterBrowsePath(joinBrowsePath(childPath), joinBrowsePath(entry.path)))
        entry.path = childPath;
}

void handleVariable(BrowseState& state, const QString& variable, const QStringList& childPath,
                    const UA_ReferenceDescription& reference)
{
    const QString joined = joinBrowsePath(childPath);
    const auto known = state.itemIndex.constFind(variable);
    if (known != state.itemIndex.constEnd()) {
        ClientCore::BrowseItem& item = (*state.items)[known.value()];
        applyAlternateBrowsePath(&item.browsePath, &item.description, joined);
        return;
    }

    const VariableAttributes attributes = state.source->attributes(variable, reference.nodeId.nodeId);
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

    ClientCore::BrowseItem item;
    item.nodeId = variable;
    item.browsePath = joined;
    if (item.browsePath.isEmpty())
        item.browsePath = Ua::toQString(reference.displayName.text);
    if (item.browsePath.isEmpty())
        item.browsePath = Ua::toQString(reference.browseName.name);
    if (item.browsePath.isEmpty())
        item.browsePath = variable;
    item.dataType = type.name;
    item.readable = readable;
    item.writable = writable;
    item.isArray = valueRank >= 0;
    item.description = QStringLiteral("OPC UA Variable (%1%2)")
                           .arg(type.name, item.isArray ? QStringLiteral(", array") : QString());

    state.itemIndex.insert(variable, state.items->size());
    state.items->append(item);
    if (*state.progress)
        (*state.progress)();
}

void handleReference(BrowseState& state, const QString& parent, const QStringList& parentPath,
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

    QStringList childPath = parentPath;
    QString segment = Ua::toQString(reference.browseName.name);
    if (segment.isEmpty())
        segment = Ua::toQString(reference.displayName.text);
    if (!segment.isEmpty())
        childPath.append(segment);

    if (!state.browsed.contains(child)) {
        if (!state.queued.contains(child)) {
            state.workPosition.insert(child, state.work.size());
            state.work.push_back(PendingBrowse{child, childPath});
            state.queued.insert(child);
            state.source->queued(child);
        } else {
            offerPathToQueuedEntry(state, child, childPath);
        }
    }

    if (reference.nodeClass == UA_NODECLASS_VARIABLE)
        handleVariable(state, child, childPath, reference);
}

// Handles one result of a node's Browse and the pages that continued it.
void handleChain(BrowseState& state, const PendingBrowse& parent, const BrowseChain& chain)
{
    for (size_t p = 0; p < chain.pages.size(); ++p) {
        const UA_BrowseResult& page = *chain.pages[p];
        if (UA_StatusCode_isBad(page.statusCode)) {
            warn(state, QStringLiteral("Browse result failed for %1: %2")
                            .arg(parent.nodeId, Ua::statusCodeName(page.statusCode)));
            if (isConnectionLoss(page.statusCode))
                state.stopped = true;
            return;
        }
        for (size_t i = 0; i < page.referencesSize && !state.stopped; ++i)
            handleReference(state, parent.nodeId, parent.path, page.references[i]);
        if (state.stopped || page.continuationPoint.length == 0)
            return;
    }
    if (!chain.continuationFailed)
        return;
    // A Good answer without a result is reported with its Good status name on purpose.
    warn(state, QStringLiteral("BrowseNext failed for %1: %2")
                    .arg(parent.nodeId, Ua::statusCodeName(chain.continuationStatus)));
    if (isConnectionLoss(chain.continuationStatus))
        state.stopped = true;
}

void browseOne(BrowseState& state, const PendingBrowse& entry)
{
    bool parsed = false;
    const Ua::NodeIdHolder nodeId = Ua::nodeIdFromQString(entry.nodeId, &parsed);
    if (!parsed) {
        warn(state, QStringLiteral("Unable to parse browsed node identifier %1").arg(entry.nodeId));
        return;
    }

    const NodeBrowse browse = state.source->browse(entry.nodeId, *nodeId);
    if (UA_StatusCode_isBad(browse.status)) {
        warn(state, QStringLiteral("Browse failed for %1: %2").arg(entry.nodeId, Ua::statusCodeName(browse.status)));
        if (isConnectionLoss(browse.status)) {
            warn(state, QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                       "connection timeout. %1 items were collected.")
                            .arg(state.items->size()));
            state.stopped = true;
        }
        return;
    }
    for (const BrowseChain& chain : browse.chains) {
        handleChain(state, entry, chain);
        if (state.stopped)
            return;
    }
}

} // namespace

bool ClientCore::browseNodes(QList<BrowseItem>* items, QStringList* warnings, const std::function<void()>& progress,
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
        fetch == BrowseFetch::Batched ? newBatchedSource(client.get()) : newOneByOneSource(client.get());
    BrowseState state;
    state.source = source.get();
    state.items = items;
    state.warnings = warnings;
    state.progress = &progress;

    QString start = Ua::nodeIdToQString(UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    if (start.isEmpty())
        start = QStringLiteral("i=85");
    state.workPosition.insert(start, 0);
    state.work.push_back(PendingBrowse{start, QStringList()});
    state.queued.insert(start);
    state.source->queued(start);

    while (!state.work.empty() && !state.stopped) {
        const PendingBrowse entry = std::move(state.work.back());
        state.work.pop_back();
        state.workPosition.remove(entry.nodeId);
        if (state.browsed.contains(entry.nodeId))
            continue;
        state.browsed.insert(entry.nodeId);
        browseOne(state, entry);
    }
    // The server is gone or does not answer: its channel is closed at once, so that the
    // disconnect that follows does not wait a time-out more for a server that cannot answer.
    if (state.stopped)
        Ua::closeSecureChannelPromptly(client.get());
    return true;
}
