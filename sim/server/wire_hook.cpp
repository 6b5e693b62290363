#include "sim/server/wire_hook.h"

#include "ua/holders.h"
#include "sim/server/address_space.h"

#include <QElapsedTimer>
#include <QThread>

#include <cstring>

namespace opcua_sim {

namespace {

WireHook* activeHook = nullptr;

constexpr int messageHeaderSize = 8;
// MSG: header, secure channel id, token id, sequence number, request id.
constexpr int symmetricBodyOffset = 24;
constexpr quint32 maxChunkSize = 16 * 1024 * 1024;

quint32 readUInt32(const char* data)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    return quint32(bytes[0]) | quint32(bytes[1]) << 8 | quint32(bytes[2]) << 16 | quint32(bytes[3]) << 24;
}

void writeUInt32(char* data, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        data[i] = static_cast<char>((value >> (8 * i)) & 0xff);
}

// The type id that starts a message body: only the numeric encodings occur for services.
bool readTypeIdAt(const QByteArray& bytes, int offset, quint32* id, int* length)
{
    if (bytes.size() < offset + 2)
        return false;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.constData()) + offset;
    const int available = bytes.size() - offset;
    switch (data[0]) {
    case 0x00:
        *id = data[1];
        *length = 2;
        return true;
    case 0x01:
        if (available < 4 || data[1] != 0)
            return false;
        *id = quint32(data[2]) | quint32(data[3]) << 8;
        *length = 4;
        return true;
    case 0x02:
        if (available < 7 || data[1] != 0 || data[2] != 0)
            return false;
        *id = readUInt32(reinterpret_cast<const char*>(data) + 3);
        *length = 7;
        return true;
    default:
        return false;
    }
}

bool readTypeId(const QByteArray& chunk, quint32* id, int* length)
{
    return readTypeIdAt(chunk, symmetricBodyOffset, id, length);
}

quint32 encodingId(int typeIndex)
{
    return UA_TYPES[typeIndex].binaryEncodingId.identifier.numeric;
}

QString serviceName(const WireHook& hook, const QByteArray& chunk, const ConnectionState& connection)
{
    quint32 id = 0;
    int length = 0;
    if (readTypeId(chunk, &id, &length)) {
        const auto it = hook.requestNames.find(id);
        if (it != hook.requestNames.end())
            return it->second;
    }
    return connection.noneChannel ? QStringLiteral("Unknown") : QStringLiteral("Encrypted");
}

bool matches(const QStringList& services, const QString& name)
{
    return services.isEmpty() || services.contains(name);
}

void interruptibleSleep(const WireHook& hook, qint64 microseconds)
{
    QElapsedTimer timer;
    timer.start();
    qint64 left = microseconds;
    while (left > 0 && (!hook.running || *hook.running)) {
        QThread::usleep(static_cast<unsigned long>(qMin<qint64>(20000, left)));
        left = microseconds - timer.nsecsElapsed() / 1000;
    }
}

// Replaces the body of a single-chunk message of a None channel, fixing the size field.
QByteArray rebuildChunk(const QByteArray& chunk, int bodyOffset, const UA_ByteString& body)
{
    QByteArray out = chunk.left(bodyOffset);
    out.append(reinterpret_cast<const char*>(body.data), static_cast<int>(body.length));
    writeUInt32(out.data() + 4, static_cast<quint32>(out.size()));
    return out;
}

template <typename T>
bool decodeBody(const QByteArray& chunk, int bodyOffset, T* out, int typeIndex)
{
    UA_ByteString body = {static_cast<size_t>(chunk.size() - bodyOffset),
                          reinterpret_cast<UA_Byte*>(const_cast<char*>(chunk.constData() + bodyOffset))};
    return UA_decodeBinary(&body, out, &UA_TYPES[typeIndex], nullptr) == UA_STATUSCODE_GOOD;
}

template <typename T>
bool encodeInto(const QByteArray& chunk, int bodyOffset, const T& value, int typeIndex, QByteArray* out)
{
    Ua::ByteStringHolder body;
    if (UA_encodeBinary(&value, &UA_TYPES[typeIndex], body.get()) != UA_STATUSCODE_GOOD)
        return false;
    *out = rebuildChunk(chunk, bodyOffset, *body);
    return true;
}

