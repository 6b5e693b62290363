#include "discovery/endpoint_selection.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

namespace {

const QString kPolicyBasic256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256");

Candidate scannedPress()
{
    Candidate c;
    c.host = QStringLiteral("10.0.0.5");
    c.port = 4840;
    c.source = QStringLiteral("tcp");
    c.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    c.advertisedEndpointUrl = QStringLiteral("opc.tcp://press:4840");
    c.securityMode = 2;
    c.securityPolicyUri = kPolicyBasic256;
    c.anonymousOffered = true;
    c.usernameOffered = true;
    c.endpointSelected = true;
    c.offeredEndpoints = QStringList{QStringLiteral("Sign / Basic256 (anonymous or username)")};
    c.applicationName = QStringLiteral("Press");
    c.applicationUri = QStringLiteral("urn:press:server");
    c.productUri = QStringLiteral("urn:vendor:press");
    c.applicationType = QStringLiteral("Server");
    c.capabilities = QStringList{QStringLiteral("DA")};
    return c;
}

DiscoveredServer server(const QString& url, const QString& name = QString(), const QString& uri = QString(),
                        const QString& type = QString(), const QStringList& capabilities = {})
{
    DiscoveredServer s;
    s.discoveryUrl = url;
    s.applicationName = name;
    s.applicationUri = uri;
    s.applicationType = type;
    s.capabilities = capabilities;
    return s;
}

QStringList endpointsOf(const QList<Candidate>& candidates)
{
    QStringList urls;
    for (const Candidate& c : candidates)
        urls.append(c.endpointUrl);
    return urls;
}

} // namespace

TEST(MergeFindServers, NoServersGivesThePrimaryAlone)
{
    const Candidate base = scannedPress();
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(base, QList<DiscoveredServer>{});
    ASSERT_EQ(result.size(), 1);
    EXPECT_EQ(result.first().endpointUrl, base.endpointUrl);
    EXPECT_EQ(result.first().applicationName, QStringLiteral("Press"));
    EXPECT_EQ(result.first().source, QStringLiteral("tcp"));
}

TEST(MergeFindServers, HostNameOfTheScannedServerFoldsIntoThePrimary)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://press.plant.local:4840"),
                                                       QStringLiteral(" Press 2 "), QString(),
                                                       QStringLiteral("Client and Server"),
                                                       {QStringLiteral("DA"), QStringLiteral("HD")})});
    ASSERT_EQ(result.size(), 1);
    const Candidate& primary = result.first();
    EXPECT_EQ(primary.endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840"));
    EXPECT_EQ(primary.applicationName, QStringLiteral("Press 2"));
    EXPECT_EQ(primary.applicationUri, QStringLiteral("urn:press:server"));
    EXPECT_EQ(primary.productUri, QStringLiteral("urn:vendor:press"));
    EXPECT_EQ(primary.applicationType, QStringLiteral("Client and Server"));
    EXPECT_EQ(primary.capabilities, (QStringList{QStringLiteral("DA"), QStringLiteral("HD")}));
    EXPECT_EQ(primary.source, QStringLiteral("tcp"));
    EXPECT_TRUE(primary.endpointSelected);
    EXPECT_EQ(primary.advertisedEndpointUrl, QStringLiteral("opc.tcp://press:4840"));
}

TEST(MergeFindServers, ScannedAddressAndChosenEndpointBothFold)
{
    Candidate base = scannedPress();
    base.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840/ua");
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        base, QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://10.0.0.5:4840/ua"), QStringLiteral("A")),
                                      server(QStringLiteral("opc.tcp://10.0.0.5:4840/"), QString(), QStringLiteral("urn:b")),
                                      server(QStringLiteral("opc.tcp://press:4840/ua"), QString(), QString(),
                                             QStringLiteral("Discovery Server"))});
    ASSERT_EQ(result.size(), 1);
    EXPECT_EQ(result.first().endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840/ua"));
    EXPECT_EQ(result.first().applicationName, QStringLiteral("A"));
    EXPECT_EQ(result.first().applicationUri, QStringLiteral("urn:b"));
    EXPECT_EQ(result.first().applicationType, QStringLiteral("Discovery Server"));
}

