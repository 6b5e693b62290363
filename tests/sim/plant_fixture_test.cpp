#include "sim/support/plant_fixture.h"
#include "sim/support/process_runner.h"
#include "tests/support/require_plant.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using test_support::describe;
using test_support::Plant;
using test_support::ProcessResult;

namespace {

bool writeFile(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

// A plant that comes up in a moment: two simulators and a web server, no node-opcua hosts.
QString writeSmallPlant(const QTemporaryDir& dir)
{
    writeFile(dir.filePath("line.json"), R"({"application": {"name": "Line Server"}})");
    writeFile(dir.filePath("plant.json"), R"({
  "subnet": "10.78.0.0/24",
  "gateway": {"name": "gw", "ip": "10.78.0.1", "interface": "eth0"},
  "hosts": [
    {"name": "line", "ip": "10.78.0.10", "kind": "sim", "scenario": "line.json", "ports": [4840, 4841]},
    {"name": "web", "ip": "10.78.0.20", "kind": "http", "ports": [4843]}
  ]
})");
    return dir.filePath("plant.json");
}

TEST(PlantLifecycle, ComesUpAndGoesDownThreeTimesLeavingNoNamespaces)
{
    REQUIRE_PLANT();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString file = writeSmallPlant(dir);
    Plant plant;
    for (int round = 0; round < 3; ++round) {
        QString error;
        ASSERT_TRUE(plant.up(file, &error)) << "round " << round << ": " << error.toStdString();
        EXPECT_EQ(plant.namespaces().size(), 4) << plant.namespaces().join(' ').toStdString();
        const ProcessResult status = plant.status();
        EXPECT_EQ(status.exitCode, 0) << describe(status);
        EXPECT_TRUE(status.out.contains("line 10.78.0.10 sim 4840:listening 4841:listening")) << describe(status);
        EXPECT_TRUE(status.out.contains("web 10.78.0.20 http 4843:listening")) << describe(status);
        plant.down();
        EXPECT_EQ(plant.namespaces(), QStringList()) << "round " << round;
    }
}

TEST(PlantLifecycle, SecondUpIsRefusedWhileThePlantIsUp)
{
    REQUIRE_PLANT();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString file = writeSmallPlant(dir);
    Plant plant;
    QString error;
    ASSERT_TRUE(plant.up(file, &error)) << error.toStdString();
    {
        Plant again(plant.name());
        EXPECT_FALSE(again.up(file, &error));
        EXPECT_TRUE(error.contains(QStringLiteral("plant '%1' is still up (namespaces: ").arg(plant.name())))
            << error.toStdString();
        EXPECT_TRUE(error.contains(QStringLiteral("remove it with: sim/plant --name %1 down").arg(plant.name())))
            << error.toStdString();
    }
    // The refused attempt left the running plant alone.
    EXPECT_EQ(plant.namespaces().size(), 4);
    const ProcessResult probe = plant.execOnGateway(QStringLiteral("true"), {});
    EXPECT_EQ(probe.exitCode, 0) << describe(probe);
}

TEST(PlantLifecycle, FailedUpRemovesWhatItBuilt)
{
    REQUIRE_PLANT();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // The second host's scenario is not JSON: its simulator exits before it is ready.
    writeFile(dir.filePath("good.json"), "{}");
    writeFile(dir.filePath("bad.json"), "{ not json");
    writeFile(dir.filePath("plant.json"), R"({
  "subnet": "10.79.0.0/24",
  "gateway": {"name": "gw", "ip": "10.79.0.1"},
  "hosts": [
    {"name": "good", "ip": "10.79.0.10", "kind": "sim", "scenario": "good.json"},
    {"name": "bad", "ip": "10.79.0.11", "kind": "sim", "scenario": "bad.json"}
  ]
})");
    Plant plant;
    QString error;
    EXPECT_FALSE(plant.up(dir.filePath("plant.json"), &error));
    EXPECT_TRUE(error.contains("the server on host bad ended before it was ready")) << error.toStdString();
    EXPECT_EQ(plant.namespaces(), QStringList());
}

} // namespace
