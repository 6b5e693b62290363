// Times one full TCP scan with the socket transport in the calling process's network
// namespace. Only for use inside a test namespace LAN (see scan_bench.sh).
// Usage: scan_bench [--interface NAME] [--ports LIST] [--timeout MS]
#include "discovery/options.h"
#include "discovery/scan_engine.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    OpcUaDiscovery::Options options;
    const QStringList args = app.arguments().mid(1);
    for (int i = 0; i + 1 < args.size(); i += 2) {
        if (args.at(i) == QLatin1String("--interface"))
            options.networkInterface = args.at(i + 1);
        else if (args.at(i) == QLatin1String("--ports"))
            options.tcpPorts = OpcUaDiscovery::parsePortList(args.at(i + 1), OpcUaDiscovery::Options::defaultTcpPorts());
        else if (args.at(i) == QLatin1String("--timeout"))
            options.timeoutMs = args.at(i + 1).toInt();
    }

    OpcUaDiscovery::QtTransport transport;
    QStringList warnings;
    QElapsedTimer timer;
    timer.start();
    QList<OpcUaDiscovery::Candidate> found = OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);
    const qint64 elapsed = timer.elapsed();

    std::sort(found.begin(), found.end(), [](const OpcUaDiscovery::Candidate& a, const OpcUaDiscovery::Candidate& b) {
        return a.endpointUrl < b.endpointUrl;
    });
    for (const QString& w : warnings)
        std::printf("warning: %s\n", qPrintable(w));
    for (const OpcUaDiscovery::Candidate& c : found)
        std::printf("candidate: %s\n", qPrintable(c.endpointUrl));
    std::printf("ports=%d wall_ms=%lld candidates=%d\n", static_cast<int>(options.tcpPorts.size()),
                static_cast<long long>(elapsed), static_cast<int>(found.size()));
    return 0;
}
