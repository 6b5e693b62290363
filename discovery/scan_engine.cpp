#include "discovery/scan_engine.h"

#include "discovery/scan_hosts.h"
#include "discovery/worker_threads.h"

#include <QElapsedTimer>
#include <QSet>

#include <cstdio>
#include <mutex>

namespace OpcUaDiscovery {

namespace {

constexpr int kMaxWorkers = 48;
constexpr int kConnectTimeoutMs = 80;
constexpr int kIoTimeoutMs = 400;

struct ScanState
{
    std::atomic<bool>* cancel = nullptr;
    QElapsedTimer timer;
    const Options* options = nullptr;
    std::atomic<int> nextHost{0};
    QStringList hosts;
    Transport* transport = nullptr;
    std::mutex mutex;
    QStringList reportedKeys;
    QList<Candidate> candidates;
};

bool cancelled(const ScanState& state)
{
    return state.cancel && state.cancel->load();
}

void scanWorker(ScanState& state)
{
    const Options& options = *state.options;
    for (;;) {
        if (cancelled(state))
            return;
        if (state.timer.elapsed() >= options.timeoutMs)
            return;
        const int index = state.nextHost.fetch_add(1);
        if (index >= state.hosts.size())
            return;
        const QString& host = state.hosts.at(index);

        for (const quint16 port : options.tcpPorts) {
            if (cancelled(state))
                return;
            const IdentifyResult probe = state.transport->tcpIdentify(host, port, kConnectTimeoutMs, kIoTimeoutMs);
            if (!probe.opcUa)
                continue;
            if (options.existingUids.contains(uidFor(host, port, QString())))
                continue;

            Candidate candidate;
            candidate.host = host;
            candidate.port = port;
            candidate.endpointUrl = probe.endpointUrl.isEmpty() ? endpointFor(host, port) : probe.endpointUrl;
            candidate.source = QStringLiteral("tcp");

            const QString key = QStringLiteral("%1:%2").arg(host, QString::number(port));
            const std::lock_guard<std::mutex> lock(state.mutex);
            if (!state.reportedKeys.contains(key)) {
                state.reportedKeys.append(key);
                state.candidates.append(candidate);
            }
        }
    }
}

QStringList cleanedHosts(const QStringList& hosts)
{
    QStringList cleaned;
    QSet<QString> seen;
    for (const QString& host : hosts) {
        if (host.isEmpty() || host == QLatin1String("0.0.0.0") || seen.contains(host))
            continue;
        seen.insert(host);
        cleaned.append(host);
    }
    return cleaned;
}

} // namespace

QList<Candidate> discoverDevices(const Options& options, Transport& transport, QStringList* warnings,
                                 std::atomic<bool>* cancel)
{
    if (warnings) {
        QStringList ports;
        for (const quint16 port : options.tcpPorts)
            ports.append(QString::number(port));
        warnings->append(QStringLiteral("OPC UA discovery probes on TCP %1. Imported security is None; "
                                        "certificates stay unset.")
                             .arg(ports.join(QLatin1Char(','))));
    }
    if (!options.tcpSubnetScan || options.tcpPorts.isEmpty())
        return {};

    QStringList hosts = options.extraHosts;
    if (hosts.isEmpty())
        hosts = scanHosts(options.networkInterface, warnings);
    hosts = cleanedHosts(hosts);
    if (hosts.isEmpty())
        return {};

    ScanState state;
    state.cancel = cancel;
    state.options = &options;
    state.hosts = hosts;
    state.transport = &transport;
    state.timer.start();

    runOnThreads(qBound(1, static_cast<int>(hosts.size()), kMaxWorkers), [&state] { scanWorker(state); });

    if (qEnvironmentVariableIsSet("OVRIN_DISCOVERY_DEBUG"))
        std::fprintf(stderr, "OPC UA discovery importable=%d\n", static_cast<int>(state.candidates.size()));
    return state.candidates;
}

} // namespace OpcUaDiscovery
