#pragma once

#include "discovery/candidate.h"
#include "discovery/options.h"
#include "discovery/transport.h"

#include <QList>
#include <QStringList>

#include <atomic>

namespace OpcUaDiscovery {

QList<Candidate> discoverDevices(const Options& options, Transport& transport, QStringList* warnings,
                                 std::atomic<bool>* cancel);

} // namespace OpcUaDiscovery
