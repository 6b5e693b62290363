#include "tests/client_core/idle_core.h"

namespace client_core_test {

const ClientCore& idleCore()
{
    // An empty address fails before any socket is opened.
    static DeviceInstancePlugin plugin;
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = "http://opcfoundation.org/UA/SecurityPolicy#None";
    static ClientCore core(plugin, QString(), "tests", 0);
    return core;
}

} // namespace client_core_test
