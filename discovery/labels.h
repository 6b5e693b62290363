#pragma once

#include "discovery/candidate.h"

#include <QString>
#include <QStringList>

namespace OpcUaDiscovery {

QString applicationTypeLabel(int applicationType);
QString securityModeLabel(int securityMode);
QString securityPolicyLabel(const QString& policyUri);
QString ovrinConnectInstanceName(const QString& applicationUri);
QString candidateDisplayName(const Candidate& candidate);
QString endpointSummary(const EndpointOffer& offer);
QString describeConnectFailure(const QString& status, int securityMode, const QString& securityPolicyUri,
                               const QStringList& advertised);

} // namespace OpcUaDiscovery
