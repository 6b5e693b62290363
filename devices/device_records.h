#pragma once

#include "devices/server_queries.h"
#include "discovery/candidate.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QStringList>

// The devices that discover_devices reports, from its request through the scan to the records;
// from the scanned candidates on: their servers asked
// what they know, the answers merged into further candidates, the endpoints of the final
// candidates chosen, one device record per identifier.
namespace OpcUaDiscovery {

// The devices that a discover_devices request asks for, start to end: the request's scan options,
// the scan of the subnet over sockets, and the device records of what it found. The warnings of
// every stage go to warnings, in that order.
QJsonArray discoverDeviceRecordsForRequest(const QJsonObject& request, QStringList* warnings);

// The device records of the scanned candidates, in the job's order: the queries within timeoutMs
// from now, the merge, the endpoints and the records. Tests and benchmarks choose how the
// servers are asked. The merge's warnings go to warnings.
QJsonArray discoverDeviceRecords(const QList<Candidate>& scanned, int timeoutMs, const QueryOptions& queryOptions = {},
                                 QStringList* warnings = nullptr);

// Chooses the endpoint and identity to import from a GetEndpoints answer; an answer without
// endpoints, or a null candidate, leaves everything as it was.
void applyEndpointsAnswer(Candidate* candidate, const EndpointsAnswer& answer);

} // namespace OpcUaDiscovery
