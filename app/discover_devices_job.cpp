#include "app/discover_devices_job.h"

#include "app/front_end.h"
#include "app/result_envelope.h"
#include "app/result_writer.h"
#include "devices/device_records.h"

#include <QJsonArray>
#include <QStringList>

int runDiscoverDevices(const QJsonObject& request, const QString& outputPath)
{
    QStringList warnings;
    const QJsonArray devices = OpcUaDiscovery::discoverDeviceRecordsForRequest(request, &warnings);
    QString error;
    if (!writeResult(buildDevicesResult(request, devices, warnings), outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
