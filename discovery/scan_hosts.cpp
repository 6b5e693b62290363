#include "discovery/scan_hosts.h"

#include <QHostAddress>
#include <QNetworkAddressEntry>
#include <QNetworkInterface>
#include <QSet>

namespace OpcUaDiscovery {

namespace {

constexpr int kHostCap = 256;

// One IPv4 address entry of an interface the scan may use.
struct InterfaceAddress
{
    QString interfaceName;
    QNetworkAddressEntry entry;
};

bool interfaceMatches(const QNetworkInterface& iface, const QString& name)
{
    if (name.isEmpty())
        return true;
    return iface.name().compare(name, Qt::CaseInsensitive) == 0
        || iface.humanReadableName().compare(name, Qt::CaseInsensitive) == 0;
}

bool qualifies(const QNetworkInterface& iface, const QString& name)
{
    const QNetworkInterface::InterfaceFlags flags = iface.flags();
    if (!flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning))
        return false;
    if (flags.testFlag(QNetworkInterface::IsLoopBack))
        return false;
    return interfaceMatches(iface, name);
}

bool isLinkLocal(quint32 address)
{
    return (address & 0xFFFF0000u) == 0xA9FE0000u;  // 169.254.0.0/16
}

// The walk over the system's interfaces: the IPv4 entries of those that qualify, in the order
// the system lists interfaces and their entries.
QList<InterfaceAddress> qualifyingIpv4Entries(const QString& interfaceName)
{
    QList<InterfaceAddress> entries;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& iface : interfaces) {
        if (!qualifies(iface, interfaceName))
            continue;
        const QList<QNetworkAddressEntry> addressEntries = iface.addressEntries();
        for (const QNetworkAddressEntry& entry : addressEntries) {
            if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
                entries.append({iface.name(), entry});
        }
    }
    return entries;
}

QStringList ownHosts(const QList<InterfaceAddress>& entries)
{
    QStringList hosts;
    for (const InterfaceAddress& address : entries) {
        const QHostAddress ip = address.entry.ip();
        if (ip.isNull())
            continue;
        const QString text = ip.toString();
        if (text.isEmpty() || text == QLatin1String("0.0.0.0") || text.startsWith(QLatin1String("127."))
            || isLinkLocal(ip.toIPv4Address()))
            continue;
        if (!hosts.contains(text))
            hosts.append(text);
    }
    return hosts;
}

QStringList subnetHosts(const QList<InterfaceAddress>& entries, bool interfaceNamed, QStringList* warnings)
{
    QStringList hosts;
    QSet<quint32> listed;
    QSet<quint32> ownAddresses;
    for (const InterfaceAddress& entry : entries) {
        const quint32 address = entry.entry.ip().toIPv4Address();
        const quint32 netmask = entry.entry.netmask().toIPv4Address();
        if (address == 0 || netmask == 0 || isLinkLocal(address))
            continue;

        const quint32 network = address & netmask;
        const quint32 broadcast = address | ~netmask;
        const quint32 first = network + 1;
        if (first >= broadcast)
            continue;
        const quint32 usable = broadcast - network - 1;
        // Without a named interface only small subnets are scanned, on purpose.
        if (usable > static_cast<quint32>(kHostCap) && !interfaceNamed)
            continue;

        ownAddresses.insert(address);
        int taken = 0;
        for (quint32 candidate = first; candidate < broadcast; ++candidate) {
            if (candidate == address)
                continue;
            if (hosts.size() >= kHostCap || taken >= kHostCap) {
                if (warnings)
                    warnings->append(QStringLiteral("TCP subnet scan is limited to %1 hosts on %2")
                                         .arg(QString::number(kHostCap), entry.interfaceName));
                break;
            }
            if (!listed.contains(candidate)) {
                listed.insert(candidate);
                hosts.append(QHostAddress(candidate).toString());
            }
            ++taken;
        }
    }

    QStringList result;
    result.reserve(hosts.size());
    for (const QString& host : hosts) {
        if (!ownAddresses.contains(QHostAddress(host).toIPv4Address()))
            result.append(host);
    }
    return result;
}

} // namespace

QStringList localScanHosts(const QString& interfaceName)
{
    return ownHosts(qualifyingIpv4Entries(interfaceName));
}

QStringList ipv4HostsOnInterface(const QString& interfaceName, QStringList* warnings)
{
    return subnetHosts(qualifyingIpv4Entries(interfaceName), !interfaceName.isEmpty(), warnings);
}

QStringList scanHosts(const QString& interfaceName, QStringList* warnings)
{
    const QList<InterfaceAddress> entries = qualifyingIpv4Entries(interfaceName);
    return ownHosts(entries) + subnetHosts(entries, !interfaceName.isEmpty(), warnings);
}

} // namespace OpcUaDiscovery
