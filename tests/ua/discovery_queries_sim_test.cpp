// The discovery queries of the discover_devices job against opcua_sim on loopback.

#include "ua/discovery_queries.h"
#include "discovery/candidate.h"
#include "sim/support/process_runner.h"
#include "sim/support/sim_server.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

#include <open62541/client.h>
#include <open62541/types.h>

using OpcUaDiscovery::applyGetEndpoints;
using OpcUaDiscovery::Candidate;
using OpcUaDiscovery::DiscoveredServer;
using OpcUaDiscovery::identityFromApplication;
using OpcUaDiscovery::newDiscoveryClient;
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

Candidate scanned(quint16 port)
{
    Candidate c;
    c.host = QStringLiteral("127.0.0.1");
    c.port = port;
    c.endpointUrl = OpcUaDiscovery::endpointFor(c.host, port);
    c.source = QStringLiteral("tcp");
    return c;
}

QString policy(const QString& name)
{
    return QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#") + name;
}

QJsonObject identity(const QString& name)
{
    return QJsonObject{{"name", name}, {"uri", "urn:query:" + name}, {"product_uri", "urn:query:product"}};
}

class DiscoveryQueries : public ::testing::Test
{
protected:
    void start(const QJsonObject& scenario)
    {
        QString error;
        if (!sim.start(scenario, &error)) {
            if (!test_support::runningInCi() && !QFile::exists(test_support::simExecutable()))
                GTEST_SKIP() << "opcua_sim is not built";
            FAIL() << error.toStdString();
        }
    }

    SimServer sim;
};

UA_String ownedString(const char* text)
{
    return text ? UA_STRING_ALLOC(text) : UA_STRING_NULL;
}

} // namespace

TEST(DiscoveryClient, IsSilentWithTheShortRequestTimeout)
{
    Ua::Client client = newDiscoveryClient();
    ASSERT_TRUE(client);
    UA_ClientConfig* config = UA_Client_getConfig(client.get());
    EXPECT_EQ(config->timeout, 2500u);
    ASSERT_NE(config->logging, nullptr);
    EXPECT_EQ(config->logging->log, &Ua::silentOpcUaLog);
    EXPECT_EQ(config->logging->clear, nullptr);
    ASSERT_NE(config->eventLoop, nullptr);
    EXPECT_EQ(config->eventLoop->logger, config->logging);
}

TEST(DiscoveryClient, AnnouncesItsSmallMessageLimits)
{
    Ua::Client client = newDiscoveryClient();
    ASSERT_TRUE(client);
    const UA_ConnectionConfig& connection = UA_Client_getConfig(client.get())->localConnectionConfig;
    EXPECT_EQ(connection.localMaxMessageSize, 8u * 1024 * 1024);
    EXPECT_EQ(connection.localMaxChunkCount, 1024u);
}

