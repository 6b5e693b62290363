#pragma once

// The OPC UA TCP messages that the raw peers of the suites and the plant answer with.

#include <cstdint>
#include <string>

namespace uacp {

inline void putU32(std::string* out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out->push_back(static_cast<char>((value >> shift) & 0xFF));
}

// Acknowledge of a Hello: protocol version 0, 64 KiB buffers, no message or chunk limits.
inline std::string acknowledge()
{
    std::string m = "ACKF";
    putU32(&m, 28);
    putU32(&m, 0);
    putU32(&m, 65535);
    putU32(&m, 65535);
    putU32(&m, 0);
    putU32(&m, 0);
    return m;
}

} // namespace uacp
