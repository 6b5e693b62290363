// A server that goes away in the middle of a large walk: closed, frozen or restarted while the
// batched walk has its fetch-ahead queues full. The walk ends at the first node it cannot get
// answered, with the warning a walk of single requests writes for it, lists only items the
// server answered (each equal to its item in a full walk), and never opens a new connection.
// With every request limited to one node both walks send the same requests, and then they
// give the same items and warnings to the letter.

#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/process_runner.h"

#include <QHash>
#include <QJsonArray>

#include <gtest/gtest.h>

using client_core_test::settledStat;
using client_core_test::simPlugin;
using test_support::SimServer;

namespace {

constexpr int variables = 100000;
constexpr int timeoutMs = 1000;

struct Walk
{
    bool result = false;
    QList<ClientCore::BrowseItem> items;
    QStringList warnings;
};

Walk walk(const SimServer& sim, ClientCore::BrowseFetch fetch)
{
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", timeoutMs);
    Walk out;
    if (!core.isConnected())
        return out;
    BrowseItems items;
    out.result = core.browseNodes(&items, &out.warnings, [] {}, fetch);
    out.items = expandedItems(items);
    return out;
}

std::string describe(const ClientCore::BrowseItem& item)
{
    return QStringLiteral("%1 | %2 | %3 | %4 | r%5 w%6 a%7")
        .arg(item.nodeId, item.browsePath, item.description, item.dataType)
        .arg(item.readable)
        .arg(item.writable)
        .arg(item.isArray)
        .toStdString();
}

// 100 000 variables in folders of 100, each folder answered in two pages (a BrowseNext each),
// and the supported types, whose UtcTime variable needs a supertype browse.
QJsonObject plantScenario()
{
    return QJsonObject{{"address_space",
                        QJsonObject{{"presets", QJsonArray{"types"}},
                                    {"synthetic_count", variables},
                                    {"synthetic_folder_size", 100},
                                    {"max_references_per_node", 60},
                                    {"hide_server_object", true}}}};
}

QJsonObject withFault(QJsonObject scenario, const QString& fault, const QJsonObject& trigger)
{
    QJsonObject misbehaviour = trigger;
    misbehaviour.insert("fault", fault);
    scenario.insert("misbehaviour", misbehaviour);
    return scenario;
}

QJsonObject afterRequests(const QString& service, int count)
{
    return QJsonObject{{"fault_after", count}, {"fault_services", QJsonArray{service}}};
}

QJsonObject atNode(const QString& service, const QString& node)
{
    return QJsonObject{{"fault_node", node}, {"fault_services", QJsonArray{service}}};
}

QJsonObject withOneNodeRequests(QJsonObject scenario)
{
    // Three attributes make the read of one variable.
    scenario.insert("limits", QJsonObject{{"max_nodes_per_browse", 1}, {"max_nodes_per_read", 3}});
    return scenario;
}

const QString stopped = QStringLiteral(
    "Stopped browsing because the OPC UA server did not respond within the connection timeout. %1 items were collected.");

class WalkServerGone : public ::testing::Test
{
protected:
    // The full batched walk, once for the suite (it equals the walk of single requests: see the
    // equivalence suite).
    static void SetUpTestSuite()
    {
        SimServer sim(SimServer::Stats::None);
        QString why;
        if (!client_core_test::simAvailable(&why) || !sim.start(plantScenario(), &why))
            return;
        const Walk full = walk(sim, ClientCore::BrowseFetch::Batched);
        fullItems_ = new QHash<QString, std::string>();
        for (const ClientCore::BrowseItem& item : full.items)
            fullItems_->insert(item.nodeId, describe(item));
        fullOrder_ = new QStringList();
        for (const ClientCore::BrowseItem& item : full.items)
            fullOrder_->append(item.nodeId);
    }

    static void TearDownTestSuite()
    {
        delete fullItems_;
        fullItems_ = nullptr;
        delete fullOrder_;
        fullOrder_ = nullptr;
    }

    void SetUp() override
    {
        ASSERT_NE(fullItems_, nullptr) << "the full walk did not run";
        ASSERT_GT(fullItems_->size(), variables);
    }

    // The walk of a server with the fault: a part of the full walk, item by item, and it said
    // why it stopped. Returns the walk for further checks.
    Walk expectPartialWalk(SimServer& sim, const QJsonObject& scenario)
    {
        Walk partial;
        QString why;
        EXPECT_TRUE(sim.start(scenario, &why)) << why.toStdString();
        partial = walk(sim, ClientCore::BrowseFetch::Batched);
        EXPECT_TRUE(partial.result);
        EXPECT_GT(partial.items.size(), 0);
        EXPECT_LT(partial.items.size(), fullItems_->size());
        for (const ClientCore::BrowseItem& item : partial.items)
            EXPECT_EQ(describe(item), fullItems_->value(item.nodeId)) << item.nodeId.toStdString();
        EXPECT_FALSE(partial.warnings.isEmpty());
        // The walk never connected again: one channel, one session.
        EXPECT_EQ(settledStat(sim, "OpenSecureChannel"), 1);
        EXPECT_EQ(settledStat(sim, "CreateSession"), 1);
        return partial;
    }

