#include "app/discover_devices_job.h"

#include "app/front_end.h"
#include "app/result_envelope.h"
#include "app/result_writer.h"
#include "discovery/device_record.h"
#include "discovery/endpoint_selection.h"
#include "discovery/options.h"
#include "discovery/scan_engine.h"
#include "discovery/transport.h"
#include "ua/discovery_queries.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QList>
#include <QSet>
#include <QStringList>

#include <functional>

using OpcUaDiscovery::Candidate;

namespace {

// Widens the scanned candidates with the servers their discovery services know. The first
// candidate to bring a discovery URL wins; later ones with the same URL are dropped.
QList<Candidate> mergeDiscoveredServers(const QList<Candidate>& scanned, const std::function<bool()>& budgetLeft)
{
    QSet<QString> seenDiscoveryUrls;
    QList<Candidate> candidates;
    for (const Candidate& candidate : scanned) {
        QList<OpcUaDiscovery::DiscoveredServer> servers;
        if (budgetLeft())
            servers = OpcUaDiscovery::queryDiscoveredServers(candidate);
        for (const Candidate& merged : OpcUaDiscovery::mergeFindServersDiscoveryUrls(candidate, servers)) {
            if (seenDiscoveryUrls.contains(merged.endpointUrl))
                continue;
            seenDiscoveryUrls.insert(merged.endpointUrl);
            candidates.append(merged);
        }
    }
    return candidates;
}

// One device record per candidate; a candidate reached after the budget is spent is still
// reported, with what the scan and the discovery queries gave it.
QJsonArray deviceRecords(QList<Candidate> candidates, const std::function<bool()>& budgetLeft)
{
    QJsonArray devices;
    for (Candidate& candidate : candidates) {
        if (budgetLeft())
            OpcUaDiscovery::applyGetEndpoints(&candidate);
        devices.append(OpcUaDiscovery::candidateToJson(candidate));
    }
    return devices;
}

} // namespace

int runDiscoverDevices(const QJsonObject& request, const QString& outputPath)
{
    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);

    OpcUaDiscovery::QtTransport transport;
    const QList<Candidate> scanned = OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);

    // The budget bounds the scan and, again and separately, the queries that follow it.
    QElapsedTimer budget;
    budget.start();
    const std::function<bool()> budgetLeft = [&budget, &options] { return budget.elapsed() < options.timeoutMs; };

    const QList<Candidate> candidates = mergeDiscoveredServers(scanned, budgetLeft);
    const QJsonArray devices = deviceRecords(candidates, budgetLeft);

    QString error;
    if (!writeResult(buildDevicesResult(request, devices, warnings), outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
