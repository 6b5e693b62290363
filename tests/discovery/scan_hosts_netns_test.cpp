#include "scan_netns_support.h"

#include <memory>

using scan_test::describe;
using scan_test::stringsOf;
using test_support::NetLan;

namespace {

struct HostLists
{
    QStringList local;
    QStringList hosts;
    QStringList warnings;
};

QStringList range(const QString& prefix, int from, int to, int except = -1)
{
    QStringList list;
    for (int i = from; i <= to; ++i)
        if (i != except)
            list << prefix + QString::number(i);
    return list;
}

const QString kCapWarning = QStringLiteral("TCP subnet scan is limited to 256 hosts on eth0");

// One LAN for the whole suite; every host namespace holds one interface layout.
// Interfaces are only read here: no packet is sent.
class ScanHostsInNamespace : public ::testing::Test
{
protected:
    static void TearDownTestSuite() { lan.reset(); }

    void SetUp() override
    {
        REQUIRE_NETNS();
        if (lan)
            return;
        lan = std::make_unique<NetLan>(QStringLiteral("scanhosts"));
        QString error;
        const bool built = lan->up(
            {"--subnet", "192.168.1.0/24",
             "--host", "h24=192.168.1.10/24",
             "--host", "h16=10.0.0.5/16",
             "--host", "hsmall=10.0.0.4/31", "--addr", "hsmall=10.0.1.7/32",
             "--host", "hlinklocal=169.254.3.4/16",
             "--host", "hdown=192.168.5.10/24", "--down", "hdown",
             "--host", "hnocarrier=192.168.6.10/24", "--nocarrier", "hnocarrier",
             "--host", "hcap2=10.0.0.5/16", "--addr", "hcap2=10.1.0.5/16",
             "--host", "hlo=-",
             "--host", "hmulti=192.168.7.10/24", "--addr", "hmulti=192.168.7.11/24",
             "--iface", "hmulti=192.168.8.10/24:eth1"},
            &error);
        if (!built) {
            lan.reset();
            FAIL() << error.toStdString();
        }
        const auto lo = lan->exec("hlo", "ip", {"addr", "add", "10.9.9.1/24", "dev", "lo"});
        ASSERT_EQ(lo.exitCode, 0) << describe(lo);
    }

    static HostLists listsOn(const QString& host, const QString& name)
    {
        HostLists lists;
        const auto r = lan->exec(host, QStringLiteral(SCAN_HOSTS_PROBE), {name});
        EXPECT_EQ(r.exitCode, 0) << describe(r);
        const QJsonObject json = scan_test::jsonOf(r);
        lists.local = stringsOf(json.value("local"));
        lists.hosts = stringsOf(json.value("hosts"));
        lists.warnings = stringsOf(json.value("warnings"));
        // The scan takes both lists from one look at the interfaces, with the same result.
        EXPECT_EQ(stringsOf(json.value("scan")), lists.local + lists.hosts) << host.toStdString();
        EXPECT_EQ(stringsOf(json.value("scan_warnings")), lists.warnings) << host.toStdString();
        return lists;
    }

    static std::unique_ptr<NetLan> lan;
};

std::unique_ptr<NetLan> ScanHostsInNamespace::lan;

} // namespace

TEST_F(ScanHostsInNamespace, SlashTwentyFourGivesTwoHundredFiftyThreeHosts)
{
    const HostLists lists = listsOn("h24", "eth0");
    EXPECT_EQ(lists.local, QStringList{"192.168.1.10"});
    EXPECT_EQ(lists.hosts.size(), 253);
    EXPECT_EQ(lists.hosts, range("192.168.1.", 1, 254, 10));
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, EmptyNameTakesEveryInterfaceExceptLoopback)
{
    const HostLists lists = listsOn("h24", "");
    EXPECT_EQ(lists.local, QStringList{"192.168.1.10"});
    EXPECT_EQ(lists.hosts, range("192.168.1.", 1, 254, 10));
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, NameInCapitalsSelectsTheSameInterface)
{
    const HostLists lists = listsOn("h24", "ETH0");
    EXPECT_EQ(lists.local, QStringList{"192.168.1.10"});
    EXPECT_EQ(lists.hosts, range("192.168.1.", 1, 254, 10));
}

TEST_F(ScanHostsInNamespace, UnknownNameGivesNothing)
{
    const HostLists lists = listsOn("h24", "wlan0");
    EXPECT_TRUE(lists.local.isEmpty());
    EXPECT_TRUE(lists.hosts.isEmpty());
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, NamedSlashSixteenIsCappedWithWarning)
{
    const HostLists lists = listsOn("h16", "eth0");
    EXPECT_EQ(lists.local, QStringList{"10.0.0.5"});
    const QStringList expected = range("10.0.0.", 1, 255, 5) + QStringList{"10.0.1.0", "10.0.1.1"};
    EXPECT_EQ(lists.hosts.size(), 256);
    EXPECT_EQ(lists.hosts, expected);
    EXPECT_EQ(lists.warnings, QStringList{kCapWarning});
}

