// The discover_devices job end to end: the built discover process runs on the gateway host
// of a private /24 LAN of namespaces and scans it; the hosts run opcua_sim servers.

#include "tests/process/devices/devices_lan.h"

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
    void SetUp() override { REQUIRE_NETNS(); }

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

TEST_F(DiscoverDevicesOnLan, SpentBudgetReportsEveryCandidateWithoutFurtherRequests)
{
    // One host, two ports: the scan reports 4840 first. Asked one server at a time (the job's
    // first way), its FindServers answer takes longer than the whole budget, so nothing at all is
    // asked of 4841, and nobody is asked for endpoints. (Side by side, 4841 is asked meanwhile:
    // see the side-by-side suite.)
    ASSERT_NO_FATAL_FAILURE(up({"a=10"}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Slow finder", "urn:budget:slow", "urn:budget:product")},
                                 {"misbehaviour", QJsonObject{{"delay_ms", 1500},
                                                              {"delay_services", QJsonArray{"FindServers"}}}}}));
    ASSERT_NO_FATAL_FAILURE(
        sim("a", 10, 4841, {{"application", application("Untouched", "urn:budget:untouched", "urn:budget:product")}}));

    QString error;
    const QJsonObject run = lan.recordsEachWay(request("4840,4841,4849", 1000), {"reference"}, &error);
    ASSERT_FALSE(run.isEmpty()) << error.toStdString();
    const QJsonArray expected{
        deviceRecord(lanUrl(10, 4840), "Slow finder (10.66.1.10:4840)",
                     "OPC UA server at opc.tcp://10.66.1.10:4840. Application URI urn:budget:slow. Product "
                     "urn:budget:product. Server. Imported as None / None",
                     lanUid(10, 4840)),
        deviceRecord(lanUrl(10, 4841), "OPC UA (10.66.1.10:4841)",
                     "OPC UA server at opc.tcp://10.66.1.10:4841. Imported as None / None", lanUid(10, 4841)),
    };
    EXPECT_EQ(run.value("reference").toArray(), expected) << pretty(run.value("reference").toArray());

    const QJsonObject untouched = lan.simStats("a", 4841);
    ASSERT_TRUE(untouched.contains("total")) << "no request counters from the simulator";
    EXPECT_EQ(untouched.value("FindServers").toInt(-1), 0);
    EXPECT_EQ(untouched.value("FindServersOnNetwork").toInt(-1), 0);
    EXPECT_EQ(untouched.value("GetEndpoints").toInt(-1), 0);
    EXPECT_EQ(untouched.value("total").toInt(-1), 0);
    EXPECT_EQ(lan.simStats("a", 4840).value("GetEndpoints").toInt(-1), 0);
}

TEST_F(DiscoverDevicesOnLan, GetEndpointsWithoutEndpointsLeavesTheScannedCandidate)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10"}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Hollow", "urn:plant:hollow", "urn:plant:product")},
                                 {"endpoints", QJsonArray()},
                                 {"find_servers", QJsonObject{{"self", false}}}}));
    const DiscoverRun run = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{deviceRecord(lanUrl(10, 4840), "OPC UA (10.66.1.10:4840)",
                                           "OPC UA server at opc.tcp://10.66.1.10:4840. Imported as None / None",
                                           lanUid(10, 4840))};
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
    EXPECT_GE(lan.simStats("a", 4840).value("GetEndpoints").toInt(), 1);
}

TEST_F(DiscoverDevicesOnLan, SecuredServerWithUserNamesOnlyIsImportedWithItsEndpoint)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10"}));
    ASSERT_NO_FATAL_FAILURE(sim(
        "a", 10, 4840,
        {{"application", application("Vault", "urn:plant:vault", "urn:plant:product")},
         {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}}},
         {"anonymous", false},
         {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}}}));
    const DiscoverRun run = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{deviceRecord(
        lanUrl(10, 4840), "Vault (10.66.1.10:4840)",
        "OPC UA server at opc.tcp://10.66.1.10:4840. Application URI urn:plant:vault. Product urn:plant:product. "
        "Server. Imported as Sign & Encrypt / Basic256Sha256; anonymous is not offered, set username and password "
        "after import. Offered: Sign & Encrypt / Basic256Sha256 (username required)",
        lanUid(10, 4840), "3", policyUri("Basic256Sha256"))};
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
}

