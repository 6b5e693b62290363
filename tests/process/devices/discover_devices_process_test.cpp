// The discover_devices envelope through the built process, with the subnet scan turned off
// (this suite runs in the machine's own network namespace and must never scan it).

#include "sim/support/files.h"
#include "sim/support/process_runner.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

using test_support::describe;
using test_support::runDiscover;

namespace {

const QString kDefaultProbesNote = QStringLiteral(
    "OPC UA discovery probes on TCP 4840,4841,4842,4843,4844,4845,4846,4847,4848,4849,4850,53530. Imported "
    "security is None; certificates stay unset.");

class DiscoverDevicesProcess : public ::testing::Test
{
protected:
    QString writeRequest(QJsonObject request)
    {
        if (!request.contains("tcp_subnet_scan") && !request.contains("options"))
            request.insert("tcp_subnet_scan", false);
        return test_support::writeJsonFile(dir.path(), "request.json", request);
    }

    QTemporaryDir dir;
};

} // namespace

TEST_F(DiscoverDevicesProcess, ScanOffWritesTheEnvelopeWithTheProbesNoteOnly)
{
    const auto r = runDiscover({"--mode", "discover_devices", "--request", writeRequest({})},
                               {{"OVRIN_DISCOVERY_DEBUG", ""}});
    ASSERT_TRUE(r.finished);
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    QJsonObject expected{{"success", true},
                         {"devices", QJsonArray()},
                         {"items", QJsonArray()},
                         {"warnings", QJsonArray{kDefaultProbesNote}},
                         {"mode", "discover_devices"}};
    EXPECT_EQ(r.out, test_support::indentedJson(expected));
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST_F(DiscoverDevicesProcess, JobIdIsCopiedUnchangedAndNoRequestedDeviceIsAdded)
{
    const QJsonObject request{{"job_id", 17}, {"device", QJsonObject{{"address", "opc.tcp://127.0.0.1:4840"}}},
                              {"tcp_subnet_scan", "False"}, {"tcp_ports", "4840"}};
    const auto r = runDiscover({"--mode", " discover_devices ", "--request", writeRequest(request)});
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QJsonObject document = QJsonDocument::fromJson(r.out).object();
    EXPECT_EQ(document.value("job_id"), QJsonValue(17));
    EXPECT_FALSE(document.contains("requested_device"));
    EXPECT_EQ(document.value("warnings"),
              QJsonValue(QJsonArray{"OPC UA discovery probes on TCP 4840. Imported security is None; certificates "
                                    "stay unset."}));
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST_F(DiscoverDevicesProcess, ScanSwitchedOffInsideOptionsIsHonoured)
{
    const QJsonObject request{{"options", QJsonObject{{"tcp_subnet_scan", false}, {"tcp_ports", "4841-4842"}}}};
    const auto r = runDiscover({"--request", writeRequest(request), "--mode", "discover_devices"});
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    const QJsonObject document = QJsonDocument::fromJson(r.out).object();
    EXPECT_EQ(document.value("devices"), QJsonValue(QJsonArray()));
    EXPECT_EQ(document.value("warnings"),
              QJsonValue(QJsonArray{"OPC UA discovery probes on TCP 4841,4842. Imported security is None; "
                                    "certificates stay unset."}));
}

TEST_F(DiscoverDevicesProcess, ModeFromTheRequestRunsTheJob)
{
    const QJsonObject request{{"mode", "discover_devices"}};
    const auto r = runDiscover({"--request", writeRequest(request)});
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    EXPECT_EQ(QJsonDocument::fromJson(r.out).object().value("mode"), QJsonValue("discover_devices"));
}

TEST_F(DiscoverDevicesProcess, ResultGoesToTheOutputFileAndNothingToStandardOutput)
{
    const QString output = dir.filePath("result.json");
    const auto r = runDiscover({"--mode", "discover_devices", "--request", writeRequest({{"job_id", "x"}}),
                                "--output", output});
    ASSERT_EQ(r.exitCode, 0) << describe(r);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(r.err.isEmpty());
    QJsonObject expected{{"success", true},
                         {"devices", QJsonArray()},
                         {"items", QJsonArray()},
                         {"warnings", QJsonArray{kDefaultProbesNote}},
                         {"mode", "discover_devices"},
                         {"job_id", "x"}};
    EXPECT_EQ(test_support::readFile(output), test_support::indentedJson(expected));
}

TEST_F(DiscoverDevicesProcess, UnwritableOutputEndsWithStatusSeven)
{
    const QString output = dir.filePath("missing/result.json");
    const auto r = runDiscover({"--mode", "discover_devices", "--request", writeRequest({}), "--output", output});
    ASSERT_TRUE(r.finished);
    EXPECT_EQ(r.exitCode, 7);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_EQ(QString::fromUtf8(r.err), "Unable to open output file: " + output + "\n");
    EXPECT_FALSE(QDir(dir.filePath("missing")).exists());
}
