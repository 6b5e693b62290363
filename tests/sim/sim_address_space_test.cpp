#include "tests/sim/sim_client.h"
#include "sim/support/sim_server.h"

#include <open62541/client_highlevel.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>

using sim_test::newClient;
using sim_test::simNode;
using sim_test::toQString;
using test_support::SimServer;

namespace {

class SimAddressSpace : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        server = new SimServer;
        QString error;
        const QJsonObject scenario = QJsonDocument::fromJson(R"({"address_space": {"presets": "all",
            "deep_levels": 20, "many_children": 25, "synthetic_count": 250, "synthetic_folder_size": 100,
            "max_references_per_node": 10}})")
                                         .object();
        if (!server->start(scenario, &error))
            startError = error;
    }
    static void TearDownTestSuite()
    {
        delete server;
        server = nullptr;
    }

    void SetUp() override
    {
        ASSERT_TRUE(startError.isEmpty()) << startError.toStdString();
        client = newClient();
        ASSERT_EQ(UA_Client_connect(client.get(), server->endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    }

    Ua::VariantHolder read(const char* id)
    {
        Ua::VariantHolder value;
        EXPECT_EQ(UA_Client_readValueAttribute(client.get(), simNode(id), value.get()), UA_STATUSCODE_GOOD) << id;
        return value;
    }

    QString dataType(const char* id)
    {
        Ua::NodeIdHolder type;
        EXPECT_EQ(UA_Client_readDataTypeAttribute(client.get(), simNode(id), type.get()), UA_STATUSCODE_GOOD) << id;
        Ua::StringHolder text;
        UA_NodeId_print(type.get(), text.get());
        return toQString(*text);
    }

    static SimServer* server;
    static QString startError;
    Ua::Client client;
};

SimServer* SimAddressSpace::server = nullptr;

// The server's reference order is its own, not the order of creation.
std::vector<QString> sorted(std::vector<QString> names)
{
    std::sort(names.begin(), names.end());
    return names;
}
QString SimAddressSpace::startError;

struct TypeCase
{
    const char* name;
    int typeIndex;
};

const TypeCase typeCases[] = {
    {"Boolean", UA_TYPES_BOOLEAN}, {"SByte", UA_TYPES_SBYTE},       {"Byte", UA_TYPES_BYTE},
    {"Int16", UA_TYPES_INT16},     {"UInt16", UA_TYPES_UINT16},     {"Int32", UA_TYPES_INT32},
    {"UInt32", UA_TYPES_UINT32},   {"Int64", UA_TYPES_INT64},       {"UInt64", UA_TYPES_UINT64},
    {"Float", UA_TYPES_FLOAT},     {"Double", UA_TYPES_DOUBLE},     {"String", UA_TYPES_STRING},
    {"DateTime", UA_TYPES_DATETIME}, {"Guid", UA_TYPES_GUID},       {"ByteString", UA_TYPES_BYTESTRING},
    {"LocalizedText", UA_TYPES_LOCALIZEDTEXT}};

} // namespace

TEST_F(SimAddressSpace, EveryTypeIsReadableAsScalarAndArray)
{
    for (const char* folder : {"Types", "Writable"}) {
        for (const TypeCase& type : typeCases) {
            const QByteArray scalarId = QByteArray(folder) + "." + type.name;
            const QByteArray arrayId = scalarId + "Array";
            Ua::VariantHolder scalar = read(scalarId.constData());
            EXPECT_TRUE(UA_Variant_hasScalarType(scalar.get(), &UA_TYPES[type.typeIndex])) << scalarId.constData();
            Ua::VariantHolder array = read(arrayId.constData());
            EXPECT_TRUE(UA_Variant_hasArrayType(array.get(), &UA_TYPES[type.typeIndex])) << arrayId.constData();
            EXPECT_EQ(array->arrayLength, 3u) << arrayId.constData();
            EXPECT_EQ(dataType(scalarId.constData()), QStringLiteral("i=%1").arg(UA_TYPES[type.typeIndex].typeId.identifier.numeric));
        }
    }
}

