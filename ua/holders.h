#pragma once

#include <open62541/types.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace Ua {

// The single owner of one value that the OPC UA stack allocates: it clears what it holds exactly
// once, on every path out of a scope. Ownership comes in only from an rvalue, whose members it
// takes and which it leaves initialised, so the stack never clears them a second time.
template <typename T, int TypeIndex>
class Value
{
public:
    Value() noexcept { UA_init(&value_, type()); }

    explicit Value(T&& value) noexcept
        : value_(value)
    {
        UA_init(&value, type());
    }

    ~Value() { UA_clear(&value_, type()); }

    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    Value(Value&& other) noexcept
        : Value(std::move(other.value_))
    {
    }

    Value& operator=(Value&& other) noexcept
    {
        if (this != &other) {
            UA_clear(&value_, type());
            value_ = other.value_;
            UA_init(&other.value_, type());
        }
        return *this;
    }

    T* get() { return &value_; }
    const T* get() const { return &value_; }
    T* operator->() { return &value_; }
    const T* operator->() const { return &value_; }
    T& operator*() { return value_; }
    const T& operator*() const { return value_; }

    // Clears what it holds, leaving it as a new holder is.
    void reset() { UA_clear(&value_, type()); }

    // Hands the members over to the caller, who becomes their owner.
    T release()
    {
        T out = value_;
        UA_init(&value_, type());
        return out;
    }

    static const UA_DataType* type() { return &UA_TYPES[TypeIndex]; }

private:
    T value_;
};

// The single owner of an array that the stack allocates with its length.
template <typename T, int TypeIndex>
class Array
{
public:
    Array() = default;
    ~Array() { reset(); }

    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;

    Array(Array&& other) noexcept
        : data_(other.data_)
        , size_(other.size_)
    {
        other.data_ = nullptr;
        other.size_ = 0;
    }

    Array& operator=(Array&& other) noexcept
    {
        if (this != &other) {
            reset();
            data_ = other.data_;
            size_ = other.size_;
            other.data_ = nullptr;
            other.size_ = 0;
        }
        return *this;
    }

    // Out-parameters for stack calls that return an array and its length.
    T** data() { return &data_; }
    size_t* size() { return &size_; }

    size_t count() const { return data_ ? size_ : 0; }
    bool empty() const { return count() == 0; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + count(); }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count(); }

    void reset()
    {
        if (data_ || size_)
            UA_Array_delete(data_, size_, &UA_TYPES[TypeIndex]);
        data_ = nullptr;
        size_ = 0;
    }

private:
    T* data_ = nullptr;
    size_t size_ = 0;
};

using VariantHolder = Value<UA_Variant, UA_TYPES_VARIANT>;
using NodeIdHolder = Value<UA_NodeId, UA_TYPES_NODEID>;
using DataValueHolder = Value<UA_DataValue, UA_TYPES_DATAVALUE>;
using StringHolder = Value<UA_String, UA_TYPES_STRING>;
using ByteStringHolder = Value<UA_ByteString, UA_TYPES_BYTESTRING>;
using BrowseRequestHolder = Value<UA_BrowseRequest, UA_TYPES_BROWSEREQUEST>;
using BrowseResponseHolder = Value<UA_BrowseResponse, UA_TYPES_BROWSERESPONSE>;
using BrowseNextRequestHolder = Value<UA_BrowseNextRequest, UA_TYPES_BROWSENEXTREQUEST>;
using BrowseNextResponseHolder = Value<UA_BrowseNextResponse, UA_TYPES_BROWSENEXTRESPONSE>;
using BrowseResultHolder = Value<UA_BrowseResult, UA_TYPES_BROWSERESULT>;
using ReadRequestHolder = Value<UA_ReadRequest, UA_TYPES_READREQUEST>;
using ReadResponseHolder = Value<UA_ReadResponse, UA_TYPES_READRESPONSE>;
using WriteRequestHolder = Value<UA_WriteRequest, UA_TYPES_WRITEREQUEST>;
using WriteResponseHolder = Value<UA_WriteResponse, UA_TYPES_WRITERESPONSE>;

// Data values that arrive one answer at a time (a history read), each with its own owner.
using DataValueList = std::vector<DataValueHolder>;

// A variant that owns a new, initialised value of the type from the start, so that whatever is
// then put into the value is cleared with the holder. Empty (no type) when memory ran out.
inline VariantHolder newScalarVariant(const UA_DataType* type)
{
    VariantHolder variant;
    if (void* element = UA_new(type))
        UA_Variant_setScalar(variant.get(), element, type);
    return variant;
}

// A variant that owns a new array of `count` initialised values of the type from the start.
// Empty (no type) when memory ran out.
inline VariantHolder newArrayVariant(const UA_DataType* type, size_t count)
{
    VariantHolder variant;
    if (void* array = UA_Array_new(count, type))
        UA_Variant_setArray(variant.get(), array, count, type);
    return variant;
}

} // namespace Ua
