#pragma once

#include "discovery/candidate.h"

#include <QString>

// How much of what a discovery peer reports the job takes. A hostile or broken peer can answer
// with any number of servers and strings of any length; well-behaved answers stay far below
// these bounds and pass unchanged.
namespace OpcUaDiscovery {

// URLs and URIs (discovery, endpoint, application, product and security policy), in characters:
// an entry holding a longer one is left out.
constexpr int kMaxPeerUrlLength = 4096;
// Application and server names, in characters: a longer name is cut.
constexpr int kMaxPeerNameLength = 512;
// Server capability identifiers: a longer one is left out, and a candidate keeps at most this
// many different ones.
constexpr int kMaxCapabilityLength = 64;
constexpr int kMaxCapabilities = 64;
// New candidates one FindServers or FindServersOnNetwork answer may add.
constexpr int kMaxCandidatesPerAnswer = 1024;
// Endpoints taken from one GetEndpoints answer, in its order; real servers offer a few dozen.
constexpr int kMaxEndpointsPerAnswer = 256;

bool withinUrlBound(const QString& text);
// The name, cut to kMaxPeerNameLength characters without splitting a surrogate pair.
QString boundedName(const QString& name);
// False when the server's discovery URL, application URI or product URI is too long.
bool withinPeerBounds(const DiscoveredServer& server);
// False when the offer's endpoint URL or security policy URI is too long.
bool withinPeerBounds(const EndpointOffer& offer);

} // namespace OpcUaDiscovery
