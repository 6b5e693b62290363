#include "client_core/opc_ua_client_core.h"

#include "client_core/browse_path.h"
#include "client_core/data_types.h"
#include "ua/holders.h"
#include "ua/services.h"
#include "ua/text.h"

#include <QHash>
#include <QSet>

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
    UA_Client* client = nullptr;
    QList<ClientCore::BrowseItem>* items = nullptr;
    QStringList* warnings = nullptr;
    const std::function<void()>* progress = nullptr;
    QList<PendingBrowse> work;
    QSet<QString> browsed;
    QSet<QString> queued;
    QHash<QString, int> itemIndex;
    QHash<QString, ResolvedDataType> resolvedTypes;
    bool stopped = false;
};

const UA_UInt32 objectsFolderId = UA_NS0ID_OBJECTSFOLDER;
const UA_UInt32 browsedNodeClasses = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE | UA_NODECLASS_VIEW;

bool isConnectionLoss(UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADTIMEOUT || status == UA_STATUSCODE_BADCONNECTIONCLOSED
        || status == UA_STATUSCODE_BADSECURECHANNELCLOSED || status == UA_STATUSCODE_BADSESSIONCLOSED
        || status == UA_STATUSCODE_BADSERVERNOTCONNECTED;
}

void warn(BrowseState& state, const QString& text)
{
    if (state.warnings)
        state.warnings->append(text);
}

// A node reached again before it was browsed keeps the better of its two paths.
void offerPathToQueuedEntry(BrowseState& state, const QString& child, const QStringList& childPath)
{
    for (PendingBrowse& entry : state.work) {
        if (entry.nodeId != child)
            continue;
        if (isBetterBrowsePath(joinBrowsePath(childPath), joinBrowsePath(entry.path)))
            entry.path = childPath;
        return;
    }
}

// The three attributes a variable item needs, each with the status a single attribute read
// would have given it.
struct VariableAttributes
{
    Ua::NodeIdHolder dataType;
    UA_StatusCode dataTypeStatus = UA_STATUSCODE_BADUNEXPECTEDERROR;
    UA_Byte accessLevel = UA_ACCESSLEVELMASK_READ;
    UA_StatusCode accessLevelStatus = UA_STATUSCODE_BADUNEXPECTEDERROR;
    UA_Int32 valueRank = UA_VALUERANK_SCALAR;
};

// One Read for the three attributes instead of three round trips: on a large address space the
// round trips are where the time goes. Each result is judged exactly as a single attribute read
// judges its own (service result, result count, per-result status, scalar of the expected type).
VariableAttributes readVariableAttributes(UA_Client* client, const UA_NodeId& nodeId)
{
    const UA_AttributeId attributeIds[3] = {UA_ATTRIBUTEID_DATATYPE, UA_ATTRIBUTEID_ACCESSLEVEL,
                                            UA_ATTRIBUTEID_VALUERANK};
    const UA_DataType* expected[3] = {&UA_TYPES[UA_TYPES_NODEID], &UA_TYPES[UA_TYPES_BYTE], &UA_TYPES[UA_TYPES_INT32]};

    VariableAttributes attributes;
    Ua::ReadRequestHolder request;
    request->nodesToRead = static_cast<UA_ReadValueId*>(UA_Array_new(3, &UA_TYPES[UA_TYPES_READVALUEID]));
    if (!request->nodesToRead) {
        attributes.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
        return attributes;
    }
    request->nodesToReadSize = 3;
    for (size_t i = 0; i < 3; ++i) {
        request->nodesToRead[i].attributeId = attributeIds[i];
        if (UA_NodeId_copy(&nodeId, &request->nodesToRead[i].nodeId) != UA_STATUSCODE_GOOD) {
            attributes.dataTypeStatus = UA_STATUSCODE_BADOUTOFMEMORY;
            return attributes;
        }
    }

    const Ua::ReadResponseHolder response = Ua::read(client, *request);

    UA_StatusCode statuses[3];
    for (size_t i = 0; i < 3; ++i) {
        UA_StatusCode status = response->responseHeader.serviceResult;
        if (status == UA_STATUSCODE_GOOD)
            status = response->resultsSize == 3 ? response->results[i].status : UA_STATUSCODE_BADUNEXPECTEDERROR;
        if (status == UA_STATUSCODE_GOOD) {
            const UA_DataValue& result = response->results[i];
            if (!result.hasValue || !UA_Variant_isScalar(&result.value) || result.value.type != expected[i])
                status = UA_STATUSCODE_BADUNEXPECTEDERROR;
        }
        statuses[i] = status;
    }

    attributes.dataTypeStatus = statuses[0];
    if (statuses[0] == UA_STATUSCODE_GOOD)
        UA_NodeId_copy(static_cast<const UA_NodeId*>(response->results[0].value.data), attributes.dataType.get());
    attributes.accessLevelStatus = statuses[1];
    if (statuses[1] == UA_STATUSCODE_GOOD)
        attributes.accessLevel = *static_cast<const UA_Byte*>(response->results[1].value.data);
    if (statuses[2] == UA_STATUSCODE_GOOD)
        attributes.valueRank = *static_cast<const UA_Int32*>(response->results[2].value.data);
    return attributes;
}

