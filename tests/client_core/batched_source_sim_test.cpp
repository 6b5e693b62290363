// The walk fetched one request per question and fetched in batches gives the same items, in the
// same order, and the same warnings: on every kind of address space the browse tests use, on
// servers that limit or punish large requests, and on another stack.

#include "client_core/continuation_guard.h"
#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/process_runner.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

using client_core_test::noneUri;
using client_core_test::presetScenario;
using client_core_test::settledStat;
using client_core_test::simPlugin;
using test_support::NodePeer;
using test_support::SimServer;

namespace {

struct Walk
{
    bool result = false;
    QList<ClientCore::BrowseItem> items;
    QStringList warnings;
    int progressCalls = 0;
};

Walk walk(ClientCore& core, ClientCore::BrowseFetch fetch)
{
    Walk out;
    BrowseItems items;
    out.result = core.browseNodes(&items, &out.warnings, [&out] { ++out.progressCalls; }, fetch);
    out.items = expandedItems(items);
    return out;
}

Walk walk(DeviceInstancePlugin plugin, ClientCore::BrowseFetch fetch, int timeoutMs)
{
    ClientCore core(plugin, QString(), "tests", timeoutMs);
    if (!core.isConnected())
        return Walk();
    return walk(core, fetch);
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

// Both walks of the same server, one after the other in one session (servers list their sessions
// in the address space), compared item by item and warning by warning.
void expectSameWalk(DeviceInstancePlugin plugin, int timeoutMs = 5000, int* itemCount = nullptr,
                    Walk* referenceOut = nullptr)
{
    ClientCore core(plugin, QString(), "tests", timeoutMs);
    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    const Walk reference = walk(core, ClientCore::BrowseFetch::OneByOne);
    const Walk batched = walk(core, ClientCore::BrowseFetch::Batched);
    ASSERT_TRUE(reference.result);
    ASSERT_TRUE(batched.result);
    ASSERT_EQ(batched.items.size(), reference.items.size());
    for (int i = 0; i < reference.items.size(); ++i)
        EXPECT_EQ(describe(batched.items[i]), describe(reference.items[i])) << "item " << i;
    EXPECT_EQ(batched.warnings, reference.warnings) << "batched:\n"
                                                    << batched.warnings.join('\n').toStdString() << "\nreference:\n"
                                                    << reference.warnings.join('\n').toStdString();
    EXPECT_EQ(batched.progressCalls, reference.progressCalls);
    if (itemCount)
        *itemCount = reference.items.size();
    if (referenceOut)
        *referenceOut = reference;
}

QJsonObject withSpace(QJsonObject scenario, const QJsonObject& settings)
{
    QJsonObject space = scenario.value("address_space").toObject();
    for (auto it = settings.begin(); it != settings.end(); ++it)
        space.insert(it.key(), it.value());
    scenario.insert("address_space", space);
    return scenario;
}

QJsonObject shippedScenario(const QString& name)
{
    QFile file(test_support::sourceDir() + QStringLiteral("/sim/scenarios/") + name);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

int walkRequests(const SimServer& sim)
{
    return settledStat(sim, "Browse") + settledStat(sim, "BrowseNext") + settledStat(sim, "Read");
}

TEST(BrowseSources, EveryPresetWithContinuationPoints)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, shippedScenario("types.json"));
    int count = 0;
    expectSameWalk(simPlugin(sim), 5000, &count);
    EXPECT_GT(count, 300);

    // The same walks on their own: the batched one needs a small part of the round trips.
    const int before = walkRequests(sim);
    ASSERT_TRUE(walk(simPlugin(sim), ClientCore::BrowseFetch::OneByOne, 5000).result);
    const int reference = walkRequests(sim) - before;
    ASSERT_TRUE(walk(simPlugin(sim), ClientCore::BrowseFetch::Batched, 5000).result);
    const int batched = walkRequests(sim) - before - reference;
    EXPECT_LT(batched * 5, reference) << batched << " requests against " << reference;
}

TEST(BrowseSources, StandardServerObjectsBesideThePresets)
{
    SimServer sim;
    const QJsonObject scenario{{"address_space", QJsonObject{{"presets", "all"}}}};
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}

TEST(BrowseSources, AlternatePathsOnOnePageAndOnSeveral)
{
    for (int perNode : {0, 1}) {
        SimServer sim;
        const QJsonObject scenario =
            withSpace(presetScenario({"alias", "properties", "deep"}), {{"max_references_per_node", perNode}});
        START_SIM_OR_SKIP(sim, scenario);
        expectSameWalk(simPlugin(sim));
    }
}

TEST(BrowseSources, UnsupportedTypesFailedAccessLevelAndWriteOnlyGuid)
{
    SimServer sim;
    const QJsonObject scenario = presetScenario({"types", "unsupported", "access", "writable", "empty"});
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}

TEST(BrowseSources, ObjectsWithoutVariables)
{
    SimServer sim;
    const QJsonObject scenario = presetScenario({"empty"});
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}

QStringList itemIds(const Walk& walk)
{
    QStringList ids;
    for (const ClientCore::BrowseItem& item : walk.items)
        ids.append(item.nodeId);
    return ids;
}

TEST(BrowseSources, NamesBeyondAsciiIdentifiersThatDifferInCaseAndNodesOnSeveralPaths)
{
    // On one page, across pages of two references (so that the nodes of one folder arrive in
    // several answers), and in requests of three nodes.
    struct Variant
    {
        int referencesPerNode;
        int nodesPerRequest;
    };
    for (const Variant variant : {Variant{0, 0}, Variant{2, 0}, Variant{0, 3}}) {
        SCOPED_TRACE(testing::Message() << variant.referencesPerNode << " references a page, " << variant.nodesPerRequest
                                        << " nodes a request");
        SimServer sim;
        QJsonObject scenario =
            withSpace(presetScenario({"names", "alias"}), {{"max_references_per_node", variant.referencesPerNode}});
        if (variant.nodesPerRequest > 0)
            scenario.insert("limits", QJsonObject{{"max_nodes_per_browse", variant.nodesPerRequest},
                                                  {"max_nodes_per_read", 3 * variant.nodesPerRequest}});
        START_SIM_OR_SKIP(sim, scenario);
        Walk reference;
        expectSameWalk(simPlugin(sim), 5000, nullptr, &reference);
        // What the walks were compared on is there.
        const QStringList ids = itemIds(reference);
        for (const QString& id : {QStringLiteral("ns=1;s=Names.K\u00fchlwasser"), QStringLiteral("ns=1;s=Names.\u6e29\u5ea6"),
                                  QString::fromUtf8("ns=1;s=Names.\xf0\x9f\x94\xa5"), QStringLiteral("ns=1;s=Names.Case.x"),
                                  QStringLiteral("ns=1;s=Names.Case.X"), QStringLiteral("ns=1;s=Names.case.x")})
            EXPECT_EQ(ids.count(id), 1) << id.toStdString();
        const int shared = ids.indexOf(QStringLiteral("ns=1;s=Names.Shared"));
        ASSERT_GE(shared, 0);
        EXPECT_EQ(reference.items[shared].description.count(QStringLiteral("; also ")), 4);
        EXPECT_EQ(ids.count(QStringLiteral("ns=1;s=Names.D.V")), 1);
    }
}

TEST(BrowseSources, LargeAddressSpaceBeyondTheFetchAheadBounds)
{
    // 100 000 variables in folders of 100, beside the names: more references than the batched
    // source holds ahead of the walk, compared item by item with the one-request-per-question
    // walk (the benchmarks walk up to 1 000 000 of the same shape).
    SimServer sim(SimServer::Stats::None);
    const QJsonObject scenario =
        withSpace(presetScenario({"names"}), {{"synthetic_count", 100000}, {"synthetic_folder_size", 100}});
    START_SIM_OR_SKIP(sim, scenario);
    int count = 0;
    expectSameWalk(simPlugin(sim), 20000, &count);
    EXPECT_EQ(count, 100000 + 22);
}

TEST(BrowseSources, ServerLimitsOfTenNodesPerBrowseAndRead)
{
    SimServer sim;
    QJsonObject scenario = shippedScenario("types.json");
    scenario.insert("limits", QJsonObject{{"max_nodes_per_browse", 10}, {"max_nodes_per_read", 10}});
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}

TEST(BrowseSources, MoreContinuationPointsThanTheServerKeeps)
{
    // Three references a page: nearly every node of a batch needs a continuation point, and the
    // server keeps five a session, whatever it publishes.
    for (int published : {0, 5, 1000}) {
        SimServer sim;
        QJsonObject scenario =
            withSpace(presetScenario({"many", "types", "writable", "alias", "properties"}),
                      {{"many_children", 40}, {"max_references_per_node", 3}});
        scenario.insert("limits", QJsonObject{{"max_browse_continuation_points", published}});
        START_SIM_OR_SKIP(sim, scenario);
        expectSameWalk(simPlugin(sim));
    }
}

TEST(BrowseSources, TooManyOperationsAboveASizeTheServerDoesNotPublish)
{
    // The limits are enforced but published as none: the batch learns them from the refusals.
    SimServer sim;
    QJsonObject scenario = withSpace(presetScenario({"many", "types", "access"}), {{"many_children", 60}});
    scenario.insert("limits", QJsonObject{{"max_nodes_per_browse", 7}, {"max_nodes_per_read", 11}});
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}

TEST(BrowseSources, SlowServerWhereLargeBatchesWouldTimeOut)
{
    // 15 ms a node: a single node is quick, forty nodes take longer than the time-out.
    SimServer sim;
    QJsonObject scenario = withSpace(presetScenario({"many", "types", "alias"}), {{"many_children", 60}});
    scenario.insert("misbehaviour", QJsonObject{{"delay_per_operation_ms", 15}});
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim), 1000);
}

