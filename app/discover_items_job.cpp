#include "app/discover_items_job.h"

#include "app/device_config.h"
#include "app/front_end.h"
#include "app/item_records.h"
#include "app/item_snapshot.h"
#include "app/result_envelope.h"
#include "app/stdout_silencer.h"
#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "common/atomic_file.h"
#include "common/request_timeout.h"
#include "common/security_settings.h"
#include "discovery/labels.h"
#include "framework/device_instance_plugin.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QStringList>

#include <functional>

namespace {

// The program's "files/" directory when it exists, else the program's own directory.
QString filesDirectory()
{
    const QString programDir = QCoreApplication::applicationDirPath();
    QString path = programDir + QStringLiteral("/files/");
    if (!QDir(path).exists())
        path = programDir + QLatin1Char('/');
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

// The device instance the client core reads its settings from.
DeviceInstancePlugin devicePlugin(const DiscoveryDeviceConfig& config)
{
    DeviceInstancePlugin plugin;
    plugin.uid = config.uid;
    plugin.address = config.address;
    plugin.settings = config.fields;
    return plugin;
}

// The failure line when the client core could not connect: what it said, with the security the
// device asked for.
QString connectFailureText(const DeviceInstancePlugin& plugin, const DiscoveryDeviceConfig& config)
{
    const QString detail =
        plugin.statusText.isEmpty() ? QStringLiteral("Could not connect to OPC UA server") : plugin.statusText;
    const DeviceSecurity security = deviceSecurity(config.fields);
    return OpcUaDiscovery::describeConnectFailure(detail, security.mode, security.policyUri, QStringList());
}

} // namespace

int runDiscoverItems(const QJsonObject& request, const QString& outputPath)
{
    QJsonObject device;
    if (!targetDevice(request, &device))
        return failWith(ExitNoTargetDevice, QStringLiteral("discover_items requires a target device object in "
                                                           "request_json under 'device' or 'target_device'."));
    DiscoveryDeviceConfig config;
    QString error;
    if (!parseDeviceConfig(device, &config, &error))
        return failWith(ExitNoAddress, error);

    DeviceInstancePlugin plugin = devicePlugin(config);
    const QString filesPath = filesDirectory();
    const int timeoutMs = readTimeoutMs(request, 5000);
    const QString snapshotPath = qEnvironmentVariable("OVRIN_DISCOVERY_OUTPUT_FILE").trimmed();
    if (!snapshotPath.isEmpty())
        removeStaleAtomicFileParts(snapshotPath);

    ScopedStdoutSilencer silencer;
    // Lives until the job returns, so the connection closes only after the result is written.
    ClientCore core(plugin, filesPath, QStringLiteral("opc_ua_discovery"), timeoutMs);
    if (!core.isConnected()) {
        const QString message = connectFailureText(plugin, config);
        silencer.restore();
        return failWith(ExitConnectFailed, message);
    }

    BrowseItems items;
    QStringList warnings;
    const ItemRecordContext recordContext = itemRecordContext(config);
    // The order of the records, kept up to date by the snapshots and brought to the end for the
    // result in the same way.
    ItemOrder order;
    ItemSnapshot snapshot;
    SnapshotPacing pacing;
    const std::function<void()> progress = [&]() {
        if (!pacing.due(items.size()))
            return;
        pacing.begin(items.size());
        // Without a file nobody can see a snapshot, and writing one costs a pass over every
        // item, so none is made; the pacing runs the same either way.
        // Progress is best effort: a snapshot that cannot be written changes nothing.
        if (!snapshotPath.isEmpty())
            writeItemSnapshot(&snapshot, recordContext, request, items, warnings, &order, snapshotPath);
        pacing.end();
    };
    if (!core.browseNodes(&items, &warnings, progress, ClientCore::BrowseFetch::Batched)) {
        const QString message = plugin.statusText.isEmpty() ? QStringLiteral("OPC UA browse failed") : plugin.statusText;
        silencer.restore();
        return failWith(ExitBrowseFailed, message);
    }

    // Written record by record from the items: the document is never held whole.
    const ItemsDocument document = itemsDocument(
        buildResult(QStringLiteral("discover_items"), request, QJsonArray(), warningArrayFrom(warnings)),
        JsonLayout::Indented);
    silencer.restore();
    if (!writeItemsResult(recordContext, items, &order, document, outputPath, AtomicFile::Durability::Synced, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
