// The discovery queries of many servers side by side, each server over one secure channel:
// against opcua_sim servers and a server that hangs after the Hello, all on loopback.

#include "devices/server_queries.h"
#include "discovery/candidate.h"
#include "tests/devices/loopback_candidate.h"
#include "sim/support/server_process.h"
#include "sim/support/sim_server.h"
#include "tests/support/start_sim.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>
#include <vector>

using OpcUaDiscovery::askDiscoveryServices;
using OpcUaDiscovery::Candidate;
using OpcUaDiscovery::DiscoveryAnswer;
using OpcUaDiscovery::QueryOptions;
using test_support::SimServer;

namespace {

// The request time-out of every discovery call.
constexpr qint64 requestTimeoutMs = 2500;

QDeadlineTimer budgetOf(qint64 milliseconds)
{
    return QDeadlineTimer(milliseconds, Qt::PreciseTimer);
}

QJsonObject named(const QString& name)
{
    return QJsonObject{
        {"application", QJsonObject{{"name", name}, {"uri", "urn:side:" + name}, {"product_uri", "urn:side:product"}}}};
}

// Every field of an answer, so that equal texts mean equal answers.
std::string dump(const DiscoveryAnswer& answer)
{
    QStringList parts;
    for (const OpcUaDiscovery::DiscoveredServer& s : answer.servers)
        parts << QStringList{s.discoveryUrl, s.applicationName, s.applicationUri, s.productUri, s.applicationType,
                             s.capabilities.join(QLatin1Char(','))}
                     .join(QLatin1Char('|'));
    parts << QStringLiteral("asked %1 answered %2").arg(answer.endpoints.asked).arg(answer.endpoints.answered);
    for (const OpcUaDiscovery::EndpointOffer& o : answer.endpoints.offers)
        parts << QStringLiteral("%1|%2|%3|%4|%5|%6")
                     .arg(o.endpointUrl)
                     .arg(o.securityMode)
                     .arg(o.securityPolicyUri)
                     .arg(o.anonymous)
                     .arg(o.username)
                     .arg(o.securityLevel);
    for (const OpcUaDiscovery::DiscoveredServer& s : answer.endpoints.describedServers)
        parts << s.applicationName + QLatin1Char('|') + s.applicationUri;
    parts << QStringLiteral("unresponsive %1").arg(answer.unresponsive);
    return parts.join(QStringLiteral(" ; ")).toStdString();
}

class SideBySideQueries : public ::testing::Test
{
protected:
    void startSims(const QList<QJsonObject>& scenarios)
    {
        for (const QJsonObject& scenario : scenarios) {
            sims.push_back(std::make_unique<SimServer>());
            START_SIM_OR_SKIP(*sims.back(), scenario);
            candidates.append(scannedOnLoopback(sims.back()->port()));
        }
    }

    void startHungPeer()
    {
        QString error;
        ASSERT_TRUE(hung.start(QStringLiteral(OPCUA_HUNG_PEER_EXECUTABLE), {"127.0.0.1", "0"}, {}, &error))
            << error.toStdString();
    }

    std::vector<std::unique_ptr<SimServer>> sims;
    QList<Candidate> candidates;
    test_support::ServerProcess hung;
};

} // namespace

TEST_F(SideBySideQueries, EachServerIsAskedEverythingOverOneChannel)
{
    QList<QJsonObject> scenarios;
    for (int i = 0; i < 8; ++i)
        scenarios << named(QStringLiteral("Server%1").arg(i));
    ASSERT_NO_FATAL_FAILURE(startSims(scenarios));

    const std::vector<DiscoveryAnswer> answers = askDiscoveryServices(candidates, budgetOf(60000), QueryOptions());
    ASSERT_EQ(answers.size(), sims.size());
    for (size_t i = 0; i < sims.size(); ++i) {
        SCOPED_TRACE(dump(answers[i]));
        EXPECT_FALSE(answers[i].unresponsive);
        ASSERT_EQ(answers[i].servers.size(), 1);
        EXPECT_EQ(answers[i].servers.first().applicationName, QStringLiteral("Server%1").arg(i));
        EXPECT_TRUE(answers[i].endpoints.answered);
        EXPECT_EQ(answers[i].endpoints.offers.size(), 1);

        const QJsonObject stats = sims[i]->statsOnceSettled("CloseSecureChannel", 1);
        SCOPED_TRACE(QJsonDocument(stats).toJson(QJsonDocument::Compact).toStdString());
        EXPECT_EQ(stats.value("Hello").toInt(-1), 1);
        EXPECT_EQ(stats.value("OpenSecureChannel").toInt(-1), 1);
        EXPECT_EQ(stats.value("CloseSecureChannel").toInt(-1), 1);
        EXPECT_EQ(stats.value("FindServersOnNetwork").toInt(-1), 1);
        EXPECT_EQ(stats.value("GetEndpoints").toInt(-1), 1);
    }
}

