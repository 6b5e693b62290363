#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The result document of both jobs: "success", "devices", "items", "warnings", "mode",
// "job_id" and, for discover_items only, "requested_device".

// The "warnings" of discover_items: distinct, in case-insensitive order.
QJsonArray warningArrayFrom(const QStringList& warnings);
// The discover_items result.
QJsonObject buildResult(const QString& mode, const QJsonObject& request, const QJsonArray& items,
                        const QJsonArray& warnings);
// The discover_devices result; its warnings stay as they arose, in order and with repeats.
QJsonObject buildDevicesResult(const QJsonObject& request, const QJsonArray& devices, const QStringList& warnings);

// How the JSON library lays a document out: compact (progress snapshots) or indented (results).
enum class JsonLayout { Compact, Indented };

// Item records are objects in the "items" array, two levels below the document.
const int itemRecordDepth = 2;

// The bytes of a discover_items result around its records, in the JSON library's layout: the
// document is head, then each record after recordLead (only) or recordSeparator (after the
// first), then, when there were records, afterRecords, then tail.
struct ItemsDocument
{
    JsonLayout layout = JsonLayout::Compact;
    QByteArray head;
    QByteArray tail;
    QByteArray recordLead;
    QByteArray recordSeparator;
    QByteArray afterRecords;
};

// The document of `result` (its own "items" is not used) in that layout.
ItemsDocument itemsDocument(const QJsonObject& result, JsonLayout layout);
