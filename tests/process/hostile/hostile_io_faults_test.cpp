// The result write meeting a failing disk, through the built discover process: a write, sync,
// close or rename of the result's file that fails with EIO ends with status 7 and the write
// message, keeps the previous result and leaves no temporary file behind. The failures come
// from a preloaded library that fails that one operation for the files of the test's directory.
#include "sim/support/files.h"
#include "sim/support/process_runner.h"
#include "tests/support/items_fixture.h"

#include <QDir>
#include <QFileInfo>

#include <gtest/gtest.h>

using items_test::noneDevice;
using test_support::ProcessResult;

namespace {

QStringList everyEntry(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

class HostileIo : public items_test::ItemsJob, public ::testing::WithParamInterface<const char*>
{
protected:
    ProcessResult runFailing(const char* operation, const QStringList& arguments)
    {
        const QMap<QString, QString> env{
            {"OVRIN_DISCOVERY_OUTPUT_FILE", ""},
            {"LD_PRELOAD", QStringLiteral(IO_FAULT_SHIM)},
            {"DISCOVER_FAULT_OP", QString::fromLatin1(operation)},
            {"DISCOVER_FAULT_DIR", QFileInfo(dir_.path()).canonicalFilePath()},
            // The sanitizer runtime wants to come first; the shim only wraps libc calls.
            {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=1:abort_on_error=1"}};
        return test_support::runProcess(test_support::discoverExecutable(), arguments, env, 60000);
    }

    void expectWriteFailure(const ProcessResult& result, const QString& out)
    {
        ASSERT_TRUE(result.finished) << test_support::describe(result);
        EXPECT_EQ(result.exitCode, 7) << test_support::describe(result);
        EXPECT_EQ(result.err, ("Unable to write output file: " + out + "\n").toUtf8());
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
        EXPECT_EQ(everyEntry(dir_.path()), (QStringList{"request.json", "result.json"}));
    }
};

} // namespace

TEST_P(HostileIo, DevicesResultFailsWithStatusSevenAndKeepsTheOldResult)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const QString request = requestFile(QJsonObject{{"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    expectWriteFailure(runFailing(GetParam(), {"-m", "discover_devices", "-r", request, "-o", out}), out);
}

TEST_P(HostileIo, ItemsResultFailsWithStatusSevenAndKeepsTheOldResult)
{
    startSim(QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"types"}}, {"hide_server_object", true}}}});
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    expectWriteFailure(runFailing(GetParam(), {"-r", request, "-o", out}), out);
}

INSTANTIATE_TEST_SUITE_P(EioOn, HostileIo, ::testing::Values("write", "fsync", "close", "rename"));

TEST(HostileIoShim, FailsNothingOutsideItsDirectory)
{
    // The same run with the failures aimed at another directory writes the result.
    QTemporaryDir dir;
    QTemporaryDir elsewhere;
    const QString out = QDir(dir.path()).filePath("result.json");
    const QString request = test_support::writeFile(dir.path(), "request.json",
                                                    R"({"options": {"tcp_subnet_scan": false}})");
    for (const char* operation : {"write", "fsync", "close", "rename"}) {
        const ProcessResult result = test_support::runProcess(
            test_support::discoverExecutable(), {"-m", "discover_devices", "-r", request, "-o", out},
            {{"LD_PRELOAD", QStringLiteral(IO_FAULT_SHIM)},
             {"DISCOVER_FAULT_OP", QString::fromLatin1(operation)},
             {"DISCOVER_FAULT_DIR", QFileInfo(elsewhere.path()).canonicalFilePath()},
             {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=1:abort_on_error=1"}},
            60000);
        EXPECT_EQ(result.exitCode, 0) << operation << test_support::describe(result);
        EXPECT_TRUE(test_support::readFile(out).contains("\"success\": true")) << operation;
    }
}