TEST_F(DiscoverDevicesOnLan, UnresolvableAdvertisedHostKeepsTheScannedAddressAndIdentifier)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10"}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Remote PLC", "urn:plant:plc7", "urn:plant:product")},
                                 {"advertised_host", "plc-7.invalid"}}));
    const QJsonArray expected{deviceRecord(
        lanUrl(10, 4840), "Remote PLC (10.66.1.10:4840)",
        "OPC UA server at opc.tcp://10.66.1.10:4840. Application URI urn:plant:plc7. Product urn:plant:product. "
        "Server. Imported as None / None; anonymous. Server advertised opc.tcp://plc-7.invalid:4840; the scanned IP "
        "was kept so the gateway can reach it. Offered: None / None (anonymous)",
        lanUid(10, 4840))};

    const DiscoverRun first = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(first));
    EXPECT_EQ(devicesOf(first), expected) << pretty(devicesOf(first));

    const DiscoverRun second = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(second));
    EXPECT_EQ(devicesOf(second), expected) << pretty(devicesOf(second));
}

TEST_F(DiscoverDevicesOnLan, WebServerOnAnOpcUaPortIsNoDevice)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "web=11"}));
    ASSERT_NO_FATAL_FAILURE(
        sim("a", 10, 4840, {{"application", application("Press", "urn:plant:press", "urn:plant:product")}}));
    QString error;
    ASSERT_TRUE(lan.startProgram("web", 4840, FAKE_PEER_EXECUTABLE, {"--http", lanIp(11), "4840"}, &error))
        << error.toStdString();

    const DiscoverRun run = lan.discover(request("4840,4849"));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{deviceRecord(lanUrl(10, 4840), "Press (10.66.1.10:4840)",
                                           plainDescription(10, 4840, "urn:plant:press", "urn:plant:product"),
                                           lanUid(10, 4840))};
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
}

TEST_F(DiscoverDevicesOnLan, KnownDeviceIsNotReportedAgain)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "b=11"}));
    ASSERT_NO_FATAL_FAILURE(
        sim("a", 10, 4840, {{"application", application("Press", "urn:plant:press", "urn:plant:product")}}));
    ASSERT_NO_FATAL_FAILURE(
        sim("b", 11, 4840, {{"application", application("Mixer", "urn:plant:mixer", "urn:plant:product")}}));

    QJsonObject req = request("4840,4849");
    req.insert("existing_devices", QJsonArray{QJsonObject{{"name", "Press"}, {"address", lanUrl(10, 4840)}}});
    const DiscoverRun run = lan.discover(req);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{deviceRecord(lanUrl(11, 4840), "Mixer (10.66.1.11:4840)",
                                           plainDescription(11, 4840, "urn:plant:mixer", "urn:plant:product"),
                                           lanUid(11, 4840))};
    EXPECT_EQ(devicesOf(run), expected) << pretty(devicesOf(run));
    EXPECT_EQ(lan.simStats("a", 4840).value("total").toInt(-1), 0);

    QJsonObject byUid = request("4840,4849");
    byUid.insert("existing_devices", QJsonArray{QJsonObject{{"uid_hint", lanUid(11, 4840)}}});
    const DiscoverRun other = lan.discover(byUid);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(other));
    EXPECT_EQ(devicesOf(other),
              QJsonArray{deviceRecord(lanUrl(10, 4840), "Press (10.66.1.10:4840)",
                                      plainDescription(10, 4840, "urn:plant:press", "urn:plant:product"),
                                      lanUid(10, 4840))})
        << pretty(devicesOf(other));
}

