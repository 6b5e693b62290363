#include "client_core/node_id.h"

#include "ua/holders.h"
#include "ua/text.h"

#include <QUuid>

#include <cstring>

UA_NodeId getNodeId(DataPoint* node)
{
    if (node->useFullNodeId)
        return Ua::nodeIdFromQString(node->fullNodeId).release();

    bool isNumber = false;
    const qlonglong number = node->identifier.toLongLong(&isNumber, 10);
    if (isNumber)
        return UA_NODEID_NUMERIC(node->namespaceIndex, static_cast<UA_UInt32>(number));

    const QUuid uuid(node->identifier);
    if (!uuid.isNull()) {
        UA_Guid guid;
        guid.data1 = uuid.data1;
        guid.data2 = uuid.data2;
        guid.data3 = uuid.data3;
        std::memcpy(guid.data4, uuid.data4, sizeof(guid.data4));
        return UA_NODEID_GUID(node->namespaceIndex, guid);
    }

    Ua::StringHolder text = Ua::toUaString(node->identifier);
    if (!text->data)
        return UA_NODEID_NULL;
    UA_NodeId id;
    UA_NodeId_init(&id);
    id.namespaceIndex = node->namespaceIndex;
    id.identifierType = UA_NODEIDTYPE_STRING;
    id.identifier.string = text.release();
    return id;
}
