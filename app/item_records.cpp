#include "app/item_records.h"

#include "app/result_writer.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <cstring>

namespace {

// The uid hint's node part: this many hexadecimal digits of the identifier's SHA-1.
const int uidHintDigits = 16;

QString deviceUidPart(const DiscoveryDeviceConfig& config)
{
    QString part = config.id > 0 ? QString::number(config.id) : (!config.uid.isEmpty() ? config.uid : config.address);
    part.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_]+")), QStringLiteral("_"));
    part.truncate(32);
    return part;
}

QByteArray uidHintNodePart(Utf8View identifier)
{
    return QCryptographicHash::hash(QByteArray::fromRawData(identifier.data, identifier.size), QCryptographicHash::Sha1)
        .toHex()
        .left(uidHintDigits);
}

Utf8View literal(const char* text)
{
    return Utf8View{text, int(std::strlen(text))};
}

// Appends text as the JSON library writes it inside a string: quote, backslash and control
// characters escaped, every other byte (of valid UTF-8) as it is.
void appendEscaped(Utf8View text, QByteArray* out)
{
    static const char hexDigits[] = "0123456789abcdef";
    const char* const end = text.data + text.size;
    const char* plain = text.data;
    for (const char* at = text.data; at < end; ++at) {
        const uchar c = uchar(*at);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out->append(plain, int(at - plain));
        plain = at + 1;
        switch (c) {
        case '"': out->append("\\\""); break;
        case '\\': out->append("\\\\"); break;
        case '\b': out->append("\\b"); break;
        case '\f': out->append("\\f"); break;
        case '\n': out->append("\\n"); break;
        case '\r': out->append("\\r"); break;
        case '\t': out->append("\\t"); break;
        default: {
            const char escaped[] = {'\\', 'u', '0', '0', hexDigits[c >> 4], hexDigits[c & 0xf]};
            out->append(escaped, int(sizeof escaped));
        }
        }
    }
    out->append(plain, int(end - plain));
}

void appendString(Utf8View text, QByteArray* out)
{
    out->append('"');
    appendEscaped(text, out);
    out->append('"');
}

// One JSON object as it is being written, at a depth of the document, in the document's layout.
struct ObjectWriter
{
    QByteArray* out;
    JsonLayout layout;
    int depth;
    bool empty = true;

    void key(const char* name)
    {
        const bool indented = layout == JsonLayout::Indented;
        out->append(empty ? '{' : ',');
        empty = false;
        if (indented) {
            out->append('\n');
            out->append(4 * (depth + 1), ' ');
        }
        appendString(literal(name), out);
        out->append(indented ? ": " : ":");
    }

    void close()
    {
        if (layout == JsonLayout::Indented) {
            out->append('\n');
            out->append(4 * depth, ' ');
        }
        out->append('}');
    }
};

const char* readWriteText(const BrowseItems& items, BrowseItems::Item item)
{
    if (!items.writable(item))
        return "read";
    return items.readable(item) ? "readwrite" : "write";
}

} // namespace

QString buildUidHint(const DiscoveryDeviceConfig& config, const QString& identifier)
{
    return QStringLiteral("opcua_%1_%2").arg(deviceUidPart(config),
                                             QString::fromLatin1(uidHintNodePart(utf8View(identifier.toUtf8()))));
}

ItemRecordContext itemRecordContext(const DiscoveryDeviceConfig& config)
{
    return ItemRecordContext{"opcua_" + deviceUidPart(config).toUtf8() + '_'};
}

