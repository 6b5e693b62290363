#include "conversion_support.h"

#include "client_core/node_id.h"
#include "client_core/opc_ua_client_core.h"
#include "framework/device_instance_plugin.h"
#include "sim/support/process_runner.h"
#include "sim/support/sim_server.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

using namespace values_test;

namespace {

const char* const nonePolicy = "http://opcfoundation.org/UA/SecurityPolicy#None";

QJsonObject presetsScenario()
{
    return QJsonObject{
        {"address_space", QJsonObject{{"presets", QJsonArray{"types", "writable", "unsupported", "history"}},
                                      {"hide_server_object", false}}}};
}

ClientCore::Node simNode(const QString& identifier, quint16 arrayIndex = 65535)
{
    ClientCore::Node node;
    node.namespaceIndex = 1;
    node.identifier = identifier;
    node.arrayIndex = arrayIndex;
    return node;
}

class NodeAccessOnSim : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { useUtcTimeZone(); }

    // Starts the simulator and connects a client core to it; false (with a failure or skip) when impossible.
    bool startAndConnect(const QJsonObject& scenario)
    {
        if (!QFileInfo::exists(test_support::simExecutable())) {
            if (test_support::runningInCi())
                ADD_FAILURE() << "opcua_sim is not built: " << test_support::simExecutable().toStdString();
            return false;
        }
        QString error;
        if (!sim.start(scenario, &error)) {
            ADD_FAILURE() << "simulator did not start: " << error.toStdString();
            return false;
        }
        plugin.instanceName = QStringLiteral("values-sim");
        plugin.address = sim.endpointUrl();
        plugin.settings[QStringLiteral("security_mode")] = QStringLiteral("1");
        plugin.settings[QStringLiteral("security_policies")] = QLatin1String(nonePolicy);
        core = std::make_unique<ClientCore>(plugin, filesDir.path() + QLatin1Char('/'),
                                            QStringLiteral("values_test"), 5000);
        if (!core->isConnected()) {
            ADD_FAILURE() << "client core did not connect to " << sim.endpointUrl().toStdString() << ": "
                          << plugin.statusText.toStdString();
            return false;
        }
        return true;
    }

    // The value text of a read, or "error: <text>".
    QString read(ClientCore::Node node)
    {
        if (!core->readNode(&node))
            return QStringLiteral("error: ") + node.error;
        return node.value;
    }

    QString read(const QString& identifier, quint16 arrayIndex = 65535)
    {
        return read(simNode(identifier, arrayIndex));
    }

    // The result of a write: "ok" or "error: <text>".
    QString write(const QString& identifier, const QString& value, quint16 arrayIndex = 65535)
    {
        ClientCore::Node node = simNode(identifier, arrayIndex);
        node.value = value;
        const bool written = core->writeNode(&node);
        if (written != node.error.isEmpty())
            return QStringLiteral("inconsistent: %1 with error '%2'").arg(written ? "true" : "false", node.error);
        return written ? QStringLiteral("ok") : QStringLiteral("error: ") + node.error;
    }

    ClientCore::Node history(const QString& identifier, qint64 startMs, qint64 endMs, bool* ok)
    {
        ClientCore::Node node = simNode(identifier);
        node.readMode = 1;
        node.historyStartMs = startMs;
        node.historyEndMs = endMs;
        *ok = core->readNode(&node);
        return node;
    }

    test_support::SimServer sim;
    QTemporaryDir filesDir;
    DeviceInstancePlugin plugin;
    std::unique_ptr<ClientCore> core;
};

#define START_SIM(scenario)                                                                                  \
    do {                                                                                                     \
        if (!startAndConnect(scenario)) {                                                                    \
            if (!HasFailure())                                                                               \
                GTEST_SKIP() << "opcua_sim is not built";                                                    \
            return;                                                                                          \
        }                                                                                                    \
    } while (0)

struct Expected
{
    const char* type;
    const char* scalar;
    const char* array;
    const char* element1;
    qint32 kind;
};

