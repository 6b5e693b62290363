#include "app/item_records.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

namespace {

QString deviceUidPart(const QString& device)
{
    // Every record of a job has the same device: the expression runs once per device text.
    static QString lastDevice;
    static QString lastPart;
    if (lastPart.isNull() || device != lastDevice) {
        static const QRegularExpression unsafeRun(QStringLiteral("[^A-Za-z0-9_]+"));
        QString part = device;
        part.replace(unsafeRun, QStringLiteral("_"));
        part.truncate(32);
        lastDevice = device;
        lastPart = part.isNull() ? QStringLiteral("") : part;
    }
    return lastPart;
}

} // namespace

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier)
{
    const QString devicePart =
        deviceUidPart(config.id > 0 ? QString::number(config.id) : (!config.uid.isEmpty() ? config.uid : config.address));
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

bool itemIdentifierLess(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) < 0;
}

QVector<int> itemRecordOrder(const QList<ClientCore::BrowseItem>& items)
{
    QVector<int> order(items.size());
    for (int i = 0; i < items.size(); ++i)
        order[i] = i;
    // Stable, so that identifiers differing only in case keep browse order, as in the snapshots.
    std::stable_sort(order.begin(), order.end(),
                     [&items](int a, int b) { return itemIdentifierLess(items.at(a).nodeId, items.at(b).nodeId); });
    QVector<int> reported;
    reported.reserve(order.size());
    QSet<QString> emitted;
    for (int index : order) {
        const QString& id = items.at(index).nodeId;
        if (emitted.contains(id))
            continue;
        emitted.insert(id);
        reported.append(index);
    }
    return reported;
}

QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const QList<ClientCore::BrowseItem>& items)
{
    QJsonArray array;
    for (int index : itemRecordOrder(items))
        array.append(buildItemCandidate(config, items.at(index)));
    return array;
}
