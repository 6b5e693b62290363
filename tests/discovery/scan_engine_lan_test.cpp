#include "scan_netns_support.h"

#include <QJsonArray>

#include <algorithm>

using scan_test::describe;
using scan_test::stringsOf;
using test_support::NetLan;

namespace {

struct Found
{
    QString host;
    int port;
    QString endpointUrl;
    QString source;
    bool operator<(const Found& o) const { return std::tie(host, port) < std::tie(o.host, o.port); }
    bool operator==(const Found& o) const
    {
        return host == o.host && port == o.port && endpointUrl == o.endpointUrl && source == o.source;
    }
};

void PrintTo(const Found& f, std::ostream* os)
{
    *os << f.host.toStdString() << ":" << f.port << " " << f.endpointUrl.toStdString() << " "
        << f.source.toStdString();
}

Found tcp(const QString& host, int port)
{
    return {host, port, QStringLiteral("opc.tcp://%1:%2").arg(host, QString::number(port)), QStringLiteral("tcp")};
}

std::vector<Found> candidatesOf(const QJsonObject& json)
{
    std::vector<Found> found;
    for (const QJsonValue& v : json.value("candidates").toArray()) {
        const QJsonObject o = v.toObject();
        found.push_back({o.value("host").toString(), o.value("port").toInt(), o.value("endpointUrl").toString(),
                         o.value("source").toString()});
    }
    std::sort(found.begin(), found.end());
    return found;
}

// A /24 with the gateway and three servers: s1 answers Acknowledge on 4840 and 4841,
// s2 on 4841, s3 an Error message on 4840; "quiet" runs no server at all.
class ScanOnLan : public ::testing::Test
{
protected:
    static void TearDownTestSuite() { lan.reset(); }

    void SetUp() override
    {
        REQUIRE_NETNS();
        if (lan)
            return;
        lan = std::make_unique<NetLan>(QStringLiteral("scanlan"));
        QString error;
        if (!lan->up({"--subnet", "10.20.30.0/24", "--gateway", "gw=10.20.30.1/24", "--host", "s1=10.20.30.11/24",
                      "--host", "s2=10.20.30.12/24", "--host", "s3=10.20.30.13/24", "--host",
                      "quiet=10.20.30.200/24"},
                     &error)) {
            lan.reset();
            FAIL() << error.toStdString();
        }
        const QString responder = QStringLiteral(ACK_RESPONDER);
        ASSERT_GT(lan->spawn("s1", responder, {"4840", "4841"}), 0);
        ASSERT_GT(lan->spawn("s2", responder, {"4841"}), 0);
        ASSERT_GT(lan->spawn("s3", responder, {"--error", "4840"}), 0);
        ASSERT_TRUE(lan->waitForTcpListener("s1", 4841, 60000)) << lan->spawnLogs("s1").toStdString();
        ASSERT_TRUE(lan->waitForTcpListener("s2", 4841, 60000)) << lan->spawnLogs("s2").toStdString();
        ASSERT_TRUE(lan->waitForTcpListener("s3", 4840, 60000)) << lan->spawnLogs("s3").toStdString();
    }

    static QJsonObject scan(const QStringList& extra, test_support::ProcessResult* raw = nullptr,
                            const QString& debug = QString())
    {
        QStringList args;
        if (!debug.isEmpty())
            args << "OVRIN_DISCOVERY_DEBUG=" + debug;
        args << QStringLiteral(SCAN_DRIVER) << "--interface" << "eth0" << "--ports" << "4840-4841" << "--timeout"
             << "60000" << extra;
        const auto r = lan->exec("gw", "env", args, 120000);
        EXPECT_TRUE(r.finished);
        EXPECT_EQ(r.exitCode, 0) << describe(r);
        EXPECT_FALSE(r.err.contains("ThreadSanitizer")) << r.err.toStdString();
        EXPECT_FALSE(r.err.contains("AddressSanitizer")) << r.err.toStdString();
        EXPECT_FALSE(r.err.contains("runtime error")) << r.err.toStdString();
        if (raw)
            *raw = r;
        return scan_test::jsonOf(r);
    }

    static std::unique_ptr<NetLan> lan;
};

std::unique_ptr<NetLan> ScanOnLan::lan;

} // namespace

TEST_F(ScanOnLan, FindsEveryAnsweringPortOfTheSubnet)
{
    test_support::ProcessResult raw;
    const QJsonObject json = scan({}, &raw);
    const std::vector<Found> expected{tcp("10.20.30.11", 4840), tcp("10.20.30.11", 4841), tcp("10.20.30.12", 4841),
                                      tcp("10.20.30.13", 4840)};
    EXPECT_EQ(candidatesOf(json), expected);
    EXPECT_EQ(stringsOf(json.value("warnings")),
              QStringList{"OPC UA discovery probes on TCP 4840,4841. Imported security is None; certificates stay unset."});
    EXPECT_TRUE(raw.err.isEmpty()) << raw.err.toStdString();
}

TEST_F(ScanOnLan, NoThreadOrDescriptorOutlivesTheScan)
{
    const QJsonObject json = scan({});
    EXPECT_EQ(json.value("threadsAfter").toInt(), json.value("threadsBefore").toInt());
    EXPECT_EQ(json.value("fdsAfter").toInt(), json.value("fdsBefore").toInt());
    EXPECT_GT(json.value("threadsBefore").toInt(), 0);
}

TEST_F(ScanOnLan, KnownDevicesAreLeftOut)
{
    const QJsonObject json = scan({"--existing", "opcua_10_20_30_11_4840", "--existing", "opcua_10_20_30_13_4840"});
    const std::vector<Found> expected{tcp("10.20.30.11", 4841), tcp("10.20.30.12", 4841)};
    EXPECT_EQ(candidatesOf(json), expected);
}

TEST_F(ScanOnLan, DebugLineCountsTheCandidates)
{
    test_support::ProcessResult raw;
    scan({"--host", "10.20.30.11", "--host", "10.20.30.200"}, &raw, "1");
    EXPECT_EQ(raw.err, QByteArray("OPC UA discovery importable=2\n"));
}

TEST_F(ScanOnLan, ExtraHostsReplaceTheSubnet)
{
    const QJsonObject json = scan({"--host", "10.20.30.12", "--host", "10.20.30.200", "--host", "0.0.0.0"});
    const std::vector<Found> expected{tcp("10.20.30.12", 4841)};
    EXPECT_EQ(candidatesOf(json), expected);
}
