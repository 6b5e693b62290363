#include "app/item_snapshot.h"

#include <QJsonArray>

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

bool writeItemSnapshot(ItemSnapshot* snapshot, const ItemRecordContext& context, const QJsonObject& request,
                       const BrowseItems& items, const QStringList& warnings, ItemOrder* order, const QString& path)
{
    if (!snapshot->documentMade || snapshot->warnings != warnings) {
        snapshot->document = itemsDocument(
            buildResult(QStringLiteral("discover_items"), request, QJsonArray(), warningArrayFrom(warnings)),
            JsonLayout::Compact);
        snapshot->warnings = warnings;
        snapshot->documentMade = true;
    }
    // Not synced: with one snapshot per 20 items the syncs took a third of a large browse, and a
    // progress snapshot need not survive a power cut.
    return writeItemsResult(context, items, order, snapshot->document, path, AtomicFile::Durability::Unsynced, nullptr);
}
