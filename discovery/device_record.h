#pragma once

#include "discovery/candidate.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>

namespace OpcUaDiscovery {

QJsonObject candidateToJson(const Candidate& candidate);
// The records of the candidates in order, one per "external_id": the gateway imports by that
// identifier, so a later candidate whose identifier an earlier one holds is left out.
QJsonArray deviceRecordsOnePerId(const QList<Candidate>& candidates);

} // namespace OpcUaDiscovery
