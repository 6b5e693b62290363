// The discovery client and the discovery services as plain values, against opcua_sim on loopback.

#include "ua/client.h"
#include "ua/discovery_services.h"
#include "sim/support/sim_server.h"
#include "tests/support/start_sim.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>

#include <open62541/client.h>
#include <open62541/types.h>

#include <memory>
#include <vector>

using test_support::SimServer;

inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

QString policy(const QString& name)
{
    return QStringLiteral("http://opcfoundation.org/UA/SecurityPolicy#") + name;
}

QString loopbackUrl(quint16 port)
{
    return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(port);
}

Ua::DiscoveryQuestions everything(int maxEndpoints)
{
    Ua::DiscoveryQuestions questions;
    questions.findServers = true;
    questions.findServersOnNetwork = true;
    questions.getEndpoints = true;
    questions.maxEndpoints = maxEndpoints;
    return questions;
}

QDeadlineTimer aMinute()
{
    return QDeadlineTimer(60000, Qt::PreciseTimer);
}

class DiscoveryServices : public ::testing::Test
{
protected:
    // Starts one simulator per scenario.
    void startSims(const QList<QJsonObject>& scenarios)
    {
        for (const QJsonObject& scenario : scenarios) {
            sims.push_back(std::make_unique<SimServer>());
            START_SIM_OR_SKIP(*sims.back(), scenario);
        }
    }

    std::vector<std::unique_ptr<SimServer>> sims;
};

} // namespace

TEST(DiscoveryClient, IsSilentWithTheShortRequestTimeout)
{
    Ua::Client client = Ua::newDiscoveryClient();
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
    Ua::Client client = Ua::newDiscoveryClient();
    ASSERT_TRUE(client);
    const UA_ConnectionConfig& connection = UA_Client_getConfig(client.get())->localConnectionConfig;
    EXPECT_EQ(connection.localMaxMessageSize, 8u * 1024 * 1024);
    EXPECT_EQ(connection.localMaxChunkCount, 1024u);
}

