// discover_items through the built discover process against the simulator: item records,
// the request echo, warnings, standard output and a server that goes away mid-browse.
#include "client_core/browse_items.h"
#include "client_core/opc_ua_client_core.h"
#include "framework/device_instance_plugin.h"
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

using items_test::ItemsJob;
using items_test::itemById;
using items_test::itemRecord;
using items_test::noneDevice;
using test_support::ProcessResult;

namespace {

const QStringList kBuiltInTypes{"Boolean", "SByte", "Byte",   "Int16",    "UInt16", "Int32",      "UInt32", "Int64",
                                "UInt64",  "Float", "Double", "String", "DateTime", "Guid", "ByteString", "LocalizedText"};

QJsonObject presetScenario(const QJsonArray& presets)
{
    return QJsonObject{{"address_space", QJsonObject{{"presets", presets}, {"hide_server_object", true}}}};
}

QJsonObject recordsScenario()
{
    return presetScenario(QJsonArray{"types", "writable", "access", "alias", "properties", "unsupported", "empty"});
}

// Every variable of recordsScenario that the connector can use, in the order of the result.
QStringList expectedRecordsIdentifiers()
{
    QStringList ids;
    for (const QString& type : kBuiltInTypes) {
        for (const QString& preset : {QStringLiteral("Types"), QStringLiteral("Writable")}) {
            ids << QStringLiteral("ns=1;s=%1.%2").arg(preset, type) << QStringLiteral("ns=1;s=%1.%2Array").arg(preset, type);
        }
    }
    ids << "ns=1;s=Types.UtcTime"
        << "ns=1;s=Access.Read" << "ns=1;s=Access.Write" << "ns=1;s=Access.ReadWrite" << "ns=1;s=Access.LevelReadFails"
        << "ns=1;s=Alias.X"
        << "ns=1;s=Props.Temperature" << "ns=1;s=Props.Temperature.Unit" << "ns=1;s=Props.Temperature.Precision";
    std::stable_sort(ids.begin(), ids.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    return ids;
}

QString devicePartOf(const QString& url)
{
    QString part = url;
    part.replace(QRegularExpression("[^A-Za-z0-9_]+"), "_");
    return part.left(32);
}

} // namespace

TEST_F(ItemsJob, EveryUsableVariableBecomesOneCompleteRecord)
{
    startSim(recordsScenario());
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 7);
    device.insert("uid", "press-7");
    const QJsonObject document = runOk(QJsonObject{{"device", device}});
    const QJsonArray items = document.value("items").toArray();

    EXPECT_EQ(items_test::identifiers(items), expectedRecordsIdentifiers());
    for (const QJsonValue& value : items) {
        const QJsonObject item = value.toObject();
        EXPECT_EQ(item.keys(), (QStringList{"data_type", "description", "external_id", "name", "read_write", "uid_hint",
                                            "unit", "user_defined_fields"}));
        EXPECT_TRUE(item.value("uid_hint").toString().startsWith("opcua_7_")) << item.value("uid_hint").toString().toStdString();
    }