TEST(DiscoveryClient, ConnectFailureOnAClosedPortPrintsNothingAndCleansUp)
{
    // The result goes nowhere; what counts is that the stack stays silent and frees everything.
    Ua::Client client = newDiscoveryClient();
    ASSERT_TRUE(client);
    size_t count = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const QByteArray url = OpcUaDiscovery::endpointFor("127.0.0.1", test_support::freeLoopbackPort()).toUtf8();
    EXPECT_NE(UA_Client_getEndpoints(client.get(), url.constData(), &count, &endpoints), UA_STATUSCODE_GOOD);
    UA_Array_delete(endpoints, count, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
}

TEST(IdentityFromApplication, CopiesNameUrisAndTypeLabelOnly)
{
    UA_ApplicationDescription app;
    UA_ApplicationDescription_init(&app);
    app.applicationName = UA_LOCALIZEDTEXT_ALLOC("en", "Pr\xc3\xa4sse 4");
    app.applicationUri = ownedString("urn:plant:press");
    app.productUri = ownedString("urn:vendor:product");
    app.applicationType = UA_APPLICATIONTYPE_CLIENTANDSERVER;
    app.discoveryUrlsSize = 1;
    app.discoveryUrls = UA_String_new();
    *app.discoveryUrls = ownedString("opc.tcp://10.0.0.1:4840");

    const DiscoveredServer server = identityFromApplication(app);
    EXPECT_EQ(server.applicationName, QString::fromUtf8("Pr\xc3\xa4sse 4"));
    EXPECT_EQ(server.applicationUri, "urn:plant:press");
    EXPECT_EQ(server.productUri, "urn:vendor:product");
    EXPECT_EQ(server.applicationType, "Client and Server");
    EXPECT_TRUE(server.discoveryUrl.isEmpty());
    EXPECT_TRUE(server.capabilities.isEmpty());
    UA_ApplicationDescription_clear(&app);
}

TEST(IdentityFromApplication, NullAndEmptyStringsGiveEmptyTexts)
{
    UA_ApplicationDescription app;
    UA_ApplicationDescription_init(&app);
    app.productUri = UA_String_fromChars("");
    app.applicationType = UA_APPLICATIONTYPE_DISCOVERYSERVER;
    const DiscoveredServer server = identityFromApplication(app);
    EXPECT_TRUE(server.applicationName.isEmpty());
    EXPECT_TRUE(server.applicationUri.isEmpty());
    EXPECT_TRUE(server.productUri.isEmpty());
    EXPECT_EQ(server.applicationType, "Discovery Server");
    UA_ApplicationDescription_clear(&app);

    UA_ApplicationDescription client;
    UA_ApplicationDescription_init(&client);
    client.applicationType = UA_APPLICATIONTYPE_CLIENT;
    EXPECT_EQ(identityFromApplication(client).applicationType, "Server");
}

TEST(ApplyGetEndpoints, NullCandidateIsIgnored)
{
    applyGetEndpoints(nullptr);
}

TEST(ApplyGetEndpoints, NothingListeningLeavesTheCandidateAsItWas)
{
    Candidate candidate = scanned(test_support::freeLoopbackPort());
    const std::string before = dump(candidate);
    applyGetEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
}

TEST_F(DiscoveryQueries, ChoosesTheBestEndpointAndTakesTheServerIdentity)
{
    ASSERT_NO_FATAL_FAILURE(start(
        {{"application", identity("Mixer")},
         {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}},
                                  QJsonObject{{"mode", "Sign"}, {"policy", "Basic256Sha256"}},
                                  QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Aes256_Sha256_RsaPss"}}}}}));
    Candidate candidate = scanned(sim.port());
    applyGetEndpoints(&candidate);

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

TEST_F(DiscoveryQueries, UserNameOnlyEndpointIsChosenWithItsTokenFlags)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Vault")},
               {"anonymous", false},
               {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}},
               {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}}}}}));
    Candidate candidate = scanned(sim.port());
    applyGetEndpoints(&candidate);
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 3);
    EXPECT_EQ(candidate.securityPolicyUri, policy("Basic256Sha256"));
    EXPECT_FALSE(candidate.anonymousOffered);
    EXPECT_TRUE(candidate.usernameOffered);
    EXPECT_EQ(candidate.offeredEndpoints, QStringList{"Sign & Encrypt / Basic256Sha256 (username required)"});
    EXPECT_EQ(candidate.applicationName, "Vault");
}

TEST_F(DiscoveryQueries, AdvertisedHostNameIsReplacedByTheScannedAddress)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Remote")}, {"advertised_host", "plc-7.invalid"}, {"path", "/plc"}}));
    Candidate candidate = scanned(sim.port());
    applyGetEndpoints(&candidate);
    const QString port = QString::number(sim.port());
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.endpointUrl, "opc.tcp://127.0.0.1:" + port + "/plc");
    EXPECT_EQ(candidate.advertisedEndpointUrl, "opc.tcp://plc-7.invalid:" + port + "/plc");
    EXPECT_EQ(candidate.host, "127.0.0.1");
    EXPECT_EQ(candidate.applicationName, "Remote");
}

