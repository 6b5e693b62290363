#pragma once

#include "app/item_records.h"
#include "app/result_envelope.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// Progress snapshots of discover_items: the complete, compact result document of the items
// browsed so far, written over the snapshot file as a whole whenever one is due.

// When the next progress snapshot is due. As items arrive: after 20 new items or 400 ms since
// the last snapshot began, and only once the time since the last snapshot ended is at least
// four times what that snapshot took. Each snapshot holds every item so far, so on a large
// address space the second rule keeps snapshots to about a fifth of the time; on a small one
// snapshots are quick and the first rule alone decides.
class SnapshotPacing
{
public:
    SnapshotPacing();
    bool due(int itemCount) const;
    // Call when a snapshot begins and when it is done (also when none was written).
    void begin(int itemCount);
    void end();

private:
    int lastCount_ = 0;
    QElapsedTimer sinceBegin_;
    QElapsedTimer sinceEnd_;
    qint64 lastCostNs_ = 0;
};

// What a snapshot keeps for the next one: the document around the records, made again only
// when the warnings changed.
struct ItemSnapshot
{
    QStringList warnings;
    ItemsDocument document;
    bool documentMade = false;
};

// Brings the order up to date and replaces the file at path with the snapshot as a whole;
// false when that failed.
bool writeItemSnapshot(ItemSnapshot* snapshot, const ItemRecordContext& context, const QJsonObject& request,
                       const BrowseItems& items, const QStringList& warnings, ItemOrder* order, const QString& path);
