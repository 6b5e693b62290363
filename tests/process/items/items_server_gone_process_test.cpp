// discover_items against a server that goes away while a large address space is browsed, as a
// PLC that reboots: killed, frozen, or killed and started again on the same port as soon as the
// first progress snapshot exists. The job ends with status 0 and a whole result: the items it
// got before the stop, each as in a full walk, and the warning that says where it stopped.

#include "tests/support/items_fixture.h"
#include "sim/support/files.h"
#include "sim/support/node_peer.h"
#include "sim/support/process_runner.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>

using items_test::ItemsJob;
using items_test::noneDevice;

namespace {

constexpr int variables = 100000;
constexpr int timeoutMs = 2000;
constexpr int fullWalkTimeoutMs = 30000;
// Far above what the job needs after the fault (a time-out, a drain wait and the write); a job
// that waits out the lost server node by node never gets near its end within it.
constexpr int endBoundMs = 60000;

QJsonObject plantScenario()
{
    return QJsonObject{{"address_space", QJsonObject{{"synthetic_count", variables},
                                                     {"synthetic_folder_size", 100},
                                                     {"hide_server_object", true}}}};
}

const QStringList stopNames = {"BadTimeout", "BadConnectionClosed", "BadSecureChannelClosed", "BadSessionClosed",
                               "BadServerNotConnected"};

// The last warning of a walk that stopped because its server went away.
bool isStopWarning(const QString& warning)
{
    if (warning.startsWith("Stopped browsing because the OPC UA server did not respond within the connection timeout."))
        return true;
    for (const QString& name : stopNames) {
        if (warning.endsWith(": " + name))
            return warning.startsWith("BrowseNext failed for ") || warning.startsWith("Browse result failed for ")
                || warning.contains(" because reading its data type failed: ");
    }
    return false;
}

class ItemsServerGone : public ItemsJob
{
protected:
    QJsonObject request(const QString& address) const
    {
        return QJsonObject{{"device", noneDevice(address)}, {"timeout_ms", timeoutMs}};
    }

    // The items of a whole walk, by identifier; with a longer time-out, so that a busy machine
    // does not cut the reference short.
    QHash<QString, QJsonObject> fullWalk(QJsonObject request)
    {
        request.insert("timeout_ms", fullWalkTimeoutMs);
        const QJsonObject document = runOk(request);
        QHash<QString, QJsonObject> items;
        for (const QJsonValue& item : document.value("items").toArray())
            items.insert(item.toObject().value("external_id").toString(), item.toObject());
        return items;
    }

    // Starts the job with a snapshot file, waits for the first snapshot, lets `fault` take the
    // server away, and returns the result the job wrote.
    QJsonObject walkUntilGone(const QJsonObject& request, const std::function<void()>& fault)
    {
        const QString snapshot = path("progress.json");
        const QString output = path("result.json");
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("OVRIN_DISCOVERY_OUTPUT_FILE", snapshot);
        process.setProcessEnvironment(environment);
        process.start(test_support::discoverExecutable(), {"--request", requestFile(request), "--output", output});
        EXPECT_TRUE(process.waitForStarted(10000));
        QElapsedTimer timer;
        timer.start();
        while (!QFile::exists(snapshot) && process.state() != QProcess::NotRunning && timer.elapsed() < 120000)
            QThread::msleep(5);
        EXPECT_TRUE(QFile::exists(snapshot)) << "no snapshot before the fault";
        fault();
        const bool ended = process.waitForFinished(endBoundMs);
        EXPECT_TRUE(ended) << "the job did not end within " << endBoundMs << " ms of the fault";
        if (!ended) {
            process.kill();
            process.waitForFinished(10000);
            return {};
        }
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
        EXPECT_TRUE(process.readAllStandardOutput().isEmpty());
        QFile file(output);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        bool ok = false;
        const QJsonObject document = items_test::parseObject(bytes, &ok);
        EXPECT_TRUE(ok) << bytes.left(200).constData();
        EXPECT_EQ(bytes, test_support::indentedJson(document));
        EXPECT_EQ(document.value("success"), QJsonValue(true));
        // The last snapshot is whole and holds a part of the result, record by record.
        const QByteArray snapshotBytes = test_support::readFile(snapshot);
        const QJsonObject last = items_test::parseObject(snapshotBytes, &ok);
        EXPECT_TRUE(ok) << snapshotBytes.left(200).constData();
        EXPECT_EQ(snapshotBytes, QJsonDocument(last).toJson(QJsonDocument::Compact));
        const QJsonArray items = document.value("items").toArray();
        EXPECT_LE(last.value("items").toArray().size(), items.size());
        for (const QJsonValue& item : last.value("items").toArray())
            EXPECT_EQ(items_test::itemById(items, item.toObject().value("external_id").toString()), item.toObject());
        return document;
    }

