#pragma once

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <cstdarg>
#include <memory>

namespace Ua {

struct ClientDeleter
{
    void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
};

// The single owner of one stack client; deleting it disconnects and frees everything the
// client's configuration holds.
using Client = std::unique_ptr<UA_Client, ClientDeleter>;

// Closes the client's secure channel and then deletes it, without the idle wait of the stack's
// own disconnect (see closeSecureChannelPromptly). For clients that never open a session.
struct ChannelClientDeleter
{
    void operator()(UA_Client* client) const noexcept;
};

// The single owner of one stack client that only ever opens a secure channel.
using ChannelClient = std::unique_ptr<UA_Client, ChannelClientDeleter>;

// Takes over a client for the channel-only owner.
ChannelClient channelClient(Client&& client);

// Closes the secure channel, if one is open, by driving the client's event loop until it is
// closed: open62541 1.4's synchronous disconnect polls once more for a full 100 ms after the
// channel has already closed. True when the channel is closed on return.
bool closeSecureChannelPromptly(UA_Client* client);

// A client whose default configuration was built around `logger`: the event loop and the
// security policies keep that pointer, so the logger must outlive the client. Its clear function
// should be unset: the stack then never frees a logger it does not own. Null when the stack
// cannot build the configuration.
Client newClient(UA_Logger* logger);

// Sets the stack's default configuration again (the logger set when the client was made stays).
UA_StatusCode setDefaultConfig(UA_ClientConfig* config);

// Sets the stack's default configuration with encryption, from a client certificate and private
// key (DER); the configuration keeps copies of them.
UA_StatusCode setDefaultEncryptionConfig(UA_ClientConfig* config, const UA_ByteString& certificate,
                                         const UA_ByteString& key);

// The client accepts every server certificate: it connects to servers it does not know yet.
void acceptAllServerCertificates(UA_ClientConfig* config);

// What one peer can make a client hold: the largest message it accepts and the number of chunks
// that message may come in, announced in the Hello. A peer that sends more loses the connection
// instead of filling the memory (the stack's defaults allow 512 MiB in 16 384 chunks).
struct ConnectionLimits
{
    UA_UInt32 maxMessageSize;
    UA_UInt32 maxChunkCount;
};

// The client of discover_items: room for the largest answer of the batched walk (a Browse of a
// thousand nodes, a Read of three thousand attributes) many times over. An answer a server
// cannot fit is refused as too large, and the batched walk asks again in smaller requests.
extern const ConnectionLimits itemClientLimits;

// The short-lived discovery clients: a FindServers answer of many thousand servers fits.
extern const ConnectionLimits discoveryClientLimits;

// Sets the limits on a configuration; call it after the stack's defaults, which reset them.
void applyConnectionLimits(UA_ClientConfig* config, const ConnectionLimits& limits);

// A client for the discovery services (FindServers, FindServersOnNetwork, GetEndpoints): the
// default configuration, a 2500 ms request time-out, the discovery clients' limits and a logger
// that prints nothing. Null when the stack cannot build the configuration.
Client newDiscoveryClient();

// While it lives, the client does not reopen a lost secure channel or session behind its user's
// back. The stack's own reconnection is switched off, and because open62541 reopens both before a
// synchronous request whatever its configuration says, the typed service calls of ua/services.h
// answer BadServerNotConnected without sending anything (see refusedReconnect).
class NoReconnectScope
{
public:
    explicit NoReconnectScope(UA_Client* client);
    ~NoReconnectScope();
    NoReconnectScope(const NoReconnectScope&) = delete;
    NoReconnectScope& operator=(const NoReconnectScope&) = delete;

private:
    UA_ClientConfig* config_;
    UA_Boolean noReconnect_;
    UA_Boolean noNewSession_;
};

// BadServerNotConnected when the client must not reconnect (a NoReconnectScope lives) and has
// lost its secure channel or its session; Good otherwise.
UA_StatusCode refusedReconnect(UA_Client* client);

// While it lives, the client's synchronous requests wait up to `timeoutMs` for their answer.
class TimeoutScope
{
public:
    TimeoutScope(UA_Client* client, UA_UInt32 timeoutMs);
    ~TimeoutScope();
    TimeoutScope(const TimeoutScope&) = delete;
    TimeoutScope& operator=(const TimeoutScope&) = delete;

private:
    UA_ClientConfig* config_;
    UA_UInt32 timeoutMs_;
};

// A log callback that writes nothing.
void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args);

// The logger of clients whose messages nobody wants; shared, never cleared.
UA_Logger* silentLogger();

} // namespace Ua