TEST_F(DiscoveryQueries, UnsupportedEndpointsOnlyStillGiveTheIdentity)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Modern")},
               {"endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Aes128_Sha256_RsaOaep"}},
                                        QJsonObject{{"mode", "Invalid"}, {"policy", "None"}}}}}));
    Candidate candidate = scanned(sim.port());
    applyGetEndpoints(&candidate);
    EXPECT_FALSE(candidate.endpointSelected);
    EXPECT_EQ(candidate.securityMode, 0);
    EXPECT_TRUE(candidate.securityPolicyUri.isEmpty());
    EXPECT_EQ(candidate.endpointUrl, sim.endpointUrl());
    EXPECT_TRUE(candidate.advertisedEndpointUrl.isEmpty());
    EXPECT_EQ(candidate.offeredEndpoints,
              (QStringList{"Sign & Encrypt / Aes128_Sha256_RsaOaep (anonymous)", "None / None (anonymous)"}));
    EXPECT_EQ(candidate.applicationName, "Modern");
}

TEST_F(DiscoveryQueries, KnownIdentityIsKeptWhereTheServerSaysNothing)
{
    ASSERT_NO_FATAL_FAILURE(start({{"application", QJsonObject{{"name", "Named only"}, {"uri", ""},
                                                                 {"product_uri", ""}}}}));
    Candidate candidate = scanned(sim.port());
    candidate.applicationUri = QStringLiteral("urn:from:findservers");
    candidate.productUri = QStringLiteral("urn:from:findservers:product");
    candidate.capabilities = QStringList{"DA"};
    applyGetEndpoints(&candidate);
    EXPECT_EQ(candidate.applicationName, "Named only");
    EXPECT_EQ(candidate.applicationUri, "urn:from:findservers");
    EXPECT_EQ(candidate.productUri, "urn:from:findservers:product");
    EXPECT_EQ(candidate.capabilities, QStringList{"DA"});
}

TEST_F(DiscoveryQueries, NoEndpointsLeavesTheCandidateAsTheScanMadeIt)
{
    ASSERT_NO_FATAL_FAILURE(start({{"application", identity("Empty")}, {"endpoints", QJsonArray()}}));
    Candidate candidate = scanned(sim.port());
    const std::string before = dump(candidate);
    applyGetEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
    EXPECT_GE(sim.stats().value("GetEndpoints").toInt(), 1);
}

TEST_F(DiscoveryQueries, DroppedConnectionLeavesTheCandidateAsTheScanMadeIt)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Dropper")}, {"misbehaviour", QJsonObject{{"drop_after", 0}}}}));
    Candidate candidate = scanned(sim.port());
    const std::string before = dump(candidate);
    applyGetEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
    EXPECT_GE(sim.stats().value("dropped").toInt(), 1);
}

TEST_F(DiscoveryQueries, SlowServerTimesOutAndLeavesTheCandidateAsItWas)
{
    ASSERT_NO_FATAL_FAILURE(
        start({{"application", identity("Sloth")}, {"misbehaviour", QJsonObject{{"delay_ms", 3500}}}}));
    Candidate candidate = scanned(sim.port());
    const std::string before = dump(candidate);
    applyGetEndpoints(&candidate);
    EXPECT_EQ(dump(candidate), before);
}

TEST_F(DiscoveryQueries, OneChannelToTheServerAskedEvenWhenItListsOnlyAnother)
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
    Candidate candidate = scanned(sim.port());
    applyGetEndpoints(&candidate);
    EXPECT_TRUE(candidate.endpointSelected);
    EXPECT_EQ(candidate.applicationName, "Asked");
    EXPECT_EQ(candidate.endpointUrl, sim.endpointUrl());
    EXPECT_EQ(other.stats().value("total").toInt(-1), 0);
    const QJsonObject asked = sim.stats();
    EXPECT_EQ(asked.value("Hello").toInt(-1), 1);
    EXPECT_EQ(asked.value("OpenSecureChannel").toInt(-1), 1);
    EXPECT_EQ(asked.value("GetEndpoints").toInt(-1), 1);
}
