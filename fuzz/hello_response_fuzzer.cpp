// The first bytes a probed peer sends back.
#include "discovery/transport.h"
#include "fuzz/fuzz_input.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    OpcUaDiscovery::IdentifyResult result;
    const bool accepted = OpcUaDiscovery::parseHelloResponse(fuzz_input::bytes(data, size), &result);
    if (accepted != result.opcUa || (accepted && size < 8) || (accepted && result.messageType.size() != 3))
        std::abort();
    return 0;
}
