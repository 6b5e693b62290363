#pragma once

#include <QString>

#include <open62541/client.h>

// One of the sixteen built-in types the connector supports.
struct ResolvedDataType
{
    QString name;
    bool writable = false;
    qint32 typeIndex = -1;
};

// Maps a data type to a supported built-in type, walking up HasSubtype at most 32 steps.
bool resolveSupportedDataType(UA_Client* client, const UA_NodeId& dataType, ResolvedDataType* out);
