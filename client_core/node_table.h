#pragma once

#include "client_core/compact_text.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <vector>

// The nodes a walk meets, each identifier held once as UTF-8 and numbered in order of first
// sight, so that the walk's sets and its items name a node by a number instead of by its text.
// Two identifiers are the same node exactly when their texts are equal.
class NodeTable
{
public:
    using Key = quint32;

    // The number of the node with this identifier text, given now if the text is new.
    Key add(const QString& nodeId);
    int size() const { return int(handles_.size()); }
    Utf8View text(Key key) const { return texts_.view(handles_[key]); }
    void clear();

private:
    void grow();

    TextArena texts_;
    std::vector<TextArena::Handle> handles_;   // by key
    std::vector<quint32> hashes_;              // by key
    std::vector<quint32> slots_;               // open addressing: key + 1, or 0 when free
    QByteArray scratch_;
};
