#pragma once

#include "client_core/opc_ua_client_core.h"

namespace client_core_test {

// A core whose connection attempt failed; file and wipe helpers do not need a server.
const ClientCore& idleCore();

} // namespace client_core_test
