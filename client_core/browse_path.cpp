#include "client_core/browse_path.h"

namespace {

int segmentCount(const QString& path)
{
    return path.count(QLatin1Char('.')) + 1;
}

} // namespace

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
        const QString segment = raw.trimmed();
        if (segment.isEmpty())
            continue;
        if (kept.isEmpty()
            && (segment.compare(QLatin1String("Root"), Qt::CaseInsensitive) == 0
                || segment.compare(QLatin1String("Objects"), Qt::CaseInsensitive) == 0))
            continue;
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
            description->append(QStringLiteral("; also %1").arg(oldPath));
        return;
    }
    if (description && !description->contains(alternative))
        description->append(QStringLiteral("; also %1").arg(alternative));
}