TEST_F(ScanHostsInNamespace, UnnamedSlashSixteenIsSkippedSilently)
{
    const HostLists lists = listsOn("h16", "");
    EXPECT_EQ(lists.local, QStringList{"10.0.0.5"});
    EXPECT_TRUE(lists.hosts.isEmpty());
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, SlashThirtyOneAndThirtyTwoHaveNoSubnetHosts)
{
    const HostLists lists = listsOn("hsmall", "eth0");
    EXPECT_EQ(lists.local, (QStringList{"10.0.0.4", "10.0.1.7"}));
    EXPECT_TRUE(lists.hosts.isEmpty());
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, LinkLocalAddressContributesNothing)
{
    const HostLists lists = listsOn("hlinklocal", "eth0");
    EXPECT_TRUE(lists.local.isEmpty());
    EXPECT_TRUE(lists.hosts.isEmpty());
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, InterfaceThatIsDownIsNeverUsed)
{
    for (const QString name : {"eth0", ""}) {
        const HostLists lists = listsOn("hdown", name);
        EXPECT_TRUE(lists.local.isEmpty()) << name.toStdString();
        EXPECT_TRUE(lists.hosts.isEmpty()) << name.toStdString();
        EXPECT_TRUE(lists.warnings.isEmpty());
    }
}

TEST_F(ScanHostsInNamespace, InterfaceThatIsNotRunningIsNeverUsed)
{
    const HostLists lists = listsOn("hnocarrier", "eth0");
    EXPECT_TRUE(lists.local.isEmpty());
    EXPECT_TRUE(lists.hosts.isEmpty());
}

TEST_F(ScanHostsInNamespace, LoopbackIsNeverUsedEvenWhenNamed)
{
    for (const QString name : {"lo", ""}) {
        const HostLists lists = listsOn("hlo", name);
        EXPECT_TRUE(lists.local.isEmpty()) << name.toStdString();
        EXPECT_TRUE(lists.hosts.isEmpty()) << name.toStdString();
    }
}

TEST_F(ScanHostsInNamespace, TwoEntriesHittingTheCapGiveTwoWarnings)
{
    const HostLists lists = listsOn("hcap2", "eth0");
    EXPECT_EQ(lists.local, (QStringList{"10.0.0.5", "10.1.0.5"}));
    EXPECT_EQ(lists.hosts, (range("10.0.0.", 1, 255, 5) + QStringList{"10.0.1.0", "10.0.1.1"}));
    EXPECT_EQ(lists.warnings, (QStringList{kCapWarning, kCapWarning}));
}

TEST_F(ScanHostsInNamespace, OwnAddressesAreRemovedAcrossEntries)
{
    const HostLists lists = listsOn("hmulti", "eth0");
    EXPECT_EQ(lists.local, (QStringList{"192.168.7.10", "192.168.7.11"}));
    QStringList expected = range("192.168.7.", 1, 254);
    expected.removeAll("192.168.7.10");
    expected.removeAll("192.168.7.11");
    EXPECT_EQ(lists.hosts, expected);
    EXPECT_TRUE(lists.warnings.isEmpty());
}

TEST_F(ScanHostsInNamespace, CapIsSharedByAllInterfacesOfAnEmptyName)
{
    const HostLists lists = listsOn("hmulti", "");
    EXPECT_EQ(lists.local, (QStringList{"192.168.7.10", "192.168.7.11", "192.168.8.10"}));
    // eth0 fills 254 places (its second address lists the first one), eth1 adds two.
    QStringList expected = range("192.168.7.", 1, 254) + QStringList{"192.168.8.1", "192.168.8.2"};
    expected.removeAll("192.168.7.10");
    expected.removeAll("192.168.7.11");
    EXPECT_EQ(lists.hosts, expected);
    EXPECT_EQ(lists.warnings, QStringList{QStringLiteral("TCP subnet scan is limited to 256 hosts on eth1")});
}

TEST_F(ScanHostsInNamespace, SecondInterfaceByName)
{
    const HostLists lists = listsOn("hmulti", "eth1");
    EXPECT_EQ(lists.local, QStringList{"192.168.8.10"});
    EXPECT_EQ(lists.hosts, range("192.168.8.", 1, 254, 10));
    EXPECT_TRUE(lists.warnings.isEmpty());
}
