#include "conversion_support.h"

#include "client_core/node_id.h"

#include "framework/device_instance_plugin.h"

#include <gtest/gtest.h>

#include <memory>

using namespace values_test;

namespace {

Ua::NodeIdHolder nodeIdOf(const QString& identifier, quint16 ns = 3)
{
    ClientCore::Node node;
    node.namespaceIndex = ns;
    node.identifier = identifier;
    return Ua::NodeIdHolder(getNodeId(&node));
}

TEST(NodeIdentifier, DecimalTextIsNumeric)
{
    const Ua::NodeIdHolder id = nodeIdOf("42");
    EXPECT_EQ(id->namespaceIndex, 3);
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_NUMERIC);
    EXPECT_EQ(id->identifier.numeric, 42u);
}

TEST(NodeIdentifier, SixtyFourBitNumberIsCutTo32Bits)
{
    const Ua::NodeIdHolder id = nodeIdOf("4294967297");
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_NUMERIC);
    EXPECT_EQ(id->identifier.numeric, 1u);
}

TEST(NodeIdentifier, GuidTextIsAGuid)
{
    const Ua::NodeIdHolder id = nodeIdOf("6f1c2d3e-0000-4000-8000-000000000001");
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_GUID);
    const UA_Guid expected = UA_GUID("6f1c2d3e-0000-4000-8000-000000000001");
    EXPECT_TRUE(UA_Guid_equal(&id->identifier.guid, &expected));
    EXPECT_EQ(id->namespaceIndex, 3);
}

TEST(NodeIdentifier, NullGuidIsAString)
{
    const Ua::NodeIdHolder id = nodeIdOf("00000000-0000-0000-0000-000000000000");
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_STRING);
    EXPECT_EQ(bytesOf(id->identifier.string), QByteArray("00000000-0000-0000-0000-000000000000"));
}

TEST(NodeIdentifier, OtherTextIsAString)
{
    const Ua::NodeIdHolder id = nodeIdOf(QString::fromUtf8("Tank.Level \xc2\xb0"), 2);
    EXPECT_EQ(id->namespaceIndex, 2);
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_STRING);
    EXPECT_EQ(bytesOf(id->identifier.string), QByteArray("Tank.Level \xc2\xb0"));
}

TEST(NodeIdentifier, FullNodeIdWinsOverTheParts)
{
    ClientCore::Node node;
    node.namespaceIndex = 7;
    node.identifier = QStringLiteral("42");
    node.useFullNodeId = true;
    node.fullNodeId = QStringLiteral("ns=2;s=Tank.Level");
    const Ua::NodeIdHolder id = Ua::NodeIdHolder(getNodeId(&node));
    EXPECT_EQ(id->namespaceIndex, 2);
    ASSERT_EQ(id->identifierType, UA_NODEIDTYPE_STRING);
    EXPECT_EQ(bytesOf(id->identifier.string), QByteArray("Tank.Level"));
}

TEST(NodeIdentifier, FullNodeIdThatDoesNotParseIsTheNullId)
{
    ClientCore::Node node;
    node.useFullNodeId = true;
    node.fullNodeId = QStringLiteral("ns=2;q=nonsense");
    const Ua::NodeIdHolder id = Ua::NodeIdHolder(getNodeId(&node));
    EXPECT_TRUE(UA_NodeId_isNull(id.get()));
}

class VariantToNode : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { useUtcTimeZone(); }

    // A client core that never connected: the conversion needs no server. Port 1 on loopback refuses.
    VariantToNode()
    {
        plugin.address = QStringLiteral("opc.tcp://127.0.0.1:1");
        plugin.settings[QStringLiteral("security_mode")] = QStringLiteral("1");
        plugin.settings[QStringLiteral("security_policies")] =
            QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
        core = std::make_unique<ClientCore>(plugin, QStringLiteral("/nonexistent/"), QStringLiteral("values_test"),
                                            1000);
    }

    DeviceInstancePlugin plugin;
    std::unique_ptr<ClientCore> core;
};

TEST_F(VariantToNode, EmptyVariantIsAnEmptyValue)
{
    ClientCore::Node node;
    node.value = QStringLiteral("old");
    node.dataTypeKind = 5;
    Ua::VariantHolder v;
    EXPECT_TRUE(core->convertValueToNode(&node, v.get()));
    EXPECT_EQ(node.value, "");
    EXPECT_EQ(node.dataTypeKind, 5);
}

TEST_F(VariantToNode, StandardScalarIsConverted)
{
    ClientCore::Node node;
    auto v = scalar<UA_Int32>(5, UA_TYPES_INT32);
    EXPECT_TRUE(core->convertValueToNode(&node, v.get()));
    EXPECT_EQ(node.value, "5");
    EXPECT_EQ(node.dataTypeKind, 5);
}

TEST_F(VariantToNode, ScalarOfAnotherTypeOfTheKindIsRefused)
{
    ClientCore::Node node;
    node.value = QStringLiteral("old");
    auto v = scalar<UA_DateTime>(ticksOf(2024, 1, 2, 3, 4, 5, 678), UA_TYPES_UTCTIME);
    EXPECT_FALSE(core->convertValueToNode(&node, v.get()));
    EXPECT_EQ(node.error, "Invalid/Unsupported scalar type UtcTime (12)");
    EXPECT_EQ(node.dataTypeKind, 12);
    EXPECT_EQ(node.value, "old");
}

TEST_F(VariantToNode, StructureScalarIsRefused)
{
    ClientCore::Node node;
    UA_Range range;
    range.low = 0;
    range.high = 100;
    auto v = scalar(range, UA_TYPES_RANGE);
    EXPECT_FALSE(core->convertValueToNode(&node, v.get()));
    EXPECT_EQ(node.error, "Invalid/Unsupported scalar type Range (27)");
    EXPECT_EQ(node.dataTypeKind, 27);
}

TEST_F(VariantToNode, ArraysGoStraightToTheConversion)
{
    ClientCore::Node node;
    const UA_DateTime times[] = {ticksOf(2024, 1, 2, 3, 4, 5, 678)};
    auto v = array(times, 1, UA_TYPES_UTCTIME);
    EXPECT_TRUE(core->convertValueToNode(&node, v.get()));
    EXPECT_EQ(node.value, "[\"2024-01-02 03:04:05.678\"]");

    Ua::VariantHolder empty;
    UA_Variant_setArray(empty.get(), UA_Array_new(0, &UA_TYPES[UA_TYPES_DOUBLE]), 0, &UA_TYPES[UA_TYPES_DOUBLE]);
    EXPECT_TRUE(core->convertValueToNode(&node, empty.get()));
    EXPECT_EQ(node.value, "[]");
    EXPECT_EQ(node.dataTypeKind, 10);
}

TEST_F(VariantToNode, ReadWithoutConnectionFails)
{
    ClientCore::Node node;
    node.namespaceIndex = 1;
    node.identifier = QStringLiteral("Types.Int32");
    node.value = QStringLiteral("old");
    EXPECT_FALSE(core->readNode(&node));
    EXPECT_EQ(node.error, "Connection failed");
    EXPECT_EQ(node.value, "old");
}

} // namespace