bool rewriteRead(QByteArray* chunk, int bodyOffset)
{
    Ua::Value<UA_ReadRequest, UA_TYPES_READREQUEST> request;
    if (!decodeBody(*chunk, bodyOffset, request.get(), UA_TYPES_READREQUEST))
        return false;
    const UA_NodeId target = UA_NODEID_STRING(1, const_cast<char*>(accessLevelReadFailsId()));
    bool changed = false;
    for (size_t i = 0; i < request->nodesToReadSize; ++i) {
        UA_ReadValueId& item = request->nodesToRead[i];
        if (item.attributeId == UA_ATTRIBUTEID_ACCESSLEVEL && UA_NodeId_equal(&item.nodeId, &target)) {
            item.attributeId = 0x7fffffff; // no such attribute: the read answers BadAttributeIdInvalid
            changed = true;
        }
    }
    return changed && encodeInto(*chunk, bodyOffset, *request, UA_TYPES_READREQUEST, chunk);
}

bool delaysPerOperation(const QString& name)
{
    return name == QLatin1String("Browse") || name == QLatin1String("BrowseNext") || name == QLatin1String("Read");
}

// The number of nodes a whole request (type id and body, all chunks joined) asks about.
size_t operationCount(const QByteArray& message)
{
    quint32 id = 0;
    int length = 0;
    if (!readTypeIdAt(message, 0, &id, &length))
        return 0;
    if (id == encodingId(UA_TYPES_BROWSEREQUEST)) {
        Ua::Value<UA_BrowseRequest, UA_TYPES_BROWSEREQUEST> request;
        return decodeBody(message, length, request.get(), UA_TYPES_BROWSEREQUEST) ? request->nodesToBrowseSize : 0;
    }
    if (id == encodingId(UA_TYPES_BROWSENEXTREQUEST)) {
        Ua::Value<UA_BrowseNextRequest, UA_TYPES_BROWSENEXTREQUEST> request;
        return decodeBody(message, length, request.get(), UA_TYPES_BROWSENEXTREQUEST) ? request->continuationPointsSize
                                                                                       : 0;
    }
    if (id == encodingId(UA_TYPES_READREQUEST)) {
        Ua::Value<UA_ReadRequest, UA_TYPES_READREQUEST> request;
        return decodeBody(message, length, request.get(), UA_TYPES_READREQUEST) ? request->nodesToReadSize : 0;
    }
    return 0;
}

QString nodeIdText(const UA_NodeId& node)
{
    Ua::StringHolder text;
    if (UA_NodeId_print(&node, text.get()) != UA_STATUSCODE_GOOD)
        return QString();
    return QString::fromUtf8(reinterpret_cast<const char*>(text->data), static_cast<int>(text->length));
}