TEST(DiscoveryClient, ConnectFailureOnAClosedPortPrintsNothingAndCleansUp)
{
    // The result goes nowhere; what counts is that the stack stays silent and frees everything.
    Ua::Client client = Ua::newDiscoveryClient();
    ASSERT_TRUE(client);
    size_t count = 0;
    UA_EndpointDescription* endpoints = nullptr;
    const QByteArray url = loopbackUrl(test_support::freeLoopbackPort()).toUtf8();
    EXPECT_NE(UA_Client_getEndpoints(client.get(), url.constData(), &count, &endpoints), UA_STATUSCODE_GOOD);
    UA_Array_delete(endpoints, count, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
}

TEST_F(DiscoveryServices, ClosingAChannelAddsNoIdleWait)
{
    const int count = 10;
    QList<QJsonObject> scenarios;
    for (int i = 0; i < count; ++i)
        scenarios << QJsonObject{{"application", QJsonObject{{"name", QStringLiteral("Closer%1").arg(i)}}}};
    ASSERT_NO_FATAL_FAILURE(startSims(scenarios));
    std::vector<Ua::ChannelClient> clients;
    for (const auto& sim : sims) {
        clients.push_back(Ua::channelClient(Ua::newDiscoveryClient()));
        ASSERT_TRUE(clients.back());
        const QByteArray url = sim->endpointUrl().toUtf8();
        ASSERT_EQ(UA_Client_connectSecureChannel(clients.back().get(), url.constData()), UA_STATUSCODE_GOOD);
    }

    QElapsedTimer closing;
    closing.start();
    for (Ua::ChannelClient& client : clients)
        EXPECT_TRUE(Ua::closeSecureChannelPromptly(client.get()));
    // The stack's own disconnect waits 100 ms per channel after it has closed: ten of them take
    // a second at least, however fast the machine. (ThreadSanitizer slows every stack call many
    // times over; there only the closes themselves are checked.)
#ifndef __SANITIZE_THREAD__
    EXPECT_LT(closing.elapsed(), count * 100);
#endif
    clients.clear();
    for (const auto& sim : sims)
        EXPECT_EQ(sim->statsOnceSettled("CloseSecureChannel", 1).value("CloseSecureChannel").toInt(-1), 1);
}

TEST_F(DiscoveryServices, AnswersBecomePlainValuesOverOneChannel)
{
    ASSERT_NO_FATAL_FAILURE(startSims(
        {{{"application", QJsonObject{{"name", "Pr\u00e4sse 4"}, {"uri", "urn:plant:press"},
                                      {"product_uri", "urn:vendor:product"}, {"type", "ClientAndServer"}}},
          {"find_servers",
           QJsonObject{{"self", true},
                       {"extra", QJsonArray{QJsonObject{{"name", "Panel"},
                                                        {"type", "Client"},
                                                        {"discovery_urls",
                                                         QJsonArray{"opc.tcp://10.0.0.1:4840", "http://10.0.0.1"}}}}}}},
          {"anonymous", false},
          {"users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}}},
          {"endpoints", QJsonArray{QJsonObject{{"mode", "Sign"}, {"policy", "Basic256Sha256"}, {"security_level", 7}},
                                   QJsonObject{{"mode", "None"}, {"policy", "None"}}}}}}));
    const SimServer& sim = *sims.front();

    const Ua::DiscoveryAnswers answers = Ua::askDiscoveryServer(sim.endpointUrl(), everything(256), aMinute());
    EXPECT_FALSE(answers.unresponsive);
    ASSERT_EQ(answers.applications.size(), 2);
    const Ua::ApplicationInfo& self = answers.applications.at(0);
    EXPECT_EQ(self.name, QString::fromUtf8("Pr\xc3\xa4sse 4"));
    EXPECT_EQ(self.uri, "urn:plant:press");
    EXPECT_EQ(self.productUri, "urn:vendor:product");
    EXPECT_EQ(self.type, 2);
    EXPECT_EQ(self.discoveryUrls, QStringList{sim.endpointUrl()});
    const Ua::ApplicationInfo& panel = answers.applications.at(1);
    EXPECT_EQ(panel.name, "Panel");
    EXPECT_EQ(panel.type, 1);
    // Every URL as the server listed it: which ones count is not the stack's business.
    EXPECT_EQ(panel.discoveryUrls, (QStringList{"opc.tcp://10.0.0.1:4840", "http://10.0.0.1"}));

    EXPECT_TRUE(answers.endpointsAsked);
    ASSERT_EQ(answers.endpoints.size(), 2);
    const Ua::EndpointInfo& signing = answers.endpoints.at(0);
    EXPECT_EQ(signing.url, sim.endpointUrl());
    EXPECT_EQ(signing.securityMode, 2);
    EXPECT_EQ(signing.securityPolicyUri, policy("Basic256Sha256"));
    EXPECT_FALSE(signing.anonymousToken);
    EXPECT_TRUE(signing.userNameToken);
    EXPECT_EQ(signing.securityLevel, 7);
    EXPECT_EQ(signing.server.name, self.name);
    EXPECT_EQ(signing.server.uri, "urn:plant:press");
    EXPECT_EQ(answers.endpoints.at(1).securityMode, 1);
    EXPECT_EQ(answers.endpoints.at(1).securityPolicyUri, policy("None"));

    const QJsonObject stats = sim.statsOnceSettled("CloseSecureChannel", 1);
    EXPECT_EQ(stats.value("OpenSecureChannel").toInt(-1), 1);
    EXPECT_EQ(stats.value("FindServersOnNetwork").toInt(-1), 1);
    EXPECT_EQ(stats.value("GetEndpoints").toInt(-1), 1);
}

TEST_F(DiscoveryServices, OnlyTheFirstEndpointsBecomeValues)
{
    ASSERT_NO_FATAL_FAILURE(startSims({{{"endpoints", QJsonArray{QJsonObject{{"mode", "Sign"}, {"policy", "Basic256"}},
                                                                 QJsonObject{{"mode", "None"}, {"policy", "None"}}}}}}));
    Ua::DiscoveryQuestions questions;
    questions.getEndpoints = true;
    questions.maxEndpoints = 1;
    const Ua::DiscoveryAnswers answers = Ua::askDiscoveryServer(sims.front()->endpointUrl(), questions, aMinute());
    EXPECT_TRUE(answers.endpointsAsked);
    ASSERT_EQ(answers.endpoints.size(), 1);
    EXPECT_EQ(answers.endpoints.front().securityPolicyUri, policy("Basic256"));
    // Only what was asked: the stack's own channel handshake may send a FindServers, never this.
    EXPECT_TRUE(answers.applications.isEmpty());
    EXPECT_EQ(sims.front()->stats().value("FindServersOnNetwork").toInt(-1), 0);
}

TEST_F(DiscoveryServices, PassedDeadlineSendsNothing)
{
    ASSERT_NO_FATAL_FAILURE(startSims({QJsonObject()}));
    const Ua::DiscoveryAnswers answers =
        Ua::askDiscoveryServer(sims.front()->endpointUrl(), everything(256), QDeadlineTimer(0, Qt::PreciseTimer));
    EXPECT_TRUE(answers.applications.isEmpty());
    EXPECT_FALSE(answers.endpointsAsked);
    EXPECT_FALSE(answers.unresponsive);
    EXPECT_EQ(sims.front()->stats().value("total").toInt(-1), 0);
}

TEST(DiscoveryServer, NothingListeningIsUnresponsiveAndAskedNothingMore)
{
    const Ua::DiscoveryAnswers answers =
        Ua::askDiscoveryServer(loopbackUrl(test_support::freeLoopbackPort()), everything(256), aMinute());
    EXPECT_TRUE(answers.unresponsive);
    EXPECT_FALSE(answers.endpointsAsked);
    EXPECT_TRUE(answers.applications.isEmpty());
    EXPECT_TRUE(answers.endpoints.isEmpty());
}
