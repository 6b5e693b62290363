#include "app/discover_items_job.h"

#include "app/front_end.h"
#include "discovery/labels.h"
#include "framework/device_instance_plugin.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <utility>

namespace {

const QStringList& knownDeviceFields()
{
    static const QStringList fields{QStringLiteral("username"),          QStringLiteral("password"),
                                    QStringLiteral("security_mode"),     QStringLiteral("security_policies"),
                                    QStringLiteral("certificate"),       QStringLiteral("key")};
    return fields;
}

QString deviceFieldText(const QJsonValue& value)
{
    if (value.isString())
        return value.toString().trimmed();
    if (value.isDouble())
        return QString::number(value.toInt(0));
    return QString();
}

bool targetDevice(const QJsonObject& request, QJsonObject* device)
{
    for (const QString& key : {QStringLiteral("device"), QStringLiteral("target_device")}) {
        const QJsonValue value = request.value(key);
        if (value.isObject()) {
            *device = value.toObject();
            return true;
        }
    }
    return false;
}

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

// The compact envelope always starts with these keys ("devices" is always empty and sorts
// first), so a snapshot is this head, the records and the rest of the envelope.
const char snapshotHead[] = "{\"devices\":[],\"items\":[";

bool lessByIdentifier(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) < 0;
}

void fillRecord(ItemSnapshot::Record* record, const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    record->browsePath = item.browsePath;
    record->description = item.description;
    record->dataType = item.dataType;
    record->readable = item.readable;
    record->writable = item.writable;
    record->json = QJsonDocument(buildItemCandidate(config, item)).toJson(QJsonDocument::Compact);
}

// Strings the browse did not touch still share their data with the record's copies.
bool sameText(const QString& kept, const QString& current)
{
    return kept.isSharedWith(current) || kept == current;
}

bool recordIsCurrent(const ItemSnapshot::Record& record, const ClientCore::BrowseItem& item)
{
    return sameText(record.browsePath, item.browsePath) && sameText(record.description, item.description)
        && sameText(record.dataType, item.dataType) && record.readable == item.readable
        && record.writable == item.writable;
}

} // namespace

bool parseDeviceConfig(const QJsonObject& device, DiscoveryDeviceConfig* config, QString* error)
{
    config->id = device.value(QStringLiteral("id")).toInt(-1);
    config->uid = device.value(QStringLiteral("uid")).toString().trimmed();
    config->address = device.value(QStringLiteral("address")).toString().trimmed();
    if (config->address.isEmpty()) {
        if (error)
            *error = QStringLiteral("Target device is missing an address");
        return false;
    }
    const QJsonValue userDefined = device.value(QStringLiteral("user_defined_fields"));
    for (const QString& key : knownDeviceFields()) {
        QString text = deviceFieldText(device.value(key));
        if (text.isEmpty() && userDefined.isObject())
            text = deviceFieldText(userDefined.toObject().value(key));
        config->fields.insert(key, text);
    }
    return true;
}

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier)
{
    QString devicePart = config.id > 0 ? QString::number(config.id) : (!config.uid.isEmpty() ? config.uid : config.address);
    static const QRegularExpression unsafeRun(QStringLiteral("[^A-Za-z0-9_]+"));
    devicePart.replace(unsafeRun, QStringLiteral("_"));
    devicePart.truncate(32);
    const QString nodePart = QString::fromLatin1(
        QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex().left(16));
    return QStringLiteral("opcua_%1_%2").arg(devicePart, nodePart);
}

QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    QJsonObject userDefined;
    userDefined.insert(QStringLiteral("identifier"), item.nodeId);
    userDefined.insert(QStringLiteral("floating_point_precision"), QStringLiteral("4"));
    userDefined.insert(QStringLiteral("access_level"), QStringLiteral("0"));
    userDefined.insert(QStringLiteral("history_from"), QStringLiteral("-2000"));
    userDefined.insert(QStringLiteral("history_to"), QStringLiteral("0"));
    userDefined.insert(QStringLiteral("history_no_value_handling"), QStringLiteral("0"));

    QString readWrite = QStringLiteral("read");
    if (item.writable)
        readWrite = item.readable ? QStringLiteral("readwrite") : QStringLiteral("write");

    QJsonObject record;
    record.insert(QStringLiteral("external_id"), item.nodeId);
    record.insert(QStringLiteral("uid_hint"), buildUidHint(config, item.nodeId));
    record.insert(QStringLiteral("name"), item.browsePath);
    record.insert(QStringLiteral("description"), item.description);
    record.insert(QStringLiteral("unit"), QString());
    record.insert(QStringLiteral("data_type"), item.dataType);
    record.insert(QStringLiteral("read_write"), readWrite);
    record.insert(QStringLiteral("user_defined_fields"), userDefined);
    return record;
}

QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const QList<ClientCore::BrowseItem>& items)
{
    QList<ClientCore::BrowseItem> sorted = items;
    // Stable, so that identifiers differing only in case keep browse order, as in the snapshots.
    std::stable_sort(sorted.begin(), sorted.end(), [](const ClientCore::BrowseItem& a, const ClientCore::BrowseItem& b) {
        return lessByIdentifier(a.nodeId, b.nodeId);
    });
    QJsonArray array;
    QSet<QString> emitted;
    for (const ClientCore::BrowseItem& item : sorted) {
        if (emitted.contains(item.nodeId))
            continue;
        emitted.insert(item.nodeId);
        array.append(buildItemCandidate(config, item));
    }
    return array;
}

void updateItemSnapshot(ItemSnapshot* snapshot, const DiscoveryDeviceConfig& config, const QJsonObject& request,
                        const QList<ClientCore::BrowseItem>& items, const QStringList& warnings)
{
    // A variable reached again on a better path changes its name and description in place;
    // a list that shrank or whose identifiers changed starts over.
    bool startOver = items.size() < snapshot->records.size();
    for (int i = 0; !startOver && i < snapshot->records.size(); ++i) {
        const ClientCore::BrowseItem& item = items.at(i);
        ItemSnapshot::Record& record = snapshot->records[i];
        if (!sameText(record.nodeId, item.nodeId))
            startOver = true;
        else if (!record.json.isEmpty() && !recordIsCurrent(record, item))
            fillRecord(&record, config, item);
    }
    if (startOver) {
        snapshot->records.clear();
        snapshot->order.clear();
        snapshot->reported.clear();
    }

    for (int i = snapshot->records.size(); i < items.size(); ++i) {
        const ClientCore::BrowseItem& item = items.at(i);
        ItemSnapshot::Record record;
        record.nodeId = item.nodeId;
        // Only the first of equal identifiers is reported; it is also the first in sorted order.
        if (!snapshot->reported.contains(item.nodeId)) {
            snapshot->reported.insert(item.nodeId);
            fillRecord(&record, config, item);
            // After every equal identifier, as a stable sort of the browse order puts it.
            const auto position = std::upper_bound(
                snapshot->order.begin(), snapshot->order.end(), item.nodeId,
                [snapshot](const QString& id, int index) { return lessByIdentifier(id, snapshot->records.at(index).nodeId); });
            snapshot->order.insert(position, i);
        }
        snapshot->records.append(std::move(record));
    }

    if (!snapshot->tailBuilt || snapshot->warnings != warnings) {
        const QByteArray whole =
            QJsonDocument(buildResult(QStringLiteral("discover_items"), request, QJsonArray(), warningArrayFrom(warnings)))
                .toJson(QJsonDocument::Compact);
        snapshot->tail = whole.mid(int(sizeof snapshotHead) - 1);
        snapshot->warnings = warnings;
        snapshot->tailBuilt = true;
    }
}

QByteArray itemSnapshotJson(const ItemSnapshot& snapshot)
{
    qsizetype size = qsizetype(sizeof snapshotHead) + snapshot.tail.size() + snapshot.order.size();
    for (int index : snapshot.order)
        size += snapshot.records.at(index).json.size();
    QByteArray json;
    json.reserve(int(size));
    json.append(snapshotHead);
    for (int i = 0; i < snapshot.order.size(); ++i) {
        if (i > 0)
            json.append(',');
        json.append(snapshot.records.at(snapshot.order.at(i)).json);
    }
    json.append(snapshot.tail);
    return json;
}

