#pragma once

#include "discovery/candidate.h"
#include "ua/client.h"

#include <QList>

#include <open62541/types.h>

// The discovery services a scanned server is asked (FindServers, FindServersOnNetwork,
// GetEndpoints), each through a short-lived client of its own, answered as candidate values.
// A failing call is silent: the answer is simply empty and the candidate keeps what it had.
namespace OpcUaDiscovery {

// A client for one discovery service call: default configuration, 2500 ms request time-out, a
// logger that prints nothing.
Ua::Client newDiscoveryClient();

// The identity fields of an application description; discovery URL and capabilities stay empty.
DiscoveredServer identityFromApplication(const UA_ApplicationDescription& app);

// The servers the candidate's discovery service knows, each with one "opc.tcp://" discovery URL:
// first those of FindServers, then those of FindServersOnNetwork.
QList<DiscoveredServer> queryDiscoveredServers(const Candidate& candidate);

// Asks the candidate's server for its endpoints and chooses the endpoint and identity to import.
// A failing or empty answer leaves the candidate as it was.
void applyGetEndpoints(Candidate* candidate);

} // namespace OpcUaDiscovery
