// The endpoints of candidates as the discover_devices job asks and chooses them, against
// opcua_sim on loopback.

#include "devices/device_records.h"
#include "devices/server_queries.h"
#include "discovery/candidate.h"
#include "tests/devices/loopback_candidate.h"
#include "sim/support/sim_server.h"
#include "tests/support/start_sim.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

using OpcUaDiscovery::Candidate;
using test_support::SimServer;

inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

// Every field, so that "unchanged" means unchanged.
std::string dump(const Candidate& c)
{
    QStringList parts{c.host,
                      QString::number(c.port),
                      c.endpointUrl,
                      c.source,
                      c.advertisedEndpointUrl,
                      QString::number(c.securityMode),
                      c.securityPolicyUri,
                      QString::number(c.anonymousOffered),
                      QString::number(c.usernameOffered),
                      QString::number(c.endpointSelected),
                      c.offeredEndpoints.join(QLatin1Char('|')),
                      c.applicationName,
                      c.applicationUri,
                      c.productUri,
                      c.applicationType,
                      c.capabilities.join(QLatin1Char('|'))};
    return parts.join(QStringLiteral(" ; ")).toStdString();
}

QString policy(const QString& name)
{
    return QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#") + name;
}

QJsonObject identity(const QString& name)
{
    return QJsonObject{{"name", name}, {"uri", "urn:query:" + name}, {"product_uri", "urn:query:product"}};
}

class CandidateEndpoints : public ::testing::Test
{
protected:
    void start(const QJsonObject& scenario)
    {
        START_SIM_OR_SKIP(sim, scenario);
    }

    SimServer sim;
};

// The job's way for one candidate: its endpoints asked, then the endpoint and identity chosen.
void askAndChooseEndpoints(Candidate* candidate)
{
    const std::vector<OpcUaDiscovery::EndpointsAnswer> answers =
        OpcUaDiscovery::askEndpoints({OpcUaDiscovery::candidateQueryUrl(*candidate)},
                                     QDeadlineTimer(60000, Qt::PreciseTimer), OpcUaDiscovery::QueryOptions());
    ASSERT_EQ(answers.size(), 1u);
    OpcUaDiscovery::applyEndpointsAnswer(candidate, answers.front());
}

} // namespace

TEST(CandidateEndpointsWithoutServer, NothingListeningLeavesTheCandidateAsItWas)
{
    Candidate candidate = scannedOnLoopback(test_support::freeLoopbackPort());
    const std::string before = dump(candidate);
    askAndChooseEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
}

TEST_F(CandidateEndpoints, ChoosesTheBestEndpointAndTakesTheServerIdentity)
{
    ASSERT_NO_FATAL_FAILURE(start(
        {{"application", identity("Mixer")},
         {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}},
                                  QJsonObject{{"mode", "Sign"}, {"policy", "Basic256Sha256"}},
                                  QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Aes256_Sha256_RsaPss"}}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    askAndChooseEndpoints(&candidate);

    const QString url = sim.endpointUrl();
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 2);
    EXPECT_EQ(candidate.securityPolicyUri, policy("Basic256Sha256"));
    EXPECT_TRUE(candidate.anonymousOffered);
    EXPECT_FALSE(candidate.usernameOffered);
    EXPECT_EQ(candidate.endpointUrl, url);
    EXPECT_EQ(candidate.advertisedEndpointUrl, url);
    EXPECT_EQ(candidate.offeredEndpoints,
              (QStringList{"Sign & Encrypt / Basic256Sha256 (anonymous)", "Sign / Basic256Sha256 (anonymous)",
                           "Sign & Encrypt / Aes256_Sha256_RsaPss (anonymous)"}));
    EXPECT_EQ(candidate.applicationName, "Mixer");
    EXPECT_EQ(candidate.applicationUri, "urn:query:Mixer");
    EXPECT_EQ(candidate.productUri, "urn:query:product");
    EXPECT_EQ(candidate.applicationType, "Server");
    EXPECT_EQ(candidate.host, "127.0.0.1");
    EXPECT_EQ(candidate.source, "tcp");
    EXPECT_TRUE(candidate.capabilities.isEmpty());
}

TEST_F(CandidateEndpoints, UserNameOnlyEndpointIsChosenWithItsTokenFlags)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Vault")},
               {"anonymous", false},
               {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}},
               {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    askAndChooseEndpoints(&candidate);
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 3);
    EXPECT_EQ(candidate.securityPolicyUri, policy("Basic256Sha256"));
    EXPECT_FALSE(candidate.anonymousOffered);
    EXPECT_TRUE(candidate.usernameOffered);
    EXPECT_EQ(candidate.offeredEndpoints, QStringList{"Sign & Encrypt / Basic256Sha256 (username required)"});
    EXPECT_EQ(candidate.applicationName, "Vault");
}

