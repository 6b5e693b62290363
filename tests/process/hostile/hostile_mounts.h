#pragma once

// A private mount namespace per run: the file systems a test mounts there vanish with it.
#include "sim/support/files.h"
#include "sim/support/process_runner.h"
#include "tests/support/items_fixture.h"

#include <QDir>

#include <gtest/gtest.h>

namespace hostile_test {

inline bool mountNamespacesAvailable()
{
    return test_support::runProcess("unshare", {"-m", "--propagation", "private", "true"}, {}, 10000).exitCode == 0;
}

// Mount namespaces need root: in CI their absence is a failure, elsewhere the test is skipped.
#define REQUIRE_MOUNT_NAMESPACE()                                                   \
    do {                                                                            \
        if (!hostile_test::mountNamespacesAvailable()) {                                       \
            if (test_support::runningInCi())                                        \
                FAIL() << "mount namespaces unavailable in CI";                     \
            GTEST_SKIP() << "mount namespaces unavailable (needs root)";            \
        }                                                                           \
    } while (0)

// What the script prints after its discover run: "status=N", then the listed files.
inline const char kReport[] = R"sh(
status=$?
echo "status=$status"
for f in "$DISK"/*.json; do echo "file=$(basename "$f"):$(head -c 40 "$f")"; done
echo "entries=$(ls -A "$DISK" | tr '\n' ' ')"
)sh";

class HostileMounts : public items_test::ItemsJob
{
protected:
    void SetUp() override { disk_ = path("disk"); ASSERT_TRUE(QDir().mkpath(disk_)); }

    test_support::ProcessResult runScript(const QString& script, QMap<QString, QString> env = {})
    {
        env.insert("DISK", disk_);
        env.insert("DISCOVER", test_support::discoverExecutable());
        env.insert("ERR", path("stderr.txt"));
        if (!env.contains("OVRIN_DISCOVERY_OUTPUT_FILE"))
            env.insert("OVRIN_DISCOVERY_OUTPUT_FILE", "");
        return test_support::runProcess("unshare", {"-m", "--propagation", "private", "/bin/bash", "-c", script + kReport},
                                        env, 60000);
    }
    QByteArray discoverStderr() { return test_support::readFile(path("stderr.txt")); }

    QString disk_;
};

} // namespace hostile_test
