#include "sim/server/request_stats.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace opcua_sim {

RequestStats newRequestStats(const QString& filePath)
{
    RequestStats stats;
    stats.filePath = filePath;
    for (const char* key : {"total", "Hello", "OpenSecureChannel", "CloseSecureChannel", "FindServers",
                            "FindServersOnNetwork", "GetEndpoints", "CreateSession", "ActivateSession",
                            "CloseSession", "Browse", "BrowseNext", "Read", "Write", "HistoryRead", "Encrypted",
                            "delayed", "dropped"})
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
    // Readers poll the file while the server runs, so it is replaced atomically.
    QSaveFile file(stats.filePath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QJsonDocument(object).toJson(QJsonDocument::Compact));
    return file.commit();
}

} // namespace opcua_sim