TEST(BrowseSources, DropMidWalkListsOnlyItemsTheReferenceGives)
{
    // Only built-in data types: no data type resolution browses, whose loss would end the walk
    // silently on the next read.
    QJsonObject scenario = withSpace(presetScenario({"access", "deep", "many"}), {{"many_children", 50}});
    Walk reference;
    {
        SimServer sim;
        START_SIM_OR_SKIP(sim, scenario);
        reference = walk(simPlugin(sim), ClientCore::BrowseFetch::OneByOne, 3000);
        ASSERT_TRUE(reference.result);
    }
    // The batched walk sends few reads: the first is its look at the server's limits.
    const QList<QPair<const char*, int>> drops = {{"Browse", 2}, {"Browse", 4}, {"Browse", 7}, {"Read", 1}};
    for (const auto& drop : drops) {
        const char* service = drop.first;
        const int dropAfter = drop.second;
        {
            SimServer sim;
            QJsonObject dropping = scenario;
            dropping.insert("misbehaviour",
                            QJsonObject{{"drop_after", dropAfter}, {"drop_services", QJsonArray{service}}});
            START_SIM_OR_SKIP(sim, dropping);
            const Walk batched = walk(simPlugin(sim), ClientCore::BrowseFetch::Batched, 3000);
            ASSERT_TRUE(batched.result);
            EXPECT_LT(batched.items.size(), reference.items.size()) << service << " " << dropAfter;
            QHash<QString, std::string> expected;
            for (const ClientCore::BrowseItem& item : reference.items)
                expected.insert(item.nodeId, describe(item));
            for (const ClientCore::BrowseItem& item : batched.items)
                EXPECT_EQ(describe(item), expected.value(item.nodeId)) << service << " " << dropAfter;
            ASSERT_FALSE(batched.warnings.isEmpty());
            const QString& last = batched.warnings.last();
            if (QLatin1String(service) == QLatin1String("Browse")) {
                ASSERT_GE(batched.warnings.size(), 2);
                EXPECT_TRUE(batched.warnings[batched.warnings.size() - 2].startsWith("Browse failed for ns=1;s="))
                    << batched.warnings.join('\n').toStdString();
                EXPECT_EQ(last, QStringLiteral("Stopped browsing because the OPC UA server did not respond within "
                                               "the connection timeout. %1 items were collected.")
                                    .arg(batched.items.size()));
            } else {
                EXPECT_TRUE(last.startsWith("Skipping ns=1;s=") && last.contains("because reading its data type failed: Bad"))
                    << last.toStdString();
            }
        }
    }
}

