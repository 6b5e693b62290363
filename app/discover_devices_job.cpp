#include "app/discover_devices_job.h"

#include "app/front_end.h"
#include "app/result_envelope.h"
#include "app/result_writer.h"
#include "app/silent_log.h"
#include "client_core/ua_holders.h"
#include "client_core/ua_text.h"
#include "discovery/device_record.h"
#include "discovery/endpoint_selection.h"
#include "discovery/labels.h"
#include "discovery/options.h"
#include "discovery/scan_engine.h"
#include "discovery/transport.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QList>
#include <QSet>
#include <QStringList>

#include <open62541/client_config_default.h>

#include <cstring>

using OpcUaDiscovery::Candidate;
using OpcUaDiscovery::DiscoveredServer;
using OpcUaDiscovery::EndpointOffer;

namespace {

using ApplicationArray = UaArray<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION>;
using ServerOnNetworkArray = UaArray<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK>;
using EndpointArray = UaArray<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION>;

constexpr UA_UInt32 discoveryRequestTimeoutMs = 2500;
constexpr const char* noneSecurityPolicyUri = "http://opcfoundation.org/UA/SecurityPolicy#None";
constexpr const char* noServerApplicationUri = "urn:discover:discovery-query:matches-no-server";

// Shared by every discovery client and never cleared, so deleting a client frees no logger.
UA_Logger silentLogger = {&silentOpcUaLog, nullptr, nullptr};

bool isOpcTcpUrl(const QString& url)
{
    return !url.isEmpty() && url.startsWith(QLatin1String("opc.tcp://"), Qt::CaseInsensitive);
}

QString queryUrlOf(const Candidate& candidate)
{
    const QString url = candidate.endpointUrl.trimmed();
    return url.isEmpty() ? OpcUaDiscovery::endpointFor(candidate.host, candidate.port) : url;
}

QList<DiscoveredServer> findServers(const QByteArray& url)
{
    QList<DiscoveredServer> servers;
    UaClientPtr client(newDiscoveryClient());
    if (!client)
        return servers;
    ApplicationArray applications;
    // Only the service result counts: an application without usable discovery URLs
    // simply contributes nothing.
    const UA_StatusCode status = UA_Client_findServers(client.get(), url.constData(), 0, nullptr, 0, nullptr,
                                                       applications.size(), applications.data());
    if (status != UA_STATUSCODE_GOOD)
        return servers;
    for (const UA_ApplicationDescription& app : applications) {
        if (app.applicationType == UA_APPLICATIONTYPE_CLIENT)
            continue;
        const DiscoveredServer identity = identityFromApplication(app);
        for (size_t i = 0; i < app.discoveryUrlsSize; ++i) {
            DiscoveredServer server = identity;
            server.discoveryUrl = fromUaString(app.discoveryUrls[i]);
            if (isOpcTcpUrl(server.discoveryUrl))
                servers.append(server);
        }
    }
    return servers;
}

QList<DiscoveredServer> findServersOnNetwork(const QByteArray& url)
{
    QList<DiscoveredServer> servers;
    UaClientPtr client(newDiscoveryClient());
    if (!client)
        return servers;
    ServerOnNetworkArray records;
    const UA_StatusCode status =
        UA_Client_findServersOnNetwork(client.get(), url.constData(), 0, 0, 0, nullptr, records.size(), records.data());
    if (status != UA_STATUSCODE_GOOD)
        return servers;
    for (const UA_ServerOnNetwork& record : records) {
        DiscoveredServer server;
        server.discoveryUrl = fromUaString(record.discoveryUrl);
        server.applicationName = fromUaString(record.serverName);
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            server.capabilities.append(fromUaString(record.serverCapabilities[i]));
        if (isOpcTcpUrl(server.discoveryUrl))
            servers.append(server);
    }
    return servers;
}

EndpointOffer offerFromEndpoint(const UA_EndpointDescription& endpoint)
{
    EndpointOffer offer;
    offer.endpointUrl = fromUaString(endpoint.endpointUrl);
    offer.securityMode = static_cast<qint32>(endpoint.securityMode);
    offer.securityPolicyUri = fromUaString(endpoint.securityPolicyUri);
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

UA_Client* newDiscoveryClient()
{
    UA_Client* client = UA_Client_new();
    if (!client)
        return nullptr;
    UA_ClientConfig* config = UA_Client_getConfig(client);
    // The event loop and the security policies keep the logger they were built with,
    // so the configuration is rebuilt around the silent logger rather than patched.
    UA_ClientConfig_clear(config);
    std::memset(config, 0, sizeof *config);
    config->logging = &silentLogger;
    if (UA_ClientConfig_setDefault(config) != UA_STATUSCODE_GOOD) {
        UA_Client_delete(client);
        return nullptr;
    }
    config->timeout = discoveryRequestTimeoutMs;
    // When open62541 1.4 opens a channel it runs a FindServers and a GetEndpoints handshake of
    // its own: it reopens the channel presenting another URL taken from the FindServers answer,
    // and it gives up on a server none of whose endpoints uses a policy it has (only None here).
    // A pinned None endpoint and an application URI filter that no server matches leave one
    // channel per call, opened with the URL that was asked for.
    config->endpoint.securityMode = UA_MESSAGESECURITYMODE_NONE;
    config->endpoint.securityPolicyUri = UA_STRING_ALLOC(noneSecurityPolicyUri);
    config->applicationUri = UA_STRING_ALLOC(noServerApplicationUri);
    return client;
}

DiscoveredServer identityFromApplication(const UA_ApplicationDescription& app)
{
    DiscoveredServer server;
    server.applicationName = fromUaString(app.applicationName.text);
    server.applicationUri = fromUaString(app.applicationUri);
    server.productUri = fromUaString(app.productUri);
    server.applicationType = OpcUaDiscovery::applicationTypeLabel(static_cast<int>(app.applicationType));
    return server;
}

void applyGetEndpoints(Candidate* candidate)
{
    if (!candidate)
        return;
    const QByteArray url = queryUrlOf(*candidate).toUtf8();
    UaClientPtr client(newDiscoveryClient());
    if (!client)
        return;
    EndpointArray endpoints;
    const UA_StatusCode status = UA_Client_getEndpoints(client.get(), url.constData(), endpoints.size(), endpoints.data());
    if (status != UA_STATUSCODE_GOOD || endpoints.empty())
        return;

    QList<EndpointOffer> offers;
    for (const UA_EndpointDescription& endpoint : endpoints)
        offers.append(offerFromEndpoint(endpoint));
    OpcUaDiscovery::selectImportEndpoint(offers, candidate);

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
        OpcUaDiscovery::applyApplicationIdentity(candidate, identity);
}

int runDiscoverDevices(const QJsonObject& request, const QString& outputPath)
{
    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);

    OpcUaDiscovery::QtTransport transport;
    const QList<Candidate> scanned = OpcUaDiscovery::discoverDevices(options, transport, &warnings, nullptr);

    QElapsedTimer budget;
    budget.start();
    const auto budgetLeft = [&budget, &options] { return budget.elapsed() < options.timeoutMs; };

    QSet<QString> seenDiscoveryUrls;
    QList<Candidate> candidates;
    for (const Candidate& candidate : scanned) {
        QList<DiscoveredServer> servers;
        if (budgetLeft()) {
            const QString queryUrl = queryUrlOf(candidate);
            if (!queryUrl.isEmpty()) {
                const QByteArray url = queryUrl.toUtf8();
                servers = findServers(url);
                servers += findServersOnNetwork(url);
            }
        }
        for (const Candidate& merged : OpcUaDiscovery::mergeFindServersDiscoveryUrls(candidate, servers)) {
            if (seenDiscoveryUrls.contains(merged.endpointUrl))
                continue;
            seenDiscoveryUrls.insert(merged.endpointUrl);
            candidates.append(merged);
        }
    }

    QJsonArray devices;
    for (Candidate& candidate : candidates) {
        if (budgetLeft())
            applyGetEndpoints(&candidate);
        devices.append(OpcUaDiscovery::candidateToJson(candidate));
    }

    QString error;
    if (!writeResult(buildDevicesResult(request, devices, warnings), outputPath, &error))
        return failWith(ExitWriteFailed, error);
    return ExitOk;
}
