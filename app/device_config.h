#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>

// The target device of discover_items as read from the request.
struct DiscoveryDeviceConfig
{
    qint32 id = -1;
    QString uid;
    QString address;
    QMap<QString, QString> fields;
};

// The request's "device" object, else its "target_device" object; false when neither is one.
bool targetDevice(const QJsonObject& request, QJsonObject* device);
bool parseDeviceConfig(const QJsonObject& device, DiscoveryDeviceConfig* config, QString* error);
