#include "discovery/labels.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

using namespace OpcUaDiscovery;

namespace {

const QString kPolicyNone = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
const QString kPolicyBasic256Sha256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");

const QStringList kAdvertised = {QStringLiteral("None / None (anonymous)"),
                                 QStringLiteral("Sign / Basic256Sha256 (username required)")};
const QString kOffers =
    QStringLiteral(" Server advertised: None / None (anonymous); Sign / Basic256Sha256 (username required).");

QString securityEndpointText(const QString& s, const QString& setting, const QString& offers)
{
    return QStringLiteral("OPC UA rejected the security endpoint (") + s + QStringLiteral("); ") + setting
        + QStringLiteral(".") + offers
        + QStringLiteral(" Edit Security Mode and Security Policy on the instance to a combination the server offers, "
                         "then scan again.");
}

QString authenticationText(const QString& s, const QString& offers)
{
    return QStringLiteral("OPC UA authentication failed (") + s
        + QStringLiteral("). Check username and password, or whether anonymous is allowed.") + offers;
}

QString certificateText(const QString& s)
{
    return QStringLiteral("OPC UA certificate check failed (") + s
        + QStringLiteral("). Check the instance certificate and key, or use a server that allows Security None.");
}

QString timeoutText(const QString& s)
{
    return QStringLiteral("OPC UA connect timed out (") + s
        + QStringLiteral("). The server may be slow, or item browse of a large address space needs a longer timeout_ms.");
}

QString tcpText(const QString& s)
{
    return QStringLiteral("Could not open a TCP connection to the OPC UA server (") + s + QStringLiteral(").");
}

QString genericText(const QString& s, const QString& setting, const QString& offers)
{
    return QStringLiteral("Could not connect to the OPC UA server (") + s + QStringLiteral("); ") + setting
        + QStringLiteral(".") + offers;
}

const QString kSettingSignSha256 = QStringLiteral("this instance uses Security Mode Sign and Policy Basic256Sha256");
const QString kSettingNone = QStringLiteral("this instance uses Security Mode None and Policy None");

} // namespace

TEST(DescribeConnectFailure, SecurityModeRejectedWithAdvertisedEndpoints)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadSecurityModeRejected"), 3, kPolicyBasic256Sha256, kAdvertised),
              QStringLiteral("OPC UA rejected the security endpoint (BadSecurityModeRejected); this instance uses "
                             "Security Mode Sign & Encrypt and Policy Basic256Sha256. Server advertised: None / None "
                             "(anonymous); Sign / Basic256Sha256 (username required). Edit Security Mode and Security "
                             "Policy on the instance to a combination the server offers, then scan again."));
}

TEST(DescribeConnectFailure, SecurityEndpointWithoutAdvertisedEndpoints)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadSecurityPolicyRejected"), 1, QString(), {}),
              QStringLiteral("OPC UA rejected the security endpoint (BadSecurityPolicyRejected); this instance uses "
                             "Security Mode None and Policy None. Edit Security Mode and Security Policy on the "
                             "instance to a combination the server offers, then scan again."));
}

TEST(DescribeConnectFailure, EverySecurityEndpointFragment)
{
    for (const QString& s : {QStringLiteral("BadSecurityMode"), QStringLiteral("BadSecurityModeRejected"),
                             QStringLiteral("BadSecurityPolicy"), QStringLiteral("BadSecurityPolicyRejected"),
                             QStringLiteral("BadIdentityTokenRejected"), QStringLiteral("No suitable endpoint found"),
                             QStringLiteral("badsecuritymoderejected"), QStringLiteral("NO SUITABLE ENDPOINT"),
                             QStringLiteral("BadIDENTITYTokenRejected")}) {
        EXPECT_EQ(describeConnectFailure(s, 2, kPolicyBasic256Sha256, kAdvertised),
                  securityEndpointText(s, kSettingSignSha256, kOffers));
        EXPECT_EQ(describeConnectFailure(s, 2, kPolicyBasic256Sha256, {}),
                  securityEndpointText(s, kSettingSignSha256, QString()));
    }
}

TEST(DescribeConnectFailure, EveryAuthenticationFragment)
{
    for (const QString& s : {QStringLiteral("BadIdentityToken"), QStringLiteral("BadIdentityTokenInvalid"),
                             QStringLiteral("BadUserAccessDenied"), QStringLiteral("BadUserNameInvalid"),
                             QStringLiteral("baduseraccessdenied"), QStringLiteral("BADIDENTITYTOKENINVALID")}) {
        EXPECT_EQ(describeConnectFailure(s, 2, kPolicyBasic256Sha256, kAdvertised), authenticationText(s, kOffers));
        EXPECT_EQ(describeConnectFailure(s, 2, kPolicyBasic256Sha256, {}), authenticationText(s, QString()));
    }
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadUserAccessDenied"), 1, kPolicyNone, kAdvertised),
              QStringLiteral("OPC UA authentication failed (BadUserAccessDenied). Check username and password, or "
                             "whether anonymous is allowed. Server advertised: None / None (anonymous); Sign / "
                             "Basic256Sha256 (username required)."));
}