const Expected everyType[] = {
    {"Boolean", "1", "[1, 0, 1]", "0", 0},
    {"SByte", "-8", "[-1, 0, 1]", "0", 1},
    {"Byte", "200", "[1, 2, 3]", "2", 2},
    {"Int16", "-1234", "[-1, 0, 1]", "0", 3},
    {"UInt16", "54321", "[1, 2, 3]", "2", 4},
    {"Int32", "-123456", "[-1, 0, 1]", "0", 5},
    {"UInt32", "3000000000", "[1, 2, 3]", "2", 6},
    {"Int64", "-9000000000", "[-1, 0, 1]", "0", 7},
    {"UInt64", "18000000000000000000", "[1, 2, 3]", "2", 8},
    {"Float", "3.5000", "[1.5000, 2.5000, 3.5000]", "2.5000", 9},
    {"Double", "3.1416", "[1.5000, 2.5000, 3.5000]", "2.5000", 10},
    {"String", "Hello OPC UA", "[\"a\", \"b\", \"c\"]", "b", 11},
    {"DateTime", "2024-01-02 03:04:05.678",
     "[\"2024-01-01 00:00:00.000\", \"2024-01-02 00:00:00.000\", \"2024-01-03 00:00:00.000\"]",
     "2024-01-02 00:00:00.000", 12},
    {"Guid", "{6f1c2d3e-0-4000-800-000001}",
     "[\"{6f1c2d3e-0-4000-800-000001}\", \"{6f1c2d3e-0-4000-800-000002}\", \"{6f1c2d3e-0-4000-800-000003}\"]",
     "{6f1c2d3e-0-4000-800-000002}", 13},
    {"ByteString", "0102abff", "[\"01\", \"0203\", \"040506\"]", "0203", 14},
    {"LocalizedText", "Hello", "[\"a\", \"b\", \"c\"]", "b", 20},
};

TEST_F(NodeAccessOnSim, ReadsEverySupportedTypeAsScalarArrayAndElement)
{
    START_SIM(presetsScenario());
    for (const Expected& e : everyType) {
        SCOPED_TRACE(e.type);
        ClientCore::Node node = simNode(QStringLiteral("Types.%1").arg(e.type));
        ASSERT_TRUE(core->readNode(&node)) << node.error.toStdString();
        EXPECT_EQ(node.value, e.scalar);
        EXPECT_EQ(node.dataTypeKind, e.kind);
        EXPECT_TRUE(node.timestamp.isValid());
        EXPECT_EQ(node.timestamp.timeSpec(), Qt::UTC);
        EXPECT_EQ(read(QStringLiteral("Types.%1Array").arg(e.type)), e.array);
        EXPECT_EQ(read(QStringLiteral("Types.%1Array").arg(e.type), 1), e.element1);
    }
    EXPECT_EQ(read(QStringLiteral("Types.UtcTime")), "2024-01-02 03:04:05.678");
}

TEST_F(NodeAccessOnSim, ElementPastTheEndOfAnArrayIsAnError)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(read(QStringLiteral("Types.Int32Array"), 3),
              "error: Array index 3 is out of range for an array of 3 elements");
}

TEST_F(NodeAccessOnSim, FullNodeIdAndNumericIdentifiers)
{
    START_SIM(presetsScenario());
    ClientCore::Node full;
    full.useFullNodeId = true;
    full.fullNodeId = QStringLiteral("ns=1;s=Types.Int32");
    full.namespaceIndex = 7;
    full.identifier = QStringLiteral("ignored");
    EXPECT_EQ(read(full), "-123456");

    // Server_ServerStatus_State, a numeric identifier in namespace 0: Running.
    ClientCore::Node numeric;
    numeric.namespaceIndex = 0;
    numeric.identifier = QStringLiteral("2259");
    EXPECT_EQ(read(numeric), "0");
}

TEST_F(NodeAccessOnSim, UnknownNodeReadNamesNamespaceIdentifierAndStatus)
{
    START_SIM(presetsScenario());
    ClientCore::Node node;
    node.namespaceIndex = 2;
    node.identifier = QStringLiteral("X");
    node.value = QStringLiteral("old");
    EXPECT_FALSE(core->readNode(&node));
    EXPECT_EQ(node.error, "Unknown node identifier (ns: 2 id:X). Error: BadNodeIdUnknown");
    EXPECT_EQ(node.value, "old");
    EXPECT_FALSE(node.timestamp.isValid());
}