TEST_F(CandidateEndpoints, AdvertisedHostNameIsReplacedByTheScannedAddress)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Remote")}, {"advertised_host", "plc-7.invalid"}, {"path", "/plc"}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    askAndChooseEndpoints(&candidate);
    const QString port = QString::number(sim.port());
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.endpointUrl, "opc.tcp://127.0.0.1:" + port + "/plc");
    EXPECT_EQ(candidate.advertisedEndpointUrl, "opc.tcp://plc-7.invalid:" + port + "/plc");
    EXPECT_EQ(candidate.host, "127.0.0.1");
    EXPECT_EQ(candidate.applicationName, "Remote");
}

TEST_F(CandidateEndpoints, UnsupportedEndpointsOnlyStillGiveTheIdentity)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Modern")},
               {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Aes128_Sha256_RsaOaep"}},
                                        QJsonObject{{"mode", "Invalid"}, {"policy", "None"}}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    askAndChooseEndpoints(&candidate);
    EXPECT_FALSE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 0);
    EXPECT_TRUE(candidate.securityPolicyUri.isEmpty());
    EXPECT_EQ(candidate.endpointUrl, sim.endpointUrl());
    EXPECT_TRUE(candidate.advertisedEndpointUrl.isEmpty());
    EXPECT_EQ(candidate.offeredEndpoints,
              (QStringList{"Sign & Encrypt / Aes128_Sha256_RsaOaep (anonymous)", "None / None (anonymous)"}));
    EXPECT_EQ(candidate.applicationName, "Modern");
}

TEST_F(CandidateEndpoints, KnownIdentityIsKeptWhereTheServerSaysNothing)
{
    ASSERT_NO_FATAL_FAILURE(start({{"application", QJsonObject{{"name", "Named only"}, {"uri", ""},
                                                                 {"product_uri", ""}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    candidate.applicationUri = QStringLiteral("urn:from:findservers");
    candidate.productUri = QStringLiteral("urn:from:findservers:product");
    candidate.capabilities = QStringList{"DA"};
    askAndChooseEndpoints(&candidate);
    EXPECT_EQ(candidate.applicationName, "Named only");
    EXPECT_EQ(candidate.applicationUri, "urn:from:findservers");
    EXPECT_EQ(candidate.productUri, "urn:from:findservers:product");
    EXPECT_EQ(candidate.capabilities, QStringList{"DA"});
}

TEST_F(CandidateEndpoints, NoEndpointsLeavesTheCandidateAsTheScanMadeIt)
{
    ASSERT_NO_FATAL_FAILURE(start({{"application", identity("Empty")}, {"endpoints", QJsonArray()}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    const std::string before = dump(candidate);
    askAndChooseEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
    EXPECT_GE(sim.stats().value("GetEndpoints").toInt(), 1);
}

TEST_F(CandidateEndpoints, DroppedConnectionLeavesTheCandidateAsTheScanMadeIt)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Dropper")}, {"misbehaviour", QJsonObject{{"drop_after", 0}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    const std::string before = dump(candidate);
    askAndChooseEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
    EXPECT_GE(sim.stats().value("dropped").toInt(), 1);
}

TEST_F(CandidateEndpoints, SlowServerTimesOutAndLeavesTheCandidateAsItWas)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Sloth")}, {"misbehaviour", QJsonObject{{"delay_ms", 3500}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    const std::string before = dump(candidate);
    askAndChooseEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
}

TEST_F(CandidateEndpoints, OneChannelToTheServerAskedEvenWhenItListsOnlyAnother)
{
    // Left alone, the stack would reopen the channel presenting the URL of the first server
    // that FindServers names.
    SimServer other;
    QString error;
    ASSERT_TRUE(other.start({{"application", identity("Elsewhere")}}, &error)) << error.toStdString();
    ASSERT_NO_FATAL_FAILURE(start(
        {{"application", identity("Asked")},
         {"find_servers",
          QJsonObject{{"self", false},
                      {"extra", QJsonArray{QJsonObject{{"name", "Elsewhere"},
                                                       {"uri", "urn:query:Elsewhere"},
                                                       {"discovery_urls", QJsonArray{other.endpointUrl()}}}}}}}}));
    Candidate candidate = scannedOnLoopback(sim.port());
    askAndChooseEndpoints(&candidate);
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.applicationName, "Asked");
    EXPECT_EQ(candidate.endpointUrl, sim.endpointUrl());
    EXPECT_EQ(other.stats().value("total").toInt(-1), 0);
    const QJsonObject asked = sim.stats();
    EXPECT_EQ(asked.value("Hello").toInt(-1), 1);
    EXPECT_EQ(asked.value("OpenSecureChannel").toInt(-1), 1);
    EXPECT_EQ(asked.value("GetEndpoints").toInt(-1), 1);
}
