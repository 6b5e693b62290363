#include "discovery/candidate.h"
#include "discovery/options.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

namespace {

QJsonObject parse(const char* json)
{
    return QJsonDocument::fromJson(QByteArray(json)).object();
}

Options options(const char* json)
{
    QStringList warnings;
    const Options result = optionsFromRequest(parse(json), &warnings);
    EXPECT_TRUE(warnings.isEmpty());
    return result;
}

QList<quint16> ports(std::initializer_list<int> values)
{
    QList<quint16> list;
    for (int v : values)
        list.append(static_cast<quint16>(v));
    return list;
}

const QList<quint16> kDefaults = ports({4840, 4841, 4842, 4843, 4844, 4845, 4846, 4847, 4848, 4849, 4850, 53530});

} // namespace

TEST(Options, EmptyRequestGivesDefaults)
{
    const Options o = options("{}");
    EXPECT_EQ(o.timeoutMs, 60000);
    EXPECT_EQ(o.networkInterface, "eth0");
    EXPECT_EQ(o.tcpPorts, kDefaults);
    EXPECT_TRUE(o.existingUids.isEmpty());
    EXPECT_TRUE(o.tcpSubnetScan);
    EXPECT_TRUE(o.extraHosts.isEmpty());
}

TEST(Options, NullWarningListIsAccepted)
{
    EXPECT_EQ(optionsFromRequest(parse(R"({"timeout_ms":5000})"), nullptr).timeoutMs, 5000);
}

TEST(Options, TimeoutIsClamped)
{
    EXPECT_EQ(options(R"({"timeout_ms":500})").timeoutMs, 1000);
    EXPECT_EQ(options(R"({"timeout_ms":999999})").timeoutMs, 300000);
    EXPECT_EQ(options(R"({"timeout_ms":"120000"})").timeoutMs, 120000);
    EXPECT_EQ(options(R"({"timeout_ms":1500.6})").timeoutMs, 1501);
}

TEST(Options, ZeroNegativeOrTextTimeoutGivesDefault)
{
    EXPECT_EQ(options(R"({"timeout_ms":0})").timeoutMs, 60000);
    EXPECT_EQ(options(R"({"timeout_ms":-5})").timeoutMs, 60000);
    EXPECT_EQ(options(R"({"timeout_ms":"soon"})").timeoutMs, 60000);
}

TEST(Options, EmptyValueFallsThroughToOptions)
{
    EXPECT_EQ(options(R"({"timeout_ms":"","options":{"timeout_ms":5000}})").timeoutMs, 5000);
    EXPECT_EQ(options(R"({"timeout_ms":"  ","options":{"timeout_ms":null},"user_defined_fields":{"timeout_ms":"7000"}})").timeoutMs,
              7000);
}

TEST(Options, TopLevelWinsOverOptionsAndUserDefinedFields)
{
    EXPECT_EQ(options(R"({"timeout_ms":2000,"options":{"timeout_ms":5000},"user_defined_fields":{"timeout_ms":7000}})").timeoutMs,
              2000);
    EXPECT_EQ(options(R"({"options":{"timeout_ms":5000},"user_defined_fields":{"timeout_ms":7000}})").timeoutMs, 5000);
}

TEST(Options, NonObjectOptionsAreIgnored)
{
    EXPECT_EQ(options(R"({"options":"timeout_ms=5000","user_defined_fields":[1]})").timeoutMs, 60000);
}

TEST(Options, InterfaceDefaultsToEth0)
{
    EXPECT_EQ(options(R"({"options":{}})").networkInterface, "eth0");
    EXPECT_EQ(options(R"({"network_interface":" br0 "})").networkInterface, "br0");
    EXPECT_EQ(options(R"({"user_defined_fields":{"network_interface":"wlan0"}})").networkInterface, "wlan0");
}

TEST(Options, PresentButEmptyInterfaceStaysEmpty)
{
    EXPECT_EQ(options(R"({"network_interface":""})").networkInterface, "");
    EXPECT_EQ(options(R"({"options":{"network_interface":null}})").networkInterface, "");
}

TEST(Options, EmptyInterfaceAtTopTakesTheOptionsValue)
{
    EXPECT_EQ(options(R"({"network_interface":"","options":{"network_interface":"eth1"}})").networkInterface, "eth1");
}

TEST(Options, PortListFromRequest)
{
    EXPECT_EQ(options(R"({"tcp_ports":"4840, 4841-4843 ,4840"})").tcpPorts, ports({4840, 4841, 4842, 4843}));
    EXPECT_EQ(options(R"({"options":{"tcp_ports":4855}})").tcpPorts, ports({4855}));
}

TEST(Options, TrueAsPortListIsPortOne)
{
    EXPECT_EQ(options(R"({"tcp_ports":true})").tcpPorts, ports({1}));
}

TEST(Options, SubnetScanSwitch)
{
    EXPECT_FALSE(options(R"({"tcp_subnet_scan":false})").tcpSubnetScan);
    EXPECT_FALSE(options(R"({"tcp_subnet_scan":"False"})").tcpSubnetScan);
    EXPECT_FALSE(options(R"({"tcp_subnet_scan":"FALSE"})").tcpSubnetScan);
    EXPECT_FALSE(options(R"({"tcp_subnet_scan":"0"})").tcpSubnetScan);
    EXPECT_FALSE(options(R"({"tcp_subnet_scan":0})").tcpSubnetScan);
    EXPECT_FALSE(options(R"({"options":{"tcp_subnet_scan":0.2}})").tcpSubnetScan);
    EXPECT_TRUE(options(R"({"tcp_subnet_scan":"no"})").tcpSubnetScan);
    EXPECT_TRUE(options(R"({"tcp_subnet_scan":"off"})").tcpSubnetScan);
    EXPECT_TRUE(options(R"({"tcp_subnet_scan":""})").tcpSubnetScan);
    EXPECT_TRUE(options(R"({"tcp_subnet_scan":true})").tcpSubnetScan);
}

