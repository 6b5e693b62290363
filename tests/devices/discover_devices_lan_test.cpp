// The discover_devices job end to end: the built discover process runs on the gateway host
// of a private /24 LAN of namespaces and scans it; the hosts run opcua_sim servers.

#include "tests/devices/devices_lan.h"

#include <QJsonArray>
#include <QJsonDocument>

using devices_test::deviceRecord;
using devices_test::DevicesLan;
using devices_test::DiscoverRun;
using devices_test::expectCleanRun;
using devices_test::lanIp;
using devices_test::lanUid;
using devices_test::lanUrl;
using devices_test::policyUri;
using devices_test::sortedDevices;

namespace {

const QString kProbesNote4840 =
    QStringLiteral("OPC UA discovery probes on TCP 4840,4849. Imported security is None; certificates stay unset.");

QJsonObject application(const QString& name, const QString& uri, const QString& productUri,
                        const QString& type = QStringLiteral("Server"))
{
    return QJsonObject{{"name", name}, {"uri", uri}, {"product_uri", productUri}, {"type", type}};
}

QJsonObject listedApplication(const QString& name, const QString& uri, const QString& productUri,
                              const QString& type, const QStringList& discoveryUrls)
{
    QJsonObject app = application(name, uri, productUri, type);
    app.insert("discovery_urls", QJsonArray::fromStringList(discoveryUrls));
    return app;
}

QJsonObject request(const QString& ports, int timeoutMs = 30000)
{
    return QJsonObject{{"tcp_ports", ports}, {"timeout_ms", timeoutMs}};
}

QJsonArray devicesOf(const DiscoverRun& run)
{
    return run.document.value("devices").toArray();
}

QStringList warningsOf(const DiscoverRun& run)
{
    QStringList list;
    for (const QJsonValue& v : run.document.value("warnings").toArray())
        list << v.toString();
    return list;
}

std::string pretty(const QJsonArray& array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Indented).toStdString();
}

QString plainDescription(int octet, int port, const QString& uri, const QString& product)
{
    return QStringLiteral("OPC UA server at %1. Application URI %2. Product %3. Server. Imported as None / None; "
                          "anonymous. Offered: None / None (anonymous)")
        .arg(lanUrl(octet, port), uri, product);
}

class DiscoverDevicesOnLan : public ::testing::Test
{
protected:
    void SetUp() override { REQUIRE_DEVICES_NETNS(); }

    void up(const QStringList& hosts, const QStringList& extra = {})
    {
        QString error;
        ASSERT_TRUE(lan.up(hosts, &error, extra)) << error.toStdString();
    }

    void sim(const QString& host, int octet, int port, const QJsonObject& scenario)
    {
        QString error;
        ASSERT_TRUE(lan.startSim(host, octet, port, scenario, &error)) << error.toStdString();
    }

    DevicesLan lan;
};

} // namespace

TEST_F(DiscoverDevicesOnLan, FindServersListingItselfAndASecondServerGivesTwoRecords)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "b=11", "c=12"}));
    QJsonObject findServers{
        {"self", true},
        {"extra",
         QJsonArray{listedApplication("Line 2 as listed", "urn:plant:line2:listed", "urn:plant:listed", "Server",
                                      {"OPC.TCP://" + lanIp(11) + ":4841", "http://" + lanIp(11) + ":4842/"}),
                    listedApplication("Operator panel", "urn:plant:panel", "urn:plant:panel:product", "Client",
                                      {lanUrl(12, 4841)})}}};
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Line 1", "urn:plant:line1", "urn:plant:product")},
                                 {"find_servers", findServers}}));
    ASSERT_NO_FATAL_FAILURE(
        sim("b", 11, 4841, {{"application", application("Line 2", "urn:plant:line2", "urn:plant:product")}}));
    // Reachable only through the client application's discovery URL, which must be ignored.
    ASSERT_NO_FATAL_FAILURE(
        sim("c", 12, 4841, {{"application", application("Panel server", "urn:plant:panel:server", "urn:p")}}));

    QJsonObject req = request("4840,4849");
    req.insert("job_id", "fs-1");
    const DiscoverRun run = lan.discover(req);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    const QJsonArray expected{
        deviceRecord(lanUrl(10, 4840), "Line 1 (10.66.1.10:4840)",
                     plainDescription(10, 4840, "urn:plant:line1", "urn:plant:product"), lanUid(10, 4840)),
        deviceRecord(lanUrl(11, 4841), "Line 2 (10.66.1.11:4841)",
                     plainDescription(11, 4841, "urn:plant:line2", "urn:plant:product"), lanUid(11, 4841)),
    };
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
    EXPECT_EQ(warningsOf(run), QStringList{kProbesNote4840});
    EXPECT_EQ(run.document.value("job_id"), QJsonValue("fs-1"));
    EXPECT_EQ(lan.simStats("c", 4841).value("total").toInt(), 0);
}

