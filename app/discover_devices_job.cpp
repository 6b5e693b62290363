#include "app/discover_devices_job.h"

#include "app/front_end.h"
#include "discovery/options.h"

#include <QJsonArray>

int runDiscoverDevices(const QJsonObject& request, const QString& outputPath)
{
    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);
    Q_UNUSED(options);

    // The scan and the discovery queries join here once the scan engine exists.
    QJsonObject result;
    result.insert(QStringLiteral("success"), true);
    result.insert(QStringLiteral("devices"), QJsonArray());
    result.insert(QStringLiteral("items"), QJsonArray());
    result.insert(QStringLiteral("warnings"), QJsonArray::fromStringList(warnings));
    result.insert(QStringLiteral("mode"), QStringLiteral("discover_devices"));
    if (request.contains(QStringLiteral("job_id")))
        result.insert(QStringLiteral("job_id"), request.value(QStringLiteral("job_id")));

    QString error;
    if (!writeResult(result, outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