bool writeItemSnapshot(const ItemSnapshot& snapshot, const QString& path)
{
    // A whole new file renamed over the old one, so a reader only ever sees complete documents.
    // Unlike QSaveFile it does not sync to disk: with one snapshot per 20 items the syncs took a
    // third of a large browse, and a progress snapshot need not survive a power cut.
    const QString temporary = path + QStringLiteral(".part-") + QString::number(QCoreApplication::applicationPid());
    QFile::remove(temporary);
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return false;
    if (QFile::exists(path))
        file.setPermissions(QFile::permissions(path));
    // The records go out in large pieces, so a snapshot costs few system calls and no copy of the document.
    const int chunkSize = 256 * 1024;
    QByteArray chunk;
    chunk.reserve(chunkSize + 4096);
    chunk.append(snapshotHead);
    bool written = true;
    for (int i = 0; written && i < snapshot.order.size(); ++i) {
        if (i > 0)
            chunk.append(',');
        chunk.append(snapshot.records.at(snapshot.order.at(i)).json);
        if (chunk.size() >= chunkSize) {
            written = file.write(chunk) == chunk.size();
            chunk.resize(0);
        }
    }
    chunk.append(snapshot.tail);
    written = written && file.write(chunk) == chunk.size();
    file.close();
    if (written && std::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(path).constData()) == 0)
        return true;
    QFile::remove(temporary);
    return false;
}

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

    DeviceInstancePlugin plugin;
    plugin.uid = config.uid;
    plugin.address = config.address;
    plugin.settings = config.fields;
    const QString filesPath = filesDirectory();
    const int timeoutMs = readTimeoutMs(request, 5000);
    const QString snapshotPath = qEnvironmentVariable("OVRIN_DISCOVERY_OUTPUT_FILE").trimmed();

    ScopedStdoutSilencer silencer;
    // Lives until the job returns, so the connection closes only after the result is written.
    ClientCore core(plugin, filesPath, QStringLiteral("opc_ua_discovery"), timeoutMs);
    if (!core.isConnected()) {
        const QString detail =
            plugin.statusText.isEmpty() ? QStringLiteral("Could not connect to OPC UA server") : plugin.statusText;
        const QString message = OpcUaDiscovery::describeConnectFailure(
            detail, config.fields.value(QStringLiteral("security_mode")).toInt(nullptr, 10),
            config.fields.value(QStringLiteral("security_policies")), QStringList());
        silencer.restore();
        return failWith(ExitConnectFailed, message);
    }

    QList<ClientCore::BrowseItem> items;
    QStringList warnings;
    ItemSnapshot snapshot;
    int lastSnapshotCount = 0;
    QElapsedTimer snapshotTimer;
    snapshotTimer.start();
    const std::function<void()> progress = [&]() {
        const int count = items.size();
        if (count - lastSnapshotCount < 20 && snapshotTimer.elapsed() < 400)
            return;
        lastSnapshotCount = count;
        snapshotTimer.restart();
        // Without a file nobody can see a snapshot, and keeping one current costs a pass over
        // every item (a quarter of the CPU time of a 50 000-variable browse), so none is built;
        // the pacing above runs the same either way.
        if (snapshotPath.isEmpty())
            return;
        updateItemSnapshot(&snapshot, config, request, items, warnings);
        // Progress is best effort: a snapshot that cannot be written changes nothing.
        writeItemSnapshot(snapshot, snapshotPath);
    };
    if (!core.browseNodes(&items, &warnings, progress)) {
        const QString message = plugin.statusText.isEmpty() ? QStringLiteral("OPC UA browse failed") : plugin.statusText;
        silencer.restore();
        return failWith(ExitBrowseFailed, message);
    }

    const QJsonObject result = buildResult(QStringLiteral("discover_items"), request, itemArrayFromBrowse(config, items),
                                           warningArrayFrom(warnings));
    silencer.restore();
    if (!writeResult(result, outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
