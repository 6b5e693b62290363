#pragma once

#include <open62541/plugin/log.h>

#include <cstdarg>

// An open62541 log callback that prints nothing, for clients whose stack messages nobody reads.
void silentOpcUaLog(void* context, UA_LogLevel level, UA_LogCategory category, const char* message, va_list args);
