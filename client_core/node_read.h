#pragma once

#include <QDateTime>
#include <QString>
#include <QtGlobal>

// Reading and history-reading one configured data point: ClientCore::readNode and
// ClientCore::convertValueToNode (node_read.cpp). Writing it is in node_write.cpp, the texts of
// its values in value_conversion.cpp, its node identifier in node_id.h.

// One configured data point for read and write.
struct DataPoint
{
    // The arrayIndex that stands for the whole value rather than one element.
    static constexpr quint16 wholeArray = 65535;

    quint16 namespaceIndex = 0;
    QString identifier;
    qint32 dataTypeKind = 0;
    QString value;
    QDateTime timestamp;
    QString error;
    QString fullNodeId;
    bool useFullNodeId = false;
    quint32 readMode = 0;
    qint64 historyStartMs = 0;
    qint64 historyEndMs = 0;
    quint16 arrayIndex = wholeArray;
    quint8 floatingPointPrecision = 4;
};