// Counts what a whole request (type id and body, all chunks joined) asks: the nodes of a Browse,
// the continuation points of a BrowseNext, the ReadValueIds of a Read, and the Browse
// descriptions that ask a data type for its supertype (HasSubtype, inverse), by node.
void countOperations(WireHook* hook, const QByteArray& message)
{
    quint32 id = 0;
    int length = 0;
    if (!readTypeIdAt(message, 0, &id, &length))
        return;
    QMap<QString, qint64>& counts = hook->stats.counts;
    if (id == encodingId(UA_TYPES_BROWSEREQUEST)) {
        Ua::Value<UA_BrowseRequest, UA_TYPES_BROWSEREQUEST> request;
        if (!decodeBody(message, length, request.get(), UA_TYPES_BROWSEREQUEST))
            return;
        counts[QStringLiteral("browse_nodes")] += qint64(request->nodesToBrowseSize);
        const UA_NodeId hasSubtype = UA_NODEID_NUMERIC(0, UA_NS0ID_HASSUBTYPE);
        for (size_t i = 0; i < request->nodesToBrowseSize; ++i) {
            const UA_BrowseDescription& description = request->nodesToBrowse[i];
            if (description.browseDirection != UA_BROWSEDIRECTION_INVERSE ||
                !UA_NodeId_equal(&description.referenceTypeId, &hasSubtype))
                continue;
            const qint64 browses = ++hook->supertypeBrowses[nodeIdText(description.nodeId)];
            ++counts[QStringLiteral("supertype_browses")];
            counts[QStringLiteral("supertype_nodes")] = qint64(hook->supertypeBrowses.size());
            const QString most = QStringLiteral("supertype_browses_per_node_max");
            counts[most] = qMax(counts.value(most), browses);
        }
    } else if (id == encodingId(UA_TYPES_BROWSENEXTREQUEST)) {
        Ua::Value<UA_BrowseNextRequest, UA_TYPES_BROWSENEXTREQUEST> request;
        if (decodeBody(message, length, request.get(), UA_TYPES_BROWSENEXTREQUEST))
            counts[QStringLiteral("browse_next_points")] += qint64(request->continuationPointsSize);
    } else if (id == encodingId(UA_TYPES_READREQUEST)) {
        Ua::Value<UA_ReadRequest, UA_TYPES_READREQUEST> request;
        if (decodeBody(message, length, request.get(), UA_TYPES_READREQUEST))
            counts[QStringLiteral("read_operations")] += qint64(request->nodesToReadSize);
    }
    writeRequestStats(hook->stats);
}

// A server that spends a fixed time on every node of a request: a large batch takes long, a
// single node does not.
void delayForOperations(const WireHook& hook, const QByteArray& message)
{
    const size_t count = operationCount(message);
    interruptibleSleep(hook, static_cast<qint64>(double(count) * hook.scenario->misbehaviour.delayPerOperationMs * 1000));
}

bool namesNodes(const QString& name)
{
    return name == QLatin1String("Browse") || name == QLatin1String("Read");
}

// Whether the body decodes as a request of the type and one of its items (the nodes it browses
// or reads) names the node.
template <typename Request, int TypeIndex, typename Item>
bool itemNamesNode(const QByteArray& message, int length, const UA_NodeId& node, Item* Request::*items,
                   size_t Request::*count)
{
    Ua::Value<Request, TypeIndex> request;
    if (!decodeBody(message, length, request.get(), TypeIndex))
        return false;
    for (size_t i = 0; i < (*request).*count; ++i) {
        if (UA_NodeId_equal(&((*request).*items)[i].nodeId, &node))
            return true;
    }
    return false;
}

// Whether a whole request (type id and body, all chunks joined) names the node among the nodes
// it browses or reads.
bool namesNode(const QByteArray& message, const UA_NodeId& node)
{
    quint32 id = 0;
    int length = 0;
    if (!readTypeIdAt(message, 0, &id, &length))
        return false;
    if (id == encodingId(UA_TYPES_BROWSEREQUEST)) {
        return itemNamesNode<UA_BrowseRequest, UA_TYPES_BROWSEREQUEST>(
            message, length, node, &UA_BrowseRequest::nodesToBrowse, &UA_BrowseRequest::nodesToBrowseSize);
    }
    if (id == encodingId(UA_TYPES_READREQUEST)) {
        return itemNamesNode<UA_ReadRequest, UA_TYPES_READREQUEST>(
            message, length, node, &UA_ReadRequest::nodesToRead, &UA_ReadRequest::nodesToReadSize);
    }
    return false;
}

UA_String uaString(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    UA_String view = {static_cast<size_t>(utf8.size()), reinterpret_cast<UA_Byte*>(const_cast<char*>(utf8.constData()))};
    UA_String out;
    UA_String_copy(&view, &out);
    return out;
}

void setDiscoveryUrls(UA_ApplicationDescription* app, const QStringList& urls)
{
    UA_Array_delete(app->discoveryUrls, app->discoveryUrlsSize, &UA_TYPES[UA_TYPES_STRING]);
    app->discoveryUrls = nullptr;
    app->discoveryUrlsSize = 0;
    if (urls.isEmpty())
        return;
    app->discoveryUrls = static_cast<UA_String*>(UA_Array_new(static_cast<size_t>(urls.size()), &UA_TYPES[UA_TYPES_STRING]));
    if (!app->discoveryUrls)
        return;
    app->discoveryUrlsSize = static_cast<size_t>(urls.size());
    for (int i = 0; i < urls.size(); ++i)
        app->discoveryUrls[i] = uaString(urls.at(i));
}

