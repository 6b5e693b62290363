// discover_devices asks many servers side by side: the built discover process on the gateway of
// a private LAN of namespaces, with simulators that count what they are sent and a server that
// hangs after the Hello.

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
using devices_test::sortedDevices;

namespace {

QJsonObject application(const QString& name, const QString& uri)
{
    return QJsonObject{{"name", name}, {"uri", uri}, {"product_uri", "urn:side:product"}, {"type", "Server"}};
}

QJsonObject request(const QString& ports, int timeoutMs)
{
    return QJsonObject{{"tcp_ports", ports}, {"timeout_ms", timeoutMs}};
}

std::string pretty(const QJsonArray& array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Indented).toStdString();
}

QJsonObject answeredRecord(int octet, int port, const QString& name, const QString& uri)
{
    return deviceRecord(lanUrl(octet, port), QStringLiteral("%1 (%2:%3)").arg(name, lanIp(octet)).arg(port),
                        QStringLiteral("OPC UA server at %1. Application URI %2. Product urn:side:product. Server. "
                                       "Imported as None / None; anonymous. Offered: None / None (anonymous)")
                            .arg(lanUrl(octet, port), uri),
                        lanUid(octet, port));
}

QJsonObject scannedOnlyRecord(int octet, int port)
{
    return deviceRecord(lanUrl(octet, port), QStringLiteral("OPC UA (%1:%2)").arg(lanIp(octet)).arg(port),
                        QStringLiteral("OPC UA server at %1. Imported as None / None").arg(lanUrl(octet, port)),
                        lanUid(octet, port));
}

class DiscoverDevicesSideBySide : public ::testing::Test
{
protected:
    void SetUp() override { REQUIRE_NETNS(); }

    void up(const QStringList& hosts)
    {
        QString error;
        ASSERT_TRUE(lan.up(hosts, &error)) << error.toStdString();
    }

    void sim(const QString& host, int octet, int port, const QJsonObject& scenario)
    {
        QString error;
        ASSERT_TRUE(lan.startSim(host, octet, port, scenario, &error)) << error.toStdString();
    }

    DevicesLan lan;
};

} // namespace

TEST_F(DiscoverDevicesSideBySide, HungServerAmongTenStarvesNobody)
{
    QStringList hosts{"hung=20"};
    for (int i = 0; i < 10; ++i)
        hosts << QStringLiteral("s%1=%2").arg(i).arg(30 + i);
    ASSERT_NO_FATAL_FAILURE(up(hosts));
    QString error;
    ASSERT_TRUE(lan.startProgram("hung", 4840, OPCUA_HUNG_PEER_EXECUTABLE, {lanIp(20), "4840"}, &error))
        << error.toStdString();
    QJsonArray expected{scannedOnlyRecord(20, 4840)};
    for (int i = 0; i < 10; ++i) {
        const QString name = QStringLiteral("Line %1").arg(i);
        const QString uri = QStringLiteral("urn:side:line%1").arg(i);
        ASSERT_NO_FATAL_FAILURE(sim(QStringLiteral("s%1").arg(i), 30 + i, 4840, {{"application", application(name, uri)}}));
        expected.append(answeredRecord(30 + i, 4840, name, uri));
    }

    // Less than the two request time-outs that the hung server used to cost every server
    // asked after it.
    const DiscoverRun run = lan.discover(request("4840", 4000));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    EXPECT_EQ(sortedDevices(run.document), expected) << pretty(run.document.value("devices").toArray());
}

