#pragma once

#include <QByteArray>
#include <QList>

#include <cstddef>
#include <cstdint>

namespace fuzz_input {

// The fuzzer's bytes without a copy.
inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(size));
}

// Splits the input at zero bytes, so that one input can carry several strings.
inline QList<QByteArray> fields(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)).split('\0');
}

} // namespace fuzz_input