void describeSelf(const Scenario& scenario, UA_ApplicationDescription* app)
{
    setDiscoveryUrls(app, {advertisedUrl(scenario)});
    app->applicationType = static_cast<UA_ApplicationType>(scenario.application.type);
}

bool rewriteGetEndpoints(const Scenario& scenario, QByteArray* chunk, int bodyOffset)
{
    Ua::Value<UA_GetEndpointsResponse, UA_TYPES_GETENDPOINTSRESPONSE> response;
    if (!decodeBody(*chunk, bodyOffset, response.get(), UA_TYPES_GETENDPOINTSRESPONSE))
        return false;
    if (scenario.noEndpoints) {
        UA_Array_delete(response->endpoints, response->endpointsSize, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
        response->endpoints = nullptr;
        response->endpointsSize = 0;
    }
    for (size_t i = 0; i < response->endpointsSize; ++i) {
        UA_EndpointDescription& endpoint = response->endpoints[i];
        UA_String_clear(&endpoint.endpointUrl);
        endpoint.endpointUrl = uaString(advertisedUrl(scenario));
        describeSelf(scenario, &endpoint.server);
    }
    return encodeInto(*chunk, bodyOffset, *response, UA_TYPES_GETENDPOINTSRESPONSE, chunk);
}

UA_ApplicationDescription extraApplication(const ApplicationSettings& application)
{
    UA_ApplicationDescription app;
    UA_ApplicationDescription_init(&app);
    app.applicationUri = uaString(application.uri);
    app.productUri = uaString(application.productUri);
    app.applicationName.locale = uaString(application.locale);
    app.applicationName.text = uaString(application.name);
    app.applicationType = static_cast<UA_ApplicationType>(application.type);
    setDiscoveryUrls(&app, application.discoveryUrls);
    return app;
}

bool rewriteFindServers(const Scenario& scenario, QByteArray* chunk, int bodyOffset)
{
    Ua::Value<UA_FindServersResponse, UA_TYPES_FINDSERVERSRESPONSE> response;
    if (!decodeBody(*chunk, bodyOffset, response.get(), UA_TYPES_FINDSERVERSRESPONSE))
        return false;
    // The stack lists itself first when the request's filter lets it.
    const bool self = scenario.findServersSelf && response->serversSize > 0;
    const size_t count = (self ? 1 : 0) + static_cast<size_t>(scenario.extraServers.size());
    auto* servers = static_cast<UA_ApplicationDescription*>(
        UA_Array_new(count, &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]));
    if (count > 0 && !servers)
        return false;
    size_t next = 0;
    if (self) {
        UA_ApplicationDescription_copy(&response->servers[0], &servers[next]);
        describeSelf(scenario, &servers[next]);
        ++next;
    }
    for (const ApplicationSettings& extra : scenario.extraServers)
        servers[next++] = extraApplication(extra);
    UA_Array_delete(response->servers, response->serversSize, &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]);
    response->servers = servers;
    response->serversSize = count;
    return encodeInto(*chunk, bodyOffset, *response, UA_TYPES_FINDSERVERSRESPONSE, chunk);
}

enum class Verdict { Forward, Drop };

bool faultArmed(const WireHook& hook)
{
    return !hook.scenario->misbehaviour.fault.isEmpty() && !hook.faultFired;
}

// The server goes away as the scenario says: it closes the connection without an answer and
// stays dead ("close") or serves the next connection as a restarted server would ("restart"),
// or it stops answering anything at all until it is stopped ("freeze").
Verdict fireFault(WireHook* hook)
{
    hook->faultFired = true;
    const QString& action = hook->scenario->misbehaviour.fault;
    if (action == QLatin1String("freeze")) {
        while (!hook->running || *hook->running)
            interruptibleSleep(*hook, 1000000);
    }
    if (action == QLatin1String("close"))
        hook->dead = true;
    return Verdict::Drop;
}

