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

} // namespace OpcUaDiscovery
