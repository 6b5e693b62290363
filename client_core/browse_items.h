#pragma once

#include "client_core/browse_path.h"
#include "client_core/compact_text.h"
#include "client_core/node_table.h"
#include "client_core/browse.h"
#include "ua/supported_types.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QVector>
#include <QtGlobal>

#include <vector>

// The variables a walk found, in the order it found them, each held once and compactly: its node
// by number, its path as a place in the walk's path tree, its type as a row of the supported
// types, its access and array bits. Its texts (identifier, name, description) are produced
// when asked for. A node has at most one item.
class BrowseItems
{
public:
    using Item = int;

    // Every node the walk met, items or not.
    NodeTable& nodes() { return nodes_; }
    const NodeTable& nodes() const { return nodes_; }
    // Every path the walk built.
    BrowsePathTree& paths() { return paths_; }
    const BrowsePathTree& paths() const { return paths_; }

    int size() const { return int(records_.size()); }
    // The item of a node, or -1.
    Item itemOf(NodeTable::Key node) const;
    // A new item of a node that has none (false, and nothing changes, when it has one); its type
    // is a row of Ua::supportedTypes().
    bool append(NodeTable::Key node, BrowsePathTree::Ref path, const Ua::SupportedType& type, bool readable,
                bool writable, bool isArray);
    // The variable was reached again on another path: applyAlternateBrowsePath on its name and
    // description.
    void offerPath(Item item, BrowsePathTree::Ref alternative);

    NodeTable::Key node(Item item) const { return records_[size_t(item)].node; }
    Utf8View nodeId(Item item) const { return nodes_.text(node(item)); }
    BrowsePathTree::Ref path(Item item) const { return records_[size_t(item)].path; }
    const Ua::SupportedType& type(Item item) const;
    bool readable(Item item) const { return (records_[size_t(item)].flags & readableFlag) != 0; }
    bool writable(Item item) const { return (records_[size_t(item)].flags & writableFlag) != 0; }
    bool isArray(Item item) const { return (records_[size_t(item)].flags & arrayFlag) != 0; }

    // "OPC UA Variable (<type>[, array])" and a "; also <path>" for each other path taken note
    // of: calls visit with its UTF-8 pieces in order.
    template <typename Visit>
    void visitDescription(Item item, Visit&& visit) const;
    QString description(Item item) const;
    QString browsePath(Item item) const { return paths_.text(path(item)); }

    // The item with every text spelled out.
    BrowseItem at(Item item) const;

    // Empties the items for another walk.
    void clear();
    // How often they were emptied: what was learnt of the items before is void once it changed.
    quint64 generation() const { return generation_; }

private:
    enum Flag : quint8 { readableFlag = 1, writableFlag = 2, arrayFlag = 4, alsoFlag = 8 };

    struct Record
    {
        NodeTable::Key node;
        BrowsePathTree::Ref path;
        quint8 typeRow;
        quint8 flags;
    };

    NodeTable nodes_;
    BrowsePathTree paths_;
    std::vector<Record> records_;
    std::vector<qint32> itemOfNode_;                        // by node key, -1 without an item
    QHash<Item, QVector<BrowsePathTree::Ref>> alsoPaths_;   // only of items reached on several paths
    quint64 generation_ = 0;
};

// Every item spelled out, in the order the walk found them.
QList<BrowseItem> expandedItems(const BrowseItems& items);

template <typename Visit>
void BrowseItems::visitDescription(Item item, Visit&& visit) const
{
    static const char prefix[] = "OPC UA Variable (";
    static const char arraySuffix[] = ", array";
    const char* typeName = type(item).name;
    visit(Utf8View{prefix, int(sizeof prefix) - 1});
    visit(Utf8View{typeName, int(std::strlen(typeName))});
    if (isArray(item))
        visit(Utf8View{arraySuffix, int(sizeof arraySuffix) - 1});
    visit(Utf8View{")", 1});
    if ((records_[size_t(item)].flags & alsoFlag) == 0)
        return;
    for (const BrowsePathTree::Ref also : alsoPaths_.value(item)) {
        visit(Utf8View{alsoReachedAs.data(), alsoReachedAs.size()});
        paths_.visitText(also, visit);
    }
}
