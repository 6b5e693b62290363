// The result written by a process that has no /proc to name its anonymous file through. The
// sanitizer runtimes need /proc themselves, so this runs in the plain builds only.
#include "tests/process/hostile/hostile_mounts.h"

using hostile_test::HostileMounts;
using test_support::ProcessResult;

TEST_F(HostileMounts, ResultIsWrittenWithoutProc)
{
    REQUIRE_MOUNT_NAMESPACE();
    const QString request = requestFile(QJsonObject{{"options", QJsonObject{{"tcp_subnet_scan", false}}}});
    test_support::writeFile(disk_, "result.json", "previous result\n");
    const ProcessResult result = runScript(QStringLiteral(R"sh(
mount -t tmpfs none /proc || exit 90
"$DISCOVER" -m discover_devices -r "$REQUEST" -o "$DISK/result.json" 2>"$ERR"
)sh"), {{"REQUEST", request}});
    ASSERT_TRUE(result.finished) << test_support::describe(result);
    EXPECT_TRUE(result.out.startsWith("status=0\nfile=result.json:{\n")) << test_support::describe(result);
    EXPECT_TRUE(result.out.endsWith("\nentries=result.json \n")) << test_support::describe(result);
    EXPECT_TRUE(discoverStderr().isEmpty());
}