// The last chunk of a request that is looked at whole has come in.
Verdict completeRequest(WireHook* hook, ConnectionState* connection)
{
    const QByteArray message = connection->requestBody;
    connection->requestBody.clear();
    if (connection->countOperations)
        countOperations(hook, message);
    if (connection->delayRequest)
        delayForOperations(*hook, message);
    if (connection->faultByNode && faultArmed(*hook) && namesNode(message, *hook->faultNode->get()))
        return fireFault(hook);
    return Verdict::Forward;
}

Verdict inspectInbound(WireHook* hook, ConnectionState* connection, QByteArray* chunk)
{
    if (hook->dead)
        return Verdict::Drop;
    const QByteArray type = chunk->left(3);
    if (type == "HEL") {
        countRequest(&hook->stats, QStringLiteral("Hello"), false);
        return Verdict::Forward;
    }
    if (type == "OPN") {
        // Header, secure channel id, then the policy URI in clear text, also on secured channels.
        if (chunk->size() >= 16) {
            const qint32 length = static_cast<qint32>(readUInt32(chunk->constData() + 12));
            if (length >= 0 && 16 + length <= chunk->size())
                connection->noneChannel = chunk->mid(16, length).endsWith("#None");
        }
        countRequest(&hook->stats, QStringLiteral("OpenSecureChannel"), false);
        return Verdict::Forward;
    }
    if (type == "CLO") {
        countRequest(&hook->stats, QStringLiteral("CloseSecureChannel"), false);
        return Verdict::Forward;
    }
    if (type != "MSG")
        return Verdict::Forward;

    const char chunkType = chunk->at(3);
    if (connection->inboundContinuation) {
        connection->inboundContinuation = chunkType == 'C';
        if (!connection->requestBody.isEmpty()) {
            connection->requestBody += chunk->mid(symmetricBodyOffset);
            if (chunkType == 'F')
                return completeRequest(hook, connection);
            if (chunkType == 'A')
                connection->requestBody.clear();
        }
        return Verdict::Forward;
    }
    connection->inboundContinuation = chunkType == 'C';
    connection->requestBody.clear();

    const QString name = serviceName(*hook, *chunk, *connection);
    quint32 id = 0;
    int typeIdLength = 0;
    if (name == QLatin1String("Read") && connection->noneChannel && chunkType == 'F' &&
        readTypeId(*chunk, &id, &typeIdLength))
        rewriteRead(chunk, symmetricBodyOffset + typeIdLength);

    countRequest(&hook->stats, name, true);
    const MisbehaviourSettings& misbehaviour = hook->scenario->misbehaviour;
    if (misbehaviour.dropAfter >= 0 && matches(misbehaviour.dropServices, name)) {
        if (hook->dropMatched >= misbehaviour.dropAfter) {
            countEvent(&hook->stats, QStringLiteral("dropped"));
            return Verdict::Drop;
        }
        ++hook->dropMatched;
    }
    if (misbehaviour.delayMs > 0 && matches(misbehaviour.delayServices, name)) {
        if (hook->delayMatched >= misbehaviour.delayAfter) {
            countEvent(&hook->stats, QStringLiteral("delayed"));
            interruptibleSleep(*hook, qint64(misbehaviour.delayMs) * 1000);
        }
        ++hook->delayMatched;
    }
    if (faultArmed(*hook) && misbehaviour.faultAfter >= 0 && matches(misbehaviour.faultServices, name)) {
        if (hook->faultMatched >= misbehaviour.faultAfter)
            return fireFault(hook);
        ++hook->faultMatched;
    }
    // Only None channels carry the request bodies in clear text.
    connection->delayRequest = misbehaviour.delayPerOperationMs > 0 && connection->noneChannel &&
                               delaysPerOperation(name) && matches(misbehaviour.delayServices, name);
    connection->faultByNode = faultArmed(*hook) && hook->faultNode && connection->noneChannel && namesNodes(name) &&
                              matches(misbehaviour.faultServices, name);
    connection->countOperations = !hook->stats.filePath.isEmpty() && connection->noneChannel && delaysPerOperation(name);
    if (connection->delayRequest || connection->faultByNode || connection->countOperations) {
        connection->requestBody = chunk->mid(symmetricBodyOffset);
        if (chunkType == 'F')
            return completeRequest(hook, connection);
    }
    return Verdict::Forward;
}

