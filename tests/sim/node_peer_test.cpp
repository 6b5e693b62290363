#include "tests/sim/plant_client.h"
#include "sim/support/node_peer.h"
#include "sim/support/process_runner.h"

#include <open62541/client_highlevel.h>

#include <gtest/gtest.h>

#include <memory>

using plant_test::browseNames;
using plant_test::newClient;
using plant_test::toQString;
using test_support::NodePeer;

namespace {

// Without node or node-opcua the peer tests cannot run: a failure in CI, a skip elsewhere.
#define REQUIRE_NODE_PEER()                                                                  \
    do {                                                                                     \
        QString why_;                                                                        \
        if (!NodePeer::available(&why_)) {                                                   \
            if (test_support::runningInCi())                                                 \
                FAIL() << "node-opcua peer unavailable in CI: " << why_.toStdString();       \
            GTEST_SKIP() << "node-opcua peer unavailable: " << why_.toStdString();           \
        }                                                                                    \
    } while (0)

const char* const policyNone = "http://opcfoundation.org/UA/SecurityPolicy#None";
const char* const policyBasic256Sha256 = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";

using Endpoints = Ua::Array<UA_EndpointDescription, UA_TYPES_ENDPOINTDESCRIPTION>;

UA_StatusCode getEndpoints(const QString& url, Endpoints* endpoints)
{
    Ua::Client client = newClient();
    return UA_Client_getEndpoints(client.get(), url.toUtf8().constData(), endpoints->size(), endpoints->data());
}

bool offersToken(const UA_EndpointDescription& endpoint, UA_UserTokenType type)
{
    for (size_t i = 0; i < endpoint.userIdentityTokensSize; ++i) {
        if (endpoint.userIdentityTokens[i].tokenType == type)
            return true;
    }
    return false;
}

UA_NodeId peerNode(const char* id)
{
    return UA_NODEID_STRING(1, const_cast<char*>(id));
}

// One peer for the suite: node-opcua takes seconds to start.
class NodePeerTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (!NodePeer::available(nullptr))
            return;
        peer_ = std::make_unique<NodePeer>();
        if (!peer_->start({"--name", "Node Peer", "--path", "/peer", "--security", "None,Basic256Sha256", "--users",
                           "operator:secret", "--allow-anonymous"},
                          &startError_))
            peer_.reset();
    }
    static void TearDownTestSuite() { peer_.reset(); }

    void SetUp() override
    {
        REQUIRE_NODE_PEER();
        ASSERT_TRUE(peer_) << startError_.toStdString();
    }

    static std::unique_ptr<NodePeer> peer_;
    static QString startError_;
};

std::unique_ptr<NodePeer> NodePeerTest::peer_;
QString NodePeerTest::startError_;

TEST_F(NodePeerTest, GetEndpointsOffersNoneAndBasic256Sha256WithBothTokens)
{
    Endpoints endpoints;
    ASSERT_EQ(getEndpoints(peer_->endpointUrl(), &endpoints), UA_STATUSCODE_GOOD);
    ASSERT_EQ(endpoints.count(), 3u);
    QStringList seen;
    for (const UA_EndpointDescription& endpoint : endpoints) {
        EXPECT_EQ(toQString(endpoint.endpointUrl), peer_->endpointUrl());
        EXPECT_EQ(toQString(endpoint.server.applicationName.text), "Node Peer");
        EXPECT_EQ(endpoint.server.applicationType, UA_APPLICATIONTYPE_SERVER);
        EXPECT_TRUE(offersToken(endpoint, UA_USERTOKENTYPE_ANONYMOUS));
        EXPECT_TRUE(offersToken(endpoint, UA_USERTOKENTYPE_USERNAME));
        seen << QStringLiteral("%1 %2").arg(QString::number(endpoint.securityMode), toQString(endpoint.securityPolicyUri));
    }
    seen.sort();
    EXPECT_EQ(seen, QStringList({QStringLiteral("1 %1").arg(policyNone),
                                 QStringLiteral("2 %1").arg(policyBasic256Sha256),
                                 QStringLiteral("3 %1").arg(policyBasic256Sha256)}));
}

TEST_F(NodePeerTest, BrowseFindsTheNestedFoldersAndVariables)
{
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), peer_->endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    QString error;
    QStringList objects;
    ASSERT_TRUE(browseNames(client.get(), UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER), &objects, &error))
        << error.toStdString();
    EXPECT_TRUE(objects.contains("Plant")) << objects.join(",").toStdString();
    QStringList plant;
    ASSERT_TRUE(browseNames(client.get(), peerNode("Plant"), &plant, &error)) << error.toStdString();
    EXPECT_EQ(plant, QStringList({"Line1", "Utilities"}));
    QStringList press;
    ASSERT_TRUE(browseNames(client.get(), peerNode("Plant.Line1.Press"), &press, &error)) << error.toStdString();
    EXPECT_EQ(press, QStringList({"Running", "CycleCount", "Temperature", "Recipe", "LastCycle", "Pressures",
                                  "SerialNumber", "Setpoint"}));
    UA_Client_disconnect(client.get());
}

