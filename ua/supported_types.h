#pragma once

#include <QString>
#include <QVariant>

#include <open62541/types.h>

#include <array>

namespace Ua {

// One of the sixteen built-in types the connector supports: everything the browse and the value
// conversion need to know of it.
struct SupportedType
{
    // Numeric identifier of the data type node in namespace 0.
    UA_UInt32 nodeId;
    const char* name;
    // Index in the stack's UA_TYPES table; for these built-in types also the type kind.
    int typeIndex;
    // The connector can write values of this type.
    bool writable;
    // A whole array shows each element's text between double quotes.
    bool quotedInArrays;
    // The text of one element, floating-point numbers with `precision` digits after the point.
    QString (*toText)(const void* element, int precision);
    // Write side, null where the type is not writable: one element, in memory of the type, from a
    // scalar's text or from one value of a JSON array. A text the type cannot take leaves its
    // reason in *error (and says it on the warning stream).
    UA_StatusCode (*fromText)(const QString& text, void* element, QString* error);
    UA_StatusCode (*fromJson)(const QVariant& value, void* element, QString* error);
};

// All sixteen, in the order of their node identifiers.
const std::array<SupportedType, 16>& supportedTypes();

// The row of a data type node, or null when the type is not one of the sixteen itself.
const SupportedType* supportedTypeOfNode(const UA_NodeId& dataType);

// The row of a type kind (UA_DATATYPEKIND_*), or null.
const SupportedType* supportedTypeOfKind(quint32 kind);

} // namespace Ua
