// Prints the scan hosts of one interface name as seen in the calling process's
// network namespace: {"local": [...], "hosts": [...], "warnings": [...], "scan": [...],
// "scan_warnings": [...]}, the last two from the one look the scan engine takes.
// Usage: scan_hosts_probe [INTERFACE]   (no argument: the empty name)
#include "discovery/scan_hosts.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString name = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QStringList warnings;
    QJsonObject out;
    out.insert(QStringLiteral("local"), QJsonArray::fromStringList(OpcUaDiscovery::localScanHosts(name)));
    out.insert(QStringLiteral("hosts"), QJsonArray::fromStringList(OpcUaDiscovery::ipv4HostsOnInterface(name, &warnings)));
    out.insert(QStringLiteral("warnings"), QJsonArray::fromStringList(warnings));
    QStringList scanWarnings;
    out.insert(QStringLiteral("scan"), QJsonArray::fromStringList(OpcUaDiscovery::scanHosts(name, &scanWarnings)));
    out.insert(QStringLiteral("scan_warnings"), QJsonArray::fromStringList(scanWarnings));
    const QByteArray json = QJsonDocument(out).toJson(QJsonDocument::Compact);
    std::fwrite(json.constData(), 1, static_cast<size_t>(json.size()), stdout);
    std::fputc('\n', stdout);
    return 0;
}
