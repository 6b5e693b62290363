#include "ua/discovery_services.h"

#include "ua/client.h"
#include "ua/holders.h"
#include "ua/text.h"

#include <open62541/client_highlevel.h>

#include <algorithm>
#include <optional>

namespace Ua {

namespace {

using ApplicationArray = Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION>;
using ServerOnNetworkArray = Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK>;
using EndpointArray = Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION>;

// The calls to one server and the client they go through.
struct ServerChannel
{
    QByteArray url;
    bool clientPerCall = false;
    const QDeadlineTimer& deadline;
    ChannelClient client;
    bool unresponsive = false;
};

bool channelOpen(UA_Client* client)
{
    UA_SecureChannelState state = UA_SECURECHANNELSTATE_CLOSED;
    UA_Client_getState(client, &state, nullptr, nullptr);
    return state == UA_SECURECHANNELSTATE_OPEN;
}

// The client for the server's next call, or null when no call may start: the deadline has passed
// or the server has stopped answering. The stack's discovery calls use a channel that is open to
// their URL and otherwise open and close one of their own.
UA_Client* clientForNextCall(ServerChannel* channel)
{
    if (channel->unresponsive || channel->deadline.hasExpired())
        return nullptr;
    if (channel->clientPerCall) {
        channel->client = channelClient(newDiscoveryClient());
        return channel->client.get();
    }
    if (channel->client && channelOpen(channel->client.get()))
        return channel->client.get();
    // The first call, or the server closed the channel after an earlier answer: a new channel,
    // as a client of its own per call would have opened.
    channel->client = channelClient(newDiscoveryClient());
    if (!channel->client)
        return nullptr;
    if (UA_Client_connectSecureChannel(channel->client.get(), channel->url.constData()) != UA_STATUSCODE_GOOD) {
        channel->unresponsive = true;
        return nullptr;
    }
    return channel->deadline.hasExpired() ? nullptr : channel->client.get();
}

// Sends one call, call(client, url), when a call may start: its status, or nothing when none
// was sent.
template <typename Call>
std::optional<UA_StatusCode> sendCall(ServerChannel* channel, const Call& call)
{
    UA_Client* client = clientForNextCall(channel);
    if (!client)
        return std::nullopt;
    const UA_StatusCode status = call(client, channel->url.constData());
    // A server that let a request time out is asked nothing more over its channel.
    if (status == UA_STATUSCODE_BADTIMEOUT && !channel->clientPerCall)
        channel->unresponsive = true;
    return status;
}

ApplicationInfo applicationInfo(const UA_ApplicationDescription& app)
{
    ApplicationInfo info;
    info.name = toQString(app.applicationName.text);
    info.uri = toQString(app.applicationUri);
    info.productUri = toQString(app.productUri);
    info.type = static_cast<int>(app.applicationType);
    for (size_t i = 0; i < app.discoveryUrlsSize; ++i)
        info.discoveryUrls.append(toQString(app.discoveryUrls[i]));
    return info;
}

QList<ApplicationInfo> findServers(ServerChannel* channel)
{
    ApplicationArray answer;
    const std::optional<UA_StatusCode> status = sendCall(channel, [&answer](UA_Client* client, const char* url) {
        return UA_Client_findServers(client, url, 0, nullptr, 0, nullptr, answer.size(), answer.data());
    });
    QList<ApplicationInfo> applications;
    if (status != UA_STATUSCODE_GOOD)
        return applications;
    for (const UA_ApplicationDescription& app : answer)
        applications.append(applicationInfo(app));
    return applications;
}

QList<ServerOnNetworkInfo> findServersOnNetwork(ServerChannel* channel)
{
    ServerOnNetworkArray records;
    const std::optional<UA_StatusCode> status = sendCall(channel, [&records](UA_Client* client, const char* url) {
        return UA_Client_findServersOnNetwork(client, url, 0, 0, 0, nullptr, records.size(), records.data());
    });
    QList<ServerOnNetworkInfo> servers;
    if (status != UA_STATUSCODE_GOOD)
        return servers;
    for (const UA_ServerOnNetwork& record : records) {
        ServerOnNetworkInfo server;
        server.discoveryUrl = toQString(record.discoveryUrl);
        server.serverName = toQString(record.serverName);
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            server.capabilities.append(toQString(record.serverCapabilities[i]));
        servers.append(server);
    }
    return servers;
}

EndpointInfo endpointInfo(const UA_EndpointDescription& endpoint)
{
    EndpointInfo info;
    info.url = toQString(endpoint.endpointUrl);
    info.securityMode = static_cast<int>(endpoint.securityMode);
    info.securityPolicyUri = toQString(endpoint.securityPolicyUri);
    for (size_t i = 0; i < endpoint.userIdentityTokensSize; ++i) {
        const UA_UserTokenType type = endpoint.userIdentityTokens[i].tokenType;
        if (type == UA_USERTOKENTYPE_ANONYMOUS)
            info.anonymousToken = true;
        else if (type == UA_USERTOKENTYPE_USERNAME)
            info.userNameToken = true;
    }
    info.securityLevel = static_cast<int>(endpoint.securityLevel);
    info.server = applicationInfo(endpoint.server);
    return info;
}

// False when no request was sent.
bool getEndpoints(ServerChannel* channel, int maxEndpoints, QList<EndpointInfo>* endpoints)
{
    EndpointArray answer;
    const std::optional<UA_StatusCode> status = sendCall(channel, [&answer](UA_Client* client, const char* url) {
        return UA_Client_getEndpoints(client, url, answer.size(), answer.data());
    });
    if (!status)
        return false;
    if (*status != UA_STATUSCODE_GOOD)
        return true;
    const size_t taken = std::min(answer.count(), static_cast<size_t>(std::max(maxEndpoints, 0)));
    for (size_t i = 0; i < taken; ++i)
        endpoints->append(endpointInfo(answer[i]));
    return true;
}

} // namespace

DiscoveryAnswers askDiscoveryServer(const QString& url, const DiscoveryQuestions& questions,
                                    const QDeadlineTimer& deadline)
{
    DiscoveryAnswers answers;
    ServerChannel channel{url.toUtf8(), questions.clientPerCall, deadline, {}, false};
    if (questions.findServers)
        answers.applications = findServers(&channel);
    if (questions.findServersOnNetwork)
        answers.serversOnNetwork = findServersOnNetwork(&channel);
    if (questions.getEndpoints)
        answers.endpointsAsked = getEndpoints(&channel, questions.maxEndpoints, &answers.endpoints);
    answers.unresponsive = channel.unresponsive;
    return answers;
}

} // namespace Ua
