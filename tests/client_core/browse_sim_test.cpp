#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "tests/client_core/sim_fixture.h"
#include "sim/support/process_runner.h"

#include <QHash>

#include <gtest/gtest.h>

using client_core_test::presetScenario;
using client_core_test::settledStat;
using client_core_test::simPlugin;
using test_support::SimServer;

namespace {

struct Browse
{
    bool result = false;
    QList<ClientCore::BrowseItem> items;
    QStringList warnings;
    int progressCalls = 0;
};

Browse browse(ClientCore& core)
{
    Browse out;
    BrowseItems items;
    out.result = core.browseNodes(&items, &out.warnings, [&out] { ++out.progressCalls; });
    out.items = expandedItems(items);
    return out;
}

QHash<QString, ClientCore::BrowseItem> byId(const QList<ClientCore::BrowseItem>& items)
{
    QHash<QString, ClientCore::BrowseItem> out;
    for (const ClientCore::BrowseItem& item : items)
        out.insert(item.nodeId, item);
    return out;
}

QStringList idsOf(const QList<ClientCore::BrowseItem>& items)
{
    QStringList out;
    for (const ClientCore::BrowseItem& item : items)
        out.append(item.nodeId);
    return out;
}

const char* const supportedTypes[] = {"Boolean", "SByte", "Byte",   "Int16",  "UInt16",   "Int32",
                                      "UInt32",  "Int64", "UInt64", "Float",  "Double",   "String",
                                      "DateTime", "Guid", "ByteString", "LocalizedText"};

} // namespace

TEST(ClientCoreBrowse, ObjectsWithoutVariablesGiveAnEmptyListAndSuccess)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"empty"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    EXPECT_TRUE(result.result);
    EXPECT_TRUE(result.items.isEmpty());
    EXPECT_TRUE(result.warnings.isEmpty()) << result.warnings.join('\n').toStdString();
    EXPECT_EQ(result.progressCalls, 0);
}

TEST(ClientCoreBrowse, EverySupportedTypeAsScalarAndArray)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"types"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    ASSERT_TRUE(result.result);
    EXPECT_TRUE(result.warnings.isEmpty()) << result.warnings.join('\n').toStdString();
    const auto items = byId(result.items);
    for (const char* type : supportedTypes) {
        const QString scalarId = QStringLiteral("ns=1;s=Types.%1").arg(QLatin1String(type));
        const QString arrayId = scalarId + "Array";
        ASSERT_TRUE(items.contains(scalarId)) << type;
        ASSERT_TRUE(items.contains(arrayId)) << type;
        const ClientCore::BrowseItem& scalar = items[scalarId];
        EXPECT_EQ(scalar.dataType, QLatin1String(type));
        EXPECT_EQ(scalar.browsePath, QStringLiteral("Types.%1").arg(QLatin1String(type)));
        EXPECT_EQ(scalar.description, QStringLiteral("OPC UA Variable (%1)").arg(QLatin1String(type)));
        EXPECT_FALSE(scalar.isArray);
        EXPECT_TRUE(scalar.readable);
        EXPECT_FALSE(scalar.writable);
        const ClientCore::BrowseItem& array = items[arrayId];
        EXPECT_EQ(array.dataType, QLatin1String(type));
        EXPECT_TRUE(array.isArray);
        EXPECT_EQ(array.description, QStringLiteral("OPC UA Variable (%1, array)").arg(QLatin1String(type)));
    }
    ASSERT_TRUE(items.contains("ns=1;s=Types.UtcTime"));
    EXPECT_EQ(items["ns=1;s=Types.UtcTime"].dataType, "DateTime");
    EXPECT_EQ(items["ns=1;s=Types.UtcTime"].description, "OPC UA Variable (DateTime)");
    EXPECT_EQ(result.items.size(), 33);
    EXPECT_EQ(result.progressCalls, result.items.size());
}

TEST(ClientCoreBrowse, WritableTypesAreWritableExceptGuidAndLocalizedText)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"writable"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const auto items = byId(browse(core).items);
    for (const char* type : supportedTypes) {
        const QString id = QStringLiteral("ns=1;s=Writable.%1").arg(QLatin1String(type));
        ASSERT_TRUE(items.contains(id)) << type;
        const bool expectWritable = QLatin1String(type) != QLatin1String("Guid")
            && QLatin1String(type) != QLatin1String("LocalizedText");
        EXPECT_EQ(items[id].writable, expectWritable) << type;
        EXPECT_TRUE(items[id].readable) << type;
    }
}

