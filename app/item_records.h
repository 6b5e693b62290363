#pragma once

#include "app/device_config.h"
#include "app/result_envelope.h"
#include "client_core/browse_items.h"
#include "common/atomic_file.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

// The item records of discover_items: one per browsed variable, sorted by identifier. A record
// is written straight from the walk's compact items; nothing of it is kept.

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier);

// What every record of one job shares, made once per job.
struct ItemRecordContext
{
    QByteArray uidHintPrefix;   // "opcua_<device part>_"
};

ItemRecordContext itemRecordContext(const DiscoveryDeviceConfig& config);

// Appends the record of one item, in the layout it has in a document of that layout, with the
// bytes the JSON library gives it.
void appendItemRecord(const ItemRecordContext& context, const BrowseItems& items, BrowseItems::Item item,
                      JsonLayout layout, QByteArray* out);
// The record as a JSON object.
QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const BrowseItems& items, BrowseItems::Item item);

// The order of the records: the items by identifier, in the order of itemIdentifierLess and,
// among equal identifiers, in the order they were found. Kept up to date as items arrive.
struct ItemOrder
{
    QVector<BrowseItems::Item> items;   // result order
    int counted = 0;                    // the items [0, counted) are in it
    quint64 generation = 0;             // of the items it was made for
};

void updateItemOrder(ItemOrder* order, const BrowseItems& items);
// Whether identifier a comes before b: without regard to case, as QString compares the texts
// (UTF-16 code units, case folded), not as their UTF-8 bytes would sort.
bool itemIdentifierLess(Utf8View a, Utf8View b);

// The "items" array in result order.
QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const BrowseItems& items);

// Brings the order up to date and writes `document` with the records of the items in that order
// (see writeItemsDocument): the one way both the result and every progress snapshot are written.
bool writeItemsResult(const ItemRecordContext& context, const BrowseItems& items, ItemOrder* order,
                      const ItemsDocument& document, const QString& path, AtomicFile::Durability durability,
                      QString* error);