    // A part of the full walk, record by record, ended by the stop warning.
    void expectPartOfFullWalk(const QJsonObject& partial, const QHash<QString, QJsonObject>& full)
    {
        const QJsonArray items = partial.value("items").toArray();
        EXPECT_LT(items.size(), full.size());
        for (const QJsonValue& value : items) {
            const QJsonObject item = value.toObject();
            const QString id = item.value("external_id").toString();
            EXPECT_EQ(item, full.value(id)) << id.toStdString();
        }
        const QJsonArray warnings = partial.value("warnings").toArray();
        ASSERT_FALSE(warnings.isEmpty());
        EXPECT_TRUE(isStopWarning(warnings.last().toString())) << warnings.last().toString().toStdString();
    }
};

} // namespace

TEST_F(ItemsServerGone, KilledServer)
{
    startSim(plantScenario());
    const QHash<QString, QJsonObject> full = fullWalk(request(sim_.endpointUrl()));
    ASSERT_EQ(full.size(), variables);
    const QJsonObject partial = walkUntilGone(request(sim_.endpointUrl()), [this] { EXPECT_TRUE(sim_.kill()); });
    expectPartOfFullWalk(partial, full);
}

TEST_F(ItemsServerGone, FrozenServer)
{
    startSim(plantScenario());
    const QHash<QString, QJsonObject> full = fullWalk(request(sim_.endpointUrl()));
    ASSERT_EQ(full.size(), variables);
    const QJsonObject partial = walkUntilGone(request(sim_.endpointUrl()), [this] { EXPECT_TRUE(sim_.freeze()); });
    expectPartOfFullWalk(partial, full);
    // The node that timed out is named in the last warning, or in the one before the stop warning.
    const QJsonArray warnings = partial.value("warnings").toArray();
    ASSERT_GE(warnings.size(), 1);
    EXPECT_TRUE(warnings[warnings.size() - 1].toString().endsWith(": BadTimeout")
                || (warnings.size() >= 2 && warnings[warnings.size() - 2].toString().endsWith(": BadTimeout")))
        << QJsonDocument(warnings).toJson().constData();
    sim_.thaw();
}

TEST_F(ItemsServerGone, ServerRestartedOnTheSamePort)
{
    startSim(plantScenario());
    const QHash<QString, QJsonObject> full = fullWalk(request(sim_.endpointUrl()));
    ASSERT_EQ(full.size(), variables);
    const QJsonObject partial = walkUntilGone(request(sim_.endpointUrl()), [this] {
        QString error;
        EXPECT_TRUE(sim_.restart(&error)) << error.toStdString();
    });
    // The job did not connect again to the restarted server: it lists what it had.
    expectPartOfFullWalk(partial, full);
}

TEST_F(ItemsServerGone, KilledNodeOpcUaPeer)
{
    test_support::NodePeer peer;
    QString why;
    if (!test_support::NodePeer::available(&why) || !peer.start({"--extra-variables", "20000"}, &why)) {
        if (test_support::runningInCi())
            FAIL() << "the node-opcua peer is needed: " << why.toStdString();
        GTEST_SKIP() << "the node-opcua peer is not available: " << why.toStdString();
    }
    const QHash<QString, QJsonObject> full = fullWalk(request(peer.endpointUrl()));
    ASSERT_GT(full.size(), 20000);
    const QJsonObject partial = walkUntilGone(request(peer.endpointUrl()), [&peer] { EXPECT_TRUE(peer.kill()); });
    expectPartOfFullWalk(partial, full);
}
