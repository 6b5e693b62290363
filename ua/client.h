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

// A client whose default configuration was built around `logger`: the event loop and the
// security policies keep that pointer, so the logger must outlive the client. Its clear function
// should be unset: the stack then never frees a logger it does not own. Null when the stack
// cannot build the configuration.
Client newClient(UA_Logger* logger);

// A log callback that writes nothing.
void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args);

// The logger of clients whose messages nobody wants; shared, never cleared.
UA_Logger* silentLogger();

} // namespace Ua