TEST_F(NodeAccessOnSim, ValuesOfUnsupportedTypes)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(read(QStringLiteral("Unsupported.Structure")), "error: Invalid/Unsupported scalar type BuildInfo (27)");
    EXPECT_EQ(read(QStringLiteral("Unsupported.Range")), "error: Invalid/Unsupported scalar type Range (27)");
    EXPECT_EQ(read(QStringLiteral("Unsupported.NodeId")), "error: Unsupported node data type (NodeId)");
    // An enumeration travels as its Int32 value.
    EXPECT_EQ(read(QStringLiteral("Unsupported.Enum")), "0");
}

TEST_F(NodeAccessOnSim, HistoryOfTheLastHourIsNewestFirst)
{
    START_SIM(presetsScenario());
    bool ok = false;
    const ClientCore::Node node = history(QStringLiteral("History.Value"), -3600000, 0, &ok);
    ASSERT_TRUE(ok) << node.error.toStdString();
    EXPECT_TRUE(node.timestamp.isValid());
    EXPECT_EQ(node.dataTypeKind, 10);
    const QJsonDocument doc = QJsonDocument::fromJson(node.value.toUtf8());
    ASSERT_TRUE(doc.isArray()) << node.value.toStdString();
    EXPECT_EQ(node.value, QString::fromUtf8(doc.toJson(QJsonDocument::Compact)));
    const QJsonArray entries = doc.array();
    ASSERT_EQ(entries.size(), 5) << node.value.toStdString();

    // Values with a source timestamp come first, newest first, in UTC with milliseconds.
    QStringList withSource;
    QDateTime previous;
    for (int i = 0; i < 3; ++i) {
        const QJsonObject entry = entries[i].toObject();
        withSource << entry["value"].toString();
        const QDateTime time = QDateTime::fromString(entry["time"].toString(), "yyyy-MM-dd hh:mm:ss.zzz");
        EXPECT_TRUE(time.isValid()) << entry["time"].toString().toStdString();
        if (i > 0) {
            EXPECT_LT(time, previous);
        }
        previous = time;
    }
    EXPECT_EQ(withSource, QStringList({"50.0000", "30.0000", "10.0000"}));

    // Values without one follow, stamped with the reading time in Qt's default text form.
    QStringList withoutSource;
    for (int i = 3; i < 5; ++i) {
        const QJsonObject entry = entries[i].toObject();
        withoutSource << entry["value"].toString();
        const QString time = entry["time"].toString();
        EXPECT_TRUE(QDateTime::fromString(time, Qt::TextDate).isValid()) << time.toStdString();
        EXPECT_FALSE(QDateTime::fromString(time, "yyyy-MM-dd hh:mm:ss.zzz").isValid());
    }
    withoutSource.sort();
    EXPECT_EQ(withoutSource, QStringList({"20.0000", "40.0000"}));
}

TEST_F(NodeAccessOnSim, HistoryFollowsContinuationPoints)
{
    START_SIM(presetsScenario());
    bool ok = false;
    const ClientCore::Node node = history(QStringLiteral("History.Long"), -3600000, 0, &ok);
    ASSERT_TRUE(ok) << node.error.toStdString();
    const QJsonArray entries = QJsonDocument::fromJson(node.value.toUtf8()).array();
    ASSERT_EQ(entries.size(), 25) << node.value.toStdString();
    for (int i = 0; i < 25; ++i)
        EXPECT_EQ(entries[i].toObject()["value"].toString(), QString::number(24 - i) + ".0000");
}

TEST_F(NodeAccessOnSim, HistoryStartAfterEndReadsUpToNow)
{
    START_SIM(presetsScenario());
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    bool ok = false;
    // From 35 minutes ago; the end two hours ago lies before the start and is replaced by now.
    const ClientCore::Node node = history(QStringLiteral("History.Long"), now - 35 * 60000, now - 7200000, &ok);
    ASSERT_TRUE(ok) << node.error.toStdString();
    const QJsonArray entries = QJsonDocument::fromJson(node.value.toUtf8()).array();
    ASSERT_EQ(entries.size(), 25) << node.value.toStdString();
    EXPECT_EQ(entries.first().toObject()["value"].toString(), "24.0000");
}

