// The typed service calls against opcua_sim on loopback.

#include "ua/client.h"
#include "ua/services.h"
#include "ua/text.h"
#include "sim/support/sim_server.h"
#include "tests/support/start_sim.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

namespace {

UA_NodeId simNode(const char* id)
{
    return UA_NODEID_STRING(1, const_cast<char*>(id));
}

class TypedServices : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const QJsonObject scenario{
            {"address_space", QJsonObject{{"presets", QJsonArray{"types", "history"}}, {"hide_server_object", false}}}};
        START_SIM_OR_SKIP(sim, scenario);
        client = Ua::newClient(Ua::silentLogger());
        ASSERT_TRUE(client);
        ASSERT_EQ(UA_Client_connect(client.get(), sim.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    }

    test_support::SimServer sim;
    Ua::Client client;
};

} // namespace

TEST_F(TypedServices, ReadIntoAHolderThatHeldAValueReplacesIt)
{
    // The holder's old text must be freed, not overwritten (the leak checker sees it otherwise).
    Ua::VariantHolder value;
    UA_String text = UA_STRING_ALLOC("left over");
    ASSERT_EQ(UA_Variant_setScalarCopy(value.get(), &text, &UA_TYPES[UA_TYPES_STRING]), UA_STATUSCODE_GOOD);
    UA_String_clear(&text);

    ASSERT_EQ(Ua::readValue(client.get(), simNode("Types.Double"), &value), UA_STATUSCODE_GOOD);
    EXPECT_TRUE(UA_Variant_hasScalarType(value.get(), &UA_TYPES[UA_TYPES_DOUBLE]));

    Ua::NodeIdHolder dataType(UA_NODEID_STRING_ALLOC(1, "left over"));
    ASSERT_EQ(Ua::readDataType(client.get(), simNode("Types.Double"), &dataType), UA_STATUSCODE_GOOD);
    EXPECT_EQ(Ua::nodeIdToQString(*dataType), QStringLiteral("i=11"));
}

TEST_F(TypedServices, HistoryReadGivesEveryValueIntoAnEmptiedList)
{
    Ua::DataValueList values;
    values.emplace_back();
    const UA_DateTime now = UA_DateTime_now();
    ASSERT_EQ(Ua::historyReadRaw(client.get(), simNode("History.Long"), now - 3600 * UA_DATETIME_SEC,
                                 now + 60 * UA_DATETIME_SEC, 10, &values),
              UA_STATUSCODE_GOOD);
    // Twenty-five values, ten to a request: the stack followed the continuation points.
    ASSERT_EQ(values.size(), 25u);
    EXPECT_TRUE(std::all_of(values.begin(), values.end(), [](const Ua::DataValueHolder& v) {
        return UA_Variant_hasScalarType(&v->value, &UA_TYPES[UA_TYPES_DOUBLE]);
    }));
    EXPECT_EQ(*static_cast<const UA_Double*>(values.front()->value.data), 0.0);
    EXPECT_EQ(*static_cast<const UA_Double*>(values.back()->value.data), 24.0);
}

TEST_F(TypedServices, HistoryReadOfAnUnknownNodeGivesTheStatusAndNoValues)
{
    Ua::DataValueList values;
    values.emplace_back();
    const UA_DateTime now = UA_DateTime_now();
    EXPECT_NE(Ua::historyReadRaw(client.get(), simNode("No.Such.Node"), now - UA_DATETIME_SEC, now, 10, &values),
              UA_STATUSCODE_GOOD);
    EXPECT_TRUE(values.empty());
}