    EXPECT_EQ(itemById(items, "ns=1;s=Types.Int32"),
              itemRecord("7", "ns=1;s=Types.Int32", "Types.Int32", "OPC UA Variable (Int32)", "Int32", "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Types.DoubleArray"),
              itemRecord("7", "ns=1;s=Types.DoubleArray", "Types.DoubleArray", "OPC UA Variable (Double, array)", "Double",
                         "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Types.UtcTime"),
              itemRecord("7", "ns=1;s=Types.UtcTime", "Types.UtcTime", "OPC UA Variable (DateTime)", "DateTime", "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Writable.ByteString"),
              itemRecord("7", "ns=1;s=Writable.ByteString", "Writable.ByteString", "OPC UA Variable (ByteString)",
                         "ByteString", "readwrite"));
    // The connector cannot write these two types, whatever the server allows.
    EXPECT_EQ(itemById(items, "ns=1;s=Writable.Guid"),
              itemRecord("7", "ns=1;s=Writable.Guid", "Writable.Guid", "OPC UA Variable (Guid)", "Guid", "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Writable.LocalizedTextArray"),
              itemRecord("7", "ns=1;s=Writable.LocalizedTextArray", "Writable.LocalizedTextArray",
                         "OPC UA Variable (LocalizedText, array)", "LocalizedText", "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Access.Write"),
              itemRecord("7", "ns=1;s=Access.Write", "Access.Write", "OPC UA Variable (Int32)", "Int32", "write"));
    EXPECT_EQ(itemById(items, "ns=1;s=Access.ReadWrite"),
              itemRecord("7", "ns=1;s=Access.ReadWrite", "Access.ReadWrite", "OPC UA Variable (Int32)", "Int32", "readwrite"));
    EXPECT_EQ(itemById(items, "ns=1;s=Access.LevelReadFails"),
              itemRecord("7", "ns=1;s=Access.LevelReadFails", "Access.LevelReadFails", "OPC UA Variable (Int32)", "Int32",
                         "read"));
    // Reached as Alias.X and as Alias.B.X: one record under the deeper path.
    EXPECT_EQ(itemById(items, "ns=1;s=Alias.X"),
              itemRecord("7", "ns=1;s=Alias.X", "Alias.B.X", "OPC UA Variable (Int32); also Alias.X", "Int32", "read"));
    EXPECT_EQ(itemById(items, "ns=1;s=Props.Temperature.Unit"),
              itemRecord("7", "ns=1;s=Props.Temperature.Unit", "Props.Temperature.Unit", "OPC UA Variable (String)",
                         "String", "read"));

    EXPECT_EQ(document.value("warnings").toArray(),
              QJsonArray::fromStringList(
                  {"Could not read access level for ns=1;s=Access.LevelReadFails, defaulting to readable: BadAttributeIdInvalid",
                   "Skipping ns=1;s=Access.GuidWrite because it is neither readable nor writable",
                   "Skipping ns=1;s=Access.None because it is neither readable nor writable",
                   "Skipping ns=1;s=Unsupported.Enum because OPC UA data type i=852 is not supported by the connector",
                   "Skipping ns=1;s=Unsupported.NodeId because OPC UA data type i=17 is not supported by the connector",
                   "Skipping ns=1;s=Unsupported.Range because OPC UA data type i=884 is not supported by the connector",
                   "Skipping ns=1;s=Unsupported.Structure because OPC UA data type i=338 is not supported by the connector"}));
    EXPECT_EQ(document.value("devices").toArray(), QJsonArray());
    EXPECT_EQ(document.value("mode").toString(), "discover_items");
    EXPECT_EQ(document.value("success"), QJsonValue(true));
    EXPECT_EQ(document.value("requested_device").toObject(), device);
    EXPECT_EQ(document.keys(), (QStringList{"devices", "items", "mode", "requested_device", "success", "warnings"}));
}

TEST_F(ItemsJob, UidHintFallsBackFromIdToUidToAddress)
{
    startSim(presetScenario({"alias"}));
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 0);
    device.insert("uid", "Line 4/Press #2");
    QJsonArray items = runOk(QJsonObject{{"device", device}}).value("items").toArray();
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).toObject().value("uid_hint").toString(), items_test::uidHint("Line_4_Press_2", "ns=1;s=Alias.X"));

    device.remove("uid");
    items = runOk(QJsonObject{{"device", device}}).value("items").toArray();
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).toObject().value("uid_hint").toString(),
              items_test::uidHint(devicePartOf(sim_.endpointUrl()), "ns=1;s=Alias.X"));
}

TEST_F(ItemsJob, DeviceStringFallsThroughToTargetDeviceWithoutEcho)
{
    startSim(presetScenario({"alias"}));
    QJsonObject target = noneDevice(sim_.endpointUrl());
    target.insert("id", 12);
    const QJsonObject document = runOk(QJsonObject{{"device", "plc-1"}, {"target_device", target}, {"job_id", 17}});
    const QJsonArray items = document.value("items").toArray();
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).toObject().value("uid_hint").toString(), items_test::uidHint("12", "ns=1;s=Alias.X"));
    EXPECT_FALSE(document.contains("requested_device"));
    EXPECT_EQ(document.value("job_id"), QJsonValue(17));
}

