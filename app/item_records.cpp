#include "app/item_records.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <array>

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

namespace {

struct RecordText
{
    QLatin1String key;
    QString value;
};

// Every text of an item record, each object's keys in the order a JSON object keeps them.
struct RecordTexts
{
    std::array<RecordText, 7> record;        // followed by "user_defined_fields"
    std::array<RecordText, 6> userDefined;
};

RecordTexts recordTexts(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    QString readWrite = QStringLiteral("read");
    if (item.writable)
        readWrite = item.readable ? QStringLiteral("readwrite") : QStringLiteral("write");
    return RecordTexts{
        {{{QLatin1String("data_type"), item.dataType},
          {QLatin1String("description"), item.description},
          {QLatin1String("external_id"), item.nodeId},
          {QLatin1String("name"), item.browsePath},
          {QLatin1String("read_write"), readWrite},
          {QLatin1String("uid_hint"), buildUidHint(config, item.nodeId)},
          {QLatin1String("unit"), QString()}}},
        {{{QLatin1String("access_level"), QStringLiteral("0")},
          {QLatin1String("floating_point_precision"), QStringLiteral("4")},
          {QLatin1String("history_from"), QStringLiteral("-2000")},
          {QLatin1String("history_no_value_handling"), QStringLiteral("0")},
          {QLatin1String("history_to"), QStringLiteral("0")},
          {QLatin1String("identifier"), item.nodeId}}}};
}

const QLatin1String userDefinedKey("user_defined_fields");

// Printable ASCII is the text every JSON writer copies as it is, but for the escaped quote and
// backslash; anything else is left to the JSON library, whose escaping is the one the result has.
bool appendPlainJsonString(const QString& text, QByteArray* json)
{
    json->append('"');
    for (const QChar c : text) {
        const ushort u = c.unicode();
        if (u < 0x20 || u > 0x7e)
            return false;
        if (u == '"' || u == '\\')
            json->append('\\');
        json->append(char(u));
    }
    json->append('"');
    return true;
}

template <std::size_t N>
bool appendPlainJsonObject(const std::array<RecordText, N>& texts, QByteArray* json)
{
    for (std::size_t i = 0; i < N; ++i) {
        json->append(i == 0 ? "{\"" : ",\"");
        json->append(texts[i].key.data(), texts[i].key.size());
        json->append("\":");
        if (!appendPlainJsonString(texts[i].value, json))
            return false;
    }
    return true;
}

QJsonObject jsonObjectOf(const RecordText* texts, std::size_t count)
{
    QJsonObject object;
    for (std::size_t i = 0; i < count; ++i)
        object.insert(texts[i].key, texts[i].value);
    return object;
}

QJsonObject itemRecordOf(const RecordTexts& texts)
{
    QJsonObject record = jsonObjectOf(texts.record.data(), texts.record.size());
    record.insert(userDefinedKey, jsonObjectOf(texts.userDefined.data(), texts.userDefined.size()));
    return record;
}

} // namespace

QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    return itemRecordOf(recordTexts(config, item));
}

QByteArray compactItemRecord(const DiscoveryDeviceConfig& config, const ClientCore::BrowseItem& item)
{
    const RecordTexts texts = recordTexts(config, item);
    QByteArray json;
    json.reserve(320 + 2 * item.nodeId.size() + item.browsePath.size() + item.description.size());
    bool plain = appendPlainJsonObject(texts.record, &json);
    if (plain) {
        json.append(",\"");
        json.append(userDefinedKey.data(), userDefinedKey.size());
        json.append("\":");
        plain = appendPlainJsonObject(texts.userDefined, &json);
        json.append("}}");
    }
    if (!plain)
        return QJsonDocument(itemRecordOf(texts)).toJson(QJsonDocument::Compact);
    return json;
}

bool itemIdentifierLess(const QString& a, const QString& b)
{
    // Identifiers are nearly always ASCII, whose case folding is the letters': compared here
    // without the folding tables, several times faster on large results. From the first position
    // where either is not ASCII on, Qt compares (some non-ASCII characters fold to ASCII).
    const QChar* x = a.constData();
    const QChar* y = b.constData();
    const int common = std::min(a.size(), b.size());
    for (int i = 0; i < common; ++i) {
        uint u = x[i].unicode();
        uint v = y[i].unicode();
        if (u >= 0x80 || v >= 0x80)
            return a.compare(b, Qt::CaseInsensitive) < 0;
        if (u - 'A' < 26u)
            u += 'a' - 'A';
        if (v - 'A' < 26u)
            v += 'a' - 'A';
        if (u != v)
            return u < v;
    }
    return a.size() < b.size();
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
