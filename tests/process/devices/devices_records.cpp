// devices_records REQUEST_FILE WAY...
// Scans once as discover_devices does (run it on the gateway of a test LAN), then turns the same
// scanned candidates into device records once per WAY, in the order given:
//   reference     the way the job first asked the servers: one at a time, a client per call
//   side_by_side  the job's way: many servers at a time, one secure channel per server
// Prints {"WAY": [records...], ...} on standard output.
#include "devices/device_records.h"
#include "discovery/options.h"
#include "discovery/scan_engine.h"
#include "discovery/transport.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <cstring>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QFile file(argc >= 3 ? QString::fromLocal8Bit(argv[1]) : QString());
    if (argc < 3 || !file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "usage: devices_records REQUEST_FILE reference|side_by_side...\n");
        return 2;
    }
    const QJsonObject request = QJsonDocument::fromJson(file.readAll()).object();
    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);
    OpcUaDiscovery::QtTransport transport;
    const QList<OpcUaDiscovery::Candidate> scanned =
        OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);

    QJsonObject out;
    for (int i = 2; i < argc; ++i) {
        OpcUaDiscovery::QueryOptions way;
        if (std::strcmp(argv[i], "reference") == 0) {
            way.concurrency = 1;
            way.channelPerServer = false;
        } else if (std::strcmp(argv[i], "side_by_side") != 0) {
            std::fprintf(stderr, "devices_records: unknown way %s\n", argv[i]);
            return 2;
        }
        out.insert(QString::fromLatin1(argv[i]), OpcUaDiscovery::discoverDeviceRecords(scanned, options.timeoutMs, way));
    }
    std::fputs(QJsonDocument(out).toJson(QJsonDocument::Compact).constData(), stdout);
    return 0;
}
