// The discover process seen from the gateway: exit status, the one stderr line,
// standard output and the output file.
#include "sim/support/files.h"
#include "sim/support/process_runner.h"
#include "ua/versions.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <openssl/opensslv.h>
#include <sys/stat.h>

using test_support::ProcessResult;
using test_support::runDiscover;
using test_support::runProcess;

namespace {

const char kNoTarget[] =
    "discover_items requires a target device object in request_json under 'device' or 'target_device'.\n";

// discover_devices requests in these tests never scan: only namespaces we build may be scanned.
QJsonObject devicesRequest(QJsonObject extra = {})
{
    QJsonObject options{{"tcp_subnet_scan", false}};
    extra.insert("options", options);
    return extra;
}

class FrontEndProcess : public ::testing::Test
{
protected:
    QString request(const QJsonObject& object) { return test_support::writeJsonFile(dir_.path(), "request.json", object); }
    QString path(const QString& name) const { return dir_.filePath(name); }
    QTemporaryDir dir_;
};

QJsonObject parseStdout(const ProcessResult& result)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(result.out, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << result.out.constData();
    return document.object();
}

} // namespace

TEST_F(FrontEndProcess, NoArgumentsAsksForATargetDevice)
{
    const ProcessResult result = runDiscover({});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, QByteArray(kNoTarget));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, ModeWithBlanksRunsDiscoverDevices)
{
    const ProcessResult result = runDiscover({"--mode", "  discover_devices  ", "--request", request(devicesRequest())});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_TRUE(result.err.isEmpty());
    const QJsonObject document = parseStdout(result);
    EXPECT_EQ(document.value("mode").toString(), "discover_devices");
    EXPECT_EQ(document.value("success"), QJsonValue(true));
    EXPECT_EQ(document.value("devices"), QJsonValue(QJsonArray()));
    EXPECT_EQ(document.value("items"), QJsonValue(QJsonArray()));
    EXPECT_FALSE(document.contains("requested_device"));
}

TEST_F(FrontEndProcess, StdoutHoldsOnlyTheIndentedDocument)
{
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", request(devicesRequest())});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, test_support::indentedJson(parseStdout(result)));
}

TEST_F(FrontEndProcess, ModeIsCaseSensitive)
{
    const ProcessResult result = runDiscover({"-m", "Discover_Devices"});
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, QByteArray("Unsupported discovery mode: Discover_Devices\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, RequestModeIsUsedWithoutAnOption)
{
    const ProcessResult result = runDiscover({"-r", request(devicesRequest({{"mode", " discover_devices "}}))});
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_EQ(parseStdout(result).value("mode").toString(), "discover_devices");
}

TEST_F(FrontEndProcess, CommandLineModeWinsOverRequestMode)
{
    const ProcessResult result = runDiscover({"-m", "discover_items", "-r", request(devicesRequest({{"mode", "discover_devices"}}))});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, QByteArray(kNoTarget));
}

TEST_F(FrontEndProcess, UnknownRequestModeIsRejected)
{
    const ProcessResult result = runDiscover({"-r", request({{"mode", "scan_all"}})});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, QByteArray("Unsupported discovery mode: scan_all\n"));
}

TEST_F(FrontEndProcess, NonStringRequestModeFallsBackToDiscoverItems)
{
    const ProcessResult result = runDiscover({"-r", request({{"mode", 5}})});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, QByteArray(kNoTarget));
}