void hookedCallback(UA_ConnectionManager* cm, uintptr_t connectionId, void* application, void** connectionContext,
                    UA_ConnectionState state, const UA_KeyValueMap* params, UA_ByteString msg)
{
    WireHook* hook = static_cast<WireHook*>(application);
    if (state == UA_CONNECTIONSTATE_CLOSING) {
        hook->connections.erase(connectionId);
        hook->serverCallback(cm, connectionId, hook->serverApplication, connectionContext, state, params, msg);
        return;
    }
    if (msg.length == 0) {
        hook->serverCallback(cm, connectionId, hook->serverApplication, connectionContext, state, params, msg);
        return;
    }

    ConnectionState& connection = hook->connections[connectionId];
    connection.pending.append(reinterpret_cast<const char*>(msg.data), static_cast<int>(msg.length));
    QByteArray out;
    bool drop = false;
    while (connection.pending.size() >= messageHeaderSize) {
        const quint32 size = readUInt32(connection.pending.constData() + 4);
        if (size < messageHeaderSize || size > maxChunkSize) {
            // Not OPC UA framing: the stack decides what to do with it.
            out += connection.pending;
            connection.pending.clear();
            break;
        }
        if (static_cast<quint32>(connection.pending.size()) < size)
            break;
        QByteArray chunk = connection.pending.left(static_cast<int>(size));
        connection.pending.remove(0, static_cast<int>(size));
        if (inspectInbound(hook, &connection, &chunk) == Verdict::Drop) {
            connection.pending.clear();
            drop = true;
            break;
        }
        out += chunk;
    }
    // The server may close the connection while it handles the bytes; the state is not
    // touched after this point.
    if (!out.isEmpty()) {
        UA_ByteString bytes = {static_cast<size_t>(out.size()), reinterpret_cast<UA_Byte*>(out.data())};
        hook->serverCallback(cm, connectionId, hook->serverApplication, connectionContext, state, params, bytes);
    }
    if (drop)
        cm->closeConnection(cm, connectionId);
}

UA_StatusCode hookedOpen(UA_ConnectionManager* cm, const UA_KeyValueMap* params, void* application, void* context,
                         UA_ConnectionManager_connectionCallback callback)
{
    WireHook* hook = activeHook;
    hook->serverApplication = application;
    hook->serverCallback = callback;
    return hook->originalOpen(cm, params, hook, context, hookedCallback);
}

// A response (or service fault) whose service result is BadTooManyOperations: the server
// refused a request for its number of operations. The response header starts the body:
// timestamp, request handle, service result.
void countRefusal(WireHook* hook, const UA_ByteString& chunk)
{
    constexpr int serviceResultOffset = 12;
    constexpr int longestTypeId = 7;
    constexpr int statusCodeSize = 4;
    const QByteArray start(reinterpret_cast<const char*>(chunk.data),
                           static_cast<int>(qMin<size_t>(chunk.length, symmetricBodyOffset + longestTypeId +
                                                                           serviceResultOffset + statusCodeSize)));
    quint32 id = 0;
    int typeIdLength = 0;
    if (!readTypeId(start, &id, &typeIdLength))
        return;
    const int offset = symmetricBodyOffset + typeIdLength + serviceResultOffset;
    if (start.size() >= offset + statusCodeSize && readUInt32(start.constData() + offset) == UA_STATUSCODE_BADTOOMANYOPERATIONS)
        countEvent(&hook->stats, QStringLiteral("refused"));
}

