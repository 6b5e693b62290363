#pragma once

#include "app/device_config.h"
#include "client_core/opc_ua_client_core.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVector>

// The item records of discover_items: one per browsed variable, sorted by identifier.

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier);
QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item);
// The record in compact JSON: the bytes of QJsonDocument(buildItemCandidate(...)).toJson(Compact),
// written directly for the usual plain texts, which makes large results several times cheaper.
QByteArray compactItemRecord(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item);
// Positions in `items` of the records to report, in result order: sorted by identifier, the
// first of equal identifiers only.
QVector<int> itemRecordOrder(const QList<ClientCore::BrowseItem>& items);
QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const QList<ClientCore::BrowseItem>& items);
// The order of the records: by node identifier, without regard to case.
bool itemIdentifierLess(const QString& a, const QString& b);
