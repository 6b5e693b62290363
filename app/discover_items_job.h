#pragma once

#include "client_core/opc_ua_client_core.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
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

bool parseDeviceConfig(const QJsonObject& device, DiscoveryDeviceConfig* config, QString* error);
QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier);
QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item);
QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const QList<ClientCore::BrowseItem>& items);

// Runs the discover_items job and returns the process exit status.
int runDiscoverItems(const QJsonObject& request, const QString& outputPath);