void appendItemRecord(const ItemRecordContext& context, const BrowseItems& items, BrowseItems::Item item,
                      JsonLayout layout, QByteArray* out)
{
    const Utf8View identifier = items.nodeId(item);
    const auto piece = [out](Utf8View text) { appendEscaped(text, out); };
    // The keys in the order the JSON library writes them, which is sorted.
    ObjectWriter record{out, layout, itemRecordDepth};
    record.key("data_type");
    appendString(literal(items.type(item).name), out);
    record.key("description");
    out->append('"');
    items.visitDescription(item, piece);
    out->append('"');
    record.key("external_id");
    appendString(identifier, out);
    record.key("name");
    out->append('"');
    items.paths().visitText(items.path(item), piece);
    out->append('"');
    record.key("read_write");
    appendString(literal(readWriteText(items, item)), out);
    record.key("uid_hint");
    out->append('"');
    appendEscaped(utf8View(context.uidHintPrefix), out);
    out->append(uidHintNodePart(identifier));
    out->append('"');
    record.key("unit");
    appendString(Utf8View{}, out);
    record.key("user_defined_fields");
    // The gateway's import defaults for a data point, the same for every server.
    ObjectWriter userDefined{out, layout, itemRecordDepth + 1};
    userDefined.key("access_level");
    appendString(literal("0"), out);
    userDefined.key("floating_point_precision");
    appendString(literal("4"), out);
    userDefined.key("history_from");
    appendString(literal("-2000"), out);
    userDefined.key("history_no_value_handling");
    appendString(literal("0"), out);
    userDefined.key("history_to");
    appendString(literal("0"), out);
    userDefined.key("identifier");
    appendString(identifier, out);
    userDefined.close();
    record.close();
}

QJsonObject buildItemCandidate(const DiscoveryDeviceConfig& config, const BrowseItems& items, BrowseItems::Item item)
{
    QByteArray compact;
    appendItemRecord(itemRecordContext(config), items, item, JsonLayout::Compact, &compact);
    return QJsonDocument::fromJson(compact).object();
}

bool itemIdentifierLess(Utf8View a, Utf8View b)
{
    // Identifiers are nearly always ASCII, whose case folding is the letters' and whose UTF-8 is
    // its UTF-16: compared here byte by byte, several times faster on large results. From the
    // first position where either is not ASCII on, QString compares.
    const int common = std::min(a.size, b.size);
    for (int i = 0; i < common; ++i) {
        uint u = uchar(a.data[i]);
        uint v = uchar(b.data[i]);
        if (u >= 0x80 || v >= 0x80)
            return a.toQString().compare(b.toQString(), Qt::CaseInsensitive) < 0;
        if (u - 'A' < 26u)
            u += 'a' - 'A';
        if (v - 'A' < 26u)
            v += 'a' - 'A';
        if (u != v)
            return u < v;
    }
    return a.size < b.size;
}

void updateItemOrder(ItemOrder* order, const BrowseItems& items)
{
    if (order->generation != items.generation() || items.size() < order->counted)
        *order = ItemOrder{{}, 0, items.generation()};
    if (items.size() == order->counted)
        return;
    const auto byIdentifier = [&items](BrowseItems::Item a, BrowseItems::Item b) {
        return itemIdentifierLess(items.nodeId(a), items.nodeId(b));
    };
    // New items go after every equal identifier already there, in the order they were found, as
    // a stable sort of all of them puts them; one merge instead of an insertion per item keeps
    // bringing the order up to date linear in the items.
    QVector<BrowseItems::Item> added;
    added.reserve(items.size() - order->counted);
    for (BrowseItems::Item item = order->counted; item < items.size(); ++item)
        added.append(item);
    std::stable_sort(added.begin(), added.end(), byIdentifier);
    QVector<BrowseItems::Item> merged(order->items.size() + added.size());
    std::merge(order->items.cbegin(), order->items.cend(), added.cbegin(), added.cend(), merged.begin(), byIdentifier);
    order->items = std::move(merged);
    order->counted = items.size();
}

QJsonArray itemArrayFromBrowse(const DiscoveryDeviceConfig& config, const BrowseItems& items)
{
    ItemOrder order;
    updateItemOrder(&order, items);
    QJsonArray array;
    for (const BrowseItems::Item item : order.items)
        array.append(buildItemCandidate(config, items, item));
    return array;
}

bool writeItemsResult(const ItemRecordContext& context, const BrowseItems& items, ItemOrder* order,
                      const ItemsDocument& document, const QString& path, AtomicFile::Durability durability,
                      QString* error)
{
    updateItemOrder(order, items);
    const QVector<BrowseItems::Item>& sorted = order->items;
    return writeItemsDocument(
        document, sorted.size(),
        [&](int i, QByteArray* out) { appendItemRecord(context, items, sorted[i], document.layout, out); }, path,
        durability, error);
}
