#include "discovery/endpoint_selection.h"

#include "common/security_settings.h"
#include "discovery/labels.h"
#include "discovery/peer_bounds.h"

#include <QSet>

#include <algorithm>

namespace OpcUaDiscovery {

namespace {

struct PolicyBonus
{
    const char* suffix;
    int anonymousBonus;
    int usernameOnlyBonus;
};

// Policy bonus of an offer that accepts anonymous, and of one that accepts only a user name.
const PolicyBonus kSupportedPolicies[] = {
    {"#None", 80, 40},
    {"#Basic256Sha256", 70, 30},
    {"#Basic256", 60, 20},
    {"#Basic128Rsa15", 50, 10},
};

constexpr int kSecurityLevelCap = 10;

// -1 for a number that names no mode.
int modeBase(int securityMode)
{
    const std::optional<SecurityMode> mode = securityModeFromNumber(securityMode);
    if (!mode)
        return -1;
    switch (*mode) {
    case SecurityMode::None:
        return 300;
    case SecurityMode::Sign:
        return 200;
    case SecurityMode::SignAndEncrypt:
        return 100;
    }
    return -1;
}

const PolicyBonus* supportedPolicy(const QString& policyUri)
{
    for (const PolicyBonus& policy : kSupportedPolicies) {
        if (policyUri.endsWith(QLatin1String(policy.suffix)))
            return &policy;
    }
    return nullptr;
}

// -1 for an offer the import cannot use.
int importScore(const EndpointOffer& offer)
{
    const int base = modeBase(offer.securityMode);
    const PolicyBonus* policy = supportedPolicy(offer.securityPolicyUri);
    if (base < 0 || !policy || !(offer.anonymous || offer.username))
        return -1;
    const int bonus = offer.anonymous ? policy->anonymousBonus : policy->usernameOnlyBonus;
    // The level only breaks near-ties; capping it keeps mode and policy dominant.
    return base + bonus + std::min(offer.securityLevel, kSecurityLevelCap);
}

void assignIfNotEmpty(QString* target, const QString& value)
{
    const QString trimmed = value.trimmed();
    if (!trimmed.isEmpty())
        *target = trimmed;
}

// A further candidate at the URL a discovery service listed: the scanned one's settings with its
// own address and the listed server's identity, nothing chosen yet.
Candidate foundCandidate(const Candidate& base, const QString& host, quint16 port, const QString& url,
                         const DiscoveredServer& server)
{
    Candidate found = base;
    found.host = host;
    found.port = port;
    found.endpointUrl = url;
    found.source = QStringLiteral("findservers");
    found.advertisedEndpointUrl = server.discoveryUrl.trimmed();
    found.endpointSelected = false;
    found.offeredEndpoints.clear();
    found.applicationName.clear();
    found.applicationUri.clear();
    found.productUri.clear();
    found.applicationType.clear();
    found.capabilities.clear();
    applyApplicationIdentity(&found, server);
    return found;
}

} // namespace

bool securityPolicySupported(const QString& policyUri)
{
    return supportedPolicy(policyUri) != nullptr;
}

bool selectImportEndpoint(const QList<EndpointOffer>& offers, Candidate* candidate)
{
    if (!candidate)
        return false;
    candidate->offeredEndpoints.clear();
    if (offers.isEmpty())
        return false;

    int bestScore = -1;
    int bestIndex = -1;
    for (int i = 0; i < offers.size(); ++i) {
        candidate->offeredEndpoints.append(endpointSummary(offers.at(i)));
        const int score = importScore(offers.at(i));
        if (score >= 0 && score > bestScore) {
            bestScore = score;
            bestIndex = i;
        }
    }
    if (bestIndex < 0)
        return false;

    const EndpointOffer& best = offers.at(bestIndex);
    candidate->advertisedEndpointUrl = best.endpointUrl;
    // Import with the address the scan reached, never a host name the server advertises.
    candidate->endpointUrl = rewriteEndpointHost(best.endpointUrl, candidate->host, candidate->port);
    candidate->securityMode = best.securityMode;
    candidate->securityPolicyUri = best.securityPolicyUri;
    candidate->anonymousOffered = best.anonymous;
    candidate->usernameOffered = best.username;
    candidate->endpointSelected = true;
    return true;
}

void applyApplicationIdentity(Candidate* candidate, const DiscoveredServer& server)
{
    if (!candidate)
        return;
    assignIfNotEmpty(&candidate->applicationName, boundedName(server.applicationName.trimmed()));
    assignIfNotEmpty(&candidate->applicationUri, server.applicationUri);
    assignIfNotEmpty(&candidate->productUri, server.productUri);
    assignIfNotEmpty(&candidate->applicationType, server.applicationType);
    if (server.capabilities.isEmpty() || candidate->capabilities.size() >= kMaxCapabilities)
        return;
    QSet<QString> known(candidate->capabilities.cbegin(), candidate->capabilities.cend());
    for (const QString& capability : server.capabilities) {
        const QString trimmed = capability.trimmed();
        if (trimmed.isEmpty() || trimmed.size() > kMaxCapabilityLength || known.contains(trimmed))
            continue;
        known.insert(trimmed);
        candidate->capabilities.append(trimmed);
        if (candidate->capabilities.size() >= kMaxCapabilities)
            return;
    }
}

QList<Candidate> mergeFindServersDiscoveryUrls(const Candidate& base, const QList<DiscoveredServer>& servers)
{
    return mergeDiscoveryAnswers(base, {servers}, -1, nullptr);
}

QList<Candidate> mergeDiscoveryAnswers(const Candidate& base, const QList<QList<DiscoveredServer>>& answers,
                                       int maxAddedPerAnswer, QList<int>* leftOut)
{
    Candidate primary = base;
    const QString primaryKey = candidateEndpoint(base);
    const QString scannedKey = endpointFor(base.host, base.port);
    QSet<QString> known{primaryKey, scannedKey};

    QList<Candidate> extra;
    if (leftOut)
        leftOut->clear();
    for (const QList<DiscoveredServer>& servers : answers) {
        int added = 0;
        int left = 0;
        for (const DiscoveredServer& server : servers) {
            if (!withinPeerBounds(server))
                continue;
            const OpcTcpUrl parsed = parseOpcTcpUrl(server.discoveryUrl);
            if (!parsed.ok)
                continue;
            // A host name in a discovery URL cannot be trusted to resolve from the gateway.
            const QString host = parsed.isIpv4 ? parsed.host : base.host;
            if (host.isEmpty())
                continue;
            const quint16 port = parsed.port == 0 ? base.port : parsed.port;
            const QString url = rewriteEndpointHost(endpointFor(host, port) + parsed.path, host, port);

            if (url == primaryKey || url == scannedKey) {
                applyApplicationIdentity(&primary, server);
                continue;
            }
            if (known.contains(url))
                continue;
            known.insert(url);
            if (maxAddedPerAnswer >= 0 && added >= maxAddedPerAnswer) {
                ++left;
                continue;
            }
            ++added;

            extra.append(foundCandidate(base, host, port, url, server));
        }
        if (leftOut)
            leftOut->append(left);
    }

    extra.prepend(primary);
    return extra;
}

QList<Candidate> mergeFindServersDiscoveryUrls(const Candidate& base, const QStringList& discoveryUrls)
{
    QList<DiscoveredServer> servers;
    servers.reserve(discoveryUrls.size());
    for (const QString& url : discoveryUrls) {
        DiscoveredServer server;
        server.discoveryUrl = url;
        servers.append(server);
    }
    return mergeFindServersDiscoveryUrls(base, servers);
}

} // namespace OpcUaDiscovery