TEST_F(FrontEndProcess, ArrayRequestIsNotAnObject)
{
    const QString file = test_support::writeFile(dir_.path(), "array.json", "[1, 2]");
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: no error occurred at offset 0\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, MissingRequestFileCannotBeOpened)
{
    const QString file = path("nothing-here.json");
    const ProcessResult result = runDiscover({"-r", file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, ("Unable to open request file: " + file + "\n").toUtf8());
}

TEST_F(FrontEndProcess, RequestPathIsReportedAsGiven)
{
    test_support::writeFile(dir_.path(), "r.json", "{}");
    const ProcessResult result = runProcess("/bin/sh", {"-c", "cd '" + dir_.path() + "' && exec '" +
                                                                 test_support::discoverExecutable() + "' -r ./missing.json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Unable to open request file: ./missing.json\n"));
}

TEST_F(FrontEndProcess, DirectoryAsRequestCannotBeOpened)
{
    const ProcessResult result = runDiscover({"-r", dir_.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, ("Unable to open request file: " + dir_.path() + "\n").toUtf8());
}

// --- Request sources: pipes, FIFOs and standard input are read like a file ---

namespace {

// Runs command in bash with discover as "$0" and words as "$1"..., so that the request can come
// through a pipe, a redirection or a process substitution.
ProcessResult runInShell(const QString& command, const QStringList& words)
{
    return runProcess("/bin/bash", QStringList{"-c", command, test_support::discoverExecutable()} + words);
}

} // namespace

TEST_F(FrontEndProcess, RequestFromAPipeGivesTheResultOfTheFile)
{
    const QString file = request(devicesRequest({{"mode", "discover_devices"}, {"job_id", "pipe"}}));
    const ProcessResult fromFile = runDiscover({"-r", file});
    ASSERT_EQ(fromFile.exitCode, 0) << test_support::describe(fromFile);
    const ProcessResult fromPipe = runInShell(R"(cat "$1" | "$0" -r /dev/stdin)", {file});
    EXPECT_EQ(fromPipe.exitCode, 0) << test_support::describe(fromPipe);
    EXPECT_TRUE(fromPipe.err.isEmpty());
    EXPECT_EQ(fromPipe.out, fromFile.out);
    EXPECT_EQ(parseStdout(fromPipe).value("job_id").toString(), "pipe");
}

TEST_F(FrontEndProcess, RequestFromStandardInputGivesTheResultOfTheFile)
{
    const QString file = request(devicesRequest({{"mode", "discover_devices"}}));
    const ProcessResult fromFile = runDiscover({"-r", file});
    ASSERT_EQ(fromFile.exitCode, 0) << test_support::describe(fromFile);
    const ProcessResult redirected = runInShell(R"("$0" -r /dev/stdin < "$1")", {file});
    EXPECT_EQ(redirected.exitCode, 0) << test_support::describe(redirected);
    EXPECT_TRUE(redirected.err.isEmpty());
    EXPECT_EQ(redirected.out, fromFile.out);
}

TEST_F(FrontEndProcess, RequestFromAProcessSubstitutionGivesTheResultOfTheFile)
{
    const QString file = request(devicesRequest({{"mode", "discover_devices"}}));
    const ProcessResult fromFile = runDiscover({"-r", file});
    ASSERT_EQ(fromFile.exitCode, 0) << test_support::describe(fromFile);
    const ProcessResult substituted = runInShell(R"("$0" -r <(cat "$1"))", {file});
    EXPECT_EQ(substituted.exitCode, 0) << test_support::describe(substituted);
    EXPECT_TRUE(substituted.err.isEmpty());
    EXPECT_EQ(substituted.out, fromFile.out);
}

TEST_F(FrontEndProcess, RequestFromAFifoWithAWriterGivesTheResultOfTheFile)
{
    const QString file = request(devicesRequest({{"mode", "discover_devices"}}));
    const QString fifo = path("request.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const ProcessResult fromFile = runDiscover({"-r", file});
    ASSERT_EQ(fromFile.exitCode, 0) << test_support::describe(fromFile);
    // The writer opens the FIFO itself, under a time limit, so that it never outlives the test;
    // once before discover has opened it and once after.
    for (const char* delay : {"0", "0.5"}) {
        const ProcessResult fromFifo = runInShell(
            R"((sleep "$3"; exec timeout 20 tee "$2" < "$1" > /dev/null) & "$0" -r "$2"; status=$?; wait; exit $status)",
            {file, fifo, delay});
        EXPECT_EQ(fromFifo.exitCode, 0) << "delay " << delay << ": " << test_support::describe(fromFifo);
        EXPECT_TRUE(fromFifo.err.isEmpty());
        EXPECT_EQ(fromFifo.out, fromFile.out);
    }
}

TEST_F(FrontEndProcess, PipeClosedWithoutDataIsAnEmptyRequest)
{
    const ProcessResult result = runInShell(R"(true | "$0" -r /dev/stdin)", {});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: illegal value at offset 0\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, NullDeviceOnStandardInputIsAnEmptyRequest)
{
    const ProcessResult result = runInShell(R"("$0" -r /dev/stdin < /dev/null)", {});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: illegal value at offset 0\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, PipeOverSixtyFourMebibytesFailsAndKeepsTheOutput)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const ProcessResult result = runInShell(R"(head -c "$1" /dev/zero | "$0" -r /dev/stdin -o "$2")",
                                            {QString::number(64 * 1024 * 1024 + 1), out});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Request file is larger than 64 MiB: /dev/stdin\n"));
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
}

TEST_F(FrontEndProcess, EmptyRequestFileIsInvalid)
{
    const QString file = test_support::writeFile(dir_.path(), "empty.json", QByteArray());
    const ProcessResult result = runDiscover({"-r", file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: illegal value at offset 0\n"));
}

TEST_F(FrontEndProcess, RequestThatIsNotUtf8IsInvalid)
{
    const QString file = test_support::writeFile(dir_.path(), "latin1.json", QByteArray("{\"a\":\"\xff\xfe\"}"));
    const ProcessResult result = runDiscover({"-r", file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: invalid UTF8 string at offset 6\n"));
}

TEST_F(FrontEndProcess, TruncatedRequestReportsTheOffset)
{
    const QString file = test_support::writeFile(dir_.path(), "cut.json", QByteArray("{\"mode\": \"discover_devices\""));
    const ProcessResult result = runDiscover({"-r", file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, QByteArray("Invalid JSON request: unterminated string at offset 27\n"));
}

TEST_F(FrontEndProcess, RandomBytesNeverCrash)
{
    QRandomGenerator random(20261122);
    for (int round = 0; round < 20; ++round) {
        QByteArray bytes(1 + static_cast<int>(random.bounded(512)), '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random.bounded(256));
        if (round % 2)
            bytes.prepend("{\"mode\":\"discover_devices\",");
        const QString file = test_support::writeFile(dir_.path(), "random.json", bytes);
        const ProcessResult result = runDiscover({"-r", file, "-o", path("out.json")});
        ASSERT_TRUE(result.finished);
        EXPECT_EQ(result.exitCode, 1) << "round " << round;
        EXPECT_TRUE(result.err.startsWith("Invalid JSON request: ")) << result.err.constData();
        EXPECT_EQ(result.err.count('\n'), 1);
        EXPECT_FALSE(QFile::exists(path("out.json")));
    }
}

TEST_F(FrontEndProcess, NumericJobIdIsWrittenBackAsNumber)
{
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", request(devicesRequest({{"job_id", 17}}))});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.contains("\"job_id\": 17,"));
    EXPECT_EQ(parseStdout(result).value("job_id"), QJsonValue(17));
}

TEST_F(FrontEndProcess, ResultGoesToTheOutputFileOnly)
{
    const QString out = path("result.json");
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", request(devicesRequest()), "-o", out});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_TRUE(result.err.isEmpty());
    const QByteArray written = test_support::readFile(out);
    EXPECT_EQ(written, test_support::indentedJson(QJsonDocument::fromJson(written).object()));
    EXPECT_EQ(QJsonDocument::fromJson(written).object().value("mode").toString(), "discover_devices");
}

TEST_F(FrontEndProcess, ExistingOutputFileIsReplacedWhole)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", QByteArray(10000, '#'));
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", request(devicesRequest()), "-o", out});
    ASSERT_EQ(result.exitCode, 0);
    const QByteArray written = test_support::readFile(out);
    EXPECT_FALSE(written.contains('#'));
    EXPECT_TRUE(QJsonDocument::fromJson(written).isObject());
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files), (QStringList{"request.json", "result.json"}));
}

TEST_F(FrontEndProcess, OutputInMissingDirectoryFailsWithStatusSeven)
{
    const QString out = path("no/such/dir/result.json");
    const ProcessResult result = runDiscover({"-m", "discover_devices", "-r", request(devicesRequest()), "-o", out});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to open output file: " + out + "\n").toUtf8());
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, FailedWriteKeepsThePreviousOutput)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    // A file size limit of zero makes every write fail; the signal it raises is ignored.
    const QString command = QStringLiteral("trap '' XFSZ; ulimit -f 0; exec '%1' -m discover_devices -r '%2' -o '%3'")
                                .arg(test_support::discoverExecutable(), request(devicesRequest()), out);
    const ProcessResult result = runProcess("/bin/bash", {"-c", command});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.err, ("Unable to write output file: " + out + "\n").toUtf8());
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files), (QStringList{"request.json", "result.json"}));
}

