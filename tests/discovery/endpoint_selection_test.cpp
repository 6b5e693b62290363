#include "discovery/endpoint_selection.h"
#include "discovery/labels.h"

#include "tests/discovery/qt_printers.h"

#include <gtest/gtest.h>

#include <QList>
#include <QString>

#include <cstdlib>

using namespace OpcUaDiscovery;

namespace {

const QString kPolicyNone = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None");
const QString kPolicyBasic256Sha256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256");
const QString kPolicyBasic256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic256");
const QString kPolicyBasic128Rsa15 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Basic128Rsa15");
const QString kPolicyAes128 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Aes128_Sha256_RsaOaep");
const QString kPolicyAes256 = QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#Aes256_Sha256_RsaPss");

EndpointOffer offer(const QString& url, int mode, const QString& policy, bool anonymous, bool username, int level = 0)
{
    EndpointOffer o;
    o.endpointUrl = url;
    o.securityMode = mode;
    o.securityPolicyUri = policy;
    o.anonymous = anonymous;
    o.username = username;
    o.securityLevel = level;
    return o;
}

Candidate scanned()
{
    Candidate c;
    c.host = QStringLiteral("10.0.0.5");
    c.port = 4840;
    c.source = QStringLiteral("tcp");
    return c;
}

enum class Tokens { Anonymous, UsernameOnly, Both };

struct Combination
{
    int mode;
    QString policy;
    Tokens tokens;
    int level;
    int expectedScore;
};

// The expected import score of every eligible combination, written out by hand.
QList<Combination> everyEligibleCombination()
{
    const QList<QPair<int, int>> modes = {{1, 300}, {2, 200}, {3, 100}};
    struct PolicyRow
    {
        QString uri;
        int anonymousBonus;
        int usernameOnlyBonus;
    };
    const QList<PolicyRow> policies = {
        {kPolicyNone, 80, 40},
        {kPolicyBasic256Sha256, 70, 30},
        {kPolicyBasic256, 60, 20},
        {kPolicyBasic128Rsa15, 50, 10},
    };
    const QList<QPair<int, int>> levels = {{3, 3}, {10, 10}, {200, 10}};
    QList<Combination> result;
    for (const auto& mode : modes) {
        for (const PolicyRow& policy : policies) {
            for (Tokens tokens : {Tokens::Anonymous, Tokens::UsernameOnly, Tokens::Both}) {
                for (const auto& level : levels) {
                    const int bonus = tokens == Tokens::UsernameOnly ? policy.usernameOnlyBonus : policy.anonymousBonus;
                    result.append({mode.first, policy.uri, tokens, level.first, mode.second + bonus + level.second});
                }
            }
        }
    }
    return result;
}

EndpointOffer offerFor(const Combination& c, const QString& url)
{
    return offer(url, c.mode, c.policy, c.tokens != Tokens::UsernameOnly, c.tokens != Tokens::Anonymous, c.level);
}

QString describe(const Combination& c)
{
    return QStringLiteral("mode %1 policy %2 tokens %3 level %4")
        .arg(QString::number(c.mode), c.policy, QString::number(static_cast<int>(c.tokens)),
             QString::number(c.level));
}

} // namespace

TEST(SecurityPolicySupported, AcceptsTheFourClassicPolicies)
{
    EXPECT_TRUE(securityPolicySupported(kPolicyNone));
    EXPECT_TRUE(securityPolicySupported(kPolicyBasic256Sha256));
    EXPECT_TRUE(securityPolicySupported(kPolicyBasic256));
    EXPECT_TRUE(securityPolicySupported(kPolicyBasic128Rsa15));
    EXPECT_TRUE(securityPolicySupported(QStringLiteral("#None")));
    EXPECT_TRUE(securityPolicySupported(QStringLiteral("urn:vendor:policy#Basic256")));
}

