#include "app/silent_log.h"

void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args)
{
    (void)context;
    (void)level;
    (void)category;
    (void)message;
    (void)args;
}
