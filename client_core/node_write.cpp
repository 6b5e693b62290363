#include "client_core/opc_ua_client_core.h"

#include "client_core/data_types.h"
#include "client_core/node_id.h"
#include "client_core/ua_holders.h"

#include <open62541/client_highlevel.h>

namespace {

const quint16 wholeArray = 65535;

} // namespace

bool ClientCore::writeNode(ClientCore::Node* node)
{
    node->error.clear();
    const QString description = QStringLiteral("Identifier: ") + node->identifier
        + QStringLiteral(" Namespace index: ") + QString::number(node->namespaceIndex);
    UaNodeIdHolder nodeId = UaNodeIdHolder::adopt(getNodeId(node));

    UaNodeIdHolder dataType;
    const UA_StatusCode typeStatus = client
        ? __UA_Client_readAttribute(client, nodeId.get(), UA_ATTRIBUTEID_DATATYPE, dataType.get(),
                                    &UA_TYPES[UA_TYPES_NODEID])
        : UA_STATUSCODE_BADSERVERNOTCONNECTED;
    if (typeStatus == UA_STATUSCODE_BADNODEIDUNKNOWN) {
        node->error = QStringLiteral("Unknown node identifier ") + description;
        return false;
    }
    if (typeStatus != UA_STATUSCODE_GOOD) {
        node->error = QStringLiteral("Failed to determine data type");
        return false;
    }

    ResolvedDataType resolved;
    if (!resolveSupportedDataType(client, *dataType, &resolved)) {
        QString typeText = nodeIdToQString(*dataType);
        if (typeText.isEmpty())
            typeText = QStringLiteral("<unknown>");
        node->error = QStringLiteral("Unsupported node data type %1").arg(typeText);
        return false;
    }
    if (!resolved.writable) {
        node->error = QStringLiteral("Writing %1 values is not supported").arg(resolved.name);
        return false;
    }

    node->dataTypeKind = resolved.typeIndex;
    UaVariantHolder variant = UaVariantHolder::adopt(convertToVariant(node, node->value));
    if (!node->error.isEmpty())
        return false;
    if (!variant->type) {
        node->error = QStringLiteral("Failed to convert value to %1").arg(resolved.name);
        return false;
    }

    UaWriteRequestHolder request;
    auto* writeValue = static_cast<UA_WriteValue*>(UA_new(&UA_TYPES[UA_TYPES_WRITEVALUE]));
    if (!writeValue) {
        node->error = QStringLiteral("Failed to convert value to %1").arg(resolved.name);
        return false;
    }
    request->nodesToWrite = writeValue;
    request->nodesToWriteSize = 1;
    writeValue->nodeId = nodeId.release();
    writeValue->attributeId = UA_ATTRIBUTEID_VALUE;
    if (node->arrayIndex != wholeArray)
        writeValue->indexRange = UA_STRING_ALLOC(QByteArray::number(node->arrayIndex).constData());
    writeValue->value.hasValue = true;
    writeValue->value.value = variant.release();

    UaWriteResponseHolder response;
    __UA_Client_Service(client, request.get(), &UA_TYPES[UA_TYPES_WRITEREQUEST], response.get(),
                        &UA_TYPES[UA_TYPES_WRITERESPONSE]);

    // Only the service result decides: the gateway treats a delivered write as done and learns of a
    // refused value from its next read, so per-value results are deliberately not looked at.
    const UA_StatusCode serviceResult = response->responseHeader.serviceResult;
    if (serviceResult == UA_STATUSCODE_BADINTERNALERROR) {
        node->error = QStringLiteral("Server disconnected");
        disconnectOpcServer();
        return false;
    }
    if (serviceResult == UA_STATUSCODE_BADNODEIDUNKNOWN) {
        node->error = QStringLiteral("Unknown node identifier");
        return false;
    }
    return true;
}
