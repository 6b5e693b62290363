#include "discovery/device_record.h"

#include "common/security_settings.h"
#include "discovery/labels.h"

#include <QSet>

namespace OpcUaDiscovery {

namespace {

QString describeCandidate(const Candidate& c, const QString& address, const QString& name, SecurityMode mode,
                          const QString& policy)
{
    QString text = QStringLiteral("OPC UA server at %1").arg(address);
    // The application name is not repeated when it already opens the display name.
    if (!c.applicationName.isEmpty() && !name.startsWith(c.applicationName)
        && c.applicationName != ovrinConnectInstanceName(c.applicationUri)) {
        text += QStringLiteral(". ") + c.applicationName;
    }
    if (!c.applicationUri.isEmpty())
        text += QStringLiteral(". Application URI %1").arg(c.applicationUri);
    if (!c.productUri.isEmpty())
        text += QStringLiteral(". Product %1").arg(c.productUri);
    if (!c.applicationType.isEmpty())
        text += QStringLiteral(". %1").arg(c.applicationType);
    if (!c.capabilities.isEmpty())
        text += QStringLiteral(". Capabilities %1").arg(c.capabilities.join(QLatin1String(", ")));
    text += QStringLiteral(". Imported as %1 / %2").arg(securityModeText(mode), securityPolicyLabel(policy));
    if (c.anonymousOffered)
        text += QStringLiteral("; anonymous");
    else if (c.endpointSelected && c.usernameOffered)
        text += QStringLiteral("; anonymous is not offered, set username and password after import");
    if (!c.advertisedEndpointUrl.isEmpty() && c.advertisedEndpointUrl != address) {
        text += QStringLiteral(". Server advertised %1; the scanned IP was kept so the gateway can reach it")
                    .arg(c.advertisedEndpointUrl);
    }
    if (!c.offeredEndpoints.isEmpty())
        text += QStringLiteral(". Offered: %1").arg(c.offeredEndpoints.join(QLatin1String("; ")));
    return text;
}

} // namespace

QJsonObject candidateToJson(const Candidate& candidate)
{
    const QString address = candidateEndpoint(candidate);
    const OpcTcpUrl parsed = parseOpcTcpUrl(address);
    // A mode or policy the server did not name is imported as None.
    const SecurityMode mode = securityModeOrNone(candidate.securityMode);
    const QString policy = candidate.securityPolicyUri.isEmpty() ? QString::fromLatin1(kSecurityPolicyNoneUri)
                                                                : candidate.securityPolicyUri;
    const QString name = candidateDisplayName(candidate);
    // Built from the scanned address, so the same device keeps its identifier on every scan.
    const QString uid = uidFor(candidate.host, candidate.port, parsed.path);

    QJsonObject settings;
    settings.insert(QStringLiteral("username"), QString());
    settings.insert(QStringLiteral("password"), QString());
    settings.insert(QStringLiteral("security_mode"), QString::number(securityModeNumber(mode)));
    settings.insert(QStringLiteral("security_policies"), policy);
    settings.insert(QStringLiteral("certificate"), QStringLiteral("0"));
    settings.insert(QStringLiteral("key"), QStringLiteral("0"));

    QJsonObject record;
    record.insert(QStringLiteral("address"), address);
    record.insert(QStringLiteral("description"), describeCandidate(candidate, address, name, mode, policy));
    record.insert(QStringLiteral("external_id"), uid);
    record.insert(QStringLiteral("name"), name);
    record.insert(QStringLiteral("uid_hint"), uid);
    record.insert(QStringLiteral("user_defined_fields"), settings);
    return record;
}

QJsonArray deviceRecordsOnePerId(const QList<Candidate>& candidates)
{
    QJsonArray records;
    QSet<QString> seenIds;
    for (const Candidate& candidate : candidates) {
        const QJsonObject record = candidateToJson(candidate);
        const QString id = record.value(QLatin1String("external_id")).toString();
        if (seenIds.contains(id))
            continue;
        seenIds.insert(id);
        records.append(record);
    }
    return records;
}

} // namespace OpcUaDiscovery
