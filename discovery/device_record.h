#pragma once

#include "discovery/candidate.h"

#include <QJsonObject>

namespace OpcUaDiscovery {

QJsonObject candidateToJson(const Candidate& candidate);

} // namespace OpcUaDiscovery