TEST_F(DiscoverDevicesOnLan, WarningsKeepTheirOrderAndRepeatsAndTheDebugLineGoesToStandardError)
{
    // Two /16 addresses on eth0: each hits the host cap and adds the same warning.
    QString error;
    ASSERT_TRUE(lan.upWith({"--subnet", "10.40.0.0/16", "--gateway", "gw=10.40.0.1/16", "--addr", "gw=10.41.0.1/16",
                            "--host", "a=10.40.0.2/16"},
                           &error))
        << error.toStdString();
    ASSERT_TRUE(lan.startSimAt("a", "10.40.0.2", 4840,
                               {{"application", application("Press", "urn:plant:press", "urn:plant:product")}},
                               &error))
        << error.toStdString();
    const QString limit = QStringLiteral("TCP subnet scan is limited to 256 hosts on eth0");
    const QStringList expectedWarnings{
        "OPC UA discovery probes on TCP 4840. Imported security is None; certificates stay unset.", limit, limit};
    const QJsonArray expectedDevices{deviceRecord(
        "opc.tcp://10.40.0.2:4840", "Press (10.40.0.2:4840)",
        "OPC UA server at opc.tcp://10.40.0.2:4840. Application URI urn:plant:press. Product urn:plant:product. "
        "Server. Imported as None / None; anonymous. Offered: None / None (anonymous)",
        "opcua_10_40_0_2_4840")};

    const DiscoverRun quiet = lan.discover({{"tcp_ports", "4840"}, {"timeout_ms", 30000}, {"job_id", 3}});
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(quiet));
    EXPECT_EQ(warningsOf(quiet), expectedWarnings);
    EXPECT_EQ(devicesOf(quiet), expectedDevices) << pretty(devicesOf(quiet));
    EXPECT_EQ(quiet.document.value("job_id"), QJsonValue(3));

    const DiscoverRun debug =
        lan.discover({{"tcp_ports", "4840"}, {"timeout_ms", 30000}}, {{"OVRIN_DISCOVERY_DEBUG", "1"}});
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(debug, "OPC UA discovery importable=1\n"));
    EXPECT_EQ(warningsOf(debug), expectedWarnings);
    EXPECT_EQ(devicesOf(debug), expectedDevices) << pretty(devicesOf(debug));
}

TEST_F(DiscoverDevicesOnLan, FaultyServersKeepTheirScannedCandidateAndNeverStopTheJob)
{
    ASSERT_NO_FATAL_FAILURE(up({"refuser=10", "slow=11", "dropper=12", "hollow=13", "good=14"}));
    QString error;
    ASSERT_TRUE(lan.startProgram("refuser", 4840, FAKE_PEER_EXECUTABLE, {"--opcua-error", lanIp(10), "4840"}, &error))
        << error.toStdString();
    ASSERT_NO_FATAL_FAILURE(sim("slow", 11, 4840,
                                {{"application", application("Sloth", "urn:fault:slow", "urn:fault:product")},
                                 {"misbehaviour", QJsonObject{{"delay_ms", 3000}}}}));
    ASSERT_NO_FATAL_FAILURE(sim("dropper", 12, 4840,
                                {{"application", application("Dropper", "urn:fault:drop", "urn:fault:product")},
                                 {"misbehaviour", QJsonObject{{"drop_after", 0}}}}));
    ASSERT_NO_FATAL_FAILURE(sim("hollow", 13, 4840,
                                {{"application", application("Hollow", "urn:fault:hollow", "urn:fault:product")},
                                 {"endpoints", QJsonArray()},
                                 {"find_servers", QJsonObject{{"self", false}}}}));
    ASSERT_NO_FATAL_FAILURE(
        sim("good", 14, 4840, {{"application", application("Healthy", "urn:fault:good", "urn:fault:product")}}));

    const DiscoverRun run = lan.discover(request("4840,4849", 60000));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const auto asScanned = [](int octet) {
        return deviceRecord(lanUrl(octet, 4840), QStringLiteral("OPC UA (10.66.1.%1:4840)").arg(octet),
                            QStringLiteral("OPC UA server at %1. Imported as None / None").arg(lanUrl(octet, 4840)),
                            lanUid(octet, 4840));
    };
    const QJsonArray expected{
        asScanned(10),
        asScanned(11),
        asScanned(12),
        asScanned(13),
        deviceRecord(lanUrl(14, 4840), "Healthy (10.66.1.14:4840)",
                     plainDescription(14, 4840, "urn:fault:good", "urn:fault:product"), lanUid(14, 4840)),
    };
    EXPECT_EQ(sortedDevices(run.document), expected) << pretty(devicesOf(run));
    EXPECT_GE(lan.simStats("dropper", 4840).value("dropped").toInt(), 1);
    EXPECT_GE(lan.simStats("slow", 4840).value("delayed").toInt(), 1);
}