TEST(ClientCoreBrowse, UnsupportedDataTypesAreSkippedWithTheirTypeId)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"unsupported"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    EXPECT_TRUE(result.result);
    EXPECT_TRUE(result.items.isEmpty()) << idsOf(result.items).join(' ').toStdString();
    const QString text = "Skipping %1 because OPC UA data type %2 is not supported by the connector";
    EXPECT_TRUE(result.warnings.contains(text.arg("ns=1;s=Unsupported.Enum", "i=852")));
    EXPECT_TRUE(result.warnings.contains(text.arg("ns=1;s=Unsupported.Structure", "i=338")));
    EXPECT_TRUE(result.warnings.contains(text.arg("ns=1;s=Unsupported.Range", "i=884")));
    EXPECT_TRUE(result.warnings.contains(text.arg("ns=1;s=Unsupported.NodeId", "i=17")));
    EXPECT_EQ(result.warnings.size(), 4) << result.warnings.join('\n').toStdString();
}

TEST(ClientCoreBrowse, AccessLevelsDecideReadableAndWritable)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"access"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    const auto items = byId(result.items);

    EXPECT_FALSE(items.contains("ns=1;s=Access.None"));
    EXPECT_TRUE(result.warnings.contains("Skipping ns=1;s=Access.None because it is neither readable nor writable"));
    EXPECT_FALSE(items.contains("ns=1;s=Access.GuidWrite"));
    EXPECT_TRUE(
        result.warnings.contains("Skipping ns=1;s=Access.GuidWrite because it is neither readable nor writable"));

    ASSERT_TRUE(items.contains("ns=1;s=Access.Read"));
    EXPECT_TRUE(items["ns=1;s=Access.Read"].readable);
    EXPECT_FALSE(items["ns=1;s=Access.Read"].writable);
    ASSERT_TRUE(items.contains("ns=1;s=Access.Write"));
    EXPECT_FALSE(items["ns=1;s=Access.Write"].readable);
    EXPECT_TRUE(items["ns=1;s=Access.Write"].writable);
    ASSERT_TRUE(items.contains("ns=1;s=Access.ReadWrite"));
    EXPECT_TRUE(items["ns=1;s=Access.ReadWrite"].readable);
    EXPECT_TRUE(items["ns=1;s=Access.ReadWrite"].writable);

    ASSERT_TRUE(items.contains("ns=1;s=Access.LevelReadFails"));
    EXPECT_TRUE(items["ns=1;s=Access.LevelReadFails"].readable);
    EXPECT_FALSE(items["ns=1;s=Access.LevelReadFails"].writable);
    EXPECT_TRUE(result.warnings.contains("Could not read access level for ns=1;s=Access.LevelReadFails, defaulting "
                                         "to readable: BadAttributeIdInvalid"))
        << result.warnings.join('\n').toStdString();
    EXPECT_EQ(result.warnings.size(), 3) << result.warnings.join('\n').toStdString();
}

TEST(ClientCoreBrowse, VariableOnTwoPathsKeepsTheDeeperOneAndMentionsTheOther)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"alias"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    ASSERT_EQ(result.items.size(), 1);
    EXPECT_EQ(result.items[0].nodeId, "ns=1;s=Alias.X");
    EXPECT_EQ(result.items[0].browsePath, "Alias.B.X");
    EXPECT_EQ(result.items[0].description, "OPC UA Variable (Int32); also Alias.X");
    EXPECT_EQ(result.progressCalls, 1);
}

TEST(ClientCoreBrowse, PropertiesBelowVariablesAreItemsWithDottedPaths)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"properties"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const auto items = byId(browse(core).items);
    ASSERT_TRUE(items.contains("ns=1;s=Props.Temperature"));
    EXPECT_EQ(items["ns=1;s=Props.Temperature"].browsePath, "Props.Temperature");
    EXPECT_EQ(items["ns=1;s=Props.Temperature"].dataType, "Double");
    ASSERT_TRUE(items.contains("ns=1;s=Props.Temperature.Unit"));
    EXPECT_EQ(items["ns=1;s=Props.Temperature.Unit"].browsePath, "Props.Temperature.Unit");
    EXPECT_EQ(items["ns=1;s=Props.Temperature.Unit"].dataType, "String");
    ASSERT_TRUE(items.contains("ns=1;s=Props.Temperature.Precision"));
    EXPECT_EQ(items["ns=1;s=Props.Temperature.Precision"].dataType, "Int32");
}

TEST(ClientCoreBrowse, DeepChainGivesTheFullPath)
{
    SimServer sim;
    QJsonObject scenario = presetScenario(QJsonArray{"deep"});
    QJsonObject space = scenario["address_space"].toObject();
    space.insert("deep_levels", 12);
    scenario.insert("address_space", space);
    START_SIM_OR_SKIP(sim, scenario);
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    ASSERT_EQ(result.items.size(), 1);
    EXPECT_EQ(result.items[0].browsePath, "Deep.L1.L2.L3.L4.L5.L6.L7.L8.L9.L10.L11.L12.Leaf");
}