TEST_F(ItemsJob, TargetDeviceAloneIsEchoed)
{
    startSim(presetScenario({"alias"}));
    const QJsonObject target = noneDevice(sim_.endpointUrl());
    const QJsonObject document = runOk(QJsonObject{{"target_device", target}, {"job_id", "job-1"}});
    EXPECT_EQ(document.value("requested_device").toObject(), target);
    EXPECT_EQ(document.value("job_id").toString(), "job-1");
    EXPECT_EQ(document.keys(),
              (QStringList{"devices", "items", "job_id", "mode", "requested_device", "success", "warnings"}));
}

TEST_F(ItemsJob, DeviceObjectWinsOverTargetDevice)
{
    startSim(presetScenario({"alias"}));
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 3);
    const QJsonObject target{{"id", 4}, {"address", "opc.tcp://127.0.0.1:1"}};
    const QJsonObject document = runOk(QJsonObject{{"device", device}, {"target_device", target}});
    EXPECT_EQ(document.value("requested_device").toObject(), device);
    EXPECT_EQ(document.value("items").toArray().at(0).toObject().value("uid_hint").toString(),
              items_test::uidHint("3", "ns=1;s=Alias.X"));
}

TEST_F(ItemsJob, ItemsAreSortedWithoutRegardToCase)
{
    startSim(presetScenario({"types", "many"}));
    const QJsonArray items = runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}).value("items").toArray();
    const QStringList ids = items_test::identifiers(items);
    ASSERT_EQ(ids.size(), 33 + 100);
    for (int i = 1; i < ids.size(); ++i)
        EXPECT_LE(ids.at(i - 1).compare(ids.at(i), Qt::CaseInsensitive), 0) << ids.at(i).toStdString();
    QStringList distinct = ids;
    EXPECT_EQ(distinct.removeDuplicates(), 0);
    // Case does not count: "Many" sorts among the "m"s, before "ns=1;s=Types".
    EXPECT_EQ(ids.first(), "ns=1;s=Many.V0");
    EXPECT_EQ(ids.at(1), "ns=1;s=Many.V1");
    EXPECT_EQ(ids.at(2), "ns=1;s=Many.V10");
}

