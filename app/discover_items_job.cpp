#include "app/discover_items_job.h"

#include "app/front_end.h"

#include <QCryptographicHash>
#include <QJsonValue>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <algorithm>

namespace {

const QStringList& knownDeviceFields()
{
    static const QStringList fields{QStringLiteral("username"),          QStringLiteral("password"),
                                    QStringLiteral("security_mode"),     QStringLiteral("security_policies"),
                                    QStringLiteral("certificate"),       QStringLiteral("key")};
    return fields;
}

QString deviceFieldText(const QJsonValue& value)
{
    if (value.isString())
        return value.toString().trimmed();
    if (value.isDouble())
        return QString::number(value.toInt(0));
    return QString();
}

bool targetDevice(const QJsonObject& request, QJsonObject* device)
{
    for (const QString& key : {QStringLiteral("device"), QStringLiteral("target_device")}) {
        const QJsonValue value = request.value(key);
        if (value.isObject()) {
            *device = value.toObject();
            return true;
        }
    }
    return false;
}

} // namespace

bool parseDeviceConfig(const QJsonObject& device, DiscoveryDeviceConfig* config, QString* error)
{
    config->id = device.value(QStringLiteral("id")).toInt(-1);
    config->uid = device.value(QStringLiteral("uid")).toString().trimmed();
    config->address = device.value(QStringLiteral("address")).toString().trimmed();
    if (config->address.isEmpty()) {
        if (error)
            *error = QStringLiteral("Target device is missing an address");
        return false;
    }
    const QJsonValue userDefined = device.value(QStringLiteral("user_defined_fields"));
    for (const QString& key : knownDeviceFields()) {
        QString text = deviceFieldText(device.value(key));
        if (text.isEmpty() && userDefined.isObject())
            text = deviceFieldText(userDefined.toObject().value(key));
        config->fields.insert(key, text);
    }
    return true;
}

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier)
{
    QString devicePart = config.id > 0 ? QString::number(config.id) : (!config.uid.isEmpty() ? config.uid : config.address);
    devicePart.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_]+")), QStringLiteral("_"));
    devicePart.truncate(32);
    const QString nodePart = QString::fromLatin1(
        QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex().left(16));
    return QStringLiteral("opcua_%1_%2").arg(devicePart, nodePart);
}

QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    QJsonObject userDefined;
    userDefined.insert(QStringLiteral("identifier"), item.nodeId);
    userDefined.insert(QStringLiteral("floating_point_precision"), QStringLiteral("4"));
    userDefined.insert(QStringLiteral("access_level"), QStringLiteral("0"));
    userDefined.insert(QStringLiteral("history_from"), QStringLiteral("-2000"));
    userDefined.insert(QStringLiteral("history_to"), QStringLiteral("0"));
    userDefined.insert(QStringLiteral("history_no_value_handling"), QStringLiteral("0"));

    QString readWrite = QStringLiteral("read");
    if (item.writable)
        readWrite = item.readable ? QStringLiteral("readwrite") : QStringLiteral("write");

    QJsonObject record;
    record.insert(QStringLiteral("external_id"), item.nodeId);
    record.insert(QStringLiteral("uid_hint"), buildUidHint(config, item.nodeId));
    record.insert(QStringLiteral("name"), item.browsePath);
    record.insert(QStringLiteral("description"), item.description);
    record.insert(QStringLiteral("unit"), QString());
    record.insert(QStringLiteral("data_type"), item.dataType);
    record.insert(QStringLiteral("read_write"), readWrite);
    record.insert(QStringLiteral("user_defined_fields"), userDefined);
    return record;
}

QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const QList<ClientCore::BrowseItem>& items)
{
    QList<ClientCore::BrowseItem> sorted = items;
    std::sort(sorted.begin(), sorted.end(), [](const ClientCore::BrowseItem& a, const ClientCore::BrowseItem& b) {
        return a.nodeId.compare(b.nodeId, Qt::CaseInsensitive) < 0;
    });
    QJsonArray array;
    QSet<QString> emitted;
    for (const ClientCore::BrowseItem& item : sorted) {
        if (emitted.contains(item.nodeId))
            continue;
        emitted.insert(item.nodeId);
        array.append(buildItemCandidate(config, item));
    }
    return array;
}

int runDiscoverItems(const QJsonObject& request, const QString& outputPath)
{
    QJsonObject device;
    if (!targetDevice(request, &device))
        return failWith(ExitNoTargetDevice, QStringLiteral("discover_items requires a target device object in "
                                                           "request_json under 'device' or 'target_device'."));
    DiscoveryDeviceConfig config;
    QString error;
    if (!parseDeviceConfig(device, &config, &error))
        return failWith(ExitNoAddress, error);

    // The connection and the browse join here once the client core exists.
    const QJsonObject result =
        buildResult(QStringLiteral("discover_items"), request, QJsonArray(), warningArrayFrom(QStringList()));
    if (!writeResult(result, outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
