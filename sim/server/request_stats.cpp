#include "sim/server/request_stats.h"

#include "common/atomic_file.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace opcua_sim {

RequestStats newRequestStats(const QString& filePath)
{
    RequestStats stats;
    stats.filePath = filePath;
    for (const char* key : {"total", "Hello", "OpenSecureChannel", "CloseSecureChannel", "FindServers",
                            "FindServersOnNetwork", "GetEndpoints", "CreateSession", "ActivateSession",
                            "CloseSession", "Browse", "BrowseNext", "Read", "Write", "HistoryRead", "Encrypted",
                            "delayed", "dropped", "refused", "browse_nodes", "browse_next_points",
                            "read_operations", "supertype_browses", "supertype_nodes",
                            "supertype_browses_per_node_max"})
        stats.counts.insert(QString::fromLatin1(key), 0);
    return stats;
}

void countRequest(RequestStats* stats, const QString& kind, bool serviceRequest)
{
    ++stats->counts[kind];
    if (serviceRequest)
        ++stats->counts[QStringLiteral("total")];
    writeRequestStats(*stats);
}

void countEvent(RequestStats* stats, const QString& kind)
{
    ++stats->counts[kind];
    writeRequestStats(*stats);
}

bool writeRequestStats(const RequestStats& stats)
{
    if (stats.filePath.isEmpty())
        return true;
    QJsonObject object;
    for (auto it = stats.counts.constBegin(); it != stats.counts.constEnd(); ++it)
        object.insert(it.key(), static_cast<double>(it.value()));
    // Readers poll the file while the server runs, so it is replaced as a whole. No sync to
    // disk: it is rewritten on every request and only ever read while we run.
    return writeFileAtomically(stats.filePath, QJsonDocument(object).toJson(QJsonDocument::Compact),
                               AtomicFile::Durability::Unsynced);
}

} // namespace opcua_sim
