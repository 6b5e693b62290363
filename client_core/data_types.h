#pragma once

#include "ua/holders.h"

#include <QHash>
#include <QString>

#include <open62541/client.h>

#include <unordered_map>

// One of the sixteen built-in types the connector supports.
struct ResolvedDataType
{
    QString name;
    bool writable = false;
    qint32 typeIndex = -1;
};

// Maps data types to supported built-in types, walking up HasSubtype at most 32 steps. It
// remembers the answer to every supertype browse it made, for every step of every chain it
// walked, so that each type node is browsed at most once: many variables share few data types,
// and the chains of most types end in the same few (BaseDataType, Structure, Enumeration).
// Only answers of the server about the node are remembered; a browse that failed (a time-out,
// a lost connection, a server that is gone) is asked again next time, as it would be without
// the memory.
class DataTypeResolver
{
public:
    explicit DataTypeResolver(UA_Client* client);

    // The supported built-in type `dataType` resolves to; false when there is none.
    bool resolve(const UA_NodeId& dataType, ResolvedDataType* out);

    // How many supertype browses were sent.
    size_t supertypeBrowses() const { return supertypeBrowses_; }

private:
    // What the server answered about a type's direct supertype.
    struct Supertype
    {
        bool found = false;
        Ua::NodeIdHolder id;
    };

    bool supertypeOf(const UA_NodeId& type, const QString& text, Ua::NodeIdHolder* supertype);

    UA_Client* client_;
    std::unordered_map<QString, Supertype> supertypes_;
    size_t supertypeBrowses_ = 0;
};

// Resolves one data type without memory beyond this call.
bool resolveSupportedDataType(UA_Client* client, const UA_NodeId& dataType, ResolvedDataType* out);
