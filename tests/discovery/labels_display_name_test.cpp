#include "discovery/labels.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

namespace {

Candidate at(const QString& host, quint16 port, const QString& endpointUrl = QString())
{
    Candidate c;
    c.host = host;
    c.port = port;
    c.endpointUrl = endpointUrl;
    return c;
}

} // namespace

TEST(CandidateDisplayName, GatewayInstanceNameBeatsEverything)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationUri = QStringLiteral("urn:Line 4.Press.ovrin-connect");
    c.applicationName = QStringLiteral("ovrin connect");
    c.productUri = QStringLiteral("urn:vendor:product");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Line 4 Press (10.0.0.5:4840)"));
}

TEST(CandidateDisplayName, ApplicationNameIsTrimmed)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("  Press  ");
    c.applicationUri = QStringLiteral("urn:press:server");
    c.productUri = QStringLiteral("urn:vendor:product");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Press (10.0.0.5:4840)"));
}

TEST(CandidateDisplayName, ProductUriTailBeatsApplicationUriTail)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationName = QStringLiteral("   ");
    c.applicationUri = QStringLiteral("urn:plant:line1:Server");
    c.productUri = QStringLiteral("http://vendor.example/products/PressControl/");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("PressControl (10.0.0.5:4840)"));
}

TEST(CandidateDisplayName, ApplicationUriTailComesLast)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840);
    c.applicationUri = QStringLiteral("urn:plant:line1:Server/");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Server (10.0.0.5:4840)"));
}

TEST(CandidateDisplayName, LocalServerWithoutName)
{
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("127.0.0.1"), 4840)),
              QStringLiteral("Local OPC UA server (opc.tcp://127.0.0.1:4840)"));
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("127.0.1.1"), 4841, QStringLiteral("opc.tcp://127.0.1.1:4841/ua"))),
              QStringLiteral("Local OPC UA server (opc.tcp://127.0.1.1:4841/ua)"));
}

TEST(CandidateDisplayName, LocalServerWithName)
{
    Candidate c = at(QStringLiteral("127.0.0.1"), 4840);
    c.applicationName = QStringLiteral("Press");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Press (this gateway)"));
    c.host = QStringLiteral("127.45.0.3");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Press (this gateway)"));
}

TEST(CandidateDisplayName, LocalMeansTheLoopbackPrefixOnly)
{
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("1270.0.0.1"), 4840)), QStringLiteral("OPC UA (1270.0.0.1:4840)"));
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("localhost"), 4840)), QStringLiteral("OPC UA (localhost:4840)"));
}

TEST(CandidateDisplayName, RemoteServerWithoutName)
{
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("10.0.0.5"), 4840)), QStringLiteral("OPC UA (10.0.0.5:4840)"));
    EXPECT_EQ(candidateDisplayName(at(QStringLiteral("10.0.0.5"), 4840, QStringLiteral("opc.tcp://10.0.0.5:4840/ua/server"))),
              QStringLiteral("OPC UA (10.0.0.5:4840/ua/server)"));
}

TEST(CandidateDisplayName, WhereUsesTheScannedPortAndTheEndpointPath)
{
    Candidate c = at(QStringLiteral("10.0.0.5"), 4840, QStringLiteral("opc.tcp://10.0.0.5:4999/x"));
    c.applicationName = QStringLiteral("Press");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Press (10.0.0.5:4840/x)"));
}

TEST(CandidateDisplayName, DiscoveryServerRole)
{
    Candidate c = at(QStringLiteral("10.0.0.9"), 4840);
    c.applicationName = QStringLiteral("LDS");
    c.applicationType = QStringLiteral("Discovery Server");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("LDS (Discovery Server, 10.0.0.9:4840)"));
    c.applicationType = QStringLiteral("discovery");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("LDS (Discovery Server, 10.0.0.9:4840)"));
    c.host = QStringLiteral("127.0.0.1");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("LDS (Discovery Server, this gateway)"));
}

TEST(CandidateDisplayName, ClientAndServerRole)
{
    Candidate c = at(QStringLiteral("10.0.0.9"), 4840);
    c.applicationName = QStringLiteral("HMI");
    c.applicationType = QStringLiteral("Client and Server");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("HMI (Client and Server, 10.0.0.9:4840)"));
    c.applicationType = QStringLiteral("client");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("HMI (client, 10.0.0.9:4840)"));
}

TEST(CandidateDisplayName, PlainServersGetNoRole)
{
    Candidate c = at(QStringLiteral("10.0.0.9"), 4840);
    c.applicationName = QStringLiteral("PLC");
    c.applicationType = QStringLiteral("Server");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("PLC (10.0.0.9:4840)"));
}

TEST(CandidateDisplayName, RoleWithoutNameIsNotShown)
{
    Candidate c = at(QStringLiteral("10.0.0.9"), 4840);
    c.applicationType = QStringLiteral("Discovery Server");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("OPC UA (10.0.0.9:4840)"));
}

TEST(CandidateDisplayName, PlaceholdersInNamesStayLiteral)
{
    Candidate c = at(QStringLiteral("10.0.0.9"), 4840);
    c.applicationName = QStringLiteral("Press %2");
    c.applicationType = QStringLiteral("Client %3");
    EXPECT_EQ(candidateDisplayName(c), QStringLiteral("Press %2 (Client %3, 10.0.0.9:4840)"));
}
