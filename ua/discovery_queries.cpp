#include "ua/discovery_queries.h"

#include "discovery/endpoint_selection.h"
#include "discovery/labels.h"
#include "ua/holders.h"
#include "ua/security_policy.h"
#include "ua/text.h"

#include <open62541/client_config_default.h>

namespace OpcUaDiscovery {

namespace {

using ApplicationArray = Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION>;
using ServerOnNetworkArray = Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK>;
using EndpointArray = Ua::Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION>;

constexpr UA_UInt32 discoveryRequestTimeoutMs = 2500;
constexpr const char* noServerApplicationUri = "urn:discover:discovery-query:matches-no-server";

// One discovery service call on a client of its own, deleted right after it; true when the
// service answered Good.
template <typename Call>
bool callOnce(const Call& call)
{
    const Ua::Client client = newDiscoveryClient();
    return client && call(client.get()) == UA_STATUSCODE_GOOD;
}

bool isOpcTcpUrl(const QString& url)
{
    return !url.isEmpty() && url.startsWith(QLatin1String("opc.tcp://"), Qt::CaseInsensitive);
}

QList<DiscoveredServer> findServers(const QByteArray& url)
{
    QList<DiscoveredServer> servers;
    ApplicationArray applications;
    // Only the service result counts: an application without usable discovery URLs
    // simply contributes nothing.
    if (!callOnce([&](UA_Client* client) {
            return UA_Client_findServers(client, url.constData(), 0, nullptr, 0, nullptr, applications.size(),
                                         applications.data());
        }))
        return servers;
    for (const UA_ApplicationDescription& app : applications) {
        if (app.applicationType == UA_APPLICATIONTYPE_CLIENT)
            continue;
        const DiscoveredServer identity = identityFromApplication(app);
        for (size_t i = 0; i < app.discoveryUrlsSize; ++i) {
            DiscoveredServer server = identity;
            server.discoveryUrl = Ua::toQString(app.discoveryUrls[i]);
            if (isOpcTcpUrl(server.discoveryUrl))
                servers.append(server);
        }
    }
    return servers;
}

QList<DiscoveredServer> findServersOnNetwork(const QByteArray& url)
{
    QList<DiscoveredServer> servers;
    ServerOnNetworkArray records;
    if (!callOnce([&](UA_Client* client) {
            return UA_Client_findServersOnNetwork(client, url.constData(), 0, 0, 0, nullptr, records.size(),
                                                  records.data());
        }))
        return servers;
    for (const UA_ServerOnNetwork& record : records) {
        DiscoveredServer server;
        server.discoveryUrl = Ua::toQString(record.discoveryUrl);
        server.applicationName = Ua::toQString(record.serverName);
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            server.capabilities.append(Ua::toQString(record.serverCapabilities[i]));
        if (isOpcTcpUrl(server.discoveryUrl))
            servers.append(server);
    }
    return servers;
}

EndpointOffer offerFromEndpoint(const UA_EndpointDescription& endpoint)
{
    EndpointOffer offer;
    offer.endpointUrl = Ua::toQString(endpoint.endpointUrl);
    offer.securityMode = static_cast<qint32>(endpoint.securityMode);
    offer.securityPolicyUri = Ua::toQString(endpoint.securityPolicyUri);
    for (size_t i = 0; i < endpoint.userIdentityTokensSize; ++i) {
        const UA_UserTokenType type = endpoint.userIdentityTokens[i].tokenType;
        if (type == UA_USERTOKENTYPE_ANONYMOUS)
            offer.anonymous = true;
        else if (type == UA_USERTOKENTYPE_USERNAME)
            offer.username = true;
    }
    offer.securityLevel = static_cast<qint32>(endpoint.securityLevel);
    return offer;
}

bool hasIdentity(const DiscoveredServer& server)
{
    return !server.applicationName.isEmpty() || !server.applicationUri.isEmpty();
}

} // namespace

Ua::Client newDiscoveryClient()
{
    Ua::Client client = Ua::newClient(Ua::silentLogger());
    if (!client)
        return client;
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    config->timeout = discoveryRequestTimeoutMs;
    // When open62541 1.4 opens a channel it runs a FindServers and a GetEndpoints handshake of
    // its own: it reopens the channel presenting another URL taken from the FindServers answer,
    // and it gives up on a server none of whose endpoints uses a policy it has (only None here).
    // A pinned None endpoint and an application URI filter that no server matches leave one
    // channel per call, opened with the URL that was asked for.
    config->endpoint.securityMode = UA_MESSAGESECURITYMODE_NONE;
    config->endpoint.securityPolicyUri = UA_STRING_ALLOC(Ua::securityPolicyNoneUri);
    config->applicationUri = UA_STRING_ALLOC(noServerApplicationUri);
    return client;
}

DiscoveredServer identityFromApplication(const UA_ApplicationDescription& app)
{
    DiscoveredServer server;
    server.applicationName = Ua::toQString(app.applicationName.text);
    server.applicationUri = Ua::toQString(app.applicationUri);
    server.productUri = Ua::toQString(app.productUri);
    server.applicationType = applicationTypeLabel(static_cast<int>(app.applicationType));
    return server;
}

QList<DiscoveredServer> queryDiscoveredServers(const Candidate& candidate)
{
    const QString queryUrl = candidateQueryUrl(candidate);
    if (queryUrl.isEmpty())
        return {};
    const QByteArray url = queryUrl.toUtf8();
    QList<DiscoveredServer> servers = findServers(url);
    servers += findServersOnNetwork(url);
    return servers;
}

void applyGetEndpoints(Candidate* candidate)
{
    if (!candidate)
        return;
    const QByteArray url = candidateQueryUrl(*candidate).toUtf8();
    EndpointArray endpoints;
    if (!callOnce([&](UA_Client* client) {
            return UA_Client_getEndpoints(client, url.constData(), endpoints.size(), endpoints.data());
        })
        || endpoints.empty())
        return;

    QList<EndpointOffer> offers;
    for (const UA_EndpointDescription& endpoint : endpoints)
        offers.append(offerFromEndpoint(endpoint));
    selectImportEndpoint(offers, candidate);

    DiscoveredServer identity;
    for (int i = 0; i < offers.size(); ++i) {
        const DiscoveredServer described = identityFromApplication(endpoints[static_cast<size_t>(i)].server);
        if (!hasIdentity(identity))
            identity = described;
        const QString& offeredUrl = offers.at(i).endpointUrl;
        if ((!candidate->advertisedEndpointUrl.isEmpty() && candidate->advertisedEndpointUrl == offeredUrl)
            || candidate->endpointUrl == offeredUrl)
            identity = described;
    }
    if (hasIdentity(identity))
        applyApplicationIdentity(candidate, identity);
}

} // namespace OpcUaDiscovery
