#pragma once

#include <open62541/client.h>
#include <open62541/types.h>

#include <cstddef>
#include <memory>

// Single owners for values and arrays that the OPC UA stack allocates. Each
// holder clears what it owns exactly once, on every path out of a scope.

template <typename T, int TypeIndex>
class UaValue
{
public:
    UaValue() { UA_init(&value_, type()); }
    ~UaValue() { UA_clear(&value_, type()); }

    UaValue(const UaValue&) = delete;
    UaValue& operator=(const UaValue&) = delete;

    UaValue(UaValue&& other) noexcept
        : value_(other.value_)
    {
        UA_init(&other.value_, type());
    }

    UaValue& operator=(UaValue&& other) noexcept
    {
        if (this != &other) {
            UA_clear(&value_, type());
            value_ = other.value_;
            UA_init(&other.value_, type());
        }
        return *this;
    }

    // Takes over a value whose members the caller owned until now.
    static UaValue adopt(const T& value)
    {
        UaValue holder;
        holder.value_ = value;
        return holder;
    }

    T* get() { return &value_; }
    const T* get() const { return &value_; }
    T* operator->() { return &value_; }
    const T* operator->() const { return &value_; }
    T& operator*() { return value_; }
    const T& operator*() const { return value_; }

    // Hands the members over to the caller, who must clear them.
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

template <typename T, int TypeIndex>
class UaArray
{
public:
    UaArray() = default;
    ~UaArray() { reset(); }

    UaArray(const UaArray&) = delete;
    UaArray& operator=(const UaArray&) = delete;

    UaArray(UaArray&& other) noexcept
        : data_(other.data_)
        , size_(other.size_)
    {
        other.data_ = nullptr;
        other.size_ = 0;
    }

    UaArray& operator=(UaArray&& other) noexcept
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

struct UaClientDeleter
{
    void operator()(UA_Client* client) const { UA_Client_delete(client); }
};
using UaClientPtr = std::unique_ptr<UA_Client, UaClientDeleter>;

using UaVariantHolder = UaValue<UA_Variant, UA_TYPES_VARIANT>;
using UaNodeIdHolder = UaValue<UA_NodeId, UA_TYPES_NODEID>;
using UaDataValueHolder = UaValue<UA_DataValue, UA_TYPES_DATAVALUE>;
using UaBrowseRequestHolder = UaValue<UA_BrowseRequest, UA_TYPES_BROWSEREQUEST>;
using UaBrowseResponseHolder = UaValue<UA_BrowseResponse, UA_TYPES_BROWSERESPONSE>;
using UaBrowseNextRequestHolder = UaValue<UA_BrowseNextRequest, UA_TYPES_BROWSENEXTREQUEST>;
using UaBrowseNextResponseHolder = UaValue<UA_BrowseNextResponse, UA_TYPES_BROWSENEXTRESPONSE>;
using UaBrowseResultHolder = UaValue<UA_BrowseResult, UA_TYPES_BROWSERESULT>;
using UaWriteRequestHolder = UaValue<UA_WriteRequest, UA_TYPES_WRITEREQUEST>;
using UaWriteResponseHolder = UaValue<UA_WriteResponse, UA_TYPES_WRITERESPONSE>;
using UaByteStringHolder = UaValue<UA_ByteString, UA_TYPES_BYTESTRING>;
using UaStringHolder = UaValue<UA_String, UA_TYPES_STRING>;
using UaReadRequestHolder = UaValue<UA_ReadRequest, UA_TYPES_READREQUEST>;
using UaReadResponseHolder = UaValue<UA_ReadResponse, UA_TYPES_READRESPONSE>;