TEST(MergeFindServers, Ipv4DiscoveryUrlBecomesANewCandidate)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(),
        QList<DiscoveredServer>{server(QStringLiteral("  opc.tcp://10.0.0.7:4841/ua/server  "), QStringLiteral(" Robot "),
                                       QStringLiteral("urn:robot"), QStringLiteral("Server"),
                                       {QStringLiteral(" LDS "), QStringLiteral("LDS")})});
    ASSERT_EQ(result.size(), 2);
    EXPECT_EQ(result.at(0).endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840"));
    EXPECT_EQ(result.at(0).applicationName, QStringLiteral("Press"));

    const Candidate& found = result.at(1);
    EXPECT_EQ(found.host, QStringLiteral("10.0.0.7"));
    EXPECT_EQ(found.port, 4841);
    EXPECT_EQ(found.endpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4841/ua/server"));
    EXPECT_EQ(found.source, QStringLiteral("findservers"));
    EXPECT_EQ(found.advertisedEndpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4841/ua/server"));
    EXPECT_FALSE(found.endpointSelected);
    EXPECT_TRUE(found.offeredEndpoints.isEmpty());
    EXPECT_EQ(found.applicationName, QStringLiteral("Robot"));
    EXPECT_EQ(found.applicationUri, QStringLiteral("urn:robot"));
    EXPECT_TRUE(found.productUri.isEmpty());
    EXPECT_EQ(found.applicationType, QStringLiteral("Server"));
    EXPECT_EQ(found.capabilities, QStringList{QStringLiteral("LDS")});
    // The security fields of the scanned candidate are kept as they were.
    EXPECT_EQ(found.securityMode, 2);
    EXPECT_EQ(found.securityPolicyUri, kPolicyBasic256);
    EXPECT_TRUE(found.anonymousOffered);
    EXPECT_TRUE(found.usernameOffered);
}

TEST(MergeFindServers, HostNameOnAnotherPortBecomesACandidateAtTheScannedAddress)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://press:4850")),
                                                server(QStringLiteral("opc.tcp://press:4840/other"))});
    EXPECT_EQ(endpointsOf(result), (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"),
                                                QStringLiteral("opc.tcp://10.0.0.5:4850"),
                                                QStringLiteral("opc.tcp://10.0.0.5:4840/other")}));
    EXPECT_EQ(result.at(1).host, QStringLiteral("10.0.0.5"));
    EXPECT_EQ(result.at(1).port, 4850);
    EXPECT_EQ(result.at(1).advertisedEndpointUrl, QStringLiteral("opc.tcp://press:4850"));
    EXPECT_TRUE(result.at(1).applicationName.isEmpty());
    EXPECT_TRUE(result.at(1).capabilities.isEmpty());
}

TEST(MergeFindServers, UrlsThatRewriteAlikeGiveOneCandidate)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://10.0.0.7:4840"), QStringLiteral("First")),
                                                server(QStringLiteral("OPC.TCP://10.0.0.7:4840/"), QStringLiteral("Second")),
                                                server(QStringLiteral("opc.tcp://10.0.0.7"), QStringLiteral("Third"))});
    ASSERT_EQ(result.size(), 2);
    EXPECT_EQ(result.at(1).endpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4840"));
    EXPECT_EQ(result.at(1).applicationName, QStringLiteral("First"));
    EXPECT_EQ(result.at(1).advertisedEndpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4840"));
}

TEST(MergeFindServers, NonOpcTcpUrlsAreSkipped)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("http://10.0.0.7:4840"), QStringLiteral("Web")),
                                                server(QStringLiteral("opc.https://10.0.0.7:4843"), QStringLiteral("Https")),
                                                server(QStringLiteral("opc.wss://10.0.0.7:443")),
                                                server(QString(), QStringLiteral("Empty")),
                                                server(QStringLiteral("opc.tcp://[::1]:4840"), QStringLiteral("Six"))});
    ASSERT_EQ(result.size(), 1);
    EXPECT_EQ(result.first().applicationName, QStringLiteral("Press"));
}

