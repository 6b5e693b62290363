#include "client_core/browse_path.h"

namespace {

int segmentCount(const QString& path)
{
    return path.count(QLatin1Char('.')) + 1;
}

// A segment as a joined path keeps it, or an empty text where the path leaves it out: blanks
// around it go, and so does "Root" or "Objects" while nothing has been kept before it.
QString keptSegment(const QString& raw, bool firstKept)
{
    const QString segment = raw.trimmed();
    if (firstKept
        && (segment.compare(QLatin1String("Root"), Qt::CaseInsensitive) == 0
            || segment.compare(QLatin1String("Objects"), Qt::CaseInsensitive) == 0))
        return QString();
    return segment;
}

} // namespace

const QLatin1String alsoReachedAs("; also ");

bool isBetterBrowsePath(const QString& candidate, const QString& current)
{
    if (candidate.isEmpty())
        return false;
    if (current.isEmpty())
        return true;
    const int candidateSegments = segmentCount(candidate);
    const int currentSegments = segmentCount(current);
    if (candidateSegments != currentSegments)
        return candidateSegments > currentSegments;
    return candidate.size() > current.size();
}

QString joinBrowsePath(const QStringList& segments)
{
    QStringList kept;
    for (const QString& raw : segments) {
        const QString segment = keptSegment(raw, kept.isEmpty());
        if (!segment.isEmpty())
            kept.append(segment);
    }
    return kept.join(QLatin1Char('.'));
}

void applyAlternateBrowsePath(QString* path, QString* description, const QString& alternative)
{
    if (!path || alternative.isEmpty() || alternative == *path)
        return;
    if (isBetterBrowsePath(alternative, *path)) {
        const QString oldPath = *path;
        *path = alternative;
        if (description && !oldPath.isEmpty() && !description->contains(oldPath))
            description->append(alsoReachedAs + oldPath);
        return;
    }
    if (description && !description->contains(alternative))
        description->append(alsoReachedAs + alternative);
}

BrowsePathTree::BrowsePathTree()
{
    parents_.push_back(empty);
    segments_.push_back(texts_.add(Utf8View{}));
}

BrowsePathTree::Ref BrowsePathTree::add(Ref parent, const QString& segment)
{
    toUtf8(segment, &scratch_);
    parents_.push_back(parent);
    segments_.push_back(texts_.add(utf8View(scratch_)));
    return Ref(parents_.size() - 1);
}

BrowsePathTree::Ref BrowsePathTree::child(Ref parent, const QString& segment)
{
    // The text of every path but the empty one has at least one segment, so the parent's text is
    // empty exactly when the parent is the empty path.
    const QString kept = keptSegment(segment, parent == empty);
    return kept.isEmpty() ? parent : add(parent, kept);
}

BrowsePathTree::Ref BrowsePathTree::literal(const QString& text)
{
    return text.isEmpty() ? empty : add(empty, text);
}

QString BrowsePathTree::text(Ref path) const
{
    QByteArray utf8;
    visitText(path, [&utf8](Utf8View piece) { utf8.append(piece.data, piece.size); });
    return utf8View(utf8).toQString();
}

void BrowsePathTree::clear()
{
    *this = BrowsePathTree();
}
