#include "client_core/opc_ua_client_core.h"

#include "client_core/data_types.h"
#include "client_core/node_id.h"
#include "ua/holders.h"
#include "ua/requests.h"
#include "ua/services.h"
#include "ua/text.h"

#include <string>
#include <utility>

namespace {

// The supported type the node's DataType attribute resolves to, when values of it can be written;
// otherwise false, with the node's error saying why.
bool writableType(UA_Client* client, const UA_NodeId& nodeId, DataPoint* node, ResolvedDataType* resolved)
{
    Ua::NodeIdHolder dataType;
    const UA_StatusCode typeStatus =
        client ? Ua::readDataType(client, nodeId, &dataType) : UA_STATUSCODE_BADSERVERNOTCONNECTED;
    if (typeStatus == UA_STATUSCODE_BADNODEIDUNKNOWN) {
        node->error = QStringLiteral("Unknown node identifier Identifier: ") + node->identifier
            + QStringLiteral(" Namespace index: ") + QString::number(node->namespaceIndex);
        return false;
    }
    if (typeStatus != UA_STATUSCODE_GOOD) {
        node->error = QStringLiteral("Failed to determine data type");
        return false;
    }

    if (!resolveSupportedDataType(client, *dataType, resolved)) {
        QString typeText = Ua::nodeIdToQString(*dataType);
        if (typeText.isEmpty())
            typeText = QStringLiteral("<unknown>");
        node->error = QStringLiteral("Unsupported node data type %1").arg(typeText);
        return false;
    }
    if (!resolved->writable) {
        node->error = QStringLiteral("Writing %1 values is not supported").arg(resolved->name);
        return false;
    }
    return true;
}

// The Write of the node's value as a value of the resolved type; false, with the node's error
// saying why, when the value cannot be converted.
bool valueWrite(DataPoint* node, Ua::NodeIdHolder nodeId, const ResolvedDataType& resolved,
                Ua::WriteRequestHolder* request)
{
    node->dataTypeKind = resolved.typeIndex;
    Ua::VariantHolder variant = ClientCore::convertToVariant(node, node->value);
    if (!node->error.isEmpty())
        return false;
    const QString failed = QStringLiteral("Failed to convert value to %1").arg(resolved.name);
    if (!variant->type) {
        node->error = failed;
        return false;
    }
    const std::string indexRange =
        node->arrayIndex == DataPoint::wholeArray ? std::string() : std::to_string(node->arrayIndex);
    bool built = false;
    *request = Ua::writeValueRequest(std::move(nodeId), std::move(variant), indexRange, &built);
    if (!built)
        node->error = failed;
    return built;
}

} // namespace

bool ClientCore::writeNode(ClientCore::Node* node)
{
    node->error.clear();
    Ua::NodeIdHolder nodeId(getNodeId(node));
    ResolvedDataType resolved;
    if (!writableType(client.get(), *nodeId, node, &resolved))
        return false;
    Ua::WriteRequestHolder request;
    if (!valueWrite(node, std::move(nodeId), resolved, &request))
        return false;

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