TEST(Options, ExistingDeviceUidWhenUidHintIsEmpty)
{
    EXPECT_EQ(options(R"({"existing_devices":[{"uid":"a","uid_hint":""}]})").existingUids, QStringList{"a"});
}

TEST(Options, ExistingDeviceUidHintWinsOverUid)
{
    EXPECT_EQ(options(R"({"existing_devices":[{"uid":"a","uid_hint":"b"}]})").existingUids, QStringList{"b"});
}

TEST(Options, ExistingDeviceAddressAddsItsIdentity)
{
    EXPECT_EQ(options(R"({"existing_devices":[{"uid":"plc","address":"opc.tcp://10.0.0.5:4841/ua"}]})").existingUids,
              (QStringList{"plc", "opcua_10_0_0_5_4841_ua"}));
}

TEST(Options, ExistingDeviceAddressInUserDefinedFields)
{
    EXPECT_EQ(options(R"({"existing_devices":[{"user_defined_fields":{"address":"opc.tcp://10.0.0.5"}}]})").existingUids,
              QStringList{"opcua_10_0_0_5_4840"});
}

TEST(Options, SchemelessAddressIsSplitAtTheLastColon)
{
    EXPECT_EQ(options(R"({"existing_devices":[{"address":"10.0.0.7:4845/path"}]})").existingUids,
              QStringList{"opcua_10_0_0_7_4845"});
    EXPECT_EQ(options(R"({"existing_devices":[{"address":"plc:port"}]})").existingUids, QStringList{"opcua_plc_0"});
}

TEST(Options, AddressWithoutColonOrWithLeadingColonAddsNothing)
{
    EXPECT_TRUE(options(R"({"existing_devices":[{"address":"10.0.0.7"}]})").existingUids.isEmpty());
    EXPECT_TRUE(options(R"({"existing_devices":[{"address":":4840"}]})").existingUids.isEmpty());
}

TEST(Options, OpcTcpWithEmptyHostFallsBackToTheColonRule)
{
    EXPECT_TRUE(options(R"({"existing_devices":[{"address":"opc.tcp://:4840"}]})").existingUids.isEmpty());
}

TEST(Options, NonObjectExistingDevicesAreSkippedAndDuplicatesKept)
{
    EXPECT_EQ(options(R"({"existing_devices":["x", 3, {"uid":"a"}, {"uid":"a"}]})").existingUids,
              (QStringList{"a", "a"}));
    EXPECT_TRUE(options(R"({"existing_devices":{"uid":"a"}})").existingUids.isEmpty());
}

TEST(PortList, SinglePortsRangesAndRepeats)
{
    EXPECT_EQ(parsePortList("4840, 4841-4843 ,4840", kDefaults), ports({4840, 4841, 4842, 4843}));
}

TEST(PortList, ReversedRangeIsAccepted)
{
    EXPECT_EQ(parsePortList("4843-4841", kDefaults), ports({4841, 4842, 4843}));
}

TEST(PortList, NothingValidGivesDefaults)
{
    EXPECT_EQ(parsePortList("0,70000,x", kDefaults), kDefaults);
    EXPECT_EQ(parsePortList("", kDefaults), kDefaults);
    EXPECT_EQ(parsePortList(",,, ,", kDefaults), kDefaults);
    EXPECT_EQ(parsePortList("-4840", kDefaults), kDefaults);
}

TEST(PortList, CapIsSixtyFourPorts)
{
    QList<quint16> expected;
    for (int p = 1; p <= 64; ++p)
        expected.append(static_cast<quint16>(p));
    EXPECT_EQ(parsePortList("1-1000", kDefaults), expected);
}

TEST(PortList, CapStopsInsideARangeAndIgnoresTheRest)
{
    const QList<quint16> result = parsePortList("100-160,4840-4850,1", kDefaults);
    ASSERT_EQ(result.size(), 64);
    EXPECT_EQ(result.first(), 100);
    EXPECT_EQ(result.at(60), 160);
    EXPECT_EQ(result.last(), 4842);
}

TEST(PortList, RepeatsDoNotCountTowardsTheCap)
{
    QString text = "5,5,5,5";
    for (int p = 10; p < 73; ++p)
        text += "," + QString::number(p);
    const QList<quint16> result = parsePortList(text + ",99", kDefaults);
    ASSERT_EQ(result.size(), 64);
    EXPECT_EQ(result.last(), 72);
}

TEST(PortList, RangeOutsideValidSpanKeepsOnlyValidValues)
{
    EXPECT_EQ(parsePortList("65534-70000", kDefaults), ports({65534, 65535}));
    EXPECT_EQ(parsePortList("70000-2000000000", kDefaults), kDefaults);
    EXPECT_EQ(parsePortList("0-2", kDefaults), ports({1, 2}));
}

TEST(PortList, MalformedRangesAreIgnored)
{
    EXPECT_EQ(parsePortList("4840-,x-4841,4842 - 4843,a-b", kDefaults), ports({4842, 4843}));
    EXPECT_EQ(parsePortList("4840-4841-4842", kDefaults), kDefaults);
}
