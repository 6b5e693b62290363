#include "app/item_snapshot.h"

#include "app/item_records.h"
#include "app/result_envelope.h"
#include "common/atomic_file.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <utility>

namespace {

// The compact envelope always starts with these keys ("devices" is always empty and sorts
// first), so a snapshot is this head, the records and the rest of the envelope.
const char snapshotHead[] = "{\"devices\":[],\"items\":[";

void fillRecord(ItemSnapshot::Record* record, const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    record->browsePath = item.browsePath;
    record->description = item.description;
    record->dataType = item.dataType;
    record->readable = item.readable;
    record->writable = item.writable;
    record->json = compactItemRecord(config, item);
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

SnapshotPacing::SnapshotPacing()
{
    sinceBegin_.start();
    sinceEnd_.start();
}

bool SnapshotPacing::due(int itemCount) const
{
    if (itemCount - lastCount_ < 20 && sinceBegin_.elapsed() < 400)
        return false;
    return sinceEnd_.nsecsElapsed() >= 4 * lastCostNs_;
}

void SnapshotPacing::begin(int itemCount)
{
    lastCount_ = itemCount;
    sinceBegin_.restart();
}

void SnapshotPacing::end()
{
    lastCostNs_ = sinceBegin_.nsecsElapsed();
    sinceEnd_.restart();
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

    const auto byIdentifier = [snapshot](int a, int b) {
        return itemIdentifierLess(snapshot->records.at(a).nodeId, snapshot->records.at(b).nodeId);
    };
    QVector<int> added;
    for (int i = snapshot->records.size(); i < items.size(); ++i) {
        const ClientCore::BrowseItem& item = items.at(i);
        ItemSnapshot::Record record;
        record.nodeId = item.nodeId;
        // Only the first of equal identifiers is reported; it is also the first in sorted order.
        if (!snapshot->reported.contains(item.nodeId)) {
            snapshot->reported.insert(item.nodeId);
            fillRecord(&record, config, item);
            added.append(i);
        }
        snapshot->records.append(std::move(record));
    }
    // New records go after every equal identifier already there, in browse order among
    // themselves, as a stable sort of the whole browse order puts them; one merge instead of an
    // insertion per record keeps a snapshot linear in the items.
    if (!added.isEmpty()) {
        std::stable_sort(added.begin(), added.end(), byIdentifier);
        QVector<int> merged(snapshot->order.size() + added.size());
        std::merge(snapshot->order.cbegin(), snapshot->order.cend(), added.cbegin(), added.cend(), merged.begin(),
                   byIdentifier);
        snapshot->order = std::move(merged);
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
    // Not synced: with one snapshot per 20 items the syncs took a third of a large browse, and a
    // progress snapshot need not survive a power cut.
    AtomicFile file(path, AtomicFile::Durability::Unsynced);
    if (!file.open())
        return false;
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
            written = file.write(chunk);
            chunk.resize(0);
        }
    }
    chunk.append(snapshot.tail);
    file.write(chunk);
    return file.commit();
}
