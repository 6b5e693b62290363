#pragma once

#include <QString>

#include <open62541/types.h>

// Text of an OPC UA string, taken as UTF-8; a null or empty string gives an empty text.
inline QString fromUaString(const UA_String& text)
{
    if (!text.data || text.length == 0)
        return QString();
    return QString::fromUtf8(reinterpret_cast<const char*>(text.data), static_cast<int>(text.length));
}

// The stack's name of a status code, such as "BadTimeout".
inline QString statusCodeName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}
