#include "ua/supported_types.h"

#include <gtest/gtest.h>

#include <QString>

namespace {

struct Expected
{
    UA_UInt32 nodeId;
    const char* name;
    int typeIndex;
    bool writable;
};

// The sixteen supported built-in types, as the connector documents them.
const Expected expected[] = {
    {1, "Boolean", 0, true},     {2, "SByte", 1, true},      {3, "Byte", 2, true},        {4, "Int16", 3, true},
    {5, "UInt16", 4, true},      {6, "Int32", 5, true},      {7, "UInt32", 6, true},      {8, "Int64", 7, true},
    {9, "UInt64", 8, true},      {10, "Float", 9, true},     {11, "Double", 10, true},    {12, "String", 11, true},
    {13, "DateTime", 12, true},  {14, "Guid", 13, false},    {15, "ByteString", 14, true}, {21, "LocalizedText", 20, false},
};

} // namespace

TEST(SupportedTypes, AreTheSixteenBuiltInTypesInOrder)
{
    const auto& table = Ua::supportedTypes();
    ASSERT_EQ(table.size(), 16u);
    for (size_t i = 0; i < table.size(); ++i) {
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(table[i].nodeId, expected[i].nodeId);
        EXPECT_STREQ(table[i].name, expected[i].name);
        EXPECT_EQ(table[i].typeIndex, expected[i].typeIndex);
        EXPECT_EQ(table[i].writable, expected[i].writable);
        EXPECT_STREQ(UA_TYPES[table[i].typeIndex].typeName, expected[i].name);
        EXPECT_NE(table[i].toText, nullptr);
        EXPECT_EQ(table[i].fromText != nullptr, expected[i].writable);
        EXPECT_EQ(table[i].fromJson != nullptr, expected[i].writable);
    }
}

TEST(SupportedTypes, FoundByTheirDataTypeNodeInNamespaceZeroOnly)
{
    for (const Expected& type : expected) {
        const Ua::SupportedType* found = Ua::supportedTypeOfNode(UA_NODEID_NUMERIC(0, type.nodeId));
        ASSERT_NE(found, nullptr) << type.name;
        EXPECT_STREQ(found->name, type.name);
    }
    EXPECT_EQ(Ua::supportedTypeOfNode(UA_NODEID_NUMERIC(0, 16)), nullptr);
    EXPECT_EQ(Ua::supportedTypeOfNode(UA_NODEID_NUMERIC(0, 294)), nullptr); // UtcTime: only through its supertype
    EXPECT_EQ(Ua::supportedTypeOfNode(UA_NODEID_NUMERIC(2, 6)), nullptr);
    UA_NodeId named = UA_NODEID_STRING(0, const_cast<char*>("6"));
    EXPECT_EQ(Ua::supportedTypeOfNode(named), nullptr);
}

TEST(SupportedTypes, FoundByTheirTypeKind)
{
    for (const Expected& type : expected) {
        const Ua::SupportedType* found = Ua::supportedTypeOfKind(static_cast<quint32>(type.typeIndex));
        ASSERT_NE(found, nullptr) << type.name;
        EXPECT_STREQ(found->name, type.name);
    }
    for (quint32 kind : {15u, 16u, 17u, 18u, 19u, 21u, 22u, static_cast<quint32>(UA_DATATYPEKIND_ENUM)})
        EXPECT_EQ(Ua::supportedTypeOfKind(kind), nullptr) << kind;
}

TEST(SupportedTypes, TextTypesAreQuotedInWholeArrays)
{
    for (const Ua::SupportedType& type : Ua::supportedTypes()) {
        const QString name = QString::fromLatin1(type.name);
        const bool textual = name == "String" || name == "LocalizedText" || name == "DateTime" || name == "ByteString"
            || name == "Guid";
        EXPECT_EQ(type.quotedInArrays, textual) << type.name;
    }
}

TEST(SupportedTypes, NumberRoundTripThroughText)
{
    const Ua::SupportedType* int32 = Ua::supportedTypeOfKind(UA_DATATYPEKIND_INT32);
    UA_Int32 value = 0;
    QString error;
    EXPECT_EQ(int32->fromText("-42", &value, &error), UA_STATUSCODE_GOOD);
    EXPECT_EQ(value, -42);
    EXPECT_EQ(int32->toText(&value, 4), "-42");
    EXPECT_TRUE(error.isEmpty());
}

TEST(SupportedTypes, ByteStringRoundTripThroughText)
{
    const Ua::SupportedType* bytes = Ua::supportedTypeOfKind(UA_DATATYPEKIND_BYTESTRING);
    UA_ByteString value = UA_BYTESTRING_NULL;
    QString error;
    EXPECT_EQ(bytes->fromText("0x0A 0B", &value, &error), UA_STATUSCODE_GOOD);
    EXPECT_EQ(bytes->toText(&value, 0), "0a0b");
    UA_ByteString_clear(&value);
}

TEST(SupportedTypes, BadDateTimeTextLeavesItsReason)
{
    const Ua::SupportedType* dateTime = Ua::supportedTypeOfKind(UA_DATATYPEKIND_DATETIME);
    UA_DateTime value = 0;
    QString error;
    EXPECT_EQ(dateTime->fromText("yesterday", &value, &error), UA_STATUSCODE_BADNOTIMPLEMENTED);
    EXPECT_EQ(error, "Invalid date time format. Expected format: yyyy-MM-dd hh:mm:ss.zzz");
}