// Many variables share few data types; a type resolved once needs no second walk up its hierarchy.
bool resolveCachedDataType(BrowseState& state, const UA_NodeId& dataType, ResolvedDataType* out)
{
    const QString key = Ua::nodeIdToQString(dataType);
    const auto cached = state.resolvedTypes.constFind(key);
    if (!key.isEmpty() && cached != state.resolvedTypes.constEnd()) {
        *out = cached.value();
        return true;
    }
    if (!resolveSupportedDataType(state.client, dataType, out))
        return false;
    if (!key.isEmpty())
        state.resolvedTypes.insert(key, *out);
    return true;
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

    const VariableAttributes attributes = readVariableAttributes(state.client, reference.nodeId.nodeId);
    if (attributes.dataTypeStatus != UA_STATUSCODE_GOOD) {
        warn(state, QStringLiteral("Skipping %1 because reading its data type failed: %2")
                        .arg(variable, Ua::statusCodeName(attributes.dataTypeStatus)));
        if (isConnectionLoss(attributes.dataTypeStatus))
            state.stopped = true;
        return;
    }

    ResolvedDataType type;
    if (!resolveCachedDataType(state, *attributes.dataType, &type)) {
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
    if (reference.nodeId.serverIndex != 0 || reference.nodeId.namespaceUri.length != 0) {
        warn(state, QStringLiteral("Skipping non-local OPC UA reference under %1").arg(parent));
        return;
    }
    const QString child = Ua::nodeIdToQString(reference.nodeId.nodeId);
    if (child.isEmpty()) {
        warn(state, QStringLiteral("Skipping OPC UA reference with unsupported NodeId encoding under %1").arg(parent));
        return;
    }

    QStringList childPath = parentPath;
    QString segment = Ua::toQString(reference.browseName.name);
    if (segment.isEmpty())
        segment = Ua::toQString(reference.displayName.text);
    if (!segment.isEmpty())
        childPath.append(segment);

    if (reference.nodeClass != UA_NODECLASS_OBJECT && reference.nodeClass != UA_NODECLASS_VARIABLE
        && reference.nodeClass != UA_NODECLASS_VIEW)
        return;

    if (!state.browsed.contains(child)) {
        if (!state.queued.contains(child)) {
            state.work.append(PendingBrowse{child, childPath});
            state.queued.insert(child);
        } else {
            offerPathToQueuedEntry(state, child, childPath);
        }
    }

    if (reference.nodeClass == UA_NODECLASS_VARIABLE)
        handleVariable(state, child, childPath, reference);
}

// Handles one browse result and follows its continuation points to the end of the chain.
void handleResult(BrowseState& state, const PendingBrowse& parent, Ua::BrowseResultHolder result)
{
    for (;;) {
        if (UA_StatusCode_isBad(result->statusCode)) {
            warn(state, QStringLiteral("Browse result failed for %1: %2").arg(parent.nodeId, Ua::statusCodeName(result->statusCode)));
            if (isConnectionLoss(result->statusCode))
                state.stopped = true;
            return;
        }
        for (size_t i = 0; i < result->referencesSize && !state.stopped; ++i)
            handleReference(state, parent.nodeId, parent.path, result->references[i]);
        if (state.stopped || result->continuationPoint.length == 0)
            return;

        Ua::BrowseNextRequestHolder request;
        request->releaseContinuationPoints = false;
        request->continuationPoints = UA_ByteString_new();
        if (!request->continuationPoints
            || UA_ByteString_copy(&result->continuationPoint, request->continuationPoints) != UA_STATUSCODE_GOOD)
            return;
        request->continuationPointsSize = 1;

        Ua::BrowseNextResponseHolder response = Ua::browseNext(state.client, *request);
        const UA_StatusCode status = response->responseHeader.serviceResult;
        if (status == UA_STATUSCODE_GOOD && response->resultsSize > 0) {
            result = Ua::BrowseResultHolder(std::move(response->results[0]));
            continue;
        }
        // A Good answer without a result is reported with its Good status name on purpose.
        warn(state, QStringLiteral("BrowseNext failed for %1: %2").arg(parent.nodeId, Ua::statusCodeName(status)));
        if (isConnectionLoss(status))
            state.stopped = true;
        return;
    }
}

void browseOne(BrowseState& state, const PendingBrowse& entry)
{
    bool parsed = false;
    Ua::NodeIdHolder nodeId = Ua::nodeIdFromQString(entry.nodeId, &parsed);
    if (!parsed) {
        warn(state, QStringLiteral("Unable to parse browsed node identifier %1").arg(entry.nodeId));
        return;
    }

    Ua::BrowseRequestHolder request;
    request->requestedMaxReferencesPerNode = 0;
    request->nodesToBrowse = UA_BrowseDescription_new();
    if (!request->nodesToBrowse)
        return;
    request->nodesToBrowseSize = 1;
    UA_BrowseDescription& description = request->nodesToBrowse[0];
    description.nodeId = nodeId.release();
    description.browseDirection = UA_BROWSEDIRECTION_FORWARD;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description.includeSubtypes = true;
    description.nodeClassMask = browsedNodeClasses;
    description.resultMask = UA_BROWSERESULTMASK_ALL;

    Ua::BrowseResponseHolder response = Ua::browse(state.client, *request);
    const UA_StatusCode status = response->responseHeader.serviceResult;
    if (UA_StatusCode_isBad(status)) {
        warn(state, QStringLiteral("Browse failed for %1: %2").arg(entry.nodeId, Ua::statusCodeName(status)));
        if (isConnectionLoss(status)) {
            warn(state, QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                       "connection timeout. %1 items were collected.")
                            .arg(state.items->size()));
            state.stopped = true;
        }
        return;
    }

    std::vector<Ua::BrowseResultHolder> results;
    results.reserve(response->resultsSize);
    for (size_t i = 0; i < response->resultsSize; ++i)
        results.emplace_back(std::move(response->results[i]));
    for (Ua::BrowseResultHolder& result : results) {
        handleResult(state, entry, std::move(result));
        if (state.stopped)
            return;
    }
}

} // namespace

bool ClientCore::browseNodes(QList<BrowseItem>* items, QStringList* warnings, const std::function<void()>& progress)
{
    if (!items || !client || !isConnected())
        return false;
    items->clear();
    if (warnings)
        warnings->clear();

    BrowseState state;
    state.client = client.get();
    state.items = items;
    state.warnings = warnings;
    state.progress = &progress;

    QString start = Ua::nodeIdToQString(UA_NODEID_NUMERIC(0, objectsFolderId));
    if (start.isEmpty())
        start = QStringLiteral("i=85");
    state.work.append(PendingBrowse{start, QStringList()});
    state.queued.insert(start);

    while (!state.work.isEmpty() && !state.stopped) {
        const PendingBrowse entry = state.work.takeLast();
        if (state.browsed.contains(entry.nodeId))
            continue;
        state.browsed.insert(entry.nodeId);
        browseOne(state, entry);
    }
    return true;
}