TEST_F(ItemsJob, NamesBeyondAsciiCaseAndSeveralPathsAreReportedExactly)
{
    startSim(presetScenario({"names"}));
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 7);
    const QJsonObject document = runOk(QJsonObject{{"device", device}});
    const QJsonArray items = document.value("items").toArray();
    EXPECT_EQ(document.value("warnings").toArray(), QJsonArray());
    const auto expect = [&items](const QString& id, const QString& name, const QString& readWrite = "read") {
        EXPECT_EQ(itemById(items, "ns=1;s=" + id),
                  itemRecord("7", "ns=1;s=" + id, name, "OPC UA Variable (Int32)", "Int32", readWrite))
            << id.toStdString();
    };
    expect(QStringLiteral("Names.K\u00fchlwasser"), QStringLiteral("Names.K\u00fchlwasser"));
    expect(QStringLiteral("Names.\u6e29\u5ea6"), QStringLiteral("Names.\u6e29\u5ea6"));
    const QString fire = QString::fromUtf8("\xf0\x9f\x94\xa5");
    expect("Names." + fire, "Names." + fire + " Feuer");
    expect(QStringLiteral("Names.\uff21"), QStringLiteral("Names.\uff21"));
    expect(QStringLiteral("Names.\u00c4"), QStringLiteral("Names.\u00c4"));
    expect(QStringLiteral("Names.\u00e4"), QStringLiteral("Names.\u00e4"), "readwrite");
    expect("Names.b", "Names.b");
    expect("Names.Case.x", "Names.Case.x");
    expect("Names.Case.X", "Names.Case.X", "readwrite");
    expect("Names.case.x", "Names.case.x");
    expect("Names.Quote", "Names.say \"hi\" \\ there");
    expect("Names.Tab", "Names.tab\there");
    expect("Names.Control", "Names.bell\u0001\u007f");
    expect("Names.Padded", "Names.Padded");
    expect("Names.Dotted", "Names.a.b");
    // Names the path leaves out: a blank folder, a leading "Objects", a variable named "Root"
    // (listed by its display name) or "ROOT" without a display name (by its browse name).
    expect("Names.Blank.V", "Names.V");
    expect("NamesObjects.V", "V");
    expect("NamesRoot", "Root display");
    expect("NamesRootBare", "ROOT");
    // Equally deep paths: the longer in characters wins, whichever came first.
    EXPECT_EQ(itemById(items, "ns=1;s=Names.Geteilt"),
              itemRecord("7", "ns=1;s=Names.Geteilt", QStringLiteral("Names.K\u00fchlung.Geteilt"),
                         QStringLiteral("OPC UA Variable (Int32); also Names.\u6e29\u5ea6\u8ba1.Geteilt"), "Int32", "read"));
    // Reached on five paths: named by the deepest, every other one named once in the description.
    const QJsonObject shared = itemById(items, "ns=1;s=Names.Shared");
    EXPECT_EQ(shared.value("name").toString(), "Names.Q.R.Shared");
    QStringList described = shared.value("description").toString().split("; also ");
    EXPECT_EQ(described.takeFirst(), "OPC UA Variable (Int32, array)");
    std::sort(described.begin(), described.end());
    EXPECT_EQ(described, (QStringList{"Names.Longer.Shared", "Names.P.Shared", "Names.Q.Shared", "Names.Shared"}));
    EXPECT_TRUE((QStringList{"Names.D.V", "Names.Q.D.V", "Names.Q.R.D.V"})
                    .contains(itemById(items, "ns=1;s=Names.D.V").value("name").toString()));
    EXPECT_EQ(items.size(), 22);

    // The order is QString's without regard to case: by UTF-16 code units, so U+1F525 (a
    // surrogate pair) comes before U+FF21, where UTF-8 bytes would have it the other way round,
    // and the umlauts come after "b".
    const QStringList ids = items_test::identifiers(items);
    for (int i = 1; i < ids.size(); ++i)
        EXPECT_LE(ids.at(i - 1).compare(ids.at(i), Qt::CaseInsensitive), 0) << ids.at(i).toStdString();
    EXPECT_LT(ids.indexOf("ns=1;s=Names." + fire), ids.indexOf(QStringLiteral("ns=1;s=Names.\uff21")));
    EXPECT_LT(ids.indexOf("ns=1;s=Names.b"), ids.indexOf(QStringLiteral("ns=1;s=Names.\u00c4")));
    EXPECT_LT(ids.indexOf("ns=1;s=Names.b"), ids.indexOf(QStringLiteral("ns=1;s=Names.\u00e4")));
    // Identifiers that differ only in case stand together, in the order the walk found them.
    QList<int> caseOnly{ids.indexOf("ns=1;s=Names.Case.x"), ids.indexOf("ns=1;s=Names.Case.X"),
                        ids.indexOf("ns=1;s=Names.case.x")};
    std::sort(caseOnly.begin(), caseOnly.end());
    EXPECT_EQ(caseOnly.last() - caseOnly.first(), 2);
}

TEST_F(ItemsJob, RecordsEqualThoseMadeHereFromTheReferenceWalk)
{
    QJsonObject scenario = presetScenario(
        {"types", "writable", "unsupported", "access", "alias", "properties", "deep", "many", "empty", "names"});
    QJsonObject space = scenario.value("address_space").toObject();
    space.insert("max_references_per_node", 7);
    space.insert("synthetic_count", 300);
    space.insert("synthetic_folder_size", 40);
    scenario.insert("address_space", space);
    startSim(scenario);
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 7);
    const QJsonObject document = runOk(QJsonObject{{"device", device}});

    // The walk with one request per question, its items made into records here.
    DeviceInstancePlugin plugin;
    plugin.address = sim_.endpointUrl();
    plugin.settings.insert("security_mode", "1");
    plugin.settings.insert("security_policies", items_test::kSecurityPolicyNone);
    ClientCore core(plugin, QString(), "tests", 5000);
    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    BrowseItems walked;
    QStringList warnings;
    ASSERT_TRUE(core.browseNodes(&walked, &warnings, {}, ClientCore::BrowseFetch::OneByOne));
    QList<ClientCore::BrowseItem> sorted = expandedItems(walked);
    std::stable_sort(sorted.begin(), sorted.end(), [](const ClientCore::BrowseItem& a, const ClientCore::BrowseItem& b) {
        return a.nodeId.compare(b.nodeId, Qt::CaseInsensitive) < 0;
    });
    QJsonArray expected;
    for (const ClientCore::BrowseItem& item : sorted)
        expected.append(items_test::expectedRecord("7", item));
    warnings.removeDuplicates();
    std::sort(warnings.begin(), warnings.end(),
              [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });

    EXPECT_EQ(document.value("items").toArray().size(), 33 + 32 + 4 + 1 + 3 + 1 + 100 + 300 + 22);
    EXPECT_EQ(document.value("items").toArray(), expected);
    EXPECT_EQ(document.value("warnings").toArray(), QJsonArray::fromStringList(warnings));
}

