// discover_devices against a discovery peer that floods it: the built discover process on the
// gateway of a private LAN of namespaces, and opcua_flood_peer answering FindServers,
// FindServersOnNetwork and GetEndpoints with many entries and long strings. The job stays
// within its bounds and still reports the peer itself.

#include "tests/process/devices/devices_lan.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

using devices_test::deviceRecord;
using devices_test::DevicesLan;
using devices_test::DiscoverRun;
using devices_test::expectCleanRun;
using devices_test::lanIp;
using devices_test::lanUid;
using devices_test::lanUrl;

namespace {

constexpr int kPeer = 20;
// The scan and the queries each get the budget; the process gets both and a generous slack on a
// loaded machine.
constexpr int kBudgetMs = 5000;
constexpr int kProcessTimeoutMs = 90000;
constexpr int kListedPort = 4841;

const QString kProbesNote =
    QStringLiteral("OPC UA discovery probes on TCP 4840. Imported security is None; certificates stay unset.");

QJsonObject request(int timeoutMs)
{
    return QJsonObject{{"tcp_ports", "4840"}, {"timeout_ms", timeoutMs}};
}

QJsonArray devicesOf(const DiscoverRun& run)
{
    return run.document.value("devices").toArray();
}

QJsonArray warningsOf(const DiscoverRun& run)
{
    return run.document.value("warnings").toArray();
}

// The record of the peer itself, answered in full: its name, its own URI, one None endpoint.
QJsonObject peerRecord(const QString& name, const QString& capabilities = QString())
{
    const QString url = lanUrl(kPeer, 4840);
    return deviceRecord(url, QStringLiteral("%1 (%2:4840)").arg(name, lanIp(kPeer)),
                        QStringLiteral("OPC UA server at %1. Application URI urn:flood:self. Server.%2 Imported as "
                                       "None / None; anonymous. Offered: None / None (anonymous)")
                            .arg(url, capabilities.isEmpty() ? QString() : QStringLiteral(" Capabilities %1.").arg(capabilities)),
                        lanUid(kPeer, 4840));
}

// A server the peer listed at a port where nothing listens: reported with what the discovery
// answer said of it.
QJsonObject listedRecord(const QString& name, const QString& path, const QString& uri = QString())
{
    const QString url = lanUrl(kPeer, kListedPort, path);
    return deviceRecord(url, QStringLiteral("%1 (%2:%3%4)").arg(name, lanIp(kPeer)).arg(kListedPort).arg(path),
                        QStringLiteral("OPC UA server at %1.%2 Imported as None / None")
                            .arg(url, uri.isEmpty() ? QString() : QStringLiteral(" Application URI %1. Server.").arg(uri)),
                        lanUid(kPeer, kListedPort, path));
}

class DiscoverDevicesFlood : public ::testing::Test
{
protected:
    void SetUp() override { REQUIRE_NETNS(); }

    void peer(const QStringList& options)
    {
        QString error;
        ASSERT_TRUE(lan.up({QStringLiteral("flood=%1").arg(kPeer)}, &error)) << error.toStdString();
        ASSERT_TRUE(lan.startProgram("flood", 4840, OPCUA_FLOOD_PEER_EXECUTABLE,
                                     QStringList{lanIp(kPeer), "4840"} + options, &error))
            << error.toStdString();
    }

    DevicesLan lan;
};

} // namespace

