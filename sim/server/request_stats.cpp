#include "sim/server/request_stats.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QFile>

#include <cstdio>

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
    // Readers poll the file while the server runs, so it is replaced atomically by a rename.
    // No sync to disk: it is rewritten on every request and only ever read while we run.
    const QString temporary = stats.filePath + QStringLiteral(".tmp");
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const bool written = file.write(bytes) == bytes.size();
    file.close();
    return written && std::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(stats.filePath).constData()) == 0;
}

} // namespace opcua_sim