TEST_F(ItemsJob, LargeResultWithSnapshotsEqualsRecordsMadeHereFromTheReferenceWalk)
{
    // 60 000 variables in folders of 100 beside the names, with a snapshot file, compared record
    // by record with the walk of one request per question: more references than the batched
    // source holds ahead of the walk (the benchmarks go to 1 000 000 of the same shape).
    QJsonObject scenario = presetScenario({"names"});
    QJsonObject space = scenario.value("address_space").toObject();
    space.insert("synthetic_count", 60000);
    space.insert("synthetic_folder_size", 100);
    scenario.insert("address_space", space);
    startSim(scenario);
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 7);
    const QString snapshot = path("progress.json");
    const QJsonObject document =
        runOk(QJsonObject{{"device", device}}, {{QStringLiteral("OVRIN_DISCOVERY_OUTPUT_FILE"), snapshot}});

    DeviceInstancePlugin plugin;
    plugin.address = sim_.endpointUrl();
    plugin.settings.insert("security_mode", "1");
    plugin.settings.insert("security_policies", items_test::kSecurityPolicyNone);
    ClientCore core(plugin, QString(), "tests", 20000);
    ASSERT_TRUE(core.isConnected()) << plugin.statusText.toStdString();
    BrowseItems walked;
    QStringList warnings;
    ASSERT_TRUE(core.browseNodes(&walked, &warnings, {}, ClientCore::BrowseFetch::OneByOne));
    QList<ClientCore::BrowseItem> sorted = expandedItems(walked);
    std::stable_sort(sorted.begin(), sorted.end(), [](const ClientCore::BrowseItem& a, const ClientCore::BrowseItem& b) {
        return a.nodeId.compare(b.nodeId, Qt::CaseInsensitive) < 0;
    });

    const QJsonArray items = document.value("items").toArray();
    ASSERT_EQ(items.size(), 60000 + 22);
    ASSERT_EQ(sorted.size(), items.size());
    int different = 0;
    for (int i = 0; i < items.size(); ++i) {
        const QJsonObject expected = items_test::expectedRecord("7", sorted.at(i));
        if (items.at(i).toObject() == expected)
            continue;
        if (++different <= 5)
            ADD_FAILURE() << "record " << i << ": "
                          << QJsonDocument(items.at(i).toObject()).toJson(QJsonDocument::Compact).toStdString()
                          << "\nexpected: " << QJsonDocument(expected).toJson(QJsonDocument::Compact).toStdString();
    }
    EXPECT_EQ(different, 0);
    EXPECT_EQ(document.value("warnings").toArray(), QJsonArray());
    EXPECT_TRUE(warnings.isEmpty()) << warnings.join('\n').toStdString();

    // The last snapshot is a complete document of the items browsed by then.
    QFile file(snapshot);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject progress = QJsonDocument::fromJson(file.readAll()).object();
    const int snapshotItems = progress.value("items").toArray().size();
    EXPECT_GT(snapshotItems, 0);
    EXPECT_LE(snapshotItems, items.size());
}