TEST_F(SimAddressSpace, ScalarsHoldTheDocumentedValues)
{
    EXPECT_EQ(*static_cast<UA_Boolean*>(read("Types.Boolean")->data), true);
    EXPECT_EQ(*static_cast<UA_SByte*>(read("Types.SByte")->data), -8);
    EXPECT_EQ(*static_cast<UA_Byte*>(read("Types.Byte")->data), 200);
    EXPECT_EQ(*static_cast<UA_Int16*>(read("Types.Int16")->data), -1234);
    EXPECT_EQ(*static_cast<UA_UInt16*>(read("Types.UInt16")->data), 54321);
    EXPECT_EQ(*static_cast<UA_Int32*>(read("Types.Int32")->data), -123456);
    EXPECT_EQ(*static_cast<UA_UInt32*>(read("Types.UInt32")->data), 3000000000u);
    EXPECT_EQ(*static_cast<UA_Int64*>(read("Types.Int64")->data), -9000000000LL);
    EXPECT_EQ(*static_cast<UA_UInt64*>(read("Types.UInt64")->data), 18000000000000000000ULL);
    EXPECT_EQ(*static_cast<UA_Float*>(read("Types.Float")->data), 3.5f);
    EXPECT_EQ(*static_cast<UA_Double*>(read("Types.Double")->data), 3.14159);
    EXPECT_EQ(toQString(*static_cast<UA_String*>(read("Types.String")->data)), "Hello OPC UA");
    const UA_DateTime expectedTime = UA_DateTime_fromUnixTime(1704164645) + 678 * UA_DATETIME_MSEC;
    EXPECT_EQ(*static_cast<UA_DateTime*>(read("Types.DateTime")->data), expectedTime);
    const UA_Guid guid = *static_cast<UA_Guid*>(read("Types.Guid")->data);
    EXPECT_EQ(guid.data1, 0x6f1c2d3eu);
    EXPECT_EQ(guid.data3, 0x4000);
    EXPECT_EQ(guid.data4[0], 0x80);
    EXPECT_EQ(guid.data4[7], 0x01);
    Ua::VariantHolder bytesValue = read("Types.ByteString");
    const UA_ByteString& bytes = *static_cast<UA_ByteString*>(bytesValue->data);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(bytes.data), static_cast<int>(bytes.length)),
              QByteArray::fromHex("0102abff"));
    Ua::VariantHolder textValue = read("Types.LocalizedText");
    const UA_LocalizedText& text = *static_cast<UA_LocalizedText*>(textValue->data);
    EXPECT_EQ(toQString(text.text), "Hello");
    EXPECT_EQ(toQString(text.locale), "en");
    Ua::VariantHolder ints = read("Types.Int32Array");
    ASSERT_EQ(ints->arrayLength, 3u);
    EXPECT_EQ(static_cast<UA_Int32*>(ints->data)[0], -1);
    EXPECT_EQ(static_cast<UA_Int32*>(ints->data)[2], 1);
}

TEST_F(SimAddressSpace, SpecialDataTypes)
{
    EXPECT_EQ(dataType("Types.UtcTime"), "i=294");
    EXPECT_EQ(dataType("Unsupported.Enum"), "i=852");
    EXPECT_EQ(dataType("Unsupported.Structure"), "i=338");
    EXPECT_EQ(dataType("Unsupported.Range"), "i=884");
    EXPECT_EQ(dataType("Unsupported.NodeId"), "i=17");
    EXPECT_EQ(*static_cast<UA_DateTime*>(read("Types.UtcTime")->data),
              UA_DateTime_fromUnixTime(1704164645) + 678 * UA_DATETIME_MSEC);
}

