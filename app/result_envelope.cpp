#include "app/result_envelope.h"

#include <QJsonDocument>
#include <QJsonValue>
#include <QSet>

#include <algorithm>

namespace {

QJsonObject envelope(const QString& mode, const QJsonObject& request, const QJsonArray& devices,
                     const QJsonArray& items, const QJsonArray& warnings)
{
    QJsonObject result;
    result.insert(QStringLiteral("success"), true);
    result.insert(QStringLiteral("devices"), devices);
    result.insert(QStringLiteral("items"), items);
    result.insert(QStringLiteral("warnings"), warnings);
    if (!mode.isEmpty())
        result.insert(QStringLiteral("mode"), mode);
    if (request.contains(QStringLiteral("job_id")))
        result.insert(QStringLiteral("job_id"), request.value(QStringLiteral("job_id")));
    return result;
}

} // namespace

QJsonArray warningArrayFrom(const QStringList& warnings)
{
    QStringList distinct;
    QSet<QString> seen;
    for (const QString& warning : warnings) {
        if (!seen.contains(warning)) {
            seen.insert(warning);
            distinct.append(warning);
        }
    }
    std::sort(distinct.begin(), distinct.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    return QJsonArray::fromStringList(distinct);
}

QJsonObject buildResult(const QString& mode, const QJsonObject& request, const QJsonArray& items,
                        const QJsonArray& warnings)
{
    QJsonObject result = envelope(mode, request, QJsonArray(), items, warnings);
    // "device" wins whenever the key exists, even when it holds no object.
    const QString deviceKey = request.contains(QStringLiteral("device")) ? QStringLiteral("device")
                                                                          : QStringLiteral("target_device");
    const QJsonValue device = request.value(deviceKey);
    if (device.isObject())
        result.insert(QStringLiteral("requested_device"), device);
    return result;
}

QJsonObject buildDevicesResult(const QJsonObject& request, const QJsonArray& devices, const QStringList& warnings)
{
    // Unlike discover_items, the warnings keep their order and their repeats.
    return envelope(QStringLiteral("discover_devices"), request, devices, QJsonArray(),
                    QJsonArray::fromStringList(warnings));
}

ItemsDocument itemsDocument(const QJsonObject& result, JsonLayout layout)
{
    const bool indented = layout == JsonLayout::Indented;
    QJsonObject withoutItems = result;
    withoutItems.insert(QStringLiteral("items"), QJsonArray());
    const QByteArray whole =
        QJsonDocument(withoutItems).toJson(indented ? QJsonDocument::Indented : QJsonDocument::Compact);
    // Keys come sorted and only "devices", an empty array, comes before "items": the first
    // "items" is the envelope's own key, and its array is empty, "[]" or "[\n    ]".
    const int key = whole.indexOf("\"items\":");
    const int open = whole.indexOf('[', key) + 1;
    const int inside = indented ? open + 1 : open;

    ItemsDocument document;
    document.layout = layout;
    document.head = whole.left(inside);
    document.tail = whole.mid(inside);
    const QByteArray indent(indented ? 4 * itemRecordDepth : 0, ' ');
    document.recordLead = indent;
    document.recordSeparator = (indented ? QByteArray(",\n") : QByteArray(",")) + indent;
    document.afterRecords = indented ? QByteArray("\n") : QByteArray();
    return document;
}
