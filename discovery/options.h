#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace OpcUaDiscovery {

// Scan settings of the discover_devices job.
struct Options
{
    qint32 timeoutMs = 60000;
    QString networkInterface = QStringLiteral("eth0");
    QList<quint16> tcpPorts = defaultTcpPorts();
    QStringList existingUids;
    bool tcpSubnetScan = true;
    QStringList extraHosts;

    static QList<quint16> defaultTcpPorts();
};

Options optionsFromRequest(const QJsonObject& request, QStringList* warnings);
QList<quint16> parsePortList(const QString& text, const QList<quint16>& defaults);

} // namespace OpcUaDiscovery
