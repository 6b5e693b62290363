#include "tests/sim/sim_client.h"
#include "sim/support/sim_server.h"

#include <open62541/client_highlevel.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using sim_test::newClient;
using sim_test::simNode;
using test_support::SimServer;

namespace {

QJsonObject json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

} // namespace

TEST(SimMisbehaviour, SlowServerDelaysBrowseAfterTheFirstOnes)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["alias"]},
        "misbehaviour": {"delay_ms": 3000, "delay_after": 2, "delay_services": ["Browse"]}})"),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient(1000);
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(sim_test::browseOnce(client.get(), simNode("Alias")), UA_STATUSCODE_GOOD);
    EXPECT_EQ(sim_test::browseOnce(client.get(), simNode("Alias")), UA_STATUSCODE_GOOD);
    EXPECT_EQ(sim_test::browseOnce(client.get(), simNode("Alias")), UA_STATUSCODE_BADTIMEOUT);
    EXPECT_EQ(server.stats().value("delayed").toInt(), 1);
}

TEST(SimMisbehaviour, DropClosesTheConnectionAfterNRequests)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["alias"]},
        "misbehaviour": {"drop_after": 2, "drop_services": ["Browse"]}})"),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient(3000);
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(sim_test::browseOnce(client.get(), simNode("Alias")), UA_STATUSCODE_GOOD);
    EXPECT_EQ(sim_test::browseOnce(client.get(), simNode("Alias")), UA_STATUSCODE_GOOD);
    const UA_StatusCode third = sim_test::browseOnce(client.get(), simNode("Alias"));
    EXPECT_NE(third, UA_STATUSCODE_GOOD);
    EXPECT_NE(third, UA_STATUSCODE_BADTIMEOUT) << "the connection should close, not stall";
    EXPECT_EQ(server.stats().value("dropped").toInt(), 1);
    EXPECT_TRUE(server.running());
}

TEST(SimMisbehaviour, StatsCountRequestsByService)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["writable"]}})"), &error)) << error.toStdString();
    const QJsonObject initial = server.stats();
    EXPECT_EQ(initial.value("total").toInt(-1), 0);
    EXPECT_EQ(initial.value("FindServersOnNetwork").toInt(-1), 0);

    const QByteArray url = server.endpointUrl().toUtf8();
    {
        Ua::Client client = newClient();
        Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION> apps;
        EXPECT_EQ(UA_Client_findServers(client.get(), url.constData(), 0, nullptr, 0, nullptr, apps.size(),
                                        apps.data()),
                  UA_STATUSCODE_GOOD);
    }
    const QJsonObject afterFind = server.stats();
    EXPECT_GE(afterFind.value("FindServers").toInt(), 1);
    {
        Ua::Client client = newClient();
        Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK> records;
        UA_Client_findServersOnNetwork(client.get(), url.constData(), 0, 0, 0, nullptr, records.size(),
                                       records.data());
    }
    EXPECT_EQ(server.stats().value("FindServersOnNetwork").toInt(), 1);

    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), url.constData()), UA_STATUSCODE_GOOD);
    const QJsonObject before = server.stats();
    EXPECT_GE(before.value("GetEndpoints").toInt(), 1);
    EXPECT_EQ(before.value("CreateSession").toInt(), 1);
    EXPECT_EQ(before.value("ActivateSession").toInt(), 1);

    sim_test::browseOnce(client.get(), simNode("Writable"));
    Ua::VariantHolder value;
    UA_Client_readValueAttribute(client.get(), simNode("Writable.Int32"), value.get());
    UA_Client_writeValueAttribute(client.get(), simNode("Writable.Int32"), value.get());

    const QJsonObject after = server.stats();
    EXPECT_EQ(after.value("Browse").toInt() - before.value("Browse").toInt(), 1);
    EXPECT_EQ(after.value("Read").toInt() - before.value("Read").toInt(), 1);
    EXPECT_EQ(after.value("Write").toInt() - before.value("Write").toInt(), 1);
    EXPECT_EQ(after.value("total").toInt() - before.value("total").toInt(), 3);
}
