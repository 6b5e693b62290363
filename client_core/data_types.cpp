#include "client_core/data_types.h"

#include "client_core/reference_filter.h"
#include "ua/requests.h"
#include "ua/services.h"
#include "ua/supported_types.h"
#include "ua/text.h"

#include <QSet>

namespace {

const int maxSupertypeSteps = 32;

// The Browse that finds a data type's direct supertype: HasSubtype backwards, to data types.
const Ua::BrowseFilter supertypeFilter{UA_BROWSEDIRECTION_INVERSE, UA_NS0ID_HASSUBTYPE, false, UA_NODECLASS_DATATYPE};

bool lookUpSupportedType(const UA_NodeId& id, ResolvedDataType* out)
{
    const Ua::SupportedType* type = Ua::supportedTypeOfNode(id);
    if (!type)
        return false;
    out->name = QString::fromLatin1(type->name);
    out->typeIndex = type->typeIndex;
    out->writable = type->writable;
    return true;
}

enum class SupertypeAnswer {
    Found,      // the server named the supertype
    None,       // the server answered for the node and named no supertype
    NoAnswer,   // the request failed, or its answer could not be kept
};

// The direct supertype of a data type, found by browsing HasSubtype backwards.
SupertypeAnswer browseSupertype(UA_Client* client, const UA_NodeId& type, Ua::NodeIdHolder* supertype)
{
    bool built = false;
    const Ua::BrowseRequestHolder request = Ua::browseRequest({&type}, supertypeFilter, &built);
    if (!built)
        return SupertypeAnswer::NoAnswer;
    const Ua::BrowseResponseHolder response = Ua::browse(client, *request);
    if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD || response->resultsSize == 0)
        return SupertypeAnswer::NoAnswer;
    // A result with a bad status may be a passing state of the server: no answer to keep.
    SupertypeAnswer missing = SupertypeAnswer::None;
    for (size_t r = 0; r < response->resultsSize; ++r) {
        const UA_BrowseResult& result = response->results[r];
        if (UA_StatusCode_isBad(result.statusCode))
            missing = SupertypeAnswer::NoAnswer;
        if (UA_StatusCode_isBad(result.statusCode) || result.referencesSize == 0)
            continue;
        for (size_t i = 0; i < result.referencesSize; ++i) {
            const UA_ReferenceDescription& reference = result.references[i];
            if (reference.nodeClass != UA_NODECLASS_DATATYPE || !isLocalTarget(reference.nodeId))
                continue;
            Ua::NodeIdHolder found;
            if (UA_NodeId_copy(&reference.nodeId.nodeId, found.get()) != UA_STATUSCODE_GOOD)
                return SupertypeAnswer::NoAnswer;
            *supertype = std::move(found);
            return SupertypeAnswer::Found;
        }
    }
    return missing;
}

} // namespace

DataTypeResolver::DataTypeResolver(UA_Client* client)
    : client_(client)
{
}

bool DataTypeResolver::resolve(const UA_NodeId& dataType, ResolvedDataType* out)
{
    if (!client_ || !out)
        return false;
    Ua::NodeIdHolder current;
    if (UA_NodeId_copy(&dataType, current.get()) != UA_STATUSCODE_GOOD)
        return false;
    QSet<QString> visited;
    for (int step = 0;; ++step) {
        if (lookUpSupportedType(*current, out))
            return true;
        if (step == maxSupertypeSteps)
            return false;
        const QString text = Ua::nodeIdToQString(*current);
        if (!text.isEmpty()) {
            if (visited.contains(text))
                return false;
            visited.insert(text);
        }
        Ua::NodeIdHolder supertype;
        if (!supertypeOf(*current, text, &supertype))
            return false;
        current = std::move(supertype);
    }
}

bool DataTypeResolver::supertypeOf(const UA_NodeId& type, const QString& text, Ua::NodeIdHolder* supertype)
{
    const auto known = text.isEmpty() ? supertypes_.end() : supertypes_.find(text);
    if (known != supertypes_.end())
        return known->second.found && UA_NodeId_copy(known->second.id.get(), supertype->get()) == UA_STATUSCODE_GOOD;
    ++supertypeBrowses_;
    const SupertypeAnswer answer = browseSupertype(client_, type, supertype);
    // A type without text cannot be looked up again; a browse without answer (also that of a
    // server that is gone) is no answer to keep.
    if (text.isEmpty() || answer == SupertypeAnswer::NoAnswer || Ua::refusedReconnect(client_) != UA_STATUSCODE_GOOD)
        return answer == SupertypeAnswer::Found;
    Supertype& kept = supertypes_[text];
    kept.found = answer == SupertypeAnswer::Found;
    if (kept.found && UA_NodeId_copy(supertype->get(), kept.id.get()) != UA_STATUSCODE_GOOD) {
        supertypes_.erase(text);
        return true;
    }
    return kept.found;
}

bool resolveSupportedDataType(UA_Client* client, const UA_NodeId& dataType, ResolvedDataType* out)
{
    return DataTypeResolver(client).resolve(dataType, out);
}
