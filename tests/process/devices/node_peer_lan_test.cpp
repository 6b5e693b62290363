// discover_devices against node-opcua, an OPC UA stack other than the one discover is built
// on: a server on its own host and a local discovery server with FindServersOnNetwork records.

#include "tests/process/devices/devices_lan.h"
#include "sim/support/node_peer.h"

#include <QJsonArray>
#include <QJsonDocument>

using devices_test::deviceRecord;
using devices_test::DevicesLan;
using devices_test::DiscoverRun;
using devices_test::expectCleanRun;
using devices_test::lanIp;
using devices_test::lanUid;
using devices_test::lanUrl;

namespace {

std::string pretty(const QJsonArray& array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Indented).toStdString();
}

class DiscoverNodeOpcUaOnLan : public ::testing::Test
{
protected:
    void SetUp() override
    {
        REQUIRE_NETNS();
        QString why;
        if (!test_support::NodePeer::available(&why)) {
            if (test_support::runningInCi())
                FAIL() << why.toStdString();
            GTEST_SKIP() << why.toStdString();
        }
    }

    void startNode(const QString& host, int port, const QString& script, const QStringList& args)
    {
        QString error;
        ASSERT_TRUE(lan.startProgram(host, port, test_support::nodeExecutable(),
                                     QStringList{test_support::nodeSimDir() + "/" + script} + args, &error))
            << error.toStdString();
    }

    DevicesLan lan;
};

} // namespace

TEST_F(DiscoverNodeOpcUaOnLan, NodeOpcUaServerIsFoundIdentifiedAndItsEndpointChosen)
{
    QString error;
    ASSERT_TRUE(lan.up({"node=20"}, &error)) << error.toStdString();
    ASSERT_NO_FATAL_FAILURE(startNode("node", 4840, "peer_server.js",
                                      {"--listen", lanIp(20), "--port", "4840", "--name", "Node Press",
                                       "--application-uri", "urn:node:press", "--product-uri", "urn:node:product",
                                       "--security", "None,Basic256Sha256"}));
    const DiscoverRun run = lan.discover({{"tcp_ports", "4840,4849"}, {"timeout_ms", 30000}});
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    // The anonymous None endpoint beats every secured one.
    const QJsonArray expected{deviceRecord(
        lanUrl(20, 4840), "Node Press (10.66.1.20:4840)",
        "OPC UA server at opc.tcp://10.66.1.20:4840. Application URI urn:node:press. Product urn:node:product. Server. "
        "Imported as None / None; anonymous. Offered: None / None (anonymous or username); Sign / Basic256Sha256 "
        "(anonymous or username); Sign & Encrypt / Basic256Sha256 (anonymous or username)",
        lanUid(20, 4840))};
    EXPECT_EQ(run.document.value("devices").toArray(), expected) << pretty(run.document.value("devices").toArray());
}

TEST_F(DiscoverNodeOpcUaOnLan, LocalDiscoveryServerRecordsBecomeDevices)
{
    QString error;
    ASSERT_TRUE(lan.up({"lds=30", "remote=21"}, &error)) << error.toStdString();
    ASSERT_TRUE(lan.startSim("remote", 21, 4841,
                             {{"application", QJsonObject{{"name", "Remote line"}, {"uri", "urn:remote:line"},
                                                          {"product_uri", "urn:remote:product"}}}},
                             &error))
        << error.toStdString();
    ASSERT_NO_FATAL_FAILURE(startNode("lds", 4840, "discovery_server.js",
                                      {"--listen", lanIp(30), "--port", "4840", "--name", "Plant LDS", "--record",
                                       "Remote line|" + lanUrl(21, 4841) + "|DA,HD"}));
    const DiscoverRun run = lan.discover({{"tcp_ports", "4840,4849"}, {"timeout_ms", 30000}});
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    // The discovery server offers no user token the import can use, so no endpoint is chosen.
    // FindServersOnNetwork names it once more with its path, which makes a second candidate,
    // and brings the remote server with its capabilities.
    const QString ldsOffers = QStringLiteral(
        "Offered: None / None (no supported user token); Sign / Basic256Sha256 (no supported user token); Sign / "
        "Aes128_Sha256_RsaOaep (no supported user token); Sign / Aes256_Sha256_RsaPss (no supported user token); "
        "Sign & Encrypt / Basic256Sha256 (no supported user token); Sign & Encrypt / Aes128_Sha256_RsaOaep (no "
        "supported user token); Sign & Encrypt / Aes256_Sha256_RsaPss (no supported user token)");
    const QString ldsIdentity = QStringLiteral(
        "Application URI urn:discover:sim:node-lds:10.66.1.30:4840. Product urn:discover:sim:node-lds. Discovery "
        "Server");
    const QJsonArray expected{
        deviceRecord(lanUrl(30, 4840), "Plant LDS (Discovery Server, 10.66.1.30:4840)",
                     "OPC UA server at opc.tcp://10.66.1.30:4840. " + ldsIdentity + ". Imported as None / None. "
                         + ldsOffers,
                     lanUid(30, 4840)),
        deviceRecord(lanUrl(30, 4840, "/DiscoveryServer"),
                     "Plant LDS (Discovery Server, 10.66.1.30:4840/DiscoveryServer)",
                     "OPC UA server at opc.tcp://10.66.1.30:4840/DiscoveryServer. " + ldsIdentity
                         + ". Capabilities LDS. Imported as None / None. " + ldsOffers,
                     lanUid(30, 4840, "/DiscoveryServer")),
        deviceRecord(lanUrl(21, 4841), "Remote line (10.66.1.21:4841)",
                     "OPC UA server at opc.tcp://10.66.1.21:4841. Application URI urn:remote:line. Product "
                     "urn:remote:product. Server. Capabilities DA, HD. Imported as None / None; anonymous. Offered: "
                     "None / None (anonymous)",
                     lanUid(21, 4841)),
    };
    EXPECT_EQ(run.document.value("devices").toArray(), expected) << pretty(run.document.value("devices").toArray());
}
