#pragma once

#include "discovery/candidate.h"

#include <QJsonObject>
#include <QString>

#include <open62541/client.h>

// Runs the discover_devices job and returns the process exit status.
int runDiscoverDevices(const QJsonObject& request, const QString& outputPath);

// A client for one discovery service call: default configuration, 2500 ms request
// time-out, a logger that prints nothing. The caller deletes it with UA_Client_delete.
UA_Client* newDiscoveryClient();

// The identity fields of an application description; discovery URL and capabilities stay empty.
OpcUaDiscovery::DiscoveredServer identityFromApplication(const UA_ApplicationDescription& app);

// Asks the candidate's server for its endpoints and chooses the endpoint and identity to import.
// A failing or empty answer leaves the candidate as it was.
void applyGetEndpoints(OpcUaDiscovery::Candidate* candidate);
