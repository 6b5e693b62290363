#pragma once

#include "discovery/candidate.h"
#include "ua/discovery_queries.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// Runs the discover_devices job and returns the process exit status: options, scan, discovery
// queries, merge, endpoints, device records.
int runDiscoverDevices(const QJsonObject& request, const QString& outputPath);

// The device records of the scanned candidates: their discovery queries within timeoutMs from
// now, the merge, the endpoints and the records, in the job's order, one per identifier. Tests
// and benchmarks choose how the servers are asked. The merge's warnings go to warnings.
QJsonArray discoverDeviceRecords(const QList<OpcUaDiscovery::Candidate>& scanned, int timeoutMs,
                                 const OpcUaDiscovery::QueryOptions& queryOptions = {},
                                 QStringList* warnings = nullptr);