TEST_F(DiscoverDevicesSideBySide, EachServerIsAskedOverOneSecureChannel)
{
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "b=11", "c=12", "d=13"}));
    // a lists b, which the scan of port 4840 does not reach; d answers GetEndpoints with nothing.
    QJsonObject findServers{
        {"self", true},
        {"extra", QJsonArray{QJsonObject{{"name", "Listed"},
                                         {"uri", "urn:side:listed"},
                                         {"type", "Server"},
                                         {"discovery_urls", QJsonArray{lanUrl(11, 4841)}}}}}};
    ASSERT_NO_FATAL_FAILURE(
        sim("a", 10, 4840, {{"application", application("Lister", "urn:side:lister")}, {"find_servers", findServers}}));
    ASSERT_NO_FATAL_FAILURE(sim("b", 11, 4841, {{"application", application("Listed", "urn:side:listed")}}));
    ASSERT_NO_FATAL_FAILURE(sim("c", 12, 4840, {{"application", application("Plain", "urn:side:plain")}}));
    ASSERT_NO_FATAL_FAILURE(sim("d", 13, 4840,
                                {{"application", application("Hollow", "urn:side:hollow")},
                                 {"endpoints", QJsonArray()},
                                 {"find_servers", QJsonObject{{"self", false}}}}));

    const DiscoverRun run = lan.discover(request("4840", 30000));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{answeredRecord(10, 4840, "Lister", "urn:side:lister"),
                              answeredRecord(11, 4841, "Listed", "urn:side:listed"),
                              answeredRecord(12, 4840, "Plain", "urn:side:plain"), scannedOnlyRecord(13, 4840)};
    EXPECT_EQ(sortedDevices(run.document), expected) << pretty(run.document.value("devices").toArray());

    // A scanned server also counts the Hello of the scan's probe.
    const auto expectOneChannel = [this](const QString& host, int port, bool scanned) {
        const QJsonObject stats = lan.simStats(host, port);
        SCOPED_TRACE(QJsonDocument(stats).toJson(QJsonDocument::Compact).toStdString());
        ASSERT_TRUE(stats.contains("total")) << "no request counters from " << host.toStdString();
        EXPECT_EQ(stats.value("Hello").toInt(-1), scanned ? 2 : 1);
        EXPECT_EQ(stats.value("OpenSecureChannel").toInt(-1), 1);
        EXPECT_EQ(stats.value("CloseSecureChannel").toInt(-1), 1);
        EXPECT_EQ(stats.value("FindServersOnNetwork").toInt(-1), scanned ? 1 : 0);
        EXPECT_EQ(stats.value("GetEndpoints").toInt(-1), 1);
    };
    expectOneChannel("a", 4840, true);
    expectOneChannel("b", 4841, false); // only asked for its endpoints
    expectOneChannel("c", 4840, true);
    expectOneChannel("d", 4840, true);
}

TEST_F(DiscoverDevicesSideBySide, SlowFinderSpendsTheBudgetWhileTheNextServerIsAsked)
{
    // One host, two ports: the scan reports 4840 first. Its answer to the job's FindServers
    // comes after the budget is spent, so nothing more is asked of it; 4841 is asked meanwhile.
    // The first FindServers on the channel is the stack's own while it connects: not delayed.
    ASSERT_NO_FATAL_FAILURE(up({"a=10"}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4840,
                                {{"application", application("Slow finder", "urn:side:slow")},
                                 {"misbehaviour", QJsonObject{{"delay_ms", 1500},
                                                              {"delay_after", 1},
                                                              {"delay_services", QJsonArray{"FindServers"}}}}}));
    ASSERT_NO_FATAL_FAILURE(sim("a", 10, 4841, {{"application", application("Quick", "urn:side:quick")}}));

    const DiscoverRun run = lan.discover(request("4840,4841,4849", 1000));
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    const QJsonArray expected{
        deviceRecord(lanUrl(10, 4840), "Slow finder (10.66.1.10:4840)",
                     "OPC UA server at opc.tcp://10.66.1.10:4840. Application URI urn:side:slow. Product "
                     "urn:side:product. Server. Imported as None / None",
                     lanUid(10, 4840)),
        answeredRecord(10, 4841, "Quick", "urn:side:quick"),
    };
    EXPECT_EQ(run.document.value("devices").toArray(), expected) << pretty(run.document.value("devices").toArray());
    const QJsonObject slow = lan.simStats("a", 4840);
    ASSERT_TRUE(slow.contains("total")) << "no request counters from the simulator";
    EXPECT_EQ(slow.value("FindServersOnNetwork").toInt(-1), 0);
    EXPECT_EQ(slow.value("GetEndpoints").toInt(-1), 0);
}

