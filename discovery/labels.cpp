#include "discovery/labels.h"

#include "common/security_settings.h"

#include <initializer_list>

namespace OpcUaDiscovery {

namespace {

const QString kDefaultPolicyLabel = QStringLiteral("None");
const QString kUrnPrefix = QStringLiteral("urn:");
const QString kGatewayUriSuffix = QStringLiteral(".ovrin-connect");

bool isLocalHost(const QString& host)
{
    return host == QLatin1String("127.0.0.1") || host.startsWith(QLatin1String("127."));
}

QString tokenText(bool anonymous, bool username)
{
    if (anonymous && username)
        return QStringLiteral("anonymous or username");
    if (anonymous)
        return QStringLiteral("anonymous");
    if (username)
        return QStringLiteral("username required");
    return QStringLiteral("no supported user token");
}

bool containsAny(const QString& text, std::initializer_list<const char*> fragments)
{
    for (const char* fragment : fragments) {
        if (text.contains(QLatin1String(fragment), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

} // namespace

QString applicationTypeLabel(int applicationType)
{
    switch (applicationType) {
    case 2:
        return QStringLiteral("Client and Server");
    case 3:
        return QStringLiteral("Discovery Server");
    default:
        // Clients share the server label on purpose: only servers are imported.
        return QStringLiteral("Server");
    }
}

QString securityModeLabel(int securityMode)
{
    return securityModeText(securityModeOrNone(securityMode));
}

QString securityPolicyLabel(const QString& policyUri)
{
    const int hash = policyUri.lastIndexOf(QLatin1Char('#'));
    if (hash >= 0 && hash < policyUri.size() - 1)
        return policyUri.mid(hash + 1);
    return policyUri.isEmpty() ? kDefaultPolicyLabel : policyUri;
}

QString ovrinConnectInstanceName(const QString& applicationUri)
{
    const QString t = applicationUri.trimmed();
    if (!t.startsWith(kUrnPrefix, Qt::CaseInsensitive) || !t.endsWith(kGatewayUriSuffix, Qt::CaseInsensitive))
        return QString();
    const int length = t.size() - kUrnPrefix.size() - kGatewayUriSuffix.size();
    if (length <= 0)
        return QString();
    QString middle = t.mid(kUrnPrefix.size(), length);
    middle.replace(QLatin1Char('.'), QLatin1Char(' '));
    return middle.trimmed();
}

QString candidateDisplayName(const Candidate& candidate)
{
    const QString endpoint = candidateEndpoint(candidate);
    const OpcTcpUrl parsed = parseOpcTcpUrl(endpoint);
    const bool local = isLocalHost(candidate.host);

    QString name = ovrinConnectInstanceName(candidate.applicationUri);
    if (name.isEmpty())
        name = candidate.applicationName.trimmed();
    if (name.isEmpty())
        name = uriTail(candidate.productUri);
    if (name.isEmpty())
        name = uriTail(candidate.applicationUri);

    QString where = QStringLiteral("this gateway");
    if (!local)
        where = candidate.host + QLatin1Char(':') + QString::number(candidate.port) + parsed.path;

    QString role;
    if (candidate.applicationType.contains(QLatin1String("Discovery"), Qt::CaseInsensitive))
        role = QStringLiteral("Discovery Server");
    else if (candidate.applicationType.contains(QLatin1String("Client"), Qt::CaseInsensitive))
        role = candidate.applicationType;

    if (!name.isEmpty() && !role.isEmpty())
        return QStringLiteral("%1 (%2, %3)").arg(name, role, where);
    if (!name.isEmpty())
        return QStringLiteral("%1 (%2)").arg(name, where);
    if (local)
        return QStringLiteral("Local OPC UA server (%1)").arg(endpoint);
    return QStringLiteral("OPC UA (%1)").arg(where);
}

QString endpointSummary(const EndpointOffer& offer)
{
    return QStringLiteral("%1 / %2 (%3)")
        .arg(securityModeLabel(offer.securityMode), securityPolicyLabel(offer.securityPolicyUri),
             tokenText(offer.anonymous, offer.username));
}

QString describeConnectFailure(const QString& status, int securityMode, const QString& securityPolicyUri,
                               const QStringList& advertised)
{
    const QString setting = QStringLiteral("this instance uses Security Mode %1 and Policy %2")
                                .arg(securityModeLabel(securityMode), securityPolicyLabel(securityPolicyUri));
    const QString offers =
        advertised.isEmpty() ? QString() : QStringLiteral(" Server advertised: %1.").arg(advertised.join(QLatin1String("; ")));
    const QString s = status.isEmpty() ? QStringLiteral("unknown") : status;

    // Order matters: "BadIdentityTokenRejected" must be seen before "BadIdentityToken".
    if (containsAny(s, {"BadSecurityMode", "BadSecurityPolicy", "BadIdentityTokenRejected", "No suitable endpoint"})) {
        return QStringLiteral("OPC UA rejected the security endpoint (%1); %2.%3 Edit Security Mode and Security Policy "
                              "on the instance to a combination the server offers, then scan again.")
            .arg(s, setting, offers);
    }
    if (containsAny(s, {"BadIdentityToken", "BadUserAccessDenied", "BadUserNameInvalid"})) {
        return QStringLiteral("OPC UA authentication failed (%1). Check username and password, or whether anonymous "
                              "is allowed.%2")
            .arg(s, offers);
    }
    if (containsAny(s, {"BadCertificate", "BadSecurityChecks"})) {
        return QStringLiteral("OPC UA certificate check failed (%1). Check the instance certificate and key, or use a "
                              "server that allows Security None.")
            .arg(s);
    }
    if (containsAny(s, {"BadTimeout", "timed out"})) {
        return QStringLiteral("OPC UA connect timed out (%1). The server may be slow, or item browse of a large address "
                              "space needs a longer timeout_ms.")
            .arg(s);
    }
    if (containsAny(s, {"BadConnection", "BadHostUnreachable", "BadTcp"}))
        return QStringLiteral("Could not open a TCP connection to the OPC UA server (%1).").arg(s);
    return QStringLiteral("Could not connect to the OPC UA server (%1); %2.%3").arg(s, setting, offers);
}

} // namespace OpcUaDiscovery
