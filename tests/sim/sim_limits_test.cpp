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

// Service result of one Browse request that asks for `count` nodes (the Many folder each time).
UA_StatusCode browseNodes(UA_Client* client, size_t count)
{
    const UA_NodeId many = simNode("Many");
    Ua::BrowseRequestHolder request;
    request->nodesToBrowse =
        static_cast<UA_BrowseDescription*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_BROWSEDESCRIPTION]));
    request->nodesToBrowseSize = count;
    for (size_t i = 0; i < count; ++i) {
        UA_NodeId_copy(&many, &request->nodesToBrowse[i].nodeId);
        request->nodesToBrowse[i].browseDirection = UA_BROWSEDIRECTION_FORWARD;
        request->nodesToBrowse[i].resultMask = UA_BROWSERESULTMASK_ALL;
    }
    Ua::BrowseResponseHolder response;
    *response = UA_Client_Service_browse(client, *request);
    return response->responseHeader.serviceResult;
}

// Service result of one Read request for the value of `count` variables (Many.V0 each time).
UA_StatusCode readNodes(UA_Client* client, size_t count)
{
    const UA_NodeId variable = simNode("Many.V0");
    Ua::ReadRequestHolder request;
    request->nodesToRead = static_cast<UA_ReadValueId*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_READVALUEID]));
    request->nodesToReadSize = count;
    for (size_t i = 0; i < count; ++i) {
        UA_NodeId_copy(&variable, &request->nodesToRead[i].nodeId);
        request->nodesToRead[i].attributeId = UA_ATTRIBUTEID_VALUE;
    }
    Ua::ReadResponseHolder response;
    *response = UA_Client_Service_read(client, *request);
    return response->responseHeader.serviceResult;
}

// The value of a numeric namespace-0 variable as an unsigned number; -1 when the read fails.
qint64 readCapability(UA_Client* client, UA_UInt32 node)
{
    Ua::VariantHolder value;
    if (UA_Client_readValueAttribute(client, UA_NODEID_NUMERIC(0, node), value.get()) != UA_STATUSCODE_GOOD)
        return -1;
    if (UA_Variant_hasScalarType(value.get(), &UA_TYPES[UA_TYPES_UINT32]))
        return *static_cast<UA_UInt32*>(value->data);
    if (UA_Variant_hasScalarType(value.get(), &UA_TYPES[UA_TYPES_UINT16]))
        return *static_cast<UA_UInt16*>(value->data);
    return -1;
}

} // namespace

TEST(SimLimits, OperationLimitsRejectLargerRequestsAndArePublished)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["many"], "many_children": 5},
        "limits": {"max_nodes_per_browse": 10, "max_nodes_per_read": 12}})"),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(browseNodes(client.get(), 10), UA_STATUSCODE_GOOD);
    EXPECT_EQ(browseNodes(client.get(), 11), UA_STATUSCODE_BADTOOMANYOPERATIONS);
    EXPECT_EQ(readNodes(client.get(), 12), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readNodes(client.get(), 13), UA_STATUSCODE_BADTOOMANYOPERATIONS);
    EXPECT_EQ(readCapability(client.get(), UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE), 10);
    EXPECT_EQ(readCapability(client.get(), UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD), 12);
}

TEST(SimLimits, WithoutLimitsLargeRequestsPassAndZeroIsPublished)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["many"], "many_children": 5}})"), &error))
        << error.toStdString();
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(browseNodes(client.get(), 2000), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readNodes(client.get(), 5000), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readCapability(client.get(), UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE), 0);
    EXPECT_EQ(readCapability(client.get(), UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD), 0);
}

TEST(SimLimits, PublishedBrowseContinuationPointsAreTheScenarios)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"limits": {"max_browse_continuation_points": 50}})"), &error))
        << error.toStdString();
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readCapability(client.get(), UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBROWSECONTINUATIONPOINTS), 50);
}

TEST(SimLimits, PerOperationDelayMakesLargeRequestsSlowAndSingleNodesFast)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["many"], "many_children": 5},
        "misbehaviour": {"delay_per_operation_ms": 40}})"),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient(1000);
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readNodes(client.get(), 1), UA_STATUSCODE_GOOD);
    EXPECT_EQ(browseNodes(client.get(), 1), UA_STATUSCODE_GOOD);
    EXPECT_EQ(readNodes(client.get(), 10), UA_STATUSCODE_GOOD);
    // 4 s of server time each, beyond the client's time-out; the second waits behind the first.
    EXPECT_EQ(readNodes(client.get(), 100), UA_STATUSCODE_BADTIMEOUT);
    EXPECT_EQ(browseNodes(client.get(), 100), UA_STATUSCODE_BADTIMEOUT);
}

TEST(SimLimits, PerOperationDelayCoversRequestsOfSeveralChunks)
{
    SimServer server;
    QString error;
    ASSERT_TRUE(server.start(json(R"({"address_space": {"presets": ["many"], "many_children": 5},
        "misbehaviour": {"delay_per_operation_ms": 1}})"),
                             &error))
        << error.toStdString();
    Ua::Client client = newClient(1000);
    ASSERT_EQ(UA_Client_connect(client.get(), server.endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    // About 40 bytes a node: 5000 nodes need several 64 KiB chunks and 5 s of server time.
    EXPECT_EQ(readNodes(client.get(), 5000), UA_STATUSCODE_BADTIMEOUT);
}

TEST(SimLimits, UnknownLimitKeyFailsTheStart)
{
    SimServer server;
    QString error;
    EXPECT_FALSE(server.start(json(R"({"limits": {"max_nodes_per_write": 10}})"), &error));
    EXPECT_FALSE(server.running());
}