TEST(BrowseSources, NodeOpcUaPeer)
{
    NodePeer peer;
    START_PEER_OR_SKIP(peer, QStringList{});
    DeviceInstancePlugin plugin;
    plugin.instanceName = QStringLiteral("node-opcua peer");
    plugin.address = peer.endpointUrl();
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = noneUri;
    int count = 0;
    expectSameWalk(plugin, 10000, &count);
    EXPECT_GT(count, 5);
}

DeviceInstancePlugin endlessPeerPlugin(const NodePeer& peer)
{
    DeviceInstancePlugin plugin;
    plugin.instanceName = QStringLiteral("endless node-opcua peer");
    plugin.address = peer.endpointUrl();
    plugin.settings["security_mode"] = "1";
    plugin.settings["security_policies"] = noneUri;
    return plugin;
}

int endlessItems(const Walk& walk)
{
    int count = 0;
    for (const ClientCore::BrowseItem& item : walk.items)
        count += item.nodeId.contains(QStringLiteral("s=Plant.Endless.V")) ? 1 : 0;
    return count;
}

const QString endlessEnded = QStringLiteral("BrowseNext failed for ns=1;s=Plant.Endless: BadContinuationPointInvalid");

TEST(BrowseSources, ContinuationPointGivenAgainEndsTheChain)
{
    NodePeer peer;
    START_PEER_OR_SKIP(peer, (QStringList{"--endless-continuation", "repeat"}));
    Walk reference;
    expectSameWalk(endlessPeerPlugin(peer), 10000, nullptr, &reference);
    EXPECT_TRUE(reference.warnings.contains(endlessEnded)) << reference.warnings.join('\n').toStdString();
    // The pages received before the chain ended count: the Browse result's V0 and the BrowseNext's V1.
    EXPECT_EQ(endlessItems(reference), 2);
    EXPECT_GT(reference.items.size(), 12);
}