TEST_F(ItemsJob, ContinuationPointsDeliverEveryChild)
{
    QJsonObject scenario = presetScenario({"many"});
    QJsonObject space = scenario.value("address_space").toObject();
    space.insert("max_references_per_node", 7);
    scenario.insert("address_space", space);
    startSim(scenario);
    const QJsonObject document = runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    EXPECT_EQ(document.value("items").toArray().size(), 100);
    EXPECT_EQ(document.value("warnings").toArray(), QJsonArray());
}

TEST_F(ItemsJob, WarningsAreDistinctAndSortedWithoutRegardToCase)
{
    startSim(presetScenario({"unsupported", "access"}));
    const QJsonArray warnings =
        runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}).value("warnings").toArray();
    ASSERT_FALSE(warnings.isEmpty());
    QStringList texts;
    for (const QJsonValue& warning : warnings)
        texts.append(warning.toString());
    QStringList distinct = texts;
    EXPECT_EQ(distinct.removeDuplicates(), 0);
    for (int i = 1; i < texts.size(); ++i)
        EXPECT_LT(texts.at(i - 1).compare(texts.at(i), Qt::CaseInsensitive), 0);
}

TEST_F(ItemsJob, EmptyAddressSpaceGivesNoItems)
{
    startSim(presetScenario({"empty"}));
    const QJsonObject document = runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    EXPECT_EQ(document.value("items").toArray(), QJsonArray());
    EXPECT_EQ(document.value("warnings").toArray(), QJsonArray());
}