TEST_F(DiscoverDevicesSideBySide, SideBySideGivesTheRecordsOfTheFirstWayInTheSameOrder)
{
    QString why;
    if (!test_support::NodePeer::available(&why)) {
        if (test_support::runningInCi())
            FAIL() << why.toStdString();
        GTEST_SKIP() << why.toStdString();
    }
    ASSERT_NO_FATAL_FAILURE(up({"a=10", "b=11", "c=12", "d=13", "e=14", "m=15", "f=21", "lds=30", "g=40", "h=41",
                                "i=42", "j=43"}));
    const auto listing = [](const QString& name, const QString& uri, const QStringList& urls) {
        return QJsonObject{{"name", name}, {"uri", uri}, {"type", "Server"},
                           {"discovery_urls", QJsonArray::fromStringList(urls)}};
    };
    // a lists a server the scan does not reach (b), a scanned one (c) and a client; m lists b
    // again: whichever of a and m the scan reports first brings b.
    const QJsonObject aListing{
        {"self", true},
        {"extra", QJsonArray{listing("Listed by a", "urn:side:listed", {lanUrl(11, 4841)}),
                             listing("Plain as listed", "urn:side:plain:listed", {"OPC.TCP://" + lanIp(12) + ":4840"}),
                             QJsonObject{{"name", "Panel"}, {"type", "Client"},
                                         {"discovery_urls", QJsonArray{lanUrl(13, 4840)}}}}}};
    const QJsonObject mListing{{"self", true},
                               {"extra", QJsonArray{listing("Listed by m", "urn:side:listed:m", {lanUrl(11, 4841)})}}};
    ASSERT_NO_FATAL_FAILURE(
        sim("a", 10, 4840, {{"application", application("Lister", "urn:side:lister")}, {"find_servers", aListing}}));
    ASSERT_NO_FATAL_FAILURE(
        sim("m", 15, 4840, {{"application", application("Second lister", "urn:side:m")}, {"find_servers", mListing}}));
    ASSERT_NO_FATAL_FAILURE(sim("b", 11, 4841, {{"application", application("Listed", "urn:side:listed")}}));
    ASSERT_NO_FATAL_FAILURE(sim("c", 12, 4840, {{"application", application("Plain", "urn:side:plain")}}));
    ASSERT_NO_FATAL_FAILURE(sim("d", 13, 4840,
                                {{"application", application("Hollow", "urn:side:hollow")},
                                 {"endpoints", QJsonArray()},
                                 {"find_servers", QJsonObject{{"self", false}}}}));
    ASSERT_NO_FATAL_FAILURE(sim(
        "e", 14, 4840,
        {{"application", application("Vault", "urn:side:vault")},
         {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}}},
         {"anonymous", false},
         {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}}}));
    ASSERT_NO_FATAL_FAILURE(sim("f", 21, 4841, {{"application", application("Remote line", "urn:side:remote")}}));
    for (const int octet : {40, 41, 42, 43}) {
        const QString host(QChar('g' + (octet - 40)));
        ASSERT_NO_FATAL_FAILURE(sim(host, octet, 4840,
                                    {{"application", application("Cell " + host, "urn:side:cell:" + host)}}));
    }
    QString error;
    ASSERT_TRUE(lan.startProgram("lds", 4840, test_support::nodeExecutable(),
                                 {test_support::nodeSimDir() + "/discovery_server.js", "--listen", lanIp(30), "--port",
                                  "4840", "--name", "Side LDS", "--record",
                                  "Remote line|" + lanUrl(21, 4841) + "|DA,HD"},
                                 &error))
        << error.toStdString();

    const QJsonObject req = request("4840", 60000);
    const QJsonObject ways = lan.recordsEachWay(req, {"reference", "side_by_side"}, &error);
    ASSERT_FALSE(ways.isEmpty()) << error.toStdString();
    const QJsonArray reference = ways.value("reference").toArray();
    // a, b, c, d, e, m, f, g to j, and the discovery server with its own record of itself.
    ASSERT_EQ(reference.size(), 13) << pretty(reference);
    EXPECT_EQ(ways.value("side_by_side").toArray(), reference) << pretty(ways.value("side_by_side").toArray());

    // The discover process gives the same records; its scan may report the servers in another order.
    const DiscoverRun run = lan.discover(req);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));
    EXPECT_EQ(sortedDevices(run.document).size(), reference.size()) << pretty(run.document.value("devices").toArray());
    EXPECT_EQ(sortedDevices(run.document), sortedDevices(QJsonObject{{"devices", reference}}))
        << pretty(run.document.value("devices").toArray());
}
