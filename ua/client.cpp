#include "ua/client.h"

#include <open62541/client_config_default.h>

#include <cstring>

namespace Ua {

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