bool rewriteOutbound(WireHook* hook, QByteArray* chunk)
{
    quint32 id = 0;
    int typeIdLength = 0;
    if (!readTypeId(*chunk, &id, &typeIdLength))
        return false;
    const int bodyOffset = symmetricBodyOffset + typeIdLength;
    if (id == encodingId(UA_TYPES_GETENDPOINTSRESPONSE))
        return rewriteGetEndpoints(*hook->scenario, chunk, bodyOffset);
    if (id == encodingId(UA_TYPES_FINDSERVERSRESPONSE))
        return rewriteFindServers(*hook->scenario, chunk, bodyOffset);
    return false;
}

UA_StatusCode hookedSend(UA_ConnectionManager* cm, uintptr_t connectionId, const UA_KeyValueMap* params,
                         UA_ByteString* buf)
{
    WireHook* hook = activeHook;
    const auto it = hook->connections.find(connectionId);
    if (it == hook->connections.end() || buf->length < static_cast<size_t>(symmetricBodyOffset) ||
        memcmp(buf->data, "MSG", 3) != 0)
        return hook->originalSend(cm, connectionId, params, buf);

    ConnectionState& connection = it->second;
    const bool startsMessage = !connection.outboundContinuation;
    connection.outboundContinuation = buf->data[3] == 'C';
    if (startsMessage && connection.noneChannel)
        countRefusal(hook, *buf);
    if (!startsMessage || buf->data[3] != 'F' || !connection.noneChannel ||
        readUInt32(reinterpret_cast<const char*>(buf->data) + 4) != buf->length)
        return hook->originalSend(cm, connectionId, params, buf);

    QByteArray chunk(reinterpret_cast<const char*>(buf->data), static_cast<int>(buf->length));
    if (!rewriteOutbound(hook, &chunk))
        return hook->originalSend(cm, connectionId, params, buf);
    UA_ByteString replacement = UA_BYTESTRING_NULL;
    if (cm->allocNetworkBuffer(cm, connectionId, &replacement, static_cast<size_t>(chunk.size())) !=
        UA_STATUSCODE_GOOD)
        return hook->originalSend(cm, connectionId, params, buf);
    memcpy(replacement.data, chunk.constData(), static_cast<size_t>(chunk.size()));
    replacement.length = static_cast<size_t>(chunk.size());
    cm->freeNetworkBuffer(cm, connectionId, buf);
    return hook->originalSend(cm, connectionId, params, &replacement);
}

} // namespace

bool installWireHook(WireHook* hook, UA_ConnectionManager* manager, QString* error)
{
    if (!manager) {
        *error = QStringLiteral("the server has no TCP connection manager");
        return false;
    }
    if (activeHook) {
        *error = QStringLiteral("a wire hook is already installed");
        return false;
    }
    for (size_t i = 0; i < UA_TYPES_COUNT; ++i) {
        const UA_DataType& type = UA_TYPES[i];
        const QString name = QString::fromLatin1(type.typeName);
        if (name.endsWith(QLatin1String("Request")) && type.binaryEncodingId.identifierType == UA_NODEIDTYPE_NUMERIC)
            hook->requestNames[type.binaryEncodingId.identifier.numeric] = name.chopped(7);
    }
    const QString& faultNode = hook->scenario->misbehaviour.faultNode;
    if (!faultNode.isEmpty()) {
        Ua::NodeIdHolder node;
        const QByteArray text = faultNode.toUtf8();
        const UA_String view = {static_cast<size_t>(text.size()),
                                reinterpret_cast<UA_Byte*>(const_cast<char*>(text.constData()))};
        if (UA_NodeId_parse(node.get(), view) != UA_STATUSCODE_GOOD) {
            *error = QStringLiteral("\"fault_node\" is not a node id: %1").arg(faultNode);
            return false;
        }
        hook->faultNode = std::make_unique<Ua::NodeIdHolder>(std::move(node));
    }
    hook->manager = manager;
    hook->originalOpen = manager->openConnection;
    hook->originalSend = manager->sendWithConnection;
    manager->openConnection = hookedOpen;
    manager->sendWithConnection = hookedSend;
    activeHook = hook;
    return true;
}

} // namespace opcua_sim
