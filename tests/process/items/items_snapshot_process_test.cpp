// Progress snapshots of discover_items as the gateway sees them: a reader polling the file
// named by OVRIN_DISCOVERY_OUTPUT_FILE while the browse runs.
#include "tests/support/items_fixture.h"
#include "sim/support/files.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

using items_test::ItemsJob;
using items_test::noneDevice;
using test_support::ProcessResult;

namespace {

QJsonObject syntheticScenario(int count)
{
    return QJsonObject{
        {"address_space", QJsonObject{{"synthetic_count", count}, {"synthetic_folder_size", 100}, {"hide_server_object", true}}}};
}

QJsonObject typesScenario()
{
    return QJsonObject{{"address_space", QJsonObject{{"presets", QJsonArray{"types"}}, {"hide_server_object", true}}}};
}

class ItemsSnapshots : public ItemsJob
{
protected:
    QMap<QString, QString> snapshotEnv(const QString& path) { return {{"OVRIN_DISCOVERY_OUTPUT_FILE", path}}; }

    // The snapshot file must hold exactly the compact form of a successful result.
    QJsonObject expectCompactResult(const QByteArray& bytes)
    {
        bool ok = false;
        const QJsonObject document = items_test::parseObject(bytes, &ok);
        EXPECT_TRUE(ok) << bytes.left(200).constData();
        EXPECT_EQ(bytes, QJsonDocument(document).toJson(QJsonDocument::Compact));
        EXPECT_EQ(document.value("success"), QJsonValue(true));
        EXPECT_EQ(document.value("mode").toString(), "discover_items");
        return document;
    }
};

} // namespace

TEST_F(ItemsSnapshots, ReaderOnlySeesCompleteDocumentsThatNeverShrink)
{
    startSim(syntheticScenario(3000));
    const QString snapshotPath = path("progress.json");
    QJsonObject device = noneDevice(sim_.endpointUrl());
    device.insert("id", 9);
    const QJsonObject request{{"device", device}, {"job_id", "job-9"}};

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("OVRIN_DISCOVERY_OUTPUT_FILE", snapshotPath);
    process.setProcessEnvironment(environment);
    process.start(test_support::discoverExecutable(), {"--request", requestFile(request)});
    ASSERT_TRUE(process.waitForStarted(10000));

    QElapsedTimer timer;
    timer.start();
    QByteArray previous;
    int lastCount = 0;
    int distinctSnapshots = 0;
    while (process.state() != QProcess::NotRunning && timer.elapsed() < 120000) {
        QFile file(snapshotPath);
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = file.readAll();
            if (bytes != previous) {
                previous = bytes;
                ++distinctSnapshots;
                const QJsonObject document = expectCompactResult(bytes);
                const int count = document.value("items").toArray().size();
                EXPECT_GE(count, lastCount);
                lastCount = count;
                EXPECT_EQ(document.value("job_id").toString(), "job-9");
                EXPECT_EQ(document.value("requested_device").toObject(), device);
                if (::testing::Test::HasFailure())
                    break;
            }
        }
        process.waitForFinished(5);
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5000);
        FAIL() << "discover did not end";
    }
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
    EXPECT_GE(distinctSnapshots, 2);

    const QByteArray out = process.readAllStandardOutput();
    bool ok = false;
    const QJsonObject result = items_test::parseObject(out, &ok);
    ASSERT_TRUE(ok);
    const QJsonArray items = result.value("items").toArray();
    EXPECT_EQ(items.size(), 3000);
    EXPECT_LE(lastCount, 3000);
    // The last snapshot is a prefix of the browse, not the final result.
    const QJsonObject last = expectCompactResult(test_support::readFile(snapshotPath));
    EXPECT_NE(test_support::readFile(snapshotPath), out);
    for (const QJsonValue& item : last.value("items").toArray())
        EXPECT_EQ(items_test::itemById(items, item.toObject().value("external_id").toString()), item.toObject());
}

TEST_F(ItemsSnapshots, SnapshotHoldsTheItemsBrowsedSoFarNotTheResult)
{
    startSim(typesScenario());
    const QString snapshotPath = path("progress.json");
    const ProcessResult result =
        run(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, {"--output", path("result.json")}, snapshotEnv(snapshotPath));
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_TRUE(result.out.isEmpty());
    bool ok = false;
    const QJsonObject final = items_test::parseObject(test_support::readFile(path("result.json")), &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(final.value("items").toArray().size(), 33);
    // 33 variables: one snapshot at the twentieth, another only if 400 ms passed since.
    const QJsonObject snapshot = expectCompactResult(test_support::readFile(snapshotPath));
    const int count = snapshot.value("items").toArray().size();
    EXPECT_GE(count, 20);
    EXPECT_LE(count, 33);
    EXPECT_NE(test_support::readFile(snapshotPath), test_support::readFile(path("result.json")));
}

TEST_F(ItemsSnapshots, SnapshotPathThatIsAlsoTheOutputEndsWithTheResult)
{
    startSim(typesScenario());
    const QString both = path("both.json");
    const ProcessResult result =
        run(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, {"--output", both}, snapshotEnv(both));
    ASSERT_EQ(result.exitCode, 0) << result.err.constData();
    const QByteArray bytes = test_support::readFile(both);
    bool ok = false;
    const QJsonObject document = items_test::parseObject(bytes, &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(bytes, test_support::indentedJson(document));
    EXPECT_EQ(document.value("items").toArray().size(), 33);
}

TEST_F(ItemsSnapshots, SnapshotPathInAMissingDirectoryChangesNothing)
{
    startSim(typesScenario());
    const QJsonObject request{{"device", noneDevice(sim_.endpointUrl())}};
    const QJsonObject plain = runOk(request);
    const QJsonObject withSnapshots = runOk(request, snapshotEnv(path("missing/progress.json")));
    EXPECT_EQ(withSnapshots, plain);
    EXPECT_FALSE(QDir(path("missing")).exists());
}

TEST_F(ItemsSnapshots, SnapshotPathIsTrimmed)
{
    startSim(typesScenario());
    runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, snapshotEnv("  " + path("progress.json") + "  "));
    expectCompactResult(test_support::readFile(path("progress.json")));
}

TEST_F(ItemsSnapshots, NoSnapshotFileWithoutTheVariable)
{
    startSim(typesScenario());
    runOk(QJsonObject{{"device", noneDevice(sim_.endpointUrl())}}, snapshotEnv("   "));
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files | QDir::NoDotAndDotDot), QStringList{"request.json"});
}
