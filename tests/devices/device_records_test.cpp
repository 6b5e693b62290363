// The parts of the devices pipeline that need no server: the identity an application description
// gives, and the choice made from a GetEndpoints answer.

#include "devices/device_records.h"
#include "devices/server_queries.h"

#include <gtest/gtest.h>

#include <cstdlib>

using OpcUaDiscovery::Candidate;
using OpcUaDiscovery::DiscoveredServer;
using OpcUaDiscovery::EndpointOffer;
using OpcUaDiscovery::EndpointsAnswer;
using OpcUaDiscovery::applyEndpointsAnswer;
using OpcUaDiscovery::identityFromApplication;

inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

Candidate scanned()
{
    Candidate c;
    c.host = QStringLiteral("10.0.0.5");
    c.port = 4840;
    c.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    c.source = QStringLiteral("tcp");
    return c;
}

// An answer of one anonymous None endpoint at url, described as the server named name.
EndpointsAnswer answerOfOne(const QString& url, const QString& name)
{
    EndpointOffer offer;
    offer.endpointUrl = url;
    offer.securityPolicyUri = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
    offer.anonymous = true;
    DiscoveredServer server;
    server.applicationName = name;
    EndpointsAnswer answer;
    answer.asked = true;
    answer.answered = true;
    answer.offers = {offer};
    answer.describedServers = {server};
    return answer;
}

} // namespace

TEST(IdentityFromApplication, CopiesNameUrisAndTypeLabelOnly)
{
    Ua::ApplicationInfo app;
    app.name = QString::fromUtf8("Pr\xc3\xa4sse 4");
    app.uri = QStringLiteral("urn:plant:press");
    app.productUri = QStringLiteral("urn:vendor:product");
    app.type = 2;
    app.discoveryUrls = QStringList{QStringLiteral("opc.tcp://10.0.0.1:4840")};

    const DiscoveredServer server = identityFromApplication(app);
    EXPECT_EQ(server.applicationName, QString::fromUtf8("Pr\xc3\xa4sse 4"));
    EXPECT_EQ(server.applicationUri, "urn:plant:press");
    EXPECT_EQ(server.productUri, "urn:vendor:product");
    EXPECT_EQ(server.applicationType, "Client and Server");
    EXPECT_TRUE(server.discoveryUrl.isEmpty());
    EXPECT_TRUE(server.capabilities.isEmpty());
}

TEST(IdentityFromApplication, EmptyTextsStayEmptyAndClientsReadAsServers)
{
    Ua::ApplicationInfo app;
    app.type = 3;
    const DiscoveredServer server = identityFromApplication(app);
    EXPECT_TRUE(server.applicationName.isEmpty());
    EXPECT_TRUE(server.applicationUri.isEmpty());
    EXPECT_TRUE(server.productUri.isEmpty());
    EXPECT_EQ(server.applicationType, "Discovery Server");

    Ua::ApplicationInfo client;
    client.type = 1;
    EXPECT_EQ(identityFromApplication(client).applicationType, "Server");
}

TEST(ApplyEndpointsAnswerDeathTest, NullCandidateIsIgnored)
{
    const EndpointsAnswer answer = answerOfOne(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Press"));
    EXPECT_EXIT(
        {
            applyEndpointsAnswer(nullptr, answer);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST(ApplyEndpointsAnswer, ChoosesTheEndpointAndTakesTheIdentity)
{
    Candidate candidate = scanned();
    applyEndpointsAnswer(&candidate, answerOfOne(QStringLiteral("opc.tcp://plc-7.invalid:4840"), QStringLiteral("Press")));
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 1);
    EXPECT_EQ(candidate.advertisedEndpointUrl, "opc.tcp://plc-7.invalid:4840");
    EXPECT_EQ(candidate.endpointUrl, "opc.tcp://10.0.0.5:4840");
    EXPECT_EQ(candidate.applicationName, "Press");
}

TEST(ApplyEndpointsAnswer, AnswerThatIsNotGoodLeavesTheCandidateAsItWas)
{
    EndpointsAnswer answer = answerOfOne(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Press"));
    answer.answered = false;
    Candidate candidate = scanned();
    applyEndpointsAnswer(&candidate, answer);
    EXPECT_FALSE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 0);
    EXPECT_TRUE(candidate.offeredEndpoints.isEmpty());
    EXPECT_TRUE(candidate.applicationName.isEmpty());
}

TEST(ApplyEndpointsAnswer, OverlongEndpointsCountAsNotOffered)
{
    const QString overlong = QStringLiteral("opc.tcp://10.0.0.5:4840/") + QString(4096, QLatin1Char('p'));
    Candidate candidate = scanned();
    applyEndpointsAnswer(&candidate, answerOfOne(overlong, QStringLiteral("Press")));
    EXPECT_FALSE(candidate.endpointSelected);
    EXPECT_TRUE(candidate.offeredEndpoints.isEmpty());
    EXPECT_TRUE(candidate.applicationName.isEmpty());
}

TEST(ApplyEndpointsAnswer, TheEndpointAtTheCandidatesUrlNamesTheServer)
{
    EndpointsAnswer answer = answerOfOne(QStringLiteral("opc.tcp://10.0.0.5:4841"), QStringLiteral("Other"));
    const EndpointsAnswer own = answerOfOne(QStringLiteral("opc.tcp://10.0.0.5:4840"), QStringLiteral("Press"));
    answer.offers += own.offers;
    answer.describedServers += own.describedServers;
    Candidate candidate = scanned();
    applyEndpointsAnswer(&candidate, answer);
    EXPECT_EQ(candidate.applicationName, "Press");
}
