#pragma once

#include "discovery/candidate.h"
#include "ua/discovery_services.h"

#include <QDeadlineTimer>
#include <QList>
#include <QStringList>

#include <vector>

// Asking the scanned servers what they know (FindServers, FindServersOnNetwork) and which
// endpoints they offer (GetEndpoints), many servers side by side, each over one secure channel;
// the answers as candidate values. A failing call is silent: the answer is simply empty.
namespace OpcUaDiscovery {

// How the servers are asked: how many at a time, and whether the calls to one server share one
// secure channel. One at a time with a channel per call is how the job first asked them; tests
// and benchmarks compare the two ways.
struct QueryOptions
{
    int concurrency = 16;
    bool channelPerServer = true;
};

// A GetEndpoints answer: one offer per endpoint and the server each endpoint describes.
struct EndpointsAnswer
{
    bool asked = false;    // the request was sent
    bool answered = false; // a good answer with at least one endpoint
    QList<EndpointOffer> offers;
    QList<DiscoveredServer> describedServers;
};

// What one scanned server's discovery service answered.
struct DiscoveryAnswer
{
    QList<DiscoveredServer> servers; // those of FindServers, then those of FindServersOnNetwork
    int findServersCount = 0;        // how many of them FindServers gave
    EndpointsAnswer endpoints;       // GetEndpoints of the same URL
    bool unresponsive = false;       // no channel opened or a request timed out: nothing more was asked
};

// Asks each scanned candidate's server, at its query URL, for FindServers, FindServersOnNetwork
// and GetEndpoints; up to options.concurrency servers at a time. No call starts once the budget
// has run out. One answer per candidate, in the candidates' order.
std::vector<DiscoveryAnswer> askDiscoveryServices(const QList<Candidate>& scanned, const QDeadlineTimer& budget,
                                                  const QueryOptions& options);

// GetEndpoints of each URL, side by side as above; one answer per URL, in order (an empty URL is
// asked nothing).
std::vector<EndpointsAnswer> askEndpoints(const QStringList& urls, const QDeadlineTimer& budget,
                                          const QueryOptions& options);

// The identity fields of an application description; discovery URL and capabilities stay empty.
DiscoveredServer identityFromApplication(const Ua::ApplicationInfo& app);

} // namespace OpcUaDiscovery
