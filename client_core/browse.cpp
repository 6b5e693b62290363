#include "client_core/opc_ua_client_core.h"