    static QHash<QString, std::string>* fullItems_;
    static QStringList* fullOrder_;
};

QHash<QString, std::string>* WalkServerGone::fullItems_ = nullptr;
QStringList* WalkServerGone::fullOrder_ = nullptr;

// The status names after which a walk stops.
const QStringList lossNames = {"BadTimeout", "BadConnectionClosed", "BadSecureChannelClosed", "BadSessionClosed",
                               "BadServerNotConnected"};

bool endsWithLoss(const QString& warning, const QStringList& names)
{
    for (const QString& name : names) {
        if (warning.endsWith(": " + name))
            return true;
    }
    return false;
}

// The walk ended with the warning of the node it could not get answered, for one of the names.
bool endsWithStop(const Walk& walk, const QStringList& names = lossNames)
{
    const int n = walk.warnings.size();
    if (n >= 2 && walk.warnings[n - 1] == stopped.arg(walk.items.size()))
        return walk.warnings[n - 2].startsWith("Browse failed for ") && endsWithLoss(walk.warnings[n - 2], names);
    if (n == 0 || !endsWithLoss(walk.warnings[n - 1], names))
        return false;
    const QString& last = walk.warnings[n - 1];
    return last.startsWith("BrowseNext failed for ") || last.startsWith("Browse result failed for ")
        || (last.startsWith("Skipping ") && last.contains(" because reading its data type failed: "));
}

std::string warningsText(const Walk& walk)
{
    return walk.warnings.join('\n').toStdString();
}

} // namespace

TEST_F(WalkServerGone, ClosedDuringABrowseOfManyNodes)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "close", afterRequests("Browse", 40)));
    EXPECT_TRUE(endsWithStop(partial)) << warningsText(partial);
}

TEST_F(WalkServerGone, ClosedDuringABrowseNext)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "close", afterRequests("BrowseNext", 30)));
    EXPECT_TRUE(endsWithStop(partial)) << warningsText(partial);
}

TEST_F(WalkServerGone, ClosedDuringAReadOfManyVariables)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "close", afterRequests("Read", 30)));
    EXPECT_TRUE(endsWithStop(partial)) << warningsText(partial);
}

TEST_F(WalkServerGone, ClosedDuringTheSupertypeBrowseOfADataType)
{
    // The browse up from UtcTime fails: the type counts as unsupported, as for a walk of single
    // requests, and the next request finds the server gone.
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "close", atNode("Browse", "i=294")));
    EXPECT_TRUE(partial.warnings.contains(
        "Skipping ns=1;s=Types.UtcTime because OPC UA data type i=294 is not supported by the connector"))
        << warningsText(partial);
    EXPECT_TRUE(endsWithStop(partial)) << warningsText(partial);
}

TEST_F(WalkServerGone, FrozenDuringAReadOfManyVariables)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "freeze", afterRequests("Read", 30)));
    EXPECT_TRUE(endsWithStop(partial, {"BadTimeout"})) << warningsText(partial);
}

TEST_F(WalkServerGone, FrozenDuringABrowseOfManyNodes)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "freeze", afterRequests("Browse", 40)));
    EXPECT_TRUE(endsWithStop(partial, {"BadTimeout"})) << warningsText(partial);
}

TEST_F(WalkServerGone, RestartedOnTheSamePortIsNotConnectedAgain)
{
    SimServer sim;
    const Walk partial = expectPartialWalk(sim, withFault(plantScenario(), "restart", afterRequests("Browse", 40)));
    EXPECT_TRUE(endsWithStop(partial)) << warningsText(partial);
    EXPECT_EQ(settledStat(sim, "Hello"), 1);
}

namespace {

// Both walks against the same fault, each on a server of its own: with one node a request they
// send the same requests, so the fault meets both at the same node.
void expectSameWalks(const QJsonObject& scenario)
{
    Walk reference;
    Walk batched;
    {
        SimServer sim(SimServer::Stats::None);
        QString why;
        ASSERT_TRUE(sim.start(scenario, &why)) << why.toStdString();
        reference = walk(sim, ClientCore::BrowseFetch::OneByOne);
    }
    {
        SimServer sim(SimServer::Stats::None);
        QString why;
        ASSERT_TRUE(sim.start(scenario, &why)) << why.toStdString();
        batched = walk(sim, ClientCore::BrowseFetch::Batched);
    }
    ASSERT_TRUE(reference.result);
    ASSERT_TRUE(batched.result);
    EXPECT_GT(reference.items.size(), 0);
    ASSERT_EQ(batched.items.size(), reference.items.size());
    for (int i = 0; i < reference.items.size(); ++i)
        EXPECT_EQ(describe(batched.items[i]), describe(reference.items[i])) << "item " << i;
    EXPECT_EQ(batched.warnings, reference.warnings) << "batched:\n"
                                                    << warningsText(batched) << "\nreference:\n"
                                                    << warningsText(reference);
}

} // namespace

TEST_F(WalkServerGone, OneNodeRequestsStopAlikeWhenClosedDuringABrowse)
{
    expectSameWalks(withOneNodeRequests(withFault(plantScenario(), "close", afterRequests("Browse", 300))));
}

TEST_F(WalkServerGone, OneNodeRequestsStopAlikeWhenClosedDuringABrowseNext)
{
    expectSameWalks(withOneNodeRequests(withFault(plantScenario(), "close", afterRequests("BrowseNext", 5))));
}

TEST_F(WalkServerGone, OneNodeRequestsStopAlikeWhenClosedDuringARead)
{
    // The batched walk sends one more Read (its look at the server's limits): the fault is set
    // off by the variable, which both walks read in a request of its own.
    expectSameWalks(withOneNodeRequests(withFault(plantScenario(), "close", atNode("Read", fullOrder_->at(700)))));
}

TEST_F(WalkServerGone, OneNodeRequestsStopAlikeWhenFrozenDuringARead)
{
    expectSameWalks(withOneNodeRequests(withFault(plantScenario(), "freeze", atNode("Read", fullOrder_->at(300)))));
}

TEST_F(WalkServerGone, OneNodeRequestsStopAlikeWhenRestartedDuringABrowse)
{
    expectSameWalks(withOneNodeRequests(withFault(plantScenario(), "restart", afterRequests("Browse", 200))));
}
