#pragma once

#include <QMap>
#include <QString>

// One configured device instance of the gateway, as far as the client core
// reads and writes it.
class DeviceInstancePlugin
{
public:
    DeviceInstancePlugin();
    virtual ~DeviceInstancePlugin();

    QString uid;
    QString instanceName;
    QString address;
    QString statusText;
    QMap<QString, QString> settings;
};
