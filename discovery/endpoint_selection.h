#pragma once

#include "discovery/candidate.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace OpcUaDiscovery {

bool securityPolicySupported(const QString& policyUri);
bool selectImportEndpoint(const QList<EndpointOffer>& offers, Candidate* candidate);
void applyApplicationIdentity(Candidate* candidate, const DiscoveredServer& server);
QList<Candidate> mergeFindServersDiscoveryUrls(const Candidate& base, const QList<DiscoveredServer>& servers);
QList<Candidate> mergeFindServersDiscoveryUrls(const Candidate& base, const QStringList& discoveryUrls);
// The merge above for the answers of one scanned candidate's discovery service (FindServers,
// FindServersOnNetwork), in order and with one set of known URLs: each answer adds at most
// maxAddedPerAnswer new candidates (negative: no limit). leftOut, when given, receives per
// answer how many further new servers it named.
QList<Candidate> mergeDiscoveryAnswers(const Candidate& base, const QList<QList<DiscoveredServer>>& answers,
                                       int maxAddedPerAnswer, QList<int>* leftOut);

} // namespace OpcUaDiscovery