TEST_F(DiscoverDevicesFlood, EachDiscoveryAnswerAddsAtMost1024CandidatesAndNamesWhatItLeftOut)
{
    ASSERT_NO_FATAL_FAILURE(peer({"--find-servers", "10000", "--on-network", "10000", "--listed-port",
                                  QString::number(kListedPort)}));
    const DiscoverRun run = lan.discover(request(kBudgetMs), {}, kProcessTimeoutMs);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    EXPECT_EQ(warningsOf(run),
              (QJsonArray{kProbesNote,
                          QStringLiteral("OPC UA discovery took the first 1024 servers that FindServers of %1 listed; "
                                         "8976 more were left out.")
                              .arg(lanUrl(kPeer, 4840)),
                          QStringLiteral("OPC UA discovery took the first 1024 servers that FindServersOnNetwork of "
                                         "%1 listed; 8976 more were left out.")
                              .arg(lanUrl(kPeer, 4840))}));
    const QJsonArray devices = devicesOf(run);
    ASSERT_EQ(devices.size(), 1 + 1024 + 1024);
    EXPECT_EQ(devices.at(0).toObject(), peerRecord("Flood"));
    // The first servers of each answer, in its order.
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(devices.at(1 + i).toObject(),
                  listedRecord(QStringLiteral("S%1").arg(i), QStringLiteral("/s%1").arg(i),
                               QStringLiteral("urn:flood:s%1").arg(i)))
            << i;
        ASSERT_EQ(devices.at(1 + 1024 + i).toObject(),
                  listedRecord(QStringLiteral("N%1").arg(i), QStringLiteral("/n%1").arg(i)))
            << i;
    }
}

TEST_F(DiscoverDevicesFlood, ServerWithManyCapabilitiesKeepsTheFirst64AndEndsInTime)
{
    ASSERT_NO_FATAL_FAILURE(peer({"--capabilities", "200000"}));
    const DiscoverRun run = lan.discover(request(kBudgetMs), {}, kProcessTimeoutMs);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    QStringList first64;
    for (int i = 0; i < 64; ++i)
        first64 << QStringLiteral("C%1").arg(i);
    EXPECT_EQ(warningsOf(run), QJsonArray{kProbesNote});
    EXPECT_EQ(devicesOf(run), QJsonArray{peerRecord("Flood", first64.join(", "))});
}

TEST_F(DiscoverDevicesFlood, ListedServersThatEndAtOneIdentifierGiveOneRecordTheFirst)
{
    // Every listed server advertises the peer's own endpoint: once asked, all of them stand for
    // the scanned address without a path.
    ASSERT_NO_FATAL_FAILURE(peer({"--find-servers", "50", "--endpoint-url", lanUrl(kPeer, 4840)}));
    const DiscoverRun run = lan.discover(request(60000), {}, kProcessTimeoutMs);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    EXPECT_EQ(warningsOf(run), QJsonArray{kProbesNote});
    EXPECT_EQ(devicesOf(run), QJsonArray{peerRecord("Flood")})
        << QJsonDocument(devicesOf(run)).toJson().toStdString();
}

TEST_F(DiscoverDevicesFlood, OverlongUrlsAreLeftOutAndAnOverlongNameIsCut)
{
    // FindServers lists a server at a 64 KiB URL, GetEndpoints offers first an endpoint at one,
    // and the peer's name has 100 000 characters.
    ASSERT_NO_FATAL_FAILURE(peer({"--long-url", "65536", "--long-name", "100000"}));
    const DiscoverRun run = lan.discover(request(60000), {}, kProcessTimeoutMs);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    EXPECT_EQ(warningsOf(run), QJsonArray{kProbesNote});
    EXPECT_EQ(devicesOf(run), QJsonArray{peerRecord(QString(512, QLatin1Char('N')))});
}

TEST_F(DiscoverDevicesFlood, GetEndpointsAnswerCountsWithItsFirst256Endpoints)
{
    ASSERT_NO_FATAL_FAILURE(peer({"--endpoints", "20000"}));
    const DiscoverRun run = lan.discover(request(kBudgetMs), {}, kProcessTimeoutMs);
    ASSERT_NO_FATAL_FAILURE(expectCleanRun(run));

    const QString one = QStringLiteral("None / None (anonymous)");
    QStringList first256;
    for (int i = 0; i < 256; ++i)
        first256 << one;
    QJsonObject expected = peerRecord("Flood");
    for (const QString& key : expected.keys()) {
        const QString text = expected.value(key).toString();
        if (text.contains(QStringLiteral("Offered: ")))
            expected.insert(key, QString(text).replace(QStringLiteral("Offered: ") + one,
                                                       QStringLiteral("Offered: ") + first256.join("; ")));
    }
    EXPECT_EQ(warningsOf(run), QJsonArray{kProbesNote});
    EXPECT_EQ(devicesOf(run), QJsonArray{expected});
}
