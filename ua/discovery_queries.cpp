#include "ua/discovery_queries.h"

#include "common/opc_tcp_scheme.h"
#include "common/security_settings.h"
#include "discovery/endpoint_selection.h"
#include "discovery/labels.h"
#include "discovery/peer_bounds.h"
#include "discovery/worker_threads.h"
#include "ua/holders.h"
#include "ua/text.h"

#include <open62541/client_config_default.h>

#include <algorithm>

namespace OpcUaDiscovery {

namespace {

using ApplicationArray = Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION>;
using ServerOnNetworkArray = Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK>;
using EndpointArray = Ua::Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION>;

constexpr UA_UInt32 discoveryRequestTimeoutMs = 2500;
constexpr const char* noServerApplicationUri = "urn:discover:discovery-query:matches-no-server";

// The calls to one server and the client they go through.
struct ServerChannel
{
    QByteArray url;
    bool channelPerCall = false;
    Ua::ChannelClient client;
    bool unresponsive = false;
};

bool channelOpen(UA_Client* client)
{
    UA_SecureChannelState state = UA_SECURECHANNELSTATE_CLOSED;
    UA_Client_getState(client, &state, nullptr, nullptr);
    return state == UA_SECURECHANNELSTATE_OPEN;
}

// The client for the server's next call, or null when no call may start: the budget is spent
// or the server has stopped answering. The stack's discovery calls use a channel that is open to
// their URL and otherwise open and close one of their own.
UA_Client* clientForNextCall(ServerChannel* channel, const QueryBudget& budget)
{
    if (channel->unresponsive || budget.spent())
        return nullptr;
    if (channel->channelPerCall) {
        channel->client = Ua::channelClient(newDiscoveryClient());
        return channel->client.get();
    }
    if (channel->client && channelOpen(channel->client.get()))
        return channel->client.get();
    // The first call, or the server closed the channel after an earlier answer: a new channel,
    // as a client of its own per call would have opened.
    channel->client = Ua::channelClient(newDiscoveryClient());
    if (!channel->client)
        return nullptr;
    if (UA_Client_connectSecureChannel(channel->client.get(), channel->url.constData()) != UA_STATUSCODE_GOOD) {
        channel->unresponsive = true;
        return nullptr;
    }
    return budget.spent() ? nullptr : channel->client.get();
}

// A server that let a request time out is asked nothing more over its channel: every further
// call would cost the budget another time-out.
void noteStatus(ServerChannel* channel, UA_StatusCode status)
{
    if (status == UA_STATUSCODE_BADTIMEOUT && !channel->channelPerCall)
        channel->unresponsive = true;
}

QList<DiscoveredServer> findServers(ServerChannel* channel, const QueryBudget& budget)
{
    QList<DiscoveredServer> servers;
    UA_Client* client = clientForNextCall(channel, budget);
    if (!client)
        return servers;
    ApplicationArray applications;
    // Only the service result counts: an application without usable discovery URLs
    // simply contributes nothing.
    const UA_StatusCode status = UA_Client_findServers(client, channel->url.constData(), 0, nullptr, 0, nullptr,
                                                       applications.size(), applications.data());
    noteStatus(channel, status);
    if (status != UA_STATUSCODE_GOOD)
        return servers;
    for (const UA_ApplicationDescription& app : applications) {
        if (app.applicationType == UA_APPLICATIONTYPE_CLIENT)
            continue;
        const DiscoveredServer identity = identityFromApplication(app);
        for (size_t i = 0; i < app.discoveryUrlsSize; ++i) {
            DiscoveredServer server = identity;
            server.discoveryUrl = Ua::toQString(app.discoveryUrls[i]);
            if (hasOpcTcpScheme(server.discoveryUrl))
                servers.append(server);
        }
    }
    return servers;
}

QList<DiscoveredServer> findServersOnNetwork(ServerChannel* channel, const QueryBudget& budget)
{
    QList<DiscoveredServer> servers;
    UA_Client* client = clientForNextCall(channel, budget);
    if (!client)
        return servers;
    ServerOnNetworkArray records;
    const UA_StatusCode status = UA_Client_findServersOnNetwork(client, channel->url.constData(), 0, 0, 0, nullptr,
                                                                records.size(), records.data());
    noteStatus(channel, status);
    if (status != UA_STATUSCODE_GOOD)
        return servers;
    for (const UA_ServerOnNetwork& record : records) {
        DiscoveredServer server;
        server.discoveryUrl = Ua::toQString(record.discoveryUrl);
        server.applicationName = Ua::toQString(record.serverName);
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            server.capabilities.append(Ua::toQString(record.serverCapabilities[i]));
        if (hasOpcTcpScheme(server.discoveryUrl))
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

EndpointsAnswer getEndpoints(ServerChannel* channel, const QueryBudget& budget)
{
    EndpointsAnswer answer;
    UA_Client* client = clientForNextCall(channel, budget);
    if (!client)
        return answer;
    EndpointArray endpoints;
    answer.asked = true;
    const UA_StatusCode status =
        UA_Client_getEndpoints(client, channel->url.constData(), endpoints.size(), endpoints.data());
    noteStatus(channel, status);
    if (status != UA_STATUSCODE_GOOD || endpoints.empty())
        return answer;
    answer.answered = true;
    const size_t taken = std::min(endpoints.count(), size_t(kMaxEndpointsPerAnswer));
    for (size_t i = 0; i < taken; ++i) {
        answer.offers.append(offerFromEndpoint(endpoints[i]));
        answer.describedServers.append(identityFromApplication(endpoints[i].server));
    }
    return answer;
}

bool hasIdentity(const DiscoveredServer& server)
{
    return !server.applicationName.isEmpty() || !server.applicationUri.isEmpty();
}

} // namespace

QueryBudget::QueryBudget(qint64 milliseconds)
    : milliseconds(milliseconds)
{
    timer.start();
}

bool QueryBudget::spent() const
{
    return timer.elapsed() >= milliseconds;
}

std::vector<DiscoveryAnswer> askDiscoveryServices(const QList<Candidate>& scanned, const QueryBudget& budget,
                                                  const QueryOptions& options)
{
    std::vector<DiscoveryAnswer> answers(static_cast<size_t>(scanned.size()));
    forEachSideBySide(scanned.size(), options.concurrency, [&](int index) {
        const QString url = candidateQueryUrl(scanned.at(index));
        if (url.isEmpty())
            return;
        ServerChannel channel{url.toUtf8(), !options.channelPerServer, {}, false};
        DiscoveryAnswer& answer = answers[static_cast<size_t>(index)];
        answer.servers = findServers(&channel, budget);
        answer.findServersCount = answer.servers.size();
        answer.servers += findServersOnNetwork(&channel, budget);
        answer.endpoints = getEndpoints(&channel, budget);
        answer.unresponsive = channel.unresponsive;
    });
    return answers;
}

std::vector<EndpointsAnswer> askEndpoints(const QStringList& urls, const QueryBudget& budget,
                                          const QueryOptions& options)
{
    std::vector<EndpointsAnswer> answers(static_cast<size_t>(urls.size()));
    forEachSideBySide(urls.size(), options.concurrency, [&](int index) {
        ServerChannel channel{urls.at(index).toUtf8(), !options.channelPerServer, {}, false};
        answers[static_cast<size_t>(index)] = getEndpoints(&channel, budget);
    });
    return answers;
}

void applyEndpointsAnswer(Candidate* candidate, const EndpointsAnswer& answer)
{
    if (!candidate || !answer.answered)
        return;
    // An endpoint holding an overlong URL or URI is left out, as if the server had not offered it.
    QList<EndpointOffer> offers;
    QList<DiscoveredServer> describedServers;
    for (int i = 0; i < answer.offers.size(); ++i) {
        if (withinPeerBounds(answer.offers.at(i)) && withinPeerBounds(answer.describedServers.at(i))) {
            offers.append(answer.offers.at(i));
            describedServers.append(answer.describedServers.at(i));
        }
    }
    if (offers.isEmpty())
        return;
    selectImportEndpoint(offers, candidate);

    DiscoveredServer identity;
    for (int i = 0; i < offers.size(); ++i) {
        const DiscoveredServer& described = describedServers.at(i);
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

Ua::Client newDiscoveryClient()
{
    Ua::Client client = Ua::newClient(Ua::silentLogger());
    if (!client)
        return client;
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    config->timeout = discoveryRequestTimeoutMs;
    Ua::applyConnectionLimits(config, Ua::discoveryClientLimits);
    // When open62541 1.4 opens a channel it runs a FindServers and a GetEndpoints handshake of
    // its own: it reopens the channel presenting another URL taken from the FindServers answer,
    // and it gives up on a server none of whose endpoints uses a policy it has (only None here).
    // A pinned None endpoint and an application URI filter that no server matches leave one
    // channel, opened with the URL that was asked for.
    config->endpoint.securityMode = UA_MESSAGESECURITYMODE_NONE;
    config->endpoint.securityPolicyUri = UA_STRING_ALLOC(kSecurityPolicyNoneUri);
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

void applyGetEndpoints(Candidate* candidate)
{
    if (!candidate)
        return;
    // A budget of its own that lasts for the one call.
    const QueryBudget budget(discoveryRequestTimeoutMs);
    ServerChannel channel{candidateQueryUrl(*candidate).toUtf8(), false, {}, false};
    applyEndpointsAnswer(candidate, getEndpoints(&channel, budget));
}

} // namespace OpcUaDiscovery