TEST_F(FrontEndProcess, FailedRequestLeavesOutputUntouched)
{
    const QString out = test_support::writeFile(dir_.path(), "result.json", "previous result\n");
    const QString bad = test_support::writeFile(dir_.path(), "bad.json", "{");
    const ProcessResult result = runDiscover({"-r", bad, "-o", out});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(test_support::readFile(out), QByteArray("previous result\n"));
}

TEST_F(FrontEndProcess, ItemsWithoutTargetWritesNothing)
{
    const QString out = path("result.json");
    const ProcessResult result = runDiscover({"-m", "discover_items", "-r", request({{"device", "plc"}}), "-o", out});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, QByteArray(kNoTarget));
    EXPECT_FALSE(QFile::exists(out));
}

TEST_F(FrontEndProcess, TargetWithoutAddressFailsWithStatusFour)
{
    const QJsonObject device{{"uid", "plc-1"}, {"address", "   "}};
    const ProcessResult result = runDiscover({"-m", "discover_items", "-r", request({{"device", device}})});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, QByteArray("Target device is missing an address\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST_F(FrontEndProcess, TargetDeviceWithoutAddressFailsWhenDeviceIsNoObject)
{
    const ProcessResult result =
        runDiscover({"-m", "discover_items", "-r", request({{"device", 3}, {"target_device", QJsonObject{{"id", 4}}}})});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, QByteArray("Target device is missing an address\n"));
}

TEST_F(FrontEndProcess, HelpDescribesTheOptions)
{
    const ProcessResult result = runDiscover({"--help"});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.contains("OPC UA client discovery."));
    EXPECT_TRUE(result.out.contains("-m, --mode <mode>"));
    EXPECT_TRUE(result.out.contains("Discovery mode: discover_devices or discover_items."));
    EXPECT_TRUE(result.out.contains("-r, --request <path>"));
    EXPECT_TRUE(result.out.contains("Path to a JSON request file."));
    EXPECT_TRUE(result.out.contains("-o, --output <path>"));
    EXPECT_TRUE(result.out.contains("Path to a JSON output file. Defaults to stdout."));
}