TEST_F(SimAddressSpace, AccessLevelsAreAsDocumented)
{
    const std::pair<const char*, UA_Byte> cases[] = {{"Access.None", 0},      {"Access.Read", 1},
                                                     {"Access.Write", 2},     {"Access.ReadWrite", 3},
                                                     {"Access.GuidWrite", 2}, {"Types.Int32", 1},
                                                     {"Writable.Int32", 3},   {"History.Value", 5}};
    for (const auto& item : cases) {
        UA_Byte level = 0xff;
        EXPECT_EQ(UA_Client_readAccessLevelAttribute(client.get(), simNode(item.first), &level), UA_STATUSCODE_GOOD)
            << item.first;
        EXPECT_EQ(level, item.second) << item.first;
    }
    EXPECT_EQ(dataType("Access.GuidWrite"), "i=14");
}

TEST_F(SimAddressSpace, AccessLevelReadFailsForOneNode)
{
    UA_Byte level = 0;
    EXPECT_EQ(UA_Client_readAccessLevelAttribute(client.get(), simNode("Access.LevelReadFails"), &level),
              UA_STATUSCODE_BADATTRIBUTEIDINVALID);
    EXPECT_EQ(*static_cast<UA_Int32*>(read("Access.LevelReadFails")->data), 42);
}

TEST_F(SimAddressSpace, AliasIsReachableOnTwoPaths)
{
    const auto alias = sim_test::browseAll(client.get(), simNode("Alias"));
    EXPECT_EQ(sorted(alias.names), (std::vector<QString>{"B", "X"}));
    const auto b = sim_test::browseAll(client.get(), simNode("Alias.B"));
    EXPECT_EQ(b.names, (std::vector<QString>{"X"}));
}

TEST_F(SimAddressSpace, PropertiesHangBelowTheirVariable)
{
    const auto properties = sim_test::browseAll(client.get(), simNode("Props.Temperature"));
    EXPECT_EQ(sorted(properties.names), (std::vector<QString>{"Precision", "Unit"}));
    EXPECT_EQ(toQString(*static_cast<UA_String*>(read("Props.Temperature.Unit")->data)), "degC");
}

TEST_F(SimAddressSpace, DeepChainEndsInLeaf)
{
    QByteArray id = "Deep";
    for (int level = 1; level <= 20; ++level) {
        const auto children = sim_test::browseAll(client.get(), simNode(id.constData()));
        ASSERT_EQ(children.names, (std::vector<QString>{QStringLiteral("L%1").arg(level)})) << id.constData();
        id = "Deep.L" + QByteArray::number(level);
    }
    const auto last = sim_test::browseAll(client.get(), simNode(id.constData()));
    EXPECT_EQ(last.names, (std::vector<QString>{"Leaf"}));
    EXPECT_EQ(*static_cast<UA_Int32*>(read("Deep.Leaf")->data), 20);
}

TEST_F(SimAddressSpace, ReferenceLimitForcesContinuationPoints)
{
    const auto many = sim_test::browseAll(client.get(), simNode("Many"));
    ASSERT_EQ(many.status, UA_STATUSCODE_GOOD);
    EXPECT_EQ(many.continuationPoints, 2);
    std::vector<QString> expected;
    for (int i = 0; i < 25; ++i)
        expected.push_back(QStringLiteral("V%1").arg(i));
    EXPECT_EQ(sorted(many.names), sorted(expected));
}

TEST_F(SimAddressSpace, SyntheticVariablesLiveInFolders)
{
    const auto folders = sim_test::browseAll(client.get(), simNode("Synthetic"));
    EXPECT_EQ(sorted(folders.names), (std::vector<QString>{"F0", "F1", "F2"}));
    const auto last = sim_test::browseAll(client.get(), simNode("Synthetic.F2"));
    ASSERT_EQ(last.names.size(), 50u);
    EXPECT_EQ(sorted(last.names).front(), "V200");
    EXPECT_EQ(*static_cast<UA_Int32*>(read("Synthetic.V249")->data), 249);
}

