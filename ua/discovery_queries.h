#pragma once

#include "discovery/candidate.h"
#include "ua/client.h"

#include <QElapsedTimer>
#include <QList>
#include <QStringList>

#include <open62541/types.h>

#include <vector>

// The discovery services a scanned server is asked (FindServers, FindServersOnNetwork,
// GetEndpoints), answered as candidate values. A failing call is silent: the answer is simply
// empty and the candidate keeps what it had.
namespace OpcUaDiscovery {

// The time budget of the queries, started when the scan has returned: no call starts once it is
// spent; a call under way ends on its own request time-out. Read from any thread.
struct QueryBudget
{
    explicit QueryBudget(qint64 milliseconds);
    bool spent() const;

    QElapsedTimer timer;
    qint64 milliseconds = 0;
};

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
// and GetEndpoints over one secure channel; up to options.concurrency servers at a time. One
// answer per candidate, in the candidates' order.
std::vector<DiscoveryAnswer> askDiscoveryServices(const QList<Candidate>& scanned, const QueryBudget& budget,
                                                  const QueryOptions& options);

// GetEndpoints of each URL, side by side as above; one answer per URL, in order.
std::vector<EndpointsAnswer> askEndpoints(const QStringList& urls, const QueryBudget& budget,
                                          const QueryOptions& options);

// Chooses the endpoint and identity to import from a GetEndpoints answer; an answer without
// endpoints leaves the candidate as it was.
void applyEndpointsAnswer(Candidate* candidate, const EndpointsAnswer& answer);

// A client for the discovery service calls: default configuration, 2500 ms request time-out, a
// logger that prints nothing.
Ua::Client newDiscoveryClient();

// The identity fields of an application description; discovery URL and capabilities stay empty.
DiscoveredServer identityFromApplication(const UA_ApplicationDescription& app);

// Asks the candidate's server for its endpoints and chooses the endpoint and identity to import.
// A failing or empty answer leaves the candidate as it was.
void applyGetEndpoints(Candidate* candidate);

} // namespace OpcUaDiscovery
