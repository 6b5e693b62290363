#include "client_core/opc_ua_client_core.h"

#include "client_core/data_types.h"
#include "client_core/node_id.h"
#include "ua/holders.h"
#include "ua/services.h"
#include "ua/text.h"

bool ClientCore::writeNode(ClientCore::Node* node)
{
    node->error.clear();
    const QString description = QStringLiteral("Identifier: ") + node->identifier
        + QStringLiteral(" Namespace index: ") + QString::number(node->namespaceIndex);
    Ua::NodeIdHolder nodeId(getNodeId(node));

    Ua::NodeIdHolder dataType;
    const UA_StatusCode typeStatus =
        client ? Ua::readDataType(client.get(), *nodeId, &dataType) : UA_STATUSCODE_BADSERVERNOTCONNECTED;
    if (typeStatus == UA_STATUSCODE_BADNODEIDUNKNOWN) {
        node->error = QStringLiteral("Unknown node identifier ") + description;
        return false;
    }
    if (typeStatus != UA_STATUSCODE_GOOD) {
        node->error = QStringLiteral("Failed to determine data type");
        return false;
    }

    ResolvedDataType resolved;
    if (!resolveSupportedDataType(client.get(), *dataType, &resolved)) {
        QString typeText = Ua::nodeIdToQString(*dataType);
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
    Ua::VariantHolder variant = convertToVariant(node, node->value);
    if (!node->error.isEmpty())
        return false;
    if (!variant->type) {
        node->error = QStringLiteral("Failed to convert value to %1").arg(resolved.name);
        return false;
    }

    Ua::WriteRequestHolder request;
    auto* writeValue = static_cast<UA_WriteValue*>(UA_new(&UA_TYPES[UA_TYPES_WRITEVALUE]));
    if (!writeValue) {
        node->error = QStringLiteral("Failed to convert value to %1").arg(resolved.name);
        return false;
    }
    request->nodesToWrite = writeValue;
    request->nodesToWriteSize = 1;
    writeValue->nodeId = nodeId.release();
    writeValue->attributeId = UA_ATTRIBUTEID_VALUE;
    if (node->arrayIndex != Node::wholeArray)
        writeValue->indexRange = UA_STRING_ALLOC(QByteArray::number(node->arrayIndex).constData());
    writeValue->value.hasValue = true;
    writeValue->value.value = variant.release();

    const Ua::WriteResponseHolder response = Ua::write(client.get(), *request);

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
