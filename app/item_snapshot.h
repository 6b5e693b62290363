#pragma once

#include "app/device_config.h"
#include "client_core/opc_ua_client_core.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

// The progress snapshot of discover_items, kept between snapshots so that each one only
// builds the records of items that are new or changed since the previous one. Its bytes
// equal the compact JSON of buildResult over itemArrayFromBrowse of the same items.
struct ItemSnapshot
{
    struct Record
    {
        QString nodeId;
        QString browsePath;
        QString description;
        QString dataType;
        bool readable = true;
        bool writable = false;
        QByteArray json;   // compact record; empty for a repeated identifier, which is not reported
    };

    QVector<Record> records;   // by position in the browsed list
    QVector<int> order;        // positions of the reported records, in result order
    QSet<QString> reported;    // identifiers already reported
    QStringList warnings;      // the warnings that tail was built from
    QByteArray tail;           // everything after the item records
    bool tailBuilt = false;
};

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

// Brings the snapshot up to date with the browse so far.
void updateItemSnapshot(ItemSnapshot* snapshot, const DiscoveryDeviceConfig& config, const QJsonObject& request,
                        const QList<ClientCore::BrowseItem>& items, const QStringList& warnings);
// The snapshot as one compact JSON document.
QByteArray itemSnapshotJson(const ItemSnapshot& snapshot);
// Replaces the file at path with the snapshot as a whole; false when that failed.
bool writeItemSnapshot(const ItemSnapshot& snapshot, const QString& path);