TEST_F(ItemsJob, StdoutHoldsOnlyTheResultWhileTheStackLogs)
{
    // A user name on an unsecured endpoint without certificate files: the job and the
    // stack write warnings while the result goes to standard output.
    QJsonObject scenario = presetScenario({"alias"});
    scenario.insert("users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}});
    startSim(scenario);
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", "secret");
    const ProcessResult result = run(QJsonObject{{"device", device}});
    ASSERT_TRUE(result.finished);
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_TRUE(result.err.contains("<warning>")) << result.err.constData();
    bool ok = false;
    const QJsonObject document = items_test::parseObject(result.out, &ok);
    ASSERT_TRUE(ok) << result.out.constData();
    EXPECT_EQ(result.out, test_support::indentedJson(document));
    EXPECT_EQ(document.value("items").toArray().size(), 1);
}

TEST_F(ItemsJob, OutputFileGetsTheResultAndStdoutStaysEmpty)
{
    QJsonObject scenario = presetScenario({"alias"});
    scenario.insert("users", QJsonArray{QJsonObject{{"name", "operator"}, {"password", "secret"}}});
    startSim(scenario);
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("username", "operator");
    device.insert("password", "secret");
    const ProcessResult result = run(QJsonObject{{"device", device}}, {"--output", path("result.json")});
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_TRUE(result.out.isEmpty()) << result.out.constData();
    bool ok = false;
    const QByteArray bytes = test_support::readFile(path("result.json"));
    const QJsonObject document = items_test::parseObject(bytes, &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(bytes, test_support::indentedJson(document));
    EXPECT_EQ(document.value("items").toArray().size(), 1);
}

TEST_F(ItemsJob, ResultThatCannotBeWrittenEndsWithStatus7)
{
    startSim(presetScenario({"alias"}));
    const QString output = path("missing/result.json");
    const ProcessResult result = run(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, {"--output", output});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to open output file: " + output + "\n").toUtf8());
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(ItemsJob, BlanksInTheAddressAreRemoved)
{
    startSim(presetScenario({"alias"}));
    const QString url = sim_.endpointUrl();
    for (const QString& address : {"  " + url + "  ", QString(url).replace("://", ":// "),
                                   QString(url).remove("opc.tcp://").replace(":", " :")}) {
        QJsonObject device = noneDevice(address);
        const QJsonObject document = runOk(QJsonObject{{"device", device}});
        EXPECT_EQ(document.value("items").toArray().size(), 1) << address.toStdString();
        EXPECT_EQ(document.value("requested_device").toObject().value("address").toString(), address);
    }
}

TEST_F(ItemsJob, DeviceFieldsOfWrongTypesAreIgnored)
{
    startSim(presetScenario({"alias"}));
    // An id that is no number and settings that are neither strings nor numbers read as absent.
    const QJsonObject device{{"id", "7"},
                             {"uid", 42},
                             {"address", sim_.endpointUrl()},
                             {"username", QJsonArray{"operator"}},
                             {"security_mode", 1},
                             {"security_policies", items_test::kSecurityPolicyNone},
                             {"user_defined_fields", "not an object"}};
    const QJsonArray items = runOk(QJsonObject{{"device", device}}).value("items").toArray();
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items.at(0).toObject().value("uid_hint").toString(),
              items_test::uidHint(devicePartOf(sim_.endpointUrl()), "ns=1;s=Alias.X"));
}

TEST_F(ItemsJob, NonObjectDeviceAndTargetEndWithStatus3)
{
    for (const QJsonObject& request :
         {QJsonObject{{"device", 5}}, QJsonObject{{"device", QJsonArray{}}, {"target_device", "x"}},
          QJsonObject{{"target_device", QJsonValue()}}}) {
        const ProcessResult result = run(request);
        ASSERT_TRUE(result.finished);
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(result.err, QByteArray("discover_items requires a target device object in request_json under "
                                         "'device' or 'target_device'.\n"));
        EXPECT_TRUE(result.out.isEmpty());
    }
}

TEST_F(ItemsJob, AddressThatIsNoTextEndsWithStatus4)
{
    for (const QJsonValue& address : {QJsonValue(4840), QJsonValue("   "), QJsonValue(QJsonObject{})}) {
        const ProcessResult result = run(QJsonObject{{"device", QJsonObject{{"address", address}}}},
                                         {"--output", path("result.json")});
        ASSERT_TRUE(result.finished);
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_EQ(result.err, QByteArray("Target device is missing an address\n"));
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_FALSE(QFile::exists(path("result.json")));
    }
}

TEST_F(ItemsJob, ServerDroppingTheConnectionMidBrowseGivesPartialItems)
{
    QJsonObject scenario = presetScenario({"types", "alias", "deep"});
    scenario.insert("misbehaviour", QJsonObject{{"drop_after", 4}, {"drop_services", QJsonArray{"Browse"}}});
    startSim(scenario);
    const QJsonObject document = runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    const int collected = document.value("items").toArray().size();
    EXPECT_LT(collected, 33 + 1 + 1);
    QStringList warnings;
    for (const QJsonValue& warning : document.value("warnings").toArray())
        warnings.append(warning.toString());
    ASSERT_EQ(warnings.size(), 2) << warnings.join('\n').toStdString();
    EXPECT_TRUE(warnings.at(0).startsWith("Browse failed for ns=1;s=")) << warnings.at(0).toStdString();
    EXPECT_TRUE(warnings.at(0).endsWith(": BadSecureChannelClosed") || warnings.at(0).endsWith(": BadConnectionClosed"))
        << warnings.at(0).toStdString();
    EXPECT_EQ(warnings.at(1), QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                             "connection timeout. %1 items were collected.")
                                  .arg(collected));
}

TEST_F(ItemsJob, BrowseAnswerAfterTheTimeoutStopsTheBrowse)
{
    QJsonObject scenario = presetScenario({"types", "alias", "deep"});
    scenario.insert("misbehaviour",
                    QJsonObject{{"delay_ms", 3000}, {"delay_after", 4}, {"delay_services", QJsonArray{"Browse"}}});
    startSim(scenario);
    QJsonObject request{{"device", noneDevice(sim_.endpointUrl())}, {"timeout_ms", 1000}};
    const QJsonObject document = runOk(request);
    const int collected = document.value("items").toArray().size();
    QStringList warnings;
    for (const QJsonValue& warning : document.value("warnings").toArray())
        warnings.append(warning.toString());
    ASSERT_EQ(warnings.size(), 2) << warnings.join('\n').toStdString();
    EXPECT_TRUE(warnings.at(0).startsWith("Browse failed for ns=1;s=")) << warnings.at(0).toStdString();
    EXPECT_TRUE(warnings.at(0).endsWith(": BadTimeout")) << warnings.at(0).toStdString();
    EXPECT_EQ(warnings.at(1), QStringLiteral("Stopped browsing because the OPC UA server did not respond within the "
                                             "connection timeout. %1 items were collected.")
                                  .arg(collected));
}
