#include "discovery/options.h"

#include "common/opc_tcp_scheme.h"
#include "common/request_timeout.h"
#include "discovery/candidate.h"

#include <QJsonArray>
#include <QJsonValue>
#include <QSet>
#include <QtGlobal>

#include <algorithm>

namespace OpcUaDiscovery {

namespace {

const int kMaxPorts = 64;

QString jsonValueToString(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString().trimmed();
    case QJsonValue::Double: {
        // Numbers beyond the 64-bit range have no integer form; they count as absent.
        const double number = value.toDouble();
        return qAbs(number) < 9.2e18 ? QString::number(qRound64(number)) : QString();
    }
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    default:
        return QString();
    }
}

QJsonObject memberObject(const QJsonObject& object, const QString& key)
{
    const QJsonValue member = object.value(key);
    return member.isObject() ? member.toObject() : QJsonObject();
}

QString getField(const QJsonObject& object, const QString& key, const QString& defaultValue)
{
    for (const QJsonObject& place : {object, memberObject(object, QStringLiteral("options")),
                                     memberObject(object, QStringLiteral("user_defined_fields"))}) {
        const QString text = jsonValueToString(place.value(key));
        if (!text.isEmpty())
            return text;
    }
    return defaultValue;
}

bool hasField(const QJsonObject& object, const QString& key)
{
    return object.contains(key) || memberObject(object, QStringLiteral("options")).contains(key)
           || memberObject(object, QStringLiteral("user_defined_fields")).contains(key);
}

bool addPort(QList<quint16>* ports, QSet<quint16>* seen, int value)
{
    if (value < 1 || value > 65535)
        return false;
    const quint16 port = static_cast<quint16>(value);
    if (!seen->contains(port)) {
        seen->insert(port);
        ports->append(port);
    }
    return ports->size() >= kMaxPorts;
}

void appendAddressIdentities(const QString& address, QStringList* uids)
{
    const OpcTcpUrl parsed = parseOpcTcpUrl(address);
    if (parsed.ok) {
        uids->append(uidFor(parsed.host, parsed.port, parsed.path));
        return;
    }
    if (!address.contains(QLatin1Char(':')))
        return;
    QString s = address;
    s.remove(QLatin1String(kOpcTcpScheme), Qt::CaseSensitive);
    const int slash = s.indexOf(QLatin1Char('/'));
    if (slash >= 0)
        s.truncate(slash);
    const int colon = s.lastIndexOf(QLatin1Char(':'));
    if (colon < 1)
        return;
    bool ok = false;
    const ushort port = s.mid(colon + 1).toUShort(&ok, 10);
    uids->append(uidFor(s.left(colon), ok ? port : 0, QString()));
}

} // namespace

QList<quint16> Options::defaultTcpPorts()
{
    QList<quint16> ports;
    for (quint16 port = 4840; port <= 4850; ++port)
        ports.append(port);
    ports.append(53530);
    return ports;
}

QList<quint16> parsePortList(const QString& text, const QList<quint16>& defaults)
{
    QList<quint16> ports;
    QSet<quint16> seen;
    const QStringList pieces = text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& rawPiece : pieces) {
        const QString piece = rawPiece.trimmed();
        const int dash = piece.indexOf(QLatin1Char('-'));
        if (dash >= 1) {
            bool firstOk = false;
            bool lastOk = false;
            const int first = piece.left(dash).trimmed().toInt(&firstOk, 10);
            const int last = piece.mid(dash + 1).trimmed().toInt(&lastOk, 10);
            if (!firstOk || !lastOk)
                continue;
            // Values outside 1..65535 are skipped, so only the valid span is walked.
            const int from = std::max(std::min(first, last), 1);
            const int to = std::min(std::max(first, last), 65535);
            for (int value = from; value <= to; ++value) {
                if (addPort(&ports, &seen, value))
                    return ports;
            }
            continue;
        }
        bool ok = false;
        const int value = piece.toInt(&ok, 10);
        if (ok && addPort(&ports, &seen, value))
            return ports;
    }
    return ports.isEmpty() ? defaults : ports;
}

Options optionsFromRequest(const QJsonObject& request, QStringList* warnings)
{
    Q_UNUSED(warnings);
    Options options;

    options.timeoutMs =
        boundedTimeoutMs(timeoutMsFromText(getField(request, QStringLiteral("timeout_ms"), QString())), 60000);

    options.networkInterface = hasField(request, QStringLiteral("network_interface"))
                                   ? getField(request, QStringLiteral("network_interface"), QString())
                                   : QStringLiteral("eth0");

    options.tcpPorts = parsePortList(getField(request, QStringLiteral("tcp_ports"), QStringLiteral("4840-4850,53530")),
                                     Options::defaultTcpPorts());

    const QString scan = getField(request, QStringLiteral("tcp_subnet_scan"), QStringLiteral("1"));
    options.tcpSubnetScan = !(scan == QLatin1String("0") || scan.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0);

    const QJsonArray existing = request.value(QStringLiteral("existing_devices")).toArray();
    for (const QJsonValue& element : existing) {
        if (!element.isObject())
            continue;
        const QJsonObject device = element.toObject();
        const QString identity = getField(device, QStringLiteral("uid_hint"), getField(device, QStringLiteral("uid"), QString()));
        if (!identity.isEmpty())
            options.existingUids.append(identity);
        appendAddressIdentities(getField(device, QStringLiteral("address"), QString()), &options.existingUids);
    }
    return options;
}

} // namespace OpcUaDiscovery