TEST(ClientCoreBrowse, ContinuationPointsDeliverEveryReferenceAfterSeveralOtherChains)
{
    SimServer sim;
    // Types and Writable hold 33 and 32 children and run through continuation points before Many
    // does, so a server that keeps only five per session would run out if they were left open.
    QJsonObject scenario = presetScenario(QJsonArray{"many", "types", "writable"});
    QJsonObject space = scenario["address_space"].toObject();
    space.insert("many_children", 120);
    space.insert("max_references_per_node", 10);
    scenario.insert("address_space", space);
    START_SIM_OR_SKIP(sim, scenario);
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    ASSERT_TRUE(result.result);
    const auto items = byId(result.items);
    for (int i = 0; i < 120; ++i)
        EXPECT_TRUE(items.contains(QStringLiteral("ns=1;s=Many.V%1").arg(i))) << i;
    EXPECT_TRUE(items.contains("ns=1;s=Types.UtcTime"));
    EXPECT_TRUE(items.contains("ns=1;s=Writable.LocalizedTextArray"));
    for (const QString& warning : result.warnings)
        EXPECT_FALSE(warning.startsWith("BrowseNext failed")) << warning.toStdString();
    EXPECT_EQ(result.items.size(), 120 + 33 + 32);
    EXPECT_GE(settledStat(sim, "BrowseNext"), 11 + 3 + 3);
}

TEST(ClientCoreBrowse, TimeoutOnTheFifthBrowseStopsWithTheItemCount)
{
    SimServer sim;
    QJsonObject scenario = presetScenario(QJsonArray{"types", "access"});
    scenario.insert("misbehaviour", QJsonObject{{"delay_ms", 2500}, {"delay_after", 4},
                                                {"delay_services", QJsonArray{"Browse"}}});
    START_SIM_OR_SKIP(sim, scenario);
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 1000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    EXPECT_TRUE(result.result);
    ASSERT_GE(result.warnings.size(), 2) << result.warnings.join('\n').toStdString();
    const QString stop = QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                        "connection timeout. %1 items were collected.")
                             .arg(result.items.size());
    EXPECT_EQ(result.warnings.last(), stop);
    const QString failed = result.warnings[result.warnings.size() - 2];
    EXPECT_TRUE(failed.startsWith("Browse failed for ")) << failed.toStdString();
    EXPECT_TRUE(failed.endsWith(": BadTimeout")) << failed.toStdString();
    EXPECT_FALSE(result.items.isEmpty());
    EXPECT_EQ(settledStat(sim, "Browse") >= 5, true);
}

TEST(ClientCoreBrowse, DroppedConnectionStopsTheWalk)
{
    SimServer sim;
    QJsonObject scenario = presetScenario(QJsonArray{"types", "access"});
    scenario.insert("misbehaviour", QJsonObject{{"drop_after", 4}, {"drop_services", QJsonArray{"Browse"}}});
    START_SIM_OR_SKIP(sim, scenario);
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 2000);
    ASSERT_TRUE(core.isConnected());
    const Browse result = browse(core);
    EXPECT_TRUE(result.result);
    ASSERT_GE(result.warnings.size(), 2) << result.warnings.join('\n').toStdString();
    EXPECT_TRUE(result.warnings.last().startsWith("Stopped browsing because")) << result.warnings.last().toStdString();
    EXPECT_TRUE(result.warnings.last().endsWith(QStringLiteral(" %1 items were collected.").arg(result.items.size())));
}

TEST(ClientCoreBrowse, NullWarningsPointerGivesTheSameItems)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"types", "unsupported", "access", "alias", "properties"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    const Browse withWarnings = browse(core);
    ASSERT_FALSE(withWarnings.warnings.isEmpty());
    BrowseItems walked;
    EXPECT_TRUE(core.browseNodes(&walked, nullptr, {}));
    const QList<ClientCore::BrowseItem> items = expandedItems(walked);
    ASSERT_EQ(items.size(), withWarnings.items.size());
    for (int i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].nodeId, withWarnings.items[i].nodeId);
        EXPECT_EQ(items[i].browsePath, withWarnings.items[i].browsePath);
        EXPECT_EQ(items[i].description, withWarnings.items[i].description);
        EXPECT_EQ(items[i].readable, withWarnings.items[i].readable);
        EXPECT_EQ(items[i].writable, withWarnings.items[i].writable);
    }
}

TEST(ClientCoreBrowse, ResultsAndWarningsOfAnEarlierCallAreCleared)
{
    SimServer sim;
    START_SIM_OR_SKIP(sim, presetScenario(QJsonArray{"alias"}));
    DeviceInstancePlugin plugin = simPlugin(sim);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected());
    BrowseItems items;
    items.append(items.nodes().add("ns=1;s=Old"), BrowsePathTree::empty, Ua::supportedTypes()[0], true, false, false);
    QStringList warnings{"old"};
    EXPECT_TRUE(core.browseNodes(&items, &warnings, {}));
    EXPECT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).nodeId, "ns=1;s=Alias.X");
    EXPECT_TRUE(warnings.isEmpty());
}
