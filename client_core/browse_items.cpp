#include "client_core/browse_items.h"

#include <algorithm>

BrowseItems::Item BrowseItems::itemOf(NodeTable::Key node) const
{
    return node < itemOfNode_.size() ? itemOfNode_[node] : -1;
}

bool BrowseItems::append(NodeTable::Key node, BrowsePathTree::Ref path, const Ua::SupportedType& type, bool readable,
                         bool writable, bool isArray)
{
    if (itemOf(node) >= 0)
        return false;
    if (node >= itemOfNode_.size())
        itemOfNode_.resize(std::max(size_t(node) + 1, size_t(nodes_.size())), -1);
    itemOfNode_[node] = size();
    const auto row = &type - Ua::supportedTypes().data();
    Q_ASSERT(row >= 0 && size_t(row) < Ua::supportedTypes().size());
    const quint8 flags = quint8((readable ? readableFlag : 0) | (writable ? writableFlag : 0) | (isArray ? arrayFlag : 0));
    records_.push_back(Record{node, path, quint8(row), flags});
    return true;
}

const Ua::SupportedType& BrowseItems::type(Item item) const
{
    return Ua::supportedTypes()[records_[size_t(item)].typeRow];
}

QString BrowseItems::description(Item item) const
{
    QByteArray utf8;
    visitDescription(item, [&utf8](Utf8View piece) { utf8.append(piece.data, piece.size); });
    return utf8View(utf8).toQString();
}

void BrowseItems::offerPath(Item item, BrowsePathTree::Ref alternative)
{
    // Rare (a variable on several paths), so the texts are spelled out and the one rule decides;
    // what it changed is then kept as places in the path tree.
    Record& record = records_[size_t(item)];
    const QString oldPath = paths_.text(record.path);
    const QString oldDescription = description(item);
    QString path = oldPath;
    QString described = oldDescription;
    applyAlternateBrowsePath(&path, &described, paths_.text(alternative));
    const bool pathTaken = path != oldPath;
    if (described != oldDescription) {
        // The description names the path that is not the item's name now.
        alsoPaths_[item].append(pathTaken ? record.path : alternative);
        record.flags |= alsoFlag;
    }
    if (pathTaken)
        record.path = alternative;
}

BrowseItem BrowseItems::at(Item item) const
{
    BrowseItem expanded;
    expanded.nodeId = nodeId(item).toQString();
    expanded.browsePath = browsePath(item);
    expanded.description = description(item);
    expanded.dataType = QString::fromLatin1(type(item).name);
    expanded.readable = readable(item);
    expanded.writable = writable(item);
    expanded.isArray = isArray(item);
    return expanded;
}

QList<BrowseItem> expandedItems(const BrowseItems& items)
{
    QList<BrowseItem> expanded;
    expanded.reserve(items.size());
    for (BrowseItems::Item item = 0; item < items.size(); ++item)
        expanded.append(items.at(item));
    return expanded;
}

void BrowseItems::clear()
{
    const quint64 next = generation_ + 1;
    *this = BrowseItems();
    generation_ = next;
}
