#include "discovery/labels.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

namespace {

EndpointOffer offer(int mode, const QString& policy, bool anonymous, bool username)
{
    EndpointOffer o;
    o.endpointUrl = QStringLiteral("opc.tcp://10.0.0.5:4840");
    o.securityMode = mode;
    o.securityPolicyUri = policy;
    o.anonymous = anonymous;
    o.username = username;
    return o;
}

const QString kPolicyBasic256Sha256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");

} // namespace

TEST(ApplicationTypeLabel, EveryRow)
{
    EXPECT_EQ(applicationTypeLabel(0), QStringLiteral("Server"));
    EXPECT_EQ(applicationTypeLabel(1), QStringLiteral("Server"));
    EXPECT_EQ(applicationTypeLabel(2), QStringLiteral("Client and Server"));
    EXPECT_EQ(applicationTypeLabel(3), QStringLiteral("Discovery Server"));
    EXPECT_EQ(applicationTypeLabel(4), QStringLiteral("Server"));
    EXPECT_EQ(applicationTypeLabel(-1), QStringLiteral("Server"));
}

TEST(SecurityModeLabel, EveryRow)
{
    EXPECT_EQ(securityModeLabel(0), QStringLiteral("None"));
    EXPECT_EQ(securityModeLabel(1), QStringLiteral("None"));
    EXPECT_EQ(securityModeLabel(2), QStringLiteral("Sign"));
    EXPECT_EQ(securityModeLabel(3), QStringLiteral("Sign & Encrypt"));
    EXPECT_EQ(securityModeLabel(4), QStringLiteral("None"));
    EXPECT_EQ(securityModeLabel(-2), QStringLiteral("None"));
}

TEST(SecurityPolicyLabel, TextAfterTheLastHash)
{
    EXPECT_EQ(securityPolicyLabel(kPolicyBasic256Sha256), QStringLiteral("Basic256Sha256"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None")), QStringLiteral("None"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("a#b#c")), QStringLiteral("c"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("#x")), QStringLiteral("x"));
}

TEST(SecurityPolicyLabel, EdgeCases)
{
    EXPECT_EQ(securityPolicyLabel(QString()), QStringLiteral("None"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#")),
              QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("#")), QStringLiteral("#"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral("Basic256")), QStringLiteral("Basic256"));
    EXPECT_EQ(securityPolicyLabel(QStringLiteral(" ")), QStringLiteral(" "));
}

TEST(OvrinConnectInstanceName, GatewayClientUris)
{
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:Line 4.Press.ovrin-connect")), QStringLiteral("Line 4 Press"));
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("  URN:Hall.OVRIN-Connect\n")), QStringLiteral("Hall"));
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:.Line.5..ovrin-connect")), QStringLiteral("Line 5"));
}

TEST(OvrinConnectInstanceName, OtherUrisGiveNothing)
{
    EXPECT_EQ(ovrinConnectInstanceName(QString()), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:.ovrin-connect")), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:...ovrin-connect")), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:press:server")), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("http://Line.ovrin-connect")), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:Line.ovrin-connect:x")), QString());
    EXPECT_EQ(ovrinConnectInstanceName(QStringLiteral("urn:Lineovrin-connect")), QString());
}

TEST(EndpointSummary, EveryTokenText)
{
    EXPECT_EQ(endpointSummary(offer(1, QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None"), true, true)),
              QStringLiteral("None / None (anonymous or username)"));
    EXPECT_EQ(endpointSummary(offer(2, kPolicyBasic256Sha256, true, false)),
              QStringLiteral("Sign / Basic256Sha256 (anonymous)"));
    EXPECT_EQ(endpointSummary(offer(3, kPolicyBasic256Sha256, false, true)),
              QStringLiteral("Sign & Encrypt / Basic256Sha256 (username required)"));
    EXPECT_EQ(endpointSummary(offer(3, QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic128Rsa15"), false,
                                    false)),
              QStringLiteral("Sign & Encrypt / Basic128Rsa15 (no supported user token)"));
}

TEST(EndpointSummary, UnknownModeAndEmptyPolicyReadAsNone)
{
    EXPECT_EQ(endpointSummary(offer(0, QString(), true, false)), QStringLiteral("None / None (anonymous)"));
    EXPECT_EQ(endpointSummary(offer(7, QStringLiteral("Custom%1"), false, true)),
              QStringLiteral("None / Custom%1 (username required)"));
}
