#include "devices/server_queries.h"

#include "common/opc_tcp_scheme.h"
#include "discovery/labels.h"
#include "discovery/peer_bounds.h"
#include "discovery/worker_threads.h"

namespace OpcUaDiscovery {

namespace {

// The ApplicationType of a client: only servers are imported.
constexpr int kClientApplicationType = 1;

Ua::DiscoveryQuestions endpointsOnly(const QueryOptions& options)
{
    Ua::DiscoveryQuestions questions;
    questions.getEndpoints = true;
    questions.maxEndpoints = kMaxEndpointsPerAnswer;
    questions.clientPerCall = !options.channelPerServer;
    return questions;
}

// Every discovery URL with the opc.tcp scheme of every server application, with its identity.
// An application without such a URL contributes nothing.
QList<DiscoveredServer> serversFound(const QList<Ua::ApplicationInfo>& applications)
{
    QList<DiscoveredServer> servers;
    for (const Ua::ApplicationInfo& app : applications) {
        if (app.type == kClientApplicationType)
            continue;
        const DiscoveredServer identity = identityFromApplication(app);
        for (const QString& url : app.discoveryUrls) {
            if (!hasOpcTcpScheme(url))
                continue;
            DiscoveredServer server = identity;
            server.discoveryUrl = url;
            servers.append(server);
        }
    }
    return servers;
}

QList<DiscoveredServer> serversOnNetwork(const QList<Ua::ServerOnNetworkInfo>& records)
{
    QList<DiscoveredServer> servers;
    for (const Ua::ServerOnNetworkInfo& record : records) {
        if (!hasOpcTcpScheme(record.discoveryUrl))
            continue;
        DiscoveredServer server;
        server.discoveryUrl = record.discoveryUrl;
        server.applicationName = record.serverName;
        server.capabilities = record.capabilities;
        servers.append(server);
    }
    return servers;
}

EndpointOffer offerOf(const Ua::EndpointInfo& endpoint)
{
    EndpointOffer offer;
    offer.endpointUrl = endpoint.url;
    offer.securityMode = endpoint.securityMode;
    offer.securityPolicyUri = endpoint.securityPolicyUri;
    offer.anonymous = endpoint.anonymousToken;
    offer.username = endpoint.userNameToken;
    offer.securityLevel = endpoint.securityLevel;
    return offer;
}

EndpointsAnswer endpointsAnswer(const Ua::DiscoveryAnswers& answers)
{
    EndpointsAnswer answer;
    answer.asked = answers.endpointsAsked;
    answer.answered = !answers.endpoints.isEmpty();
    for (const Ua::EndpointInfo& endpoint : answers.endpoints) {
        answer.offers.append(offerOf(endpoint));
        answer.describedServers.append(identityFromApplication(endpoint.server));
    }
    return answer;
}

DiscoveryAnswer discoveryAnswer(const Ua::DiscoveryAnswers& asked)
{
    DiscoveryAnswer answer;
    answer.servers = serversFound(asked.applications);
    answer.findServersCount = answer.servers.size();
    answer.servers += serversOnNetwork(asked.serversOnNetwork);
    answer.endpoints = endpointsAnswer(asked);
    answer.unresponsive = asked.unresponsive;
    return answer;
}

// Asks the server at each URL the questions, up to options.concurrency servers at a time;
// `answerOf` makes what one server answered the answer at its URL's place. An empty URL is asked
// nothing and keeps an empty answer.
template <typename Answer, typename AnswerOf>
std::vector<Answer> askSideBySide(const QStringList& urls, const Ua::DiscoveryQuestions& questions,
                                  const QDeadlineTimer& budget, const QueryOptions& options, const AnswerOf& answerOf)
{
    std::vector<Answer> answers(static_cast<size_t>(urls.size()));
    forEachSideBySide(urls.size(), options.concurrency, [&](int index) {
        const QString& url = urls.at(index);
        if (!url.isEmpty())
            answers[static_cast<size_t>(index)] = answerOf(Ua::askDiscoveryServer(url, questions, budget));
    });
    return answers;
}

} // namespace

std::vector<DiscoveryAnswer> askDiscoveryServices(const QList<Candidate>& scanned, const QDeadlineTimer& budget,
                                                  const QueryOptions& options)
{
    Ua::DiscoveryQuestions everything = endpointsOnly(options);
    everything.findServers = true;
    everything.findServersOnNetwork = true;
    QStringList urls;
    for (const Candidate& candidate : scanned)
        urls.append(candidateQueryUrl(candidate));
    return askSideBySide<DiscoveryAnswer>(urls, everything, budget, options, discoveryAnswer);
}

std::vector<EndpointsAnswer> askEndpoints(const QStringList& urls, const QDeadlineTimer& budget,
                                          const QueryOptions& options)
{
    return askSideBySide<EndpointsAnswer>(urls, endpointsOnly(options), budget, options, endpointsAnswer);
}

DiscoveredServer identityFromApplication(const Ua::ApplicationInfo& app)
{
    DiscoveredServer server;
    server.applicationName = app.name;
    server.applicationUri = app.uri;
    server.productUri = app.productUri;
    server.applicationType = applicationTypeLabel(app.type);
    return server;
}

} // namespace OpcUaDiscovery