TEST(DescribeConnectFailure, EveryCertificateFragment)
{
    for (const QString& s : {QStringLiteral("BadCertificate"), QStringLiteral("BadCertificateUntrusted"),
                             QStringLiteral("BadSecurityChecksFailed"), QStringLiteral("badcertificateinvalid")}) {
        EXPECT_EQ(describeConnectFailure(s, 3, kPolicyBasic256Sha256, kAdvertised), certificateText(s));
        EXPECT_EQ(describeConnectFailure(s, 3, kPolicyBasic256Sha256, {}), certificateText(s));
    }
}

TEST(DescribeConnectFailure, EveryTimeoutFragment)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadTimeout"), 1, kPolicyNone, {}),
              QStringLiteral("OPC UA connect timed out (BadTimeout). The server may be slow, or item browse of a large "
                             "address space needs a longer timeout_ms."));
    for (const QString& s : {QStringLiteral("BadTimeout"), QStringLiteral("connect timed out"),
                             QStringLiteral("Connection TIMED OUT"), QStringLiteral("badtimeout")}) {
        EXPECT_EQ(describeConnectFailure(s, 1, kPolicyNone, kAdvertised), timeoutText(s));
        EXPECT_EQ(describeConnectFailure(s, 1, kPolicyNone, {}), timeoutText(s));
    }
}

TEST(DescribeConnectFailure, EveryTcpFragment)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadConnectionClosed"), 1, kPolicyNone, kAdvertised),
              QStringLiteral("Could not open a TCP connection to the OPC UA server (BadConnectionClosed)."));
    for (const QString& s : {QStringLiteral("BadConnection"), QStringLiteral("BadConnectionClosed"),
                             QStringLiteral("BadConnectionRejected"), QStringLiteral("BadHostUnreachable"),
                             QStringLiteral("BadTcp"), QStringLiteral("BadTcpEndpointUrlInvalid"),
                             QStringLiteral("badtcpinternalerror")}) {
        EXPECT_EQ(describeConnectFailure(s, 1, kPolicyNone, kAdvertised), tcpText(s));
        EXPECT_EQ(describeConnectFailure(s, 1, kPolicyNone, {}), tcpText(s));
    }
}

TEST(DescribeConnectFailure, AnythingElseGivesTheGenericText)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadInternalError"), 2, kPolicyBasic256Sha256, kAdvertised),
              QStringLiteral("Could not connect to the OPC UA server (BadInternalError); this instance uses Security "
                             "Mode Sign and Policy Basic256Sha256. Server advertised: None / None (anonymous); Sign / "
                             "Basic256Sha256 (username required)."));
    EXPECT_EQ(describeConnectFailure(QStringLiteral("BadInternalError"), 0, QString(), {}),
              QStringLiteral("Could not connect to the OPC UA server (BadInternalError); this instance uses Security "
                             "Mode None and Policy None."));
    for (const QString& s : {QStringLiteral("BadNotConnected"), QStringLiteral("BadSecure"),
                             QStringLiteral("BadIdentity"), QStringLiteral("BadCertificat"), QStringLiteral("Bad Tcp"),
                             QStringLiteral("time out")}) {
        EXPECT_EQ(describeConnectFailure(s, 1, kPolicyNone, kAdvertised), genericText(s, kSettingNone, kOffers));
    }
}

TEST(DescribeConnectFailure, EmptyStatusReadsUnknown)
{
    EXPECT_EQ(describeConnectFailure(QString(), 1, QString(), {}),
              QStringLiteral("Could not connect to the OPC UA server (unknown); this instance uses Security Mode None "
                             "and Policy None."));
    EXPECT_EQ(describeConnectFailure(QString(), 3, kPolicyBasic256Sha256, kAdvertised),
              genericText(QStringLiteral("unknown"),
                          QStringLiteral("this instance uses Security Mode Sign & Encrypt and Policy Basic256Sha256"),
                          kOffers));
}

TEST(DescribeConnectFailure, EarlierGroupsWinOverLaterOnes)
{
    const QString securityAndAuth = QStringLiteral("BadUserAccessDenied after BadSecurityPolicyRejected");
    EXPECT_EQ(describeConnectFailure(securityAndAuth, 1, kPolicyNone, {}),
              securityEndpointText(securityAndAuth, kSettingNone, QString()));
    const QString authAndCertificate = QStringLiteral("BadCertificateUntrusted, BadUserNameInvalid");
    EXPECT_EQ(describeConnectFailure(authAndCertificate, 1, kPolicyNone, {}), authenticationText(authAndCertificate, QString()));
    const QString certificateAndTimeout = QStringLiteral("BadTimeout, BadSecurityChecksFailed");
    EXPECT_EQ(describeConnectFailure(certificateAndTimeout, 1, kPolicyNone, {}), certificateText(certificateAndTimeout));
    const QString timeoutAndTcp = QStringLiteral("BadConnectionClosed: timed out");
    EXPECT_EQ(describeConnectFailure(timeoutAndTcp, 1, kPolicyNone, {}), timeoutText(timeoutAndTcp));
}

TEST(DescribeConnectFailure, PlaceholdersInTheStatusStayLiteral)
{
    EXPECT_EQ(describeConnectFailure(QStringLiteral("Bad%2%3"), 1, QStringLiteral("p#%1"), {QStringLiteral("%1")}),
              QStringLiteral("Could not connect to the OPC UA server (Bad%2%3); this instance uses Security Mode None "
                             "and Policy %1. Server advertised: %1."));
}
