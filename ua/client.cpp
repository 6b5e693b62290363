#include "ua/client.h"

#include "common/security_settings.h"

#include <open62541/client_config_default.h>
#include <open62541/plugin/pki_default.h>

#include <cstring>

namespace Ua {

namespace {

// Chunks of the smallest size a peer may choose.
constexpr UA_UInt32 smallestChunk = 8192;
constexpr UA_UInt32 mebibyte = 1024 * 1024;

constexpr UA_UInt32 discoveryRequestTimeoutMs = 2500;
constexpr const char* noServerApplicationUri = "urn:discover:discovery-query:matches-no-server";

} // namespace

const ConnectionLimits itemClientLimits = {32 * mebibyte, 32 * mebibyte / smallestChunk};
const ConnectionLimits discoveryClientLimits = {8 * mebibyte, 8 * mebibyte / smallestChunk};

void applyConnectionLimits(UA_ClientConfig* config, const ConnectionLimits& limits)
{
    config->localConnectionConfig.localMaxMessageSize = limits.maxMessageSize;
    config->localConnectionConfig.localMaxChunkCount = limits.maxChunkCount;
}

UA_StatusCode setDefaultConfig(UA_ClientConfig* config)
{
    return UA_ClientConfig_setDefault(config);
}

UA_StatusCode setDefaultEncryptionConfig(UA_ClientConfig* config, const UA_ByteString& certificate,
                                         const UA_ByteString& key)
{
    return UA_ClientConfig_setDefaultEncryption(config, certificate, key, nullptr, 0, nullptr, 0);
}

void acceptAllServerCertificates(UA_ClientConfig* config)
{
    UA_CertificateVerification_AcceptAll(&config->certificateVerification);
}

Client newClient(UA_Logger* logger)
{
    UA_ClientConfig config;
    std::memset(&config, 0, sizeof config);
    // Set before the defaults, which hand the logger on to the event loop and the security
    // policies; a logger patched in afterwards would not reach them.
    config.logging = logger;
    if (UA_ClientConfig_setDefault(&config) != UA_STATUSCODE_GOOD) {
        UA_ClientConfig_clear(&config);
        return Client();
    }
    UA_Client* client = UA_Client_newWithConfig(&config);
    if (!client)
        UA_ClientConfig_clear(&config);
    return Client(client);
}

Client newDiscoveryClient()
{
    Client client = newClient(silentLogger());
    if (!client)
        return client;
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    config->timeout = discoveryRequestTimeoutMs;
    applyConnectionLimits(config, discoveryClientLimits);
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

void ChannelClientDeleter::operator()(UA_Client* client) const noexcept
{
    closeSecureChannelPromptly(client);
    UA_Client_delete(client);
}

ChannelClient channelClient(Client&& client)
{
    return ChannelClient(client.release());
}

bool closeSecureChannelPromptly(UA_Client* client)
{
    // The close normally completes in the first round, which does not wait at all; the later
    // rounds wait at most a millisecond each for a close still under way.
    constexpr int closeRounds = 20;
    const auto closed = [client] {
        UA_SecureChannelState state = UA_SECURECHANNELSTATE_CLOSED;
        UA_Client_getState(client, &state, nullptr, nullptr);
        return state == UA_SECURECHANNELSTATE_CLOSED;
    };
    if (!client || closed())
        return true;
    UA_Client_disconnectSecureChannelAsync(client);
    for (int round = 0; round < closeRounds && !closed(); ++round)
        UA_Client_run_iterate(client, round == 0 ? 0 : 1);
    return closed();
}

NoReconnectScope::NoReconnectScope(UA_Client* client)
    : config_(UA_Client_getConfig(client))
    , noReconnect_(config_->noReconnect)
    , noNewSession_(config_->noNewSession)
{
    config_->noReconnect = true;
    config_->noNewSession = true;
}

NoReconnectScope::~NoReconnectScope()
{
    config_->noReconnect = noReconnect_;
    config_->noNewSession = noNewSession_;
}

UA_StatusCode refusedReconnect(UA_Client* client)
{
    if (!UA_Client_getConfig(client)->noReconnect)
        return UA_STATUSCODE_GOOD;
    UA_SecureChannelState channel = UA_SECURECHANNELSTATE_CLOSED;
    UA_SessionState session = UA_SESSIONSTATE_CLOSED;
    UA_Client_getState(client, &channel, &session, nullptr);
    return channel == UA_SECURECHANNELSTATE_OPEN && session == UA_SESSIONSTATE_ACTIVATED
        ? UA_STATUSCODE_GOOD
        : UA_STATUSCODE_BADSERVERNOTCONNECTED;
}

TimeoutScope::TimeoutScope(UA_Client* client, UA_UInt32 timeoutMs)
    : config_(UA_Client_getConfig(client))
    , timeoutMs_(config_->timeout)
{
    config_->timeout = timeoutMs;
}

TimeoutScope::~TimeoutScope()
{
    config_->timeout = timeoutMs_;
}

void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args)
{
    (void)context;
    (void)level;
    (void)category;
    (void)message;
    (void)args;
}

UA_Logger* silentLogger()
{
    static UA_Logger logger = {&silentOpcUaLog, nullptr, nullptr};
    return &logger;
}

} // namespace Ua
