// The discover process on file systems that fail it: full, read-only, or refusing to replace the result.
// Each test mounts its file system in a private mount namespace, which takes the mounts with
// it when it ends; the script reports what it saw before that.
#include "tests/process/hostile/hostile_mounts.h"

#include <QJsonDocument>

using items_test::noneDevice;
using test_support::ProcessResult;

using hostile_test::HostileMounts;

TEST_F(HostileMounts, FullDiskFailsWithStatusSevenAndKeepsTheOldResult)
{
    REQUIRE_MOUNT_NAMESPACE();
    // Room for the old result and 4 KiB more: the 16 KiB result is cut short by ENOSPC.
    const QString request = requestFile(
        QJsonObject{{"job_id", QString(16384, 'j')}, {"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs -o size=32k tmpfs "$DISK" || exit 90
printf 'previous result\n' > "$DISK/result.json"
head -c 24k /dev/zero > "$DISK/fill"
"$DISCOVER" -m discover_devices -r "$REQUEST" -o "$DISK/result.json" 2>"$ERR"
)sh"), {{"REQUEST", request}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    const QString out = disk_ + "/result.json";
    EXPECT_EQ(result.out, QByteArray("status=7\nfile=result.json:previous result\nentries=fill result.json \n"))
        << test_support::describe(result);
    EXPECT_EQ(discoverStderr(), ("Unable to write output file: " + out + "\n").toUtf8());
}

TEST_F(HostileMounts, DiskWithoutRoomForAByteFailsWithStatusSeven)
{
    REQUIRE_MOUNT_NAMESPACE();
    const QString request = requestFile(QJsonObject{{"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs -o size=16k tmpfs "$DISK" || exit 90
printf 'previous result\n' > "$DISK/result.json"
head -c 1M /dev/zero > "$DISK/fill" 2>/dev/null
"$DISCOVER" -m discover_devices -r "$REQUEST" -o "$DISK/result.json" 2>"$ERR"
)sh"), {{"REQUEST", request}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.out, QByteArray("status=7\nfile=result.json:previous result\nentries=fill result.json \n"))
        << test_support::describe(result);
    EXPECT_EQ(discoverStderr(), ("Unable to write output file: " + disk_ + "/result.json\n").toUtf8());
}

TEST_F(HostileMounts, SnapshotsOnAFullDiskStaySilent)
{
    REQUIRE_MOUNT_NAMESPACE();
    startSim(QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"types"}}, {"hide_server_object", true}}}});
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs -o size=16k tmpfs "$DISK" || exit 90
printf 'previous snapshot\n' > "$DISK/progress.json"
head -c 1M /dev/zero > "$DISK/fill" 2>/dev/null
"$DISCOVER" -r "$REQUEST" -o "$RESULT" 2>"$ERR"
)sh"), {{"REQUEST", request}, {"RESULT", path("result.json")}, {"OVRIN_DISCOVERY_OUTPUT_FILE", disk_ + "/progress.json"}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.out, QByteArray("status=0\nfile=progress.json:previous snapshot\nentries=fill progress.json \n"))
        << test_support::describe(result);
    EXPECT_TRUE(discoverStderr().isEmpty());
    bool ok = false;
    EXPECT_EQ(items_test::parseObject(test_support::readFile(path("result.json")), &ok).value("items").toArray().size(), 33);
}

TEST_F(HostileMounts, ResultThatCannotBeReplacedFailsWithStatusSeven)
{
    REQUIRE_MOUNT_NAMESPACE();
    const QString request = requestFile(QJsonObject{{"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    test_support::writeFile(disk_, "result.json", "previous result\n");
    // A mount point cannot be renamed over: the new result is written but never put in place.
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount --bind "$DISK/result.json" "$DISK/result.json" || exit 90
"$DISCOVER" -m discover_devices -r "$REQUEST" -o "$DISK/result.json" 2>"$ERR"
)sh"), {{"REQUEST", request}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.out, QByteArray("status=7\nfile=result.json:previous result\nentries=result.json \n"))
        << test_support::describe(result);
    EXPECT_EQ(discoverStderr(), ("Unable to write output file: " + disk_ + "/result.json\n").toUtf8());
}

TEST_F(HostileMounts, ReadOnlyDiskFailsWithStatusSevenAndKeepsTheOldResult)
{
    REQUIRE_MOUNT_NAMESPACE();
    const QString request = requestFile(QJsonObject{{"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs -o size=64k tmpfs "$DISK" || exit 90
printf 'previous result\n' > "$DISK/result.json"
mount -o remount,ro "$DISK" || exit 91
"$DISCOVER" -m discover_devices -r "$REQUEST" -o "$DISK/result.json" 2>"$ERR"
)sh"), {{"REQUEST", request}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.out, QByteArray("status=7\nfile=result.json:previous result\nentries=result.json \n"))
        << test_support::describe(result);
    EXPECT_EQ(discoverStderr(), ("Unable to open output file: " + disk_ + "/result.json\n").toUtf8());
}

TEST_F(HostileMounts, SnapshotsOnAReadOnlyDiskStaySilent)
{
    REQUIRE_MOUNT_NAMESPACE();
    startSim(QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"types"}}, {"hide_server_object", true}}}});
    const QString request = requestFile(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}});
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs -o size=64k tmpfs "$DISK" || exit 90
printf 'previous snapshot\n' > "$DISK/progress.json"
mount -o remount,ro "$DISK" || exit 91
"$DISCOVER" -r "$REQUEST" -o "$RESULT" 2>"$ERR"
)sh"), {{"REQUEST", request}, {"RESULT", path("result.json")}, {"OVRIN_DISCOVERY_OUTPUT_FILE", disk_ + "/progress.json"}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_EQ(result.out, QByteArray("status=0\nfile=progress.json:previous snapshot\nentries=progress.json \n"))
        << test_support::describe(result);
    EXPECT_TRUE(discoverStderr().isEmpty());
    bool ok = false;
    EXPECT_EQ(items_test::parseObject(test_support::readFile(path("result.json")), &ok).value("items").toArray().size(), 33);
}