TEST_F(SimAddressSpace, WritableVariablesTakeNewValues)
{
    UA_Int32 number = 99;
    Ua::VariantHolder value;
    UA_Variant_setScalarCopy(value.get(), &number, &UA_TYPES[UA_TYPES_INT32]);
    EXPECT_EQ(UA_Client_writeValueAttribute(client.get(), simNode("Writable.Int32"), value.get()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(*static_cast<UA_Int32*>(read("Writable.Int32")->data), 99);
    UA_String text = UA_STRING(const_cast<char*>("changed"));
    Ua::VariantHolder textValue;
    UA_Variant_setScalarCopy(textValue.get(), &text, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(UA_Client_writeValueAttribute(client.get(), simNode("Writable.String"), textValue.get()),
              UA_STATUSCODE_GOOD);
    EXPECT_NE(UA_Client_writeValueAttribute(client.get(), simNode("Types.Int32"), value.get()), UA_STATUSCODE_GOOD);
}

namespace {

struct HistoryValues
{
    std::vector<double> values;
    int withSourceTimestamp = 0;
    int responses = 0;
};

UA_Boolean collectHistory(UA_Client*, const UA_NodeId*, UA_Boolean, const UA_ExtensionObject* data, void* context)
{
    auto* out = static_cast<HistoryValues*>(context);
    ++out->responses;
    if (data->encoding != UA_EXTENSIONOBJECT_DECODED || data->content.decoded.type != &UA_TYPES[UA_TYPES_HISTORYDATA])
        return true;
    const auto* history = static_cast<const UA_HistoryData*>(data->content.decoded.data);
    for (size_t i = 0; i < history->dataValuesSize; ++i) {
        const UA_DataValue& value = history->dataValues[i];
        if (UA_Variant_hasScalarType(&value.value, &UA_TYPES[UA_TYPES_DOUBLE]))
            out->values.push_back(*static_cast<const UA_Double*>(value.value.data));
        out->withSourceTimestamp += value.hasSourceTimestamp ? 1 : 0;
    }
    return true;
}

} // namespace

TEST_F(SimAddressSpace, HistoryReadReturnsTheKnownValues)
{
    const UA_DateTime now = UA_DateTime_now();
    HistoryValues history;
    const UA_NodeId node = simNode("History.Value");
    ASSERT_EQ(UA_Client_HistoryRead_raw(client.get(), &node, collectHistory, now - 3600 * UA_DATETIME_SEC,
                                        now + 60 * UA_DATETIME_SEC, UA_STRING_NULL, false, 10,
                                        UA_TIMESTAMPSTORETURN_BOTH, &history),
              UA_STATUSCODE_GOOD);
    std::vector<double> sorted = history.values;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<double>{10.0, 20.0, 30.0, 40.0, 50.0}));
    EXPECT_EQ(history.withSourceTimestamp, 3);
}

TEST_F(SimAddressSpace, LongHistoryNeedsSeveralRequests)
{
    const UA_DateTime now = UA_DateTime_now();
    HistoryValues history;
    const UA_NodeId node = simNode("History.Long");
    ASSERT_EQ(UA_Client_HistoryRead_raw(client.get(), &node, collectHistory, now - 3600 * UA_DATETIME_SEC,
                                        now + 60 * UA_DATETIME_SEC, UA_STRING_NULL, false, 10,
                                        UA_TIMESTAMPSTORETURN_BOTH, &history),
              UA_STATUSCODE_GOOD);
    ASSERT_EQ(history.values.size(), 25u);
    EXPECT_EQ(history.values.front(), 0.0);
    EXPECT_EQ(history.values.back(), 24.0);
    EXPECT_GE(history.responses, 3);
}

TEST(SimAddressSpaceHidden, ObjectsWithoutServerObjectHoldOnlyPresets)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(QJsonDocument::fromJson(
                                 R"({"address_space": {"presets": ["empty"], "hide_server_object": true}})")
                                 .object(),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    const auto objects = sim_test::browseAll(client.get(), UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    EXPECT_EQ(objects.names, (std::vector<QString>{"Empty"}));
    const auto empty = sim_test::browseAll(client.get(), simNode("Empty"));
    EXPECT_EQ(sorted(empty.names), (std::vector<QString>{"A", "B"}));
}