TEST_F(DiscoverDevicesOnLan, ClientOnlyApplicationInFindServersAddsNothing)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "b=11"}));
    QJsonObject findServers{
        {"self", false},
        {"extra", QJsonArray{listedApplication("HMI", "urn:plant:hmi", "urn:plant:hmi:product", "Client",
                                               {lanUrl(11, 4841)})}}};
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Press", "urn:plant:press", "urn:plant:product")},
                                 {"find_servers", findServers}}));
    ASSERT_NO_FATAL_FAILURE(sim("b", 11, 4841, {{"application", application("Hidden", "urn:hidden", "urn:h")}}));

    const DiscoverRun run = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{deviceRecord(lanUrl(10, 4840), "Press (10.66.1.10:4840)",
                                           plainDescription(10, 4840, "urn:plant:press", "urn:plant:product"),
                                           lanUid(10, 4840))};
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
    EXPECT_EQ(lan.simStats("b", 4841).value("total").toInt(), 0);
}

TEST_F(DiscoverDevicesOnLan, SameDiscoveryUrlFromTwoCandidatesKeepsTheEarlierOne)
{
    // Both servers run on one host, so the scan reports port 4840 before port 4841.
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "c=12"}));
    const auto listing = [](const QString& name, const QString& uri) {
        return QJsonObject{{"self", true},
                           {"extra", QJsonArray{listedApplication(name, uri, "urn:dup:product", "Server",
                                                                  {lanUrl(12, 4842)})}}};
    };
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Press A", "urn:dup:a", "urn:dup:product")},
                                 {"find_servers", listing("Seen first", "urn:dup:first")}}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4841,
                                {{"application", application("Press B", "urn:dup:b", "urn:dup:product")},
                                 {"find_servers", listing("Seen second", "urn:dup:second")}}));

    const DiscoverRun run = lan.discover(request("4840,4841,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    // Nothing listens at the shared URL, so its record keeps what the earlier listing gave it.
    const QJsonArray expected{
        deviceRecord(lanUrl(10, 4840), "Press A (10.66.1.10:4840)",
                     plainDescription(10, 4840, "urn:dup:a", "urn:dup:product"), lanUid(10, 4840)),
        deviceRecord(lanUrl(12, 4842), "Seen first (10.66.1.12:4842)",
                     "OPC UA server at opc.tcp://10.66.1.12:4842. Application URI urn:dup:first. Product "
                     "urn:dup:product. Server. Imported as None / None",
                     lanUid(12, 4842)),
        deviceRecord(lanUrl(10, 4841), "Press B (10.66.1.10:4841)",
                     plainDescription(10, 4841, "urn:dup:b", "urn:dup:product"), lanUid(10, 4841)),
    };
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
    EXPECT_EQ(warningsOf(run),
              QStringList{"OPC UA discovery probes on TCP 4840,4841,4849. Imported security is None; certificates "
                          "stay unset."});
}
