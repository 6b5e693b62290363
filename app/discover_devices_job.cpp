#include "app/discover_devices_job.h"

#include "app/front_end.h"
#include "app/result_envelope.h"
#include "app/result_writer.h"
#include "devices/device_records.h"
#include "discovery/options.h"
#include "discovery/scan_engine.h"
#include "discovery/transport.h"

#include <QJsonArray>
#include <QList>
#include <QStringList>

int runDiscoverDevices(const QJsonObject& request, const QString& outputPath)
{
    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);

    OpcUaDiscovery::QtTransport transport;
    const QList<OpcUaDiscovery::Candidate> scanned =
        OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);
    const QJsonArray devices = OpcUaDiscovery::discoverDeviceRecords(scanned, options.timeoutMs, {}, &warnings);

    QString error;
    if (!writeResult(buildDevicesResult(request, devices, warnings), outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