TEST_F(SideBySideQueries, SideBySideAnswersAreThoseOfTheFirstWay)
{
    QJsonObject lister = named("Lister");
    lister.insert("find_servers",
                  QJsonObject{{"self", true},
                              {"extra", QJsonArray{QJsonObject{{"name", "Elsewhere"},
                                                               {"type", "Server"},
                                                               {"discovery_urls",
                                                                QJsonArray{"opc.tcp://127.0.0.1:1/x",
                                                                           "http://127.0.0.1:2"}}}}}});
    QJsonObject hollow = named("Hollow");
    hollow.insert("endpoints", QJsonArray());
    QJsonObject secured = named("Vault");
    secured.insert("endpoints", QJsonArray{QJsonObject{{"mode", "SignAndEncrypt"}, {"policy", "Basic256Sha256"}},
                                           QJsonObject{{"mode", "Sign"}, {"policy", "Basic256"}}});
    secured.insert("anonymous", false);
    secured.insert("users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}});
    ASSERT_NO_FATAL_FAILURE(startSims({lister, hollow, secured, named("Plain1"), named("Plain2")}));

    QueryOptions firstWay;
    firstWay.concurrency = 1;
    firstWay.channelPerServer = false;
    const std::vector<DiscoveryAnswer> reference = askDiscoveryServices(candidates, budgetOf(60000), firstWay);
    const std::vector<DiscoveryAnswer> sideBySide = askDiscoveryServices(candidates, budgetOf(60000), QueryOptions());
    ASSERT_EQ(reference.size(), sideBySide.size());
    for (size_t i = 0; i < reference.size(); ++i)
        EXPECT_EQ(dump(sideBySide[i]), dump(reference[i]));
    EXPECT_EQ(reference[0].servers.size(), 2); // itself and the opc.tcp URL of the listed server
    EXPECT_FALSE(reference[1].endpoints.answered);
    EXPECT_TRUE(reference[1].endpoints.asked);
    EXPECT_EQ(reference[2].endpoints.offers.size(), 2);
}

TEST_F(SideBySideQueries, HungServerCostsOneTimeOutAndStarvesNobody)
{
    ASSERT_NO_FATAL_FAILURE(startHungPeer());
    QList<QJsonObject> scenarios;
    for (int i = 0; i < 5; ++i)
        scenarios << named(QStringLiteral("Good%1").arg(i));
    ASSERT_NO_FATAL_FAILURE(startSims(scenarios));
    candidates.prepend(scannedOnLoopback(hung.port()));

    for (const int concurrency : {16, 1}) {
        SCOPED_TRACE(concurrency);
        QueryOptions options;
        options.concurrency = concurrency;
        QElapsedTimer asking;
        asking.start();
        const std::vector<DiscoveryAnswer> answers = askDiscoveryServices(candidates, budgetOf(60000), options);
        // One time-out for the hung server, not one per call (three would be 7.5 s).
        EXPECT_LT(asking.elapsed(), 2 * requestTimeoutMs);
        ASSERT_EQ(answers.size(), 6u);
        EXPECT_TRUE(answers[0].unresponsive) << dump(answers[0]);
        EXPECT_FALSE(answers[0].endpoints.asked);
        for (size_t i = 1; i < answers.size(); ++i)
            EXPECT_TRUE(answers[i].endpoints.answered) << dump(answers[i]);
    }
}

TEST_F(SideBySideQueries, SpentBudgetSendsNothing)
{
    ASSERT_NO_FATAL_FAILURE(startSims({named("Untouched1"), named("Untouched2")}));
    const std::vector<DiscoveryAnswer> answers = askDiscoveryServices(candidates, budgetOf(0), QueryOptions());
    const std::vector<OpcUaDiscovery::EndpointsAnswer> endpoints =
        OpcUaDiscovery::askEndpoints({candidates.first().endpointUrl}, budgetOf(0), QueryOptions());
    ASSERT_EQ(answers.size(), 2u);
    for (const DiscoveryAnswer& answer : answers) {
        EXPECT_TRUE(answer.servers.isEmpty());
        EXPECT_FALSE(answer.endpoints.asked);
    }
    EXPECT_FALSE(endpoints.front().asked);
    for (const auto& sim : sims) {
        EXPECT_EQ(sim->stats().value("Hello").toInt(-1), 0);
        EXPECT_EQ(sim->stats().value("total").toInt(-1), 0);
    }
}