TEST_F(NodePeerTest, VariablesHaveTheirBuiltInTypesAndAccessLevels)
{
    Ua::Client client = newClient();
    ASSERT_EQ(UA_Client_connect(client.get(), peer_->endpointUrl().toUtf8().constData()), UA_STATUSCODE_GOOD);
    const struct
    {
        const char* id;
        int type;
        bool array;
    } expected[] = {{"Plant.Line1.Press.Running", UA_TYPES_BOOLEAN, false},
                    {"Plant.Line1.Press.CycleCount", UA_TYPES_INT32, false},
                    {"Plant.Line1.Press.Temperature", UA_TYPES_DOUBLE, false},
                    {"Plant.Line1.Press.Recipe", UA_TYPES_STRING, false},
                    {"Plant.Line1.Press.LastCycle", UA_TYPES_DATETIME, false},
                    {"Plant.Line1.Press.Pressures", UA_TYPES_DOUBLE, true},
                    {"Plant.Line1.Press.SerialNumber", UA_TYPES_STRING, false}};
    for (const auto& e : expected) {
        Ua::VariantHolder value;
        ASSERT_EQ(UA_Client_readValueAttribute(client.get(), peerNode(e.id), value.get()), UA_STATUSCODE_GOOD) << e.id;
        EXPECT_EQ(value->type, &UA_TYPES[e.type]) << e.id;
        EXPECT_EQ(!UA_Variant_isScalar(value.get()), e.array) << e.id;
    }
    UA_Byte access = 0;
    ASSERT_EQ(UA_Client_readAccessLevelAttribute(client.get(), peerNode("Plant.Line1.Press.SerialNumber"), &access),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(access, UA_ACCESSLEVELMASK_READ);
    ASSERT_EQ(UA_Client_readAccessLevelAttribute(client.get(), peerNode("Plant.Line1.Press.Setpoint"), &access),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(access, UA_ACCESSLEVELMASK_WRITE);
    ASSERT_EQ(UA_Client_readAccessLevelAttribute(client.get(), peerNode("Plant.Line1.Press.Temperature"), &access),
              UA_STATUSCODE_GOOD);
    EXPECT_EQ(access, UA_ACCESSLEVELMASK_READ | UA_ACCESSLEVELMASK_WRITE);
    UA_Client_disconnect(client.get());
}

TEST(NodePeer, AdvertisesAnUnresolvableHostNameAndRequiresAUserName)
{
    REQUIRE_NODE_PEER();
    NodePeer peer;
    QString error;
    // node-opcua offers user names on its None endpoint only with a policy to encrypt the password.
    ASSERT_TRUE(peer.start({"--host", "plc-9.invalid", "--path", "/plc", "--security", "None,Basic256Sha256:SignAndEncrypt",
                            "--users", "operator:secret"},
                           &error))
        << error.toStdString();
    Endpoints endpoints;
    ASSERT_EQ(getEndpoints(peer.endpointUrl(), &endpoints), UA_STATUSCODE_GOOD);
    ASSERT_EQ(endpoints.count(), 2u);
    for (const UA_EndpointDescription& endpoint : endpoints) {
        EXPECT_EQ(toQString(endpoint.endpointUrl), QStringLiteral("opc.tcp://plc-9.invalid:%1/plc").arg(peer.port()));
        EXPECT_FALSE(offersToken(endpoint, UA_USERTOKENTYPE_ANONYMOUS));
        EXPECT_TRUE(offersToken(endpoint, UA_USERTOKENTYPE_USERNAME));
    }
}

TEST(NodeDiscoveryServer, FindServersOnNetworkReturnsRegisteredAndSeededServers)
{
    REQUIRE_NODE_PEER();
    NodePeer lds;
    QString error;
    ASSERT_TRUE(lds.startDiscoveryServer({"--name", "Test LDS", "--record", "Press Line 1|opc.tcp://10.77.0.11:4840|DA"},
                                         &error))
        << error.toStdString();
    NodePeer peer;
    ASSERT_TRUE(peer.start({"--name", "Registered Peer", "--application-uri", "urn:discover:test:registered",
                            "--capabilities", "DA,HD", "--register-to", lds.endpointUrl()},
                           &error))
        << error.toStdString();

    Ua::Array<UA_ServerOnNetwork, UA_TYPES_SERVERONNETWORK> records;
    {
        Ua::Client client = newClient();
        ASSERT_EQ(UA_Client_findServersOnNetwork(client.get(), lds.endpointUrl().toUtf8().constData(), 0, 0, 0, nullptr,
                                                 records.size(), records.data()),
                  UA_STATUSCODE_GOOD);
    }
    QStringList seen;
    for (const UA_ServerOnNetwork& record : records) {
        QStringList caps;
        for (size_t i = 0; i < record.serverCapabilitiesSize; ++i)
            caps << toQString(record.serverCapabilities[i]);
        seen << QStringLiteral("%1 %2 %3").arg(toQString(record.serverName), toQString(record.discoveryUrl),
                                              caps.join(','));
    }
    EXPECT_TRUE(seen.contains("Press Line 1 opc.tcp://10.77.0.11:4840 DA")) << seen.join('\n').toStdString();
    EXPECT_TRUE(seen.contains(QStringLiteral("urn:discover:test:registered opc.tcp://127.0.0.1:%1/ DA,HD")
                                  .arg(peer.port())))
        << seen.join('\n').toStdString();

    Ua::Array<UA_ApplicationDescription, UA_TYPES_APPLICATIONDESCRIPTION> servers;
    {
        Ua::Client client = newClient();
        ASSERT_EQ(UA_Client_findServers(client.get(), lds.endpointUrl().toUtf8().constData(), 0, nullptr, 0, nullptr,
                                        servers.size(), servers.data()),
                  UA_STATUSCODE_GOOD);
    }
    QStringList names;
    for (const UA_ApplicationDescription& server : servers)
        names << toQString(server.applicationName.text);
    EXPECT_EQ(names, QStringList({"Test LDS", "Registered Peer"}));
}

} // namespace