TEST(SecurityPolicySupported, RejectsAesPoliciesAndNamesWithoutHash)
{
    EXPECT_FALSE(securityPolicySupported(kPolicyAes128));
    EXPECT_FALSE(securityPolicySupported(kPolicyAes256));
    EXPECT_FALSE(securityPolicySupported(QString()));
    EXPECT_FALSE(securityPolicySupported(QStringLiteral("None")));
    EXPECT_FALSE(securityPolicySupported(QStringLiteral("Basic256Sha256")));
    EXPECT_FALSE(securityPolicySupported(QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#none")));
    EXPECT_FALSE(securityPolicySupported(QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#None ")));
    EXPECT_FALSE(securityPolicySupported(QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#PubSub-Aes128-CTR")));
}

TEST(SelectImportEndpoint, NullCandidateReturnsFalse)
{
    EXPECT_FALSE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://a:4840"), 1, kPolicyNone, true, false)}, nullptr));
}

TEST(SelectImportEndpoint, NoOffersClearsOfferedListAndReturnsFalse)
{
    Candidate c = scanned();
    c.offeredEndpoints = QStringList{QStringLiteral("stale")};
    EXPECT_FALSE(selectImportEndpoint({}, &c));
    EXPECT_TRUE(c.offeredEndpoints.isEmpty());
    EXPECT_FALSE(c.endpointSelected);
    EXPECT_TRUE(c.endpointUrl.isEmpty());
}

TEST(SelectImportEndpoint, EveryEligibleCombinationIsChosenAlone)
{
    for (const Combination& combination : everyEligibleCombination()) {
        SCOPED_TRACE(describe(combination).toStdString());
        Candidate c = scanned();
        const EndpointOffer o = offerFor(combination, QStringLiteral("opc.tcp://plc:4841/ua"));
        ASSERT_TRUE(selectImportEndpoint({o}, &c));
        EXPECT_TRUE(c.endpointSelected);
        EXPECT_EQ(c.securityMode, combination.mode);
        EXPECT_EQ(c.securityPolicyUri, combination.policy);
        EXPECT_EQ(c.anonymousOffered, o.anonymous);
        EXPECT_EQ(c.usernameOffered, o.username);
        EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://plc:4841/ua"));
        EXPECT_EQ(c.endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840/ua"));
        EXPECT_EQ(c.offeredEndpoints, QStringList{endpointSummary(o)});
    }
}

TEST(SelectImportEndpoint, ScoreTableOrdersEveryPairStrictly)
{
    const QList<Combination> all = everyEligibleCombination();
    for (const Combination& first : all) {
        for (const Combination& second : all) {
            Candidate c = scanned();
            ASSERT_TRUE(selectImportEndpoint(
                {offerFor(first, QStringLiteral("opc.tcp://first")), offerFor(second, QStringLiteral("opc.tcp://second"))},
                &c));
            const QString expected = second.expectedScore > first.expectedScore ? QStringLiteral("opc.tcp://second")
                                                                                 : QStringLiteral("opc.tcp://first");
            ASSERT_EQ(c.advertisedEndpointUrl, expected)
                << describe(first).toStdString() << " (" << first.expectedScore << ") vs "
                << describe(second).toStdString() << " (" << second.expectedScore << ")";
        }
    }
}

TEST(SelectImportEndpoint, ScoreExtremesAre390And110)
{
    // 390 (None/None/anonymous, level capped) against 350 (the same for user names only).
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://a"), 1, kPolicyNone, false, true, 255),
                                      offer(QStringLiteral("opc.tcp://b"), 1, kPolicyNone, true, false, 255)},
                                     &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://b"));
    // 110 (SignAndEncrypt/Basic128Rsa15/username only, level 0) loses to the next lowest, 111.
    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://a"), 3, kPolicyBasic128Rsa15, false, true, 0),
                                      offer(QStringLiteral("opc.tcp://b"), 3, kPolicyBasic128Rsa15, false, true, 1)},
                                     &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://b"));
}

TEST(SelectImportEndpoint, SignAndEncryptOnlyServerStillGetsItsEndpoint)
{
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint(
        {offer(QStringLiteral("opc.tcp://plc:4840"), 3, kPolicyBasic256Sha256, true, false, 0)}, &c));
    EXPECT_TRUE(c.endpointSelected);
    EXPECT_EQ(c.securityMode, 3);
    EXPECT_EQ(c.securityPolicyUri, kPolicyBasic256Sha256);
    EXPECT_TRUE(c.anonymousOffered);
    EXPECT_FALSE(c.usernameOffered);
}

TEST(SelectImportEndpoint, NoneEndpointForUsersOnlyBeatsEverySignEndpoint)
{
    // 340 against the best Sign score, 290 (Sign/None/anonymous, level capped).
    const EndpointOffer noneUserOnly = offer(QStringLiteral("opc.tcp://none"), 1, kPolicyNone, false, true, 0);
    for (const QString& policy : {kPolicyNone, kPolicyBasic256Sha256, kPolicyBasic256, kPolicyBasic128Rsa15}) {
        Candidate c = scanned();
        ASSERT_TRUE(selectImportEndpoint(
            {offer(QStringLiteral("opc.tcp://sign"), 2, policy, true, true, 255), noneUserOnly}, &c));
        EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://none")) << policy.toStdString();
        EXPECT_EQ(c.securityMode, 1);
        EXPECT_FALSE(c.anonymousOffered);
        EXPECT_TRUE(c.usernameOffered);
    }
}

TEST(SelectImportEndpoint, HigherSecurityLevelWinsOnlyUpToTen)
{
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://first"), 1, kPolicyNone, true, false, 0),
                                      offer(QStringLiteral("opc.tcp://second"), 1, kPolicyNone, true, false, 12)},
                                     &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://second"));

    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://first"), 1, kPolicyNone, true, false, 10),
                                      offer(QStringLiteral("opc.tcp://second"), 1, kPolicyNone, true, false, 12)},
                                     &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://first"));
}

TEST(SelectImportEndpoint, EqualScoresKeepTheFirstOffer)
{
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://first"), 1, kPolicyNone, true, false, 0),
                                      offer(QStringLiteral("opc.tcp://second"), 1, kPolicyNone, true, false, 0),
                                      offer(QStringLiteral("opc.tcp://third"), 1, kPolicyNone, true, true, 0)},
                                     &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://first"));
    EXPECT_FALSE(c.usernameOffered);
}

TEST(SelectImportEndpoint, IneligibleOffersAreListedButNeverChosen)
{
    const QList<EndpointOffer> offers = {
        offer(QStringLiteral("opc.tcp://aes128"), 1, kPolicyAes128, true, true, 255),
        offer(QStringLiteral("opc.tcp://aes256"), 3, kPolicyAes256, true, true, 255),
        offer(QStringLiteral("opc.tcp://mode0"), 0, kPolicyNone, true, true, 255),
        offer(QStringLiteral("opc.tcp://mode4"), 4, kPolicyNone, true, true, 255),
        offer(QStringLiteral("opc.tcp://notoken"), 1, kPolicyNone, false, false, 255),
        offer(QStringLiteral("opc.tcp://nopolicy"), 1, QString(), true, true, 255),
        offer(QStringLiteral("opc.tcp://usable"), 3, kPolicyBasic128Rsa15, false, true, 0),
    };
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint(offers, &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://usable"));
    EXPECT_EQ(c.offeredEndpoints, (QStringList{
                                      QStringLiteral("None / Aes128_Sha256_RsaOaep (anonymous or username)"),
                                      QStringLiteral("Sign & Encrypt / Aes256_Sha256_RsaPss (anonymous or username)"),
                                      QStringLiteral("None / None (anonymous or username)"),
                                      QStringLiteral("None / None (anonymous or username)"),
                                      QStringLiteral("None / None (no supported user token)"),
                                      QStringLiteral("None / None (anonymous or username)"),
                                      QStringLiteral("Sign & Encrypt / Basic128Rsa15 (username required)"),
                                  }));
}

TEST(SelectImportEndpoint, NothingEligibleLeavesTheCandidateAlone)
{
    Candidate c = scanned();
    c.offeredEndpoints = QStringList{QStringLiteral("stale")};
    ASSERT_FALSE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://aes"), 2, kPolicyAes128, true, false, 0),
                                       offer(QStringLiteral("opc.tcp://mode0"), 0, kPolicyNone, true, false, 0),
                                       offer(QStringLiteral("opc.tcp://notoken"), 1, kPolicyNone, false, false, 0)},
                                      &c));
    EXPECT_FALSE(c.endpointSelected);
    EXPECT_TRUE(c.endpointUrl.isEmpty());
    EXPECT_TRUE(c.advertisedEndpointUrl.isEmpty());
    EXPECT_EQ(c.securityMode, 0);
    EXPECT_TRUE(c.securityPolicyUri.isEmpty());
    EXPECT_FALSE(c.anonymousOffered);
    EXPECT_FALSE(c.usernameOffered);
    EXPECT_EQ(c.offeredEndpoints, (QStringList{QStringLiteral("Sign / Aes128_Sha256_RsaOaep (anonymous)"),
                                               QStringLiteral("None / None (anonymous)"),
                                               QStringLiteral("None / None (no supported user token)")}));
}

