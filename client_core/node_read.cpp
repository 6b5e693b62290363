#include "client_core/node_read.h"

#include "client_core/node_id.h"
#include "client_core/opc_ua_client_core.h"
#include "ua/holders.h"
#include "ua/services.h"
#include "ua/text.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace {

UA_DateTime ticksFromUnixMs(qint64 ms)
{
    // Beyond about 28 000 years the tick count would overflow; such ranges mean "all of time".
    const qint64 limit = 900000000000000LL;
    return qBound(-limit, ms, limit) * UA_DATETIME_MSEC + UA_DATETIME_UNIX_EPOCH;
}

// Values asked for per history request; the stack asks again for the rest.
constexpr UA_UInt32 kHistoryValuesPerRequest = 10;

qint64 sortKey(const UA_DataValue& v)
{
    return v.hasSourceTimestamp ? v.sourceTimestamp : std::numeric_limits<qint64>::min();
}

QString historyTimeText(const UA_DataValue& v)
{
    // Deliberately the current time in Qt's default text form for a value without a timestamp.
    if (!v.hasSourceTimestamp)
        return QDateTime::currentDateTimeUtc().toString();
    return Ua::utcDateTimeText(v.sourceTimestamp);
}

} // namespace

bool ClientCore::readNode(ClientCore::Node* node)
{
    Ua::NodeIdHolder nodeId(getNodeId(node));
    Ua::VariantHolder value;
    Ua::DataValueList history;
    UA_StatusCode status = UA_STATUSCODE_BADINTERNALERROR;

    if (client && node->readMode != 1) {
        status = Ua::readValue(client.get(), *nodeId, &value);
    } else if (client) {
        const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
        const qint64 startMs = node->historyStartMs < 0 ? nowMs + node->historyStartMs : node->historyStartMs;
        const qint64 endMs = node->historyEndMs > 0 ? node->historyEndMs : nowMs + node->historyEndMs;
        const UA_DateTime start = ticksFromUnixMs(startMs);
        UA_DateTime end = ticksFromUnixMs(endMs);
        if (start > end)
            end = ticksFromUnixMs(nowMs);
        status = Ua::historyReadRaw(client.get(), *nodeId, start, end, kHistoryValuesPerRequest, &history);
        std::stable_sort(history.begin(), history.end(), [](const Ua::DataValueHolder& a, const Ua::DataValueHolder& b) {
            return sortKey(*a) > sortKey(*b);
        });
    }

    if (status == UA_STATUSCODE_BADINTERNALERROR || status == UA_STATUSCODE_BADSECURECHANNELIDINVALID
        || !isConnected()) {
        node->error = QStringLiteral("Connection failed");
        return false;
    }
    if (status == UA_STATUSCODE_BADNODEIDUNKNOWN || status == UA_STATUSCODE_BADNODEATTRIBUTESINVALID) {
        node->error = QStringLiteral("Unknown node identifier (ns: ") + QString::number(node->namespaceIndex)
            + QStringLiteral(" id:") + node->identifier + QStringLiteral("). Error: ")
            + Ua::statusCodeName(status);
        return false;
    }
    if (status != UA_STATUSCODE_GOOD) {
        node->error = QStringLiteral("Error code: ") + Ua::statusCodeName(status);
        return false;
    }

    if (history.empty()) {
        node->timestamp = QDateTime::currentDateTimeUtc();
        return convertValueToNode(node, value.get());
    }

    QJsonArray entries;
    for (Ua::DataValueHolder& dataValue : history) {
        QJsonObject entry;
        entry.insert(QStringLiteral("time"), historyTimeText(*dataValue));
        if (!convertValueToNode(node, &dataValue->value))
            continue;
        entry.insert(QStringLiteral("value"), node->value);
        entries.append(entry);
    }
    node->value = QString::fromUtf8(QJsonDocument(entries).toJson(QJsonDocument::Compact));
    node->timestamp = QDateTime::currentDateTimeUtc();
    return true;
}

bool ClientCore::convertValueToNode(ClientCore::Node* node, UA_Variant* value)
{
    if (!value->type) {
        node->value.clear();
        return true;
    }
    const quint32 kind = value->type->typeKind;
    node->dataTypeKind = static_cast<qint32>(kind);
    if (!UA_Variant_isScalar(value))
        return convertValue(node, value);
    if (kind < UA_TYPES_COUNT && value->type == &UA_TYPES[kind])
        return convertValue(node, value);
    node->error = QStringLiteral("Invalid/Unsupported scalar type %1 (%2)")
                      .arg(QString::fromUtf8(value->type->typeName), QString::number(kind));
    return false;
}