TEST_F(FrontEndProcess, VersionIsOnePointZeroThenTheStackTlsLibraryAndQt)
{
    const ProcessResult result = runDiscover({"--version"});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.err.isEmpty()) << result.err.constData();
    const QStringList lines = QString::fromUtf8(result.out).split('\n');
    ASSERT_EQ(lines.size(), 5) << result.out.constData();
    EXPECT_EQ(lines[0], "discover 1.0");

    // The stack: its own version, at least 1.4.18, and Debian's version of the source it was
    // built from, of the same upstream release.
    const QRegularExpression stack(
        R"(^open62541 1\.4\.(\d+) \(Debian source package open62541 (?:\d+:)?1\.4\.(\d+)[^-\s]*-[^\s]+\)$)");
    const QRegularExpressionMatch stackMatch = stack.match(lines[1]);
    ASSERT_TRUE(stackMatch.hasMatch()) << lines[1].toStdString();
    EXPECT_GE(stackMatch.captured(1).toInt(), 18);
    EXPECT_EQ(stackMatch.captured(1), stackMatch.captured(2));
    EXPECT_EQ(lines[1], Ua::stackVersionText());

    // The TLS library that runs, then the one the tool was built with.
    EXPECT_TRUE(QRegularExpression(R"(^OpenSSL 3\.\d+\.\d+\S* .+ \(built with OpenSSL 3\.\d+\.\d+\S* .+\)$)")
                    .match(lines[2])
                    .hasMatch())
        << lines[2].toStdString();
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral("(built with " OPENSSL_VERSION_TEXT ")"))) << lines[2].toStdString();

    EXPECT_EQ(lines[3], QStringLiteral("Qt %1 (built with Qt " QT_VERSION_STR ")").arg(qVersion()));
    EXPECT_EQ(lines[4], "");
}

TEST_F(FrontEndProcess, ShortVersionOptionAndVersionAmongOtherOptionsPrintTheSameVersions)
{
    const ProcessResult full = runDiscover({"--version"});
    ASSERT_EQ(full.exitCode, 0);
    const ProcessResult shortOption = runDiscover({"-v"});
    EXPECT_EQ(shortOption.exitCode, 0);
    EXPECT_EQ(shortOption.out, full.out);
    const ProcessResult amongOthers = runDiscover({"-m", "discover_devices", "--version", "-r", path("none.json")});
    EXPECT_EQ(amongOthers.exitCode, 0);
    EXPECT_EQ(amongOthers.out, full.out);
    EXPECT_TRUE(amongOthers.err.isEmpty());
}

TEST_F(FrontEndProcess, UnknownOptionIsRejectedByTheParser)
{
    const ProcessResult result = runDiscover({"--bogus"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains("Unknown option 'bogus'."));
    EXPECT_TRUE(result.out.isEmpty());
}