TEST(SelectImportEndpoint, NothingEligibleKeepsAnEarlierChoice)
{
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://plc:4840"), 2, kPolicyBasic256, true, false)}, &c));
    const Candidate before = c;
    ASSERT_FALSE(selectImportEndpoint({offer(QStringLiteral("opc.tcp://aes"), 1, kPolicyAes256, true, false)}, &c));
    EXPECT_TRUE(c.endpointSelected);
    EXPECT_EQ(c.endpointUrl, before.endpointUrl);
    EXPECT_EQ(c.advertisedEndpointUrl, before.advertisedEndpointUrl);
    EXPECT_EQ(c.securityMode, 2);
    EXPECT_EQ(c.securityPolicyUri, kPolicyBasic256);
    EXPECT_TRUE(c.anonymousOffered);
    EXPECT_EQ(c.offeredEndpoints, QStringList{QStringLiteral("None / Aes256_Sha256_RsaPss (anonymous)")});
}

TEST(SelectImportEndpoint, ImportUsesTheScannedAddressNotTheAdvertisedHost)
{
    Candidate c = scanned();
    c.port = 48400;
    ASSERT_TRUE(selectImportEndpoint(
        {offer(QStringLiteral("opc.tcp://plc-7.factory.local:4840/ua/server"), 1, kPolicyNone, true, false)}, &c));
    EXPECT_EQ(c.advertisedEndpointUrl, QStringLiteral("opc.tcp://plc-7.factory.local:4840/ua/server"));
    EXPECT_EQ(c.endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:48400/ua/server"));
}

TEST(SelectImportEndpoint, EmptyAdvertisedUrlBecomesTheScannedEndpoint)
{
    Candidate c = scanned();
    ASSERT_TRUE(selectImportEndpoint({offer(QString(), 1, kPolicyNone, true, false)}, &c));
    EXPECT_TRUE(c.advertisedEndpointUrl.isEmpty());
    EXPECT_EQ(c.endpointUrl, QStringLiteral("opc.tcp://10.0.0.5:4840"));
}

TEST(ApplyApplicationIdentityDeathTest, NullCandidateIsIgnored)
{
    DiscoveredServer server;
    server.applicationName = QStringLiteral("Press");
    server.capabilities = QStringList{QStringLiteral("DA")};
    EXPECT_EXIT(
        {
            applyApplicationIdentity(nullptr, server);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST(ApplyApplicationIdentity, CopiesTrimmedValues)
{
    Candidate c = scanned();
    DiscoveredServer server;
    server.discoveryUrl = QStringLiteral("opc.tcp://10.0.0.9:4840");
    server.applicationName = QStringLiteral("  Press  ");
    server.applicationUri = QStringLiteral("\turn:press:server\n");
    server.productUri = QStringLiteral(" urn:vendor:press ");
    server.applicationType = QStringLiteral(" Server ");
    applyApplicationIdentity(&c, server);
    EXPECT_EQ(c.applicationName, QStringLiteral("Press"));
    EXPECT_EQ(c.applicationUri, QStringLiteral("urn:press:server"));
    EXPECT_EQ(c.productUri, QStringLiteral("urn:vendor:press"));
    EXPECT_EQ(c.applicationType, QStringLiteral("Server"));
    EXPECT_EQ(c.host, QStringLiteral("10.0.0.5"));
    EXPECT_TRUE(c.endpointUrl.isEmpty());
}

TEST(ApplyApplicationIdentity, EmptyValuesNeverEraseKnownOnes)
{
    Candidate c = scanned();
    c.applicationName = QStringLiteral("Press");
    c.applicationUri = QStringLiteral("urn:press:server");
    c.productUri = QStringLiteral("urn:vendor:press");
    c.applicationType = QStringLiteral("Server");
    DiscoveredServer server;
    server.applicationName = QStringLiteral("   ");
    server.applicationType = QStringLiteral("Discovery Server");
    applyApplicationIdentity(&c, server);
    EXPECT_EQ(c.applicationName, QStringLiteral("Press"));
    EXPECT_EQ(c.applicationUri, QStringLiteral("urn:press:server"));
    EXPECT_EQ(c.productUri, QStringLiteral("urn:vendor:press"));
    EXPECT_EQ(c.applicationType, QStringLiteral("Discovery Server"));
}

TEST(ApplyApplicationIdentity, CapabilitiesAreTrimmedAndDeduplicatedInOrder)
{
    Candidate c = scanned();
    c.capabilities = QStringList{QStringLiteral("DA")};
    DiscoveredServer server;
    server.capabilities = QStringList{QStringLiteral(" HD "), QStringLiteral("DA"), QStringLiteral(""),
                                      QStringLiteral("  "),   QStringLiteral("da"), QStringLiteral("HD"),
                                      QStringLiteral("LDS")};
    applyApplicationIdentity(&c, server);
    EXPECT_EQ(c.capabilities, (QStringList{QStringLiteral("DA"), QStringLiteral("HD"), QStringLiteral("da"),
                                           QStringLiteral("LDS")}));
}