TEST_F(NodeAccessOnSim, HistoryOfAnEmptyRangeIsAnEmptyValue)
{
    START_SIM(presetsScenario());
    bool ok = false;
    ClientCore::Node node = simNode(QStringLiteral("History.Value"));
    node.value = QStringLiteral("old");
    node.readMode = 1;
    node.historyStartMs = -2000;
    node.historyEndMs = -1000;
    ASSERT_TRUE(core->readNode(&node)) << node.error.toStdString();
    EXPECT_EQ(node.value, "");
    EXPECT_TRUE(node.timestamp.isValid());
    Q_UNUSED(ok);
}

TEST_F(NodeAccessOnSim, HistoryOfAnUnknownNodeReportsTheServersStatus)
{
    START_SIM(presetsScenario());
    // The stack's server checks the user's history access before the node's existence.
    ClientCore::Node node;
    node.namespaceIndex = 2;
    node.identifier = QStringLiteral("X");
    node.readMode = 1;
    node.historyStartMs = -3600000;
    EXPECT_FALSE(core->readNode(&node));
    EXPECT_EQ(node.error, "Error code: BadUserAccessDenied");
}

TEST_F(NodeAccessOnSim, HistoryOfANodeWithoutHistory)
{
    START_SIM(presetsScenario());
    bool ok = true;
    const ClientCore::Node node = history(QStringLiteral("Types.Int32"), -3600000, 0, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(node.error, "Error code: BadUserAccessDenied");
}

struct WriteCase
{
    const char* type;
    const char* text;
    const char* readBack;
};

const WriteCase writableScalars[] = {
    {"Boolean", "0", "0"},
    {"SByte", "-5", "-5"},
    {"Byte", "7", "7"},
    {"Int16", "-300", "-300"},
    {"UInt16", "65000", "65000"},
    {"Int32", "-42", "-42"},
    {"UInt32", "4000000000", "4000000000"},
    {"Int64", "-2000000000", "-2000000000"},
    {"UInt64", "4000000000", "4000000000"},
    {"Float", "2.25", "2.2500"},
    {"Double", "6.5", "6.5000"},
    {"String", "written \"text\"", "written \"text\""},
    {"DateTime", "2024-05-06 07:08:09.123", "2024-05-06 07:08:09.000"},
    {"ByteString", "0x0A 0B", "0a0b"},
};

TEST_F(NodeAccessOnSim, WritesEveryWritableTypeAndReadsItBack)
{
    START_SIM(presetsScenario());
    for (const WriteCase& w : writableScalars) {
        SCOPED_TRACE(w.type);
        const QString id = QStringLiteral("Writable.%1").arg(w.type);
        EXPECT_EQ(write(id, w.text), "ok");
        EXPECT_EQ(read(id), w.readBack);
    }
}

TEST_F(NodeAccessOnSim, BooleanWriteTextIsNumeric)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(write(QStringLiteral("Writable.Boolean"), "true"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Boolean")), "0");
    EXPECT_EQ(write(QStringLiteral("Writable.Boolean"), "1"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Boolean")), "1");
}

TEST_F(NodeAccessOnSim, WholeArrayFromJsonAndOneElementByIndexRange)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(write(QStringLiteral("Writable.Int32Array"), "[4,5,6,7]"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Int32Array")), "[4, 5, 6, 7]");
    EXPECT_EQ(write(QStringLiteral("Writable.Int32Array"), "9", 3), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Int32Array")), "[4, 5, 6, 9]");

    EXPECT_EQ(write(QStringLiteral("Writable.StringArray"), "z", 1), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.StringArray")), "[\"a\", \"z\", \"c\"]");
    EXPECT_EQ(write(QStringLiteral("Writable.DoubleArray"), "[0.5, 1]"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.DoubleArray")), "[0.5000, 1.0000]");
    EXPECT_EQ(write(QStringLiteral("Writable.ByteStringArray"), "[\"0x0A 0B\"]"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.ByteStringArray")), "[\"0a0b\"]");
    EXPECT_EQ(write(QStringLiteral("Writable.DateTimeArray"), "2024-05-06 07:08:09.123", 0), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.DateTimeArray"), 0), "2024-05-06 07:08:09.000");
    EXPECT_EQ(write(QStringLiteral("Writable.Int64Array"), "[-5000000000]"), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Int64Array")), "[-5000000000]");
}

TEST_F(NodeAccessOnSim, GuidAndLocalizedTextAreNotWritten)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(write(QStringLiteral("Writable.Guid"), "{1-2-3-45-6}"), "error: Writing Guid values is not supported");
    EXPECT_EQ(write(QStringLiteral("Writable.LocalizedText"), "x"),
              "error: Writing LocalizedText values is not supported");
    EXPECT_EQ(read(QStringLiteral("Writable.LocalizedText")), "Hello");
}

TEST_F(NodeAccessOnSim, UnsupportedDataTypeNamesTheType)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(write(QStringLiteral("Unsupported.Structure"), "1"), "error: Unsupported node data type i=338");
    EXPECT_EQ(write(QStringLiteral("Unsupported.Enum"), "1"), "error: Unsupported node data type i=852");
}

TEST_F(NodeAccessOnSim, UnknownNodeWriteNamesIdentifierAndNamespace)
{
    START_SIM(presetsScenario());
    ClientCore::Node node;
    node.namespaceIndex = 2;
    node.identifier = QStringLiteral("X");
    node.value = QStringLiteral("1");
    node.error = QStringLiteral("stale");
    EXPECT_FALSE(core->writeNode(&node));
    EXPECT_EQ(node.error, "Unknown node identifier Identifier: X Namespace index: 2");
}

TEST_F(NodeAccessOnSim, InvalidDateTextIsNotSent)
{
    START_SIM(presetsScenario());
    EXPECT_EQ(write(QStringLiteral("Writable.DateTime"), "yesterday"),
              "error: Invalid date time format. Expected format: yyyy-MM-dd hh:mm:ss.zzz");
    EXPECT_EQ(read(QStringLiteral("Writable.DateTime")), "2024-01-02 03:04:05.678");
}

TEST_F(NodeAccessOnSim, RefusedValueStillCountsAsWritten)
{
    START_SIM(presetsScenario());
    // The server refuses each of these per value (not writable, index past the end); the write
    // result looks only at the service result.
    EXPECT_EQ(write(QStringLiteral("Types.Int32"), "5"), "ok");
    EXPECT_EQ(read(QStringLiteral("Types.Int32")), "-123456");
    EXPECT_EQ(write(QStringLiteral("Writable.Int32Array"), "5", 10), "ok");
    EXPECT_EQ(read(QStringLiteral("Writable.Int32Array")), "[-1, 0, 1]");
}

TEST_F(NodeAccessOnSim, DroppedConnectionDuringWriteCountsAsWritten)
{
    QJsonObject scenario = presetsScenario();
    scenario["misbehaviour"] = QJsonObject{{"drop_after", 0}, {"drop_services", QJsonArray{"Write"}}};
    START_SIM(scenario);
    ClientCore::Node node = simNode(QStringLiteral("Writable.Int32"));
    node.value = QStringLiteral("5");
    // The stack answers a write whose connection closes with BadSecureChannelClosed, which is not
    // one of the two service results the write treats as failures.
    EXPECT_TRUE(core->writeNode(&node));
    EXPECT_EQ(node.error, "");
    EXPECT_EQ(sim.stats()["dropped"].toInt(), 1);
    // The next synchronous call re-opens the channel and finds the old value.
    EXPECT_EQ(read(QStringLiteral("Writable.Int32")), "-123456");
    EXPECT_TRUE(core->isConnected());
}

TEST_F(NodeAccessOnSim, DroppedConnectionDuringReadIsAConnectionFailure)
{
    QJsonObject scenario = presetsScenario();
    scenario["misbehaviour"] = QJsonObject{{"drop_after", 0}, {"drop_services", QJsonArray{"Read"}}};
    START_SIM(scenario);
    ClientCore::Node node = simNode(QStringLiteral("Types.Int32"));
    node.value = QStringLiteral("old");
    EXPECT_FALSE(core->readNode(&node));
    EXPECT_EQ(node.error, "Connection failed");
    EXPECT_EQ(node.value, "old");
    EXPECT_FALSE(node.timestamp.isValid());
    EXPECT_GE(sim.stats()["dropped"].toInt(), 1);
}

} // namespace
