#include "client_core/node_table.h"

#include <QHashFunctions>

namespace {

const size_t initialSlots = 1024;

quint32 hashOf(Utf8View text)
{
    return quint32(qHashBits(text.data, size_t(text.size)));
}

} // namespace

void NodeTable::grow()
{
    // At most half the slots are taken, so a search ends after few steps.
    std::vector<quint32> slots(slots_.empty() ? initialSlots : 2 * slots_.size(), 0);
    const size_t mask = slots.size() - 1;
    for (size_t key = 0; key < hashes_.size(); ++key) {
        size_t slot = hashes_[key] & mask;
        while (slots[slot] != 0)
            slot = (slot + 1) & mask;
        slots[slot] = quint32(key + 1);
    }
    slots_.swap(slots);
}

NodeTable::Key NodeTable::add(const QString& nodeId)
{
    if (2 * (handles_.size() + 1) > slots_.size())
        grow();
    toUtf8(nodeId, &scratch_);
    const Utf8View text = utf8View(scratch_);
    const quint32 hash = hashOf(text);
    const size_t mask = slots_.size() - 1;
    size_t slot = hash & mask;
    for (; slots_[slot] != 0; slot = (slot + 1) & mask) {
        const Key key = slots_[slot] - 1;
        if (hashes_[key] == hash && texts_.view(handles_[key]) == text)
            return key;
    }
    const Key key = Key(handles_.size());
    handles_.push_back(texts_.add(text));
    hashes_.push_back(hash);
    slots_[slot] = key + 1;
    return key;
}

void NodeTable::clear()
{
    *this = NodeTable();
}
