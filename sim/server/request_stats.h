#pragma once

#include <QMap>
#include <QString>

namespace opcua_sim {

// Request counters by kind, mirrored to a JSON file after every change when a path is set.
struct RequestStats
{
    QString filePath;
    QMap<QString, qint64> counts;
};

RequestStats newRequestStats(const QString& filePath);
void countRequest(RequestStats* stats, const QString& kind, bool serviceRequest);
void countEvent(RequestStats* stats, const QString& kind);
bool writeRequestStats(const RequestStats& stats);

} // namespace opcua_sim
