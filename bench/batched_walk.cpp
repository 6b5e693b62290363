// The floor for discover_items' walk: a plain open62541 client that only browses and reads,
// breadth-first, 1000 nodes per Browse and 3000 attributes (DataType, AccessLevel, ValueRank
// of 1000 variables) per Read, continuation points followed in one BrowseNext per batch.
// It keeps node ids and nothing else, builds no records and writes no file.
//
//   batched_walk URL [--timeout-ms N] [--browse-batch N] [--read-batch N]
//
// Prints "nodes N variables V browse_requests B read_requests R elapsed_ms T".

#include "ua/client.h"
#include "ua/holders.h"
#include "ua/services.h"

#include <open62541/client_highlevel.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

int intArgument(int argc, char** argv, const char* name, int fallback)
{
    for (int i = 2; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0)
            return std::atoi(argv[i + 1]);
    }
    return fallback;
}

std::string key(const UA_NodeId& id)
{
    Ua::StringHolder text;
    UA_NodeId_print(&id, text.get());
    return std::string(reinterpret_cast<const char*>(text->data), text->length);
}

struct Walk
{
    UA_Client* client = nullptr;
    size_t browseBatch = 1000;
    std::unordered_set<std::string> seen;
    std::vector<Ua::NodeIdHolder> queue;
    std::vector<Ua::NodeIdHolder> variables;
    long browseRequests = 0;
    long readRequests = 0;

    bool takeReferences(const UA_BrowseResult& result, std::vector<Ua::ByteStringHolder>* continuations)
    {
        if (result.statusCode != UA_STATUSCODE_GOOD)
            return false;
        for (size_t r = 0; r < result.referencesSize; ++r) {
            const UA_ReferenceDescription& reference = result.references[r];
            if (!seen.insert(key(reference.nodeId.nodeId)).second)
                continue;
            Ua::NodeIdHolder id;
            UA_NodeId_copy(&reference.nodeId.nodeId, id.get());
            if (reference.nodeClass == UA_NODECLASS_VARIABLE) {
                Ua::NodeIdHolder variable;
                UA_NodeId_copy(id.get(), variable.get());
                variables.push_back(std::move(variable));
            }
            queue.push_back(std::move(id));
        }
        if (result.continuationPoint.length > 0) {
            Ua::ByteStringHolder point;
            UA_ByteString_copy(&result.continuationPoint, point.get());
            continuations->push_back(std::move(point));
        }
        return true;
    }

    bool browseBatchOf(size_t begin, size_t end)
    {
        Ua::BrowseRequestHolder request;
        request->nodesToBrowseSize = end - begin;
        request->nodesToBrowse = static_cast<UA_BrowseDescription*>(
            UA_Array_new(end - begin, &UA_TYPES[UA_TYPES_BROWSEDESCRIPTION]));
        for (size_t i = begin; i < end; ++i) {
            UA_BrowseDescription& description = request->nodesToBrowse[i - begin];
            UA_NodeId_copy(queue[i].get(), &description.nodeId);
            description.browseDirection = UA_BROWSEDIRECTION_FORWARD;
            description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
            description.includeSubtypes = true;
            description.nodeClassMask = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE | UA_NODECLASS_VIEW;
            description.resultMask = UA_BROWSERESULTMASK_ALL;
        }
        const Ua::BrowseResponseHolder response = Ua::browse(client, *request);
        ++browseRequests;
        if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD)
            return false;
        std::vector<Ua::ByteStringHolder> continuations;
        for (size_t i = 0; i < response->resultsSize; ++i)
            takeReferences(response->results[i], &continuations);
        while (!continuations.empty()) {
            Ua::BrowseNextRequestHolder next;
            next->continuationPointsSize = continuations.size();
            next->continuationPoints = static_cast<UA_ByteString*>(
                UA_Array_new(continuations.size(), &UA_TYPES[UA_TYPES_BYTESTRING]));
            for (size_t i = 0; i < continuations.size(); ++i)
                UA_ByteString_copy(continuations[i].get(), &next->continuationPoints[i]);
            continuations.clear();
            const Ua::BrowseNextResponseHolder nextResponse = Ua::browseNext(client, *next);
            ++browseRequests;
            if (nextResponse->responseHeader.serviceResult != UA_STATUSCODE_GOOD)
                return false;
            for (size_t i = 0; i < nextResponse->resultsSize; ++i)
                takeReferences(nextResponse->results[i], &continuations);
        }
        return true;
    }

    bool readAttributes(size_t begin, size_t end)
    {
        static const UA_UInt32 attributes[] = {UA_ATTRIBUTEID_DATATYPE, UA_ATTRIBUTEID_ACCESSLEVEL,
                                               UA_ATTRIBUTEID_VALUERANK};
        Ua::ReadRequestHolder request;
        request->nodesToReadSize = (end - begin) * 3;
        request->nodesToRead = static_cast<UA_ReadValueId*>(
            UA_Array_new(request->nodesToReadSize, &UA_TYPES[UA_TYPES_READVALUEID]));
        for (size_t i = begin; i < end; ++i) {
            for (size_t a = 0; a < 3; ++a) {
                UA_ReadValueId& item = request->nodesToRead[(i - begin) * 3 + a];
                UA_NodeId_copy(variables[i].get(), &item.nodeId);
                item.attributeId = attributes[a];
            }
        }
        const Ua::ReadResponseHolder response = Ua::read(client, *request);
        ++readRequests;
        return response->responseHeader.serviceResult == UA_STATUSCODE_GOOD &&
               response->resultsSize == request->nodesToReadSize;
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: batched_walk URL [--timeout-ms N] [--browse-batch N] [--read-batch N]\n");
        return 2;
    }
    Ua::Client client = Ua::newClient(Ua::silentLogger());
    if (!client)
        return 1;
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    config->timeout = static_cast<UA_UInt32>(intArgument(argc, argv, "--timeout-ms", 60000));
    const auto start = std::chrono::steady_clock::now();
    if (UA_Client_connect(client.get(), argv[1]) != UA_STATUSCODE_GOOD) {
        std::fprintf(stderr, "batched_walk: cannot connect to %s\n", argv[1]);
        return 1;
    }
    Walk walk;
    walk.client = client.get();
    walk.browseBatch = static_cast<size_t>(intArgument(argc, argv, "--browse-batch", 1000));
    const size_t readBatch = static_cast<size_t>(intArgument(argc, argv, "--read-batch", 3000)) / 3;
    Ua::NodeIdHolder objects;
    *objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    walk.seen.insert(key(*objects));
    walk.queue.push_back(std::move(objects));
    bool ok = true;
    for (size_t done = 0; ok && done < walk.queue.size();) {
        const size_t end = std::min(walk.queue.size(), done + walk.browseBatch);
        ok = walk.browseBatchOf(done, end);
        done = end;
    }
    for (size_t done = 0; ok && done < walk.variables.size();) {
        const size_t end = std::min(walk.variables.size(), done + readBatch);
        ok = walk.readAttributes(done, end);
        done = end;
    }
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    UA_Client_disconnect(client.get());
    std::printf("nodes %zu variables %zu browse_requests %ld read_requests %ld elapsed_ms %lld\n", walk.queue.size(),
                walk.variables.size(), walk.browseRequests, walk.readRequests, static_cast<long long>(elapsed));
    return ok ? 0 : 1;
}