TEST(BrowseSources, ChainThatNeverEndsStopsAtThePageBound)
{
    NodePeer peer;
    START_PEER_OR_SKIP(peer, (QStringList{"--endless-continuation", "grow"}));
    Walk reference;
    expectSameWalk(endlessPeerPlugin(peer), 10000, nullptr, &reference);
    EXPECT_TRUE(reference.warnings.contains(endlessEnded)) << reference.warnings.mid(0, 20).join('\n').toStdString();
    EXPECT_EQ(endlessItems(reference), int(chainPageLimit));
}

namespace {

// What one walk asked of the simulator: the requests it refused for their number of operations,
// and the nodes asked (nodes of every Browse, continuation points of every BrowseNext,
// ReadValueIds of every Read).
struct Asked
{
    int refused = 0;
    int operations = 0;
    int supertypeBrowsesOfOneNode = 0;
};

Asked askedBy(const SimServer& sim, ClientCore::BrowseFetch fetch, Walk* out)
{
    const int refused = settledStat(sim, "refused");
    const int operations = settledStat(sim, "browse_nodes") + settledStat(sim, "browse_next_points")
        + settledStat(sim, "read_operations");
    *out = walk(simPlugin(sim), fetch, 5000);
    Asked asked;
    asked.refused = settledStat(sim, "refused") - refused;
    asked.operations = settledStat(sim, "browse_nodes") + settledStat(sim, "browse_next_points")
        + settledStat(sim, "read_operations") - operations;
    asked.supertypeBrowsesOfOneNode = settledStat(sim, "supertype_browses_per_node_max");
    return asked;
}

QJsonObject limitedScenario(const QJsonObject& limits)
{
    QJsonObject scenario = withSpace(presetScenario({"many", "types", "unsupported", "access", "derived"}),
                                     {{"many_children", 1000}, {"derived_children", 10}});
    scenario.insert("limits", limits);
    return scenario;
}

// The walks side by side on the server, then each alone: the batched walk is refused fewer
// than `refusals` times and asks at most a tenth more than the reference.
void expectLearnedLimits(const QJsonObject& limits, int refusals)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, limitedScenario(limits));
    expectSameWalk(simPlugin(sim));
    Walk reference;
    Walk batched;
    const Asked byReference = askedBy(sim, ClientCore::BrowseFetch::OneByOne, &reference);
    const Asked byBatches = askedBy(sim, ClientCore::BrowseFetch::Batched, &batched);
    ASSERT_TRUE(reference.result);
    ASSERT_TRUE(batched.result);
    EXPECT_EQ(batched.items.size(), reference.items.size());
    EXPECT_EQ(byReference.refused, 0);
    EXPECT_LT(byBatches.refused, refusals);
    EXPECT_LE(byBatches.operations * 10, byReference.operations * 11)
        << byBatches.operations << " operations against " << byReference.operations;
}

} // namespace

