#include "app/device_config.h"

#include <QJsonValue>
#include <QStringList>

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

} // namespace

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