TEST(MergeFindServers, ThePrimaryStaysFirst)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://10.0.0.9:4840")),
                                                server(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Self")),
                                                server(QStringLiteral("opc.tcp://10.0.0.8:4840"))});
    EXPECT_EQ(endpointsOf(result), (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"),
                                                QStringLiteral("opc.tcp://10.0.0.9:4840"),
                                                QStringLiteral("opc.tcp://10.0.0.8:4840")}));
    EXPECT_EQ(result.first().applicationName, QStringLiteral("Self"));
    EXPECT_EQ(result.first().source, QStringLiteral("tcp"));
}

TEST(MergeFindServers, PortZeroInADiscoveryUrlMeansTheDefaultPort)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(), QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://press:0"), QStringLiteral("Self")),
                                                server(QStringLiteral("opc.tcp://10.0.0.7:0/x"))});
    EXPECT_EQ(endpointsOf(result),
              (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("opc.tcp://10.0.0.7:4840/x")}));
    EXPECT_EQ(result.first().applicationName, QStringLiteral("Self"));
    EXPECT_EQ(result.at(1).port, 4840);
}

TEST(MergeFindServers, PrimaryWithoutEndpointUrlIsKeyedByItsScannedAddress)
{
    Candidate base;
    base.host = QStringLiteral("10.0.0.5");
    base.port = 53530;
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        base, QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://lds:53530"), QStringLiteral("LDS")),
                                      server(QStringLiteral("opc.tcp://10.0.0.5:53530"), QString(), QString(),
                                             QStringLiteral("Discovery Server"))});
    ASSERT_EQ(result.size(), 1);
    EXPECT_TRUE(result.first().endpointUrl.isEmpty());
    EXPECT_EQ(result.first().applicationName, QStringLiteral("LDS"));
    EXPECT_EQ(result.first().applicationType, QStringLiteral("Discovery Server"));
}

TEST(MergeFindServers, HostNameIsSkippedWhenTheScannedHostIsUnknown)
{
    Candidate base;
    base.port = 4840;
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        base, QList<DiscoveredServer>{server(QStringLiteral("opc.tcp://press:4841"), QStringLiteral("Press")),
                                      server(QStringLiteral("opc.tcp://10.0.0.7:4841"), QStringLiteral("Robot"))});
    ASSERT_EQ(result.size(), 2);
    EXPECT_TRUE(result.first().applicationName.isEmpty());
    EXPECT_EQ(result.at(1).endpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4841"));
    EXPECT_EQ(result.at(1).applicationName, QStringLiteral("Robot"));
}

TEST(MergeFindServers, BareUrlsCarryNoIdentity)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(
        scannedPress(),
        QStringList{QStringLiteral("opc.tcp://press:4840"), QStringLiteral(" opc.tcp://10.0.0.7:4840 "),
                    QStringLiteral("opc.tcp://10.0.0.7:4840/"), QStringLiteral("http://10.0.0.8:4840"),
                    QStringLiteral("opc.tcp://10.0.0.8:4842")});
    EXPECT_EQ(endpointsOf(result), (QStringList{QStringLiteral("opc.tcp://10.0.0.5:4840"),
                                                QStringLiteral("opc.tcp://10.0.0.7:4840"),
                                                QStringLiteral("opc.tcp://10.0.0.8:4842")}));
    EXPECT_EQ(result.first().applicationName, QStringLiteral("Press"));
    EXPECT_EQ(result.first().capabilities, QStringList{QStringLiteral("DA")});
    for (int i = 1; i < result.size(); ++i) {
        EXPECT_EQ(result.at(i).source, QStringLiteral("findservers"));
        EXPECT_TRUE(result.at(i).applicationName.isEmpty());
        EXPECT_TRUE(result.at(i).applicationUri.isEmpty());
        EXPECT_TRUE(result.at(i).productUri.isEmpty());
        EXPECT_TRUE(result.at(i).applicationType.isEmpty());
        EXPECT_TRUE(result.at(i).capabilities.isEmpty());
    }
    EXPECT_EQ(result.at(1).advertisedEndpointUrl, QStringLiteral("opc.tcp://10.0.0.7:4840"));
}

TEST(MergeFindServers, BareUrlListMayBeEmpty)
{
    const QList<Candidate> result = mergeFindServersDiscoveryUrls(scannedPress(), QStringList{});
    ASSERT_EQ(result.size(), 1);
    EXPECT_EQ(result.first().endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840"));
}
