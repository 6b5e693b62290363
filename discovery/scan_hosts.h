#pragma once

#include <QString>
#include <QStringList>

namespace OpcUaDiscovery {

// The machine's own usable IPv4 addresses on the interfaces that match the name.
QStringList localScanHosts(const QString& interfaceName);

// The other host addresses of the matching interfaces' IPv4 subnets, at most 256.
QStringList ipv4HostsOnInterface(const QString& interfaceName, QStringList* warnings);

// What the scan probes: localScanHosts, then ipv4HostsOnInterface, from one look at the interfaces.
QStringList scanHosts(const QString& interfaceName, QStringList* warnings);

} // namespace OpcUaDiscovery
