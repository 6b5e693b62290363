#pragma once

#include "client_core/compact_text.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <vector>

QString joinBrowsePath(const QStringList& segments);

// Whether a joined path names a node better than the current one: any path beats none, a deeper
// path beats a shallower one, and at equal depth the longer one wins.
bool isBetterBrowsePath(const QString& candidate, const QString& current);

// What a description says of each other path a variable was reached by.
extern const QLatin1String alsoReachedAs;   // "; also "

void applyAlternateBrowsePath(QString* path, QString* description, const QString& alternative);

// The browse paths of a walk, each its parent's path plus one segment, so that paths share their
// beginnings. The text of a path is joinBrowsePath of its segments.
class BrowsePathTree
{
public:
    using Ref = quint32;
    // The path without segments, whose text is empty; the start of every other path.
    static constexpr Ref empty = 0;

    BrowsePathTree();

    // The path of parent's segments followed by one more.
    Ref child(Ref parent, const QString& segment);
    // A path whose text is this text as it is (a variable named by its display name).
    Ref literal(const QString& text);

    QString text(Ref path) const;
    // Calls visit with the UTF-8 pieces of the path's text, in order: segments and the dots between them.
    template <typename Visit>
    void visitText(Ref path, Visit&& visit) const;

    void clear();

private:
    Ref add(Ref parent, const QString& segment);

    std::vector<Ref> parents_;                  // by path
    std::vector<TextArena::Handle> segments_;   // by path: its last segment
    TextArena texts_;
    QByteArray scratch_;
};

template <typename Visit>
void BrowsePathTree::visitText(Ref path, Visit&& visit) const
{
    // Each path knows its last segment and its parent: the segments are gathered from the last
    // to the first, then given in order. Paths are rarely deeper than the room on the stack.
    const int stackRoom = 32;
    Ref shallow[stackRoom];
    std::vector<Ref> deep;
    int depth = 0;
    for (Ref at = path; at != empty; at = parents_[at], ++depth) {
        if (depth < stackRoom) {
            shallow[depth] = at;
            continue;
        }
        if (deep.empty())
            deep.assign(shallow, shallow + stackRoom);
        deep.push_back(at);
    }
    const Ref* segments = depth <= stackRoom ? shallow : deep.data();
    for (int i = depth - 1; i >= 0; --i) {
        visit(texts_.view(segments_[segments[i]]));
        if (i > 0)
            visit(Utf8View{".", 1});
    }
}
