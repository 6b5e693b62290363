#include "ua/requests.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

Ua::VariantHolder int32Value(UA_Int32 number)
{
    Ua::VariantHolder value = Ua::newScalarVariant(&UA_TYPES[UA_TYPES_INT32]);
    *static_cast<UA_Int32*>(value->data) = number;
    return value;
}

} // namespace

TEST(WriteValueRequest, WritesTheWholeValueOfOneNode)
{
    Ua::NodeIdHolder node(UA_NODEID_STRING_ALLOC(2, "Line1.Press.Setpoint"));
    bool ok = false;
    const Ua::WriteRequestHolder request = Ua::writeValueRequest(std::move(node), int32Value(42), std::string(), &ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(request->nodesToWriteSize, 1u);
    const UA_WriteValue& item = request->nodesToWrite[0];
    const UA_NodeId expected = UA_NODEID_STRING(2, const_cast<char*>("Line1.Press.Setpoint"));
    EXPECT_TRUE(UA_NodeId_equal(&item.nodeId, &expected));
    EXPECT_EQ(item.attributeId, UA_ATTRIBUTEID_VALUE);
    EXPECT_EQ(item.indexRange.length, 0u);
    ASSERT_TRUE(item.value.hasValue);
    ASSERT_EQ(item.value.value.type, &UA_TYPES[UA_TYPES_INT32]);
    EXPECT_EQ(*static_cast<const UA_Int32*>(item.value.value.data), 42);
    EXPECT_EQ(node->identifierType, UA_NODEIDTYPE_NUMERIC) << "the request took the node identifier over";
}

TEST(WriteValueRequest, WritesTheElementsItsIndexRangeNames)
{
    bool ok = false;
    const Ua::WriteRequestHolder request =
        Ua::writeValueRequest(Ua::NodeIdHolder(UA_NODEID_NUMERIC(3, 7)), int32Value(-1), "12", &ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(request->nodesToWriteSize, 1u);
    const UA_String& range = request->nodesToWrite[0].indexRange;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(range.data), range.length), "12");
}
