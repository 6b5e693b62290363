#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/certificates.h"
#include "tests/client_core/message_capture.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/files.h"
#include "sim/support/process_runner.h"

#include <QHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using client_core_test::basic256Sha256Uri;
using client_core_test::MessageCapture;
using client_core_test::noneUri;
using test_support::NodePeer;

namespace {

DeviceInstancePlugin peerPlugin(const NodePeer& peer, const QString& mode, const QString& policy)
{
    DeviceInstancePlugin plugin;
    plugin.instanceName = QStringLiteral("node-opcua peer");
    plugin.address = peer.endpointUrl();
    plugin.settings["security_mode"] = mode;
    plugin.settings["security_policies"] = policy;
    return plugin;
}

QHash<QString, ClientCore::BrowseItem> byId(const QList<ClientCore::BrowseItem>& items)
{
    QHash<QString, ClientCore::BrowseItem> out;
    for (const ClientCore::BrowseItem& item : items)
        out.insert(item.nodeId, item);
    return out;
}

} // namespace

TEST(ClientCorePeer, BrowsesThePlantOfAnotherStack)
{
    NodePeer peer;
    START_PEER_OR_SKIP(peer, QStringList{});
    DeviceInstancePlugin plugin = peerPlugin(peer, "1", noneUri);
    ClientCore core(plugin, QString(), "tests", 10000);
    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    BrowseItems walked;
    QStringList warnings;
    ASSERT_TRUE(core.browseNodes(&walked, &warnings, {}));
    const QList<ClientCore::BrowseItem> items = expandedItems(walked);
    const auto found = byId(items);

    ASSERT_TRUE(found.contains("ns=1;s=Plant.Line1.Press.Temperature"));
    const ClientCore::BrowseItem& temperature = found["ns=1;s=Plant.Line1.Press.Temperature"];
    EXPECT_EQ(temperature.dataType, "Double");
    EXPECT_TRUE(temperature.readable);
    EXPECT_TRUE(temperature.writable);
    EXPECT_TRUE(temperature.browsePath.endsWith("Line1.Press.Temperature")) << temperature.browsePath.toStdString();

    ASSERT_TRUE(found.contains("ns=1;s=Plant.Line1.Press.Pressures"));
    EXPECT_EQ(found["ns=1;s=Plant.Line1.Press.Pressures"].dataType, "Double");

    ASSERT_TRUE(found.contains("ns=1;s=Plant.Line1.Press.SerialNumber"));
    EXPECT_TRUE(found["ns=1;s=Plant.Line1.Press.SerialNumber"].readable);
    EXPECT_FALSE(found["ns=1;s=Plant.Line1.Press.SerialNumber"].writable);

    ASSERT_TRUE(found.contains("ns=1;s=Plant.Line1.Press.Setpoint"));
    EXPECT_FALSE(found["ns=1;s=Plant.Line1.Press.Setpoint"].readable);
    EXPECT_TRUE(found["ns=1;s=Plant.Line1.Press.Setpoint"].writable);

    ASSERT_TRUE(found.contains("ns=1;s=Plant.Line1.Press.LastCycle"));
    EXPECT_EQ(found["ns=1;s=Plant.Line1.Press.LastCycle"].dataType, "DateTime");
    for (const QString& warning : warnings)
        EXPECT_FALSE(warning.startsWith("Stopped browsing")) << warning.toStdString();
}

TEST(ClientCorePeer, UserNameOnSignAndEncryptWithAnotherStack)
{
    QTemporaryDir dir;
    const client_core_test::CertificatePair& pair = client_core_test::testsClientCertificate(false);
    ASSERT_FALSE(pair.key.isEmpty());
    test_support::writeFile(dir.path(), "ovrin_cert.der", pair.certificate);
    test_support::writeFile(dir.path(), "ovrin_key.der", pair.key);

    NodePeer peer;
    START_PEER_OR_SKIP(peer, (QStringList{"--security", "Basic256Sha256:SignAndEncrypt", "--users", "operator:Pw-4%1x"}));
    MessageCapture capture;
    DeviceInstancePlugin plugin = peerPlugin(peer, "3", basic256Sha256Uri);
    plugin.settings["username"] = "operator";
    plugin.settings["password"] = "Pw-4%1x";
    ClientCore core(plugin, dir.path() + "/", "tests", 15000);
    EXPECT_TRUE(core.isConnected()) << plugin.statusText.toStdString();

    DeviceInstancePlugin wrong = peerPlugin(peer, "3", basic256Sha256Uri);
    wrong.settings["username"] = "operator";
    wrong.settings["password"] = "Not-It-9%2";
    ClientCore refused(wrong, dir.path() + "/", "tests", 15000);
    EXPECT_FALSE(refused.isConnected());
    EXPECT_TRUE(wrong.statusText.startsWith("Bad")) << wrong.statusText.toStdString();
    EXPECT_FALSE(wrong.statusText.contains("Not-It-9%2"));
    for (const QString& text : capture.texts()) {
        EXPECT_FALSE(text.contains("Not-It-9%2")) << text.toStdString();
        EXPECT_FALSE(text.contains("Pw-4%1x")) << text.toStdString();
    }
}