TEST(BrowseSources, HiddenLimitsOfFiveBrowseAndSevenReadValueIdsAreLearnedOnce)
{
    expectLearnedLimits(QJsonObject{{"max_nodes_per_browse", 5}, {"max_nodes_per_read", 7}, {"publish_limits", false}},
                        10);
}

TEST(BrowseSources, PublishedReadLimitCountsEveryReadValueId)
{
    // A thousand nodes a Browse and a hundred ReadValueIds a Read (33 variables), as published.
    expectLearnedLimits(QJsonObject{{"max_nodes_per_browse", 1000}, {"max_nodes_per_read", 100}}, 1);
}

TEST(BrowseSources, ServerPublishingMoreThanItEnforces)
{
    expectLearnedLimits(QJsonObject{{"max_nodes_per_browse", 5},
                                    {"max_nodes_per_read", 7},
                                    {"published_max_nodes_per_browse", 1000},
                                    {"published_max_nodes_per_read", 100}},
                        10);
}

TEST(BrowseSources, ManyVariablesOfDerivedAndUnsupportedTypesBrowseEachTypeNodeOnce)
{
    // Thirty variables each of UtcTime, Duration, an enumeration, a structure and Range: every
    // variable of an unsupported type gets its warning, resolved or remembered.
    const int each = 30;
    QJsonObject scenario = withSpace(presetScenario({"derived", "types", "unsupported"}), {{"derived_children", each}});
    for (const auto fetch : {ClientCore::BrowseFetch::OneByOne, ClientCore::BrowseFetch::Batched}) {
        SimServer sim;
        START_SIM_OR_SKIP(sim, scenario);
        Walk out;
        const Asked asked = askedBy(sim, fetch, &out);
        ASSERT_TRUE(out.result);
        EXPECT_EQ(asked.supertypeBrowsesOfOneNode, 1);
        EXPECT_EQ(out.warnings.filter(" because OPC UA data type i=852 is not supported by the connector").size(),
                  each + 1);
        EXPECT_EQ(out.warnings.filter(" because OPC UA data type i=884 is not supported by the connector").size(),
                  each + 1);
        int utcTimes = 0;
        for (const ClientCore::BrowseItem& item : out.items)
            utcTimes += item.nodeId.startsWith("ns=1;s=Derived.UtcTime") && item.dataType == "DateTime" ? 1 : 0;
        EXPECT_EQ(utcTimes, each);
    }
    SimServer sim;
    START_SIM_OR_SKIP(sim, scenario);
    expectSameWalk(simPlugin(sim));
}
